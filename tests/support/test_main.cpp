// main() of every test program that has none of its own: one private bus around all its tests.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <gmock/gmock.h>

#include "support/private_bus.hpp"

namespace
{

support::PrivateBus* current_bus = nullptr;

} // namespace

support::PrivateBus& support::bus()
{
    if (current_bus == nullptr)
    {
        throw std::logic_error("this test program runs no private bus");
    }
    return *current_bus;
}

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // A test run under a service manager must not speak for its service.
    unsetenv("NOTIFY_SOCKET");
    try
    {
        support::PrivateBus bus;
        current_bus = &bus;
        const int result = RUN_ALL_TESTS();
        current_bus = nullptr;
        return result;
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
