// Putting objects on the bus, through the functions a host calls.
#include <cstddef>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/system/BLT/gantry_server.hpp>
#include <com/orvane/velmar/system/NicController/gantry_server.hpp>
#include <gantry/context.hpp>

#include "instance.hpp"
#include "support/captured_log.hpp"
#include "support/client.hpp"
#include "support/private_bus.hpp"

namespace
{

namespace captured_log = support::captured_log;

using GANTRY_com_orvane_velmar_system_BLT::BLT;
using GANTRY_com_orvane_velmar_system_NicController::NicController;
using support::Client;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* blt = BLT::interface;
constexpr const char* blt_path = "/com/orvane/velmar/system/BLT";
constexpr const char* nic = NicController::interface;
constexpr const char* nic_path = "/com/orvane/velmar/system/NicController";

void instantiate_blt(GANTRY_cpp_context* context, const char* path = nullptr)
{
    GANTRY_instantiate__com_orvane_velmar_system_BLT(context, nullptr, path, nullptr);
}

void instantiate_nic(GANTRY_cpp_context* context, const char* path = nullptr)
{
    GANTRY_instantiate__com_orvane_velmar_system_NicController(context, nullptr, path, nullptr);
}

class Instantiate : public testing::Test
{
  protected:
    Instantiate()
    {
        GANTRY_context_new(&context);
    }

    ~Instantiate() override
    {
        GANTRY_context_free(&context);
    }

    void SetUp() override
    {
        ASSERT_NE(context, nullptr);
        captured_log::clear();
    }

    // The connection's own name, under which all is served in any case.
    std::string unique_name() const
    {
        const char* name = nullptr;
        sd_bus_get_unique_name(GANTRY_get_sd_bus(context->bus), &name);
        return name;
    }

    bool serves(const std::string& service, const char* path, const char* interface)
    {
        return client
            .call({service, path}, "org.freedesktop.DBus.Properties", "GetAll", "s", interface)
            .ok();
    }

    // What the frame has logged for the generated code, and how, since the last look.
    static std::vector<std::string> log()
    {
        std::vector<std::string> lines;
        for (const auto& entry : captured_log::messages())
        {
            if (entry.file == "gantry_server" || entry.file == "server")
            {
                EXPECT_GT(entry.line, 0);
                EXPECT_EQ(entry.mask, entry.file == "server" ? 0x80 : 0x110);
                lines.push_back(std::to_string(entry.level) + ' ' + entry.function +
                                (entry.exception ? " EXCEPTION " : " ") + entry.message);
            }
        }
        captured_log::clear();
        return lines;
    }

