// A table that a test makes up, in the place its interface name asks for, and gantrygen run on it.
#pragma once

#include "command_line.hpp"
#include "names.hpp"
#include "support/temp_dir.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

struct Outcome
{
    int status;
    std::string out;
    std::string err;
};

inline Outcome gantrygen_run(const std::vector<std::string>& arguments)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = gantrygen::run(arguments, out, err);
    return {status, out.str(), err.str()};
}

class TableFile
{
  public:
    static constexpr std::string_view usual = "com.orvane.velmar.system.Test";

    explicit TableFile(std::string_view text, std::string_view interface = usual) :
        table(root.path() / gantrygen::directory(interface) / "server.xml")
    {
        std::filesystem::create_directories(table.parent_path());
        std::ofstream(table) << text;
    }

    // Whole lines, of which the first is the table's third.
    static std::string with_members(const std::string& members, std::string_view interface = usual)
    {
        return "<node>\n<interface name=\"" + std::string(interface) + "\">\n" + members +
               "</interface>\n</node>\n";
    }

    [[nodiscard]] std::string path() const
    {
        return table.string();
    }

    [[nodiscard]] std::filesystem::path output_root() const
    {
        return root.path() / "out";
    }

    [[nodiscard]] Outcome generate() const
    {
        return gantrygen_run({"--output-dir", output_root().string(), path()});
    }

  private:
    support::TempDir root;
    std::filesystem::path table;
};
