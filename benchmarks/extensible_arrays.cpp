// Extensible arrays of 16 columns, to which blocks are appended or from which they are read.
#include "Work.h"

using namespace bench;

namespace
{

using Array = IExtensibleArray2D;

constexpr hsize_t kColumns = 16;
constexpr std::size_t kCacheBytes = std::size_t{16} << 20U;
constexpr std::size_t kCacheSlots = 521;
constexpr hsize_t kUnlimited[2] = {H5S_UNLIMITED, H5S_UNLIMITED};
constexpr const char* kName = "rows";
constexpr auto kDouble = TDataType::Double;

// An array is made in a new file, to append to it, or is there.
hid_t CreateOrOpen(hid_t file, const Task& task, hid_t access)
{
    if (task.mode != "w")
    {
        return H5Dopen2(file, kName, access);
    }
    const hsize_t chunk[2] = {task.chunk, kColumns};
    const Id space(H5Screate_simple(2, task.shape.data(), kUnlimited));
    const Id list(H5Pcreate(H5P_DATASET_CREATE));
    SetStorage(list, 2, chunk, task.level);
    return H5Dcreate2(file, kName, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, access);
}

// The array as a program of plain HDF5 keeps it open: it knows the extent, one space of the file serves all selections and
// one in memory all lines, and the cache holds the chunks of a row and of a column.
struct PlainArray
{
    Id set;
    Id space{H5Dget_space(set)};
    Id memory{H5Screate(H5S_SIMPLE)};
    hsize_t length = 0;
};

struct Open
{
    boost::shared_ptr<Array> operator()(IFile& file, const Task& task) const
    {
        const auto rows = static_cast<unsigned int>(task.shape[0]);
        const auto columns = static_cast<unsigned int>(task.shape[1]);
        const auto chunkRows = static_cast<unsigned int>(task.chunk);
        IGroup& root = *file.GetRoot();
        return task.mode != "w"
                   ? root.GetExtensibleArray2D(kName)
                   : root.CreateExtensibleArray2D(kName, kDouble, rows, columns, chunkRows, kColumns, task.level);
    }
    PlainArray operator()(hid_t file, const Task& task) const
    {
        const Id access(H5Pcreate(H5P_DATASET_ACCESS));
        H5Pset_chunk_cache(access, kCacheSlots, kCacheBytes, H5D_CHUNK_CACHE_W0_DEFAULT);
        return PlainArray{Id(CreateOrOpen(file, task, access))};
    }
    H5::DataSet operator()(H5::H5File& file, const Task& task) const
    {
        return H5::DataSet(Id(CreateOrOpen(file.getId(), task, H5P_DEFAULT)).id);
    }
};

struct IdOf
{
    hid_t operator()(const Array& array) const { return array.LocationID(); }
    hid_t operator()(const PlainArray& array) const { return array.set; }
    hid_t operator()(const H5::DataSet& set) const { return set.getId(); }
    hid_t operator()(hid_t set) const { return set; }
};

// What was appended is in the file at the end, however much a cache can hold.
constexpr auto kForEachBlock = [](auto& array, const Task& task, const auto& move)
{
    for (std::size_t i = 0; i < task.count; ++i)
    {
        move(array, task, Place{i * task.distance[0], i * task.distance[1]});
    }
    if (task.mode == "w")
    {
        H5Dflush(IdOf{}(array));
    }
};

Place EndOf(const Task& task, const Place& start)
{
    return {start[0] + task.block[0], start[1] + task.block[1]};
}

void Transfer(hid_t set, hid_t memory, hid_t file, const Task& task)
{
    if (task.mode == "w")
    {
        H5Dwrite(set, H5T_NATIVE_DOUBLE, memory, file, H5P_DEFAULT, task.elements);
    }
    else
    {
        H5Dread(set, H5T_NATIVE_DOUBLE, memory, file, H5P_DEFAULT, task.memory);
    }
}

void MovePlainly(PlainArray& array, const Task& task, const Place& start)
{
    if (task.mode == "w")
    {
        const Place end = EndOf(task, start);
        H5Dset_extent(array.set, end.data());
        H5Sset_extent_simple(array.space, 2, end.data(), kUnlimited);
    }
    H5Sselect_hyperslab(array.space, H5S_SELECT_SET, start.data(), nullptr, task.block.data(), nullptr);
    if (task.block[0] * task.block[1] != array.length)
    {
        array.length = task.block[0] * task.block[1];
        H5Sset_extent_simple(array.memory, 2, task.block.data(), nullptr);
    }
    Transfer(array.set, array.memory, array.space, task);
}

// Nothing is saved, every space is asked for, and the cache is HDF5's default.
void MoveLiterally(hid_t set, const Task& task, const Place& start)
{
    if (task.mode == "w")
    {
        Place end = {};
        const Id extent(H5Dget_space(set));
        H5Sget_simple_extent_dims(extent, end.data(), nullptr);
        end = EndOf(task, start);
        H5Dset_extent(set, end.data());
    }
    const Id file(H5Dget_space(set));
    H5Sselect_hyperslab(file, H5S_SELECT_SET, start.data(), nullptr, task.block.data(), nullptr);
    const Id memory(H5Screate_simple(2, task.block.data(), nullptr));
    Transfer(set, memory, file, task);
}

void MoveByCpp(const H5::DataSet& set, const Task& task, const Place& start)
{
    if (task.mode == "w")
    {
        const Place end = EndOf(task, start);
        set.extend(end.data());
    }
    const H5::DataSpace file = set.getSpace();
    file.selectHyperslab(H5S_SELECT_SET, task.block.data(), start.data());
    const H5::DataSpace memory(2, task.block.data());
    if (task.mode == "w")
    {
        set.write(task.elements, H5::PredType::NATIVE_DOUBLE, memory, file);
    }
    else
    {
        set.read(task.memory, H5::PredType::NATIVE_DOUBLE, memory, file);
    }
}

const Side kPlain("plain move blocks", PlainFile, Open{}, kForEachBlock, MovePlainly);
const Side kCpp("cpp move blocks", CppFile, Open{}, kForEachBlock, MoveByCpp);
const auto kOpenLiterally = [](hid_t file, const Task& task)
{
    return Id(CreateOrOpen(file, task, H5P_DEFAULT));
};
const Side kLiteral("plain move blocks literally", PlainFile, kOpenLiterally, kForEachBlock, MoveLiterally);

template <typename Move>
Side ByLibrary(Name work, Move move)
{
    return Side("library " + work, LibraryFile, Open{}, kForEachBlock, move);
}

int Int(hsize_t number)
{
    return static_cast<int>(number);
}

const Side kLibrary[] = {
    ByLibrary("append a row", [](Array& array, const Task& task, const Place& /*start*/)
              { array.AppendRowFromBuffer(task.elements, kDouble); }),
    ByLibrary("append rows", [](Array& array, const Task& task, const Place& /*start*/)
              { array.AppendRowsFromBuffer(Int(task.block[0]), task.elements, kDouble); }),
    ByLibrary("append a column", [](Array& array, const Task& task, const Place& /*start*/)
              { array.AppendColumnFromBuffer(task.elements, kDouble); }),
    ByLibrary("read a row", [](Array& array, const Task& task, const Place& start)
              { array.ReadRowToBuffer(Int(start[0]), task.memory, kDouble); }),
    ByLibrary("read rows", [](Array& array, const Task& task, const Place& start)
              { array.ReadRowsToBuffer(Int(start[0]), Int(task.block[0]), task.memory, kDouble); }),
    ByLibrary("read a column", [](Array& array, const Task& task, const Place& start)
              { array.ReadColumnToBuffer(Int(start[1]), task.memory, kDouble); }),
};

} // namespace
