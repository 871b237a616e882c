#include "emit.hpp"
#include "source.hpp"

namespace gantrygen
{
namespace
{

void add_descriptor(Source& source, const Interface& interface)
{
    source.add(R"(
const gantry::Descriptor $leaf::descriptor{
    .interface = interface,
    .path = "$path",
    .vtable = _vtable,
)");
    source.add(interface.properties.empty() ? "    .properties = nullptr,\n"
                                            : "    .properties = &properties,\n");
    source.add(R"(
    .create = gantry::create<$leaf>,
    .instance_of = gantry::instance_of<$leaf>,
    .delete_as_class = gantry::delete_as_class<$leaf>,
    .deleter = deleter,
};

)");
}

void add_overrides(Source& source, const Interface& interface)
{
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add(R"(
$result $leaf::$operation($parameters)
{
    $dispatch(GANTRY_HERE, inst$passed);
}

)");
    }
}

void add_signals(Source& source, const Interface& interface)
{
    for (const Signal& signal : interface.signals)
    {
        source.let(words_of(interface, signal));
        source.add(R"(

void $send(GANTRY_instance* instance$sent)
{
    gantry::send_signal<$leaf>(GANTRY_HERE, $leaf::descriptor, instance, &$leaf::$operation$passed);
}

void $receive(GANTRY_cpp_context* context, void (*callback)(GANTRY_cpp_context* context$received))
{
    gantry::receive_signal<$types>(GANTRY_HERE, context, "$member", callback);
}
)");
    }
}

} // namespace

std::string emit_gantry_server_cpp(const Interface& interface)
{
    Source source(words_of(interface));
    source.add(R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#include <$directory/gantry_server.hpp>

#include "object.hpp"
)");
    source.add(interface.methods.empty() ? "" : "#include \"method_dispatch.hpp\"\n");
    source.add(interface.signals.empty() ? "" : "#include \"signal.hpp\"\n");
    source.add(R"(

namespace
{

using $derived::$leaf;

constexpr char source_stem[] = "gantry_server";

void deleter(void* object)
{
    gantry::delete_object(object, $leaf::descriptor);
}

} // namespace

namespace $derived
{

$leaf::$leaf(sdbusplus::bus::bus& bus, const char* path) :
    $server::$class(bus, path)
{
}

$leaf::~$leaf()
{
    gantry::release_record(inst);
}

)");
    add_overrides(source, interface);
    add_descriptor(source, interface);
    source.add(R"(
} // namespace $derived

void $instantiate(GANTRY_cpp_context* context, const $table* table, const char* path, void* user_private)
{
    gantry::instantiate(GANTRY_HERE, $leaf::descriptor, context, table, path, user_private);
}
)");
    add_signals(source, interface);
    return source.text();
}

} // namespace gantrygen
