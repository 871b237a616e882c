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

/** An argument of a method or a signal. Its position identifies it. The name may be empty, and only
 *  C code uses it. */
struct Argument
{
    Type type;
    std::string name;
    int line;
};

struct Method
{
    std::string name;
    std::vector<Argument> inputs;
    std::vector<Argument> outputs;

    /** Whether it gets the message and makes the reply itself; otherwise the bus callback makes the
     *  reply of its result. */
    bool makes_reply;

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

    /** Whether clients are told that the value never changes; otherwise each change is announced.
     */
    bool constant;

    /** Whether the value is the key under which the platform's data store knows the object. */
    bool data_store_key;

    /** The text in the table. If it is absent, the value is zero, false or empty. */
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

    /** What the interface is, in one line, and what concerns several members. */
    std::string summary;
    std::string doc;

    int line;
};

} // namespace gantrygen
