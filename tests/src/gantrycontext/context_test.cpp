// A context's life: how it is made and found, what stops it from being made, what it does for its
// host, its health check at the limits, and in which order it goes.
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/syscall.h>
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

using testing::ElementsAre;

stand_in::Script event_default;
stand_in::Script flush;
stand_in::Script get_unique_name;
stand_in::Script is_ready;
stand_in::Script setspecific;

// What went, oldest first, from record.emplace() on.
std::optional<std::vector<std::string>> record;

void note(const std::string& what)
{
    if (record)
    {
        record->push_back(what);
    }
}

// Passes a release on, and notes it unless it is libsystemd's own.
template <class Handle>
Handle* release(const char* name, Handle* handle, const void* caller)
{
    static thread_local int depth = 0;
    auto* const hidden = stand_in::hidden<Handle*(Handle*)>(name);
    if (depth == 0 &&
        stand_in::library_of(caller) != stand_in::library_of(reinterpret_cast<const void*>(hidden)))
    {
        note(name);
    }
    ++depth;
    Handle* const result = hidden(handle);
    --depth;
    return result;
}

// What a function tells a health check: a result, and a value when that isn't negative.
template <class Value>
struct Answer
{
    int result = 0;
    Value value{};

    int give(Value* out) const
    {
        *out = result >= 0 ? value : *out;
        return result;
    }
};

struct Situation
{
    Answer<std::int64_t> seconds{0, -1}; // negative: the true time
    Answer<pid_t> tid{0, gettid()};
    Answer<std::uint64_t> read{};
    Answer<std::uint64_t> write{};
};
Situation situation;

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
    return event_default.next_or("sd_event_default", sd_event_default, event);
}

int sd_bus_flush(sd_bus* bus)
{
    return flush.next_or("sd_bus_flush", sd_bus_flush, bus);
}

int sd_bus_get_unique_name(sd_bus* bus, const char** unique)
{
    return get_unique_name.next_or("sd_bus_get_unique_name", sd_bus_get_unique_name, bus, unique);
}

int sd_bus_is_ready(sd_bus* bus)
{
    return is_ready.next_or("sd_bus_is_ready", sd_bus_is_ready, bus);
}

// The header says that what the pointer points at isn't read, and GCC takes it for unset.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
int pthread_setspecific(pthread_key_t key, const void* pointer) noexcept
{
    return setspecific.next_or("pthread_setspecific", pthread_setspecific, key, pointer);
}
#pragma GCC diagnostic pop

int clock_gettime(clockid_t clock_id, timespec* tp) noexcept
{
    if (clock_id != CLOCK_MONOTONIC || situation.seconds.value < 0)
    {
        return static_cast<int>(syscall(SYS_clock_gettime, clock_id, tp));
    }
    tp->tv_nsec = 999'999'999; // parts of a second don't count
    return situation.seconds.give(&tp->tv_sec);
}

int sd_bus_get_tid(sd_bus* /*bus*/, pid_t* tid)
{
    return situation.tid.give(tid);
}

int sd_bus_get_n_queued_read(sd_bus* /*bus*/, std::uint64_t* ret)
{
    return situation.read.give(ret);
}

int sd_bus_get_n_queued_write(sd_bus* /*bus*/, std::uint64_t* ret)
{
    return situation.write.give(ret);
}

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

TEST_F(Context, LivesFromFirstUseToFree)
{
    context = bogus<GANTRY_cpp_context>();
    GANTRY_context_new(&context);
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
    GANTRY_cpp_context_new(&again);
    EXPECT_EQ(again, context);
    EXPECT_EQ(resolve(), context);
    EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_new: enter
9 gantrycontext.GANTRY_cpp_context_new: leave
)");

    // Under both names of each operation.
    int host = 0;
    for (const auto& [set, get] :
         {std::pair{&GANTRY_context_set_user_private, &GANTRY_context_get_user_private},
          std::pair{&GANTRY_cpp_context_set_user_private, &GANTRY_cpp_context_get_user_private}})
    {
        context->user_private = nullptr;
        set(context, &host);
        void* user_private = bogus<void>();
        get(nullptr, &user_private);
        EXPECT_EQ(user_private, &host);
        EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_set_user_private: enter
9 gantrycontext.GANTRY_context_management: leave
9 gantrycontext.GANTRY_cpp_context_set_user_private: leave
9 gantrycontext.GANTRY_cpp_context_get_user_private: enter
9 gantrycontext.GANTRY_cpp_context_get_user_private: leave
)");
    }

    // The second time with nothing in the variable.
    for (auto* const release : {GANTRY_context_free, GANTRY_cpp_context_free})
    {
        release(&context);
        EXPECT_EQ(context, nullptr);
        EXPECT_EQ(logged(), R"(9 gantrycontext.GANTRY_cpp_context_free: enter
9 gantrycontext.GANTRY_cpp_context_free: leave
)");
    }

    // Null stands for the thread's context, which is made for it.
    context = resolve();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(logged(), "9 gantrycontext.GANTRY_get_or_allocate_ctx: leave\n");
}

