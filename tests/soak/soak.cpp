// The plain C examples as programs of their own. Hosts.walk lists what they are sent and what has
// to come of it: values of each kind of memory there and back through both shapes of a method, and
// each signal in both directions. It is walked until $SOAK_COUNT calls and signals are sent, once
// at least. What a hostile client may send is the fuzzer's.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <tuple>

#include <gmock/gmock.h>

#include "support/client.hpp"
#include "support/program.hpp"

namespace
{

using Target = std::pair<support::Object, const char*>; // with an interface

const std::string service = "com.orvane.velmar.sample";
const std::string path = "/com/orvane/velmar/sample/gantrytest";
constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";
constexpr const char* inventory = "com.orvane.velmar.HWInventory";
constexpr const char* changed = "HardwareInventoryChanged";
const Target sample{{service, path}, gantrytest};
const Target other{{service, "/com/orvane/velmar/sample/async"}, "com.orvane.velmar.sample.async"};
const Target properties{{service, path}, "org.freedesktop.DBus.Properties"};
const Target minimal{{inventory, "/com/orvane/velmar/HWInventory"}, inventory};
constexpr const char* nic_slot = "com.orvane.velmar.system.NicSlot";
const Target slot{{inventory, "/com/orvane/velmar/system/NicSlot/1"}, nic_slot};

struct Hosts : testing::Test
{
    Hosts()
    {
        EXPECT_EQ(listener.line(), "Refresh [started]"); // by minimal
        // The second of its objects answers once both are there.
        client.wait_for([&] { return client.call(other.first, other.second, "NoParam").ok(); });
        client.subscribe("type='signal',path='" + path + "',interface='" + gantrytest + '\'');
    }

    void call(const Target& to, const std::string& member, const std::string& reply,
              const char* types = "", auto... args)
    {
        calls.emplace_back(member, reply,
                           client.start(to.first, to.second, member.c_str(), types, args...));
        ++sent;
    }

    void await_replies()
    {
        for (auto& [member, reply, pending] : std::exchange(calls, {}))
        {
            EXPECT_EQ(client.wait(std::move(pending)).text, reply) << member;
        }
    }

    // A method gives back what it is given, and so does its twin of the other shape.
    void echo(const std::string& member, const std::string& reply, const char* types = "",
              auto... args)
    {
        call(sample, member, reply, types, args...);
        call(sample, member + (member.starts_with("Try_") ? "_D" : "D"), reply, types, args...);
    }

    // A method sends a signal ahead of its reply, and listener prints it.
    void change(const std::string& member, const std::string& signal, const std::string& line,
                const char* types = "", auto... args)
    {
        call(sample, member, "i " + std::to_string(++changes), types, args...);
        await_replies();
        EXPECT_EQ(testing::PrintToString(client.signals()), "{ " + path + ' ' + signal + " }");
        client.signals().clear();
        lines += line + '\n';
    }

    // A signal that listener prints as this line.
    void signal(const std::string& line, const char* interface, const char* member,
                const char* types = "", auto... args)
    {
        client.emit(nullptr, "/some/path", interface, member, types, args...);
        ++sent;
        lines += line + '\n';
    }

    void walk();

