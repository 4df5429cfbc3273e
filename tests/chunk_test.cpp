#include "Fixture.h"

#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/typed.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace tarnwick::hdf::tests
{

using Buffer = std::vector<char>;

// Deflate makes nothing smaller of bytes of all 256 values, but something of fewer.
Buffer BytesOf(size_t size, unsigned int values = 100)
{
    std::mt19937 random(static_cast<unsigned int>(size));
    Buffer bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random() % values); });
    return bytes;
}

using Chunk = OpenFileTest;

// Among the lengths are those around the sizes of vector registers.
TEST_F(Chunk, ThatIsWrittenStraightToTheFileIsReadByPlainHdf5AndByTheLibrary)
{
    for (size_t elementSize = 1; elementSize <= 40; ++elementSize)
    {
        for (const size_t elements : {1U, 2U, 17U, 255U, 256U, 257U, 512U, 700U, 3000U})
        {
            for (const int level : {0, 1, 6, 9})
            {
                SCOPED_TRACE(Json({elementSize, elements, level}).dump());
                Buffer texts = BytesOf(elementSize * elements, level == 9 ? 256 : 100);
                const auto array = IArray::CreateFromBuffer(file, rootId, "texts", texts.data(), TDataType::String,
                                                            elements, elementSize, level);

                Buffer readByHdf5(texts.size());
                Buffer read(texts.size());
                H5LTread_dataset(rootId, "texts", array->GetTypeID(), readByHdf5.data());
                array->GetToBuffer(read.data(), TDataType::Undefined);
                EXPECT_EQ(readByHdf5, texts);
                EXPECT_EQ(read, texts);

                root->DelArray("texts");
            }
        }
    }
}

TEST_F(Chunk, OfAHigherLevelIsSmaller)
{
    Ints values(20000);
    std::iota(values.begin(), values.end(), 0);
    const auto bytesAt = [&](int level)
    {
        root->SetDefaultCompression(level);
        return H5Dget_storage_size(StoreArray(*root, std::to_string(level), values)->LocationID());
    };

    EXPECT_LT(bytesAt(9), bytesAt(1));
}

TEST_F(Chunk, OfATableOfAnotherTypeThanTheBuffersIsConvertedByHdf5)
{
    const ScopedType ints = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"a\"; H5T_NATIVE_INT \"b\"; }");
    const ScopedType otherOrder = TypeOf("H5T_COMPOUND { H5T_STD_I32BE \"a\"; H5T_STD_I32BE \"b\"; }");
    Buffer rows = BytesOf(5 * H5Tget_size(otherOrder.get()));

    root->CreateTableFromBuffer("table", rows.data(), 5, ints.get(), 3, otherOrder.get(), 0);

    Buffer read(rows.size());
    H5LTread_dataset(rootId, "table", otherOrder.get(), read.data());
    EXPECT_EQ(read, rows);
}

TEST_F(Chunk, OfATableOfArraysOfVariableTextsIsMadeByHdf5)
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_ARRAY { [2] H5T_STRING { STRSIZE H5T_VARIABLE; STRPAD "
                                  "H5T_STR_NULLTERM; CSET H5T_CSET_UTF8; CTYPE H5T_C_S1; } } \"texts\"; }");
    const char* texts[] = {"sun", "rain"};

    root->CreateTableFromBuffer("table", texts, 1, row.get(), 0, -1, 0);
    file->Close();

    EXPECT_EQ(std::system(("h5dump " + Path("test.h5") + " | grep -q '\"sun\", \"rain\"'").c_str()), 0);
}

constexpr hsize_t kRows = 500;
constexpr hsize_t kRowsOfChunk = 70;
constexpr hsize_t kColumns = 30;

/// Numbers "data" as another program may leave them.
struct ForeignNumbers
{
    bool isReadStraight; ///< Past HDF5's filters.
    std::vector<H5Z_filter_t> filters;
    hsize_t columnsOfChunk = kColumns;
    unsigned int options = 0; ///< Of its chunks.
    hsize_t rowsBehind = 0;   ///< Which were never written.
    unsigned int skipped = 0; ///< A bit for each filter that the first chunk is stored without.

