/*
 * Properties by their names and C values: for each type a setter and a getter, thin around one
 * function each. The row that the name finds has the type, which must be the function's own, and
 * the accessors, which do the rest.
 */
#include "by_name.hpp"
#include "c_edge.hpp"
#include "c_form.hpp"
#include "descriptor.hpp"

#include <gantry/property.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace
{

constexpr char source_stem[] = "property_access";

using gantry::PropertyTypes;
using Row = gantry::Property<gantry::Object>;
using Texts = std::vector<std::string>;

/** Finds the row of a member; gives 0, or the errno that says why there is none. */
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

/** Sets a member of this type from a value of it; gives 0 or an errno. */
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
    set_from(*row, *static_cast<gantry::Object*>(instance->the_service), value, skip_signal);
    return 0;
}

/** Behind all setters of numbers. Its name is theirs in the log. */
[[gnu::noinline]] void property_set(GANTRY_instance* instance, const char* member,
                                    const void* value, bool skip_signal, int* error,
                                    std::uint8_t type)
{
    gantry::at_c_edge(GANTRY_HERE, error,
                      [&] { return set(instance, member, value, skip_signal, type); });
}

/** Puts what a row's getter gives into an output of the type's C form; EINVAL for another type. */
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

/** Behind all getters. */
[[gnu::noinline]] void property_get(GANTRY_instance* instance, const char* member, void* out,
                                    int* error, Copy copy)
{
    gantry::at_c_edge(
        GANTRY_HERE, error,
        [&]
        {
            const Row* row = nullptr;
            const int result = out != nullptr ? find(instance, member, row) : EINVAL;
            return result != 0
                       ? result
                       : copy(*row, *static_cast<gantry::Object*>(instance->the_service), out);
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
        property_get(instance, member, out, error, copy<value_type>);                              \
    }
GANTRY_FIXED_SIZE_TYPES(GANTRY_DEFINE_ACCESS)
#undef GANTRY_DEFINE_ACCESS

void GANTRY_property_set_string(GANTRY_instance* instance, const char* member, const char* value,
                                bool skip_signal, int* error)
{
    gantry::at_c_edge(GANTRY_HERE, error,
                      [&]
                      {
                          const auto text = gantry::from_c<std::string>(value);
                          return set(instance, member, &text, skip_signal,
                                     PropertyTypes::tag<std::string>());
                      });
}

void GANTRY_property_get_string(GANTRY_instance* instance, const char* member, char** out,
                                int* error)
{
    property_get(instance, member, out, error, copy<std::string>);
}

void GANTRY_property_set_strings(GANTRY_instance* instance, const char* member,
                                 const GANTRY_string_array* value, bool skip_signal, int* error)
{
    gantry::at_c_edge(GANTRY_HERE, error,
                      [&]
                      {
                          const auto texts = gantry::from_c<Texts>(value);
                          return set(instance, member, &texts, skip_signal,
                                     PropertyTypes::tag<Texts>());
                      });
}

void GANTRY_property_get_strings(GANTRY_instance* instance, const char* member,
                                 GANTRY_string_array** out, int* error)
{
    property_get(instance, member, out, error, copy<Texts>);
}

void GANTRY_strings_free(GANTRY_string_array** strings)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (strings != nullptr)
    {
        auto* form = reinterpret_cast<gantry::CForm<Texts>::type>(std::exchange(*strings, nullptr));
        gantry::CForm<Texts>::release(form);
    }
}
