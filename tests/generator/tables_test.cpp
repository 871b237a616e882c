// gantrygen run on tables: bad ones, which it refuses with one line, and those of the project.
#include "command_line.hpp"
#include "support/temp_dir.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;

// Gives the exit status and all that is printed.
std::pair<int, std::string> gantrygen_run(const std::vector<std::string>& arguments)
{
    std::ostringstream text;
    const int status = gantrygen::run(arguments, text, text);
    return {status, text.str()};
}

// A table of the interface com.orvane.velmar.system.Test, in its place.
struct Table
{
    explicit Table(const std::string& text)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    support::TempDir root;
    fs::path path = root.path / "com/orvane/velmar/system/Test/server.xml";
    fs::path output = root.path / "out";
};

std::pair<int, std::string> generate(const Table& table)
{
    return gantrygen_run({"--output-dir", table.output.string(), table.path.string()});
}

// Whole lines, of which the first is the table's third.
std::string with_members(const std::string& members)
{
    return "<node>\n<interface name='com.orvane.velmar.system.Test'>\n" + members +
           "</interface>\n</node>\n";
}

std::string property(const std::string& name, const std::string& type = "y",
                     const std::string& inside = "")
{
    return "<property name='" + name + "' type='" + type + "' access='read'>\n" + inside +
           "</property>\n";
}

std::string numbered_properties(int count)
{
    std::string all;
    for (int number = 0; number < count; ++number)
    {
        all += property("P" + std::to_string(number));
    }
    return all;
}

std::string method(const std::string& inside)
{
    return "<method name='A'>\n" + inside + "</method>\n";
}

std::string note(const std::string& name, const std::string& value)
{
    return "<annotation name='" + name + "' value='" + value + "'/>\n";
}

// A table, the line of its fault, and what is said of it.
using Fault = std::tuple<std::string, int, std::string>;

void expect_refused(const std::string& text, int line, const std::string& message)
{
    const Table table(text);
    const auto [status, printed] = generate(table);
    EXPECT_EQ(status, 1) << text;
    EXPECT_EQ(printed,
              table.path.string() + ':' + std::to_string(line) + ": error: " + message + '\n');
    EXPECT_FALSE(fs::exists(table.output)) << text;
}

