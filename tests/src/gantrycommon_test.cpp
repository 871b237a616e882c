// The dispatch loops: what each checks and tells the service manager, and what ends it: a stop, a
// context that is freed or an exception in every kind of callback, a signal, a failure.
#include "src/served.hpp"
#include "support/notify_socket.hpp"

namespace
{

// Of this thread's loops: the timeouts of their calls, and how often they checked the health.
thread_local std::vector<std::uint64_t> runs;
thread_local std::vector<std::uint64_t> waits;
thread_local unsigned health_checks = 0;

thread_local int run_error = 0; // of the next run, which does its work first
interpose::Script bus_wait;
bool stops_in_wait = false;

} // namespace

int sd_event_run(sd_event* event, std::uint64_t timeout)
{
    runs.push_back(timeout);
    const int result = interpose::hidden<decltype(sd_event_run)>("sd_event_run")(event, timeout);
    return run_error == 0 ? result : std::exchange(run_error, 0);
}

int sd_bus_wait(sd_bus* bus, std::uint64_t timeout)
{
    waits.push_back(timeout);
    if (std::exchange(stops_in_wait, false))
    {
        GANTRY_context_stop(nullptr);
    }
    return bus_wait.next_or("sd_bus_wait", sd_bus_wait, bus, timeout);
}

// The health check alone calls it, once each time.
int sd_bus_get_n_queued_read(sd_bus* /*bus*/, std::uint64_t* count)
{
    ++health_checks;
    *count = 0;
    return 0;
}

namespace
{

using support::Client;
using support::Reply;
using RunLoop = void(GANTRY_cpp_context*);

constexpr const char* interface = Sample::interface;
const std::string io_error = "org.freedesktop.DBus.Error.IOError: Input/output error";
const std::string io_reply = "error " + io_error;

GANTRY_cpp_context* resolve()
{
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_management(nullptr, &context);
    return context;
}

void stop()
{
    GANTRY_context_stop(nullptr);
}

[[noreturn]] void fail()
{
    throw std::runtime_error("no such luck");
}

// What calls back in a loop; behind a setter, the getter that its announcement calls.
enum Kind : unsigned
{
    getter,
    setter,
    method,
    signal_arrival,
    event_source,
    kinds
};

class Service;
thread_local Service* own = nullptr;

// A thread's context with all that may call back, and a client of it.
class Service
{
  public:
    Service()
    {
        own = this;
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, "");
        name = context->bus.get_unique_name();
        object = new Object(context->bus, "/class");
        context->tracker.push_back({object, [](void* o) { delete static_cast<Object*>(o); }});
        table.TupleOne = [](GANTRY_instance*, unsigned short*) { call(); };
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, "/table", nullptr);
        GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(
            context, [](GANTRY_cpp_context*, char*) { call(); });
        logged();
        runs.clear();
        waits.clear();
        health_checks = 0;
    }
    ~Service()
    {
        GANTRY_context_free(&context);
    }

    // Has the next loop call back. Gives the call whose reply a client waits for, if there is one.
    std::optional<Client::Pending> provoke(Kind kind)
    {
        const auto start = [this](const char* path, auto... call)
        {
            std::optional pending{client.start({name, path}, call...)};
            sd_bus_flush(client.bus());
            return pending;
        };
        constexpr const char* properties = "org.freedesktop.DBus.Properties";
        switch (kind)
        {
        case getter:
            return start("/class", properties, "Get", "ss", interface, "PropByte");
        case setter:
            return start("/class", properties, "Set", "ssv", interface, "PropByte", "y",
                         calls % 250 + 1);
        case method:
            return start("/table", interface, "TupleOne");
        case signal_arrival:
            client.emit(name.c_str(), "/", interface, "faultAdded", "s", "fault");
            return {};
        default:
            sd_event_add_defer(
                context->event.get(), nullptr, [](auto*, void*) { return call(), 0; }, nullptr);
            return {};
        }
    }

    // One pass may find nothing to do yet; the others wait for it.
    void run_until_called(RunLoop* loop)
    {
        for (const int before = calls; calls == before;)
        {
            loop(context);
        }
    }

    // Gives what is wrong with the client's reply.
    std::string serve(Kind kind, RunLoop* loop, std::function<void()> callback)
    {
        on_call = std::move(callback);
        auto pending = provoke(kind);
        run_until_called(loop);
        const auto reply = pending ? client.wait(std::move(*pending)) : Reply{};
        return reply.ok() || !pending ? "" : reply.text;
    }

    static void call()
    {
        ++own->calls;
        if (const auto callback = std::exchange(own->on_call, nullptr))
        {
            callback();
        }
    }

    struct Object : Sample
    {
        using Sample::propByte;
        using Sample::Sample;
        ~Object() override
        {
            ++own->destructions;
        }
        unsigned char propByte() const override
        {
            call();
            return Sample::propByte();
        }
    };

    Client client;
    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    GANTRY_cpp_context* context = nullptr;
    Object* object = nullptr;
    std::string name;
    std::function<void()> on_call; // the next callback alone
    int calls = 0;
    int destructions = 0;
};

