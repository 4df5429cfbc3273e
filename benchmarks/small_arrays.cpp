#include "Sides.h"

using namespace bench;

namespace
{

constexpr hsize_t kLength = 8;
double values[kLength] = {1, 2, 3, 4, 5, 6, 7, 8};

struct TableRow
{
    double value;
    int number;
};

void CreateArray(IGroup& root, Name name)
{
    root.CreateArrayFromBuffer(name, values, TDataType::Double, kLength, 1);
}

void CreateTable(IGroup& root, Name name)
{
    static const RowType<TableRow> type = {{"value", &TableRow::value}, {"number", &TableRow::number}};
    TableRow row = {1.5, 2};
    root.CreateTableFromBuffer(name, &row, 1, type.Id(), 0, -1, 0);
}

// A space and a creation list serve all arrays.
struct CreateArrays
{
    void operator()(IGroup& root, std::size_t count) const { ForEachName(CreateArray)(root, count); }
    void operator()(hid_t root, std::size_t count) const
    {
        const Id space(H5Screate_simple(1, &kLength, nullptr));
        const Id list = CreationList(1, &kLength, 0);
        for (Name name : Names("child", count))
        {
            const Id set(H5Dcreate2(root, name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
            H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
        }
    }
    void operator()(const H5::Group& root, std::size_t count) const
    {
        const H5::DataSpace space(1, &kLength);
        H5::DSetCreatPropList list;
        list.setChunk(1, &kLength);
        for (Name name : Names("child", count))
        {
            const H5::DataSet set = root.createDataSet(name, H5::PredType::NATIVE_DOUBLE, space, list);
            set.write(values, H5::PredType::NATIVE_DOUBLE);
        }
    }
};

enum class Kind
{
    Array,
    Table,
    Group
};

// Asks an array or a table what a caller has to know of it before reading it; false for a data set of the other kind.
bool AskTypeAndShape(hid_t set, Kind kind)
{
    const Id type(H5Dget_type(set));
    if ((H5Tget_class(type) == H5T_COMPOUND) != (kind == Kind::Table))
    {
        return false;
    }
    for (int i = 0; kind == Kind::Table && i < H5Tget_nmembers(type); ++i)
    {
        AskNumberType(Id(H5Tget_member_type(type, static_cast<unsigned int>(i))));
    }
    if (kind == Kind::Array)
    {
        AskNumberType(type);
    }
    AskShape(set);
    return true;
}

struct OpenArray : OpenByName
{
    using OpenByName::operator();
    void operator()(IGroup& root, Name name) const { root.GetArray(name)->GetLength(); }
};

struct IsExtensible : OpenByName
{
    using OpenByName::operator();
    void operator()(IGroup& root, Name name) const { root.HasExtensibleArray2D(name); }
};

H5O_type_t TypeOfChild(hid_t group, const char* name)
{
    H5O_info_t info;
    H5Oget_info_by_name2(group, name, &info, H5O_INFO_BASIC, H5P_DEFAULT);
    return info.type;
}

struct HasArray
{
    void operator()(IGroup& root, Name name) const { root.HasArray(name); }
    bool operator()(hid_t root, Name name) const
    {
        return H5Lexists(root, name.c_str(), H5P_DEFAULT) > 0 && TypeOfChild(root, name.c_str()) == H5O_TYPE_DATASET;
    }
    bool operator()(const H5::Group& root, Name name) const
    {
        return root.nameExists(name) && root.childObjType(name) == H5O_TYPE_DATASET;
    }
};

struct PlainListing
{
    Kind kind;
    std::vector<hid_t> ids = {};
};

bool IsOfKind(hid_t object, Kind kind)
{
    const H5I_type_t type = H5Iget_type(object);
    return kind == Kind::Group ? type == H5I_GROUP : type == H5I_DATASET && AskTypeAndShape(object, kind);
}

herr_t OpenChild(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    auto& listing = *static_cast<PlainListing*>(data);
    if (info->type == H5L_TYPE_HARD)
    {
        const hid_t object = H5Oopen(group, name, H5P_DEFAULT);
        if (IsOfKind(object, listing.kind))
        {
            listing.ids.push_back(object);
        }
        else
        {
            H5Oclose(object);
        }
    }
    return 0;
}

// Opens all children of a kind, in the order of names, and asks data sets for type and shape.
struct List
{
    Kind kind;
    void (*listByLibrary)(const IGroup& root);

    void operator()(const IGroup& root, std::size_t /*count*/) const { listByLibrary(root); }
    void operator()(hid_t root, std::size_t /*count*/) const
    {
        PlainListing listing = {kind};
        H5Literate(root, H5_INDEX_NAME, H5_ITER_INC, nullptr, &OpenChild, &listing);
        ForEach(listing.ids, H5Oclose);
    }
    void operator()(const H5::Group& root, std::size_t /*count*/) const
    {
        std::vector<H5::Group> groups;
        std::vector<H5::DataSet> sets;
        const hsize_t children = root.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            const std::string name = root.getObjnameByIdx(i);
            const H5O_type_t type = root.childObjType(name);
            if (kind == Kind::Group && type == H5O_TYPE_GROUP)
            {
                groups.push_back(root.openGroup(name));
            }
            if (kind != Kind::Group && type == H5O_TYPE_DATASET)
            {
                const H5::DataSet set = root.openDataSet(name);
                if ((set.getTypeClass() == H5T_COMPOUND) == (kind == Kind::Table))
                {
                    benchmark::DoNotOptimize(set.getSpace().getSimpleExtentNpoints());
                    sets.push_back(set);
                }
            }
        }
    }
};

bool IsGroup(hid_t group, const char* name)
{
    return TypeOfChild(group, name) == H5O_TYPE_GROUP;
}

bool IsGroupWhenOpened(hid_t group, const char* name)
{
    return H5Iget_type(Id(H5Oopen(group, name, H5P_DEFAULT))) == H5I_GROUP;
}

template <bool (*IsCounted)(hid_t, const char*)>
herr_t CountChild(hid_t group, const char* name, const H5L_info_t* info, void* count)
{
    const bool isCounted = info->type == H5L_TYPE_HARD && IsCounted(group, name);
    *static_cast<std::size_t*>(count) += isCounted ? 1 : 0;
    return 0;
}

struct CountGroups
{
    H5L_iterate_t countChild = &CountChild<IsGroup>;

