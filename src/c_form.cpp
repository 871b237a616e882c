#include "c_form.hpp"

namespace gantry
{

// Not in the header: every object file would have its own copy of what std::string does here.
void CForm<std::string>::read(const char* form, std::string& value)
{
    value.assign(form != nullptr ? form : "");
}

} // namespace gantry
