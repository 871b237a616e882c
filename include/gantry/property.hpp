/*
 * Announces several properties from C++. A host in C++ sets and gets a single property with the
 * accessors of the generated class.
 */
#pragma once

#include <gantry/property.h>

/**
 * Does what GANTRY_property_announce does, for an object's `inst`. Returns 0, the errno of the
 * first skipped name, or EINVAL for a null instance. Throws what a getter throws when the signal
 * reads its value, and SdBusError if the signal can't be sent.
 */
GANTRY_API int GANTRY_cpp_property_announce(GANTRY_instance* instance, const char* const* members);

namespace gantry
{

/** Holds changes back for as long as it exists, as GANTRY_context_hold_changes does. */
class HeldChanges
{
  public:
    /** Null means the calling thread's context. */
    explicit HeldChanges(GANTRY_cpp_context* context = nullptr) : of(context)
    {
        GANTRY_context_hold_changes(of);
    }
    /** Sends the changes; a failure is logged. */
    ~HeldChanges()
    {
        GANTRY_context_send_changes(of, nullptr);
    }
    HeldChanges(const HeldChanges&) = delete;
    HeldChanges(HeldChanges&&) = delete;
    HeldChanges& operator=(const HeldChanges&) = delete;
    HeldChanges& operator=(HeldChanges&&) = delete;

  private:
    GANTRY_cpp_context* of;
};

} // namespace gantry
