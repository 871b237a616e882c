// From a call on the bus to the function in a host's table and back, in both shapes of method: what
// each side sees, who releases what and when, and what is left of a call that goes wrong. That each
// method has its slot, and outputs that start at zero, is tested with the tables.
#include <span>

#include "src/served.hpp"

namespace
{

interpose::Script send;

// What was sent, and which of the watched blocks were freed, a letter each: 'a' is the first's.
std::string events;
const void* watched[16];

} // namespace

int sd_bus_send(sd_bus* bus, sd_bus_message* message, uint64_t* cookie)
{
    auto& script = send.for_library(__builtin_return_address(0));
    events += &script == &send ? " sent " : "";
    return script.next_or("sd_bus_send", sd_bus_send, bus, message, cookie);
}

// Called before a sanitizer is ready for its code, also in functions that this one would call.
__attribute__((no_sanitize("address", "undefined"))) void free(void* block) noexcept
{
    using Free = void(void*);
    static constinit Free* hidden = nullptr;
    static constinit bool has_looked = false;
    if (!has_looked)
    {
        has_looked = true;
        hidden = reinterpret_cast<Free*>(dlsym(RTLD_NEXT, "free"));
    }
    if (hidden == nullptr)
    {
        return; // The look-up itself frees the text of an earlier one's error; that one is kept.
    }
    char letter = 'a';
    for (const void*& each : watched)
    {
        if (block != nullptr && each == block)
        {
            each = nullptr;
            events += letter;
        }
        ++letter;
    }
    hidden(block);
}

namespace
{

// Records as a host may build them, of blocks that free() takes.
template <class Record, class... Fields>
Record* allocate(Fields... fields)
{
    return new (calloc(1, sizeof(Record))) Record{fields...};
}

template <class Record>
using Element = std::remove_pointer_t<decltype(Record::data)>;
template <class Record>
Record* make_record(std::initializer_list<Element<Record>> elements)
{
    // Of no elements it is a block all the same.
    auto* data = static_cast<Element<Record>*>(
        calloc(1, std::span(elements.begin(), elements.size()).size_bytes()));
    std::copy(elements.begin(), elements.end(), data);
    return allocate<Record>(data, elements.size());
}

using Numbers = GANTRY_int16_array;
using Texts = GANTRY_string_array;
using Row = GANTRY_uint32_array;
using Rows = GANTRY_uint32_array_array;
using Ananas = GANTRY_struct_ananas;

// Gives the result that a test has made, which the library releases.
void* next = nullptr;

template <class Value>
void give(GANTRY_instance* /*instance*/, Value /*in*/, Value* out)
{
    *out = static_cast<Value>(std::exchange(next, nullptr));
}

class MethodDispatch : public Served
{
  protected:
    using Table = GANTRY_table__com_orvane_velmar_sample_gantrytest;

    MethodDispatch()
    {
        publish(&table);
    }

    // One more object, which the calls go to from here on.
    void publish(const Table* its_table)
    {
        object = {service, "/object" + std::to_string(context->tracker.size())};
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, its_table,
                                                                object.path.c_str(), nullptr);
    }

    // The reply, or "no reply" when a call is left without one and the service goes on.
    template <class... Args>
    std::string call(const std::string& method, const char* types, Args... args)
    {
        logged();
        events.clear();
        std::ranges::fill(watched, nullptr);
        const auto pending = client.start(object, "com.orvane.velmar.sample.gantrytest",
                                          method.c_str(), types, args...);
        client.settle(service);
        return pending->text;
    }

    Table table{};
    support::Object object;
};

// The line that names the call that failed, and those around it.
std::string failed(const std::string& method, const char* path = "/object0")
{
    return "2 served_call.report: method [com.orvane.velmar.sample.gantrytest." + method +
           "] at [" + path + "] failed\n";
}
const std::string ended = "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: std::exception\\n\n";

// A method of reply shape and its twin of message shape, with their operations' names.
const std::pair<std::string, std::string> both_shapes[] = {{"Try_string", "tryString"},
                                                           {"Try_string_D", "tryStringD"}};

// A method and its twin give the same, where the host makes the result anew.
#define EXPECT_BOTH(method, suffix, reply, made, ...)                                              \
    for (const char* shape : {method, method suffix})                                              \
    {                                                                                              \
        next = (made);                                                                             \
        EXPECT_EQ(call(shape, __VA_ARGS__), reply) << shape;                                       \
    }

