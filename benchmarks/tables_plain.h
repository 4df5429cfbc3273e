#pragma once

#include "files_plain.h"

#ifdef __cplusplus
extern "C"
{
#endif

    enum
    {
        PLAIN_TEXT = 8
    };

    /* A row of 40 bytes. */
    struct plain_row
    {
        double time;
        double value;
        double error;
        int channel;
        int flags;
        char text[PLAIN_TEXT];
    };

    /* The type of a row; the caller closes it. */
    hid_t plain_row_type(void);

    /* Makes a table in one chunk and writes it. */
    void plain_write_table(hid_t file, const char* name, hid_t type, hsize_t rows, const struct plain_row* buffer);

    void plain_read_table(hid_t set, hid_t type, struct plain_row* buffer);
    void plain_read_rows(hid_t set, hid_t type, hsize_t start, hsize_t stride, hsize_t count, struct plain_row* buffer);

    /* Reads the text of every row: PLAIN_TEXT bytes each. */
    void plain_read_text(hid_t set, char* bytes);

    /* Selected rows into a packed buffer, by a point selection of HDF5's. */
    void plain_read_points(hid_t set, hid_t type, const hsize_t* selection, hsize_t count, struct plain_row* buffer);

    /* The same by reading all rows and picking the selected ones. */
    void plain_read_and_pick(hid_t set, hid_t type, hsize_t rows, const hsize_t* selection, hsize_t count,
                             struct plain_row* buffer);

    /* A run of rows into selected rows of a buffer: by reading the run and putting each row in its place. */
    void plain_read_and_scatter(hid_t set, hid_t type, hsize_t start, const hsize_t* selection, hsize_t count,
                                struct plain_row* buffer);

    /* Selected rows of a buffer into a run of the table: by collecting them and writing the run. */
    void plain_collect_and_write(hid_t set, hid_t type, hsize_t start, const hsize_t* selection, hsize_t count,
                                 const struct plain_row* buffer);

#ifdef __cplusplus
}
#endif
