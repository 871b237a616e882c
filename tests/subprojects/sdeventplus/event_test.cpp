// An event loop as an object: whose references it holds, what running it gives, how it fails.
#include <gmock/gmock.h>
#include <sdeventplus/event.hpp>
#include <sdeventplus/exception.hpp>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace
{

using sdeventplus::Event;
using testing::_;
using testing::DoAll;
using testing::Return;
using testing::SetArgPointee;

class SdEventMock : public sdeventplus::internal::SdEvent
{
  public:
    MOCK_METHOD(int, sd_event_default, (sd_event**), (const, override));
    MOCK_METHOD(sd_event*, sd_event_ref, (sd_event*), (const, override));
    MOCK_METHOD(sd_event*, sd_event_unref, (sd_event*), (const, override));
    MOCK_METHOD(int, sd_event_run, (sd_event*, uint64_t), (const, override));
    MOCK_METHOD(int, sd_event_loop, (sd_event*), (const, override));
};

class MockedEvent : public testing::Test
{
  protected:
    testing::StrictMock<SdEventMock> mock;
    sd_event* const loop = reinterpret_cast<sd_event*>(&mock);
};

TEST_F(MockedEvent, each_holder_has_a_reference_and_drops_it_once)
{
    EXPECT_CALL(mock, sd_event_default(_)).WillOnce(DoAll(SetArgPointee<0>(loop), Return(1)));
    EXPECT_CALL(mock, sd_event_ref(loop)).Times(3).WillRepeatedly(Return(loop));
    EXPECT_CALL(mock, sd_event_unref(loop)).Times(4);

    auto event = Event::get_default(&mock);
    const Event copy = event;
    Event assigned(loop, &mock);
    assigned = copy;
    Event moved = std::move(assigned);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.get(), loop);
    EXPECT_THROW(moved.get(), std::bad_optional_access);
}

TEST_F(MockedEvent, a_failure_names_the_call)
{
    EXPECT_CALL(mock, sd_event_unref(loop));
    EXPECT_CALL(mock, sd_event_default(_)).WillOnce(Return(-ENOMEM));
    EXPECT_CALL(mock, sd_event_run(loop, _)).WillOnce(Return(-ECHILD));
    EXPECT_CALL(mock, sd_event_loop(loop)).WillOnce(Return(-ESTALE));
    const Event event(loop, std::false_type{}, &mock);

    const auto expect_failure = [](int error, const std::string& call, const auto& failing)
    {
        try
        {
            failing();
            ADD_FAILURE() << call;
        }
        catch (const std::system_error& e)
        {
            EXPECT_EQ(e.code(), std::error_code(error, std::generic_category()));
            EXPECT_EQ(e.what(), call + ": " + std::generic_category().message(error));
        }
    };
    expect_failure(ENOMEM, "sd_event_default", [this] { Event::get_default(&mock); });
    expect_failure(ECHILD, "sd_event_run", [&] { event.run(std::nullopt); });
    expect_failure(ESTALE, "sd_event_loop", [&] { event.loop(); });
}

TEST_F(MockedEvent, a_timeout_counts_microseconds_and_none_waits_without_limit)
{
    EXPECT_CALL(mock, sd_event_unref(loop));
    EXPECT_CALL(mock, sd_event_run(loop, 1)).WillOnce(Return(0));
    EXPECT_CALL(mock, sd_event_run(loop, 2000)).WillOnce(Return(1));
    EXPECT_CALL(mock, sd_event_run(loop, UINT64_MAX)).WillOnce(Return(1));
    const Event event(loop, std::false_type{}, &mock);
    using Timeout = std::chrono::duration<unsigned long, std::ratio<1, 1000000>>;
    EXPECT_EQ(event.run(std::optional<Timeout>(1)), 0);
    EXPECT_EQ(event.run(std::chrono::milliseconds(2)), 1);
    EXPECT_EQ(event.run(std::nullopt), 1);
}

TEST(RealEvent, is_the_threads_own_and_runs_what_is_ready)
{
    const auto event = Event::get_default();
    EXPECT_EQ(Event::get_default().get(), event.get());
    EXPECT_EQ(event.run(std::chrono::microseconds(1)), 0);

    int ran = 0;
    const auto count_and_exit = [](sd_event_source* source, void* userdata)
    {
        ++*static_cast<int*>(userdata);
        return sd_event_exit(sd_event_source_get_event(source), 7);
    };
    ASSERT_GE(sd_event_add_defer(event.get(), nullptr, count_and_exit, &ran), 0);
    EXPECT_EQ(event.loop(), 7);
    EXPECT_EQ(ran, 1);
}

} // namespace
