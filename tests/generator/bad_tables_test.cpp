#include "table_file.hpp"

namespace
{

struct Fault
{
    std::string text;
    int line;
    std::string_view message;
};

// Runs gantrygen on a table and expects it to say this in one line and write nothing.
void expect_refused(const TableFile& table, int line, std::string_view message)
{
    const Outcome run = table.generate();
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.starts_with(table.path() + ":" + std::to_string(line) + ": error: "))
        << run.err;
    EXPECT_NE(run.err.find(message), std::string::npos) << run.err << "expected: " << message;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_FALSE(std::filesystem::exists(table.output_root()));
}

TEST(BadTable, IsNotWellFormedOrNoTable)
{
    const auto named = [](const std::string& interface)
    { return "<node>\n<interface name='" + interface + "'/></node>"; };
    const Fault faults[] = {
        {"", 1, "no element found"},
        {"<node>\n<interface name='com.orvane.velmar.system.Test'>\n</node>", 3, "mismatched tag"},
        {"<node>\n<interface name='com.orvane.velmar.system.Test'>text\nmore\n</interface></node>",
         2, "text where only elements may stand"},
        {"<interface name='com.orvane.velmar.system.Test'/>", 1, "expected a <node> element"},
        {"<node/>", 1, "no interface"},
        {"<node name='/'/>", 1, "unknown attribute 'name' of <node>"},
        {"<node>\n<node/>\n</node>", 2, "unexpected element <node> in <node>"},
        {"<node>\n<interface name='a.B'/>\n<interface name='a.C'/></node>", 3, "second interface"},
        {"<node>\n<interface/></node>", 2, "<interface> without 'name'"},
        {named("com.orvane-velmar.Test"), 2, "is not a D-Bus interface name"},
        {named("com.switch.Test"), 2, "'switch' is a reserved word"},
        {named("com.orvane.int"), 2, "'int' is a reserved word"},
        {named("com.orvane._"), 2, "'' is not a name in C or C++"},
        {named("com.orvane.velmar.hwi.Test"), 2,
         "the table of com.orvane.velmar.hwi.Test is com/orvane/velmar/hwi/Test/server.xml"},
    };
    for (const auto& [text, line, message] : faults)
    {
        expect_refused(TableFile(text), line, message);
    }
}

std::string property(const std::string& name, const std::string& type = "y",
                     const std::string& inside = "")
{
    return "<property name='" + name + "' type='" + type + "' access='read'>\n" + inside +
           "</property>\n";
}

std::string method(const std::string& inside)
{
    return "<method name='A'>\n" + inside + "</method>\n";
}

std::string annotation(const std::string& name, const std::string& value)
{
    return "<annotation name='" + name + "' value='" + value + "'/>\n";
}

TEST(BadTable, HasABadMember)
{
    const std::string ours = "com.orvane.gantry.";
    const std::string changes = "org.freedesktop.DBus.Property.EmitsChangedSignal";
    const std::string initial = annotation(ours + "Initial", "1");
    const std::string key = annotation(ours + "DataStore", "key");
    const Fault faults[] = {
        // Elements and attributes.
        {"<prop name='A' type='y' access='read'/>\n", 3, "unexpected element <prop>"},
        {"<property name='A' type='y'/>\n", 3, "<property> without 'access'"},
        {"<property name='A' type='y' access='write'/>\n", 3, "not 'write'"},
        {"<property name='A' type='y' access='read' default='1'/>\n", 3, "unknown attribute"},
        {property("A", "y", "<arg type='y'/>"), 4, "unexpected element <arg> in <property>"},
        {method("<arg type='y' direction='inout'/>"), 4, "not 'inout'"},
        {"<signal name='A'>\n<arg type='y' direction='in'/></signal>\n", 4, "is \"out\""},

        // Names.
        {property("1A"), 3, "'1A' is not a D-Bus member name"},
        {property("A&#10;B"), 3, "'A?B' is not a D-Bus member name"},
        {property("_1"), 3, "'1' is not a name in C or C++"},
        {property("Switch"), 3, "'switch' is a reserved word"},
        {property("Restrict"), 3, "'restrict' is a reserved"},
        {property("Interface"), 3, "'interface', which is something else in its class"},
        {"<method name='Get_propertyByName'/>\n", 3, "something else in its class"},
        {"<signal name='A'/>\n" + property("B") + property("A"), 6, "member already, on line 3"},
        {"<signal name='Try_byte'/>\n<method name='TryByte'/>\n", 4,
         "'TryByte' has the accessor 'tryByte' of 'Try_byte' on line 3"},
        {property("FQDD") + property("fqdd"), 5, "'fqdd' has the accessor 'fqdd' of 'FQDD'"},

        // Types.
        {property("A", "h"), 3, "bad signature 'h': unknown type 'h'"},
        {property("A", "v"), 3, "a variant needs its alternatives"},
        {property("A", "Ai"), 3, "'Ai' comes to the signature 'ai', not 'Ai'"},
        {property("A", "ai", annotation(ours + "Type", "Au")), 4, "'au', not 'ai'"},
        {property("A", "v", annotation(ours + "Type", "v&lt;&gt;")), 4, "bad signature 'v<>'"},
        {method("<arg type='a{sy}'/>"), 4, "'a{sy}' has no C form"},
        {method("<arg type='ab' direction='out'/>"), 4, "'ab' has no C form"},
        {method("<arg type='(y(y))'/>"), 4, "'(y(y))' has no C form"},
        {method("<arg type='y'/>"), 3, "'A' has no result"},

        // Annotations.
        {property("A", "y", annotation(ours + "Initial", "256")), 3, "'256' is no initial value"},
        {property("A", "as", initial), 3, "'1' is no initial value for 'as'"},
        {property("A", "y", key), 3, "a key of the data store is a string"},
        {property("A", "s", key) + property("B", "s", key), 6, "second key of the data store"},
        {property("A", "y", annotation(ours + "Default", "1")), 4, "unknown annotation"},
        {annotation(ours + "Type", "y"), 3, "on a <interface>"},
        {method(initial), 4, "unknown annotation"},
        {property("A", "y", initial + initial), 5, "second annotation"},
        {method(annotation(ours + "Reply", "later")), 4, "'later' is no value of"},
        {method(annotation("org.freedesktop.systemd1.Privileged", "yes")), 4, "'yes' is no value"},
        {property("A", "y", annotation(changes, "invalidates")), 4, "'invalidates' is no value of"},
        {annotation(changes, "const"), 3, "belongs on a property"},
    };
    for (const auto& [members, line, message] : faults)
    {
        expect_refused(TableFile(TableFile::with_members(members)), line, message);
    }

    // A member may not come to the name of the derived class.
    constexpr std::string_view interface = "com.orvane.velmar.sample.async";
    expect_refused(
        TableFile(TableFile::with_members("<method name='Async'/>\n", interface), interface), 3,
        "something else in its class");
}

TEST(BadTable, IsMissing)
{
    EXPECT_EQ(gantrygen_run({"no/such/server.xml"}).err,
              "no/such/server.xml: error: No such file or directory\n");
}

TEST(GoodTable, MayHoldWhatIsForOtherReaders)
{
    const TableFile table(
        "<?xml version='1.0'?>\n<!DOCTYPE node PUBLIC 'a' 'b'>\n<!-- x -->\n" +
        TableFile::with_members(
            annotation("org.example.Owner", "nobody") + "<!-- First. -->\n" +
            property("A", "y", annotation("org.freedesktop.DBus.Deprecated", "true"))));
    EXPECT_EQ(table.generate().err, "");
}

} // namespace
