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
#include <cerrno>
#include <cstring>
#include <map>
#include <set>

namespace
{

using sdbusplus::exception::SdBusError;
using sdbusplus::message::message;
using support::Client;

template <typename... Args>
message sealed(Client& client, const char* types, Args... args)
{
    static uint64_t cookie = 0;
    support::Message m = client.new_call({"a.Service", "/a"}, "a.B", "C");
    support::check(sd_bus_message_append(m.get(), types, args...), types);
    sd_bus_message_seal(m.get(), ++cookie, 0);
    return message(m.get());
}

// Bytes as they go over the wire, padded to D-Bus's alignment.
struct Bytes
{
    bool big_endian;
    std::string bytes = {};

    Bytes& align(std::size_t boundary)
    {
        bytes.resize((bytes.size() + boundary - 1) / boundary * boundary);
        return *this;
    }
    Bytes& number(unsigned long value, std::size_t width)
    {
        align(width);
        for (std::size_t i = 0; i < width; ++i)
        {
            bytes += static_cast<char>(value >> (8 * (big_endian ? width - 1 - i : i)));
        }
        return *this;
    }
    Bytes& string(const std::string& text, std::size_t width = 4)
    {
        number(text.size(), width).bytes.append(text.c_str(), text.size() + 1);
        return *this;
    }
    // A field of the header, such as (1, "o", path).
    Bytes& field(unsigned long code, const std::string& type, const std::string& value)
    {
        return align(8).number(code, 1).string(type, 1).string(value, type == "g" ? 1 : 4);
    }
};

// Reads a T from a signal with this body, sent by hand to the server's end of a connection without
// a bus.
template <typename T>
T receive(const std::string& signature, const Bytes& body)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data());
    sd_bus* made = nullptr;
    sd_bus_new(&made);
    const std::unique_ptr<sd_bus, support::Release<sd_bus_close_unref>> bus(made);
    sd_bus_set_fd(made, ends[0], ends[0]);
    sd_bus_set_server(made, true, {{1}});
    sd_bus_set_anonymous(made, true);
    sd_bus_set_trusted(made, true);
    sd_bus_start(made);

    Bytes fields{body.big_endian};
    fields.field(1, "o", "/a").field(2, "s", "a.B").field(3, "s", "C").field(8, "g", signature);
    Bytes header{body.big_endian};
    header.number(body.big_endian ? 'B' : 'l', 1).number(SD_BUS_MESSAGE_SIGNAL, 1);
    header.number(0, 1).number(1, 1).number(body.bytes.size(), 4).number(1, 4);
    header.string(fields.bytes).bytes.pop_back();
    const std::string sent =
        std::string("\0AUTH ANONYMOUS\r\nBEGIN\r\n", 24) + header.align(8).bytes + body.bytes;
    EXPECT_EQ(write(ends[1], sent.data(), sent.size()), std::ssize(sent));
    sd_bus_message* m = nullptr;
    while (m == nullptr)
    {
        support::check(sd_bus_process(made, &m), "sd_bus_process");
    }
    close(ends[1]);
    const support::Message received(m);
    return message(m).unpack<T>();
}

TEST(Wire, is_read_in_both_byte_orders)
{
    using Value = std::tuple<unsigned short, std::vector<std::vector<unsigned int>>,
                             std::vector<double>, std::string>;
    const Value expected{0x0102, {{7}, {8}}, {0.5}, "behind"};
    for (const bool big_endian : {false, true})
    {
        Bytes body{big_endian};
        body.number(0x0102, 2).number(16, 4).number(4, 4).number(7, 4).number(4, 4).number(8, 4);
        body.number(8, 4).align(8).number(0x3fe0000000000000, 8).string("behind");
        EXPECT_TRUE(receive<Value>("(qaauads)", body) == expected);
    }
}

TEST(Wire, that_breaks_the_rules_fails_at_the_call_that_meets_the_break)
{
    const std::string enter = "enter_container emplace_back_container: ";
    const std::tuple<std::string, std::vector<unsigned long>, std::string, int> rows[] = {
        {"au", {}, enter, EBADMSG},
        {"au", {1U << 30U, 1}, enter, EBADMSG},
        {"au", {100, 1, 2}, "read_basic fundamental: ", EBADMSG},
        {"auu", {6, 1, 2, 3}, "exit_container emplace_back_container: ", EBUSY},
        {"ai", {4, 1}, enter, ENXIO},
    };
    for (const auto& [signature, numbers, call, error] : rows)
    {
        for (const bool big_endian : {false, true})
        {
            Bytes body{big_endian};
            for (const unsigned long number : numbers)
            {
                body.number(number, 4);
            }
            std::string failure = "none";
            try
            {
                receive<std::vector<unsigned int>>(signature, body);
            }
            catch (const SdBusError& e)
            {
                failure = e.description();
            }
            EXPECT_EQ(failure, "sd_bus_message_" + call + std::strerror(error));
        }
    }
}

TEST(Message, of_duplicates_the_first_stays_and_an_unknown_variant_counts_as_the_default)
{
    Client client;
    using Entries = std::map<std::string, std::variant<short, std::string>>;
    auto m = sealed(client, "a{sv}ais", 3, "b", "s", "x", "a", "d", 0.5, "b", "n", 2, 2, 3, 3, "y");
    EXPECT_TRUE((m.unpack<Entries, std::set<int>, std::string>() ==
                 std::tuple(Entries{{"a", short{0}}, {"b", "x"}}, std::set{3}, "y")));
}

TEST(Message, that_fails_to_be_read_touches_no_target)
{
    Client client;
    std::string first = "old";
    std::vector<std::string> second{"old"};
    EXPECT_THROW(sealed(client, "sai", "new", 1, 1).read(first, second), SdBusError);
    EXPECT_EQ(first + second[0], "oldold");
}

TEST(Message, takes_nothing_of_a_variant_without_a_value)
{
    struct Failing
    {
        operator std::string() const
        {
            throw 0;
        }
    };
    std::variant<int, std::tuple<std::string>> valueless;
    EXPECT_ANY_THROW(valueless.emplace<1>(Failing{}));
    Client client;
    message m(client.new_signal(nullptr, "/a", "a.B", "C").get());
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
    auto call = sealed(client, "s", "");
    const uint64_t first = id(call);
    EXPECT_NE(id(sealed(client, "s", "")), first);
    EXPECT_EQ(id(call.new_method_return()), first);
}

TEST(Bus, the_shared_connection_stays_open_and_a_private_one_is_flushed_and_closed)
{
    namespace bus = sdbusplus::bus;
    const bus::bus shared = bus::new_default_system();
    EXPECT_EQ(bus::new_default_system().get_unique_name(), shared.get_unique_name());
    EXPECT_GT(sd_bus_is_open(bus::details::bus_friend::get_busp(shared)), 0);

    Client listener;
    listener.subscribe("member='Last'");
    std::string name;
    {
        const bus::bus own = bus::new_system();
        name = own.get_unique_name();
        auto flood = own.new_signal("/some/object", "some.Interface", "Flood");
        flood.append(std::vector<unsigned char>(30'000'000)); // more than the socket takes at once
        flood.signal_send();
        own.new_signal("/some/object", "some.Interface", "Last").signal_send();
    }
    EXPECT_TRUE(listener.wait_for([&] { return !listener.signals().empty(); }));
    EXPECT_FALSE(listener.name_has_owner(name.c_str()));
}

} // namespace
