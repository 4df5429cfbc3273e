#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/FileClosing.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

namespace tarnwick::hdf
{

namespace
{

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

} // namespace

herr_t CloseFile(hid_t file)
{
    const herr_t status = H5Fclose(file);
    if (status < 0)
    {
        AddUnclosedFile(file);
    }
    return status;
}

IdsBehindLinks::~IdsBehindLinks()
{
    std::for_each(m_ids.begin(), m_ids.end(), &TakeDown);
}

void IdsBehindLinks::Add(const std::set<INode*>& nodes)
{
    for (const INode* node : nodes)
    {
        m_ids.push_back(node->LocationID());
        m_ids.push_back(TypeOf(*node));
    }
}

void TakeDownAll(const std::set<INode*>& nodes) noexcept
{
    for (const INode* node : nodes)
    {
        TakeDown(node->LocationID());
        TakeDown(TypeOf(*node));
    }
}

} // namespace tarnwick::hdf
