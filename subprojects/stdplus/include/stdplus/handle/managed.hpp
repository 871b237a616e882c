// A managed handle owns one raw value (a pointer, a descriptor) and what its release needs, and
// releases the value exactly once. A moved-from handle is empty and releases nothing.
#pragma once

#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

namespace stdplus
{

/** T is the raw value, Args what its release needs besides the value. */
template <class T, class... Args>
struct Managed
{
    static_assert(std::is_trivially_copyable_v<T>, "a raw handle is copied like a pointer");

    /** Owns a value and passes it to `drop` when the handle is destroyed, reset or assigned. */
    template <void (*drop)(T&&, Args&...)>
    class Handle
    {
      public:
        /** Takes over the value's reference; empty if there is none. */
        template <class... Vs>
        explicit Handle(std::optional<T> value, Vs&&... vs) :
            data(std::forward<Vs>(vs)...), held(std::move(value))
        {
        }

        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;

        Handle(Handle&& other) noexcept :
            data(std::move(other.data)), held(std::exchange(other.held, std::nullopt))
        {
        }

        Handle& operator=(Handle&& other) noexcept
        {
            if (this != &other)
            {
                reset();
                data = std::move(other.data);
                held = std::exchange(other.held, std::nullopt);
            }
            return *this;
        }

        ~Handle()
        {
            reset();
        }

        explicit operator bool() const noexcept
        {
            return held.has_value();
        }

        /** Throws std::bad_optional_access if the handle is empty. */
        const T& operator*() const
        {
            return held.value();
        }

        /** Transfers the value to the caller, who must release it. */
        [[nodiscard]] std::optional<T> release() noexcept
        {
            return std::exchange(held, std::nullopt);
        }

        /** Releases the value now. */
        void reset()
        {
            if (auto value = release())
            {
                std::apply([&](Args&... args) { drop(std::move(*value), args...); }, data);
            }
        }

      protected:
        std::tuple<Args...> data;

      private:
        std::optional<T> held;
    };
};

} // namespace stdplus
