// Values against messages that sd-bus itself filled and reads, and against bytes written by hand:
// each form in both directions, and what happens at the edges.
#include "calls.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>
#include <variant>

namespace
{

using sdbusplus::exception::SdBusError;
using sdbusplus::message::message;
using support::render;
using test::Calls;
using test::failure;
using test::Message;

using Byte = unsigned char;
using Nix = std::tuple<short, int, long>;
using Variant = std::variant<Byte, Nix, std::string>;
using Entries = std::map<std::string, std::variant<short, std::string, Nix>>;

class Codec : public testing::Test
{
  protected:
    template <typename... Args>
    Message sealed(const char* types, Args... args)
    {
        return test::sealed(client, types, args...);
    }

    Message signal()
    {
        return client.new_signal(nullptr, "/some/object", "some.Interface", "Member");
    }

    // What sd-bus reads after values were appended.
    template <typename... Ts>
    std::string appended(const Ts&... values)
    {
        Message m = signal();
        message(m.get()).append(values...);
        return render(test::seal(std::move(m)).get());
    }

    // A T that is read, in blocks or not, and appended again is what `expected` tells.
    template <typename T, typename... Args>
    void expect(const std::string& expected, const char* types, Args... args)
    {
        EXPECT_STREQ(sdbusplus::message::types::type_id<T>.data(), types);
        const Message filled = sealed(types, args...);
        for (const bool blocks : {true, false})
        {
            Calls calls;
            calls.blocks = blocks;
            sd_bus_message_rewind(filled.get(), true);
            EXPECT_EQ(appended(message(filled.get(), &calls).unpack<T>()), expected);
        }
    }

    // The same, of what stays as it is.
    template <typename T, typename... Args>
    void expect_kept(const char* types, Args... args)
    {
        expect<T>(render(sealed(types, args...).get()), types, args...);
    }

