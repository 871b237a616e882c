// How loops end early: stopped, or with their context freed, from inside of every kind of callback
// and from signal handlers; and what a host's own poll loop waits on.
//
// GANTRY_TEST_ROUNDS in the environment is how often the last test goes round, in place of 40.
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "support/client.hpp"
#include "support/private_bus.hpp"

namespace
{

using support::Client;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Sample = GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest;

constexpr const char* interface = Sample::interface;
constexpr const char* properties = "org.freedesktop.DBus.Properties";

GANTRY_cpp_context* resolve()
{
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_management(nullptr, &context);
    return context;
}

// What calls back in a loop.
enum Kind : unsigned
{
    getter,
    setter,
    method,
    method_with_own_reply,
    signal_arrival,
    event_source,
    kinds,
};

// A context of the calling thread's, with all that may call back.
class Service
{
  public:
    explicit Service(Client& c) : client(c)
    {
        GANTRY_context_new(&context);
        if (context == nullptr)
        {
            throw std::runtime_error("no context");
        }
        name = context->bus.get_unique_name();
        GANTRY_context_set_service(context, "");
        GANTRY_context_set_user_private(context, this);
        object = new Object(*this);
        context->tracker.push_back({object, [](void* o) { delete static_cast<Object*>(o); }});
        static constexpr auto table = []
        {
            GANTRY_table__com_orvane_velmar_sample_gantrytest callbacks{};
            callbacks.TupleOne =
                callbacks.TupleOneD = [](GANTRY_instance* instance, unsigned short* /*out*/)
            {
                void* service = nullptr;
                GANTRY_instance_get_user_private(instance, &service);
                on_event(nullptr, service);
            };
            return callbacks;
        }();
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, "/table", this);
        GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(
            context, [](GANTRY_cpp_context* of, char*) { on_event(nullptr, of->user_private); });
    }

    ~Service()
    {
        GANTRY_context_free(&context);
    }

    Service(const Service&) = delete;
    Service(Service&&) = delete;
    Service& operator=(const Service&) = delete;
    Service& operator=(Service&&) = delete;

    // Has the next loop call back; the setter's announcement then calls the getter.
    void provoke(Kind kind)
    {
        switch (kind)
        {
        case getter:
            replies.push_back(
                client.start({name, "/class"}, properties, "Get", "ss", interface, "PropByte"));
            break;
        case setter:
            replies.push_back(client.start({name, "/class"}, properties, "Set", "ssv", interface,
                                           "PropByte", "y", calls % 250 + 1));
            break;
        case method:
            replies.push_back(client.start({name, "/table"}, interface, "TupleOne"));
            break;
        case method_with_own_reply:
            replies.push_back(client.start({name, "/table"}, interface, "TupleOneD"));
            break;
        case signal_arrival:
            client.emit(name.c_str(), "/", interface, "faultAdded", "s", "fault");
            break;
        default:
            sd_event_add_defer(context->event.get(), nullptr, on_event, this);
        }
        sd_bus_flush(client.bus());
    }

    // Until it has called back. One pass may find nothing to do yet; the others wait for it.
    void run_until_called(const std::function<void()>& loop)
    {
        for (const int before = calls; calls == before;)
        {
            loop();
        }
    }

    // And the client has its replies, though the loop ends in the callback.
    void serve(Kind kind, void (*loop)(GANTRY_cpp_context*))
    {
        provoke(kind);
        run_until_called([&] { loop(context); });
        for (auto& pending : std::exchange(replies, {}))
        {
            const auto reply = client.wait(std::move(pending));
            EXPECT_TRUE(reply.ok()) << reply;
        }
    }

    void serve_and_stop(Kind kind, void (*loop)(GANTRY_cpp_context*))
    {
        on_call = [this] { GANTRY_context_stop(context); };
        serve(kind, loop);
    }

