// From a call on the bus to the function in a host's table and back: what each side sees in both
// shapes of method, who releases what and when, and what is left of a call that goes wrong.
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <map>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <dlfcn.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>

#include "src/served.hpp"
#include "src/stand_in.hpp"

namespace
{

using sdbusplus::server::com::orvane::velmar::sample::Gantrytest;
using support::Reply;

stand_in::Script new_method_return;
stand_in::Script send;
stand_in::Script read_basic;

// What was sent, and which of the blocks that a host's function has named were freed.
std::string events;
std::vector<std::pair<const void*, std::string>> named;
bool has_names = false;

void name(const void* block, std::string as)
{
    named.emplace_back(block, std::move(as));
    has_names = true;
}

void note_free(const void* block)
{
    for (auto& [address, as] : named)
    {
        if (block != nullptr && address == block)
        {
            address = nullptr;
            events += as + ' ';
        }
    }
}

} // namespace

int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** reply)
{
    return new_method_return.for_library(__builtin_return_address(0))
        .next_or("sd_bus_message_new_method_return", sd_bus_message_new_method_return, call, reply);
}

int sd_bus_send(sd_bus* bus, sd_bus_message* message, uint64_t* cookie)
{
    auto& script = send.for_library(__builtin_return_address(0));
    events += &script == &send ? "sent " : "";
    return script.next_or("sd_bus_send", sd_bus_send, bus, message, cookie);
}

int sd_bus_message_read_basic(sd_bus_message* message, char type, void* value)
{
    return read_basic.for_library(__builtin_return_address(0))
        .next_or("sd_bus_message_read_basic", sd_bus_message_read_basic, message, type, value);
}

// Called before a sanitizer is ready for code of its own.
__attribute__((no_sanitize("address", "undefined"))) void free(void* block) noexcept
{
    using Free = void(void*);
    static constinit Free* hidden = nullptr;
    static constinit bool is_looking = false;
    if (hidden == nullptr)
    {
        // The look-up itself frees the text of an earlier one's error; that one is kept.
        if (is_looking)
        {
            return;
        }
        is_looking = true;
        hidden = reinterpret_cast<Free*>(dlsym(RTLD_NEXT, "free"));
    }
    if (has_names)
    {
        note_free(block);
    }
    hidden(block);
}

