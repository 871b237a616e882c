// A context's life: how it is made and found, what stops it from being made, what it does for its
// host, and in which order it goes.
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "src/stand_in.hpp"
#include "support/client.hpp"
#include "support/open_fds.hpp"
#include "support/private_bus.hpp"

namespace
{

using support::Client;
using testing::ElementsAre;

struct Scripts
{
    stand_in::Script event_default;
    stand_in::Script flush;
    stand_in::Script get_unique_name;
    stand_in::Script is_ready;
    stand_in::Script setspecific;
};
Scripts scripts;

// What went, oldest first, from record.emplace() on.
std::optional<std::vector<std::string>> record;

void note(const std::string& what)
{
    if (record)
    {
        record->push_back(what);
    }
}

const void* library_of(const void* address)
{
    Dl_info info{};
    dladdr(address, &info);
    return info.dli_fbase;
}

// Passes a release on, and notes it unless it is libsystemd's own.
template <class Handle>
Handle* release(const char* name, Handle* handle, const void* caller)
{
    static thread_local int depth = 0;
    auto* const hidden = stand_in::hidden<Handle*(Handle*)>(name);
    if (depth == 0 && library_of(caller) != library_of(reinterpret_cast<const void*>(hidden)))
    {
        note(name);
    }
    ++depth;
    Handle* const result = hidden(handle);
    --depth;
    return result;
}

constexpr const char* unrefs = "sd_bus_unref";
constexpr const char* closes = "sd_bus_flush_close_unref";

} // namespace

sd_bus* sd_bus_unref(sd_bus* bus)
{
    return release(unrefs, bus, __builtin_return_address(0));
}

sd_bus* sd_bus_flush_close_unref(sd_bus* bus)
{
    return release(closes, bus, __builtin_return_address(0));
}

sd_bus_slot* sd_bus_slot_unref(sd_bus_slot* slot)
{
    return release("sd_bus_slot_unref", slot, __builtin_return_address(0));
}

sd_event* sd_event_unref(sd_event* event)
{
    return release("sd_event_unref", event, __builtin_return_address(0));
}

int sd_event_default(sd_event** event)
{
    return scripts.event_default.next_or("sd_event_default", sd_event_default, event);
}

int sd_bus_flush(sd_bus* bus)
{
    return scripts.flush.next_or("sd_bus_flush", sd_bus_flush, bus);
}

int sd_bus_get_unique_name(sd_bus* bus, const char** unique)
{
    return scripts.get_unique_name.next_or("sd_bus_get_unique_name", sd_bus_get_unique_name, bus,
                                           unique);
}

int sd_bus_is_ready(sd_bus* bus)
{
    return scripts.is_ready.next_or("sd_bus_is_ready", sd_bus_is_ready, bus);
}

// The header says that what the pointer points at isn't read, and GCC takes it for unset.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
int pthread_setspecific(pthread_key_t key, const void* pointer) noexcept
{
    return scripts.setspecific.next_or("pthread_setspecific", pthread_setspecific, key, pointer);
}
#pragma GCC diagnostic pop

namespace
{

// What no function hands out, to see what becomes of an out parameter.
template <class Pointee>
Pointee* bogus()
{
    static int somewhere = 0;
    return reinterpret_cast<Pointee*>(&somewhere);
}

GANTRY_cpp_context* resolve(GANTRY_cpp_context* context = nullptr)
{
    auto* resolved = bogus<GANTRY_cpp_context>();
    GANTRY_context_management(context, &resolved);
    return resolved;
}

// Starts and ends without a context.
class Context : public testing::Test
{
  protected:
    Context()
    {
        logged();
    }

    ~Context() override
    {
        free();
        GANTRY_use_default = true;
    }

    void make()
    {
        GANTRY_context_new(&context);
        ASSERT_NE(context, nullptr);
        logged();
    }

    // What goes when the context is freed.
    std::vector<std::string> free()
    {
        record.emplace();
        GANTRY_context_free(&context);
        logged();
        return *std::exchange(record, std::nullopt);
    }

    sd_bus* bus()
    {
        return GANTRY_get_sd_bus(context->bus);
    }

