#pragma once

#include <hdf5.h>

#include <cstddef>
#include <set>
#include <vector>

namespace tarnwick::hdf
{

class INode;

/// H5Fclose. A file that HDF5 fails to close doesn't crash the process when it exits.
herr_t CloseFile(hid_t file);

/// HDF5's strong close leaves what was opened behind external links: those ids lie in other files. Which these are shows
/// when the file is closed, and the nodes don't know their ids any more then. So this collects the ids of nodes, and takes
/// down with its own end what is still open of them.
class IdsBehindLinks
{
public:
    explicit IdsBehindLinks(size_t nodes) { m_ids.reserve(2 * nodes); }
    IdsBehindLinks(const IdsBehindLinks&) = delete;
    IdsBehindLinks& operator=(const IdsBehindLinks&) = delete;
    ~IdsBehindLinks();

    void Add(const std::set<INode*>& nodes);

private:
    std::vector<hid_t> m_ids;
};

/// Takes down the ids of nodes one by one, which needs no memory.
void TakeDownAll(const std::set<INode*>& nodes) noexcept;

} // namespace tarnwick::hdf
