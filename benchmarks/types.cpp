#include "Sides.h"

#include <array>

using tarnwick::hdf::INode;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

// Types as data sets give them: equal to the predefined ones, with ids of their own.
const std::vector<hid_t>& StoredTypes()
{
    static std::vector<hid_t> types;
    for (int type = TDataType::Char; types.size() < TDataType::String; ++type)
    {
        types.push_back(H5Tcopy(INode::DataTypeToHDFType(static_cast<TDataType::TDataType>(type))));
    }
    return types;
}

template <typename Translate>
bench::Side ForEachType(Translate translate)
{
    return [=](std::size_t /*count*/)
    {
        const std::vector<hid_t>& types = StoredTypes();
        return bench::Measured(
            [&]
            {
                for (hid_t type : types)
                {
                    translate(type);
                }
            });
    };
}

int LookAtType(hid_t type)
{
    const H5T_class_t kind = H5Tget_class(type);
    if (kind == H5T_STRING)
    {
        return TDataType::String;
    }
    const int size = static_cast<int>(H5Tget_size(type));
    if (H5Tget_order(type) == H5T_ORDER_BE)
    {
        return 0;
    }
    if (kind == H5T_FLOAT)
    {
        return size == 4 ? TDataType::Float : TDataType::Double;
    }
    return 2 * size + static_cast<int>(H5Tget_sign(type) == H5T_SGN_2);
}

int WalkTypes(hid_t type)
{
    const std::array<hid_t, 17> types = {
        H5T_NATIVE_SCHAR, H5T_NATIVE_UCHAR,  H5T_NATIVE_SHORT, H5T_NATIVE_USHORT, H5T_NATIVE_INT,   H5T_NATIVE_UINT,
        H5T_STD_I64LE,    H5T_STD_U64LE,     H5T_NATIVE_LONG,  H5T_NATIVE_ULONG,  H5T_NATIVE_LLONG, H5T_NATIVE_ULLONG,
        H5T_NATIVE_FLOAT, H5T_NATIVE_DOUBLE, H5T_IEEE_F32LE,   H5T_IEEE_F64LE,    H5T_C_S1};
    int place = 0;
    for (const hid_t candidate : types)
    {
        ++place;
        if (H5Tequal(candidate, type) != 0)
        {
            return place;
        }
    }
    return 0;
}

} // namespace

bench::Rows bench::TypeRows()
{
    const Side library = ForEachType([](hid_t type) { INode::HDFTypeToDataType(type); });
    return {
        {"types/translate HDF5 types", "types", {17}, 0, 0, library, ForEachType(LookAtType)},
        {"types/translate HDF5 types, beside a walk through all", "types", {17}, 1, 0, library, ForEachType(WalkTypes)},
    };
}
