#include "attributes_plain.h"

#include <stdlib.h>
#include <string.h>

static void set_attribute(hid_t object, const char* name, const char* value, hid_t space, hid_t type)
{
    H5Tset_size(type, strlen(value));
    hid_t attribute = H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(attribute, type, value);
    H5Aclose(attribute);
}

void plain_set_attributes(const hid_t* objects, size_t object_count, const char* const* names,
                          const char* const* values, size_t count)
{
    const hsize_t one = 1;
    hid_t space = H5Screate_simple(1, &one, NULL);
    hid_t type = H5Tcopy(H5T_C_S1);
    H5Tset_cset(type, H5T_CSET_UTF8);
    for (size_t i = 0; i < object_count; ++i)
    {
        for (size_t k = 0; k < count; ++k)
        {
            set_attribute(objects[i], names[k], values[k], space, type);
        }
    }
    H5Tclose(type);
    H5Sclose(space);
}

void plain_set_attributes_each(const hid_t* objects, size_t object_count, const char* const* names,
                               const char* const* values, size_t count)
{
    for (size_t i = 0; i < object_count; ++i)
    {
        for (size_t k = 0; k < count; ++k)
        {
            plain_set_attributes(objects + i, 1, names + k, values + k, 1);
        }
    }
}

static size_t get_attribute(hid_t object, const char* name, char** text)
{
    hid_t attribute = H5Aopen(object, name, H5P_DEFAULT);
    hid_t type = H5Aget_type(attribute);
    const size_t size = H5Tget_size(type);
    *text = malloc(size + 1);
    (*text)[size] = '\0';
    if (H5Tget_class(type) == H5T_STRING && !H5Tis_variable_str(type) && H5Tget_cset(type) >= 0)
    {
        H5Aread(attribute, type, *text);
    }
    H5Tclose(type);
    H5Aclose(attribute);
    return size;
}

size_t plain_get_attributes(const hid_t* objects, size_t object_count, const char* const* names, size_t count)
{
    size_t bytes = 0;
    for (size_t i = 0; i < object_count; ++i)
    {
        for (size_t k = 0; k < count; ++k)
        {
            char* text;
            bytes += get_attribute(objects[i], names[k], &text);
            free(text);
        }
    }
    return bytes;
}

static herr_t copy_name(hid_t object, const char* name, const H5A_info_t* info, void* data)
{
    (void)object;
    (void)info;
    char* copy = malloc(strlen(name) + 1);
    strcpy(copy, name);
    *(size_t*)data += strlen(copy);
    free(copy);
    return 0;
}

size_t plain_list_attributes(const hid_t* objects, size_t object_count)
{
    size_t bytes = 0;
    for (size_t i = 0; i < object_count; ++i)
    {
        H5Aiterate2(objects[i], H5_INDEX_CRT_ORDER, H5_ITER_INC, NULL, &copy_name, &bytes);
    }
    return bytes;
}
