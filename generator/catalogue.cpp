#include "catalogue.hpp"

#include "names.hpp"

#include <algorithm>

namespace gantrygen
{

std::string emit_catalogue(std::vector<std::string> interfaces)
{
    std::sort(interfaces.begin(), interfaces.end());
    std::string text = "/* Made by gantrygen: the C functions of every interface. */\n"
                       "#ifndef GANTRY_CATALOGUE_H\n"
                       "#define GANTRY_CATALOGUE_H\n"
                       "\n";
    for (const std::string& interface : interfaces)
    {
        text += "#include <" + directory(interface) + "/gantry_server.h>\n";
    }
    text += "\n"
            "#endif\n";
    return text;
}

} // namespace gantrygen
