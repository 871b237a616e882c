#include "attribute.h"

#include "sysfs.h"

void attributes_read(struct object* object, const char* directory,
                     const struct attribute* attributes, size_t count)
{
    for (const struct attribute* each = attributes; each < attributes + count; ++each)
    {
        char text[sysfs_text_size];
        uint64_t number = 0;
        if (each->put == NULL)
        {
            if (sysfs_text(directory, each->file, text))
            {
                object_put_string(object, each->member, text);
            }
        }
        else if (sysfs_number(directory, each->file, each->base, &number))
        {
            each->put(object, each->member, number);
        }
    }
}
