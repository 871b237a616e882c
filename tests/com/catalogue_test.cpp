// Every published interface against its member table, over the bus: what a client is told of it,
// the slot that each method calls, and the value, setter and announcement of each property. The
// tables are those of the list, so a new one is tested by being in it. This test reads the tables
// by itself: what the generator makes of them is under test. sd-bus describes an object in the
// tables' own format and in the order of its vtable.
#include <cxxabi.h>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <typeinfo>

#include "src/served.hpp"

namespace
{

// A method, signal or property: its attributes and annotations, its "kind", and as "in" and "out"
// the types of its arguments.
using Member = std::map<std::string, std::string>;
using Match = std::sregex_iterator;

// The members of one interface in their order; `interface` is set to its name when that is empty.
std::vector<Member> read_members(const std::string& xml, std::string& interface)
{
    static const std::regex tag(
        "<!--[\\s\\S]*?-->|<annotation name=\"org.gtk.GDBus[^>]*>|<(\\w+)([^>]*)>");
    static const std::regex attribute("(\\w+)=\"([^\"]*)\"");
    std::vector<Member> members;
    bool is_inside = false;
    for (Match each(xml.begin(), xml.end(), tag); each != Match(); ++each)
    {
        const std::string kind = (*each)[1];
        const std::string text = (*each)[2];
        Member values{{"kind", kind}};
        for (Match of(text.begin(), text.end(), attribute); of != Match(); ++of)
        {
            values.emplace((*of)[1], (*of)[2]);
        }
        if (kind == "interface")
        {
            interface = interface.empty() ? values["name"] : interface;
            is_inside = values["name"] == interface;
        }
        else if (is_inside && kind == "arg")
        {
            members.back()[values["direction"] == "in" ? "in" : "out"] += values["type"];
        }
        else if (is_inside && kind == "annotation")
        {
            members.back()[values["name"]] = values["value"];
        }
        else if (is_inside && !kind.empty())
        {
            members.push_back(values);
        }
    }
    return members;
}

// A line a member, of all that a client is told.
std::string lines(const std::vector<Member>& members)
{
    std::string text;
    for (const Member& member : members)
    {
        for (const auto& [key, value] : member)
        {
            const bool is_told = !value.empty() && !key.starts_with("com.orvane.gantry.");
            text += is_told ? key + '=' + value + ' ' : "";
        }
        text += '\n';
    }
    return text;
}

// Whether a value in the form of support::render is zero or empty; a variant holds one.
bool is_zero(const std::string& value, const std::string& types)
{
    static const std::regex zeros("(0|false|\"\"|\\[\\]|\\{\\}|[()<>]|<\\w |, )*");
    return value.starts_with(types + ' ') &&
           std::regex_match(value.substr(types.size() + 1), zeros);
}

// A function of a host's: tells its slot, and leaves its outputs alone.
int called = -1;
template <int slot>
void call(GANTRY_instance* /*instance*/)
{
    called = slot;
}

template <int... slots>
constexpr auto functions(std::integer_sequence<int, slots...> /*all*/)
{
    return std::array{call<slots>...};
}

constexpr auto table_of_host = functions(std::make_integer_sequence<int, 64>());

// The vtable of the object's server class, which the library exports.
__attribute__((no_sanitize("vptr"))) const sd_bus_vtable* exported_vtable(void* object)
{
    struct AnyClass
    {
        virtual ~AnyClass() = default;
    };
    const auto& derived = dynamic_cast<const abi::__si_class_type_info&>(
        typeid(*static_cast<const AnyClass*>(object)));
    std::string symbol = std::string("_Z") + derived.__base_type->name();
    symbol.insert(symbol.size() - 1, "7_vtable");
    return static_cast<const sd_bus_vtable*>(dlsym(RTLD_DEFAULT, symbol.c_str()));
}

class Catalogue : public Served, public testing::WithParamInterface<const char*>
{
  protected:
    void expect_slot(Member& method, int slot)
    {
        const char* name = method["name"].c_str();
        const char* in = method["in"].c_str();
        const support::Reply reply =
            method["in"] == "d"
                ? client.call(object, interface.c_str(), name, in, 0.0)
                : client.call(object, interface.c_str(), name, in, 0L, 0L, 0L, 0L, 0L, 0L, 0L, 0L);
        EXPECT_TRUE(is_zero(reply.text, method["out"])) << reply.text;
        EXPECT_EQ(std::exchange(called, -1), slot);
    }

