#include "small_arrays_plain.h"

#include <stdlib.h>

void plain_create_arrays(hid_t file, const char* const* names, size_t count, const double* values)
{
    const hsize_t length = 8;
    hid_t space = H5Screate_simple(1, &length, NULL);
    hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(list, 1, &length);
    for (size_t i = 0; i < count; ++i)
    {
        hid_t set = H5Dcreate2(file, names[i], H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT);
        H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
        H5Dclose(set);
    }
    H5Pclose(list);
    H5Sclose(space);
}

void plain_create_tables(hid_t file, const char* const* names, size_t count, hid_t type, const void* row)
{
    const hsize_t length = 1;
    hid_t space = H5Screate_simple(1, &length, NULL);
    hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(list, 1, &length);
    for (size_t i = 0; i < count; ++i)
    {
        hid_t set = H5Dcreate2(file, names[i], type, space, H5P_DEFAULT, list, H5P_DEFAULT);
        H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, row);
        H5Dclose(set);
    }
    H5Pclose(list);
    H5Sclose(space);
}

static void ask_number_type(hid_t type, H5T_class_t type_class)
{
    if (type_class == H5T_INTEGER || type_class == H5T_FLOAT)
    {
        H5Tget_size(type);
        H5Tget_order(type);
        if (type_class == H5T_INTEGER)
        {
            H5Tget_sign(type);
        }
    }
}

static void ask_columns(hid_t compound)
{
    const int members = H5Tget_nmembers(compound);
    for (int i = 0; i < members; ++i)
    {
        hid_t member = H5Tget_member_type(compound, (unsigned)i);
        ask_number_type(member, H5Tget_class(member));
        H5Tclose(member);
    }
}

static size_t ask_length(hid_t set)
{
    hsize_t dimensions[2] = {0, 0};
    hsize_t maximum[2];
    hid_t space = H5Dget_space(set);
    if (H5Sget_simple_extent_ndims(space) <= 2)
    {
        H5Sget_simple_extent_dims(space, dimensions, maximum);
    }
    H5Sclose(space);
    return dimensions[0];
}

/* Asks an array or a table what a caller has to know of it before reading it; returns whether it is of the kind. */
static int ask_type_and_shape(hid_t set, enum plain_kind kind, size_t* length)
{
    hid_t type = H5Dget_type(set);
    const H5T_class_t type_class = H5Tget_class(type);
    const int is_wanted = (type_class == H5T_COMPOUND) == (kind == PLAIN_TABLES);
    if (is_wanted)
    {
        if (kind == PLAIN_TABLES)
        {
            ask_columns(type);
        }
        else
        {
            ask_number_type(type, type_class);
        }
        *length = ask_length(set);
    }
    H5Tclose(type);
    return is_wanted;
}

size_t plain_open_arrays(hid_t file, const char* const* names, size_t count)
{
    size_t sum = 0;
    for (size_t i = 0; i < count; ++i)
    {
        size_t length = 0;
        hid_t set = H5Dopen2(file, names[i], H5P_DEFAULT);
        ask_type_and_shape(set, PLAIN_ARRAYS, &length);
        sum += length;
        H5Dclose(set);
    }
    return sum;
}

size_t plain_count_data_sets(hid_t file, const char* const* names, size_t count)
{
    size_t sets = 0;
    for (size_t i = 0; i < count; ++i)
    {
        H5O_info_t info;
        if (H5Lexists(file, names[i], H5P_DEFAULT) > 0 &&
            H5Oget_info_by_name2(file, names[i], &info, H5O_INFO_BASIC, H5P_DEFAULT) >= 0)
        {
            sets += info.type == H5O_TYPE_DATASET;
        }
    }
    return sets;
}

struct listing
{
    enum plain_kind kind;
    hid_t* ids;
    size_t count;
    size_t room;
};

static int is_wanted(hid_t object, enum plain_kind kind)
{
    size_t length;
    const H5I_type_t type = H5Iget_type(object);
    if (kind == PLAIN_GROUPS)
    {
        return type == H5I_GROUP;
    }
    return type == H5I_DATASET && ask_type_and_shape(object, kind, &length);
}

static herr_t open_child(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    struct listing* listing = data;
    if (info->type != H5L_TYPE_HARD)
    {
        return 0;
    }
    hid_t object = H5Oopen(group, name, H5P_DEFAULT);
    if (!is_wanted(object, listing->kind))
    {
        H5Oclose(object);
        return 0;
    }
    if (listing->count == listing->room)
    {
        listing->room = listing->room ? 2 * listing->room : 64;
        listing->ids = realloc(listing->ids, listing->room * sizeof(hid_t));
    }
    listing->ids[listing->count++] = object;
    return 0;
}

size_t plain_list(hid_t file, enum plain_kind kind)
{
    struct listing listing = {kind, NULL, 0, 0};
    H5Literate(file, H5_INDEX_NAME, H5_ITER_INC, NULL, &open_child, &listing);
    for (size_t i = 0; i < listing.count; ++i)
    {
        H5Oclose(listing.ids[i]);
    }
    free(listing.ids);
    return listing.count;
}

static herr_t count_child(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    if (info->type == H5L_TYPE_HARD)
    {
        hid_t object = H5Oopen(group, name, H5P_DEFAULT);
        *(size_t*)data += H5Iget_type(object) == H5I_GROUP;
        H5Oclose(object);
    }
    return 0;
}

size_t plain_count_groups(hid_t file)
{
    size_t count = 0;
    H5Literate(file, H5_INDEX_NAME, H5_ITER_INC, NULL, &count_child, &count);
    return count;
}