    GANTRY_cpp_context* context = nullptr;
};

// The two sets of names of one and the same operations.
struct Operations
{
    void (*make)(GANTRY_cpp_context**);
    void (*free)(GANTRY_cpp_context**);
    void (*set_service)(GANTRY_cpp_context*, char*);
    void (*get_user_private)(GANTRY_cpp_context*, void**);
    void (*set_user_private)(GANTRY_cpp_context*, void*);
};
constexpr Operations typed{GANTRY_cpp_context_new, GANTRY_cpp_context_free,
                           GANTRY_cpp_context_set_service, GANTRY_cpp_context_get_user_private,
                           GANTRY_cpp_context_set_user_private};
constexpr Operations untyped{GANTRY_context_new, GANTRY_context_free,
                             [](GANTRY_cpp_context* context, char* name)
                             { GANTRY_context_set_service(context, name); },
                             GANTRY_context_get_user_private, GANTRY_context_set_user_private};

TEST_F(Context, LivesFromFirstUseToFreeUnderBothSetsOfNames)
{
    for (const Operations& operations : {typed, untyped})
    {
        context = bogus<GANTRY_cpp_context>();
        operations.make(&context);
        ASSERT_NE(context, nullptr);
        EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_new: enter
9 gantrycontext.GANTRY_get_or_allocate_ctx: leave
9 gantrycontext.GANTRY_cpp_context_new: leave
)");
        EXPECT_EQ(context->service_name, nullptr);
        EXPECT_EQ(context->object_manager, nullptr);
        EXPECT_EQ(context->user_private, nullptr);
        EXPECT_TRUE(context->running);
        EXPECT_EQ(context->last_serviced, 0);
        EXPECT_EQ(sd_bus_get_event(bus()), context->event.get());

        GANTRY_cpp_context* again = nullptr;
        operations.make(&again);
        EXPECT_EQ(again, context);
        EXPECT_EQ(resolve(), context);
        EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_new: enter
9 gantrycontext.GANTRY_cpp_context_new: leave
)");

        int host = 0;
        operations.set_user_private(context, &host);
        void* user_private = bogus<void>();
        operations.get_user_private(nullptr, &user_private);
        EXPECT_EQ(user_private, &host);
        operations.set_service(nullptr, nullptr);
        EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_set_user_private: enter
9 gantrycontext.GANTRY_context_management: leave
9 gantrycontext.GANTRY_cpp_context_set_user_private: leave
9 gantrycontext.GANTRY_cpp_context_get_user_private: enter
9 gantrycontext.GANTRY_cpp_context_get_user_private: leave
9 gantrycontext.GANTRY_cpp_context_set_service: enter
9 gantrycontext.GANTRY_cpp_context_set_service: setting the service_name
9 gantrycontext.GANTRY_cpp_context_set_service: caller requests no service_name
9 gantrycontext.GANTRY_cpp_context_set_service: leave
)");

        // The second time with nothing in the variable.
        for ([[maybe_unused]] const int time : {1, 2})
        {
            operations.free(&context);
            EXPECT_EQ(context, nullptr);
            EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_free: enter
9 gantrycontext.GANTRY_cpp_context_free: leave
)");
        }
    }

    // Null stands for the thread's context, which is made for it.
    context = resolve();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(logged(), "9 gantrycontext.GANTRY_get_or_allocate_ctx: leave\n");
    EXPECT_EQ(context->service_name, nullptr);
}

TEST_F(Context, TakesAndReleasesItsConnectionAsUseDefaultSaid)
{
    sd_bus* shared = nullptr;
    ASSERT_GE(sd_bus_default_system(&shared), 0);

    make();
    EXPECT_EQ(bus(), shared);
    GANTRY_use_default = false; // for contexts to come
    EXPECT_THAT(free(), ElementsAre("sd_event_unref", unrefs));
    EXPECT_GT(sd_bus_is_open(shared), 0);

    make();
    EXPECT_NE(bus(), shared);
    GANTRY_set_use_default(true);
    EXPECT_TRUE(GANTRY_use_default);
    EXPECT_THAT(free(), ElementsAre("sd_event_unref", closes));

    sd_bus_unref(shared);
}

