/*
 * Values as C sees them. Each server-side type has one C form: a number is itself, a string is heap
 * text, an array or a set is a pointer to an array record and a struct a pointer to a structure
 * record, recursively. CForm makes a form from a value, reads a form into a value, whose former
 * content it overwrites, and releases a form.
 *
 * Records are calloc()ed before they are filled, and null means empty at every level. So a record
 * that was only partly filled when memory ran out is released like a complete one.
 */
#pragma once

#include <gantry/types.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace gantry
{

/** calloc() that throws std::bad_alloc. */
inline void* allocate(std::size_t count, std::size_t size)
{
    void* block = std::calloc(count, size);
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    return block;
}

/** Numbers: the form is the value. */
template <class Type>
struct CForm
{
    static_assert(std::is_arithmetic_v<Type>, "this type has no C form");

    using type = Type;

    static void make(type& form, const Type& value)
    {
        form = value;
    }
    static void read(type form, Type& value)
    {
        value = form;
    }
    static void release(type& /*form*/) noexcept
    {
    }
};

/** Reads the form of a text; null is the empty text. */
GANTRY_API void read_text(const char* form, std::string& value);

template <>
struct CForm<std::string>
{
    using type = char*;

    static void make(type& form, const std::string& value)
    {
        // The function only reads its argument. Its parameter isn't const, since hosts link to it.
        form = GANTRY_string_cpp_to_c(const_cast<std::string&>(value));
    }
    static void read(const char* form, std::string& value)
    {
        read_text(form, value);
    }
    static void release(type& form) noexcept
    {
        GANTRY_string_free(&form);
    }
};

/** The layout of every array record. */
template <class Element>
struct ArrayRecord
{
    Element* data;
    unsigned long count;
};

/** Arrays and sets. */
template <class Container>
struct ArrayForm
{
    using Value = typename Container::value_type;
    using Element = CForm<Value>;
    using Record = ArrayRecord<typename Element::type>;
    using type = Record*;

    static constexpr bool is_block = std::is_arithmetic_v<Value>;

    static void make(type& form, const Container& values)
    {
        if (values.empty())
        {
            return;
        }
        form = static_cast<type>(allocate(1, sizeof(Record)));
        form->data = static_cast<decltype(form->data)>(
            allocate(values.size(), sizeof(typename Element::type)));
        form->count = values.size();
        if constexpr (is_block)
        {
            std::copy(values.begin(), values.end(), form->data);
        }
        else
        {
            auto* element = form->data;
            for (const auto& value : values)
            {
                Element::make(*element++, value);
            }
        }
    }

    static void read(type form, Container& values)
    {
        const std::size_t count = form != nullptr && form->data != nullptr ? form->count : 0;
        if constexpr (is_block)
        {
            const auto* first = count > 0 ? form->data : nullptr;
            values = Container(first, first + count);
        }
        else
        {
            values.resize(count);
            for (std::size_t index = 0; index < count; ++index)
            {
                Element::read(form->data[index], values[index]);
            }
        }
    }

    static void release(type& form) noexcept
    {
        if (form == nullptr)
        {
            return;
        }
        if constexpr (!is_block)
        {
            for (std::size_t index = 0; form->data != nullptr && index < form->count; ++index)
            {
                Element::release(form->data[index]);
            }
        }
        std::free(std::exchange(form->data, nullptr));
        std::free(std::exchange(form, nullptr));
    }
};

template <class Value>
struct CForm<std::vector<Value>> : ArrayForm<std::vector<Value>>
{
};

template <class Value>
struct CForm<std::set<Value>> : ArrayForm<std::set<Value>>
{
};

/** Structs: one field per member, in order, each at its natural alignment, as C lays them out. */
template <class... Members>
struct CForm<std::tuple<Members...>>
{
    using Value = std::tuple<Members...>;
    using type = void*;

    static constexpr std::size_t count = sizeof...(Members);

    struct Layout
    {
        std::array<std::size_t, count> offsets;
        std::size_t size;
    };

    static constexpr Layout layout = []
    {
        constexpr std::array sizes{sizeof(typename CForm<Members>::type)...};
        constexpr std::array alignments{alignof(typename CForm<Members>::type)...};
        Layout result{};
        std::size_t widest = 1;
        for (std::size_t index = 0; index < count; ++index)
        {
            const std::size_t alignment = alignments[index];
            result.offsets[index] = (result.size + alignment - 1) / alignment * alignment;
            result.size = result.offsets[index] + sizes[index];
            widest = std::max(widest, alignment);
        }
        result.size = (result.size + widest - 1) / widest * widest;
        return result;
    }();

    template <std::size_t index>
    static auto& field(type form)
    {
        using Field = typename CForm<std::tuple_element_t<index, Value>>::type;
        return *reinterpret_cast<Field*>(static_cast<std::byte*>(form) + layout.offsets[index]);
    }

    static void make(type& form, const Value& value)
    {
        form = allocate(1, layout.size);
        [&]<std::size_t... index>(std::index_sequence<index...>)
        {
            (CForm<Members>::make(field<index>(form), std::get<index>(value)), ...);
        }
        (std::make_index_sequence<count>{});
    }

    static void read(type form, Value& value)
    {
        if (form == nullptr)
        {
            value = Value{};
            return;
        }
        [&]<std::size_t... index>(std::index_sequence<index...>)
        {
            (CForm<Members>::read(field<index>(form), std::get<index>(value)), ...);
        }
        (std::make_index_sequence<count>{});
    }

    static void release(type& form) noexcept
    {
        if (form != nullptr)
        {
            [&]<std::size_t... index>(std::index_sequence<index...>)
            {
                (CForm<Members>::release(field<index>(form)), ...);
            }
            (std::make_index_sequence<count>{});
            std::free(std::exchange(form, nullptr));
        }
    }
};

/** The value of a form. */
template <class Type>
Type read_form(typename CForm<Type>::type form)
{
    Type value{};
    CForm<Type>::read(form, value);
    return value;
}

/** A C argument as the host's header declares it, turned into a value. */
template <class Value, class Form>
Value from_c(Form form)
{
    if constexpr (std::is_pointer_v<Form>)
    {
        // The form is only read, and stays the host's.
        return read_form<Value>((typename CForm<Value>::type)(form));
    }
    else
    {
        return read_form<Value>(form);
    }
}

/**
 * The C forms of several values, zero at first. They are released in the order of the types, which
 * a host with its own allocator can observe.
 */
template <class... Types>
class CForms
{
  public:
    CForms() = default;
    ~CForms()
    {
        std::apply([](auto&... form) { (CForm<Types>::release(form), ...); }, forms);
    }
    CForms(const CForms&) = delete;
    CForms(CForms&&) = delete;
    CForms& operator=(const CForms&) = delete;
    CForms& operator=(CForms&&) = delete;

    void make(const Types&... values)
    {
        std::apply([&](auto&... form) { (CForm<Types>::make(form, values), ...); }, forms);
    }

    std::tuple<typename CForm<Types>::type...> forms{};
};

} // namespace gantry
