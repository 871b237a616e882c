/*
 * What a host in C does with properties by their names: set one from a C value, get one as a C
 * value, and announce several in one signal.
 *
 * For each type there is a setter and a getter, which call one function each. The row of the name
 * has the property's type, which must be the type of the function, and the accessors, which do the
 * work.
 *
 * sd-bus drops the whole signal for one name that it doesn't know, or whose property never
 * announces a change. So names are checked first, and such a name is left out.
 */
#include "announcement.hpp"
#include "c_form.hpp"
#include "connection.hpp"
#include "context_state.hpp"
#include "deferred_destruction.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"
#include "instance.hpp"
#include "property_by_name.hpp"

#include <gantry/property.hpp>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{

constexpr char source_stem[] = "property_c";

using gantry::PropertyTypes;
using Row = gantry::Property<gantry::Object>;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;

/** No array in a message has more elements: each has at least a byte, and the array at most 64 MiB.
 */
constexpr unsigned long max_count = 64UL << 20U;

/** Finds the row of a member. Returns 0, or the errno if there is none. */
int find(const GANTRY_instance* instance, const char* member, const Row*& row)
{
    if (instance == nullptr)
    {
        return EINVAL;
    }
    const auto* properties = instance->descriptor->properties;
    row = properties != nullptr && member != nullptr ? properties->find(member) : nullptr;
    return row != nullptr ? 0 : ENOENT;
}

/** Calls `use` for each property until it returns true. Returns whether it did. */
template <class Use>
bool for_each_property(const GANTRY_instance* instance, const Use& use)
{
    if (instance == nullptr)
    {
        return false;
    }
    for (const auto* row = instance->descriptor->vtable; row->type != _SD_BUS_VTABLE_END; ++row)
    {
        if (gantry::is_property(*row) && use(row->x.property.member, row->x.property.signature))
        {
            return true;
        }
    }
    return false;
}

/** The signature of a property's type; null if there is none of that name. */
const char* type_of(const GANTRY_instance* instance, const char* member)
{
    const char* type = nullptr;
    for_each_property(instance,
                      [&](const char* each, const char* signature)
                      {
                          const bool found = member != nullptr && std::strcmp(each, member) == 0;
                          type = found ? signature : nullptr;
                          return found;
                      });
    return type;
}

/** The signature of a type that has setters and getters here. */
const char* signature_of(std::uint8_t tag)
{
    constexpr std::pair<std::uint8_t, const char*> signatures[] = {
        {PropertyTypes::tag<unsigned char>(), "y"}, {PropertyTypes::tag<bool>(), "b"},
        {PropertyTypes::tag<short>(), "n"},         {PropertyTypes::tag<unsigned short>(), "q"},
        {PropertyTypes::tag<int>(), "i"},           {PropertyTypes::tag<unsigned int>(), "u"},
        {PropertyTypes::tag<long>(), "x"},          {PropertyTypes::tag<unsigned long>(), "t"},
        {PropertyTypes::tag<double>(), "d"},        {PropertyTypes::tag<std::string>(), "s"},
        {PropertyTypes::tag<Bytes>(), "ay"},        {PropertyTypes::tag<Texts>(), "as"},
    };
    const auto* found = std::find_if(std::begin(signatures), std::end(signatures),
                                     [tag](const auto& each) { return each.first == tag; });
    return found->second;
}

/** What a setter or getter that failed reports to host_boundary(). If `error` is null, logs the
 * failure here, with the property and both types. */
[[gnu::cold]] int report_failure(const gantry::Place& place, const GANTRY_instance* instance,
                                 const char* member, std::uint8_t type, int result,
                                 const int* error)
{
    if (error != nullptr)
    {
        return result;
    }
    const char* actual = type_of(instance, member);
    GANTRY_LOG_AT(place, gantry::log::failed,
                  "property [%s] of type [%s] accessed as [%s] at [%s]: %s",
                  member != nullptr ? member : "", actual != nullptr ? actual : "",
                  signature_of(type), instance != nullptr ? instance->path : "",
                  result == ENOENT ? "there is no such property" : strerrordesc_np(result));
    return gantry::already_logged(result);
}

int report(const gantry::Place& place, const GANTRY_instance* instance, const char* member,
           std::uint8_t type, int result, const int* error)
{
    return result == 0 ? 0 : report_failure(place, instance, member, type, result, error);
}

