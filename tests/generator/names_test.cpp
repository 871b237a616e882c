#include "names.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace
{

struct MemberNames
{
    std::string_view member;
    std::string_view title;
    std::string_view accessor;
};

// Regular names, then those whose accessors look wrong and are right.
constexpr MemberNames member_names[] = {
    {"Key", "Key", "key"},
    {"fqdd", "Fqdd", "fqdd"},
    {"FQDD", "FQDD", "fqdd"},
    {"WWPN", "WWPN", "wwpn"},
    {"FCOEWWNN", "FCOEWWNN", "fcoewwnn"},
    {"FriendlyFQDD", "FriendlyFQDD", "friendlyFQDD"},
    {"hdr_DOT_objName", "HdrDOTObjName", "hdrDOTObjName"},
    {"Vendor_PN", "VendorPN", "vendorPN"},
    {"cpu_affinity", "CpuAffinity", "cpuAffinity"},
    {"Vcc_Temperature_Flag", "VccTemperatureFlag", "vccTemperatureFlag"},
    {"BSInfo_Key", "BSInfoKey", "bsInfoKey"},
    {"BSInfo_impactsTPMmeasurements", "BSInfoImpactsTPMmeasurements",
     "bsInfoImpactsTPMmeasurements"},
    {"DOH_ObjStatus", "DOHObjStatus", "dohObjStatus"},
    {"PCIBus", "PCIBus", "pciBus"},
    {"UEFIDevPath", "UEFIDevPath", "uefiDevPath"},
    {"Try_byte_D", "TryByteD", "tryByteD"},
    {"queryIsReady", "QueryIsReady", "queryIsReady"},

    {"iSCSIOSDriver", "ISCSIOSDriver", "iscsiosDriver"},
    {"FCOEOSDriver", "FCOEOSDriver", "fcoeosDriver"},
    {"RDMAOSDriver", "RDMAOSDriver", "rdmaosDriver"},
    {"IBOSDriver", "IBOSDriver", "ibosDriver"},
    {"OSBMCManagementPassThrough", "OSBMCManagementPassThrough", "osbmcManagementPassThrough"},
    {"VFSRIOVSupport", "VFSRIOVSupport", "vfsriovSupport"},
    {"iSCSIOffloadSupport", "ISCSIOffloadSupport", "iscsiOffloadSupport"},
    {"iScsiOffloadMode", "IScsiOffloadMode", "iScsiOffloadMode"},
    {"PCIheaderType", "PCIheaderType", "pcIheaderType"},
    {"FCoEPktRXCount", "FCoEPktRXCount", "fCoEPktRXCount"},
    {"FCoEDriver", "FCoEDriver", "fCoEDriver"},
    {"FCoEoffloadmode", "FCoEoffloadmode", "fCoEoffloadmode"},
    {"IBunicastPacketsRxCount", "IBunicastPacketsRxCount", "iBunicastPacketsRxCount"},
    {"IBMulticastPacketsRxCount", "IBMulticastPacketsRxCount", "ibMulticastPacketsRxCount"},
    {"RX1InputPowerValue", "RX1InputPowerValue", "rX1InputPowerValue"},
    {"TX8OutputPowerValue", "TX8OutputPowerValue", "tX8OutputPowerValue"},
    {"VL15Dropped", "VL15Dropped", "vL15Dropped"},
    {"oBootPath", "OBootPath", "oBootPath"},
    {"obootOptionReference", "ObootOptionReference", "obootOptionReference"},
    {"progIF", "ProgIF", "progIF"},
    {"isready", "Isready", "isready"},

    // A digit has no capital to raise, and what is left of nothing is nothing.
    {"lane_2bias", "Lane2bias", "lane2bias"},
    {"X1", "X1", "x1"},
    {"_x", "X", "x"},
    {"a__b_", "AB", "ab"},
    {"_", "", ""},
};

TEST(Names, FollowFromTheMember)
{
    for (const auto& [member, title, accessor] : member_names)
    {
        EXPECT_EQ(gantrygen::title(member), title);
        EXPECT_EQ(gantrygen::accessor(member), accessor);
    }
    EXPECT_EQ(gantrygen::get_callback("hdr_DOT_key"), "_callback_get_hdr_DOT_key");
    EXPECT_EQ(gantrygen::set_callback("PropString"), "_callback_set_PropString");
    EXPECT_EQ(gantrygen::method_callback("Try_byte_D"), "_callback_TryByteD");
    EXPECT_EQ(gantrygen::method_callback("queryIsReady"), "_callback_QueryIsReady");
}

TEST(Names, FollowFromTheInterface)
{
    constexpr std::string_view pldm = "com.orvane.velmar.hwi.HWI_PLDM";
    EXPECT_EQ(gantrygen::leaf(pldm), "HWI_PLDM");
    EXPECT_EQ(gantrygen::class_name(pldm), "HWIPLDM");
    EXPECT_EQ(gantrygen::directory(pldm), "com/orvane/velmar/hwi/HWI_PLDM");
    EXPECT_EQ(gantrygen::default_path(pldm), "/com/orvane/velmar/hwi/HWI_PLDM");
    EXPECT_EQ(gantrygen::common_namespace(pldm), "sdbusplus::common::com::orvane::velmar::hwi");
    EXPECT_EQ(gantrygen::server_namespace(pldm), "sdbusplus::server::com::orvane::velmar::hwi");
    EXPECT_EQ(gantrygen::derived_namespace(pldm), "GANTRY_com_orvane_velmar_hwi_HWI_PLDM");
    EXPECT_EQ(gantrygen::instantiate_function(pldm),
              "GANTRY_instantiate__com_orvane_velmar_hwi_HWI_PLDM");

    constexpr std::string_view inventory = "com.orvane.velmar.HWInventory";
    EXPECT_EQ(gantrygen::server_namespace(inventory), "sdbusplus::server::com::orvane::velmar");
    EXPECT_EQ(gantrygen::signal_function(inventory, "Refresh"),
              "GANTRY_signal__com_orvane_velmar_HWInventory__Refresh");
    EXPECT_EQ(gantrygen::receive_signal_function(inventory, "Refresh"),
              "GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh");

    EXPECT_EQ(gantrygen::class_name("com.orvane.velmar.sample.async"), "Async");
}

TEST(Names, AreThoseThatDBusAllows)
{
    const std::string longest(255, 'x');
    const std::string too_long = longest + 'x';
    const std::string longest_interface = "a." + longest.substr(2);
    const std::string too_long_interface = longest_interface + 'x';

    for (const std::string_view name :
         {"a.b", "com.orvane.velmar.hwi.HWI_PLDM", "_a._1", longest_interface.c_str()})
    {
        EXPECT_TRUE(gantrygen::is_interface_name(name)) << name;
    }
    for (const std::string_view name : {"", "a", ".a", "a.", "a..b", "a.1b", "a.b-c", "a.b c",
                                        "a.\xc3\xa9", too_long_interface.c_str()})
    {
        EXPECT_FALSE(gantrygen::is_interface_name(name)) << name;
    }
    for (const std::string_view name : {"a", "_", "Try_byte_D", longest.c_str()})
    {
        EXPECT_TRUE(gantrygen::is_member_name(name)) << name;
    }
    for (const std::string_view name :
         {"", "1a", "a.b", "a-b", "a b", "\xc3\xa9", too_long.c_str()})
    {
        EXPECT_FALSE(gantrygen::is_member_name(name)) << name;
    }
}

} // namespace
