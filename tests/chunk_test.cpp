#include "Fixture.h"

#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>

#include <random>

namespace tarnwick::hdf::tests
{

namespace
{

using Buffer = std::vector<char>;

// Deflate makes nothing smaller of bytes of all values, but something of those below a lower limit.
constexpr unsigned int kNoise = 256;
constexpr unsigned int kPackable = 100;

Buffer BytesOf(size_t size, unsigned int limit = kPackable)
{
    std::mt19937 random(static_cast<unsigned int>(size));
    Buffer bytes(size);
    for (char& byte : bytes)
    {
        byte = static_cast<char>(random() % limit);
    }
    return bytes;
}

Buffer PlainHdf5Reads(hid_t dataSet, hid_t type)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    Buffer bytes(static_cast<size_t>(H5Sget_simple_extent_npoints(space.get())) * H5Tget_size(type));
    H5Dread(dataSet, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
    return bytes;
}

/// Whether the library reads all elements without HDF5's filters.
bool IsReadStraight(hid_t dataSet, hid_t type, size_t elements)
{
    Buffer read(elements * H5Tget_size(type));
    StorageTraits remembered = StorageTraits::Unknown;
    return ReadPackedChunks(remembered, {dataSet, type, type, elements}, read.data());
}

using Chunk = OpenFileTest;

// Among the lengths are those around the sizes of vector registers.
TEST_F(Chunk, ThatIsWrittenStraightToTheFileIsReadByPlainHdf5)
{
    for (size_t elementSize = 1; elementSize <= 40; ++elementSize)
    {
        for (const size_t elements : {1U, 2U, 17U, 255U, 256U, 257U, 512U, 700U, 3000U})
        {
            for (const int level : {0, 1, 6, 9})
            {
                SCOPED_TRACE(Json({elementSize, elements, level}).dump());
                Buffer texts = BytesOf(elementSize * elements, level == 9 ? kNoise : kPackable);
                const auto array = IArray::CreateFromBuffer(file, root->LocationID(), "texts", texts.data(),
                                                            TDataType::String, elements, elementSize, level);

                EXPECT_EQ(PlainHdf5Reads(array->LocationID(), array->GetTypeID()), texts);

                root->DelArray("texts");
            }
        }
    }
}

TEST_F(Chunk, OfAHigherLevelIsSmaller)
{
    std::vector<int> values;
    for (int i = 0; i < 20000; ++i)
    {
        values.push_back(i * i % 1009);
    }
    Dims sizes;
    for (const int level : {1, 9})
    {
        const auto array = IArray::CreateFromBuffer(file, root->LocationID(), std::to_string(level), values.data(),
                                                    TDataType::Int, values.size(), 1, level);
        sizes.push_back(H5Dget_storage_size(array->LocationID()));
    }

    EXPECT_LT(sizes[1], sizes[0]);
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
    char* read[] = {nullptr, nullptr};

    const auto table = root->CreateTableFromBuffer("table", texts, 1, row.get(), 0, -1, 0);

    H5Dread(table->LocationID(), row.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read);
    ASSERT_NE(read[1], nullptr);
    EXPECT_EQ((Names{read[0], read[1]}), (Names{"sun", "rain"}));
    H5free_memory(read[0]);
    H5free_memory(read[1]);
}

// A data set as another program may leave it, chosen by a seed.
struct ForeignDataSet
{
    explicit ForeignDataSet(unsigned int seed) : random(seed) {}

    bool OneIn(unsigned int chances) { return random() % chances == 0; }
    Dims Extent(hsize_t length, hsize_t width) const { return isNumber ? Dims{length, width} : Dims{length}; }

    void AddFilters(hid_t list) const
    {
        if (isShuffled)
        {
            H5Pset_shuffle(list);
        }
        if (isDeflated)
        {
            H5Pset_deflate(list, 1);
        }
        if (hasChecksum)
        {
            H5Pset_fletcher32(list);
        }
        if (hasPlainEnd)
        {
            H5Pset_chunk_opts(list, H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS);
        }
    }

    // Stores the first chunk without some of its filters, or damages it.
    void ReplaceFirstChunk(hid_t dataSet)
    {
        const hsize_t origin[] = {0, 0};
        const std::uint32_t skipped = random() % 4;
        const bool hasShuffle = (skipped & 1U) == 0;
        const bool hasDeflate = (skipped & 2U) == 0;
        Buffer chunk = BytesOf(rowsInChunk * columnsInChunk * elementSize);
        if (hasDeflate)
        {
            const PackedChunk packed = ShuffleAndDeflate(chunk.data(), chunk.size(), hasShuffle ? elementSize : 1, 6);
            chunk.assign(packed.bytes.get(), packed.bytes.get() + (OneIn(3) ? packed.size / 2 : packed.size));
            if (OneIn(3))
            {
                chunk[random() % chunk.size()] = 0;
            }
        }
        H5Dwrite_chunk(dataSet, H5P_DEFAULT, skipped, origin, chunk.size(), chunk.data());
    }

