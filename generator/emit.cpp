#include "emit.hpp"

namespace gantrygen
{

std::vector<Output> emit(const Interface& interface)
{
    return {
        {"server.hpp", emit_server_hpp(interface)},
        {"server.cpp", emit_server_cpp(interface)},
        {"gantry_server.hpp", emit_gantry_server_hpp(interface)},
        {"gantry_server.cpp", emit_gantry_server_cpp(interface)},
        {"gantry_server.h", emit_gantry_server_h(interface)},
    };
}

} // namespace gantrygen
