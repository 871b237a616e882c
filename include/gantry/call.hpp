/*
 * The answer of a C++ object's method that comes later: what <gantry/call.h> has for hosts in C. A
 * method in reply shape takes its answer with it, and what it returns is dropped:
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
 * Such a call is among the context's open calls, with the same limits, and closed with the context.
 * The answer may outlive its object. All is for the context's thread.
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

/** For gantry::defer() and DeferredReply: the type of a method's result is what the method returns.
 */
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

    /** Answers. Returns 0; EINVAL if the call is closed, since the client has left, say; EMSGSIZE
     * if the results don't fit into a message, and then the client gets an error; or another errno.
     */
    int reply(Results... results)
    {
        Result result{std::move(results)...};
        int error = 0;
        GANTRY_cpp_call_reply(&handle, &result, &error);
        handle = nullptr;
        return error;
    }

    /** Answers with an error, as GANTRY_call_refuse. Returns its errno. For a name that D-Bus
     * doesn't allow that is EINVAL, and the call stays open. */
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
 * Takes over the answer to the call of `object` that is being served. Results are those of the
 * method, as its override has them.
 *
 * Throws SdBusError with EINVAL if no call of the object's in reply shape is being served by the
 * thread's context, if it was deferred already, or if the method has other results; with ENOBUFS if
 * as many calls are open as may be, and then the client gets
 * org.freedesktop.DBus.Error.LimitsExceeded; or with ENOMEM.
 */
template <class... Results, class Class>
DeferredReply<Results...> defer(const Class& object)
{
    return DeferredReply<Results...>(GANTRY_cpp_call_defer(
        std::addressof(object), sizeof object, typeid(typename DeferredReply<Results...>::Result)));
}

} // namespace gantry
