/*
 * The one header that a host written in C includes.
 *
 * A host calls GANTRY_context_set_service, then one GANTRY_instantiate__* function for each object,
 * then a dispatch loop. README.md has a complete example.
 */
#ifndef GANTRY_GANTRY_H
#define GANTRY_GANTRY_H

#include <gantry/call.h>
#include <gantry/catalogue.h>
#include <gantry/context.h>
#include <gantry/instance.h>
#include <gantry/loop.h>
#include <gantry/property.h>
#include <gantry/records.h>
#include <gantry/signal.h>
#include <gantry/types.h>
#include <gantry/version.h>

#endif