TEST_F(Context, LeavesNothingBehindWhenItCantBeMade)
{
    const std::string function = "gantrycontext.GANTRY_get_or_allocate_ctx: ";
    const std::string failed = "EXCEPTION " + function;
    const std::string flush_failed =
        failed + "sd_bus_flush: org.freedesktop.DBus.Error.IOError: Input/output error\\n";
    const struct
    {
        stand_in::Script& script;
        std::vector<int> results;
        std::string reason;
    } cases[] = {
        {get_unique_name,
         {-ENODATA},
         failed + "basic_string: construction from null is not valid\\n"},
        {event_default, {-EMFILE}, failed + "sd_event_default: Too many open files\\n"},
        {flush, {-EIO}, flush_failed},
        {flush, {0, -EIO}, flush_failed},
        {is_ready, {-ECHILD}, function + "is_ready reported an error, rv=-10"},
        {is_ready, {0}, function + "is_ready reported not ready, rv=0"},
        {setspecific, {ENOMEM}, failed + "std::bad_alloc\\n"},
    };
    make();
    free(); // what is made once and stays is there by now
    const auto descriptors = support::open_fd_count();
    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = use_default;
        for (const auto& [script, results, reason] : cases)
        {
            SCOPED_TRACE(reason);
            record.emplace();
            script = results;
            context = bogus<GANTRY_cpp_context>();
            GANTRY_context_new(&context);
            EXPECT_EQ(context, nullptr);
            EXPECT_EQ(logged(2), "2 " + reason +
                                     "\n2 gantrycontext.GANTRY_cpp_context_new: "
                                     "unable to allocate context\n");
            script = results;
            void* user_private = bogus<void>();
            GANTRY_context_get_user_private(nullptr, &user_private);
            EXPECT_EQ(user_private, nullptr);
            EXPECT_EQ(logged(2), "2 " + reason + R"(
2 gantrycontext.GANTRY_context_management: unable to allocate context
1 gantrycontext.GANTRY_cpp_context_get_user_private: vctx is NULL
)");
            EXPECT_THAT(*record, testing::Contains(use_default ? unrefs : closes).Times(2));
            EXPECT_EQ(support::open_fd_count(), descriptors);
            make(); // the next use tries again
            free();
        }
    }

    support::bus().kill();
    EXPECT_EQ(resolve(), nullptr);
    EXPECT_EQ(logged(2), "2 EXCEPTION gantrycontext.GANTRY_get_or_allocate_ctx: sd_bus_flush: "
                         "org.freedesktop.DBus.Error.InvalidArgs: Invalid argument\\n\n"
                         "2 gantrycontext.GANTRY_context_management: "
                         "unable to allocate context\n");
    support::bus().restart();
    make();
}