    // Looks at the property's value, which is the table's as long as nothing has set it or another
    // to `number`, sets it to that, and gives the announcement. A C host sets no composite value by
    // name; clients set those of the sample interface, in a test of their own.
    std::string expect_property(Member& property, int number, std::string& value)
    {
        const std::string& type = property["type"];
        const std::string& initial = property["com.orvane.gantry.Initial"];
        const char* name = property["name"].c_str();
        EXPECT_TRUE(initial.empty()
                        ? is_zero(value, type)
                        : value == type + ' ' + (type == "s" ? '"' + initial + '"' : initial))
            << value;
        EXPECT_EQ(client.get(object, interface.c_str(), name).text, "v <" + value + ">");
        expect_adapter(name, type);

        const std::string digits = std::to_string(number);
        int error = EINVAL;
        const auto set = [&](auto setter, auto to)
        {
            // That of another type gives EINVAL.
            if (error == EINVAL)
            {
                setter(instance, name, to, false, &error);
            }
        };
        const auto access = [&](auto setter, auto getter, auto to)
        {
            if (error == EINVAL)
            {
                decltype(to) got{};
                int result = 0;
                setter(instance, name, to, false, &error);
                getter(instance, name, &got, &result);
                EXPECT_TRUE(result == error && (error != 0 || got == to));
            }
        };
#define GANTRY_SET(type, value_type)                                                               \
    access(GANTRY_property_set_##type, GANTRY_property_get_##type, static_cast<value_type>(number));
        GANTRY_FIXED_SIZE_TYPES(GANTRY_SET)
#undef GANTRY_SET
        char* texts[] = {const_cast<char*>(digits.c_str())};
        const GANTRY_string_array array = {texts, 1};
        set(GANTRY_property_set_string, texts[0]);
        set(GANTRY_property_set_strings, &array);
        unsigned char byte = static_cast<unsigned char>(number);
        const GANTRY_byte_array bytes = {&byte, 1};
        set(GANTRY_property_set_bytes, &bytes);
        EXPECT_EQ(error == 0, type == "as" || type == "ay" || (type.size() == 1 && type != "v"));
        if (error == 0)
        {
            value = type == "b"    ? "b true"
                    : type == "s"  ? "s \"" + digits + '"'
                    : type == "as" ? "as [\"" + digits + "\"]"
                    : type == "ay" ? "ay [" + digits + "]"
                                   : type + ' ' + digits;
        }
        const bool is_constant =
            property["org.freedesktop.DBus.Property.EmitsChangedSignal"] == "const";
        return is_constant || error != 0 ? "" : name + (": " + value) + '\n';
    }

    // The exported callback, called by another than sd-bus with a message that allows any value.
    void expect_adapter(const char* name, const std::string& type)
    {
        const auto* row = vtable;
        while ((row->type != _SD_BUS_VTABLE_PROPERTY &&
                row->type != _SD_BUS_VTABLE_WRITABLE_PROPERTY) ||
               std::strcmp(row->x.property.member, name) != 0)
        {
            ++row;
        }
        const auto message = client.new_signal("/a", "a.B", "C");
        const auto get = [&]
        {
            return row->x.property.get(client.bus(), "/a", "a.B", name, message.get(),
                                       context->tracker.back().object, nullptr);
        };
        EXPECT_EQ(get(), 1);
        EXPECT_EQ(sd_bus_message_get_signature(message.get(), true), type);
        sd_bus_message_seal(message.get(), 1, 0);
        EXPECT_LT(get(), 0); // what can't be appended is no success
    }

    const sd_bus_vtable* vtable = nullptr;
    std::string interface;
    support::Object object;
    GANTRY_instance* instance = nullptr;
};

TEST_P(Catalogue, is_served_as_its_table_says)
{
    std::ifstream file(std::string(COM) + GetParam());
    const std::string xml(std::istreambuf_iterator<char>(file), {});
    std::vector<Member> table = read_members(xml, interface);
    object = {service, '/' + std::regex_replace(interface, std::regex("\\."), "/")};
    const std::string function =
        "GANTRY_instantiate__" + std::regex_replace(interface, std::regex("\\."), "_");
    const auto instantiate =
        reinterpret_cast<void (*)(GANTRY_cpp_context*, const void*, const char*, void*)>(
            dlsym(RTLD_DEFAULT, function.c_str()));
    ASSERT_NE(instantiate, nullptr) << function;
    instantiate(context, &table_of_host, nullptr, nullptr);
    GANTRY_instance_find(context, interface.c_str(), nullptr, &instance);
    ASSERT_NE(instance, nullptr);
    vtable = exported_vtable(context->tracker.back().object);
    ASSERT_NE(vtable, nullptr);

    auto expected = client.get_all(object, interface.c_str());
    std::string changes;
    int slot = 0;
    int number = 100; // which no initial value is
    for (Member& member : table)
    {
        SCOPED_TRACE(member["name"]);
        if (member["kind"] == "method")
        {
            expect_slot(member, slot++);
        }
        else if (member["kind"] == "property")
        {
            // sd-bus lets nobody unprivileged write.
            member["org.freedesktop.systemd1.Privileged"] =
                member["access"] == "readwrite" ? "true" : "";
            changes += expect_property(member, number++, expected[member["name"]]);
        }
    }
    EXPECT_EQ(lines(read_members(client.introspect(object), interface)), lines(table));
    EXPECT_EQ(client.get_all(object, interface.c_str()), expected);
    EXPECT_EQ(announced(), changes);
    EXPECT_EQ(logged(2), "");
}

INSTANTIATE_TEST_SUITE_P(Tables, Catalogue, testing::Values(TABLES));

} // namespace
