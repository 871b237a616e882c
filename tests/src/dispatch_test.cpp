// From a call on the bus to the function in a host's table and back: what each side sees in both
// shapes of method, who releases what and when, and what is left of a call that goes wrong.
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "src/stand_in.hpp"
#include "support/client.hpp"

namespace
{

using support::Client;
using support::Object;
using support::Reply;
using testing::ElementsAre;

stand_in::Script new_method_return;
stand_in::Script send;
stand_in::Script read_basic;

// libsystemd and the client call the same functions: a script is for the library.
stand_in::Script& scripted(stand_in::Script& script, const void* caller)
{
    static stand_in::Script none;
    return stand_in::is_called_by_library(caller) ? script : none;
}

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

std::string take(std::string& text)
{
    return std::exchange(text, {});
}

} // namespace

int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** reply)
{
    return scripted(new_method_return, __builtin_return_address(0))
        .next_or("sd_bus_message_new_method_return", sd_bus_message_new_method_return, call, reply);
}

int sd_bus_send(sd_bus* bus, sd_bus_message* message, uint64_t* cookie)
{
    auto& script = scripted(send, __builtin_return_address(0));
    if (&script == &send)
    {
        events += sd_bus_message_is_signal(message, nullptr, nullptr) > 0 ? "signal " : "sent ";
    }
    return script.next_or("sd_bus_send", sd_bus_send, bus, message, cookie);
}

