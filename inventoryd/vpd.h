/*
 * The vital product data of a PCI device: tagged items that its maker has written, of which the
 * kernel shows the bytes. Only root may read them.
 */
#ifndef VPD_H
#define VPD_H

#include "object.h"

/* Puts PartNumber and SerialNumber, as far as the function at this directory has them. */
void vpd_put(struct object* object, const char* function);

/* The name that the maker gave to the product; false if there is none. */
enum
{
    vpd_text_size = 256
};
bool vpd_product(const char* function, char text[vpd_text_size]);

#endif
