#include "emit.hpp"
#include "source.hpp"

namespace gantrygen
{

std::string emit_gantry_server_hpp(const Interface& interface)
{
    Source source(words_of(interface));
    source.add(R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#pragma once

#include <$directory/gantry_server.h>
#include <$directory/server.hpp>

struct GANTRY_instance;

namespace gantry
{
struct Descriptor;
} // namespace gantry

namespace $derived
{

class GANTRY_API $leaf : public $server::$class
{
  public:
    $leaf(sdbusplus::bus::bus& bus, const char* path);
    $leaf(const $leaf&) = delete;
    $leaf($leaf&&) = delete;
    $leaf& operator=(const $leaf&) = delete;
    $leaf& operator=($leaf&&) = delete;
    ~$leaf() override;

)");
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add("    $result $operation($parameters) override;\n");
    }
    if (!interface.methods.empty())
    {
        source.blank();
    }
    source.add(R"(
    /** What the frame knows of this class. */
    GANTRY_HIDDEN static const gantry::Descriptor descriptor;

    /** The record that joins this object to its host. */
    GANTRY_instance* inst = nullptr;
};

} // namespace $derived
)");
    return source.text();
}

} // namespace gantrygen