    static int on_event(sd_event_source* /*source*/, void* service)
    {
        static_cast<Service*>(service)->call();
        return 0;
    }

    struct Object : Sample
    {
        explicit Object(Service& s) : Sample(s.context->bus, "/class"), service(s)
        {
        }

        ~Object() override
        {
            ++service.destructions;
        }

        using Sample::propByte;

        unsigned char propByte() const override
        {
            service.call();
            return Sample::propByte();
        }

        unsigned char propByte(unsigned char value) override
        {
            service.call();
            return Sample::propByte(value, false);
        }

        Service& service;
    };

    Client& client;
    GANTRY_cpp_context* context = nullptr;
    Object* object = nullptr;
    std::string name;
    std::vector<Client::Pending> replies;
    std::function<void()> on_call; // in the next callback
    int calls = 0;
    int destructions = 0;

  private:
    void call()
    {
        ++calls;
        if (const auto doing = std::exchange(on_call, nullptr))
        {
            doing();
        }
    }
};

struct Loop
{
    std::string name;
    void (*run)(GANTRY_cpp_context*);
    std::string farewell;
};

void PrintTo(const Loop& loop, std::ostream* out)
{
    *out << loop.name;
}

const Loop loops[] = {
    {"GANTRY_dbus_loop", GANTRY_dbus_loop, "9 gantrycommon.GANTRY_dbus_loop: leave\n"},
    {"GANTRY_dbus_loop_one_pass", GANTRY_dbus_loop_one_pass, ""},
    {"GANTRY_dbus_sdloop", GANTRY_dbus_sdloop,
     "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=0\\n\n"},
};

class Stop : public testing::Test
{
  protected:
    Stop()
    {
        logged();
    }

    ~Stop() override
    {
        GANTRY_use_default = true;
    }

    Client client;
};

class StopOf : public Stop, public testing::WithParamInterface<Loop>
{
  protected:
    void (*const loop)(GANTRY_cpp_context*) = GetParam().run;
    const std::string farewell = GetParam().farewell;
};
INSTANTIATE_TEST_SUITE_P(Loops, StopOf, testing::ValuesIn(loops),
                         [](const auto& loop) { return loop.param.name; });

TEST_P(StopOf, EndsItAfterTheCallbackAtHandAndItIsEnteredAgain)
{
    Service service(client);
    for (unsigned kind = 0; kind < kinds; ++kind)
    {
        logged();
        service.serve_and_stop(Kind{kind}, loop);
        EXPECT_THAT(logged(), AllOf(EndsWith(farewell), Not(HasSubstr("EXCEPTION"))));
    }

    // What else is ready stays for later, and a flood can't keep a loop.
    for (int call = 0; call < 20; ++call)
    {
        service.provoke(method);
    }
    client.name_has_owner(service.name.c_str()); // behind it all
    for (int call = 0; call < 20; ++call)
    {
        const int before = service.calls;
        service.on_call = [] { GANTRY_context_stop(nullptr); };
        service.run_until_called([&] { loop(service.context); });
        EXPECT_EQ(service.calls, before + 1);
    }
}

TEST_P(StopOf, BeforeItsEntryEndsItAtOnceAndThatOnlyOnce)
{
    GANTRY_context_stop(nullptr);
    EXPECT_EQ(logged(), ""); // and nothing was made
    Service service(client);
    service.provoke(event_source);
    GANTRY_context_stop(service.context);
    GANTRY_context_stop(nullptr);
    loop(service.context);
    EXPECT_THAT(logged(), EndsWith(farewell));
    EXPECT_EQ(service.calls, 0);
    service.on_call = [] { GANTRY_context_stop(nullptr); };
    loop(nullptr);
    EXPECT_EQ(service.calls, 1);

    // A failure that comes with it has ended the loop as well.
    service.provoke(getter);
    service.on_call = []
    {
        GANTRY_context_stop(nullptr);
        throw std::runtime_error("no such luck");
    };
    service.run_until_called([&] { loop(service.context); });
    EXPECT_THAT(logged(), EndsWith("no such luck\\n\n"));
    service.replies.clear();
    service.serve_and_stop(getter, loop);
}

