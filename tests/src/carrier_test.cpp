// The carrier by itself: who takes an exception that a callback of libsystemd lets go, and what
// becomes of those that nobody takes.
#include "carrier.hpp"

#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <pthread.h>
#include <systemd/sd-bus.h>

#include "src/logged.hpp"
#include "support/client.hpp"

namespace
{

using gantry::as_error;
using gantry::as_handled;
using gantry::at_edge;
using gantry::Carrier;
using testing::ElementsAre;
using testing::ThrowsMessage;

// A callback as libsystemd sees it, which says what it throws, if it does.
int callback(const char* throws = nullptr)
{
    return at_edge(
        [throws]
        {
            if (throws != nullptr)
            {
                throw std::runtime_error(throws);
            }
            return 5;
        },
        as_error);
}

template <class Exception>
int errno_of(const Exception& exception)
{
    return at_edge([&]() -> int { throw exception; }, as_error);
}

class CarrierTest : public testing::Test
{
  protected:
    CarrierTest()
    {
        logged();
    }
};

TEST_F(CarrierTest, ThrowsAgainWhatACallbackLetGo)
{
    EXPECT_EQ(Carrier::enter([] { return callback(); }), 5);
    bool returned = false;
    const auto entered = [&]
    {
        EXPECT_EQ(callback("first"), -EIO);
        returned = true; // as C does: the rest of it runs
        return 1;
    };
    EXPECT_THAT([&] { Carrier::enter(entered); }, ThrowsMessage<std::runtime_error>("first"));
    EXPECT_TRUE(returned);
    EXPECT_THROW(Carrier::enter([] { at_edge([]() -> int { throw 42; }, as_handled); }), int);
    EXPECT_EQ(Carrier::enter([] { return callback(); }), 5);
    EXPECT_EQ(logged(), "");
}

TEST_F(CarrierTest, TellsLibsystemdAnErrno)
{
    EXPECT_NO_THROW(Carrier::enter([] {}));
    EXPECT_EQ(errno_of(std::bad_alloc()), -ENOMEM);
    EXPECT_EQ(errno_of(std::bad_array_new_length()), -ENOMEM);
    EXPECT_EQ(errno_of(std::logic_error("")), -EIO);
    EXPECT_EQ(errno_of(42), -EIO);
}

TEST_F(CarrierTest, IsTheInnermost)
{
    const auto outer = []
    {
        // No other thread's.
        std::thread([] { callback("of another thread"); }).join();
        EXPECT_THAT([] { Carrier::enter([] { return callback("inner"); }); },
                    ThrowsMessage<std::runtime_error>("inner"));
        // Through a callback that doesn't handle it, on to the next carrier.
        at_edge([] { return Carrier::enter([] { return callback("passed on"); }); }, as_handled);
    };
    EXPECT_THAT([&] { Carrier::enter(outer); }, ThrowsMessage<std::runtime_error>("passed on"));
    EXPECT_EQ(logged(), "2 EXCEPTION carrier.take: of another thread\\n\n");
}

TEST_F(CarrierTest, LogsAndDropsWhatHasNowhereToGo)
{
    EXPECT_EQ(callback("without a carrier"), -EIO);
    EXPECT_EQ(errno_of(42), -EIO);
    EXPECT_EQ(logged(), "2 EXCEPTION carrier.take: without a carrier\\n\n"
                        "2 EXCEPTION carrier.take: exception of unknown type\\n\n");

    const auto twice = []
    {
        callback("first");
        callback("second");
    };
    EXPECT_THAT([&] { Carrier::enter(twice); }, ThrowsMessage<std::runtime_error>("first"));
    EXPECT_EQ(logged(), "2 EXCEPTION carrier.take: second\\n\n");

    const auto fails_itself = []
    {
        callback("carried");
        throw std::runtime_error("own");
    };
    EXPECT_THAT([&] { Carrier::enter(fails_itself); }, ThrowsMessage<std::runtime_error>("own"));
    EXPECT_EQ(logged(), "2 EXCEPTION carrier.~Carrier: carried\\n\n");
    EXPECT_EQ(Carrier::enter([] { return callback(); }), 5);
}

TEST_F(CarrierTest, LetsAThreadEnd)
{
    static int ended = 0;
    const auto end = [](void*) -> void*
    {
        Carrier::enter([] { at_edge([]() -> int { pthread_exit(&ended); }, as_handled); });
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, end, nullptr), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &ended);
    EXPECT_EQ(logged(), "");
}

// What sd-bus makes of an edge's answer: a method gets no reply, a property an error.
TEST_F(CarrierTest, AnswersForMethodsAndProperties)
{
    static constexpr sd_bus_property_get_t get =
        [](sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)
    { return callback("property"); };
    static constexpr sd_bus_message_handler_t method = [](sd_bus_message*, void*, sd_bus_error*)
    { return at_edge([]() -> int { throw std::runtime_error("method"); }, as_handled); };
    static const sd_bus_vtable vtable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Call", "", "", method, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_PROPERTY("Value", "s", get, 0, 0),
        SD_BUS_VTABLE_END,
    };
    constexpr const char* interface = "com.example.Edge";

    support::Client service; // for its connection
    ASSERT_GE(sd_bus_add_object_vtable(service.bus(), nullptr, "/edge", interface, vtable, nullptr),
              0);
    std::vector<std::string> thrown;
    support::Client client(
        [&]
        {
            try
            {
                while (Carrier::enter([&] { return sd_bus_process(service.bus(), nullptr); }) > 0)
                {
                }
            }
            catch (const std::runtime_error& error)
            {
                thrown.emplace_back(error.what());
            }
        });
    const support::Object edge{service.unique_name(), "/edge"};

    const auto pending = client.start(edge, interface, "Call");
    EXPECT_EQ(client.get(edge, interface, "Value").error_name,
              "org.freedesktop.DBus.Error.IOError");
    EXPECT_FALSE(pending.done());
    EXPECT_THAT(thrown, ElementsAre("method", "property"));
}

} // namespace
