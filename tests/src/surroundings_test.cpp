// What breaks around a host: the bus, its daemon, another client, a thread. Each ends in a log line
// or an error, and the host goes on or learns that it can't.

#include "src/served.hpp"

SCRIPTED(attach_event, sd_bus_attach_event, (sd_bus * bus, sd_event* event, int priority), bus,
         event, priority)
SCRIPTED(add_match, sd_bus_add_match,
         (sd_bus * bus, sd_bus_slot** slot, const char* match, sd_bus_message_handler_t callback,
          void* data),
         bus, slot, match, callback, data)

// The library's minutes take 200 milliseconds.
int sd_event_add_time_relative(sd_event* event, sd_event_source** source, clockid_t clock,
                               std::uint64_t time, std::uint64_t accuracy,
                               sd_event_time_handler_t callback, void* data)
{
    auto* real = interpose::hidden<decltype(sd_event_add_time_relative)>(__func__);
    return real(event, source, clock, time / 300, accuracy, callback, data);
}

namespace
{

constexpr const char* sample = "com.orvane.velmar.sample.gantrytest";
constexpr const char* async = "com.orvane.velmar.sample.async";
constexpr auto create_blt = GANTRY_instantiate__com_orvane_velmar_system_BLT;

using Loop = void (*)(GANTRY_cpp_context*);
constexpr Loop loops[] = {GANTRY_dbus_loop, GANTRY_dbus_loop_one_pass, GANTRY_dbus_sdloop};

// An object whose getters and methods a test may replace.
struct Own : Sample
{
    using Sample::propByte;
    using Sample::Sample;

    unsigned char propByte() const override
    {
        const auto once = std::exchange(in_getter, nullptr);
        return once ? once() : Sample::propByte();
    }
    std::string tryString(std::string value) override
    {
        return in_method ? in_method() : Sample::tryString(std::move(value));
    }