TEST_P(StopOf, IsTheOutermostLoops)
{
    Service service(client);
    service.on_call = [&]
    {
        GANTRY_dbus_loop_one_pass(service.context); // fails: the event loop is at work
        EXPECT_THAT(logged(), HasSubstr("sd_event_run: Device or resource busy"));
        GANTRY_context_stop(service.context);
        GANTRY_dbus_loop(service.context);
        EXPECT_THAT(logged(), EndsWith(loops[0].farewell));
    };
    service.serve(getter, loop);

    service.on_call = [&]
    {
        auto* const freed = service.context;
        GANTRY_context_free(&service.context);
        GANTRY_dbus_sdloop(freed);
        EXPECT_THAT(logged(), EndsWith(loops[2].farewell));
        EXPECT_EQ(service.destructions, 0);
    };
    service.serve(setter, loop);
    EXPECT_EQ(service.destructions, 1);
}

TEST_P(StopOf, ComesWithItsContextFreedInACallback)
{
    for (unsigned round = 0; round < 2U * kinds; ++round)
    {
        GANTRY_use_default = round < kinds;
        Service service(client);
        service.on_call = [&]
        {
            auto* same = service.context;
            GANTRY_context_free(&service.context);
            EXPECT_EQ(service.context, nullptr);
            GANTRY_context_free(&same); // comes to the same
            logged();
            // There is none now, and no other is made.
            EXPECT_EQ(resolve(), nullptr);
            GANTRY_context_new(&same);
            EXPECT_EQ(same, nullptr);
            EXPECT_EQ(logged(),
                      "2 gantrycontext.GANTRY_context_management: unable to allocate context\n"
                      "9 gantrycontext.GANTRY_cpp_context_new: enter\n"
                      "2 gantrycontext.GANTRY_cpp_context_new: unable to allocate context\n");
            EXPECT_EQ(service.destructions, 0);
        };
        service.serve(Kind{round % kinds}, loop);
        EXPECT_THAT(logged(), HasSubstr(farewell));
        EXPECT_EQ(service.destructions, 1);
        service.context = resolve(); // a new one
        ASSERT_NE(service.context, nullptr);
        EXPECT_TRUE(service.context->tracker.empty());
    }
}

