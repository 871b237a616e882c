// A client of examples/answers.c on sdbus-c++: prints what it gets.
#include <cstdint>
#include <future>
#include <iostream>
#include <optional>
#include <vector>

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
    const auto sender = sdbus::createObject(*bus, sdbus::ObjectPath("/sender"));
    sender->emitSignal("Refresh").onInterface("com.orvane.velmar.HWInventory").withArguments("ab");
    const auto get = [&](const char* name)
    { return host->getProperty(name).onInterface(interface); };
    std::cout << (get("PropString").get<std::string>() == bus->getUniqueName());
    std::cout << get("PropArray1").get<std::vector<std::uint8_t>>().size();
    const auto reads = get("PropUInt64").get<std::uint64_t>();
    std::cout << get("PropUInt64").get<std::uint64_t>() - reads << '\n';
}
