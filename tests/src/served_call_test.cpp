// A host answers as it needs: what a client gets when its call is refused, answered later or never,
// and what a host gets to know of its callers, of writes and of its own mistakes.
#include <map>
#include <random>

#include <sys/resource.h>

#include <com/orvane/velmar/system/NicSlot/server.hpp>
#include <gantry/call.hpp>
#include <gantry/object.hpp>

#include "src/served.hpp"

namespace
{

int watches = 0;

} // namespace

int sd_bus_add_match_async(sd_bus* bus, sd_bus_slot** slot, const char* match,
                           sd_bus_message_handler_t callback, sd_bus_message_handler_t installed,
                           void* data)
{
    ++watches;
    return interpose::hidden<decltype(sd_bus_add_match_async)>(__func__)(bus, slot, match, callback,
                                                                         installed, data);
}

namespace
{

constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";
constexpr auto reply = GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_string;
constexpr auto reply_d = GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_string_D;
constexpr const char* busy = "com.example.Error.Busy";

using Function = void(GANTRY_instance*, char*, char**);

std::vector<GANTRY_call*> open_calls;
std::string seen;
int error = -1;

template <class Function, class... Args>
int errno_of(Function* function, Args... args)
{
    function(args..., &error);
    return error;
}

void defer(GANTRY_instance* instance, char* /*in*/, char** out)
{
    *out = strdup("not sent");
    GANTRY_call_defer(instance, &open_calls.emplace_back(), &error);
    error != 0 ? open_calls.pop_back() : void();
}

class Call : public Served
{
  protected:
    Call()
    {
        open_calls.clear();
        seen.clear();
        watches = 0;
        serve(defer);
        instance = publish("/object");
    }

    void serve(Function* function)
    {
        table.Try_string = table.Try_string_D = function;
    }

    GANTRY_instance* publish(const char* path)
    {
        GANTRY_instance* created = nullptr;
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, path, nullptr);
        GANTRY_instance_get_created(context, &created, &error);
        logged();
        return created;
    }

    auto start(const char* method, const char* path = "/object")
    {
        auto pending = start_of(client, path, method);
        client.settle(service);
        return pending;
    }

    // Doesn't wait until the host has it.
    support::Client::Pending start_of(support::Client& from, const char* path = "/object",
                                      const char* method = "Try_string")
    {
        return from.start({service, path}, gantrytest, method, "s", "text");
    }

    std::string set(const char* value, const char* path = "/object")
    {
        return client.set({service, path}, gantrytest, "PropString", "s", value).text;
    }

    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    GANTRY_instance* instance = nullptr;
};

TEST_F(Call, RefusedReachesTheClientAsTheHostsLastErrorAndNotTheLog)
{
    serve(
        [](GANTRY_instance* object, char*, char** out)
        {
            *out = strdup("not sent");
            GANTRY_call_fail(object, "com.example.First", "first", nullptr);
            GANTRY_call_fail(object, busy, "a dump \xFF is running", nullptr);
            EXPECT_EQ(errno_of(GANTRY_call_fail, object, "not a name", ""), EINVAL);
        });
    for (const char* shape : {"Try_string", "Try_string_D"})
    {
        EXPECT_EQ(start(shape)->text, "error com.example.Error.Busy: a dump \uFFFD is running");
        EXPECT_EQ(logged(8), "");
    }
    EXPECT_EQ(errno_of(GANTRY_call_fail, instance, busy, ""), EINVAL);
    EXPECT_EQ(logged(8), "2 served_call.GANTRY_call_fail: no callback of the object is running\n");
}

