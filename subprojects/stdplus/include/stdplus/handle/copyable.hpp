// A copyable handle is a managed handle to something reference-counted: each copy takes and
// releases its own reference.
#pragma once

#include "stdplus/handle/managed.hpp"

#include <optional>
#include <tuple>
#include <utility>

namespace stdplus
{

/** T is the raw value, Args what `ref` and `drop` need besides the value. */
template <class T, class... Args>
struct Copyable
{
    /**
     * Takes references with `ref`, which returns the value that the copy owns, and releases them
     * with `drop`.
     */
    template <void (*drop)(T&&, Args&...), T (*ref)(const T&, Args&...)>
    class Handle : public Managed<T, Args...>::template Handle<drop>
    {
        using Base = typename Managed<T, Args...>::template Handle<drop>;

      public:
        /** Takes over the value's reference; empty if there is none. */
        template <class... Vs>
        explicit Handle(std::optional<T> value, Vs&&... vs) :
            Base(std::move(value), std::forward<Vs>(vs)...)
        {
        }

        Handle(const Handle& other) : Base(std::nullopt, other.data)
        {
            *this = other;
        }

        Handle& operator=(const Handle& other)
        {
            if (this != &other)
            {
                auto needed = other.data;
                std::optional<T> value;
                if (other)
                {
                    value = std::apply([&](Args&... args) { return ref(*other, args...); }, needed);
                }
                *this = Handle(std::move(value), std::move(needed));
            }
            return *this;
        }

        Handle(Handle&&) noexcept = default;
        Handle& operator=(Handle&&) noexcept = default;
        ~Handle() = default;
    };
};

} // namespace stdplus
