#include "Sides.h"

using tarnwick::hdf::IExtensibleArray2D;
using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

constexpr hsize_t kColumns = 16;
constexpr std::size_t kCacheBytes = std::size_t{16} << 20U;
constexpr std::size_t kCacheSlots = 521;
constexpr hsize_t kUnlimited[2] = {H5S_UNLIMITED, H5S_UNLIMITED};
constexpr const char* kName = "rows";

struct Chunks
{
    std::string word;
    hsize_t chunkRows;
    int compression;
    std::vector<std::size_t> rows;
    std::vector<std::size_t> literalRows; ///< Of the literal calls, which are too slow for more.
};

// 16 doubles a row, so 128 KiB and 2 MiB a chunk: below and above HDF5's chunk cache of 1 MiB.
const Chunks kAllChunks[] = {
    {"128 KiB chunks", 1024, 0, {100, 10000, 100000}, {100, 100000}},
    {"2 MiB chunks", 16384, 0, {100, 10000, 100000}, {100, 100000}},
    {"deflated 2 MiB chunks", 16384, 1, {100, 10000, 100000}, {100}},
};

// A row, a column or a block of either.
std::vector<double>& Values(std::size_t length)
{
    static std::vector<double> values;
    while (values.size() < length)
    {
        values.push_back(static_cast<double>(values.size() % 100));
    }
    return values;
}

boost::shared_ptr<IExtensibleArray2D> Create(IFile& file, const Chunks& chunks, std::size_t rows, hsize_t columns)
{
    return file.GetRoot()->CreateExtensibleArray2D(
        kName, TDataType::Double, static_cast<unsigned int>(rows), static_cast<unsigned int>(columns),
        static_cast<unsigned int>(chunks.chunkRows), static_cast<unsigned int>(kColumns), chunks.compression);
}

// A file with an array of so many rows.
bench::Place Stored(const Chunks& chunks)
{
    const auto make = [=](const std::string& path, std::size_t rows)
    {
        const auto file = IFile::Open(path, "w", 0);
        const auto array = Create(*file, chunks, rows, kColumns);
        for (hsize_t column = 0; column < kColumns; ++column)
        {
            array->WriteColumnFromBuffer(static_cast<int>(column), Values(rows).data(), TDataType::Double);
        }
    };
    return {"extensible-" + chunks.word, "r", make};
}

// A block of rows or columns.
struct Block
{
    hsize_t start[2];
    hsize_t count[2];

    hsize_t Length() const { return count[0] * count[1]; }
};

// Going through an array block by block. Columns go through all rows of it.
struct Work
{
    std::string word;
    bool isAppend;
    bool isByRows;
    hsize_t step; ///< The rows or columns of a block.

    std::size_t Blocks(std::size_t rows) const { return (isByRows ? rows : kColumns) / step; }

    Block At(std::size_t i, std::size_t rows) const
    {
        return isByRows ? Block{{i * step, 0}, {step, kColumns}} : Block{{0, i * step}, {rows, step}};
    }
};

void Transfer(bool isAppend, hid_t set, hid_t memory, hid_t file, std::size_t length)
{
    if (isAppend)
    {
        H5Dwrite(set, H5T_NATIVE_DOUBLE, memory, file, H5P_DEFAULT, Values(length).data());
    }
    else
    {
        H5Dread(set, H5T_NATIVE_DOUBLE, memory, file, H5P_DEFAULT, Values(length).data());
    }
}

// The array as a program of plain HDF5 keeps it open: it knows the extent, one space of the file serves all selections and
// one in memory all lines, and the cache holds the chunks of a row and of a column.
struct PlainArray
{
    PlainArray(hid_t openedSet, hsize_t rows, hsize_t columns) : set(openedSet), dimensions{rows, columns} {}

    void Move(const Block& block, bool isAppend)
    {
        if (isAppend)
        {
            dimensions[0] = block.start[0] + block.count[0];
            dimensions[1] = block.start[1] + block.count[1];
            H5Dset_extent(set, dimensions);
            H5Sset_extent_simple(space, 2, dimensions, kUnlimited);
        }
        H5Sselect_hyperslab(space, H5S_SELECT_SET, block.start, nullptr, block.count, nullptr);
        if (block.Length() != length)
        {
            length = block.Length();
            H5Sset_extent_simple(memory, 2, block.count, nullptr);
        }
        Transfer(isAppend, set, memory, space, length);
    }

    operator hid_t() const { return set; }

    bench::Id set;
    bench::Id space{H5Dget_space(set)};
    bench::Id memory{H5Screate(H5S_SIMPLE)};
    hsize_t dimensions[2];
    hsize_t length = 0;
};