/** Sets a member, whose type must be `type`, from a value of it. Returns 0 or an errno. */
[[gnu::noinline]] int set(GANTRY_instance* instance, const char* member, const void* value,
                          bool skip_signal, std::uint8_t type)
{
    const Row* row = nullptr;
    if (const int error = find(instance, member, row); error != 0)
    {
        return error;
    }
    if (row->type != type)
    {
        return EINVAL;
    }
    try
    {
        gantry::set_by_type<PropertyTypes>[type](
            *row, *static_cast<gantry::Object*>(instance->the_service), value, skip_signal);
    }
    catch (const std::exception&)
    {
        GANTRY_LOG(gantry::log::failed, "property [%s] at [%s] was not set or not announced",
                   member, instance->path);
        throw;
    }
    return 0;
}

/** Called by all setters of numbers; the log has this name for all of them. */
[[gnu::noinline]] void property_set(GANTRY_instance* instance, const char* member,
                                    const void* value, bool skip_signal, int* error,
                                    std::uint8_t type)
{
    const auto here = GANTRY_HERE;
    gantry::host_boundary(here, error,
                          [&]
                          {
                              return report(here, instance, member, type,
                                            set(instance, member, value, skip_signal, type), error);
                          });
}

/** The body of a setter that copies a text or an array. */
template <class Type, class Form>
void set_copy(const gantry::Place& here, GANTRY_instance* instance, const char* member,
              const Form* form, bool skip_signal, int* error)
{
    const auto set_it = [&]
    {
        constexpr auto type = PropertyTypes::tag<Type>();
        if constexpr (!std::is_same_v<Type, std::string>)
        {
            if (form != nullptr && form->count > max_count)
            {
                return report(here, instance, member, type, EINVAL, error);
            }
        }
        const auto value = gantry::from_c<Type>(form);
        return report(here, instance, member, type,
                      set(instance, member, &value, skip_signal, type), error);
    };
    gantry::host_boundary(here, error, set_it);
}

/** Stores what a row's getter returns in an output of its C form. Returns 0 or an errno. */
using Copy = int (*)(const Row& row, const gantry::Object& object, void* out);

template <class Type>
int copy(const Row& row, const gantry::Object& object, void* out)
{
    if (row.type != PropertyTypes::tag<Type>())
    {
        return EINVAL;
    }
    const auto getter = gantry::accessors_of<Type>(row).get;
    typename gantry::CForm<Type>::type form{};
    try
    {
        Type value = (object.*getter)();
        gantry::CForm<Type>::make(form, value);
    }
    catch (...)
    {
        gantry::CForm<Type>::release(form);
        throw;
    }
    // NOLINTNEXTLINE(bugprone-sizeof-expression): for texts it is the pointer that is copied
    std::memcpy(out, &form, sizeof form);
    return 0;
}

/** Called by all getters; the log has this name for all of them. */
[[gnu::noinline]] void property_get(GANTRY_instance* instance, const char* member, void* out,
                                    int* error, Copy copy, std::uint8_t type)
{
    const auto here = GANTRY_HERE;
    gantry::host_boundary(
        here, error,
        [&]
        {
            const Row* row = nullptr;
            int result = out != nullptr ? find(instance, member, row) : EINVAL;
            result = result != 0
                         ? result
                         : copy(*row, *static_cast<gantry::Object*>(instance->the_service), out);
            return report(here, instance, member, type, result, error);
        });
}

} // namespace

#define GANTRY_DEFINE_ACCESS(type, value_type)                                                     \
    void GANTRY_property_set_##type(GANTRY_instance* instance, const char* member,                 \
                                    value_type value, bool skip_signal, int* error)                \
    {                                                                                              \
        property_set(instance, member, &value, skip_signal, error,                                 \
                     PropertyTypes::tag<value_type>());                                            \
    }                                                                                              \
                                                                                                   \
    void GANTRY_property_get_##type(GANTRY_instance* instance, const char* member,                 \
                                    value_type* out, int* error)                                   \
    {                                                                                              \
        property_get(instance, member, out, error, copy<value_type>,                               \
                     PropertyTypes::tag<value_type>());                                            \
    }
GANTRY_FIXED_SIZE_TYPES(GANTRY_DEFINE_ACCESS)
#undef GANTRY_DEFINE_ACCESS

void GANTRY_property_set_string(GANTRY_instance* instance, const char* member, const char* value,
                                bool skip_signal, int* error)
{
    set_copy<std::string>(GANTRY_HERE, instance, member, value, skip_signal, error);
}

void GANTRY_property_get_string(GANTRY_instance* instance, const char* member, char** out,
                                int* error)
{
    property_get(instance, member, out, error, copy<std::string>,
                 PropertyTypes::tag<std::string>());
}

