// The example host on a machine that the test makes up: a small sysfs of which values are missing,
// malformed and too large. In the kernel's place, a socket pair tells it of network interfaces.
#include "support/client.hpp"
#include "support/notify_socket.hpp"
#include "support/temp_dir.hpp"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::Key;
using testing::Not;
using testing::Pair;

constexpr auto service = "com.orvane.velmar.inventory";

support::Object at(std::string interface, const std::string& id = {})
{
    std::replace(interface.begin(), interface.end(), '.', '/');
    return {service, "/com/orvane/velmar/" + interface + (id.empty() ? "" : "/") + id};
}

// A number in as many bytes, the lowest first.
std::string number(std::size_t value, int width)
{
    std::string bytes;
    for (int index = 0; index < width; ++index)
    {
        bytes += index < 8 ? static_cast<char>(value >> 8 * index) : '\0';
    }
    return bytes;
}

// From "name=value; name=value".
std::vector<std::pair<std::string, std::string>> pairs(const std::string& text)
{
    std::vector<std::pair<std::string, std::string>> found;
    for (std::size_t at = 0, end = 0; at < text.size(); at = end + 2)
    {
        end = std::min(text.find("; ", at), text.size());
        const auto equals = text.find('=', at);
        found.emplace_back(text.substr(at, equals - at), text.substr(equals + 1, end - equals - 1));
    }
    return found;
}

// The host as a service manager starts it, and what the test says to it and hears of it.
class Inventoryd : public testing::Test
{
  protected:
    ~Inventoryd() override
    {
        close(kernel);
        if (pid > 0)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }

