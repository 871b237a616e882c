#include "parse.hpp"

#include "diagnostics.hpp"
#include "xml.hpp"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <optional>
#include <utility>

namespace gantrygen
{
namespace
{

constexpr std::string_view own_vocabulary = "com.orvane.gantry.";
constexpr std::string_view type_annotation = "com.orvane.gantry.Type";
constexpr std::string_view initial_annotation = "com.orvane.gantry.Initial";
constexpr std::string_view data_store_annotation = "com.orvane.gantry.DataStore";
constexpr std::string_view reply_annotation = "com.orvane.gantry.Reply";
constexpr std::string_view changed_annotation = "org.freedesktop.DBus.Property.EmitsChangedSignal";
constexpr std::string_view privileged_annotation = "org.freedesktop.systemd1.Privileged";
constexpr std::string_view doc_annotation = "org.gtk.GDBus.DocString";
constexpr std::string_view summary_annotation = "org.gtk.GDBus.DocString.Short";

using Words = std::initializer_list<std::string_view>;

bool contains(Words words, std::string_view word)
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

class TableReader
{
  public:
    explicit TableReader(std::string_view table) : file(table)
    {
    }

    Interface read(const Element& root) const
    {
        if (root.name != "node")
        {
            fail(root, "expected a <node> element, found <" + root.name + ">");
        }
        expect(root, {}, {"interface"});
        if (root.children.empty())
        {
            fail(root, "no interface");
        }
        if (root.children.size() > 1)
        {
            fail(root.children[1], "second interface: a table holds one");
        }
        return read_interface(root.children.front());
    }

  private:
    /** An element's annotations. */
    struct Annotation
    {
        std::string value;
        int line;
    };
    using Annotations = std::map<std::string, Annotation, std::less<>>;

    Interface read_interface(const Element& element) const
    {
        expect(element, {"name"}, {"method", "signal", "property", "annotation"});
        const Annotations notes = annotations(element, {});
        if (const auto changed = notes.find(changed_annotation); changed != notes.end())
        {
            fail(changed->second.line, quote(changed_annotation) + " belongs on a property");
        }

        Interface interface {
            std::string(file), required(element, "name"), {}, {}, {},
                text(notes, summary_annotation), text(notes, doc_annotation), element.line
        };
        for (const Element& child : element.children)
        {
            if (child.name == "method")
            {
                interface.methods.push_back(read_method(child));
            }
            else if (child.name == "signal")
            {
                interface.signals.push_back(read_signal(child));
            }
            else if (child.name == "property")
            {
                interface.properties.push_back(read_property(child));
            }
        }
        return interface;
    }

    Method read_method(const Element& element) const
    {
        expect(element, {"name"}, {"arg", "annotation"});
        const Annotations notes = annotations(element, {reply_annotation});
        Method method{required(element, "name"),
                      {},
                      {},
                      choice(notes, reply_annotation, {"message"}) == "message",
                      choice(notes, privileged_annotation, {"true", "false"}) == "true",
                      text(notes, doc_annotation),
                      element.line};
        for (const Element& child : element.children)
        {
            if (child.name != "arg")
            {
                continue;
            }
            const auto direction = optional(child, "direction").value_or("in");
            if (!contains({"in", "out"}, direction))
            {
                fail(child, "a method's argument is \"in\" or \"out\", not " + quote(direction));
            }
            auto& arguments = direction == "in" ? method.inputs : method.outputs;
            arguments.push_back(read_argument(child));
        }
        return method;
    }

    Signal read_signal(const Element& element) const
    {
        expect(element, {"name"}, {"arg", "annotation"});
        const Annotations notes = annotations(element, {});
        Signal signal{required(element, "name"), {}, text(notes, doc_annotation), element.line};
        for (const Element& child : element.children)
        {
            if (child.name != "arg")
            {
                continue;
            }
            if (optional(child, "direction").value_or("out") != "out")
            {
                fail(child, "a signal's argument is \"out\"");
            }
            signal.arguments.push_back(read_argument(child));
        }
        return signal;
    }

