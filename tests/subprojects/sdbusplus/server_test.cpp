// The two callbacks in front of a server class: their order of steps, and what comes of a failure
// in each. And the connections that they are called on.
#include "calls.hpp"

#include <gtest/gtest.h>
#include <sdbusplus/bus.hpp>
#include <sdbusplus/bus/match.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/sdbuspp_support/server.hpp>
#include <sdbusplus/server/interface.hpp>
#include <sdbusplus/server/manager.hpp>
#include <sdbusplus/server/transaction.hpp>
#include <sdbusplus/vtable.hpp>
#include <support/private_bus.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <variant>

namespace
{

namespace bus = sdbusplus::bus;
namespace server = sdbusplus::server;
namespace transaction = sdbusplus::server::transaction;
namespace vtable = sdbusplus::vtable;
using sdbusplus::exception::SdBusError;
using sdbusplus::message::message;
using sdbusplus::sdbuspp::method_callback;
using sdbusplus::sdbuspp::property_callback;
using support::render;
using test::failure;
using test::Message;

constexpr auto get_busp = &bus::details::bus_friend::get_busp;

// Adds to the codec's calls those of a callback. What is sent stays here.
class ServerCalls : public test::Calls
{
  public:
    Message sent;
    int references = 0;

    sd_bus_message* sd_bus_message_ref(sd_bus_message* m) override
    {
        ++references;
        return SdBusImpl::sd_bus_message_ref(m);
    }

    sd_bus_message* sd_bus_message_unref(sd_bus_message* m) override
    {
        --references;
        return SdBusImpl::sd_bus_message_unref(m);
    }

    int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** m) override
    {
        const auto make = [&]
        {
            ++references;
            return SdBusImpl::sd_bus_message_new_method_return(call, m);
        };
        return step(make, "new_method_return");
    }

    int sd_bus_send(sd_bus* b, sd_bus_message* m, uint64_t*) override
    {
        EXPECT_EQ(b, SdBusImpl::sd_bus_message_get_bus(m));
        const auto keep = [&]
        {
            sent = test::seal(Message(SdBusImpl::sd_bus_message_ref(m)));
            return 1;
        };
        return step(keep, "send");
    }
};

class Callbacks : public testing::Test
{
  protected:
    ~Callbacks() override
    {
        EXPECT_EQ(calls.references, 0);
        sd_bus_error_free(&error);
    }

    void expect_error(const char* name, const std::string& description)
    {
        EXPECT_STREQ(error.name, name);
        EXPECT_EQ(error.message, description);
        sd_bus_error_free(&error);
    }

    // A reply under construction, as sd-bus hands it to a getter.
    Message reply()
    {
        sd_bus_message* m = nullptr;
        sd_bus_message_new_method_return(call.get(), &m);
        return Message(m);
    }

    template <typename Getter>
    int get(sd_bus_message* m, const Getter& getter)
    {
        return property_callback(m, &calls, &error, std::function(getter));
    }

    // Calls a method that takes a string and a boolean and has two results.
    int method()
    {
        const auto two = [this](std::string&& text, bool&& flag)
        {
            calls.made.emplace_back("function");
            in_function = transaction::get_id();
            return std::tuple<int, std::string>(flag ? 1 : 0, text);
        };
        sd_bus_message_rewind(call.get(), true);
        return method_callback<true>(call.get(), &calls, &error, std::function(two));
    }

    support::Client client;
    ServerCalls calls;
    Message call = test::sealed(client, "sb", "text", 1);
    sd_bus_error error{};
    uint64_t in_function = 0;
};

