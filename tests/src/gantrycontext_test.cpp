// A context's life: what happens once in a process, what stops a context from being made, whose it
// is, the name it claims, its health check at the limits, and in which order it goes.
//
// Linked at a fixed address: such a program has its own copy of the library's GANTRY_use_default.
#include <cstdio>
#include <ctime>
#include <sched.h>
#include <sys/syscall.h>

#include "src/served.hpp"

namespace
{

using testing::ElementsAre;

constexpr const char* unrefs = "sd_bus_unref";
constexpr const char* closes = "sd_bus_flush_close_unref";

// What went, oldest first.
std::vector<std::string> record;

// Passes a release on, and notes it unless it is libsystemd's own.
template <class Handle>
Handle* release(const char* name, Handle* handle, const void* caller)
{
    static thread_local int depth = 0;
    auto* const hidden = interpose::hidden<Handle*(Handle*)>(name);
    if (depth == 0 && interpose::library_of(caller) !=
                          interpose::library_of(reinterpret_cast<const void*>(hidden)))
    {
        record.emplace_back(name);
    }
    ++depth;
    Handle* const result = hidden(handle);
    --depth;
    return result;
}

// What a health check finds, negative for a failure.
struct Situation
{
    std::int64_t seconds = -1; // which is the true time
    std::int64_t tid = gettid();
    std::int64_t read = 0;
    std::int64_t write = 0;
};
Situation situation;

template <class Value>
int answer(std::int64_t found, Value* out)
{
    *out = found < 0 ? *out : static_cast<Value>(found);
    return found < 0 ? static_cast<int>(found) : 0;
}

int yields = 0;
bool key_deletion_fails = false;

} // namespace

