/*
 * One interface's member table, as a table describes it: names and types as on the bus, members of
 * each kind in table order, and the line of each for diagnostics. `doc` is for readers alone: what
 * the name doesn't say.
 */
#pragma once

#include "types.hpp"

#include <optional>
#include <string>
#include <vector>

namespace gantrygen
{

/** Of a method or a signal. Its position identifies it; the name may be empty, and is C's alone. */
struct Argument
{
    Type type;
    std::string name;
    int line;
};

struct Method
{
    /** Who makes the reply: the bus callback, from the method's result, or the method itself, which
     *  receives the message. */
    enum class Shape
    {
        reply,
        message,
    };

    std::string name;
    std::vector<Argument> inputs;
    std::vector<Argument> outputs;
    Shape shape;
    bool privileged;
    std::string doc;
    int line;
};

struct Signal
{
    std::string name;
    std::vector<Argument> arguments;
    std::string doc;
    int line;
};

struct Property
{
    std::string name;
    Type type;
    bool writable;

    /** Clients are told that the value never changes; otherwise, of each change. */
    bool constant;

    /** The value is the key under which the platform's data store knows the object. */
    bool data_store_key;

    /** As the table writes it. Absent: zero, false or empty. */
    std::optional<std::string> initial;

    std::string doc;
    int line;
};

struct Interface
{
    /** The table's path as it was given. */
    std::string file;

    std::string name;
    std::vector<Method> methods;
    std::vector<Signal> signals;
    std::vector<Property> properties;

    /** One line, and what is to be said of several members. */
    std::string summary;
    std::string doc;

    int line;
};

} // namespace gantrygen
