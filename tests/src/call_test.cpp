// A host answers as it needs: what the client gets when a call is refused, answered later or never,
// and what the host gets to know of its callers, of writes and of its own mistakes.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <malloc.h>
#include <unistd.h>

#include <gantry/gantry.h>

#include <sdbusplus/exception.hpp>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>

#include "src/served.hpp"

namespace
{

constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";
constexpr auto reply_string = GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_string;
constexpr auto reply_string_d = GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_string_D;
constexpr const char* busy = "com.example.Error.Busy";

// What the callbacks of one test share.
std::vector<GANTRY_call*> open_calls;
std::string seen;
int error = -1;

void defer(GANTRY_instance* instance, char* /*in*/, char** out)
{
    *out = strdup("not sent");
    GANTRY_call* call = nullptr;
    GANTRY_call_defer(instance, &call, &error);
    if (call != nullptr)
    {
        open_calls.push_back(call);
    }
}

class Call : public Served
{
  protected:
    Call()
    {
        table.Try_string = table.Try_string_D = defer;
        open_calls.clear();
        seen.clear();
        instance = publish("/object");
    }

    GANTRY_instance* publish(const char* path)
    {
        GANTRY_instance* created = nullptr;
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, path, nullptr);
        GANTRY_instance_get_created(context, &created, &error);
        EXPECT_EQ(error, 0);
        logged();
        return created;
    }

    support::Client::Pending start(const char* method, const char* path = "/object")
    {
        return client.start({service, path}, gantrytest, method, "s", "text");
    }

    std::string call(const char* method)
    {
        const auto pending = start(method);
        client.settle(service);
        return pending.reply().text;
    }

    std::string set(const char* value)
    {
        return client.set({service, "/object"}, gantrytest, "PropString", "s", value).text;
    }

    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    GANTRY_instance* instance = nullptr;
};

TEST_F(Call, RefusedReachesTheClientAsTheHostsLastErrorAndNotTheLog)
{
    table.Try_string = table.Try_string_D = [](GANTRY_instance* object, char*, char** out)
    {
        *out = strdup("not sent");
        GANTRY_call_fail(object, "com.example.First", "first", nullptr);
        GANTRY_call_fail(object, busy, "a dump \xFF is running", nullptr);
        GANTRY_call_fail(object, "not a name", "", &error);
    };
    for (const char* shape : {"Try_string", "Try_string_D"})
    {
        EXPECT_EQ(call(shape), "error com.example.Error.Busy: a dump \uFFFD is running");
        EXPECT_EQ(error, EINVAL);
        EXPECT_EQ(logged(8), "");
    }
    table.Try_string = nullptr;
    EXPECT_EQ(call("Try_string"), "s \"\"");

    GANTRY_call_fail(instance, busy, "", &error);
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(logged(8), "2 call.GANTRY_call_fail: no callback of the object is running\n");
}

TEST_F(Call, KnowsItsCallerAndNoOther)
{
    static uid_t uid = 0;
    static pid_t pid = 0;
    table.Try_string = table.Try_string_D = [](GANTRY_instance* object, char*, char** out)
    {
        const char* sender = nullptr;
        GANTRY_call_get_sender(object, &sender);
        GANTRY_call_get_credentials(object, &uid, &pid, &error);
        *out = strdup(sender);
    };
    for (const char* shape : {"Try_string", "Try_string_D"})
    {
        uid = UINT_MAX;
        EXPECT_EQ(call(shape), "s \"" + client.unique_name() + '"');
        EXPECT_EQ(std::pair(uid, pid), std::pair(geteuid(), getpid()));
        EXPECT_EQ(error, 0);
    }

    const char* sender = "unchanged";
    GANTRY_call_get_sender(instance, &sender);
    EXPECT_EQ(sender, nullptr);
    GANTRY_call_get_credentials(instance, &uid, &pid, &error);
    EXPECT_EQ(error, EINVAL);
}

