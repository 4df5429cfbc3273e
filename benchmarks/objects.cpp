// Files, groups, small arrays and attributes, by the thousand.
#include "Work.h"

#include <algorithm>
#include <iterator>

using namespace bench;

namespace
{

// One access list serves all files. The kind names the parts of the library's files that they have.
void CreateFiles(const Names& paths, const Task& task)
{
    const bool isMarked = task.kind.find("mark") != std::string::npos;
    const bool isCacheSet = task.kind.find("cache") != std::string::npos;
    const Id access = PlainAccessList();
    for (Name path : paths)
    {
        const Id file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access));
        if (isCacheSet)
        {
            LowerHitRateThreshold(file);
        }
        if (isMarked)
        {
            WriteMark(file);
        }
    }
}

void CreateFileByCpp(Name path)
{
    const unsigned int version = 1;
    const hsize_t one = 1;
    const H5::H5File file(path, H5F_ACC_TRUNC);
    const auto mark = file.createAttribute(kMark, H5::PredType::NATIVE_UINT, H5::DataSpace(1, &one));
    mark.write(H5::PredType::NATIVE_UINT, &version);
}

void OpenFiles(const Names& paths, const Task& /*task*/)
{
    unsigned int version = 0;
    const Id access = PlainAccessList();
    for (Name path : paths)
    {
        const Id file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access));
        LowerHitRateThreshold(file);
        const Id mark(H5Aopen(file, kMark, H5P_DEFAULT));
        H5Aread(mark, H5T_NATIVE_UINT, &version);
    }
}

void OpenFileByCpp(Name path)
{
    unsigned int version = 0;
    const H5::H5File file(path, H5F_ACC_RDONLY);
    file.openAttribute(kMark).read(H5::PredType::NATIVE_UINT, &version);
}

void AddFileWorks(Works& works)
{
    const auto add = [&](Name sideAndWork, auto work)
    {
        works[sideAndWork] = [=](const Task& task)
        {
            Measure(task, [&] { work(task.names, task); });
        };
    };
    const auto addForEach = [&](Name sideAndWork, auto work)
    {
        add(sideAndWork, [=](const Names& paths, const Task& /*task*/) { ForEach(paths, work); });
    };
    add("plain create files", CreateFiles);
    add("plain create files, a list each",
        [](const Names& paths, const Task& task) { ForEach(paths, [&](Name path) { CreateFiles({path}, task); }); });
    add("plain open files", OpenFiles);
    addForEach("library create files", [](Name path) { IFile::Open(path, "w", 0)->Close(); });
    addForEach("cpp create files", CreateFileByCpp);
    addForEach("library open files", [](Name path) { IFile::Open(path, "r", 0)->Close(); });
    addForEach("cpp open files", OpenFileByCpp);
}

// The work for each name, for what has nothing to make once for all.
template <typename Work>
auto ForEachName(Work work)
{
    return [=](auto& group, const Task& task)
    {
        ForEach(task.names, [&](Name name) { work(group, name); });
    };
}

struct CreateGroups
{
    void operator()(IGroup& root, const Task& task) const
    {
        ForEach(task.names, [&](Name path) { root.CreateGroup(path); });
    }
    void operator()(hid_t root, const Task& task) const
    {
        const Id links(H5Pcreate(H5P_LINK_CREATE));
        H5Pset_create_intermediate_group(links, 1);
        ForEach(task.names, [&](Name path) { Id(H5Gcreate2(root, path.c_str(), links, H5P_DEFAULT, H5P_DEFAULT)); });
    }
    void operator()(const H5::Group& root, const Task& task) const
    {
        H5::LinkCreatPropList links;
        links.setCreateIntermediateGroup(true);
        ForEach(task.names, [&](Name path) { root.createGroup(path, links); });
    }
};

constexpr hsize_t kLength = 8;
double values[kLength] = {1, 2, 3, 4, 5, 6, 7, 8};

