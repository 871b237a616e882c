#include "property_data_store.hpp"

#include "property_callbacks.hpp"

#include <tallybook.hpp>

namespace gantry
{

std::string set_key(std::string& stored, std::string& value, bool skip_signal, Object& object,
                    const Property<Object>& row, const char* class_name)
{
    static_cast<void>(set(stored, value, skip_signal, object, row));
    // Set or equal before, the stored value is the one that was given.
    Tallybook::set_key(stored, class_name, object.server_interface.path(),
                       static_cast<unsigned short>(tallybook_caller_id()));
    return stored;
}

void remove_key(const std::string& stored)
{
    Tallybook::remove(stored);
}

} // namespace gantry
