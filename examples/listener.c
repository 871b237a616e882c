/*
 * A host that publishes nothing and prints each signal that it receives.
 */
#include "options.h"

#include <gantry/gantry.h>

#include <stdio.h>
#include <stdlib.h>

/* The values are valid during the call; an empty array is a null pointer. */

static void on_refresh(GANTRY_cpp_context* context, char* what)
{
    (void)context;
    printf("Refresh [%s]\n", what);
}

static void on_change(GANTRY_cpp_context* context)
{
    (void)context;
    printf("HardwareInventoryChanged\n");
}

static void on_fault(GANTRY_cpp_context* context, char* fault)
{
    (void)context;
    printf("faultAdded [%s]\n", fault);
}

static void on_complex(GANTRY_cpp_context* context, GANTRY_struct_quat* values, char* text)
{
    (void)context;
    printf("complextypes %u %u [", values->field1, values->field2);
    for (unsigned long i = 0; values->field3 != NULL && i < values->field3->count; ++i)
    {
        printf("%s%lu", i == 0 ? "" : " ", values->field3->data[i]);
    }
    printf("] [%s]\n", text);
}

int main(int argc, char** argv)
{
    read_options(argc, argv, "", 0);
    setvbuf(stdout, NULL, _IOLBF, 0);
    GANTRY_context_set_service(NULL, NULL);
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(NULL, on_refresh);
    GANTRY_receive_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(NULL,
                                                                                      on_change);
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(NULL, on_fault);
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(NULL, on_complex);
    printf("listening\n");
    GANTRY_dbus_loop(NULL);
    return EXIT_FAILURE;
}
