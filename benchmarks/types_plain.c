#include "types_plain.h"

int plain_look_at_type(hid_t type)
{
    const H5T_class_t type_class = H5Tget_class(type);
    if (type_class == H5T_STRING)
    {
        return 17;
    }
    const int size = (int)H5Tget_size(type);
    if (H5Tget_order(type) == H5T_ORDER_BE)
    {
        return 0;
    }
    if (type_class == H5T_FLOAT)
    {
        return size == 4 ? 13 : 14;
    }
    return 2 * size + (H5Tget_sign(type) == H5T_SGN_2);
}

int plain_walk_types(hid_t type)
{
    const hid_t types[] = {H5T_NATIVE_SCHAR, H5T_NATIVE_UCHAR,  H5T_NATIVE_SHORT, H5T_NATIVE_USHORT, H5T_NATIVE_INT,
                           H5T_NATIVE_UINT,  H5T_STD_I64LE,     H5T_STD_U64LE,    H5T_NATIVE_LONG,   H5T_NATIVE_ULONG,
                           H5T_NATIVE_LLONG, H5T_NATIVE_ULLONG, H5T_NATIVE_FLOAT, H5T_NATIVE_DOUBLE, H5T_IEEE_F32LE,
                           H5T_IEEE_F64LE,   H5T_C_S1};
    for (int i = 0; i < 17; ++i)
    {
        if (H5Tequal(types[i], type) != 0)
        {
            return i + 1;
        }
    }
    return 0;
}
