#include "Sides.h"

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

constexpr hsize_t kLength = 8;
double values[kLength] = {1, 2, 3, 4, 5, 6, 7, 8};

struct TableRow
{
    double value;
    int number;
};

const auto createArray = [](IGroup& root, const std::string& name)
{
    root.CreateArrayFromBuffer(name, values, TDataType::Double, kLength, 1);
};

const auto createTable = [](IGroup& root, const std::string& name)
{
    static const hid_t type = []
    {
        const hid_t compound = H5Tcreate(H5T_COMPOUND, sizeof(TableRow));
        H5Tinsert(compound, "value", HOFFSET(TableRow, value), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "number", HOFFSET(TableRow, number), H5T_NATIVE_INT);
        return compound;
    }();
    TableRow row = {1.5, 2};
    root.CreateTableFromBuffer(name, &row, 1, type, 0, -1, 0);
};

// A file with so many children.
template <typename Create>
bench::Place WithChildren(const std::string& name, Create create)
{
    const auto make = [=](const std::string& path, std::size_t count)
    {
        bench::ForEachName(create)(*IFile::Open(path, "w", 0)->GetRoot(), count);
    };
    return {name, "r", make};
}

// A space and a creation list serve all arrays.
void CreatePlainArrays(hid_t group, std::size_t count)
{
    const bench::Id space(H5Screate_simple(1, &kLength, nullptr));
    const bench::Id list(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(list, 1, &kLength);
    const auto create = [&](hid_t parent, const std::string& name)
    {
        const bench::Id set(H5Dcreate2(parent, name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
        H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
    };
    bench::ForEachName(create)(group, count);
}

void CreateArraysByCpp(const H5::Group& group, std::size_t count)
{
    const H5::DataSpace space(1, &kLength);
    H5::DSetCreatPropList list;
    list.setChunk(1, &kLength);
    const auto create = [&](const H5::Group& parent, const std::string& name)
    {
        const H5::DataSet set = parent.createDataSet(name, H5::PredType::NATIVE_DOUBLE, space, list);
        set.write(values, H5::PredType::NATIVE_DOUBLE);
    };
    bench::ForEachName(create)(group, count);
}

void AskNumberType(hid_t type)
{
    H5Tget_size(type);
    H5Tget_order(type);
    if (H5Tget_class(type) == H5T_INTEGER)
    {
        H5Tget_sign(type);
    }
}

void AskColumns(hid_t compound)
{
    const int members = H5Tget_nmembers(compound);
    for (int i = 0; i < members; ++i)
    {
        const bench::Id member(H5Tget_member_type(compound, static_cast<unsigned int>(i)));
        AskNumberType(member);
    }
}

hsize_t AskLength(hid_t set)
{
    hsize_t dimensions[2] = {0, 0};
    hsize_t maximum[2] = {0, 0};
    const bench::Id space(H5Dget_space(set));
    if (H5Sget_simple_extent_ndims(space) <= 2)
    {
        H5Sget_simple_extent_dims(space, dimensions, maximum);
    }
    return dimensions[0];
}

enum class Kind
{
    Array,
    Table,
    Group
};

// Asks an array or a table what a caller has to know of it before reading it; false for a data set of the other kind.
bool AskTypeAndShape(hid_t set, Kind kind)
{
    const bench::Id type(H5Dget_type(set));
    if ((H5Tget_class(type) == H5T_COMPOUND) != (kind == Kind::Table))
    {
        return false;
    }
    if (kind == Kind::Table)
    {
        AskColumns(type);
    }
    else
    {
        AskNumberType(type);
    }
    benchmark::DoNotOptimize(AskLength(set));
    return true;
}

const auto openPlainArray = [](hid_t group, const std::string& name)
{
    AskTypeAndShape(bench::Id(H5Dopen2(group, name.c_str(), H5P_DEFAULT)), Kind::Array);
};

const auto openArrayByCpp = [](const H5::Group& group, const std::string& name)
{
    const H5::DataSet set = group.openDataSet(name);
    const H5::DataType type = set.getDataType();
    benchmark::DoNotOptimize(type.getSize());
    hsize_t dimensions[2] = {0, 0};
    set.getSpace().getSimpleExtentDims(dimensions);
};

H5O_type_t TypeOfChild(hid_t group, const char* name)
{
    H5O_info_t info;
    H5Oget_info_by_name2(group, name, &info, H5O_INFO_BASIC, H5P_DEFAULT);
    return info.type;
}

const auto hasPlainArray = [](hid_t group, const std::string& name)
{
    return H5Lexists(group, name.c_str(), H5P_DEFAULT) > 0 && TypeOfChild(group, name.c_str()) == H5O_TYPE_DATASET;
};

const auto hasArrayByCpp = [](const H5::Group& group, const std::string& name)
{
    return group.nameExists(name) && group.childObjType(name) == H5O_TYPE_DATASET;
};

struct PlainListing
{
    Kind kind;
    std::vector<hid_t> ids = {};
};

herr_t OpenChild(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    auto& listing = *static_cast<PlainListing*>(data);
    if (info->type != H5L_TYPE_HARD)
    {
        return 0;
    }
    const hid_t object = H5Oopen(group, name, H5P_DEFAULT);
    const H5I_type_t type = H5Iget_type(object);
    const bool isWanted =
        listing.kind == Kind::Group ? type == H5I_GROUP : type == H5I_DATASET && AskTypeAndShape(object, listing.kind);
    if (isWanted)
    {
        listing.ids.push_back(object);
    }
    else
    {
        H5Oclose(object);
    }
    return 0;
}

// Opens all children of a kind, in the order of names, and asks data sets for type and shape.
auto ListPlain(Kind kind)
{
    return [=](hid_t group, std::size_t /*count*/)
    {
        PlainListing listing = {kind};
        H5Literate(group, H5_INDEX_NAME, H5_ITER_INC, nullptr, &OpenChild, &listing);
        for (const hid_t id : listing.ids)
        {
            H5Oclose(id);
        }
    };
}

auto ListByCpp(Kind kind)
{
    return [=](const H5::Group& group, std::size_t /*count*/)
    {
        std::vector<H5::Group> groups;
        std::vector<H5::DataSet> sets;
        const hsize_t children = group.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            const std::string name = group.getObjnameByIdx(i);
            const H5O_type_t type = group.childObjType(name);
            if (kind == Kind::Group && type == H5O_TYPE_GROUP)
            {
                groups.push_back(group.openGroup(name));
            }
            if (kind != Kind::Group && type == H5O_TYPE_DATASET)
            {
                const H5::DataSet set = group.openDataSet(name);
                if ((set.getTypeClass() == H5T_COMPOUND) == (kind == Kind::Table))
                {
                    benchmark::DoNotOptimize(set.getSpace().getSimpleExtentNpoints());
                    sets.push_back(set);
                }
            }
        }
    };
}

herr_t CountChild(hid_t group, const char* name, const H5L_info_t* info, void* count)
{
    if (info->type == H5L_TYPE_HARD && TypeOfChild(group, name) == H5O_TYPE_GROUP)
    {
        ++*static_cast<std::size_t*>(count);
    }
    return 0;
}

herr_t CountOpenedChild(hid_t group, const char* name, const H5L_info_t* info, void* count)
{
    if (info->type == H5L_TYPE_HARD && H5Iget_type(bench::Id(H5Oopen(group, name, H5P_DEFAULT))) == H5I_GROUP)
    {
        ++*static_cast<std::size_t*>(count);
    }
    return 0;
}

auto CountPlain(H5L_iterate_t countChild)
{
    return [=](hid_t group, std::size_t /*count*/)
    {
        std::size_t groups = 0;
        H5Literate(group, H5_INDEX_NAME, H5_ITER_INC, nullptr, countChild, &groups);
        benchmark::DoNotOptimize(groups);
    };
}

void CountByCpp(const H5::Group& group, std::size_t /*count*/)
{
    std::size_t groups = 0;
    const hsize_t children = group.getNumObjs();
    for (hsize_t i = 0; i < children; ++i)
    {
        groups += group.childObjType(i) == H5O_TYPE_GROUP ? 1 : 0;
    }
    benchmark::DoNotOptimize(groups);
}

} // namespace

bench::Rows bench::SmallArrayRows()
{
    const std::vector<std::size_t> counts = {1000, 10000, 50000};
    const Place fresh = {"small", "w",
                         [](const std::string& /*path*/, std::size_t count)
                         {
                             Names("child", count);
                         }};
    const Place arrays = WithChildren("small-arrays", createArray);
    const Place tables = WithChildren("small-tables", createTable);
    const Place groups =
        WithChildren("small-groups", [](IGroup& root, const std::string& name) { root.CreateGroup(name); });
    Rows rows;
    const auto add = [&](const std::string& work, const Place& place, double target, auto... sides)
    {
        rows.push_back(On({"small arrays/" + work, "children", counts, target}, place, Root{}, sides...));
    };
    const auto addHas = [&](const std::string& word, auto... sides)
    {
        add("ask whether arrays are there" + word, arrays, 1.15,
            ForEachName([](IGroup& root, const std::string& name) { root.HasArray(name); }), sides...);
    };
    const auto addListing = [&](const std::string& work, const Place& place, Kind kind, auto library)
    {
        add(
            "list " + work, place, 1.15, [=](const IGroup& root, std::size_t /*count*/) { library(root); },
            ListPlain(kind), ListByCpp(kind));
    };
    const auto addCount = [&](const std::string& word, auto... sides)
    {
        add(
            "count groups" + word, groups, 1.15,
            [](const IGroup& root, std::size_t /*count*/) { root.GetNumberOfGroups(); }, sides...);
    };
    add("create arrays of 8 doubles", fresh, 1.10, ForEachName(createArray), CreatePlainArrays, CreateArraysByCpp);
    add("open arrays, ask for type and shape", arrays, 1.15,
        ForEachName([](IGroup& root, const std::string& name) { root.GetArray(name)->GetLength(); }),
        ForEachName(openPlainArray), ForEachName(openArrayByCpp));
    add("ask whether arrays are extensible", arrays, 1.15,
        ForEachName([](IGroup& root, const std::string& name) { root.HasExtensibleArray2D(name); }),
        ForEachName(openPlainArray), ForEachName(openArrayByCpp));
    addHas("", ForEachName(hasPlainArray), ForEachName(hasArrayByCpp));
    addHas(", beside opening them", ForEachName(openPlainArray));
    addListing("arrays", arrays, Kind::Array, [](const IGroup& root) { root.ListArrays(); });
    addListing("tables", tables, Kind::Table, [](const IGroup& root) { root.ListTables(); });
    addListing("no arrays among tables", tables, Kind::Array, [](const IGroup& root) { root.ListArrays(); });
    addListing("no tables among arrays", arrays, Kind::Table, [](const IGroup& root) { root.ListTables(); });
    addListing("groups", groups, Kind::Group, [](const IGroup& root) { root.ListGroups(); });
    addCount("", CountPlain(CountChild), CountByCpp);
    addCount(", beside opening them", CountPlain(CountOpenedChild));
    return rows;
}
