#include "extensible_arrays_plain.h"

static const char name[] = "rows";

hid_t plain_create_extensible(hid_t file, hsize_t rows, hsize_t columns, const hsize_t chunk[2], int deflate)
{
    const hsize_t dimensions[2] = {rows, columns};
    const hsize_t unlimited[2] = {H5S_UNLIMITED, H5S_UNLIMITED};
    hid_t space = H5Screate_simple(2, dimensions, unlimited);
    hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(list, 2, chunk);
    if (deflate > 0)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, (unsigned)deflate);
    }
    hid_t set = H5Dcreate2(file, name, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT);
    H5Pclose(list);
    H5Sclose(space);
    return set;
}

hid_t plain_open_extensible(hid_t file)
{
    return H5Dopen2(file, name, H5P_DEFAULT);
}

static void write_line(hid_t set, const hsize_t start[2], const hsize_t count[2], const double* values)
{
    hid_t file_space = H5Dget_space(set);
    H5Sselect_hyperslab(file_space, H5S_SELECT_SET, start, NULL, count, NULL);
    hid_t memory_space = H5Screate_simple(2, count, NULL);
    H5Dwrite(set, H5T_NATIVE_DOUBLE, memory_space, file_space, H5P_DEFAULT, values);
    H5Sclose(file_space);
    H5Sclose(memory_space);
}

static void read_line(hid_t set, const hsize_t start[2], const hsize_t count[2], double* values)
{
    hid_t file_space = H5Dget_space(set);
    H5Sselect_hyperslab(file_space, H5S_SELECT_SET, start, NULL, count, NULL);
    hid_t memory_space = H5Screate_simple(2, count, NULL);
    H5Dread(set, H5T_NATIVE_DOUBLE, memory_space, file_space, H5P_DEFAULT, values);
    H5Sclose(file_space);
    H5Sclose(memory_space);
}

static void get_extent(hid_t set, hsize_t dimensions[2])
{
    hid_t space = H5Dget_space(set);
    H5Sget_simple_extent_dims(space, dimensions, NULL);
    H5Sclose(space);
}

void plain_append_row(hid_t set, hsize_t columns, const double* values)
{
    hsize_t dimensions[2];
    get_extent(set, dimensions);
    dimensions[0] += 1;
    dimensions[1] = columns;
    H5Dextend(set, dimensions);
    const hsize_t start[2] = {dimensions[0] - 1, 0};
    const hsize_t count[2] = {1, columns};
    write_line(set, start, count, values);
}

void plain_append_column(hid_t set, hsize_t rows, const double* values)
{
    hsize_t dimensions[2];
    get_extent(set, dimensions);
    dimensions[0] = rows;
    dimensions[1] += 1;
    H5Dextend(set, dimensions);
    const hsize_t start[2] = {0, dimensions[1] - 1};
    const hsize_t count[2] = {rows, 1};
    write_line(set, start, count, values);
}

void plain_read_row(hid_t set, hsize_t row, hsize_t columns, double* values)
{
    const hsize_t start[2] = {row, 0};
    const hsize_t count[2] = {1, columns};
    read_line(set, start, count, values);
}

void plain_read_column(hid_t set, hsize_t column, hsize_t rows, double* values)
{
    const hsize_t start[2] = {0, column};
    const hsize_t count[2] = {rows, 1};
    read_line(set, start, count, values);
}