    // Written beside and moved in, as the host may read at any time.
    void write(const std::string& name, const std::string& content) const
    {
        const auto file = sys / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file.parent_path() / ".fresh", std::ios::binary) << content;
        std::filesystem::rename(file.parent_path() / ".fresh", file);
    }

    // Files of a line each, in one folder.
    void write_lines(const std::string& folder, const std::string& lines) const
    {
        for (const auto& [name, line] : pairs(lines))
        {
            write(folder + '/' + name, line + '\n');
        }
    }

    void link(const std::string& name, const std::string& target) const
    {
        std::filesystem::create_directories((sys / name).parent_path());
        std::filesystem::create_directories(sys / target);
        std::filesystem::create_symlink(sys / target, sys / name);
    }

    // With a netlink socket from a socket unit, or one of its own.
    void start(bool hand_over = true)
    {
        int pair[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
        kernel = pair[0];
        pid = fork();
        if (pid == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (hand_over && dup2(pair[1], SD_LISTEN_FDS_START) >= 0)
            {
                setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
                setenv("LISTEN_FDS", "1", 1);
            }
            execl(INVENTORYD, INVENTORYD, sys.c_str(), nullptr);
            _exit(127);
        }
        close(pair[1]);
        client.subscribe();
        ASSERT_TRUE(is_told("READY=1"));
    }

    // Waits until the service manager has been told this so many times.
    bool is_told(const std::string& message, int times = 1)
    {
        return client.wait_for(
            [&]
            {
                const auto news = manager.received();
                told.insert(told.end(), news.begin(), news.end());
                return std::count(told.begin(), told.end(), message) >= times;
            });
    }

    // The exit code, or minus the signal that ended the host.
    int stop()
    {
        kill(pid, SIGTERM);
        int status = 0;
        waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    support::Properties values(const std::string& interface, const std::string& id = {})
    {
        return client.get_all(at(interface, id), ("com.orvane.velmar." + interface).c_str());
    }

    void expect(const std::string& interface, const std::string& id, const std::string& expected)
    {
        auto present = values(interface, id);
        std::string found;
        for (const auto& [name, value] : pairs(expected))
        {
            found += (found.empty() ? "" : "; ") + name + '=' + present[name];
        }
        EXPECT_EQ(found, expected) << interface << ' ' << id;
    }

    // The signals of one object.
    std::vector<support::Signal> signals(const support::Object& object, const char* member)
    {
        auto found = client.signals(member);
        std::erase_if(found, [&](const auto& signal) { return signal.path != object.path; });
        return found;
    }

    // What the kernel tells of an interface, or a bridge of its port.
    void tell(unsigned short type, const std::string& name, unsigned char family = AF_UNSPEC) const
    {
        const std::string body = number(family, sizeof(ifinfomsg)) + number(8, 2) +
                                 number(IFLA_MTU, 2) + number(1500, 4) +
                                 number(5 + name.size(), 2) + number(IFLA_IFNAME, 2) + name + '\0';
        tell(number(sizeof(nlmsghdr) + body.size(), 4) + number(type, 12) + body);
    }

    void tell(const std::string& datagram) const
    {
        ASSERT_EQ(send(kernel, datagram.data(), datagram.size(), 0), std::ssize(datagram));
    }

    const support::TempDir directory;
    const std::filesystem::path sys = directory.path();
    support::NotifySocket manager;
    std::vector<std::string> told;
    support::Client client;
    pid_t pid = -1;
    int kernel = -1;
};

// Of the values that are 0, the files are missing, malformed, or hold more than the property does.

TEST_F(Inventoryd, PublishesWhatSysfsShows)
{
    const std::string pci = "bus/pci/devices/0001:a2:1f.3";
    write_lines(pci, "vendor=0x8086; subsystem_vendor=0x1028; subsystem_device=not a number; "
                     "class=0x020001; numa_node=-1; current_link_speed=8.0 GT/s PCIe; "
                     "max_link_speed=16.0 GT/s PCIe; max_link_width=4096");
    // A configuration space whose capability list runs in a circle, behind PCI Express or without.
    std::string configuration(256, '\0');
    configuration[0x06] = 0x10;
    configuration[0x0E] = '\x80';
    configuration[0x34] = 0x40;
    configuration.replace(0x40, 2, "\x05\x50");
    configuration.replace(0x50, 3, "\x10\x40\x42");
    write(pci + "/config", configuration);
    configuration[0x50] = 0x05;
    write("bus/pci/devices/0000:00:00.0/config", configuration);
    write_lines("class/dmi/id",
                "bios_version=2.19.1; bios_date=03/14/2024; bios_vendor=Vendor \xFF Inc.");
    write_lines("bus/usb/devices/1-2.4",
                "idVendor=0fd9; idProduct=12345; version= 3.20; bcdDevice=0x10; bDeviceClass=ef; "
                "bMaxPower=896mA; serial=");
    write_lines("bus/usb/devices/1-2.4:1.0", "bInterfaceClass=08");
    write_lines("bus/usb/devices/usb1", "version=two");
    start();

    constexpr auto address = "_30001_3aa2_3a1f_2e3";
    expect("hwi.HWIStndConfig", address,
           "SegmentNum=u 1; BusNum=u 162; DeviceNum=u 31; FunctionNum=u 3; VendorID=q 32902; "
           "SubVendorID=q 4136; SubDeviceID=q 0; classCode=y 2; progIF=y 1; PCIheaderType=y 128; "
           "cpu_affinity=y 0");
    expect("hwi.HWIPcie", address,
           "CurrentLinkSpeed=u 8000; MaxLinkSpeed=u 16000; SupportedLinkSpeed=y 4; "
           "MaxLinkWidth=y 0; PortType=y 4");
    expect("hwi.HWIPcie", "_30000_3a00_3a00_2e0", "PortType=y 0");
    expect("system.BLT", "",
           "FirmwareVersion=s \"2.19.1\"; Manufacturer=s \"Vendor \uFFFD Inc.\"; "
           "Version=t 563031557865472");
    expect("system.BiosSoftwareInventory", "",
           "CurrentVersionString=s \"2.19.1\"; CurrentReleaseDate=s \"03/14/2024\"");
    expect("system.USB", "_31_2d2_2e4",
           "VendorID=q 4057; ProductID=q 0; USBVersion=q 800; DeviceVersion=q 0; "
           "DeviceClass=y 239; MaxPower=s \"896mA\"");
    expect("system.USB", "usb1", "USBVersion=q 0");
    EXPECT_THAT(client.introspect(at("system.USB")), Not(HasSubstr("_3a"))) << "not a device";
    EXPECT_EQ(stop(), 0);
}

TEST_F(Inventoryd, FollowsNetworkInterfacesWithOneAnnouncementARefresh)
{
    // On a PCI device; one step below one; on another bus; on none.
    const std::string pci = "devices/0001:a2:1f.3";
    write_lines(pci, "numa_node=1; infiniband/rdma0/ports/2/counters/port_rcv_data=10; "
                     "infiniband/rdma0/ports/2/counters/port_xmit_packets=torn");
    link(pci + "/driver", "drivers/nic_driver");
    const std::string eth0 = "class/net/eth0.1";
    link(eth0 + "/device", pci);
    write_lines(
        eth0, "type=1; operstate=up; speed=25000; duplex=full; address=02:00:00:00:00:01; "
              "addr_assign_type=0; dev_port=1; statistics/rx_bytes=18446744073709551615; "
              "statistics/rx_dropped=4294967296; statistics/rx_packets=7; statistics/multicast=3; "
              "brport/designated_bridge=8000.020000000002; brport/designated_port=32769; "
              "brport/bridge/bridge/bridge_id=8000.020000000002");
    write_lines("class/net/eth1",
                "address=02:00:00:00:00:03; addr_assign_type=3; statistics/rx_packets=3; "
                "statistics/multicast=4");
    link("class/net/eth1/device", "devices/0000:00:04.0/virtio1");
    link("class/net/usb0/device", "devices/0000:00:05.0/2-1/2-1:1.0");
    write("class/net/lo/operstate", "");
    write("class/net/bonding_masters", "\n");
    start();

    expect("system.NicController", "", "PortsCount=y 4");
    expect("system.NicPort", "eth0_2e1",
           "FQDD=s \"NIC.eth0.1\"; LinkStatus=y 1; LinkSpeed=y 7; LinkDuplex=y 1; "
           "ReceiveTotalBytes=t 18446744073709551615; ReceiveTotalUnicast=t 4; DiscardedPkts=u 0");
    expect("system.NicPartition", "eth0_2e1",
           "FQDD=s \"NIC.eth0.1-1\"; PermanentMACAddress=s \"02:00:00:00:00:01\"; "
           "VirtualMACAddress=s \"\"; PCIBus=u 162; PCIDevice=u 31; PCIFunction=u 3; "
           "CPUAffinity=q 1; PartitionOSDriverState=y 1; RDMAOSDriver=s \"nic_driver\"; "
           "InfiniBandOSDriver=s \"\"; RDMARxTotalBytes=t 40; RDMATxTotalPackets=t 0");
    expect("system.NicPartition", "eth1",
           "PermanentMACAddress=s \"\"; VirtualMACAddress=s \"02:00:00:00:00:03\"; PCIDevice=u 4; "
           "PartitionOSDriverState=y 0; LanUnicastPktRXCount=t 0; PartitionLinkStatus=y 2");
    expect("system.NicPartition", "usb0", "PCIDevice=u 0");
    expect("system.NicConnectionView", "eth0_2e1", "FQDD=s \"NIC.eth0.1\"; ChassisId=s \"\"");

    const auto port = at("system.NicPort", "eth0_2e1");
    const auto partner = at("system.NicConnectionView", "eth0_2e1");
    client.clear_signals();
    write_lines(
        eth0,
        "operstate=down; statistics/rx_dropped=12; brport/designated_bridge=8000.020000000001");
    client.wait_for([&] { return signals(port, "PropertiesChanged").size() == 2; });
    // The time of a reading changes with each, so a signal without it would be a second one.
    EXPECT_THAT(signals(port, "PropertiesChanged"),
                testing::Each(Field(&support::Signal::changed, Contains(Key("StatisticsTime")))));
    ASSERT_EQ(signals(partner, "PropertiesChanged").size(), 1);
    EXPECT_THAT(signals(partner, "PropertiesChanged")[0].changed,
                testing::UnorderedElementsAre(
                    Pair("ChassisId", "s \"8000.020000000001\""), Pair("ChassisIdSubType", "q 4"),
                    Pair("PortId", "s \"32769\""), Pair("PortIdSubType", "q 7")));
    expect("system.NicPort", "eth0_2e1", "LinkStatus=y 2; DiscardedPkts=u 12");
    EXPECT_EQ(stop(), 0);
}

TEST_F(Inventoryd, FollowsInterfacesThatComeAndGo)
{
    write("class/net/lo/operstate", "up\n");
    start();
    const auto port = at("system.NicPort", "veth0");
    const auto wait_for = [&](const char* member, const support::Object& object, std::size_t count)
    {
        EXPECT_TRUE(client.wait_for([&] { return signals(object, member).size() >= count; }));
        client.settle(service);
        EXPECT_EQ(signals(object, member).size(), count);
    };

    // What isn't well-formed, isn't for us, or tells of an interface that has gone already.
    tell("short");
    tell(number(15, 4) + number(RTM_DELLINK, 12));
    tell(number(64, 4) + number(RTM_DELLINK, 12));
    tell(number(36, 4) + number(RTM_DELLINK, 12) + number(0, 16) + number(7, 2) +
         number(IFLA_IFNAME, 2) + "lo" + '\0');
    tell(RTM_DELLINK, "lo", AF_BRIDGE);
    tell(RTM_NEWLINK, "gone");
    tell(RTM_NEWLINK, std::string(100, 'x'));

    write("class/net/veth0/operstate", "up\n");
    const auto begin = std::chrono::steady_clock::now();
    tell(RTM_NEWLINK, "veth0");
    tell(RTM_NEWLINK, "veth0");
    wait_for("InterfacesAdded", port, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_THAT(signals(port, "InterfacesAdded")[0].body, HasSubstr("\"LinkStatus\": <y 1>"));
    EXPECT_EQ(client.signals("InterfacesAdded").size(), 3);
    expect("system.NicController", "", "PortsCount=y 2");

    // The kernel tells before the directory is gone. Then the path is free again.
    tell(RTM_DELLINK, "veth0");
    wait_for("InterfacesRemoved", port, 1);
    EXPECT_EQ(client.signals("InterfacesRemoved").size(), 3);
    EXPECT_THROW(values("system.NicPort", "veth0"), std::runtime_error);
    tell(RTM_NEWLINK, "veth0");
    wait_for("InterfacesAdded", port, 2);
    wait_for("PropertiesChanged", at("system.NicController"), 3);

    // Messages were lost: of one that went, of another by a name that is known, of a new one.
    std::filesystem::remove_all(sys / "class/net/veth0");
    write("class/net/lo/ifindex", "7\n");
    write("class/net/veth1/operstate", "down\n");
    tell(number(0, 40000));
    wait_for("InterfacesAdded", at("system.NicPort", "veth1"), 1);
    wait_for("InterfacesAdded", at("system.NicPort", "lo"), 1);
    wait_for("InterfacesRemoved", port, 2);
    expect("system.NicController", "", "PortsCount=y 2");
    EXPECT_EQ(stop(), 0);
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

std::string path_node(unsigned int type, unsigned int subtype, const std::string& data)
{
    return number(type, 1) + number(subtype, 1) + number(data.size() + 4, 2) + data;
}

std::string load_option(std::u16string_view description, const std::string& path)
{
    return number(1, 4) + number(path.size(), 2) + utf16(description) + path;
}

TEST_F(Inventoryd, TellsWhatTheMachineBootsWhateverTheFirmwareStored)
{
    const std::string variables = "firmware/efi/efivars/";
    const auto write_variable = [&](const std::string& name, const std::string& value)
    { write(variables + name + "-8be4df61-93ca-11d2-aa0d-00e098032b8c", number(7, 4) + value); };
    write_variable("BootOrder", number(0x001A, 2) + number(0x0003, 2));
    write_variable("BootCurrent", number(0x0003, 2));
    const std::string disk = path_node(4, 1, "\x01\xAB") + path_node(4, 4, utf16(u"\\EFI\\a.efi"));
    const std::string whole =
        load_option(u"Disk \u00E4\u20AC\U0001F600", disk + path_node(0x7F, 0xFF, ""));
    write_variable("Boot0003", whole + "\x01\x02");

    // A surrogate pair torn in two, and paths whose nodes are too short, too long or unended.
    write_variable("Boot001A", load_option(u"a\xD83D"
                                           u"b\xDE00",
                                           std::string("\x04\x04\x03\x00", 4)));
    write_variable("Boot001B", load_option(u"", disk + "\x04\x04\xFF\xFF"));
    write_variable("Boot001C", load_option(u"file", path_node(4, 4, "a")));
    write_variable("Boot001D", number(0, 4) + "\xFF\xFF" + utf16(u"short path"));
    write_variable("Boot001E", "");
    write_variable("BootXYZW", whole);
    write_variable("Boot001f", whole);
    write(variables + "Boot0020-00000000-0000-0000-0000-000000000000", whole);
    write(variables + "Boot", "");
    for (unsigned int length = 0; length < whole.size(); ++length)
    {
        write_variable("Boot" + std::to_string(1000 + length), whole.substr(0, length));
    }
    start();

    constexpr auto device = "system.BootDevice";
    expect(device, "Boot0003",
           "hdr_DOT_objName=s \"Disk \u00E4\u20AC\U0001F600\"; "
           "oBootPath=s \"Path(4,1,01AB)/\\\\EFI\\\\a.efi\"; oBootData=s \"0102\"; UniqueID=u 3; "
           "iCurrentIndex=y 2; iEnabled=y 1");
    expect(device, "Boot001A",
           "hdr_DOT_objName=s \"a\uFFFDb\uFFFD\"; oBootPath=s \"\"; iCurrentIndex=y 1");
    expect(device, "Boot001B",
           "oBootPath=s \"Path(4,1,01AB)/\\\\EFI\\\\a.efi\"; iCurrentIndex=y 0");
    expect(device, "Boot001C", "oBootPath=s \"Path(4,4,61)\"");
    const std::string nodes = client.introspect(at(device));
    std::size_t published = 0;
    for (std::size_t next = 0; (next = nodes.find("<node name=", next)) != std::string::npos;
         ++next)
    {
        ++published;
    }
    EXPECT_EQ(published, 4) << nodes;
    expect("system.BootSequence", "",
           "hdr_DOT_objDependencies=s \"BootDevice.Boot001A,BootDevice.Boot0003\"; "
           "iCurrentIndex=y 2");
    EXPECT_EQ(stop(), 0);
}

TEST_F(Inventoryd, LivesOnAMachineThatShowsNothingAsAServiceManagerExpects)
{
    setenv("WATCHDOG_USEC", "200000", 1);
    start(false);
    unsetenv("WATCHDOG_USEC");
    expect("system.NicController", "", "PortsCount=y 0");
    expect("hwi.HWISupport", "", "isready=b true");
    const auto ready =
        client.call(at("hwi.HWISupport"), "com.orvane.velmar.hwi.HWISupport", "queryIsReady");
    EXPECT_EQ(ready.text, "b true");
    EXPECT_THROW(values("system.BiosSoftwareInventory"), std::runtime_error);
    EXPECT_THROW(values("system.BootSequence"), std::runtime_error);
    EXPECT_TRUE(is_told("WATCHDOG=1", 3));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 100ms) << "not at the next refresh";
    EXPECT_TRUE(is_told("STOPPING=1"));
    EXPECT_EQ(told.front(), "READY=1");
}

} // namespace
