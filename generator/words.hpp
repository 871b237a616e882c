/*
 * The names that passages of generated code leave open, each under the word that stands for it.
 */
#pragma once

#include "model.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace gantrygen
{

using Words = std::map<std::string, std::string, std::less<>>;

/**
 * $interface, $directory, $path (the default one), $class, $common and $server (the namespaces of
 * the two classes), $leaf, $derived (the namespace of that class), $instantiate, $table (the type
 * of the C table; void if the interface has no methods), $guard.
 */
Words words_of(const Interface& interface);

/**
 * $member, $operation, $callback, $inputs and $outputs (the signatures), $flag (of its row, behind
 * a comma), $call (what the callback calls), $result, $parameters and $passed (of the C++
 * operation, the last behind a comma), $dispatch (what the override does), $slot (the parameters of
 * the host's function).
 */
Words words_of(const Method& method, std::size_t slot);

/**
 * $member, $operation, $signature, $parameters and $passed (of the emitting operation), $types (its
 * values'), $send and $receive (the exported functions), $sent and $received (their C parameters,
 * behind a comma).
 */
Words words_of(const Interface& interface, const Signal& signal);

/**
 * $member, $accessor, $signature, $type, $get and $set (the callbacks), $access (the callbacks of
 * its row), $flag, $start (how its data member is initialised).
 */
Words words_of(const Property& property);

} // namespace gantrygen
