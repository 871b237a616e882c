// The health check at its limits, with the clock, the connection's thread and the lengths of its
// queues in the test's hands.
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/logged.hpp"

namespace
{

// What the stand-ins tell during a check: a result, and a value when that isn't negative.
struct Told
{
    int clock_result = 0;
    std::int64_t seconds = 0;
    int tid_result = 0;
    pid_t tid = gettid();
    int read_result = 0;
    std::uint64_t read = 0;
    int write_result = 0;
    std::uint64_t write = 0;
};
const Told* told = nullptr; // null outside of a check

template <class Value>
int tell(int result, Value value, Value* out)
{
    if (result >= 0)
    {
        *out = value;
    }
    return result;
}

} // namespace

int clock_gettime(clockid_t clock_id, timespec* tp) noexcept
{
    if (told == nullptr || clock_id != CLOCK_MONOTONIC)
    {
        return static_cast<int>(syscall(SYS_clock_gettime, clock_id, tp));
    }
    // Just before the next second: parts of a second don't count.
    return tell(told->clock_result, timespec{told->seconds, 999'999'999}, tp);
}

int sd_bus_get_tid(sd_bus* /*bus*/, pid_t* tid)
{
    return tell(told->tid_result, told->tid, tid);
}

int sd_bus_get_n_queued_read(sd_bus* /*bus*/, std::uint64_t* ret)
{
    return tell(told->read_result, told->read, ret);
}

int sd_bus_get_n_queued_write(sd_bus* /*bus*/, std::uint64_t* ret)
{
    return tell(told->write_result, told->write, ret);
}

namespace
{

std::string fault(const std::string& text)
{
    return "1 gantrycontext.sanity_check: " + text + '\n';
}

std::string trace(const std::string& text)
{
    return "9 gantrycontext.sanity_check: " + text + '\n';
}

class SanityCheck : public testing::Test
{
  protected:
    SanityCheck()
    {
        GANTRY_context_new(&context);
    }

    ~SanityCheck() override
    {
        GANTRY_context_free(&context);
    }

    std::string check(const Told& situation)
    {
        logged();
        told = &situation;
        context->sanity_check();
        told = nullptr;
        return logged();
    }

    GANTRY_cpp_context* context = nullptr;
};

TEST_F(SanityCheck, MeasuresTheGapSinceTheLastCheck)
{
    std::int64_t now = 1'000'000; // however late the first check comes
    EXPECT_EQ(check({.seconds = now}), "");
    for (const int gap : {0, 3, 4, 3, 60, 61, 1, 86'400, -5})
    {
        now += gap;
        const std::string seconds = std::to_string(gap) + " seconds";
        EXPECT_EQ(check({.seconds = now}),
                  (gap > 3 ? trace("delta=" + seconds) : "") +
                      (gap > 60 ? fault("dbus not serviced for over " + seconds) : ""));
        EXPECT_EQ(context->last_serviced, now);
    }
}

TEST_F(SanityCheck, GoesOnWithoutAClock)
{
    context->last_serviced = 5;
    EXPECT_EQ(check({.clock_result = -1, .read = 101}),
              fault("dbus has over 101 messages in read queue"));
    EXPECT_EQ(context->last_serviced, 5);
}

TEST_F(SanityCheck, ReportsLongQueuesEachByItself)
{
    EXPECT_EQ(check({.read = 100, .write = 100}), "");
    EXPECT_EQ(check({.read = 5'000'000'000, .write = 101}),
              fault("dbus has over 5000000000 messages in read queue") +
                  fault("dbus has over 101 messages in write queue"));
    EXPECT_EQ(check({.read_result = -ECHILD, .write = 101}),
              fault("sd_bus_get_n_queued_read returned an error, rc=-10") +
                  fault("dbus has over 101 messages in write queue"));
    EXPECT_EQ(check({.read = 101, .write_result = -ECHILD}),
              fault("dbus has over 101 messages in read queue") +
                  fault("sd_bus_get_n_queued_write returned an error, rc=-10"));
}

TEST_F(SanityCheck, ReportsAnotherThreadAndGoesOn)
{
    const auto late = [&](Told situation)
    {
        context->last_serviced = 1;
        situation.seconds = 5;
        situation.write = 101;
        return check(situation);
    };
    const std::string rest =
        trace("delta=4 seconds") + fault("dbus has over 101 messages in write queue");
    EXPECT_EQ(late({}), rest);
    EXPECT_EQ(late({.tid_result = -ENXIO}), rest); // bound to no thread yet
    EXPECT_EQ(late({.tid_result = -ECHILD}),
              fault("sd_bus_get_tid returned an error, irv=-10") + rest);
    const Told here;
    std::thread([&] { EXPECT_EQ(late(here), fault("thread ids are not equal") + rest); }).join();
}

} // namespace
