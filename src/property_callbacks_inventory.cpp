#include "property_callbacks_impl.hpp"

namespace gantry
{

GANTRY_NUMBER_PROPERTY(bool)
GANTRY_NUMBER_PROPERTY(double)
GANTRY_NUMBER_PROPERTY(short)
GANTRY_NUMBER_PROPERTY(unsigned short)
GANTRY_NUMBER_PROPERTY(unsigned int)
GANTRY_NUMBER_PROPERTY(unsigned long)
GANTRY_NUMBER_PROPERTY(unsigned char)
GANTRY_PROPERTY(std::string)
GANTRY_PROPERTY(std::vector<std::string>)

} // namespace gantry
