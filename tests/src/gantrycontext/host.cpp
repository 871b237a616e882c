// A host for what happens once in a process: the making of the context key, and the library's
// farewell. It says on standard error what it finds, in line with the log, which is echoed there.
//
// Linked at a fixed address: the GANTRY_use_default that it writes to is its own copy.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <pthread.h>
#include <sched.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/stand_in.hpp"

namespace
{

int failing_key_creations = 0;
int yields = 0;
bool key_deletion_fails = false;

bool make(const char* when)
{
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    std::fprintf(stderr, "%s: %s\n", when, context == nullptr ? "no context" : "a context");
    return context != nullptr;
}

// Whether the library itself finds the variable where this program has it.
void show_use_default()
{
    for (const bool use_default : {false, true})
    {
        GANTRY_cpp_context* context = nullptr;
        GANTRY_use_default = use_default;
        GANTRY_context_new(&context);
        sd_bus* shared = nullptr;
        sd_bus_default_system(&shared);
        std::fprintf(stderr, "%s connection\n",
                     GANTRY_get_sd_bus(context->bus) == shared ? "shared" : "private");
        sd_bus_unref(shared);
        GANTRY_context_free(&context);
    }
    GANTRY_set_use_default(false);
    std::fprintf(stderr, "%s\n", GANTRY_use_default ? "true" : "false");
}

} // namespace

int pthread_key_create(pthread_key_t* key, void (*destr_function)(void*)) noexcept
{
    static const auto hidden = stand_in::hidden<decltype(pthread_key_create)>("pthread_key_create");
    return failing_key_creations > 0 ? (--failing_key_creations, EAGAIN)
                                     : hidden(key, destr_function);
}

int sched_yield() noexcept
{
    ++yields;
    return 0;
}

int pthread_key_delete(pthread_key_t key) noexcept
{
    static const auto hidden = stand_in::hidden<decltype(pthread_key_delete)>("pthread_key_delete");
    return key_deletion_fails ? (make("after the farewell"), EINVAL) : hidden(key);
}

int main(int argc, char** argv)
{
    const std::string_view what = argc > 1 ? argv[1] : "";
    std::fprintf(stderr, "thread %lu\n", pthread_self());
    if (what == "use_default")
    {
        show_use_default();
        return EXIT_SUCCESS;
    }
    failing_key_creations = argc > 2 ? std::atoi(argv[2]) : 0;
    if (argc > 1 && !make("first"))
    {
        make("second");
    }
    if (argc > 2)
    {
        std::fprintf(stderr, "%d yields\n", yields);
    }
    key_deletion_fails = what == "late";
    return EXIT_SUCCESS;
}
