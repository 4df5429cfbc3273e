#include "files_groups_plain.h"

void plain_create_groups(hid_t file, const char* const* paths, size_t count)
{
    hid_t links = H5Pcreate(H5P_LINK_CREATE);
    H5Pset_create_intermediate_group(links, 1);
    for (size_t i = 0; i < count; ++i)
    {
        H5Gclose(H5Gcreate2(file, paths[i], links, H5P_DEFAULT, H5P_DEFAULT));
    }
    H5Pclose(links);
}
