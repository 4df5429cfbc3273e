// Files, groups, small arrays and attributes, by the thousand.
#include "Work.h"

#include <algorithm>
#include <iterator>

using namespace bench;

namespace
{

const Side kFilesByLibrary("library files", [](const Task& task)
                           { ForEach(task.names, [&](Name path) { LibraryFile(path, task.mode)->Close(); }); });
const Side kFilesByCpp("cpp files",
                       [](const Task& task) { ForEach(task.names, [&](Name path) { CppFile(path, task.mode); }); });
const Side kFilesWithAListEach("plain files, a list each", [](const Task& task)
                               { ForEach(task.names, [&](Name path) { PlainFile(path, task.mode); }); });
const Side kFilesPlainly("plain files",
                         [](const Task& task)
                         {
                             const Id access = PlainAccessList();
                             ForEach(task.names, [&](Name path) { PlainFileWith(access, path, task.mode); });
                         });

const Work kCreateGroups(
    "create groups", Root{}, kOnce,
    [](IGroup& root, const Task& task) { ForEach(task.names, [&](Name path) { root.CreateGroup(path); }); },
    [](hid_t root, const Task& task)
    {
        const Id links(H5Pcreate(H5P_LINK_CREATE));
        H5Pset_create_intermediate_group(links, 1);
        ForEach(task.names, [&](Name path) { Id(H5Gcreate2(root, path.c_str(), links, H5P_DEFAULT, H5P_DEFAULT)); });
    },
    [](const H5::Group& root, const Task& task)
    {
        H5::LinkCreatPropList links;
        links.setCreateIntermediateGroup(true);
        ForEach(task.names, [&](Name path) { root.createGroup(path, links); });
    });

// A space and a creation list serve all arrays.
constexpr hsize_t kLength = 8;
double values[kLength] = {1, 2, 3, 4, 5, 6, 7, 8};

const Work kCreateArrays(
    "create arrays", Root{}, kOnce,
    [](IGroup& root, const Task& task) {
        ForEach(task.names,
                [&](Name name) { root.CreateArrayFromBuffer(name, values, TDataType::Double, kLength, 1); });
    },
    [](hid_t root, const Task& task)
    {
        const Id space(H5Screate_simple(1, &kLength, nullptr));
        const Id list(H5Pcreate(H5P_DATASET_CREATE));
        H5Pset_chunk(list, 1, &kLength);
        for (Name name : task.names)
        {
            const Id set(H5Dcreate2(root, name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
            H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
        }
    },
    [](const H5::Group& root, const Task& task)
    {
        const auto& type = H5::PredType::NATIVE_DOUBLE;
        const H5::DataSpace space(1, &kLength);
        H5::DSetCreatPropList list;
        list.setChunk(1, &kLength);
        ForEach(task.names, [&](Name name) { root.createDataSet(name, type, space, list).write(values, type); });
    });

struct TableRow
{
    double value;
    int number;
};

void CreateTable(IGroup& root, Name name)
{
    static const RowType<TableRow> type = {{"value", &TableRow::value}, {"number", &TableRow::number}};
    TableRow row = {1.5, 2};
    root.CreateTableFromBuffer(name, &row, 1, type.Id(), 0, -1, 0);
}

const Side kCreateTables("library create tables", LibraryFile, Root{}, kForEachName, CreateTable);
const Side kCreateExtensibleArrays("library create extensible arrays", LibraryFile, Root{}, kForEachName,
                                   [](IGroup& root, Name name)
                                   { root.CreateExtensibleArray2D(name, TDataType::Double, 0, 16, 1024, 16, 0); });

// What a caller has to know of a data set before reading it.
void AskNumberType(hid_t type)
{
    H5Tget_size(type);
    H5Tget_order(type);
    if (H5Tget_class(type) == H5T_INTEGER)
    {
        H5Tget_sign(type);
    }
}

void AskShape(hid_t set)
{
    hsize_t dimensions[H5S_MAX_RANK];
    hsize_t maximum[H5S_MAX_RANK];
    const Id space(H5Dget_space(set));
    H5Sget_simple_extent_ndims(space);
    H5Sget_simple_extent_dims(space, dimensions, maximum);
}

const Work kOpen(
    "open", Root{}, kForEachName, [](IGroup& root, Name name) { root.GetArray(name)->GetLength(); },
    [](hid_t root, Name name)
    {
        const Id set(H5Dopen2(root, name.c_str(), H5P_DEFAULT));
        AskNumberType(Id(H5Dget_type(set)));
        AskShape(set);
    },
    [](const H5::Group& root, Name name)
    {
        hsize_t dimensions[H5S_MAX_RANK];
        hsize_t maximum[H5S_MAX_RANK];
        const H5::DataSet set = root.openDataSet(name);
        set.getDataType().getSize();
        set.getSpace().getSimpleExtentDims(dimensions, maximum);
    });
const Side kOpenExtensible("library open extensible", LibraryFile, Root{}, kForEachName,
                           [](IGroup& root, Name name) { root.GetExtensibleArray2D(name); });
const Side kIsExtensible("library is extensible", LibraryFile, Root{}, kForEachName,
                         [](IGroup& root, Name name) { root.HasExtensibleArray2D(name); });

// Asks whether the path leads to a data set before opening it, and finds the type by comparing.
void OpenByLiteralCalls(hid_t root, Name name)
{
    const hid_t types[] = {H5T_NATIVE_SCHAR, H5T_NATIVE_UCHAR,  H5T_NATIVE_SHORT, H5T_NATIVE_USHORT, H5T_NATIVE_INT,
                           H5T_NATIVE_UINT,  H5T_STD_I64LE,     H5T_STD_U64LE,    H5T_NATIVE_LONG,   H5T_NATIVE_ULONG,
                           H5T_NATIVE_LLONG, H5T_NATIVE_ULLONG, H5T_NATIVE_FLOAT, H5T_NATIVE_DOUBLE};
    H5O_info_t info;
    H5Lexists(root, name.c_str(), H5P_DEFAULT);
    H5Oexists_by_name(root, name.c_str(), H5P_DEFAULT);
    H5Oget_info_by_name1(root, name.c_str(), &info, H5P_DEFAULT);
    const Id set(H5Dopen2(root, name.c_str(), H5P_DEFAULT));
    const Id type(H5Dget_type(set));
    if (std::any_of(std::begin(types), std::end(types), [&](hid_t known) { return H5Tequal(known, type) != 0; }))
    {
        AskShape(set);
    }
}

const Side kOpenLiterally("plain open literally", PlainFile, Root{}, kForEachName, OpenByLiteralCalls);

H5O_type_t TypeOfChild(hid_t group, const char* name)
{
    H5O_info_t info;
    H5Oget_info_by_name2(group, name, &info, H5O_INFO_BASIC, H5P_DEFAULT);
    return info.type;
}

const Work kHas(
    "has", Root{}, kForEachName, [](IGroup& root, Name name) { root.HasArray(name); },
    [](hid_t root, Name name)
    { return H5Lexists(root, name.c_str(), H5P_DEFAULT) > 0 && TypeOfChild(root, name.c_str()) == H5O_TYPE_DATASET; },
    [](const H5::Group& root, Name name)
    { return root.nameExists(name) && root.childObjType(name) == H5O_TYPE_DATASET; });

struct Listing
{
    const std::string& kind; // "arrays", "tables" or "groups".
    std::vector<hid_t> ids = {};
};

// Asks a data set for type and shape.
bool IsOfKind(hid_t child, Name kind)
{
    const H5I_type_t object = H5Iget_type(child);
    if (object == H5I_GROUP || kind == "groups")
    {
        return object == H5I_GROUP && kind == "groups";
    }
    const Id type(H5Dget_type(child));
    const bool isTable = H5Tget_class(type) == H5T_COMPOUND;
    if (isTable != (kind == "tables"))
    {
        return false;
    }
    for (int i = 0; isTable && i < H5Tget_nmembers(type); ++i)
    {
        AskNumberType(Id(H5Tget_member_type(type, static_cast<unsigned int>(i))));
    }
    if (!isTable)
    {
        AskNumberType(type);
    }
    AskShape(child);
    return true;
}

herr_t OpenChild(hid_t group, const char* name, const H5L_info_t* /*info*/, void* data)
{
    auto& listing = *static_cast<Listing*>(data);
    const hid_t child = H5Oopen(group, name, H5P_DEFAULT);
    if (!IsOfKind(child, listing.kind))
    {
        return H5Oclose(child);
    }
    listing.ids.push_back(child);
    return 0;
}

// Opens all children of a kind, in the order of names, and asks data sets for type and shape.
const Work kList(
    "list", Root{}, kOnce,
    [](const IGroup& root, const Task& task)
    {
        static const std::map<std::string, std::function<void(const IGroup&)>> lists = {
            {"arrays", &IGroup::ListArrays}, {"tables", &IGroup::ListTables}, {"groups", &IGroup::ListGroups}};
        lists.at(task.kind)(root);
    },
    [](hid_t root, const Task& task)
    {
        Listing listing = {task.kind};
        H5Literate(root, H5_INDEX_NAME, H5_ITER_INC, nullptr, &OpenChild, &listing);
        ForEach(listing.ids, H5Oclose);
    },
    [](const H5::Group& root, const Task& task)
    {
        std::vector<H5::Group> groups;
        std::vector<H5::DataSet> sets;
        const hsize_t children = root.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            const std::string name = root.getObjnameByIdx(i);
            const bool isGroup = root.childObjType(name) == H5O_TYPE_GROUP;
            if (isGroup != (task.kind == "groups"))
            {
                continue;
            }
            if (isGroup)
            {
                groups.push_back(root.openGroup(name));
                continue;
            }
            const H5::DataSet set = root.openDataSet(name);
            if ((set.getTypeClass() == H5T_COMPOUND) == (task.kind == "tables"))
            {
                set.getSpace().getSimpleExtentNpoints();
                sets.push_back(set);
            }
        }
    });

herr_t CountChild(hid_t group, const char* name, const H5L_info_t* /*info*/, void* count)
{
    *static_cast<std::size_t*>(count) += TypeOfChild(group, name) == H5O_TYPE_GROUP ? 1 : 0;
    return 0;
}

const Work kCountGroups(
    "count groups", Root{}, kOnce, [](const IGroup& root, const Task& /*task*/) { root.GetNumberOfGroups(); },
    [](hid_t root, const Task& /*task*/)
    {
        std::size_t groups = 0;
        H5Literate(root, H5_INDEX_NAME, H5_ITER_INC, nullptr, &CountChild, &groups);
    },
    [](const H5::Group& root, const Task& /*task*/)
    {
        std::size_t groups = 0;
        const hsize_t children = root.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            groups += root.childObjType(i) == H5O_TYPE_GROUP ? 1 : 0;
        }
        return groups;
    });

// The groups on which attributes are spread. They are made in a new file.
struct Groups
{
    template <typename Create, typename Open>
    static auto Each(const Task& task, Create create, Open open)
    {
        std::vector<decltype(open(task.path))> groups;
        ForEach(task.groups, [&](Name name) { groups.push_back(task.mode == "w" ? create(name) : open(name)); });
        return groups;
    }
    auto operator()(IFile& file, const Task& task) const
    {
        const auto root = file.GetRoot();
        return Each(
            task, [&](Name name) { return root->CreateGroup(name); }, [&](Name name) { return root->GetGroup(name); });
    }
    auto operator()(hid_t file, const Task& task) const
    {
        return Each(
            task, [=](Name name) { return H5Gcreate2(file, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT); },
            [=](Name name) { return H5Gopen2(file, name.c_str(), H5P_DEFAULT); });
    }
    auto operator()(H5::H5File& file, const Task& task) const
    {
        return Each(
            task, [&](Name name) { return file.createGroup(name); }, [&](Name name) { return file.openGroup(name); });
    }
};

using Group = boost::shared_ptr<IGroup>;

constexpr auto kForEachAttribute = [](const auto& groups, const Task& task, const auto& work)
{
    for (const auto& group : groups)
    {
        for (std::size_t i = 0; i < task.names.size(); ++i)
        {
            work(group, task.names[i], task.texts[i]);
        }
    }
};

// Sets texts with one space and one type.
struct SetPlainly
{
    Id space{H5Screate_simple(1, &kOne, nullptr)};
    Id type{H5Tcopy(H5T_C_S1)};