TEST_F(Context, IsKeptWhileItsConnectionIsNotReady)
{
    make();
    for (const int ready : {-ECHILD, 0})
    {
        const std::string reason =
            "2 gantrycontext.GANTRY_context_management: is_ready reported " +
            std::string(ready < 0 ? "an error, rv=-10\n" : "not ready, rv=0\n");
        int host = 0;
        char name[] = "com.example.unready";
        is_ready = {ready, ready};
        GANTRY_context_set_user_private(nullptr, &host);
        EXPECT_EQ(logged(2),
                  reason + "1 gantrycontext.GANTRY_cpp_context_set_user_private: vctx is NULL\n");
        GANTRY_cpp_context_set_service(nullptr, name);
        EXPECT_EQ(logged(2),
                  reason + "1 gantrycontext.GANTRY_cpp_context_set_service: vctx is NULL\n");
        EXPECT_EQ(context->user_private, nullptr);
        EXPECT_EQ(context->service_name, nullptr);

        EXPECT_EQ(resolve(), context); // by now it is
        is_ready = {ready};
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
                GANTRY_set_use_default(!use_default); // for contexts to come
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
    const std::string log = "gantrycontext.GANTRY_cpp_context_set_service: ";
    const auto set = [&](const char* name, const std::string& said, const std::string& error = {})
    {
        GANTRY_context_set_service(nullptr, name);
        EXPECT_EQ(logged(),
                  "9 " + log + "enter\n9 " + log + "setting the service_name\n9 " + log + said +
                      '\n' +
                      (error.empty() ? "9 " + log + "leave\n"
                                     : "2 EXCEPTION " + log +
                                           "sd_bus_request_name: org.freedesktop.DBus.Error." +
                                           error + "\\n\n"));
        EXPECT_STREQ(context->service_name, name == nullptr ? "" : name);
    };
    support::Client client;
    make();
    const std::string own_name = context->bus.get_unique_name();
    set(nullptr, "caller requests no service_name");
    set("", "service_name=[]");

    // An earlier name stays the connection's. It may be replaced, and replaces who allows it.
    const char* first = "com.example.first";
    set(first, "service_name=[com.example.first]");
    set("com.example.second", "service_name=[com.example.second]");
    EXPECT_EQ(client.name_owner(first), own_name);
    EXPECT_EQ(client.name_owner("com.example.second"), own_name);
    ASSERT_EQ(sd_bus_request_name(client.bus(), first,
                                  SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT),
              1);
    set(first, "service_name=[com.example.first]");
    EXPECT_EQ(client.name_owner(first), own_name);

    // Refused for its form, and by one who doesn't allow it: at once and for good.
    set("malformed", "service_name=[malformed]", "InvalidArgs: Invalid argument");
    const char* taken = "com.example.taken";
    client.request_name(taken);
    set(taken, "service_name=[com.example.taken]", "FileExists: File exists");
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

class HealthCheck : public Context
{
  protected:
    HealthCheck()
    {
        make();
    }

    std::string check(const Situation& found)
    {
        situation = found;
        context->sanity_check();
        situation = {};
        return logged();
    }

    static std::string fault(const std::string& text)
    {
        return "1 gantrycontext.sanity_check: " + text + '\n';
    }
};

TEST_F(HealthCheck, MeasuresTheGapSinceTheLastOne)
{
    std::int64_t now = 1'000'000; // however late the first check comes
    EXPECT_EQ(check({.seconds = {0, now}}), "");
    for (const int gap : {0, 3, 4, 3, 60, 61, 1, 86'400, -5})
    {
        now += gap;
        const std::string seconds = std::to_string(gap) + " seconds";
        EXPECT_EQ(check({.seconds = {0, now}}),
                  (gap > 3 ? "9 gantrycontext.sanity_check: delta=" + seconds + '\n' : "") +
                      (gap > 60 ? fault("dbus not serviced for over " + seconds) : ""));
        EXPECT_EQ(context->last_serviced, now);
    }
}

TEST_F(HealthCheck, GoesOnWhateverItFinds)
{
    const std::string read = fault("dbus has over 101 messages in read queue");
    const std::string write = fault("dbus has over 101 messages in write queue");
    const std::pair<Situation, std::string> situations[] = {
        {{.read = {0, 100}, .write = {0, 100}}, ""},
        {{.read = {0, 5'000'000'000}, .write = {0, 101}},
         fault("dbus has over 5000000000 messages in read queue") + write},
        {{.read = {-ECHILD}, .write = {0, 101}},
         fault("sd_bus_get_n_queued_read returned an error, rc=-10") + write},
        {{.read = {0, 101}, .write = {-ECHILD}},
         read + fault("sd_bus_get_n_queued_write returned an error, rc=-10")},
        {{.tid = {-ENXIO}, .write = {0, 101}}, write}, // bound to no thread yet
        {{.tid = {-ECHILD}, .write = {0, 101}},
         fault("sd_bus_get_tid returned an error, irv=-10") + write},
        {{.tid = {0, 1}, .write = {0, 101}}, fault("thread ids are not equal") + write},
        {{.seconds = {-1, 7}, .read = {0, 101}}, read},
    };
    for (const auto& [found, faults] : situations)
    {
        EXPECT_EQ(check(found), faults);
    }
    EXPECT_NE(context->last_serviced, 7);
}

} // namespace