    mutable std::function<unsigned char()> in_getter;
    std::function<std::string()> in_method;
};

class Surroundings : public Served
{
  protected:
    static Own& put(GANTRY_cpp_context* on, const char* path)
    {
        auto* object = new Own(on->bus, path);
        on->tracker.push_back({object, [](void* o) { delete static_cast<Own*>(o); }});
        return *object;
    }
    Own& own()
    {
        return put(context, "/own");
    }
};

TEST_F(Surroundings, LostBusEndsEachLoopAndANewContextServesAgain)
{
    std::size_t descriptors = 0;
    for (int round = 0; round < 12; ++round)
    {
        GANTRY_use_default = round % 2 == 0;
        make();
        own().propByte(7);
        int lost = 0;
        const auto count = [](GANTRY_cpp_context*, void* data) { ++*static_cast<int*>(data); };
        GANTRY_context_on_disconnect(context, count, &lost, nullptr);
        const bool is_told = round != 10;
        GANTRY_context_on_disconnect(context, is_told ? +count : nullptr, &lost, nullptr);
        support::bus().kill();
        for (int run = 0; round % 3 == 2 && lost == 0 && run < 100; ++run)
        {
            sd_event_run(context->event.get(), 100'000); // the host's own event loop
        }
        for (const Loop loop : {loops[round / 2 % 3], loops[1]})
        {
            loop(context);
            EXPECT_THAT(logged(2), AllOf(StartsWith("2 EXCEPTION gantrycommon.GANTRY_dbus_"),
                                         HasSubstr("not connected")));
        }
        EXPECT_EQ(lost, is_told ? 1 : 0);
        support::bus().restart();
        make();
        own().propByte(7);
        support::Client again{pass};
        EXPECT_EQ(again.get({service, "/own"}, sample, "PropByte").text, "v <y 7>");
        descriptors = round < 2 ? support::open_fds().size() : descriptors;
        EXPECT_EQ(support::open_fds().size(), descriptors) << round;
    }
    GANTRY_use_default = true;
}

TEST_F(Surroundings, ContextWithoutItsEventLoopSaysSoInTheLogAndToItsLoops)
{
    attach_event = {-ENOMEM};
    make();
    GANTRY_context_free(&context);
    attach_event = {-ENOMEM};
    GANTRY_context_new(&context);
    EXPECT_THAT(logged(2), HasSubstr("sd_bus_attach_event failed, rv=-12"));
    for (const Loop loop : loops)
    {
        // Something else on the event loop ends a run of it.
        sd_event_source* other = nullptr;
        const auto nothing = [](sd_event_source* /*source*/, void* /*data*/) { return 0; };
        sd_event_add_defer(context->event.get(), &other, nothing, nullptr);
        loop(context);
        sd_event_source_unref(other);
        EXPECT_THAT(logged(2), HasSubstr("EXCEPTION gantrycommon.GANTRY_dbus_"));
    }
}

TEST_F(Surroundings, UnreadableArgumentsAreTheClientsErrorInBothShapes)
{
    publish(GANTRY_instantiate__com_orvane_velmar_sample_async, "/async");
    own();
    // sd-bus sends no noncharacter, a bus passes it on.
    const auto call = [&](const char* path, const char* interface, const char* member)
    {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(client.bus(), &message, service.c_str(), path, interface,
                                       member);
        char* text = nullptr;
        sd_bus_message_append_string_space(message, 3, &text);
        std::copy_n("\xEF\xBF\xBF", 3, text);
        return client.wait(client.start(support::Message(message)));
    };
    const auto reply_shape = call("/own", sample, "Try_string");
    EXPECT_EQ(call("/async", async, "OneParam").text, reply_shape.text);
    EXPECT_THAT(reply_shape.text, StartsWith("error "));
    EXPECT_THAT(logged(2), AllOf(HasSubstr("EXCEPTION gantry_server.oneParam: "),
                                 testing::Not(HasSubstr("gantrycommon"))));
}

TEST_F(Surroundings, TooLargeForAMessageIsRefusedWhereItIsStoredOrReturned)
{
    auto* object = publish(GANTRY_instantiate__com_orvane_velmar_hwi_HWIOemFruCustomData, "/fru");
    // A message takes 32 MiB, of which 64 KiB are left to what is around a value.
    std::string text((8U << 20U) - 5, 'x');
    std::vector<char*> texts(4, text.data());
    const GANTRY_string_array array{texts.data(), texts.size()};
    int error = -1;
    GANTRY_property_set_strings(object, "BoardCustomData", &array, false, &error);
    EXPECT_EQ(error, EMSGSIZE);
    EXPECT_THAT(logged(2), StartsWith("2 property_c.set: property [BoardCustomData] at [/fru] was "
                                      "not set or not announced\n2 EXCEPTION property_c."));
    texts.pop_back();
    const GANTRY_string_array fits{texts.data(), texts.size()};
    GANTRY_property_set_strings(object, "BoardCustomData", &fits, true, &error);
    EXPECT_EQ(error, 0);

    auto& sample_object = own();
    using sdbusplus::exception::SdBusError;
    constexpr std::size_t most = (32U << 20U) - (64U << 10U);
    EXPECT_NO_THROW(sample_object.propString(std::string(most - 5, 'x'), true));
    EXPECT_THROW(sample_object.propString(std::string(most - 4, 'x'), true), SdBusError);
    EXPECT_NO_THROW(sample_object.propArray1(std::vector<unsigned char>(most - 4), true));
    EXPECT_THROW(sample_object.propArray1(std::vector<unsigned char>(most - 3), true), SdBusError);
    sample_object.propArray1({}, true);
    // An entry has 24 bytes, of which three are a variant's signature.
    std::map<std::string, std::variant<short, std::string, std::tuple<short, int, long>>> entries;
    for (int number = 100'000; number < 400'000; ++number)
    {
        entries.emplace_hint(entries.end(), std::to_string(number), short{1});
    }
    EXPECT_NO_THROW(sample_object.recursionTest2(entries, true));
    entries = {{"1", text}, {"2", text}, {"3", text}, {"4", text}};
    EXPECT_THROW(sample_object.recursionTest2(entries, true), SdBusError);
    sample_object.in_method = [] { return std::string(most, 'x'); };
    EXPECT_THAT(client.call({service, "/own"}, sample, "Try_string", "s", "").text,
                HasSubstr("Message too long"));
    sample_object.in_method = [] { return std::string("small"); };
    EXPECT_EQ(client.call({service, "/own"}, sample, "Try_string", "s", "").text, "s \"small\"");
}

TEST_F(Surroundings, ClientsWritesDoNotAddUpToMoreThanAMessageHolds)
{
    auto& object = own();
    const support::Object target{service, "/own"};
    const std::string text(12U << 20U, 'x');
    // One that doesn't collect the signals, which are as large.
    support::Client writer{pass};
    const auto write = [&](const char* property, auto... value)
    { return writer.set(target, sample, property, value...).text; };
    EXPECT_EQ(write("PropString", "s", text.c_str()), "");
    EXPECT_EQ(write("PropVariant2", "v", "s", text.c_str()), "");
    EXPECT_EQ(write("PropDict1", "a{qs}", 1, 1, text.c_str()),
              "error org.freedesktop.DBus.Error.LimitsExceeded: the object's properties would be "
              "too large with this PropDict1");
    EXPECT_TRUE(object.propDict1().empty());
    EXPECT_EQ(write("PropString", "s", text.c_str()), ""); // in place of the same
    EXPECT_EQ(write("PropDict1", "a{qs}", 1, 1, "small"), "");
    EXPECT_EQ(writer.get_all(target, sample).at("PropDict1"), "a{qs} {1: \"small\"}");
    EXPECT_EQ(logged(2), "");
}

TEST_F(Surroundings, SignalsDoNotInterruptTheStart)
{
    struct sigaction action
    {
    };
    action.sa_handler = [](int) {}; // and no SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 100}, {0, 100}};
    setitimer(ITIMER_REAL, &often, nullptr);
    char name[] = "com.example.Interrupted";
    for (int round = 0; round < 100; ++round)
    {
        GANTRY_use_default = round % 2 == 0;
        GANTRY_context_free(&context);
        GANTRY_context_new(&context);
        ASSERT_NE(context, nullptr) << logged(2);
        round % 4 < 2 ? GANTRY_context_set_service(context, name) : void();
        EXPECT_NE(publish(create_blt, "/blt"), nullptr);
        GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(
            context, [](GANTRY_cpp_context*, char*) {});
        EXPECT_EQ(logged(2), "");
    }
    setitimer(ITIMER_REAL, &static_cast<const itimerval&>(itimerval{}), nullptr);
    GANTRY_use_default = true;
}

TEST_F(Surroundings, PendingCancellationWaitsForTheDestruction)
{
    bool freed = false;
    std::thread thread(
        [&freed]
        {
            GANTRY_cpp_context* own = nullptr;
            GANTRY_use_default = false; // whose connection is closed
            GANTRY_context_new(&own);
            GANTRY_use_default = true;
            pthread_cancel(pthread_self());
            own->sanity_check();
            GANTRY_context_free(&own);
            freed = true;
            pthread_testcancel();
        });
    thread.join();
    EXPECT_TRUE(freed);
}

TEST_F(Surroundings, ThreadThatEndsInsideACallbackReleasesItsNameAndItsCaller)
{
    // In a process that doesn't end as a program: the frames of sd-bus, which never returned, keep
    // the event loop, with its epoll and timer descriptors and its memory.
    const auto end_a_thread = [](Loop loop, bool is_freed)
    {
        support::Client caller;
        const support::Object ending{"com.example.Ending", "/own"};
        const auto descriptors = support::open_fds().size();
        std::thread thread(
            [&]
            {
                GANTRY_cpp_context* own = nullptr;
                GANTRY_context_new(&own);
                GANTRY_context_set_service(own, ending.service.c_str());
                put(own, "/own").in_method = [&]() -> std::string
                {
                    is_freed ? GANTRY_context_free(&own) : void();
                    pthread_exit(nullptr);
                };
                for (;;)
                {
                    loop(own);
                }
            });
        caller.wait_for([&] { return !caller.name_owner(ending.service.c_str()).empty(); });
        const auto reply = caller.call(ending, sample, "Try_string", "s", "");
        thread.join();
        const bool ended = reply.text.find("NoReply") != std::string::npos &&
                           caller.name_owner(ending.service.c_str()).empty() &&
                           support::open_fds().size() <= descriptors + 2;
        execlp(ended ? "true" : "false", "", nullptr);
    };
    for (const Loop loop : loops)
    {
        for (const bool is_freed : {false, true})
        {
            EXPECT_EXIT(end_a_thread(loop, is_freed), testing::ExitedWithCode(EXIT_SUCCESS), "");
        }
    }
}

TEST_F(Surroundings, ContextFreedInAGetterBehindANestedAnnouncementOutlivesIt)
{
    auto& object = own();
    bool was_alive = false;
    object.in_getter = [&]() -> unsigned char
    {
        object.propString("announced inside"); // sd-bus forgets this getter here
        auto* freed = context;
        GANTRY_context_free(&context);
        was_alive = freed->tracker.size() == 1;
        return 1;
    };
    object.propByte(1, false);
    EXPECT_TRUE(was_alive);
    GANTRY_context_new(&context);
    EXPECT_TRUE(context->tracker.empty());
}

TEST_F(Surroundings, ASecondContextOnTheSameConnectionHasItsFirstObject)
{
    sd_bus* held = nullptr; // the host's own, so the connection keeps the name
    sd_bus_default_system(&held);
    for (int round = 0; round < 2; ++round)
    {
        GANTRY_context_free(&context);
        GANTRY_context_new(&context);
        EXPECT_NE(publish(create_blt, "/blt"), nullptr) << logged(2);
    }
    sd_bus_unref(held);
}

TEST_F(Surroundings, ADeadSubscriptionIsLogged)
{
    add_match = {-ENOMEM};
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(
        context, [](GANTRY_cpp_context*, char*) {});
    EXPECT_EQ(logged(2), "2 signal.subscribe: sd_bus_add_match failed for "
                         "[type='signal',member='faultAdded',], rv=-12\n");
}

TEST_F(Surroundings, HostileSignalsDoNotFillTheLog)
{
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(
        context, [](GANTRY_cpp_context*, char*) {});
    for (int count = 0; count < 30; ++count)
    {
        client.emit(nullptr, "/", sample, "faultAdded", "i", 1);
    }
    client.settle(service);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    client.settle(service);
    const auto lines = logged(2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 10) << lines;
    EXPECT_THAT(lines, testing::EndsWith("end_minute: 21 more signals could not be read\n"));
}

} // namespace
