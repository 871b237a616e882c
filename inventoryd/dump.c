#define _POSIX_C_SOURCE 200809L /* siginfo_t, fork, O_CLOEXEC */

#include "adapter.h"
#include "inventory.h"
#include "netlink.h"

#include <errno.h>
#include <fcntl.h>
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
static const char* dumps; /* the directory, or null */

/* The dump that is running. */
static struct
{
    GANTRY_call* call;          /* null if there is none */
    sd_event_source* child;     /* the loop ends the process with it */
    char path[sysfs_path_size]; /* of its file */
} dump;

void dump_open(sd_event* event, const char* directory)
{
    sigset_t ends;
    /* The event loop learns of a process's end only if the signal is blocked. */
    sigemptyset(&ends);
    sigaddset(&ends, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ends, NULL);
    loop = event;
    dumps = directory;
}

void dump_free(void)
{
    sd_event_source_disable_unref(dump.child);
    memset(&dump, 0, sizeof dump);
}

static bool ask_size(const char* interface, struct ethtool_dump* request)
{
    /* What a driver says that it has isn't taken on trust. */
    const unsigned int most_bytes = 256U << 20U;
    memset(request, 0, sizeof *request);
    request->cmd = ETHTOOL_GET_DUMP_FLAG;
    return ethtool_ask_ioctl(interface, request, sizeof *request) && request->len > 0 &&
           request->len <= most_bytes;
}

/* The first interface of a PCI function, or of the USB device, whose driver makes dumps. */
static void find(void* data, const char* path)
{
    char* interface = data;
    struct ethtool_dump request;
    if (interface[0] == '\0' && ask_size(path, &request))
    {
        snprintf(interface, sysfs_path_size, "%s", path);
    }
}

static bool find_interface(char interface[sysfs_path_size], const char* function)
{
    interface[0] = '\0';
    sysfs_each(function, "net", find, interface);
    return interface[0] != '\0';
}

void dump_put_slot(struct object* object, const struct card* card)
{
    char interface[sysfs_path_size];
    const bool is_supported =
        find_interface(interface, card->function) || devlink_dump(card->function, NULL);
    object_put_number(object, "IsCoreDumpSupported", is_supported);
    object_put_number(object, "IsCoreDumpEnabled", is_supported && dumps != NULL);
}

/* Returns 0 or an errno. */
static int write_dump(FILE* file, const char* function)
{
    struct ethtool_dump request;
    char interface[sysfs_path_size];
    if (!find_interface(interface, function) || !ask_size(interface, &request))
    {
        return devlink_dump(function, file) ? 0 : EIO;
    }
    const size_t size = sizeof request + request.len;
    struct ethtool_dump* answer = malloc(size);
    if (answer == NULL)
    {
        return ENOMEM;
    }
    *answer = request;
    answer->cmd = ETHTOOL_GET_DUMP_DATA;
    const bool is_answered = ethtool_ask_ioctl(interface, answer, size);
    if (is_answered)
    {
        fwrite(answer->data, 1, request.len, file);
    }
    free(answer);
    return is_answered ? 0 : EIO;
}

/* The file is one that only its owner may read. A link at its path is replaced and not followed,
 * and a reader finds either the former dump or the whole new one. Returns 0 or an errno. */
static int save(const char* heading, const char* function)
{
    char fresh[sysfs_path_size];
    if (snprintf(fresh, sizeof fresh, "%s.new", dump.path) >= (int)sizeof fresh)
    {
        return ENAMETOOLONG;
    }
    unlink(fresh); /* of a host that was killed */
    const int fd = open(fresh, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    FILE* file = fd >= 0 ? fdopen(fd, "w") : NULL;
    if (file == NULL)
    {
        return errno;
    }
    fputs(heading, file);
    int error = write_dump(file, function);
    error = ferror(file) != 0 && error == 0 ? EIO : error;
    error = fclose(file) != 0 && error == 0 ? errno : error;
    error = error == 0 && rename(fresh, dump.path) != 0 ? errno : error;
    if (error != 0)
    {
        unlink(fresh);
    }
    return error;
}

static void answer(int error)
{
    /* If the slot or the client has gone meanwhile, the library has closed the call. */
    if (error == 0)
    {
        GANTRY_reply__com_orvane_velmar_system_NicSlot__TriggerAdapterCoreDump(&dump.call, 0,
                                                                               dump.path, NULL);
    }
    else
    {
        GANTRY_call_refuse(&dump.call, SD_BUS_ERROR_FAILED, strerror(error), NULL);
    }
    dump_free();
}

/* The event loop calls this. */
static int on_end(sd_event_source* child, const siginfo_t* info, void* data)
{
    (void)child, (void)data;
    answer(info->si_code == CLD_EXITED ? info->si_status : EIO);
    return 0;
}

/* Returns 0 or an errno. */
static int start(const char* heading, const struct object* slot)
{
    if (!sysfs_join(dump.path, dumps, slot->name))
    {
        return ENAMETOOLONG;
    }
    const pid_t child = fork();
    if (child == 0)
    {
        netlink_close();
        /* An errno fits into the exit status. */
        _exit(save(heading, slot->device) & 0xFF);
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
    GANTRY_property_get_boolean(slot, "IsCoreDumpSupported", &is_supported, NULL);
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
    snprintf(heading, sizeof heading, "a dump of NIC.%s for %s, user %lu, process %ld, at %ld\n",
             object->name, sender, (unsigned long)uid, (long)pid, (long)time(NULL));
    fprintf(stderr, SD_NOTICE "%s", heading);
    error = start(heading, object);
    if (error != 0)
    {
        answer(error);
    }
}

/* The slots' tables differ in nothing but their types. */
#define CREATE_SLOT(name)                                                                          \
    void dump_create_##name(GANTRY_cpp_context* context, const void* table, const char* path,      \
                            void* data)                                                            \
    {                                                                                              \
        static const GANTRY_table__com_orvane_velmar_system_##name callbacks = {                   \
            .TriggerAdapterCoreDump = trigger,                                                     \
        };                                                                                         \
        (void)table;                                                                               \
        GANTRY_instantiate__com_orvane_velmar_system_##name(context, &callbacks, path, data);      \
    }

CREATE_SLOT(NicSlot)
CREATE_SLOT(FCSlot)
CREATE_SLOT(IBSlot)
