#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /* The literal calls for each operation on an extensible array: nothing is saved, every space is asked for. Creation and
 * opening use HDF5's default chunk cache. */
    hid_t plain_create_extensible(hid_t file, hsize_t rows, hsize_t columns, const hsize_t chunk[2], int deflate);
    hid_t plain_open_extensible(hid_t file);
    void plain_append_row(hid_t set, hsize_t columns, const double* values);
    void plain_append_column(hid_t set, hsize_t rows, const double* values);
    void plain_read_row(hid_t set, hsize_t row, hsize_t columns, double* values);
    void plain_read_column(hid_t set, hsize_t column, hsize_t rows, double* values);

#ifdef __cplusplus
}
#endif
