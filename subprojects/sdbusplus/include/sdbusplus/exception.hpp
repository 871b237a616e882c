// Failures that can be sent to a D-Bus client: each has an error name, a readable description and
// an errno. Those that this layer throws are internal_exceptions.
#pragma once

#include "sdbusplus/sdbus.hpp"

#include <exception>
#include <memory>

namespace sdbusplus
{
namespace exception
{

/** Base of everything that can be sent as a D-Bus error. */
struct exception : public std::exception
{
    /** The D-Bus error name, such as "org.freedesktop.DBus.Error.InvalidArgs". */
    virtual const char* name() const noexcept = 0;

    /** The text that goes with the name. */
    virtual const char* description() const noexcept = 0;

    /** The positive errno. */
    virtual int get_errno() const noexcept = 0;
};

/** Base of the failures in this layer. */
struct internal_exception : public exception
{
};

/** A failed sd_bus_* call. Copies share their texts. */
class SdBusError final : public internal_exception
{
  public:
    /**
     * `error` is the positive errno and `prefix` the name of the failed call; sd-bus maps the errno
     * to the error name and message.
     */
    SdBusError(int error, const char* prefix, SdBusInterface* intf = &sdbus_impl);

    // There is no move: a moved-from error would lose its texts.
    SdBusError(const SdBusError&) noexcept = default;
    SdBusError& operator=(const SdBusError&) noexcept = default;
    ~SdBusError() override = default;

    const char* name() const noexcept override;

    /** "prefix: message", so that a client sees which call failed. */
    const char* description() const noexcept override;

    /** "prefix: error name: message". */
    const char* what() const noexcept override;

    int get_errno() const noexcept override;

  private:
    struct Texts;

    std::shared_ptr<const Texts> texts;
    int error;
};

} // namespace exception

using exception_t = exception::exception;
using internal_exception_t = exception::internal_exception;

} // namespace sdbusplus
