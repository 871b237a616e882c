#include "boot.hpp"

#include "efi.hpp"
#include "publish.hpp"

#include <com/orvane/velmar/system/BootDevice/gantry_server.hpp>
#include <com/orvane/velmar/system/BootSequence/gantry_server.hpp>

#include <algorithm>

namespace
{

using GANTRY_com_orvane_velmar_system_BootDevice::BootDevice;
using GANTRY_com_orvane_velmar_system_BootSequence::BootSequence;
using Order = std::vector<std::uint16_t>;

constexpr auto sequence_key = "BootSequence.UEFI";

// Nobody has seen the objects yet: there is nothing to announce.
constexpr bool skip_signal = true;

std::string key_of(std::uint16_t option)
{
    return "BootDevice." + efi::option_name(option);
}

/** The place in the order, counted from 1; 0 is none. */
std::size_t index_of(std::uint16_t option, const Order& order)
{
    const auto place = std::find(order.begin(), order.end(), option);
    return place == order.end() ? 0 : static_cast<std::size_t>(place - order.begin()) + 1;
}

void publish_sequence(GANTRY_cpp_context& context, const sysfs::Directory& sys, const Order& order)
{
    auto* object =
        publish<BootSequence>(context, GANTRY_instantiate__com_orvane_velmar_system_BootSequence);
    if (object == nullptr)
    {
        return;
    }
    std::string keys;
    for (const auto option : order)
    {
        keys += keys.empty() ? "" : ",";
        keys += key_of(option);
    }
    object->hdrDOTFqdd(sequence_key, skip_signal);
    object->hdrDOTKey(sequence_key, skip_signal);
    object->hdrDOTObjName("UEFI boot sequence", skip_signal);
    object->hdrDOTObjDependencies(keys, skip_signal);
    if (const auto current = efi::boot_current(sys))
    {
        sysfs::put<unsigned char>(std::optional{index_of(*current, order)}, [&](unsigned char index)
                                  { object->iCurrentIndex(index, skip_signal); });
    }
}

void publish_option(GANTRY_cpp_context& context, std::uint16_t number,
                    const efi::LoadOption& option, const Order& order)
{
    constexpr auto prefix = "/com/orvane/velmar/system/BootDevice";
    const std::string name = efi::option_name(number);
    auto* object =
        publish<BootDevice>(context, GANTRY_instantiate__com_orvane_velmar_system_BootDevice,
                            path_of(prefix, name).c_str());
    if (object == nullptr)
    {
        return;
    }
    object->uniqueID(number, skip_signal);
    object->oBootType("UEFI", skip_signal);
    object->oBootPath(option.path, skip_signal);
    object->oBootData(efi::in_hexadecimal(option.data), skip_signal);
    object->obootOptionReference(name, skip_signal);
    sysfs::put<unsigned char>(std::optional{index_of(number, order)}, [&](unsigned char index)
                              { object->iCurrentIndex(index, skip_signal); });
    object->iEnabled(option.active ? 1 : 0, skip_signal);
    object->hdrDOTFqdd(key_of(number), skip_signal);
    object->hdrDOTKey(key_of(number), skip_signal);
    object->hdrDOTObjName(option.description, skip_signal);
    object->parentObjectKey(sequence_key, skip_signal);
}

} // namespace

void publish_boot(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    const auto order = efi::boot_order(sys);
    if (order)
    {
        publish_sequence(context, sys, *order);
    }
    for (const auto number : efi::load_options(sys))
    {
        if (const auto option = efi::load_option(sys, number))
        {
            publish_option(context, number, *option, order.value_or(Order{}));
        }
    }
}
