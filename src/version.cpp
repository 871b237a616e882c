#include <gantry/version.h>

const char* GANTRY_version(void)
{
    return GANTRY_VERSION;
}
