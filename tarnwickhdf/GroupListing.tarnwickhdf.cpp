#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IExtensibleArray2D.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/HandOver.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>

namespace tarnwick::hdf
{

namespace
{

constexpr size_t kNameBufferSize = 512;

// Gives a child's name, cut to what the name buffer holds; asked only where the name is needed, because it can fail.
using ChildName = std::function<std::string()>;

// What a walk does with the children of one kind.
struct Walk
{
    int kind;
    std::function<bool(const ChildName& name)> visit; ///< Returns whether the walk goes on.
    std::function<void()> restart;                    ///< Forgets what was visited: the walk begins anew.
    std::exception_ptr failure;
};

hsize_t CountChildren(hid_t group)
{
    hsize_t count = 0;
    CheckResult(H5Gget_num_objs(group, &count), "error getting number of objects in group");
    return count;
}

std::string NameOfChild(hid_t group, hsize_t index)
{
    char name[kNameBufferSize] = "";
    CheckResult(H5Gget_objname_by_idx(group, index, name, sizeof(name)), "error getting object name");
    return name;
}

int KindOfObject(hid_t group, const char* name)
{
    H5O_info_t info = {};
    if (H5Oget_info_by_name2(group, name, &info, H5O_INFO_BASIC, H5P_DEFAULT) < 0)
    {
        return H5G_UNKNOWN;
    }
    switch (info.type)
    {
    case H5O_TYPE_GROUP:
        return H5G_GROUP;
    case H5O_TYPE_DATASET:
        return H5G_DATASET;
    case H5O_TYPE_NAMED_DATATYPE:
        return H5G_TYPE;
    default:
        return H5G_UNKNOWN;
    }
}

int KindOfChild(hid_t group, const char* name, H5L_type_t link)
{
    if (link == H5L_TYPE_HARD)
    {
        return KindOfObject(group, name);
    }
    return link == H5L_TYPE_SOFT ? H5G_LINK : H5G_UDLINK;
}

// No exception may cross HDF5's own frames: it waits in the walk until the iteration has ended.
herr_t ShowChild(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    auto& walk = *static_cast<Walk*>(data);
    try
    {
        if (KindOfChild(group, name, info->type) != walk.kind)
        {
            return 0;
        }
        return walk.visit([name] { return std::string(name, strnlen(name, kNameBufferSize - 1)); }) ? 0 : 1;
    }
    catch (...)
    {
        walk.failure = std::current_exception();
        return -1;
    }
}

void WalkByIndex(hid_t group, const Walk& walk)
{
    const hsize_t count = CountChildren(group);
    for (hsize_t index = 0; index < count; ++index)
    {
        if (H5Gget_objtype_by_idx(group, index) == walk.kind && !walk.visit([&] { return NameOfChild(group, index); }))
        {
            return;
        }
    }
}

// Visits the children in the order of HDF5's name index, at a cost that grows with their number. Asking HDF5 for one
// child after the other by index gives the same at a cost that grows with its square: that way is kept for groups that
// HDF5 can't iterate, for the words of the failure and for what can still be read of a damaged group.
void WalkChildren(hid_t group, Walk walk)
{
    if (H5Literate(group, H5_INDEX_NAME, H5_ITER_INC, nullptr, &ShowChild, &walk) >= 0)
    {
        return;
    }
    if (walk.failure)
    {
        std::rethrow_exception(walk.failure);
    }
    walk.restart();
    WalkByIndex(group, walk);
}

// Opens a child while HDF5 still holds what it has just read of it. A cut name, and a child that doesn't open at once,
// are left to `openByName` and its checks.
template <typename Node, typename Holder, typename FromId, typename OpenByName>
boost::shared_ptr<Node> OpenChild(hid_t group, const std::string& name, hid_t (*open)(hid_t, const char*),
                                  FromId fromId, OpenByName openByName)
{
    if (name.size() < kNameBufferSize - 1)
    {
        Holder child(open(group, name.c_str()));
        if (child.get() >= 0)
        {
            return fromId(child.release());
        }
    }
    return openByName();
}

// Opens the data sets that open as this class and passes over the others: every refusal is a std::runtime_error.
template <typename DataSet, typename FromId>
std::vector<boost::shared_ptr<DataSet>> ListDataSets(const boost::weak_ptr<IFile>& file, hid_t group, FromId fromId)
{
    std::vector<boost::shared_ptr<DataSet>> dataSets;
    const auto open = [&](const ChildName& childName)
    {
        const std::string name = childName();
        try
        {
            dataSets.push_back(OpenChild<DataSet, ScopedDataSet>(
                group, name, &H5Dopen1, [&](hid_t id) { return fromId(file, group, name, id); },
                [&] { return DataSet::Open(file, group, name); }));
        }
        catch (const std::runtime_error&) // NOLINT(bugprone-empty-catch): what doesn't open as this kind isn't listed.
        {
        }
        return true;
    };
    WalkChildren(group, {H5G_DATASET, open, [&] { dataSets.clear(); }, nullptr});
    return dataSets;
}

} // namespace

void IGroup::ListNames(int kind, std::vector<std::string>& names) const
{
    const auto keepName = [&](const ChildName& name)
    {
        names.push_back(name());
        return true;
    };
    CountChildren(m_location);
    names.clear();
    WalkChildren(m_location, {kind, keepName, [&] { names.clear(); }, nullptr});
}

std::vector<boost::shared_ptr<IGroup>> IGroup::ListGroups() const
{
    std::vector<boost::shared_ptr<IGroup>> groups;
    const auto open = [&](const ChildName& childName)
    {
        const std::string name = childName();
        const auto fromId = [&](hid_t id)
        {
            ScopedGroup group(id);
            return HandOver(std::unique_ptr<IGroup>(new IGroup(m_file, id, name, m_default_compression)), group);
        };
        groups.push_back(
            OpenChild<IGroup, ScopedGroup>(m_location, name, &H5Gopen1, fromId,
                                           [&] { return Open(m_file, m_location, name, m_default_compression); }));
        return true;
    };
    WalkChildren(m_location, {H5G_GROUP, open, [&] { groups.clear(); }, nullptr});
    return groups;
}

std::vector<boost::shared_ptr<IArray>> IGroup::ListArrays() const
{
    return ListDataSets<IArray>(m_file, m_location, &IArray::FromOpenDataSet);
}

std::vector<boost::shared_ptr<IExtensibleArray2D>> IGroup::ListExtensibleArrays2D() const
{
    return ListDataSets<IExtensibleArray2D>(m_file, m_location, &IExtensibleArray2D::FromOpenDataSet);
}

std::vector<boost::shared_ptr<ITable>> IGroup::ListTables() const
{
    return ListDataSets<ITable>(m_file, m_location, &ITable::FromOpenDataSet);
}

std::string IGroup::GetChildName(int index) const
{
    return NameOfChild(m_location, static_cast<hsize_t>(index));
}

int IGroup::GetChildType(int index) const
{
    return H5Gget_objtype_by_idx(m_location, static_cast<hsize_t>(index));
}

size_t IGroup::GetNumberOfChildren() const
{
    return static_cast<size_t>(CountChildren(m_location));
}

size_t IGroup::GetNumberOfGroups() const
{
    size_t groups = 0;
    const auto countIt = [&](const ChildName& /*name*/)
    {
        ++groups;
        return true;
    };
    WalkChildren(m_location, {H5G_GROUP, countIt, [&] { groups = 0; }, nullptr});
    return groups;
}

bool IGroup::HasDataSet() const
{
    bool found = false;
    const auto stopHere = [&](const ChildName& /*name*/)
    {
        found = true;
        return false;
    };
    WalkChildren(m_location, {H5G_DATASET, stopHere, [] {}, nullptr});
    return found;
}

} // namespace tarnwick::hdf
