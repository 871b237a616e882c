#include "table_file.hpp"

#include <gtest/gtest.h>

namespace
{

// Runs gantrygen on a table and expects it to say this and write nothing.
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
    struct Fault
    {
        std::string_view text;
        int line;
        std::string_view message;
    };
    constexpr Fault faults[] = {
        {"", 1, "no element found"},
        {"<node>\n<interface name='com.orvane.velmar.system.Test'>\n</node>", 3, "mismatched tag"},
        {"<node>\n\n<interface name='a.b' name='a.b'/></node>", 3, "duplicate attribute"},
        {"<node/>\n<node/>", 2, "junk after document element"},
        {"<node>\n<interface name='com.orvane.velmar.system.Test'>text\n</interface></node>", 2,
         "text where only elements may stand"},
        {"<interface name='com.orvane.velmar.system.Test'/>", 1, "expected a <node> element"},
        {"<node/>", 1, "no interface"},
        {"<node name='/'/>", 1, "unknown attribute 'name' of <node>"},
        {"<node>\n<node/>\n</node>", 2, "unexpected element <node> in <node>"},
        {"<node>\n<interface name='com.orvane.velmar.system.Test'/>\n"
         "<interface name='com.orvane.velmar.system.Other'/></node>",
         3, "second interface"},
        {"<node>\n<interface/></node>", 2, "<interface> without 'name'"},
        {"<node>\n<interface name='Test'/></node>", 2, "'Test' is not a D-Bus interface name"},
        {"<node>\n<interface name='com.orvane-velmar.Test'/></node>", 2,
         "is not a D-Bus interface name"},
        {"<node>\n<interface name='com.switch.Test'/></node>", 2, "'switch' is a reserved word"},
        {"<node>\n<interface name='com.orvane.int'/></node>", 2, "'int' is a reserved word"},
        {"<node>\n<interface name='com.orvane._'/></node>", 2, "'' is not a name in C or C++"},
        {"<node>\n<interface name='com.orvane.velmar.hwi.Test'/></node>", 2,
         "the table of com.orvane.velmar.hwi.Test is com/orvane/velmar/hwi/Test/server.xml"},
        {"<node>\n<interface name='com.orvane.velmar.system.BLT'/></node>", 2,
         "the table of com.orvane.velmar.system.BLT is"},
    };
    for (const auto& [text, line, message] : faults)
    {
        expect_refused(TableFile(text), line, message);
    }
}

