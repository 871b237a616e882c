/* What C++ does for the host. */
#ifndef SPARE_H
#define SPARE_H

#include <gantry/gantry.h>

GANTRY_BEGIN_C

/* Sets the pump's curve, whose type has no form in C. */
void set_curve(GANTRY_instance* pump);

/* Publishes a pump that is a C++ object, until the process ends. */
bool publish_spare(GANTRY_cpp_context* context);

GANTRY_END_C

#endif
