#include "templates.hpp"

namespace gantrygen::templates
{

const std::string_view gantry_server_hpp = R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#pragma once

#include <$directory/gantry_server.h>
#include <$directory/server.hpp>

struct GANTRY_instance;

namespace gantry
{
struct Descriptor;
} // namespace gantry

namespace $derived
{

class GANTRY_API $leaf : public $server::$class
{
  public:
    $leaf(sdbusplus::bus_t& bus, const char* path);
    $leaf(const $leaf&) = delete;
    $leaf& operator=(const $leaf&) = delete;
    ~$leaf() override;

%if methods
%each methods
    $result $operation($parameters) override;
%end

%end
    /** What the frame knows of this class. */
    GANTRY_HIDDEN static const gantry::Descriptor descriptor;

    /** The record that joins this object to its host. */
    GANTRY_instance* inst = nullptr;
};

} // namespace $derived
)";

const std::string_view gantry_server_cpp = R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#include <$directory/gantry_server.hpp>

#include "object.hpp"
%if methods
#include "served_call.hpp"
#include "method_to_c.hpp"
%end
%if signals
#include "signal.hpp"
#include "subscription.hpp"
%end

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

$leaf::$leaf(sdbusplus::bus_t& bus, const char* path) :
    $server::$class(bus, path)
{
}

$leaf::~$leaf()
{
    gantry::release_record(inst);
}

%each methods
$result $leaf::$operation($parameters)
{
%if message
    gantry::dispatch_message<$dispatch>(
        GANTRY_HERE, inst$passed);
%else
    return gantry::dispatch<$dispatch>(GANTRY_HERE, inst$passed);
%end
}

%end
const gantry::Descriptor $leaf::descriptor{
    .interface = interface,
    .path = "$path",
    .vtable = _vtable,
%if properties
    .properties = &properties,
%else
    .properties = nullptr,
%end
    .create = gantry::create<$leaf>,
    .delete_as_class = gantry::delete_as_class<$leaf>,
    .deleter = deleter,
};

} // namespace $derived

void $instantiate(
    GANTRY_cpp_context* context, const $table* table,
    const char* path, void* user_private)
{
    gantry::instantiate(GANTRY_HERE, $leaf::descriptor, context, table, path, user_private);
}
%each methods

void $reply(GANTRY_call** call$replied, int* error)
{
    gantry::answer<$replies>(
        GANTRY_HERE, $leaf::descriptor, "$member",
        call, error$answered);
}
%end
%each signals

void $send(
    GANTRY_instance* instance$sent)
{
    gantry::send_signal<$leaf>(
        GANTRY_HERE, $leaf::descriptor, instance, &$leaf::$operation$handed);
}

void $receive(
    GANTRY_cpp_context* context, void (*callback)(GANTRY_cpp_context* context$received))
{
    gantry::receive_signal<$types>(GANTRY_HERE, context, "$member", callback);
}

void $subscribe(
    GANTRY_cpp_context* context, const GANTRY_match* from,
    void (*callback)(GANTRY_subscription* subscription$received, void* data), void* data,
    GANTRY_subscription** out, int* error)
{
    gantry::subscribe<$types>(
        GANTRY_HERE, "$interface", "$member",
        context, from, callback, data, out, error);
}
%end
)";

const std::string_view gantry_server_h = R"(
/* Made by gantrygen from $directory/server.xml. Changes belong there. */
#ifndef $guard
#define $guard

#include <gantry/context.h>
%if methods
#include <gantry/call.h>
%end
%if callable
#include <gantry/instance.h>
%end
%if properties
#include <gantry/property.h>
%end
%if records
#include <gantry/records.h>
%end
%if signals
#include <gantry/signal.h>
%end

GANTRY_BEGIN_C

%each structures
#ifndef $defined
#define $defined
/* $signature. Passed by pointer; a null pointer stands for zeros and empty values. */
typedef struct $structure
{
%each fields
    $field;
%end
} $structure;
#endif

