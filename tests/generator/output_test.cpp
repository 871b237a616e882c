#include "table_file.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>

namespace
{

namespace fs = std::filesystem;

const fs::path source_root = SOURCE_ROOT;
constexpr std::string_view blt = "com/orvane/velmar/system/BLT";

constexpr std::string_view outputs[] = {"server.hpp", "server.cpp", "gantry_server.hpp",
                                        "gantry_server.cpp", "gantry_server.h"};

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

TEST(Output, IsTheCodeOfTheTable)
{
    const support::TempDir out;
    const Outcome run = gantrygen_run(
        {"--output-dir", out.path().string(), (source_root / blt / "server.xml").string()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(files_below(out.path()).size(), std::size(outputs));
    for (const std::string_view name : outputs)
    {
        EXPECT_EQ(content(out.path() / blt / name),
                  content(source_root / "tests/generator/golden" / name))
            << name;
    }
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
<method name='Pack#'><arg type='(ananas)'/><arg type='(ananas)' direction='out'/></method>
<method name='Unpack#'><arg type='(ananas)'/><arg type='ay' direction='out'/>
  <annotation name='com.orvane.gantry.Reply' value='message'/></method>
<signal name='Gone#'/>
<signal name='Came#'><arg type='(quat)'/><arg type='s'/></signal>
<property name='Number#' type='y' access='read'/>
<property name='Text#' type='s' access='read'/>
<property name='Texts#' type='as' access='read'/>
<property name='Either#' type='a{sv}' access='readwrite'>
  <annotation name='com.orvane.gantry.Type' value='a{sv&lt;ns(nix)&gt;}'/></property>
<property name='Nested#' type='((y(qu))i(xt))' access='readwrite'/>
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

int clang_format(const fs::path& directory)
{
    const std::string command = "find '" + directory.string() +
                                "' -type f -print0 | xargs -0 -r clang-format --style='file:" +
                                (source_root / ".clang-format").string() + "' --dry-run --Werror";
    return std::system(command.c_str());
}

TEST(Output, IsFormattedAsTheProjectIs)
{
    const support::TempDir out;
    for (const std::string& table : project_tables())
    {
        const Outcome run = gantrygen_run({"--output-dir", out.path().string(), table});
        ASSERT_EQ(run.status, 0) << run.err;
    }
    EXPECT_EQ(clang_format(out.path()), 0);

    for (const std::string leaf : {"X", "QuiteLongNameOfClass", "RatherLongNameOfSomeClass"})
    {
        const std::string interface = "com.orvane.velmar.system." + leaf;
        const TableFile table(TableFile::with_members(members_of_all_lengths(), interface),
                              interface);
        const Outcome run = table.generate();
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(clang_format(table.output_root()), 0) << leaf;
    }
}

TEST(Output, HasHeadersThatCompileAlone)
{
    const support::TempDir out;
    std::string headers;
    for (const std::string& table : project_tables())
    {
        const Outcome run = gantrygen_run({"--output-dir", out.path().string(), table});
        ASSERT_EQ(run.status, 0) << run.err;
    }
    for (const std::string& file : files_below(out.path()))
    {
        headers += file.ends_with(".h") ? " '" + (out.path() / file).string() + "'" : "";
    }
    for (const std::string compiler :
         {"cc -x c -std=c99", "cc -x c -std=c11", "c++ -x c++ -std=c++20"})
    {
        const std::string command =
            compiler + " -Wall -Wextra -pedantic-errors -Werror -fsyntax-only -I'" +
            out.path().string() + "' -I'" + (source_root / "include").string() + "'" + headers;
        EXPECT_EQ(std::system(command.c_str()), 0) << compiler;
    }
}

TEST(Output, IsTheSameFromWhereverTheTableIsNamed)
{
    const TableFile table(TableFile::with_members("<property name='A' type='s' access='read'/>\n"));
    ASSERT_EQ(table.generate().status, 0);
    const support::TempDir out;
    const std::string roundabout =
        fs::proximate(table.path()).parent_path().string() + "/../Test/./server.xml";
    const Outcome run = gantrygen_run({"--output-dir", out.path().string(), roundabout});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto files = files_below(out.path());
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

    const Outcome run = table.generate();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, obstacle.string() + ": error: Is a directory\n");
    EXPECT_TRUE(files_below(table.output_root()).empty());
    EXPECT_TRUE(fs::is_directory(obstacle));
}

TEST(Output, OfSeveralTablesDoesNotDependOnTheirOrder)
{
    std::vector<std::string> tables = project_tables();
    ASSERT_GE(tables.size(), 5U);
    for (const std::string mode : {"--catalogue", "--reference", "--symbols"})
    {
        std::sort(tables.begin(), tables.end());
        std::vector<std::string> arguments{mode};
        arguments.insert(arguments.end(), tables.begin(), tables.end());
        const Outcome forward = gantrygen_run(arguments);
        EXPECT_EQ(forward.status, 0) << forward.err;

        std::reverse(arguments.begin() + 1, arguments.end());
        EXPECT_EQ(gantrygen_run(arguments).out, forward.out);
    }
}

TEST(Catalogue, IncludesEveryInterface)
{
    const Outcome run = gantrygen_run(
        {"--catalogue", (source_root / "com/orvane/velmar/system/NicPort/server.xml").string(),
         (source_root / blt / "server.xml").string()});
    EXPECT_EQ(run.out, "/* Made by gantrygen: the C functions of every interface. */\n"
                       "#ifndef GANTRY_CATALOGUE_H\n"
                       "#define GANTRY_CATALOGUE_H\n"
                       "\n"
                       "#include <com/orvane/velmar/system/BLT/gantry_server.h>\n"
                       "#include <com/orvane/velmar/system/NicPort/gantry_server.h>\n"
                       "\n"
                       "#endif\n");
}

TEST(Reference, InDocsIsWhatTheTablesSay)
{
    std::vector<std::string> arguments = project_tables();
    arguments.insert(arguments.begin(), "--reference");
    const Outcome run = gantrygen_run(arguments);
    ASSERT_EQ(run.status, 0) << run.err;

    std::istringstream fresh(run.out);
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
<method name='Answer'><arg type='y' direction='out'/><annotation name='com.orvane.gantry.Reply' value='message'/></method>
<signal name='Gone'><arg type='s'/></signal>
<property name='PCIBus' type='s' access='readwrite'>
  <annotation name='com.orvane.gantry.Initial' value='a|`b'/></property>
<property name='Fixed' type='ai' access='read'>
  <annotation name='com.orvane.gantry.Type' value='Ai'/>
  <annotation name='org.freedesktop.DBus.Property.EmitsChangedSignal' value='const'/></property>
)"));
    const Outcome run = gantrygen_run({"--reference", table.path()});
    ASSERT_EQ(run.status, 0) << run.err;
    for (const std::string row : {
             "| [Test](#com.orvane.velmar.system.Test) | com.orvane.velmar.system | 2 | 2 | 1 |",
             "| default path | `/com/orvane/velmar/system/Test` |",
             "| `PCIBus` | `s` | `std::string` | `pciBus` | a\\|\\`b | writable |",
             "| `Fixed` | `ai` | `std::set<int>` | `fixed` |  | const |",
             "| `Do_it` | `s` | `y` | 0 | reply | yes | `void (*Do_it)(GANTRY_instance* instance, "
             "char* in1, unsigned char* out1)` |",
             "| `Answer` | – | `y` | 1 | message | no | `void (*Answer)(GANTRY_instance* instance, "
             "unsigned char* out1)` |",
             "| `Gone` | `s` | `GANTRY_signal__com_orvane_velmar_system_Test__Gone"
             "(GANTRY_instance* instance, const char* arg1)` | "
             "`GANTRY_receive_signal__com_orvane_velmar_system_Test__Gone"
             "(GANTRY_cpp_context* context, void (*callback)(GANTRY_cpp_context* context, "
             "char* arg1))` |",
         })
    {
        EXPECT_NE(run.out.find('\n' + row + '\n'), std::string::npos) << row << '\n' << run.out;
    }
}

TEST(CommandLine, RefusesWhatItDoesNotKnow)
{
    const std::vector<std::vector<std::string>> lines = {{},
                                                         {"a", "b"},
                                                         {"--symbols"},
                                                         {"--reference"},
                                                         {"--catalogue"},
                                                         {"--output-dir", "a"},
                                                         {"--what", "a"}};
    for (const auto& line : lines)
    {
        const Outcome run = gantrygen_run(line);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err.find("gantrygen [--output-dir DIR] TABLE"), std::string::npos);
    }
    EXPECT_EQ(gantrygen_run({"--help"}).status, 0);
}

} // namespace