namespace
{

struct Method
{
    std::string name;
    std::string in;
    std::string out;
};

// In slot order. A twin of message shape has the same types as its method of reply shape.
std::vector<Method> all_methods()
{
    std::vector<Method> methods;
    for (const auto* row = Gantrytest::_vtable; row->type != _SD_BUS_VTABLE_END; ++row)
    {
        if (row->type == _SD_BUS_VTABLE_METHOD)
        {
            const auto& method = row->x.method;
            methods.push_back({method.member, method.signature, method.result});
        }
    }
    return methods;
}

const std::vector<Method> methods = all_methods();

std::string twin(const std::string& method)
{
    return method + (method == "SetString" ? "Deferred" : method.starts_with("Try_") ? "_D" : "D");
}

// The override's name, as in its log.
std::string operation(std::string method)
{
    const auto convert = [&](std::size_t at, int (*by)(int))
    { method[at] = static_cast<char>(by(static_cast<unsigned char>(method[at]))); };
    convert(0, std::tolower);
    for (std::size_t at = 0; (at = method.find('_')) != std::string::npos;)
    {
        method.erase(at, 1);
        convert(at, std::toupper);
    }
    return method;
}

// A reply of zeros and empty values.
std::string zeros(const std::string& types)
{
    static const std::map<std::string, std::string> others{
        {"b", "false"},
        {"s", "\"\""},
        {"qu", "0, 0"},
        {"qut", "0, 0, 0"},
        {"(ixs)", "(0, 0, \"\")"},
        {"(ananas)", "([], [], [])"},
    };
    const auto found = others.find(types);
    return types + ' ' + (found != others.end() ? found->second : types[0] == 'a' ? "[]" : "0");
}

// A record as a host may build one, of blocks that free() takes.
template <class Record>
using Element = std::remove_pointer_t<decltype(Record::data)>;
template <class Record>
Record* make_record(std::initializer_list<Element<Record>> elements = {})
{
    auto* record = static_cast<Record*>(calloc(1, sizeof(Record)));
    record->count = elements.size();
    // Of no elements it is a block all the same.
    record->data = static_cast<Element<Record>*>(
        calloc(1, std::span(elements.begin(), elements.size()).size_bytes()));
    std::copy(elements.begin(), elements.end(), record->data);
    return record;
}

template <class Record>
Record* without_data(Record* record)
{
    free(std::exchange(record->data, nullptr));
    return record;
}

template <class Struct, class... Fields>
Struct* make_struct(Fields... fields)
{
    return new (calloc(1, sizeof(Struct))) Struct{fields...};
}

using Bytes = GANTRY_byte_array;
using Numbers = GANTRY_int16_array;
using Texts = GANTRY_string_array;
using Row = GANTRY_uint32_array;
using Rows = GANTRY_uint32_array_array;
using Ixs = GANTRY_struct_ixs;
using Ananas = GANTRY_struct_ananas;

// Values as a host's function saw them, and what it then does to the memory that it was lent.
std::string seen;

template <class Number>
std::enable_if_t<std::is_arithmetic_v<Number>, std::string> shown(Number& number)
{
    return std::to_string(std::exchange(number, static_cast<Number>(99)));
}

std::string shown(char* text)
{
    const std::string shown = text == nullptr ? "null" : '"' + std::string(text) + '"';
    std::fill_n(text, text == nullptr ? 0 : strlen(text), 'x');
    return shown;
}

template <class Record>
auto shown(Record* record) -> decltype(record->data, std::string())
{
    std::string text;
    for (unsigned long index = 0; record != nullptr && index < record->count; ++index)
    {
        text += (index == 0 ? "" : " ") + shown(record->data[index]);
    }
    return record == nullptr ? "null" : '[' + text + ']';
}

template <class Struct>
auto shown(Struct* values) -> decltype(values->field3, std::string())
{
    return shown(values->field1) + ' ' + shown(values->field2) + ' ' + shown(values->field3);
}

// Looks at its input and gives the result that a test has made, which the library releases.
void* next = nullptr;

template <class In>
void exchange(GANTRY_instance*, In in, void** out)
{
    seen = shown(in);
    *out = std::exchange(next, nullptr);
}

class Dispatch : public Served
{
  protected:
    using Function = void (*)();

    Dispatch()
    {
        publish(table.data());
    }
    ~Dispatch() override
    {
        has_names = false;
        named.clear();
    }

    // One more object, which the calls go to from here on.
    void publish(const void* its_table)
    {
        object = {service, "/object" + std::to_string(context->tracker.size())};
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(
            context,
            static_cast<const GANTRY_table__com_orvane_velmar_sample_gantrytest*>(its_table),
            object.path.c_str(), nullptr);
    }

    template <class Result, class... Arguments>
    void fill(const std::string& method, Result (*function)(Arguments...))
    {
        for (std::size_t slot = 0; slot < methods.size(); ++slot)
        {
            if (methods[slot].name == method || methods[slot].name == twin(method))
            {
                table[slot] = reinterpret_cast<Function>(function);
            }
        }
    }

    template <class... Args>
    Reply call(const std::string& method, const char* types = "", Args... args)
    {
        logged();
        events.clear();
        return client.call(object, interface, method.c_str(), types, args...);
    }

    // With zeros and empty values.
    Reply call(const Method& method)
    {
        const char* in = method.in.c_str();
        return method.in.empty()                      ? call(method.name)
               : method.in == "x" || method.in == "t" ? call(method.name, in, 0L)
               : method.in == "d"                     ? call(method.name, in, 0.0)
               : method.in == "s"                     ? call(method.name, in, "")
               : method.in == "(ixs)"                 ? call(method.name, in, 0, 0L, "")
               : method.in == "(ananas)"              ? call(method.name, in, 0, 0, 0)
                                                      : call(method.name, in, 0);
    }

    // Whether a call is left without a reply, and the service goes on.
    template <class... Args>
    bool is_unanswered(const std::string& method, const char* types, Args... args)
    {
        logged();
        events.clear();
        const auto pending = client.start(object, interface, method.c_str(), types, args...);
        client.settle(service);
        return !pending.done();
    }

