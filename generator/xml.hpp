/*
 * An XML document as a tree of elements, each with its line. Tables contain no text, so text
 * between elements is an error. Comments and the doctype are ignored.
 */
#pragma once

#include <string>
#include <string_view>
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

/** The document's root. Throws TableError, naming `file`, on what is not well-formed. */
Element read_xml(std::string_view file, std::string_view text);

} // namespace gantrygen
