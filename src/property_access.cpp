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

/** Finds the row of a member of this type; gives 0, or the errno that says why there is none. */
int find(const GANTRY_instance* instance, const char* member, std::uint8_t type, const Row*& row)
{
    if (instance == nullptr)
    {
        return EINVAL;
    }
    const auto* properties = instance->descriptor->properties;
    row = properties != nullptr && member != nullptr ? properties->find(member) : nullptr;
    if (row == nullptr)
    {
        return ENOENT;
    }
    return row->type == type ? 0 : EINVAL;
}

int set(GANTRY_instance* instance, const char* member, std::uint8_t type, const void* value,
        bool skip_signal)
{
    const Row* row = nullptr;
    const int error = find(instance, member, type, row);
    if (error == 0)
    {
        set_from(*row, *static_cast<gantry::Object*>(instance->the_service), value, skip_signal);
    }
    return error;
}

/** Puts what a row's getter gives into an output of the type's C form. */
using Copy = void (*)(const Row& row, const gantry::Object& object, void* out);

template <class Type>
void copy(const Row& row, const gantry::Object& object, void* out)
{
    const auto getter = gantry::accessors_of<Type>(row).get;
    typename gantry::CForm<Type>::type form{};
    try
    {
        gantry::CForm<Type>::make(form, (object.*getter)());
    }
    catch (...)
    {
        gantry::CForm<Type>::release(form);
        throw;
    }
    std::memcpy(out, &form, sizeof form);
}

void get(const gantry::Place& place, const GANTRY_instance* instance, const char* member,
         std::uint8_t type, Copy copy, void* out, int* error)
{
    gantry::at_c_edge(place, error,
                      [&]
                      {
                          if (out == nullptr)
                          {
                              return EINVAL;
                          }
                          const Row* row = nullptr;
                          const int result = find(instance, member, type, row);
                          if (result == 0)
                          {
                              copy(*row, *static_cast<gantry::Object*>(instance->the_service), out);
                          }
                          return result;
                      });
}

void set_number(const gantry::Place& place, GANTRY_instance* instance, const char* member,
                std::uint8_t type, const void* value, bool skip_signal, int* error)
{
    gantry::at_c_edge(place, error,
                      [&] { return set(instance, member, type, value, skip_signal); });
}

/** The array record as the forms have it. */
using StringsForm = gantry::CForm<Texts>::type;

} // namespace

#define GANTRY_DEFINE_ACCESS(type, value_type)                                                     \
    void GANTRY_property_set_##type(GANTRY_instance* instance, const char* member,                 \
                                    value_type value, bool skip_signal, int* error)                \
    {                                                                                              \
        set_number(GANTRY_HERE, instance, member, PropertyTypes::tag<value_type>(), &value,        \
                   skip_signal, error);                                                            \
    }                                                                                              \
                                                                                                   \
    void GANTRY_property_get_##type(GANTRY_instance* instance, const char* member,                 \
                                    value_type* out, int* error)                                   \
    {                                                                                              \
        get(GANTRY_HERE, instance, member, PropertyTypes::tag<value_type>(), copy<value_type>,     \
            out, error);                                                                           \
    }
GANTRY_FIXED_SIZE_TYPES(GANTRY_DEFINE_ACCESS)
#undef GANTRY_DEFINE_ACCESS

void GANTRY_property_set_string(GANTRY_instance* instance, const char* member, const char* value,
                                bool skip_signal, int* error)
{
    gantry::at_c_edge(GANTRY_HERE, error,
                      [&]
                      {
                          const std::string text{value != nullptr ? value : ""};
                          return set(instance, member, PropertyTypes::tag<std::string>(), &text,
                                     skip_signal);
                      });
}

void GANTRY_property_get_string(GANTRY_instance* instance, const char* member, char** out,
                                int* error)
{
    get(GANTRY_HERE, instance, member, PropertyTypes::tag<std::string>(), copy<std::string>, out,
        error);
}

void GANTRY_property_set_strings(GANTRY_instance* instance, const char* member,
                                 const GANTRY_string_array* value, bool skip_signal, int* error)
{
    gantry::at_c_edge(GANTRY_HERE, error,
                      [&]
                      {
                          // Only read.
                          const Texts texts = gantry::CForm<Texts>::read((StringsForm)(value));
                          return set(instance, member, PropertyTypes::tag<Texts>(), &texts,
                                     skip_signal);
                      });
}

void GANTRY_property_get_strings(GANTRY_instance* instance, const char* member,
                                 GANTRY_string_array** out, int* error)
{
    get(GANTRY_HERE, instance, member, PropertyTypes::tag<Texts>(), copy<Texts>, out, error);
}

void GANTRY_strings_free(GANTRY_string_array** strings)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (strings != nullptr)
    {
        auto* form = reinterpret_cast<StringsForm>(std::exchange(*strings, nullptr));
        gantry::CForm<Texts>::release(form);
    }
}
