#include "xml.hpp"

#include "diagnostics.hpp"

#include <expat.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace gantrygen
{
namespace
{

/**
 * Builds the tree from expat's events. The handlers are called through C frames and must not throw,
 * so a fault that they find is stored and thrown when expat has returned.
 */
class TreeBuilder
{
  public:
    TreeBuilder() : parser(XML_ParserCreate(nullptr), XML_ParserFree)
    {
        if (!parser)
        {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(parser.get(), start_element, end_element);
        XML_SetCharacterDataHandler(parser.get(), character_data);
    }

    Element build(const std::string& file)
    {
        errno = 0;
        std::ifstream stream(file, std::ios::binary);
        while (!stream.eof())
        {
            std::array<char, 65536> piece;
            stream.read(piece.data(), piece.size());
            if (!stream && !stream.eof())
            {
                throw std::filesystem::filesystem_error(
                    "cannot read", file, {errno == 0 ? EIO : errno, std::generic_category()});
            }
            const auto status = XML_Parse(parser.get(), piece.data(),
                                          static_cast<int>(stream.gcount()), stream.eof());
            if (fault)
            {
                throw TableError(file, fault->first, fault->second);
            }
            if (status != XML_STATUS_OK)
            {
                throw TableError(file, line(), XML_ErrorString(XML_GetErrorCode(parser.get())));
            }
        }
        return std::move(open.front());
    }

  private:
    /** How deep elements may nest. In a table, five levels suffice. */
    static constexpr std::size_t deepest = 16;

    static void XMLCALL start_element(void* self, const XML_Char* name,
                                      const XML_Char** attributes) noexcept
    {
        auto& builder = *static_cast<TreeBuilder*>(self);
        if (builder.open.size() == deepest)
        {
            builder.stop("elements nest too deep");
            return;
        }
        Element element{name, builder.line(), {}, {}};
        for (; *attributes != nullptr; attributes += 2)
        {
            element.attributes.emplace_back(attributes[0], attributes[1]);
        }
        builder.open.push_back(std::move(element));
    }

    static void XMLCALL end_element(void* self, const XML_Char*) noexcept
    {
        auto& open = static_cast<TreeBuilder*>(self)->open;
        if (open.size() > 1)
        {
            Element closed = std::move(open.back());
            open.pop_back();
            open.back().children.push_back(std::move(closed));
        }
    }

    static void XMLCALL character_data(void* self, const XML_Char* text, int length) noexcept
    {
        auto& builder = *static_cast<TreeBuilder*>(self);
        const std::string_view data(text, static_cast<std::size_t>(length));
        if (data.find_first_not_of(" \t\r\n") != std::string_view::npos)
        {
            builder.stop("text where only elements may stand");
        }
    }

    void stop(const char* message)
    {
        fault = {line(), message};
        XML_StopParser(parser.get(), XML_FALSE);
    }

    int line() const
    {
#if XML_MAJOR_VERSION == 2 && XML_MINOR_VERSION < 9
        return static_cast<int>(XML_GetCurrentLineNumber(parser.get()));
#else
        return static_cast<int>(XML_GetCurrentLineNumber64(parser.get()));
#endif
    }

    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser;

    /** The elements not yet closed, the root first. The root stays once it is closed. */
    std::vector<Element> open;

    /** The fault's line and its message. */
    std::optional<std::pair<int, const char*>> fault;
};

} // namespace

Element read_xml(const std::string& file)
{
    return TreeBuilder().build(file);
}

} // namespace gantrygen
