// Every published interface against its member table, over the bus. The tables are the program's
// arguments, and each is a test of its own, so a new table is tested by being in the list. This
// test reads the tables by itself: what the generator makes of them is under test.
//
// sd-bus describes an object in the order of its vtable and in the tables' own format, so that one
// reader serves both.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <gantry/gantry.h>

#include <sdbusplus/message/append.hpp>

#include "classes.hpp"
#include "src/served.hpp"
#include "support/private_bus.hpp"
#include "support/render.hpp"

namespace
{

using Attributes = std::map<std::string, std::string>;

// A method, signal or property, with what its children say of it.
struct Member
{
    std::string kind;
    std::string types; // of a property, or of the arguments in and out: "(s) -> (i)"
    Attributes attributes;
    Attributes annotations;
};

std::string replaced(std::string text, const std::string& from, const std::string& by)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += by.size())
    {
        text.replace(at, from.size(), by);
    }
    return text;
}

// The start tags of a text, name and attributes.
std::vector<std::pair<std::string, Attributes>> tags(const std::string& xml)
{
    std::vector<std::pair<std::string, Attributes>> found;
    for (std::size_t at = 0; (at = xml.find('<', at)) != std::string::npos;)
    {
        if (xml.compare(at, 4, "<!--") == 0)
        {
            at = xml.find("-->", at);
            continue;
        }
        const std::size_t end = xml.find('>', at);
        std::size_t from = xml.find_first_of(" \n/>", at + 1);
        found.emplace_back(xml.substr(at + 1, from - at - 1), Attributes{});
        while ((from = xml.find_first_not_of(" \n/>", from)) < end)
        {
            const std::size_t equals = xml.find("=\"", from);
            if (equals > end)
            {
                break; // of an end tag or the document type
            }
            const std::size_t quote = xml.find('"', equals + 2);
            found.back().second.emplace(xml.substr(from, equals - from),
                                        xml.substr(equals + 2, quote - equals - 2));
            from = quote + 1;
        }
        at = end;
    }
    return found;
}

// The members of one interface in their order; `interface` is set to its name when that is empty.
std::vector<Member> read_members(const std::string& xml, std::string& interface)
{
    std::vector<Member> members;
    bool is_inside = false;
    for (auto& [tag, attributes] : tags(xml))
    {
        if (tag == "interface")
        {
            interface = interface.empty() ? attributes["name"] : interface;
            is_inside = attributes["name"] == interface;
        }
        else if (is_inside && (tag == "property" || tag == "method" || tag == "signal"))
        {
            members.push_back(
                {tag, tag == "property" ? attributes["type"] : "() -> ()", attributes, {}});
        }
        else if (is_inside && tag == "arg")
        {
            std::string& types = members.back().types;
            const bool in = attributes["direction"] == "in";
            types.insert(in ? types.find(')') : types.size() - 1, attributes["type"]);
        }
        else if (is_inside && tag == "annotation")
        {
            members.back().annotations.emplace(attributes["name"], attributes["value"]);
        }
    }
    return members;
}

std::string kind_of_change(Member& member)
{
    return member.annotations["org.freedesktop.DBus.Property.EmitsChangedSignal"];
}

// A line a member, which tells all that clients see.
std::string lines(std::vector<Member> members)
{
    std::string text;
    for (Member& member : members)
    {
        // sd-bus lets nobody unprivileged write a property, and a table needn't say so.
        const std::string access = member.attributes["access"];
        const bool privileged = access == "readwrite" ||
                                member.annotations["org.freedesktop.systemd1.Privileged"] == "true";
        const std::string changes = kind_of_change(member);
        text += member.kind + ' ' + member.attributes["name"] + ' ' + member.types + ' ' + access +
                (privileged ? " privileged " : " ") + (changes == "true" ? "" : changes) + '\n';
    }
    return text;
}

// Takes one complete type off the front of an extended signature, which has A for the array that
// becomes a set and v<...> for the alternatives of a variant. Gives its D-Bus signature, and the
// empty value as support::render has it.
std::pair<std::string, std::string> take_type(std::string_view& types)
{
    const char letter = types.front();
    types.remove_prefix(1);
    std::string signature;
    std::string value;
    const auto take_until = [&](char close)
    {
        while (types.front() != close)
        {
            const auto [type, empty] = take_type(types);
            signature += type;
            value += (value.empty() ? "" : ", ") + empty;
        }
        types.remove_prefix(1);
    };
    switch (letter)
    {
    case 'a':
    case 'A':
        return types.front() == '{' ? std::pair{'a' + take_type(types).first, std::string("{}")}
                                    : std::pair{'a' + take_type(types).first, std::string("[]")};
    case '{':
        take_until('}');
        return {'{' + signature + '}', ""};
    case '(':
        take_until(')');
        return {'(' + signature + ')', '(' + value + ')'};
    case 'v':
    {
        types.remove_prefix(1);
        const auto [type, empty] = take_type(types);
        take_until('>');
        return {"v", '<' + type + ' ' + empty + '>'};
    }
    default:
        return {{letter}, letter == 's' ? "\"\"" : letter == 'b' ? "false" : "0"};
    }
}

std::string initial_value(Member& property)
{
    const std::string initial = property.annotations["com.orvane.gantry.Initial"];
    const std::string escaped = property.annotations["com.orvane.gantry.Type"];
    const std::string extended = replaced(replaced(escaped, "&lt;", "<"), "&gt;", ">");
    std::string_view types = extended.empty() ? property.types : extended;
    return property.types + ' ' +
           (initial.empty()         ? take_type(types).second
            : property.types == "s" ? '"' + initial + '"'
                                    : initial);
}

// Fills a value of any type from a number: another value for each number, but of a boolean.
template <class Value>
void fill(Value& value, int number);

