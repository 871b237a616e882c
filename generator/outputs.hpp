/*
 * Outputs on disk: all of them or none.
 */
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace gantrygen
{

struct Output
{
    std::string_view name;
    std::string text;
};

/** Writes the outputs into the directory, which is made if it doesn't exist. On failure, removes
 *  those already written and throws std::filesystem::filesystem_error. */
void write_outputs(const std::filesystem::path& directory, const std::vector<Output>& outputs);

} // namespace gantrygen
