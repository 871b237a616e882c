/*
 * An XML document as a tree of elements, each with its line. Tables contain no text, so text
 * between elements is an error. Comments and the doctype are ignored.
 */
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace gantrygen
{

struct Element
{
    std::string name;
    int line;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<Element> children;
};

/** The root of the document in `file`. Throws TableError on what is not well-formed, and
 *  std::filesystem::filesystem_error if the file can't be read. */
Element read_xml(const std::string& file);

} // namespace gantrygen
