// An event loop as an object: whose references it holds, what running it gives, how it fails.
#include <gtest/gtest.h>
#include <sdeventplus/event.hpp>
#include <sdeventplus/exception.hpp>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace
{

using sdeventplus::Event;

// A loop that is only pretended: what is asked of it, and what each call comes to.
struct Pretended : sdeventplus::internal::SdEvent
{
    mutable int references = 0;
    mutable std::vector<uint64_t> timeouts;
    int result = 1;
    sd_event* loop = reinterpret_cast<sd_event*>(const_cast<int*>(&result));

    int sd_event_default(sd_event** event) const override
    {
        references += result < 0 ? 0 : 1;
        *event = result < 0 ? nullptr : loop;
        return result;
    }
    sd_event* sd_event_ref(sd_event* event) const override
    {
        ++references;
        return event;
    }
    sd_event* sd_event_unref(sd_event*) const override
    {
        --references;
        return nullptr;
    }
    int sd_event_run(sd_event*, uint64_t timeout) const override
    {
        timeouts.push_back(timeout);
        return result;
    }
    int sd_event_loop(sd_event*) const override
    {
        return result;
    }
};

TEST(Event, each_holder_has_a_reference_and_drops_it_once)
{
    Pretended pretended;
    {
        auto event = Event::get_default(&pretended);
        const Event copy = event;
        Event assigned(pretended.loop, &pretended);
        EXPECT_EQ(pretended.references, 3);
        assigned = copy;
        EXPECT_EQ(pretended.references, 3);
        Event moved = std::move(assigned);
        EXPECT_THROW(assigned.get(), std::bad_optional_access);
        assigned = std::move(moved);
        EXPECT_EQ(assigned.get(), pretended.loop);
        EXPECT_EQ(pretended.references, 3);
    }
    EXPECT_EQ(pretended.references, 0);
}

TEST(Event, that_fails_names_the_call_and_one_that_runs_waits_for_microseconds)
{
    Pretended pretended;
    const Event event(pretended.loop, &pretended);
    EXPECT_EQ(event.run(std::chrono::milliseconds(2)), 1);
    EXPECT_EQ(event.run(std::nullopt), 1);
    EXPECT_EQ(pretended.timeouts, (std::vector<uint64_t>{2000, UINT64_MAX}));

    pretended.result = -ESTALE;
    const auto expect_failure = [](const std::string& call, const auto& failing)
    {
        try
        {
            failing();
            ADD_FAILURE() << call;
        }
        catch (const std::system_error& e)
        {
            EXPECT_EQ(e.code(), std::error_code(ESTALE, std::generic_category()));
            EXPECT_TRUE(std::string(e.what()).starts_with(call + ": ")) << e.what();
        }
    };
    expect_failure("sd_event_default", [&] { Event::get_default(&pretended); });
    expect_failure("sd_event_run", [&] { event.run(std::nullopt); });
    expect_failure("sd_event_loop", [&] { event.loop(); });
}

TEST(Event, of_a_thread_runs_what_is_ready)
{
    const auto event = Event::get_default();
    EXPECT_EQ(Event::get_default().get(), event.get());
    EXPECT_EQ(event.run(std::chrono::microseconds(1)), 0);
    const auto exit = [](sd_event_source* source, void*)
    { return sd_event_exit(sd_event_source_get_event(source), 7); };
    ASSERT_GE(sd_event_add_defer(event.get(), nullptr, exit, nullptr), 0);
    EXPECT_EQ(event.loop(), 7);
}

} // namespace
