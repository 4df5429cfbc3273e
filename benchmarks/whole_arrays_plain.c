#include "whole_arrays_plain.h"

void plain_write_array(hid_t file, const char* name, hsize_t length, int deflate, const double* values)
{
    hid_t space = H5Screate_simple(1, &length, NULL);
    hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(list, 1, &length);
    if (deflate > 0)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, (unsigned)deflate);
    }
    hid_t set = H5Dcreate2(file, name, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT);
    H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
    H5Dclose(set);
    H5Pclose(list);
    H5Sclose(space);
}

void plain_read_array(hid_t set, double* values)
{
    H5Dread(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
}

void plain_read_hyperslab(hid_t set, hsize_t start, hsize_t stride, hsize_t count, double* values)
{
    hid_t file_space = H5Dget_space(set);
    hid_t memory_space = H5Screate_simple(1, &count, NULL);
    H5Sselect_hyperslab(file_space, H5S_SELECT_SET, &start, &stride, &count, NULL);
    H5Dread(set, H5T_NATIVE_DOUBLE, memory_space, file_space, H5P_DEFAULT, values);
    H5Sclose(memory_space);
    H5Sclose(file_space);
}
