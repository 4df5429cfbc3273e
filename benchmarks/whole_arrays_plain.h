#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /* Makes an array of doubles in one chunk, with shuffle and deflate for a level above 0, and writes it. */
    void plain_write_array(hid_t file, const char* name, hsize_t length, int deflate, const double* values);

    /* Reads an open array whole. */
    void plain_read_array(hid_t set, double* values);

    /* Reads every stride-th element of an open array. */
    void plain_read_hyperslab(hid_t set, hsize_t start, hsize_t stride, hsize_t count, double* values);

#ifdef __cplusplus
}
#endif
