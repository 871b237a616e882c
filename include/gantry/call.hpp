/*
 * How a method of a C++ object is answered later, as <gantry/call.h> has it for hosts in C. A
 * method in reply shape stores an object that answers the call, and what it returns is dropped:
 *
 *     class Slot : public sdbusplus::server::com::orvane::velmar::system::NicSlot
 *     {
 *         std::tuple<int, std::string> triggerAdapterCoreDump(...) override
 *         {
 *             dump = gantry::defer<int, std::string>(*this);
 *             return {};
 *         }
 *         gantry::DeferredReply<int, std::string> dump; // later: dump.reply(0, "done");
 *     };
 *
 * Such a call counts among the context's open calls, with the same limits, and is closed with the
 * context. The DeferredReply may outlive the object that was called. Call all functions on the
 * context's thread.
 */
#pragma once

#include <gantry/call.h>

#include <cstddef>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>

/** Called by gantry::defer() and DeferredReply. `result` is the type that the method returns. */
GANTRY_API GANTRY_call* GANTRY_cpp_call_defer(const void* object, std::size_t size,
                                              const std::type_info& result);
GANTRY_API void GANTRY_cpp_call_reply(GANTRY_call** call, void* result, int* error);
GANTRY_API void GANTRY_cpp_call_drop(GANTRY_call* call) noexcept;

namespace gantry
{

/** The answer to one call. If it is destroyed, or assigned to, without having answered, the client
 *  gets the error org.freedesktop.DBus.Error.NoReply. */
template <class... Results>
class DeferredReply
{
  public:
    /** The answer to no call. */
    DeferredReply() noexcept = default;
    explicit DeferredReply(GANTRY_call* deferred) noexcept : handle(deferred)
    {
    }
    DeferredReply(DeferredReply&& from) noexcept : handle(std::exchange(from.handle, nullptr))
    {
    }
    DeferredReply& operator=(DeferredReply&& from) noexcept
    {
        std::swap(handle, from.handle);
        from.drop();
        return *this;
    }
    DeferredReply(const DeferredReply&) = delete;
    DeferredReply& operator=(const DeferredReply&) = delete;
    ~DeferredReply()
    {
        drop();
    }

    /** Whether there is a call that wasn't answered. The client may have left. */
    explicit operator bool() const noexcept
    {
        return handle != nullptr;
    }

    /** For GANTRY_call_on_cancel. Null if there is no call to answer. */
    [[nodiscard]] GANTRY_call* call() const noexcept
    {
        return handle;
    }

    /** Answers. Returns 0; EINVAL if the call is closed, for example because the client has left;
     * EMSGSIZE if the results don't fit into a message, and then the client gets an error; or
     * another errno. */
    int reply(Results... results)
    {
        Result result{std::move(results)...};
        int error = 0;
        GANTRY_cpp_call_reply(&handle, &result, &error);
        handle = nullptr;
        return error;
    }

    /** Answers with an error, as GANTRY_call_refuse does, and returns its errno. For a name that
     * D-Bus doesn't allow that is EINVAL, and the call stays open. */
    int refuse(const std::string& name, const std::string& text)
    {
        int error = 0;
        GANTRY_call_refuse(&handle, name.c_str(), text.c_str(), &error);
        return error;
    }

    /** What a method with these results returns: one value, or a tuple of several. */
    using Result = typename std::conditional_t<sizeof...(Results) == 1,
                                               std::tuple_element<0, std::tuple<Results..., void>>,
                                               std::type_identity<std::tuple<Results...>>>::type;

  private:
    void drop() noexcept
    {
        GANTRY_cpp_call_drop(std::exchange(handle, nullptr));
    }

    GANTRY_call* handle = nullptr;
};

/**
 * Defers the answer to the call of `object` that is being served. Results are the types of the
 * method's results, as its override has them.
 *
 * Throws SdBusError with EINVAL if the thread's context is serving no call of the object in reply
 * shape, if the call was deferred already, or if the method has other results; with ENOBUFS if as
 * many calls are open as may be, and then the client gets
 * org.freedesktop.DBus.Error.LimitsExceeded; or with ENOMEM.
 */
template <class... Results, class Class>
DeferredReply<Results...> defer(const Class& object)
{
    return DeferredReply<Results...>(GANTRY_cpp_call_defer(
        std::addressof(object), sizeof object, typeid(typename DeferredReply<Results...>::Result)));
}

} // namespace gantry
