// A client of examples/answers.c on sdbus-c++: prints what it gets.
#include <future>
#include <iostream>
#include <optional>

#include <sdbus-c++/sdbus-c++.h>

#if __has_include(<sdbus-c++/VTableItems.h>) // since version 2
using sdbus::ServiceName;
using Failure = std::optional<sdbus::Error>;
#else
using ServiceName = std::string;
using Failure = const sdbus::Error*;
#endif

int main()
{
    const char* interface = "com.orvane.velmar.sample.gantrytest";
    const auto bus = sdbus::createSystemBusConnection();
    const auto host = sdbus::createProxy(*bus, ServiceName("com.orvane.velmar.HWInventory"),
                                         sdbus::ObjectPath("/sample"));
    bus->enterEventLoopAsync();
    const auto ask = [&](const char* text)
    {
        std::promise<std::string> said;
        host->callMethodAsync("Try_string")
            .onInterface(interface)
            .withArguments(text)
            .uponReplyInvoke([&](Failure error, const std::string& answer)
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