hid_t CreatePlainly(hid_t file, const Chunks& chunks, hsize_t rows, hsize_t columns, hid_t access)
{
    const hsize_t dimensions[2] = {rows, columns};
    const hsize_t chunk[2] = {chunks.chunkRows, kColumns};
    const bench::Id space(H5Screate_simple(2, dimensions, kUnlimited));
    const bench::Id list(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(list, 2, chunk);
    if (chunks.compression > 0)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, static_cast<unsigned int>(chunks.compression));
    }
    return H5Dcreate2(file, kName, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, access);
}

bench::Id ListWithCache()
{
    const hid_t access = H5Pcreate(H5P_DATASET_ACCESS);
    H5Pset_chunk_cache(access, kCacheSlots, kCacheBytes, H5D_CHUNK_CACHE_W0_DEFAULT);
    return bench::Id(access);
}

// How the sides come to their array: a new one that is appended to, or one that is there.
struct Open
{
    Chunks chunks;
    Work work;

    hsize_t Rows(std::size_t rows) const { return work.isAppend && work.isByRows ? 0 : rows; }
    hsize_t Columns() const { return work.isAppend && !work.isByRows ? 0 : kColumns; }

    hid_t Plainly(hid_t file, std::size_t rows, hid_t access) const
    {
        return work.isAppend ? CreatePlainly(file, chunks, Rows(rows), Columns(), access)
                             : H5Dopen2(file, kName, access);
    }

    boost::shared_ptr<IExtensibleArray2D> operator()(IFile& file, std::size_t rows) const
    {
        return work.isAppend ? Create(file, chunks, Rows(rows), Columns())
                             : file.GetRoot()->GetExtensibleArray2D(kName);
    }
    PlainArray operator()(hid_t file, std::size_t rows) const
    {
        return PlainArray(Plainly(file, rows, ListWithCache()), Rows(rows), Columns());
    }
    H5::DataSet operator()(H5::H5File& file, std::size_t rows) const
    {
        const bench::Id set(Plainly(file.getId(), rows, H5P_DEFAULT));
        return H5::DataSet(set);
    }
};

// The literal calls have HDF5's default cache.
struct OpenLiterally
{
    Open open;

    bench::Id operator()(hid_t file, std::size_t rows) const
    {
        return bench::Id(open.Plainly(file, rows, H5P_DEFAULT));
    }
};

hid_t IdOf(const IExtensibleArray2D& array)
{
    return array.LocationID();
}

hid_t IdOf(const H5::DataSet& set)
{
    return set.getId();
}

hid_t IdOf(hid_t set)
{
    return set;
}

// What was appended is in the file at the end, however much a cache can hold.
template <typename Move>
auto ForEachBlock(const Work& work, Move move)
{
    return [=](auto&& array, std::size_t rows)
    {
        const std::size_t blocks = work.Blocks(rows);
        for (std::size_t i = 0; i < blocks; ++i)
        {
            move(array, work.At(i, rows));
        }
        if (work.isAppend)
        {
            H5Dflush(IdOf(array));
        }
    };
}

// Nothing is saved, every space is asked for.
void MoveLiterally(hid_t set, const Block& block, bool isAppend)
{
    if (isAppend)
    {
        hsize_t dimensions[2];
        const bench::Id extent(H5Dget_space(set));
        H5Sget_simple_extent_dims(extent, dimensions, nullptr);
        dimensions[0] = block.start[0] + block.count[0];
        dimensions[1] = block.start[1] + block.count[1];
        H5Dset_extent(set, dimensions);
    }
    const bench::Id file(H5Dget_space(set));
    H5Sselect_hyperslab(file, H5S_SELECT_SET, block.start, nullptr, block.count, nullptr);
    const bench::Id memory(H5Screate_simple(2, block.count, nullptr));
    Transfer(isAppend, set, memory, file, block.Length());
}

void MoveByCpp(const H5::DataSet& set, const Block& block, bool isAppend)
{
    if (isAppend)
    {
        const hsize_t dimensions[2] = {block.start[0] + block.count[0], block.start[1] + block.count[1]};
        set.extend(dimensions);
    }
    const H5::DataSpace file = set.getSpace();
    file.selectHyperslab(H5S_SELECT_SET, block.count, block.start);
    const H5::DataSpace memory(2, block.count);
    if (isAppend)
    {
        set.write(Values(block.Length()).data(), H5::PredType::NATIVE_DOUBLE, memory, file);
    }
    else
    {
        set.read(Values(block.Length()).data(), H5::PredType::NATIVE_DOUBLE, memory, file);
    }
}

