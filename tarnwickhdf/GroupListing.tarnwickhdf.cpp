#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IExtensibleArray2D.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/PassToNode.h>
#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/SameOnEveryHdf5.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

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
    std::function<void()> restart;                    ///< Forgets what was visited: the walk begins again.
    /// Opens a child that may be of another kind, which tells its kind at the cost of the one look-up; returns whether
    /// that went well. Empty where children aren't opened.
    std::function<bool(hid_t group, const char* name)> tryToOpen = nullptr;
    bool wasOfKind = true; ///< The child before: groups mostly hold children of one kind.
    std::exception_ptr failure = nullptr;
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
    ObjectInfo info = {};
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
    return link == H5L_TYPE_HARD ? KindOfObject(group, name) : KindOfLink(link);
}

// No exception may cross HDF5's own frames: it waits in the walk until the iteration has ended.
herr_t ShowChild(hid_t group, const char* name, const H5L_info_t* info, void* data)
{
    auto& walk = *static_cast<Walk*>(data);
    try
    {
        if (walk.tryToOpen && walk.wasOfKind && info->type == H5L_TYPE_HARD && walk.tryToOpen(group, name))
        {
            return 0;
        }
        walk.wasOfKind = KindOfChild(group, name, info->type) == walk.kind;
        if (!walk.wasOfKind)
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
        if (KindOfChildAt(group, index) == walk.kind && !walk.visit([&] { return NameOfChild(group, index); }))
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
    {
        const QuietErrors quiet;
        if (H5Literate(group, H5_INDEX_NAME, H5_ITER_INC, nullptr, &ShowChild, &walk) >= 0)
        {
            return;
        }
    }
    if (walk.failure)
    {
        std::rethrow_exception(walk.failure);
    }
    walk.restart();
    WalkByIndex(group, walk);
}

// Opens the children of a kind while HDF5 still holds what it has just read of them. A cut name, and a child that
// doesn't open at once, are left to `openByName` and its checks.
template <typename Holder, typename Take, typename OpenByName>
void OpenChildren(hid_t location, int kind, hid_t (*open)(hid_t, const char*), Take take, OpenByName openByName,
                  std::function<void()> restart)
{
    const auto tryToOpen = [&](hid_t group, const char* name)
    {
        if (strnlen(name, kNameBufferSize) >= kNameBufferSize - 1)
        {
            return false;
        }
        Holder child(open(group, name));
        if (child.get() < 0)
        {
            return false;
        }
        take(name, std::move(child));
        return true;
    };
    const auto visit = [&](const ChildName& childName)
    {
        const std::string name = childName();
        if (!tryToOpen(location, name.c_str()))
        {
            openByName(name);
        }
        return true;
    };
    WalkChildren(location, {kind, visit, std::move(restart), tryToOpen});
}

// Opens the data sets that open as this class and passes over the others: every refusal is a std::runtime_error.
template <typename DataSet, typename FromId>
std::vector<boost::shared_ptr<DataSet>> ListDataSets(const boost::weak_ptr<IFile>& file, hid_t group, FromId fromId)
{
    std::vector<boost::shared_ptr<DataSet>> dataSets;
    const auto keep = [&](auto make)
    {
        try
        {
            if (boost::shared_ptr<DataSet> dataSet = make())
            {
                dataSets.push_back(std::move(dataSet));
            }
        }
        catch (const std::runtime_error&) // NOLINT(bugprone-empty-catch): what doesn't open as this kind isn't listed.
        {
        }
    };
    OpenChildren<ScopedDataSet>(
        group, H5G_DATASET, &H5Dopen1,
        [&](const char* name, ScopedDataSet opened)
        { keep([&] { return fromId(file, group, name, opened.release(), true); }); },
        [&](const std::string& name) { keep([&] { return DataSet::Open(file, group, name); }); },
        [&] { dataSets.clear(); });
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
    WalkChildren(m_location, {kind, keepName,
                              [&]
                              {
                                  names.clear();
                              }});
}

std::vector<boost::shared_ptr<IGroup>> IGroup::ListGroups() const
{
    std::vector<boost::shared_ptr<IGroup>> groups;
    const auto take = [&](const char* name, ScopedGroup group)
    {
        std::unique_ptr<IGroup> node(new IGroup(m_file, group.get(), name, m_default_compression));
        groups.push_back(PassToNode(std::move(node), group));
    };
    OpenChildren<ScopedGroup>(
        m_location, H5G_GROUP, &H5Gopen1, take,
        [&](const std::string& name) { groups.push_back(Open(m_file, m_location, name, m_default_compression)); },
        [&] { groups.clear(); });
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
    return KindOfChildAt(m_location, static_cast<hsize_t>(index));
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
    WalkChildren(m_location, {H5G_GROUP, countIt,
                              [&]
                              {
                                  groups = 0;
                              }});
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
    WalkChildren(m_location, {H5G_DATASET, stopHere, [] {
                              }});
    return found;
}

} // namespace tarnwick::hdf
