#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /* Makes, on each object, a string attribute of each name: one element, as long as its value. */
    void plain_set_attributes(const hid_t* objects, size_t object_count, const char* const* names,
                              const char* const* values, size_t count);

    /* The same with a space and a type of its own for each, as a function for one attribute has them. */
    void plain_set_attributes_each(const hid_t* objects, size_t object_count, const char* const* names,
                                   const char* const* values, size_t count);

    /* Reads them back; gives the number of bytes. */
    size_t plain_get_attributes(const hid_t* objects, size_t object_count, const char* const* names, size_t count);

    /* Copies the names of the attributes of each object; gives the number of bytes. */
    size_t plain_list_attributes(const hid_t* objects, size_t object_count);

#ifdef __cplusplus
}
#endif
