#include "inventory.h"

#include <com/orvane/velmar/hwi/HWISupport/gantry_server.h>

#include <stddef.h>

static const char member[] = "isready";

/* A client may call this method instead of reading the property. */
static void query_is_ready(GANTRY_instance* instance, bool* ready)
{
    GANTRY_property_get_boolean(instance, member, ready, NULL);
}

static const GANTRY_table__com_orvane_velmar_hwi_HWISupport callbacks = {
    .queryIsReady = query_is_ready,
};

void publish_readiness(GANTRY_cpp_context* context)
{
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(context, &callbacks, NULL, NULL);
}

void declare_readiness(GANTRY_cpp_context* context)
{
    GANTRY_instance* instance = NULL;
    GANTRY_instance_find(context, "com.orvane.velmar.hwi.HWISupport", NULL, &instance);
    GANTRY_property_set_boolean(instance, member, true, false, NULL);
}