#define GANTRY_DEFINE_ARRAY_ACCESS(types, record, Type)                                            \
    void GANTRY_property_set_##types(GANTRY_instance* instance, const char* member,                \
                                     const record* value, bool skip_signal, int* error)            \
    {                                                                                              \
        set_copy<Type>(GANTRY_HERE, instance, member, value, skip_signal, error);                  \
    }                                                                                              \
                                                                                                   \
    void GANTRY_property_get_##types(GANTRY_instance* instance, const char* member, record** out,  \
                                     int* error)                                                   \
    {                                                                                              \
        property_get(instance, member, out, error, copy<Type>, PropertyTypes::tag<Type>());        \
    }                                                                                              \
                                                                                                   \
    void GANTRY_##types##_free(record** types)                                                     \
    {                                                                                              \
        GANTRY_LOG(gantry::log::trace, "enter");                                                   \
        if ((types) != nullptr)                                                                    \
        {                                                                                          \
            using Form = gantry::CForm<Type>;                                                      \
            auto* form = reinterpret_cast<Form::type>(std::exchange(*(types), nullptr));           \
            Form::release(form);                                                                   \
        }                                                                                          \
    }
GANTRY_DEFINE_ARRAY_ACCESS(bytes, GANTRY_byte_array, Bytes)
GANTRY_DEFINE_ARRAY_ACCESS(strings, GANTRY_string_array, Texts)
#undef GANTRY_DEFINE_ARRAY_ACCESS

void GANTRY_property_get_type(GANTRY_instance* instance, const char* member, const char** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    *out = type_of(instance, member);
}

void GANTRY_property_list(GANTRY_instance* instance,
                          void (*each)(GANTRY_instance* instance, const char* member,
                                       const char* signature, void* data),
                          void* data)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance == nullptr || each == nullptr)
    {
        return;
    }
    auto& context = *instance->vctx;
    {
        // What `each` frees is destroyed after the last use of it here.
        const gantry::InCallback calling;
        for_each_property(instance,
                          [=](const char* member, const char* signature)
                          {
                              each(instance, member, signature, data);
                              return !instance->is_listed;
                          });
    }
    gantry::destroy_if_idle(context);
}

int GANTRY_cpp_property_announce(GANTRY_instance* instance, const char* const* members)
{
    if (instance == nullptr)
    {
        return EINVAL;
    }
    if (members == nullptr)
    {
        return 0;
    }

    const auto& descriptor = *instance->descriptor;
    const auto* properties = descriptor.properties;
    gantry::RowSet announced;
    const Row* header = nullptr;
    int error = 0;
    for (; *members != nullptr; ++members)
    {
        const auto* row = properties != nullptr ? properties->find(*members) : nullptr;
        if (row == nullptr)
        {
            GANTRY_LOG(gantry::log::failed, "there is no property [%s] of [%s] at [%s]", *members,
                       descriptor.interface, instance->path);
            error = error != 0 ? error : ENOENT;
        }
        else if (!row->announces)
        {
            GANTRY_LOG(gantry::log::failed, "property [%s] never announces a change", *members);
            error = error != 0 ? error : EINVAL;
        }
        else
        {
            announced.set(row->place);
            header = &row->header();
        }
    }
    if (header != nullptr)
    {
        gantry::announce(*instance->vctx, *static_cast<gantry::Object*>(instance->the_service),
                         *header, announced);
    }
    return error;
}

void GANTRY_property_announce(GANTRY_instance* instance, const char* const* members, int* error)
{
    gantry::host_boundary(GANTRY_HERE, error,
                          [&]
                          {
                              const int result = GANTRY_cpp_property_announce(instance, members);
                              return instance != nullptr ? gantry::already_logged(result) : result;
                          });
}

void GANTRY_context_hold_changes(GANTRY_cpp_context* context)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    context = gantry::resolve(GANTRY_HERE, context);
    if (context != nullptr)
    {
        ++context->state->changes.holds;
        context->state->changes.count();
    }
}

void GANTRY_context_send_changes(GANTRY_cpp_context* context, int* error)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    const auto here = GANTRY_HERE;
    const auto send = [&]
    {
        context = gantry::resolve(here, context);
        if (context == nullptr)
        {
            return gantry::already_logged(ENOTCONN);
        }
        auto& holds = context->state->changes.holds;
        if (holds == 0)
        {
            return EINVAL;
        }
        if (--holds == 0)
        {
            context->state->changes.count();
            gantry::end_hold(*context);
        }
        return 0;
    };
    gantry::host_boundary(here, error, send);
}
