// Connections and what is registered on them, against a bus daemon of the test's own.
#include "peer.hpp"

#include <gmock/gmock.h>
#include <sdbusplus/bus.hpp>
#include <sdbusplus/bus/match.hpp>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/server/interface.hpp>
#include <sdbusplus/server/manager.hpp>
#include <sdbusplus/vtable.hpp>
#include <support/private_bus.hpp>

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

namespace bus = sdbusplus::bus;
namespace server = sdbusplus::server;
namespace vtable = sdbusplus::vtable;
using sdbusplus::message::message;
using testing::ElementsAre;

constexpr auto get_busp = &bus::details::bus_friend::get_busp;

static_assert(sizeof(server::manager::manager) == sizeof(sd_bus_slot*));
static_assert(!std::is_copy_constructible_v<bus::bus>);

// A connection that a test only pretends to have.
struct Pretended : sdbusplus::SdBusImpl
{
    std::vector<std::string> made;
    const char* name = ":1.7";

    sd_bus* sd_bus_ref(sd_bus* b) override
    {
        made.push_back("ref");
        return b;
    }
    sd_bus* sd_bus_unref(sd_bus*) override
    {
        made.push_back("unref");
        return nullptr;
    }
    int sd_bus_get_unique_name(sd_bus*, const char** unique) override
    {
        made.push_back("get_unique_name");
        *unique = name;
        return name ? 0 : -EINVAL;
    }

    sd_bus* connection = reinterpret_cast<sd_bus*>(this);
};

TEST(Bus, takes_a_reference_of_its_own_and_gives_it_back_once)
{
    Pretended pretended;
    {
        bus::bus b(pretended.connection, &pretended);
        EXPECT_EQ(b.get_unique_name(), ":1.7");
        const bus::bus moved(std::move(b));
        EXPECT_EQ(get_busp(moved), pretended.connection);
        EXPECT_EQ(moved.getInterface(), &pretended);
    }
    EXPECT_THAT(pretended.made, ElementsAre("ref", "get_unique_name", "unref"));
}

TEST(Bus, without_a_unique_name_is_released_and_refused)
{
    Pretended pretended;
    pretended.name = nullptr;
    try
    {
        const bus::bus b(pretended.connection, &pretended);
        FAIL();
    }
    catch (const std::logic_error& e)
    {
        EXPECT_STREQ(e.what(), "basic_string: construction from null is not valid");
    }
    EXPECT_THAT(pretended.made, ElementsAre("ref", "get_unique_name", "unref"));

    // A connection to a peer instead of a bus has none, and valgrind sees whether it is released.
    const test::Peer peer;
    EXPECT_THROW(bus::bus(sd_bus_ref(peer.get()), std::false_type{}), std::logic_error);
}

TEST(Bus, without_a_connection_asks_for_no_name)
{
    support::bus().kill();
    for (const auto open : {&bus::new_system, &bus::new_default_system})
    {
        const bus::bus b = open();
        EXPECT_EQ(get_busp(b), nullptr);
        EXPECT_EQ(b.get_unique_name(), "");
    }
    support::bus().restart();
}

template <typename Condition>
void process_until(bus::bus& b, const Condition& done)
{
    while (!done())
    {
        const int r = sd_bus_process(get_busp(b), nullptr);
        ASSERT_GE(r, 0);
        if (r == 0)
        {
            constexpr uint64_t deadline = 10'000'000;
            ASSERT_GT(sd_bus_wait(get_busp(b), deadline), 0) << "nothing comes";
        }
    }
}

