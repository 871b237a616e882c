// The dynamic linker prefers a program's functions, also for libc's strdup and libstdc++'s new.
#include "support/memory.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#ifdef __SANITIZE_ADDRESS__
extern "C" void __sanitizer_malloc_hook(const volatile void* /*block*/, std::size_t /*size*/)
{
    ++*memory::blocks;
}

extern "C" void __sanitizer_free_hook(const volatile void* block)
{
    *memory::blocks -= block != nullptr ? 1 : 0;
}
#else
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t number, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void __libc_free(void* block);

static bool fails()
{
    const long index = memory::counts ? memory::count++ : -1;
    const bool is_failing = index >= memory::first_failing && index < memory::behind_failing;
    errno = is_failing ? ENOMEM : errno;
    return is_failing;
}

static void* taken(void* block)
{
    *memory::blocks += block != nullptr ? 1 : 0;
    return block;
}

void* malloc(std::size_t size) noexcept
{
    return fails() ? nullptr : taken(__libc_malloc(size));
}

void* calloc(std::size_t number, std::size_t size) noexcept
{
    return fails() ? nullptr : taken(__libc_calloc(number, size));
}

void* realloc(void* block, std::size_t size) noexcept
{
    void* const moved = fails() ? nullptr : __libc_realloc(block, size);
    return block == nullptr ? taken(moved) : moved;
}

void free(void* block) noexcept
{
    *memory::blocks -= block != nullptr ? 1 : 0;
    __libc_free(block);
}
#endif