TEST_F(MethodDispatch, RepliesZerosWithoutAFunction)
{
    const auto expect_zeros = [this](const std::string& logged_first)
    {
        for (const auto& [method, operation] : both_shapes)
        {
            const std::string place = " gantry_server." + operation + ": ";
            EXPECT_EQ(call(method, "s", "text"), "s \"\"");
            EXPECT_THAT(logged(),
                        AllOf(HasSubstr(logged_first.empty() ? "" : "1" + place + logged_first),
                              HasSubstr("9" + place + "not calling callback\n")));
        }
    };
    expect_zeros("");
    publish(nullptr);
    expect_zeros("inst->table is NULL");
    auto& record = newest<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest>().inst;
    auto* const instance = std::exchange(record, nullptr);
    expect_zeros("inst is NULL");
    record = instance;
}

// The fuzzer has values of all types there and back.
TEST_F(MethodDispatch, LendsInputsAndTakesWhateverAHostLeavesInOutputs)
{
    table.Try_string = table.Try_string_D = give;
    table.TrySet = table.TrySetD = [](GANTRY_instance* instance, Numbers* in, Numbers** out)
    {
        EXPECT_EQ(std::vector<short>(in->data, in->data + in->count), (std::vector<short>{-1, 3}));
        give(instance, in, out);
    };
    table.TryArrayString = table.TryArrayStringD = give;
    table.TryArrayArray = table.TryArrayArrayD = [](GANTRY_instance* instance, Rows* in, Rows** out)
    {
        EXPECT_TRUE(in->data[0]->data[1] == 2 && in->data[1] == nullptr);
        give(instance, in, out);
    };
    table.TryStructArray = table.TryStructArrayD = give;

    EXPECT_BOTH("Try_string", "_D", "s \"a\uFFFD\"", strdup("a\xFF"), "s", "text")
    EXPECT_BOTH("TrySet", "D", "an [-1, 1, 3]", make_record<Numbers>({3, 1, 3, -1}), "an", 3, 3, -1,
                3)
    EXPECT_BOTH("TryArrayString", "D", "as [\"\", \"\uFFFD\"]",
                make_record<Texts>({nullptr, strdup("\xFF")}), "as", 3, "b", "", "b")
    EXPECT_BOTH("TryArrayArray", "D", "aau [[], [1], [], []]",
                make_record<Rows>({nullptr, make_record<Row>({1U}), make_record<Row>({}),
                                   allocate<Row>(nullptr, 1UL)}),
                "aau", 2, 2, 1, 2, 0)
    EXPECT_BOTH("TryStructArray", "D", "(ananas) ([2], [], [\"\uFFFD\"])",
                allocate<Ananas>(make_record<Numbers>({2}), allocate<Numbers>(nullptr, 1UL),
                                 make_record<Texts>({strdup("\xFF")})),
                "(ananas)", 0, 0, 0)
    EXPECT_BOTH("TryStructArray", "D", "(ananas) ([], [], [])", nullptr, "(ananas)", 0, 0, 0)

    // A host may shorten a record too: what is gone then is the host's to free.
    table.TryArrayString = table.TryArrayStringD = [](GANTRY_instance*, Texts* in, Texts**)
    { free(std::exchange(in->data[--in->count], nullptr)); };
    EXPECT_BOTH("TryArrayString", "D", "as []", nullptr, "as", 2, "a", "b")
}

// Watches the blocks of a host's record, in the order of their release.
void watch(const Ananas* record, const void** from)
{
    const auto& [numbers, more, texts] = *record;
    std::ranges::copy(std::initializer_list<const void*>{numbers->data, numbers, more,
                                                         texts->data[0], texts->data[1],
                                                         texts->data, texts, record},
                      from);
}

TEST_F(MethodDispatch, ReleasesInputsAndThenOutputs)
{
    static bool throws = false;
    table.TryStructArray = table.TryStructArrayD = [](GANTRY_instance*, Ananas* in, Ananas** out)
    {
        watch(in, watched);
        *out = allocate<Ananas>(make_record<Numbers>({1}), make_record<Numbers>({2}),
                                make_record<Texts>({strdup("a"), strdup("b")}));
        watch(*out, watched + 8);
        throws ? throw std::runtime_error("host's own") : 0;
    };
    const std::string released = "abcdefghijklmnop";
    const std::string reply = "(ananas) ([1], [2], [\"a\", \"b\"])";
    for (const auto& [method, does_throw, expected, trace] :
         {std::tuple{"TryStructArray", false, reply, released + " sent "},
          {"TryStructArrayD", false, reply, " sent " + released},
          {"TryStructArray", true, "no reply", released},
          {"TryStructArrayD", true, "no reply", released}})
    {
        throws = does_throw;
        EXPECT_EQ(call(method, "(ananas)", 1, 3, 1, 4, 2, "c", "d"), expected);
        EXPECT_EQ(events, trace) << method << throws;
    }
}

