// A client of examples/answers.c on sdbus-c++: prints what it gets.
#include "sdbus_cpp.hpp"

#include <future>
#include <iostream>

int main()
{
    const char* interface = "com.orvane.velmar.sample.gantrytest";
    const auto bus = sdbus::createSystemBusConnection();
    const auto host = sdbus::createProxy(
        *bus, support::ServiceName("com.orvane.velmar.HWInventory"), sdbus::ObjectPath("/sample"));
    bus->enterEventLoopAsync();
    const auto ask = [&](const char* text)
    {
        std::promise<std::string> said;
        host->callMethodAsync("Try_string")
            .onInterface(interface)
            .withArguments(text)
            .uponReplyInvoke([&](support::Failure error, const std::string& answer)
                             { said.set_value(error ? error->what() : answer); });
        return said.get_future().get();
    };
    std::cout << ask("refuse") << '\n' << ask("later") << '\n';
    std::cout << ask("who").starts_with(bus->getUniqueName() + ' ') << '\n';
    try
    {
        host->setProperty("PropString").onInterface(interface).toValue("bad");
    }
    catch (const sdbus::Error& error)
    {
        std::cout << error.what() << '\n';
    }
}