    GANTRY_cpp_context* context = nullptr;
    Client client{[this]
                  {
                      if (context != nullptr)
                      {
                          GANTRY_dbus_loop_one_pass(context);
                      }
                  }};
};

TEST_F(Instantiate, TheFirstObjectClaimsItsNameForAll)
{
    const std::string blt_function = "GANTRY_instantiate__com_orvane_velmar_system_BLT ";
    const std::string nic_function = "GANTRY_instantiate__com_orvane_velmar_system_NicController ";
    client.subscribe();

    instantiate_blt(context);
    EXPECT_THAT(log(), ElementsAre("9 " + blt_function + "enter",
                                   "9 " + blt_function + "instance_path=[" + blt_path + "]",
                                   "9 " + blt_function + "inst->path=[" + blt_path + "]",
                                   "9 " + blt_function + "setting the service_name",
                                   "9 " + blt_function + "service_name=[" + blt + "]",
                                   "9 " + blt_function + "leave"));
    instantiate_nic(nullptr, "/nic"); // the thread's context is the same
    EXPECT_THAT(log(), ElementsAre("9 " + nic_function + "enter",
                                   "9 " + nic_function + "instance_path=[/nic]",
                                   "9 " + nic_function + "inst->path=[/nic]",
                                   "9 " + nic_function + "leave"));

    EXPECT_EQ(client.name_owner(blt), unique_name());
    EXPECT_FALSE(client.name_has_owner(nic));
    EXPECT_TRUE(serves(blt, blt_path, blt));
    EXPECT_TRUE(serves(blt, "/nic", nic));
    EXPECT_FALSE(serves(blt, nic_path, nic));
    EXPECT_THAT(client.signals(), IsEmpty()); // no InterfacesAdded
}

TEST_F(Instantiate, AChosenNameIsTheOnlyOne)
{
    GANTRY_context_set_service(context, "com.example.chosen");
    instantiate_blt(context);
    EXPECT_TRUE(serves("com.example.chosen", blt_path, blt));
    EXPECT_FALSE(client.name_has_owner(blt));
}

TEST_F(Instantiate, NoNameIsAChoiceToo)
{
    for (const char* none : {static_cast<const char*>(nullptr), ""})
    {
        GANTRY_context_set_service(context, none);
        instantiate_blt(context, none == nullptr ? "/null" : "/empty");
    }
    EXPECT_FALSE(client.name_has_owner(blt));
    EXPECT_TRUE(serves(unique_name(), "/null", blt));
    EXPECT_TRUE(serves(unique_name(), "/empty", blt));
}

TEST_F(Instantiate, ARefusedNameIsNotAskedForAgain)
{
    client.request_name(blt); // and keeps it
    instantiate_blt(context);
    EXPECT_EQ(log().back(), "2 GANTRY_instantiate__com_orvane_velmar_system_BLT EXCEPTION "
                            "sd_bus_request_name: org.freedesktop.DBus.Error.FileExists: File "
                            "exists\n");
    EXPECT_STREQ(context->service_name, blt);
    EXPECT_THAT(context->tracker, IsEmpty());
    EXPECT_EQ(context->object_manager, nullptr);
    EXPECT_FALSE(serves(unique_name(), blt_path, blt));

    instantiate_nic(context);
    EXPECT_THAT(log(), SizeIs(4));
    EXPECT_TRUE(serves(unique_name(), nic_path, nic));
    EXPECT_FALSE(client.name_has_owner(nic));
}

TEST_F(Instantiate, EachObjectHasItsRecordPathAndPlaceInOrder)
{
    GANTRY_context_set_service(context, nullptr);
    const int table = 0;
    int host = 0;
    std::string path = "/first";
    GANTRY_instantiate__com_orvane_velmar_system_BLT(context, &table, path.c_str(), &host);
    path.replace(0, path.size(), "/again");
    instantiate_nic(context, path.c_str());
    instantiate_blt(context);
    path.clear();

    ASSERT_THAT(context->tracker, SizeIs(3));
    const auto first = context->tracker[0];
    const auto second = context->tracker[1];
    const auto third = context->tracker[2];
    EXPECT_EQ(first.deleter, third.deleter);
    EXPECT_NE(first.deleter, second.deleter);
    first.deleter(nullptr);

    const GANTRY_instance* record = static_cast<BLT*>(first.object)->inst;
    EXPECT_EQ(record->vctx, context);
    EXPECT_EQ(record->table, &table);
    EXPECT_STREQ(record->path, "/first");
    EXPECT_EQ(record->user_private, &host);
    EXPECT_EQ(record->the_service, first.object);
    EXPECT_STREQ(static_cast<NicController*>(second.object)->inst->path, "/again");
    record = static_cast<BLT*>(third.object)->inst;
    EXPECT_STREQ(record->path, blt_path);
    EXPECT_EQ(record->table, nullptr);
    EXPECT_EQ(record->the_service, third.object);

    EXPECT_TRUE(serves(unique_name(), "/first", blt));
    EXPECT_TRUE(serves(unique_name(), "/again", nic));
    EXPECT_TRUE(serves(unique_name(), blt_path, blt));
}

TEST_F(Instantiate, ARefusedInterfaceLeavesNothingBehind)
{
    GANTRY_context_set_service(context, nullptr);
    instantiate_blt(context, "/taken");
    const std::string failed = "2 GANTRY_instantiate__com_orvane_velmar_system_BLT EXCEPTION "
                               "sd_bus_add_object_vtable: org.freedesktop.DBus.Error.";
    struct Refused
    {
        const char* path;
        std::string error;
    };
    for (const auto& [path, error] : {Refused{"/taken", "FileExists: File exists\n"},
                                      Refused{"no/path", "InvalidArgs: Invalid argument\n"},
                                      Refused{"", "InvalidArgs: Invalid argument\n"}})
    {
        const auto* manager = context->object_manager;
        log();
        instantiate_blt(context, path);
        EXPECT_EQ(log().back(), failed + error);
        EXPECT_THAT(context->tracker, SizeIs(1));
        EXPECT_NE(context->object_manager, manager);
        EXPECT_NE(context->object_manager, nullptr);
        EXPECT_TRUE(serves(unique_name(), "/taken", blt));
    }
    instantiate_blt(context, "/free"); // the holder of a refused manager is let go like any other
    EXPECT_TRUE(serves(unique_name(), "/free", blt));
}

TEST_F(Instantiate, FreeingTakesTheNewestOffFirst)
{
    client.subscribe();
    for (const char* path : {"/1", "/2"})
    {
        instantiate_blt(context, path);
        instantiate_nic(context, path);
    }
    log();
    GANTRY_context_free(&context);
    EXPECT_THAT(log(), ElementsAre("9 ~NicController destructor called, DAL true",
                                   "9 ~BLT destructor called, DAL true",
                                   "9 ~NicController destructor called, DAL true",
                                   "9 ~BLT destructor called, DAL true"));
    EXPECT_TRUE(client.wait_for([&] { return !client.name_has_owner(blt); }));
    EXPECT_THAT(client.signals(), IsEmpty());
}

TEST_F(Instantiate, NothingWithoutABus)
{
    GANTRY_context_free(&context);
    support::bus().kill();
    log();
    instantiate_blt(nullptr);
    EXPECT_THAT(log(),
                ElementsAre("9 GANTRY_instantiate__com_orvane_velmar_system_BLT enter",
                            "1 GANTRY_instantiate__com_orvane_velmar_system_BLT vctx is NULL"));
    support::bus().restart();
}

} // namespace