TEST_F(MethodDispatch, GivesAndReleasesTextsInTheOrderOfTheArguments)
{
    GANTRY_table__com_orvane_velmar_system_NicSlot slot{};
    slot.TriggerAdapterCoreDump = [](GANTRY_instance*, char* a, unsigned char b, char* c, char* d,
                                     char* e, char* f, char* g, unsigned char h, int* status,
                                     char** message)
    {
        *status = b * 1000 + h;
        *message = strdup("out");
        std::ranges::copy(std::array{a, c, d, e, f, g, *message}, watched);
    };
    GANTRY_instantiate__com_orvane_velmar_system_NicSlot(context, &slot, "/slot", nullptr);
    events.clear();
    EXPECT_EQ(client
                  .call({service, "/slot"}, "com.orvane.velmar.system.NicSlot",
                        "TriggerAdapterCoreDump", "sysssssy", "a", 2, "c", "d", "e", "f", "g", 255)
                  .text,
              "is 2255, \"out\"");
    EXPECT_EQ(events, "abcdefg sent ");
}

TEST_F(MethodDispatch, EndsTheLoopWhenTheHostThrows)
{
    table.Try_string = table.Try_string_D = [](GANTRY_instance*, char* in, char**)
    { *in == '4' ? throw 42 : throw sdbusplus::exception::SdBusError(EBUSY, "host's own"); };
    for (const auto& [method, operation] : both_shapes)
    {
        EXPECT_EQ(call(method, "s", "text"), "no reply");
        EXPECT_EQ(logged(2), "2 EXCEPTION gantry_server." + operation +
                                 ": host's own: System.Error.EBUSY: Device or resource busy\\n\n" +
                                 failed(method) + ended);
        EXPECT_EQ(call("Deferred", ""), "i 0");
        // What is no std::exception goes through the loop, and its text is untold.
        EXPECT_THROW(call(method, "s", "42"), int);
        EXPECT_EQ(logged(2), failed(method));
        EXPECT_EQ(call("Deferred", ""), "i 0");
    }
}

// A C++ host's class: its method of message shape throws or answers at some later time.
struct Override : GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest
{
    using gantrytest::gantrytest;
    std::string tryString(std::string in) override
    {
        in == "own" ? throw Conversion("com.example.Own")
                    : throw sdbusplus::exception::SdBusError(EBUSY, "text\xFF");
    }
    void tryStringD(sdbusplus::message_t& message) override
    {
        std::string in;
        message.read(in);
        in != "later" ? static_cast<void>(tryString(in)) : void();
    }
};

TEST_F(MethodDispatch, GivesTheClientAnOverridesSdBusErrorInUtf8AndNoReplyOfItsOwn)
{
    Override own(context->bus, "/own");
    object.path = "/own";
    for (const auto& [method, operation] : both_shapes)
    {
        EXPECT_EQ(call(method, "s", "throw"),
                  "error System.Error.EBUSY: text\uFFFD: Device or resource busy");
    }
    EXPECT_EQ(call("Try_string_D", "s", "later"), "no reply");
    EXPECT_EQ(call("Try_string", "s", "own"), "error com.example.Own: of the host\uFFFD");
    EXPECT_EQ(logged(2), "");
    EXPECT_EQ(call("Try_string_D", "s", "own"), "no reply");
    EXPECT_THAT(logged(2), StartsWith(failed("Try_string_D", "/own")));
}

TEST_F(MethodDispatch, TellsTheClientOfAReplyThatIsNotSentInReplyShapeOnly)
{
    const std::string error = "org.freedesktop.DBus.Error.IOError: ";
    send = {-EIO};
    EXPECT_EQ(call("Try_string", "s", ""), "error " + error + "sd_bus_send: Input/output error");
    EXPECT_EQ(events, " sent ");
    send = {-EIO};
    EXPECT_EQ(call("Try_string_D", "s", ""), "no reply");
    EXPECT_EQ(logged(2), "2 EXCEPTION gantry_server.tryStringD: sd_bus_send: " + error +
                             "Input/output error\\n\n" + failed("Try_string_D") + ended);
    EXPECT_EQ(call("Try_string_D", "s", ""), "s \"\"");
}

} // namespace
