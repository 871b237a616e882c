#include "firmware.hpp"

#include "publish.hpp"

#include <com/orvane/velmar/system/BLT/gantry_server.hpp>

#include <sys/utsname.h>

#include <charconv>

namespace
{

using GANTRY_com_orvane_velmar_system_BLT::BLT;

/** A dotted version as a number that sorts: 6.1.12 is 0x0006'0001'000C'0000. */
unsigned long packed_version(const std::string& version)
{
    unsigned long packed = 0;
    const char* at = version.data();
    const char* const end = at + version.size();
    for (int part = 0; part < 4; ++part)
    {
        unsigned short value = 0;
        const auto result = std::from_chars(at, end, value);
        packed = packed << 16U | value;
        at = result.ptr != end && *result.ptr == '.' ? result.ptr + 1 : end;
    }
    return packed;
}

} // namespace

void publish_firmware(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    auto* object = publish<BLT>(context, GANTRY_instantiate__com_orvane_velmar_system_BLT);
    utsname kernel{};
    if (object == nullptr || uname(&kernel) != 0)
    {
        return;
    }

    constexpr bool skip_signal = true;
    const auto dmi = sys / "class/dmi/id";
    const auto version = sysfs::text(dmi / "bios_version");
    object->key(version ? "BIOS" : "Kernel", skip_signal);
    object->fqdd(version ? "BIOS.Setup.1-1" : "OS.Kernel.1-1", skip_signal);
    object->friendlyFQDD(version ? "System firmware" : "Kernel", skip_signal);
    object->manufacturer(sysfs::text(dmi / "bios_vendor").value_or(""), skip_signal);
    object->productName(sysfs::text(dmi / "product_name").value_or(kernel.sysname), skip_signal);
    object->firmwareVersion(version.value_or(kernel.release), skip_signal);
    object->version(packed_version(version.value_or(kernel.release)), skip_signal);
}