TEST_F(Call, DeferredIsAnsweredOnceByItsOwnMethodWhileOthersAreServed)
{
    const auto first = start("Try_string");
    const auto second = start("Try_string_D");
    client.settle(service);
    EXPECT_EQ(client.get({service, "/object"}, gantrytest, "PropByte").text, "y 255");
    ASSERT_EQ(open_calls.size(), 2U);
    EXPECT_FALSE(first.done() || second.done());

    auto* copy = open_calls[1];
    reply_string(&open_calls[1], "x", &error);
    EXPECT_EQ(error, EINVAL); // it is another method's
    reply_string_d(&open_calls[1], "b\xFF", &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(open_calls[1], nullptr);
    for (auto** again : {&open_calls[1], &copy})
    {
        reply_string_d(again, "again", &error);
        EXPECT_EQ(error, EINVAL);
        GANTRY_call_refuse(again, busy, "again", &error);
        EXPECT_EQ(error, EINVAL);
    }
    GANTRY_call_refuse(&open_calls[0], "no name", "", &error);
    EXPECT_EQ(error, EINVAL);
    GANTRY_call_refuse(&open_calls[0], busy, "b\xFF", &error);
    EXPECT_EQ(error, 0);
    client.settle(service);
    EXPECT_EQ(first.reply().text, "error com.example.Error.Busy: b\uFFFD");
    EXPECT_EQ(second.reply().text, "s \"b\uFFFD\"");

    reply_string(&open_calls[0], "", nullptr);
    EXPECT_EQ(logged(8), "2 gantry_server.GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_"
                         "string: Invalid argument\n");
}

TEST_F(Call, DeferredIsNotAnsweredByWhatItsCallbackDoesNext)
{
    table.Try_string = table.Try_string_D = [](GANTRY_instance* object, char* in, char** out)
    {
        GANTRY_call_fail(object, busy, "before", nullptr);
        defer(object, in, out);
        GANTRY_call* second = nullptr;
        GANTRY_call_defer(object, &second, &error);
        EXPECT_EQ(std::pair(error, second), (std::pair<int, GANTRY_call*>(EINVAL, nullptr)));
        GANTRY_call_fail(object, busy, "after", &error);
        EXPECT_EQ(error, EINVAL);
    };
    const auto first = start("Try_string");
    const auto second = start("Try_string_D");
    client.settle(service);
    ASSERT_EQ(open_calls.size(), 2U);
    EXPECT_FALSE(first.done() || second.done());
    reply_string(&open_calls[0], "a", nullptr);
    reply_string_d(&open_calls[1], "b", nullptr);
    client.settle(service);
    EXPECT_EQ(first.reply().text + second.reply().text, "s \"a\"s \"b\"");
}

TEST_F(Call, DeferredNeedsNobodyToReadTheAnswer)
{
    auto silent = client.new_call({service, "/object"}, gantrytest, "Try_string");
    sd_bus_message_append(silent.get(), "s", "text");
    sd_bus_message_set_expect_reply(silent.get(), 0);
    client.send(std::move(silent));
    {
        support::Client leaving([this] { GANTRY_dbus_loop_one_pass(context); });
        const auto dropped =
            leaving.start({service, "/object"}, gantrytest, "Try_string", "s", "text");
        leaving.settle(service);
    }
    client.settle(service);
    ASSERT_EQ(open_calls.size(), 2U);
    for (auto*& call : open_calls)
    {
        reply_string(&call, "a", &error);
        EXPECT_EQ(error, 0);
    }
    client.settle(service);
    EXPECT_EQ(logged(8), "");
}

TEST_F(Call, OverTheLimitIsRefusedAndOthersGoOn)
{
    context->max_open_calls = 1;
    const auto kept = start("Try_string");
    EXPECT_EQ(call("Try_string_D"),
              "error org.freedesktop.DBus.Error.LimitsExceeded: too many calls are open");
    EXPECT_EQ(error, ENOBUFS);
    reply_string(&open_calls.at(0), "a", &error);
    const auto next = start("Try_string_D");
    client.settle(service);
    EXPECT_EQ(kept.reply().text, "s \"a\"");
    EXPECT_EQ(open_calls.size(), 2U);
}

TEST_F(Call, StillOpenWhenItsObjectOrContextGoesIsAnsweredNewestFirst)
{
    auto* other = publish("/other");
    std::vector<support::Client::Pending> pending;
    for (const char* path : {"/object", "/other", "/object", "/other"})
    {
        pending.push_back(start("Try_string", path));
    }
    client.settle(service);
    ASSERT_EQ(open_calls.size(), 4U);

    const std::string gone = "error org.freedesktop.DBus.Error.NoReply: "
                             "the object was removed before it answered";
    const auto cookies = [&](std::size_t older, std::size_t newer)
    {
        EXPECT_EQ(pending[older].reply().text, gone);
        EXPECT_EQ(pending[newer].reply().text, gone);
        std::uint64_t numbers[2]{};
        sd_bus_message_get_cookie(pending[older].reply().message.get(), &numbers[0]);
        sd_bus_message_get_cookie(pending[newer].reply().message.get(), &numbers[1]);
        EXPECT_GT(numbers[0], numbers[1]);
    };
    GANTRY_instance_free(&other);
    client.settle(service);
    cookies(1, 3);
    EXPECT_FALSE(pending[0].done() || pending[2].done());

    GANTRY_context_free(&context);
    EXPECT_TRUE(client.wait_for([&] { return pending[0].done() && pending[2].done(); }));
    cookies(0, 2);
    EXPECT_EQ(logged(8), "");
}

TEST_F(Call, OfAnObjectThatItsOwnCallbackFreesIsAnsweredAllTheSame)
{
    static bool frees_context = false;
    table.Try_string = table.Try_string_D = [](GANTRY_instance* object, char* in, char** out)
    {
        defer(object, in, out);
        if (frees_context)
        {
            void* its_context = nullptr;
            GANTRY_instance_get_context(object, &its_context);
            auto* freed = static_cast<GANTRY_cpp_context*>(its_context);
            GANTRY_context_free(&freed);
            return;
        }
        GANTRY_instance_free(&object);
    };
    const auto first = start("Try_string");
    EXPECT_TRUE(client.wait_for([&] { return first.done(); }));
    EXPECT_EQ(first.reply().error_name, "org.freedesktop.DBus.Error.NoReply");

    instance = publish("/object");
    frees_context = true;
    const auto second = client.start({service, "/object"}, gantrytest, "Try_string_D", "s", "text");
    auto* loop = std::exchange(context, nullptr);
    EXPECT_TRUE(client.wait_for(
        [&]
        {
            if (!second.done() && std::exchange(loop, nullptr) != nullptr)
            {
                GANTRY_dbus_sdloop(nullptr); // until the callback frees the context
            }
            return second.done();
        }));
    EXPECT_EQ(second.reply().error_name, "org.freedesktop.DBus.Error.NoReply");
}

TEST_F(Call, AThousandOfFourClientsAreAnsweredInAnyOrderAndLeaveNothing)
{
    GANTRY_set_use_default(false); // a private connection
    make();
    GANTRY_set_use_default(true);
    instance = publish("/object");
    std::vector<std::unique_ptr<support::Client>> clients;
    for (int count = 0; count < 4; ++count)
    {
        clients.push_back(
            std::make_unique<support::Client>([this] { GANTRY_dbus_loop_one_pass(context); }));
    }
    std::mt19937 random{4};
    std::size_t used = 0;
    for (int round = 0; round < 4; ++round)
    {
        std::vector<support::Client::Pending> pending;
        for (std::size_t count = 0; count < 1000; ++count)
        {
            pending.push_back(clients[count % 4]->start({service, "/object"}, gantrytest,
                                                        "Try_string", "s", "text"));
        }
        std::ranges::for_each(clients, [this](auto& each) { each->settle(service); });
        ASSERT_EQ(open_calls.size(), 1000U);
        std::ranges::shuffle(open_calls, random);
        for (auto*& call : open_calls)
        {
            reply_string(&call, "a", &error);
            ASSERT_EQ(error, 0);
        }
        open_calls.clear();
        std::ranges::for_each(clients, [this](auto& each) { each->settle(service); });
        EXPECT_TRUE(std::ranges::all_of(pending, [](const auto& each)
                                        { return each.reply().text == "s \"a\""; }));
        logged();
        pending.clear();
        const std::size_t now = mallinfo2().uordblks;
        EXPECT_LE(now, used + (round < 2 ? now : 4096));
        used = now;
    }
    EXPECT_EQ(context->open_calls, 0U);
}

TEST_F(Call, WritingClientIsToldToTheHostWhichMayRefuse)
{
    static const char* refused = "bad";
    const auto written = [](GANTRY_instance* object, const char* property, void* data)
    {
        char* value = nullptr;
        GANTRY_property_get_string(object, property, &value, nullptr);
        const char* sender = nullptr;
        GANTRY_call_get_sender(object, &sender);
        seen += std::string(property) + '=' + value + (sender != nullptr ? " " : " nobody ");
        if (strcmp(value, static_cast<const char*>(data)) == 0)
        {
            GANTRY_call* call = nullptr;
            GANTRY_call_defer(object, &call, &error);
            EXPECT_EQ(error, EINVAL);
            GANTRY_call_fail(object, busy, "not now", nullptr);
        }
        if (strcmp(value, "free") == 0)
        {
            GANTRY_instance_free(&object);
        }
        free(value);
    };
    GANTRY_instance_on_write(instance, written, const_cast<char*>(refused));
    publish("/other");
    EXPECT_EQ(set("good"), "");
    EXPECT_EQ(set("good"), "");
    EXPECT_EQ(announced(), "PropString: s \"good\"\n");
    EXPECT_EQ(set("bad"), "error com.example.Error.Busy: not now");
    EXPECT_EQ(announced(), "PropString: s \"good\"\n");
    EXPECT_EQ(client.signals().size(), 0U);
    EXPECT_TRUE(client.set({service, "/other"}, gantrytest, "PropString", "s", "bad").ok());
    GANTRY_property_set_string(instance, "PropString", "bad", true, &error);
    EXPECT_EQ(seen, "PropString=good PropString=good PropString=bad ");
    EXPECT_EQ(set("free"), "");
    EXPECT_FALSE(client.get({service, "/object"}, gantrytest, "PropString").ok());
    EXPECT_EQ(logged(8), "");
}

TEST_F(Call, WithAnInputForItsOutputReleasesItOnce)
{
    table.Try_string =
        table.Try_string_D = [](GANTRY_instance*, char* in, char** out) { *out = in; };
    table.TryArrayString = table.TryArrayStringD = [](GANTRY_instance*, GANTRY_string_array* in,
                                                      GANTRY_string_array** out) { *out = in; };
    for (const auto& [text, texts] :
         {std::pair{"Try_string", "TryArrayString"}, {"Try_string_D", "TryArrayStringD"}})
    {
        EXPECT_EQ(call(text), "s \"text\"");
        EXPECT_EQ(client.call({service, "/object"}, gantrytest, texts, "as", 2, "a", "b").text,
                  "as [\"a\", \"b\"]");
    }
}

TEST_F(Call, HostLearnsWhatItsMistakeWas)
{
    GANTRY_property_set_uint64(instance, "PropUInt32", 1, false, nullptr);
    EXPECT_EQ(logged(8), "2 property_c.property_set: property [PropUInt32] of type [u] accessed as "
                         "[t]: Invalid argument\n");
    char* text = nullptr;
    GANTRY_property_get_string(instance, "None", &text, nullptr);
    EXPECT_EQ(logged(8), "2 property_c.property_get: property [None] of type [] accessed as [s]: "
                         "No such file or directory\n");
    GANTRY_string_array absurd{&text, ULONG_MAX};
    GANTRY_property_set_strings(instance, "PropString", &absurd, false, &error);
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(logged(8), "");

    auto* created = instance;
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, "/object", nullptr);
    logged();
    GANTRY_instance_get_created(context, &created, &error);
    EXPECT_EQ(std::pair(error, created), (std::pair<int, GANTRY_instance*>(EEXIST, nullptr)));

    GANTRY_property_list(
        instance,
        [](GANTRY_instance* object, const char* member, const char* signature, void* count)
        {
            const char* type = nullptr;
            GANTRY_property_get_type(object, member, &type);
            EXPECT_STREQ(type, signature);
            seen += ++*static_cast<int*>(count) <= 2 ? std::string(member) + ' ' + type + ' ' : "";
        },
        &(error = 0));
    EXPECT_EQ(seen, "PropByte y PropBoolean b ");
    EXPECT_GT(error, 20);
    const char* type = "unchanged";
    GANTRY_property_get_type(instance, "None", &type);
    EXPECT_EQ(type, nullptr);
}

} // namespace
