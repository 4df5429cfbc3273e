#include "Fixture.h"

#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>

#include <cstring>
#include <random>

namespace tarnwick::hdf::tests
{

namespace
{

using Buffer = std::vector<char>;

// Deflate makes nothing smaller of bytes of all values, but something of those below a lower limit.
constexpr unsigned int kNoise = 256;

Buffer BytesOf(size_t size, unsigned int limit = 100)
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

ScopedType RowWithGaps()
{
    ScopedType row = TypeOf("H5T_COMPOUND { H5T_STD_I8LE \"a\" : 1; H5T_IEEE_F64LE \"b\" : 8; }");
    H5Tset_size(row.get(), 19);
    return row;
}

using Chunk = OpenFileTest;

// Among the lengths are those around the sizes of vector registers.
TEST_F(Chunk, ThatIsWrittenStraightToTheFileIsReadByPlainHdf5)
{
    for (size_t elementSize = 1; elementSize <= 40; ++elementSize)
    {
        for (const size_t elements : {1U, 2U, 7U, 15U, 16U, 17U, 23U, 24U, 71U, 72U, 73U, 80U, 200U, 1000U})
        {
            for (const int level : {0, 1, 6, 9})
            {
                SCOPED_TRACE(Json({elementSize, elements, level}).dump());
                Buffer texts = BytesOf(elementSize * elements);
                const auto array = IArray::CreateFromBuffer(file, root->LocationID(), "texts", texts.data(),
                                                            TDataType::String, elements, elementSize, level);

                EXPECT_EQ(PlainHdf5Reads(array->LocationID(), array->GetTypeID()), texts);

                root->DelArray("texts");
            }
        }
    }
}

TEST_F(Chunk, ThatDeflateMakesNoSmallerIsReadByPlainHdf5)
{
    for (const size_t size : {1U, 10U, 70000U, 3000000U})
    {
        Buffer noise = BytesOf(size, kNoise);
        const auto array = IArray::CreateFromBuffer(file, root->LocationID(), "noise", noise.data(), TDataType::UChar,
                                                    noise.size(), 1, 6);

        EXPECT_EQ(PlainHdf5Reads(array->LocationID(), H5T_NATIVE_UCHAR), noise);
        EXPECT_LT(H5Dget_storage_size(array->LocationID()), size + size / 1000 + 20);

        root->DelArray("noise");
    }
}

TEST_F(Chunk, OfATableKeepsTheBytesBetweenTheColumns)
{
    const ScopedType row = RowWithGaps();
    for (const int level : {0, 4})
    {
        Buffer rows = BytesOf(H5Tget_size(row.get()) * 5000);
        Buffer read(rows.size());

        const auto table = root->CreateTableFromBuffer("table", rows.data(), 5000, row.get(), level, -1, 0);
        table->GetToBuffer(read.data(), -1);

        EXPECT_EQ(PlainHdf5Reads(table->LocationID(), row.get()), rows);
        EXPECT_EQ(read, rows);
        root->DelArray("table");
    }
}

TEST_F(Chunk, OfATableOfAnotherTypeThanTheBuffersIsConvertedByHdf5)
{
    const ScopedType ints = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"a\"; H5T_NATIVE_INT \"b\"; }");
    const ScopedType shorts = TypeOf("H5T_COMPOUND { H5T_NATIVE_SHORT \"a\"; H5T_NATIVE_SHORT \"b\"; }");
    Buffer rows = BytesOf(5 * H5Tget_size(shorts.get()));

    const auto table = root->CreateTableFromBuffer("table", rows.data(), 5, ints.get(), 3, shorts.get(), 0);

    EXPECT_EQ(PlainHdf5Reads(table->LocationID(), shorts.get()), rows);
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

    void WriteFirstRows(hid_t dataSet) const
    {
        const Dims start(isNumber ? 2 : 1);
        const Dims count = Extent(writtenRows, columns);
        const ScopedSpace inFile(H5Dget_space(dataSet));
        const ScopedSpace inMemory(H5Screate_simple(static_cast<int>(count.size()), count.data(), nullptr));
        H5Sselect_hyperslab(inFile.get(), H5S_SELECT_SET, start.data(), nullptr, count.data(), nullptr);
        H5Dwrite(dataSet, type.get(), inMemory.get(), inFile.get(), H5P_DEFAULT, BytesOf(rows * columns * elementSize).data());
    }

