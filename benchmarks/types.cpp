#include "Sides.h"

using namespace bench;

namespace
{

// Types as data sets give them: equal to the predefined ones, with ids of their own.
std::vector<hid_t> StoredTypes()
{
    std::vector<hid_t> types;
    for (int type = TDataType::Char; types.size() < TDataType::String; ++type)
    {
        types.push_back(H5Tcopy(INode::DataTypeToHDFType(static_cast<TDataType::TDataType>(type))));
    }
    return types;
}

template <typename Translate>
Side ForEachType(Translate translate)
{
    return [=](std::size_t /*count*/)
    {
        static const std::vector<hid_t> types = StoredTypes();
        return Measured([&] { ForEach(types, translate); });
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
    int candidate = TDataType::Char;
    while (H5Tequal(INode::DataTypeToHDFType(static_cast<TDataType::TDataType>(candidate)), type) == 0)
    {
        ++candidate;
    }
    return candidate;
}

} // namespace

bench::Rows bench::TypeRows()
{
    const Row row = {"types/translate HDF5 types",
                     "types",
                     {17},
                     0,
                     {{"*", "the name of a type is found by the same questions, behind a call of the library"}},
                     0,
                     ForEachType([](hid_t type) { INode::HDFTypeToDataType(type); }),
                     ForEachType(LookAtType)};
    return {row, Beside(row, "a walk through all", 1, ForEachType(WalkTypes))};
}
