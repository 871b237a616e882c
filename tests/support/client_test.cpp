// The client against a service of a few lines on plain sd-bus, on the same thread.
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include "support/client.hpp"
#include "support/render.hpp"

namespace
{

using support::Client;
using support::Message;
using support::Object;
using support::Reply;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr const char* interface = "com.example.Echo";
constexpr const char* path = "/com/example/echo";

class Service
{
  public:
    Service()
    {
        sd_bus_open_system(&bus_);
        sd_bus_add_object_manager(bus_, nullptr, "/com/example");
        sd_bus_add_object_vtable(bus_, nullptr, path, interface, vtable, this);
    }
    Service(const Service&) = delete;
    Service(Service&&) = delete;
    Service& operator=(const Service&) = delete;
    Service& operator=(Service&&) = delete;
    ~Service()
    {
        held_.reset();
        sd_bus_flush_close_unref(bus_);
    }

    // One message at a time, as a service's loop may do.
    void pass()
    {
        sd_bus_process(bus_, nullptr);
    }
    [[nodiscard]] Object object() const
    {
        const char* name = nullptr;
        sd_bus_get_unique_name(bus_, &name);
        return {name, path};
    }
    void change(int level)
    {
        level_ = level;
        sd_bus_emit_properties_changed(bus_, path, interface, "Level", "Hidden", nullptr);
    }
    void answer_held()
    {
        sd_bus_reply_method_return(held_.get(), "i", 1);
    }
    void emit_unhandled()
    {
        sd_bus_emit_signal(bus_, path, interface, "Tick", "u", 9U);
    }

  private:
    // Returns the body as it came.
    static int echo(sd_bus_message* call, void* /*service*/, sd_bus_error* /*error*/)
    {
        sd_bus_message* reply = nullptr;
        sd_bus_message_new_method_return(call, &reply);
        sd_bus_message_copy(reply, call, 1);
        sd_bus_send(nullptr, reply, nullptr);
        sd_bus_message_unref(reply);
        return 1;
    }
    static int hold(sd_bus_message* call, void* service, sd_bus_error* /*error*/)
    {
        static_cast<Service*>(service)->held_.reset(sd_bus_message_ref(call));
        return 1;
    }
    static int fail(sd_bus_message* /*call*/, void* /*service*/, sd_bus_error* error)
    {
        return sd_bus_error_set(error, "com.example.Error", "as asked");
    }
    static int get(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                   const char* /*property*/, sd_bus_message* reply, void* service,
                   sd_bus_error* /*error*/)
    {
        return sd_bus_message_append(reply, "i", static_cast<Service*>(service)->level_);
    }
    static int set(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                   const char* /*property*/, sd_bus_message* value, void* service,
                   sd_bus_error* /*error*/)
    {
        return sd_bus_message_read(value, "i", &static_cast<Service*>(service)->level_);
    }

    static const sd_bus_vtable vtable[];

    sd_bus* bus_ = nullptr;
    Message held_;
    int level_ = 3;
};

// NOLINTNEXTLINE(*-avoid-c-arrays): as sd-bus wants it
const sd_bus_vtable Service::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Echo", "s", "s", echo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Hold", "", "i", hold, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Fail", "", "", fail, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_WRITABLE_PROPERTY("Level", "i", get, set, 0,
                             SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Hidden", "i", get, 0, SD_BUS_VTABLE_PROPERTY_EMITS_INVALIDATION),
    SD_BUS_VTABLE_END,
};

class ClientTest : public testing::Test
{
  protected:
    Service service_;
    Client client_{[this] { service_.pass(); }};
    Object echo_ = service_.object();
};

