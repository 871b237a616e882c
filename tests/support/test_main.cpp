// main() of every test program that has none of its own: one private bus around all its tests.
#include <cstdlib>

#include <gmock/gmock.h>

#include "support/private_bus.hpp"

static support::PrivateBus* the_bus = nullptr;

support::PrivateBus& support::bus()
{
    return *the_bus;
}

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // A test run under a service manager must not speak for its service.
    unsetenv("NOTIFY_SOCKET");
    // Not a static object: the exit of a death test's child would end the parent's daemon.
    support::PrivateBus bus;
    the_bus = &bus;
    return RUN_ALL_TESTS();
}
