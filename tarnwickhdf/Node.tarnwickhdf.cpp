#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ObjectLookup.h>
#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/SameOnEveryHdf5.h>

#include <tarnwick/IException.h>

#include <boost/shared_ptr.hpp>

#include <algorithm>
#include <utility>

namespace tarnwick::hdf
{

namespace
{

constexpr size_t kFullNameBufferSize = 1024;

bool SameFile(const boost::weak_ptr<IFile>& one, const boost::weak_ptr<IFile>& other)
{
    return !one.owner_before(other) && !other.owner_before(one);
}

bool LevelExists(hid_t location, const std::string& prefix)
{
    return H5Lexists(location, prefix.c_str(), H5P_DEFAULT) > 0 &&
           H5Oexists_by_name(location, prefix.c_str(), H5P_DEFAULT) > 0;
}

// How many of the first `count` levels exist before one is missing. HDF5 walks a prefix from its start, and asking for
// one after the other would take a time that grows with the square of the path. But no level exists behind a missing
// one: twice as many levels are tried as are known to exist, then the half of what is in doubt.
size_t CountExistingLevels(hid_t location, const CumulativePathPrefixes& prefixes, size_t count)
{
    const QuietErrors quiet;
    size_t existing = 0;
    size_t tooMany = count + 1;
    while (existing + 1 < tooMany)
    {
        const size_t half = existing + (tooMany - existing) / 2;
        const size_t tried = tooMany > count ? std::clamp<size_t>(2 * existing, 1, count) : half;
        if (LevelExists(location, prefixes[tried - 1]))
        {
            existing = tried;
        }
        else
        {
            tooMany = tried;
        }
    }
    return existing;
}

// The level that is missing is asked for last, so that the error stack tells why. From a "." on levels are asked for one
// by one: HDF5 knows no link of that name, but goes on behind it.
bool EveryLevelExists(hid_t location, const CumulativePathPrefixes& prefixes)
{
    for (size_t level = CountExistingLevels(location, prefixes, prefixes.LevelsBeforeDot()); level < prefixes.size();
         ++level)
    {
        if (!LevelExists(location, prefixes[level]))
        {
            return false;
        }
    }
    return true;
}

// An open that succeeds answers all questions about the path at the cost of one look-up. One that fails must
// print nothing: the caller asks the questions then.
template <typename Holder, typename Open>
Holder TryToOpen(Open open, hid_t parent, const std::string& name)
{
    Holder opened;
    if (!HasDotComponent(name))
    {
        const QuietErrors quiet;
        opened.reset(open(parent, name.c_str()));
    }
    return opened;
}

} // namespace

CumulativePathPrefixes::CumulativePathPrefixes(const std::string& name)
{
    if (!name.empty() && name.front() == '/')
    {
        m_path += '/';
        m_ends.push_back(m_path.size());
    }
    for (size_t begin = 0; begin < name.size();)
    {
        const size_t end = std::min(name.find('/', begin), name.size());
        if (end > begin)
        {
            if (!m_path.empty() && m_path.back() != '/')
            {
                m_path += '/';
            }
            m_path.append(name, begin, end - begin);
            m_ends.push_back(m_path.size());
        }
        begin = end + 1;
    }
}

size_t CumulativePathPrefixes::LevelsBeforeDot() const
{
    const auto endsInDot = [this](size_t end)
    {
        return m_path[end - 1] == '.' && (end == 1 || m_path[end - 2] == '/');
    };
    return static_cast<size_t>(std::find_if(m_ends.begin(), m_ends.end(), endsInDot) - m_ends.begin());
}

bool HasDotComponent(const std::string& name)
{
    for (size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', dot + 1))
    {
        const bool begins = dot == 0 || name[dot - 1] == '/';
        const bool ends = dot + 1 == name.size() || name[dot + 1] == '/';
        if (begins && ends)
        {
            return true;
        }
    }
    return false;
}

bool HasObjectOfType(hid_t location, const std::string& name, H5O_type_t type)
{
    const CumulativePathPrefixes prefixes(name);
    ObjectInfo info = {};
    if (prefixes.size() > 0 && prefixes.LevelsBeforeDot() == prefixes.size())
    {
        const QuietErrors quiet;
        const htri_t lastLink = H5Lexists(location, prefixes[prefixes.size() - 1].c_str(), H5P_DEFAULT);
        // HDF5 came as far as the last link: it alone is missing.
        if (lastLink == 0)
        {
            return false;
        }
        // That the object's info can be read tells that all levels exist. The full form of the info would walk the
        // whole index of a group to add up sizes.
        if (lastLink > 0 && H5Oget_info_by_name2(location, name.c_str(), &info, H5O_INFO_BASIC, H5P_DEFAULT) >= 0)
        {
            return info.type == type;
        }
    }
    if (!EveryLevelExists(location, prefixes))
    {
        return false;
    }
    CheckResult(H5Oget_info_by_name1(location, name.c_str(), &info, H5P_DEFAULT), "could not get info for ", name);
    return info.type == type;
}

void CheckObjectOfType(const std::string& kind, hid_t location, const std::string& name, H5O_type_t type)
{
    if (!HasObjectOfType(location, name, type))
    {
        CheckResult(-1, kind + " does not exist");
    }
}

ScopedDataSet OpenDataSetAt(const std::string& kind, hid_t parent, const std::string& name, hid_t accessList)
{
    const auto open = [accessList](hid_t location, const char* path)
    {
        return H5Dopen2(location, path, accessList);
    };
    ScopedDataSet dataSet = TryToOpen<ScopedDataSet>(open, parent, name);
    if (dataSet.get() < 0)
    {
        CheckObjectOfType(kind, parent, name, H5O_TYPE_DATASET);
        dataSet.reset(H5Dopen1(parent, name.c_str()));
    }
    return dataSet;
}

ScopedGroup OpenGroupAt(hid_t parent, const std::string& name)
{
    ScopedGroup group = TryToOpen<ScopedGroup>(&H5Gopen1, parent, name);
    if (group.get() < 0)
    {
        CheckObjectOfType("Group", parent, name, H5O_TYPE_GROUP);
        group.reset(H5Gopen1(parent, name.c_str()));
    }
    return group;
}

INode::INode(boost::weak_ptr<IFile> file, hid_t location, const std::string& name)
    : m_file(std::move(file)), m_location(location), m_name(name)
{
    if (const boost::shared_ptr<IFile> openFile = m_file.lock())
    {
        openFile->RegisterNode(this);
    }
}

INode::INode(const INode& other)
    : IH5Object(other), m_file(other.m_file), m_location(other.m_location), m_name(other.m_name)
{
    if (const boost::shared_ptr<IFile> openFile = m_file.lock())
    {
        openFile->RegisterCopy(this);
    }
}

INode& INode::operator=(const INode& other)
{
    if (this == &other)
    {
        return *this;
    }
    std::string name = other.m_name;
    if (!SameFile(m_file, other.m_file))
    {
        if (const boost::shared_ptr<IFile> newFile = other.m_file.lock())
        {
            newFile->RegisterNode(this);
        }
        UnRegister();
        m_file = other.m_file;
    }
    m_location = other.m_location;
    m_name.swap(name);
    return *this;
}

INode::~INode()
{
    UnRegister();
}

void INode::UnRegister()
{
    if (const boost::shared_ptr<IFile> file = m_file.lock())
    {
        file->UnRegisterNode(this);
    }
}

void INode::Invalidate()
{
    m_location = -1;
}

bool INode::IsValid() const
{
    return m_location != -1;
}

hid_t INode::LocationID() const
{
    return m_location;
}

std::string INode::GetName() const
{
    return m_name;
}

std::string INode::GetFullName() const
{
    // HDF5 leaves the buffer alone for an object that has no path any more.
    char path[kFullNameBufferSize] = "";
    CheckResult(H5Iget_name(m_location, path, sizeof(path)), "Unable to get full name");
    return path;
}

boost::weak_ptr<IFile> INode::GetFile()
{
    return m_file;
}

H5T_cset_t INode::GetEncoding() const
{
    const boost::shared_ptr<IFile> f = m_file.lock();
    if (f.get() == nullptr)
    {
        const std::string message = "INode::GetEncoding(): file is NULL";
        throw IPreconditionException("f.get() != NULL", message, "Node.tarnwickhdf", __LINE__);
    }
    return f->GetEncoding();
}

void INode::Flush()
{
    CheckResult(H5Fflush(m_location, H5F_SCOPE_LOCAL), "Flush Fail!");
}

} // namespace tarnwick::hdf
