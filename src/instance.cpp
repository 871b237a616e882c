#include "instance.hpp"

#include <cstdlib>
#include <cstring>
#include <new>

namespace gantry
{

void release(GANTRY_instance* instance) noexcept
{
    if (instance != nullptr)
    {
        std::free(instance->path);
        delete instance;
    }
}

InstancePointer make_instance(GANTRY_cpp_context* context, const void* table, const char* path,
                              void* user_private)
{
    InstancePointer instance{
        new GANTRY_instance{context, table, strdup(path), user_private, nullptr}};
    if (instance->path == nullptr)
    {
        throw std::bad_alloc();
    }
    return instance;
}

} // namespace gantry
