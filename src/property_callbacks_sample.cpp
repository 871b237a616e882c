/*
 * What only the sample interface has: composite types, and properties that a client can write.
 */
#include "property_callbacks_impl.hpp"

namespace gantry
{

GANTRY_NUMBER_PROPERTY(int)
GANTRY_NUMBER_PROPERTY(long)

GANTRY_WRITABLE_PROPERTY(bool)
GANTRY_WRITABLE_PROPERTY(double)
GANTRY_WRITABLE_PROPERTY(short)
GANTRY_WRITABLE_PROPERTY(unsigned short)
GANTRY_WRITABLE_PROPERTY(unsigned int)
GANTRY_WRITABLE_PROPERTY(unsigned long)
GANTRY_WRITABLE_PROPERTY(unsigned char)
GANTRY_WRITABLE_PROPERTY(int)
GANTRY_WRITABLE_PROPERTY(long)
GANTRY_WRITABLE_PROPERTY(std::string)
GANTRY_WRITABLE_PROPERTY(std::vector<std::string>)

#define GANTRY_COMPOSITE_PROPERTY(...)                                                             \
    GANTRY_PROPERTY(__VA_ARGS__)                                                                   \
    GANTRY_WRITABLE_PROPERTY(__VA_ARGS__)

using Bytes = std::vector<unsigned char>;
using Nested = std::tuple<std::tuple<unsigned char, std::tuple<unsigned short, unsigned int>>, int,
                          std::tuple<long, unsigned long>>;

GANTRY_COMPOSITE_PROPERTY(Bytes)
GANTRY_COMPOSITE_PROPERTY(std::vector<Bytes>)
GANTRY_COMPOSITE_PROPERTY(std::vector<std::set<Bytes>>)
GANTRY_COMPOSITE_PROPERTY(std::map<unsigned short, std::string>)
GANTRY_COMPOSITE_PROPERTY(std::map<std::string, Triple>)
GANTRY_COMPOSITE_PROPERTY(std::map<std::string, std::variant<short, std::string, Triple>>)
GANTRY_COMPOSITE_PROPERTY(std::set<int>)
GANTRY_COMPOSITE_PROPERTY(std::set<std::tuple<unsigned char>>)
GANTRY_COMPOSITE_PROPERTY(std::set<Triple>)
GANTRY_COMPOSITE_PROPERTY(Triple)
GANTRY_COMPOSITE_PROPERTY(Nested)
GANTRY_COMPOSITE_PROPERTY(std::variant<unsigned char, Triple, std::string>)

} // namespace gantry