TEST_F(Callbacks, a_get_appends_to_the_reply_or_gives_its_error_and_lets_others_through)
{
    struct Refusal : sdbusplus::exception::internal_exception
    {
        const char* name() const noexcept override
        {
            return SD_BUS_ERROR_ACCESS_DENIED;
        }
        const char* description() const noexcept override
        {
            return "not for you";
        }
        int get_errno() const noexcept override
        {
            return EPERM;
        }
    };
    Message m = reply();
    EXPECT_EQ(get(m.get(), []() -> int { throw Refusal(); }), -EACCES);
    expect_error(SD_BUS_ERROR_ACCESS_DENIED, "not for you");
    EXPECT_THROW(get(m.get(), []() -> int { throw std::runtime_error(""); }), std::runtime_error);
    EXPECT_EQ(get(m.get(), [] { return std::string("value"); }), 1);
    EXPECT_EQ(render(test::seal(std::move(m)).get()), "s \"value\"");
}

TEST_F(Callbacks, a_set_reads_one_value_and_hands_it_over_or_does_not_set)
{
    std::tuple<int, std::string> got;
    const auto set = [&](std::tuple<int, std::string>&& value) { got = std::move(value); };
    const Message good = test::sealed(client, "(is)", 5, "five");
    EXPECT_EQ(property_callback(good.get(), &calls, &error, std::function(set)), 1);
    EXPECT_EQ(got, (std::tuple{5, std::string("five")}));

    const Message bad = test::sealed(client, "as", 1, "x");
    EXPECT_EQ(property_callback(bad.get(), &calls, &error, std::function(set)), -ENXIO);
    EXPECT_EQ(got, (std::tuple{5, std::string("five")}));
    expect_error("System.Error.ENXIO",
                 std::string("sd_bus_message_enter_container tuple: ") + std::strerror(ENXIO));
}

TEST_F(Callbacks, a_method_makes_the_reply_before_it_runs_and_sends_it_after)
{
    EXPECT_EQ(method(), 1);
    EXPECT_EQ(calls.all(), "read s, read b, new_method_return, function, append i, append s, send");
    uint64_t answered = 0;
    uint64_t cookie = 0;
    sd_bus_message_get_reply_cookie(calls.sent.get(), &answered);
    sd_bus_message_get_cookie(call.get(), &cookie);
    EXPECT_EQ(answered, cookie);
    EXPECT_EQ(render(calls.sent.get()), "is 1, \"text\"");
}

TEST_F(Callbacks, each_failure_of_a_method_becomes_the_error_of_its_call)
{
    const std::pair<std::size_t, const char*> failures[] = {
        {0, "sd_bus_message_read_basic string"},
        {1, "sd_bus_message_read_basic bool"},
        {2, "sd_bus_message_new_method_return"},
        {6, "sd_bus_send"},
    };
    for (const auto& [failing, name] : failures)
    {
        calls.made.clear();
        calls.failing = failing;
        const SdBusError expected(test::Calls::error, name);
        EXPECT_EQ(method(), -test::Calls::error);
        expect_error(expected.name(), expected.description());
        EXPECT_EQ(calls.all().find("function") == std::string::npos, failing < 3);
        EXPECT_EQ(calls.references, 0);
        EXPECT_EQ(calls.sent, nullptr);
    }
}

TEST_F(Callbacks, what_a_method_throws_drops_the_reply_unsent)
{
    const auto throwing = [this](auto thrown)
    {
        sd_bus_message_rewind(call.get(), true);
        return method_callback(call.get(), &calls, &error,
                               std::function([=](std::string&&) -> int { throw thrown; }));
    };
    EXPECT_EQ(throwing(SdBusError(EACCES, "inside")), -EACCES);
    expect_error(SD_BUS_ERROR_ACCESS_DENIED, "inside: Permission denied");
    EXPECT_THROW(throwing(std::bad_variant_access()), std::bad_variant_access);
    EXPECT_EQ(calls.sent, nullptr);
}

TEST_F(Callbacks, a_tuple_is_one_struct_or_separate_results)
{
    const std::function results = [] { return std::tuple<unsigned short, unsigned int>(1, 2); };
    method_callback<false>(call.get(), &calls, &error, results);
    EXPECT_EQ(render(calls.sent.get()), "(qu) (1, 2)");
    method_callback<true>(call.get(), &calls, &error, results);
    EXPECT_EQ(render(calls.sent.get()), "qu 1, 2");
    method_callback(call.get(), &calls, &error, std::function([] {}));
    EXPECT_EQ(render(calls.sent.get()), "");
}

