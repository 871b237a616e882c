#define _POSIX_C_SOURCE 200809L /* siginfo_t, fork */

#include "slots.h"

#include "devices.h"
#include "dmi_slot.h"
#include "dump.h"
#include "firmware_versions.h"
#include "vpd.h"

#include <errno.h>
#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <time.h>
#include <unistd.h>

static sd_event* loop;
static const char* dumps;

/* The dump that is running. */
static struct
{
    GANTRY_call* call; /* null if there is none */
    const struct object* slot;
    sd_event_source* child;     /* the loop ends the process with it */
    char path[sysfs_path_size]; /* of its file */
} dump;

void slots_open(sd_event* event, const char* directory)
{
    sigset_t ends;
    /* The event loop learns of a process's end only if the signal is blocked. */
    sigemptyset(&ends);
    sigaddset(&ends, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ends, NULL);
    loop = event;
    dumps = directory;
}

void slots_free(void)
{
    sd_event_source_disable_unref(dump.child);
    memset(&dump, 0, sizeof dump);
}

/* The event loop calls this. */
static int on_end(sd_event_source* child, const siginfo_t* info, void* data)
{
    (void)child, (void)data;
    const int error = info->si_code == CLD_EXITED ? info->si_status : EIO;
    if (error == 0)
    {
        GANTRY_reply__com_orvane_velmar_system_NicSlot__TriggerAdapterCoreDump(&dump.call, 0,
                                                                               dump.path, NULL);
    }
    else
    {
        GANTRY_call_refuse(&dump.call, SD_BUS_ERROR_FAILED, strerror(error), NULL);
    }
    slots_free();
    return 0;
}

/* The first interface of a PCI function, or of the USB device. */
static void first_interface(void* data, const char* path, const char* name)
{
    char* interface = data;
    (void)name;
    if (interface[0] == '\0')
    {
        snprintf(interface, sysfs_path_size, "%s", path);
    }
}

static bool find_interface(char interface[sysfs_path_size], const char* device)
{
    char interfaces[sysfs_path_size];
    interface[0] = '\0';
    if (sysfs_join(interfaces, device, "net"))
    {
        sysfs_each(interfaces, first_interface, interface);
    }
    return interface[0] != '\0';
}

/* Returns 0 or an errno. */
static int start(const char* heading, const char* device)
{
    char interface[sysfs_path_size];
    if (!find_interface(interface, device))
    {
        return ENODEV;
    }
    const pid_t child = fork();
    if (child == 0)
    {
        /* An errno fits into the exit status. */
        _exit(dump_save(dump.path, heading, interface) & 0xFF);
    }
    if (child < 0)
    {
        return errno;
    }
    int result = sd_event_add_child(loop, &dump.child, child, WEXITED, on_end, NULL);
    if (result >= 0)
    {
        result = sd_event_source_set_child_process_own(dump.child, 1);
    }
    return result < 0 ? -result : 0;
}

/* A dump goes to the host's own directory. The arguments, with which a client says where it wants
 * to have it, are ignored. */
static void trigger(GANTRY_instance* slot, char* job, unsigned char type, char* share, char* folder,
                    char* file, char* user, char* password, unsigned char flags, int* status,
                    char** message)
{
    void* data = NULL;
    const char* sender = NULL;
    uid_t uid = 0;
    pid_t pid = 0;
    int error = 0;
    bool is_supported = false;
    char heading[256];
    (void)job, (void)type, (void)share, (void)folder, (void)file, (void)user, (void)password;
    (void)flags, (void)message;
    if (dump.call != NULL)
    {
        GANTRY_call_fail(slot, "com.orvane.velmar.inventory.Busy", "a dump is running", NULL);
        return;
    }
    GANTRY_get__com_orvane_velmar_system_NicSlot__IsCoreDumpSupported(slot, &is_supported, NULL);
    if (dumps == NULL || !is_supported)
    {
        GANTRY_call_fail(slot, SD_BUS_ERROR_NOT_SUPPORTED,
                         dumps == NULL ? "there is no directory for dumps"
                                       : "the adapter's driver makes no dump",
                         NULL);
        return;
    }
    GANTRY_instance_get_user_private(slot, &data);
    GANTRY_call_get_sender(slot, &sender);
    GANTRY_call_get_credentials(slot, &uid, &pid, &error);
    if (error != 0)
    {
        GANTRY_call_fail(slot, SD_BUS_ERROR_ACCESS_DENIED, "the caller is unknown", NULL);
        return;
    }
    GANTRY_call_defer(slot, &dump.call, status);
    if (dump.call == NULL)
    {
        return; /* the client gets the errno as status, or the library's error */
    }
    const struct object* object = data;
    dump.slot = object;
    snprintf(heading, sizeof heading, "a dump of NIC.%s for %s, user %lu, process %ld, at %ld\n",
             object->name, sender, (unsigned long)uid, (long)pid, (long)time(NULL));
    fprintf(stderr, SD_NOTICE "%s", heading);
    error =
        sysfs_join(dump.path, dumps, object->name) ? start(heading, object->device) : ENAMETOOLONG;
    if (error != 0)
    {
        GANTRY_call_refuse(&dump.call, SD_BUS_ERROR_FAILED, strerror(error), NULL);
        slots_free();
    }
}

