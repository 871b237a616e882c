// Objects from their publication to their end: the name and path that each gets, how it is found
// and announced, and what goes when it is freed, also inside its own callback.
#include <map>
#include <random>

#include <com/orvane/velmar/system/BLT/gantry_server.hpp>
#include <gantry/object.hpp>

#include "src/served.hpp"

namespace
{

using testing::SizeIs;

constexpr const char* async = "com.orvane.velmar.sample.async";
constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";

struct Class
{
    const char* interface;
    void (*instantiate)(GANTRY_cpp_context*, const void*, const char*, void*);
};
constexpr Class blt{"com.orvane.velmar.system.BLT",
                    GANTRY_instantiate__com_orvane_velmar_system_BLT};
constexpr Class usb{"com.orvane.velmar.system.USB",
                    GANTRY_instantiate__com_orvane_velmar_system_USB};
const std::string blt_log = "GANTRY_instantiate__com_orvane_velmar_system_BLT: ";

class Object : public Served
{
  protected:
    GANTRY_instance* find(const char* interface, const char* path = nullptr)
    {
        auto* found = reinterpret_cast<GANTRY_instance*>(this); // which is not to stay
        GANTRY_instance_find(context, interface, path, &found);
        return found;
    }

    GANTRY_instance* add(const Class& of, const char* path = nullptr)
    {
        of.instantiate(context, nullptr, path, nullptr);
        return find(of.interface, path);
    }

    bool serves(const char* path, const char* interface)
    {
        return client.get({service, path}, interface, "Key").ok();
    }

