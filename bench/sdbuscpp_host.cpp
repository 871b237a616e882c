/*
 * gantry_host's methods on sdbus-c++, with its own event loop, which has no event source that could
 * answer a call later. sd-bus asks who calls only if a method is marked as privileged. These
 * methods are marked, as the sample's are.
 *
 *     sdbuscpp_host SERVICE    prints "ready" when it serves
 */
#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

namespace
{

constexpr const char* interface = "com.orvane.velmar.sample.gantrytest";

#if __has_include(<sdbus-c++/VTableItems.h>) // version 2
using sdbus::ServiceName;

template <class Value>
void give_back(sdbus::IObject& object, const char* method)
{
    object
        .addVTable(sdbus::registerMethod(method)
                       .implementedAs([](const Value& value) { return value; })
                       .markAsPrivileged())
        .forInterface(interface);
}

void finish(sdbus::IObject& /*object*/)
{
}
#else
using ServiceName = std::string;

template <class Value>
void give_back(sdbus::IObject& object, const char* method)
{
    object.registerMethod(method)
        .onInterface(interface)
        .implementedAs([](const Value& value) { return value; })
        .markAsPrivileged();
}

void finish(sdbus::IObject& object)
{
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
        give_back<std::int32_t>(*object, "Try_int32");
        give_back<std::vector<std::string>>(*object, "TryArrayString");
        finish(*object);
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
