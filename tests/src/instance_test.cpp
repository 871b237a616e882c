// Putting objects on the bus, through the functions a host calls: under which name and path, what
// of them is kept, and in which order they go. What a host reads from an object's record.
#include <string>

#include <gtest/gtest.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/system/BLT/gantry_server.hpp>
#include <com/orvane/velmar/system/NicController/gantry_server.hpp>

#include "instance.hpp"
#include "src/served.hpp"
#include "support/open_fds.hpp"
#include "support/private_bus.hpp"

namespace
{

using GANTRY_com_orvane_velmar_system_BLT::BLT;
using GANTRY_com_orvane_velmar_system_NicController::NicController;

constexpr const char* blt_path = "/com/orvane/velmar/system/BLT";
const std::string blt_log = "gantry_server.GANTRY_instantiate__com_orvane_velmar_system_BLT: ";
const std::string nic_log =
    "gantry_server.GANTRY_instantiate__com_orvane_velmar_system_NicController: ";

void instantiate_blt(GANTRY_cpp_context* context, const char* path = nullptr)
{
    GANTRY_instantiate__com_orvane_velmar_system_BLT(context, nullptr, path, nullptr);
}

void instantiate_nic(GANTRY_cpp_context* context, const char* path = nullptr)
{
    GANTRY_instantiate__com_orvane_velmar_system_NicController(context, nullptr, path, nullptr);
}

class Instance : public Served
{
  protected:
    bool serves(const char* path, const char* interface, const std::string& name = {})
    {
        return client
            .call({name.empty() ? service : name, path}, "org.freedesktop.DBus.Properties",
                  "GetAll", "s", interface)
            .ok();
    }
};

TEST_F(Instance, TheFirstClaimsItsNameForAll)
{
    context->service_name = nullptr;
    instantiate_blt(context);
    EXPECT_EQ(told(), "9 " + blt_log + "enter\n" + //
                          "9 " + blt_log + "instance_path=[" + blt_path + "]\n" + "9 " + blt_log +
                          "inst->path=[" + blt_path + "]\n" + "9 " + blt_log +
                          "setting the service_name\n" + "9 " + blt_log + "service_name=[" +
                          BLT::interface + "]\n" + "9 " + blt_log + "leave\n");
    instantiate_nic(nullptr, "/nic");              // the thread's context is the same
    EXPECT_EQ(told(), "9 " + nic_log + "enter\n" + //
                          "9 " + nic_log + "instance_path=[/nic]\n" + "9 " + nic_log +
                          "inst->path=[/nic]\n" + "9 " + nic_log + "leave\n");

    EXPECT_EQ(client.name_owner(BLT::interface), service);
    EXPECT_FALSE(client.name_has_owner(NicController::interface));
    EXPECT_TRUE(serves(blt_path, BLT::interface, BLT::interface));
    EXPECT_TRUE(serves("/nic", NicController::interface, BLT::interface));
    EXPECT_FALSE(serves("/com/orvane/velmar/system/NicController", NicController::interface));
    EXPECT_EQ(sent(), ""); // no InterfacesAdded
}

TEST_F(Instance, ClaimsNoNameWhenOneIsChosen)
{
    for (const char* chosen : {static_cast<const char*>(nullptr), "", "com.example.chosen"})
    {
        GANTRY_context_set_service(context, chosen);
        const std::string path = "/a" + std::to_string(context->tracker.size());
        instantiate_blt(context, path.c_str());
        EXPECT_TRUE(serves(path.c_str(), BLT::interface));
    }
    EXPECT_TRUE(serves("/a0", BLT::interface, "com.example.chosen"));
    EXPECT_FALSE(client.name_has_owner(BLT::interface));
}

TEST_F(Instance, IsNotMadeUnderARefusedNameWhichIsNotAskedForAgain)
{
    context->service_name = nullptr;
    client.request_name(BLT::interface); // and keeps it
    instantiate_blt(context);
    EXPECT_EQ(logged(2), "2 EXCEPTION " + blt_log +
                             "sd_bus_request_name: org.freedesktop.DBus.Error.FileExists: "
                             "File exists\\n\n");
    EXPECT_STREQ(context->service_name, BLT::interface);
    EXPECT_TRUE(context->tracker.empty());
    EXPECT_EQ(context->object_manager, nullptr);
    EXPECT_FALSE(serves(blt_path, BLT::interface));

    instantiate_nic(context, "/nic");
    EXPECT_EQ(logged(2), "");
    EXPECT_TRUE(serves("/nic", NicController::interface));
    EXPECT_FALSE(client.name_has_owner(NicController::interface));
}

TEST_F(Instance, HasItsRecordPathAndPlaceInOrder)
{
    const int table = 0;
    int host = 0;
    std::string path = "/first";
    GANTRY_instantiate__com_orvane_velmar_system_BLT(context, &table, path.c_str(), &host);
    path.replace(0, path.size(), "/again");
    instantiate_nic(context, path.c_str());
    instantiate_blt(context);
    path.clear();

    ASSERT_EQ(context->tracker.size(), 3U);
    const auto first = context->tracker[0];
    const auto second = context->tracker[1];
    const auto third = context->tracker[2];
    EXPECT_EQ(first.deleter, third.deleter);
    EXPECT_NE(first.deleter, second.deleter);
    first.deleter(nullptr);

    GANTRY_instance* record = static_cast<BLT*>(first.object)->inst;
    EXPECT_EQ(record->vctx, context);
    EXPECT_EQ(record->table, &table);
    EXPECT_STREQ(record->path, "/first");
    EXPECT_EQ(record->user_private, &host);
    EXPECT_EQ(record->the_service, first.object);
    EXPECT_STREQ(static_cast<NicController*>(second.object)->inst->path, "/again");
    EXPECT_STREQ(static_cast<BLT*>(third.object)->inst->path, blt_path);
    EXPECT_TRUE(serves("/first", BLT::interface));
    EXPECT_TRUE(serves("/again", NicController::interface));
    EXPECT_TRUE(serves(blt_path, BLT::interface));

    // What a host reads of it, and how: the path as copies of its own, which outlive the object.
    logged();
    void* out = nullptr;
    GANTRY_instance_get_context(record, &out);
    EXPECT_EQ(out, context);
    GANTRY_instance_get_user_private(record, &out);
    EXPECT_EQ(out, &host);
    char* copy = nullptr;
    char* other_copy = nullptr;
    GANTRY_instance_get_path(record, &copy);
    GANTRY_instance_get_path(record, &other_copy);
    *copy = '-';
    EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_instance_get_context: enter\n"
                        "9 gantrycommon.GANTRY_instance_get_user_private: enter\n"
                        "9 gantrycommon.GANTRY_instance_get_path: enter\n"
                        "9 gantrycommon.GANTRY_instance_get_path: enter\n");

