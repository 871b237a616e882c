/*
 * Outputs on disk: all of them or none.
 */
#pragma once

#include "emit.hpp"

#include <filesystem>
#include <vector>

namespace gantrygen
{

/** Writes the outputs into the directory, making it if need be. On failure removes those already
 *  written and throws std::filesystem::filesystem_error. */
void write_outputs(const std::filesystem::path& directory, const std::vector<Output>& outputs);

} // namespace gantrygen