    // Closes the data set too: HDF5 1.10 learns of skipped filters when it opens it again.
    void Store(hid_t parent, const std::string& name)
    {
        const auto addFilters = [this](hid_t list)
        {
            AddFilters(list);
        };
        const ScopedDataSet made = Make(parent, name,
                                        {type.get(), Extent(rows, columns), Extent(rowsInChunk, columnsInChunk),
                                         Extent(H5S_UNLIMITED, columns), addFilters},
                                        BytesOf(rows * columns * elementSize).data());
        if (isFirstChunkReplaced && isShuffled && isDeflated && !hasChecksum)
        {
            ReplaceFirstChunk(made.get());
        }
        rows += unwrittenRows;
        H5Dset_extent(made.get(), Extent(rows, columns).data());
    }

    std::mt19937 random;
    bool isNumber = OneIn(2); ///< In two dimensions; else texts in one.
    size_t elementSize = isNumber ? sizeof(int) : 1 + random() % 40;
    hsize_t columns = isNumber ? 1 + random() % 50 : 1;
    hsize_t rows = (10000 + random() % 100000) / elementSize / columns + 1;
    hsize_t columnsInChunk = OneIn(8) ? (columns + 1) / 2 : columns;
    hsize_t rowsInChunk = OneIn(2) ? rows : rows / (2 + random() % 8) + 1;
    hsize_t unwrittenRows = OneIn(6) ? random() % rows : 0; ///< Behind the others.
    bool isShuffled = !OneIn(4);
    bool isDeflated = !OneIn(4);
    bool hasChecksum = OneIn(8);
    bool hasPlainEnd = OneIn(8); ///< A chunk that reaches behind the extent is stored without the filters.
    bool isFirstChunkReplaced = OneIn(3);
    TDataType::TDataType readType = isNumber && OneIn(3) ? TDataType::Double : TDataType::Undefined;
    ScopedType type = isNumber ? ScopedType(H5Tcopy(H5T_NATIVE_INT)) : TextType(elementSize);
};

// The second time is read what the other handle has still in HDF5's cache.
TEST_F(Chunk, OfAnotherProgramIsReadTwiceAsPlainHdf5ReadsIt)
{
    constexpr unsigned int seeds = 120;
    unsigned int readStraight = 0;
    for (unsigned int seed = 0; seed < seeds; ++seed)
    {
        SCOPED_TRACE(seed);
        ForeignDataSet foreign(seed);
        foreign.Store(root->LocationID(), "data");
        const hid_t type = foreign.readType == TDataType::Double ? H5T_NATIVE_DOUBLE : foreign.type.get();
        const size_t elements = foreign.rows * foreign.columns;
        const auto array = root->GetArray("data");
        const ScopedDataSet other(H5Dopen1(root->LocationID(), "data"));
        for (int pass = 0; pass < 2; ++pass)
        {
            Buffer read(elements * H5Tget_size(type));
            Buffer expected(read.size());

            const std::string words = WordsOf([&] { array->GetToBuffer(read.data(), foreign.readType); });

            const bool isReadable = H5Dread(other.get(), type, H5S_ALL, H5S_ALL, H5P_DEFAULT, expected.data()) >= 0;
            EXPECT_EQ(words, isReadable ? "" : "Error -1 while reading from dataset 'data':");
            EXPECT_TRUE(!isReadable || read == expected);
            readStraight += IsReadStraight(other.get(), foreign.type.get(), elements) ? 1 : 0;
            const Buffer next = BytesOf(elements * foreign.elementSize, kNoise);
            H5Dwrite(other.get(), foreign.type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, next.data());
        }
        root->DelArray("data");
    }
    EXPECT_GT(readStraight, seeds / 2);
}

// A program may have switched HDF5's printing on again after its first open.
TEST_F(Chunk, AskedOfADataSetWithoutChunksPrintsNothing)
{
    const hsize_t length = 2000;
    std::vector<double> values(length);
    const ScopedSpace space(H5Screate_simple(1, &length, nullptr));
    const ScopedDataSet contiguous(H5Dcreate2(root->LocationID(), "contiguous", H5T_NATIVE_DOUBLE, space.get(),
                                              H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));

    H5Eset_auto2(H5E_DEFAULT, reinterpret_cast<H5E_auto2_t>(&H5Eprint2), stderr);
    ::testing::internal::CaptureStderr();
    root->GetArray("contiguous")->GetToBuffer(values.data(), TDataType::Double);
    root->GetArray("contiguous")->GetFromHyperslab(values.data(), 0, 4, 400, TDataType::Double);
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

} // namespace

} // namespace tarnwick::hdf::tests
