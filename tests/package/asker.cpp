// A client of examples/answers.c on sdbus-c++: prints what it gets.
#include <sdbus-c++/sdbus-c++.h>

#include <future>
#include <iostream>

int main()
{
    const char* interface = "com.orvane.velmar.sample.gantrytest";
    const auto bus = sdbus::createSystemBusConnection();
    const auto host = sdbus::createProxy(*bus, "com.orvane.velmar.HWInventory", "/sample");
    bus->enterEventLoopAsync();
    const auto ask = [&](const char* text)
    {
        std::promise<std::string> said;
        host->callMethodAsync("Try_string")
            .onInterface(interface)
            .withArguments(text)
            .uponReplyInvoke([&](const sdbus::Error* error, const std::string& answer)
                             { said.set_value(error != nullptr ? error->what() : answer); });
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
