// The daemon on records of machines that don't exist (records/make), whole and with values that are
// missing, malformed and too large. What takes a living kernel is in hotplug.
#include "support/client.hpp"
#include "support/notify_socket.hpp"
#include "support/private_bus.hpp"
#include "support/program.hpp"
#include "support/temp_dir.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <iostream>
#include <regex>
#include <set>
#include <sstream>

#include <gmock/gmock.h>

namespace
{

using namespace std::string_literals;
using support::Object;
using support::Properties;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string root = "/com/orvane/velmar";
const std::string global = "-8be4df61-93ca-11d2-aa0d-00e098032b8c";
const std::string card = "devices/pci0000:3a/0000:3a:00.0/0000:3b:00.0";

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

std::string content(const std::filesystem::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Of "name=value; name=value", in which ' stands for ".
Properties values(std::string text)
{
    Properties found;
    std::ranges::replace(text, '\'', '"');
    std::istringstream rest(text);
    for (std::string name; getline(rest >> std::ws, name, '=') && getline(rest, found[name], ';');)
    {
    }
    return found;
}

// The object of "group.Interface" or "group.Interface/name".
Object at(const std::string& name)
{
    auto parent = root + '/' + name.substr(0, name.find('/'));
    std::ranges::replace(parent, '.', '/');
    char* path = nullptr;
    if (name.find('/') != std::string::npos)
    {
        support::check(
            sd_bus_path_encode(parent.c_str(), name.c_str() + name.find('/') + 1, &path));
        parent = path;
    }
    free(path);
    return {"com.orvane.velmar.inventory", parent};
}

struct Inventoryd : testing::Test
{
    ~Inventoryd() override
    {
        // One that hangs may not heed SIGTERM.
        EXPECT_TRUE(!host || host->stop(HasFailure() ? SIGKILL : SIGTERM) == 0);
    }

    // Makes a record, below which the functions below write.
    void make(const std::string& name)
    {
        const auto order = std::endian::native == std::endian::big ? "big " : "little ";
        const auto command = RECORDS "/make " + directory.path.string() + ' ' + order + name;
        ASSERT_EQ(std::system(command.c_str()), 0);
        sys = directory.path / name;
    }

    void write(const std::string& name, const std::string& content) const
    {
        create_directories((sys / name).parent_path());
        std::filesystem::remove(sys / name);
        std::ofstream(sys / name, std::ios::binary) << content;
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

    void variable(const std::string& name, const std::string& value) const
    {
        write("firmware/efi/efivars/" + name + global, number(7, 4) + value);
    }

    // What it logs is in `log`.
    auto run(std::vector<const char*> arguments)
    {
        arguments.insert(arguments.begin(), INVENTORYD);
        return std::make_unique<support::Program>(
            arguments, [this] { (void)freopen((directory.path / "log").c_str(), "w", stderr); });
    }

    std::string log() const
    {
        return content(directory.path / "log");
    }

    void start(std::vector<const char*> arguments = {})
    {
        client.subscribe();
        arguments.insert(arguments.end(), {"--root", sys.c_str()});
        const auto before = std::ranges::count(manager.received(), "READY=1");
        host.reset();
        host = run(arguments);
        EXPECT_TRUE(client.wait_for(
            [&] { return std::ranges::count(manager.received(), "READY=1") > before; }));
    }

    // Has all read again, and waits until that is done: it takes up a new object at the latest.
    void reload()
    {
        client.settle(at("x").service);
        client.signals().clear();
        const auto path = at("system.USB/9-" + std::to_string(++reloads)).path;
        write_lines("bus/usb/devices/9-" + std::to_string(reloads), "product=mark");
        kill(host->pid(), SIGHUP);
        const auto is_mark = [&](const auto& signal)
        { return signal.path == path && signal.member == "InterfacesAdded"; };
        EXPECT_TRUE(
            client.wait_for([&] { return std::ranges::any_of(client.signals(), is_mark); }));
        client.settle(at("x").service);
        std::erase_if(client.signals(), is_mark);
    }

    void expect(const std::string& name, const std::string& expected)
    {
        const auto interface = "com.orvane.velmar." + name.substr(0, name.find('/'));
        EXPECT_THAT(client.get_all(at(name), interface.c_str()),
                    testing::IsSupersetOf(values(expected)))
            << name;
    }

    // All objects and their properties.
    std::string everything()
    {
        return client
            .call({at("x").service, root}, "org.freedesktop.DBus.ObjectManager",
                  "GetManagedObjects")
            .text;
    }

    // The names of an interface's objects.
    std::vector<std::string> names(const std::string& interface)
    {
        std::vector<std::string> found;
        const auto xml = client.introspect(at(interface));
        const std::regex node("<node name=\"([^\"]*)");
        for (std::sregex_iterator at_node(xml.begin(), xml.end(), node), end; at_node != end;
             ++at_node)
        {
            char* name = nullptr;
            sd_bus_path_decode(("/" + at_node->str(1)).c_str(), "/", &name);
            found.emplace_back(name);
            free(name);
        }
        return found;
    }

    auto sent(const char* member)
    {
        std::multiset<std::string> paths;
        for (const auto& signal : client.signals())
        {
            if (signal.member == member)
            {
                paths.insert(signal.path.substr(root.size()));
            }
        }
        return paths;
    }

    const support::TempDir directory;
    std::filesystem::path sys;
    support::NotifySocket manager;
    support::Client client;
    std::unique_ptr<support::Program> host;
    int reloads = 0;
};

// What only root may read in the records has "secret" in it; the first PCI device's serial number
// is 0x0102030405060708, and the USB device's, which all may read, 000001.
TEST_F(Inventoryd, WhatOnlyRootMayReadIsPublishedAndRecordedOnDemandAlone)
{
    make("server");
    const auto secret = testing::AnyOf(HasSubstr("secret"), HasSubstr("01-02-03-04"));
    start();
    EXPECT_THAT(everything(), Not(secret));
    expect("system.USB/1-2", "SerialNumber=s '000001'");
    start({"--publish-serials"});
    EXPECT_THAT(everything(),
                testing::AllOf(HasSubstr("secret-product_uuid"), HasSubstr("secret-board_serial"),
                               HasSubstr("01-02-03-04-05-06-07-08"), HasSubstr("secret-vpd")));
    // All but the times, which are when it was read.
    const std::regex times("Time\": <[a-z] [0-9]+");
    const auto published = regex_replace(everything(), times, "");
    const auto place = directory.path / "record";
    EXPECT_EQ(run({"--root", sys.c_str(), "--record", place.c_str()})->stop(0), 0);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(place))
    {
        const auto text = entry.is_regular_file() ? content(entry.path()) : "";
        for (const char* each : {"secret", "000001", "\x08\x07\x06\x05\x04\x03\x02\x01"})
        {
            EXPECT_EQ(text.find(each), text.npos) << entry.path();
        }
    }
    // With its secrets the record is published as the record that it was made of.
    const auto whole = directory.path / "whole";
    EXPECT_EQ(run({"--publish-serials", "--root", sys.c_str(), "--record", whole.c_str()})->stop(0),
              0);
    remove_all(std::exchange(sys, whole));
    start({"--publish-serials"});
    EXPECT_EQ(published, regex_replace(everything(), times, ""));
}

TEST_F(Inventoryd, ACardIsOneSlotWhoseFunctionsAreItsPartitions)
{
    make("server");
    // Beside the card with two ports and four virtual functions: one interface of an HCA.
    const auto hca = "devices/pci0000:3a/0000:3a:00.0/0000:5e:00.0"s;
    link("bus/pci/devices/0000:5e:00.0", hca);
    link("class/net/ib0", hca + "/net/ib0");
    write_lines(hca, "class=0x020700; net/ib0/type=32");
    start();
    const std::vector<std::string> cards{"0000:00:1f", "0000:3b:00", "0000:af:00", "USB.1-2"};
    EXPECT_THAT(names("system.NicSlot"), testing::UnorderedElementsAreArray(cards));
    EXPECT_THAT(names("system.NicController"), testing::UnorderedElementsAreArray(cards));
    const std::vector<std::string> ports{"0000:00:1f-7", "0000:3b:00-1", "0000:3b:00-2",
                                         "0000:af:00-1", "USB.1-2-1"};
    EXPECT_THAT(names("system.NicPort"), testing::UnorderedElementsAreArray(ports));
    expect("system.NicPartition/0000:3b:00-1-1",
           "NumberPCIEFunctionsEnabled=q 5; NumberPCIEFunctionsSupported=q 129; "
           "FQDD=s 'NIC.0000:3b:00-1-1'; PCIBus=u 59; RDMATxTotalWritePkts=t 17; "
           "RDMARxTotalBytes=t 52; LanBroadcastPktRxCount=u 19000; "
           "PermanentMACAddress=s '02:00:00:00:01:77'; VirtualMACAddress=s '02:00:00:00:01:00'; "
           "RDMAOSDriver=s 'driver'");
    expect("system.NicSlot/0000:3b:00",
           "FQDD=s 'NIC.0000:3b:00'; BSInfo_Bus=y 59; FamilyVersion=s '22.31.1014'; "
           "DeviceID=s '0x1015'; ControllerBIOSVersion=s '14.1'; DataBusWidth=s 'x8'; "
           "SerialNumber=s ''");
    expect("system.NicConnectionView/0000:3b:00-1",
           "ChassisIdSubType=q 4; SystemName=s 'switch'; PortId=s ''");
    expect("system.NicSlot/USB.1-2", "ProductName=s 'Adapter'; BSInfo_VendorID=q 3034");

    // 128 virtual functions are PCI devices, and nothing else.
    host.reset();
    make("functions");
    start();
    EXPECT_EQ(names("system.NicSlot").size(), 4);
    EXPECT_EQ(names("hwi.HWIStndConfig").size(), 141);
    expect("system.NicPartition/0000:3b:00-1-1", "NumberPCIEFunctionsEnabled=q 129");
}

TEST_F(Inventoryd, FunctionsOfOnePhysicalPortAreItsPartitionsAndMorePortsThanAByteAreTold)
{
    make("nothing");
    const auto interface = [&](int index, const std::string& function, const std::string& files)
    {
        const auto name = "1-" + std::to_string(index); // as a USB device may be called
        link("class/net/" + name, "devices/pci0000:00/" + function + "/net/" + name);
        write_lines("class/net/" + name, files);
    };
    for (int i = 0; i < 300; ++i)
    {
        interface(10 + i, "0000:02:00.0", "dev_port=" + std::to_string(i));
        const char* port = i % 2 == 0 ? "phys_port_id=aa" : "phys_port_id=bb";
        if (i < 4)
        {
            interface(i, "0000:01:00." + std::to_string(i), port);
        }
    }
    start();
    expect("system.NicController/0000:01:00", "PortsCount=y 2");
    expect("system.NicPort/0000:01:00-2",
           "PartitionCount=y 2; NicPartitioningSupport=y 1; FQDD=s 'NIC.0000:01:00-2'");
    expect("system.NicPartition/0000:01:00-2-2", "PCIFunction=u 3");
    expect("system.NicController/0000:02:00", "PortsCount=y 255");
    EXPECT_EQ(names("system.NicPort").size(), 302);
    reload();
    EXPECT_THAT(log(), testing::ContainsRegex("NIC.0000:02:00 has 300 ports"));
    EXPECT_EQ(log().find("300 ports"), log().rfind("300 ports"));
}

TEST_F(Inventoryd, ReadingAllAgainTellsWhatCameWentAndChangedOnce)
{
    make("server");
    start();
    reload();
    EXPECT_EQ(sent("HardwareInventoryChanged").size(), 1);
    EXPECT_THAT(sent("PropertiesChanged"), ElementsAre());
    EXPECT_THAT(sent("InterfacesRemoved"), ElementsAre());

    // A renamed interface keeps its objects.
    rename(sys / card / "net/ens3f0np0", sys / card / "net/lan0");
    std::filesystem::remove(sys / "class/net/ens3f0np0");
    create_symlink("../../" + card + "/net/lan0", sys / "class/net/lan0");
    // Another number of virtual functions, and another entry for the next start.
    write_lines(card, "sriov_numvfs=2");
    variable("BootNext", number(0x1A, 2));
    reload();
    EXPECT_THAT(sent("PropertiesChanged"),
                ElementsAre("/system/BootDevice/Boot0003", "/system/BootDevice/Boot001A",
                            at("system.NicPartition/0000:3b:00-1-1").path.substr(root.size())));
    EXPECT_THAT(sent("InterfacesRemoved"), ElementsAre());

    // The card is pulled: each of its objects is gone, from its own path and from the root's.
    const auto function = "devices/pci0000:3a/0000:3a:00.0/0000:3b:00."s;
    for (const auto& each :
         {function + "0", function + "1", "bus/pci/devices/0000:3b:00.0"s,
          "bus/pci/devices/0000:3b:00.1"s, "class/net/lan0"s, "class/net/ens3f1np1"s})
    {
        remove_all(sys / each);
    }
    reload();
    EXPECT_EQ(sent("InterfacesRemoved").size(), 2 * (2 * 2 + 2 + 2 * 4));
    EXPECT_THAT(sent("Refresh"), ElementsAre("/HWInventory"));
    EXPECT_THAT(sent("HardwareInventoryChanged"), ElementsAre("/hwi/HWISupport"));
    EXPECT_THAT(names("system.NicSlot"),
                testing::UnorderedElementsAre("0000:00:1f", "0000:af:00", "USB.1-2"));
    for (const char* method : {"GetDMStatus", "GetPopStatus"})
    {
        EXPECT_EQ(client.call(at("HWInventory"), "com.orvane.velmar.HWInventory", method).text,
                  "i 0");
    }
}

TEST_F(Inventoryd, UnknownZeroAndOffAreToldApart)
{
    make("server");
    start();
    expect("hwi.HWIStndConfig/0000:00:00.0", "cpu_affinity=y 255; DeviceType=y 1");
    expect("hwi.HWIStndConfig/0000:3b:00.0",
           "cpu_affinity=y 0; DeviceType=y 2; SlotString=s ''; Manufacturer=s 'Maker'");
    expect("system.NicSlot/0000:3b:00", "CPUAffinity=q 0; IsCoreDumpSupported=b true");
    expect("system.NicSlot/USB.1-2", "CPUAffinity=q 65535; IsCoreDumpSupported=b false");
    // By devlink's health reporters: one without dumps, and one of two.
    expect("system.NicSlot/0000:00:1f", "IsCoreDumpSupported=b false");
    expect("system.NicSlot/0000:af:00", "IsCoreDumpSupported=b true");
    EXPECT_THAT(names("hwi.HWIPcie"), Not(testing::Contains("0000:00:1f.6")));
    expect("hwi.HWIPcie/0000:3b:00.0", "PortType=y 1; CurrentLinkSpeed=u 8000");
    // Fibre and copper; on, off, and without an answer.
    expect("system.NicPort/0000:3b:00-1",
           "MediaType=q 4; LinkSpeed=y 7; LinkStatus=y 1; RDMASupport=y 1; "
           "OnChipThermalSensor=y 1; VFSRIOVSupport=y 1; WOLSupport=y 1; "
           "EnergyEfficientEthernet=y 1; FCoEOffloadSupport=y 2; PXEBootSupport=y 1; "
           "ReceiveFlowControl=y 1; TransmitFlowControl=y 2; RXFlowControl=y 1; TXFlowControl=y 1; "
           "ReceiveTotalUnicast=t 63000; NicPartitioningSupport=y 0; DiscardedPkts=u 2021");
    expect("system.NicPort/0000:00:1f-7",
           "MediaType=q 1; LinkSpeed=y 3; LinkStatus=y 2; RDMASupport=y 2; "
           "OnChipThermalSensor=y 2; VFSRIOVSupport=y 2");
    expect("system.NicPort/USB.1-2-1",
           "MediaType=q 0; LinkSpeed=y 255; LinkDuplex=y 0; AutoNegotiation=y 0; WOLSupport=y 0; "
           "VFSRIOVSupport=y 0; FCoEOffloadSupport=y 0");
    expect("system.BLT", "FirmwareVersion=s 'V2.19.1'; Version=t 563031557865472");
}

TEST_F(Inventoryd, AMalformedValueCostsItsPropertyAlone)
{
    make("nothing");
    const std::string pci = "bus/pci/devices/0001:a2:1f.3";
    write_lines(pci, "vendor=0x8086; class=0x020001; subsystem_device=none; "
                     "subsystem_vendor=0x10281; current_link_speed=8.0 GT/s PCIe");
    // A capability list that runs in a circle, behind PCI Express or without.
    const auto configuration = [](char capability)
    {
        return number(0, 6) + number(0x10, 8) + '\x80' + number(0, 0x25) + number(0x40, 12) +
               "\x05\x50" + number(0, 14) + capability + "\x40\x42" + number(0, 173);
    };
    write(pci + "/config", configuration(0x10));
    write("bus/pci/devices/0000:00:00.0/config", configuration(0x05));
    // Items and fields of VPD that end behind their bytes.
    write(pci + "/vpd", "\x82\x04\0name\x90\x09\0PN\x02P7SN\x09"s + "7");
    write_lines("class/dmi/id", "bios_version=V2.19.1; bios_vendor=Vendor \xFF Inc.; board_name=; "
                                "board_vendor=A");
    write_lines("bus/usb/devices",
                "1-2.4/idProduct=12345; 1-2.4/version= 3.20; 1-2.4:1.0/version=1; "
                "usb1/version=two");
    // A FIFO would keep a reader waiting.
    ASSERT_EQ(mkfifo((sys / pci / "numa_node").c_str(), 0666), 0);
    write("firmware/dmi/entries/9-0/raw", "\x09\x11");
    start({"--publish-serials"});

    expect("hwi.HWIStndConfig/0001:a2:1f.3",
           "SegmentNum=u 1; BusNum=u 162; VendorID=q 32902; SubVendorID=q 0; SubDeviceID=q 0; "
           "progIF=y 1; PCIheaderType=y 128; cpu_affinity=y 255");
    expect("hwi.HWIPcie/0001:a2:1f.3", "CurrentLinkSpeed=u 8000; PortType=y 5");
    EXPECT_THAT(names("hwi.HWIPcie"), ElementsAre("0001:a2:1f.3"));
    expect("system.BLT", "Manufacturer=s 'Vendor \uFFFD Inc.'");
    expect("system.NicSlot/0001:a2:1f",
           "MarketingName=s 'name'; PartNumber=s 'P7'; SerialNumber=s ''; BSInfo_Function=y 3; "
           "ControllerCount=y 1");
    expect("system.NicController/0001:a2:1f", "PortsCount=y 0");
    expect("hwi.HWIOemFruCustomData",
           "BoardCustomData=as ['board_vendor=A']; ChassisCustomData=as []");
    expect("system.USB/1-2.4", "ProductID=q 0; USBVersion=q 800");
    expect("system.USB/usb1", "USBVersion=q 0");
    EXPECT_THAT(log(), Not(HasSubstr("<4>")));
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
    make("server");
    const auto end = path_node(0x7F, 0xFF, "");
    const std::string file = path_node(4, 4, utf16(u"\\EFI\\a.efi")) + end;
    const auto whole = load_option(u"Disk \u00E4\u20AC\U0001F600", file);
    // A surrogate pair torn in two, and paths whose nodes are too short, too long or unended.
    variable("Boot0004", whole + "\x01\x02");
    variable("Boot001A", load_option(u"a\xD83D-\xDE00", "\x04\x04\x03\x00"s));
    variable("Boot001B", load_option(u"", path_node(4, 1, "x") + "\x04\x04\xFF\xFF"));
    variable("Boot001D", number(0, 4) + "\xFF\xFF" + utf16(u"short path"));
    variable("BootXYZW", whole);
    for (unsigned int length = 0; length < whole.size(); ++length)
    {
        variable("Boot" + std::to_string(1000 + length), whole.substr(0, length));
    }
    start();
    // What a person reads of the path takes a library.
    const std::string disk = "HD(1,GPT,03020100-0504-0706-0809-0a0b0c0d0e0f,0x800,0x32000)/"
                             "File(\\\\EFI\\\\boot\\\\a.efi)";
    expect("system.BootDevice/Boot0003",
           "hdr_DOT_objName=s \"Disk \u00E4\"; oBootData=s \"0102\"; iCurrentIndex=y 2; "
           "iPendingIndex=y 1; iEnabled=y 1; oBootPath=s \"" +
               (HAS_EFIVAR ? disk : "") + '"');
    expect("system.BootDevice/Boot0004",
           "hdr_DOT_objName=s 'Disk \u00E4\u20AC\U0001F600'; iCurrentIndex=y 0");
    expect("system.BootDevice/Boot001A",
           "hdr_DOT_objName=s 'a\uFFFD-\uFFFD'; oBootPath=s ''; iCurrentIndex=y 1; "
           "iPendingIndex=y 2");
    expect("system.BootSequence",
           "hdr_DOT_objDependencies=s 'BootDevice.Boot001A,BootDevice.Boot0003'; "
           "iCurrentIndex=y 2");
    EXPECT_THAT(names("system.BootDevice"),
                testing::UnorderedElementsAre("Boot0003", "Boot0004", "Boot001A", "Boot001B"));
}

TEST_F(Inventoryd, TellsWhatItFoundAndTheServiceManagerAndRefusesWhatItDoesNotKnow)
{
    const auto expect_end = [&](std::vector<const char*> arguments, int code, const char* text)
    {
        const auto program = run(std::move(arguments));
        const auto line = program->line();
        EXPECT_EQ(program->stop(0), code); // by itself
        EXPECT_THAT(line + log(), HasSubstr(text));
    };
    expect_end({"--counters", "1", "--help"}, 0, "usage:");
    expect_end({"--version"}, 0, "libdbusgantry ");
    expect_end({"--counters", "0"}, 2, "1 to 86400");
    expect_end({"/sys"}, 2, "usage:");
    expect_end({"--root", "/nonexistent"}, 1, "No such file or directory");
    expect_end({"--record", "/dev/null"}, 1, "File exists");
    EXPECT_THAT(manager.received(), ElementsAre());
    make("server");
    start();
    EXPECT_THAT(log(), testing::ContainsRegex("found .*4 NicSlot, .*2 USB, .*17 HWIStndConfig"));
    make("nothing");
    setenv("WATCHDOG_USEC", "200000", 1);
    start();
    unsetenv("WATCHDOG_USEC");
    EXPECT_EQ(
        client.call(at("hwi.HWISupport"), "com.orvane.velmar.hwi.HWISupport", "queryIsReady").text,
        "b true");
    EXPECT_THROW(expect("system.BootSequence", ""), std::runtime_error);
    EXPECT_TRUE(
        client.wait_for([&] { return std::ranges::count(manager.received(), "WATCHDOG=1") >= 3; }));
    EXPECT_EQ(host->stop(), 0);
    EXPECT_THAT(manager.received(), testing::Contains("STOPPING=1"));
}

TEST_F(Inventoryd, EndsWithFailureWithoutItsBusOrNameAndIsNotReadyWhenRefusedIt)
{
    make("nothing");
    const auto service = at("x").service;
    ASSERT_EQ(sd_bus_request_name(client.bus(), service.c_str(), 0), 1);
    EXPECT_EQ(run({"--root", sys.c_str()})->stop(0), 1); // by itself
    EXPECT_THAT(manager.received(), testing::IsEmpty());
    sd_bus_release_name(client.bus(), service.c_str());
    start({"--counters", "1"});
    sd_bus_request_name(client.bus(), service.c_str(), SD_BUS_NAME_REPLACE_EXISTING);
    EXPECT_EQ(host->stop(0), 1);
    host.reset();
    sd_bus_release_name(client.bus(), service.c_str());
    start();
    support::bus().kill();
    EXPECT_EQ(host->stop(0), 1);
    host.reset();
    support::bus().restart();
}

TEST_F(Inventoryd, ADumpIsTheDriversAndAnsweredWhenItIsThere)
{
    make("server");
    const auto slot = at("system.NicSlot/0000:3b:00");
    const auto dumps = directory.path / "dumps";
    // In the way is what another user may have put there.
    write("victim", "unchanged");
    create_directory(dumps);
    create_symlink(sys / "victim", dumps / "0000:3b:00");
    create_symlink(sys / "victim", dumps / "0000:3b:00.new");
    const auto trigger = [&](const Object& object, const char* kind = "NicSlot")
    {
        auto call = client.start(object, ("com.orvane.velmar.system."s + kind).c_str(),
                                 "TriggerAdapterCoreDump", "sysssssy", "job", 1, "", "",
                                 "../victim", "", "", 0);
        return client.wait(std::move(call)).text;
    };
    setenv("STATE_DIRECTORY", dumps.c_str(), 1);
    start();
    unsetenv("STATE_DIRECTORY");
    EXPECT_EQ(trigger(slot), "is 0, \"" + (dumps / "0000:3b:00").string() + '"');
    EXPECT_THAT(content(dumps / "0000:3b:00"),
                testing::ContainsRegex("^a dump of NIC.0000:3b:00 for :[0-9.]+, user " +
                                       std::to_string(geteuid()) + ", process " +
                                       std::to_string(getpid()) + ", at [0-9]+\nthe dump$"));
    EXPECT_EQ(status(dumps / "0000:3b:00").permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(file_size(sys / "victim"), 9);
    const auto reported = at("system.NicSlot/0000:af:00");
    EXPECT_EQ(trigger(reported), "is 0, \"" + (dumps / "0000:af:00").string() + '"');
    const auto text = content(dumps / "0000:af:00");
    EXPECT_EQ(text.substr(text.find('\n') + 1), "reporter fw\n  core:\n    text: busy\n    list: 7 "
                                                "1099511627776 0aff\n");
    // A dump that ends with an error.
    const auto part = sys / "devices/pci0000:ae/0000:af:00.0/health/dump-fw-0";
    permissions(part, std::filesystem::perms(0644));
    std::ofstream(part, std::ios::in | std::ios::binary).seekp(-4, std::ios::end) << number(1, 4);
    EXPECT_EQ(trigger(reported), "error org.freedesktop.DBus.Error.Failed: Input/output error");
    EXPECT_EQ(content(dumps / "0000:af:00"), text);
    const auto refusal =
        "error org.freedesktop.DBus.Error.NotSupported: the adapter's driver makes no dump";
    EXPECT_EQ(trigger(at("system.NicSlot/0000:00:1f")), refusal);
    EXPECT_EQ(trigger(at("system.FCSlot/0000:5e:04"), "FCSlot"), refusal);
    remove_all(dumps);
    EXPECT_EQ(trigger(slot), "error org.freedesktop.DBus.Error.Failed: No such file or directory");
    start();
    EXPECT_EQ(trigger(slot), "error org.freedesktop.DBus.Error.NotSupported: there is no directory "
                             "for dumps");
}

TEST_F(Inventoryd, PortsOfOtherFabricsBelongToTheirCardsAndCountAsFarAsTheyCan)
{
    make("server");
    const auto fc = "devices/pci0000:5d/0000:5e:04.0/host7/"s;
    const auto ib = "devices/pci0000:86/0000:86:00.0/0000:87:00."s;
    // A virtual Fibre Channel port, a virtual function, a port of another kind, and a state, a
    // speed and a number that nothing has.
    write_lines(fc + "vport-7:0-0/host9/fc_host/host9", "port_state=Online");
    write_lines(fc + "fc_host/host7", "port_state=Elsewhere; speed=16 parsecs; dev_loss_tmo=-1");
    link("bus/pci/devices/0000:87:00.2", ib + "2");
    link(ib + "2/physfn", ib + "0");
    write_lines(ib + "2", "class=0x020700; infiniband/hca2/ports/1/link_layer=InfiniBand");
    write_lines(ib + "1/infiniband/hca1/ports/2", "link_layer=Ethernet");
    write_lines(ib + "1/infiniband/hca1/ports/1", "rate=10 Gb/sec (4X; gids/0=fe80::1; gids/1=");
    start({"--counters", "3600"});
    EXPECT_THAT(names("system.FCPort"),
                testing::UnorderedElementsAre("0000:5e:04-1", "0000:5e:04-2"));
    expect("system.FCSlot/0000:5e:04",
           "DeviceName=s 'HBA-2'; PartitionCount=y 2; FramePayloadSize=s '2048 bytes'; "
           "SerialNumber=s ''");
    expect("system.FCPort/0000:5e:04-1",
           "LinkStatus=y 0; PortStatus=y 0; PortSpeed=q 0; PortDownTimeOut=u 0; FCBootSupport=y 1; "
           "FCRxTotalFrames=u 16; FCTxKBCount=u 32; FCInvalidCRCs=u 4294967295");
    expect("system.FCPort/0000:5e:04-2",
           "LinkStatus=y 2; PortStatus=y 7; FCRxKBCount=u 16; FCTxKBCount=u 0");
    expect("system.FCPartition/0000:5e:04-2-1",
           "PCIFunction=u 1; WWPN=s '0x210000e08b112233'; VirtualWWPN=s '0x2100ffff11223301'; "
           "OSDriver=s 'fc'");
    EXPECT_THAT(names("system.IBPort"),
                testing::UnorderedElementsAre("0000:87:00-1", "0000:87:00-2", "0000:87:00-3"));
    expect("system.IBSlot/0000:87:00",
           "NodeGUID=s '0002:c903:0000:0000'; FamilyVersion=s '20.31.1014'");
    expect("system.IBPort/0000:87:00-2",
           "LinkStatus=y 2; LinkSpeed=y 6; LinkWidth=y 4; "
           "PermanentPortGUID=s '0002:c903:0000:0011'; PortXmitData=u 4294967295; "
           "TransmitTotalBytes=t 17179869584; PortRcvData=u 101");
    expect("system.IBPort/0000:87:00-3", "LinkSpeed=y 255; LinkWidth=y 4; PermanentPortGUID=s ''");
    expect("system.IBPartition/0000:87:00-2-1",
           "PartitionLinkStatus=y 2; IBMulticastPacketsTxCount=t 118; RDMARxTotalBytes=t 404; "
           "VirtualMACAddress=s '00:00:00:00:00:00:00:00:00:00:00:00:00:02:c9:03:00:00:00:01'");
    // A client that reads an object has its counters read, unless they were in the same second.
    write_lines(fc + "fc_host/host7", "statistics/rx_frames=0x20");
    EXPECT_TRUE(client.wait_for(
        [&]
        {
            return client.get_all(at("system.FCPort/0000:5e:04-1"),
                                  "com.orvane.velmar.system.FCPort")["FCRxTotalFrames"] == "u 32";
        }));
    // Both cards are pulled.
    for (const char* each : {"5e:04.0", "5e:04.1", "87:00.0", "87:00.1", "87:00.2"})
    {
        std::filesystem::remove(sys / "bus/pci/devices" / ("0000:"s + each));
    }
    reload();
    // With them a HWIStndConfig for each function and a HWIPcie for each that isn't virtual.
    EXPECT_EQ(sent("InterfacesRemoved").size(), 2 * (2 + 2 * 2 + 2 + 2 * 3 + 5 + 4));
}

TEST_F(Inventoryd, AModuleIsThePortsAndTellsWhatItMeasuresInUnits)
{
    make("server");
    const auto sfp = card + "/net/ens3f0np0/module/";
    const auto qsfp = card + "/../0000:3b:00.1/net/ens3f1np1/module/";
    const auto qsfpd = "devices/pci0000:ae/0000:af:00.0/net/ens5np0/module/"s;
    // The standards count the bytes of an upper page from 128.
    const auto patch = [&](const std::string& page, unsigned int offset, const std::string& bytes)
    { write(page, content(sys / page).replace(offset % 128, bytes.size(), bytes)); };
    // An SFP with constants to correct by: 2x + 10 for the received power, and lines.
    patch(sfp + "50-00-00-00", 92, "\x58");
    patch(sfp + "51-00-00-00", 56, number(0, 12) + "\x40\0\0\0\x41\x20\0\0"s);
    patch(sfp + "51-00-00-00", 76, "\2\0\xFC\x18\0\0\0\0\1\0\1\0\1\0\0\0"s);
    patch(qsfp + "50-00-00-00", 38, "\0\x63"s);
    patch(qsfp + "50-00-00-00", 48, "\x19\x64");
    patch(qsfpd + "50-00-11-80", 128, "\x21\x43\x65\x87");
    patch(qsfpd + "50-00-13-80", 132, "\x01\x80");
    start();
    expect("system.SFP/0000:3b:00-1",
           "FQDD=s 'NIC.0000:3b:00-1'; VendorName=s 'Module maker'; Vendor_SN=s ''; "
           "TXBiasCurrentValue=d 12; RXInputPowerValue=d 1.001; TempValue=d 77.5; "
           "TempLowAlarmThreshold=d -4; TempHighAlarmThreshold=q 76; VoltageValue=d 3.3; "
           "LaserWavelength=d 850; AlarmFlags1=y 128; TxBiasCurrentStatus=y 1");
    expect("system.QSFP/0000:3b:00-2",
           "RX3InputPowerValue=q 99; RxInputPowerStatus=y 4; TX4BiasCurrentValue=q 1300; "
           "TxBiasCurrentStatus=y 3; TX1OutputPowerValue=q 6000; LaserWavelengthTolerance=d 10");
    expect("system.QSFPD/0000:af:00-1",
           "CmisRevision=s '5.2'; MemoryModel=y 1; HostLaneCount=y 8; MediaLaneCount=y 4; "
           "TempLowWarningThreshold=n -1; LaserWavelength=d 1310; DataPathState=u 2271560481; "
           "TX5BiasCurrentValue=q 700; PatternGenCapsHostSide=q 32769");
    patch(sfp + "51-00-00-00", 68, "\x7F\xC0\0\0"s); // not a number
    patch(sfp + "50-00-00-00", 8, "\x04");           // a cable
    patch(sfp + "50-00-00-00", 93, "\0"s);
    patch(qsfp + "50-00-00-80", 220, "\0"s);
    patch(qsfpd + "50-00-00-80", 210, "\xF0"); // the first four lanes alone
    patch(qsfpd + "50-00-01-80", 160, "\x17"); // in units of 8 microamperes
    reload();
    expect("system.SFP/0000:3b:00-1",
           "RXInputPowerValue=d 0; LaserWavelength=d 0; AlarmFlags1=y 0; TempValue=d 77.5");
    expect("system.QSFP/0000:3b:00-2", "TX1OutputPowerValue=q 0; RX3InputPowerValue=q 99");
    expect("system.QSFPD/0000:af:00-1",
           "TX1BiasCurrentValue=q 2800; TX5BiasCurrentValue=q 0; TxBiasHighAlarmThreshold=d 56");
    patch(sfp + "51-00-00-00", 110, "\x01");   // not ready
    patch(qsfp + "50-00-00-80", 147, "\xA0");  // copper
    patch(qsfpd + "50-00-01-80", 160, "\x1F"); // a reserved unit
    patch(qsfpd + "50-00-01-80", 142, "\0"s);  // without page 13
    reload();
    expect("system.SFP/0000:3b:00-1", "TempValue=d 0; TemperatureStatus=y 0");
    expect("system.QSFP/0000:3b:00-2", "LaserWavelength=d 0; RX3InputPowerValue=q 0");
    expect("system.QSFPD/0000:af:00-1", "TX1BiasCurrentValue=q 0; PatternGenCapsHostSide=q 0");
    // Memory that isn't programmed, flat memory, and a page of which not all is there.
    write(sfp + "50-00-00-00", std::string(128, '\xFF'));
    patch(qsfp + "50-00-00-00", 2, "\x04");
    write(qsfpd + "50-00-00-80", std::string(127, ' '));
    reload();
    EXPECT_EQ(
        sent("InterfacesRemoved").count(at("system.SFP/0000:3b:00-1").path.substr(root.size())), 1);
    expect("system.QSFP/0000:3b:00-2", "TempHighAlarmThreshold=q 0; TempValue=d 76.5");
    expect("system.QSFPD/0000:af:00-1", "VendorName=s ''; InterfaceType=y 0");
    // Another module is plugged in instead.
    remove_all(sys / sfp);
    copy(sys / qsfp, sys / sfp);
    reload();
    EXPECT_EQ(names("system.QSFP").size(), 2);
    start({"--publish-serials"});
    expect("system.QSFP/0000:3b:00-1", "Vendor_SN=s 'SN-1'");
}

// How many properties of an interface have a value on at least one object of the server.
TEST_F(Inventoryd, TheServersPropertiesHaveValues)
{
    make("server");
    const auto dumps = directory.path.string();
    setenv("STATE_DIRECTORY", dumps.c_str(), 1);
    start({"--publish-serials"});
    unsetenv("STATE_DIRECTORY");
    const std::map<std::string, std::size_t> bars{
        {"hwi.HWIPcie", 10},        {"hwi.HWIStndConfig", 22},   {"system.BLT", 8},
        {"system.USB", 15},         {"system.NicSlot", 31},      {"system.NicController", 1},
        {"system.NicPort", 41},     {"system.NicPartition", 29}, {"system.FCController", 1},
        {"system.FCSlot", 28},      {"system.FCPort", 19},       {"system.FCPartition", 11},
        {"system.IBController", 1}, {"system.IBSlot", 28},       {"system.IBPort", 38},
        {"system.IBPartition", 27}, {"system.SFP", 45},          {"system.QSFP", 59},
        {"system.QSFPD", 90},
    };
    for (const auto& [interface, bar] : bars)
    {
        std::set<std::string> have;
        std::size_t all = 0;
        auto objects = names(interface);
        objects.insert(objects.end(), interface == "system.BLT" ? 1 : 0, "");
        for (const auto& object : objects)
        {
            auto found = client.get_all(at(interface + (object.empty() ? "" : '/' + object)),
                                        ("com.orvane.velmar." + interface).c_str());
            all = found.size();
            std::erase_if(found,
                          [](const auto& each) {
                              return std::regex_search(each.second, std::regex(" (0|\"\"|false)$"));
                          });
            std::ranges::transform(found, std::inserter(have, have.end()),
                                   [](auto& each) { return each.first; });
        }
        std::cout << interface << ": " << have.size() << " of " << all << ", at least " << bar
                  << '\n';
        EXPECT_GE(have.size(), bar) << interface << testing::PrintToString(have);
    }
}

// The analysis of the unit as it is installed.
TEST_F(Inventoryd, TheUnitMayAskForModulesAndIsStillWellConfined)
{
    const auto unit = content(UNIT);
    EXPECT_THAT(unit, HasSubstr("\nCapabilityBoundingSet=CAP_NET_ADMIN\n"));
    EXPECT_THAT(unit, Not(testing::ContainsRegex("\nExecStart=[^\n]*--publish-serials")));
    EXPECT_EQ(std::system("systemd-analyze security --offline=yes --no-pager --threshold=20 " UNIT
                          " > /dev/null"),
              0);
}

} // namespace
