// What a failed call tells: to a log, to a client, to a caller.
#include <gtest/gtest.h>
#include <sdbusplus/exception.hpp>

#include <cerrno>
#include <cstring>
#include <exception>
#include <type_traits>
#include <utility>

namespace
{

using sdbusplus::exception::internal_exception;
using sdbusplus::exception::SdBusError;

static_assert(std::is_nothrow_copy_constructible_v<SdBusError>);
static_assert(std::is_nothrow_move_constructible_v<SdBusError>);
static_assert(std::is_nothrow_copy_assignable_v<SdBusError>);
static_assert(std::is_nothrow_move_assignable_v<SdBusError>);

TEST(SdBusError, names_are_those_that_sd_bus_maps_the_errno_to)
{
    const SdBusError invalid(EINVAL, "sd_bus_some_call");
    EXPECT_STREQ(invalid.what(),
                 "sd_bus_some_call: org.freedesktop.DBus.Error.InvalidArgs: Invalid argument");
    EXPECT_STREQ(invalid.name(), SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_STREQ(invalid.description(), "sd_bus_some_call: Invalid argument");
    EXPECT_EQ(invalid.get_errno(), EINVAL);

    const SdBusError memory(ENOMEM, "call");
    EXPECT_STREQ(memory.what(),
                 "call: org.freedesktop.DBus.Error.NoMemory: Cannot allocate memory");

    const SdBusError unmapped(ENXIO, "call");
    EXPECT_STREQ(unmapped.what(), "call: System.Error.ENXIO: No such device or address");

    const SdBusError nothing(0, "call");
    EXPECT_STREQ(nothing.name(), SD_BUS_ERROR_FAILED);
}

TEST(SdBusError, every_copy_keeps_its_texts)
{
    SdBusError error(EINVAL, "call");
    const SdBusError copy = error;
    SdBusError moved = std::move(error);
    EXPECT_STREQ(error.description(), "call: Invalid argument");
    moved = SdBusError(ENXIO, "other");
    EXPECT_STREQ(moved.name(), "System.Error.ENXIO");
    EXPECT_STREQ(copy.name(), SD_BUS_ERROR_INVALID_ARGS);

    std::exception_ptr kept;
    try
    {
        throw SdBusError(EINVAL, "thrown");
    }
    catch (const internal_exception&)
    {
        kept = std::current_exception();
    }
    try
    {
        std::rethrow_exception(kept);
    }
    catch (const std::exception& e)
    {
        EXPECT_STREQ(e.what(), "thrown: org.freedesktop.DBus.Error.InvalidArgs: Invalid argument");
    }
}

TEST(SdBusError, becomes_the_error_of_a_callback)
{
    sd_bus_error error{};
    EXPECT_EQ(SdBusError(EACCES, "call").set_error(&sdbusplus::sdbus_impl, &error), -EACCES);
    EXPECT_STREQ(error.name, SD_BUS_ERROR_ACCESS_DENIED);
    EXPECT_STREQ(error.message, "call: Permission denied");
    sd_bus_error_free(&error);
}

// The seam is asked for every errno, and gets back what it handed out.
TEST(SdBusError, leaves_no_sd_bus_error_behind)
{
    struct Mapping : sdbusplus::SdBusImpl
    {
        int sd_bus_error_set_errno(sd_bus_error* e, int error) override
        {
            ++held;
            return SdBusImpl::sd_bus_error_set_errno(e, error);
        }

        void sd_bus_error_free(sd_bus_error* e) override
        {
            --held;
            SdBusImpl::sd_bus_error_free(e);
        }

        int held = 0;
    };
    Mapping mapping;
    const SdBusError error(ENXIO, "call", &mapping);
    EXPECT_EQ(mapping.held, 0);
    EXPECT_STREQ(error.name(), "System.Error.ENXIO");
}

} // namespace