    // Nothing comes of null.
    GANTRY_instance_get_context(nullptr, &out);
    GANTRY_instance_get_user_private(nullptr, &out);
    EXPECT_EQ(out, &host);
    char* const kept = copy;
    GANTRY_instance_get_path(nullptr, &copy);
    EXPECT_EQ(copy, kept);
    GANTRY_instance_get_context(record, nullptr);
    GANTRY_instance_get_user_private(record, nullptr);
    GANTRY_instance_get_path(record, nullptr);

    GANTRY_context_free(&context);
    EXPECT_STREQ(other_copy, "/first");
    logged();
    for (char** freed : {&copy, &copy, &other_copy, static_cast<char**>(nullptr)})
    {
        GANTRY_instance_path_free(freed);
        EXPECT_TRUE(freed == nullptr || *freed == nullptr);
        EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_instance_path_free: enter\n");
    }
}

TEST_F(Instance, OfARefusedPathLeavesNothingBehind)
{
    instantiate_blt(context, "/taken");
    const struct
    {
        const char* path;
        const char* error;
    } refusals[] = {
        {"/taken", "FileExists: File exists"},
        {"no/path", "InvalidArgs: Invalid argument"},
        {"", "InvalidArgs: Invalid argument"},
    };
    for (const auto& [path, error] : refusals)
    {
        const auto* manager = context->object_manager;
        logged();
        instantiate_blt(context, path);
        EXPECT_EQ(logged(2), "2 EXCEPTION " + blt_log +
                                 "sd_bus_add_object_vtable: org.freedesktop.DBus.Error." + error +
                                 "\\n\n");
        EXPECT_EQ(context->tracker.size(), 1U);
        EXPECT_NE(context->object_manager, manager);
        EXPECT_NE(context->object_manager, nullptr);
        EXPECT_TRUE(serves("/taken", BLT::interface));
    }
    instantiate_blt(context, "/free"); // the holder of a refused manager is let go like any other
    EXPECT_TRUE(serves("/free", BLT::interface));
}

