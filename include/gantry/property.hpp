/*
 * What a C++ host needs of <gantry/property.h>: for single properties it has the accessors of the
 * generated class.
 */
#pragma once

#include <gantry/property.h>

/**
 * GANTRY_property_announce for an object's `inst`, which throws as the object's setters do: what a
 * getter throws that the signal asks for its value, and SdBusError when it can't be sent. Gives the
 * errno of the first name that was left out, or 0; EINVAL for a null instance.
 */
GANTRY_API int GANTRY_cpp_property_announce(GANTRY_instance* instance, const char* const* members);
