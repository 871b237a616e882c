/*
 * What the link partner of a network port tells of itself under IEEE 802.1AB, from lldpd, which
 * listens for it, if this program was built with its library; otherwise, or if nothing was heard,
 * the bridge that the spanning tree protocol has found. A record has the texts that lldpd told in
 * the files of the interface's directory lldp.
 */
#include "nic.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    chassis_id,
    chassis_type,
    port_id,
    port_type,
    system_name,
    system_description,
    ipv4_address,
    ipv6_address,
    field_count,
    text_size = 256
};

static const char* const members[field_count] = {"ChassisId",
                                                 "ChassisIdSubType",
                                                 "PortId",
                                                 "PortIdSubType",
                                                 "SystemName",
                                                 "SystemDescr",
                                                 "ManagementAddressIPv4",
                                                 "ManagementAddressIPv6"};

#ifdef HAVE_LLDPCTL
#include <lldpctl.h>
#include <unistd.h>

static void copy(char text[text_size], lldpctl_atom_t* from, lldpctl_key_t key)
{
    const char* value = lldpctl_atom_get_str(from, key);
    snprintf(text, text_size, "%s", value != NULL ? value : "");
}

static void copy_number(char text[text_size], lldpctl_atom_t* from, lldpctl_key_t key)
{
    snprintf(text, text_size, "%ld", lldpctl_atom_get_int(from, key));
}

static void read_neighbor(char texts[field_count][text_size], lldpctl_atom_t* neighbor)
{
    lldpctl_atom_t* chassis = lldpctl_atom_get(neighbor, lldpctl_k_port_chassis);
    lldpctl_atom_t* addresses = lldpctl_atom_get(chassis, lldpctl_k_chassis_mgmt);
    lldpctl_atom_t* address = NULL;
    copy(texts[chassis_id], chassis, lldpctl_k_chassis_id);
    copy_number(texts[chassis_type], chassis, lldpctl_k_chassis_id_subtype);
    copy(texts[port_id], neighbor, lldpctl_k_port_id);
    copy_number(texts[port_type], neighbor, lldpctl_k_port_id_subtype);
    copy(texts[system_name], chassis, lldpctl_k_chassis_name);
    copy(texts[system_description], chassis, lldpctl_k_chassis_descr);
    lldpctl_atom_foreach(addresses, address)
    {
        const char* ip = lldpctl_atom_get_str(address, lldpctl_k_mgmt_ip);
        copy(texts[ip != NULL && strchr(ip, ':') != NULL ? ipv6_address : ipv4_address], address,
             lldpctl_k_mgmt_ip);
    }
    lldpctl_atom_dec_ref(addresses);
    lldpctl_atom_dec_ref(chassis);
}

/* Of several partners, such as those behind a bridge that forwards what they send, the last. */
static void ask_lldpd(char texts[field_count][text_size], const char* interface)
{
    if (access(lldpctl_get_default_transport(), R_OK | W_OK) != 0)
    {
        return; /* it doesn't run, or not for this process; the library would log it each time */
    }
    lldpctl_conn_t* connection = lldpctl_new(NULL, NULL, NULL);
    lldpctl_atom_t* interfaces = connection != NULL ? lldpctl_get_interfaces(connection) : NULL;
    lldpctl_atom_t* each = NULL;
    lldpctl_atom_foreach(interfaces, each)
    {
        const char* name = lldpctl_atom_get_str(each, lldpctl_k_interface_name);
        if (name != NULL && strcmp(name, interface) == 0)
        {
            lldpctl_atom_t* port = lldpctl_get_port(each);
            lldpctl_atom_t* neighbors = lldpctl_atom_get(port, lldpctl_k_port_neighbors);
            lldpctl_atom_t* neighbor = NULL;
            lldpctl_atom_foreach(neighbors, neighbor)
            {
                read_neighbor(texts, neighbor);
            }
            lldpctl_atom_dec_ref(neighbors);
            lldpctl_atom_dec_ref(port);
        }
    }
    lldpctl_atom_dec_ref(interfaces);
    lldpctl_release(connection);
}
#else
static void ask_lldpd(char texts[field_count][text_size], const char* interface)
{
    (void)texts, (void)interface;
}
#endif

static void ask_bridge(char texts[field_count][text_size], const char* device)
{
    char partner[sysfs_text_size];
    char port[sysfs_text_size];
    char own[sysfs_text_size];
    /* On a link where the own bridge is the designated one, no other bridge is known. */
    if (!sysfs_text(device, "brport/designated_bridge", partner) ||
        !sysfs_text(device, "brport/designated_port", port) ||
        (sysfs_text(device, "brport/bridge/bridge/bridge_id", own) && strcmp(partner, own) == 0))
    {
        return;
    }
    snprintf(texts[chassis_id], text_size, "%.255s", partner);
    snprintf(texts[port_id], text_size, "%.255s", port);
    /* Locally assigned: a bridge's identifier is its priority and its address, so it isn't of the
     * subtype of addresses. */
    snprintf(texts[chassis_type], text_size, "7");
    snprintf(texts[port_type], text_size, "7");
}

void nic_put_connection(struct object* object)
{
    char texts[field_count][text_size];
    char file[text_size];
    char text[sysfs_text_size];
    memset(texts, 0, sizeof texts);
    if (!sysfs_is_recorded())
    {
        ask_lldpd(texts, sysfs_name(object->device));
    }
    for (size_t i = 0; i < field_count; ++i)
    {
        snprintf(file, sizeof file, "lldp/%s", members[i]);
        if (sysfs_is_recorded() && sysfs_text(object->device, file, text))
        {
            snprintf(texts[i], text_size, "%.255s", text);
        }
        else if (texts[i][0] != '\0')
        {
            record_answer(object->device, file, texts[i], strlen(texts[i]));
        }
    }
    if (texts[chassis_id][0] == '\0')
    {
        ask_bridge(texts, object->device);
    }
    for (size_t i = 0; i < field_count; ++i)
    {
        object_put_string(object, members[i], texts[i]);
        object_put_number(object, members[i], strtoul(texts[i], NULL, 10));
    }
}
