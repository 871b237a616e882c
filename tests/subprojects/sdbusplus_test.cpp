// What a read and an append leave behind, also when they fail; a connection's end.
#include <gtest/gtest.h>
#include <sdbusplus/bus.hpp>
#include <sdbusplus/bus/match.hpp>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/server/manager.hpp>
#include <sdbusplus/server/transaction.hpp>
#include <sdbusplus/slot.hpp>
#include <support/client.hpp>

#include <map>
#include <set>

namespace
{

using message = sdbusplus::message_t;
using sdbusplus::exception::SdBusError;
using support::Client;

template <typename... Args>
message sealed(Client& client, std::uint64_t cookie, const char* types, Args... args)
{
    sd_bus_message* m = nullptr;
    sd_bus_message_new_method_call(client.bus(), &m, "a.Service", "/a", "a.B", "C");
    support::check(sd_bus_message_append(m, types, args...));
    sd_bus_message_seal(m, cookie, 0);
    return message(m, &sdbusplus::sdbus_impl, std::false_type{});
}

TEST(Message, of_duplicates_the_first_stays_and_an_unknown_variant_counts_as_the_default)
{
    Client client;
    using Entries = std::map<std::string, std::variant<short, std::string>>;
    auto m =
        sealed(client, 1, "a{sv}ais", 3, "b", "s", "x", "a", "d", 0.5, "b", "n", 2, 2, 3, 3, "y");
    EXPECT_TRUE((m.unpack<Entries, std::set<int>, std::string>() ==
                 std::tuple(Entries{{"a", short{0}}, {"b", "x"}}, std::set{3}, "y")));
}

TEST(Message, that_fails_to_be_read_touches_no_target)
{
    Client client;
    std::string first = "old";
    std::vector<std::string> second{"old"};
    EXPECT_THROW(sealed(client, 1, "sai", "new", 1, 1).read(first, second), SdBusError);
    EXPECT_EQ(first + second[0], "oldold");
}

TEST(Message, takes_nothing_of_a_variant_without_a_value)
{
    std::variant<int, std::tuple<std::string>> valueless;
    const char* const no_text = nullptr;
    EXPECT_ANY_THROW(valueless.emplace<1>(no_text));
    Client client;
    message m(client.new_signal("/a", "a.B", "C").get());
    EXPECT_THROW(m.append(valueless), std::bad_variant_access);
    EXPECT_STREQ(sd_bus_message_get_signature(m.get(), true), "");
}

TEST(Message, begins_a_transaction_of_its_call_and_the_reply_to_it)
{
    const auto id = [](const message& m)
    {
        sdbusplus::server::transaction::set_id(m);
        return sdbusplus::server::transaction::get_id();
    };
    Client client;
    Client other;
    auto call = sealed(client, 1, "s", "");
    const uint64_t first = id(call);
    const uint64_t second = id(sealed(client, 2, "s", ""));
    EXPECT_NE(id(sealed(client, 3, "s", "")), second); // at the same address
    EXPECT_NE(id(sealed(other, 1, "s", "")), first);
    EXPECT_EQ(id(call.new_method_return()), first);
}

// A new connection, and the reference on it.
sd_bus* opened()
{
    sd_bus* connection = nullptr;
    support::check(sd_bus_open_system(&connection));
    return connection;
}

TEST(Bus, leaves_its_connection_open_unless_it_is_to_close_it)
{
    namespace bus = sdbusplus::bus;
    sd_bus* const connection = opened();
    static_cast<void>(bus::bus(connection)); // takes a reference of its own
    EXPECT_GT(sd_bus_is_open(connection), 0);
    sd_bus_flush_close_unref(connection);

    Client listener;
    listener.subscribe("member='Last'");
    std::string name;
    {
        bus::bus own(opened(), std::false_type{});
        own.set_should_close(true);
        name = own.get_unique_name();
        const auto signal = [&own](const char* member)
        {
            sd_bus_message* m = nullptr;
            sd_bus_message_new_signal(bus::details::bus_friend::get_busp(own), &m, "/some/object",
                                      "some.Interface", member);
            return message(m, &sdbusplus::sdbus_impl, std::false_type{});
        };
        auto flood = signal("Flood");
        flood.append(std::vector<unsigned char>(30'000'000)); // more than the socket takes at once
        flood.signal_send();
        signal("Last").signal_send();
    }
    EXPECT_TRUE(listener.wait_for([&] { return !listener.signals().empty(); }));
    EXPECT_EQ(listener.name_owner(name.c_str()), "");
}

// What a host in C++ may hold beside its objects.
TEST(Holder, of_a_match_and_of_an_object_manager_ends_them)
{
    namespace rules = sdbusplus::bus::match::rules;
    Client client;
    sdbusplus::bus_t bus(opened(), std::false_type{});
    sd_bus* const connection = sdbusplus::bus::details::bus_friend::get_busp(bus);
    std::set<std::string> heard;
    const auto hear = [&heard](message& m) { heard.insert(m.unpack<std::string>()); };
    const auto serve = [&]
    {
        client.emit(nullptr, "/a", "a.B", "Said", "s", "x");
        client.name_owner("a.Service"); // the bus has queued the signal, and now sends it
        sd_bus_call_method(connection, "org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer",
                           "Ping", nullptr, nullptr, "");
        while (sd_bus_process(connection, nullptr) > 0)
        {
        }
    };
    {
        const auto rule = rules::type::signal() + rules::path("/a") + rules::interface("a.B") +
                          rules::member("Said") + rules::argN(0, "x");
        sdbusplus::bus::match_t match(bus, rule, hear);
        const auto moved = std::move(match);
        const sdbusplus::server::manager_t manager(bus, "/a");
        serve();
        EXPECT_EQ(heard, std::set<std::string>{"x"});
        heard.clear();
        sd_bus_slot* slot = nullptr;
        EXPECT_EQ(sd_bus_add_object_manager(connection, &slot, "/a"), 0);
        const sdbusplus::slot_t held(std::move(slot));
        EXPECT_TRUE(held);
    }
    serve();
    EXPECT_EQ(heard.size(), 0);
}

} // namespace
