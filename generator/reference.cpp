#include "reference.hpp"

#include "names.hpp"
#include "words.hpp"

#include <algorithm>
#include <initializer_list>
#include <string_view>

namespace gantrygen
{
namespace
{

constexpr auto opening =
    R"(<!-- Made by gantrygen --reference from the tables com/**/server.xml. Changes belong there. -->

# The catalogue

Every interface of the library, for clients (names and signatures on the bus) and for hosts (C and
C++ names).

- **Default path, default service** are what an object gets whose host names none.
- **Properties** are set by the host: `accessor(value)` announces a change as `PropertiesChanged`,
  `accessor(value, true)` doesn't, and `accessor()` reads. Without an initial value one is zero,
  false or empty. *const*: clients are told that the value never changes, and no change is
  announced. *writable*: clients may set it too. *key*: setting it registers the object with the
  data store.
- **Methods** call the host's function in that slot of its C table. *Shape* says who replies with
  what the function gives: the bus callback (`reply`), or the C++ operation itself, which is given
  the message (`message`). To clients and to C hosts both are the same. *Privileged*: only
  privileged clients may call it.
- **Signals** are sent and received by exported C functions. Ownership of what their arguments and
  those of methods point to is told in the header.

)";

std::string quoted(std::string_view text)
{
    return std::string("`").append(text) + '`';
}

/** For an empty cell, which Markdown shows as if something were missing. */
std::string quoted_or_dash(std::string_view text)
{
    return text.empty() ? "–" : quoted(text);
}

/** Text that anyone may have written, as Markdown shows it unchanged in a table. */
std::string escaped(std::string_view text)
{
    std::string safe;
    for (const char letter : text)
    {
        const bool special =
            std::string_view("\\`*_{}[]<>()#+-.!|&~").find(letter) != std::string_view::npos;
        safe += special ? "\\" : "";
        safe += letter == '\n' || letter == '\r' ? ' ' : letter;
    }
    return safe;
}

std::string row(std::initializer_list<std::string> cells)
{
    std::string text = "|";
    for (const std::string& cell : cells)
    {
        text += ' ' + cell + " |";
    }
    return text + '\n';
}

/** A table's first two rows, below an empty line. */
std::string head(std::initializer_list<std::string> titles)
{
    std::string rule = "|";
    for (std::size_t column = 0; column < titles.size(); ++column)
    {
        rule += "---|";
    }
    return '\n' + row(titles) + rule + '\n';
}

std::string overview(const std::vector<Interface>& interfaces)
{
    std::string text =
        "## Overview\n" + head({"interface", "group", "properties", "methods", "signals"});
    for (const Interface& interface : interfaces)
    {
        const std::string name(leaf(interface.name));
        const std::string group = interface.name.substr(0, interface.name.rfind('.'));
        text += row({'[' + name + "](#" + interface.name + ')', group,
                     std::to_string(interface.properties.size()),
                     std::to_string(interface.methods.size()),
                     std::to_string(interface.signals.size())});
    }
    return text;
}

std::string names(const Interface& interface)
{
    const Words words = words_of(interface);
    const std::string derived = words.at("derived") + "::" + words.at("leaf");
    const std::string server = words.at("server") + "::" + words.at("class");
    return "\n<a id=\"" + interface.name + "\"></a>\n\n## " + interface.name + '\n' +
           head({"", ""}) + row({"default path", quoted(words.at("path"))}) +
           row({"default service", quoted(interface.name)}) +
           row({"creating function", quoted(words.at("instantiate"))}) +
           row({"C table",
                interface.methods.empty() ? "none; pass null" : quoted(words.at("table"))}) +
           row({"server class", quoted(server)}) + row({"derived class", quoted(derived)}) +
           row({"C header", quoted('<' + words.at("directory") + "/gantry_server.h>")}) +
           row({"C++ header", quoted('<' + words.at("directory") + "/gantry_server.hpp>")});
}

std::string flags(const Property& property)
{
    std::string text;
    const auto add = [&text](bool set, std::string_view flag)
    {
        if (set)
        {
            text += text.empty() ? "" : ", ";
            text += flag;
        }
    };
    add(property.constant, "const");
    add(property.writable, "writable");
    add(property.data_store_key, "key");
    return text;
}

std::string properties(const Interface& interface)
{
    if (interface.properties.empty())
    {
        return {};
    }
    std::string text = head({"property", "signature", "C++ type", "accessor", "initial", "flags"});
    for (const Property& property : interface.properties)
    {
        const Words words = words_of(property);
        text += row({quoted(property.name), quoted(words.at("signature")), quoted(words.at("type")),
                     quoted(words.at("accessor")), escaped(property.initial.value_or("")),
                     flags(property)});
    }
    return text;
}

std::string methods(const Interface& interface)
{
    if (interface.methods.empty())
    {
        return {};
    }
    std::string text = head({"method", "in", "out", "slot", "shape", "privileged", "C function"});
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        const Method& method = interface.methods[slot];
        const Words words = words_of(method, slot);
        text += row({quoted(method.name), quoted_or_dash(words.at("inputs")),
                     quoted_or_dash(words.at("outputs")), std::to_string(slot),
                     method.shape == Method::Shape::reply ? "reply" : "message",
                     method.privileged ? "yes" : "no",
                     quoted("void (*" + method.name + ")(" + words.at("slot") + ')')});
    }
    return text;
}

std::string signals(const Interface& interface)
{
    if (interface.signals.empty())
    {
        return {};
    }
    std::string text = head({"signal", "signature", "sent by", "received by"});
    for (const Signal& signal : interface.signals)
    {
        const Words words = words_of(interface, signal);
        text +=
            row({quoted(signal.name), quoted_or_dash(words.at("signature")),
                 quoted(words.at("send") + "(GANTRY_instance* instance" + words.at("sent") + ')'),
                 quoted(words.at("receive") +
                        "(GANTRY_cpp_context* context, void (*callback)"
                        "(GANTRY_cpp_context* context" +
                        words.at("received") + "))")});
    }
    return text;
}

} // namespace

std::string emit_reference(std::vector<Interface> interfaces)
{
    std::sort(interfaces.begin(), interfaces.end(),
              [](const Interface& left, const Interface& right) { return left.name < right.name; });
    std::string text = opening + overview(interfaces);
    for (const Interface& interface : interfaces)
    {
        text += names(interface) + properties(interface) + methods(interface) + signals(interface);
    }
    return text;
}

} // namespace gantrygen
