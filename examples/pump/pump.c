/*
 * A host whose interface is its own: com/example/cooling/Pump/server.xml. It answers Prime when a
 * client has set a speed, allows no speed above 5000, and reads the temperature when it is asked.
 *
 *     busctl call com.example.Cooling /com/example/cooling/Pump com.example.cooling.Pump Prime u 9
 */
#define _POSIX_C_SOURCE 200809L /* strdup */

#include "spare.h"

#include <com/example/cooling/Pump/gantry_server.h>
#include <gantry/gantry.h>

#include <stdlib.h>
#include <string.h>

static GANTRY_call* priming;

static void prime(GANTRY_instance* instance, unsigned int seconds, char** note)
{
    (void)note;
    if (seconds == 0)
    {
        GANTRY_call_fail(instance, "com.example.Dry", "a pump takes time", NULL);
    }
    else if (priming == NULL)
    {
        GANTRY_call_defer(instance, &priming, NULL);
    }
}

static void on_write(GANTRY_instance* instance, const char* property, void* data)
{
    unsigned int speed = 0;
    (void)data;
    if (strcmp(property, GANTRY_name__com_example_cooling_Pump__Speed) != 0)
    {
        return;
    }
    GANTRY_property_get_uint32(instance, property, &speed, NULL);
    if (speed > 5000)
    {
        GANTRY_call_fail(instance, "com.example.TooFast", "5000 is the most", NULL);
    }
    else if (priming != NULL)
    {
        GANTRY_reply__com_example_cooling_Pump__Prime(&priming, "primed", NULL);
        GANTRY_signal__com_example_cooling_Pump__Primed(instance, "Pump.1", speed);
    }
}

static void on_read(GANTRY_instance* instance, void* data)
{
    double* temperature = data;
    *temperature += 0.5;
    GANTRY_set__com_example_cooling_Pump__Temperature(instance, *temperature, true, NULL);
}

static void on_primed(GANTRY_cpp_context* context, char* pump, unsigned int speed)
{
    GANTRY_instance* instance = NULL;
    unsigned int cycles = 0;
    char* texts[] = {pump, "primed"};
    GANTRY_string_array stages = {texts, speed > 0 ? 2 : 1};
    GANTRY_instance_find(context, "com.example.cooling.Pump", NULL, &instance);
    GANTRY_context_hold_changes(context);
    GANTRY_get__com_example_cooling_Pump__Cycles(instance, &cycles, NULL);
    GANTRY_set__com_example_cooling_Pump__Cycles(instance, cycles + 1, false, NULL);
    GANTRY_set__com_example_cooling_Pump__Stages(instance, &stages, false, NULL);
    GANTRY_context_send_changes(context, NULL);
}

int main(void)
{
    static const GANTRY_table__com_example_cooling_Pump table = {.Prime = prime};
    static double temperature = 20;
    GANTRY_cpp_context* context = NULL;
    GANTRY_instance* pump = NULL;
    int error = 0;
    GANTRY_context_new(&context);
    GANTRY_context_set_service(context, "com.example.Cooling");
    GANTRY_context_manage(context, "/com/example", &error);
    GANTRY_instantiate__com_example_cooling_Pump(context, &table, NULL, NULL);
    GANTRY_instance_get_created(context, &pump, &error);
    if (pump == NULL)
    {
        return EXIT_FAILURE; /* the log says why */
    }
    GANTRY_set__com_example_cooling_Pump__FQDD(pump, "Pump.1", false, NULL);
    GANTRY_instance_on_write(pump, on_write, NULL);
    GANTRY_instance_on_read(pump, on_read, &temperature);
    GANTRY_receive_signal__com_example_cooling_Pump__Primed(context, on_primed);
    set_curve(pump);
    if (!publish_spare(context))
    {
        return EXIT_FAILURE;
    }
    GANTRY_dbus_loop(context);
    return EXIT_FAILURE; /* the log says why the loop ended */
}
