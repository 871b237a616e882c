// The example host on a machine that the test makes up: a small sysfs with one PCI device, two
// network interfaces and firmware, with values missing, malformed and too large among them.
#include "support/client.hpp"
#include "support/temp_dir.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

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

TEST(Inventoryd, LivesOnAMachineThatShowsNothing)
{
    const support::TempDir directory;
    Host host{directory.path()};
    support::Client client;
    client.wait_for([&] { return client.name_has_owner(service); });
    const support::Object controller{service, "/com/orvane/velmar/system/NicController"};
    EXPECT_EQ(client.get(controller, "com.orvane.velmar.system.NicController", "PortsCount").text,
              "y 0");
    EXPECT_EQ(host.stop(), 0);
}

} // namespace