#define NOTED(function, type)                                                                      \
    type* function(type* handle)                                                                   \
    {                                                                                              \
        return release(#function, handle, __builtin_return_address(0));                            \
    }
NOTED(sd_bus_unref, sd_bus)
NOTED(sd_bus_flush_close_unref, sd_bus)
NOTED(sd_bus_slot_unref, sd_bus_slot)
NOTED(sd_event_unref, sd_event)

SCRIPTED(event_default, sd_event_default, (sd_event * *event), event)
SCRIPTED(flush, sd_bus_flush, (sd_bus * bus), bus)
SCRIPTED(get_unique_name, sd_bus_get_unique_name, (sd_bus * bus, const char** name), bus, name)
SCRIPTED(is_ready, sd_bus_is_ready, (sd_bus * bus), bus)
SCRIPTED(key_create, pthread_key_create, (pthread_key_t * key, void (*destroy)(void*)) noexcept,
         key, destroy)
SCRIPTED(setspecific, pthread_setspecific, (pthread_key_t key, const void* pointer) noexcept, key,
         pointer)

int clock_gettime(clockid_t clock_id, timespec* now) noexcept
{
    if (clock_id != CLOCK_MONOTONIC || situation.seconds == -1)
    {
        return static_cast<int>(syscall(SYS_clock_gettime, clock_id, now));
    }
    now->tv_nsec = 999'999'999; // parts of a second don't count
    return answer(situation.seconds, &now->tv_sec);
}

#define ANSWERED(function, type, field)                                                            \
    int function(sd_bus* /*bus*/, type* out)                                                       \
    {                                                                                              \
        return answer(situation.field, out);                                                       \
    }
ANSWERED(sd_bus_get_tid, pid_t, tid)
ANSWERED(sd_bus_get_n_queued_read, std::uint64_t, read)
ANSWERED(sd_bus_get_n_queued_write, std::uint64_t, write)

int sched_yield() noexcept
{
    return ++yields, 0;
}

int pthread_key_delete(pthread_key_t key) noexcept
{
    if (key_deletion_fails && interpose::is_called_by_library(__builtin_return_address(0)))
    {
        GANTRY_cpp_context* late = nullptr;
        GANTRY_context_new(&late);
        return EINVAL;
    }
    return interpose::hidden<decltype(pthread_key_delete)>("pthread_key_delete")(key);
}

namespace
{

// What no function hands out, to see what becomes of an out parameter.
int somewhere = 0;

GANTRY_cpp_context* resolve(GANTRY_cpp_context* context = nullptr)
{
    auto* resolved = reinterpret_cast<GANTRY_cpp_context*>(&somewhere);
    GANTRY_context_management(context, &resolved);
    return resolved;
}

// Death tests come first: no context has been made in this process, so each is a process's life.
TEST(ProcessDeathTest, MakesTheKeyInTenTriesAndSaysFarewellWithOrWithoutIt)
{
    const auto live = [](const std::vector<int>& key_creations, int contexts)
    {
        key_create = key_creations;
        for (GANTRY_cpp_context* context = nullptr; contexts > 0; --contexts)
        {
            GANTRY_context_new(&context);
        }
        std::fprintf(stderr, "%d yields\n", yields);
        std::exit(EXIT_SUCCESS);
    };
    const auto expect_life =
        [&](const std::vector<int>& key_creations, int contexts, const std::string& log)
    {
        EXPECT_EXIT(live(key_creations, contexts), testing::ExitedWithCode(EXIT_SUCCESS),
                    testing::ContainsRegex(log + "\n$"));
    };
    // In these a dot is any character, of a line's end too.
    const std::string error = "\\[1 0x110\\] [^\n]*";
    const std::string no_key = error + "key is not valid\n[^\n]*unable to allocate context\n";
    const auto farewell = "enter tid=" + std::to_string(pthread_self()) + "\n";
    const auto unused = farewell + "[^\n]*no key, no cleanup needed";
    const std::string gone = "[^\n]*destructor: leave";
    setenv("TEST_LOG_ECHO", "1", 1);
    expect_life({}, 0, "^0 yields\n[^\n]*" + unused);
    expect_life(std::vector(9, EAGAIN), 1, "9 yields\n[^\n]*" + farewell + gone);
    expect_life(std::vector(10, EAGAIN), 2, no_key + ".*" + no_key + "9 yields\n.*" + unused);
    key_deletion_fails = true;
    expect_life({}, 1, "0 yields\n.*" + farewell + ".*" + no_key + error + "irv=22\n" + gone);
    key_deletion_fails = false;
    unsetenv("TEST_LOG_ECHO");
}

class Context : public Served
{
  protected:
    ~Context() override
    {
        GANTRY_use_default = true;
    }
};

TEST_F(Context, LeavesNothingBehindWhenItCantBeMade)
{
    const std::string function = "gantrycontext.GANTRY_get_or_allocate_ctx: ";
    const std::string failed = "2 EXCEPTION " + function;
    const std::string not_ready = "2 " + function + "is_ready reported ";
    const std::string flush_failed =
        failed + "sd_bus_flush: org.freedesktop.DBus.Error.IOError: Input/output error\\n\n";
    struct Case
    {
        interpose::Script& script;
        std::vector<int> results;
        std::string reason;
    };
    const Case cases[] = {
        {get_unique_name,
         {-ENODATA},
         failed + "basic_string: construction from null is not valid\\n\n"},
        {event_default, {-EMFILE}, failed + "sd_event_default: Too many open files\\n\n"},
        {flush, {-EIO}, flush_failed},
        {flush, {0, -EIO}, flush_failed},
        {is_ready, {-ECHILD}, not_ready + "an error, rv=-10\n"},
        {is_ready, {0}, not_ready + "not ready, rv=0\n"},
        {setspecific, {ENOMEM}, failed + "std::bad_alloc\\n\n"},
    };
    GANTRY_context_free(&context);
    const auto descriptors = support::open_fds();
    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = use_default;
        for (const auto& [script, results, reason] : cases)
        {
            logged();
            script = results;
            context = reinterpret_cast<GANTRY_cpp_context*>(&somewhere);
            GANTRY_context_new(&context);
            EXPECT_EQ(context, nullptr);
            EXPECT_EQ(logged(2), reason + "2 gantrycontext.GANTRY_cpp_context_new: "
                                          "unable to allocate context\n");
            EXPECT_EQ(support::open_fds(), descriptors);
            EXPECT_NE(context = resolve(), nullptr); // the next use tries again
            GANTRY_context_free(&context);
        }
    }
    support::bus().kill();
    EXPECT_EQ(resolve(), nullptr);
    support::bus().restart();
    EXPECT_NE(context = resolve(), nullptr);
}

TEST_F(Context, IsKeptWhileItsConnectionIsNotReady)
{
    for (const auto& [ready, reason] :
         {std::pair{-ECHILD, "an error, rv=-10"}, {0, "not ready, rv=0"}})
    {
        is_ready = {ready};
        GANTRY_context_set_service(nullptr, "com.example.unready");
        EXPECT_STREQ(context->service_name, "");
        EXPECT_EQ(logged(2),
                  "2 gantrycontext.GANTRY_context_management: is_ready reported " +
                      std::string(reason) +
                      "\n1 gantrycontext.GANTRY_cpp_context_set_service: vctx is NULL\n");
        EXPECT_EQ(resolve(), context); // by now it is
        is_ready = {ready};
        EXPECT_EQ(resolve(context), context); // isn't asked for
        EXPECT_EQ(resolve(), nullptr);
        logged();
    }
}

TEST_F(Context, BelongsToItsThreadAndGoesWithIt)
{
    for (const bool use_default : {true, false})
    {
        GANTRY_use_default = !use_default;
        GANTRY_set_use_default(use_default);
        std::pair<pid_t, pid_t> owner_and_destroyer;
        std::thread(
            [&]
            {
                GANTRY_cpp_context* const theirs = resolve();
                EXPECT_NE(theirs, context);
                EXPECT_EQ(resolve(), theirs);
                EXPECT_EQ(resolve(context), context); // passed on as it is
                GANTRY_use_default = !use_default;    // for contexts to come
                owner_and_destroyer.first = gettid();
                theirs->tracker.push_back({&owner_and_destroyer.second, [](void* tid)
                                           { *static_cast<pid_t*>(tid) = gettid(); }});
                record.clear();
            })
            .join();
        EXPECT_EQ(owner_and_destroyer.second, owner_and_destroyer.first);
        EXPECT_THAT(record, ElementsAre("sd_bus_slot_unref", "sd_event_unref",
                                        use_default ? unrefs : closes));
        EXPECT_EQ(resolve(), context);
    }
}

TEST_F(Context, RequestsTheServiceNameItIsGiven)
{
    const auto set = [&](const char* name, const std::string& error)
    {
        GANTRY_context_set_service(nullptr, name);
        const std::string failed = "2 EXCEPTION gantrycontext.GANTRY_cpp_context_set_service: "
                                   "sd_bus_request_name: org.freedesktop.DBus.Error.";
        const auto lines = logged(2);
        EXPECT_THAT(lines, EndsWith(error.empty() ? "" : failed + error + "\\n\n"));
        EXPECT_EQ(lines.find("the bus refused the name [") == std::string::npos, error.empty());
        EXPECT_STREQ(context->service_name, name == nullptr ? "" : name);
    };
    set(nullptr, "");
    set("", "");

    // An earlier name stays the connection's. It may be replaced, and replaces who allows it.
    const char* first = "com.example.first";
    set(first, "");
    set("com.example.second", "");
    EXPECT_EQ(client.name_owner(first), service);
    EXPECT_EQ(client.name_owner("com.example.second"), service);
    ASSERT_EQ(sd_bus_request_name(client.bus(), first,
                                  SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT),
              1);
    set(first, "");
    EXPECT_EQ(client.name_owner(first), service);

    // Refused for its form, and by one who doesn't allow it: at once and for good.
    set("malformed", "InvalidArgs: Invalid argument");
    const char* taken = "com.example.taken";
    ASSERT_EQ(sd_bus_request_name(client.bus(), taken, 0), 1);
    set(taken, "FileExists: File exists");
    ASSERT_GE(sd_bus_release_name(client.bus(), taken), 0);
    EXPECT_EQ(client.name_owner(taken), "");
}

TEST_F(Context, DestroysObjectsNewestFirstThenTheManagerThenMatches)
{
    static GANTRY_cpp_context* dying = nullptr;
    dying = context;
    // An object is its name here.
    static char names[][4] = {"1st", "2nd", "3rd", "new"};
    static constexpr auto destroy = [](void* name)
    { record.emplace_back(static_cast<char*>(name)); };
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
    sd_bus* bus = GANTRY_get_sd_bus(context->bus);
    context->object_manager = new gantry::ObjectManager(nullptr);
    sd_bus_add_object_manager(bus, &context->object_manager->slot, "/managed");
    context->signal_matches.push_back(std::make_unique<gantry::Subscription>(nullptr));
    sd_bus_add_match(bus, &context->signal_matches.back()->slot, "type='signal'", nullptr, nullptr);
    record.clear();
    GANTRY_context_free(&context);
    // The manager's, the filter's and the match's.
    EXPECT_THAT(record,
                ElementsAre("3rd", "new", "2nd", "1st", "sd_bus_slot_unref", "sd_bus_slot_unref",
                            "sd_bus_slot_unref", "sd_event_unref", unrefs));
}

TEST_F(Context, ChecksItsHealthWhateverItFinds)
{
    const auto check = [&](const Situation& found)
    {
        situation = found;
        context->sanity_check();
        situation = {};
        return logged();
    };
    const auto fault = [](const std::string& text)
    { return "1 gantrycontext.sanity_check: " + text + '\n'; };
    std::int64_t now = 1'000'000; // however late the first check comes
    EXPECT_EQ(check({.seconds = now}), "");
    for (const int gap : {0, 3, 4, 3, 60, 61, 1, 86'400, -5})
    {
        now += gap;
        const std::string seconds = std::to_string(gap) + " seconds";
        EXPECT_EQ(check({.seconds = now}),
                  (gap > 3 ? "9 gantrycontext.sanity_check: delta=" + seconds + '\n' : "") +
                      (gap > 60 ? fault("dbus not serviced for over " + seconds) : ""));
    }

    const std::string read = fault("dbus has over 101 messages in read queue");
    const std::string write = fault("dbus has over 101 messages in write queue");
    const std::pair<Situation, std::string> situations[] = {
        {{.read = 100, .write = 100}, ""},
        {{.read = 5'000'000'000, .write = 101},
         fault("dbus has over 5000000000 messages in read queue") + write},
        {{.read = -ECHILD, .write = 101},
         fault("sd_bus_get_n_queued_read returned an error, rc=-10") + write},
        {{.read = 101, .write = -ECHILD},
         read + fault("sd_bus_get_n_queued_write returned an error, rc=-10")},
        {{.tid = -ENXIO, .write = 101}, write}, // bound to no thread yet
        {{.tid = -ECHILD, .write = 101},
         fault("sd_bus_get_tid returned an error, irv=-10") + write},
        {{.tid = 1, .write = 101}, fault("thread ids are not equal") + write},
        {{.seconds = -2, .read = 101}, read},
    };
    for (const auto& [found, faults] : situations)
    {
        EXPECT_EQ(check(found), faults);
    }
    EXPECT_NE(context->last_serviced, 0);

    // A child's thread has another id than the one that was checked before.
    const pid_t child = fork();
    if (child == 0)
    {
        _exit(check({.tid = gettid()}).empty() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Context, KnowsWhichOfItsNamesItStillOwns)
{
    const auto owned = [this]
    {
        const char* name = "none";
        GANTRY_context_get_service(context, &name);
        return name != nullptr ? name : "";
    };
    const auto take = [&](const char* name, std::uint64_t more)
    { sd_bus_request_name(client.bus(), name, SD_BUS_NAME_REPLACE_EXISTING | more); };
    for (const char* name : {"com.example.one", "com.example.two", "com.example.one"})
    {
        GANTRY_context_set_service(context, name);
        EXPECT_STREQ(owned(), name);
    }
    take("com.example.one", SD_BUS_NAME_ALLOW_REPLACEMENT);
    GANTRY_context_set_service(context, "com.example.one"); // before it hears of the loss
    client.settle(service);
    EXPECT_STREQ(owned(), "com.example.one");
    take("com.example.one", 0);
    client.emit(service.c_str(), "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameLost", "s",
                "com.example.two"); // as only the bus may say
    client.settle(service);
    EXPECT_STREQ(owned(), "com.example.two");
    EXPECT_EQ(support::count_logged("lost the name [com.example.one]"), 1U);
    support::bus().restart();
    GANTRY_dbus_loop_one_pass(context);
    EXPECT_STREQ(owned(), "");
}

} // namespace