    // Stores the first chunk without some of its filters, or damages it.
    void ReplaceFirstChunk(hid_t dataSet)
    {
        const hsize_t origin[] = {0, 0};
        const size_t size = rowsInChunk * columnsInChunk * elementSize;
        const std::uint32_t withoutShuffle = 1;
        const std::uint32_t withoutDeflate = 2;
        const std::uint32_t skipped = random() % 4;
        Buffer chunk = BytesOf(size);
        if ((skipped & withoutDeflate) == 0)
        {
            const size_t shuffledSize = (skipped & withoutShuffle) == 0 ? elementSize : 1;
            const PackedChunk packed = ShuffleAndDeflate(chunk.data(), size, shuffledSize, 6);
            const size_t kept = OneIn(3) ? packed.size / 2 : packed.size;
            chunk.assign(packed.bytes.get(), packed.bytes.get() + kept);
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
        const ScopedDataSet made = Make(
            parent, name, {type.get(), Extent(rows, columns), Extent(rowsInChunk, columnsInChunk), {}, addFilters});
        WriteFirstRows(made.get());
        if (isFirstChunkReplaced && isShuffled && isDeflated && !hasChecksum)
        {
            ReplaceFirstChunk(made.get());
        }
    }

    std::mt19937 random;
    bool isNumber = OneIn(2); ///< In two dimensions; else texts in one.
    size_t elementSize = isNumber ? sizeof(int) : 1 + random() % 40;
    hsize_t columns = isNumber ? 1 + random() % 50 : 1;
    hsize_t rows = (10000 + random() % 100000) / elementSize / columns + 1;
    hsize_t columnsInChunk = OneIn(8) ? (columns + 1) / 2 : columns;
    hsize_t rowsInChunk = OneIn(2) ? rows : rows / (2 + random() % 8) + 1;
    hsize_t writtenRows = OneIn(6) ? random() % rows : rows;
    bool isShuffled = !OneIn(4);
    bool isDeflated = !OneIn(4);
    bool hasChecksum = OneIn(8);
    bool hasPlainEnd = OneIn(8); ///< A chunk that reaches behind the extent is stored without the filters.
    bool isFirstChunkReplaced = OneIn(3);
    TDataType::TDataType readType = isNumber && OneIn(3) ? TDataType::Double : TDataType::Undefined;
    ScopedType type = isNumber ? ScopedType(H5Tcopy(H5T_NATIVE_INT)) : TextType(elementSize);
};

TEST_F(Chunk, OfAnotherProgramIsReadAsPlainHdf5ReadsIt)
{
    constexpr unsigned int seeds = 300;
    unsigned int readStraight = 0;
    for (unsigned int seed = 0; seed < seeds; ++seed)
    {
        SCOPED_TRACE(seed);
        ForeignDataSet foreign(seed);
        foreign.Store(root->LocationID(), "data");
        const hid_t type = foreign.readType == TDataType::Double ? H5T_NATIVE_DOUBLE : foreign.type.get();
        const size_t elements = foreign.rows * foreign.columns;
        Buffer read(elements * H5Tget_size(type));
        Buffer expected(read.size());

        const std::string words = WordsOf([&] { root->GetArray("data")->GetToBuffer(read.data(), foreign.readType); });

        const ScopedDataSet dataSet(H5Dopen1(root->LocationID(), "data"));
        const bool isReadable = H5Dread(dataSet.get(), type, H5S_ALL, H5S_ALL, H5P_DEFAULT, expected.data()) >= 0;
        EXPECT_EQ(words, isReadable ? "" : "Error -1 while reading from dataset 'data':");
        EXPECT_TRUE(!isReadable || read == expected);
        readStraight += IsReadStraight(dataSet.get(), foreign.type.get(), elements) ? 1 : 0;
        root->DelArray("data");
    }
    EXPECT_GT(readStraight, seeds / 4);
}

TEST_F(Chunk, IsReadAsItIsByThenWithWhatAnotherHandleHasStillInHdf5sCache)
{
    const hsize_t elements = 20000;
    const auto addFilters = [](hid_t list)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, 1);
    };
    for (const hsize_t chunk : {elements, hsize_t{1000}})
    {
        const ScopedDataSet writer =
            Make(root->LocationID(), std::to_string(chunk), {H5T_NATIVE_INT, {elements}, {chunk}, {}, addFilters});
        const auto array = root->GetArray(std::to_string(chunk));
        const size_t size = elements * sizeof(int);
        Buffer read(size);
        // What follows is larger or smaller in the file than what it replaces.
        for (const Buffer& bytes : {BytesOf(size), BytesOf(size, kNoise), Buffer(size), BytesOf(size, kNoise)})
        {
            H5Dwrite(writer.get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());

            array->GetToBuffer(read.data(), TDataType::Int);

            EXPECT_EQ(read, bytes);
            EXPECT_TRUE(IsReadStraight(array->LocationID(), H5T_NATIVE_INT, elements));
        }
    }
}

// The address sanitizer watches the buffers, which have no byte too many.
TEST_F(Chunk, ThatIsDamagedIsRefusedWithinItsBuffers)
{
    constexpr size_t size = 4001; // a byte more than whole elements
    const Buffer bytes = BytesOf(size);
    const PackedChunk packed = ShuffleAndDeflate(bytes.data(), size, 4, 6);
    const Buffer good(packed.bytes.get(), packed.bytes.get() + packed.size);
    ChunkUnpacker unpacker({true, true, 4}, size);
    Buffer chunk(size);
    const auto unpack = [&](const char* from, size_t packedSize, std::uint32_t skipped)
    {
        const Bytes exact = TryAllocate(packedSize);
        std::memcpy(exact.get(), from, packedSize);
        return unpacker.Unpack(exact.get(), packedSize, skipped, chunk.data());
    };

    EXPECT_TRUE(unpack(good.data(), good.size(), 0));
    EXPECT_EQ(chunk, bytes);
    for (const size_t otherSize : {size - 1, size + 1})
    {
        const PackedChunk other = ShuffleAndDeflate(BytesOf(otherSize).data(), otherSize, 4, 6);
        EXPECT_FALSE(unpack(other.bytes.get(), other.size, 0)) << otherSize;
    }
    for (size_t place = 0; place < good.size(); place += 13)
    {
        Buffer damaged = good;
        damaged[place] ^= 0x55;
        EXPECT_FALSE(unpack(damaged.data(), damaged.size(), 0)) << place;
        EXPECT_FALSE(unpack(good.data(), place, 0)) << place;
    }
    constexpr std::uint32_t bothFilters = 3;
    EXPECT_FALSE(unpack(bytes.data(), size - 1, bothFilters));
    EXPECT_TRUE(unpack(bytes.data(), size, bothFilters));
}

} // namespace

} // namespace tarnwick::hdf::tests
