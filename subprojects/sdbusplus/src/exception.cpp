// The texts of a failed call, composed once, when the error is constructed.

#include "sdbusplus/exception.hpp"

#include <string>

namespace sdbusplus
{
namespace exception
{

struct SdBusError::Texts
{
    std::string name;
    std::string description;
    std::string what;
};

SdBusError::SdBusError(int e, const char* prefix, SdBusInterface* intf) : error(e)
{
    const auto free = [intf](sd_bus_error* mapped) { intf->sd_bus_error_free(mapped); };
    sd_bus_error mapped{};
    const std::unique_ptr<sd_bus_error, decltype(free)> freed(&mapped, free);
    intf->sd_bus_error_set_errno(&mapped, e);

    // sd-bus maps 0 to no error, without name and message.
    const std::string name = mapped.name ? mapped.name : SD_BUS_ERROR_FAILED;
    const std::string message = mapped.message ? mapped.message : "";
    const std::string begin = std::string(prefix) + ": ";
    texts =
        std::make_shared<const Texts>(Texts{name, begin + message, begin + name + ": " + message});
}

const char* SdBusError::name() const noexcept
{
    return texts->name.c_str();
}

const char* SdBusError::description() const noexcept
{
    return texts->description.c_str();
}

const char* SdBusError::what() const noexcept
{
    return texts->what.c_str();
}

int SdBusError::get_errno() const noexcept
{
    return error;
}

} // namespace exception
} // namespace sdbusplus