    SetPlainly() { H5Tset_cset(type, H5T_CSET_UTF8); }
    void operator()(hid_t group, Name name, Name text) const
    {
        H5Tset_size(type, text.size());
        const Id attribute(H5Acreate2(group, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT));
        H5Awrite(attribute, type, text.c_str());
    }
};

const Work kSetTexts(
    "set texts", Groups{}, kForEachAttribute,
    [](const Group& group, Name name, Name text) { group->SetAttr(name, text); },
    [](hid_t group, Name name, Name text) { SetPlainly{}(group, name, text); },
    [](const H5::Group& group, Name name, Name text)
    {
        H5::StrType type(H5::PredType::C_S1, text.size());
        type.setCset(H5T_CSET_UTF8);
        group.createAttribute(name, type, H5::DataSpace(1, &kOne)).write(type, text);
    });
const Side kSetTextsAllMadeOnce("plain set texts, all made once", PlainFile, Groups{}, kOnce,
                                [](const auto& groups, const Task& task)
                                { kForEachAttribute(groups, task, SetPlainly{}); });

const Work kGetTexts(
    "get texts", Groups{}, kForEachAttribute,
    [](const Group& group, Name name, Name /*text*/) { group->GetAttr(name); },
    [](hid_t group, Name name, Name /*text*/)
    {
        const Id attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT));
        const Id type(H5Aget_type(attribute));
        std::string text(H5Tget_size(type), '\0');
        if (H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0 && H5Tget_cset(type) >= 0)
        {
            H5Aread(attribute, type, text.data());
        }
    },
    [](const H5::Group& group, Name name, Name /*text*/)
    {
        const H5::Attribute attribute = group.openAttribute(name);
        std::string text;
        attribute.read(attribute.getStrType(), text);
    });

herr_t CopyName(hid_t /*object*/, const char* name, const H5A_info_t* /*info*/, void* names)
{
    static_cast<Names*>(names)->emplace_back(name);
    return 0;
}

const Work kListAttributes(
    "list attributes", Groups{},
    [](const auto& groups, const Task& /*task*/, const auto& work) { ForEach(groups, work); },
    [](const Group& group) { group->ListAttrs(); },
    [](hid_t group)
    {
        Names names;
        H5Aiterate2(group, H5_INDEX_CRT_ORDER, H5_ITER_INC, nullptr, &CopyName, &names);
    },
    [](const H5::Group& group)
    {
        Names names;
        const int count = group.getNumAttrs();
        for (int i = 0; i < count; ++i)
        {
            names.push_back(group.openAttribute(static_cast<unsigned int>(i)).getName());
        }
    });

} // namespace
