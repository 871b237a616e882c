/*
 * The text of one output under construction. An emitter adds passages in which `$word` stands for
 * a name; every line of a passage is broken to fit the page once its names are in.
 */
#pragma once

#include "words.hpp"

#include <string>
#include <string_view>
#include <utility>

namespace gantrygen
{

class Source
{
  public:
    /** Words that stand for the same text throughout. */
    explicit Source(Words throughout) : words(std::move(throughout))
    {
    }

    /** Words for the passages to come, in place of those of the same spelling. */
    void let(const Words& more);

    /** Adds a passage of whole lines. A newline in front, there for the emitter's own layout, is
     *  left out. */
    void add(std::string_view passage);

    /** Adds an empty line. */
    void blank();

    [[nodiscard]] const std::string& text() const
    {
        return written;
    }

  private:
    Words words;
    std::string written;
};

} // namespace gantrygen
