/*
 * The words that the templates of one interface use. Those of the interface:
 *
 *     interface, leaf             com.orvane.velmar.system.BLT, BLT
 *     directory, path             com/orvane/velmar/system/BLT, and its default object path
 *     common, server, class       the namespaces of the common and the server class, their name
 *     derived                     the namespace of the derived class, whose name is the leaf
 *     instantiate, table, guard   C names; the table's type is void if there is no method
 *     variant                     the type of PropertyVariant
 *     summary, doc                what it is, and what concerns several members
 *     callable, records           not empty if the C header needs <gantry/instance.h>, records.h
 *     headers                     a list: header
 *     structures                  a list: structure, defined (its guard), signature, and fields,
 *                                 a list: field
 *     methods, signals, properties
 *
 * Every method, signal and property has `member`, its name on the bus. A list of arguments that
 * others precede begins with a comma: passed, sent, received. Words for the listings alone are
 * privileged, initial, flags, summary and doc. `comment` is the doc of a member or the summary of
 * the interface, for C.
 *
 *     method      operation, result, parameters, passed    the C++ operation
 *                 callback, call, inputs, outputs, flag    its callback, and its row in the vtable
 *                 function, dispatch                       the host's function, and what calls it
 *                 reply, replied, replies, answered        the C function that answers later: its
 *                                                          name, parameters, and what it calls
 *                 message                                  not empty if it makes its own reply
 *     signal      operation, parameters, passed, types     the C++ operation
 *                 signature                                for its row in the vtable
 *                 send, receive, subscribe                 the C functions
 *                 sent, handed, received                   their parameters, and what they pass on
 *                 points                                   not empty if an argument is a pointer
 *     property    accessor, type, start                    the C++ accessors, and the data member
 *                 get, set, access, signature, flag        the callbacks, and the row in the vtable
 *                 silent                                   for the row of a property that is const
 *                 number, writable, key                    not empty if it is that
 *                 name, setter, getter                     the constant and the accessors in C
 *                 suffix                                   of what they call; empty without them
 */
#pragma once

#include "model.hpp"
#include "template.hpp"

namespace gantrygen
{

/** The words of a valid table (validate.hpp). */
Words words_of(const Interface& interface);

/**
 * The words of several tables:
 *
 *     interfaces      a list: the words of each
 *     index           a list of all members' names in alphabetical order: name, and places, a list
 *                     of the interfaces that have it: interface, leaf
 *     types           the list of the types that properties have, and headers, a list of what it
 *                     needs: header
 *     plain           a list of what is compiled for the types that a host in C has: kind, type
 *     composite       the same for the others, and for clients' writes
 */
Words words_of(const std::vector<Interface>& interfaces);

} // namespace gantrygen
