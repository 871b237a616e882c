// Clients that start from one path: plain, of GDBus (by Python) and by busctl.
#include <future>
#include <regex>
#include <set>

#include <com/orvane/velmar/system/BLT/gantry_server.hpp>

#include "src/served.hpp"

namespace
{

constexpr const char* manager = "org.freedesktop.DBus.ObjectManager";
const std::string root = "/com/orvane/velmar";
const std::string blt = root + "/system/BLT";
const std::string usb = blt + "/usb"; // below another object's manager

struct Clients : Served
{
    Clients()
    {
        GANTRY_context_manage(nullptr, root.c_str(), nullptr);
        GANTRY_instantiate__com_orvane_velmar_system_BLT(nullptr, nullptr, nullptr, nullptr);
    }

    GANTRY_instance* plug(const std::string& path)
    {
        auto* plugged = publish(GANTRY_instantiate__com_orvane_velmar_system_USB, path.c_str());
        GANTRY_instance_announce_added(plugged, nullptr);
        return plugged;
    }

    std::multiset<std::string> managed(const std::string& path)
    {
        const auto text = client.call({service, path}, manager, "GetManagedObjects").text;
        const std::regex entry(R"#("(/[^"]*)": \{)#");
        return {std::sregex_token_iterator(text.begin(), text.end(), entry, 1), {}};
    }
};

TEST_F(Clients, AreToldOfObjectsBelowOtherManagersOnceAndOfNoneBeside)
{
    for (const char* path : {root.c_str(), "/", "r", static_cast<const char*>(nullptr)})
    {
        GANTRY_context_manage(context, path, nullptr);
        EXPECT_EQ(logged(2).empty(), path != nullptr && *path == '/');
    }
    // From the root the same as sd-bus itself sends from the object's own path.
    const auto expect_sent = [this](const char* member)
    {
        const auto lines = sent();
        const auto rest = lines.substr(usb.size(), lines.find('\n') + 1 - usb.size());
        EXPECT_THAT(rest, testing::StartsWith(member));
        EXPECT_EQ(lines, usb + rest + '/' + rest + root + rest);
    };
    auto* plugged = plug(usb);
    expect_sent(" InterfacesAdded ");
    plug(root + "22");
    EXPECT_THAT(sent(), testing::Not(HasSubstr('\n' + root + ' ')));
    plug(root);
    EXPECT_EQ(managed(root), (std::multiset{blt, usb}));
    EXPECT_EQ(managed("/"), (std::multiset{root, root + "22", blt, usb}));
    sent();
    GANTRY_instance_free(&plugged);
    expect_sent(" InterfacesRemoved ");
    make(); // on the same connection
    plug(blt);
    EXPECT_TRUE(managed(root).empty());
}

TEST_F(Clients, OfTheExamplesSeeWhatThereIsAndHotPlug)
{
    support::Program programs[] = {support::Program({CLIENT, service.c_str()}),
                                   support::Program({"env", CLIENT ".sh", service.c_str()}),
                                   support::Program({"env", CLIENT ".py", service.c_str()})};
    const auto expect_line = [this](support::Program& program, const std::string& text)
    {
        auto line = std::async(std::launch::async, [&program] { return program.line(); });
        client.wait_for(
            [&line] { return line.wait_for(std::chrono::seconds()) == std::future_status::ready; });
        EXPECT_EQ(line.get(), text);
    };
    const auto expect_lines = [&](const std::string& text)
    { std::ranges::for_each(programs, [&](auto& each) { expect_line(each, text); }); };
    expect_lines("found " + blt);
    newest<GANTRY_com_orvane_velmar_system_BLT::BLT>().version(5);
    expect_line(programs[2], "changed " + blt + " com.orvane.velmar.system.BLT Version 5");
    auto* plugged = plug(usb);
    expect_lines("added " + usb);
    GANTRY_instance_free(&plugged);
    expect_lines("removed " + usb);
}

} // namespace
