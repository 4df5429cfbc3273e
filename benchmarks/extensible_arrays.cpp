#include "Sides.h"

#include <algorithm>
#include <iterator>

using namespace bench;

namespace
{

constexpr hsize_t kColumns = 16;
constexpr std::size_t kCacheBytes = std::size_t{16} << 20U;
constexpr std::size_t kCacheSlots = 521;
constexpr hsize_t kUnlimited[2] = {H5S_UNLIMITED, H5S_UNLIMITED};
constexpr const char* kName = "rows";
constexpr auto kDouble = TDataType::Double;

struct Chunks
{
    std::string word;
    unsigned int rows;
    int level;
    Sizes literalSizes; ///< Of the literal calls, which are too slow for more.
};

// 16 doubles a row, so 128 KiB and 2 MiB a chunk: below and above HDF5's chunk cache of 1 MiB.
const Chunks kAllChunks[] = {
    {"128 KiB chunks", 1024, 0, {100, 100000}},
    {"2 MiB chunks", 16384, 0, {100, 100000}},
    {"deflated 2 MiB chunks", 16384, 1, {100}},
};

// A row, a column or a block of either.
double* Values(std::size_t length)
{
    static std::vector<double> values;
    while (values.size() < length)
    {
        values.push_back(static_cast<double>(values.size() % 100));
    }
    return values.data();
}

struct Block
{
    hsize_t start[2];
    hsize_t count[2];

    hsize_t Length() const { return count[0] * count[1]; }
    double* Buffer() const { return Values(Length()); }
};

// Going through an array by rows, or by columns of all its rows, some of them at once.
struct Way
{
    std::string word;
    bool isAppend;
    bool isByRows;
    hsize_t step;

    std::size_t Blocks(std::size_t rows) const { return (isByRows ? rows : kColumns) / step; }
    Block At(std::size_t i, std::size_t rows) const
    {
        return isByRows ? Block{{i * step, 0}, {step, kColumns}} : Block{{0, i * step}, {rows, step}};
    }
};

boost::shared_ptr<IExtensibleArray2D> Create(IGroup& root, Name name, const Chunks& chunks, hsize_t rows,
                                             hsize_t columns)
{
    return root.CreateExtensibleArray2D(name, kDouble, static_cast<unsigned int>(rows),
                                        static_cast<unsigned int>(columns), chunks.rows, kColumns, chunks.level);
}

hid_t CreatePlainly(hid_t file, const Chunks& chunks, hsize_t rows, hsize_t columns, hid_t access)
{
    const hsize_t dimensions[2] = {rows, columns};
    const hsize_t chunk[2] = {chunks.rows, kColumns};
    const Id space(H5Screate_simple(2, dimensions, kUnlimited));
    const Id list = CreationList(2, chunk, chunks.level);
    return H5Dcreate2(file, kName, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, access);
}

void Transfer(bool isAppend, hid_t set, hid_t memory, hid_t file, const Block& block)
{
    if (isAppend)
    {
        H5Dwrite(set, H5T_NATIVE_DOUBLE, memory, file, H5P_DEFAULT, block.Buffer());
    }
    else
    {
        H5Dread(set, H5T_NATIVE_DOUBLE, memory, file, H5P_DEFAULT, block.Buffer());
    }
}

// The array as a program of plain HDF5 keeps it open: it knows the extent, one space of the file serves all selections and
// one in memory all lines, and the cache holds the chunks of a row and of a column.
struct PlainArray
{
    Id set;
    Id space{H5Dget_space(set)};
    Id memory{H5Screate(H5S_SIMPLE)};
    hsize_t length = 0;

    operator hid_t() const { return set; }
    void Move(const Block& block, bool isAppend)
    {
        if (isAppend)
        {
            const hsize_t dimensions[2] = {block.start[0] + block.count[0], block.start[1] + block.count[1]};
            H5Dset_extent(set, dimensions);
            H5Sset_extent_simple(space, 2, dimensions, kUnlimited);
        }
        H5Sselect_hyperslab(space, H5S_SELECT_SET, block.start, nullptr, block.count, nullptr);
        if (block.Length() != length)
        {
            length = block.Length();
            H5Sset_extent_simple(memory, 2, block.count, nullptr);
        }
        Transfer(isAppend, set, memory, space, block);
    }
};

// Nothing is saved, every space is asked for.
void MoveLiterally(hid_t set, const Block& block, bool isAppend)
{
    if (isAppend)
    {
        hsize_t dimensions[2];
        const Id extent(H5Dget_space(set));
        H5Sget_simple_extent_dims(extent, dimensions, nullptr);
        dimensions[0] = block.start[0] + block.count[0];
        dimensions[1] = block.start[1] + block.count[1];
        H5Dset_extent(set, dimensions);
    }
    const Id file(H5Dget_space(set));
    H5Sselect_hyperslab(file, H5S_SELECT_SET, block.start, nullptr, block.count, nullptr);
    const Id memory(H5Screate_simple(2, block.count, nullptr));
    Transfer(isAppend, set, memory, file, block);
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
        set.write(block.Buffer(), H5::PredType::NATIVE_DOUBLE, memory, file);
    }
    else
    {
        set.read(block.Buffer(), H5::PredType::NATIVE_DOUBLE, memory, file);
    }
}

