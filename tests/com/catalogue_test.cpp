// Every published interface against its member table, over the bus. The tables are the program's
// arguments, and each is a test of its own, so a new table is tested by being in the list. This
// test reads the tables by itself: what the generator makes of them is under test.
//
// sd-bus describes an object in the order of its vtable and in the tables' own format, so that one
// reader serves both.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include <cxxabi.h>
#include <dlfcn.h>
#include <expat.h>
#include <gmock/gmock.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>
#include <sdbusplus/message/append.hpp>

#include "classes.hpp"
#include "support/client.hpp"
#include "support/private_bus.hpp"
#include "support/render.hpp"

namespace
{

struct Element
{
    std::string name;
    std::map<std::string, std::string> attributes;
    std::vector<Element> children;

    // Empty when there is none.
    std::string attribute(const std::string& key) const
    {
        const auto found = attributes.find(key);
        return found == attributes.end() ? "" : found->second;
    }

    std::string annotation(std::string_view key) const
    {
        for (const Element& child : children)
        {
            if (child.name == "annotation" && child.attribute("name") == key)
            {
                return child.attribute("value");
            }
        }
        return {};
    }
};

Element parse_xml(const std::string& text)
{
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), XML_ParserFree);
    std::vector<Element> open(1);
    XML_SetUserData(parser.get(), &open);
    XML_SetElementHandler(
        parser.get(),
        [](void* user, const char* name, const char** attributes)
        {
            Element element{name, {}, {}};
            for (; *attributes != nullptr; attributes += 2)
            {
                element.attributes.emplace(attributes[0], attributes[1]);
            }
            static_cast<std::vector<Element>*>(user)->push_back(std::move(element));
        },
        [](void* user, const char*)
        {
            auto& stack = *static_cast<std::vector<Element>*>(user);
            Element closed = std::move(stack.back());
            stack.pop_back();
            stack.back().children.push_back(std::move(closed));
        });
    if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), 1) != XML_STATUS_OK)
    {
        throw std::runtime_error(XML_ErrorString(XML_GetErrorCode(parser.get())));
    }
    return open.front().children.at(0);
}

std::vector<Element> members(const Element& interface, std::string_view kind)
{
    std::vector<Element> found;
    std::ranges::copy_if(interface.children, std::back_inserter(found),
                         [&](const Element& child) { return child.name == kind; });
    return found;
}

std::string signature(const Element& member, std::string_view direction)
{
    std::string types;
    for (const Element& argument : members(member, "arg"))
    {
        const std::string given = argument.attribute("direction");
        if (direction == (given.empty() && member.name == "method" ? "in" : given) ||
            member.name == "signal")
        {
            types += argument.attribute("type");
        }
    }
    return types;
}

// One line that tells all of a member that clients see.
std::string line(const Element& member)
{
    std::string text = member.name + ' ' + member.attribute("name");
    if (member.name == "property")
    {
        const std::string changes =
            member.annotation("org.freedesktop.DBus.Property.EmitsChangedSignal");
        text += ' ' + member.attribute("type") + ' ' + member.attribute("access") + " emits " +
                (changes.empty() ? "true" : changes);
    }
    else
    {
        text += " (" + signature(member, "in") + ") -> (" + signature(member, "out") + ')';
    }
    // sd-bus lets nobody unprivileged write a property, and a table needn't say so.
    if (member.annotation("org.freedesktop.systemd1.Privileged") == "true" ||
        member.attribute("access") == "readwrite")
    {
        text += " privileged";
    }
    return text;
}

// Lists are compared as texts of a line an item, of which GoogleTest shows the difference.
std::string lines(const std::vector<Element>& described)
{
    std::string text;
    for (const Element& member : described)
    {
        text += line(member) + '\n';
    }
    return text;
}

// Takes one complete type off the front of an extended signature, which has A for the array that
// becomes a set and v<...> for the alternatives of a variant, and gives its D-Bus signature.
std::string take_type(std::string_view& types)
{
    const char letter = types.front();
    types.remove_prefix(1);
    const auto until = [&](char close)
    {
        std::string taken;
        while (types.front() != close)
        {
            taken += take_type(types);
        }
        types.remove_prefix(1);
        return taken;
    };
    switch (letter)
    {
    case 'a':
    case 'A':
        return 'a' + take_type(types);
    case '{':
        return '{' + until('}') + '}';
    case '(':
        return '(' + until(')') + ')';
    case 'v':
        if (types.starts_with('<'))
        {
            types.remove_prefix(1);
            until('>');
        }
        return "v";
    default:
        return {letter};
    }
}

// The empty value of a type, as support::render has it.
std::string empty_value(std::string_view type)
{
    switch (type.front())
    {
    case 'a':
    case 'A':
        return type.at(1) == '{' ? "{}" : "[]";
    case '(':
    {
        std::string values;
        for (type.remove_prefix(1); type.front() != ')';)
        {
            const std::string_view member = type;
            take_type(type);
            values += (values.empty() ? "" : ", ") + empty_value(member);
        }
        return '(' + values + ')';
    }
    case 'v':
    {
        type.remove_prefix(2);
        const std::string_view first = type;
        return '<' + take_type(type) + ' ' + empty_value(first) + '>';
    }
    case 's':
        return "\"\"";
    case 'b':
        return "false";
    default:
        return "0";
    }
}

