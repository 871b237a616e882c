/*
 * All that a host written in C includes.
 *
 * A host's life: GANTRY_context_set_service, one GANTRY_instantiate__* call per object, then a
 * dispatch loop. README.md has one that runs.
 */
#ifndef GANTRY_GANTRY_H
#define GANTRY_GANTRY_H

#include <gantry/catalogue.h>
#include <gantry/context.h>
#include <gantry/instance.h>
#include <gantry/loop.h>
#include <gantry/property.h>
#include <gantry/records.h>
#include <gantry/types.h>

#endif