// How the sides come to their array: a new one that is appended to, or one that is there.
struct Open
{
    Chunks chunks;
    Way way;

    hsize_t Rows(std::size_t rows) const { return way.isAppend && way.isByRows ? 0 : rows; }
    hsize_t Columns() const { return way.isAppend && !way.isByRows ? 0 : kColumns; }
    hid_t Plainly(hid_t file, std::size_t rows, hid_t access) const
    {
        return way.isAppend ? CreatePlainly(file, chunks, Rows(rows), Columns(), access)
                            : H5Dopen2(file, kName, access);
    }

    boost::shared_ptr<IExtensibleArray2D> operator()(IFile& file, std::size_t rows) const
    {
        IGroup& root = *file.GetRoot();
        return way.isAppend ? Create(root, kName, chunks, Rows(rows), Columns()) : root.GetExtensibleArray2D(kName);
    }
    PlainArray operator()(hid_t file, std::size_t rows) const
    {
        const Id access(H5Pcreate(H5P_DATASET_ACCESS));
        H5Pset_chunk_cache(access, kCacheSlots, kCacheBytes, H5D_CHUNK_CACHE_W0_DEFAULT);
        return PlainArray{Id(Plainly(file, rows, access))};
    }
    H5::DataSet operator()(H5::H5File& file, std::size_t rows) const
    {
        return H5::DataSet(Id(Plainly(file.getId(), rows, H5P_DEFAULT)).id);
    }
};

// The literal calls have HDF5's default cache.
struct OpenLiterally
{
    Open open;

    Id operator()(hid_t file, std::size_t rows) const { return Id(open.Plainly(file, rows, H5P_DEFAULT)); }
};

struct IdOf
{
    hid_t operator()(const IExtensibleArray2D& array) const { return array.LocationID(); }
    hid_t operator()(const H5::DataSet& set) const { return set.getId(); }
    hid_t operator()(hid_t set) const { return set; }
};

// What was appended is in the file at the end, however much a cache can hold.
template <typename Move>
auto ForEachBlock(const Way& way, Move move)
{
    return [=](auto& array, std::size_t rows)
    {
        const std::size_t blocks = way.Blocks(rows);
        for (std::size_t i = 0; i < blocks; ++i)
        {
            move(array, way.At(i, rows));
        }
        if (way.isAppend)
        {
            H5Dflush(IdOf{}(array));
        }
    };
}

const Reason kWholeChunk = {"*", "the cache holds what a column goes through, so that the first row or column reads a "
                                 "chunk whole; many small reads or columns gain by it"};
const Reason kAsksForTheSpace = {
    "*", "the space is asked for at each call, because another handle may have extended the array"};
const Reason kAsksForTheExtent = {
    "*", "the extent is asked for at each append, because another handle may have extended the array"};

Reasons ReasonsFor(const Chunks& chunks, const Way& way)
{
    if (way.step > 1 && !way.isAppend && chunks.rows > 1024)
    {
        return {kWholeChunk};
    }
    return {way.isAppend ? kAsksForTheExtent : kAsksForTheSpace};
}

template <typename Move>
void AddRows(Rows& rows, const Chunks& chunks, const Way& way, Move move)
{
    const Open open = {chunks, way};
    const bool isAppend = way.isAppend;
    const auto fill = [=](IGroup& root, std::size_t count)
    {
        const auto array = Create(root, kName, chunks, count, kColumns);
        for (int column = 0; column < static_cast<int>(kColumns); ++column)
        {
            array->WriteColumnFromBuffer(column, Values(count), kDouble);
        }
    };
    const Place place = isAppend ? Place{"extensible"} : MadeByLibrary("extensible-" + chunks.word, "r", fill);
    Row row = {"extensible arrays/" + way.word + ", " + chunks.word,
               "rows",
               {100, 10000, 100000},
               1.10,
               ReasonsFor(chunks, way)};
    Sizes literalSizes = chunks.literalSizes;
    double literalTarget = 0.90;
    if (way.step > 1)
    {
        row.sizes = {1000, 10000, 100000};
        literalSizes = {1000, 10000};
        literalTarget = 0;
    }
    row.library = OnFile(place, LibraryFile, open, ForEachBlock(way, move));
    row.plain = OnFile(place, PlainFile, open,
                       ForEachBlock(way, [=](PlainArray& array, const Block& block) { array.Move(block, isAppend); }));
    row.cpp =
        OnFile(place, CppFile, open,
               ForEachBlock(way, [=](const H5::DataSet& set, const Block& block) { MoveByCpp(set, block, isAppend); }));
    rows.push_back(row);
    row.sizes = literalSizes;
    rows.push_back(
        Beside(row, "the literal calls", literalTarget,
               OnFile(place, PlainFile, OpenLiterally{open},
                      ForEachBlock(way, [=](hid_t set, const Block& block) { MoveLiterally(set, block, isAppend); }))));
}

