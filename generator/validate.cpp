#include "validate.hpp"

#include "diagnostics.hpp"
#include "initial.hpp"
#include "names.hpp"

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace gantrygen
{
namespace
{

// Other names that the generated classes declare or their code uses unqualified. Only those that an
// accessor or a class could be called are listed.
constexpr std::string_view taken = " PropertyCallback PropertyVariant Row deleter descriptor "
                                   "getPropertyByName index inst interface"
                                   " properties rows setPropertyByName source_stem value ";

// A position among the rows of properties is a byte, and 0 is the header's.
constexpr std::size_t most_properties = 255;

// Namespaces that generated code names from inside that of the interface.
constexpr std::string_view hidden = " gantry sdbusplus std vtable ";

class Validator
{
  public:
    explicit Validator(const Interface& table) : interface(table)
    {
    }

    void run()
    {
        check_interface();
        check_place();
        check_names_of(interface.methods);
        check_names_of(interface.signals);
        check_names_of(interface.properties);
        for (const Method& method : interface.methods)
        {
            check_word(method.name, method.line); // in the C table it names a field
            check_arguments(method.inputs);
            check_arguments(method.outputs);
            check_results(method);
        }
        for (const Signal& signal : interface.signals)
        {
            check_arguments(signal.arguments);
        }
        if (interface.properties.size() > most_properties)
        {
            fail(interface.properties[most_properties].line,
                 "an interface has at most 255 properties");
        }
        for (const Property& property : interface.properties)
        {
            check_initial(property);
            check_data_store(property);
        }
    }

  private:
    void check_interface() const
    {
        if (!is_interface_name(interface.name))
        {
            fail(interface.line, quote(interface.name) + " is not a D-Bus interface name");
        }
        for (const std::string_view element : elements(interface.name))
        {
            check_word(element, interface.line);
            if (is_among(element, hidden))
            {
                fail(interface.line, quote(element) + " would hide the namespace of that name");
            }
        }
        const std::string name = class_name(interface.name);
        check_word(name, interface.line);
        if (is_among(name, taken) || is_among(leaf(interface.name), taken))
        {
            fail(interface.line, quote(leaf(interface.name)) + " is something else in its class");
        }
    }

    void check_place() const
    {
        const std::string place = directory(interface.name) + "/server.xml";
        const auto path = std::filesystem::absolute(interface.file).lexically_normal().string();
        if (!path.ends_with('/' + place))
        {
            fail(interface.line, "the table of " + interface.name + " is " + place);
        }
    }

    template <class Member>
    void check_names_of(const std::vector<Member>& members)
    {
        for (const Member& member : members)
        {
            const std::string name = checked_accessor(member.name, member.line);
            const auto [owner, fresh] = owners.try_emplace(name, quote(member.name) + " on line " +
                                                                     std::to_string(member.line));
            if (!fresh)
            {
                fail(member.line, quote(member.name) + " has the accessor " + quote(name) + " of " +
                                      owner->second);
            }
        }
    }

    [[nodiscard]] std::string checked_accessor(const std::string& member, int line) const
    {
        if (!is_member_name(member))
        {
            fail(line, quote(member) + " is not a D-Bus member name");
        }
        std::string name = accessor(member);
        check_word(name, line);
        if (is_among(name, taken) || name == leaf(interface.name))
        {
            fail(line, quote(member) + " has the accessor " + quote(name) +
                           ", which is something else in its class");
        }
        return name;
    }

    void check_arguments(const std::vector<Argument>& arguments) const
    {
        std::size_t length = 0;
        for (const Argument& argument : arguments)
        {
            if (!has_c_form(argument.type))
            {
                fail(argument.line, quote(extended_signature(argument.type)) + " has no C form");
            }
            length += signature(argument.type).size();
            if (length > longest_signature)
            {
                fail(argument.line, "the arguments' signature is longer than D-Bus allows");
            }
        }
    }

    // A method's callback appends its result to the reply, so there must be one.
    void check_results(const Method& method) const
    {
        if (method.outputs.empty())
        {
            fail(method.line, quote(method.name) + " has no result");
        }
    }

    void check_data_store(const Property& property)
    {
        if (!property.data_store_key)
        {
            return;
        }
        if (property.type.kind != Type::Kind::string)
        {
            fail(property.line, "a key of the data store is a string");
        }
        if (std::exchange(has_key, true))
        {
            fail(property.line, "second key of the data store");
        }
    }

    void check_initial(const Property& property) const
    {
        if (property.initial && !initial_literal(property.type, *property.initial))
        {
            fail(property.line, quote(*property.initial) + " is no initial value for " +
                                    quote(signature(property.type)));
        }
    }

    /** Refuses a name that C or C++ doesn't allow. */
    void check_word(std::string_view name, int line) const
    {
        if (!is_member_name(name))
        {
            fail(line, quote(name) + " is not a name in C or C++");
        }
        if (!is_free_word(name))
        {
            fail(line, quote(name) + " is a reserved word");
        }
    }

    [[noreturn]] void fail(int line, std::string_view message) const
    {
        throw TableError(interface.file, line, message);
    }

    const Interface& interface;

    /** The member of each accessor. */
    std::map<std::string, std::string> owners;

    bool has_key = false;
};

} // namespace

void validate(const Interface& interface)
{
    Validator(interface).run();
}

} // namespace gantrygen
