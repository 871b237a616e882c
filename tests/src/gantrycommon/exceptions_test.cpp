// Exceptions of bus callbacks: who takes one, what becomes of those that nobody takes, where they
// come out under each of the loops, and that the next loop serves as if nothing had been.
#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <pthread.h>
#include <systemd/sd-event.h>

#include <com/orvane/velmar/system/BLT/server.hpp>

#include "carrier.hpp"
#include "src/served.hpp"

namespace
{

using gantry::as_error;
using gantry::as_handled;
using gantry::at_edge;
using gantry::Carrier;
using support::Reply;
using testing::ThrowsMessage;

// A callback as libsystemd sees it, which throws this when it isn't null.
int callback(const char* throws = nullptr)
{
    return at_edge([throws] { return throws == nullptr ? 5 : throw std::runtime_error(throws); },
                   as_error);
}

// What libsystemd is told of an exception that is being handled.
int told_errno(const std::function<int()>& call)
{
    return at_edge(call, as_error);
}

TEST(CarrierTest, IsTheInnermostAndThrowsAgainWhatACallbackLetGo)
{
    logged();
    bool returned = false;
    const auto outer = [&]
    {
        // No other thread's.
        std::thread([] { callback("of another thread"); }).join();
        EXPECT_THAT([] { Carrier::enter([] { return callback("inner"); }); },
                    ThrowsMessage<std::runtime_error>("inner"));
        // Through a callback that doesn't handle it, on to the next carrier.
        at_edge([] { return Carrier::enter([] { return callback("passed on"); }); }, as_handled);
        returned = true; // as C does: the rest of it runs
    };
    EXPECT_THAT([&] { Carrier::enter(outer); }, ThrowsMessage<std::runtime_error>("passed on"));
    EXPECT_TRUE(returned);
    EXPECT_EQ(Carrier::enter([] { return callback(); }), 5);
    EXPECT_EQ(logged(), "2 EXCEPTION carrier.take: of another thread\\n\n");
}

TEST(CarrierTest, TellsLibsystemdAnErrnoAndLogsWhatHasNowhereToGo)
{
    logged();
    EXPECT_EQ(told_errno([]() -> int { throw std::bad_array_new_length(); }), -ENOMEM);
    EXPECT_EQ(told_errno([]() -> int { throw std::logic_error("no carrier"); }), -EIO);
    EXPECT_EQ(told_errno([]() -> int { throw 42; }), -EIO);
    EXPECT_EQ(logged(), "2 EXCEPTION carrier.take: std::bad_array_new_length\\n\n"
                        "2 EXCEPTION carrier.take: no carrier\\n\n"
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
}

TEST(CarrierTest, LetsAThreadEnd)
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
}

constexpr const char* properties = "org.freedesktop.DBus.Properties";

// Two of its getters are the test's.
class Blt : public sdbusplus::server::com::orvane::velmar::system::BLT
{
  public:
    using BLT::BLT;
    using BLT::key;
    using BLT::productName;

    std::string key() const override
    {
        on_key();
        return BLT::key();
    }

    std::string productName() const override
    {
        on_product_name();
        return BLT::productName();
    }

    std::function<void()> on_key = [] {};
    std::function<void()> on_product_name = [] {};
};

[[noreturn]] void fail()
{
    throw std::runtime_error("no such luck");
}

struct Loop
{
    std::string name;
    void (*run)(GANTRY_cpp_context*);
    // Has the loop end once it is through with what it serves.
    void (*stop)(GANTRY_cpp_context*);
    std::string farewell;
};

const Loop loops[] = {
    {"GANTRY_dbus_loop", GANTRY_dbus_loop,
     [](GANTRY_cpp_context* context) { context->running = false; }, ""},
    {"GANTRY_dbus_loop_one_pass", GANTRY_dbus_loop_one_pass, [](GANTRY_cpp_context*) {}, ""},
    {"GANTRY_dbus_sdloop", GANTRY_dbus_sdloop,
     [](GANTRY_cpp_context* context) { sd_event_exit(context->event.get(), 0); },
     "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=0\\n\n"},
};
const Loop& one_pass = loops[1];

std::string ended(const Loop& loop, const std::string& what)
{
    return "2 EXCEPTION gantrycommon." + loop.name + ": " + what + "\\n\n";
}

class Exceptions : public testing::Test
{
  protected:
    Exceptions()
    {
        GANTRY_context_new(&context);
        blt = std::make_unique<Blt>(context->bus, "/blt");
        manager = std::make_unique<sdbusplus::server::manager::manager>(context->bus, "/");
        service = context->bus.get_unique_name();
    }

    ~Exceptions() override
    {
        blt.reset();
        manager.reset();
        GANTRY_context_free(&context);
    }

