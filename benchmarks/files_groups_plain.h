#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    /* Makes a group of each path, with the levels that are missing. */
    void plain_create_groups(hid_t file, const char* const* paths, size_t count);

#ifdef __cplusplus
}
#endif
