#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IExtensibleArray2D.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ObjectLookup.h>
#include <tarnwickhdf/internal/PassToNode.h>
#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

namespace tarnwick::hdf
{

namespace
{

std::vector<std::string> SplitPathComponents(const std::string& name)
{
    std::vector<std::string> components;
    for (size_t begin = 0; begin < name.size();)
    {
        const size_t end = std::min(name.find('/', begin), name.size());
        if (end > begin)
        {
            components.push_back(name.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return components;
}

ScopedGroup CreateGroupAt(hid_t parent, const std::string& name)
{
    ScopedGroup group(H5Gcreate1(parent, name.c_str(), 0));
    CheckResult(group.get(), "could not create group '", name, "'");
    return group;
}

ScopedGroup OpenCheckedGroup(hid_t parent, const std::string& name)
{
    ScopedGroup group = OpenGroupAt(parent, name);
    CheckResult(group.get(), "could not open group '", name, "'");
    return group;
}

// One level of a path. A single link test settles the usual cases: nothing there, or a group that opens.
ScopedGroup OpenOrCreateLevel(hid_t parent, const std::string& component)
{
    if (H5Lexists(parent, component.c_str(), H5P_DEFAULT) > 0)
    {
        ScopedGroup group(H5Gopen1(parent, component.c_str()));
        if (group.get() >= 0)
        {
            return group;
        }
        if (HasObjectOfType(parent, component, H5O_TYPE_GROUP))
        {
            return OpenCheckedGroup(parent, component);
        }
    }
    return CreateGroupAt(parent, component);
}

// The path without leading, trailing and doubled slashes.
std::string NormalizePath(const std::string& name)
{
    std::string path;
    path.reserve(name.size());
    for (const char character : name)
    {
        if (character != '/')
        {
            path += character;
        }
        else if (!path.empty() && path.back() != '/')
        {
            path += '/';
        }
    }
    if (!path.empty() && path.back() == '/')
    {
        path.pop_back();
    }
    return path;
}

// HDF5 walks a path of several levels faster than one call a level does. That settles the usual cases, only the last
// level missing or none. Nothing comes back for the others and for failures, whose words name a level.
ScopedGroup CreateOrOpenAtOnce(hid_t location, const std::string& path)
{
    ScopedGroup group;
    if (path.find('/') != std::string::npos && !HasDotComponent(path))
    {
        const QuietErrors quiet;
        group.reset(H5Gcreate1(location, path.c_str(), 0));
        if (group.get() < 0)
        {
            group.reset(H5Gopen1(location, path.c_str()));
        }
    }
    return group;
}

ScopedGroup OpenOrCreateByLevels(hid_t location, const std::string& path)
{
    ScopedGroup level;
    hid_t base = location;
    for (const std::string& component : SplitPathComponents(path))
    {
        level = OpenOrCreateLevel(base, component);
        base = level.get();
    }
    return level;
}

void CheckTableNotThere(hid_t parent, const std::string& name)
{
    if (ITable::Exists(parent, name))
    {
        CheckResult(-1, "Fail to create an already existing table: ", name);
    }
}

} // namespace

IGroup::IGroup(boost::weak_ptr<IFile> file, hid_t location, const std::string& name, int compression)
    : INode(std::move(file), location, name), m_default_compression(compression)
{
}

IGroup::IGroup(const IGroup& other) : INode(other), m_default_compression(other.m_default_compression)
{
    m_location = ShareId(m_location);
}

IGroup& IGroup::operator=(const IGroup& other)
{
    if (this == &other)
    {
        return *this;
    }
    ScopedGroup share(ShareId(other.m_location));
    const hid_t previous = m_location;
    INode::operator=(other);
    m_location = share.release();
    const ScopedGroup closing(previous);
    m_default_compression = other.m_default_compression;
    return *this;
}

IGroup::~IGroup()
{
    const ScopedGroup closing(m_location);
}

boost::shared_ptr<IGroup> IGroup::Create(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                         int compression)
{
    ScopedGroup group = CreateGroupAt(parent, name);
    return PassToNode(std::unique_ptr<IGroup>(new IGroup(std::move(file), group.get(), name, compression)), group);
}

boost::shared_ptr<IGroup> IGroup::Open(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                       int compression)
{
    ScopedGroup group = OpenCheckedGroup(parent, name);
    return PassToNode(std::unique_ptr<IGroup>(new IGroup(std::move(file), group.get(), name, compression)), group);
}

int IGroup::GetDefaultCompression() const
{
    return m_default_compression;
}

void IGroup::SetDefaultCompression(int compression)
{
    m_default_compression = compression;
}

boost::shared_ptr<IGroup> IGroup::CreateGroup(const std::string& name)
{
    const std::string path = NormalizePath(name);
    if (path.empty())
    {
        return {};
    }
    ScopedGroup group = CreateOrOpenAtOnce(m_location, path);
    if (group.get() < 0)
    {
        group = OpenOrCreateByLevels(m_location, path);
    }
    const std::string lastComponent = path.substr(path.rfind('/') + 1);
    return PassToNode(std::unique_ptr<IGroup>(new IGroup(m_file, group.get(), lastComponent, m_default_compression)),
                      group);
}

boost::shared_ptr<IGroup> IGroup::CreateSubGroup(const std::string& name)
{
    return HasObjectOfType(m_location, name, H5O_TYPE_GROUP) ? Open(m_file, m_location, name, m_default_compression)
                                                             : Create(m_file, m_location, name, m_default_compression);
}

boost::shared_ptr<IGroup> IGroup::GetGroup(const std::string& name)
{
    return Open(m_file, m_location, name, m_default_compression);
}

bool IGroup::HasGroup(const std::string& name) const
{
    return HasObjectOfType(m_location, name, H5O_TYPE_GROUP);
}

void IGroup::DelGroup(const std::string& name)
{
    Delete(name, "group");
}

void IGroup::Delete(const std::string& name, const std::string& kind)
{
    CheckResult(H5Gunlink(m_location, name.c_str()), "could not remove " + kind + " '" + name + "'");
}

int IGroup::SettleCompression(int compression) const
{
    return compression < 0 ? m_default_compression : compression;
}

boost::shared_ptr<IArray> IGroup::CreateArray(const std::string& name, TDataType::TDataType type, size_t /*unused*/)
{
    if (IArray::Exists(m_location, name))
    {
        CheckResult(H5Gunlink(m_location, name.c_str()), "Fail to remove array: '", name, "'");
    }
    return IArray::CreateEmpty(m_file, m_location, name, type, m_default_compression);
}

boost::shared_ptr<IArray> IGroup::CreateArrayFromBuffer(const std::string& name, void* buffer,
                                                        TDataType::TDataType type, size_t length, size_t components)
{
    if (IArray::Exists(m_location, name))
    {
        boost::shared_ptr<IArray> array = IArray::Open(m_file, m_location, name);
        array->SetFromBuffer(buffer, type, length, components);
        return array;
    }
    return IArray::CreateFromBuffer(m_file, m_location, name, buffer, type, length, components, m_default_compression);
}

boost::shared_ptr<IExtensibleArray2D> IGroup::CreateExtensibleArray2D(const std::string& name,
                                                                      TDataType::TDataType type, unsigned int rows,
                                                                      unsigned int columns, unsigned int chunkRows,
                                                                      unsigned int chunkColumns, int compression)
{
    return IExtensibleArray2D::Create(m_file, m_location, name, type, rows, columns, chunkRows, chunkColumns,
                                      SettleCompression(compression));
}

boost::shared_ptr<ITable> IGroup::CreateTable(const std::string& name, hid_t type)
{
    CheckTableNotThere(m_location, name);
    return ITable::CreateEmpty(m_file, m_location, name, type);
}

boost::shared_ptr<ITable> IGroup::CreateTable(const std::string& name, size_t rows, hid_t type, int compression)
{
    CheckTableNotThere(m_location, name);
    return ITable::Create(m_file, m_location, name, rows, type, SettleCompression(compression));
}

boost::shared_ptr<ITable> IGroup::CreateTableFromBuffer(const std::string& name, void* buffer, size_t rows, hid_t type,
                                                        int compression, hid_t memoryType, size_t chunkRows)
{
    const int settled = SettleCompression(compression);
    if (ITable::Exists(m_location, name))
    {
        boost::shared_ptr<ITable> table = ITable::Open(m_file, m_location, name);
        table->SetFromBuffer(buffer, rows, type, static_cast<size_t>(settled));
        return table;
    }
    return ITable::CreateFromBuffer(m_file, m_location, name, buffer, rows, type, settled, memoryType, chunkRows);
}

boost::shared_ptr<ITable> IGroup::CreateTableFromSelection(const std::string& name, void* buffer, size_t memoryRows,
                                                           const std::vector<hsize_t>& selection, hid_t type,
                                                           int compression, hid_t memoryType, size_t chunkRows)
{
    const int settled = SettleCompression(compression);
    if (ITable::Exists(m_location, name))
    {
        boost::shared_ptr<ITable> table = ITable::Open(m_file, m_location, name);
        table->SetFromSelection(buffer, memoryRows, selection, type, static_cast<size_t>(settled), chunkRows);
        return table;
    }
    return ITable::CreateFromSelection(m_file, m_location, name, buffer, memoryRows, selection, type, settled,
                                       memoryType, chunkRows);
}

boost::shared_ptr<IArray> IGroup::GetArray(const std::string& name) const
{
    return IArray::Open(m_file, m_location, name);
}

boost::shared_ptr<IExtensibleArray2D> IGroup::GetExtensibleArray2D(const std::string& name) const
{
    return IExtensibleArray2D::Open(m_file, m_location, name);
}

boost::shared_ptr<ITable> IGroup::GetTable(const std::string& name) const
{
    return ITable::Open(m_file, m_location, name);
}

bool IGroup::HasArray(const std::string& name) const
{
    return IArray::Exists(m_location, name);
}

bool IGroup::HasTable(const std::string& name) const
{
    return ITable::Exists(m_location, name);
}

bool IGroup::HasExtensibleArray2D(const std::string& name) const
{
    try
    {
        return IExtensibleArray2D::IsAt(m_location, name);
    }
    catch (const std::runtime_error&)
    {
        return false;
    }
}

void IGroup::DelArray(const std::string& name)
{
    Delete(name, "array");
}

void IGroup::DelExtensibleArray2D(const std::string& name)
{
    Delete(name, "extensible array");
}

} // namespace tarnwick::hdf