TEST_F(Context, LeavesNothingBehindWhenItCantBeMade)
{
    struct Case
    {
        void (*arm)();
        std::string reason;
    };
    const std::string exception = "2 EXCEPTION gantrycontext.GANTRY_get_or_allocate_ctx: ";
    const std::string io_error = "sd_bus_flush: org.freedesktop.DBus.Error.IOError: "
                                 "Input/output error\\n\n";
    const std::string is_ready = "2 gantrycontext.GANTRY_get_or_allocate_ctx: is_ready reported ";
    const Case cases[] = {
        {[] { scripts.get_unique_name = {-ENODATA}; },
         exception + "basic_string: construction from null is not valid\\n\n"},
        {[] { scripts.event_default = {-EMFILE}; },
         exception + "sd_event_default: Too many open files\\n\n"},
        {[] { scripts.flush = {-EIO}; }, exception + io_error},
        {[] {
             scripts.flush = {0, -EIO};
         },
         exception + io_error},
        {[] { scripts.is_ready = {-ECHILD}; }, is_ready + "an error, rv=-10\n"},
        {[] { scripts.is_ready = {0}; }, is_ready + "not ready, rv=0\n"},
        {[] { scripts.setspecific = {ENOMEM}; }, exception + "std::bad_alloc\\n\n"},
    };
    make();
    free(); // what is made once and stays is there by now
    const auto descriptors = support::open_fd_count();

    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = use_default;
        for (const auto& [arm, reason] : cases)
        {
            SCOPED_TRACE(reason);
            record.emplace();
            arm();
            context = bogus<GANTRY_cpp_context>();
            GANTRY_context_new(&context);
            EXPECT_EQ(context, nullptr);
            EXPECT_EQ(logged(), "9 gantrycontext.GANTRY_cpp_context_new: enter\n" + reason +
                                    "2 gantrycontext.GANTRY_cpp_context_new: "
                                    "unable to allocate context\n");
            arm();
            void* user_private = bogus<void>();
            GANTRY_context_get_user_private(nullptr, &user_private);
            EXPECT_EQ(user_private, nullptr);
            EXPECT_EQ(logged(),
                      "9 gantrycontext.GANTRY_cpp_context_get_user_private: enter\n" + reason +
                          R"(2 gantrycontext.GANTRY_context_management: unable to allocate context
1 gantrycontext.GANTRY_cpp_context_get_user_private: vctx is NULL
)");
            EXPECT_THAT(*record, testing::Contains(use_default ? unrefs : closes).Times(2));
            EXPECT_EQ(support::open_fd_count(), descriptors);
            make(); // the next use tries again
            free();
        }
    }
}

TEST_F(Context, NeedsABus)
{
    support::bus().kill();
    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = use_default;
        EXPECT_EQ(resolve(), nullptr);
        EXPECT_EQ(logged(), "2 EXCEPTION gantrycontext.GANTRY_get_or_allocate_ctx: sd_bus_flush: "
                            "org.freedesktop.DBus.Error.InvalidArgs: Invalid argument\\n\n"
                            "2 gantrycontext.GANTRY_context_management: "
                            "unable to allocate context\n");
    }
    support::bus().restart();
    make();
}

TEST_F(Context, IsKeptWhileItsConnectionIsNotReady)
{
    make();
    const std::string is_ready = "2 gantrycontext.GANTRY_context_management: is_ready reported ";
    for (const int ready : {-ECHILD, 0})
    {
        const auto reason = is_ready + (ready < 0 ? "an error, rv=-10\n" : "not ready, rv=0\n");
        int host = 0;
        char name[] = "com.example.unready";
        scripts.is_ready = {ready, ready};
        GANTRY_context_set_user_private(nullptr, &host);
        GANTRY_cpp_context_set_service(nullptr, name);
        EXPECT_EQ(context->user_private, nullptr);
        EXPECT_EQ(context->service_name, nullptr);
        EXPECT_EQ(logged(), "9 gantrycontext.GANTRY_cpp_context_set_user_private: enter\n" +
                                reason +
                                "1 gantrycontext.GANTRY_cpp_context_set_user_private: "
                                "vctx is NULL\n"
                                "9 gantrycontext.GANTRY_cpp_context_set_service: enter\n" +
                                reason +
                                "1 gantrycontext.GANTRY_cpp_context_set_service: "
                                "vctx is NULL\n");

        EXPECT_EQ(resolve(), context); // by now it is
        scripts.is_ready = {ready};
        EXPECT_EQ(resolve(context), context); // isn't asked for
        GANTRY_context_new(&context);
        EXPECT_EQ(resolve(), nullptr);
        logged();
    }
}

TEST_F(Context, BelongsToItsThreadAndGoesWithIt)
{
    make();
    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = use_default;
        pid_t owner = 0;
        pid_t destroyer = 0;
        std::thread(
            [&]
            {
                owner = gettid();
                GANTRY_cpp_context* const theirs = resolve();
                EXPECT_NE(theirs, context);
                EXPECT_EQ(resolve(), theirs);
                EXPECT_EQ(resolve(context), context); // passed on as it is
                theirs->tracker.push_back(
                    {&destroyer, [](void* tid) { *static_cast<pid_t*>(tid) = gettid(); }});
                record.emplace();
            })
            .join();
        EXPECT_EQ(destroyer, owner);
        EXPECT_THAT(*record, ElementsAre("sd_event_unref", use_default ? unrefs : closes));
        EXPECT_EQ(resolve(), context);
    }
    std::thread(
        []
        {
            GANTRY_cpp_context* theirs = resolve();
            GANTRY_context_free(&theirs); // and nothing is left to destroy
            record.emplace();
        })
        .join();
    EXPECT_THAT(*record, testing::IsEmpty());
}

