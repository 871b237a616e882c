// A long life of two hosts, on a bus of their own: one client calls every method of sample_host,
// reads and writes its properties and makes mistakes in between, and sends listener signals that it
// knows and signals that it must refuse. Every reply has to come and to be right, every good signal
// has to arrive, and neither host may have grown since the first 10,000.
//
//     soak SAMPLE_HOST LISTENER COUNT      COUNT calls and signals; a count up to 10,000 is a smoke
//                                          test, in which memory isn't judged
#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/client.hpp"
#include "support/private_bus.hpp"
#include "support/program.hpp"

namespace
{

using support::Client;
using support::Object;

constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";
constexpr const char* async = "com.orvane.velmar.sample.async";
constexpr const char* hw_inventory = "com.orvane.velmar.HWInventory";
constexpr const char* support_interface = "com.orvane.velmar.hwi.HWISupport";
constexpr const char* properties = "org.freedesktop.DBus.Properties";

constexpr const char* invalid_arguments = "error org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* unknown_method = "error org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* unknown_object = "error org.freedesktop.DBus.Error.UnknownObject";
constexpr const char* unknown_property = "error org.freedesktop.DBus.Error.UnknownProperty";

constexpr std::size_t in_flight = 64;
constexpr std::size_t warm_up = 10'000;
constexpr std::size_t most_growth = 64UL * 1024;

std::string in_quotes(const std::string& text)
{
    return '"' + text + '"';
}

template <class Integer>
Integer cut(std::uint64_t number)
{
    return static_cast<Integer>(number);
}

// What is sent, and what has to come of it.
class Load
{
  public:
    Load(Client& on, support::Program& heard_by) : client(on), listener(heard_by)
    {
    }

    // Sends the next calls or signals.
    void step();
    // Waits until all replies and signals are there.
    void settle();

    template <class... Args>
    void call(const Object& to, const char* interface, const std::string& member, std::string reply,
              const char* types = "", Args... args)
    {
        pending_.push_back({member, std::move(reply),
                            client.start(to, interface, member.c_str(), types, args...)});
        ++sent;
        if (pending_.size() == in_flight)
        {
            expect_first();
        }
    }

    template <class... Args>
    void call(const std::string& method, std::string reply, const char* types = "", Args... args)
    {
        call(object, gantrytest, method, std::move(reply), types, args...);
    }

    // Methods that give back what they are given, in both shapes.
    template <class... Args>
    void echo(const std::string& method, const std::string& reply, const char* types, Args... args)
    {
        call(method, reply, types, args...);
        call(method + (method.starts_with("Try_") ? "_D" : "D"), reply, types, args...);
    }

    // An integer of the step's own.
    template <class Integer>
    void echo_number(const char* method, const char* type)
    {
        const auto value = cut<Integer>(number);
        echo(method, std::string(type) + ' ' + std::to_string(value), type, value);
    }

    // A property is written and read.
    template <class... Args>
    void write(const char* property, const std::string& value, const char* type, Args... args)
    {
        call(object, properties, "Set", "", "ssv", gantrytest, property, type, args...);
        call(object, properties, "Get", "v <" + value + '>', "ss", gantrytest, property);
    }

    // A signal that listener prints, or one that it can't read.
    template <class... Args>
    void signal(bool is_good, const char* interface, const char* member, const char* types = "",
                Args... args)
    {
        client.emit(nullptr, "/some/path", interface, member, types, args...);
        ++sent;
        expected_lines += is_good ? 1 : 0;
    }

    Client& client;
    support::Program& listener;
    const Object object{"com.orvane.velmar.sample", "/com/orvane/velmar/sample/gantrytest"};
    const Object other{"com.orvane.velmar.sample", "/com/orvane/velmar/sample/async"};

    std::size_t sent = 0;
    std::size_t expected_lines = 0; // of listener

    // The values of this step.
    std::uint64_t number = 0;
    std::string text;

    // What sample_host has to remember.
    std::string remembered;
    int changes = 0;

  private:
    struct Expected
    {
        std::string member;
        std::string reply; // as it begins
        Client::Pending pending;
    };

    void expect_first()
    {
        auto [member, expected, call] = std::move(pending_.front());
        pending_.pop_front();
        const auto reply = client.wait(std::move(call));
        if (!reply.text.starts_with(expected) || (expected.empty() && !reply.text.empty()))
        {
            throw std::runtime_error(member + ": " + reply.text + "\ninstead of " + expected);
        }
    }

    void count_lines()
    {
        const std::string output = listener.output();
        lines_ += static_cast<std::size_t>(std::ranges::count(output, '\n'));
    }