TEST_F(Callbacks, a_transaction_is_a_call_and_the_reply_to_it)
{
    uint64_t elsewhere = 1;
    std::thread([&] { elsewhere = transaction::get_id(); }).join();
    EXPECT_EQ(elsewhere, 0);

    const auto id = [](const Message& m)
    {
        transaction::set_id(message(m.get()));
        return transaction::get_id();
    };
    const Message answer = reply();
    const uint64_t first = id(call);
    EXPECT_EQ(id(answer), first);
    EXPECT_NE(id(test::sealed(client, "")), first);
    support::Client other;
    const uint64_t once = id(test::sealed(other, ""));
    EXPECT_NE(id(test::sealed(other, "")), once); // most likely at the same address
    const auto of_one_cookie = [&](support::Client& caller)
    {
        const Message m = caller.new_call({"a.Service", "/a"}, "a.B", "C");
        sd_bus_message_seal(m.get(), 1'000'000, 0);
        return id(m);
    };
    EXPECT_NE(of_one_cookie(client), of_one_cookie(other));

    // The getter and the method already run inside it.
    get(answer.get(), [this] { return in_function = transaction::get_id(); });
    EXPECT_EQ(in_function, first);
    in_function = 0;
    method();
    EXPECT_EQ(in_function, first);
}

// A connection that a test only pretends to have.
struct Pretended : sdbusplus::SdBusImpl
{
    std::string made;
    const char* name = ":1.7";
    sd_bus* connection = reinterpret_cast<sd_bus*>(this);

    sd_bus* sd_bus_ref(sd_bus* b) override
    {
        made += "ref ";
        return b;
    }
    sd_bus* sd_bus_unref(sd_bus*) override
    {
        made += "unref ";
        return nullptr;
    }
    int sd_bus_get_unique_name(sd_bus*, const char** unique) override
    {
        *unique = name;
        return name != nullptr ? 0 : -EINVAL;
    }
};

TEST(Bus, takes_a_reference_of_its_own_and_gives_it_back_once)
{
    Pretended pretended;
    {
        bus::bus b(pretended.connection, &pretended);
        EXPECT_EQ(b.get_unique_name(), ":1.7");
        const bus::bus moved(std::move(b));
        EXPECT_EQ(get_busp(moved), pretended.connection);
    }
    EXPECT_EQ(pretended.made, "ref unref ");
    pretended.name = nullptr;
    EXPECT_THROW(bus::bus(pretended.connection, &pretended), std::logic_error);
    EXPECT_EQ(pretended.made, "ref unref ref unref ");
}

TEST(Bus, without_a_connection_asks_for_no_name)
{
    support::bus().kill();
    for (const auto open : {&bus::new_system, &bus::new_default_system})
    {
        const bus::bus b = open();
        EXPECT_EQ(get_busp(b), nullptr);
        EXPECT_EQ(b.get_unique_name(), "");
    }
    support::bus().restart();
}

TEST(Bus, the_shared_connection_stays_open_and_a_private_one_is_flushed_and_closed)
{
    const bus::bus shared = bus::new_default_system();
    EXPECT_EQ(bus::new_default_system().get_unique_name(), shared.get_unique_name());
    EXPECT_GT(sd_bus_is_open(get_busp(shared)), 0);

    support::Client listener;
    listener.subscribe("member='Last'");
    auto own = std::make_unique<bus::bus>(bus::new_system());
    const std::string name = own->get_unique_name();
    auto flood = own->new_signal("/some/object", "some.Interface", "Flood");
    flood.append(std::vector<unsigned char>(30'000'000)); // more than the socket takes at once
    flood.signal_send();
    own->new_signal("/some/object", "some.Interface", "Last").signal_send();
    own.reset();
    EXPECT_TRUE(listener.wait_for([&] { return listener.signals("Last").size() == 1; }));
    EXPECT_FALSE(listener.name_has_owner(name.c_str()));
}

