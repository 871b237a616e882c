// main() of every test program that has none of its own: one private bus around all its tests.
#include <cstdlib>

#include <gmock/gmock.h>

#include "support/private_bus.hpp"

support::PrivateBus& support::bus()
{
    static PrivateBus the_bus;
    return the_bus;
}

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // A test run under a service manager must not speak for its service.
    unsetenv("NOTIFY_SOCKET");
    support::bus();
    return RUN_ALL_TESTS();
}
