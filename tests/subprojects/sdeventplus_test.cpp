// An event loop as an object, on the thread's real one.
#include <gtest/gtest.h>
#include <sdeventplus/event.hpp>

#include <utility>

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

TEST(Event, is_gone_with_its_last_holder_and_not_before)
{
    bool gone = false;
    {
        const Event event = Event::get_default();
        sd_event_source* source = nullptr;
        sd_event_add_exit(
            event.get(), &source, [](auto*, void*) { return 0; }, &gone);
        sd_event_source_set_destroy_callback(source,
                                             [](void* flag) { *static_cast<bool*>(flag) = true; });
        sd_event_source_set_floating(source, true);
        sd_event_source_unref(source);
        {
            Event lent(event.get());
            const Event copy = lent;
            lent = Event(std::move(lent));
        }
        EXPECT_FALSE(gone);
    }
    EXPECT_TRUE(gone);
}

} // namespace