template <typename Move>
void AddRows(bench::Rows& rows, const Chunks& chunks, const Work& work, Move move)
{
    const Open open = {chunks, work};
    const bool isAppend = work.isAppend;
    const bench::Place place = isAppend ? bench::Place{"extensible", "w", {}} : Stored(chunks);
    const std::string name = "extensible arrays/" + work.word + ", " + chunks.word;
    const std::vector<std::size_t> counts =
        work.step == 1 ? chunks.rows : std::vector<std::size_t>{1000, 10000, 100000};
    rows.push_back(bench::On(
        {name, "rows", counts, 1.10}, place, open, ForEachBlock(work, move),
        ForEachBlock(work, [=](PlainArray& array, const Block& block) { array.Move(block, isAppend); }),
        ForEachBlock(work, [=](const H5::DataSet& set, const Block& block) { MoveByCpp(set, block, isAppend); })));
    bench::Row row = {name + ", beside the literal calls", "rows", chunks.literalRows, 0.90};
    if (work.step > 1)
    {
        row.sizes = {1000, 10000};
        row.target = 0;
    }
    row.library = rows.back().library;
    row.plain =
        bench::Plain(place, OpenLiterally{open},
                     ForEachBlock(work, [=](hid_t set, const Block& block) { MoveLiterally(set, block, isAppend); }));
    rows.push_back(row);
}

// Arrays of no rows, to open by name.
const auto createEmpty = [](IGroup& root, const std::string& name)
{
    root.CreateExtensibleArray2D(name, TDataType::Double, 0, kColumns, 1024, kColumns, 0);
};

void OpenPlainly(hid_t file, const std::string& name)
{
    const bench::Id set(H5Dopen2(file, name.c_str(), H5P_DEFAULT));
    const bench::Id type(H5Dget_type(set));
    benchmark::DoNotOptimize(H5Tget_class(type) + static_cast<int>(H5Tget_size(type)) + H5Tget_order(type));
    const bench::Id space(H5Dget_space(set));
    hsize_t dimensions[2];
    hsize_t maximum[2];
    if (H5Sget_simple_extent_ndims(space) == 2)
    {
        H5Sget_simple_extent_dims(space, dimensions, maximum);
    }
}

void OpenByCpp(const H5::Group& group, const std::string& name)
{
    const H5::DataSet set = group.openDataSet(name);
    hsize_t dimensions[2];
    hsize_t maximum[2];
    benchmark::DoNotOptimize(set.getDataType().getSize());
    set.getSpace().getSimpleExtentDims(dimensions, maximum);
}

bench::Row OpeningRow()
{
    using namespace bench;
    const auto make = [](const std::string& path, std::size_t count)
    {
        ForEachName(createEmpty)(*IFile::Open(path, "w", 0)->GetRoot(), count);
    };
    const Place place = {"extensible-empty", "r", make};
    const auto open = [](IGroup& root, const std::string& name)
    {
        root.GetExtensibleArray2D(name);
    };
    return On({"extensible arrays/open, ask for type and shape", "arrays", {100, 1000, 10000}, 1.20}, place, Root{},
              ForEachName(open), ForEachName(OpenPlainly), ForEachName(OpenByCpp));
}

} // namespace

bench::Rows bench::ExtensibleArrayRows()
{
    Rows rows = {OpeningRow()};
    for (const Chunks& chunks : kAllChunks)
    {
        AddRows(rows, chunks, {"append rows and flush", true, true, 1},
                [](IExtensibleArray2D& array, const Block& /*block*/)
                { array.AppendRowFromBuffer(Values(kColumns).data(), TDataType::Double); });
        AddRows(rows, chunks, {"read rows", false, true, 1},
                [](IExtensibleArray2D& array, const Block& block) {
                    array.ReadRowToBuffer(static_cast<int>(block.start[0]), Values(kColumns).data(), TDataType::Double);
                });
        AddRows(rows, chunks, {"append rows in blocks of 1,000 and flush", true, true, 1000},
                [](IExtensibleArray2D& array, const Block& block)
                {
                    const int count = static_cast<int>(block.count[0]);
                    array.AppendRowsFromBuffer(count, Values(block.Length()).data(), TDataType::Double);
                });
        AddRows(rows, chunks, {"read rows in blocks of 1,000", false, true, 1000},
                [](IExtensibleArray2D& array, const Block& block)
                {
                    const int first = static_cast<int>(block.start[0]);
                    const int count = static_cast<int>(block.count[0]);
                    array.ReadRowsToBuffer(first, count, Values(block.Length()).data(), TDataType::Double);
                });
        AddRows(rows, chunks, {"append 16 columns and flush", true, false, 1},
                [](IExtensibleArray2D& array, const Block& block)
                { array.AppendColumnFromBuffer(Values(block.Length()).data(), TDataType::Double); });
        AddRows(rows, chunks, {"read 16 columns", false, false, 1},
                [](IExtensibleArray2D& array, const Block& block)
                {
                    const int column = static_cast<int>(block.start[1]);
                    array.ReadColumnToBuffer(column, Values(block.Length()).data(), TDataType::Double);
                });
    }
    return rows;
}
