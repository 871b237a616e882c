// A client of examples/answers.c on sdbus-c++: prints what it gets.
#include <cstdint>
#include <iostream>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#if __has_include(<sdbus-c++/VTableItems.h>) // since version 2
using sdbus::ServiceName;
#else
using ServiceName = std::string;
#endif

int main()
{
    const char* interface = "com.orvane.velmar.sample.gantrytest";
    const auto bus = sdbus::createSystemBusConnection();
    const auto host = sdbus::createProxy(*bus, ServiceName("com.orvane.velmar.HWInventory"),
                                         sdbus::ObjectPath("/sample"));
    const auto ask = [&](const char* text)
    {
        std::string answer;
        auto call = host->callMethod("Try_string");
        call.onInterface(interface).withArguments(text).storeResultsTo(answer);
        return answer;
    };
    const auto print_error = [](const auto& refused)
    {
        try
        {
            refused();
        }
        catch (const sdbus::Error& error)
        {
            std::cout << error.what() << '\n';
        }
    };
    print_error([&] { ask("refuse"); });
    std::cout << ask("later") << '\n';
    std::cout << ask("who").starts_with(bus->getUniqueName() + ' ') << '\n';
    print_error([&] { host->setProperty("PropString").onInterface(interface).toValue("bad"); });
    const auto sender = sdbus::createObject(*bus, sdbus::ObjectPath("/sender"));
    sender->emitSignal("Refresh").onInterface("com.orvane.velmar.HWInventory").withArguments("ab");
    const auto get = [&](const char* name)
    { return host->getProperty(name).onInterface(interface); };
    std::cout << (get("PropString").get<std::string>() == bus->getUniqueName());
    std::cout << get("PropArray1").get<std::vector<std::uint8_t>>().size();
    const auto reads = get("PropUInt64").get<std::uint64_t>();
    std::cout << get("PropUInt64").get<std::uint64_t>() - reads << '\n';
}
