#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IFileTracker.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/FileClosing.h>
#include <tarnwickhdf/internal/FileModes.h>
#include <tarnwickhdf/internal/FileName.h>
#include <tarnwickhdf/internal/IntegerAttribute.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <cstring>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace tarnwick::hdf
{

namespace
{

boost::shared_ptr<IFileTracker> globalFileTracker;

constexpr int kHighestCompression = 9;
constexpr double kLowerHitRateThreshold = 0.8;
constexpr unsigned int kVersion = 1;
constexpr size_t kShortName = 1024;

std::string VersionAttributeName()
{
    return reservedAttributePrefix + "api_version";
}

H5AC_cache_config_t CacheConfigurationOf(hid_t file)
{
    H5AC_cache_config_t config = {};
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    H5Fget_mdc_config(file, &config);
    return config;
}

// A cache that may shrink less readily serves files that are opened, walked and closed again.
void LowerTheHitRateThreshold(hid_t file)
{
    H5AC_cache_config_t config = CacheConfigurationOf(file);
    config.lower_hr_threshold = kLowerHitRateThreshold;
    H5Fset_mdc_config(file, &config);
}

} // namespace

std::string FileNameOf(hid_t file)
{
    char shortName[kShortName];
    const ssize_t length = H5Fget_name(file, shortName, sizeof(shortName));
    if (length < 0)
    {
        throw std::runtime_error("Couldn't retrieve file name");
    }
    if (static_cast<size_t>(length) < sizeof(shortName))
    {
        return shortName;
    }
    std::vector<char> buffer(static_cast<size_t>(length) + 1, '\0');
    if (H5Fget_name(file, buffer.data(), buffer.size()) < 0)
    {
        throw std::runtime_error("Couldn't retrieve file name");
    }
    return buffer.data();
}

boost::shared_ptr<IFile> IFile::Open(const std::string& filename, const std::string& mode, int compression)
{
    if (compression < 0 || compression > kHighestCompression)
    {
        throw std::runtime_error("invalid compression value; must be 0 to 9 (inclusive)");
    }
    boost::shared_ptr<IFile> file(new IFile(filename, mode));
    file->m_root = IGroup::Open(file, file->m_file_id, "/", compression);
    file->WriteOrReadVersionMark(mode);
    return file;
}

IFile::IFile(const std::string& filename, const std::string& mode)
    : m_closed(true), m_api_version(0), m_encoding(H5T_CSET_UTF8), m_file_id(-1),
      m_copies(std::make_unique<std::set<INode*>>())
{
    ScopedFile file = OpenFile(filename, mode);
    H5Eset_auto1(nullptr, nullptr);
    if (globalFileTracker)
    {
        globalFileTracker->OnOpen(file.get(), filename);
    }
    LowerTheHitRateThreshold(file.get());
    m_file_id = file.release();
    m_closed = false;
}

// Only the caller's own "w" marks the file: a file that "r+" makes because it was missing has no mark.
void IFile::WriteOrReadVersionMark(const std::string& mode)
{
    const std::string name = VersionAttributeName();
    if (mode == "w")
    {
        m_api_version = kVersion;
        SetIntAttr(*m_root, name, m_api_version, TDataType::UInt);
    }
    else if (m_root->HasAttr(name))
    {
        m_api_version = GetIntAttr(*m_root, name, TDataType::UInt);
    }
}

IFile::~IFile()
{
    try
    {
        Close();
    }
    catch (...) // NOLINT(bugprone-empty-catch): there is no caller to tell.
    {
    }
    if (!m_closed)
    {
        CloseUnnamed();
    }
}

bool IFile::FileExists(const std::string& filename)
{
    return CanBeRead(filename);
}

bool IFile::IsHDF5File(const std::string& filename)
{
    return H5Fis_hdf5(filename.c_str()) > 0;
}

void IFile::InstallGlobalFileTracker(boost::shared_ptr<IFileTracker> tracker)
{
    if (globalFileTracker)
    {
        throw std::runtime_error(
            "It's not allowed to install a file tracker in hdf::IFile if one is already installed.");
    }
    globalFileTracker.swap(tracker);
}

boost::shared_ptr<IFileTracker> IFile::GetGlobalFileTracker()
{
    return globalFileTracker;
}

void IFile::Close()
{
    if (!m_closed)
    {
        CloseNamed(FileNameOf(m_file_id));
    }
}

void IFile::CloseNamed(const std::string& name)
{
    const std::string message = "Error closing file: " + name;
    {
        IdsBehindLinks ids(m_nodes.size() + m_copies->size());
        ids.Add(m_nodes);
        ids.Add(*m_copies);
        InvalidateNodes();
        CheckResult(CloseFile(m_file_id), message);
    }
    if (globalFileTracker)
    {
        globalFileTracker->OnClose(m_file_id, name);
    }
}

// For the destructor, when the name couldn't be told: the file must not stay open for that. Nobody is told of failures, so
// that the nodes' ids may go one by one, which needs no memory.
void IFile::CloseUnnamed() noexcept
{
    TakeDownAll(m_nodes);
    TakeDownAll(*m_copies);
    InvalidateNodes();
    try
    {
        if (CloseFile(m_file_id) >= 0 && globalFileTracker)
        {
            globalFileTracker->OnClose(m_file_id, std::string());
        }
    }
    catch (...) // NOLINT(bugprone-empty-catch): there is no caller to tell.
    {
    }
}

void IFile::InvalidateNodes() noexcept
{
    for (INode* node : m_nodes)
    {
        node->Invalidate();
    }
    m_nodes.clear();
    m_copies->clear();
    m_closed = true;
    m_root.reset();
}

bool IFile::IsClosed()
{
    return m_closed;
}

hid_t IFile::FileID() const
{
    return m_file_id;
}

boost::shared_ptr<IGroup> IFile::GetRoot()
{
    return m_root;
}

std::string IFile::GetFileName() const
{
    return FileNameOf(m_file_id);
}

unsigned int IFile::GetAPIVersion() const
{
    return m_api_version;
}

H5T_cset_t IFile::GetEncoding() const
{
    return static_cast<H5T_cset_t>(m_encoding);
}

void IFile::SetEncoding(H5T_cset_t encoding)
{
    // Reading an enumeration that holds none of its values would be undefined.
    static_assert(sizeof(m_encoding) == sizeof(encoding));
    std::memcpy(&m_encoding, &encoding, sizeof(m_encoding));
}

void IFile::RegisterNode(INode* node)
{
    m_nodes.insert(node);
}

// A copy keeps its number when the file closes, but what is open under it must not outlive the file.
void IFile::RegisterCopy(INode* copy)
{
    m_copies->insert(copy);
}

void IFile::UnRegisterNode(INode* node)
{
    m_nodes.erase(node);
    m_copies->erase(node);
}

unsigned int IFile::CountOpen(unsigned int types) const
{
    return static_cast<unsigned int>(H5Fget_obj_count(m_file_id, types));
}

unsigned int IFile::GetOpenFilesCount() const
{
    return CountOpen(H5F_OBJ_FILE);
}

unsigned int IFile::GetOpenDataSetsCount() const
{
    return CountOpen(H5F_OBJ_DATASET);
}

unsigned int IFile::GetOpenGroupsCount() const
{
    return CountOpen(H5F_OBJ_GROUP);
}

unsigned int IFile::GetOpenDataTypesCount() const
{
    return CountOpen(H5F_OBJ_DATATYPE);
}

unsigned int IFile::GetOpenAttrsCount() const
{
    return CountOpen(H5F_OBJ_ATTR);
}

unsigned int IFile::GetOpenObjectsCount() const
{
    return CountOpen(H5F_OBJ_ALL);
}

H5AC_cache_config_t IFile::GetCacheConfiguration() const
{
    return CacheConfigurationOf(m_file_id);
}

void IFile::SetCacheConfiguration(H5AC_cache_config_t& config)
{
    H5Fset_mdc_config(m_file_id, &config);
}

void IFile::DumpCacheStatus(bool compact) const
{
    double rate = 0;
    size_t maxSize = 0;
    size_t minCleanSize = 0;
    size_t currentSize = 0;
    int entries = 0;
    H5Fget_mdc_hit_rate(m_file_id, &rate);
    H5Fget_mdc_size(m_file_id, &maxSize, &minCleanSize, &currentSize, &entries);
    if (compact)
    {
        std::cout << rate << "," << maxSize << "," << minCleanSize << "," << currentSize << "," << entries << "\n";
        return;
    }
    std::cout << "Cache statistics: \n"
              << "\tHit rate: " << rate << "\n"
              << "\tMax size: " << maxSize << "\n"
              << "\tMin clean size: " << minCleanSize << "\n"
              << "\tCurrent size: " << currentSize << "\n"
              << "\tCurrent number of entries: " << entries << "\n";
}

} // namespace tarnwick::hdf