TEST_F(Call, AskingForItsCallerTakesNoDescriptorsIn)
{
    // Of a method that is open to all: for others sd-bus asks the bus itself, before.
    GANTRY_table__com_orvane_velmar_hwi_HWISupport open{};
    open.queryIsReady = [](GANTRY_instance* object, bool* out)
    {
        uid_t uid = UINT_MAX;
        GANTRY_call_get_credentials(object, &uid, nullptr, &error);
        *out = uid == geteuid();
    };
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(context, &open, "/object", nullptr);
    const auto call =
        client.start({service, "/object"}, "com.orvane.velmar.hwi.HWISupport", "queryIsReady");
    // Behind the call, so that they arrive while the bus is asked: more than the process may have.
    for (int count = 0; count < 64; ++count)
    {
        const auto signal = client.new_signal("/", "com.example", "Full");
        for (int number = 0; number < 16; ++number)
        {
            sd_bus_message_append(signal.get(), "h", STDERR_FILENO);
        }
        sd_bus_send_to(client.bus(), signal.get(), service.c_str(), nullptr);
    }
    sd_bus_flush(client.bus());
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{256, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    client.settle(service);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(call->text, "b true");
    // The connection on which it asks answers nobody, and ends with the context.
    const auto second = ":1." + std::to_string(std::stoi(service.substr(3)) + 1);
    const auto ignored = client.start({second, "/"}, "org.freedesktop.DBus.Peer", "Ping");
    EXPECT_EQ(client.name_owner(second.c_str()), second);
    client.settle(service);
    EXPECT_EQ(ignored->text, "no reply");
    GANTRY_context_free(&context);
    EXPECT_EQ(client.name_owner(second.c_str()), "");
    EXPECT_EQ(logged(8), "");
}

TEST_F(Call, DeferredIsAnsweredOnceByItsOwnMethodWhileOthersAreServed)
{
    serve(
        [](GANTRY_instance* object, char* in, char** out)
        {
            GANTRY_call_fail(object, busy, "before", nullptr);
            defer(object, in, out);
            GANTRY_call* second = nullptr;
            EXPECT_EQ(errno_of(GANTRY_call_defer, object, &second), EINVAL);
            EXPECT_EQ(errno_of(GANTRY_call_fail, object, busy, "after"), EINVAL);
        });
    const auto first = start("Try_string");
    const auto second = start("Try_string_D");
    ASSERT_EQ(open_calls.size(), 2U);
    auto* other = publish("/other");
    GANTRY_instance_free(&other); // which leaves the calls of this one
    EXPECT_EQ(first->text + second->text, "no replyno reply");

    auto* copy = open_calls[1];
    EXPECT_EQ(errno_of(reply, &open_calls[1], "another method's"), EINVAL);
    EXPECT_EQ(errno_of(reply_d, &open_calls[1], "b\xFF"), 0);
    EXPECT_EQ(open_calls[1], nullptr);
    EXPECT_EQ(errno_of(reply_d, &open_calls[1], "again"), EINVAL);
    EXPECT_EQ(errno_of(reply_d, &copy, "again"), EINVAL);
    EXPECT_EQ(errno_of(GANTRY_call_refuse, &open_calls[0], "no name", ""), EINVAL);
    EXPECT_EQ(errno_of(GANTRY_call_refuse, &open_calls[0], busy, "b\xFF"), 0);
    client.settle(service);
    EXPECT_EQ(first->text + second->text, "error com.example.Error.Busy: b\uFFFDs \"b\uFFFD\"");
    EXPECT_EQ(logged(8), "");
}

TEST_F(Call, DeferredIsNotAnsweredByAnotherClassWithAMethodOfThatName)
{
    GANTRY_table__com_orvane_velmar_system_NicSlot slot{};
    slot.TriggerAdapterCoreDump = [](GANTRY_instance* object, char*, unsigned char, char*, char*,
                                     char*, char*, char*, unsigned char, int*, char** out)
    { defer(object, nullptr, out); };
    Served::publish(GANTRY_instantiate__com_orvane_velmar_system_NicSlot, "/slot", &slot);
    const auto call =
        client.start({service, "/slot"}, "com.orvane.velmar.system.NicSlot",
                     "TriggerAdapterCoreDump", "sysssssy", "", 0, "", "", "", "", "", 0);
    client.settle(service);
    ASSERT_EQ(open_calls.size(), 1U);
    const auto answer = GANTRY_reply__com_orvane_velmar_system_FCSlot__TriggerAdapterCoreDump;
    EXPECT_EQ(errno_of(answer, &open_calls[0], 0, "of another class"), EINVAL);
    EXPECT_EQ(call->text, "no reply");
}

TEST_F(Call, DeferredKeepsNothingThatItsClientSent)
{
    const std::size_t before = heap_in_use();
    auto pending = client.start({service, "/object"}, gantrytest, "Try_string", "s",
                                std::string(10U << 20U, 'x').c_str());
    client.wait_for([] { return !open_calls.empty(); });
    client.settle(service);
    logged();
    EXPECT_LE(heap_in_use(), before + 5'000'000);
    EXPECT_EQ(errno_of(reply, &open_calls.at(0), "a"), 0);
    client.settle(service);
    EXPECT_EQ(pending->text, "s \"a\"");
}

TEST_F(Call, DeferredNeedsNobodyToReadTheAnswerAndSendsNoneUnasked)
{
    int unasked = 0; // of a reply to a call that wants one, a filter isn't told
    sd_bus_slot* filter = nullptr;
    const auto count = [](sd_bus_message* message, void* replies, sd_bus_error* /*error*/)
    {
        std::uint8_t type = 0;
        sd_bus_message_get_type(message, &type);
        *static_cast<int*>(replies) += type == SD_BUS_MESSAGE_METHOD_RETURN ? 1 : 0;
        return 0;
    };
    sd_bus_add_filter(client.bus(), &filter, count, &unasked);
    sd_bus_message* silent = nullptr;
    sd_bus_message_new_method_call(client.bus(), &silent, service.c_str(), "/object", gantrytest,
                                   "Try_string");
    sd_bus_message_append(silent, "s", "text");
    sd_bus_send(client.bus(), silent, nullptr);
    sd_bus_message_unref(silent);
    {
        support::Client leaving(pass);
        const auto dropped = start_of(leaving);
        leaving.settle(service);
    }
    client.settle(service);
    ASSERT_EQ(open_calls.size(), 2U);
    EXPECT_EQ(errno_of(reply, &open_calls[0], "a"), 0);
    EXPECT_EQ(errno_of(reply, &open_calls[1], "a"), 0);
    client.settle(service);
    EXPECT_EQ(unasked, 0);
    sd_bus_slot_unref(filter);
}

TEST_F(Call, InsideAnotherIsNotTakenForIt)
{
    static GANTRY_instance* outer;
    static support::Message inner_call;
    outer = instance;
    // As if another connection of the host were served inside the callback.
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(client.bus(), &call, service.c_str(), "/inner", gantrytest,
                                   "Try_string");
    inner_call.reset(call);
    sd_bus_message_append(call, "s", "inner");
    sd_bus_message_seal(call, 1, 0);
    serve(
        [](GANTRY_instance* object, char* in, char** /*out*/)
        {
            GANTRY_call_fail(object, busy, in, nullptr);
            GANTRY_call_fail(outer, busy, "outer", nullptr);
            GANTRY_instance* inner = nullptr;
            GANTRY_instance_find(nullptr, gantrytest, "/inner", &inner);
            if (object == outer)
            {
                sd_bus_error got{};
                Sample::_callback_TryString(inner_call.get(), gantry::object<Sample>(inner), &got);
                seen = got.message;
                sd_bus_error_free(&got);
            }
        });
    publish("/inner");
    EXPECT_EQ(start("Try_string")->text, "error com.example.Error.Busy: outer");
    EXPECT_EQ(seen, "inner");
    inner_call.reset();
}

TEST_F(Call, ClosedIsNamedByItsHandleAlone)
{
    std::vector<GANTRY_call*> closed;
    for (int count = 0; count < 100; ++count)
    {
        const auto call = start("Try_string");
        ASSERT_EQ(open_calls.size(), 1U);
        for (auto* handle : closed)
        {
            ASSERT_EQ(errno_of(GANTRY_call_refuse, &handle, busy, ""), EINVAL);
        }
        closed.push_back(open_calls[0]);
        EXPECT_EQ(errno_of(reply, &open_calls[0], "a"), 0);
        client.settle(service);
        EXPECT_EQ(call->text, "s \"a\"");
        open_calls.clear();
        count % 10 == 0 ? make(), void(publish("/object")) : void();
    }
    EXPECT_EQ(watches, 0);
}

// A client that leaves with calls open.
class Leaving : public Call
{
  protected:
    void leave(std::size_t calls = 1)
    {
        support::Client leaving(pass);
        std::vector<support::Client::Pending> pending(calls);
        std::ranges::generate(pending, [&] { return start_of(leaving); });
        leaving.settle(service);
        ASSERT_EQ(pending[0]->text, "no reply");
    }

    // Has nobody listen to its end.
    static bool is_open(std::size_t call)
    {
        return errno_of(GANTRY_call_on_cancel, open_calls.at(call), nullptr, nullptr) == 0;
    }

    bool is_closed(std::size_t call)
    {
        return client.wait_for([=] { return !is_open(call); });
    }

    // Whether these calls, and in this order, are cancelled.
    bool are_cancelled(const std::string& calls)
    {
        client.wait_for([&] { return seen.size() >= calls.size(); });
        client.settle(service);
        return std::exchange(seen, "") == calls;
    }

    // Notes each call that is cancelled, and then does what `data` says.
    static void cancelled(GANTRY_call* call, void* data)
    {
        EXPECT_EQ(errno_of(reply, &call, "late"), EINVAL);
        seen += std::to_string(std::ranges::find(open_calls, call) - open_calls.begin());
        data != nullptr ? (*static_cast<std::function<void()>*>(data))() : void();
    }

    void listen(void* data = nullptr, std::size_t first = 0)
    {
        for (; first < open_calls.size(); ++first)
        {
            EXPECT_EQ(errno_of(GANTRY_call_on_cancel, open_calls[first], cancelled, data), 0);
        }
    }
};

TEST_F(Leaving, HasItsCallsClosedInTimeAndIsWatchedNoLongerThanNeeded)
{
    auto stays = start("Try_string");
    leave(2);
    EXPECT_EQ(watches, 0);
    EXPECT_TRUE(is_closed(1) && is_closed(2));
    EXPECT_TRUE(is_open(0));
    EXPECT_EQ(watches, 2);
    EXPECT_EQ(errno_of(reply, &open_calls[0], "a"), 0);
    client.settle(service);
    EXPECT_EQ(stays->text, "s \"a\"");
    // Answered, and called again: it is watched anew.
    stays = start("Try_string");
    EXPECT_TRUE(client.wait_for([] { return watches == 3; }));
    EXPECT_TRUE(is_open(3));
    EXPECT_EQ(logged(8), "");
}

TEST_F(Leaving, IsToldToTheHostForEachOpenCallNewestFirst)
{
    // Beside it another client, and calls that the host answers or no longer listens to.
    const auto stays = start("Try_string");
    support::Client leaving(pass);
    std::vector<support::Client::Pending> pending(6);
    std::ranges::generate(pending, [&] { return start_of(leaving); });
    leaving.settle(service);
    listen();
    EXPECT_EQ(watches, 2);
    EXPECT_EQ(errno_of(reply, &open_calls[2], "a"), 0);
    EXPECT_EQ(errno_of(GANTRY_call_on_cancel, open_calls[4], nullptr, nullptr), 0);
    // Nobody but the bus tells its end.
    const char* name = nullptr;
    sd_bus_get_unique_name(leaving.bus(), &name);
    client.emit(service.c_str(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "NameOwnerChanged", "sss", name, name, "");
    EXPECT_TRUE(are_cancelled(""));
    leaving = support::Client();
    EXPECT_TRUE(are_cancelled("6531"));
    // One that has left before the host listens.
    leave();
    listen(nullptr, 7);
    EXPECT_TRUE(are_cancelled("7"));
    EXPECT_TRUE(is_open(0));
    EXPECT_FALSE(is_open(4));
    EXPECT_EQ(errno_of(GANTRY_call_on_cancel, nullptr, cancelled, nullptr), EINVAL);
}

TEST_F(Leaving, MayHaveAllFreedUnderIt)
{
    std::function<void()> act = []
    { open_calls.size() == 3 ? reply(&open_calls[1], "a", nullptr) : void(); };
    leave(3);
    listen(&act);
    EXPECT_TRUE(are_cancelled("20"));
    // Its object, or the context, lives as long as the callback.
    open_calls.clear();
    act = [this] { GANTRY_instance_free(&instance); };
    leave(3);
    listen(&act);
    EXPECT_TRUE(are_cancelled("210"));
    instance = publish("/object");
    open_calls.clear();
    act = [this] { GANTRY_context_free(&context); };
    leave(3);
    listen(&act);
    EXPECT_TRUE(client.wait_for([this] { return context == nullptr; }));
    EXPECT_EQ(seen, "210");
    EXPECT_FALSE(is_open(0));
}

TEST_F(Leaving, LeavesRoomForOthersWhoHaveAShareEach)
{
    support::Client greedy(pass);
    std::vector<support::Client::Pending> pending(130);
    std::ranges::generate(pending, [&] { return start_of(greedy); });
    greedy.settle(service);
    EXPECT_EQ(open_calls.size(), 128U);
    EXPECT_EQ(pending[127]->text, "no reply");
    EXPECT_EQ(pending[128]->text + pending[129]->text,
              "error org.freedesktop.DBus.Error.LimitsExceeded: too many calls are open"
              "error org.freedesktop.DBus.Error.LimitsExceeded: too many calls are open");
    const auto other = start("Try_string");
    EXPECT_EQ(open_calls.size(), 129U);
    EXPECT_EQ(errno_of(reply, &open_calls[0], "a"), 0);
    pending.push_back(start_of(greedy));
    greedy.settle(service);
    EXPECT_EQ(open_calls.size(), 130U);
}

// What a host does about a client's write, by the value.
void on_write(GANTRY_instance* object, const char* property, void* /*data*/)
{
    char* text = nullptr;
    GANTRY_property_get_string(object, property, &text, nullptr);
    const std::string value = text;
    std::free(text);
    seen += std::string(property) + '=' + value + ' ';
    if (value == "corrected" || value.starts_with("refused"))
    {
        GANTRY_property_set_string(object, property, "by the host", false, nullptr);
        GANTRY_property_set_byte(object, "PropByte", 1, false, nullptr); // which holds
    }
    if (value.starts_with("refused"))
    {
        GANTRY_call* call = nullptr;
        EXPECT_EQ(errno_of(GANTRY_call_defer, object, &call), EINVAL);
        GANTRY_call_fail(object, busy, "not now", nullptr);
    }
    value == "thrown" ? throw sdbusplus::exception::SdBusError(EBUSY, "text") : 0;
    value == "fatal" ? throw std::runtime_error("host's own") : 0;
    value == "free" ? GANTRY_instance_free(&object) : void();
}

TEST_F(Call, WritingClientIsToldToTheHostWhichMayRefuseBeforeOthersHearOfIt)
{
    GANTRY_instance_on_write(instance, on_write, nullptr);
    publish("/other");
    const auto expect_set = [this](const char* value, const std::string& answer,
                                   const std::string& stored, const std::string& signals)
    {
        EXPECT_EQ(set(value), answer);
        EXPECT_EQ(announced(), signals);
        const auto now = client.get({service, "/object"}, gantrytest, "PropString").text;
        EXPECT_EQ(now, "v <s \"" + stored + "\">");
    };
    expect_set("good", "", "good", "PropString: s \"good\"\n");
    expect_set("good", "", "good", "");
    expect_set("refused", "error com.example.Error.Busy: not now", "good", "PropByte: y 1\n");
    expect_set("thrown", "error System.Error.EBUSY: text: Device or resource busy", "good", "");
    EXPECT_EQ(logged(2), "");
    expect_set("fatal", "error org.freedesktop.DBus.Error.IOError: Input/output error", "good", "");
    EXPECT_EQ(logged(2), "2 served_call.report: a client's write of property [PropString] at "
                         "[/object] failed\n"
                         "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: host's own\\n\n");
    expect_set("corrected", "", "by the host", "PropString: s \"by the host\"\n");
    GANTRY_property_set_string(instance, "PropString", "refused", true, &error);
    EXPECT_EQ(set("refused", "/other"), "");
    EXPECT_EQ(announced(), "PropString: s \"refused\"\n");
    expect_set("refused", "error com.example.Error.Busy: not now", "refused", "");
    EXPECT_EQ(set("free"), "");
    EXPECT_TRUE(sent().find("PropertiesChanged") == std::string::npos);
    EXPECT_TRUE(set("gone").starts_with("error "));
    publish("/object"); // in the memory of the freed one
    EXPECT_EQ(set("refused"), "");
    EXPECT_EQ(seen, "PropString=good PropString=good PropString=refused PropString=thrown "
                    "PropString=fatal PropString=corrected PropString=refused PropString=free ");
}

TEST_F(Call, WithAnInputForItsOutputReleasesItOnce)
{
    serve([](GANTRY_instance*, char* in, char** out) { *out = in; });
    table.TryArrayString = table.TryArrayStringD = [](GANTRY_instance*, GANTRY_string_array* in,
                                                      GANTRY_string_array** out) { *out = in; };
    EXPECT_EQ(start("Try_string")->text + start("Try_string_D")->text, "s \"text\"s \"text\"");
    const support::Object object{service, "/object"};
    EXPECT_EQ(client.call(object, gantrytest, "TryArrayString", "as", 1, "a").text, "as [\"a\"]");
    EXPECT_EQ(client.call(object, gantrytest, "TryArrayStringD", "as", 1, "a").text, "as [\"a\"]");
}

TEST_F(Call, WhoseResultIsTooLargeFailsInBothShapes)
{
    serve([](GANTRY_instance*, char*, char** out)
          { *out = strdup(std::string(33U << 20U, 'x').c_str()); });
    for (const char* shape : {"Try_string", "Try_string_D"})
    {
        EXPECT_THAT(start(shape)->text, EndsWith("Message too long"));
    }
}

TEST_F(Call, HostLearnsWhatItsMistakeWas)
{
    GANTRY_property_set_uint64(instance, "PropUInt32", 1, false, nullptr);
    char* text = nullptr;
    GANTRY_property_get_string(instance, "None", &text, nullptr);
    reply(&open_calls.emplace_back(), "", nullptr);
    EXPECT_EQ(logged(8),
              "2 property_c.property_set: property [PropUInt32] of type [u] accessed as [t] at "
              "[/object]: "
              "Invalid argument\n"
              "2 property_c.property_get: property [None] of type [] accessed as [s] at [/object]: "
              "there is no such property\n"
              "2 gantry_server.GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_string: "
              "Invalid argument\n");
    const GANTRY_string_array absurd{&text, ULONG_MAX};
    EXPECT_EQ(errno_of(GANTRY_property_set_strings, instance, "PropString", &absurd, false),
              EINVAL);
    EXPECT_EQ(logged(8), "");
    EXPECT_EQ(publish("/object"), nullptr);
    EXPECT_EQ(error, EEXIST);

    const auto list = [](GANTRY_instance* object, const char* member, const char* type, void*)
    {
        const char* same = nullptr;
        GANTRY_property_get_type(object, member, &same);
        EXPECT_STREQ(same, type);
        seen += std::string(member) + ' ' + type + ' ';
    };
    GANTRY_property_list(instance, list, nullptr);
    EXPECT_TRUE(seen.starts_with("PropByte y PropBoolean b PropInt16 n ")) << seen;
    EXPECT_TRUE(seen.ends_with("VersionTest d ")) << seen;

    GANTRY_property_list(instance, nullptr, nullptr);
    const auto free_it = [](GANTRY_instance* object, const char*, const char*, void* calls)
    {
        GANTRY_instance_free(&object);
        ++*static_cast<int*>(calls);
    };
    int calls = 0;
    GANTRY_property_list(instance, free_it, &calls);
    EXPECT_EQ(calls, 1);
    EXPECT_NE(publish("/object"), nullptr);
}

TEST_F(Call, AnsweredAtTheEndWithMoreThanTheSocketTakesGetsAll)
{
    const auto call = start("Try_string");
    reply(&open_calls.at(0), std::string(1 << 24, 'a').c_str(), &error);
    GANTRY_context_free(&context);
    EXPECT_TRUE(client.wait_for([&] { return call->message != nullptr; }));
    EXPECT_EQ(call->text.size(), (1U << 24U) + 4) << call->text.substr(0, 100);
}

// Of a C++ host, which answers later. The server class isn't its first base.
using NicSlot = sdbusplus::server::com::orvane::velmar::system::NicSlot;
struct Slot : std::string, NicSlot
{
    using Answer = gantry::DeferredReply<int, std::string>;

    using NicSlot::NicSlot;
    explicit Slot(sdbusplus::bus_t& bus) : NicSlot(bus, "/slot")
    {
    }
    std::tuple<int, std::string> triggerAdapterCoreDump(std::string, unsigned char, std::string,
                                                        std::string, std::string, std::string,
                                                        std::string, unsigned char) override
    {
        EXPECT_THROW(gantry::defer<int>(*this), sdbusplus::exception::SdBusError);
        EXPECT_THROW(gantry::defer<int>(*&seen), sdbusplus::exception::SdBusError);
        answers.push_back(gantry::defer<int, std::string>(*this));
        EXPECT_THROW((gantry::defer<int, std::string>(*this)), sdbusplus::exception::SdBusError);
        answers.size() == 4 ? throw Conversion(busy) : 0; // too late
        return {1, "dropped"};
    }

    std::vector<Answer> answers;
};

TEST_F(Leaving, MayHaveCalledAnObjectOfACppHostThatAnswersLater)
{
    std::optional<Slot> slot(context->bus);
    std::vector<support::Client::Pending> pending;
    const auto call = [&](support::Client& from)
    {
        pending.push_back(from.start({service, "/slot"}, "com.orvane.velmar.system.NicSlot",
                                     "TriggerAdapterCoreDump", "sysssssy", "", 0, "", "", "", "",
                                     "", 0));
        from.settle(service);
    };
    for (int count = 0; count < 5; ++count)
    {
        call(client);
    }
    ASSERT_EQ(slot->answers.size(), 5U);
    auto answers = std::move(slot->answers);
    EXPECT_EQ(answers[0].reply(3, "\xFF"), 0);
    EXPECT_EQ(answers[0].reply(3, "twice"), EINVAL);
    EXPECT_EQ(answers[1].refuse("no name", ""), EINVAL);
    EXPECT_EQ(answers[1].refuse(busy, "text"), 0);
    EXPECT_EQ(answers[2].reply(0, std::string(129 << 20, 'x')), EMSGSIZE);
    answers[3] = Slot::Answer();
    auto* handle = answers[4].call();
    EXPECT_EQ(errno_of(reply, &handle, "a method's of C"), EINVAL);
    client.settle(service);
    EXPECT_EQ(pending[0]->text, "is 3, \"\uFFFD\"");
    EXPECT_EQ(pending[1]->text, "error com.example.Error.Busy: text");
    EXPECT_TRUE(pending[2]->text.starts_with("error ")) << pending[2]->text;
    EXPECT_EQ(pending[3]->text, "error org.freedesktop.DBus.Error.NoReply: "
                                "the call was dropped without an answer");
    // The answer outlives its object, but not its context.
    {
        support::Client leaving([this] { GANTRY_dbus_loop_one_pass(context); });
        call(leaving);
        open_calls.push_back(slot->answers.back().call());
        listen();
    }
    EXPECT_TRUE(are_cancelled("0"));
    EXPECT_EQ(slot->answers.back().reply(0, ""), EINVAL);
    call(client);
    auto last = std::move(slot->answers.back());
    slot.reset();
    EXPECT_EQ(answers[4].reply(4, "late"), 0);
    client.settle(service);
    EXPECT_EQ(pending[4]->text, "is 4, \"late\"");
    GANTRY_context_free(&context);
    EXPECT_TRUE(client.wait_for([&] { return pending.back()->message != nullptr; }));
    EXPECT_TRUE(pending.back()->text.starts_with("error org.freedesktop.DBus.Error.NoReply"));
    EXPECT_EQ(last.reply(0, ""), EINVAL);
}

// What nine clients get for so many calls at once of four objects: when all have come, the host
// does something to them, in a timer or in the callback of the last.
class Loop : public Call, public testing::WithParamInterface<void (*)(GANTRY_cpp_context*)>
{
  protected:
    Loop()
    {
        std::generate_n(std::back_inserter(clients), 9, [this] { return support::Client(pass); });
    }

    using Answers = std::map<std::string, std::size_t>;

    Answers answers(std::size_t calls, bool in_timer, const std::function<void()>& act)
    {
        static std::function<void(bool)> look;
        look = [&, awaited = calls](bool is_timer) mutable
        {
            awaited -= is_timer ? 0 : 1;
            if (awaited == 0 && is_timer == in_timer)
            {
                act();
                open_calls.clear();
                context ? GANTRY_context_stop(context) : void();
            }
        };
        serve([](auto... values) { defer(values...), look(false); });
        const auto tick = [](auto...) { return look(true), 0; };
        sd_event_source* timer = nullptr;
        sd_event_add_time(context->event.get(), &timer, CLOCK_MONOTONIC, 0, 0, tick, nullptr);
        sd_event_source_set_priority(timer, SD_EVENT_PRIORITY_IDLE);
        sd_event_source_set_enabled(timer, in_timer ? SD_EVENT_ON : SD_EVENT_OFF);
        std::vector<support::Client::Pending> pending;
        for (std::size_t count = 0; count < calls; ++count)
        {
            pending.push_back(start_of(clients[count % 9], paths[count / 9 % 4]));
        }
        std::ranges::for_each(clients, [](auto& each) { sd_bus_flush(each.bus()); });
        GetParam()(context);
        sd_event_source_disable_unref(timer);
        Answers got;
        for (std::size_t count = 0; count < calls; ++count)
        {
            clients[count % 9].wait_for([&] { return pending[count]->message != nullptr; });
            ++got[pending[count]->text];
        }
        return got;
    }

    void publish_all()
    {
        make();
        std::ranges::transform(paths, objects.begin(),
                               [this](auto* path) { return publish(path); });
    }

    const std::array<const char*, 4> paths{"/0", "/1", "/2", "/3"};
    std::array<GANTRY_instance*, 4> objects{};
    std::vector<support::Client> clients;
};

TEST_P(Loop, AnswersAsManyCallsAsItMayInAnyOrderAndKeepsNothing)
{
    publish_all();
    std::mt19937 random{4};
    const auto answer = [&]
    {
        std::ranges::shuffle(open_calls, random);
        std::ranges::for_each(open_calls, [](auto*& call) { reply(&call, "a", &error); });
    };
    const Answers expected{
        {"s \"a\"", 1024},
        {"error org.freedesktop.DBus.Error.LimitsExceeded: too many calls are open", 4}};
    std::array<std::size_t, 2> used{};
    for (int round = 0; round < 4; ++round)
    {
        EXPECT_EQ(answers(1028, true, answer), expected);
        logged();
        used[round > 1] = mallinfo2().uordblks;
    }
    EXPECT_LT(used[1], used[0] + 200'000);
}

TEST_P(Loop, AnswersTheCallsOfWhatIsFreedUnderIt)
{
    const auto free = [](auto*& object) { GANTRY_instance_free(&object); };
    const auto free_objects = [&] { std::ranges::for_each(objects, free); };
    const Answers expected{
        {"error org.freedesktop.DBus.Error.NoReply: the object was removed before it answered",
         1000}};
    for (const bool in_timer : {true, false})
    {
        publish_all();
        in_timer ? void(std::ranges::reverse(objects)) : void(); // the newest first
        EXPECT_EQ(answers(1000, in_timer, free_objects), expected);
        publish_all();
        EXPECT_EQ(answers(1000, in_timer, [&] { GANTRY_context_free(&context); }), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Either, Loop, testing::Values(GANTRY_dbus_loop, GANTRY_dbus_sdloop));

} // namespace
