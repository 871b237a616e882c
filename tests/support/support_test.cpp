// What would let a test pass that should fail: a bus that is somebody else's, silence that was only
// a lack of patience, text that leaves a difference out.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/client.hpp"
#include "support/open_fds.hpp"
#include "support/private_bus.hpp"
#include "support/render.hpp"

namespace
{

using support::Client;

TEST(Support, BusIsPrivateAndBreaksWhenItIsKilled)
{
    EXPECT_EQ(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"), support::bus().address());
    EXPECT_TRUE(support::bus().address().starts_with("unix:path=/tmp/gantry-"));
    Client before;
    before.request_name("com.example.Name");
    support::bus().kill();
    EXPECT_THROW(before.turns(2), std::system_error);
    EXPECT_THROW(Client{}, std::system_error);
    support::bus().restart();
    Client after;
    EXPECT_FALSE(after.name_has_owner("com.example.Name"));
}

TEST(Support, OpenFdsShowALeak)
{
    const auto before = support::open_fds();
    const int leaked = dup(STDIN_FILENO);
    EXPECT_EQ(support::open_fd_count(), before.size() + 1);
    close(leaked);
    EXPECT_EQ(support::open_fds(), before);
}

// The service keeps its first call and answers it later, and tells of that with a signal.
TEST(Support, SettlingTellsSilenceFromDelay)
{
    Client service;
    support::Message held;
    const auto hold = [](sd_bus_message* call, void* user, sd_bus_error*)
    {
        if (sd_bus_message_is_method_call(call, "a.B", "C") <= 0)
        {
            return 0;
        }
        static_cast<support::Message*>(user)->reset(sd_bus_message_ref(call));
        return 1;
    };
    sd_bus_add_filter(service.bus(), nullptr, hold, &held);
    Client client([&] { service.turns(1); });
    client.subscribe();

    const auto pending = client.start({service.unique_name(), "/"}, "a.B", "C");
    client.settle(service.unique_name());
    EXPECT_NE(held, nullptr);
    EXPECT_FALSE(pending.done());
    EXPECT_EQ(pending.reply().text, "no reply");

    service.emit(nullptr, "/", "a.B", "D", "s", "\"\n");
    sd_bus_reply_method_errorf(held.get(), "com.example.Error", "as %s", "asked");
    client.settle(service.unique_name());
    EXPECT_EQ(pending.reply().text, "error com.example.Error: as asked");
    ASSERT_EQ(client.signals("D").size(), 1);
    EXPECT_EQ(client.signals().at(0).body, R"(s "\"\n")");
}

TEST(Support, RenderingTellsEveryValue)
{
    Client client;
    const auto message = client.new_signal(nullptr, "/", "a.B", "C");
    sd_bus_message_append(message.get(), "ybnqiuxtdsoga{sv}as", 255, 1, -32768, 65535, INT32_MIN,
                          UINT32_MAX, INT64_MIN, UINT64_MAX, 0.1, "\x01ü", "/a", "a{sv}", 2, "b",
                          "a(nix)", 1, 1, 2, INT64_C(3), "a", "v", "y", 4, 0);
    sd_bus_message_seal(message.get(), 1, 0);
    EXPECT_EQ(support::render(message.get()),
              "ybnqiuxtdsoga{sv}as 255, true, -32768, 65535, -2147483648, 4294967295, "
              "-9223372036854775808, 18446744073709551615, 0.1, \"\\x01ü\", \"/a\", \"a{sv}\", "
              "{\"b\": <a(nix) [(1, 2, 3)]>, \"a\": <v <y 4>>}, []");
}

} // namespace
