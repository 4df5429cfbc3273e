#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /* Makes an array of eight doubles of each name: one chunk, no filters. */
    void plain_create_arrays(hid_t file, const char* const* names, size_t count, const double* values);

    /* Makes a table of one row of each name. */
    void plain_create_tables(hid_t file, const char* const* names, size_t count, hid_t type, const void* row);

    /* Opens each by name and asks it for type and shape; gives the sum of the lengths. */
    size_t plain_open_arrays(hid_t file, const char* const* names, size_t count);

    /* Asks for each name whether it is a data set; gives how many are. */
    size_t plain_count_data_sets(hid_t file, const char* const* names, size_t count);

    /* Opens all children of a group that are of a kind, in the order of names, asks data sets for type and shape, and
 * closes them again; gives their number. A data set is taken for a table if its class is compound. */
    enum plain_kind
    {
        PLAIN_ARRAYS,
        PLAIN_TABLES,
        PLAIN_GROUPS
    };
    size_t plain_list(hid_t file, enum plain_kind kind);

    /* Counts the children that are groups. */
    size_t plain_count_groups(hid_t file);

#ifdef __cplusplus
}
#endif