    void Store(hid_t parent, const Ints& values) const
    {
        const auto addToList = [this](hid_t list)
        {
            const unsigned int level = 1;
            for (const H5Z_filter_t filter : filters)
            {
                H5Pset_filter(list, filter, H5Z_FLAG_OPTIONAL, 1, &level);
            }
            H5Pset_chunk_opts(list, options);
        };
        const Dims chunk = {kRowsOfChunk, columnsOfChunk};
        Make(parent, "data", {H5T_NATIVE_INT, {kRows, kColumns}, chunk, {H5S_UNLIMITED, kColumns}, addToList},
             values.data());
        const ScopedDataSet made(H5Dopen1(parent, "data"));
        if (skipped != 0)
        {
            const size_t size = kRowsOfChunk * kColumns * sizeof(int);
            H5Dwrite_chunk(made.get(), H5P_DEFAULT, skipped, Dims{0, 0}.data(), size, values.data());
        }
        H5Dset_extent(made.get(), Dims{kRows + rowsBehind, kColumns}.data());
    }
};

TEST_F(Chunk, OfAnotherProgramIsReadAsPlainHdf5ReadsItAlsoWhatAnotherHandleHasStillInHdf5sCache)
{
    const std::vector<ForeignNumbers> table = {
        {true, {H5Z_FILTER_SHUFFLE, H5Z_FILTER_DEFLATE}, kColumns, 0, 0, 3},
        {true, {H5Z_FILTER_SHUFFLE}},
        {true, {H5Z_FILTER_DEFLATE}},
        {false, {H5Z_FILTER_SHUFFLE}, kColumns, H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS},
        {false, {H5Z_FILTER_DEFLATE}, 15},
        {false, {H5Z_FILTER_DEFLATE}, kColumns, 0, 100}};
    for (const ForeignNumbers& row : table)
    {
        SCOPED_TRACE(&row - table.data());
        Ints expected(kRows * kColumns);
        std::iota(expected.begin(), expected.end(), 0);
        row.Store(rootId, expected);
        expected.resize((kRows + row.rowsBehind) * kColumns);
        const ScopedDataSet other(H5Dopen1(rootId, "data"));
        Ints read(expected.size());
        StorageTraits remembered = StorageTraits::Unknown;

        const WholeRead whole = {other.get(), H5T_NATIVE_INT, H5T_NATIVE_INT, read.size()};
        EXPECT_EQ(ReadPackedChunks(remembered, whole, read.data()), row.isReadStraight);
        EXPECT_EQ(ReadArray<int>(*root, "data"), expected);

        std::reverse(expected.begin(), expected.end());
        H5Dwrite(other.get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, expected.data());
        EXPECT_EQ(ReadArray<int>(*root, "data"), expected);

        root->DelArray("data");
    }
}

TEST_F(Chunk, ThatIsDamagedFailsInHdf5sWords)
{
    root->SetDefaultCompression(1);
    const auto array = StoreArray(*root, "a", Ints(5000));
    const hsize_t place = 0;
    H5Dwrite_chunk(array->LocationID(), H5P_DEFAULT, 0, &place, 3, "bad");

    EXPECT_EQ(WordsOf([&] { ReadArray<int>(*array); }), "/a: Error -1 while reading from dataset 'a':");
}

TEST_F(Chunk, OfAnotherLengthThanItsExtentIsRefusedAndNothingIsWrittenBehindIt)
{
    constexpr size_t size = 4001; // a byte more than whole elements
    ChunkUnpacker unpacker({true, true, 4}, size);
    for (const size_t packedSize : {size - 1, size, size + 1})
    {
        const Buffer bytes = BytesOf(packedSize);
        const PackedChunk packed = ShuffleAndDeflate(bytes.data(), packedSize, 4, 6);
        const Buffer guard(40, 'g');
        Buffer chunk(size);
        chunk.insert(chunk.end(), guard.begin(), guard.end());

        EXPECT_EQ(unpacker.Unpack(packed.bytes.get(), packed.size, 0, chunk.data()), packedSize == size);
        EXPECT_TRUE(packedSize != size || std::equal(bytes.begin(), bytes.end(), chunk.begin()));
        EXPECT_EQ(unpacker.Unpack(bytes.data(), packedSize, 3, chunk.data()), packedSize == size) << "no filters";
        EXPECT_EQ(Buffer(chunk.begin() + size, chunk.end()), guard);
    }
}

} // namespace tarnwick::hdf::tests
