// A client of answers.c on sdbus-c++: prints what it gets, the first call's answer last.
#include <sdbus-c++/sdbus-c++.h>

#include <future>
#include <iostream>

int main()
{
    const std::string interface = "com.orvane.velmar.sample.gantrytest";
    const auto connection = sdbus::createSystemBusConnection();
    connection->enterEventLoopAsync();
    const auto host = sdbus::createProxy(*connection, "com.orvane.velmar.HWInventory", "/sample");
    std::promise<std::string> late;
    host->callMethodAsync("Try_string")
        .onInterface(interface)
        .withArguments(std::string("later"))
        .uponReplyInvoke([&](const sdbus::Error* error, const std::string& answer)
                         { late.set_value(error != nullptr ? error->getMessage() : answer); });
    const auto refused = [](const auto& attempt)
    {
        try
        {
            attempt();
        }
        catch (const sdbus::Error& error)
        {
            std::cout << error.what() << '\n';
        }
    };
    const auto ask = [&](const std::string& question)
    {
        std::string answer;
        host->callMethod("Try_string")
            .onInterface(interface)
            .withArguments(question)
            .storeResultsTo(answer);
        return answer;
    };
    const auto write = [&](const char* value)
    { host->setProperty("PropString").onInterface(interface).toValue(std::string(value)); };
    refused([&] { ask("refuse"); });
    std::cout << (ask("who").starts_with(connection->getUniqueName() + ' ') ? "own name\n" : "?\n");
    write("good");
    refused([&] { write("bad"); });
    const sdbus::Variant kept = host->getProperty("PropString").onInterface(interface);
    std::cout << kept.get<std::string>() << '\n' << late.get_future().get() << '\n';
    connection->leaveEventLoop();
}
