#pragma once

#include <tarnwickhdf/IH5Object.h>
#include <tarnwickhdf/export.h>

#include <boost/shared_ptr.hpp>

#include <hdf5.h>

#include <memory>
#include <set>
#include <string>

namespace tarnwick::hdf
{

class IArray;
class IFileTracker;
class IGroup;
class INode;

/// One open HDF5 file. The caller's shared pointer alone keeps it open; everything inside it is reached from GetRoot.
///
/// Closing the file, by Close or with the last shared pointer, ends all HDF5 objects in it at once and marks every node
/// invalid; nodes may be held on to after that. What nodes have open behind external links, in other files, ends with it.
/// A file and all its nodes belong to one thread at a time.
class TARNWICKHDF_EXPORT IFile : public IH5Object
{
public:
    /// Opens or creates a file and its root group.
    ///
    /// @param filename the path in UTF-8, passed to HDF5 unchanged.
    /// @param mode "r" reads, "w" creates and empties a file that exists, "r+" reads and writes and creates a file that
    ///        is missing. A file that exists but can't be read is never taken for a missing one: "r+" refuses it and
    ///        leaves it as it is. A file that another process has open, and HDF5 locks for it, is refused by "w" and
    ///        "r+" and stays as it is; one that another process makes at the same moment is opened by "r+", never
    ///        emptied.
    /// @param compression the deflate level, 0 to 9, that groups and data sets of this file start from.
    ///
    /// Mode "w" writes the version mark, the integer attribute "__vorl_api_version", on the root group; the other modes
    /// read it if it is there. HDF5's automatic error printing is switched off for the calling thread by the first
    /// successful open.
    /// @throws std::runtime_error "invalid compression value; must be 0 to 9 (inclusive)" (plain), before anything is
    ///         touched.
    /// @throws std::runtime_error "invalid file mode: " + `mode` (plain); no file is touched.
    /// @throws std::runtime_error "Failed to obtain a valid file handle for filename: " + `filename` with traceback if
    ///         HDF5 can't open or create the file.
    /// @throws std::runtime_error "could not create property list for file access", "could not set fclose degree" or
    ///         "Error while calling H5Pset_gc_reference" with traceback if HDF5 can't prepare the open.
    /// @throws std::runtime_error with traceback if the root group can't be opened (see IGroup::GetGroup), the mark
    ///         can't be written ("could not create simple dataspace", "could not open attribute", "could not create
    ///         attribute", "could not write attribute") or read ("invalid attribute name: " + name, "could not read
    ///         attribute: " + name); the file is closed again. A mark that doesn't hold exactly one number can't be
    ///         read.
    /// @throws what the installed tracker throws from OnOpen; the file is closed again.
    static boost::shared_ptr<IFile> Open(const std::string& filename, const std::string& mode, int compression);

    /// Whether the file can be opened for reading: false for a missing file, one that can't be read, and a directory.
    /// Nothing is read, and other users of the file are not shut out. Where file streams take no wide path the name is
    /// used as it is, so that names that aren't UTF-8 are found too.
    static bool FileExists(const std::string& filename);

    /// Whether the file is an HDF5 file; a missing file isn't, and nothing is thrown.
    static bool IsHDF5File(const std::string& filename);

    /// Installs the observer of all opens and closes of this process. There is one slot, and it can't be emptied or
    /// refilled: install before the first file opens, while no other thread is in the library. A null `tracker` leaves
    /// the slot empty.
    /// @throws std::runtime_error "It's not allowed to install a file tracker in hdf::IFile if one is already
    ///         installed." (plain); the installed tracker stays.
    static void InstallGlobalFileTracker(boost::shared_ptr<IFileTracker> tracker);

    /// The installed tracker, null if there is none.
    static boost::shared_ptr<IFileTracker> GetGlobalFileTracker();

    /// A file can't be copied: there is one owner of its HDF5 id.
    IFile(const IFile&) = delete;
    /// A file can't be assigned: there is one owner of its HDF5 id.
    IFile& operator=(const IFile&) = delete;

    /// Closes the file as Close does, but never throws: a failure of HDF5 or of the tracker is swallowed, and when HDF5
    /// can't tell the file's name the file is closed all the same. Call Close to be told of failures, for example of a
    /// full disk.
    ~IFile() override;