TEST_F(Instance, GoesNewestFirst)
{
    for (const char* path : {"/1", "/2"})
    {
        instantiate_blt(context, path);
        instantiate_nic(context, path);
    }
    logged();
    GANTRY_context_free(&context);
    const std::string newest = "9 (mask 128) server.~NicController: destructor called, DAL true\n";
    const std::string oldest = "9 (mask 128) server.~BLT: destructor called, DAL true\n";
    EXPECT_EQ(told(), newest + oldest + newest + oldest);
}

// Each has an object manager at its own path, of which the context holds the last one only.
TEST_F(Instance, ListsWhatIsBelowIt)
{
    for (const char* path : {"/a", "/a/b", "/a/b/c", "/d"})
    {
        const auto* const earlier = context->object_manager;
        instantiate_nic(context, path);
        EXPECT_NE(context->object_manager, nullptr);
        EXPECT_NE(context->object_manager, earlier);
    }
    const auto below = [&](const char* path)
    {
        std::string paths;
        for (const auto& [listed, interfaces] : client.managed_objects({service, path}))
        {
            paths += listed + ' ';
        }
        return paths;
    };
    EXPECT_EQ(below("/a"), "/a/b "); // as far as the next object manager
    EXPECT_EQ(below("/a/b"), "/a/b/c ");
    EXPECT_EQ(below("/a/b/c"), "");
    EXPECT_EQ(below("/d"), "");
    EXPECT_EQ(client.call({service, "/"}, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")
                  .error_name,
              "org.freedesktop.DBus.Error.UnknownObject");
}

TEST_F(Instance, KeepsNoConnectionOpen)
{
    GANTRY_context_free(&context);
    for (const bool use_default : {true, false})
    {
        GANTRY_set_use_default(use_default);
        const auto before = support::open_fds();
        make();
        context->service_name = nullptr;
        for (int number = 0; number < 50; ++number)
        {
            instantiate_nic(context, ("/o/n" + std::to_string(number)).c_str());
        }
        EXPECT_TRUE(client.name_has_owner(NicController::interface));

        GANTRY_context_free(&context);
        EXPECT_EQ(support::open_fds(), before);
        EXPECT_TRUE(
            client.wait_for([&] { return !client.name_has_owner(NicController::interface); }));
    }
    GANTRY_set_use_default(true);
}

TEST_F(Instance, IsNotMadeWithoutABus)
{
    GANTRY_context_free(&context);
    support::bus().kill();
    logged();
    instantiate_blt(nullptr);
    const std::string lines = logged();
    EXPECT_TRUE(lines.starts_with("9 " + blt_log + "enter\n")) << lines;
    EXPECT_TRUE(lines.ends_with("1 " + blt_log + "vctx is NULL\n")) << lines;
    support::bus().restart();
}

} // namespace