    // Has the getter of Key do this, after it has let the client stop serving.
    void on_key(std::function<void()> call)
    {
        blt->on_key = [this, call = std::move(call)]
        {
            served = true;
            call();
        };
    }

    // One call, served by `run`, which has to come back by itself.
    template <typename... Args>
    Reply call(const std::function<void()>& run, const char* path, const char* interface,
               const char* member, const char* types, Args... args)
    {
        served = false;
        serve = run;
        logged();
        return client.call({service, path}, interface, member, types, args...);
    }

    Reply get(const std::function<void()>& run, const char* property = "Key")
    {
        return call(run, "/blt", properties, "Get", "ss", Blt::interface, property);
    }

    // Nothing of what was is in the way of a loop that serves and ends well.
    void expect_served(const Loop& loop)
    {
        on_key([&] { loop.stop(context); });
        EXPECT_TRUE(get([&] { loop.run(context); }).ok());
        EXPECT_EQ(logged(2), loop.farewell);
    }

    GANTRY_cpp_context* context = nullptr;
    std::unique_ptr<Blt> blt;
    std::unique_ptr<sdbusplus::server::manager::manager> manager;
    std::string service;
    bool served = false;
    std::function<void()> serve;
    const std::function<void()> run_one_pass = [this] { GANTRY_dbus_loop_one_pass(context); };
    support::Client client{[this]
                           {
                               if (!served && serve)
                               {
                                   serve();
                               }
                           }};
};

TEST_F(Exceptions, EndEachLoopTenTimesAndTheEleventhServes)
{
    for (const Loop& loop : loops)
    {
        SCOPED_TRACE(loop.name);
        context->running = true;
        for (int time = 0; time < 10; ++time)
        {
            on_key(fail);
            EXPECT_EQ(get([&] { loop.run(context); }).error_name,
                      "org.freedesktop.DBus.Error.IOError");
            EXPECT_EQ(logged(2), ended(loop, "no such luck"));
        }
        // What is no std::exception goes through it to the host.
        on_key([] { throw 42; });
        const Reply reply = get([&] { EXPECT_THROW(loop.run(context), int); });
        EXPECT_EQ(reply.error_name, "org.freedesktop.DBus.Error.IOError");
        EXPECT_EQ(logged(2), "");
        expect_served(loop);
    }
}

TEST_F(Exceptions, OfEveryCallThatGetsEndTheLoopOnce)
{
    on_key(fail);
    EXPECT_FALSE(call(run_one_pass, "/blt", properties, "GetAll", "s", Blt::interface).ok());
    EXPECT_EQ(logged(2), ended(one_pass, "no such luck"));
    EXPECT_FALSE(
        call(run_one_pass, "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "")
            .ok());
    EXPECT_EQ(logged(2), ended(one_pass, "no such luck"));
    on_key([] { throw std::bad_alloc(); });
    EXPECT_EQ(get(run_one_pass).error_name, "org.freedesktop.DBus.Error.NoMemory");
    EXPECT_EQ(logged(2), ended(one_pass, "std::bad_alloc"));
    expect_served(one_pass);
}

TEST_F(Exceptions, OfAnAnnouncementComeOutOfTheSetter)
{
    blt->on_key = fail;
    logged();
    EXPECT_THROW(blt->key("first"), std::runtime_error);
    blt->on_key = [] { throw 42; };
    EXPECT_THROW(blt->key("second", false), int);
    EXPECT_EQ(blt->BLT::key(), "second");
    EXPECT_NO_THROW(blt->key("third", true)); // asks no getter
    EXPECT_EQ(blt->BLT::key(), "third");
    EXPECT_EQ(logged(2), "");

    // A setter inside of a callback: its announcement's exception is the callback's, once.
    on_key(fail);
    blt->on_product_name = [this] { blt->key("fourth"); };
    EXPECT_FALSE(get(run_one_pass, "ProductName").ok());
    EXPECT_EQ(logged(2), ended(one_pass, "no such luck"));

    // And when the callback handles it, the loop goes on.
    blt->on_product_name = [this] { EXPECT_THROW(blt->key("fifth"), std::runtime_error); };
    EXPECT_TRUE(get(run_one_pass, "ProductName").ok());
    EXPECT_EQ(logged(2), "");
    expect_served(one_pass);
}

TEST_F(Exceptions, UnderAHostsOwnEventLoopAreLoggedAndDropped)
{
    on_key(fail);
    const auto run = [this] { sd_event_run(context->event.get(), 1'000); };
    EXPECT_EQ(get(run).error_name, "org.freedesktop.DBus.Error.IOError");
    EXPECT_EQ(logged(2), "2 EXCEPTION carrier.take: no such luck\\n\n");
    expect_served(one_pass);
}

} // namespace
