#include "Fixture.h"

#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/typed.h>

#include <algorithm>
#include <random>

namespace tarnwick::hdf::tests
{

using Buffer = std::vector<char>;

// Deflate makes nothing smaller of bytes of all values, but something of those below a lower limit.
constexpr unsigned int kNoise = 256;
constexpr unsigned int kPackable = 100;

Buffer BytesOf(size_t size, unsigned int limit = kPackable)
{
    std::mt19937 random(static_cast<unsigned int>(size));
    Buffer bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random() % limit); });
    return bytes;
}

Buffer PlainHdf5Reads(hid_t dataSet, hid_t type)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    Buffer bytes(static_cast<size_t>(H5Sget_simple_extent_npoints(space.get())) * H5Tget_size(type));
    H5Dread(dataSet, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
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
                Buffer texts = BytesOf(elementSize * elements, level == 9 ? kNoise : kPackable);
                const auto array = IArray::CreateFromBuffer(file, rootId, "texts", texts.data(), TDataType::String,
                                                            elements, elementSize, level);

                EXPECT_EQ(PlainHdf5Reads(array->LocationID(), array->GetTypeID()), texts);
                Buffer read(texts.size());
                array->GetToBuffer(read.data(), TDataType::Undefined);
                EXPECT_EQ(read, texts);

                root->DelArray("texts");
            }
        }
    }
}

TEST_F(Chunk, OfAHigherLevelIsSmaller)
{
    Ints values;
    for (int i = 0; i < 20000; ++i)
    {
        values.push_back(i * i % 1009);
    }
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

    const auto table = root->CreateTableFromBuffer("table", rows.data(), 5, ints.get(), 3, otherOrder.get(), 0);

    EXPECT_EQ(PlainHdf5Reads(table->LocationID(), otherOrder.get()), rows);
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

using FilterList = std::vector<H5Z_filter_t>;

const FilterList kBoth = {H5Z_FILTER_SHUFFLE, H5Z_FILTER_DEFLATE};
const FilterList kChecksum = {H5Z_FILTER_SHUFFLE, H5Z_FILTER_DEFLATE, H5Z_FILTER_FLETCHER32};

constexpr hsize_t kRows = 500;
constexpr hsize_t kColumns = 30;

/// A data set "data" of numbers as another program may leave it.
struct ForeignNumbers
{
    bool isReadStraight; ///< Past HDF5's filters.
    FilterList filters;
    Dims chunk;
    unsigned int options = 0;   ///< Of its chunks.
    hsize_t firstChunkPart = 0; ///< If not 0, such a part of the first chunk is there, without the shuffle.
    hsize_t rowsBehind = 0;     ///< Which were never written.
    TDataType::TDataType readAs = TDataType::Int;

    void Store(hid_t parent) const
    {
        const auto addFilters = [this](hid_t list)
        {
            const unsigned int level = 1;
            for (const H5Z_filter_t filter : filters)
            {
                H5Pset_filter(list, filter, H5Z_FLAG_OPTIONAL, 1, &level);
            }
            H5Pset_chunk_opts(list, options);
        };
        const ScopedDataSet made =
            Make(parent, "data", {H5T_NATIVE_INT, {kRows, kColumns}, chunk, {H5S_UNLIMITED, kColumns}, addFilters},
                 BytesOf(kRows * kColumns * sizeof(int)).data());
        if (firstChunkPart != 0)
        {
            const hsize_t origin[] = {0, 0};
            const Buffer bytes = BytesOf(chunk[0] * kColumns * sizeof(int));
            const PackedChunk packed = ShuffleAndDeflate(bytes.data(), bytes.size(), 1, 6);
            H5Dwrite_chunk(made.get(), H5P_DEFAULT, 1, origin, packed.size / firstChunkPart, packed.bytes.get());
        }
        const hsize_t extent[] = {kRows + rowsBehind, kColumns};
        H5Dset_extent(made.get(), extent);
    }
};

// The second time is read what the other handle has still in HDF5's cache.
TEST_F(Chunk, OfAnotherProgramIsReadTwiceAsPlainHdf5ReadsIt)
{
    const std::vector<ForeignNumbers> table = {
        {true, kBoth, {500, 30}},
        {true, kBoth, {70, 30}},
        {true, {H5Z_FILTER_SHUFFLE}, {70, 30}},
        {true, {H5Z_FILTER_DEFLATE}, {70, 30}},
        {true, kBoth, {70, 30}, 0, 1},
        {false, kBoth, {70, 30}, 0, 2},
        {false, {H5Z_FILTER_SHUFFLE}, {70, 30}, H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS},
        {false, kBoth, {70, 15}},
        {false, kBoth, {70, 30}, 0, 0, 100},
        {false, kChecksum, {70, 30}},
        {false, {}, {70, 30}},
        {true, kBoth, {70, 30}, 0, 0, 0, TDataType::Double}};
    for (const ForeignNumbers& row : table)
    {
        SCOPED_TRACE(&row - table.data());
        row.Store(rootId);
        const auto array = root->GetArray("data");
        const ScopedDataSet other(H5Dopen1(rootId, "data"));
        const hid_t type = INode::DataTypeToHDFType(row.readAs);
        Buffer read(array->GetSize() * H5Tget_size(type));
        StorageTraits remembered = StorageTraits::Unknown;
        const WholeRead whole = {other.get(), array->GetTypeID(), array->GetTypeID(), array->GetSize()};
        EXPECT_EQ(ReadPackedChunks(remembered, whole, read.data()), row.isReadStraight);
        for (int pass = 0; pass < 2; ++pass)
        {
            Buffer expected(read.size());

            const std::string words = WordsOf([&] { array->GetToBuffer(read.data(), row.readAs); });

            const bool isReadable = H5Dread(other.get(), type, H5S_ALL, H5S_ALL, H5P_DEFAULT, expected.data()) >= 0;
            EXPECT_EQ(words, isReadable ? "" : "Error -1 while reading from dataset 'data':");
            EXPECT_TRUE(!isReadable || read == expected);
            const Buffer next = BytesOf(read.size(), kNoise);
            H5Dwrite(other.get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, next.data());
        }
        root->DelArray("data");
    }
}

// A program may have switched HDF5's printing on again after its first open.
TEST_F(Chunk, AskedOfADataSetWithoutChunksPrintsNothing)
{
    std::vector<double> values(2000);
    Make(rootId, "contiguous", {H5T_NATIVE_DOUBLE, {values.size()}}, values.data());
    H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(&H5Eprint2), stderr);
    ::testing::internal::CaptureStderr();

    root->GetArray("contiguous")->GetToBuffer(values.data(), TDataType::Double);

    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
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
