#include "files_plain.h"

static const char mark_name[] = "__vorl_api_version";

hid_t plain_access_list(void)
{
    hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
    H5Pset_gc_references(access, 1);
    return access;
}

static void lower_hit_rate_threshold(hid_t file)
{
    H5AC_cache_config_t config;
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    H5Fget_mdc_config(file, &config);
    config.lower_hr_threshold = 0.8;
    H5Fset_mdc_config(file, &config);
}

static void write_mark(hid_t file)
{
    const hsize_t one = 1;
    const unsigned int version = 1;
    hid_t space = H5Screate_simple(1, &one, NULL);
    hid_t mark = H5Acreate2(file, mark_name, H5T_NATIVE_UINT, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(mark, H5T_NATIVE_UINT, &version);
    H5Aclose(mark);
    H5Sclose(space);
}

static void read_mark(hid_t file)
{
    unsigned int version = 0;
    hid_t mark = H5Aopen(file, mark_name, H5P_DEFAULT);
    H5Aread(mark, H5T_NATIVE_UINT, &version);
    H5Aclose(mark);
}

hid_t plain_create(const char* path, hid_t access, int parts)
{
    hid_t file = H5Fcreate(path, H5F_ACC_TRUNC, H5P_DEFAULT, access);
    if (parts & PLAIN_CACHE)
    {
        lower_hit_rate_threshold(file);
    }
    if (parts & PLAIN_MARK)
    {
        write_mark(file);
    }
    return file;
}

hid_t plain_open(const char* path, hid_t access)
{
    hid_t file = H5Fopen(path, H5F_ACC_RDONLY, access);
    lower_hit_rate_threshold(file);
    return file;
}

void plain_create_files(const char* const* paths, size_t count, int parts)
{
    hid_t access = plain_access_list();
    for (size_t i = 0; i < count; ++i)
    {
        if (parts & PLAIN_OWN_LIST)
        {
            H5Pclose(access);
            access = plain_access_list();
        }
        H5Fclose(plain_create(paths[i], access, parts));
    }
    H5Pclose(access);
}

void plain_open_files(const char* const* paths, size_t count)
{
    hid_t access = plain_access_list();
    for (size_t i = 0; i < count; ++i)
    {
        hid_t file = plain_open(paths[i], access);
        read_mark(file);
        H5Fclose(file);
    }
    H5Pclose(access);
}

hid_t plain_new_file(const char* path)
{
    hid_t access = plain_access_list();
    hid_t file = plain_create(path, access, PLAIN_ALL);
    H5Pclose(access);
    return file;
}

hid_t plain_old_file(const char* path)
{
    hid_t access = plain_access_list();
    hid_t file = plain_open(path, access);
    H5Pclose(access);
    return file;
}
