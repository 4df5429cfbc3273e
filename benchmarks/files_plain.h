#pragma once

#include <hdf5.h>

#include <stddef.h>

#ifdef __cplusplus
extern "C"
{
#endif

    /* What a plain file has in common with one of the library's. */
    enum plain_file_parts
    {
        PLAIN_BARE = 0,
        PLAIN_CACHE = 1, /* the metadata cache's lower hit rate threshold */
        PLAIN_MARK = 2,  /* the version mark on the root group */
        PLAIN_ALL = 3,
        PLAIN_OWN_LIST = 4 /* an access list for each file, for plain_create_files */
    };

    /* The access list of the library's files: one list serves all files of a program. */
    hid_t plain_access_list(void);

    /* Creates a file; the caller closes it. */
    hid_t plain_create(const char* path, hid_t access, int parts);

    /* Opens a file for reading, with the cache setting; the caller closes it. */
    hid_t plain_open(const char* path, hid_t access);

    /* Creates, or opens for reading, and closes a file of each name. */
    void plain_create_files(const char* const* paths, size_t count, int parts);
    void plain_open_files(const char* const* paths, size_t count);

    /* Opens one file for reading by a list of its own: what the benchmarks of other work begin with. */
    hid_t plain_new_file(const char* path);
    hid_t plain_old_file(const char* path);

#ifdef __cplusplus
}
#endif
