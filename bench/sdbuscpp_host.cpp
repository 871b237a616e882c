/*
 * gantry_host's method on sdbus-c++, with its own event loop. sd-bus asks who calls only if a
 * method is marked as privileged. This method is marked, as the sample's is.
 *
 *     sdbuscpp_host SERVICE    prints "ready" when it serves
 */
#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace
{

constexpr const char* interface = "com.orvane.velmar.sample.gantrytest";

constexpr auto give_back = [](const std::int32_t& value) { return value; };

#if __has_include(<sdbus-c++/VTableItems.h>) // version 2
using sdbus::ServiceName;

void add_method(sdbus::IObject& object)
{
    object.addVTable(sdbus::registerMethod("Try_int32").implementedAs(give_back).markAsPrivileged())
        .forInterface(interface);
}
#else
using ServiceName = std::string;

void add_method(sdbus::IObject& object)
{
    object.registerMethod("Try_int32")
        .onInterface(interface)
        .implementedAs(give_back)
        .markAsPrivileged();
    object.finishRegistration();
}
#endif

} // namespace

int main(int argc, char** argv)
{
    try
    {
        if (argc != 2)
        {
            return EXIT_FAILURE;
        }
        const auto connection = sdbus::createSystemBusConnection(ServiceName(argv[1]));
        const auto object = sdbus::createObject(
            *connection, sdbus::ObjectPath("/com/orvane/velmar/sample/gantrytest"));
        add_method(*object);
        std::puts("ready");
        std::fflush(stdout);
        connection->enterEventLoop();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "sdbuscpp_host: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