void AddWays(Rows& rows, const Chunks& chunks)
{
    AddRows(rows, chunks, {"append rows and flush", true, true, 1},
            [](IExtensibleArray2D& array, const Block& block) { array.AppendRowFromBuffer(block.Buffer(), kDouble); });
    AddRows(rows, chunks, {"read rows", false, true, 1},
            [](IExtensibleArray2D& array, const Block& block)
            { array.ReadRowToBuffer(static_cast<int>(block.start[0]), block.Buffer(), kDouble); });
    AddRows(rows, chunks, {"append rows in blocks of 1,000 and flush", true, true, 1000},
            [](IExtensibleArray2D& array, const Block& block)
            { array.AppendRowsFromBuffer(static_cast<int>(block.count[0]), block.Buffer(), kDouble); });
    AddRows(rows, chunks, {"read rows in blocks of 1,000", false, true, 1000},
            [](IExtensibleArray2D& array, const Block& block)
            {
                const int first = static_cast<int>(block.start[0]);
                array.ReadRowsToBuffer(first, static_cast<int>(block.count[0]), block.Buffer(), kDouble);
            });
    AddRows(rows, chunks, {"append 16 columns and flush", true, false, 1},
            [](IExtensibleArray2D& array, const Block& block)
            { array.AppendColumnFromBuffer(block.Buffer(), kDouble); });
    AddRows(rows, chunks, {"read 16 columns", false, false, 1},
            [](IExtensibleArray2D& array, const Block& block)
            { array.ReadColumnToBuffer(static_cast<int>(block.start[1]), block.Buffer(), kDouble); });
}

struct OpenExtensible : OpenByName
{
    using OpenByName::operator();
    void operator()(IGroup& root, Name name) const { root.GetExtensibleArray2D(name); }
};

// Asks whether the path leads to a data set before opening it, and finds the type by comparing.
void OpenByLiteralCalls(hid_t root, Name name)
{
    const hid_t types[] = {H5T_NATIVE_SCHAR, H5T_NATIVE_UCHAR,  H5T_NATIVE_SHORT, H5T_NATIVE_USHORT, H5T_NATIVE_INT,
                           H5T_NATIVE_UINT,  H5T_STD_I64LE,     H5T_STD_U64LE,    H5T_NATIVE_LONG,   H5T_NATIVE_ULONG,
                           H5T_NATIVE_LLONG, H5T_NATIVE_ULLONG, H5T_NATIVE_FLOAT, H5T_NATIVE_DOUBLE};
    H5O_info_t info;
    H5Lexists(root, name.c_str(), H5P_DEFAULT);
    H5Oexists_by_name(root, name.c_str(), H5P_DEFAULT);
    H5Oget_info_by_name1(root, name.c_str(), &info, H5P_DEFAULT);
    const Id set(H5Dopen2(root, name.c_str(), H5P_DEFAULT));
    const Id type(H5Dget_type(set));
    std::find_if(std::begin(types), std::end(types), [&](hid_t known) { return H5Tequal(known, type) != 0; });
    AskShape(set);
}

} // namespace

bench::Rows bench::ExtensibleArrayRows()
{
    const Reason reason = {"*",
                           "HDF5 tells the chunks only by a copy of the whole creation list, and the cache that they "
                           "decide is settled by opening"};
    const auto createEmpty = [](IGroup& root, Name name)
    {
        Create(root, name, kAllChunks[0], 0, kColumns);
    };
    const Place empty = MadeByLibrary("extensible-empty", "r", ForEachName(createEmpty));
    const Row open =
        On({"extensible arrays/open, ask for type and shape", "arrays", {100, 1000, 10000}, 1.20, {reason}}, empty,
           Root{}, ForEachName(OpenExtensible{}));
    Rows rows = {open, Beside(open, "the literal calls", 1.20,
                              OnFile(empty, PlainFile, Root{}, ForEachName(OpenByLiteralCalls)))};
    for (const Chunks& chunks : kAllChunks)
    {
        AddWays(rows, chunks);
    }
    return rows;
}
