/*
 * The host that is measured: objects of 60 properties, and a method that returns its argument, on
 * the library.
 *
 *     gantry_host SERVICE COUNT dbus|sd    prints "ready" when COUNT NicPort objects are served,
 *                                          under GANTRY_dbus_loop or GANTRY_dbus_sdloop
 */
#include <gantry/gantry.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void try_int32(GANTRY_instance* instance, int in, int* out)
{
    (void)instance;
    *out = in;
}

static void set_text(const char* property, const char* text)
{
    GANTRY_instance* created = NULL;
    GANTRY_instance_get_created(NULL, &created, NULL);
    GANTRY_property_set_string(created, property, text, true, NULL);
}

int main(int argc, char** argv)
{
    static const GANTRY_table__com_orvane_velmar_sample_gantrytest sample = {.Try_int32 =
                                                                                 try_int32};
    if (argc != 4)
    {
        return EXIT_FAILURE;
    }
    GANTRY_context_set_service(NULL, argv[1]);
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(NULL, &sample, NULL, NULL);
    for (long number = 0; number < atol(argv[2]); ++number)
    {
        char path[64];
        snprintf(path, sizeof path, "/com/orvane/velmar/system/NicPort/p%ld", number);
        GANTRY_instantiate__com_orvane_velmar_system_NicPort(NULL, NULL, path, NULL);
        set_text("FQDD", "NIC.Integrated.1-1-1");
        set_text("FamilyDriverVersion", "22.31.6");
        set_text("FriendlyFQDD", "Integrated NIC 1 Port 1 Partition 1");
    }
    puts("ready");
    fflush(stdout);
    (strcmp(argv[3], "sd") == 0 ? GANTRY_dbus_sdloop : GANTRY_dbus_loop)(NULL);
    return EXIT_FAILURE;
}
