// What a host reads from the record that its callbacks receive.
#include <string>

#include <gmock/gmock.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/HWInventory/gantry_server.hpp>
#include <gantry/context.hpp>

#include "src/logged.hpp"

namespace
{

class Instance : public testing::Test
{
  protected:
    Instance()
    {
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, "");
        GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, "/a", &user);
        using Class = GANTRY_com_orvane_velmar_HWInventory::HWInventory;
        record = static_cast<Class*>(context->tracker.back().object)->inst;
        logged();
    }
    ~Instance() override
    {
        GANTRY_context_free(&context);
    }

    int user = 0;
    GANTRY_cpp_context* context = nullptr;
    GANTRY_instance* record = nullptr;
};

TEST_F(Instance, TellsItsContextPathAndUserPointer)
{
    void* out = nullptr;
    GANTRY_instance_get_context(record, &out);
    EXPECT_EQ(out, context);
    GANTRY_instance_get_user_private(record, &out);
    EXPECT_EQ(out, &user);

    // Copies of the caller's, which outlive the object.
    char* first = nullptr;
    char* second = nullptr;
    GANTRY_instance_get_path(record, &first);
    GANTRY_instance_get_path(record, &second);
    EXPECT_NE(first, second);
    *first = '-';
    EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_instance_get_context: enter\n"
                        "9 gantrycommon.GANTRY_instance_get_user_private: enter\n"
                        "9 gantrycommon.GANTRY_instance_get_path: enter\n"
                        "9 gantrycommon.GANTRY_instance_get_path: enter\n");
    GANTRY_context_free(&context);
    EXPECT_STREQ(second, "/a");
    logged();
    for (char** path : {&first, &first, &second, static_cast<char**>(nullptr)})
    {
        GANTRY_instance_path_free(path);
        EXPECT_TRUE(path == nullptr || *path == nullptr);
        EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_instance_path_free: enter\n");
    }
}

TEST_F(Instance, LeavesTheOutputAloneWithoutARecord)
{
    void* out = &user;
    GANTRY_instance_get_context(nullptr, &out);
    GANTRY_instance_get_user_private(nullptr, &out);
    EXPECT_EQ(out, &user);
    char text[] = "mine";
    char* path = text;
    GANTRY_instance_get_path(nullptr, &path);
    EXPECT_EQ(path, text);

    GANTRY_instance_get_context(record, nullptr);
    GANTRY_instance_get_user_private(record, nullptr);
    GANTRY_instance_get_path(record, nullptr);
    EXPECT_EQ(support::captured_log::lines(9).size(), 6U);
    EXPECT_EQ(logged(8), "");
}

} // namespace