    void operator()(const IGroup& root, std::size_t /*count*/) const { root.GetNumberOfGroups(); }
    void operator()(hid_t root, std::size_t /*count*/) const
    {
        std::size_t groups = 0;
        H5Literate(root, H5_INDEX_NAME, H5_ITER_INC, nullptr, countChild, &groups);
        benchmark::DoNotOptimize(groups);
    }
    void operator()(const H5::Group& root, std::size_t /*count*/) const
    {
        std::size_t groups = 0;
        const hsize_t children = root.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            groups += root.childObjType(i) == H5O_TYPE_GROUP ? 1 : 0;
        }
        benchmark::DoNotOptimize(groups);
    }
};

const Reasons kOwnList = {
    {"*",
     "a property list and a space are made for each array, where the program makes one for all; a list that is kept "
     "keeps an id open"}};
const Reasons kOwnObject = {{"*", "each array becomes an object that stands for itself"}};
const Reasons kAsExtensible = {{"*", "the array is opened as an extensible one, which is refused in words"}};
const Reasons kWalk = {{"*", "a path is walked level by level, so that a missing level is an answer and not an error"}};
const Reasons kOwnObjects = {
    {"*", "each child becomes an object that stands for itself, with the types of its columns for tables"}};
const Reasons kAllNames = {
    {"pytables", "PyTables reads all names when it opens the file, outside of what is measured"}};

} // namespace

bench::Rows bench::SmallArrayRows()
{
    const Place fresh = {"small", "w",
                         [](Name /*path*/, std::size_t count)
                         {
                             Names("child", count);
                         }};
    const Place arrays = MadeByLibrary("small-arrays", "r", ForEachName(CreateArray));
    const Place tables = MadeByLibrary("small-tables", "r", ForEachName(CreateTable));
    const Place groups =
        MadeByLibrary("small-groups", "r", ForEachName([](IGroup& root, Name name) { root.CreateGroup(name); }));
    const auto row = [](Name work, double target, const Reasons& reasons, const Place& place, auto sides)
    {
        return On({"small arrays/" + work, "children", {1000, 10000, 50000}, target, reasons}, place, Root{}, sides);
    };
    const Row has = row("ask whether arrays are there", 1.15, kWalk, arrays, ForEachName(HasArray{}));
    const Row count = row("count groups", 1.15, kAllNames, groups, CountGroups{});
    const List listArrays = {Kind::Array, [](const IGroup& root)
                             {
                                 root.ListArrays();
                             }};
    const List listTables = {Kind::Table, [](const IGroup& root)
                             {
                                 root.ListTables();
                             }};
    const List listGroups = {Kind::Group, [](const IGroup& root)
                             {
                                 root.ListGroups();
                             }};
    return {
        row("create arrays of 8 doubles", 1.10, kOwnList, fresh, CreateArrays{}),
        row("open arrays, ask for type and shape", 1.15, kOwnObject, arrays, ForEachName(OpenArray{})),
        row("ask whether arrays are extensible", 1.15, kAsExtensible, arrays, ForEachName(IsExtensible{})),
        has,
        Beside(has, "opening them", 1.15, OnFile(arrays, PlainFile, Root{}, ForEachName(OpenArray{}))),
        row("list arrays", 1.15, kOwnObjects, arrays, listArrays),
        row("list tables", 1.15, kOwnObjects, tables, listTables),
        row("list no arrays among tables", 1.15, kOwnObjects, tables, listArrays),
        row("list no tables among arrays", 1.15, kOwnObjects, arrays, listTables),
        row("list groups", 1.15, kOwnObjects, groups, listGroups),
        count,
        Beside(count, "opening them", 1.15,
               OnFile(groups, PlainFile, Root{}, CountGroups{&CountChild<IsGroupWhenOpened>})),
    };
}