template <class First, class Second>
void fill(std::pair<const First, Second>& value, int number)
{
    fill(const_cast<First&>(value.first), number);
    fill(value.second, number);
}

template <class Value>
void fill(Value& value, int number)
{
    if constexpr (std::is_same_v<Value, bool>)
    {
        value = true;
    }
    else if constexpr (std::is_arithmetic_v<Value>)
    {
        value = static_cast<Value>(number);
    }
    else if constexpr (std::is_same_v<Value, std::string>)
    {
        value = "number " + std::to_string(number);
    }
    else if constexpr (requires { value.index(); })
    {
        fill(value.template emplace<std::variant_size_v<Value> - 1>(), number);
    }
    else if constexpr (requires { value.end(); })
    {
        typename Value::value_type element{};
        fill(element, number);
        value.insert(value.end(), element);
    }
    else
    {
        std::apply([=](auto&... members) { (fill(members, number), ...); }, value);
    }
}

// Properties by name, of an object of whatever class.
struct ByName
{
    void (*append)(const void* object, const std::string& name, sd_bus_message* to);
    void (*fill)(void* object, const std::string& name, int number);
};

template <class Class>
constexpr ByName by_name{
    [](const void* object, const std::string& name, sd_bus_message* to)
    {
        std::visit([&](const auto& value)
                   { sdbusplus::message::append(&sdbusplus::sdbus_impl, to, value); },
                   static_cast<const Class*>(object)->getPropertyByName(name));
    },
    [](void* object, const std::string& name, int number)
    {
        auto value = static_cast<Class*>(object)->getPropertyByName(name);
        std::visit([&](auto& alternative) { fill(alternative, number); }, value);
        static_cast<Class*>(object)->setPropertyByName(name, value, false);
    },
};

// Null for an interface without properties.
template <class... Classes>
const ByName* find_by_name(std::string_view interface, ClassList<Classes...> /*classes*/)
{
    const ByName* found = nullptr;
    const auto look_at = [&]<class Class>(const Class*)
    {
        if constexpr (requires { typename Class::PropertyVariant; })
        {
            found = interface == Class::interface ? &by_name<Class> : found;
        }
    };
    (look_at(static_cast<const Classes*>(nullptr)), ...);
    return found;
}

class Catalogue : public Served
{
  public:
    explicit Catalogue(const char* file) : path_of_table(file)
    {
    }

  protected:
    void TestBody() override
    {
        std::ifstream file(path_of_table);
        std::vector<Member> table =
            read_members({std::istreambuf_iterator<char>(file), {}}, interface);
        object = {service, '/' + replaced(interface, ".", "/")};
        const std::string function = "GANTRY_instantiate__" + replaced(interface, ".", "_");
        using Instantiate = void(GANTRY_cpp_context*, const void*, const char*, void*);
        const auto instantiate =
            reinterpret_cast<Instantiate*>(dlsym(RTLD_DEFAULT, function.c_str()));
        ASSERT_NE(instantiate, nullptr) << function;
        instantiate(context, nullptr, nullptr, nullptr);
        ASSERT_EQ(context->tracker.size(), 1U);
        EXPECT_EQ(lines(read_members(client.introspect(object), interface)), lines(table));

        std::erase_if(table, [](const Member& member) { return member.kind != "property"; });
        const ByName* by_name = find_by_name(interface, Classes{});
        ASSERT_EQ(by_name == nullptr, table.empty());
        void* const server = context->tracker.front().object;
        const auto get = [&](Member& property)
        {
            const support::Message message = client.new_signal(nullptr, "/", "a.b", "c");
            by_name->append(server, property.attributes["name"], message.get());
            sd_bus_message_seal(message.get(), 1, 0);
            return property.attributes["name"] + ": " + support::render(message.get()) + '\n';
        };

        // One at a time, so that each is seen to change none behind it, and its own announcement.
        std::string initial;
        std::string filled;
        std::string changes;
        const std::string before = values();
        int number = 100; // which no initial value is
        for (Member& property : table)
        {
            initial += property.attributes["name"] + ": " + initial_value(property) + '\n';
            EXPECT_TRUE(initial.ends_with(get(property)));
            by_name->fill(server, property.attributes["name"], number++);
            filled += get(property);
            changes += kind_of_change(property) == "const" ? "" : get(property);
        }
        EXPECT_EQ(before, initial);
        EXPECT_EQ(values(), filled);
        EXPECT_EQ(announced(), changes);
    }

  private:
    // All values that a client gets, in their order, a line each.
    std::string values()
    {
        const support::Reply reply = client.call(object, "org.freedesktop.DBus.Properties",
                                                 "GetAll", "s", interface.c_str());
        EXPECT_TRUE(reply.ok()) << reply;
        sd_bus_message* all = reply.message.get();
        sd_bus_message_enter_container(all, 'a', "{sv}");
        std::string found;
        while (sd_bus_message_enter_container(all, 'e', "sv") > 0)
        {
            const char* name = nullptr;
            sd_bus_message_read_basic(all, 's', &name);
            found += std::string(name) + ": " + support::render_next(all, true) + '\n';
            sd_bus_message_exit_container(all);
        }
        return found;
    }

    const char* path_of_table;
    std::string interface;
    support::Object object;
};

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    for (int index = 1; index < argc; ++index)
    {
        const char* table = argv[index];
        testing::RegisterTest("Catalogue", table, nullptr, nullptr, table, 1,
                              [=] { return new Catalogue(table); });
    }
    if (argc < 2)
    {
        return EXIT_FAILURE;
    }
    unsetenv("NOTIFY_SOCKET");
    const support::PrivateBus bus;
    return RUN_ALL_TESTS();
}
