#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IExtensibleArray2D.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChildWalk.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <stdexcept>

namespace tarnwick::hdf
{

namespace
{

constexpr size_t kNameBufferSize = 512;
constexpr hsize_t kMostNamesToReserve = 65536;

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

struct Walk
{
    int kind;
    const ChildVisitor& visit;
    std::exception_ptr failure;
};

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

std::string NameOfChild(hid_t group, hsize_t index)
{
    char name[kNameBufferSize] = "";
    CheckResult(H5Gget_objname_by_idx(group, index, name, sizeof(name)), "error getting object name");
    return name;
}

void WalkChildrenByIndex(hid_t group, int kind, const ChildVisitor& visit)
{
    const hsize_t count = CountChildren(group);
    for (hsize_t index = 0; index < count; ++index)
    {
        if (H5Gget_objtype_by_idx(group, index) == kind && !visit([&] { return NameOfChild(group, index); }))
        {
            return;
        }
    }
}

template <typename DataSet>
std::vector<boost::shared_ptr<DataSet>> ListDataSets(const boost::weak_ptr<IFile>& file, hid_t group,
                                                     const std::vector<std::string>& names)
{
    std::vector<boost::shared_ptr<DataSet>> dataSets;
    for (const std::string& name : names)
    {
        try
        {
            dataSets.push_back(DataSet::Open(file, group, name));
        }
        catch (const std::runtime_error&) // NOLINT(bugprone-empty-catch): what doesn't open as this kind isn't listed.
        {
        }
    }
    return dataSets;
}

} // namespace

hsize_t CountChildren(hid_t group)
{
    hsize_t count = 0;
    CheckResult(H5Gget_num_objs(group, &count), "error getting number of objects in group");
    return count;
}

void WalkChildren(hid_t group, int kind, const ChildVisitor& visit, const std::function<void()>& restart)
{
    Walk walk{kind, visit, nullptr};
    if (H5Literate(group, H5_INDEX_NAME, H5_ITER_INC, nullptr, &ShowChild, &walk) >= 0)
    {
        return;
    }
    if (walk.failure)
    {
        std::rethrow_exception(walk.failure);
    }
    restart();
    WalkChildrenByIndex(group, kind, visit);
}

void IGroup::ListNames(int kind, std::vector<std::string>& names) const
{
    const hsize_t count = CountChildren(m_location);
    names.clear();
    // A damaged group may claim any number of children.
    names.reserve(static_cast<size_t>(std::min(count, kMostNamesToReserve)));
    const auto keepName = [&](const ChildName& name) {
        names.push_back(name());
        return true;
    };
    WalkChildren(m_location, kind, keepName, [&] { names.clear(); });
}

std::vector<boost::shared_ptr<IGroup>> IGroup::ListGroups() const
{
    std::vector<std::string> names;
    ListNames(H5G_GROUP, names);
    std::vector<boost::shared_ptr<IGroup>> groups;
    groups.reserve(names.size());
    for (const std::string& name : names)
    {
        groups.push_back(Open(m_file, m_location, name, m_default_compression));
    }
    return groups;
}

std::vector<boost::shared_ptr<IArray>> IGroup::ListArrays() const
{
    std::vector<std::string> names;
    ListNames(H5G_DATASET, names);
    return ListDataSets<IArray>(m_file, m_location, names);
}

std::vector<boost::shared_ptr<IExtensibleArray2D>> IGroup::ListExtensibleArrays2D() const
{
    std::vector<std::string> names;
    ListNames(H5G_DATASET, names);
    return ListDataSets<IExtensibleArray2D>(m_file, m_location, names);
}

std::vector<boost::shared_ptr<ITable>> IGroup::ListTables() const
{
    std::vector<std::string> names;
    ListNames(H5G_DATASET, names);
    return ListDataSets<ITable>(m_file, m_location, names);
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
    CountChildren(m_location);
    size_t groups = 0;
    const auto countIt = [&](const ChildName& /*name*/) {
        ++groups;
        return true;
    };
    WalkChildren(m_location, H5G_GROUP, countIt, [&] { groups = 0; });
    return groups;
}

bool IGroup::HasDataSet() const
{
    CountChildren(m_location);
    bool found = false;
    const auto stopHere = [&](const ChildName& /*name*/) {
        found = true;
        return false;
    };
    WalkChildren(m_location, H5G_DATASET, stopHere, [] {});
    return found;
}

} // namespace tarnwick::hdf