std::string initial_value(const Element& property)
{
    const std::string type = property.attribute("type");
    const std::string initial = property.annotation("com.orvane.gantry.Initial");
    if (!initial.empty())
    {
        return type + ' ' + (type == "s" ? '"' + initial + '"' : initial);
    }
    const std::string extended = property.annotation("com.orvane.gantry.Type");
    return type + ' ' + empty_value(extended.empty() ? type : extended);
}

// The rule by which a member's C++ name follows from its D-Bus name.
std::string title(const std::string& member)
{
    std::string text;
    bool raise = true;
    for (const char letter : member)
    {
        if (letter != '_')
        {
            text += static_cast<char>(raise ? std::toupper(letter) : letter);
        }
        raise = letter == '_';
    }
    return text;
}

std::string accessor(const std::string& member)
{
    std::string text = title(member);
    std::size_t capitals = 0;
    while (capitals < text.size() && std::isupper(text[capitals]) != 0)
    {
        ++capitals;
    }
    // The last capital of several opens the next word.
    const std::size_t lowered = capitals > 1 && capitals < text.size() ? capitals - 1 : capitals;
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(lowered), text.begin(),
                   [](char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

std::string replaced(std::string text, const std::string& by)
{
    for (std::size_t dot = 0; (dot = text.find('.', dot)) != std::string::npos; dot += by.size())
    {
        text.replace(dot, 1, by);
    }
    return text;
}

// The functions in an object's virtual table behind its two destructors, by name and kind.
std::string virtual_functions(const void* object, std::size_t count)
{
    std::string text;
    const void* const* table = *static_cast<const void* const* const*>(object) + 2;
    for (; count > 0; --count)
    {
        Dl_info info{};
        dladdr(*table++, &info);
        const std::unique_ptr<char, decltype(&std::free)> demangled(
            abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr), std::free);
        const std::string_view whole = demangled == nullptr ? "?" : demangled.get();
        text += whole.substr(0, whole.find_first_of("[(")); // [abi:cxx11] or its arguments
        text += whole.ends_with(" const") ? " get\n" : whole.ends_with(", bool)") ? " set\n" : "\n";
    }
    return text;
}

// Fills a value of any type from a number: another value for each number, but of a boolean.
struct Fill
{
    static void fill(bool& value, int /*number*/)
    {
        value = true;
    }
    template <class Number>
    requires std::is_arithmetic_v<Number>
    static void fill(Number& value, int number)
    {
        value = static_cast<Number>(number);
    }
    static void fill(std::string& value, int number)
    {
        value = "number " + std::to_string(number);
    }
    template <class... Members>
    static void fill(std::tuple<Members...>& value, int number)
    {
        std::apply([=](Members&... members) { (fill(members, number), ...); }, value);
    }
    template <class... Alternatives>
    static void fill(std::variant<Alternatives...>& value, int number)
    {
        fill(value.template emplace<sizeof...(Alternatives) - 1>(), number);
    }
    template <class Key, class Value>
    static void fill(std::map<Key, Value>& value, int number)
    {
        Key key{};
        fill(key, number);
        fill(value[key], number);
    }
    template <class Elements>
    requires requires(const Elements& elements)
    {
        elements.empty();
    }
    static void fill(Elements& value, int number)
    {
        typename Elements::value_type element{};
        fill(element, number);
        value.insert(value.end(), element);
    }
};

// Properties by name, of an object of whatever class.
struct ByName
{
    void (*append)(const void* object, const std::string& name, sd_bus_message* to);
    void (*fill)(void* object, const std::string& name, int number);
    // What sets the value back that the property has now, silently.
    std::function<void()> (*keep)(void* object, const std::string& name);
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
        std::visit([&](auto& alternative) { Fill::fill(alternative, number); }, value);
        static_cast<Class*>(object)->setPropertyByName(name, value, false);
    },
    [](void* object, const std::string& name) -> std::function<void()>
    {
        auto* of_class = static_cast<Class*>(object);
        return [of_class, name, value = of_class->getPropertyByName(name)]
        { of_class->setPropertyByName(name, value, true); };
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
            if (interface == Class::interface)
            {
                found = &by_name<Class>;
            }
        }
    };
    (look_at(static_cast<const Classes*>(nullptr)), ...);
    return found;
}

class Catalogue : public testing::Test
{
  public:
    explicit Catalogue(const char* file) : path_of_table(file)
    {
    }

