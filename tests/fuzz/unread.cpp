// Clients that call and don't read the replies, on a bus with the default limits of a system bus.
// They are of another user where that can be: dbus-broker bounds by user what it has queued. Each
// attack has a host of its own, whose memory is measured, and a client that reads: while the others
// are there, and once they have left.
//
//     unread          the attacks
//     unread PORTS    a host
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <gantry/gantry.h>

#include "support/client.hpp"
#include "support/private_bus.hpp"

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr const char* port = "com.orvane.velmar.system.NicPort";
constexpr const char* module = "com.orvane.velmar.system.QSFPD";
constexpr const char* manager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* root = "/com/orvane/velmar";
constexpr const char* first_port = "/com/orvane/velmar/p0";
constexpr const char* name = "com.example.Unread";

struct Attack
{
    int ports;
    std::size_t connections;
    int calls;
    const char* path;
    const char* interface;
    const char* method;
    const char* types;
    const char* argument;
    // Whether the bus itself may have enough of the host.
    bool may_stall;
};

constexpr Attack attacks[] = {
    {16, 250, 128, root, manager, "GetManagedObjects", "", nullptr, false},
    {300, 200, 120, root, manager, "GetManagedObjects", "", nullptr, false},
    // Of a property of 64 KiB.
    {1, 200, 120, "/module", properties, "GetAll", "s", module, true},
};

[[noreturn]] void serve(int ports)
{
    GANTRY_context_set_service(nullptr, name);
    GANTRY_context_manage(nullptr, root, nullptr);
    GANTRY_instance* instance = nullptr;
    for (int number = 0; number < ports; ++number)
    {
        const auto path = std::string(root) + "/p" + std::to_string(number);
        GANTRY_instantiate__com_orvane_velmar_system_NicPort(nullptr, nullptr, path.c_str(),
                                                             nullptr);
        GANTRY_instance_get_created(nullptr, &instance, nullptr);
        GANTRY_property_set_string(instance, "FQDD", "NIC.Integrated.1-1-1", true, nullptr);
    }
    GANTRY_instantiate__com_orvane_velmar_system_QSFPD(nullptr, nullptr, "/module", nullptr);
    GANTRY_instance_get_created(nullptr, &instance, nullptr);
    GANTRY_property_set_string(instance, "VendorName",
                               std::string(ports == 1 ? 65536 : 16, 'x').c_str(), true, nullptr);
    std::cout << "ready" << std::endl;
    GANTRY_dbus_loop(nullptr);
    std::exit(1);
}

using Bus = std::unique_ptr<sd_bus, support::Release<sd_bus_close_unref>>;

// Another user's connection, which reads no more once it is there.
Bus call_unread(const Attack& attack)
{
    const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
    sd_bus* opened = nullptr;
    const uid_t own = geteuid();
    seteuid(own == 0 ? 65534 : own);
    support::check(sd_bus_open_system(&opened));
    seteuid(own);
    for (int count = 0; count < attack.calls; ++count)
    {
        sd_bus_call_method_async(opened, nullptr, name, attack.path, attack.interface,
                                 attack.method, ignore, nullptr, attack.types, attack.argument);
    }
    // It writes alone, and fails if the bus has enough of a user who doesn't read.
    sd_bus_flush(opened);
    return Bus(opened);
}

// A Get by a client that reads.
int get(support::Client& client)
{
    char* value = nullptr;
    const int result =
        sd_bus_get_property_string(client.bus(), name, first_port, port, "FQDD", nullptr, &value);
    std::free(value);
    return result;
}

void expect_bounded(const Attack& attack)
{
    const support::PrivateBus bus("--config-file=" CONFIG);
    support::Program host({std::filesystem::read_symlink("/proc/self/exe").c_str(),
                           std::to_string(attack.ports).c_str()});
    ASSERT_EQ(host.line(), "ready");
    support::Client good;
    sd_bus_set_method_call_timeout(good.bus(), 5'000'000);
    get(good);
    const long before = host.peak_kib();
    int unserved = 0;
    const auto look = [&]
    {
        const int result = get(good);
        unserved += result < 0 && result != -ENOBUFS ? 1 : 0; // not even refused
    };
    {
        const auto begin = Clock::now();
        std::vector<Bus> silent;
        while (silent.size() < attack.connections)
        {
            silent.push_back(call_unread(attack));
            if (silent.size() % 25 == 0)
            {
                look();
            }
        }
        while (Clock::now() - begin < seconds(10) && unserved < 2)
        {
            look();
        }
        EXPECT_LE(host.peak_kib() - before, 64 * 1024);
        EXPECT_TRUE(attack.may_stall || unserved == 0);
    }
    const auto left = Clock::now();
    while (get(good) < 0)
    {
        ASSERT_LT(Clock::now() - left, seconds(5));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

TEST(Unread, replies_take_a_bounded_memory_and_hold_nobody_else_up)
{
    for (const Attack& each : attacks)
    {
        SCOPED_TRACE(each.ports);
        expect_bounded(each);
    }
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1)
    {
        serve(std::atoi(argv[1]));
    }
    return RUN_ALL_TESTS();
}
