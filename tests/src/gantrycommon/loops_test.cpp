// The dispatch loops: what each tells the service manager, checks, serves and waits for, and what
// ends it.
#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <systemd/sd-event.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "src/stand_in.hpp"
#include "support/notify_socket.hpp"

namespace
{

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

stand_in::Script is_ready;
stand_in::Script event_run;
stand_in::Script bus_wait;
void (*on_wait)(){};

// What the loops asked for, by the timeouts that they gave.
std::vector<std::uint64_t> runs;
std::vector<std::uint64_t> waits;
int health_checks = 0;

} // namespace

int sd_bus_is_ready(sd_bus* bus)
{
    return is_ready.next_or("sd_bus_is_ready", sd_bus_is_ready, bus);
}

int sd_event_run(sd_event* e, std::uint64_t usec)
{
    runs.push_back(usec);
    return event_run.next_or("sd_event_run", sd_event_run, e, usec);
}

int sd_bus_wait(sd_bus* bus, std::uint64_t timeout)
{
    waits.push_back(timeout);
    if (on_wait != nullptr)
    {
        std::exchange(on_wait, nullptr)();
    }
    return bus_wait.next_or("sd_bus_wait", sd_bus_wait, bus, timeout);
}

// The health check alone calls it, once each time.
int sd_bus_get_n_queued_read(sd_bus* /*bus*/, std::uint64_t* ret)
{
    ++health_checks;
    *ret = 0;
    return 0;
}

namespace
{

const std::string resolved = "9 gantrycontext.GANTRY_context_management: leave\n";

class Loops : public testing::Test
{
  protected:
    Loops()
    {
        make();
    }

    ~Loops() override
    {
        GANTRY_context_free(&context);
    }

    // A context with nothing left to serve: behind a round trip, all that greets a new connection
    // has come in.
    void make()
    {
        GANTRY_context_free(&context);
        GANTRY_context_new(&context);
        ASSERT_GE(sd_bus_call_method(GANTRY_get_sd_bus(context->bus), "org.freedesktop.DBus", "/",
                                     "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, ""),
                  0);
        GANTRY_dbus_loop_one_pass(context);
        logged();
        runs.clear();
        waits.clear();
        health_checks = 0;
    }

    // Has the event loop call a function once; nothing but that is ready.
    void defer(sd_event_handler_t call)
    {
        ASSERT_GE(sd_event_add_defer(context->event.get(), nullptr, call, context), 0);
    }

    GANTRY_cpp_context* context = nullptr;
    support::NotifySocket service_manager;
};

int nothing(sd_event_source* /*source*/, void* /*context*/)
{
    return 0;
}

TEST_F(Loops, OnePassServesAllThatIsReadyAndReturns)
{
    GANTRY_dbus_loop_one_pass(context);
    EXPECT_THAT(runs, ElementsAre(1));
    EXPECT_EQ(health_checks, 1);

    defer(nothing);
    defer(nothing);
    defer(nothing);
    context->running = false; // isn't looked at
    runs.clear();
    GANTRY_dbus_loop_one_pass(context);
    EXPECT_THAT(runs, ElementsAre(1, 1, 1, 1));
    EXPECT_EQ(health_checks, 2);
    EXPECT_THAT(waits, IsEmpty());
    EXPECT_EQ(logged(), resolved + resolved);
    EXPECT_THAT(service_manager.received(), IsEmpty());
}

TEST_F(Loops, LoopChecksAndServesAndWaitsUntilTheWaitFails)
{
    defer(nothing);
    bus_wait = {1, 1, -EIO};
    GANTRY_dbus_loop(context);
    EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_dbus_loop: enter\n" + resolved +
                            "9 gantrycommon.GANTRY_dbus_loop: sd_notify ready\n"
                            "2 EXCEPTION gantrycommon.GANTRY_dbus_loop: sd_bus_wait: "
                            "org.freedesktop.DBus.Error.IOError: Input/output error\\n\n");
    EXPECT_EQ(health_checks, 3);
    EXPECT_THAT(runs, ElementsAre(1, 1, 1, 1));
    EXPECT_THAT(waits, ElementsAre(UINT64_MAX, UINT64_MAX, UINT64_MAX));
    EXPECT_THAT(service_manager.received(), ElementsAre("READY=1"));

