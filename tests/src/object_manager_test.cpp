// Every object has an object manager at its own path, of which the context holds the last one only.
#include <string>

#include <gmock/gmock.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "support/client.hpp"
#include "support/open_fds.hpp"

namespace
{

using support::Client;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

constexpr const char* service = "com.example.managers";

void instantiate(GANTRY_cpp_context* context, const std::string& path)
{
    GANTRY_instantiate__com_orvane_velmar_system_NicController(context, nullptr, path.c_str(),
                                                               nullptr);
}

TEST(ObjectManager, EachListsWhatIsBelowItsObject)
{
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    ASSERT_NE(context, nullptr);
    GANTRY_context_set_service(context, service);
    Client client([&] { GANTRY_dbus_loop_one_pass(context); });

    instantiate(context, "/a");
    const auto* first = context->object_manager;
    EXPECT_NE(first, nullptr);
    instantiate(context, "/a/b");
    EXPECT_NE(context->object_manager, first);
    instantiate(context, "/a/b/c");
    instantiate(context, "/d");

    const auto below = [&](const char* path) { return client.managed_objects({service, path}); };
    // As far as the next object manager.
    EXPECT_THAT(below("/a"), ElementsAre(Key("/a/b")));
    EXPECT_THAT(below("/a/b"), ElementsAre(Key("/a/b/c")));
    EXPECT_THAT(below("/a/b/c"), IsEmpty());
    EXPECT_THAT(below("/d"), IsEmpty());
    EXPECT_EQ(client.call({service, "/"}, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")
                  .error_name,
              "org.freedesktop.DBus.Error.UnknownObject");
    GANTRY_context_free(&context);
}

TEST(ObjectManager, NoneKeepsTheConnectionOpen)
{
    Client client;
    for (const bool use_default : {true, false})
    {
        GANTRY_set_use_default(use_default);
        const auto before = support::open_fds();
        GANTRY_cpp_context* context = nullptr;
        GANTRY_context_new(&context);
        ASSERT_NE(context, nullptr);
        GANTRY_context_set_service(context, service);
        for (int number = 0; number < 50; ++number)
        {
            instantiate(context, "/o/n" + std::to_string(number));
        }
        EXPECT_TRUE(client.name_has_owner(service));

        GANTRY_context_free(&context);
        EXPECT_EQ(support::open_fds(), before);
        EXPECT_TRUE(client.wait_for([&] { return !client.name_has_owner(service); }));
    }
    GANTRY_set_use_default(true);
}

} // namespace
