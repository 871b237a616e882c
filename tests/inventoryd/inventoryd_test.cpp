// The example host on a machine that the test makes up: a small sysfs of which values are missing,
// malformed and too large. A socket pair tells it of network interfaces in the kernel's place.
#include "support/client.hpp"
#include "support/notify_socket.hpp"
#include "support/private_bus.hpp"
#include "support/program.hpp"
#include "support/temp_dir.hpp"

#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-hwdb.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using support::Object;
using support::Properties;

// A number in as many bytes, the lowest first.
std::string number(std::uint64_t value, std::size_t width)
{
    std::string bytes(width, '\0');
    for (char& byte : bytes)
    {
        byte = static_cast<char>(value);
        value >>= 8;
    }
    return bytes;
}

// The same in this machine's order, which the kernel's messages have.
std::string native(std::uint64_t value, std::size_t width)
{
    std::string bytes = number(value, width);
    if constexpr (std::endian::native == std::endian::big)
    {
        std::ranges::reverse(bytes);
    }
    return bytes;
}

template <typename Value>
std::string bytes(const Value& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string attribute(unsigned short type, const std::string& data)
{
    const auto size = data.size() + 4;
    return native(size, 2) + native(type, 2) + data + std::string((4 - size % 4) % 4, '\0');
}

// What the kernel tells of an interface, or a bridge of its port.
std::string message(unsigned short type, const std::string& name, unsigned int index,
                    const std::string& attributes = {}, unsigned char family = AF_UNSPEC)
{
    const auto body = number(family, 2) + native(ARPHRD_ETHER, 2) + native(index, 4) +
                      number(0, 8) + attribute(IFLA_MTU, native(1500, 4)) + attributes +
                      attribute(IFLA_IFNAME, name + '\0');
    return native(sizeof(nlmsghdr) + body.size(), 4) + native(type, 2) + number(0, 10) + body;
}

// Of "name=value; name=value".
Properties values(const std::string& text)
{
    Properties found;
    std::istringstream rest(text);
    for (std::string name; getline(rest >> std::ws, name, '=') && getline(rest, found[name], ';');)
    {
    }
    return found;
}

// The object of "interface" or "interface/id".
Object at(std::string name)
{
    std::ranges::replace(name, '.', '/');
    return {"com.orvane.velmar.inventory", "/com/orvane/velmar/" + name};
}

// The host as a service manager runs it, with a socket unit's netlink socket or without.
struct Inventoryd : testing::Test
{
    ~Inventoryd() override
    {
        // One that hangs may not heed SIGTERM.
        EXPECT_TRUE(!host || host->stop(HasFailure() ? SIGKILL : SIGTERM) == 0);
    }

    // Written beside and moved in, as the host may read at any time.
    void write(const std::string& name, const std::string& content) const
    {
        const auto file = sys / name;
        create_directories(file.parent_path());
        std::ofstream(file.parent_path() / ".fresh", std::ios::binary) << content;
        rename(file.parent_path() / ".fresh", file);
    }

    void write_lines(const std::string& folder, const std::string& files) const
    {
        for (const auto& [name, line] : values(files))
        {
            write(folder + '/' + name, line + '\n');
        }
    }

    void link(const std::string& name, const std::string& target) const
    {
        create_directories((sys / name).parent_path());
        create_directories(sys / target);
        create_symlink(sys / target, sys / name);
    }

    // What the interface's driver answers.
    void answer(const std::string& device, int request, const std::string& text) const
    {
        write("class/net/" + device + "/ethtool/" + std::to_string(request), text);
    }

    void start(int netlink = -1)
    {
        client.subscribe();
        const auto pass_socket = [=]
        {
            dup2(netlink, SD_LISTEN_FDS_START);
            setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
            setenv("LISTEN_FDS", netlink < 0 ? "0" : "1", 1);
        };
        host.emplace(std::vector{INVENTORYD, sys.c_str()}, pass_socket);
        close(netlink);
        EXPECT_TRUE(is_told("READY=1"));
    }

    // Waits until the service manager has been told this so many times.
    bool is_told(const std::string& message, int times = 1)
    {
        return client.wait_for(
            [&] { return std::ranges::count(manager.received(), message) >= times; });
    }

    void expect(const std::string& name, const std::string& expected)
    {
        const auto interface = "com.orvane.velmar." + name.substr(0, name.find('/'));
        EXPECT_THAT(client.get_all(at(name), interface.c_str()),
                    testing::IsSupersetOf(values(expected)))
            << name;
    }

    // Waits until an object has sent so many signals, which must then be all.
    auto signals(const char* member, const Object& object, std::size_t count)
    {
        std::vector<support::Signal> found;
        const auto are_there = [&]
        {
            found = client.signals();
            std::erase_if(found, [&](const auto& signal)
                          { return signal.member != member || signal.path != object.path; });
            return found.size() >= count;
        };
        client.wait_for(are_there);
        client.settle(object.service);
        are_there();
        EXPECT_EQ(found.size(), count) << testing::PrintToString(found);
        return found;
    }

    const support::TempDir directory;
    const std::filesystem::path sys = directory.path;
    support::NotifySocket manager;
    support::Client client;
    std::optional<support::Program> host;
};

TEST_F(Inventoryd, AMalformedValueCostsItsPropertyAloneAndARefreshOneSignal)
{
    const std::string pci = "bus/pci/devices/0001:a2:1f.3";
    write_lines(pci,
                "vendor=0x8086; class=0x020001; subsystem_device=none; subsystem_vendor=0x10281; "
                "current_link_speed=8.0 GT/s PCIe; infiniband/a/ports/2/counters/port_rcv_data=10; "
                "infiniband/a/ports/2/counters/port_xmit_packets=1torn");
    // A capability list that runs in a circle, behind PCI Express or without.
    const auto configuration = [](char capability)
    {
        return number(0, 6) + number(0x10, 8) + '\x80' + number(0, 0x25) + number(0x40, 12) +
               "\x05\x50" + number(0, 14) + capability + "\x40\x42" + number(0, 173);
    };
    write(pci + "/config", configuration(0x10));
    write("bus/pci/devices/0000:00:00.0/config", configuration(0x05));
    write_lines("class/dmi/id", "bios_version=2.19.1; bios_vendor=Vendor \xFF Inc.; board_name=; "
                                "board_serial=7; board_vendor=A");
    write_lines(
        "bus/usb/devices",
        "1-2.4/idProduct=12345; 1-2.4/version= 3.20; 1-2.4:1.0/version=1; usb1/version=two");
    link("class/net/eth0.1/device", pci);
    write_lines("class/net",
                "eth0.1/dev_port=1; eth0.1/brport/designated_bridge=own; "
                "eth0.1/brport/designated_port=9; eth0.1/brport/bridge/bridge/bridge_id=own; "
                "eth1/device/uevent=; usb0/device/uevent=; bridge0/type=1; bonding_masters=");
    rtnl_link_stats64 counters{};
    counters.rx_bytes = UINT64_MAX;
    counters.rx_dropped = UINT64_C(1) << 32;
    // An older kernel has fewer counters.
    const auto links = [&](unsigned char state)
    {
        return message(RTM_NEWLINK, "eth0.1", 2,
                       attribute(IFLA_STATS64, bytes(counters)) +
                           attribute(IFLA_OPERSTATE, {char(state)})) +
               message(RTM_NEWLINK, "eth1", 3,
                       attribute(IFLA_STATS64, bytes(counters).substr(0, 24))) +
               message(RTM_NEWLINK, "usb0", 4) + message(RTM_NEWLINK, "bridge0", 5);
    };
    write("rtnetlink", links(IF_OPER_UP));
    ethtool_drvinfo driver{};
    std::strcpy(driver.bus_info, "0001:a2:1f.3");
    answer("eth0.1", ETHTOOL_GDRVINFO, bytes(driver));
    std::strcpy(driver.bus_info, "usb-0000:00:05.0-1");
    answer("usb0", ETHTOOL_GDRVINFO, bytes(driver));
    // Sets of link modes whose size, a signed byte, has no positive counterpart.
    answer("usb0", ETHTOOL_GLINKSETTINGS, number(0, 15) + '\x80' + number(0, 32));
    start();

    expect("hwi.HWIStndConfig/_30001_3aa2_3a1f_2e3",
           "SegmentNum=u 1; BusNum=u 162; VendorID=q 32902; SubVendorID=q 0; SubDeviceID=q 0; "
           "progIF=y 1; PCIheaderType=y 128");
    expect("hwi.HWIPcie/_30001_3aa2_3a1f_2e3", "CurrentLinkSpeed=u 8000; PortType=y 4");
    expect("hwi.HWIPcie/_30000_3a00_3a00_2e0", "PortType=y 0");
    expect("system.BLT", "Manufacturer=s \"Vendor \uFFFD Inc.\"; Version=t 563031557865472");
    expect("hwi.HWIOemFruCustomData",
           "BoardCustomData=as [\"board_vendor=A\", \"board_serial=7\"]; ChassisCustomData=as []");
    expect("system.USB/_31_2d2_2e4", "ProductID=q 0; USBVersion=q 800");
    expect("system.USB/usb1", "USBVersion=q 0");
    expect("system.NicController", "PortsCount=y 3");
    expect("system.NicPort/eth0_2e1",
           "LinkStatus=y 1; ReceiveTotalBytes=t 18446744073709551615; DiscardedPkts=u 0");
    expect("system.NicPort/eth1", "ReceiveTotalBytes=t 18446744073709551615");
    expect("system.NicPartition/eth0_2e1",
           "PCIDevice=u 31; RDMARxTotalBytes=t 40; RDMATxTotalPackets=t 0");
    expect("system.NicPartition/usb0", "PCIDevice=u 0");
    expect("system.NicConnectionView/eth0_2e1", "ChassisId=s \"\"");
    EXPECT_EQ(client.introspect(at("system.USB")).find("_3a"), std::string::npos) << "not a device";

    write("class/net/eth0.1/brport/designated_bridge", "other\n");
    write("rtnetlink", links(IF_OPER_DOWN));
    const auto port = signals("PropertiesChanged", at("system.NicPort/eth0_2e1"), 1);
    EXPECT_TRUE(port.at(0).changed.contains("StatisticsTime"));
    signals("PropertiesChanged", at("system.NicPort/eth1"), 0);
    const auto partner = signals("PropertiesChanged", at("system.NicConnectionView/eth0_2e1"), 1);
    EXPECT_EQ(
        partner.at(0).changed,
        values("ChassisId=s \"other\"; ChassisIdSubType=q 7; PortId=s \"9\"; PortIdSubType=q 7"));
    expect("system.NicPort/eth0_2e1", "LinkStatus=y 2");
}

TEST_F(Inventoryd, InterfacesThatComeAndGoAreAnnouncedOnceAndLostMessagesMadeGood)
{
    setenv("INVENTORYD_EVERY_INTERFACE", "", 1);
    const auto eth0 = message(RTM_NEWLINK, "eth0", 1);
    write("class/net/eth0/type", "1\n");
    write("rtnetlink", eth0);
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
    start(pair[1]);
    unsetenv("INVENTORYD_EVERY_INTERFACE");
    // From now on an incomplete answer, which removes and adds nothing.
    write("rtnetlink", eth0 + native(16, 4) + native(NLMSG_ERROR, 2) + number(0, 10));
    const auto tell = [&](const std::string& datagram)
    { ASSERT_EQ(send(pair[0], datagram.data(), datagram.size(), 0), std::ssize(datagram)); };
    const auto veth0 = at("system.NicPort/veth0");
    // Not well-formed, not for us, or of an interface that has gone already.
    tell("short");
    tell(number(0, sizeof(nlmsghdr)));
    tell(eth0);
    tell(native(47, 4) + native(RTM_DELLINK, 2) + number(0, 10));
    const auto name = attribute(IFLA_IFNAME, "eth0\0"s);
    tell(native(36, 4) + native(RTM_DELLINK, 2) + number(0, 14) + native(1, 4) + number(0, 8) +
         name);
    tell(message(RTM_DELLINK, "eth0", 1, {}, AF_BRIDGE));
    tell(message(RTM_NEWLINK, "gone", 2));
    tell(message(RTM_NEWLINK, std::string(100, 'x'), 3));
    write("class/net/veth0/type", "1\n");
    const auto up = attribute(IFLA_OPERSTATE, {IF_OPER_UP});
    tell(message(RTM_NEWLINK, "veth0", 4, up));
    tell(message(RTM_NEWLINK, "veth0", 4, up));
    EXPECT_THAT(signals("InterfacesAdded", veth0, 1).at(0).body,
                testing::HasSubstr("\"LinkStatus\": <y 1>"));
    // Three objects, each from its own path and from the one that clients start at.
    EXPECT_EQ(std::ranges::count(client.signals(), "InterfacesAdded", &support::Signal::member), 6);
    expect("system.NicController", "PortsCount=y 2");

    // The kernel tells before the directory is gone. Then the path is free again.
    tell(message(RTM_DELLINK, "veth0", 4));
    signals("InterfacesRemoved", veth0, 1);
    EXPECT_EQ(std::ranges::count(client.signals(), "InterfacesRemoved", &support::Signal::member),
              6);
    tell(message(RTM_NEWLINK, "veth0", 5));
    signals("InterfacesAdded", veth0, 2);
    signals("PropertiesChanged", at("system.NicController"), 3);

    // Messages were lost: of one that went, of another by a name that is known, of a new one.
    tell(number(0, 40000)); // more than the host reads at a time
    write("class/net/veth1/type", "1\n");
    write("rtnetlink", message(RTM_NEWLINK, "eth0", 7) + message(RTM_NEWLINK, "veth1", 8));
    signals("InterfacesAdded", at("system.NicPort/veth1"), 1);
    signals("InterfacesAdded", at("system.NicPort/eth0"), 1);
    signals("InterfacesRemoved", veth0, 2);
    expect("system.NicController", "PortsCount=y 2");
    close(pair[0]);
}

std::string path_node(unsigned int type, unsigned int subtype, const std::string& data)
{
    return number(type, 1) + number(subtype, 1) + number(data.size() + 4, 2) + data;
}

std::string utf16(std::u16string_view text)
{
    std::string bytes;
    for (const char16_t unit : text)
    {
        bytes += number(unit, 2);
    }
    return bytes + number(0, 2);
}

std::string load_option(std::u16string_view description, const std::string& path)
{
    return number(1, 4) + number(path.size(), 2) + utf16(description) + path;
}

TEST_F(Inventoryd, BootEntriesAreReadAsFarAsTheyAreWellFormed)
{
    const std::string disk = path_node(4, 1, "\x01\xAB") + path_node(4, 4, utf16(u"\\EFI\\a.efi"));
    const std::string whole =
        load_option(u"Disk \u00E4\u20AC\U0001F600", disk + path_node(0x7F, 0xFF, ""));
    // A surrogate pair torn in two, and paths whose nodes are too short, too long or unended.
    const auto variable = [&](const std::string& name, const std::string& value)
    {
        write("firmware/efi/efivars/" + name + "-8be4df61-93ca-11d2-aa0d-00e098032b8c",
              number(7, 4) + value);
    };
    variable("BootOrder", number(0x0003001A, 4));
    variable("BootCurrent", number(0x0003, 2));
    variable("BootNext", number(0x0003, 2));
    variable("Boot0003", whole + "\x01\x02");
    variable("Boot001A", load_option(u"a\xD83D-\xDE00", "\x04\x04\x03\x00"s));
    variable("Boot001B", load_option(u"", disk + "\x04\x04\xFF\xFF"));
    variable("Boot001C", load_option(u"file", path_node(4, 4, "a")));
    variable("Boot001D", number(0, 4) + "\xFF\xFF" + utf16(u"short path"));
    variable("BootXYZW", whole);
    for (unsigned int length = 0; length < whole.size(); ++length)
    {
        variable("Boot" + std::to_string(1000 + length), whole.substr(0, length));
    }
    start();

    expect("system.BootDevice/Boot0003",
           "hdr_DOT_objName=s \"Disk \u00E4\u20AC\U0001F600\"; oBootPath=s "
           "\"Path(4,1,01AB)/\\\\EFI\\\\a.efi\"; oBootData=s \"0102\"; iCurrentIndex=y 2; "
           "iPendingIndex=y 1; iEnabled=y 1");
    expect("system.BootDevice/Boot001A", "hdr_DOT_objName=s \"a\uFFFD-\uFFFD\"; oBootPath=s \"\"; "
                                         "iCurrentIndex=y 1; iPendingIndex=y 2");
    expect("system.BootDevice/Boot001B",
           "oBootPath=s \"Path(4,1,01AB)/\\\\EFI\\\\a.efi\"; iCurrentIndex=y 0");
    expect("system.BootDevice/Boot001C", "oBootPath=s \"Path(4,4,61)\"");
    expect(
        "system.BootSequence",
        "hdr_DOT_objDependencies=s \"BootDevice.Boot001A,BootDevice.Boot0003\"; iCurrentIndex=y 2");
    std::istringstream nodes(client.introspect(at("system.BootDevice")));
    EXPECT_EQ(std::count(std::istream_iterator<std::string>(nodes), {}, "<node"), 4) << nodes.str();
}

TEST_F(Inventoryd, OnAMachineThatShowsNothingTheServiceManagerIsToldAll)
{
    setenv("WATCHDOG_USEC", "200000", 1);
    start();
    unsetenv("WATCHDOG_USEC");
    expect("system.NicController", "PortsCount=y 0");
    const auto ready =
        client.call(at("hwi.HWISupport"), "com.orvane.velmar.hwi.HWISupport", "queryIsReady");
    EXPECT_EQ(ready.text, "b true");
    EXPECT_THROW(expect("system.BootSequence", ""), std::runtime_error);
    // Its own netlink socket is in the kernel's group of links.
    std::ifstream table("/proc/net/netlink");
    const std::vector<std::string> sockets(std::istream_iterator<std::string>(table), {});
    const std::vector own{"0"s, std::to_string(host->pid()), "00000001"s};
    EXPECT_NE(std::search(sockets.begin(), sockets.end(), own.begin(), own.end()), sockets.end());
    EXPECT_TRUE(is_told("WATCHDOG=1", 3));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(host->stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 500ms) << "not at the next refresh";
    EXPECT_TRUE(is_told("STOPPING=1"));
    EXPECT_EQ(manager.received().front(), "READY=1");
}

TEST_F(Inventoryd, EndsWithFailureWhenItsBusIsLost)
{
    start();
    support::bus().kill();
    EXPECT_EQ(host->stop(0), 1); // by itself
    host.reset();
    support::bus().restart();
}

TEST_F(Inventoryd, ADumpIsAnsweredWhenItIsThereAndMeanwhileOthersAreServed)
{
    const std::string address = "0000:01:00.0";
    const std::string links = "bus/pci/devices/" + address + "/virtio1/net/eth0";
    const auto slot = at("system.NicSlot/_30000_3a01_3a00_2e0");
    const auto dumps = sys / "dumps";
    write_lines("bus/pci/devices/" + address, "class=0x020000; vendor=0x8086");
    write_lines(links, "operstate=up; statistics/rx_errors=7");
    // In the way is what another user may have put there.
    write("victim", "unchanged");
    create_directory(dumps);
    create_symlink(sys / "victim", dumps / address);
    create_symlink(sys / "victim", dumps / (address + ".new"));
    const auto trigger = [&]
    {
        auto call = client.start(slot, "com.orvane.velmar.system.NicSlot", "TriggerAdapterCoreDump",
                                 "sysssssy", "job", 1, "", "", "../victim", "", "", 0);
        client.settle(slot.service);
        return call;
    };
    setenv("STATE_DIRECTORY", dumps.c_str(), 1);
    start();
    unsetenv("STATE_DIRECTORY");
    expect("system.NicSlot/_30000_3a01_3a00_2e0", "VendorID=s \"0x8086\"; BSInfo_Bus=y 1");

    auto first = trigger();
    EXPECT_EQ(trigger()->text, "error com.orvane.velmar.inventory.Busy: a dump is running");
    write_lines(links, "operstate=down");
    EXPECT_EQ(first->text, "no reply");
    EXPECT_EQ(client.wait(std::move(first)).text, "is 0, \"" + (dumps / address).string() + '"');
    std::ifstream file(dumps / address);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_THAT(text, testing::ContainsRegex(" for :[0-9.]+, user " + std::to_string(geteuid()) +
                                             ", process " + std::to_string(getpid()) +
                                             "\nat .+\n"
                                             "eth0 operstate up\neth0 statistics/rx_errors 7\n"
                                             "at [0-9]+\neth0 operstate down\n"));
    EXPECT_EQ(status(dumps / address).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(file_size(sys / "victim"), std::strlen("unchanged"));

    remove_all(dumps);
    EXPECT_EQ(client.wait(trigger()).text,
              "error org.freedesktop.DBus.Error.Failed: No such file or directory");
    auto last = trigger();
    EXPECT_EQ(host->stop(), 0);
    EXPECT_THAT(client.wait(std::move(last)).text, testing::HasSubstr("Error.NoReply: the object"));
    start();
    EXPECT_TRUE(is_told("READY=1", 2));
    EXPECT_EQ(trigger()->text, "error org.freedesktop.DBus.Error.NotSupported: "
                               "there is no directory for dumps");
}

TEST_F(Inventoryd, EndsWithFailureWithoutItsNameAndIsNotReadyWhenRefusedIt)
{
    const auto service = at("x").service;
    ASSERT_EQ(sd_bus_request_name(client.bus(), service.c_str(), 0), 1);
    host.emplace(std::vector{INVENTORYD, sys.c_str()});
    EXPECT_EQ(host->stop(0), 1); // by itself
    EXPECT_THAT(manager.received(), testing::IsEmpty());
    sd_bus_release_name(client.bus(), service.c_str());
    start();
    sd_bus_request_name(client.bus(), service.c_str(), SD_BUS_NAME_REPLACE_EXISTING);
    EXPECT_EQ(host->stop(0), 1);
    host.reset();
}

// The name that this machine's hardware database has, or what is shown without one.
std::string database_name(const char* modalias, const char* key, const char* name)
{
    sd_hwdb* database = nullptr;
    (void)(sd_hwdb_new(&database) >= 0 && sd_hwdb_get(database, modalias, key, &name) >= 0);
    const std::string found = "s \"" + std::string(name) + '"';
    sd_hwdb_unref(database);
    return found;
}

TEST_F(Inventoryd, WhatDriversAndDatabaseTellIsNeitherSwappedNorTakenFromATornAnswer)
{
    const std::string pci = "bus/pci/devices/0000:03:00.1";
    const char* const modalias = "pci:v00008086d00001521sv00000000sd00000000bc02sc00i00";
    const auto address = [](unsigned short type, char last)
    { return attribute(type, std::string("\x02\0\xAB\0\0", 5) + last); };
    write("rtnetlink", message(RTM_NEWLINK, "eth0", 1,
                               address(IFLA_ADDRESS, 1) + address(IFLA_PERM_ADDRESS, 2)) +
                           message(RTM_NEWLINK, "eth1", 2, address(IFLA_ADDRESS, 3)));
    link("class/net/eth0", pci + "/net/eth0");
    link("class/net/eth0/device", pci);
    link("class/net/eth1/device", "devices/1");
    link(pci + "/driver", "drivers/one");
    ethtool_drvinfo driver{};
    std::strcpy(driver.version, "6.1");
    std::strcpy(driver.fw_version, "22.31");
    answer("eth0", ETHTOOL_GDRVINFO, bytes(driver));
    // The partner sends pause frames but takes none.
    const auto sets =
        number(0, 8) +
        native(1 << ETHTOOL_LINK_MODE_Pause_BIT | 1 << ETHTOOL_LINK_MODE_Asym_Pause_BIT, 4) +
        number(0, 4) +
        native(1 << ETHTOOL_LINK_MODE_Autoneg_BIT | 1 << ETHTOOL_LINK_MODE_Asym_Pause_BIT, 4) +
        number(0, 4);
    const auto settings = native(ETHTOOL_GLINKSETTINGS, 4) + native(SPEED_25000, 4) +
                          number(DUPLEX_FULL, 3) + number(AUTONEG_ENABLE, 4) + number(2, 33);
    answer("eth0", ETHTOOL_GLINKSETTINGS, settings + sets);
    answer("eth1", ETHTOOL_GLINKSETTINGS, settings + sets.substr(1));
    const auto words = [](unsigned int first, unsigned int second, unsigned int third)
    { return number(0, 4) + native(first, 4) + native(second, 4) + native(third, 4); };
    answer("eth0", ETHTOOL_GPAUSEPARAM, words(1, 0, 1));
    answer("eth1", ETHTOOL_GPAUSEPARAM, words(0, 0, 1));
    answer("eth0", ETHTOOL_GWOL, words(WAKE_MAGIC, 0, 0) + number(0, 4));
    answer("eth0", ETHTOOL_GEEE, words(0, 1, 1) + native(1, 4) + number(0, 20));
    write_lines(pci,
                "class=0x020000; current_link_width=8; sriov_totalvfs=0; modalias="s + modalias);
    write_lines("bus/pci/slots", "5/address=0000:03:00; 6/address=0000:03:01; 7/address=0000:03:0");
    write(pci + "/config", number(0, 256) + "\x01\0\x01\x11"s + number(0, 12) + "\x03\0\x01\0"s +
                               number(0x0102030405060708, 8));
    write_lines("bus/usb/devices/usb1", "idVendor=1d6b; idProduct=0002; product=own");
    start();

    expect("system.NicPort/eth0",
           "FamilyDriverVersion=s \"6.1\"; OSDriverState=y 1; LinkSpeed=y 7; LinkDuplex=y 1; "
           "AutoNegotiation=y 1; ReceiveFlowControl=y 2; TransmitFlowControl=y 1; "
           "RXFlowControl=y 1; TXFlowControl=y 2; WOLSupport=y 1; EnergyEfficientEthernet=y 2; "
           "VFSRIOVSupport=y 2; MediaType=q 1");
    expect("system.NicPort/eth1",
           "LinkSpeed=y 255; LinkDuplex=y 0; AutoNegotiation=y 0; RXFlowControl=y 2; "
           "TXFlowControl=y 1; WOLSupport=y 0; OSDriverState=y 0");
    expect("system.NicPartition/eth0",
           "PartitionOSDriverState=y 1; PermanentMACAddress=s \"02:00:ab:00:00:02\"; "
           "VirtualMACAddress=s \"02:00:ab:00:00:01\"");
    expect("system.NicPartition/eth1",
           "PermanentMACAddress=s \"\"; VirtualMACAddress=s \"02:00:ab:00:00:03\"");
    expect("system.NicSlot/_30000_3a03_3a00_2e1",
           "FamilyVersion=s \"22.31\"; DataBusWidth=s \"x8\"");
    expect("hwi.HWIStndConfig/_30000_3a03_3a00_2e1", "SlotString=s \"5\"; DataBusWidth=y 8");
    expect("hwi.HWIPcie/_30000_3a03_3a00_2e1",
           "FirmwareVersion=s \"22.31\"; PCISerialNumber=s \"01-02-03-04-05-06-07-08\"; "
           "description=" +
               database_name(modalias, "ID_PCI_SUBCLASS_FROM_DATABASE", ""));
    expect("system.USB/usb1",
           "ProductName=" + database_name("usb:v1D6Bp0002", "ID_MODEL_FROM_DATABASE", "own"));
}

} // namespace
