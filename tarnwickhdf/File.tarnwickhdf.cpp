#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IFileTracker.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/FileName.h>
#include <tarnwickhdf/internal/IntegerAttribute.h>
#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/SameOnEveryHdf5.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <tarnwick/text.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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

// File streams take no wide path here, and they open directories; a pipe without a writer would block them.
bool CanBeRead(const std::string& filename)
{
    const int file = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
    {
        return false;
    }
    struct stat status = {};
    const bool readable = ::fstat(file, &status) == 0 && !S_ISDIR(status.st_mode);
    ::close(file);
    return readable;
}

bool IsMissing(const std::string& filename)
{
    std::error_code error;
    return std::filesystem::status(filename, error).type() == std::filesystem::file_type::not_found;
}

// Whether HDF5 would find, here or in another process, a lock against its own for writing.
bool IsLocked(const std::string& filename)
{
    const int file = ::open(filename.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
    {
        return false;
    }
    struct stat status = {};
    const bool isLocked = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
                          ::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(file);
    return isLocked;
}

ScopedPropertyList CreateFileAccessList()
{
    ScopedPropertyList list(H5Pcreate(H5P_FILE_ACCESS));
    CheckResult(list.get(), "could not create property list for file access");
    CheckResult(H5Pset_fclose_degree(list.get(), H5F_CLOSE_STRONG), "could not set fclose degree");
    CheckResult(H5Pset_gc_references(list.get(), 1), "Error while calling H5Pset_gc_reference");
    SetOldestForms(list.get());
    return list;
}

// HDF5 1.10 keeps the id of a file that it failed to close, but frees the file behind it. When the process exits, HDF5
// closes the ids that are left, this one a second time, and crashes. It passes over an id that an error record names.
struct UnclosedFiles
{
    std::mutex mutex;
    std::vector<hid_t> ids;
};

// Never destroyed: the application's own last files go when the library's objects may already be gone.
UnclosedFiles& GetUnclosedFiles()
{
    static UnclosedFiles* const files = new UnclosedFiles;
    return *files;
}

void KeepFromClosingAtExit()
{
    // Else HDF5 might complain about the ids that it has to leave.
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    for (const hid_t file : GetUnclosedFiles().ids)
    {
        H5Epush2(H5Ecreate_stack(), "", "", 0, file, file, file, "open");
    }
}

void AddUnclosedFile(hid_t file)
{
    UnclosedFiles& files = GetUnclosedFiles();
    const std::lock_guard<std::mutex> lock(files.mutex);
    // HDF5 has registered its own end before, so that this one comes first.
    if (files.ids.empty())
    {
        std::atexit(&KeepFromClosingAtExit);
    }
    files.ids.push_back(file);
}

// Whether this process has a file open already: then an id for it isn't the only one on that file.
bool IsOpenHere(const std::string& filename, hid_t accessList)
{
    const QuietErrors quiet;
    ScopedFile file(H5Fopen(filename.c_str(), H5F_ACC_RDWR, accessList));
    if (file.get() < 0)
    {
        file.reset(H5Fopen(filename.c_str(), H5F_ACC_RDONLY, accessList));
    }
    return H5Fget_obj_count(file.get(), H5F_OBJ_ALL) > 1;
}

// HDF5 empties a file before it takes its lock, and a process that has the file open would lose it. So a file that is
// locked is opened first: that fails as HDF5 fails on the lock, or works, if HDF5 is told to do without locks. What
// this process itself has open HDF5 refuses without harm. A process that opens the file between the look at the lock
// and HDF5's own open isn't seen.
hid_t CreateOrEmpty(const std::string& filename, hid_t accessList)
{
    if (IsLocked(filename) && !IsOpenHere(filename, accessList))
    {
        const ScopedFile file(H5Fopen(filename.c_str(), H5F_ACC_RDWR, accessList));
        if (file.get() < 0)
        {
            return file.get();
        }
    }
    return H5Fcreate(filename.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, accessList);
}

// HDF5 takes a file that is empty when it opens it for new, and writes its own over what another process has made of it
// by the time that it gets the lock. Opening it for reading fails on the other's lock too, but never writes.
hid_t OpenToWrite(const std::string& filename, hid_t accessList)
{
    std::error_code error;
    if (std::filesystem::file_size(filename, error) == 0 && IsLocked(filename))
    {
        const ScopedFile file(H5Fopen(filename.c_str(), H5F_ACC_RDONLY, accessList));
        if (file.get() < 0)
        {
            return file.get();
        }
    }
    return H5Fopen(filename.c_str(), H5F_ACC_RDWR, accessList);
}

// Makes a file that the others see only when it is whole. HDF5 makes it empty, takes its lock and writes it when it
// closes, and who opens it in between may write over another's work. A link never takes the place of a file.
bool MakeWhole(const std::string& filename, hid_t accessList)
{
    const std::string unfinished = filename + ".new-" + std::to_string(::getpid());
    const QuietErrors quiet;
    const hid_t file = H5Fcreate(unfinished.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, accessList);
    if (file < 0)
    {
        return false;
    }
    const bool isWhole = H5Fclose(file) >= 0;
    if (!isWhole)
    {
        AddUnclosedFile(file);
    }
    const bool isMade = isWhole && ::link(unfinished.c_str(), filename.c_str()) == 0;
    ::unlink(unfinished.c_str());
    return isMade;
}

// For file systems without links.
hid_t CreateNew(const std::string& filename, hid_t accessList)
{
    const QuietErrors quiet;
    return H5Fcreate(filename.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, accessList);
}

// A file that was made by somebody else in the meantime is opened, never emptied. What can't be made is tried in the way
// of mode "w": for its words, and for a symbolic link that leads nowhere yet.
hid_t CreateMissing(const std::string& filename, hid_t accessList)
{
    if (MakeWhole(filename, accessList) || !IsMissing(filename))
    {
        return OpenToWrite(filename, accessList);
    }
    const hid_t file = CreateNew(filename, accessList);
    return file >= 0 ? file : CreateOrEmpty(filename, accessList);
}

hid_t OpenOrCreate(const std::string& filename, const std::string& mode, hid_t accessList)
{
    if (mode == "w")
    {
        return CreateOrEmpty(filename, accessList);
    }
    if (mode == "r")
    {
        return H5Fopen(filename.c_str(), H5F_ACC_RDONLY, accessList);
    }
    if (mode == "r+")
    {
        // A file that is there but can't be read must not be taken for missing.
        const bool isMissing = !IFile::FileExists(filename) && IsMissing(filename);
        return isMissing ? CreateMissing(filename, accessList) : OpenToWrite(filename, accessList);
    }
    throw std::runtime_error("invalid file mode: " + mode);
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

// The type that a node has open next to its object, -1 if it has none.
hid_t TypeOf(const INode& node)
{
    if (const auto* const array = dynamic_cast<const IArray*>(&node))
    {
        return array->GetTypeID();
    }
    const auto* const table = dynamic_cast<const ITable*>(&node);
    return table != nullptr ? table->GetCompoundTypeID() : -1;
}

// Takes an id down for all its owners, as HDF5's strong close does with the ids of its file. A type that isn't named
// lies in no file and goes with its node.
void TakeDown(hid_t id) noexcept
{
    if (H5Iis_valid(id) <= 0 || (H5Iget_type(id) == H5I_DATATYPE && H5Tcommitted(id) <= 0))
    {
        return;
    }
    while (H5Idec_ref(id) > 0)
    {
    }
}

// HDF5's strong close leaves what was opened behind external links: those ids lie in other files. Which these are shows
// when the file is closed, and the nodes don't know their ids any more then.
class IdsBehindLinks
{
public:
    explicit IdsBehindLinks(size_t nodes) { m_ids.reserve(2 * nodes); }
    IdsBehindLinks(const IdsBehindLinks&) = delete;
    IdsBehindLinks& operator=(const IdsBehindLinks&) = delete;
    ~IdsBehindLinks() { std::for_each(m_ids.begin(), m_ids.end(), &TakeDown); }

    void Add(const std::set<INode*>& nodes)
    {
        for (const INode* node : nodes)
        {
            m_ids.push_back(node->LocationID());
            m_ids.push_back(TypeOf(*node));
        }
    }

private:
    std::vector<hid_t> m_ids;
};

void TakeDownAll(const std::set<INode*>& nodes) noexcept
{
    for (const INode* node : nodes)
    {
        TakeDown(node->LocationID());
        TakeDown(TypeOf(*node));
    }
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
    ScopedPropertyList accessList = CreateFileAccessList();
    ScopedFile file(OpenOrCreate(filename, mode, accessList.get()));
    CheckResult(file.get(), "Failed to obtain a valid file handle for filename: ", filename);
    accessList.reset();
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
    catch (...) // NOLINT(bugprone-empty-catch): nobody is left to be told.
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
        CloseId(message);
    }
    if (globalFileTracker)
    {
        globalFileTracker->OnClose(m_file_id, name);
    }
}

void IFile::CloseId(const std::string& message)
{
    try
    {
        CheckResult(H5Fclose(m_file_id), message);
    }
    catch (const std::runtime_error&)
    {
        AddUnclosedFile(m_file_id);
        throw;
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
        CloseId(std::string());
        if (globalFileTracker)
        {
            globalFileTracker->OnClose(m_file_id, std::string());
        }
    }
    catch (...) // NOLINT(bugprone-empty-catch): nobody is left to be told.
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