TEST_F(Stop, IsNotThereForAContextFreedUnderAHostsOwnEventLoop)
{
    sd_event* event = nullptr;
    ASSERT_GE(sd_event_default(&event), 0);
    const auto run = [event] { sd_event_run(event, 1'000); };
    for (const Kind kind : {setter, method, signal_arrival})
    {
        for (const bool runs_again : {true, false})
        {
            Service service(client);
            service.on_call = [&]
            {
                auto* const freed = service.context;
                GANTRY_context_free(&service.context);
                GANTRY_dbus_loop_one_pass(freed); // not the one to destroy it
                EXPECT_EQ(resolve(), nullptr);
            };
            service.provoke(kind);
            service.run_until_called(run);
            EXPECT_EQ(service.destructions, 0);
            if (runs_again)
            {
                run();
            }
            else
            {
                service.context = resolve(); // the thread's next use
            }
            EXPECT_EQ(service.destructions, 1);
        }
    }

    // A source of the host's own has nothing of the context's below it.
    Service immediate(client);
    immediate.on_call = [&]
    {
        GANTRY_context_free(&immediate.context);
        EXPECT_EQ(immediate.destructions, 1);
    };
    immediate.provoke(event_source);
    immediate.run_until_called(run);

    // A setter that the host calls has, though no loop runs: it announces by way of the getter.
    Service service(client);
    service.on_call = [&] { GANTRY_context_free(&service.context); };
    EXPECT_EQ(service.object->Sample::propByte(7, false), 7);
    EXPECT_EQ(service.destructions, 0);
    run();
    EXPECT_EQ(service.destructions, 1);
    sd_event_unref(event);
}

void on_signal(int /*number*/)
{
    GANTRY_context_stop(nullptr);
}

// Interrupts the calling thread until it has left the loop: a signal just before the loop falls
// asleep is for the next wake-up.
void run_interrupted(void (*loop)(GANTRY_cpp_context*), GANTRY_cpp_context* context,
                     std::chrono::microseconds delay)
{
    std::atomic<bool> ended = false;
    std::thread interrupter(
        [&ended, delay, target = pthread_self()]
        {
            std::this_thread::sleep_for(delay);
            do
            {
                pthread_kill(target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            } while (!ended);
        });
    loop(context);
    ended = true;
    interrupter.join();
    GANTRY_dbus_loop_one_pass(context); // takes a stop that came too late
}

TEST_F(Stop, ComesFromASignalHandler)
{
    std::signal(SIGUSR1, on_signal); // which restarts what can be restarted
    Service service(client);
    for (const Loop& loop : {loops[0], loops[2]})
    {
        run_interrupted(loop.run, service.context, std::chrono::milliseconds(5));
        EXPECT_THAT(logged(), AllOf(HasSubstr(loop.farewell), Not(HasSubstr("EXCEPTION"))));
        service.on_call = [] { std::raise(SIGUSR1); };
        service.serve(getter, loop.run);
        std::raise(SIGUSR1); // before the loop
        loop.run(service.context);
    }
    std::signal(SIGUSR1, SIG_DFL);
}

TEST_F(Stop, ComesFromASignalSourceWithoutAGap)
{
    Service service(client);
    sigset_t blocked;
    sigset_t previous;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    const sd_event_signal_handler_t stop = [](sd_event_source*, const signalfd_siginfo*, void*)
    {
        GANTRY_context_stop(nullptr);
        return 0;
    };
    sd_event_add_signal(service.context->event.get(), nullptr, SIGUSR1, stop, nullptr);
    std::raise(SIGUSR1); // once, before the loop
    GANTRY_dbus_sdloop(service.context);
    EXPECT_THAT(logged(), EndsWith(loops[2].farewell));
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

// A getter that ends its thread. sd-bus and sd-event lose what their frames held, so this is a
// process of its own, and one that becomes another program in the end: no leak checker looks at it.
TEST(StopDeathTest, GoesWithTheEndOfTheThread)
{
    const auto end_a_thread = [](const Loop& loop, bool frees)
    {
        GANTRY_use_default = false; // a closed connection tells the client
        Client client;
        Service* service = nullptr;
        std::promise<void> made;
        std::thread thread(
            [&]
            {
                service = new Service(client); // outlives the thread
                service->on_call = [&]
                {
                    auto* context = service->context;
                    frees ? GANTRY_context_free(&context) : GANTRY_context_stop(context);
                    pthread_exit(nullptr);
                };
                made.set_value();
                service->run_until_called([&] { loop.run(service->context); });
            });
        made.get_future().wait();
        client.get({service->name, "/class"}, interface, "PropByte");
        thread.join();
        execlp(service->destructions == 1 ? "true" : "false", "", nullptr);
    };
    for (const Loop& loop : loops)
    {
        EXPECT_EXIT(end_a_thread(loop, true), testing::ExitedWithCode(EXIT_SUCCESS), "");
        EXPECT_EXIT(end_a_thread(loop, false), testing::ExitedWithCode(EXIT_SUCCESS), "");
    }
}

bool polls_readable(int fd, std::chrono::milliseconds timeout = {})
{
    pollfd polled{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&polled, 1, static_cast<int>(timeout.count())) == 1;
}

class Descriptor : public Stop
{
};

TEST_F(Descriptor, PollsReadableForEachPassThatHasSomethingToDo)
{
    constexpr std::chrono::milliseconds quiet{20};
    Service service(client);
    int fd = -1;
    GANTRY_context_get_fd(service.context, &fd);
    const auto pass_at_wake_up = [&]
    {
        EXPECT_TRUE(polls_readable(fd, support::deadline));
        GANTRY_dbus_loop_one_pass(service.context);
    };
    do
    {
        GANTRY_dbus_loop_one_pass(service.context);
    } while (polls_readable(fd, quiet));

    for (int call = 1; call <= 100; ++call)
    {
        EXPECT_FALSE(polls_readable(fd));
        service.provoke(method);
        pass_at_wake_up();
        EXPECT_EQ(service.calls, call);
    }

    // A timer shows once a pass has seen it.
    sd_event_add_time_relative(
        service.context->event.get(), nullptr, CLOCK_MONOTONIC, 20'000, 1,
        [](sd_event_source*, std::uint64_t, void* of) { return Service::on_event(nullptr, of); },
        &service);
    GANTRY_dbus_loop_one_pass(service.context);
    service.run_until_called(pass_at_wake_up);

    // So does the room for what a daemon that stood still didn't take.
    const auto queued = [&]
    {
        std::uint64_t count = 0;
        sd_bus_get_n_queued_write(GANTRY_get_sd_bus(service.context->bus), &count);
        return count;
    };
    kill(support::bus().pid(), SIGSTOP);
    const std::string large(100'000, 'x');
    while (queued() < 20)
    {
        GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded(nullptr, large.c_str());
    }
    GANTRY_dbus_loop_one_pass(service.context);
    EXPECT_GE(queued(), 20U);
    EXPECT_FALSE(polls_readable(fd, quiet));
    kill(support::bus().pid(), SIGCONT);
    while (queued() > 0)
    {
        pass_at_wake_up();
    }
}

TEST_F(Descriptor, IsNotThereWithoutAContext)
{
    support::bus().kill();
    int fd = 0;
    GANTRY_context_get_fd(nullptr, &fd);
    EXPECT_EQ(fd, -1);
    EXPECT_THAT(logged(), EndsWith("1 gantrycommon.GANTRY_context_get_fd: vctx is NULL\n"));
    support::bus().restart();
}

// Every loop, kind and end in turn, on the calling thread.
void go_round(int rounds)
{
    constexpr auto loop_of = [](int round) { return loops[round % 3].run; };
    constexpr auto kind_of = [](int round)
    { return Kind{static_cast<unsigned>(round) / 3 % kinds}; };
    Client client;
    {
        Service service(client);
        for (int round = 0; round < rounds; ++round)
        {
            service.serve_and_stop(kind_of(round), loop_of(round));
            support::captured_log::clear();
        }
        for (int round = 0; round < rounds / 10; ++round)
        {
            run_interrupted(loop_of(round % 2 * 2), service.context,
                            std::chrono::microseconds(round % 50));
        }
    }
    for (int round = 0; round < rounds; ++round)
    {
        Service service(client);
        service.on_call = [&] { GANTRY_context_free(&service.context); };
        service.serve(kind_of(round), loop_of(round));
        EXPECT_EQ(service.destructions, 1);
        support::captured_log::clear();
    }
}

TEST(Rounds, OfStopsFreesAndSignalsOnOneThreadAndOnEight)
{
    const char* const text = std::getenv("GANTRY_TEST_ROUNDS");
    const int rounds = text != nullptr ? std::atoi(text) : 40;
    GANTRY_use_default = false;
    std::signal(SIGUSR1, on_signal);
    go_round(rounds);
    std::array<std::thread, 8> threads;
    for (auto& thread : threads)
    {
        thread = std::thread(go_round, rounds / 4);
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    std::signal(SIGUSR1, SIG_DFL);
    GANTRY_use_default = true;
}

} // namespace