    // Much of what is sent is logged as wrong, and is meant to be.
    const int quiet = setenv("TALLYLOG_LEVEL", "0", 0);
    support::Client client;
    support::Program listener{{LISTENER}};
    const std::string listening = listener.line(); // before minimal starts, and signals that
    support::Program minimal_host{{MINIMAL}};
    support::Program sample_host{{SAMPLE_HOST}};
    std::vector<std::tuple<std::string, std::string, support::Client::Pending>> calls;
    std::string lines; // that listener has to print
    std::size_t sent = 0;
    int changes = 0;
    unsigned int round = 0;
};

void Hosts::walk()
{
    const auto small = static_cast<std::uint8_t>(++round);
    const std::string n = std::to_string(small);
    const std::string text = std::string(round % 4 * 100UL, 'a') + "\u00FC" + n;
    const std::string quoted = '"' + text + '"';
    const char* const t = text.c_str();

    echo("Try_array", "ay [" + n + ", 255, 0]", "ay", 3, small, 255, 0);
    echo("TryArrayString", "as [\"\", " + quoted + ", \"a\"]", "as", 3, "", t, "a");
    echo("TryStructArray", "(ananas) ([2, 1], [], [" + quoted + "])", "(ananas)", 2, 2, 1, 0, 1, t);
    for (const std::string shape : {"", "Deferred"})
    {
        change("SetString" + shape, "faultAdded s " + quoted, "faultAdded [" + text + ']', "s", t);
        change("ChangeContainer" + shape, "complextypes (quat)s (7, 70000, [1, 2, 3]), " + quoted,
               "complextypes 7 70000 [1 2 3] [" + text + ']');
        call(sample, "GetString" + shape, "s " + quoted);
    }
    call(sample, "Deferred", "i " + std::to_string(changes));
    call(other, "NoParam", "s " + quoted);
    call(other, "OneParam", "s \"\"", "s", "");
    call(other, "OneParam", "s " + quoted, "s", t);
    call(minimal, "GetDMStatus", "i 1");
    call(minimal, "GetPopStatus", "i 0"); // without a function
    call(slot, "TriggerAdapterCoreDump", "is 0, \"j\"", "sysssssy", "j", 1, "", "", "", t, "", 2);

    call(properties, "Set", "", "ssv", gantrytest, "PropDict1", "a{qs}", 2, 9, t, 2, "two");
    client.emit(service.c_str(), "/", gantrytest, "faultAdded", "i", 7); // not asked for

    signal("Refresh [" + text + ']', inventory, "Refresh", "s", t);
    signal(changed, "com.orvane.velmar.hwi.HWISupport", changed);
    signal("faultAdded []", gantrytest, "faultAdded", "s", "");
    signal("complextypes 65535 4294967295 [0 18446744073709551615] [" + text + ']', gantrytest,
           "complextypes", "(quat)s", USHRT_MAX, UINT_MAX, 2, UINT64_C(0), UINT64_MAX, t);
    signal("complextypes 0 0 [] []", gantrytest, "complextypes", "(quat)s", 0, 0, 0, "");

    await_replies();
    std::string heard;
    for (std::string line; heard.size() < lines.size() && !(line = listener.line()).empty();)
    {
        heard += line + '\n';
    }
    EXPECT_EQ(heard, std::exchange(lines, ""));
}

TEST_F(Hosts, AnswerEveryCallAndHoldNoMoreThanOnceWarm)
{
    const char* const wanted = std::getenv("SOAK_COUNT");
    const std::size_t count = wanted == nullptr ? 1 : std::stoul(wanted);
    const std::map<std::string, const support::Program&> hosts{
        {"listener", listener}, {"minimal", minimal_host}, {"sample_host", sample_host}};
    std::map<std::string, std::size_t> fds, memory;
    std::ranges::for_each(hosts, [&](auto& each) { fds[each.first] = each.second.open_fds(); });
    const std::size_t part = std::max<std::size_t>(10'000, count / 10);
    for (std::size_t goal = 0; sent < count && !HasFailure();)
    {
        for (goal = std::min(count, goal + part); sent < goal && !HasFailure();)
        {
            walk();
        }
        std::cout << sent << " sent:";
        for (const auto& [name, host] : hosts)
        {
            const std::size_t now = host.private_dirty();
            std::cout << "  " << name << ' ' << now / 1024 << " KiB, " << fds[name] << " open";
            EXPECT_LE(now, memory.try_emplace(name, now).first->second + 32UL * 1024) << name;
            EXPECT_EQ(host.open_fds(), fds[name]) << name;
        }
        std::cout << std::endl;
    }
}

} // namespace