// A space and a creation list serve all arrays.
struct CreateArrays
{
    void operator()(IGroup& root, const Task& task) const
    {
        ForEach(task.names,
                [&](Name name) { root.CreateArrayFromBuffer(name, values, TDataType::Double, kLength, 1); });
    }
    void operator()(hid_t root, const Task& task) const
    {
        const Id space(H5Screate_simple(1, &kLength, nullptr));
        const Id list = CreationList(1, &kLength, 0);
        for (Name name : task.names)
        {
            const Id set(H5Dcreate2(root, name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
            H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
        }
    }
    void operator()(const H5::Group& root, const Task& task) const
    {
        const auto& type = H5::PredType::NATIVE_DOUBLE;
        const H5::DataSpace space(1, &kLength);
        H5::DSetCreatPropList list;
        list.setChunk(1, &kLength);
        ForEach(task.names, [&](Name name) { root.createDataSet(name, type, space, list).write(values, type); });
    }
};

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
    hsize_t dimensions[2] = {0, 0};
    hsize_t maximum[2] = {0, 0};
    const Id space(H5Dget_space(set));
    if (H5Sget_simple_extent_ndims(space) <= 2)
    {
        H5Sget_simple_extent_dims(space, dimensions, maximum);
    }
}

struct OpenByName
{
    void (*openByLibrary)(IGroup& root, Name name);

