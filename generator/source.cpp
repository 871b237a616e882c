#include "source.hpp"

#include "layout.hpp"

#include <algorithm>
#include <cstddef>

namespace gantrygen
{

void Source::let(const Words& more)
{
    for (const auto& [word, text] : more)
    {
        words.insert_or_assign(word, text);
    }
}

void Source::add(std::string_view passage)
{
    if (passage.starts_with('\n'))
    {
        passage.remove_prefix(1);
    }
    std::string line;
    while (!passage.empty())
    {
        const char letter = passage.front();
        passage.remove_prefix(1);
        if (letter == '\n')
        {
            written += wrap(line);
            written += letter;
            line.clear();
        }
        else if (letter == '$')
        {
            const auto end = std::find_if_not(passage.begin(), passage.end(),
                                              [](char each) { return each >= 'a' && each <= 'z'; });
            const auto word = passage.substr(0, static_cast<std::size_t>(end - passage.begin()));
            line += words.at(std::string(word));
            passage.remove_prefix(word.size());
        }
        else
        {
            line += letter;
        }
    }
}

void Source::blank()
{
    written += '\n';
}

} // namespace gantrygen
