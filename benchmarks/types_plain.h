#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /* The kind of a number type from one look at class, size, sign and order; 0 for anything else. */
    int plain_look_at_type(hid_t type);

    /* The same answer from a walk that asks HDF5 to compare with one predefined type after the other. */
    int plain_walk_types(hid_t type);

#ifdef __cplusplus
}
#endif