    std::mt19937_64 random_; // the same in every run
    std::size_t turn_ = 0;
    std::deque<Expected> pending_;
    std::size_t lines_ = 0;
};

using Step = void (*)(Load&);
constexpr auto steps = std::to_array<Step>({
    [](Load& load) { load.echo_number<std::uint8_t>("Try_byte", "y"); },
    [](Load& load)
    {
        const bool value = load.number % 2 == 0;
        load.echo("Try_boolean", value ? "b true" : "b false", "b", value);
    },
    [](Load& load) { load.echo_number<std::int16_t>("Try_int16", "n"); },
    [](Load& load) { load.echo_number<std::uint16_t>("Try_uint16", "q"); },
    [](Load& load) { load.echo_number<std::int32_t>("Try_int32", "i"); },
    [](Load& load) { load.echo_number<std::uint32_t>("Try_uint32", "u"); },
    [](Load& load) { load.echo_number<std::int64_t>("Try_int64", "x"); },
    [](Load& load)
    { load.echo("Try_uint64", "t " + std::to_string(load.number), "t", load.number); },
    [](Load& load)
    {
        const auto value = cut<std::uint16_t>(load.number);
        load.echo("Try_double", "d " + std::to_string(value), "d", static_cast<double>(value));
    },
    [](Load& load)
    { load.echo("Try_string", "s " + in_quotes(load.text), "s", load.text.c_str()); },
    [](Load& load)
    {
        const auto value = cut<std::uint8_t>(load.number);
        load.echo("Try_array", "ay [" + std::to_string(value) + ", 255, 0]", "ay", 3, value, 255,
                  0);
        load.echo("Try_array", "ay []", "ay", 0);
    },
    [](Load& load)
    {
        // Sorted, and without repeats.
        const auto value = static_cast<int>(load.number % 1000);
        load.echo("TrySet", "an [-1, " + std::to_string(value) + ", 1000]", "an", 4, 1000, value,
                  -1, value);
    },
    [](Load& load)
    {
        const auto value = cut<std::uint32_t>(load.number);
        load.echo("TryArrayArray", "aau [[1, " + std::to_string(value) + "], []]", "aau", 2, 2, 1,
                  value, 0);
    },
    [](Load& load)
    {
        load.echo("TryArrayString", "as [\"\", " + in_quotes(load.text) + "]", "as", 2, "",
                  load.text.c_str());
    },
    [](Load& load)
    {
        const auto value = cut<std::int64_t>(load.number);
        load.echo("TryStruct",
                  "(ixs) (-1, " + std::to_string(value) + ", " + in_quotes(load.text) + ')',
                  "(ixs)", -1, value, load.text.c_str());
    },
    [](Load& load)
    {
        const auto value = cut<std::int16_t>(load.number);
        load.echo("TryStructArray",
                  "(ananas) ([" + std::to_string(value) + "], [], [" + in_quotes(load.text) + "])",
                  "(ananas)", 1, value, 0, 1, load.text.c_str());
    },
    [](Load& load)
    {
        load.echo("TupleOne", "q 1", "");
        load.echo("TupleTwo", "qu 1, 2", "");
        load.echo("TupleThree", "qut 1, 2, 3", "");
    },
    // What the host remembers; each change is a signal to listener.
    [](Load& load)
    {
        for (const char* method : {"SetString", "SetStringDeferred"})
        {
            load.call(method, "i " + std::to_string(++load.changes), "s", load.text.c_str());
            ++load.expected_lines;
        }
        load.remembered = load.text;
    },
    [](Load& load)
    {
        for (const char* method : {"ChangeContainer", "ChangeContainerDeferred"})
        {
            load.call(method, "i " + std::to_string(++load.changes));
            ++load.expected_lines;
        }
        load.call("Deferred", "i " + std::to_string(load.changes));
    },
    [](Load& load)
    {
        load.call("GetString", "s " + in_quotes(load.remembered));
        load.call("GetStringDeferred", "s " + in_quotes(load.remembered));
        load.call(load.other, async, "NoParam", "s " + in_quotes(load.remembered));
        load.call(load.other, async, "OneParam", "s " + in_quotes(load.text), "s",
                  load.text.c_str());
    },
    [](Load& load)
    {
        const auto value = cut<std::int32_t>(load.number);
        load.write("PropInt32", "i " + std::to_string(value), "i", value);
        load.write("PropUInt64", "t " + std::to_string(load.number), "t", load.number);
        // The data store keeps every key that this one ever held, so there are few of them.
        const std::string key = "key " + std::to_string(load.number % 16);
        load.write("PropString", "s " + in_quotes(key), "s", key.c_str());
        load.write("PropArray1", "ay [1, 2]", "ay", 2, 1, 2);
    },
    [](Load& load)
    {
        const auto small = cut<std::uint8_t>(load.number);
        const std::string value = std::to_string(small);
        load.write("PropByte", "y " + value, "y", small);
        load.write("PropBoolean", small < 128 ? "b true" : "b false", "b", small < 128);
        load.write("PropInt16", "n " + value, "n", small);
        load.write("PropUInt16", "q " + value, "q", small);
        load.write("PropUInt32", "u " + value, "u", small);
        load.write("PropInt64", "x " + value, "x", INT64_C(1) * small);
        load.write("PropDouble", "d " + value, "d", 1.0 * small);
        load.write("VersionTest", "d " + value, "d", 1.0 * small);
        load.write("PropNestedArray1", "aay [[" + value + "], []]", "aay", 2, 1, small, 0);
        load.write("PropSet1", "ai [-1, " + value + ']', "ai", 3, small, -1, small);
        load.write("PropNestedSet1", "a(y) [(" + value + ")]", "a(y)", 2, small, small);
        load.write("PropStruct1", "(nix) (" + value + ", 2, 3)", "(nix)", small, 2, INT64_C(3));
        load.write("RecursionTest1", "((y(qu))i(xt)) ((" + value + ", (1, 2)), 3, (4, 5))",
                   "((y(qu))i(xt))", small, 1, 2, 3, INT64_C(4), UINT64_C(5));
    },
    [](Load& load)
    {
        const std::string text = in_quotes(load.text);
        load.write("PropNestedArray2", "aaay [[[], [1, 2]]]", "aaay", 1, 2, 2, 1, 2, 0);
        load.write("PropDict1", "a{qs} {2: \"two\", 9: " + text + '}', "a{qs}", 2, 9,
                   load.text.c_str(), 2, "two");
        load.write("PropDict2", "a{s(nix)} {" + text + ": (1, 2, 3)}", "a{s(nix)}", 1,
                   load.text.c_str(), 1, 2, INT64_C(3));
        load.write("PropNestedSet2", "a(nix) [(1, 2, 3)]", "a(nix)", 2, 1, 2, INT64_C(3), 1, 2,
                   INT64_C(3));
        load.write("PropVariant2", "v <s " + text + '>', "v", "s", load.text.c_str());
        load.write("PropVariant2", "v <(nix) (1, 2, 3)>", "v", "(nix)", 1, 2, INT64_C(3));
        load.write("RecursionTest2", "a{sv} {\"key\": <s " + text + ">}", "a{sv}", 1, "key", "s",
                   load.text.c_str());
    },
    [](Load& load)
    {
        load.call(load.object, properties, "GetAll", "a{sv} {\"PropByte\": <y ", "s", gantrytest);
        load.call(load.object, "org.freedesktop.DBus.Peer", "Ping", "");
        load.call(load.object, "org.freedesktop.DBus.Introspectable", "Introspect",
                  "s \"<!DOCTYPE node");
    },
    // Mistakes of a client.
    [](Load& load)
    {
        const char* text = load.text.c_str();
        load.call("Try_int32", invalid_arguments, "s", text);
        load.call("Try_string_D", invalid_arguments, "i", 1);
        load.call("TryStruct", invalid_arguments, "ixs", 1, INT64_C(2), text);
        load.call("TryArrayStringD", invalid_arguments);
        load.call("NoSuchMethod", unknown_method, "s", text);
        load.call(load.other, gantrytest, "GetString", unknown_method);
        load.call({load.object.service, "/no/such/object"}, gantrytest, "GetString",
                  unknown_object);
    },
    [](Load& load)
    {
        const char* text = load.text.c_str();
        load.call(load.object, properties, "Get", unknown_property, "ss", gantrytest, text);
        load.call(load.object, properties, "Set", invalid_arguments, "ssv", gantrytest, "PropInt32",
                  "s", text);
        load.call(load.object, properties, "Set", invalid_arguments, "ssv", gantrytest, "PropDict2",
                  "a{ss}", 1, text, text);
        load.call(load.object, properties, "Set", unknown_property, "ssv", gantrytest, "NoSuch",
                  "s", text);
    },
    // Signals to listener, and such as it can't read.
    [](Load& load)
    {
        const char* text = load.text.c_str();
        load.signal(true, hw_inventory, "Refresh", "s", text);
        load.signal(false, hw_inventory, "Refresh", "i", 7);
        load.signal(false, hw_inventory, "Refresh");
        load.signal(false, hw_inventory, "Refresh", "as", 2, text, text);
        load.signal(true, support_interface, "HardwareInventoryChanged");
    },
    [](Load& load)
    {
        const char* text = load.text.c_str();
        load.signal(true, gantrytest, "faultAdded", "s", text);
        load.signal(true, gantrytest, "complextypes", "(quat)s", 1, 2, 2, load.number, UINT64_MAX,
                    text);
        load.signal(false, gantrytest, "complextypes", "(quat)", 1, 2, 1, load.number);
        load.signal(false, gantrytest, "complextypes", "s(quat)", text, 1, 2, 0);
        load.signal(false, gantrytest, "complextypes");
        load.signal(false, gantrytest, "faultAdded", "v", "s", text);
    },
    // Signals that sample_host didn't ask for.
    [](Load& load)
    {
        load.client.emit(load.object.service.c_str(), load.object.path.c_str(), gantrytest,
                         "faultAdded", "i", 7);
        load.client.emit(load.object.service.c_str(), "/", hw_inventory, "Refresh", "s", "all");
        load.sent += 2;
    },
});

void Load::step()
{
    number = random_();
    text.assign(random_() % 400, static_cast<char>('a' + random_() % 26));
    text += number % 8 == 0 ? "gr\u00FC\u00DFe" : "";
    steps[turn_++ % steps.size()](*this);
    count_lines();
}

void Load::settle()
{
    while (!pending_.empty())
    {
        expect_first();
    }
    client.wait_for(
        [this]
        {
            count_lines();
            return lines_ >= expected_lines;
        });
    if (lines_ != expected_lines)
    {
        throw std::runtime_error("listener: " + std::to_string(lines_) + " signals of " +
                                 std::to_string(expected_lines));
    }
}

// What a host holds, beside what it held when it was warm.
class Watch
{
  public:
    Watch(const char* program_name, const support::Program& watched) :
        name(program_name),
        program(watched),
        memory(watched.private_dirty()),
        fds(watched.open_fds())
    {
    }