    void operator()(IGroup& root, Name name) const { openByLibrary(root, name); }
    void operator()(hid_t root, Name name) const
    {
        const Id set(H5Dopen2(root, name.c_str(), H5P_DEFAULT));
        AskNumberType(Id(H5Dget_type(set)));
        AskShape(set);
    }
    void operator()(const H5::Group& root, Name name) const
    {
        hsize_t dimensions[2] = {0, 0};
        hsize_t maximum[2] = {0, 0};
        const H5::DataSet set = root.openDataSet(name);
        set.getDataType().getSize();
        set.getSpace().getSimpleExtentDims(dimensions, maximum);
    }
};

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

H5O_type_t TypeOfChild(hid_t group, const char* name)
{
    H5O_info_t info;
    H5Oget_info_by_name2(group, name, &info, H5O_INFO_BASIC, H5P_DEFAULT);
    return info.type;
}

struct Has
{
    bool operator()(IGroup& root, Name name) const { return root.HasArray(name); }
    bool operator()(hid_t root, Name name) const
    {
        return H5Lexists(root, name.c_str(), H5P_DEFAULT) > 0 && TypeOfChild(root, name.c_str()) == H5O_TYPE_DATASET;
    }
    bool operator()(const H5::Group& root, Name name) const
    {
        return root.nameExists(name) && root.childObjType(name) == H5O_TYPE_DATASET;
    }
};

struct Listing
{
    const std::string& kind; // "arrays", "tables" or "groups".
    std::vector<hid_t> ids = {};
};

// Asks a data set for type and shape.
bool IsOfKind(hid_t child, Name kind)
{
    if (kind == "groups" || H5Iget_type(child) != H5I_DATASET)
    {
        return kind == "groups" && H5Iget_type(child) == H5I_GROUP;
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

herr_t OpenChild(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    auto& listing = *static_cast<Listing*>(data);
    const hid_t child = info->type == H5L_TYPE_HARD ? H5Oopen(group, name, H5P_DEFAULT) : H5I_INVALID_HID;
    const bool isListed = child >= 0 && IsOfKind(child, listing.kind);
    if (isListed)
    {
        listing.ids.push_back(child);
    }
    return isListed || child < 0 ? 0 : H5Oclose(child);
}

// Opens all children of a kind, in the order of names, and asks data sets for type and shape.
struct List
{
    void operator()(const IGroup& root, const Task& task) const
    {
        using ListKind = std::function<void(const IGroup&)>;
        static const std::map<std::string, ListKind> lists = {
            {"arrays", &IGroup::ListArrays}, {"tables", &IGroup::ListTables}, {"groups", &IGroup::ListGroups}};
        lists.at(task.kind)(root);
    }
    void operator()(hid_t root, const Task& task) const
    {
        Listing listing = {task.kind};
        H5Literate(root, H5_INDEX_NAME, H5_ITER_INC, nullptr, &OpenChild, &listing);
        ForEach(listing.ids, H5Oclose);
    }
    void operator()(const H5::Group& root, const Task& task) const
    {
        std::vector<H5::Group> groups;
        std::vector<H5::DataSet> sets;
        const hsize_t children = root.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            const std::string name = root.getObjnameByIdx(i);
            const bool isGroup = root.childObjType(name) == H5O_TYPE_GROUP;
            if (isGroup && task.kind == "groups")
            {
                groups.push_back(root.openGroup(name));
            }
            if (isGroup || task.kind == "groups")
            {
                continue;
            }
            const H5::DataSet set = root.openDataSet(name);
            if ((set.getTypeClass() == H5T_COMPOUND) == (task.kind == "tables"))
            {
                set.getSpace().getSimpleExtentNpoints();
                sets.push_back(set);
            }
        }
    }
};

herr_t CountChild(hid_t group, const char* name, const H5L_info_t* info, void* count)
{
    const bool isGroup = info->type == H5L_TYPE_HARD && TypeOfChild(group, name) == H5O_TYPE_GROUP;
    *static_cast<std::size_t*>(count) += isGroup ? 1 : 0;
    return 0;
}

struct CountGroups
{
    void operator()(const IGroup& root, const Task& /*task*/) const { root.GetNumberOfGroups(); }
    void operator()(hid_t root, const Task& /*task*/) const
    {
        std::size_t groups = 0;
        H5Literate(root, H5_INDEX_NAME, H5_ITER_INC, nullptr, &CountChild, &groups);
    }
    std::size_t operator()(const H5::Group& root, const Task& /*task*/) const
    {
        std::size_t groups = 0;
        const hsize_t children = root.getNumObjs();
        for (hsize_t i = 0; i < children; ++i)
        {
            groups += root.childObjType(i) == H5O_TYPE_GROUP ? 1 : 0;
        }
        return groups;
    }
};

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

void AddGroupAndArrayWorks(Works& works)
{
    const auto addMaker = [&](Name work, auto create)
    {
        AddSide(works, "library " + work, LibraryFile, Root{}, ForEachName(create));
    };
    const auto addOpen = [&](Name work, void (*openByLibrary)(IGroup & root, Name name))
    {
        AddWork(works, work, Root{}, ForEachName(OpenByName{openByLibrary}));
    };
    AddWork(works, "create groups", Root{}, CreateGroups{});
    AddWork(works, "create arrays", Root{}, CreateArrays{});
    addMaker("create tables", CreateTable);
    addMaker("create extensible arrays", [](IGroup& root, Name name)
             { root.CreateExtensibleArray2D(name, TDataType::Double, 0, 16, 1024, 16, 0); });
    addOpen("open", [](IGroup& root, Name name) { root.GetArray(name)->GetLength(); });
    addOpen("open extensible", [](IGroup& root, Name name) { root.GetExtensibleArray2D(name); });
    addOpen("is extensible", [](IGroup& root, Name name) { root.HasExtensibleArray2D(name); });
    AddSide(works, "plain open literally", PlainFile, Root{}, ForEachName(OpenByLiteralCalls));
    AddWork(works, "has", Root{}, ForEachName(Has{}));
    AddWork(works, "list", Root{}, List{});
    AddWork(works, "count groups", Root{}, CountGroups{});
}

// Opens the groups on which attributes are spread; makes them in a new file.
struct OpenGroups
{
    template <typename OpenOne>
    static auto OpenEach(const Task& task, OpenOne openOne)
    {
        std::vector<decltype(openOne(task.path))> groups;
        ForEach(task.groups, [&](Name name) { groups.push_back(openOne(name)); });
        return groups;
    }
    auto operator()(IFile& file, const Task& task) const
    {
        return OpenEach(task, [root = file.GetRoot()](Name name) { return root->CreateGroup(name); });
    }
    auto operator()(hid_t file, const Task& task) const
    {
        return OpenEach(task,
                        [&](Name name)
                        {
                            return task.mode == "w"
                                       ? H5Gcreate2(file, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)
                                       : H5Gopen2(file, name.c_str(), H5P_DEFAULT);
                        });
    }
    auto operator()(H5::H5File& file, const Task& task) const
    {
        return OpenEach(task,
                        [&](Name name) { return task.mode == "w" ? file.createGroup(name) : file.openGroup(name); });
    }
};

using Group = boost::shared_ptr<IGroup>;

// The work for each attribute. One object of the work serves all: what it has is made once, in the time that is measured.
template <typename Work>
struct ForEachAttribute
{
    template <typename Groups>
    void operator()(const Groups& groups, const Task& task) const
    {
        const Work work;
        for (const auto& group : groups)
        {
            for (std::size_t i = 0; i < task.names.size(); ++i)
            {
                work(group, task.names[i], task.texts[i]);
            }
        }
    }
};

struct SetPlainly
{
    const hsize_t one = 1;
    Id space{H5Screate_simple(1, &one, nullptr)};
    Id type{H5Tcopy(H5T_C_S1)};

    SetPlainly() { H5Tset_cset(type, H5T_CSET_UTF8); }
    void operator()(hid_t group, Name name, Name text) const
    {
        H5Tset_size(type, text.size());
        const Id attribute(H5Acreate2(group, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT));
        H5Awrite(attribute, type, text.c_str());
    }
};

struct SetText
{
    void operator()(const Group& group, Name name, Name text) const { group->SetAttr(name, text); }
    void operator()(hid_t group, Name name, Name text) const { SetPlainly{}(group, name, text); }
    void operator()(const H5::Group& group, Name name, Name text) const
    {
        const hsize_t one = 1;
        H5::StrType type(H5::PredType::C_S1, text.size());
        type.setCset(H5T_CSET_UTF8);
        group.createAttribute(name, type, H5::DataSpace(1, &one)).write(type, text);
    }
};

struct GetText
{
    void operator()(const Group& group, Name name, Name /*text*/) const { group->GetAttr(name); }
    void operator()(hid_t group, Name name, Name /*text*/) const
    {
        const Id attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT));
        const Id type(H5Aget_type(attribute));
        std::string text(H5Tget_size(type), '\0');
        if (H5Tget_class(type) == H5T_STRING && H5Tis_variable_str(type) == 0 && H5Tget_cset(type) >= 0)
        {
            H5Aread(attribute, type, text.data());
        }
    }
    void operator()(const H5::Group& group, Name name, Name /*text*/) const
    {
        const H5::Attribute attribute = group.openAttribute(name);
        std::string text;
        attribute.read(attribute.getStrType(), text);
    }
};