class OnTheBus : public testing::Test
{
  protected:
    static int get_value(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                         void* context, sd_bus_error*)
    {
        message(reply).append(*static_cast<int*>(context));
        return 1;
    }

    static constexpr sd_bus_vtable rows[] = {
        vtable::start(),
        vtable::signal("Happened", "s"),
        vtable::property("Value", "i", get_value, vtable::property_::emits_change),
        vtable::end(),
    };

    // What a call comes to: of the property, and of the objects below.
    std::string value()
    {
        return client.get(object, name, "Value").text;
    }
    bool listed()
    {
        return client.call(object, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects").ok();
    }

    static constexpr const char* name = "some.Interface";
    static constexpr const char* path = "/some/object";
    int stored = 5;
    bus::bus b = bus::new_system();
    support::Client client{[this] { sd_bus_process(get_busp(b), nullptr); }};
    const support::Object object{b.get_unique_name(), path};
};

TEST_F(OnTheBus, an_interface_and_an_object_manager_serve_while_they_live)
{
    client.subscribe();
    {
        std::string given = path;
        server::interface::interface served(b, given.data(), name, rows, &stored);
        given.assign(given.size(), 'x');
        EXPECT_EQ(value(), "i 5");
        EXPECT_EQ(failure([&] { server::interface::interface(b, path, name, rows, nullptr); }),
                  std::string("sd_bus_add_object_vtable: ") + std::strerror(EEXIST));
        EXPECT_EQ(value(), "i 5");

        auto signal = served.new_signal("Happened");
        signal.append(std::string("it did"));
        signal.signal_send();
        served.property_changed("Value");
        served.property_changed("NoSuchProperty");
        client.settle(object.service);
        ASSERT_EQ(client.signals().size(), 2);
        EXPECT_EQ(client.signals()[0].path, path);
        EXPECT_EQ(client.signals()[0].body, "s \"it did\"");
        EXPECT_EQ(client.signals()[1].changed.at("Value"), "i 5");

        const server::manager::manager manager(b, path);
        const server::manager::manager refused(b, "no path");
        EXPECT_TRUE(listed());
    }
    EXPECT_NE(value(), "i 5");
    EXPECT_FALSE(listed());
}

TEST_F(OnTheBus, a_match_hears_while_it_lives)
{
    const auto alive = std::make_shared<int>(0); // counts the callback's copies
    std::string heard;
    const auto hear = [alive, &heard](message& m) { heard += m.unpack<std::string>() + ' '; };
    const auto say = [this](const char* text)
    {
        client.emit(nullptr, path, name, "Happened", "s", text);
        client.settle(object.service);
    };
    const std::string rule = "type='signal',member='Happened'";
    {
        bus::match::match first(b, rule.c_str(), hear);
        const bus::match::match moved(std::move(first));
        const bus::match::match second(b, rule, hear);
        const bus::match::match refused(b, "no rule", hear);
        say("twice");
    }
    say("to nobody");
    EXPECT_EQ(heard, "twice twice ");
    EXPECT_EQ(alive.use_count(), 2);
}

TEST_F(OnTheBus, a_signal_that_cannot_be_made_or_sent_names_the_call)
{
    EXPECT_EQ(failure([this] { b.new_signal("no path", name, "Happened"); }),
              std::string("sd_bus_message_new_signal: ") + std::strerror(EINVAL));
    auto signal = b.new_signal(path, name, "Happened");
    EXPECT_EQ(failure([&] { signal.get_cookie(); }),
              std::string("sd_bus_message_get_cookie: ") + std::strerror(ENODATA));
    sd_bus_close(get_busp(b));
    EXPECT_EQ(failure([&] { signal.signal_send(); }),
              std::string("sd_bus_send: ") + std::strerror(ENOTCONN));
}

} // namespace