struct Loop
{
    std::string name;
    RunLoop* run;
    std::uint64_t timeout;
    std::string farewell; // in the log

    [[nodiscard]] std::string failed(const std::string& what) const
    {
        return "2 EXCEPTION gantrycommon." + name + ": " + what + "\\n\n";
    }
};

const Loop loops[] = {
    {"GANTRY_dbus_loop", GANTRY_dbus_loop, 1, ""},
    {"GANTRY_dbus_loop_one_pass", GANTRY_dbus_loop_one_pass, 1, ""},
    {"GANTRY_dbus_sdloop", GANTRY_dbus_sdloop, UINT64_MAX,
     "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=0\\n\n"},
};
const auto& [dbus_loop, one_pass, sdloop] = loops;

// A host that runs the thread's event loop itself.
void host_loop(GANTRY_cpp_context* /*context*/)
{
    sd_event* event = nullptr;
    sd_event_default(&event);
    sd_event_run(event, 1'000);
    sd_event_unref(event);
}

class EachLoop : public testing::TestWithParam<int>
{
  protected:
    const Loop& loop = loops[GetParam()];
};
INSTANTIATE_TEST_SUITE_P(Loops, EachLoop, testing::Range(0, 3),
                         [](const auto& index) { return loops[index.param].name; });

TEST_P(EachLoop, ChecksHealthServesAllThatIsReadyAndTellsWhatIsItsOwn)
{
    support::NotifySocket service_manager;
    Service service;
    service.provoke(event_source);
    service.provoke(event_source);
    service.on_call = [&] { service.on_call = stop; };
    loop.run(service.context);
    EXPECT_EQ(service.calls, 2);
    EXPECT_EQ(health_checks, 1U);
    EXPECT_THAT(runs, testing::Each(testing::AnyOf(loop.timeout, loop.timeout - 1)));
    EXPECT_THAT(waits, IsEmpty());
    EXPECT_EQ(service_manager.received(),
              std::vector<std::string>(loop.run == GANTRY_dbus_loop ? 1 : 0, "READY=1"));
    EXPECT_EQ(logged(2), loop.farewell);
    int fd = -1; // which polls readable for every source, not only for the bus
    GANTRY_context_get_fd(service.context, &fd);
    EXPECT_EQ(fd, sd_event_get_fd(service.context->event.get()));
}

TEST_P(EachLoop, EndsAfterTheCallbackThatStopsItAndServesTheRestLater)
{
    logged();
    stop();
    EXPECT_EQ(logged(), ""); // there is no context, and none is made
    Service service;
    const auto expect_stop = [&]
    {
        service.calls = 0;
        service.on_call = stop;
        service.run_until_called(loop.run);
        EXPECT_EQ(service.calls, 1);
        EXPECT_EQ(logged(2), loop.farewell);
    };
    for (unsigned kind = 0; kind < kinds; ++kind)
    {
        EXPECT_EQ(service.serve(Kind{kind}, loop.run, stop), "") << kind;
        EXPECT_EQ(logged(2), loop.farewell);
    }
    service.provoke(method);
    service.provoke(method);
    service.client.name_owner(service.name.c_str()); // behind them
    expect_stop();
    expect_stop();

    // One that comes before the loop, too, and stops this one alone.
    service.provoke(event_source);
    GANTRY_context_stop(service.context);
    stop();
    loop.run(nullptr);
    EXPECT_EQ(service.calls, 1);
    EXPECT_EQ(logged(2), loop.farewell);
    expect_stop();

    // That of a loop which the callback enters is of both.
    const auto stop_inside = [&]
    {
        loop.run(nullptr);
        EXPECT_EQ(logged(2), loop.failed("sd_event_run: Device or resource busy"));
        stop();
        sdloop.run(nullptr);
        EXPECT_EQ(logged(2), sdloop.farewell);
    };
    EXPECT_EQ(service.serve(getter, loop.run, stop_inside), "");
    EXPECT_EQ(logged(2), loop.farewell);
}

TEST_P(EachLoop, EndsWithAContextFreedInACallbackAndDestroysItThen)
{
    for (unsigned round = 0; round < 2U * kinds; ++round)
    {
        GANTRY_use_default = round < kinds;
        Service service;
        const auto free = [&]
        {
            auto* const freed = service.context;
            auto* same = freed;
            GANTRY_context_free(&service.context);
            GANTRY_context_free(&same); // comes to the same
            sdloop.run(freed);
            EXPECT_EQ(resolve(), nullptr);
            loop.run(nullptr);
            EXPECT_THAT(logged(2), EndsWith("1 gantrycommon." + loop.name + ": vctx is NULL\n"));
            int fd = 0;
            GANTRY_context_get_fd(nullptr, &fd);
            EXPECT_EQ(fd, -1);
            logged();
            EXPECT_EQ(service.destructions, 0);
        };
        EXPECT_EQ(service.serve(Kind{round % kinds}, loop.run, free), "") << round;
        EXPECT_EQ(logged(2), loop.farewell);
        EXPECT_EQ(service.destructions, 1);
        service.context = resolve();
        ASSERT_NE(service.context, nullptr);
        EXPECT_THAT(service.context->tracker, IsEmpty());
    }
}

TEST_P(EachLoop, EndsWithEachOfTenExceptionsAndServesTheEleventhCall)
{
    Service service;
    for (int time = 0; time < 10; ++time)
    {
        EXPECT_EQ(service.serve(time % 2 == 0 ? getter : setter, loop.run, fail), io_reply);
        EXPECT_THAT(logged(2), EndsWith(loop.failed("no such luck")));
    }
    // What is no std::exception goes through the loop to the host.
    EXPECT_THROW(service.serve(getter, loop.run, [] { throw 42; }), int);
    EXPECT_EQ(service.serve(getter, loop.run, stop), "");
    EXPECT_EQ(logged(2), loop.farewell);
}

TEST(Loops, EndWhenTheHandlerOfASignalStopsThem)
{
    std::signal(SIGALRM, [](int) { stop(); }); // which restarts what can be restarted
    for (const auto* loop : {&dbus_loop, &sdloop})
    {
        Service service;
        // Again and again: the one just before the loop falls asleep is for the next wake-up.
        const itimerval alarms{{0, 5'000}, {0, 5'000}};
        const itimerval none{};
        setitimer(ITIMER_REAL, &alarms, nullptr);
        loop->run(nullptr);
        setitimer(ITIMER_REAL, &none, nullptr);
        EXPECT_EQ(logged(2), loop->farewell);
    }
}

TEST(Sdloop, EndsWithTheExitCodeOfTheEventLoop)
{
    for (const auto& [code, end] :
         {std::pair{0, sdloop.farewell},
          {7, "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=7\\n\n"},
          {-ESRCH, sdloop.failed("sd_event_loop: No such process")}})
    {
        Service service;
        const auto exit = [&, rc = code] { sd_event_exit(service.context->event.get(), rc); };
        service.serve(event_source, sdloop.run, exit);
        EXPECT_EQ(logged(2), end);
    }
}

TEST(DbusLoop, ChecksAndSleepsUntilTheSleepFails)
{
    const auto expect = [](const std::vector<int>& results, bool is_stopped, const std::string& end)
    {
        Service service;
        bus_wait = results;
        stops_in_wait = is_stopped;
        dbus_loop.run(nullptr);
        EXPECT_EQ(logged(2), end.empty() ? "" : dbus_loop.failed("sd_bus_wait: " + end));
        EXPECT_EQ(waits, std::vector<std::uint64_t>(results.size(), UINT64_MAX));
        EXPECT_EQ(health_checks, results.size());
    };
    expect({1, 1, -EIO}, false, io_error);
    expect({-EIO}, true, io_error);
    expect({-EINTR}, false, "System.Error.EINTR: Interrupted system call");
    expect({-EINTR}, true, "");

    // A host may end it so too; a pass doesn't look at that.
    Service service;
    service.serve(event_source, dbus_loop.run, [&] { service.context->running = false; });
    EXPECT_THAT(waits, IsEmpty());
    service.serve(event_source, one_pass.run, nullptr);
}

TEST(Exceptions, ComeOutOfTheInnermostEntryIntoLibsystemdOnce)
{
    Service service;
    RunLoop* loop = one_pass.run;
    const auto expect =
        [&](const std::string& error, const std::string& log, const std::function<void()>& callback)
    {
        EXPECT_EQ(service.serve(getter, loop, callback), error);
        EXPECT_EQ(logged(2), log);
    };
    const auto announce = [&](const std::function<void()>& callback)
    {
        service.on_call = callback;
        service.object->Sample::propByte(static_cast<unsigned char>(service.calls), false);
    };
    const auto emit_and_fail = [&]
    {
        service.on_call = fail;
        sd_bus_emit_properties_changed(GANTRY_get_sd_bus(service.context->bus), "/class", interface,
                                       "PropByte", nullptr);
        throw std::logic_error("second");
    };
    const auto exception = [](const std::string& place, const std::string& what)
    { return "2 EXCEPTION " + place + ": " + what + "\\n\n"; };
    const std::string ended = one_pass.failed("no such luck");
    const std::string dropped = exception("exception_boundary.take", "no such luck");
    const auto own_thread = [] { Service().serve(getter, host_loop, fail); };

    expect("error org.freedesktop.DBus.Error.NoMemory: Cannot allocate memory",
           one_pass.failed("std::bad_alloc"), [] { throw std::bad_alloc(); });
    expect(io_reply, ended, [&] { announce(fail); });
    expect(io_reply, ended, [&] { announce(nullptr), fail(); });
    expect("", "", [&] { EXPECT_THROW(announce(fail), std::runtime_error); });
    expect(io_reply, exception("exception_boundary.take", "second") + ended, emit_and_fail);
    expect(io_reply,
           exception("exception_boundary.~ExceptionRelay", "no such luck") +
               one_pass.failed("sd_event_run: Device or resource busy"),
           [] { run_error = -EBUSY, fail(); });
    expect("", dropped, [&] { std::thread(own_thread).join(); });
    loop = host_loop;
    expect(io_reply, dropped, fail);
    expect(io_reply, exception("exception_boundary.take", "exception of unknown type"),
           [] { throw 42; });
    loop = one_pass.run;
    expect("", "", nullptr);
}

TEST(HostsOwnLoop, DestroysAContextFreedInACallbackInItsNextRun)
{
    // Or the thread's next use of the library, or a loop that still enters the context.
    for (unsigned round = 0; round < 3U * event_source; ++round)
    {
        Service service;
        auto* const freed = service.context;
        const auto free = [&]
        {
            GANTRY_context_free(&service.context);
            one_pass.run(freed); // isn't the one to destroy it
            EXPECT_EQ(resolve(), nullptr);
        };
        EXPECT_EQ(service.serve(Kind{round / 3}, host_loop, free), "");
        EXPECT_EQ(service.destructions, 0);
        round % 3 == 0   ? host_loop(nullptr)
        : round % 3 == 1 ? one_pass.run(freed)
                         : static_cast<void>(service.context = resolve());
        EXPECT_EQ(service.destructions, 1);
    }

    // The announcement of a setter that the host calls, though no loop runs.
    Service service;
    service.on_call = [&] { GANTRY_context_free(&service.context); };
    service.object->Sample::propByte(7, false);
    EXPECT_EQ(service.destructions, 0);
    host_loop(nullptr);
    EXPECT_EQ(service.destructions, 1);
}

TEST(Threads, DoNotMeet)
{
    GANTRY_use_default = false;
    const auto go_round = []
    {
        for (unsigned round = 0; round < 3U * kinds; ++round)
        {
            Service service;
            const auto free = [&] { GANTRY_context_free(&service.context); };
            EXPECT_EQ(service.serve(Kind{round / 3}, loops[round % 3].run, stop), "");
            EXPECT_EQ(service.serve(Kind{round / 3}, loops[round % 3].run, free), "");
            EXPECT_EQ(service.destructions, 1);
        }
    };
    std::array<std::jthread, 8> threads;
    for (auto& thread : threads)
    {
        thread = std::jthread(go_round);
    }
}

} // namespace