  protected:
    void SetUp() override
    {
        std::ifstream file(path_of_table);
        table = parse_xml({std::istreambuf_iterator<char>(file), {}}).children.at(0);
        interface = table.attribute("name");
        object = {interface, '/' + replaced(interface, "/")};

        const std::string function = "GANTRY_instantiate__" + replaced(interface, "_");
        using Instantiate = void(GANTRY_cpp_context*, const void*, const char*, void*);
        const auto instantiate =
            reinterpret_cast<Instantiate*>(dlsym(RTLD_DEFAULT, function.c_str()));
        ASSERT_NE(instantiate, nullptr) << function;
        GANTRY_context_new(&context);
        ASSERT_NE(context, nullptr);
        instantiate(context, nullptr, nullptr, nullptr);
        ASSERT_EQ(context->tracker.size(), 1U);
    }

    void TearDown() override
    {
        GANTRY_context_free(&context);
    }

    void TestBody() override
    {
        is_described_as_its_table();
        has_its_initial_values();
        has_its_virtual_functions();
        has_its_properties_by_name();
    }

  private:
    void is_described_as_its_table()
    {
        const Element node = parse_xml(client.introspect(object));
        const auto described =
            std::ranges::find_if(node.children, [&](const Element& child)
                                 { return child.attribute("name") == interface; });
        ASSERT_NE(described, node.children.end());

        std::string expected;
        for (const char* kind : {"method", "signal", "property"})
        {
            expected += lines(members(table, kind));
        }
        EXPECT_EQ(lines(described->children), expected);
    }

    // All values that a client gets, a line each.
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

    // The changes that were announced, a line each.
    std::string announced()
    {
        client.settle(interface);
        std::string changes;
        for (const support::Signal& signal : client.signals("PropertiesChanged"))
        {
            for (const auto& [name, value] : signal.changed)
            {
                changes += name + ": " + value + '\n';
            }
        }
        client.clear_signals();
        return changes;
    }

    std::string initial_values() const
    {
        std::string expected;
        for (const Element& property : members(table, "property"))
        {
            expected += property.attribute("name") + ": " + initial_value(property) + '\n';
        }
        return expected;
    }

    void has_its_initial_values()
    {
        EXPECT_EQ(values(), initial_values());
    }

    void has_its_virtual_functions()
    {
        const std::string leaf = interface.substr(interface.rfind('.') + 1);
        const std::string group = interface.substr(0, interface.size() - leaf.size());
        const std::string server = "sdbusplus::server::" + replaced(group, "::") + title(leaf);
        const std::string derived = "GANTRY_" + replaced(interface, "_") + "::" + leaf;

        std::string expected;
        for (const Element& method : members(table, "method"))
        {
            expected += derived + "::" + accessor(method.attribute("name")) + '\n';
        }
        for (const Element& property : members(table, "property"))
        {
            const std::string name = server + "::" + accessor(property.attribute("name"));
            expected += name + " get\n" + name + " set\n" + name + '\n';
        }
        const auto count = std::ranges::count(expected, '\n');
        EXPECT_EQ(
            virtual_functions(context->tracker.front().object, static_cast<std::size_t>(count)),
            expected);
    }

    void has_its_properties_by_name()
    {
        const ByName* by_name = find_by_name(interface, Classes{});
        const auto properties = members(table, "property");
        ASSERT_EQ(by_name == nullptr, properties.empty());
        void* const server = context->tracker.front().object;
        const auto get = [&](const std::string& name)
        {
            const support::Message message = client.new_signal(nullptr, "/", "a.b", "c");
            by_name->append(server, name, message.get());
            sd_bus_message_seal(message.get(), 1, 0);
            return name + ": " + support::render(message.get()) + '\n';
        };

        // One at a time, so that each is seen to change none behind it, and its own announcement.
        client.subscribe();
        std::vector<std::function<void()>> back;
        std::string expected;
        std::string expected_changes;
        int number = 100; // which no initial value is
        for (const Element& property : properties)
        {
            const std::string name = property.attribute("name");
            EXPECT_EQ(get(name), name + ": " + initial_value(property) + '\n');
            back.push_back(by_name->keep(server, name));
            by_name->fill(server, name, number++);
            expected += get(name);
            const bool constant =
                property.annotation("org.freedesktop.DBus.Property.EmitsChangedSignal") == "const";
            expected_changes += constant ? "" : get(name);
        }
        EXPECT_EQ(values(), expected);
        EXPECT_EQ(announced(), expected_changes);

        std::string found;
        for (const Element& property : properties)
        {
            found += get(property.attribute("name"));
        }
        EXPECT_EQ(found, expected);

        for (const auto& set_back : back)
        {
            set_back();
        }
        EXPECT_EQ(values(), initial_values());
        EXPECT_EQ(announced(), "");
    }

    const char* path_of_table;
    Element table;
    std::string interface;
    support::Object object;
    GANTRY_cpp_context* context = nullptr;
    support::Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

// The directories above the table, which are the interface's name.
std::string name_of(std::string_view table)
{
    const std::string_view directory = table.substr(0, table.rfind('/'));
    return std::string(directory.substr(directory.rfind("/com/") + 1));
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    for (int index = 1; index < argc; ++index)
    {
        const char* table = argv[index];
        testing::RegisterTest("Catalogue", name_of(table).c_str(), nullptr, nullptr, table, 1,
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
