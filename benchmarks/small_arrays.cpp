#include "Pairs.h"
#include "small_arrays_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <memory>

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

constexpr std::size_t kLength = 8;
double values[kLength] = {1, 2, 3, 4, 5, 6, 7, 8};

struct Row
{
    double value;
    int number;
};

hid_t CreateRowType()
{
    const hid_t type = H5Tcreate(H5T_COMPOUND, sizeof(Row));
    H5Tinsert(type, "value", HOFFSET(Row, value), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "number", HOFFSET(Row, number), H5T_NATIVE_INT);
    return type;
}

// The names of one size, and the files that hold so many children of one kind, made when they are first asked for.
struct Group
{
    explicit Group(std::size_t count) : names(bench::Names("child", count)) {}

    std::string WithArrays() const
    {
        return Prepared("arrays", [&](IGroup& root, const std::string& name)
                        { root.CreateArrayFromBuffer(name, values, TDataType::Double, kLength, 1); });
    }

    std::string WithTables() const
    {
        const hid_t type = CreateRowType();
        Row row = {1.5, 2};
        const std::string path = Prepared("tables", [&](IGroup& root, const std::string& name)
                                          { root.CreateTableFromBuffer(name, &row, 1, type, 0, -1, 0); });
        H5Tclose(type);
        return path;
    }

    std::string WithGroups() const
    {
        return Prepared("groups", [](IGroup& root, const std::string& name) { root.CreateGroup(name); });
    }

    template <typename Make>
    std::string Prepared(const std::string& kind, Make make) const
    {
        const std::string path = bench::PathOf("small-" + kind + "-" + std::to_string(names.strings.size()) + ".h5");
        if (!IFile::IsHDF5File(path))
        {
            const auto file = IFile::Open(path, "w", 0);
            for (const std::string& name : names.strings)
            {
                make(*file->GetRoot(), name);
            }
        }
        return path;
    }

    bench::Texts names;
};

using SharedGroup = std::shared_ptr<const Group>;
using MakePath = std::string (Group::*)() const;

bench::Side Library(SharedGroup group, MakePath path, std::function<void(const Group&, const IGroup&)> work)
{
    return [=]
    {
        const auto file = IFile::Open(((*group).*path)(), "r", 0);
        const auto root = file->GetRoot();
        return bench::SecondsOf([&] { work(*group, *root); });
    };
}

bench::Side Plain(SharedGroup group, MakePath path, std::function<void(const Group&, hid_t)> work)
{
    return [=]
    {
        const hid_t file = plain_old_file(((*group).*path)().c_str());
        const double seconds = bench::SecondsOf([&] { work(*group, file); });
        H5Fclose(file);
        return seconds;
    };
}

void RegisterCreation(std::size_t count, SharedGroup group)
{
    const auto library = [=]
    {
        const auto file = IFile::Open(bench::PathOf("create-library.h5"), "w", 0);
        const auto root = file->GetRoot();
        return bench::SecondsOf(
            [&]
            {
                for (const std::string& name : group->names.strings)
                {
                    root->CreateArrayFromBuffer(name, values, TDataType::Double, kLength, 1);
                }
            });
    };
    const auto plain = [=]
    {
        const hid_t file = plain_new_file(bench::PathOf("create-plain.h5").c_str());
        const double seconds =
            bench::SecondsOf([&] { plain_create_arrays(file, group->names.pointers.data(), count, values); });
        H5Fclose(file);
        return seconds;
    };
    bench::Compare("arrays/create", count, 1.10, library, plain);
}

template <typename Ask>
std::function<void(const Group&, const IGroup&)> ForEachName(Ask ask)
{
    return [=](const Group& group, const IGroup& root)
    {
        for (const std::string& name : group.names.strings)
        {
            ask(root, name);
        }
    };
}

void RegisterOpening(std::size_t count, SharedGroup group)
{
    const auto openAll = [](const Group& g, hid_t file)
    {
        plain_open_arrays(file, g.names.pointers.data(), g.names.pointers.size());
    };
    const auto plain = Plain(group, &Group::WithArrays, openAll);
    const auto compare = [&](const std::string& work, std::function<void(const Group&, const IGroup&)> ask)
    {
        bench::Compare(work, count, 1.15, Library(group, &Group::WithArrays, std::move(ask)), plain);
    };
    compare("arrays/open",
            ForEachName([](const IGroup& root, const std::string& name) { root.GetArray(name)->GetLength(); }));
    compare("arrays/has", ForEachName([](const IGroup& root, const std::string& name) { root.HasArray(name); }));
    compare("arrays/has-as-extensible",
            ForEachName([](const IGroup& root, const std::string& name) { root.HasExtensibleArray2D(name); }));
}

void RegisterListing(std::size_t count, SharedGroup group)
{
    const auto compare = [&](const std::string& work, MakePath path, std::function<void(const IGroup&)> list,
                             std::function<void(hid_t)> plain)
    {
        bench::Compare(work, count, 1.15,
                       Library(group, path, [=](const Group& /*names*/, const IGroup& root) { list(root); }),
                       Plain(group, path, [=](const Group& /*names*/, hid_t file) { plain(file); }));
    };
    const auto listArrays = [](const IGroup& root)
    {
        root.ListArrays();
    };
    const auto listTables = [](const IGroup& root)
    {
        root.ListTables();
    };
    const auto plainArrays = [](hid_t file)
    {
        plain_list(file, PLAIN_ARRAYS);
    };
    const auto plainTables = [](hid_t file)
    {
        plain_list(file, PLAIN_TABLES);
    };
    compare("list/arrays", &Group::WithArrays, listArrays, plainArrays);
    compare("list/tables", &Group::WithTables, listTables, plainTables);
    compare("list/arrays-among-tables", &Group::WithTables, listArrays, plainArrays);
    compare("list/tables-among-arrays", &Group::WithArrays, listTables, plainTables);
    compare(
        "list/groups", &Group::WithGroups, [](const IGroup& root) { root.ListGroups(); },
        [](hid_t file) { plain_list(file, PLAIN_GROUPS); });
    compare(
        "list/count-groups", &Group::WithGroups, [](const IGroup& root) { root.GetNumberOfGroups(); },
        [](hid_t file) { plain_count_groups(file); });
}

} // namespace

void bench::RegisterWork()
{
    for (const std::size_t count : Sizes({1000, 10000, 50000}))
    {
        const auto group = std::make_shared<const Group>(count);
        RegisterCreation(count, group);
        RegisterOpening(count, group);
        RegisterListing(count, group);
    }
}
