/*
 * gantrygen's command line.
 */
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace gantrygen
{

/** Runs gantrygen with these arguments, which don't include the program's name. Returns the exit
 *  status: 0, 1 for a bad table or output, 2 for a bad command line. */
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

} // namespace gantrygen