    static constexpr const char* interface = Gantrytest::interface;
    const std::string ended =
        "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: std::exception\\n\n";

    std::array<Function, 45> table{};
    support::Object object;
};

// The method and its twin see and give the same, where the host makes the result anew.
#define EXPECT_BOTH(method, expected_seen, reply, made, ...)                                       \
    for (const auto& shape : {std::string(method), twin(method)})                                  \
    {                                                                                              \
        next = (made);                                                                             \
        EXPECT_EQ(call(shape, __VA_ARGS__).text, reply) << shape;                                  \
        EXPECT_EQ(std::exchange(seen, {}), expected_seen) << shape;                                \
    }

// A function that leaves its outputs alone, and whose result nobody reads.
template <std::size_t slot>
long called(GANTRY_instance* instance)
{
    seen += instance == nullptr ? "null" : std::to_string(slot);
    return -1;
}

TEST_F(Dispatch, GivesEachMethodItsSlotAndZeroedOutputs)
{
    ASSERT_EQ(methods.size(), table.size());
    [this]<std::size_t... slot>(std::index_sequence<slot...>)
    {
        ((table[slot] = reinterpret_cast<Function>(called<slot>)), ...);
    }
    (std::make_index_sequence<45>{});
    for (std::size_t slot = 0; slot < methods.size(); ++slot)
    {
        EXPECT_EQ(call(methods[slot]).text, zeros(methods[slot].out)) << methods[slot].name;
        EXPECT_EQ(std::exchange(seen, {}), std::to_string(slot)) << methods[slot].name;
        EXPECT_EQ(told(), "") << methods[slot].name;
    }
}

TEST_F(Dispatch, RepliesZerosWithoutAFunction)
{
    const auto expect_zeros = [this](const std::string& logged_first)
    {
        for (const auto& method : methods)
        {
            const std::string place = " gantry_server." + operation(method.name) + ": ";
            EXPECT_EQ(call(method).text, zeros(method.out)) << method.name;
            EXPECT_EQ(told(), (logged_first.empty() ? "" : "1" + place + logged_first + '\n') +
                                  "9" + place + "not calling callback\n");
        }
    };
    expect_zeros("");

    publish(nullptr);
    expect_zeros("inst->table is NULL");

    auto& record = newest<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest>().inst;
    auto* const instance = std::exchange(record, nullptr);
    expect_zeros("inst is NULL");
    record = instance;

    // A null table still has its inputs read, made and released; message shape looks for it first.
    call("SetStringDeferred", "s", "text");
    EXPECT_EQ(support::captured_log::count("enter", "GANTRY_string_free"), 1U);
    const std::string failed = "sd_bus_message_read_basic string: ";
    read_basic = {-EIO};
    EXPECT_EQ(call("SetString", "s", "text").error_message, failed + "Input/output error");
    EXPECT_EQ(told(), "");
    read_basic = {-EIO};
    EXPECT_TRUE(is_unanswered("SetStringDeferred", "s", "text"));
    EXPECT_EQ(told(), "1 gantry_server.setStringDeferred: inst->table is NULL\n"
                      "2 EXCEPTION gantry_server.setStringDeferred: " +
                          failed + "org.freedesktop.DBus.Error.IOError: Input/output error\\n\n" +
                          ended);
}

TEST_F(Dispatch, LendsInputsAndTakesWhateverAHostLeavesInOutputs)
{
    fill("Try_string", exchange<char*>);
    fill("Try_array", exchange<Bytes*>);
    fill("TrySet", exchange<Numbers*>);
    fill("TryArrayString", exchange<Texts*>);
    fill("TryArrayArray", exchange<Rows*>);
    fill("TryStruct", exchange<Ixs*>);
    fill("TryStructArray", exchange<Ananas*>);

    EXPECT_BOTH("Try_string", "\"text\"", "s \"a\uFFFD\"", strdup("a\xFF"), "s", "text")
    EXPECT_BOTH("Try_string", "\"\"", "s \"\"", nullptr, "s", "")
    EXPECT_BOTH("Try_array", "[255 0 1]", "ay [0, 255]", make_record<Bytes>({0, 255}), "ay", 3, 255,
                0, 1)
    EXPECT_BOTH("Try_array", "null", "ay []", make_record<Bytes>(), "ay", 0)
    EXPECT_BOTH("TrySet", "[-32768 -1 1 3]", "an [-1, 1, 3]", make_record<Numbers>({3, 1, 3, -1}),
                "an", 5, 3, -1, 1, 3, -32768)
    EXPECT_BOTH("TrySet", "null", "an []", without_data(make_record<Numbers>({1})), "an", 0)
    EXPECT_BOTH("TryArrayString", "[\"b\" \"\" \"b\"]", "as [\"\", \"a\", \"\uFFFD\"]",
                make_record<Texts>({nullptr, strdup("a"), strdup("\xFF")}), "as", 3, "b", "", "b")
    EXPECT_BOTH("TryArrayString", "null", "as []",
                without_data(make_record<Texts>({nullptr, nullptr})), "as", 0)
    EXPECT_BOTH("TryArrayArray", "[[1 2] null [3]]", "aau [[], [1], [], []]",
                make_record<Rows>({nullptr, make_record<Row>({1U}), make_record<Row>(),
                                   without_data(make_record<Row>({1U}))}),
                "aau", 3, 2, 1, 2, 0, 1, 3)
    EXPECT_BOTH("TryArrayArray", "null", "aau []", nullptr, "aau", 0)
    EXPECT_BOTH("TryStruct", "-1 -9223372036854775807 \"a\"", "(ixs) (-5, -6, \"\")",
                make_struct<Ixs>(-5, -6, nullptr), "(ixs)", -1, -INT64_MAX, "a")
    EXPECT_BOTH("TryStructArray", "[2 1] null [\"\"]", "(ananas) ([2, 1, 2], [], [\"\"])",
                make_struct<Ananas>(make_record<Numbers>({2, 1, 2}),
                                    without_data(make_record<Numbers>({1})),
                                    make_record<Texts>({nullptr})),
                "(ananas)", 2, 2, 1, 0, 1, "")

    // A host may shorten a record too: what is gone then is the host's to free.
    const auto shorten = [](GANTRY_instance*, Texts* in, Texts**)
    { free(std::exchange(in->data[--in->count], nullptr)); };
    fill("TryArrayString", +shorten);
    EXPECT_BOTH("TryArrayString", "", "as []", nullptr, "as", 2, "a", "b")
}

// A host's record with names for its blocks.
void name_struct(const Ananas* record, const std::string& as)
{
    const auto name_record = [](const auto* field, const std::string& field_as)
    {
        name(field, field_as);
        name(field->data, field_as + ".data");
    };
    name(record, as);
    name_record(record->field1, as + '1');
    name_record(record->field2, as + '2');
    name_record(record->field3, as + '3');
    name(record->field3->data[0], as + "3[0]");
    name(record->field3->data[1], as + "3[1]");
}

void fill_struct(GANTRY_instance*, Ananas* in, Ananas** out)
{
    name_struct(in, "in");
    *out = make_struct<Ananas>(make_record<Numbers>({1}), make_record<Numbers>({2}),
                               make_record<Texts>({strdup("a"), strdup("b")}));
    name_struct(*out, "out");
}

TEST_F(Dispatch, ReleasesInputsAndThenOutputs)
{
    const std::string released =
        "in1.data in1 in2.data in2 in3[0] in3[1] in3.data in3 in "
        "out1.data out1 out2.data out2 out3[0] out3[1] out3.data out3 out ";
    const char* types = "(ananas)";
    const auto* reply = "(ananas) ([1], [2], [\"a\", \"b\"])";
    fill("TryStructArray", fill_struct);
    EXPECT_EQ(call("TryStructArray", types, 1, 3, 1, 4, 2, "c", "d").text, reply);
    EXPECT_EQ(events, released + "sent ");
    EXPECT_EQ(call("TryStructArrayD", types, 1, 3, 1, 4, 2, "c", "d").text, reply);
    EXPECT_EQ(events, "sent " + released);

    // So too when the function throws; a record may then hold anything that a whole one may.
    const auto fail = [](GANTRY_instance* instance, Ananas* in, Ananas** out)
    {
        fill_struct(instance, in, out);
        throw std::runtime_error("host's own");
    };
    fill("TryStructArray", +fail);
    for (const auto* method : {"TryStructArray", "TryStructArrayD"})
    {
        EXPECT_TRUE(is_unanswered(method, types, 1, 3, 1, 4, 2, "c", "d"));
        EXPECT_EQ(events, released);
    }
}

TEST_F(Dispatch, GivesAndReleasesTextsInTheOrderOfTheArguments)
{
    GANTRY_table__com_orvane_velmar_system_NicSlot slot{};
    slot.TriggerAdapterCoreDump = [](GANTRY_instance*, char* a, unsigned char b, char* c, char* d,
                                     char* e, char* f, char* g, unsigned char h, int* status,
                                     char** message)
    {
        *status = b * 1000 + h;
        *message = strdup("out");
        for (char* text : {a, c, d, e, f, g, *message})
        {
            seen += text;
            name(text, text);
        }
    };
    GANTRY_instantiate__com_orvane_velmar_system_NicSlot(context, &slot, "/slot", nullptr);
    events.clear();
    EXPECT_EQ(client
                  .call({service, "/slot"}, "com.orvane.velmar.system.NicSlot",
                        "TriggerAdapterCoreDump", "sysssssy", "a", 2, "c", "d", "e", "f", "g", 255)
                  .text,
              "is 2255, \"out\"");
    EXPECT_EQ(std::exchange(seen, {}), "acdefgout");
    EXPECT_EQ(events, "a c d e f g out sent ");
}

TEST_F(Dispatch, EndsTheLoopWhenTheHostThrows)
{
    const auto fail = [](GANTRY_instance*, char*, char**)
    { throw std::runtime_error("host's own"); };
    fill("Try_string", +fail);
    for (const std::string method : {"Try_string", "Try_string_D"})
    {
        EXPECT_TRUE(is_unanswered(method, "s", "text"));
        EXPECT_EQ(told(),
                  "2 EXCEPTION gantry_server." + operation(method) + ": host's own\\n\n" + ended);
        EXPECT_EQ(call("Deferred").text, "i 0");
    }

    // What is no std::exception goes through it, untold.
    const auto fail_otherwise = [](GANTRY_instance*, char*, char**) { throw 42; };
    fill("Try_string", +fail_otherwise);
    for (const char* method : {"Try_string", "Try_string_D"})
    {
        EXPECT_THROW(is_unanswered(method, "s", "text"), int);
        EXPECT_EQ(told(), "");
        EXPECT_EQ(call("Deferred").text, "i 0");
    }
}

TEST_F(Dispatch, TellsTheClientOfAReplyThatFailsInReplyShapeOnly)
{
    const auto echo = [](GANTRY_instance*, unsigned char in, unsigned char* out)
    {
        seen += "called";
        *out = in;
    };
    fill("Try_byte", +echo);
    const struct
    {
        stand_in::Script& script;
        std::string what;
        const char* seen_in_reply_shape;
        const char* seen_in_message_shape;
    } failures[] = {
        {read_basic, "sd_bus_message_read_basic fundamental: ", "", ""},
        {new_method_return, "sd_bus_message_new_method_return: ", "", "called"},
        {send, "sd_bus_send: ", "called", "called"},
    };
    const std::string io_error = "org.freedesktop.DBus.Error.IOError: ";
    for (const auto& [script, what, seen_in_reply_shape, seen_in_message_shape] : failures)
    {
        script = {-EIO};
        EXPECT_EQ(call("Try_byte", "y", 1).text, "error " + io_error + what + "Input/output error");
        EXPECT_EQ(std::exchange(seen, {}), seen_in_reply_shape);
        EXPECT_EQ(told(), "");

        script = {-EIO};
        EXPECT_TRUE(is_unanswered("Try_byte_D", "y", 1)) << what;
        EXPECT_EQ(std::exchange(seen, {}), seen_in_message_shape);
        EXPECT_EQ(told(), "2 EXCEPTION gantry_server.tryByteD: " + what + io_error +
                              "Input/output error\\n\n" + ended);
        EXPECT_BOTH("Try_byte", "called", "y 5", nullptr, "y", 5)
    }
}

} // namespace