    /// Closes the file: every registered node becomes invalid, the root group is dropped, HDF5 writes what is left and
    /// closes, what nodes and their copies had open in other files, behind external links, is closed too, the tracker
    /// is called. A second call does nothing. The cost grows with the number of live nodes. A failure to write to a
    /// file behind a link isn't told here: INode::Flush on a node there tells it.
    /// @throws std::runtime_error "Couldn't retrieve file name" (plain) if HDF5 can't name the file, which then stays
    ///         open.
    /// @throws std::runtime_error "Error closing file: " + name with traceback if HDF5 fails to close, as on a full
    ///         disk; what it couldn't write is lost, and what was in the file before may be unreadable. The file counts
    ///         as closed and its nodes as invalid, and the tracker isn't called. HDF5 keeps the id and some memory of
    ///         such a file until the process ends; other files and the regular end of the process don't suffer.
    /// @throws what the installed tracker throws from OnClose; the file is closed.
    void Close();

    /// Whether Close has run.
    bool IsClosed();

    /// The HDF5 id of the file, after Close the number that it had. The id stays the file's.
    hid_t FileID() const;

    /// The root group, null after Close.
    boost::shared_ptr<IGroup> GetRoot();

    /// The name that HDF5 reports for the file, which need not be the text that was given to Open.
    /// @throws std::runtime_error "Couldn't retrieve file name" (plain), for example after Close.
    std::string GetFileName() const;

    /// The version mark found in the file or written to it: 1 after mode "w", 0 for a file without the mark.
    unsigned int GetAPIVersion() const;

    /// The character set that this file gives to the strings that it writes; H5T_CSET_UTF8 from the start.
    H5T_cset_t GetEncoding() const;

    /// Sets the character set for the attributes and string arrays written from now on. Any value is stored without a
    /// check, nothing in the file changes, and written text is never converted: it is the mark on the text alone.
    void SetEncoding(H5T_cset_t encoding);

    /// The number of open file ids on this physical file, other IFile objects on it included. This and the five counts
    /// below give 4294967295 where HDF5 can't count, for example after Close.
    unsigned int GetOpenFilesCount() const;
    /// The number of open data sets on this physical file.
    unsigned int GetOpenDataSetsCount() const;
    /// The number of open groups on this physical file; the root group that this object holds is one of them.
    unsigned int GetOpenGroupsCount() const;
    /// The number of open named data types on this physical file.
    unsigned int GetOpenDataTypesCount() const;
    /// The number of open attributes on this physical file.
    unsigned int GetOpenAttrsCount() const;
    /// The number of all open objects on this physical file, file ids included.
    unsigned int GetOpenObjectsCount() const;

    /// The configuration of the file's metadata cache. Every open sets `lower_hr_threshold` to 0.8. All fields but
    /// `version` are zeros if HDF5 can't tell them, for example after Close.
    H5AC_cache_config_t GetCacheConfiguration() const;

    /// Passes a configuration to the metadata cache; `config.version` must be H5AC__CURR_CACHE_CONFIG_VERSION, as
    /// GetCacheConfiguration gives it. A configuration that HDF5 refuses changes nothing, and nothing is reported.
    void SetCacheConfiguration(H5AC_cache_config_t& config);

    /// Prints the state of the metadata cache to `std::cout`, without flushing it: hit rate, maximum size, minimum
    /// clean size, current size (bytes) and number of entries; in one line with commas if `compact`, else in six lines
    /// with names. The numbers are zeros if HDF5 can't tell them, for example after Close.
    void DumpCacheStatus(bool compact) const;

private:
    IFile(const std::string& filename, const std::string& mode);

    void RegisterNode(INode* node);
    void RegisterCopy(INode* copy);
    void UnRegisterNode(INode* node);
    void CloseNamed(const std::string& name);
    void CloseUnnamed() noexcept;
    void InvalidateNodes() noexcept;
    void WriteOrReadVersionMark(const std::string& mode);
    unsigned int CountOpen(unsigned int types) const;

    bool m_closed;
    // What the extensible array that was opened last wants of its chunk cache; stands where the class had a gap.
    unsigned int m_chunk_cache_bytes = 0;
    boost::shared_ptr<IGroup> m_root;
    std::set<INode*> m_nodes;
    unsigned int m_api_version;
    int m_encoding; // H5T_cset_t has no room for every value that SetEncoding takes.
    hid_t m_file_id;
    // Behind a pointer, so that the class keeps its size.
    std::unique_ptr<std::set<INode*>> m_copies;

    friend class IExtensibleArray2D;
    friend class INode;
};

} // namespace tarnwick::hdf
