#include "words.hpp"

#include "c_types.hpp"
#include "initial.hpp"
#include "names.hpp"

#include <string_view>

namespace gantrygen
{
namespace
{

using Arguments = std::vector<Argument>;

constexpr bool in_front = true;

/** What `text` makes of each argument's type and name, with commas between, and in front too if
 *  asked. An argument's name is `stem` and its position. */
template <class Text>
std::string listed(const Arguments& arguments, const std::string& stem, Text text,
                   bool comma_in_front = false)
{
    std::string list;
    for (std::size_t index = 0; index < arguments.size(); ++index)
    {
        list += index > 0 || comma_in_front ? ", " : "";
        list += text(arguments[index].type, stem + std::to_string(index + 1));
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

/** What is only read. */
std::string c_lent(const Type& type, const std::string& name)
{
    const std::string passed = c_input(type, name);
    return is_number(type) ? passed : "const " + passed;
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

std::string zero(const Type& type)
{
    switch (type.kind)
    {
    case Type::Kind::boolean:
        return "false";
    case Type::Kind::double_:
        return "0.0";
    default:
        return "0";
    }
}

std::string start(const Property& property)
{
    if (property.initial)
    {
        return " = " + *initial_literal(property.type, *property.initial);
    }
    return is_number(property.type) ? " = " + zero(property.type) : "";
}

Words words_of_reply_shape(const Method& method, const std::string& slot)
{
    const bool several = method.outputs.size() > 1;
    return {
        {"call", several ? "call_method<true>" : "call_method<false>"},
        {"result", several ? tuple_of(method.outputs) : listed(method.outputs, "", only_type)},
        {"parameters", listed(method.inputs, "in", declaration)},
        {"passed", listed(method.inputs, "in", only_name, in_front)},
        {"dispatch",
         "return gantry::dispatch<" + slot + listed(method.outputs, "", only_type, in_front) + '>'},
    };
}

Words words_of_message_shape(const Method& method, const std::string& slot)
{
    return {
        {"call", "call_message_method"},
        {"result", "void"},
        {"parameters", "sdbusplus::message::message& message"},
        {"passed", ", message"},
        {"dispatch", "gantry::dispatch_message<" + slot + ", " + tuple_of(method.outputs) +
                         listed(method.inputs, "", only_type, in_front) + '>'},
    };
}

} // namespace

Words words_of(const Interface& interface)
{
    return {
        {"interface", interface.name},
        {"directory", directory(interface.name)},
        {"path", default_path(interface.name)},
        {"class", class_name(interface.name)},
        {"common", common_namespace(interface.name)},
        {"server", server_namespace(interface.name)},
        {"leaf", std::string(leaf(interface.name))},
        {"derived", derived_namespace(interface.name)},
        {"instantiate", instantiate_function(interface.name)},
        {"table", interface.methods.empty() ? "void" : table_type(interface.name)},
        {"guard", capitals(derived_namespace(interface.name)) + "_H"},
    };
}

Words words_of(const Method& method, std::size_t slot)
{
    Words words = method.shape == Method::Shape::reply
                      ? words_of_reply_shape(method, std::to_string(slot))
                      : words_of_message_shape(method, std::to_string(slot));
    words.insert({
        {"member", method.name},
        {"operation", accessor(method.name)},
        {"callback", method_callback(method.name)},
        {"inputs", signature_of(method.inputs)},
        {"outputs", signature_of(method.outputs)},
        {"flag", method.privileged ? "" : ", vtable::common_::unprivileged"},
        {"slot", "GANTRY_instance* instance" + listed(method.inputs, "in", c_input, in_front) +
                     listed(method.outputs, "out", c_output, in_front)},
    });
    return words;
}

Words words_of(const Interface& interface, const Signal& signal)
{
    return {
        {"member", signal.name},
        {"operation", accessor(signal.name)},
        {"signature", signature_of(signal.arguments)},
        {"parameters", listed(signal.arguments, "arg", declaration)},
        {"passed", listed(signal.arguments, "arg", only_name, in_front)},
        {"types", listed(signal.arguments, "", only_type)},
        {"send", signal_function(interface.name, signal.name)},
        {"receive", receive_signal_function(interface.name, signal.name)},
        {"sent", listed(signal.arguments, "arg", c_lent, in_front)},
        {"received", listed(signal.arguments, "arg", c_input, in_front)},
    };
}

Words words_of(const Property& property)
{
    const std::string get = get_callback(property.name);
    const std::string set = set_callback(property.name);
    return {
        {"member", property.name},
        {"accessor", accessor(property.name)},
        {"signature", signature(property.type)},
        {"type", cpp_type(property.type)},
        {"get", get},
        {"set", set},
        {"access", property.writable ? get + ", " + set : get},
        {"flag", property.constant ? "const_" : "emits_change"},
        {"silent", property.constant ? ", false" : ""},
        {"start", start(property)},
    };
}

} // namespace gantrygen