static const GANTRY_table__com_orvane_velmar_system_NicSlot callbacks = {
    .TriggerAdapterCoreDump = trigger,
};

static void create(GANTRY_cpp_context* context, const void* table, const char* path, void* data)
{
    (void)table;
    GANTRY_instantiate__com_orvane_velmar_system_NicSlot(context, &callbacks, path, data);
}

static struct kind slot_kind = {
    .interface = "com.orvane.velmar.system.NicSlot",
    .create = create,
};
static char last_name[card_name_size];

void slots_end_scan(void)
{
    last_name[0] = '\0';
    /* With a slot that is gone, the library has answered its call. */
    if (dump.call != NULL && !kind_has(&slot_kind, dump.slot))
    {
        slots_free();
    }
}

/* This host's code of the adapter's protocol. */
enum
{
    protocol_ethernet = 1
};

void slots_put_pci(struct object* object, const struct card* card, const char* length)
{
    char text[vpd_text_size];
    struct dmi_slot slot;
    uint64_t lanes = 0;
    if (sysfs_number(card->function, "current_link_width", 10, &lanes) && lanes > 0)
    {
        object_put_format(object, "DataBusWidth", "x%" PRIu64, lanes);
    }
    if (vpd_product(card->function, text))
    {
        object_put_string(object, "MarketingName", text);
    }
    if (dmi_slot_find(&slot, &card->location))
    {
        object_put_string(object, length, dmi_slot_length_name(&slot));
        object_put_string(object, "SlotType", slot.name);
    }
}

static const char* known(const char* text)
{
    return text[0] != '\0' ? text : NULL;
}

void slots_scan_card(const struct card* card)
{
    char name[card_name_size + 8];
    struct firmware_versions versions;
    char interface[sysfs_path_size];
    if (strcmp(last_name, card->name) == 0)
    {
        return;
    }
    snprintf(last_name, sizeof last_name, "%s", card->name);
    struct object* object = object_due(&slot_kind, card->name, card->function);
    if (object == NULL)
    {
        return;
    }
    firmware_versions_read(&versions, card->function);
    object_put_string(object, "FamilyVersion", versions.firmware);
    object_put_string(object, "ControllerBIOSVersion", versions.option_rom);
    /* These two the card's VPD may tell better. */
    object_put_string(object, "PartNumber", known(versions.part_number));
    object_put_string(object, "SerialNumber", known(versions.serial_number));
    snprintf(name, sizeof name, "NIC.%s", card->name);
    card_put_slot(object, card, name);
    object_put_format(object, "FriendlyFQDD", "Network adapter %s", card->name);
    object_put_byte(object, "Protocol", protocol_ethernet);
    if (card->is_pci)
    {
        slots_put_pci(object, card, "SlotLen");
    }
    const bool is_supported =
        find_interface(interface, card->function) && dump_is_supported(interface);
    object_put_boolean(object, "IsCoreDumpSupported", is_supported);
    object_put_boolean(object, "IsCoreDumpEnabled", is_supported && dumps != NULL);
    object_complete(object);
}