    // And is entered again. It leaves when something stops the context, before it waits.
    waits.clear();
    defer(
        [](sd_event_source*, void* stopped)
        {
            static_cast<GANTRY_cpp_context*>(stopped)->running = false;
            return 0;
        });
    GANTRY_dbus_loop(nullptr);
    EXPECT_EQ(logged(), R"(9 gantrycommon.GANTRY_dbus_loop: enter
9 gantrycommon.GANTRY_dbus_loop: sd_notify ready
9 gantrycommon.GANTRY_dbus_loop: leave
)");
    EXPECT_THAT(waits, IsEmpty());
    EXPECT_THAT(service_manager.received(), ElementsAre("READY=1"));
}

TEST_F(Loops, LoopWhoseWaitASignalInterruptsEndsWellIfThatAskedForAStop)
{
    const std::string failed = "2 EXCEPTION gantrycommon.GANTRY_dbus_loop: sd_bus_wait: ";
    struct Case
    {
        int error;
        void (*handler)();
        std::string end;
    };
    void (*const stop)() = [] { GANTRY_context_stop(nullptr); };
    for (const auto& [error, handler, end] :
         {Case{-EINTR, stop, ""},
          Case{-EINTR, nullptr, failed + "System.Error.EINTR: Interrupted system call\\n\n"},
          Case{-EIO, stop, failed + "org.freedesktop.DBus.Error.IOError: Input/output error\\n\n"}})
    {
        bus_wait = {error};
        on_wait = handler;
        GANTRY_dbus_loop(context);
        EXPECT_EQ(logged(2), end);
    }
    EXPECT_THAT(waits, SizeIs(3));
}

TEST_F(Loops, SdloopEndsWithTheExitCodeOfTheEventLoop)
{
    const std::string failed =
        "2 EXCEPTION gantrycommon.GANTRY_dbus_sdloop: sd_event_loop: No such process\\n\n";
    for (const int code : {0, 7, -ESRCH})
    {
        make();
        static int exit_code = 0;
        exit_code = code;
        defer(nothing);
        defer([](sd_event_source* source, void*)
              { return sd_event_exit(sd_event_source_get_event(source), exit_code); });
        GANTRY_dbus_sdloop(context);
        EXPECT_EQ(logged(),
                  "9 gantrycommon.GANTRY_dbus_sdloop: enter\n" + resolved +
                      (code >= 0 ? "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=" +
                                       std::to_string(code) + "\\n\n"
                                 : failed));
        EXPECT_EQ(health_checks, 1);
        EXPECT_THAT(runs, Each(UINT64_MAX));
        EXPECT_THAT(service_manager.received(), IsEmpty());
    }
}

struct Loop
{
    void (*run)(GANTRY_cpp_context*);
    std::string function;
    bool says_enter;
};

const Loop loops[] = {
    {GANTRY_dbus_loop, "gantrycommon.GANTRY_dbus_loop: ", true},
    {GANTRY_dbus_loop_one_pass, "gantrycommon.GANTRY_dbus_loop_one_pass: ", false},
    {GANTRY_dbus_sdloop, "gantrycommon.GANTRY_dbus_sdloop: ", true},
};

TEST_F(Loops, EndWhenTheEventLoopFails)
{
    for (const Loop& loop : loops)
    {
        event_run = {1, -EIO};
        loop.run(nullptr);
        EXPECT_EQ(logged(2),
                  "2 EXCEPTION " + loop.function + "sd_event_run: Input/output error\\n\n");
    }
    EXPECT_EQ(health_checks, 3);
    EXPECT_THAT(runs, SizeIs(6));
}

TEST_F(Loops, DoNothingWithoutAContext)
{
    for (const Loop& loop : loops)
    {
        is_ready = {0};
        loop.run(nullptr);
        EXPECT_EQ(logged(),
                  (loop.says_enter ? "9 " + loop.function + "enter\n" : "") +
                      "2 gantrycontext.GANTRY_context_management: is_ready reported not ready, "
                      "rv=0\n1 " +
                      loop.function + "vctx is NULL\n");
    }
    EXPECT_EQ(health_checks, 0);
    EXPECT_THAT(runs, IsEmpty());
    EXPECT_THAT(service_manager.received(), IsEmpty());
}

} // namespace