    support::Client client;
};

TEST_F(Codec, every_form_goes_both_ways)
{
    expect_kept<Byte>("y", 0xfe);
    expect_kept<short>("n", -2);
    expect_kept<unsigned short>("q", 0xfffe);
    expect_kept<int>("i", -2);
    expect_kept<unsigned int>("u", 0xfffffffe);
    expect_kept<long>("x", INT64_MIN);
    expect_kept<unsigned long>("t", UINT64_MAX);
    expect_kept<double>("d", -0.5);
    expect_kept<bool>("b", 1);
    expect_kept<bool>("b", 0);
    expect_kept<std::string>("s", "");

    expect_kept<std::vector<bool>>("ab", 3, 1, 0, 1);
    expect_kept<std::vector<Byte>>("ay", 3, 3, 0, 3);
    expect_kept<std::vector<double>>("ad", 2, 0.5, -0.0);
    expect_kept<std::vector<unsigned long>>("at", 0);
    expect_kept<std::vector<std::string>>("as", 3, "b", "", "a");
    expect_kept<std::vector<std::vector<unsigned int>>>("aau", 3, 2, 1, 2, 0, 1, 3);
    expect_kept<Nix>("(nix)", -1, -2, int64_t{-3});
    using Nested = std::tuple<std::tuple<Byte, std::tuple<unsigned short, std::vector<short>>>,
                              std::vector<std::string>>;
    expect_kept<Nested>("((y(qan))as)", 1, 2, 2, -3, 4, 1, "x");
    expect_kept<Variant>("v", "y", 7);
    expect_kept<Variant>("v", "(nix)", 1, 2, int64_t{3});
    expect_kept<Variant>("v", "s", "text");

    EXPECT_EQ(appended(std::string("cut\0off", 7)), "s \"cut\"");
}

TEST_F(Codec, sets_and_maps_ascend_and_of_duplicates_the_first_stays)
{
    expect<std::set<bool>>("ab [false, true]", "ab", 3, 1, 0, 1);
    expect<std::set<int>>("ai [-1, 1, 3]", "ai", 4, 3, 1, 3, -1);
    expect<std::set<int>>("ai []", "ai", 0);
    expect<std::set<Nix>>("a(nix) [(0, 9, 9), (1, 2, 3)]", "a(nix)", 3, 1, 2, int64_t{3}, 0, 9,
                          int64_t{9}, 1, 2, int64_t{3});
    expect<std::vector<std::set<std::vector<Byte>>>>("aaay [[[], [1], [1, 2]], []]", "aaay", 2, 3,
                                                     2, 1, 2, 1, 1, 0, 0);
    expect<std::map<unsigned short, std::string>>("a{qs} {2: \"two\", 9: \"nine\"}", "a{qs}", 3, 9,
                                                  "nine", 2, "two", 9, "later");
    expect<Entries>("a{sv} {\"B\": <n 1>, \"b\": <s \"x\">, \"d\": <(nix) (1, 2, 3)>}", "a{sv}", 4,
                    "b", "s", "x", "d", "(nix)", 1, 2, int64_t{3}, "B", "n", 1, "b", "n", 2);
}

TEST_F(Codec, a_variant_of_no_alternative_counts_as_the_default_and_reading_goes_on)
{
    const Message m =
        sealed("vsva{sv}", "i", 5, "behind", "a{ss}", 1, "k", "v", 2, "a", "d", 0.5, "b", "s", "x");
    const auto [number, text, composite, entries] =
        message(m.get()).unpack<Variant, std::string, Variant, Entries>();
    EXPECT_EQ(appended(number, text, composite, entries),
              "vsva{sv} <y 0>, \"behind\", <y 0>, {\"a\": <n 0>, \"b\": <s \"x\">}");
}

TEST_F(Codec, a_variant_without_a_value_is_refused_before_anything_is_appended)
{
    // The alternative at hand is gone when the next one fails to come up.
    struct Failing
    {
        operator std::string() const
        {
            throw std::length_error("");
        }
    };
    std::variant<Byte, std::tuple<std::string>> valueless;
    EXPECT_THROW(valueless.emplace<1>(Failing{}), std::length_error);
    Calls calls;
    const Message m = signal();
    EXPECT_THROW(message(m.get(), &calls).append(valueless), std::bad_variant_access);
    EXPECT_EQ(calls.all(), "");
}

TEST_F(Codec, a_failed_read_touches_no_target)
{
    std::string first = "old";
    std::vector<std::string> second{"old"};
    Nix third{7, 7, 7};
    const Message bad = sealed("sas(nu)", "new", 1, "new", 1, 2);
    EXPECT_THROW(message(bad.get()).read(first, second, third), SdBusError);
    EXPECT_EQ(appended(first, second, third), "sas(nix) \"old\", [\"old\"], (7, 7, 7)");

    const Message good = sealed("sas(nix)", "new", 1, "new", 1, 2, int64_t{3});
    message(good.get()).read(first, second, third);
    EXPECT_EQ(appended(first, second, third), "sas(nix) \"new\", [\"new\"], (1, 2, 3)");
}

// A read's calls into sd-bus in their order, and the name under which each of them fails.
TEST_F(Codec, a_read_ends_at_the_first_call_that_fails_and_names_it)
{
    struct Step
    {
        std::string call;
        std::string name; // behind "sd_bus_message_"
    };
    const std::vector<Step> steps{
        {"read b", "read_basic bool"},
        {"enter a s", "enter_container emplace_back_container"},
        {"at_end", "at_end emplace_back_container"},
        {"read s", "read_basic string"},
        {"at_end", "at_end emplace_back_container"},
        {"exit", "exit_container emplace_back_container"},
        {"enter a u", "enter_container emplace_back_container"},
        {"at_end", "at_end emplace_back_container"},
        {"read u", "read_basic fundamental"},
        {"at_end", "at_end emplace_back_container"},
        {"exit", "exit_container emplace_back_container"},
        {"enter a {sv}", "enter_container emplace_container"},
        {"at_end", "at_end emplace_container"},
        {"enter e sv", "enter_container pair"},
        {"read s", "read_basic string"},
        {"verify v n", "verify_type variant"},
        {"verify v s", "verify_type variant"},
        {"verify v (nix)", "verify_type variant"},
        {"enter v (nix)", "enter_container variant"},
        {"enter r nix", "enter_container tuple"},
        {"read n", "read_basic fundamental"},
        {"read i", "read_basic fundamental"},
        {"read x", "read_basic fundamental"},
        {"exit", "exit_container tuple"},
        {"exit", "exit_container variant"},
        {"exit", "exit_container pair"},
        {"at_end", "at_end emplace_container"},
        {"enter e sv", "enter_container pair"},
        {"read s", "read_basic string"},
        {"verify v n", "verify_type variant"},
        {"verify v s", "verify_type variant"},
        {"verify v (nix)", "verify_type variant"},
        {"skip v", "skip variant"},
        {"exit", "exit_container pair"},
        {"at_end", "at_end emplace_container"},
        {"exit", "exit_container emplace_container"},
        {"enter a i", "enter_container emplace_container"},
        {"at_end", "at_end emplace_container"},
        {"exit", "exit_container emplace_container"},
    };
    const Message m = sealed("basaua{sv}ai", 1, 1, "x", 1, 5, 2, "b", "(nix)", 1, 2, int64_t{3},
                             "c", "d", 0.5, 0);
    std::string expected;
    for (std::size_t i = 0; i <= steps.size(); ++i)
    {
        Calls calls;
        calls.blocks = false;
        calls.failing = i;
        sd_bus_message_rewind(m.get(), true);
        const auto read = [&]
        {
            message(m.get(), &calls)
                .unpack<bool, std::vector<std::string>, std::vector<unsigned int>, Entries,
                        std::set<int>>();
        };
        const std::string failed = i == steps.size() ? "none"
                                                     : "sd_bus_message_" + steps[i].name + ": " +
                                                           std::strerror(Calls::error);
        EXPECT_EQ(failure(read), failed) << "call " << i;
        expected += i == steps.size() ? "" : (i == 0 ? "" : ", ") + steps[i].call;
        EXPECT_EQ(calls.all(), expected);
    }
}

TEST_F(Codec, appending_goes_on_whatever_fails)
{
    const std::string all = "open a {sv}, open e sv, append s, open v (nix), open r nix, append n, "
                            "append i, append x, close, close, close, close, append b, "
                            "append_array n, open a s, append s, close, open a i, close";
    for (std::size_t failing = 0; failing < 20; ++failing)
    {
        Calls calls;
        calls.failing = failing;
        const Message m = signal();
        message(m.get(), &calls)
            .append(Entries{{"k", Nix{1, 2, 3}}}, true, std::vector<short>{1},
                    std::vector<std::string>{"x"}, std::set<int>{});
        EXPECT_EQ(calls.all(), all);
    }
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
        number(text.size(), width);
        bytes.append(text.c_str(), text.size() + 1);
        return *this;
    }
    // A field of the header, such as (1, "o", path).
    Bytes& field(unsigned long code, const std::string& type, const std::string& value)
    {
        align(8).number(code, 1).string(type, 1);
        return string(value, type == "g" ? 1 : 4);
    }
};

