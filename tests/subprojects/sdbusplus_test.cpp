// Values as a peer sends them, which checks nothing before this library reads; what a read and an
// append leave behind when they fail; a connection's end.
#include <gtest/gtest.h>
#include <sdbusplus/bus.hpp>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/server/transaction.hpp>
#include <support/client.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <map>
#include <set>

namespace
{

using namespace std::string_literals;
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

std::string wire(std::uint64_t value, std::size_t width = 4)
{
    std::string bytes;
    for (; width > 0; --width, value >>= 8)
    {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

// Reads a T from a little-endian signal with this body, sent by hand to the server's end of a
// connection without a bus. Gives what fails.
template <typename T>
std::string receive(const std::string& signature, const std::string& body, T value)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data());
    sd_bus* made = nullptr;
    sd_bus_new(&made);
    const std::unique_ptr<sd_bus, support::Release<sd_bus_close_unref>> bus(made);
    sd_bus_set_fd(made, ends[0], ends[0]);
    sd_bus_set_server(made, true, {{1}});
    sd_bus_set_anonymous(made, true);
    sd_bus_start(made);

    // Path, interface and member are of a length that leaves nothing to pad.
    const std::string fields = "\1\1o\0"s + wire(7) + "/a/path\0\2\1s\0"s + wire(7) +
                               "a.B.C.D\0\3\1s\0"s + wire(7) + "Changed\0\10\1g\0"s +
                               wire(signature.size(), 1) + signature + '\0';
    std::string sent = "l\4\0\1"s + wire(body.size()) + wire(1) + wire(fields.size()) + fields;
    sent.resize((sent.size() + 7) / 8 * 8);
    sent = "\0AUTH ANONYMOUS\r\nBEGIN\r\n"s + sent + body;
    EXPECT_EQ(write(ends[1], sent.data(), sent.size()), std::ssize(sent));
    sd_bus_message* m = nullptr;
    while (m == nullptr)
    {
        support::check(sd_bus_process(made, &m));
    }
    close(ends[1]);
    try
    {
        message(m, &sdbusplus::sdbus_impl, std::false_type{}).read(value);
        return "";
    }
    catch (const SdBusError& e)
    {
        return e.description();
    }
}

TEST(Message, that_breaks_the_rules_fails_at_the_call_that_meets_the_break)
{
    const std::string enter = "enter_container emplace_back_container: ";
    const std::tuple<std::string, std::vector<unsigned int>, std::string, std::string> rows[] = {
        {"au", {}, enter, "Bad message"},
        {"au", {1U << 30U, 1}, enter, "Bad message"},
        {"au", {100, 1, 2}, "read_basic fundamental: ", "Bad message"},
        {"auu", {6, 1, 2, 3}, "exit_container emplace_back_container: ", "Device or resource busy"},
        {"ai", {4, 1}, enter, "No such device or address"},
    };
    for (const auto& [signature, numbers, call, error] : rows)
    {
        std::string body;
        for (const unsigned int number : numbers)
        {
            body += wire(number);
        }
        EXPECT_EQ(receive(signature, body, std::vector<unsigned int>()),
                  "sd_bus_message_" + call + error);
    }
    EXPECT_EQ(receive("v", "\1\1", std::variant<unsigned int>()),
              "sd_bus_message_verify_type variant: Bad message");
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

TEST(Bus, the_shared_connection_stays_open_and_a_private_one_is_flushed_and_closed)
{
    namespace bus = sdbusplus::bus;
    const bus::bus shared = bus::new_default_system();
    auto* const connection = bus::details::bus_friend::get_busp(shared);
    static_cast<void>(bus::bus(connection)); // takes a reference of its own
    EXPECT_EQ(bus::new_default_system().get_unique_name(), shared.get_unique_name());
    EXPECT_GT(sd_bus_is_open(connection), 0);

    Client listener;
    listener.subscribe("member='Last'");
    std::string name;
    {
        const bus::bus own = bus::new_system();
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

} // namespace