// Looks at a connection after the bus object has let go of it.
struct Watched
{
    explicit Watched(const bus::bus& b) : connection(sd_bus_ref(get_busp(b)))
    {
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched()
    {
        sd_bus_flush_close_unref(connection);
    }
    bool open() const
    {
        return sd_bus_is_open(connection) > 0;
    }

    sd_bus* connection;
};

TEST(Bus, the_shared_connection_stays_open_and_a_private_one_is_flushed_and_closed)
{
    auto shared = std::make_unique<bus::bus>(bus::new_default_system());
    EXPECT_EQ(bus::new_default_system().get_unique_name(), shared->get_unique_name());
    const Watched kept(*shared);
    shared.reset();
    EXPECT_TRUE(kept.open());

    bus::bus listener = bus::new_system();
    int heard = 0;
    const bus::match::match match(listener, "member='Flood'", [&](message&) { ++heard; });

    // With the daemon asleep what is sent piles up in the connection.
    auto own = std::make_unique<bus::bus>(bus::new_system());
    const Watched closed(*own);
    kill(support::bus().pid(), SIGSTOP);
    int sent = 0;
    for (uint64_t queued = 0; sent < 1000 && queued < 10; ++sent)
    {
        auto signal = own->new_signal("/some/object", "some.Interface", "Flood");
        signal.append(std::vector<unsigned char>(100'000));
        signal.signal_send();
        sd_bus_get_n_queued_write(closed.connection, &queued);
    }
    kill(support::bus().pid(), SIGCONT);
    own.reset();
    EXPECT_FALSE(closed.open());
    process_until(listener, [&] { return heard == sent; });
}

int get_value(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* context,
              sd_bus_error*)
{
    message(reply).append(*static_cast<int*>(context));
    return 1;
}

int set_value(sd_bus*, const char*, const char*, const char*, sd_bus_message* value, void* context,
              sd_bus_error*)
{
    message(value).read(*static_cast<int*>(context));
    return 1;
}

int double_value(sd_bus_message* m, void* context, sd_bus_error*)
{
    int by = 0;
    message(m).read(by);
    auto reply = message(m).new_method_return();
    reply.append(*static_cast<int*>(context) * by);
    reply.method_return();
    return 1;
}

constexpr const char* name = "some.Interface";

constexpr sd_bus_vtable rows[] = {
    vtable::start(),
    vtable::method("Times", "i", "i", double_value, vtable::common_::unprivileged),
    vtable::signal("Happened", "s"),
    vtable::property("Fixed", "i", get_value, vtable::property_::const_),
    vtable::property("Value", "i", get_value, set_value, vtable::property_::emits_change),
    vtable::end(),
};

TEST(Vtable, rows_are_those_of_sd_bus)
{
    EXPECT_EQ(rows[0].x.start.element_size, sizeof(sd_bus_vtable));
    EXPECT_EQ(rows[0].x.start.vtable_format_reference, &sd_bus_object_vtable_format);
    EXPECT_STREQ(rows[1].x.method.names, "");
    EXPECT_EQ(rows[1].flags, SD_BUS_VTABLE_UNPRIVILEGED);
    EXPECT_STREQ(rows[2].x.signal.names, "");
    EXPECT_EQ(rows[3].type, _SD_BUS_VTABLE_PROPERTY);
    EXPECT_EQ(rows[3].x.property.set, nullptr);
    EXPECT_EQ(rows[4].type, _SD_BUS_VTABLE_WRITABLE_PROPERTY);
    EXPECT_EQ(rows[4].flags, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE);
    EXPECT_EQ(rows[4].x.property.offset, 0u);
    EXPECT_EQ(rows[5].type, _SD_BUS_VTABLE_END);
}

// A connection that talks to itself through the daemon, so that one thread is client and server.
class OnTheBus : public testing::Test
{
  protected:
    // Calls a method of this connection and returns the reply, or null for an error.
    template <typename... Args>
    test::Message call(const char* interface, const char* member, const char* types, Args... args)
    {
        test::Message reply;
        bool answered = false;
        const auto keep = [&](message& m)
        {
            answered = true;
            if (!sd_bus_message_is_method_error(m.get(), nullptr))
            {
                reply.reset(sd_bus_message_ref(m.get()));
            }
        };
        std::function<void(message&)> callback(keep);
        sd_bus_call_method_async(
            get_busp(b), nullptr, b.get_unique_name().c_str(), path, interface, member,
            [](sd_bus_message* m, void* userdata, sd_bus_error*)
            {
                message answer(m);
                (*static_cast<std::function<void(message&)>*>(userdata))(answer);
                return 1;
            },
            &callback, types, args...);
        process_until(b, [&] { return answered; });
        return reply;
    }

    // Lets everything sent so far come back.
    void settle()
    {
        EXPECT_NE(call("org.freedesktop.DBus.Peer", "Ping", ""), nullptr);
    }

    template <typename T>
    static T result(const test::Message& m)
    {
        return message(m.get()).unpack<T>();
    }

    bus::bus b = bus::new_system();
    const char* path = "/some/object";
};

TEST_F(OnTheBus, an_interface_serves_while_it_lives)
{
    int value = 21;
    {
        std::string given = path;
        server::interface::interface served(b, given.data(), name, rows, &value);
        given.assign(given.size(), 'x');

        EXPECT_EQ(result<int>(call(name, "Times", "i", 2)), 42);
        call("org.freedesktop.DBus.Properties", "Set", "ssv", name, "Value", "i", 5);
        EXPECT_EQ(value, 5);
        EXPECT_EQ((result<std::variant<int>>(
                      call("org.freedesktop.DBus.Properties", "Get", "ss", name, "Value"))),
                  std::variant<int>(5));

        EXPECT_EQ(served.path(), path);
        EXPECT_EQ(&served.bus(), &b);
        std::vector<std::string> heard;
        const bus::match::match match(b, "type='signal',path='/some/object'",
                                      [&](message& m)
                                      {
                                          heard.push_back(sd_bus_message_get_member(m.get()));
                                          std::string text;
                                          m.read(text);
                                          heard.push_back(text);
                                      });
        auto signal = served.new_signal("Happened");
        signal.append(std::string("it did"));
        signal.signal_send();
        served.property_changed("Value");
        served.property_changed("NoSuchProperty");
        settle();
        EXPECT_THAT(heard, ElementsAre("Happened", "it did", "PropertiesChanged", name));
    }
    EXPECT_EQ(call(name, "Times", "i", 2), nullptr);
}

TEST_F(OnTheBus, an_interface_is_served_once)
{
    int value = 0;
    const server::interface::interface served(b, path, name, rows, &value);
    try
    {
        const server::interface::interface again(b, path, name, rows, &value);
        FAIL();
    }
    catch (const sdbusplus::exception::SdBusError& e)
    {
        EXPECT_EQ(e.description(),
                  std::string("sd_bus_add_object_vtable: ") + std::strerror(EEXIST));
    }
    EXPECT_EQ(result<int>(call(name, "Times", "i", 2)), 0);
}

TEST_F(OnTheBus, an_object_manager_lists_while_it_lives)
{
    int value = 0;
    const server::interface::interface served(b, path, name, rows, &value);
    const auto listed = [this]
    { return call("org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "") != nullptr; };
    {
        const server::manager::manager manager(b, path);
        const server::manager::manager again(b, path);
        const server::manager::manager refused(b, "no path");
        EXPECT_TRUE(listed());
    }
    EXPECT_FALSE(listed());
}

TEST_F(OnTheBus, a_match_hears_while_it_lives)
{
    // Counts its own copies, to show when a callback goes.
    const auto alive = std::make_shared<int>(0);
    std::vector<std::string> heard;
    const auto hear = [alive, &heard](message& m) { heard.push_back(m.unpack<std::string>()); };
    const auto say = [this](const char* text)
    {
        auto signal = b.new_signal(path, name, "Happened");
        signal.append(std::string(text));
        signal.signal_send();
        settle();
    };

    const std::string rule = "type='signal',member='Happened',";
    {
        bus::match::match first(b, rule.c_str(), hear);
        const bus::match::match moved(std::move(first));
        const bus::match::match second(b, rule, hear);
        const bus::match::match refused(b, "no rule", hear);
        say("twice");
    }
    say("to nobody");
    EXPECT_THAT(heard, ElementsAre("twice", "twice"));
    EXPECT_EQ(alive.use_count(), 2);
}

TEST_F(OnTheBus, a_signal_that_cannot_be_made_or_sent_names_the_call)
{
    const auto failure = [](const auto& failing)
    {
        try
        {
            failing();
        }
        catch (const sdbusplus::exception::SdBusError& e)
        {
            return std::string(e.description());
        }
        return std::string("none");
    };
    EXPECT_EQ(failure([this] { b.new_signal("no path", name, "Happened"); }),
              std::string("sd_bus_message_new_signal: ") + std::strerror(EINVAL));
    auto signal = b.new_signal(path, name, "Happened");
    EXPECT_EQ(failure([&] { signal.get_cookie(); }),
              std::string("sd_bus_message_get_cookie: ") + std::strerror(ENODATA));
    sd_bus_close(get_busp(b));
    EXPECT_EQ(failure([&] { signal.signal_send(); }),
              std::string("sd_bus_send: ") + std::strerror(ENOTCONN));
}

} // namespace
