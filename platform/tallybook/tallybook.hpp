// The platform's data store, as far as objects on the bus are registered there: a key stands for
// the object that carries it. All three operations may be called from any thread.
#pragma once

#include <string>

namespace Tallybook
{

// Registers a key for the object of this class at this path. A key that is known already is taken
// over by the latest caller. The strings are copied. Throws std::bad_alloc.
__attribute__((visibility("default"))) void set_key(const std::string& key,
                                                    const std::string& class_name,
                                                    const std::string& object_path,
                                                    unsigned short caller_id);

// Forgets a key; one that is not known is no error.
__attribute__((visibility("default"))) void remove(const std::string& key) noexcept;

} // namespace Tallybook

// The id under which this process calls the store: 0 to 65535, the same for its whole life.
extern "C" __attribute__((visibility("default"))) int tallybook_caller_id(void);