TEST_F(ClientTest, TellsRepliesErrorsAndSilenceApart)
{
    EXPECT_EQ(client_.call(echo_, interface, "Echo", "s", "a \"b\"\n").text, R"(s "a \"b\"\n")");

    const Reply failed = client_.call(echo_, interface, "Fail");
    EXPECT_EQ(failed.state, Reply::State::error);
    EXPECT_EQ(failed.text, "error com.example.Error: as asked");
    EXPECT_EQ(failed.error_name, "com.example.Error");
    EXPECT_EQ(failed.error_message, "as asked");
    EXPECT_EQ(client_.call(echo_, interface, "Echo", "u", 1U).error_name,
              SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(client_.call({"com.example.Nobody", "/"}, interface, "Echo").error_name,
              SD_BUS_ERROR_SERVICE_UNKNOWN);

    const auto held = client_.start(echo_, interface, "Hold");
    client_.settle(echo_.service);
    EXPECT_FALSE(held.done());
    EXPECT_EQ(held.reply().text, "no reply");
    service_.answer_held();
    client_.settle(echo_.service);
    EXPECT_EQ(held.reply().text, "i 1");
}

TEST_F(ClientTest, DroppedCallIsAnsweredIntoTheVoid)
{
    {
        const auto dropped = client_.start(echo_, interface, "Hold");
        client_.settle(echo_.service);
    }
    service_.answer_held();
    client_.settle(echo_.service);
}

TEST_F(ClientTest, ReadsAndWritesProperties)
{
    EXPECT_EQ(client_.get(echo_, interface, "Level").text, "i 3");
    EXPECT_EQ(client_.set(echo_, interface, "Level", "i", 4).text, "");
    EXPECT_EQ(client_.set(echo_, interface, "Hidden", "i", 4).error_name,
              SD_BUS_ERROR_PROPERTY_READ_ONLY);
    const auto properties = ElementsAre(Pair("Hidden", "i 4"), Pair("Level", "i 4"));
    EXPECT_THAT(client_.get_all(echo_, interface), properties);
    EXPECT_THROW(client_.get_all(echo_, "com.example.Other"), std::runtime_error);

    const auto objects = client_.managed_objects({echo_.service, "/com/example"});
    ASSERT_THAT(objects, ElementsAre(Pair(path, testing::_)));
    EXPECT_THAT(objects.at(path).at(interface), properties);
    EXPECT_THROW(client_.managed_objects(echo_), std::runtime_error);

    EXPECT_THAT(client_.introspect(echo_),
                HasSubstr(R"(<property name="Level" type="i" access="readwrite">)"));
}

TEST_F(ClientTest, CollectsSignals)
{
    client_.subscribe();
    service_.change(5);
    service_.emit_unhandled();
    Client other;
    other.emit(client_.unique_name().c_str(), "/other", "com.example.Other", "Tock", "s", "x");
    other.settle("org.freedesktop.DBus");
    client_.settle(echo_.service);

    ASSERT_THAT(client_.signals(), SizeIs(3));
    const auto changed = client_.signals("PropertiesChanged");
    ASSERT_THAT(changed, SizeIs(1));
    EXPECT_EQ(changed[0].sender, echo_.service);
    EXPECT_EQ(changed[0].path, path);
    EXPECT_EQ(changed[0].changed_interface, interface);
    EXPECT_THAT(changed[0].changed, ElementsAre(Pair("Level", "i 5")));
    EXPECT_THAT(changed[0].invalidated, ElementsAre("Hidden"));
    EXPECT_EQ(changed[0].body, R"(sa{sv}as "com.example.Echo", {"Level": <i 5>}, ["Hidden"])");
    EXPECT_EQ(client_.signals("Tick").at(0).body, "u 9");
    EXPECT_EQ(client_.signals("Tock").at(0).path, "/other");
    EXPECT_EQ(client_.signals("Tock").at(0).sender, other.unique_name());

    client_.clear_signals();
    client_.settle(echo_.service);
    EXPECT_THAT(client_.signals(), IsEmpty());
}

TEST_F(ClientTest, RendersEveryType)
{
    const auto echoed = [this](const char* types, auto... values)
    {
        const Message message = client_.new_signal(nullptr, path, interface, "Any");
        sd_bus_message_append(message.get(), types, values...);
        sd_bus_message_seal(message.get(), 1, 0);
        std::string once = support::render(message.get());
        EXPECT_EQ(support::render(message.get()), once);
        return once;
    };
    EXPECT_EQ(echoed("ybnqiu", 255, 1, -32768, 65535, INT32_MIN, UINT32_MAX),
              "ybnqiu 255, true, -32768, 65535, -2147483648, 4294967295");
    EXPECT_EQ(echoed("xtd", INT64_MIN, UINT64_MAX, 0.1),
              "xtd -9223372036854775808, 18446744073709551615, 0.1");
    EXPECT_EQ(echoed("sogh", "\x01ü", "/a", "a{sv}", 0), R"(sogh "\x01ü", "/a", "a{sv}", fd)");
    EXPECT_EQ(echoed("asa{sv}", 0, 0), "asa{sv} [], {}");
    EXPECT_EQ(echoed("a{sv}", 2, "b", "a(nix)", 1, 1, 2, INT64_C(3), "a", "v", "y", 4),
              R"(a{sv} {"b": <a(nix) [(1, 2, 3)]>, "a": <v <y 4>>})");
}

TEST_F(ClientTest, WaitsForACondition)
{
    int left = 3;
    Client counting([&] { --left; });
    EXPECT_TRUE(counting.wait_for([&] { return left == 0; }));
    EXPECT_EQ(left, 0);
}

} // namespace
