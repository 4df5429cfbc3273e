// What a row is. To add one, add a Row to its family's file: `On` (Sides.h) makes the three sides on a file, `Beside` the
// row beside another way of plain HDF5. Add its h5py and PyTables code to peers.py under the same name. Nothing else
// knows of rows: `scripts/bench.sh --quick NAME` tries it, and the next full run puts it on the pages.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench
{

/// One turn of one side. The files are opened and closed outside of what is measured.
struct Turn
{
    double seconds = 0;
    std::size_t heapPeak = 0;  ///< Beyond what was allocated before; counted in a side's first turn only.
    std::size_t fileBytes = 0; ///< Of the file that the side worked on, after its close.
};

/// Prepares what it needs, does the work once for a size and tells what it took.
using Side = std::function<Turn(std::size_t size)>;

/// Why somebody is faster than the library. It must be a true statement: without one the pages say "not explained".
struct Reason
{
    std::string winner;             ///< One of plain, cpp, h5py and pytables, or * for anybody.
    std::string text;               ///< What the winner saves.
    std::size_t largest = SIZE_MAX; ///< The largest size at which it holds.
};

using Reasons = std::vector<Reason>;
using Sizes = std::vector<std::size_t>;

/// One row: all that there is to say of a measurement. The sides of a row take turns, and so do h5py and PyTables for the
/// rows that peers.py knows by the same name.
struct Row
{
    std::string name;     ///< "family/work", or "family/work, beside another way" where `plain` isn't the best one.
    std::string unit;     ///< What a size counts.
    Sizes sizes;          ///< A quick run has the first alone.
    double target = 0;    ///< The highest ratio of library to plain that the project allows itself, or 0.
    Reasons reasons = {}; ///< The first one that fits counts.
    std::size_t targetFrom = 0; ///< The smallest size that the target holds for.
    Side library = {};          ///< A side that is missing isn't measured.
    Side plain = {};            ///< The program that a good programmer of plain HDF5 would write for the work.
    Side cpp = {};              ///< HDF5's C++ API.
};

using Rows = std::vector<Row>;

// Each family of rows stands in a file of its own.
Rows FileRows();
Rows SmallArrayRows();
Rows DataSetRows();
Rows AttributeRows();
Rows ExtensibleArrayRows();
Rows TypedRows();
Rows TypeRows();

/// A file in the folder for the benchmarks' files, which TARNWICKHDF_BENCH_DIR names.
std::string PathOf(const std::string& name);

/// "prefix000000", "prefix000001" and so on, in the order of HDF5's name index.
using Name = const std::string&;
const std::vector<std::string>& Names(const std::string& prefix, std::size_t count);

/// The work for each of some things.
template <typename Things, typename Work>
void ForEach(Things&& things, const Work& work)
{
    for (auto&& thing : things)
    {
        work(thing);
    }
}

/// What of a turn is measured.
Turn Measured(const std::function<void()>& work);

/// The heap of the process, counted between the two calls.
void BeginCountingHeap();
std::size_t EndCountingHeap();

} // namespace bench