// The server's end of a connection without a bus. As the server it takes the other end's word for
// who it is, so that a test can write any message by hand: a bus checks what passes through it, a
// direct peer is checked by nobody before this library reads.
class Peer
{
  public:
    Peer()
    {
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data());
        sd_bus_new(&bus);
        sd_bus_set_fd(bus, ends[0], ends[0]);
        sd_id128_t id{};
        sd_id128_randomize(&id);
        sd_bus_set_server(bus, true, id);
        sd_bus_set_anonymous(bus, true);
        sd_bus_set_trusted(bus, true);
        sd_bus_start(bus);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer()
    {
        sd_bus_close_unref(bus);
        close(ends[1]);
    }

    // Reads a T from a signal with this body.
    template <typename T>
    T receive(const std::string& signature, const Bytes& body)
    {
        Bytes fields{body.big_endian};
        fields.field(1, "o", "/some/object").field(2, "s", "some.Interface");
        fields.field(3, "s", "Member").field(8, "g", signature);
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
            if (support::check(sd_bus_process(bus, &m), "sd_bus_process") == 0)
            {
                constexpr uint64_t deadline = 10'000'000;
                EXPECT_GT(sd_bus_wait(bus, deadline), 0);
            }
        }
        const Message received(m);
        return message(m).unpack<T>();
    }

    sd_bus* bus = nullptr;

  private:
    std::array<int, 2> ends{};
};

TEST(Wire, is_read_in_both_byte_orders)
{
    using Value = std::tuple<unsigned short, std::vector<std::vector<unsigned int>>,
                             std::vector<double>, std::string>;
    for (const bool big_endian : {false, true})
    {
        Bytes body{big_endian};
        body.number(0x0102, 2).number(16, 4).number(4, 4).number(7, 4).number(4, 4).number(8, 4);
        body.number(8, 4).align(8).number(0x3fe0000000000000, 8).string("behind");
        EXPECT_TRUE((Peer().receive<Value>("(qaauads)", body) ==
                     Value{0x0102, {{7}, {8}}, {0.5}, "behind"}));
    }
}

TEST(Wire, that_breaks_the_rules_fails_at_the_call_that_meets_the_break)
{
    const std::string enter = "sd_bus_message_enter_container emplace_back_container: ";
    for (const bool big_endian : {false, true})
    {
        const auto refusal =
            [&](const std::string& signature, const std::vector<unsigned long>& numbers)
        {
            Bytes body{big_endian};
            for (const unsigned long number : numbers)
            {
                body.number(number, 4);
            }
            return failure([&] { Peer().receive<std::vector<unsigned int>>(signature, body); });
        };
        EXPECT_EQ(refusal("au", {}), enter + std::strerror(EBADMSG));
        EXPECT_EQ(refusal("au", {1U << 30U, 1}), enter + std::strerror(EBADMSG));
        EXPECT_EQ(refusal("au", {100, 1, 2}),
                  std::string("sd_bus_message_read_basic fundamental: ") + std::strerror(EBADMSG));
        EXPECT_EQ(refusal("auu", {6, 1, 2, 3}),
                  std::string("sd_bus_message_exit_container emplace_back_container: ") +
                      std::strerror(EBUSY));
        // Tried as a block first: the refusal is that of reading by elements.
        EXPECT_EQ(refusal("ai", {4, 1}), enter + std::strerror(ENXIO));
    }
}

TEST(SdBusError, names_are_those_that_sd_bus_maps_the_errno_to)
{
    SdBusError error(EINVAL, "call");
    EXPECT_STREQ(error.what(), "call: org.freedesktop.DBus.Error.InvalidArgs: Invalid argument");
    EXPECT_EQ(error.get_errno(), EINVAL);
    EXPECT_STREQ(SdBusError(0, "call").name(), SD_BUS_ERROR_FAILED);

    // A move is a copy.
    static_assert(std::is_nothrow_move_constructible_v<SdBusError>);
    const SdBusError moved = std::move(error);
    error = SdBusError(ENXIO, "other");
    EXPECT_STREQ(moved.description(), "call: Invalid argument");
    EXPECT_STREQ(error.what(), "other: System.Error.ENXIO: No such device or address");
}

} // namespace