int sd_bus_message_read_basic(sd_bus_message* message, char type, void* value)
{
    return scripted(read_basic, __builtin_return_address(0))
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

// In slot order. A twin of message shape has the same types as its method of reply shape.
struct Method
{
    std::string name;
    const char* in;
    const char* zeros;
};

const std::array<Method, 45> methods{{
    {"GetString", "", "s \"\""},
    {"SetString", "s", "i 0"},
    {"ChangeContainer", "", "i 0"},
    {"GetStringDeferred", "", "s \"\""},
    {"SetStringDeferred", "s", "i 0"},
    {"ChangeContainerDeferred", "", "i 0"},
    {"Deferred", "", "i 0"},
    {"Try_byte", "y", "y 0"},
    {"Try_byte_D", "y", "y 0"},
    {"Try_boolean", "b", "b false"},
    {"Try_boolean_D", "b", "b false"},
    {"Try_int16", "n", "n 0"},
    {"Try_int16_D", "n", "n 0"},
    {"Try_uint16", "q", "q 0"},
    {"Try_uint16_D", "q", "q 0"},
    {"Try_int32", "i", "i 0"},
    {"Try_int32_D", "i", "i 0"},
    {"Try_uint32", "u", "u 0"},
    {"Try_uint32_D", "u", "u 0"},
    {"Try_int64", "x", "x 0"},
    {"Try_int64_D", "x", "x 0"},
    {"Try_uint64", "t", "t 0"},
    {"Try_uint64_D", "t", "t 0"},
    {"Try_double", "d", "d 0"},
    {"Try_double_D", "d", "d 0"},
    {"Try_string", "s", "s \"\""},
    {"Try_string_D", "s", "s \"\""},
    {"Try_array", "ay", "ay []"},
    {"Try_array_D", "ay", "ay []"},
    {"TupleOne", "", "q 0"},
    {"TupleOneD", "", "q 0"},
    {"TupleTwo", "", "qu 0, 0"},
    {"TupleTwoD", "", "qu 0, 0"},
    {"TupleThree", "", "qut 0, 0, 0"},
    {"TupleThreeD", "", "qut 0, 0, 0"},
    {"TrySet", "an", "an []"},
    {"TrySetD", "an", "an []"},
    {"TryArrayArray", "aau", "aau []"},
    {"TryArrayArrayD", "aau", "aau []"},
    {"TryArrayString", "as", "as []"},
    {"TryArrayStringD", "as", "as []"},
    {"TryStruct", "(ixs)", "(ixs) (0, 0, \"\")"},
    {"TryStructD", "(ixs)", "(ixs) (0, 0, \"\")"},
    {"TryStructArray", "(ananas)", "(ananas) ([], [], [])"},
    {"TryStructArrayD", "(ananas)", "(ananas) ([], [], [])"},
}};

std::string twin(const std::string& method)
{
    return method + (method == "SetString" ? "Deferred" : method.starts_with("Try_") ? "_D" : "D");
}

// The override's name, as in its log.
std::string operation(const std::string& method)
{
    std::string result;
    for (std::size_t index = 0; index < method.size(); ++index)
    {
        const bool raised = method[index] == '_';
        index += raised ? 1 : 0;
        const auto letter = static_cast<unsigned char>(method[index]);
        result += static_cast<char>(raised           ? std::toupper(letter)
                                    : result.empty() ? std::tolower(letter)
                                                     : letter);
    }
    return result;
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

// Values as a host's function saw them.
std::string shown(const char* text)
{
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

template <class Number>
std::enable_if_t<std::is_arithmetic_v<Number>, std::string> shown(Number number)
{
    return std::to_string(number);
}

template <class Record>
auto shown(const Record* record) -> decltype(record->data, std::string())
{
    if (record == nullptr)
    {
        return "null";
    }
    std::string text;
    for (unsigned long index = 0; index < record->count; ++index)
    {
        text += (index == 0 ? "" : " ") + shown(record->data[index]);
    }
    return '[' + text + ']';
}

std::string seen;

class Dispatch : public testing::Test
{
  protected:
    using Function = void (*)();

    Dispatch()
    {
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, "");
        service = context->bus.get_unique_name();
        publish(table.data());
    }
    ~Dispatch() override
    {
        GANTRY_context_free(&context);
        has_names = false;
        named.clear();
        events.clear();
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
        support::captured_log::clear();
        events.clear();
        return client.call(object, interface, method.c_str(), types, args...);
    }

    // Zeros and empty values.
    Reply call(const Method& method)
    {
        const std::string in = method.in;
        if (in.empty())
        {
            return call(method.name);
        }
        if (in == "x" || in == "t")
        {
            return call(method.name, method.in, 0L);
        }
        if (in == "d")
        {
            return call(method.name, method.in, 0.0);
        }
        if (in == "s")
        {
            return call(method.name, method.in, "");
        }
        if (in == "(ixs)")
        {
            return call(method.name, method.in, 0, 0L, "");
        }
        if (in == "(ananas)")
        {
            return call(method.name, method.in, 0, 0, 0);
        }
        return call(method.name, method.in, 0);
    }

    // The method and its twin get the same.
    template <class... Args>
    void expect_both(const std::string& method, const std::string& reply,
                     const std::string& expected_seen, const char* types = "", Args... args)
    {
        for (const auto& shape : {method, twin(method)})
        {
            EXPECT_EQ(call(shape, types, args...).text, reply) << shape;
            EXPECT_EQ(take(seen), expected_seen) << shape;
        }
    }

    // Whether a call is left without a reply, and the service goes on.
    template <class... Args>
    bool is_unanswered(const std::string& method, const char* types = "", Args... args)
    {
        support::captured_log::clear();
        events.clear();
        const auto pending = client.start(object, interface, method.c_str(), types, args...);
        client.settle(service);
        return !pending.done();
    }

    // What was logged of methods, and of all that went wrong.
    static std::string told()
    {
        std::string lines;
        std::string line;
        for (const char character : logged())
        {
            line += character;
            if (character == '\n')
            {
                const bool kept = line.find(" gantry_server.") != std::string::npos ||
                                  line.find("EXCEPTION") != std::string::npos;
                lines += kept ? line : "";
                line.clear();
            }
        }
        return lines;
    }

    static constexpr const char* interface = "com.orvane.velmar.sample.gantrytest";
    static constexpr const char* ended =
        "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: std::exception\\n\n";

    std::array<Function, 45> table{};
    GANTRY_cpp_context* context = nullptr;
    std::string service;
    Object object;
    std::vector<int> thrown;
    Client client{[this]
                  {
                      try
                      {
                          GANTRY_dbus_loop_one_pass(context);
                      }
                      catch (int number)
                      {
                          thrown.push_back(number);
                      }
                  }};
};

// A function that leaves its outputs alone, and whose result nobody reads.
template <std::size_t slot>
long called(GANTRY_instance* instance)
{
    seen += instance == nullptr ? "null" : std::to_string(slot);
    return -1;
}

TEST_F(Dispatch, GivesEachMethodItsSlotAndZeroedOutputs)
{
    [this]<std::size_t... slot>(std::index_sequence<slot...>)
    {
        ((table[slot] = reinterpret_cast<Function>(called<slot>)), ...);
    }
    (std::make_index_sequence<45>{});
    for (std::size_t slot = 0; slot < methods.size(); ++slot)
    {
        EXPECT_EQ(call(methods[slot]).text, methods[slot].zeros) << methods[slot].name;
        EXPECT_EQ(take(seen), std::to_string(slot)) << methods[slot].name;
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
            EXPECT_EQ(call(method).text, method.zeros) << method.name;
            EXPECT_EQ(told(), (logged_first.empty() ? "" : "1" + place + logged_first + '\n') +
                                  "9" + place + "not calling callback\n");
        }
    };
    expect_zeros("");

    publish(nullptr);
    expect_zeros("inst->table is NULL");

    auto* const published = static_cast<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest*>(
        context->tracker.back().object);
    auto* const instance = std::exchange(published->inst, nullptr);
    expect_zeros("inst is NULL");
    published->inst = instance;

    // A null table still has its inputs read, made and released.
    call("SetStringDeferred", "s", "text");
    EXPECT_EQ(support::captured_log::count("enter", "GANTRY_string_free"), 1U);
}

TEST_F(Dispatch, KeepsTwinsApart)
{
    using Echo = void (*)(GANTRY_instance*, short, short*);
    const Echo echo = [](GANTRY_instance*, short in, short* out) { *out = in; };
    for (const bool reply_shape : {true, false})
    {
        table = {};
        table[reply_shape ? 11 : 12] = reinterpret_cast<Function>(echo);
        EXPECT_EQ(call("Try_int16", "n", 5).text, reply_shape ? "n 5" : "n 0");
        EXPECT_EQ(call("Try_int16_D", "n", 5).text, reply_shape ? "n 0" : "n 5");
    }
}

TEST_F(Dispatch, LendsInputsThatTheHostMayWriteTo)
{
    fill(
        "Try_string",
        +[](GANTRY_instance*, char* in, char** out)
        {
            seen = shown(in);
            *out = strdup(in);
            std::fill_n(in, strlen(in), 'x');
        });
    expect_both("Try_string", "s \"text\"", "\"text\"", "s", "text");
    expect_both("Try_string", "s \"\"", "\"\"", "s", "");

    fill(
        "Try_array",
        +[](GANTRY_instance*, GANTRY_byte_array* in, GANTRY_byte_array**)
        {
            seen = shown(in);
            if (in != nullptr)
            {
                in->data[0] = 99;
            }
        });
    expect_both("Try_array", "ay []", "[255 0 1]", "ay", 3, 255, 0, 1);
    expect_both("Try_array", "ay []", "null", "ay", 0);

    fill(
        "TrySet",
        +[](GANTRY_instance*, GANTRY_int16_array* in, GANTRY_int16_array**) { seen = shown(in); });
    expect_both("TrySet", "an []", "[-32768 -1 1 3]", "an", 5, 3, -1, 1, 3, -32768);
    expect_both("TrySet", "an []", "null", "an", 0);

    // A host may shorten a record too: what is gone then is the host's to free.
    fill(
        "TryArrayString",
        +[](GANTRY_instance*, GANTRY_string_array* in, GANTRY_string_array**)
        {
            seen = shown(in);
            if (in != nullptr)
            {
                free(std::exchange(in->data[--in->count], nullptr));
            }
        });
    expect_both("TryArrayString", "as []", "[\"b\" \"\" \"b\"]", "as", 3, "b", "", "b");
    expect_both("TryArrayString", "as []", "null", "as", 0);

    fill(
        "TryArrayArray", +[](GANTRY_instance*, GANTRY_uint32_array_array* in,
                             GANTRY_uint32_array_array**) { seen = shown(in); });
    expect_both("TryArrayArray", "aau []", "[[1 2] null [3]]", "aau", 3, 2, 1, 2, 0, 1, 3);
    expect_both("TryArrayArray", "aau []", "null", "aau", 0);

    fill(
        "TryStruct",
        +[](GANTRY_instance*, GANTRY_struct_ixs* in, GANTRY_struct_ixs**)
        { seen = shown(in->field1) + ' ' + shown(in->field2) + ' ' + shown(in->field3); });
    expect_both("TryStruct", "(ixs) (0, 0, \"\")", "-1 -9223372036854775807 \"a\"", "(ixs)", -1,
                -INT64_MAX, "a");
    fill(
        "TryStructArray",
        +[](GANTRY_instance*, GANTRY_struct_ananas* in, GANTRY_struct_ananas**)
        { seen = shown(in->field1) + ' ' + shown(in->field2) + ' ' + shown(in->field3); });
    expect_both("TryStructArray", "(ananas) ([], [], [])", "[2 1] null [\"\"]", "(ananas)", 2, 2, 1,
                0, 1, "");
    expect_both("TryStructArray", "(ananas) ([], [], [])", "null null null", "(ananas)", 0, 0, 0);
}

TEST_F(Dispatch, ReadsWhateverAHostLeavesInARecord)
{
    // The record of the next call, which the library releases.
    static void* next = nullptr;
    const auto out = [](GANTRY_instance*, const void*, void** record)
    { *record = std::exchange(next, nullptr); };
    for (const char* method :
         {"Try_array", "TrySet", "TryArrayArray", "TryArrayString", "TryStruct", "TryStructArray"})
    {
        fill(method, +out);
    }
    const auto expect = [this](const char* method, const char* reply, auto make)
    {
        for (const auto& shape : {std::string(method), twin(method)})
        {
            next = make();
            const auto* called_method =
                std::find_if(methods.begin(), methods.end(),
                             [&](const Method& each) { return each.name == shape; });
            EXPECT_EQ(call(*called_method).text, reply) << shape;
        }
    };
    using Bytes = GANTRY_byte_array;
    using Numbers = GANTRY_int16_array;
    using Texts = GANTRY_string_array;
    using Rows = GANTRY_uint32_array_array;
    const auto without_data = [](auto* record)
    {
        free(std::exchange(record->data, nullptr));
        return record;
    };

    expect("Try_array", "ay [0, 255]", [] { return make_record<Bytes>({0, 255}); });
    expect("Try_array", "ay []", [] { return make_record<Bytes>(); });
    expect("Try_array", "ay []", [&] { return without_data(make_record<Bytes>({1, 2})); });
    expect("TrySet", "an [-1, 1, 3]", [] { return make_record<Numbers>({3, 1, 3, -1}); });
    expect("TrySet", "an []", [&] { return without_data(make_record<Numbers>({1})); });
    expect("TryArrayString", "as [\"\", \"a\", \"\xEF\xBF\xBD\"]",
           [] {
               return make_record<Texts>({nullptr, strdup("a"), strdup("\xFF")});
           });
    expect("TryArrayString", "as []", [] { return make_record<Texts>(); });
    expect("TryArrayString", "as []",
           [&] {
               return without_data(make_record<Texts>({nullptr, nullptr}));
           });
    expect("TryArrayArray", "aau [[], [1], [], []]",
           [&]
           {
               using Row = GANTRY_uint32_array;
               return make_record<Rows>({nullptr, make_record<Row>({1U}), make_record<Row>(),
                                         without_data(make_record<Row>({1U}))});
           });
    expect("TryArrayArray", "aau []", [&] { return without_data(make_record<Rows>({nullptr})); });
    expect("TryStruct", "(ixs) (-5, -6, \"\")",
           [] {
               return new (calloc(1, sizeof(GANTRY_struct_ixs))) GANTRY_struct_ixs{-5, -6, nullptr};
           });
    expect("TryStructArray", "(ananas) ([2, 1, 2], [], [\"\"])",
           [&]
           {
               return new (calloc(1, sizeof(GANTRY_struct_ananas))) GANTRY_struct_ananas{
                   make_record<Numbers>({2, 1, 2}), without_data(make_record<Numbers>({1})),
                   make_record<Texts>({nullptr})};
           });
}

TEST_F(Dispatch, RefusesOtherArguments)
{
    fill(
        "Try_byte", +[](GANTRY_instance*, unsigned char, unsigned char*) { seen += "called"; });
    fill(
        "TryStruct",
        +[](GANTRY_instance*, GANTRY_struct_ixs*, GANTRY_struct_ixs**) { seen += "called"; });
    for (const std::string method : {"Try_byte", "Try_byte_D", "TryStruct", "TryStructD"})
    {
        const auto* const invalid = "org.freedesktop.DBus.Error.InvalidArgs";
        EXPECT_EQ(call(method).error_name, invalid) << method;
        EXPECT_EQ(call(method, "s", "text").error_name, invalid) << method;
        EXPECT_EQ(call(method, "yy", 1, 2).error_name, invalid) << method;
        EXPECT_EQ(call(method, "(ix)", 1, 2L).error_name, invalid) << method;
        EXPECT_EQ(seen, "");
        EXPECT_EQ(told(), "");
    }
}

// A host's record with names for its blocks.
template <class Record>
Record* name_record(Record* record, const std::string& as)
{
    name(record, as);
    name(record->data, as + ".data");
    return record;
}

void name_struct(const GANTRY_struct_ananas* record, const std::string& as)
{
    name(record, as);
    name_record(record->field1, as + '1');
    name_record(record->field2, as + '2');
    name_record(record->field3, as + '3');
    name(record->field3->data[0], as + "3[0]");
    name(record->field3->data[1], as + "3[1]");
}

void fill_struct(GANTRY_instance*, GANTRY_struct_ananas* in, GANTRY_struct_ananas** out)
{
    name_struct(in, "in");
    *out = static_cast<GANTRY_struct_ananas*>(calloc(1, sizeof **out));
    (*out)->field1 = make_record<GANTRY_int16_array>({1});
    (*out)->field2 = make_record<GANTRY_int16_array>({2});
    (*out)->field3 = make_record<GANTRY_string_array>({strdup("a"), strdup("b")});
    name_struct(*out, "out");
}

constexpr const char* released_struct =
    "in1.data in1 in2.data in2 in3[0] in3[1] in3.data in3 in "
    "out1.data out1 out2.data out2 out3[0] out3[1] out3.data out3 out ";

[[noreturn]] void fill_struct_and_fail(GANTRY_instance* instance, GANTRY_struct_ananas* in,
                                       GANTRY_struct_ananas** out)
{
    fill_struct(instance, in, out);
    throw std::runtime_error("host's own");
}

[[noreturn]] void fill_struct_and_throw(GANTRY_instance* instance, GANTRY_struct_ananas* in,
                                        GANTRY_struct_ananas** out)
{
    fill_struct(instance, in, out);
    throw 42;
}

TEST_F(Dispatch, ReleasesInputsAndThenOutputs)
{
    const char* types = "(ananas)";
    const auto* reply = "(ananas) ([1], [2], [\"a\", \"b\"])";
    const auto is_lost = [&](const char* method)
    { return is_unanswered(method, types, 1, 3, 1, 4, 2, "c", "d"); };

    fill("TryStructArray", fill_struct);
    EXPECT_EQ(call("TryStructArray", types, 1, 3, 1, 4, 2, "c", "d").text, reply);
    EXPECT_EQ(events, std::string(released_struct) + "sent ");
    EXPECT_EQ(call("TryStructArrayD", types, 1, 3, 1, 4, 2, "c", "d").text, reply);
    EXPECT_EQ(events, std::string("sent ") + released_struct);

    // So too when the function throws; a record may then hold anything that a whole one may.
    for (const auto function : {fill_struct_and_fail, fill_struct_and_throw})
    {
        fill("TryStructArray", function);
        EXPECT_TRUE(is_lost("TryStructArray"));
        EXPECT_EQ(events, released_struct);
        EXPECT_TRUE(is_lost("TryStructArrayD"));
        EXPECT_EQ(events, released_struct);
    }
}

TEST_F(Dispatch, ReleasesTextsInTheOrderOfTheArguments)
{
    using DumpCore = void (*)(GANTRY_instance*, char*, unsigned char, char*, char*, char*, char*,
                              char*, unsigned char, int*, char**);
    const DumpCore dump = [](GANTRY_instance*, char* a, unsigned char b, char* c, char* d, char* e,
                             char* f, char* g, unsigned char h, int* status, char** message)
    {
        for (char* text : {a, c, d, e, f, g})
        {
            seen += text;
            name(text, text);
        }
        *status = b * 1000 + h;
        *message = strdup("out");
        name(*message, "out");
    };
    using Instantiate = void (*)(GANTRY_cpp_context*, const void*, const char*, void*);
    const std::pair<const char*, Instantiate> slots[] = {
        {"com.orvane.velmar.system.FCSlot",
         reinterpret_cast<Instantiate>(GANTRY_instantiate__com_orvane_velmar_system_FCSlot)},
        {"com.orvane.velmar.system.IBSlot",
         reinterpret_cast<Instantiate>(GANTRY_instantiate__com_orvane_velmar_system_IBSlot)},
        {"com.orvane.velmar.system.NicSlot",
         reinterpret_cast<Instantiate>(GANTRY_instantiate__com_orvane_velmar_system_NicSlot)},
    };
    for (const auto& [slot, instantiate] : slots)
    {
        instantiate(context, &dump, "/slot", nullptr);
        events.clear();
        EXPECT_EQ(client
                      .call({service, "/slot"}, slot, "TriggerAdapterCoreDump", "sysssssy", "a", 2,
                            "c", "d", "e", "f", "g", 255)
                      .text,
                  "is 2255, \"out\"");
        EXPECT_EQ(take(seen), "acdefg");
        EXPECT_EQ(events, "a c d e f g out sent ");
    }
}

// Interfaces with methods of reply shape alone, and tables half filled.
TEST_F(Dispatch, ServesTheServiceInterfaces)
{
    using Status = void (*)(GANTRY_instance*, int*);
    const Status status[2] = {[](GANTRY_instance*, int* out) { *out = -7; }, nullptr};
    using IsReady = void (*)(GANTRY_instance*, bool*);
    const IsReady is_ready = [](GANTRY_instance*, bool* out) { *out = true; };
    const void* tables[2] = {status, &is_ready};
    GANTRY_instantiate__com_orvane_velmar_HWInventory(
        context, static_cast<const GANTRY_table__com_orvane_velmar_HWInventory*>(tables[0]), "/a",
        nullptr);
    GANTRY_instantiate__com_orvane_velmar_hwi_HWI_PLDM(
        context, static_cast<const GANTRY_table__com_orvane_velmar_hwi_HWI_PLDM*>(tables[0]), "/a",
        nullptr);
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(
        context, static_cast<const GANTRY_table__com_orvane_velmar_hwi_HWISupport*>(tables[1]),
        "/a", nullptr);

    const auto answer = [&](const char* interface_name, const char* method) {
        return client.call({service, "/a"}, interface_name, method).text;
    };
    EXPECT_EQ(answer("com.orvane.velmar.HWInventory", "GetDMStatus"), "i -7");
    EXPECT_EQ(answer("com.orvane.velmar.HWInventory", "GetPopStatus"), "i 0");
    EXPECT_EQ(answer("com.orvane.velmar.hwi.HWI_PLDM", "GetStatus"), "i -7");
    EXPECT_EQ(answer("com.orvane.velmar.hwi.HWISupport", "queryIsReady"), "b true");
    EXPECT_EQ(client.get({service, "/a"}, "com.orvane.velmar.hwi.HWISupport", "isready").text,
              "b false");
}

TEST_F(Dispatch, SendsWhatAHostSignalsAheadOfTheReply)
{
    fill(
        "SetString",
        +[](GANTRY_instance* instance, char* text, int*)
        { GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded(instance, text); });
    client.subscribe();
    for (const char* method : {"SetString", "SetStringDeferred"})
    {
        EXPECT_EQ(call(method, "s", method).text, "i 0");
        EXPECT_EQ(events, "signal sent ");
        ASSERT_EQ(client.signals("faultAdded").size(), 1U);
        EXPECT_EQ(client.signals().front().path, object.path);
        EXPECT_EQ(client.signals().front().body, "s \"" + std::string(method) + '"');
        client.clear_signals();
    }
}

TEST_F(Dispatch, EndsTheLoopWhenTheHostThrows)
{
    for (const bool standard : {true, false})
    {
        fill(
            "Try_string", standard ? +[](GANTRY_instance*, char*, char**)
                                     { throw std::runtime_error("host's own"); }
                                   : +[](GANTRY_instance*, char*, char**) { throw 42; });
        for (const std::string method : {"Try_string", "Try_string_D"})
        {
            EXPECT_TRUE(is_unanswered(method, "s", "text"));
            EXPECT_EQ(told(), standard ? "2 EXCEPTION gantry_server." + operation(method) +
                                             ": host's own\\n\n" + ended
                                       : "");
            EXPECT_EQ(call("Deferred").text, "i 0");
        }
    }
    EXPECT_THAT(thrown, ElementsAre(42, 42));
}

TEST_F(Dispatch, TellsTheClientOfAReplyThatFailsInReplyShapeOnly)
{
    fill(
        "Try_byte",
        +[](GANTRY_instance*, unsigned char in, unsigned char* out)
        {
            seen += "called";
            *out = in;
        });
    const struct
    {
        stand_in::Script& script;
        const char* what;
        const char* seen_in_reply_shape;
        const char* seen_in_message_shape;
    } failures[] = {
        {read_basic, "sd_bus_message_read_basic fundamental", "", ""},
        {new_method_return, "sd_bus_message_new_method_return", "", "called"},
        {send, "sd_bus_send", "called", "called"},
    };
    const std::string io_error = "org.freedesktop.DBus.Error.IOError";
    for (const auto& failure : failures)
    {
        const std::string what = failure.what;
        failure.script = {-EIO};
        EXPECT_EQ(call("Try_byte", "y", 1).text,
                  "error " + io_error + ": " + what + ": Input/output error");
        EXPECT_EQ(take(seen), failure.seen_in_reply_shape);
        EXPECT_EQ(told(), "");

        failure.script = {-EIO};
        EXPECT_TRUE(is_unanswered("Try_byte_D", "y", 1)) << what;
        EXPECT_EQ(take(seen), failure.seen_in_message_shape);
        EXPECT_EQ(told(), "2 EXCEPTION gantry_server.tryByteD: " + what + ": " + io_error +
                              ": Input/output error\\n\n" + ended);
        expect_both("Try_byte", "y 5", "called", "y", 5);
    }
}

TEST_F(Dispatch, LooksForTheTableBeforeItReadsInMessageShapeOnly)
{
    publish(nullptr);
    read_basic = {-EIO};
    EXPECT_EQ(call("SetString", "s", "text").error_message,
              "sd_bus_message_read_basic string: Input/output error");
    EXPECT_EQ(told(), "");

    read_basic = {-EIO};
    EXPECT_TRUE(is_unanswered("SetStringDeferred", "s", "text"));
    EXPECT_EQ(told(),
              "1 gantry_server.setStringDeferred: inst->table is NULL\n"
              "2 EXCEPTION gantry_server.setStringDeferred: sd_bus_message_read_basic string: "
              "org.freedesktop.DBus.Error.IOError: Input/output error\\n\n" +
                  std::string(ended));
}

} // namespace