%end
%if methods
/*
 * The host's callbacks for $interface, one per method.
 * They run on the context's thread, inside the dispatch loop. Inputs are valid only during the
 * call. Outputs start at zero or null. What a callback stores in them must come from malloc() or a
 * function like it, and the library frees it. A null callback replies with the zeros: 0, false,
 * empty.
 */
typedef struct $table
{
%each methods
%if comment
    /* $comment */
%end
    void (*$member)($function);
%end
} $table;

/*
 * Answers a deferred call of that method (GANTRY_call_defer) and sets *call to null. What the
 * values point to is only read; a null pointer means an empty value. *error gets 0; EINVAL if *call
 * isn't an open call of the method; EMSGSIZE if the values don't fit into a message, ENOMEM, or the
 * errno of a failed send: then the client gets an error. `error` may be null.
 */
%each methods
GANTRY_API void $reply(
    GANTRY_call** call$replied, int* error);
%end

%end
/*
 * Publishes an object of $interface.
 * A null `context` means the calling thread's.
%if methods
 * `table` is kept by pointer, so it must outlive the object; null means null callbacks.
%else
 * `table` is stored but never read, because the interface has no methods; pass null.
%end
 * `path` is copied; null means "$path".
 * `user_private` is kept for the host. A failure is only logged.
 */
GANTRY_API void $instantiate(
    GANTRY_cpp_context* context, const $table* table,
    const char* path, void* user_private);

%each signals
/*
%if comment
 * $comment
%end
 * Sends the signal $member from the object of `instance`. A null `instance`
 * means the first object of the interface on the calling thread's context.
%if points
 * What the arguments point to is only read; a null pointer means an empty value.
%end
 * A failure is only logged.
 */
GANTRY_API void $send(
    GANTRY_instance* instance$sent);

/*
 * Calls `callback` for every signal named $member that arrives, from any sender,
 * object and interface, until the context is freed. `callback` must not be null. It runs on the
 * context's thread, inside the dispatch loop.
%if points
 * What its arguments point to is valid only during the call.
%end
 * A null `context` means the calling thread's. A failure is only logged.
 */
GANTRY_API void $receive(
    GANTRY_cpp_context* context, void (*callback)(GANTRY_cpp_context* context$received));

/*
 * Calls `callback` with `data` for every signal $member of
 * $interface that `from` allows, until GANTRY_unsubscribe or until the
 * context is freed; a null `from` means from anyone. It runs on the context's thread, inside the
 * dispatch loop, and may call any function, GANTRY_signal_get_sender(subscription) for one.
%if points
 * What its arguments point to is valid only during the call.
%end
 * *out is the subscription's name, or null on an error; a null `out` asks for none. A null
 * `context` means the calling thread's. *error gets 0; EINVAL if `callback` is null, or a name or
 * path of `from` isn't valid, or both paths are set; or the errno of what the bus or memory
 * refused, and all of these are also logged. `error` may be null.
 */
GANTRY_API void $subscribe(
    GANTRY_cpp_context* context, const GANTRY_match* from,
    void (*callback)(GANTRY_subscription* subscription$received, void* data), void* data,
    GANTRY_subscription** out, int* error);

%end
GANTRY_END_C

%if properties
/*
 * The properties of $interface: for each its name, its setter and its
 * getter. These are the functions of <gantry/property.h> for its type, which is the one that the
 * compiler checks `value` and `out` for. They are macros, as 1,500 functions would double the time
 * that a host takes to compile. Without NDEBUG they also see whether the instance's object is of
 * this interface; one of another is EINVAL.
 */
%each properties

%if comment
/* $comment */
%end
#define $name \
    "$member"
%if suffix
#define $setter(instance, value, skip_signal, error) \
    GANTRY_property_set_$suffix(GANTRY_instance_of(instance, "$interface"), \
        "$member", value, skip_signal, error)
#define $getter(instance, out, error) \
    GANTRY_property_get_$suffix(GANTRY_instance_of(instance, "$interface"), \
        "$member", out, error)
%else
/* A host in C can't set or get it: there are no functions for $signature. */
%end
%end

%end
#endif
)";

} // namespace gantrygen::templates