    Property read_property(const Element& element) const
    {
        expect(element, {"name", "type", "access"}, {"annotation"});
        const Annotations notes =
            annotations(element, {type_annotation, initial_annotation, data_store_annotation});
        const std::string access = required(element, "access");
        if (!contains({"read", "readwrite"}, access))
        {
            fail(element, "a property's access is \"read\" or \"readwrite\", not " + quote(access));
        }

        Property property{required(element, "name"),
                          type_of(element, notes),
                          access == "readwrite",
                          choice(notes, changed_annotation, {"true", "const"}) == "const",
                          choice(notes, data_store_annotation, {"key"}) == "key",
                          {},
                          text(notes, doc_annotation),
                          element.line};
        if (const auto initial = notes.find(initial_annotation); initial != notes.end())
        {
            property.initial = initial->second.value;
        }
        return property;
    }

    Argument read_argument(const Element& element) const
    {
        expect(element, {"name", "type", "direction"}, {"annotation"});
        return {type_of(element, annotations(element, {type_annotation})),
                optional(element, "name").value_or(""), element.line};
    }

    /** The type of an argument or property: that of the annotation, whose D-Bus signature must be
     *  the attribute's, or without an annotation that of the attribute. */
    Type type_of(const Element& element, const Annotations& notes) const
    {
        const std::string plain = required(element, "type");
        const auto note = notes.find(type_annotation);
        const std::string& extended = note == notes.end() ? plain : note->second.value;
        const int line = note == notes.end() ? element.line : note->second.line;

        Type type = read_type(extended, line);
        if (signature(type) != plain)
        {
            fail(line, quote(extended) + " comes to the signature " + quote(signature(type)) +
                           ", not " + quote(plain));
        }
        return type;
    }

    Type read_type(std::string_view extended, int line) const
    {
        try
        {
            return parse_type(extended);
        }
        catch (const SignatureError& error)
        {
            fail(line, "bad signature " + quote(extended) + ": " + error.what());
        }
    }

    /** The annotations of an element. Of our own vocabulary it may only have those in `own`. */
    Annotations annotations(const Element& element, Words own) const
    {
        Annotations found;
        for (const Element& child : element.children)
        {
            if (child.name != "annotation")
            {
                continue;
            }
            expect(child, {"name", "value"}, {});
            const std::string name = required(child, "name");
            if (name.starts_with(own_vocabulary) && !contains(own, name))
            {
                fail(child, "unknown annotation " + quote(name) + " on a <" + element.name + ">");
            }
            if (!found.try_emplace(name, Annotation{required(child, "value"), child.line}).second)
            {
                fail(child, "second annotation " + quote(name));
            }
        }
        return found;
    }

    /** The value of an annotation, empty if there is none. */
    static std::string text(const Annotations& notes, std::string_view name)
    {
        const auto note = notes.find(name);
        return note == notes.end() ? "" : note->second.value;
    }

    /** The value of an annotation, which must be one of `values`; nothing if there is none. */
    std::optional<std::string> choice(const Annotations& notes, std::string_view name,
                                      Words values) const
    {
        const auto note = notes.find(name);
        if (note == notes.end())
        {
            return {};
        }
        if (!contains(values, note->second.value))
        {
            fail(note->second.line,
                 quote(note->second.value) + " is no value of " + quote(name) + " here");
        }
        return note->second.value;
    }

    /** Refuses attributes and children other than these. */
    void expect(const Element& element, Words attributes, Words children) const
    {
        for (const auto& [name, value] : element.attributes)
        {
            if (!contains(attributes, name))
            {
                fail(element, "unknown attribute " + quote(name) + " of <" + element.name + ">");
            }
        }
        for (const Element& child : element.children)
        {
            if (!contains(children, child.name))
            {
                fail(child, "unexpected element <" + child.name + "> in <" + element.name + ">");
            }
        }
    }

    static std::optional<std::string> optional(const Element& element, std::string_view attribute)
    {
        for (const auto& [name, value] : element.attributes)
        {
            if (name == attribute)
            {
                return value;
            }
        }
        return {};
    }

    std::string required(const Element& element, std::string_view attribute) const
    {
        auto value = optional(element, attribute);
        if (!value)
        {
            fail(element, "<" + element.name + "> without " + quote(attribute));
        }
        return *std::move(value);
    }

    [[noreturn]] void fail(const Element& element, std::string_view message) const
    {
        fail(element.line, message);
    }

    [[noreturn]] void fail(int line, std::string_view message) const
    {
        throw TableError(file, line, message);
    }

    std::string_view file;
};

} // namespace

Interface parse_table(const std::string& file)
{
    return TableReader(file).read(read_xml(file));
}

} // namespace gantrygen
