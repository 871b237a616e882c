#include "netlink.h"

#include <inttypes.h>
#include <linux/devlink.h>
#include <string.h>

/* The health reporters of a PCI function that make dumps. */
struct reporters
{
    const char* function;
    FILE* file; /* for their dumps; null if they are only looked for */
    bool found; /* whether there is one, or one whose dump was written */
};

/* A dump is a tree of names and values. */
struct dump
{
    FILE* file;
    unsigned int depth;
    uint64_t type; /* of the next value */
};

bool devlink_begin(union netlink_message* message, const char* function, uint8_t command)
{
    static struct netlink_family family = {DEVLINK_GENL_NAME, 0};
    if (!netlink_begin_generic(message, &family, command))
    {
        return false;
    }
    mnl_attr_put_strz(&message->header, DEVLINK_ATTR_BUS_NAME, "pci");
    mnl_attr_put_strz(&message->header, DEVLINK_ATTR_DEV_NAME, sysfs_name(function));
    return true;
}

static void write_value(const struct dump* dump, const struct nlattr* value)
{
    const unsigned char* bytes = mnl_attr_get_payload(value);
    const size_t size = mnl_attr_get_payload_len(value);
    uint64_t number = 0;
    fputc(' ', dump->file);
    if (dump->type == MNL_TYPE_NUL_STRING)
    {
        fprintf(dump->file, "%.*s", (int)size, (const char*)bytes);
    }
    else if (dump->type != MNL_TYPE_BINARY && netlink_number(value, &number))
    {
        fprintf(dump->file, "%" PRIu64, number);
    }
    else
    {
        for (size_t i = 0; i < size; ++i)
        {
            fprintf(dump->file, "%02x", bytes[i]);
        }
    }
}

/* Each name begins a line, which its values follow, and is indented by how deep it is. */
static void write_part(void* data, const union netlink_message* message)
{
    struct dump* dump = data;
    const struct nlattr* part = netlink_find(message, DEVLINK_ATTR_FMSG);
    const struct nlattr* each = NULL;
    while ((each = netlink_next_in(part, each)) != NULL)
    {
        switch (mnl_attr_get_type(each))
        {
        case DEVLINK_ATTR_FMSG_OBJ_NEST_START:
        case DEVLINK_ATTR_FMSG_PAIR_NEST_START:
        case DEVLINK_ATTR_FMSG_ARR_NEST_START:
            ++dump->depth;
            break;
        case DEVLINK_ATTR_FMSG_NEST_END:
            dump->depth -= dump->depth > 0 ? 1 : 0;
            break;
        case DEVLINK_ATTR_FMSG_OBJ_NAME:
            fprintf(dump->file, "\n%*s%.*s:", (int)dump->depth, "",
                    (int)mnl_attr_get_payload_len(each), (const char*)mnl_attr_get_payload(each));
            break;
        case DEVLINK_ATTR_FMSG_OBJ_VALUE_TYPE:
            (void)netlink_number(each, &dump->type);
            break;
        case DEVLINK_ATTR_FMSG_OBJ_VALUE_DATA:
            write_value(dump, each);
            break;
        default:
            break;
        }
    }
}

/* The kernel gives the dump that it has kept since the last fault, or has one made. */
static bool write_dump(const struct reporters* reporters, const char* name,
                       const struct nlattr* port)
{
    struct dump dump = {.file = reporters->file};
    union netlink_message message;
    uint64_t number = 0;
    char file[64];
    if (!devlink_begin(&message, reporters->function, DEVLINK_CMD_HEALTH_REPORTER_DUMP_GET))
    {
        return false;
    }
    mnl_attr_put_strz(&message.header, DEVLINK_ATTR_HEALTH_REPORTER_NAME, name);
    if (netlink_number(port, &number))
    {
        mnl_attr_put_u32(&message.header, DEVLINK_ATTR_PORT_INDEX, (uint32_t)number);
    }
    snprintf(file, sizeof file, "health/dump-%s", name);
    fprintf(dump.file, "reporter %s", name);
    const bool is_whole = netlink_ask_list(&message, reporters->function, file, write_part, &dump);
    fputs(is_whole ? "\n" : "\nthe dump ends here, before its end\n", dump.file);
    return is_whole;
}

static void visit_reporter(void* data, const union netlink_message* message)
{
    struct reporters* reporters = data;
    const struct nlattr* reporter = netlink_find(message, DEVLINK_ATTR_HEALTH_REPORTER);
    char device[64] = "";
    char name[32] = "";
    (void)netlink_text(netlink_find(message, DEVLINK_ATTR_DEV_NAME), device, sizeof device);
    (void)netlink_text(netlink_find_in(reporter, DEVLINK_ATTR_HEALTH_REPORTER_NAME), name,
                       sizeof name);
    /* An older kernel lists the reporters of all devices. One that makes dumps says whether it
     * makes them by itself, any other doesn't. */
    if (strcmp(device, sysfs_name(reporters->function)) == 0 &&
        netlink_find_in(reporter, DEVLINK_ATTR_HEALTH_REPORTER_AUTO_DUMP) != NULL &&
        strchr(name, '/') == NULL && /* it is part of a file's */
        (reporters->file == NULL ||
         write_dump(reporters, name, netlink_find(message, DEVLINK_ATTR_PORT_INDEX))))
    {
        reporters->found = true;
    }
}

bool devlink_dump(const char* function, FILE* file)
{
    struct reporters reporters = {function, file, false};
    union netlink_message message;
    (void)(devlink_begin(&message, function, DEVLINK_CMD_HEALTH_REPORTER_GET) &&
           netlink_ask_list(&message, function, "health/reporters", visit_reporter, &reporters));
    return reporters.found;
}
