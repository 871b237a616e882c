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

inline std::string content(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream) << path;
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

class TableFile
{
  public:
    explicit TableFile(std::string_view text,
                       std::string_view interface = "com.orvane.velmar.system.Test")
    {
        const auto place = root.path() / gantrygen::directory(interface);
        std::filesystem::create_directories(place);
        table = place / "server.xml";
        std::ofstream(table) << text;
    }

    // Whole lines, of which the first is the table's third.
    static std::string with_members(std::string_view members,
                                    std::string_view interface = "com.orvane.velmar.system.Test")
    {
        std::string text = "<node>\n<interface name=\"";
        text += interface;
        text += "\">\n";
        text += members;
        text += "</interface>\n</node>\n";
        return text;
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
