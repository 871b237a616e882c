/* Made by gantrygen from com/orvane/velmar/system/BLT/server.xml. Changes belong there. */
#ifndef GANTRY_COM_ORVANE_VELMAR_SYSTEM_BLT_H
#define GANTRY_COM_ORVANE_VELMAR_SYSTEM_BLT_H

#include <gantry/context.h>

GANTRY_BEGIN_C

/*
 * Publishes an object of com.orvane.velmar.system.BLT on the context of the calling thread, which
 * is what a null `context` means. `table` is kept by pointer and never read, as the interface has
 * no methods; pass null. `path` is copied; null means "/com/orvane/velmar/system/BLT".
 * `user_private` is kept for the host. A failure is told to the log only.
 */
GANTRY_API void GANTRY_instantiate__com_orvane_velmar_system_BLT(GANTRY_cpp_context* context,
                                                                 const void* table,
                                                                 const char* path,
                                                                 void* user_private);

GANTRY_END_C

#endif
