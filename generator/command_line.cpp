#include "command_line.hpp"

#include "catalogue.hpp"
#include "diagnostics.hpp"
#include "emit.hpp"
#include "names.hpp"
#include "outputs.hpp"
#include "parse.hpp"
#include "reference.hpp"
#include "symbols.hpp"
#include "validate.hpp"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <set>
#include <span>
#include <system_error>
#include <utility>

namespace gantrygen
{
namespace
{

namespace fs = std::filesystem;

constexpr auto usage = R"(gantrygen: code that follows from an interface's member table

    gantrygen [--output-dir DIR] TABLE   writes server.hpp, server.cpp, gantry_server.hpp,
                                         gantry_server.cpp and gantry_server.h of the table
                                         into its directory below DIR (default: .)
    gantrygen --headers DIR TABLE...     writes all that a host includes of the tables below DIR
    gantrygen --catalogue TABLE...       prints the header that includes all gantry_server.h
    gantrygen --reference TABLE...       prints docs/catalogue.md: every interface with its members
    gantrygen --symbols TABLE...         prints the symbols that the library exports for the tables

TABLE is com/orvane/velmar/<group>/<Name>/server.xml, for the interface of that name.
)";

Interface read_table(const std::string& file)
{
    std::string text(fs::file_size(file), '\0');
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!stream)
    {
        throw fs::filesystem_error("cannot read", file,
                                   {errno == 0 ? EIO : errno, std::generic_category()});
    }
    Interface interface = parse_table(file, text);
    validate(interface);
    return interface;
}

std::vector<Interface> read_tables(std::span<const std::string> files)
{
    std::vector<Interface> tables;
    for (const std::string& file : files)
    {
        tables.push_back(read_table(file));
    }
    return tables;
}

void generate(const fs::path& root, const std::string& file)
{
    const Interface interface = read_table(file);
    write_outputs(root / directory(interface.name), emit(interface));
}

void write_headers(const fs::path& root, std::span<const std::string> files)
{
    for (const Interface& interface : read_tables(files))
    {
        const fs::path place = directory(interface.name);
        std::vector<Output> outputs = emit(interface);
        std::erase_if(outputs, [](const Output& output) { return output.name.ends_with(".cpp"); });
        write_outputs(root / place, outputs);
        // A build that names the topmost directory as its output sees by its time that it is new.
        fs::last_write_time(root / *place.begin(), fs::file_time_type::clock::now());
    }
}

void print_catalogue(std::span<const std::string> files, std::ostream& out)
{
    std::vector<std::string> names;
    for (Interface& interface : read_tables(files))
    {
        names.push_back(std::move(interface.name));
    }
    out << emit_catalogue(std::move(names));
}

void print_reference(std::span<const std::string> files, std::ostream& out)
{
    out << emit_reference(read_tables(files));
}

void print_symbols(std::span<const std::string> files, std::ostream& out)
{
    std::set<std::string> symbols;
    for (const Interface& interface : read_tables(files))
    {
        add_symbols(interface, symbols);
    }
    for (const std::string& symbol : symbols)
    {
        out << symbol << '\n';
    }
}

/** Does what the arguments ask. False if they ask nothing that gantrygen knows. */
bool obey(std::span<const std::string> arguments, std::ostream& out)
{
    if (arguments.empty())
    {
        return false;
    }
    const std::string& first = arguments.front();
    const auto rest = arguments.subspan(1);
    if (first == "--help" && rest.empty())
    {
        out << usage;
    }
    else if (first == "--headers" && rest.size() > 1)
    {
        write_headers(rest[0], rest.subspan(1));
    }
    else if (first == "--catalogue" && !rest.empty())
    {
        print_catalogue(rest, out);
    }
    else if (first == "--reference" && !rest.empty())
    {
        print_reference(rest, out);
    }
    else if (first == "--symbols" && !rest.empty())
    {
        print_symbols(rest, out);
    }
    else if (first == "--output-dir" && rest.size() == 2)
    {
        generate(rest[0], rest[1]);
    }
    else if (!first.starts_with('-') && rest.empty())
    {
        generate(".", first);
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