TEST_F(Context, RequestsTheServiceNameItIsGiven)
{
    const std::string prefix = "gantrycontext.GANTRY_cpp_context_set_service: ";
    // What is said of a name, or of what the bus says to it.
    const auto set = [&](char* name)
    {
        GANTRY_cpp_context_set_service(nullptr, name);
        std::string lines = logged();
        for (const auto& expected :
             {"9 " + prefix + "enter\n", "9 " + prefix + "setting the service_name\n"})
        {
            EXPECT_TRUE(lines.starts_with(expected)) << lines;
            lines.erase(0, expected.size());
        }
        return lines;
    };
    const auto accepted = [&](const std::string& said)
    { return "9 " + prefix + said + "\n9 " + prefix + "leave\n"; };
    const auto refused = [&](const std::string& said, const std::string& error)
    {
        return "9 " + prefix + said + "\n2 EXCEPTION " + prefix +
               "sd_bus_request_name: org.freedesktop.DBus.Error." + error + "\\n\n";
    };
    Client client;
    make();
    const std::string own_name = context->bus.get_unique_name();

    EXPECT_EQ(set(nullptr), accepted("caller requests no service_name"));
    EXPECT_STREQ(context->service_name, "");
    char empty[] = "";
    EXPECT_EQ(set(empty), accepted("service_name=[]"));
    EXPECT_EQ(context->service_name, empty);

    // An earlier name stays the connection's.
    char first[] = "com.example.first";
    char second[] = "com.example.second";
    EXPECT_EQ(set(first), accepted("service_name=[com.example.first]"));
    EXPECT_EQ(set(second), accepted("service_name=[com.example.second]"));
    EXPECT_EQ(context->service_name, second);
    EXPECT_EQ(client.name_owner(first), own_name);
    EXPECT_EQ(client.name_owner(second), own_name);

    // It may be replaced, and replaces who allows it.
    ASSERT_EQ(sd_bus_request_name(client.bus(), first,
                                  SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT),
              1);
    EXPECT_EQ(client.name_owner(first), client.unique_name());
    EXPECT_EQ(set(first), accepted("service_name=[com.example.first]"));
    EXPECT_EQ(client.name_owner(first), own_name);

    // Refused for its form, and by one who doesn't allow it: at once and for good.
    char malformed[] = "malformed";
    EXPECT_EQ(set(malformed), refused("service_name=[malformed]", "InvalidArgs: Invalid argument"));
    char taken[] = "com.example.taken";
    client.request_name(taken);
    EXPECT_EQ(set(taken), refused("service_name=[com.example.taken]", "FileExists: File exists"));
    EXPECT_EQ(context->service_name, taken);
    ASSERT_GE(sd_bus_release_name(client.bus(), taken), 0);
    EXPECT_EQ(client.name_owner(taken), "");
}

// An object is its name here, and its deleter notes it.
void destroy(void* name)
{
    note(static_cast<const char*>(name));
}

TEST_F(Context, DestroysObjectsNewestFirstThenTheManagerThenMatches)
{
    make();
    static GANTRY_cpp_context* dying = nullptr;
    dying = context;
    static char names[][16] = {"first object", "second object", "third object", "late object"};
    context->tracker.push_back({names[0], destroy});
    context->tracker.push_back({names[1], [](void* name)
                                {
                                    destroy(name);
                                    EXPECT_FALSE(dying->running);
                                    EXPECT_EQ(dying->tracker.size(), 1U);
                                }});
    context->tracker.push_back({names[2], [](void* name)
                                {
                                    destroy(name);
                                    dying->tracker.push_back({names[3], destroy});
                                }});
    context->object_manager = new sdbusplus::server::manager::manager(context->bus, "/managed");
    for (const char* const name : {"first callback", "second callback"})
    {
        const std::shared_ptr<void> callback(nullptr, [name](void*) { note(name); });
        context->signal_matches.push_back(std::make_unique<sdbusplus::bus::match::match>(
            context->bus, "type='signal',member='Refresh',", [callback](auto&) {}));
    }

    EXPECT_THAT(free(),
                ElementsAre("third object", "late object", "second object", "first object",
                            "sd_bus_slot_unref", "first callback", "sd_bus_slot_unref",
                            "second callback", "sd_bus_slot_unref", "sd_event_unref", unrefs));
}

TEST_F(Context, CanBeMadeAThousandTimes)
{
    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = use_default;
        make();
        free();
        const auto descriptors = support::open_fd_count();
        for (int time = 0; time < 1000; ++time)
        {
            make();
            free();
        }
        EXPECT_EQ(support::open_fd_count(), descriptors);
    }
}

} // namespace
