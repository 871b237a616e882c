// The part of the platform's data store that registers objects on the bus: a key identifies the
// object that has it. All three functions may be called from any thread.
#pragma once

#include <string>

namespace Tallybook
{

/**
 * Registers a key for the object of this class at this path; the latest caller replaces an earlier
 * registration of the key. The strings are copied. Throws std::bad_alloc.
 */
__attribute__((visibility("default"))) void set_key(const std::string& key,
                                                    const std::string& class_name,
                                                    const std::string& object_path,
                                                    unsigned short caller_id);

/** Removes a key. An unknown key is not an error. */
__attribute__((visibility("default"))) void remove(const std::string& key) noexcept;

} // namespace Tallybook

/** The id under which this process calls the store: 0 to 65535, constant for the process's life. */
extern "C" __attribute__((visibility("default"))) int tallybook_caller_id(void);
