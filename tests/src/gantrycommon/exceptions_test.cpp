// Exceptions of bus callbacks under each of the loops: where they come out, what the client and the
// log are told, and that the next loop serves as if nothing had been.
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <pthread.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/system/BLT/server.hpp>
#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "support/client.hpp"

namespace
{

using support::Client;
using support::Reply;

constexpr const char* path = "/com/orvane/velmar/system/BLT";
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

void stop_running(GANTRY_cpp_context* context)
{
    context->running = false;
}

void leave_to_itself(GANTRY_cpp_context* /*context*/)
{
}

void exit_event_loop(GANTRY_cpp_context* context)
{
    sd_event_exit(context->event.get(), 0);
}

struct Loop
{
    std::string name;
    void (*run)(GANTRY_cpp_context*);
    // Has the loop end once it is through with what it serves.
    void (*stop)(GANTRY_cpp_context*);
    std::string farewell;
};

const Loop loop_{"GANTRY_dbus_loop", GANTRY_dbus_loop, stop_running, ""};
const Loop one_pass{"GANTRY_dbus_loop_one_pass", GANTRY_dbus_loop_one_pass, leave_to_itself, ""};
const Loop sdloop{"GANTRY_dbus_sdloop", GANTRY_dbus_sdloop, exit_event_loop,
                  "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=0\\n\n"};

class Exceptions : public testing::Test
{
  protected:
    Exceptions()
    {
        GANTRY_context_new(&context);
        blt = std::make_unique<Blt>(context->bus, path);
        manager = std::make_unique<sdbusplus::server::manager::manager>(context->bus, "/");
        object = {context->bus.get_unique_name(), path};
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
    Reply call(const std::function<void()>& run, const char* interface, const char* member,
               const char* types, Args... args)
    {
        served = false;
        serve = run;
        logged();
        return client.call(object, interface, member, types, args...);
    }

    Reply get_key(const std::function<void()>& run, const char* property = "Key")
    {
        return call(run, properties, "Get", "ss", Blt::interface, property);
    }

    // Nothing of what was is in the way of a loop that serves and ends well.
    void expect_served(const Loop& loop)
    {
        on_key([&] { loop.stop(context); });
        EXPECT_TRUE(get_key([&] { loop.run(context); }).ok());
        EXPECT_EQ(logged(2), loop.farewell);
    }

    static std::string ended(const Loop& loop, const std::string& what)
    {
        return "2 EXCEPTION gantrycommon." + loop.name + ": " + what + "\\n\n";
    }

    GANTRY_cpp_context* context = nullptr;
    std::unique_ptr<Blt> blt;
    std::unique_ptr<sdbusplus::server::manager::manager> manager;
    support::Object object;
    bool served = false;
    std::function<void()> serve;
    Client client{[this]
                  {
                      if (!served && serve)
                      {
                          serve();
                      }
                  }};
};

class ExceptionsUnder : public Exceptions, public testing::WithParamInterface<const Loop*>
{
};

INSTANTIATE_TEST_SUITE_P(Loops, ExceptionsUnder, testing::Values(&loop_, &one_pass, &sdloop),
                         [](const auto& loop) { return loop.param->name; });

TEST_P(ExceptionsUnder, EndALoopTenTimesAndTheEleventhServes)
{
    const Loop& loop = *GetParam();
    for (int time = 0; time < 10; ++time)
    {
        on_key(fail);
        const Reply reply = get_key([&] { loop.run(context); });
        EXPECT_EQ(reply.error_name, "org.freedesktop.DBus.Error.IOError");
        EXPECT_EQ(logged(2), ended(loop, "no such luck"));
    }
    expect_served(loop);
}

TEST_P(ExceptionsUnder, OfAnotherTypeGoThroughTheLoopToTheHost)
{
    const Loop& loop = *GetParam();
    for (int time = 0; time < 2; ++time)
    {
        on_key([] { throw 42; });
        const Reply reply = get_key([&] { EXPECT_THROW(loop.run(context), int); });
        EXPECT_EQ(reply.error_name, "org.freedesktop.DBus.Error.IOError");
        EXPECT_EQ(logged(2), "");
    }
    expect_served(loop);
}

TEST_F(Exceptions, OfEveryCallThatGetsEndTheLoopOnce)
{
    const auto run = [this] { GANTRY_dbus_loop_one_pass(context); };
    on_key(fail);
    EXPECT_FALSE(call(run, properties, "GetAll", "s", Blt::interface).ok());
    EXPECT_EQ(logged(2), ended(one_pass, "no such luck"));

    const support::Object blt_object = std::exchange(object, {object.service, "/"});
    EXPECT_FALSE(call(run, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "").ok());
    EXPECT_EQ(logged(2), ended(one_pass, "no such luck"));
    object = blt_object;

    on_key([] { throw std::bad_alloc(); });
    EXPECT_EQ(get_key(run).error_name, "org.freedesktop.DBus.Error.NoMemory");
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
    const Reply reply = get_key([this] { GANTRY_dbus_loop_one_pass(context); }, "ProductName");
    EXPECT_FALSE(reply.ok());
    EXPECT_EQ(logged(2), ended(one_pass, "no such luck"));

    // And when the callback handles it, the loop goes on.
    blt->on_product_name = [this] { EXPECT_THROW(blt->key("fifth"), std::runtime_error); };
    EXPECT_TRUE(get_key([this] { GANTRY_dbus_loop_one_pass(context); }, "ProductName").ok());
    EXPECT_EQ(logged(2), "");
    expect_served(one_pass);
}

TEST_F(Exceptions, UnderAHostsOwnEventLoopAreLoggedAndDropped)
{
    const auto run = [this] { sd_event_run(context->event.get(), 1'000); };
    on_key(fail);
    EXPECT_EQ(get_key(run).error_name, "org.freedesktop.DBus.Error.IOError");
    EXPECT_EQ(logged(2), "2 EXCEPTION carrier.take: no such luck\\n\n");
    on_key([] { throw 42; });
    EXPECT_FALSE(get_key(run).ok());
    EXPECT_EQ(logged(2), "2 EXCEPTION carrier.take: exception of unknown type\\n\n");
    expect_served(one_pass);
}

// A thread that a getter ends, in a loop that serves it.
struct EndedThread
{
    std::promise<std::string> name;
    bool destroyed = false;
    std::unique_ptr<Blt> blt;
};

void* serve_until_ended(void* data)
{
    auto& thread = *static_cast<EndedThread*>(data);
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    thread.blt = std::make_unique<Blt>(context->bus, path);
    thread.blt->on_key = [] { pthread_exit(const_cast<char*>(path)); };
    context->tracker.push_back({&thread, [](void* ended)
                                {
                                    static_cast<EndedThread*>(ended)->destroyed = true;
                                    static_cast<EndedThread*>(ended)->blt.reset();
                                }});
    thread.name.set_value(context->bus.get_unique_name());
    GANTRY_dbus_loop(context);
    return nullptr;
}

// sd-bus and sd-event lose what their frames held, so this is a process of its own, and one that
// becomes another program in the end: no leak checker looks at it.
TEST(ExceptionsDeathTest, DontIncludeTheEndOfAThread)
{
    const auto end_a_thread = []
    {
        GANTRY_use_default = false; // a closed connection tells the client
        EndedThread thread;
        pthread_t id{};
        pthread_create(&id, nullptr, serve_until_ended, &thread);
        Client client;
        client.get({thread.name.get_future().get(), path}, Blt::interface, "Key");
        void* result = nullptr;
        pthread_join(id, &result);
        const bool well = result == path && thread.destroyed && logged(2).empty();
        execlp(well ? "true" : "false", "", nullptr);
    };
    EXPECT_EXIT(end_a_thread(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

} // namespace
