/*
 * Generated text comes from templates, each the whole text of one output:
 *
 *     $word           the word's text
 *     %each LIST      repeats the lines up to %end for each member; the member's words hide outer
 *                     words of the same name
 *     %if WORD        keeps the lines up to %else or %end if the word's text or list isn't empty
 *
 * A word is lower-case letters. A directive takes a whole line and leaves nothing in the output.
 */
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace gantrygen
{

struct Word;
using Words = std::map<std::string, Word, std::less<>>;

struct Word : std::variant<std::string, std::vector<Words>>
{
    using variant::variant;
};

/** Escapes the text of a word, so that no part of it has a meaning in the output's format. */
using Escape = std::string (*)(std::string_view);

/** The template's text with these words in it, without a newline at the template's start. */
std::string render(std::string_view text, const Words& words, Escape escape = nullptr);

/** The same for code: lines of more than 120 columns are broken at their commas, or at the spaces
 * of a comment. */
std::string render_code(std::string_view text, const Words& words);

} // namespace gantrygen