TEST(BadTable, HasABadMember)
{
    struct Fault
    {
        std::string_view members; // from line 3
        int line;
        std::string_view message;
    };
    constexpr Fault faults[] = {
        // Elements and attributes.
        {"<prop name='A' type='y' access='read'/>\n", 3, "unexpected element <prop>"},
        {"<property name='A' type='y'/>\n", 3, "<property> without 'access'"},
        {"<property name='A' access='read'/>\n", 3, "<property> without 'type'"},
        {"<property type='y' access='read'/>\n", 3, "<property> without 'name'"},
        {"<property name='A' type='y' access='write'/>\n", 3, "not 'write'"},
        {"<property name='A' type='y' access='read' default='1'/>\n", 3,
         "unknown attribute 'default' of <property>"},
        {"<property name='A' type='y' access='read'>\n<arg type='y'/></property>\n", 4,
         "unexpected element <arg> in <property>"},
        {"<method name='A'>\n<arg type='y' direction='inout'/></method>\n", 4, "not 'inout'"},
        {"<method name='A'>\n<arg/></method>\n", 4, "<arg> without 'type'"},
        {"<signal name='A'>\n<arg type='y' direction='in'/></signal>\n", 4,
         "a signal's argument is \"out\""},

        // Names.
        {"<property name='1A' type='y' access='read'/>\n", 3, "'1A' is not a D-Bus member name"},
        {"<property name='A.B' type='y' access='read'/>\n", 3, "'A.B' is not a D-Bus member name"},
        {"<property name='A&#10;B' type='y' access='read'/>\n", 3,
         "'A?B' is not a D-Bus member name"},
        {"<property name='_1' type='y' access='read'/>\n", 3, "'1' is not a name in C or C++"},
        {"<property name='Switch' type='y' access='read'/>\n", 3, "'switch' is a reserved word"},
        {"<property name='Restrict' type='y' access='read'/>\n", 3, "'restrict' is a reserved"},
        {"<method name='Delete'/>\n", 3, "'delete' is a reserved word"},
        {"<property name='Interface' type='y' access='read'/>\n", 3,
         "'Interface' has the accessor 'interface', which is something else in its class"},
        {"<signal name='inst'/>\n", 3, "which is something else in its class"},
        {"<property name='Value' type='y' access='read'/>\n", 3, "something else in its class"},
        {"<method name='Get_propertyByName'/>\n", 3, "something else in its class"},
        {"<property name='A' type='y' access='read'/>\n"
         "<property name='A' type='s' access='read'/>\n",
         4, "'A' is a member already, on line 3"},
        {"<signal name='A'/>\n<property name='B' type='y' access='read'/>\n"
         "<property name='A' type='y' access='read'/>\n",
         5, "'A' is a member already, on line 3"},
        {"<signal name='Try_byte'/>\n<method name='TryByte'/>\n", 4,
         "'TryByte' has the accessor 'tryByte' of 'Try_byte' on line 3"},
        {"<property name='FQDD' type='s' access='read'/>\n"
         "<property name='fqdd' type='s' access='read'/>\n",
         4, "'fqdd' has the accessor 'fqdd' of 'FQDD' on line 3"},

        // Types.
        {"<property name='A' type='h' access='read'/>\n", 3, "bad signature 'h': unknown type 'h'"},
        {"<property name='A' type='v' access='read'/>\n", 3, "a variant needs its alternatives"},
        {"<property name='A' type='Ai' access='read'/>\n", 3,
         "'Ai' comes to the signature 'ai', not 'Ai'"},
        {"<property name='A' type='ai' access='read'>\n"
         "<annotation name='com.orvane.gantry.Type' value='Au'/></property>\n",
         4, "'Au' comes to the signature 'au', not 'ai'"},
        {"<property name='A' type='v' access='read'>\n"
         "<annotation name='com.orvane.gantry.Type' value='v&lt;&gt;'/></property>\n",
         4, "bad signature 'v<>'"},
        {"<method name='A'>\n<arg type='ys'/></method>\n", 4, "more than one complete type"},
        {"<method name='A'>\n<arg type='a{sy}'/></method>\n", 4, "'a{sy}' has no C form"},
        {"<method name='A'>\n<arg type='ab' direction='out'/></method>\n", 4, "'ab' has no C form"},
        {"<signal name='A'>\n<arg type='(y(y))'/></signal>\n", 4, "'(y(y))' has no C form"},
        {"<method name='A'>\n<arg type='y'/></method>\n", 3, "'A' has no result"},
        {"<signal name='A'>\n<arg type='(yv)'>\n"
         "<annotation name='com.orvane.gantry.Type' value='(yv&lt;y&gt;)'/></arg></signal>\n",
         4, "'(yv)' has no C form"},

        // Annotations.
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='com.orvane.gantry.Initial' value='256'/></property>\n",
         3, "'256' is no initial value for 'y'"},
        {"<property name='A' type='as' access='read'>\n"
         "<annotation name='com.orvane.gantry.Initial' value='x'/></property>\n",
         3, "'x' is no initial value for 'as'"},
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='com.orvane.gantry.DataStore' value='key'/></property>\n",
         3, "a key of the data store is a string"},
        {"<property name='A' type='s' access='read'>\n"
         "<annotation name='com.orvane.gantry.DataStore' value='key'/></property>\n"
         "<property name='B' type='s' access='read'>\n"
         "<annotation name='com.orvane.gantry.DataStore' value='key'/></property>\n",
         5, "second key of the data store"},
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='com.orvane.gantry.Default' value='1'/></property>\n",
         4, "unknown annotation 'com.orvane.gantry.Default' on a <property>"},
        {"<annotation name='com.orvane.gantry.Type' value='y'/>\n", 3,
         "unknown annotation 'com.orvane.gantry.Type' on a <interface>"},
        {"<method name='A'>\n<annotation name='com.orvane.gantry.Initial' value='1'/></method>\n",
         4, "unknown annotation"},
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='com.orvane.gantry.Initial' value='1'/>\n"
         "<annotation name='com.orvane.gantry.Initial' value='1'/></property>\n",
         5, "second annotation"},
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='com.orvane.gantry.Initial'/></property>\n",
         4, "<annotation> without 'value'"},
        {"<method name='A'>\n<annotation name='com.orvane.gantry.Reply' value='later'/></method>\n",
         4, "'later' is no value of 'com.orvane.gantry.Reply'"},
        {"<method name='A'>\n"
         "<annotation name='org.freedesktop.systemd1.Privileged' value='yes'/></method>\n",
         4, "'yes' is no value of 'org.freedesktop.systemd1.Privileged'"},
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal' value='false'/>\n"
         "</property>\n",
         4, "'false' is no value of"},
        {"<property name='A' type='y' access='read'>\n"
         "<annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal'\n"
         "value='invalidates'/></property>\n",
         4, "'invalidates' is no value of"},
        {"<annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal' value='const'/>\n", 3,
         "belongs on a property"},
    };
    for (const auto& [members, line, message] : faults)
    {
        expect_refused(TableFile(TableFile::with_members(members)), line, message);
    }
}

// A member may not come to the name of the derived class.
TEST(BadTable, HasAMemberNamedAsItsClass)
{
    constexpr std::string_view interface = "com.orvane.velmar.sample.async";
    expect_refused(
        TableFile(TableFile::with_members("<method name='Async'/>\n", interface), interface), 3,
        "something else in its class");
}

TEST(BadTable, IsMissing)
{
    const Outcome run = gantrygen_run({"no/such/server.xml"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "no/such/server.xml: error: No such file or directory\n");
}

TEST(GoodTable, MayHoldWhatIsForOtherReaders)
{
    const TableFile table("<?xml version='1.0'?>\n"
                          "<!DOCTYPE node PUBLIC 'a' 'b'>\n"
                          "<!-- Sample. -->\n" +
                          TableFile::with_members(
                              "<annotation name='org.example.Owner' value='nobody'/>\n"
                              "<!-- First. -->\n"
                              "<property name='A' type='y' access='read'>\n"
                              "<annotation name='org.freedesktop.DBus.Deprecated' value='true'/>\n"
                              "<annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal'"
                              " value='true'/>\n"
                              "</property>\n"));
    EXPECT_EQ(table.generate().err, "");
}

} // namespace