    bool has_manager(const char* path)
    {
        return client
            .call({service, path}, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")
            .ok();
    }
};

TEST_F(Object, ClaimsANameOnlyAsTheFirstAndWhenNoneIsChosen)
{
    add(blt, "/chosen");
    EXPECT_EQ(client.name_owner(blt.interface), "");
    context->service_name = nullptr;
    logged();
    add(blt);
    const auto traced = logged();
    for (const char* text : {"inst->path=[/com/orvane/velmar/system/BLT]",
                             "service_name=[com.orvane.velmar.system.BLT]", "leave"})
    {
        EXPECT_THAT(traced, HasSubstr(blt_log + text));
    }
    usb.instantiate(nullptr, nullptr, "/usb", nullptr); // null is the thread's own context
    EXPECT_TRUE(serves("/com/orvane/velmar/system/BLT", blt.interface));
    EXPECT_TRUE(serves("/usb", usb.interface));
    EXPECT_EQ(client.name_owner(blt.interface), service);
    EXPECT_EQ(client.name_owner(usb.interface), "");
    EXPECT_EQ(sent(), ""); // no InterfacesAdded
}

TEST_F(Object, IsFoundWhateverOthersComeAndGo)
{
    std::map<std::string, GANTRY_instance*> there;
    std::mt19937 random(1);
    for (int round = 0; round < 2'000; ++round)
    {
        const auto path = "/o" + std::to_string(random() % 100);
        auto*& object = there[path];
        ASSERT_EQ(find(usb.interface, path.c_str()), object) << path;
        if (object != nullptr)
        {
            GANTRY_instance_free(&object);
            ASSERT_EQ(find(usb.interface, path.c_str()), nullptr) << path;
            continue;
        }
        object = add(usb, path.c_str());
        ASSERT_NE(object, nullptr) << path;
    }
}

TEST_F(Object, KeepsWhatItsHostGaveItAndItsContext)
{
    int host = 0;
    void* kept = nullptr;
    char* path = nullptr; // the caller's copy
    blt.instantiate(context, nullptr, "/kept", &host);
    auto* object = find(blt.interface, "/kept");
    GANTRY_instance_get_user_private(object, &kept);
    EXPECT_EQ(kept, &host);
    GANTRY_instance_get_context(object, &kept);
    EXPECT_EQ(kept, context);
    GANTRY_instance_get_path(object, &path);
    EXPECT_STREQ(path, "/kept");
    *path = '-';
    EXPECT_EQ(find(blt.interface, "/kept"), object);
    GANTRY_instance_path_free(&path);
    EXPECT_EQ(path, nullptr);
    GANTRY_context_set_user_private(context, &host);
    GANTRY_context_get_user_private(nullptr, &kept);
    EXPECT_EQ(kept, &host);
}

TEST_F(Object, UnderARefusedNameLeavesNothingAndTheNextDoesNotAskAgain)
{
    context->service_name = nullptr;
    ASSERT_EQ(sd_bus_request_name(client.bus(), blt.interface, 0), 1); // and keeps it
    EXPECT_EQ(add(blt, "/blt"), nullptr);
    EXPECT_THAT(logged(2), HasSubstr(blt_log + "sd_bus_request_name: "));
    EXPECT_FALSE(has_manager("/blt"));
    EXPECT_NE(add(usb), nullptr);
    EXPECT_EQ(client.name_owner(usb.interface), "");
    EXPECT_THAT(context->tracker, SizeIs(1));
}

TEST_F(Object, AtARefusedPathLeavesTheOthersAsTheyAre)
{
    auto* taken = add(blt, "/taken");
    for (const auto& [path, error] :
         {std::pair{"/taken", "FileExists"}, {"no/path", "InvalidArgs"}, {"", "InvalidArgs"}})
    {
        add(blt, path);
        const auto why =
            error + std::string("[^\n]*\n*.*BLT: that was .com.*BLT. at .") + path + "[]]\n$";
        EXPECT_THAT(logged(2), testing::ContainsRegex(why));
        EXPECT_THAT(context->tracker, SizeIs(1));
        EXPECT_TRUE(serves("/taken", blt.interface));
    }
    EXPECT_NE(add(blt, "/free"), nullptr);
    GANTRY_instance_free(&taken);
    EXPECT_FALSE(has_manager("/taken"));

    GANTRY_context_free(&context);
    support::bus().kill();
    blt.instantiate(nullptr, nullptr, nullptr, nullptr);
    EXPECT_THAT(logged(), HasSubstr(blt_log + "vctx is NULL\n"));
    support::bus().restart();
}

TEST_F(Object, IsFoundByItsInterfaceAndPathTheOldestFirst)
{
    std::string path = "/1";
    auto* first = add(usb, path.c_str());
    path = "/-"; // the object has a copy
    add(blt, "/0");
    auto* second = add(usb, "/2");
    auto* third = add(blt, "/1");
    EXPECT_EQ(find(usb.interface), first);
    EXPECT_EQ(find(usb.interface, "/2"), second);
    EXPECT_EQ(find(blt.interface, "/1"), third);
    for (const auto& [interface, at] :
         {std::pair{blt.interface, "/2"}, {usb.interface, "/"}, {async, nullptr}, {nullptr, "/1"}})
    {
        EXPECT_EQ(find(interface, at), nullptr) << at;
    }
    GANTRY_instance_find(context, usb.interface, nullptr, nullptr);
    GANTRY_instance_free(&third); // the last that was created
    int error = 0;
    GANTRY_instance_get_created(context, &third, &error);
    EXPECT_EQ(third, nullptr);
    EXPECT_EQ(error, ENOENT);
    GANTRY_instance_free(&first);
    GANTRY_instance_find(nullptr, usb.interface, nullptr, &first); // the thread's own context
    EXPECT_EQ(first, second);
}

TEST_F(Object, IsAnnouncedOnRequestAndRemovedOnce)
{
    auto* plugged = add(usb, "/u");
    int error = -1;
    GANTRY_instance_announce_added(plugged, &error);
    EXPECT_EQ(error, 0);
    EXPECT_THAT(sent(), testing::MatchesRegex("/u InterfacesAdded .*system.USB.*Key.*\n"));
    GANTRY_instance_announce_added(nullptr, &error);
    EXPECT_EQ(error, EINVAL);

    logged();
    GANTRY_instance_free(&plugged);
    GANTRY_instance_free(&plugged);
    GANTRY_instance_free(nullptr);
    // The interfaces that GetManagedObjects lists.
    EXPECT_EQ(sent(), removed("/u", usb.interface));
    EXPECT_FALSE(serves("/u", usb.interface));
    EXPECT_NE(add(usb, "/u"), nullptr); // the path is free again

    // One that is where a root is isn't below it.
    GANTRY_context_manage(context, "/", nullptr);
    plugged = add(usb, "/");
    GANTRY_instance_announce_added(plugged, nullptr);
    GANTRY_instance_free(&plugged);
    EXPECT_THAT(sent(), testing::MatchesRegex("/ InterfacesAdded [^\n]*\n"
                                              "/ InterfacesRemoved [^\n]*\n"));
    EXPECT_EQ(logged(2), "");
}

using Server = sdbusplus::server::com::orvane::velmar::system::BLT;
struct Own : Server
{
    using Server::Server;
    gantry::Published published;
};

TEST_F(Object, OfTheHostsOwnIsListedEverywhereAndAnnouncedIfItIsPublished)
{
    const auto is_listed = [this]
    {
        const auto reply =
            client.call({service, "/"}, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
        return reply.text.find("\"/u/own\": {") != std::string::npos;
    };
    add(usb, "/u"); // whose object manager is nearer
    GANTRY_context_manage(context, "/", nullptr);
    GANTRY_context_manage(context, "/u/o", nullptr); // has nothing below it
    auto own = std::make_unique<Own>(context->bus, "/u/own");
    EXPECT_TRUE(is_listed());
    EXPECT_EQ(find(blt.interface, "/u/own"), nullptr);
    for (int number = 0; number < 300; ++number)
    {
        publish(GANTRY_instantiate__com_orvane_velmar_system_NicPort,
                ("/" + std::to_string(number)).c_str());
    }
    for (int round = 0; round < 20; ++round)
    {
        EXPECT_TRUE(has_manager("/")) << round; // for a client that reads its replies
    }

    own->published = gantry::publish<Server>(context, *own);
    auto* found = find(blt.interface);
    EXPECT_EQ(found, own->published.get());
    EXPECT_EQ(gantry::object<GANTRY_com_orvane_velmar_system_BLT::BLT>(found), nullptr);
    EXPECT_THROW(static_cast<void>(gantry::publish<Server>(nullptr, *own)),
                 sdbusplus::exception::SdBusError);
    GANTRY_instance_announce_added(found, nullptr);
    EXPECT_THAT(sent(),
                testing::MatchesRegex("/u InterfacesAdded oa[^\n]*Peer[^\n]*BLT[^\n]*\n"
                                      "/ InterfacesAdded oa[^\n]*/u/own[^\n]*Peer[^\n]*BLT.*\n"));
    for (const char* path : {"/v", "/w"})
    {
        auto* other = add(usb, path);
        GANTRY_instance_free(&other);
    }
    sent();
    own.reset();
    EXPECT_THAT(sent(), testing::MatchesRegex("/u InterfacesRemoved [^\n]*Peer[^\n]*BLT\"]\n"
                                              "/ InterfacesRemoved [^\n]*Peer[^\n]*BLT\"]\n"));
    EXPECT_FALSE(is_listed());

    Own alone(context->bus, "/alone"); // below the root only
    alone.published = gantry::publish<Server>(context, alone);
    GANTRY_instance_announce_added(alone.published.get(), nullptr);
    alone.published.reset();
    EXPECT_THAT(sent(), testing::MatchesRegex("/ InterfacesAdded [^\n]*\n"
                                              "/ InterfacesRemoved [^\n]*\n"));

    for (const bool outlives : {false, true})
    {
        own = std::make_unique<Own>(context->bus, "/u/own");
        own->published = gantry::publish<Server>(context, *own);
        found = find(blt.interface, "/u/own");
        outlives ? make() : GANTRY_instance_free(&found);
        EXPECT_EQ(find(blt.interface), nullptr);
        own.reset();
    }
}

// An object manager is held by the context when it is the newest, else by the connection.
TEST_F(Object, TakesItsOwnObjectManagerAlongAndNoOther)
{
    for (const bool newest : {false, true})
    {
        auto* one = add(usb, "/m");
        auto* other = add(blt, "/m");
        auto* below = add(usb, "/m/below");
        if (newest)
        {
            GANTRY_instance_free(&other);
            EXPECT_TRUE(has_manager("/m")); // for the other interface
            other = add(blt, "/m");
        }
        GANTRY_instance_free(&one);
        EXPECT_TRUE(has_manager("/m"));
        EXPECT_TRUE(serves("/m", blt.interface));
        GANTRY_instance_free(&other);
        EXPECT_FALSE(has_manager("/m"));
        EXPECT_TRUE(has_manager("/m/below"));
        GANTRY_instance_free(&below);
        EXPECT_FALSE(has_manager("/m/below"));
    }
}

bool makes_pass = false;
bool is_ended = false;

// Objects of this class alone tell the log.
std::size_t destroyed()
{
    return support::count_logged("destructor called, DAL true");
}

void free_itself(GANTRY_instance* instance, char** out)
{
    for (auto* freed : {instance, instance}) // the second is nothing more to do
    {
        GANTRY_instance_free(&freed);
    }
    if (makes_pass)
    {
        GANTRY_dbus_loop_one_pass(nullptr);
        EXPECT_EQ(destroyed(), 0U);
    }
    const char* interface = nullptr;
    GANTRY_instance_get_interface(instance, &interface);
    GANTRY_instance_get_path(instance, out);
    GANTRY_instance_find(nullptr, interface, *out, &instance);
    EXPECT_EQ(instance, nullptr);
}

void end_loop(GANTRY_instance* /*instance*/, char* /*in*/, char** /*out*/)
{
    EXPECT_EQ(destroyed(), 1U);
    is_ended = true;
    GANTRY_context_stop(nullptr);
}

const GANTRY_table__com_orvane_velmar_sample_async message{free_itself, nullptr};
const GANTRY_table__com_orvane_velmar_sample_async end{nullptr, end_loop};

class FreedInItsCallback : public Object
{
  protected:
    void publish()
    {
        make();
        reply.GetString = free_itself;
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &reply, "/reply", nullptr);
        GANTRY_instantiate__com_orvane_velmar_sample_async(context, &message, "/message", nullptr);
        GANTRY_instantiate__com_orvane_velmar_sample_async(context, &end, "/end", nullptr);
        makes_pass = is_ended = false;
        logged();
    }

    GANTRY_table__com_orvane_velmar_sample_gantrytest reply{};
};

TEST_F(FreedInItsCallback, GoesWhenTheCallbackHasReturnedToAnyLoop)
{
    void (*const hosts_own)(GANTRY_cpp_context*) = [](GANTRY_cpp_context* of)
    { sd_event_run(of->event.get(), 1'000); };
    for (auto* loop : {GANTRY_dbus_loop, GANTRY_dbus_loop_one_pass, GANTRY_dbus_sdloop, hosts_own})
    {
        publish();
        reply.GetString = [](GANTRY_instance* instance, char** out)
        {
            // A source of the host's that is due already comes behind the destruction, too.
            const auto look = [](sd_event_source*, void*)
            {
                EXPECT_EQ(destroyed(), 1U);
                return 0;
            };
            sd_event* event = nullptr;
            sd_event_default(&event);
            sd_event_add_defer(event, nullptr, look, nullptr);
            sd_event_unref(event);
            free_itself(instance, out);
        };
        support::Client caller{[&] { is_ended ? static_cast<void>(0) : loop(context); }};
        // All in the queue before the first is served.
        auto first = caller.start({service, "/reply"}, gantrytest, "GetString");
        auto second = caller.start({service, "/message"}, async, "NoParam");
        auto again = caller.start({service, "/reply"}, gantrytest, "GetString");
        auto last = caller.start({service, "/end"}, async, "OneParam", "s", "");
        sd_bus_flush(caller.bus());
        EXPECT_EQ(caller.wait(std::move(first)).text, "s \"/reply\"");
        EXPECT_EQ(caller.wait(std::move(second)).text, "s \"/message\"");
        EXPECT_THAT(caller.wait(std::move(again)).text, HasSubstr("Error.Unknown"));
        EXPECT_TRUE(caller.wait(std::move(last)).ok());
    }
}

// Inside of a host's own event loop, or when that never runs again.
TEST_F(FreedInItsCallback, GoesWithTheNextPassBehindItOrWithItsContext)
{
    publish();
    support::Client outside{[this] { sd_bus_process(GANTRY_get_sd_bus(context->bus), nullptr); }};
    makes_pass = true; // which comes too early
    EXPECT_TRUE(outside.call({service, "/reply"}, gantrytest, "GetString").ok());
    EXPECT_TRUE(outside.call({service, "/message"}, async, "NoParam").ok());
    GANTRY_dbus_loop_one_pass(context);
    EXPECT_EQ(destroyed(), 1U);

    makes_pass = false;
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &reply, "/last", nullptr);
    EXPECT_TRUE(outside.call({service, "/last"}, gantrytest, "GetString").ok());
    EXPECT_EQ(destroyed(), 1U);
    auto* event = sd_event_ref(context->event.get());
    GANTRY_context_free(&context);
    EXPECT_EQ(destroyed(), 2U);
    EXPECT_EQ(sd_event_run(event, 1), 0);
    sd_event_unref(event);
}

TEST_F(Object, IsOfItsInstanceAndOfNoOtherClass)
{
    using GANTRY_com_orvane_velmar_system_BLT::BLT;
    auto* record = add(blt, "/b");
    EXPECT_EQ(gantry::object<BLT>(record)->inst, record);
    EXPECT_EQ(gantry::object<BLT>(add(usb, "/b")), nullptr);
    EXPECT_EQ(gantry::object<BLT>(nullptr), nullptr);
}

TEST_F(Object, ThatItsHostMadeOutlivesItsContext)
{
    using sdbusplus::server::com::orvane::velmar::system::BLT;
    for (const bool shared : {true, false})
    {
        GANTRY_set_use_default(shared);
        make();
        auto own = std::make_unique<BLT>(context->bus, "/own");
        EXPECT_TRUE(serves("/own", blt.interface));
        GANTRY_context_free(&context);
        own->firmwareVersion("later");
        EXPECT_EQ(own->firmwareVersion(), "later");
        EXPECT_EQ(logged().find("rv=-107") == std::string::npos, shared); // a private one is closed
    }
}

} // namespace
