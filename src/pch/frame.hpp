/**
 * Precompiled: what nearly each source of the library includes.
 * A source includes what it uses all the same, since it is also compiled without this. No source
 * includes this file, so it needs no guard.
 */
#include "served_call.hpp"
#include "wire_size.hpp"

#include <gantry/context.hpp>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>
