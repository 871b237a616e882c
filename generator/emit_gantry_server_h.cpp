#include "c_types.hpp"
#include "emit.hpp"
#include "source.hpp"

#include <algorithm>
#include <set>

namespace gantrygen
{
namespace
{

/** Every type that crosses to a host. */
std::vector<Type> crossing_types(const Interface& interface)
{
    std::vector<Type> types;
    const auto add = [&types](const std::vector<Argument>& arguments)
    {
        for (const Argument& argument : arguments)
        {
            types.push_back(argument.type);
        }
    };
    for (const Method& method : interface.methods)
    {
        add(method.inputs);
        add(method.outputs);
    }
    for (const Signal& signal : interface.signals)
    {
        add(signal.arguments);
    }
    return types;
}

void add_includes(Source& source, const Interface& interface, const std::vector<Type>& types)
{
    source.add("#include <gantry/context.h>\n");
    if (!interface.methods.empty() || !interface.signals.empty())
    {
        source.add("#include <gantry/instance.h>\n");
    }
    if (std::any_of(types.begin(), types.end(), [](const Type& type) { return !is_basic(type); }))
    {
        source.add("#include <gantry/records.h>\n");
    }
}

/** The records of structures, which another interface's header may declare too. */
void add_structures(Source& source, const std::vector<Type>& types)
{
    std::set<std::string> declared;
    for (const Type& type : types)
    {
        if (type.kind != Type::Kind::structure || !declared.insert(c_struct(type)).second)
        {
            continue;
        }
        source.let({{"structure", c_struct(type)},
                    {"defined", c_struct_guard(type)},
                    {"signature", signature(type)}});
        source.add(R"(
#ifndef $defined
#define $defined
/* $signature. Passed by pointer; a null pointer stands for zeros and empty values. */
typedef struct $structure
{
)");
        for (std::size_t index = 0; index < type.members.size(); ++index)
        {
            source.let(
                {{"field", c_type(type.members[index]) + " field" + std::to_string(index + 1)}});
            source.add("    $field;\n");
        }
        source.add(R"(
} $structure;
#endif

)");
    }
}

void add_table(Source& source, const Interface& interface)
{
    if (interface.methods.empty())
    {
        return;
    }
    source.add(R"(
/*
 * The host's callbacks for $interface, one a method. They run on the context's thread, inside the dispatch loop. Inputs are lent for the call. Outputs start at zero or null; what a callback stores in them comes from malloc() and the like and becomes the library's. A null callback leaves the zeros, which the client gets as the reply: 0, false, empty.
 */
typedef struct $table
{
)");
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add("    void (*$member)($slot);\n");
    }
    source.add(R"(
} $table;

)");
}

void add_creation(Source& source, const Interface& interface)
{
    source.let({{"kept",
                 interface.methods.empty()
                     ? "kept by pointer and never read, as the interface has no methods; pass null."
                     : "kept by pointer, so it must outlive the object; null is a table of null "
                       "callbacks."}});
    source.add(R"(
/*
 * Publishes an object of $interface on the context of the calling thread, which is what a null `context` means. `table` is $kept `path` is copied; null means "$path". `user_private` is kept for the host. A failure is told to the log only.
 */
GANTRY_API void $instantiate(GANTRY_cpp_context* context, const $table* table, const char* path, void* user_private);

)");
}

void add_signals(Source& source, const Interface& interface)
{
    for (const Signal& signal : interface.signals)
    {
        const bool points =
            std::any_of(signal.arguments.begin(), signal.arguments.end(),
                        [](const Argument& argument) { return !is_number(argument.type); });
        source.let(words_of(interface, signal));
        source.let(
            {{"read",
              points ? " What the arguments point to is only read; null stands for empty." : ""},
             {"lent", points ? "; what its arguments point to is lent for the call" : ""}});
        source.add(R"(
/*
 * Sends the signal $member from the object of `instance`, or for null from the first object of the interface that the calling thread's context has.$read A failure is told to the log only.
 */
GANTRY_API void $send(GANTRY_instance* instance$sent);

/*
 * Has `callback`, which must not be null, called for every signal of the name $member that arrives, whoever sends it, from whatever object and interface, until the context is freed. It runs on the context's thread, inside the dispatch loop$lent. A null `context` means the calling thread's. A failure is told to the log only.
 */
GANTRY_API void $receive(GANTRY_cpp_context* context, void (*callback)(GANTRY_cpp_context* context$received));

)");
    }
}

} // namespace

std::string emit_gantry_server_h(const Interface& interface)
{
    const std::vector<Type> types = crossing_types(interface);
    Source source(words_of(interface));
    source.add(R"(
/* Made by gantrygen from $directory/server.xml. Changes belong there. */
#ifndef $guard
#define $guard

)");
    add_includes(source, interface, types);
    source.add(R"(

GANTRY_BEGIN_C

)");
    add_structures(source, types);
    add_table(source, interface);
    add_creation(source, interface);
    add_signals(source, interface);
    source.add(R"(
GANTRY_END_C

#endif
)");
    return source.text();
}

} // namespace gantrygen