herr_t CopyName(hid_t /*object*/, const char* name, const H5A_info_t* /*info*/, void* names)
{
    static_cast<Names*>(names)->emplace_back(name);
    return 0;
}

struct ListAttributes
{
    void operator()(const Group& group) const { group->ListAttrs(); }
    void operator()(hid_t group) const
    {
        Names names;
        H5Aiterate2(group, H5_INDEX_CRT_ORDER, H5_ITER_INC, nullptr, &CopyName, &names);
    }
    void operator()(const H5::Group& group) const
    {
        Names names;
        const int count = group.getNumAttrs();
        for (int i = 0; i < count; ++i)
        {
            names.push_back(group.openAttribute(static_cast<unsigned int>(i)).getName());
        }
    }
};

void AddAttributeWorks(Works& works)
{
    const auto list = [](const auto& groups, const Task& /*task*/)
    {
        ForEach(groups, ListAttributes{});
    };
    AddWork(works, "set texts", OpenGroups{}, ForEachAttribute<SetText>{});
    AddSide(works, "plain set texts, all made once", PlainFile, OpenGroups{}, ForEachAttribute<SetPlainly>{});
    AddWork(works, "get texts", OpenGroups{}, ForEachAttribute<GetText>{});
    AddWork(works, "list attributes", OpenGroups{}, list);
}

} // namespace

void bench::AddObjectWorks(Works& works)
{
    AddFileWorks(works);
    AddGroupAndArrayWorks(works);
    AddAttributeWorks(works);
}
