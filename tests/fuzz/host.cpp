// All interfaces of the catalogue and a subscription to each signal in one process. The functions
// of the sample interfaces are those of examples/sample_host.c, and examples/listener.c receives
// the signals: each is built in with its main() under the file's name.
//
//     fuzz_host LOOP SERVICE COUNTER FUNCTION...
//
// COUNTER is a file that holds the number of live heap blocks at all times, so that reading it
// doesn't disturb the host. The FUNCTIONs publish the other interfaces.
#include <cstdlib>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>

#include <gantry/gantry.h>
#include <tallybook.hpp>

#include "support/memory.hpp"

static char** arguments = nullptr;

// The stand-in's store would keep each key for good.
void Tallybook::set_key(const std::string& /*key*/, const std::string& /*class_name*/,
                        const std::string& /*object_path*/, unsigned short /*caller_id*/)
{
}
void Tallybook::remove(const std::string& /*key*/) noexcept
{
}

// What the examples call in place of GANTRY_context_set_service.
extern "C" void set_service(GANTRY_cpp_context* context, const char* /*name*/)
{
    GANTRY_context_set_service(context, arguments[2]);
}

extern "C" int sample_host(int, char**);

// Ends its subscription at each signal, and makes it anew.
static void on_fault(GANTRY_subscription* own, char* /*fault*/, void* /*data*/)
{
    const GANTRY_match from{nullptr, nullptr, "/", true};
    GANTRY_unsubscribe(&own);
    GANTRY_subscribe__com_orvane_velmar_sample_gantrytest__faultAdded(nullptr, &from, on_fault,
                                                                      nullptr, nullptr, nullptr);
}

// What listener calls in place of GANTRY_dbus_loop.
extern "C" int publish(GANTRY_cpp_context* context)
{
    for (char** name = arguments + 4; *name != nullptr; ++name)
    {
        using Publish = void (*)(GANTRY_cpp_context*, const void*, const char*, void*);
        GANTRY_instance* created = nullptr;
        reinterpret_cast<Publish>(dlsym(RTLD_DEFAULT, *name))(context, nullptr, nullptr, nullptr);
        GANTRY_instance_get_created(context, &created, nullptr);
        GANTRY_instance_on_read(
            created, [](GANTRY_instance*, void*) {}, nullptr);
    }
    on_fault(nullptr, nullptr, nullptr);
    return sample_host(1, arguments);
}

// What sample_host calls in its place.
extern "C" void serve(GANTRY_cpp_context* context)
{
    const std::string_view loop = arguments[1];
    pollfd ready{.fd = -1, .events = POLLIN, .revents = 0};
    GANTRY_context_get_fd(context, &ready.fd);
    do
    {
        loop == "dbus_loop"  ? GANTRY_dbus_loop(context)
        : loop == "one_pass" ? GANTRY_dbus_loop_one_pass(context)
                             : GANTRY_dbus_sdloop(context);
    } while (loop == "one_pass" && poll(&ready, 1, -1) == 1);
}

extern "C" int listener(int, char**);

int main(int /*argc*/, char** argv)
{
    arguments = argv;
    void* const counter = mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED,
                               open(argv[3], O_RDWR | O_CLOEXEC), 0);
    *static_cast<long*>(counter) = *memory::blocks;
    memory::blocks = static_cast<long*>(counter);
    return listener(1, argv);
}