    // Prints the growth; false when there is any to speak of.
    [[nodiscard]] bool is_flat() const
    {
        const std::size_t memory_now = program.private_dirty();
        const std::size_t fds_now = program.open_fds();
        std::printf("  %s %zu KiB (%+zd), %zu descriptors", name, memory_now / 1024,
                    (static_cast<ssize_t>(memory_now) - static_cast<ssize_t>(memory)) / 1024,
                    fds_now);
        return memory_now <= memory + most_growth && fds_now == fds;
    }

  private:
    const char* name;
    const support::Program& program;
    std::size_t memory;
    std::size_t fds;
};

bool run(const char* sample_host, const char* listener_path, std::size_t count)
{
    const support::PrivateBus bus;
    support::Program listener(listener_path);
    if (listener.line() != "listening")
    {
        throw std::runtime_error("listener did not start");
    }
    const support::Program host(sample_host);
    Client client;
    Load load(client, listener);
    client.wait_for([&] { return client.call(load.other, async, "NoParam").ok(); });

    const auto start = std::chrono::steady_clock::now();
    const auto run_until = [&](std::size_t goal)
    {
        while (load.sent < goal)
        {
            load.step();
        }
        load.settle();
    };
    run_until(std::min(warm_up, count));
    std::vector<Watch> watches{Watch("sample_host", host)};
    bool is_flat = true;
    for (std::size_t part = 1; part <= 10; ++part)
    {
        run_until(count / 10 * part);
        if (part == 1)
        {
            // A tenth of what is sent goes to it, so it isn't warm before.
            watches.emplace_back("listener", listener);
        }
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::printf("%8zu in %3.0f s:", load.sent, elapsed.count());
        // What counts is the last look: a leak stays, what malloc kept of a busy moment goes.
        is_flat = true;
        for (const Watch& watch : watches)
        {
            is_flat = watch.is_flat() && is_flat;
        }
        std::puts("");
        std::fflush(stdout);
    }
    std::printf("%zu calls and signals: every reply came and was right, every signal arrived, "
                "memory and descriptors %s\n",
                load.sent, is_flat ? "stayed flat" : "GREW");
    return is_flat;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        const std::span arguments(argv, static_cast<std::size_t>(argc));
        if (arguments.size() != 4)
        {
            throw std::runtime_error("usage: soak SAMPLE_HOST LISTENER COUNT");
        }
        // Half of what is sent is logged as wrong, and is meant to be.
        setenv("TALLYLOG_LEVEL", "0", 0);
        const bool passed = run(arguments[1], arguments[2], std::stoul(arguments[3]));
        std::puts(passed ? "soak passed" : "soak FAILED");
        return passed ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    catch (const std::exception& error)
    {
        std::printf("%s\nsoak FAILED\n", error.what());
        return EXIT_FAILURE;
    }
}
