#include "table_file.hpp"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace
{

namespace fs = std::filesystem;

const fs::path source_root = SOURCE_ROOT;

std::string content(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> project_tables()
{
    std::vector<std::string> tables;
    for (const auto& entry : fs::recursive_directory_iterator(source_root / "com"))
    {
        if (entry.path().filename() == "server.xml")
        {
            tables.push_back(entry.path().string());
        }
    }
    return tables;
}

std::set<std::string> files_below(const fs::path& directory)
{
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
    {
        if (!entry.is_directory())
        {
            files.insert(entry.path().lexically_relative(directory).string());
        }
    }
    return files;
}

// Runs gantrygen in a mode that prints something of all the tables.
std::string printed(const std::string& mode, std::vector<std::string> tables)
{
    tables.insert(tables.begin(), mode);
    const Outcome run = gantrygen_run(tables);
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
}

// Members of many forms with names of many lengths: lines that end just before the page's edge, at
// it and behind it.
std::string members_of_all_lengths()
{
    constexpr std::string_view forms = R"(
<method name='Get#'><arg type='s' direction='out'/></method>
<method name='Dump#'><arg type='s'/><arg type='y'/><arg type='s'/><arg type='s'/><arg type='s'/>
  <arg type='s'/><arg type='s'/><arg type='y'/><arg type='i' direction='out'/>
  <arg type='s' direction='out'/></method>
<method name='Unpack#'><arg type='(ananas)'/><arg type='ay' direction='out'/>
  <annotation name='com.orvane.gantry.Reply' value='message'/></method>
<signal name='Gone#'/>
<signal name='Came#'><arg type='(quat)'/><arg type='s'/></signal>
<property name='Number#' type='y' access='read'/>
<property name='Texts#' type='as' access='read'/>
<property name='Either#' type='a{sv}' access='readwrite'>
  <annotation name='com.orvane.gantry.Type' value='a{sv&lt;ns(nix)&gt;}'/></property>
)";
    std::string members;
    for (std::size_t length = 1; length <= 48; ++length)
    {
        for (const char letter : forms)
        {
            members += letter == '#' ? std::string(length, 'x') : std::string(1, letter);
        }
    }
    return members;
}

TEST(Output, IsFormattedAsTheProjectIsAndItsCHeadersCompileAlone)
{
    const support::TempDir out;
    for (const std::string& table : project_tables())
    {
        const Outcome run = gantrygen_run({"--output-dir", out.path().string(), table});
        ASSERT_EQ(run.status, 0) << run.err;
    }
    const auto clang_format = [](const fs::path& directory)
    {
        return "find '" + directory.string() +
               "' -type f -print0 | xargs -0 -r clang-format --style='file:" +
               (source_root / ".clang-format").string() + "' --dry-run --Werror";
    };
    EXPECT_EQ(std::system(clang_format(out.path()).c_str()), 0);
    for (const std::string leaf : {"X", "RatherLongNameOfSomeClass"})
    {
        const std::string interface = "com.orvane.velmar.system." + leaf;
        const TableFile table(TableFile::with_members(members_of_all_lengths(), interface),
                              interface);
        EXPECT_EQ(table.generate().err, "");
        EXPECT_EQ(std::system(clang_format(table.output_root()).c_str()), 0) << leaf;
    }

    for (const std::string standard : {"c99", "c11"})
    {
        const std::string command = "find '" + out.path().string() +
                                    "' -name '*.h' -print0 | xargs -0 cc -x c -std=" + standard +
                                    " -Wall -Wextra -pedantic-errors -Werror -fsyntax-only -I'" +
                                    out.path().string() + "' -I'" +
                                    (source_root / "include").string() + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << standard;
    }

    constexpr auto blt = "com/orvane/velmar/system/BLT/gantry_server.h";
    EXPECT_EQ(content(out.path() / blt), content(source_root / "tests/generator/gantry_server.h"));
}

TEST(Output, IsTheSameFromWhereverTheTableIsNamed)
{
    const TableFile table(TableFile::with_members("<property name='A' type='s' access='read'/>\n"));
    ASSERT_EQ(table.generate().status, 0);
    const support::TempDir out;
    const std::string roundabout =
        fs::proximate(table.path()).parent_path().string() + "/../Test/./server.xml";
    EXPECT_EQ(gantrygen_run({"--output-dir", out.path().string(), roundabout}).err, "");
    const auto files = files_below(out.path());
    EXPECT_EQ(files.size(), 5);
    EXPECT_EQ(files, files_below(table.output_root()));
    for (const std::string& file : files)
    {
        EXPECT_EQ(content(out.path() / file), content(table.output_root() / file));
    }
}

TEST(Output, IsWrittenWholeOrNotAtAll)
{
    const TableFile table(TableFile::with_members("<property name='A' type='s' access='read'/>\n"));
    const fs::path obstacle =
        table.output_root() / "com/orvane/velmar/system/Test/gantry_server.cpp";
    fs::create_directories(obstacle);
    EXPECT_EQ(table.generate().err, obstacle.string() + ": error: Is a directory\n");
    EXPECT_TRUE(files_below(table.output_root()).empty());
}

TEST(Output, OfSeveralTablesDoesNotDependOnTheirOrder)
{
    std::vector<std::string> tables = project_tables();
    std::sort(tables.begin(), tables.end());
    const std::vector<std::string> backward(tables.rbegin(), tables.rend());
    for (const std::string mode : {"--catalogue", "--reference", "--symbols"})
    {
        EXPECT_EQ(printed(mode, tables), printed(mode, backward));
    }
    const std::string catalogue = printed("--catalogue", tables);
    EXPECT_EQ(std::count(catalogue.begin(), catalogue.end(), '<'), std::ssize(tables));
}

TEST(Reference, InDocsIsWhatTheTablesSay)
{
    std::istringstream fresh(printed("--reference", project_tables()));
    std::istringstream kept(content(source_root / "docs/catalogue.md"));
    std::string expected;
    std::string found;
    for (int line = 1; std::getline(fresh, expected); ++line)
    {
        found.clear();
        std::getline(kept, found);
        ASSERT_EQ(found, expected)
            << "docs/catalogue.md is stale from line " << line << " on. To renew it:\n"
            << "    gantrygen --reference $(find com -name server.xml) > docs/catalogue.md";
    }
    EXPECT_FALSE(std::getline(kept, found)) << "docs/catalogue.md says more than the tables";
}

TEST(Reference, TellsWhatATableSays)
{
    const TableFile table(TableFile::with_members(R"(
<method name='Do_it'><arg type='s'/><arg type='y' direction='out'/>
  <annotation name='org.freedesktop.systemd1.Privileged' value='true'/></method>
<method name='Answer'><arg type='y' direction='out'/>
  <annotation name='com.orvane.gantry.Reply' value='message'/></method>
<signal name='Gone'><arg type='s'/></signal>
<property name='PCIBus' type='s' access='readwrite'>
  <annotation name='com.orvane.gantry.Initial' value='a|`b'/></property>
<property name='Fixed' type='ai' access='read'>
  <annotation name='com.orvane.gantry.Type' value='Ai'/>
  <annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal' value='const'/></property>
)"));
    const std::string reference = printed("--reference", {table.path()});
    for (const std::string row : {
             "| [Test](#com.orvane.velmar.system.Test) | com.orvane.velmar.system | 2 | 2 | 1 |",
             "| default path | `/com/orvane/velmar/system/Test` |",
             "| `PCIBus` | `s` | `std::string` | `pciBus` | a\\|\\`b | writable |",
             "| `Fixed` | `ai` | `std::set<int>` | `fixed` |  | const |",
             "| `Do_it` | `s` | `y` | 0 | reply | yes | `void (*Do_it)(GANTRY_instance* instance, "
             "char* in1, unsigned char* out1)` |",
             "| `Answer` | – | `y` | 1 | message | no | `void (*Answer)(GANTRY_instance* instance, "
             "unsigned char* out1)` |",
         })
    {
        EXPECT_NE(reference.find('\n' + row + '\n'), std::string::npos) << row << '\n' << reference;
    }
}

TEST(CommandLine, RefusesWhatItDoesNotKnow)
{
    const std::vector<std::vector<std::string>> lines = {
        {}, {"a", "b"}, {"--symbols"}, {"--output-dir", "a"}, {"--what", "a"}};
    for (const auto& line : lines)
    {
        const Outcome run = gantrygen_run(line);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err.find("gantrygen [--output-dir DIR] TABLE"), std::string::npos);
    }
    EXPECT_EQ(gantrygen_run({"--help"}).status, 0);
}

} // namespace
