// An event loop as an object, on the thread's real one.
#include <gtest/gtest.h>
#include <sdeventplus/event.hpp>

namespace
{

using sdeventplus::Event;
using std::chrono::milliseconds;

TEST(Event, waits_as_long_as_it_is_told_to_and_without_a_limit_for_what_comes)
{
    const Event event = Event::get_default();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(event.run(milliseconds(20)), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(20));
    const auto exit = [](sd_event_source* source, uint64_t, void*)
    { return sd_event_exit(sd_event_source_get_event(source), 7); };
    sd_event_add_time_relative(event.get(), nullptr, CLOCK_MONOTONIC, 20'000, 1, exit, nullptr);
    EXPECT_EQ(event.run(std::nullopt), 1);
    EXPECT_EQ(event.loop(), 7);
    EXPECT_THROW(event.run(std::nullopt), std::system_error);
    EXPECT_THROW(event.loop(), std::system_error);
}

} // namespace