TEST(Bad_table, No_table_of_its_place_is_refused_with_its_line)
{
    std::string deep;
    for (int depth = 0; depth < 200'000; ++depth)
    {
        deep += "<a>";
    }
    const Fault faults[] = {
        {"", 1, "no element found"},
        {"<node>\n<interface>text\n</interface></node>", 2, "text where only elements may stand"},
        {"<interface name='a.B'/>", 1, "expected a <node> element, found <interface>"},
        {"<!--" + std::string(70'000, ' ') + "-->\n<node/>", 2, "no interface"},
        {"<node>\n<interface/>\n<interface/></node>", 3, "second interface: a table holds one"},
        {"<node>\n<interface/></node>", 2, "<interface> without 'name'"},
        {"<node><interface name='a-b.C'/></node>", 1, "'a-b.C' is not a D-Bus interface name"},
        {"<node><interface name='switch.C'/></node>", 1, "'switch' is a reserved word"},
        {"<node><interface name='a.Test'/></node>", 1, "the table of a.Test is a/Test/server.xml"},
        {"<node>\n" + deep, 2, "elements nest too deep"},
    };
    for (const auto& [text, line, message] : faults)
    {
        expect_refused(text, line, message);
    }
    EXPECT_EQ(gantrygen_run({"no/such/server.xml"}).second,
              "no/such/server.xml: error: No such file or directory\n");
    EXPECT_EQ(gantrygen_run({"."}).second, ".: error: Is a directory\n");
}

TEST(Bad_table, A_member_that_no_code_can_follow_from_is_refused_with_its_line)
{
    const std::string changes = "org.freedesktop.DBus.Property.EmitsChangedSignal";
    const std::string privileged = "org.freedesktop.systemd1.Privileged";
    const std::string type = "com.orvane.gantry.Type";
    const std::string initial = "com.orvane.gantry.Initial";
    const std::string key = note("com.orvane.gantry.DataStore", "key");
    const std::string long_argument = "<arg type='(" + std::string(252, 'y') + ")'/>";
    const Fault faults[] = {
        // Elements and attributes.
        {property("A", "y", "<arg/>"), 4, "unexpected element <arg> in <property>"},
        {"<method name='A' a=''/>", 3, "unknown attribute 'a' of <method>"},
        {"<property name='A' type='y' access='w'/>", 3,
         "a property's access is \"read\" or \"readwrite\", not 'w'"},
        {method("<arg direction='x'/>"), 4, "a method's argument is \"in\" or \"out\", not 'x'"},
        {"<signal name='A'>\n<arg direction='in'/></signal>", 4, "a signal's argument is \"out\""},
        // Names.
        {property("A&#10;B"), 3, "'A?B' is not a D-Bus member name"},
        {property("_1"), 3, "'1' is not a name in C or C++"},
        {property("Restrict"), 3, "'restrict' is a reserved word"},
        {property("Interface"), 3,
         "'Interface' has the accessor 'interface', which is something else in its class"},
        {"<signal name='A'/>\n" + property("A"), 4, "'A' has the accessor 'a' of 'A' on line 3"},
        {"<method name='Try_byte'/>\n<signal name='TryByte'/>\n", 4,
         "'TryByte' has the accessor 'tryByte' of 'Try_byte' on line 3"},
        // Types.
        {property("A", "ai", note(type, "Au")), 4, "'Au' comes to the signature 'au', not 'ai'"},
        {method("<arg type='a{sy}'/>"), 4, "'a{sy}' has no C form"},
        {method("<arg type='ab' direction='out'/>"), 4, "'ab' has no C form"},
        {"<signal name='A'>\n<arg type='(y(y))'/></signal>", 4, "'(y(y))' has no C form"},
        {method("<arg type='y'/>"), 3, "'A' has no result"},
        {method("<arg type='y'/>" + long_argument + "<arg type='y'/>"), 4,
         "the arguments' signature is longer than D-Bus allows"},
        {property("A", ""), 3, "bad signature '': ends within a type"},
        {property("A", "h"), 3, "bad signature 'h': file descriptors ('h') are not supported"},
        {property("A", "yy"), 3, "bad signature 'yy': more than one complete type"},
        {property("A", "a{sv}"), 3,
         "bad signature 'a{sv}': a variant needs its alternatives, like a{sv<ns(nix)>} in the "
         "annotation com.orvane.gantry.Type"},
        {property("A", "a{ays}"), 3,
         "bad signature 'a{ays}': the key of a dict is not a basic type"},
        {property("A", "a{sss}"), 3, "bad signature 'a{sss}': expected '}'"},
        {property("A", "v&lt;aiAi>"), 3,
         "bad signature 'v<aiAi>': two alternatives of a variant have the same signature"},
        // Annotations.
        {property("A", "as", note(initial, "1")), 3, "'1' is no initial value for 'as'"},
        {property("A", "y", key), 3, "a key of the data store is a string"},
        {property("A", "s", key) + property("B", "s", key), 6, "second key of the data store"},
        {method(note(initial, "1")), 4, "unknown annotation '" + initial + "' on a <method>"},
        {method(note("x", "") + note("x", "")), 5, "second annotation 'x'"},
        {method(note(privileged, "yes")), 4, "'yes' is no value of '" + privileged + "' here"},
        {note(changes, "const"), 3, "'" + changes + "' belongs on a property"},
        {numbered_properties(256), 3 + 255 * 2, "an interface has at most 255 properties"},
        {"<method name='_Generic'/>", 3, "'_Generic' is a reserved word"},
        {method("<arg type='as'>" + note(type, "As") + "</arg>"), 4, "'As' has no C form"},
    };
    for (const auto& [members, line, message] : faults)
    {
        expect_refused(with_members(members), line, message);
    }
}

TEST(Output, A_failure_leaves_no_half_of_it)
{
    const Table table(with_members(property("A")));
    const fs::path obstacle = table.output / "com/orvane/velmar/system/Test/gantry_server.cpp";
    fs::create_directories(obstacle);
    EXPECT_EQ(generate(table).second, obstacle.string() + ": error: Is a directory\n");
    const fs::directory_iterator left(obstacle.parent_path());
    EXPECT_EQ(std::distance(begin(left), end(left)), 1);

    std::ofstream full("/dev/full");
    std::ostringstream errors;
    EXPECT_EQ(gantrygen::run({"--symbols", table.path.string()}, full, errors), 1);
    EXPECT_EQ(errors.str(), "gantrygen: error: cannot write to standard output\n");
}

TEST(Output, What_a_table_says_cannot_break_a_page)
{
    const Table table(
        with_members(note("org.gtk.GDBus.DocString", "&lt;b>|") +
                     property("A", "s", note("com.orvane.gantry.Initial", "a&quot;b"))));
    const fs::path roundabout = table.path.parent_path() / "../Test/./server.xml";
    const std::string html = gantrygen_run({"--html", fs::proximate(roundabout).string()}).second;
    EXPECT_NE(html.find("<p>&lt;b&gt;|</p>"), std::string::npos) << html;
    EXPECT_NE(html.find("Starts at a&quot;b."), std::string::npos) << html;
}

TEST(Output, An_argument_has_its_name_in_C_unless_C_cannot_have_it)
{
    const Table table(with_members(method("<arg type='y' name='speed'/><arg type='s' name='class'/>"
                                          "<arg type='y' name='a-b'/><arg type='y' name='_Bool'/>"
                                          "<arg type='y' name='instance'/><arg type='y'/>"
                                          "<arg type='y' name='speed' direction='out'/>")));
    EXPECT_EQ(generate(table), (std::pair{0, std::string()}));
    std::ostringstream header;
    header << std::ifstream(table.output / "com/orvane/velmar/system/Test/gantry_server.h").rdbuf();
    // A long line is broken at a comma.
    EXPECT_NE(header.str().find(
                  "unsigned char speed, char* class_, unsigned char in3, unsigned char in4,\n"
                  "        unsigned char instance_, unsigned char in6, unsigned char* speed_);"),
              std::string::npos)
        << header.str();
}

TEST(Command_line, A_mistake_is_no_success_and_what_is_asked_is_answered)
{
    const std::string usage = gantrygen_run({"--help"}).second;
    const std::vector<std::string> mistakes[] = {
        {"--symbols"}, {"a", "b"}, {"--none"}, {"--version=1"}};
    for (const auto& mistake : mistakes)
    {
        EXPECT_EQ(gantrygen_run(mistake), std::pair(2, usage)) << mistake[0];
    }
    EXPECT_TRUE(gantrygen_run({"--version"}).second.starts_with("gantrygen 0."));
}

} // namespace
