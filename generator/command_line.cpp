#include "command_line.hpp"

#include "diagnostics.hpp"
#include "names.hpp"
#include "parse.hpp"
#include "templates.hpp"
#include "validate.hpp"
#include "words.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <span>
#include <sstream>
#include <system_error>
#include <utility>

namespace gantrygen
{
namespace
{

namespace fs = std::filesystem;

// The manual page shows it, too.
constexpr auto usage = R"(gantrygen: code that follows from an interface's member table

    gantrygen [--output-dir DIR] TABLE
        writes server.hpp, server.cpp, gantry_server.hpp, gantry_server.cpp and
        gantry_server.h of the table into its directory below DIR (default: .)
    gantrygen --headers DIR TABLE...
        writes the headers of these below DIR
    gantrygen --property-types DIR TABLE...
        writes the list of their properties' types, and the code for each type,
        into DIR
    gantrygen --catalogue TABLE...
        prints the header that includes all gantry_server.h
    gantrygen --html TABLE...
        prints a page of every interface with its members
    gantrygen --symbols TABLE...
        prints the symbols that the library exports for the tables, without
        parameter lists
    gantrygen --version
    gantrygen --help

TABLE is com/example/<Name>/server.xml for the interface com.example.<Name>.
)";

Interface read_table(const std::string& file)
{
    Interface interface = parse_table(file);
    validate(interface);
    return interface;
}

/** The tables in the order of their interfaces' names. */
std::vector<Interface> read_tables(std::span<const std::string> files)
{
    std::vector<Interface> tables;
    std::transform(files.begin(), files.end(), std::back_inserter(tables), read_table);
    std::sort(tables.begin(), tables.end(),
              [](const Interface& left, const Interface& right) { return left.name < right.name; });
    return tables;
}

struct Output
{
    std::string_view name;
    std::string text;
};

bool holds(const fs::path& path, const std::string& text)
{
    std::ostringstream held;
    held << std::ifstream(path, std::ios::binary).rdbuf();
    return held.str() == text;
}

/** Writes the outputs into the directory, which is made if it doesn't exist. On failure, removes
 *  those already written and throws std::filesystem::filesystem_error. */
void write_outputs(const fs::path& directory, const std::vector<Output>& outputs)
{
    fs::create_directories(directory);
    std::vector<fs::path> begun;
    try
    {
        for (const Output& output : outputs)
        {
            const fs::path path = directory / output.name;
            if (holds(path, output.text))
            {
                continue;
            }
            errno = 0;
            std::ofstream file(path, std::ios::binary | std::ios::trunc);
            if (file)
            {
                begun.push_back(path);
            }
            file << output.text << std::flush;
            if (!file)
            {
                throw fs::filesystem_error("cannot write", path,
                                           {errno == 0 ? EIO : errno, std::generic_category()});
            }
        }
    }
    catch (...)
    {
        for (const fs::path& path : begun)
        {
            std::error_code ignored;
            fs::remove(path, ignored);
        }
        throw;
    }
}

void write(const fs::path& root, const Interface& interface, bool sources)
{
    const Words words = words_of(interface);
    std::vector<Output> outputs{
        {"server.hpp", render_code(templates::server_hpp, words)},
        {"gantry_server.hpp", render_code(templates::gantry_server_hpp, words)},
        {"gantry_server.h", render_code(templates::gantry_server_h, words)},
    };
    if (sources)
    {
        outputs.push_back({"server.cpp", render_code(templates::server_cpp, words)});
        outputs.push_back({"gantry_server.cpp", render_code(templates::gantry_server_cpp, words)});
    }
    write_outputs(root / directory(interface.name), outputs);
}

void write_headers(const fs::path& root, std::span<const std::string> files)
{
    for (const Interface& interface : read_tables(files))
    {
        write(root, interface, false);
        // The build's output is the topmost directory, whose time must show that it is up to date.
        fs::last_write_time(root / elements(interface.name).front(),
                            fs::file_time_type::clock::now());
    }
}

void write_property_types(const fs::path& directory, std::span<const std::string> files)
{
    const Words words = words_of(read_tables(files));
    const auto callbacks = [&words](std::string_view types)
    {
        return render_code(templates::property_callbacks_cpp,
                           {{"instances", words.find(types)->second}});
    };
    write_outputs(directory,
                  {{"property_types.hpp", render_code(templates::property_types_hpp, words)},
                   {"plain_property_callbacks.cpp", callbacks("plain")},
                   {"composite_property_callbacks.cpp", callbacks("composite")}});
}

std::string as_html(std::string_view text)
{
    std::string safe;
    for (const char letter : text)
    {
        safe += letter == '&'   ? "&amp;"
                : letter == '<' ? "&lt;"
                : letter == '>' ? "&gt;"
                : letter == '"' ? "&quot;"
                                : std::string(1, letter);
    }
    return safe;
}

/** Does what the arguments ask for. Returns false if they are no command line of gantrygen. */
bool obey(std::span<const std::string> arguments, std::ostream& out)
{
    if (arguments.empty())
    {
        return false;
    }
    const std::map<std::string_view, std::pair<std::string_view, Escape>> listings{
        {"--catalogue", {templates::catalogue, nullptr}},
        {"--html", {templates::page, as_html}},
        {"--symbols", {templates::symbols, nullptr}},
    };
    const std::string& first = arguments.front();
    const auto rest = arguments.subspan(1);
    if (first == "--help" && rest.empty())
    {
        out << usage;
    }
    else if (first == "--version" && rest.empty())
    {
        out << "gantrygen " GANTRYGEN_VERSION "\n";
    }
    else if (first == "--headers" && rest.size() > 1)
    {
        write_headers(rest[0], rest.subspan(1));
    }
    else if (first == "--property-types" && rest.size() > 1)
    {
        write_property_types(rest[0], rest.subspan(1));
    }
    else if (const auto listing = listings.find(first); listing != listings.end() && !rest.empty())
    {
        const auto& [text, escape] = listing->second;
        out << render(text, words_of(read_tables(rest)), escape);
    }
    else if (first == "--output-dir" && rest.size() == 2)
    {
        write(rest[0], read_table(rest[1]), true);
    }
    else if (!first.starts_with('-') && rest.empty())
    {
        write(".", read_table(first), true);
    }
    else
    {
        return false;
    }
    return true;
}

} // namespace

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    try
    {
        if (!obey(arguments, out))
        {
            err << usage;
            return 2;
        }
        if (!out.flush())
        {
            err << "gantrygen: error: cannot write to standard output\n";
            return 1;
        }
        return 0;
    }
    catch (const TableError& error)
    {
        err << error.what() << '\n';
    }
    catch (const fs::filesystem_error& error)
    {
        err << error.path1().string() << ": error: " << error.code().message() << '\n';
    }
    return 1;
}

} // namespace gantrygen
