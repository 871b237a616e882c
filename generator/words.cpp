#include "words.hpp"

#include "initial.hpp"
#include "names.hpp"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <utility>

namespace gantrygen
{
namespace
{

using Arguments = std::vector<Argument>;

constexpr bool in_front = true;

/** The parameters that the C functions have beside the arguments of members. */
const std::set<std::string> own_parameters{"call",  "callback", "context",     "data",
                                           "error", "instance", "subscription"};

std::string positional(const std::string& stem, std::size_t index)
{
    return stem + std::to_string(index + 1);
}

/** The arguments with the names that they have in C: those of the table, if C and C++ allow them.
 * `used` has the names that the function has already. */
Arguments named_for_c(Arguments arguments, const std::string& stem, std::set<std::string>& used)
{
    for (std::size_t index = 0; index < arguments.size(); ++index)
    {
        std::string& name = arguments[index].name;
        if (!is_member_name(name) || name.front() == '_')
        {
            name = positional(stem, index);
        }
        while (!is_free_word(name) || !used.insert(name).second)
        {
            name += '_';
        }
    }
    return arguments;
}

/** What `text` makes of each argument's type and name, separated by commas; `comma_in_front` adds
 *  one in front. An argument's name is `stem` and its position, or without a stem its own. */
template <class Text>
std::string listed(const Arguments& arguments, const std::string& stem, Text text,
                   bool comma_in_front = false)
{
    std::string list;
    for (std::size_t index = 0; index < arguments.size(); ++index)
    {
        list += index > 0 || comma_in_front ? ", " : "";
        const Argument& argument = arguments[index];
        list += text(argument.type, stem.empty() ? argument.name : positional(stem, index));
    }
    return list;
}

std::string only_type(const Type& type, const std::string& /*name*/)
{
    return cpp_type(type);
}

std::string only_name(const Type& /*type*/, const std::string& name)
{
    return name;
}

std::string declaration(const Type& type, const std::string& name)
{
    return cpp_type(type) + ' ' + name;
}

std::string c_input(const Type& type, const std::string& name)
{
    return c_type(type) + ' ' + name;
}

std::string c_output(const Type& type, const std::string& name)
{
    return c_type(type) + "* " + name;
}

/** A parameter whose value is only read. */
std::string c_lent(const Type& type, const std::string& name)
{
    return (is_number(type) ? "" : "const ") + c_input(type, name);
}

std::string signature_of(const Arguments& arguments)
{
    std::string text;
    for (const Argument& argument : arguments)
    {
        text += signature(argument.type);
    }
    return text;
}

std::string tuple_of(const Arguments& arguments)
{
    return "std::tuple<" + listed(arguments, "", only_type) + '>';
}

/** The text of a word for a template's %if. */
std::string truth(bool holds)
{
    return holds ? "yes" : "";
}

/** Text for a comment in C. A slash alone neither ends a comment nor opens another. */
std::string comment(std::string text)
{
    std::replace(text.begin(), text.end(), '*', ' ');
    return text;
}

Words words_of(const Method& method, const std::string& flat, std::size_t slot)
{
    const bool several = method.outputs.size() > 1;
    const std::string inputs = listed(method.inputs, "", only_type, in_front);
    const std::string outputs = listed(method.outputs, "", only_type);
    std::set<std::string> used = own_parameters;
    const Arguments c_inputs = named_for_c(method.inputs, "in", used);
    const Arguments c_outputs = named_for_c(method.outputs, "out", used);
    Words words{
        {"member", method.name},
        {"operation", accessor(method.name)},
        {"callback", "_callback_" + title(method.name)},
        {"inputs", signature_of(method.inputs)},
        {"outputs", signature_of(method.outputs)},
        {"flag", method.privileged ? "" : ", vtable::common_::unprivileged"},
        {"privileged", truth(method.privileged)},
        {"function", "GANTRY_instance* instance" + listed(c_inputs, "", c_input, in_front) +
                         listed(c_outputs, "", c_output, in_front)},
        {"reply", "GANTRY_reply__" + flat + "__" + method.name},
        {"replied", listed(c_outputs, "", c_lent, in_front)},
        {"replies", listed(method.outputs, "", only_type)},
        {"answered", listed(c_outputs, "", only_name, in_front)},
        {"message", truth(method.makes_reply)},
        {"doc", method.doc},
        {"comment", comment(method.doc)},
    };
    if (method.makes_reply)
    {
        words.insert(
            {{"call", "call_message_method"},
             {"result", "void"},
             {"parameters", "sdbusplus::message_t& message"},
             {"passed", ", message"},
             {"dispatch", std::to_string(slot) + ", " + tuple_of(method.outputs) + inputs}});
    }
    else
    {
        words.insert({{"call", several ? "call_method<true>" : "call_method<false>"},
                      {"result", several ? tuple_of(method.outputs) : outputs},
                      {"parameters", listed(method.inputs, "in", declaration)},
                      {"passed", listed(method.inputs, "in", only_name, in_front)},
                      {"dispatch", std::to_string(slot) + ", " + outputs}});
    }
    return words;
}

Words words_of(const Signal& signal, const std::string& flat)
{
    const Arguments& arguments = signal.arguments;
    std::set<std::string> used = own_parameters;
    const Arguments c_arguments = named_for_c(arguments, "arg", used);
    return {
        {"member", signal.name},
        {"operation", accessor(signal.name)},
        {"signature", signature_of(arguments)},
        {"parameters", listed(arguments, "arg", declaration)},
        {"passed", listed(arguments, "arg", only_name, in_front)},
        {"types", listed(arguments, "", only_type)},
        {"send", "GANTRY_signal__" + flat + "__" + signal.name},
        {"receive", "GANTRY_receive_signal__" + flat + "__" + signal.name},
        {"subscribe", "GANTRY_subscribe__" + flat + "__" + signal.name},
        {"sent", listed(c_arguments, "", c_lent, in_front)},
        {"handed", listed(c_arguments, "", only_name, in_front)},
        {"received", listed(c_arguments, "", c_input, in_front)},
        {"points",
         truth(std::any_of(arguments.begin(), arguments.end(),
                           [](const Argument& argument) { return !is_number(argument.type); }))},
        {"doc", signal.doc},
        {"comment", comment(signal.doc)},
    };
}

/** How a data member is initialised. */
std::string start(const Property& property)
{
    if (property.initial)
    {
        return " = " + *initial_literal(property.type, *property.initial);
    }
    switch (property.type.kind)
    {
    case Type::Kind::boolean:
        return " = false";
    case Type::Kind::double_:
        return " = 0.0";
    default:
        return is_number(property.type) ? " = 0" : "";
    }
}

std::string flags(const Property& property)
{
    std::string text = property.constant ? ", const" : "";
    text += property.writable ? ", writable" : "";
    text += property.data_store_key ? ", key" : "";
    return text.substr(text.empty() ? 0 : 2);
}

Words words_of(const Property& property, const std::string& flat)
{
    const std::string qualified = flat + "__" + property.name;
    const std::string get = "_callback_get_" + property.name;
    const std::string set = "_callback_set_" + property.name;
    return {
        {"member", property.name},
        {"accessor", accessor(property.name)},
        {"signature", signature(property.type)},
        {"type", cpp_type(property.type)},
        {"number", truth(is_number(property.type))},
        {"start", start(property)},
        {"get", get},
        {"set", set},
        {"access", property.writable ? get + ", " + set : get},
        {"flag", property.constant ? "const_" : "emits_change"},
        {"silent", property.constant ? ", false" : ""},
        {"writable", truth(property.writable)},
        {"key", truth(property.data_store_key)},
        {"name", "GANTRY_name__" + qualified},
        {"setter", "GANTRY_set__" + qualified},
        {"getter", "GANTRY_get__" + qualified},
        {"suffix", c_property_type(property.type)},
        {"initial", property.initial.value_or("")},
        {"flags", flags(property)},
        {"doc", property.doc},
        {"comment", comment(property.doc)},
    };
}

/** Every type of which a host in C gets or passes values. */
std::vector<Type> crossing_types(const Interface& interface)
{
    std::vector<Type> types;
    const auto add = [&types](const Arguments& arguments)
    {
        std::transform(arguments.begin(), arguments.end(), std::back_inserter(types),
                       [](const Argument& argument) { return argument.type; });
    };
    for (const Method& method : interface.methods)
    {
        add(method.inputs);
        add(method.outputs);
    }
    for (const Signal& signal : interface.signals)
    {
        add(signal.arguments);
    }
    return types;
}

/** The records of structures, which another interface's header may declare too. */
std::vector<Words> structures(const std::vector<Type>& types)
{
    std::vector<Words> found;
    std::set<std::string> names;
    for (const Type& type : types)
    {
        if (type.kind != Type::Kind::structure || !names.insert(c_struct(type)).second)
        {
            continue;
        }
        std::vector<Words> fields;
        for (const Type& member : type.members)
        {
            fields.push_back(
                {{"field", c_input(member, "field" + std::to_string(fields.size() + 1))}});
        }
        found.push_back({{"structure", c_struct(type)},
                         {"defined", capitals(c_struct(type))},
                         {"signature", signature(type)},
                         {"fields", std::move(fields)}});
    }
    return found;
}

/** The headers that code needs for the types that it names. */
std::vector<Words> headers(const std::string& code)
{
    constexpr std::pair<const char*, const char*> headers_of[] = {
        {"std::map", "map"},       {"sdbusplus::message_t", "sdbusplus/message.hpp"},
        {"std::set", "set"},       {"std::string", "string"},
        {"std::tuple", "tuple"},   {"std::variant", "variant"},
        {"std::vector", "vector"},
    };
    std::vector<Words> found;
    for (const auto& [name, header] : headers_of)
    {
        if (code.find(name) != std::string::npos)
        {
            found.push_back({{"header", header}});
        }
    }
    return found;
}

/** The words of all property types: those in the tables, and those that a host in C may ask for. */
Words words_of_types(const std::vector<Interface>& interfaces)
{
    // First those that every program has, so that these have the same tags in each.
    std::vector<Type> types = property_variant(c_property_types()).members;
    std::vector<Type> of_tables;
    std::set<std::string> writable;
    for (const Interface& interface : interfaces)
    {
        for (const Property& property : interface.properties)
        {
            of_tables.push_back(property.type);
            if (property.writable)
            {
                writable.insert(cpp_type(property.type));
            }
        }
    }
    for (const Type& type : property_variant(of_tables).members)
    {
        if (c_property_type(type).empty())
        {
            types.push_back(type);
        }
    }
    std::string list;
    std::vector<Words> plain;
    std::vector<Words> composite;
    for (const Type& type : types)
    {
        const std::string name = cpp_type(type);
        list += (list.empty() ? "    " : ",\n    ") + name;
        auto& instances = c_property_type(type).empty() ? composite : plain;
        const char* const kind = is_number(type) ? "NUMBER_PROPERTY" : "PROPERTY";
        instances.push_back({{"kind", kind}, {"type", name}});
        if (writable.count(name) > 0)
        {
            composite.push_back({{"kind", "WRITABLE_PROPERTY"}, {"type", name}});
        }
    }
    return {{"headers", headers(list)},
            {"types", std::move(list)},
            {"plain", std::move(plain)},
            {"composite", std::move(composite)}};
}

/** The type of PropertyVariant, with a line for each alternative that is a template. */
std::string variant(const Interface& interface)
{
    std::vector<Type> types;
    for (const Property& property : interface.properties)
    {
        types.push_back(property.type);
    }
    std::string text;
    for (const Type& type : property_variant(types).members)
    {
        text += text.empty() ? "" : is_basic(type) ? ", " : ",\n        ";
        text += cpp_type(type);
    }
    return "std::variant<" + text + '>';
}

} // namespace

Words words_of(const Interface& interface)
{
    const std::string flat = joined(interface.name, "_");
    std::vector<Words> methods;
    for (const Method& method : interface.methods)
    {
        methods.push_back(words_of(method, flat, methods.size()));
    }
    std::vector<Words> signals;
    for (const Signal& signal : interface.signals)
    {
        signals.push_back(words_of(signal, flat));
    }
    std::vector<Words> properties;
    for (const Property& property : interface.properties)
    {
        properties.push_back(words_of(property, flat));
    }

    // What server.hpp names.
    std::string code = properties.empty() ? "" : "std::string" + variant(interface);
    for (const auto* const members : {&methods, &signals})
    {
        for (const Words& member : *members)
        {
            code += std::get<0>(member.at("parameters"));
            const auto result = member.find("result");
            code += result != member.end() ? std::get<0>(result->second) : "";
        }
    }

    const std::string group = interface.name.substr(0, interface.name.rfind('.'));
    const std::vector<Type> types = crossing_types(interface);
    return {
        {"interface", interface.name},
        {"leaf", std::string(leaf(interface.name))},
        {"directory", directory(interface.name)},
        {"path", '/' + directory(interface.name)},
        {"common", "sdbusplus::common::" + joined(group, "::")},
        {"server", "sdbusplus::server::" + joined(group, "::")},
        {"class", class_name(interface.name)},
        {"derived", "GANTRY_" + flat},
        {"instantiate", "GANTRY_instantiate__" + flat},
        {"table", methods.empty() ? "void" : "GANTRY_table__" + flat},
        {"guard", capitals("GANTRY_" + flat + "_H")},
        {"variant", variant(interface)},
        {"summary", interface.summary},
        {"doc", interface.doc},
        {"comment", comment(interface.summary)},
        {"callable", truth(!methods.empty() || !signals.empty())},
        {"records", truth(!std::all_of(types.begin(), types.end(), is_basic))},
        {"headers", headers(code)},
        {"structures", structures(types)},
        {"methods", std::move(methods)},
        {"signals", std::move(signals)},
        {"properties", std::move(properties)},
    };
}

Words words_of(const std::vector<Interface>& interfaces)
{
    std::map<std::pair<std::string, std::string>, std::vector<Words>> places;
    std::vector<Words> listed;
    for (const Interface& interface : interfaces)
    {
        const auto add = [&places, &interface](const auto& members)
        {
            for (const auto& member : members)
            {
                places[{capitals(member.name), member.name}].push_back(
                    {{"interface", interface.name}, {"leaf", std::string(leaf(interface.name))}});
            }
        };
        add(interface.methods);
        add(interface.signals);
        add(interface.properties);
        listed.push_back(words_of(interface));
    }
    std::vector<Words> index;
    index.reserve(places.size());
    for (auto& [name, where] : places)
    {
        index.push_back({{"name", name.second}, {"places", std::move(where)}});
    }
    Words words = words_of_types(interfaces);
    words.insert({{"interfaces", std::move(listed)}, {"index", std::move(index)}});
    return words;
}

} // namespace gantrygen
