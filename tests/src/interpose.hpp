// Stand-ins: functions of the test program's with the names of libsystemd's or libc's. The dynamic
// linker prefers them, so what the library under test calls comes to them first.
#pragma once

#include <vector>

#include <dlfcn.h>

namespace interpose
{

// The function that a stand-in hides, to pass calls on to.
template <class Function>
Function* hidden(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

inline const void* library_of(const void* address)
{
    Dl_info info{};
    dladdr(address, &info);
    return info.dli_fbase;
}

// Whether a stand-in with this return address was called by the library under test, and not by
// another one or by the test.
inline bool is_called_by_library(const void* return_address)
{
    static const void* const library =
        library_of(reinterpret_cast<const void*>(hidden<void()>("GANTRY_dbus_loop")));
    return library_of(return_address) == library;
}

// The results that a stand-in gives to the next calls, before it passes calls on.
struct Script : std::vector<int>
{
    using vector::operator=;

    // `stand_in` is there for its type.
    template <class Function, class... Args>
    int next_or(const char* name, Function& /*stand_in*/, Args... args)
    {
        if (empty())
        {
            return hidden<Function>(name)(args...);
        }
        const int result = front();
        erase(begin());
        return result;
    }

    // Of a function that libsystemd and the client call too: a script without results, unless the
    // caller is the library.
    Script& for_library(const void* return_address)
    {
        static Script none;
        return is_called_by_library(return_address) ? *this : none;
    }
};

} // namespace interpose

// pthread_setspecific: what the pointer points at isn't read, and GCC takes it for unset.
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
// A stand-in by the name of `function` that `script` has the results of.
#define SCRIPTED(script, function, parameters, ...)                                                \
    static interpose::Script script;                                                               \
    int function parameters                                                                        \
    {                                                                                              \
        return script.next_or(#function, function, __VA_ARGS__);                                   \
    }
