#include "tables_plain.h"

#include <stdlib.h>

hid_t plain_row_type(void)
{
    hid_t text = H5Tcopy(H5T_C_S1);
    H5Tset_size(text, PLAIN_TEXT);
    hid_t type = H5Tcreate(H5T_COMPOUND, sizeof(struct plain_row));
    H5Tinsert(type, "time", HOFFSET(struct plain_row, time), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "value", HOFFSET(struct plain_row, value), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "error", HOFFSET(struct plain_row, error), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "channel", HOFFSET(struct plain_row, channel), H5T_NATIVE_INT);
    H5Tinsert(type, "flags", HOFFSET(struct plain_row, flags), H5T_NATIVE_INT);
    H5Tinsert(type, "text", HOFFSET(struct plain_row, text), text);
    H5Tclose(text);
    return type;
}

void plain_write_table(hid_t file, const char* name, hid_t type, hsize_t rows, const struct plain_row* buffer)
{
    hid_t space = H5Screate_simple(1, &rows, NULL);
    hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(list, 1, &rows);
    hid_t set = H5Dcreate2(file, name, type, space, H5P_DEFAULT, list, H5P_DEFAULT);
    H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer);
    H5Dclose(set);
    H5Pclose(list);
    H5Sclose(space);
}

void plain_read_table(hid_t set, hid_t type, struct plain_row* buffer)
{
    H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer);
}

static hid_t select_rows(hid_t set, hsize_t start, hsize_t stride, hsize_t count)
{
    hid_t space = H5Dget_space(set);
    H5Sselect_hyperslab(space, H5S_SELECT_SET, &start, &stride, &count, NULL);
    return space;
}

void plain_read_rows(hid_t set, hid_t type, hsize_t start, hsize_t stride, hsize_t count, struct plain_row* buffer)
{
    hid_t file_space = select_rows(set, start, stride, count);
    hid_t memory_space = H5Screate_simple(1, &count, NULL);
    H5Dread(set, type, memory_space, file_space, H5P_DEFAULT, buffer);
    H5Sclose(memory_space);
    H5Sclose(file_space);
}

void plain_read_text(hid_t set, char* bytes)
{
    hid_t text = H5Tcopy(H5T_C_S1);
    H5Tset_size(text, PLAIN_TEXT);
    hid_t type = H5Tcreate(H5T_COMPOUND, PLAIN_TEXT);
    H5Tinsert(type, "text", 0, text);
    H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes);
    H5Tclose(type);
    H5Tclose(text);
}

void plain_read_points(hid_t set, hid_t type, const hsize_t* selection, hsize_t count, struct plain_row* buffer)
{
    hid_t file_space = H5Dget_space(set);
    H5Sselect_elements(file_space, H5S_SELECT_SET, count, selection);
    hid_t memory_space = H5Screate_simple(1, &count, NULL);
    H5Dread(set, type, memory_space, file_space, H5P_DEFAULT, buffer);
    H5Sclose(memory_space);
    H5Sclose(file_space);
}

void plain_read_and_pick(hid_t set, hid_t type, hsize_t rows, const hsize_t* selection, hsize_t count,
                         struct plain_row* buffer)
{
    struct plain_row* all = malloc(rows * sizeof(struct plain_row));
    plain_read_table(set, type, all);
    for (hsize_t i = 0; i < count; ++i)
    {
        buffer[i] = all[selection[i]];
    }
    free(all);
}

void plain_read_and_scatter(hid_t set, hid_t type, hsize_t start, const hsize_t* selection, hsize_t count,
                            struct plain_row* buffer)
{
    struct plain_row* run = malloc(count * sizeof(struct plain_row));
    plain_read_rows(set, type, start, 1, count, run);
    for (hsize_t i = 0; i < count; ++i)
    {
        buffer[selection[i]] = run[i];
    }
    free(run);
}

void plain_collect_and_write(hid_t set, hid_t type, hsize_t start, const hsize_t* selection, hsize_t count,
                             const struct plain_row* buffer)
{
    struct plain_row* run = malloc(count * sizeof(struct plain_row));
    for (hsize_t i = 0; i < count; ++i)
    {
        run[i] = buffer[selection[i]];
    }
    hid_t file_space = select_rows(set, start, 1, count);
    hid_t memory_space = H5Screate_simple(1, &count, NULL);
    H5Dwrite(set, type, memory_space, file_space, H5P_DEFAULT, run);
    H5Sclose(memory_space);
    H5Sclose(file_space);
    free(run);
}
