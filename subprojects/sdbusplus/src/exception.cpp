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

namespace
{

/** sd-bus's name and message for an errno. */
class Mapped
{
  public:
    Mapped(int error, SdBusInterface* i) : intf(i)
    {
        intf->sd_bus_error_set_errno(&mapped, error);
    }

    Mapped(const Mapped&) = delete;
    Mapped& operator=(const Mapped&) = delete;

    ~Mapped()
    {
        intf->sd_bus_error_free(&mapped);
    }

    // sd-bus maps 0 to no error, without name and message.
    const char* name() const
    {
        return mapped.name ? mapped.name : SD_BUS_ERROR_FAILED;
    }

    const char* message() const
    {
        return mapped.message ? mapped.message : "";
    }

  private:
    SdBusInterface* intf;
    sd_bus_error mapped{};
};

std::string join(const char* prefix, const char* text)
{
    return std::string(prefix).append(": ").append(text);
}

} // namespace

SdBusError::SdBusError(int e, const char* prefix, SdBusInterface* intf) : error(e)
{
    const Mapped mapped(e, intf);
    texts = std::make_shared<const Texts>(
        Texts{mapped.name(), join(prefix, mapped.message()),
              join(join(prefix, mapped.name()).c_str(), mapped.message())});
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
