#include "symbols.hpp"

#include "names.hpp"

#include <string_view>

namespace gantrygen
{
namespace
{

std::string demangled(const Type& type);

/** Closes a template's arguments, of which `arguments` are the last: with a space behind another
 *  closing bracket. std::string has one too, before it is abbreviated. */
std::string closed(std::string arguments)
{
    arguments += arguments.ends_with('>') || arguments.ends_with("std::string") ? " >" : ">";
    return arguments;
}

std::string allocator(const std::string& value)
{
    return closed("std::allocator<" + value);
}

std::string less(const std::string& key)
{
    return closed("std::less<" + key);
}

/** The type with the template arguments that C++ adds by itself. */
std::string demangled(const Type& type)
{
    std::string members;
    for (const Type& member : type.members)
    {
        members += members.empty() ? "" : ", ";
        members += demangled(member);
    }
    switch (type.kind)
    {
    case Type::Kind::array:
        return closed("std::vector<" + members + ", " + allocator(members));
    case Type::Kind::set:
        return closed("std::set<" + members + ", " + less(members) + ", " + allocator(members));
    case Type::Kind::dict:
    {
        const std::string key = demangled(type.members[0]);
        const std::string pair =
            closed("std::pair<" + key + " const, " + demangled(type.members[1]));
        return closed("std::map<" + members + ", " + less(key) + ", " + allocator(pair));
    }
    case Type::Kind::structure:
        return closed("std::tuple<" + members);
    case Type::Kind::variant:
        return closed("std::variant<" + members);
    default:
        return cpp_type(type);
    }
}

/** What every class exports. */
void add_class(const std::string& space, const std::string& name, std::set<std::string>& symbols)
{
    const std::string whole = space + "::" + name;
    symbols.insert("vtable for " + whole);
    symbols.insert("typeinfo for " + whole);
    symbols.insert("typeinfo name for " + whole);
    symbols.insert(whole + "::" + name + "(sdbusplus::bus::bus&, char const*)");
    symbols.insert(whole + "::~" + name + "()");
}

std::string server_class(const Interface& interface)
{
    return server_namespace(interface.name) + "::" + class_name(interface.name);
}

/** The types of a parameter list. */
std::string demangled(const std::vector<Argument>& arguments)
{
    std::string types;
    for (const Argument& argument : arguments)
    {
        types += types.empty() ? "" : ", ";
        types += demangled(argument.type);
    }
    return types;
}

void add_methods(const Interface& interface, std::set<std::string>& symbols)
{
    const std::string server = server_class(interface) + "::";
    const std::string derived =
        derived_namespace(interface.name) + "::" + std::string(leaf(interface.name)) + "::";
    for (const Method& method : interface.methods)
    {
        symbols.insert(server + method_callback(method.name) +
                       "(sd_bus_message*, void*, sd_bus_error*)");
        const std::string parameters = method.shape == Method::Shape::message
                                           ? "sdbusplus::message::message&"
                                           : demangled(method.inputs);
        symbols.insert(derived + accessor(method.name) + '(' + parameters + ')');
    }
}

void add_signals(const Interface& interface, std::set<std::string>& symbols)
{
    const std::string server = server_class(interface) + "::";
    for (const Signal& signal : interface.signals)
    {
        symbols.insert(server + accessor(signal.name) + '(' + demangled(signal.arguments) + ')');
        symbols.insert(signal_function(interface.name, signal.name));
        symbols.insert(receive_signal_function(interface.name, signal.name));
    }
}

void add_properties(const Interface& interface, std::set<std::string>& symbols)
{
    const std::string server = server_class(interface) + "::";
    const std::string callback_parameters = "(sd_bus*, char const*, char const*, char const*, "
                                            "sd_bus_message*, void*, sd_bus_error*)";
    for (const Property& property : interface.properties)
    {
        const std::string operation = server + accessor(property.name);
        const std::string type = demangled(property.type);
        symbols.insert(operation + "() const");
        symbols.insert(operation + '(' + type + ", bool)");
        symbols.insert(operation + '(' + type + ')');
        symbols.insert(server + get_callback(property.name) + callback_parameters);
        if (property.writable)
        {
            symbols.insert(server + set_callback(property.name) + callback_parameters);
        }
    }
    if (!interface.properties.empty())
    {
        const std::string variant = demangled(property_variant(interface));
        symbols.insert(server + "getPropertyByName(std::string const&) const");
        symbols.insert(server + "setPropertyByName(std::string const&, " + variant +
                       " const&, bool)");
    }
}

} // namespace

void add_symbols(const Interface& interface, std::set<std::string>& symbols)
{
    add_class(server_namespace(interface.name), class_name(interface.name), symbols);
    add_class(derived_namespace(interface.name), std::string(leaf(interface.name)), symbols);
    symbols.insert(instantiate_function(interface.name));
    symbols.insert(server_class(interface) + "::_vtable");
    add_methods(interface, symbols);
    add_signals(interface, symbols);
    add_properties(interface, symbols);
}

} // namespace gantrygen
