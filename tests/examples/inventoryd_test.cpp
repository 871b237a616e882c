// The example host on a machine that the test makes up: a small sysfs with one PCI device, two
// network interfaces, a USB device, firmware and what it boots, with values missing, malformed and
// too large among them.
#include "support/client.hpp"
#include "support/temp_dir.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

constexpr auto service = "com.orvane.velmar.inventory";

void write_file(const std::filesystem::path& file, const std::string& text)
{
    std::filesystem::create_directories(file.parent_path());
    // Written beside and moved in, as the host may read at any time.
    const auto fresh = file.parent_path() / ".fresh";
    std::ofstream(fresh, std::ios::binary) << text;
    std::filesystem::rename(fresh, file);
}

class Host
{
  public:
    explicit Host(const std::filesystem::path& sys) : pid(fork())
    {
        if (pid == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execl(INVENTORYD, INVENTORYD, sys.c_str(), nullptr);
            _exit(127);
        }
    }
    ~Host()
    {
        if (pid > 0)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    Host(const Host&) = delete;
    Host(Host&&) = delete;
    Host& operator=(const Host&) = delete;
    Host& operator=(Host&&) = delete;

    /** Sends SIGTERM and gives the exit code, or minus the signal that ended the host. */
    int stop()
    {
        kill(pid, SIGTERM);
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

  private:
    pid_t pid;
};

TEST(Inventoryd, PublishesWhatSysfsShowsAndFollowsIt)
{
    const support::TempDir directory;
    const auto sys = directory.path();

    const auto pci = sys / "bus/pci/devices/0001:a2:1f.3";
    write_file(pci / "vendor", "0x8086\n");
    write_file(pci / "subsystem_vendor", "0x1028\n");
    write_file(pci / "subsystem_device", "not a number\n");
    write_file(pci / "class", "0x020001\n");
    write_file(pci / "numa_node", "-1\n");
    write_file(pci / "current_link_speed", "8.0 GT/s PCIe\n");
    write_file(pci / "max_link_speed", "16.0 GT/s PCIe\n");
    write_file(pci / "max_link_width", "4096\n");
    // A configuration space whose capability list runs in a circle behind PCI Express.
    std::string configuration(256, '\0');
    configuration[0x06] = 0x10;
    configuration[0x0E] = '\x80';
    configuration[0x34] = 0x40;
    configuration[0x40] = 0x05;
    configuration[0x41] = 0x50;
    configuration[0x50] = 0x10;
    configuration[0x51] = 0x40;
    configuration[0x52] = 0x42;
    write_file(pci / "config", configuration);

    const auto up = sys / "class/net/eth0.100";
    write_file(up / "type", "1\n");
    write_file(up / "operstate", "up\n");
    write_file(up / "speed", "25000\n");
    write_file(up / "duplex", "full\n");
    write_file(up / "statistics/rx_bytes", "18446744073709551615\n");
    write_file(up / "statistics/rx_dropped", "4294967296\n");
    write_file(up / "statistics/rx_packets", "7\n");
    write_file(up / "statistics/multicast", "3\n");
    write_file(sys / "class/net/lo/operstate", "");
    write_file(sys / "class/net/bonding_masters", "\n");

    write_file(sys / "class/dmi/id/bios_version", "2.19.1\n");
    write_file(sys / "class/dmi/id/bios_vendor", "Vendor \xFF Inc.\n");

    Host host{sys};
    support::Client client;
    client.subscribe();
    client.wait_for([&] { return client.name_has_owner(service); });

    const support::Object device{service,
                                 "/com/orvane/velmar/hwi/HWIStndConfig/_30001_3aa2_3a1f_2e3"};
    auto values = client.get_all(device, "com.orvane.velmar.hwi.HWIStndConfig");
    EXPECT_EQ(values["SegmentNum"], "u 1");
    EXPECT_EQ(values["BusNum"], "u 162");
    EXPECT_EQ(values["DeviceNum"], "u 31");
    EXPECT_EQ(values["FunctionNum"], "u 3");
    EXPECT_EQ(values["VendorID"], "q 32902");
    EXPECT_EQ(values["SubVendorID"], "q 4136");
    EXPECT_EQ(values["SubDeviceID"], "q 0") << "not a number";
    EXPECT_EQ(values["classCode"], "y 2");
    EXPECT_EQ(values["progIF"], "y 1");
    EXPECT_EQ(values["PCIheaderType"], "y 128");
    EXPECT_EQ(values["cpu_affinity"], "y 0") << "no node";

    const support::Object link{service, "/com/orvane/velmar/hwi/HWIPcie/_30001_3aa2_3a1f_2e3"};
    values = client.get_all(link, "com.orvane.velmar.hwi.HWIPcie");
    EXPECT_EQ(values["CurrentLinkSpeed"], "u 8000");
    EXPECT_EQ(values["MaxLinkSpeed"], "u 16000");
    EXPECT_EQ(values["SupportedLinkSpeed"], "y 4");
    EXPECT_EQ(values["MaxLinkWidth"], "y 0") << "more than a byte holds";
    EXPECT_EQ(values["PortType"], "y 4");

    const support::Object firmware{service, "/com/orvane/velmar/system/BLT"};
    values = client.get_all(firmware, "com.orvane.velmar.system.BLT");
    EXPECT_EQ(values["FirmwareVersion"], "s \"2.19.1\"");
    EXPECT_EQ(values["Manufacturer"], "s \"Vendor \xEF\xBF\xBD Inc.\"");
    EXPECT_EQ(values["Version"], "t " + std::to_string(0x0002'0013'0001'0000));

    const support::Object controller{service, "/com/orvane/velmar/system/NicController"};
    EXPECT_EQ(client.get(controller, "com.orvane.velmar.system.NicController", "PortsCount").text,
              "y 2");

    const support::Object port{service, "/com/orvane/velmar/system/NicPort/eth0_2e100"};
    values = client.get_all(port, "com.orvane.velmar.system.NicPort");
    EXPECT_EQ(values["FQDD"], "s \"NIC.eth0.100\"");
    EXPECT_EQ(values["LinkStatus"], "y 1");
    EXPECT_EQ(values["LinkSpeed"], "y 7");
    EXPECT_EQ(values["LinkDuplex"], "y 1");
    EXPECT_EQ(values["ReceiveTotalBytes"], "t 18446744073709551615");
    EXPECT_EQ(values["ReceiveTotalUnicast"], "t 4");
    EXPECT_EQ(values["DiscardedPkts"], "u 0") << "more than 32 bits hold";

    // The machine changes, and the host announces it within its refresh interval.
    write_file(up / "operstate", "down\n");
    write_file(up / "statistics/rx_dropped", "12\n");
    std::string status;
    std::string dropped;
    client.wait_for(
        [&]
        {
            for (const auto& signal : client.signals("PropertiesChanged"))
            {
                if (signal.path != port.path)
                {
                    continue;
                }
                for (const auto& [name, value] : signal.changed)
                {
                    if (name == "LinkStatus")
                    {
                        status = value;
                    }
                    else if (name == "DiscardedPkts")
                    {
                        dropped = value;
                    }
                }
            }
            return !status.empty() && !dropped.empty();
        });
    EXPECT_EQ(status, "y 2");
    EXPECT_EQ(dropped, "u 12");

    EXPECT_EQ(host.stop(), 0);
    client.wait_for([&] { return !client.name_has_owner(service); });
}

TEST(Inventoryd, FollowsThePartitionsAndPartnersOfNetworkInterfaces)
{
    const support::TempDir directory;
    const auto sys = directory.path();

    // On a PCI device; one step below one; on another bus.
    const auto pci = sys / "devices/0001:a2:1f.3";
    const auto counters = pci / "infiniband/rdma0/ports/2/counters";
    write_file(pci / "numa_node", "1\n");
    write_file(counters / "port_rcv_data", "10\n");
    write_file(counters / "port_xmit_packets", "torn");
    std::filesystem::create_symlink("/drivers/nic_driver", pci / "driver");
    const auto eth0 = sys / "class/net/eth0";
    write_file(eth0 / "address", "02:00:00:00:00:01\n");
    write_file(eth0 / "addr_assign_type", "0\n");
    write_file(eth0 / "dev_port", "1\n");
    write_file(eth0 / "statistics/rx_packets", "3\n");
    write_file(eth0 / "statistics/multicast", "4\n");
    write_file(eth0 / "statistics/tx_bytes", "77\n");
    std::filesystem::create_symlink(pci, eth0 / "device");
    write_file(eth0 / "brport/designated_bridge", "8000.020000000002\n");
    write_file(eth0 / "brport/designated_port", "32769\n");
    write_file(eth0 / "brport/bridge/bridge/bridge_id", "8000.020000000002\n");

    const auto eth1 = sys / "class/net/eth1";
    write_file(eth1 / "address", "02:00:00:00:00:03\n");
    write_file(eth1 / "addr_assign_type", "3\n");
    std::filesystem::create_directories(sys / "devices/0000:00:04.0/virtio1");
    std::filesystem::create_symlink(sys / "devices/0000:00:04.0/virtio1", eth1 / "device");
    const auto usb = sys / "class/net/usb0";
    write_file(usb / "addr_assign_type", "0\n");
    std::filesystem::create_directories(sys / "devices/0000:00:05.0/2-1/2-1:1.0");
    std::filesystem::create_symlink(sys / "devices/0000:00:05.0/2-1/2-1:1.0", usb / "device");

    Host host{sys};
    support::Client client;
    client.subscribe();
    client.wait_for([&] { return client.name_has_owner(service); });

    constexpr auto partition = "com.orvane.velmar.system.NicPartition";
    const support::Object first{service, "/com/orvane/velmar/system/NicPartition/eth0"};
    auto values = client.get_all(first, partition);
    EXPECT_EQ(values["FQDD"], "s \"NIC.eth0-1\"");
    EXPECT_EQ(values["PermanentMACAddress"], "s \"02:00:00:00:00:01\"");
    EXPECT_EQ(values["VirtualMACAddress"], "s \"\"");
    EXPECT_EQ(values["PCIBus"], "u 162");
    EXPECT_EQ(values["PCIDevice"], "u 31");
    EXPECT_EQ(values["PCIFunction"], "u 3");
    EXPECT_EQ(values["CPUAffinity"], "q 1");
    EXPECT_EQ(values["PartitionOSDriverState"], "y 1");
    EXPECT_EQ(values["RDMAOSDriver"], "s \"nic_driver\"");
    EXPECT_EQ(values["InfiniBandOSDriver"], "s \"\"") << "ethernet";
    EXPECT_EQ(values["RDMARxTotalBytes"], "t 40");
    EXPECT_EQ(values["RDMATxTotalPackets"], "t 0") << "torn";
    EXPECT_EQ(values["LanBytesTxCount"], "t 77");
    EXPECT_EQ(values["LanUnicastPktRXCount"], "t 0") << "fewer packets than multicast ones";
    EXPECT_EQ(values["PartitionLinkStatus"], "y 2") << "the initial value";

    values = client.get_all({service, "/com/orvane/velmar/system/NicPartition/eth1"}, partition);
    EXPECT_EQ(values["PermanentMACAddress"], "s \"\"");
    EXPECT_EQ(values["VirtualMACAddress"], "s \"02:00:00:00:00:03\"");
    EXPECT_EQ(values["PCIDevice"], "u 4");
    values = client.get_all({service, "/com/orvane/velmar/system/NicPartition/usb0"}, partition);
    EXPECT_EQ(values["PermanentMACAddress"], "s \"\"") << "no address";
    EXPECT_EQ(values["PCIDevice"], "u 0") << "its host controller's location isn't its own";
    EXPECT_EQ(values["PartitionOSDriverState"], "y 0");

    constexpr auto view = "com.orvane.velmar.system.NicConnectionView";
    const support::Object partner{service, "/com/orvane/velmar/system/NicConnectionView/eth0"};
    values = client.get_all(partner, view);
    EXPECT_EQ(values["FQDD"], "s \"NIC.eth0\"");
    EXPECT_EQ(values["ChassisId"], "s \"\"") << "our own bridge";

    write_file(eth0 / "brport/designated_bridge", "8000.020000000001\n");
    write_file(eth0 / "statistics/rx_packets", "9\n");
    std::map<std::string, std::string> changed;
    client.wait_for(
        [&]
        {
            for (const auto& signal : client.signals("PropertiesChanged"))
            {
                if (signal.path == first.path || signal.path == partner.path)
                {
                    changed.insert(signal.changed.begin(), signal.changed.end());
                }
            }
            return changed.contains("ChassisId") && changed.contains("LanUnicastPktRXCount") &&
                   changed.contains("PortIdSubType");
        });
    EXPECT_EQ(changed["ChassisId"], "s \"8000.020000000001\"");
    EXPECT_EQ(changed["PortId"], "s \"32769\"");
    EXPECT_EQ(changed["LanUnicastPktRXCount"], "t 5");
    EXPECT_EQ(host.stop(), 0);
}

// The number in as many bytes, the lowest first.
std::string little_endian(unsigned int number, int width)
{
    std::string bytes;
    for (int index = 0; index < width; ++index)
    {
        bytes += static_cast<char>(number >> 8 * index);
    }
    return bytes;
}

std::string utf16(std::u16string_view text)
{
    std::string bytes;
    for (const char16_t unit : text)
    {
        bytes += little_endian(unit, 2);
    }
    return bytes + little_endian(0, 2);
}

std::string path_node(unsigned int type, unsigned int subtype, const std::string& data)
{
    return little_endian(type, 1) + little_endian(subtype, 1) +
           little_endian(static_cast<unsigned int>(data.size()) + 4, 2) + data;
}

std::string load_option(std::u16string_view description, const std::string& path)
{
    return little_endian(1, 4) + little_endian(static_cast<unsigned int>(path.size()), 2) +
           utf16(description) + path;
}

TEST(Inventoryd, TellsWhatTheMachineBootsWhateverTheFirmwareStored)
{
    const support::TempDir directory;
    const auto sys = directory.path();
    const auto write_variable = [&](const std::string& name, const std::string& value)
    {
        write_file(sys / "firmware/efi/efivars" / (name + "-8be4df61-93ca-11d2-aa0d-00e098032b8c"),
                   little_endian(7, 4) + value);
    };
    write_variable("BootOrder", little_endian(0x001A, 2) + little_endian(0x0003, 2));
    write_variable("BootCurrent", little_endian(0x0003, 2));
    const std::string disk = path_node(4, 1, "\x01\xAB") + path_node(4, 4, utf16(u"\\EFI\\a.efi"));
    const std::string end = path_node(0x7F, 0xFF, "");
    const std::string whole = load_option(u"Disk \u00E4\u20AC\U0001F600", disk + end);
    write_variable("Boot0003", whole + "\x01\x02");

    // A surrogate pair torn in two, and paths whose nodes are too short, too long or unended.
    write_variable("Boot001A", load_option(u"a\xD83D"
                                           u"b\xDE00",
                                           std::string("\x04\x04\x03\x00", 4)));
    write_variable("Boot001B", load_option(u"", disk + "\x04\x04\xFF\xFF"));
    write_variable("Boot001C", load_option(u"file", path_node(4, 4, "a")));
    write_variable("Boot001D", little_endian(0, 4) + "\xFF\xFF" + utf16(u"short path"));
    write_variable("Boot001E", "");
    write_variable("BootXYZW", whole);
    write_variable("Boot001f", whole);
    write_file(sys / "firmware/efi/efivars/Boot0020-00000000-0000-0000-0000-000000000000", whole);
    write_file(sys / "firmware/efi/efivars/Boot", "");
    for (unsigned int length = 0; length < whole.size(); ++length)
    {
        write_variable("Boot" + std::to_string(1000 + length), whole.substr(0, length));
    }

    write_file(sys / "class/dmi/id/bios_version", "2.19.1\n");
    write_file(sys / "class/dmi/id/bios_date", "03/14/2024\n");

    const auto stick = sys / "bus/usb/devices/1-2.4";
    write_file(stick / "idVendor", "0fd9\n");
    write_file(stick / "idProduct", "12345\n");
    write_file(stick / "version", " 3.20\n");
    write_file(stick / "bcdDevice", "0x10\n");
    write_file(stick / "bDeviceClass", "ef\n");
    write_file(stick / "bMaxPower", "896mA\n");
    write_file(stick / "serial", "\n");
    write_file(sys / "bus/usb/devices/1-2.4:1.0/bInterfaceClass", "08\n");
    write_file(sys / "bus/usb/devices/usb1/version", "two\n");

    Host host{sys};
    support::Client client;
    client.wait_for([&] { return client.name_has_owner(service); });

    constexpr auto device = "com.orvane.velmar.system.BootDevice";
    const auto boot = [&](const std::string& name) {
        return client.get_all({service, "/com/orvane/velmar/system/BootDevice/" + name}, device);
    };
    auto values = boot("Boot0003");
    EXPECT_EQ(values["hdr_DOT_objName"], "s \"Disk \u00E4\u20AC\U0001F600\"");
    EXPECT_EQ(values["oBootPath"], R"(s "Path(4,1,01AB)/\\EFI\\a.efi")");
    EXPECT_EQ(values["oBootData"], "s \"0102\"");
    EXPECT_EQ(values["UniqueID"], "u 3");
    EXPECT_EQ(values["iCurrentIndex"], "y 2");
    EXPECT_EQ(values["iEnabled"], "y 1");
    values = boot("Boot001A");
    EXPECT_EQ(values["hdr_DOT_objName"], "s \"a\uFFFDb\uFFFD\"");
    EXPECT_EQ(values["oBootPath"], "s \"\"");
    EXPECT_EQ(values["iCurrentIndex"], "y 1");
    values = boot("Boot001B");
    EXPECT_EQ(values["oBootPath"], R"(s "Path(4,1,01AB)/\\EFI\\a.efi")");
    EXPECT_EQ(values["iCurrentIndex"], "y 0") << "not in the order";
    EXPECT_EQ(boot("Boot001C")["oBootPath"], "s \"Path(4,4,61)\"");

    std::vector<std::string> published;
    const std::string nodes = client.introspect({service, "/com/orvane/velmar/system/BootDevice"});
    for (std::size_t at = 0; (at = nodes.find("<node name=\"", at)) != std::string::npos; ++at)
    {
        published.push_back(nodes.substr(at + 12, 8));
    }
    EXPECT_THAT(published,
                testing::UnorderedElementsAre("Boot0003", "Boot001A", "Boot001B", "Boot001C"));

    values = client.get_all({service, "/com/orvane/velmar/system/BootSequence"},
                            "com.orvane.velmar.system.BootSequence");
    EXPECT_EQ(values["hdr_DOT_objDependencies"], "s \"BootDevice.Boot001A,BootDevice.Boot0003\"");
    EXPECT_EQ(values["iCurrentIndex"], "y 2");

    values = client.get_all({service, "/com/orvane/velmar/system/BiosSoftwareInventory"},
                            "com.orvane.velmar.system.BiosSoftwareInventory");
    EXPECT_EQ(values["CurrentVersionString"], "s \"2.19.1\"");
    EXPECT_EQ(values["CurrentReleaseDate"], "s \"03/14/2024\"");

    constexpr auto usb = "com.orvane.velmar.system.USB";
    values = client.get_all({service, "/com/orvane/velmar/system/USB/_31_2d2_2e4"}, usb);
    EXPECT_EQ(values["VendorID"], "q 4057");
    EXPECT_EQ(values["ProductID"], "q 0") << "more than 16 bits hold";
    EXPECT_EQ(values["USBVersion"], "q 800");
    EXPECT_EQ(values["DeviceVersion"], "q 0") << "not digits alone";
    EXPECT_EQ(values["DeviceClass"], "y 239");
    EXPECT_EQ(values["MaxPower"], "s \"896mA\"");
    values = client.get_all({service, "/com/orvane/velmar/system/USB/usb1"}, usb);
    EXPECT_EQ(values["USBVersion"], "q 0");
    EXPECT_EQ(client.introspect({service, "/com/orvane/velmar/system/USB"}).find("_3a"),
              std::string::npos)
        << "an interface isn't a device";

    EXPECT_EQ(host.stop(), 0);
}

TEST(Inventoryd, LivesOnAMachineThatShowsNothing)
{
    const support::TempDir directory;
    Host host{directory.path()};
    support::Client client;
    client.wait_for([&] { return client.name_has_owner(service); });
    const support::Object controller{service, "/com/orvane/velmar/system/NicController"};
    EXPECT_EQ(client.get(controller, "com.orvane.velmar.system.NicController", "PortsCount").text,
              "y 0");
    const support::Object inventory{service, "/com/orvane/velmar/hwi/HWISupport"};
    constexpr auto readiness = "com.orvane.velmar.hwi.HWISupport";
    EXPECT_EQ(client.get(inventory, readiness, "isready").text, "b true");
    EXPECT_EQ(client.call(inventory, readiness, "queryIsReady").text, "b true");
    for (const std::string name : {"BiosSoftwareInventory", "BootSequence"})
    {
        EXPECT_EQ(client
                      .get({service, "/com/orvane/velmar/system/" + name},
                           ("com.orvane.velmar.system." + name).c_str(), "FQDD")
                      .state,
                  support::Reply::State::error)
            << name;
    }
    EXPECT_EQ(host.stop(), 0);
}

} // namespace
