#include "Fixture.h"

#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/internal/SameOnEveryHdf5.h>

#include <cstring>
#include <numeric>
#include <random>

namespace tarnwick::hdf::tests
{

namespace
{

using Buffer = std::vector<char>;

// Bytes of which deflate makes something, with nothing that repeats at a distance of a few.
Buffer BytesOf(size_t size)
{
    std::mt19937 random(static_cast<unsigned int>(size));
    Buffer bytes(size);
    for (char& byte : bytes)
    {
        byte = static_cast<char>(random() % 100);
    }
    return bytes;
}

Buffer NoiseOf(size_t size)
{
    std::mt19937 random(static_cast<unsigned int>(size));
    Buffer bytes(size);
    for (char& byte : bytes)
    {
        byte = static_cast<char>(random());
    }
    return bytes;
}

ScopedType OpaqueType(size_t size)
{
    return ScopedType(H5Tcreate(H5T_OPAQUE, size));
}

struct Chunk : OpenFileTest
{
    // A data set of one dimension that plain HDF5 makes, of `elements` opaque elements.
    ScopedDataSet CreateDataSet(size_t elementSize, hsize_t elements, hsize_t chunk,
                                const std::function<void(hid_t)>& addFilters) const
    {
        const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
        H5Pset_chunk(list.get(), 1, &chunk);
        addFilters(list.get());
        const ScopedSpace space(H5Screate_simple(1, &elements, nullptr));
        return ScopedDataSet(H5Dcreate2(root->LocationID(), ("opaque" + std::to_string(++m_dataSets)).c_str(),
                                        OpaqueType(elementSize).get(), space.get(), H5P_DEFAULT, list.get(),
                                        H5P_DEFAULT));
    }

    Buffer PlainHdf5Reads(const std::string& name, hid_t type) const
    {
        const ScopedDataSet dataSet(H5Dopen1(root->LocationID(), name.c_str()));
        const ScopedSpace space(H5Dget_space(dataSet.get()));
        Buffer bytes(static_cast<size_t>(H5Sget_simple_extent_npoints(space.get())) * H5Tget_size(type));
        H5Dread(dataSet.get(), type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
        return bytes;
    }

private:
    mutable int m_dataSets = 0;
};

TEST_F(Chunk, IsShuffledAsHdf5ShufflesIt)
{
    for (size_t elementSize = 1; elementSize <= 40; ++elementSize)
    {
        for (const size_t elements : {1U, 2U, 7U, 15U, 16U, 17U, 23U, 24U, 71U, 72U, 73U, 80U, 200U})
        {
            SCOPED_TRACE(std::to_string(elements) + " elements of " + std::to_string(elementSize));
            const Buffer bytes = BytesOf(elementSize * elements);
            const ScopedDataSet dataSet = CreateDataSet(elementSize, elements, elements, &H5Pset_shuffle);
            H5Dwrite(dataSet.get(), OpaqueType(elementSize).get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
            Buffer stored(bytes.size());
            const hsize_t origin = 0;
            uint32_t skipped = 0;
            ReadStoredChunk(dataSet.get(), &origin, skipped, stored.data());

            Buffer shuffled(bytes.size());
            Shuffle(bytes.data(), shuffled.data(), bytes.size(), elementSize);
            Buffer unshuffled(bytes.size());
            Unshuffle(shuffled.data(), unshuffled.data(), bytes.size(), elementSize);

            EXPECT_EQ(shuffled, stored);
            EXPECT_EQ(unshuffled, bytes);
        }
    }
}

TEST_F(Chunk, KeepsWhatIsLeftBehindTheLastWholeElementInItsPlace)
{
    const Buffer bytes = BytesOf(1000);
    Buffer shuffled(bytes.size());
    Buffer unshuffled(bytes.size());

    Shuffle(bytes.data(), shuffled.data(), bytes.size(), 7);
    Unshuffle(shuffled.data(), unshuffled.data(), bytes.size(), 7);

    EXPECT_EQ(Buffer(shuffled.end() - 6, shuffled.end()), Buffer(bytes.end() - 6, bytes.end()));
    EXPECT_EQ(shuffled[1], bytes[7]);
    EXPECT_EQ(unshuffled, bytes);
}

TEST_F(Chunk, OfElementsOfAnySizeIsReadByPlainHdf5AsItWasWritten)
{
    for (size_t elementSize = 1; elementSize <= 40; ++elementSize)
    {
        for (const int level : {0, 1, 6, 9})
        {
            for (const size_t elements : {1U, 17U, 1000U})
            {
                SCOPED_TRACE(std::to_string(elements) + " elements of " + std::to_string(elementSize) + ", level " +
                             std::to_string(level));
                Buffer texts = BytesOf(elementSize * elements);
                const auto array = IArray::CreateFromBuffer(file, root->LocationID(), "texts", texts.data(),
                                                            TDataType::String, elements, elementSize, level);

                EXPECT_EQ(PlainHdf5Reads("texts", array->GetTypeID()), texts);

                root->DelArray("texts");
            }
        }
    }
}

TEST_F(Chunk, ThatDeflateMakesNoSmallerIsReadByPlainHdf5)
{
    for (const size_t size : {1U, 10U, 70000U, 3000000U})
    {
        Buffer noise = NoiseOf(size);
        const auto array = IArray::CreateFromBuffer(file, root->LocationID(), "noise", noise.data(), TDataType::UChar,
                                                    noise.size(), 1, 6);

        EXPECT_EQ(PlainHdf5Reads("noise", H5T_NATIVE_UCHAR), noise);
        EXPECT_LT(H5Dget_storage_size(array->LocationID()), size + size / 1000 + 20);

        root->DelArray("noise");
    }
}

TEST_F(Chunk, OfATableKeepsTheBytesBetweenTheColumns)
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_STD_I8LE \"a\" : 1; H5T_IEEE_F64LE \"b\" : 8; }");
    H5Tset_size(row.get(), 19);
    for (const int level : {0, 4})
    {
        Buffer rows = BytesOf(19 * size_t{1000});

        root->CreateTableFromBuffer("table", rows.data(), 1000, row.get(), level, -1, 0);

        EXPECT_EQ(PlainHdf5Reads("table", row.get()), rows);
        root->DelArray("table");
    }
}

struct Creation
{
    std::string rowType;
    std::string bufferType;
    size_t chunkRows;
    std::string why;
};

// What can't go straight to the file is converted, or divided, by HDF5.
TEST_F(Chunk, OfATableThatHdf5MustMakeIsReadByPlainHdf5)
{
    const std::string ints = "H5T_COMPOUND { H5T_NATIVE_INT \"a\"; H5T_NATIVE_INT \"b\"; }";
    const std::string shorts = "H5T_COMPOUND { H5T_NATIVE_SHORT \"a\"; H5T_NATIVE_SHORT \"b\"; }";
    const std::vector<Creation> creations = {{ints, shorts, 0, "another type in memory"},
                                             {ints, ints, 2, "more than one chunk"}};
    for (const Creation& creation : creations)
    {
        SCOPED_TRACE(creation.why);
        const ScopedType bufferType = TypeOf(creation.bufferType);
        Buffer rows = BytesOf(5 * H5Tget_size(bufferType.get()));

        root->CreateTableFromBuffer("table", rows.data(), 5, TypeOf(creation.rowType).get(), 3, bufferType.get(),
                                    creation.chunkRows);

        EXPECT_EQ(PlainHdf5Reads("table", bufferType.get()), rows);
        root->DelArray("table");
    }
}

// A data set that plain HDF5 makes, of elements of `elementSize` bytes.
struct Storage
{
    std::string name;
    Dims extent;
    Dims chunk;
    bool hasShuffle;
    bool hasDeflate;
    bool isReadStraight; ///< Expected.
    bool canGrow = false;
    bool hasPlainEnd = false; ///< A chunk that reaches behind the extent is stored without the filters.
};

ScopedType TextType(size_t size)
{
    ScopedType type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type.get(), size);
    H5Tset_strpad(type.get(), H5T_STR_NULLPAD);
    return type;
}

struct PackedChunks : OpenFileTest
{
    ScopedDataSet Create(const Storage& storage, hid_t type) const
    {
        const int rank = static_cast<int>(storage.extent.size());
        const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
        H5Pset_chunk(list.get(), rank, storage.chunk.data());
        if (storage.hasShuffle)
        {
            H5Pset_shuffle(list.get());
        }
        if (storage.hasDeflate)
        {
            H5Pset_deflate(list.get(), 1);
        }
        if (storage.hasPlainEnd)
        {
            H5Pset_chunk_opts(list.get(), H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS);
        }
        const Dims unlimited(storage.extent.size(), H5S_UNLIMITED);
        const ScopedSpace space(
            H5Screate_simple(rank, storage.extent.data(), storage.canGrow ? unlimited.data() : nullptr));
        return ScopedDataSet(H5Dcreate2(root->LocationID(), storage.name.c_str(), type, space.get(), H5P_DEFAULT,
                                        list.get(), H5P_DEFAULT));
    }

    // As a new handle reads, or nothing if it leaves the data set to HDF5.
    static Buffer ReadStraight(hid_t dataSet, hid_t type, size_t elements)
    {
        Buffer read(elements * H5Tget_size(type));
        StorageTraits remembered = StorageTraits::Unknown;
        return ReadPackedChunks(remembered, {dataSet, type, type, elements}, read.data()) ? read : Buffer();
    }

    Buffer ArrayReads(const std::string& name, size_t bytes) const
    {
        Buffer read(bytes);
        root->GetArray(name)->GetToBuffer(read.data(), TDataType::Undefined);
        return read;
    }

    static void Write(hid_t dataSet, hid_t type, const Buffer& bytes)
    {
        H5Dwrite(dataSet, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
    }

    const Storage oneChunk = {"data", {20000}, {20000}, true, true, true};
    static constexpr size_t kSize = 20000 * sizeof(int);
};

TEST_F(PackedChunks, AreReadStraightFromTheFileWhereTheyLieOneBehindTheOther)
{
    const std::vector<Storage> storages = {{"one", {20000}, {20000}, true, true, true},
                                           {"shuffled", {20000}, {20000}, true, false, false},
                                           {"shuffled in chunks", {20000}, {3000}, true, false, true},
                                           {"deflated", {20000}, {20000}, false, true, true},
                                           {"plain", {20000}, {3000}, false, false, false},
                                           {"short last chunk", {20000}, {3000}, true, true, true},
                                           {"plain last chunk", {20000}, {3000}, true, false, false, false, true},
                                           {"larger chunk", {20000}, {30000}, true, true, true, true},
                                           {"one of two dimensions", {200, 100}, {200, 100}, true, true, true},
                                           {"all columns", {200, 100}, {30, 100}, true, true, true},
                                           {"some columns", {200, 100}, {200, 50}, true, true, false},
                                           {"small", {1000}, {1000}, true, true, false}};
    for (const Storage& storage : storages)
    {
        SCOPED_TRACE(storage.name);
        const size_t elements =
            std::accumulate(storage.extent.begin(), storage.extent.end(), size_t{1}, std::multiplies<>());
        const Buffer bytes = BytesOf(elements * sizeof(int));
        const ScopedDataSet dataSet = Create(storage, H5T_NATIVE_INT);
        Write(dataSet.get(), H5T_NATIVE_INT, bytes);

        const Buffer straight = ReadStraight(dataSet.get(), H5T_NATIVE_INT, elements);

        EXPECT_EQ(straight, storage.isReadStraight ? bytes : Buffer());
        EXPECT_EQ(ArrayReads(storage.name, bytes.size()), bytes);
    }
}

TEST_F(PackedChunks, OfElementsOfAnySizeAreReadAsPlainHdf5WroteThem)
{
    for (size_t elementSize = 1; elementSize <= 40; ++elementSize)
    {
        SCOPED_TRACE(elementSize);
        const hsize_t elements = 70000 / elementSize + 1;
        const Storage storage = {"data", {elements}, {elements / 3}, true, true, true};
        const Buffer bytes = BytesOf(elementSize * elements);
        const ScopedType text = TextType(elementSize);
        const ScopedDataSet dataSet = Create(storage, text.get());
        Write(dataSet.get(), text.get(), bytes);

        EXPECT_EQ(ReadStraight(dataSet.get(), text.get(), elements), bytes);
        EXPECT_EQ(ArrayReads("data", bytes.size()), bytes);

        root->DelArray("data");
    }
}

TEST_F(PackedChunks, OfATableAreReadWithTheBytesBetweenItsColumns)
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_STD_I8LE \"a\" : 1; H5T_IEEE_F64LE \"b\" : 8; }");
    H5Tset_size(row.get(), 19);
    const Buffer rows = BytesOf(19 * size_t{5000});
    const ScopedDataSet dataSet = Create({"table", {5000}, {999}, true, true, true}, row.get());
    Write(dataSet.get(), row.get(), rows);

    EXPECT_EQ(ReadStraight(dataSet.get(), row.get(), 5000), rows);

    Buffer read(rows.size());
    root->GetTable("table")->GetToBuffer(read.data(), -1);
    EXPECT_EQ(read, rows);
}

TEST_F(PackedChunks, AreConvertedByHdf5ToAnotherType)
{
    std::vector<int> numbers(20000);
    std::iota(numbers.begin(), numbers.end(), 0);
    const auto array =
        IArray::CreateFromBuffer(file, root->LocationID(), "data", numbers.data(), TDataType::Int, 20000, 1, 1);
    std::vector<double> read(numbers.size());

    array->GetToBuffer(read.data(), TDataType::Double);

    EXPECT_EQ(read, std::vector<double>(numbers.begin(), numbers.end()));
}

TEST_F(PackedChunks, AreReadWithWhatAnotherHandleHasStillInHdf5sCache)
{
    const ScopedDataSet writer = Create({"data", {20000}, {1000}, true, true, true}, H5T_NATIVE_INT);
    const auto array = root->GetArray("data");
    // What follows is larger or smaller in the file than what it replaces.
    for (const Buffer& bytes : {BytesOf(kSize), NoiseOf(kSize), Buffer(kSize), NoiseOf(kSize)})
    {
        Write(writer.get(), H5T_NATIVE_INT, bytes);

        EXPECT_EQ(ReadStraight(array->LocationID(), H5T_NATIVE_INT, 20000), bytes);
    }
}

TEST_F(PackedChunks, AreReadAgainAsTheyAreByThen)
{
    const ScopedDataSet writer = Create(oneChunk, H5T_NATIVE_INT);
    const auto array = root->GetArray("data");
    Buffer read(kSize);
    for (const Buffer& bytes : {BytesOf(kSize), NoiseOf(kSize), Buffer(kSize)})
    {
        Write(writer.get(), H5T_NATIVE_INT, bytes);

        array->GetToBuffer(read.data(), TDataType::Int);

        EXPECT_EQ(read, bytes);
    }
}

TEST_F(PackedChunks, ThatWereNeverWrittenAreReadAsTheFillValue)
{
    const ScopedDataSet dataSet = Create({"data", {20000}, {1000}, true, true, true}, H5T_NATIVE_INT);
    const ScopedSpace row(H5Dget_space(dataSet.get()));
    const hsize_t place = 12345;
    const int seven = 7;
    H5Sselect_elements(row.get(), H5S_SELECT_SET, 1, &place);
    const hsize_t one = 1;
    const ScopedSpace memory(H5Screate_simple(1, &one, nullptr));
    H5Dwrite(dataSet.get(), H5T_NATIVE_INT, memory.get(), row.get(), H5P_DEFAULT, &seven);
    std::vector<int> read(20000, -1);

    root->GetArray("data")->GetToBuffer(read.data(), TDataType::Int);

    std::vector<int> expected(20000);
    expected[place] = 7;
    EXPECT_EQ(read, expected);
}

struct Stored
{
    std::string name;
    uint32_t skippedFilters; ///< A bit each, shuffle's first.
    const char* chunk;
    size_t size;
    bool isReadStraight; ///< Expected: what has the size of a plain data set passes for one.
};

TEST_F(PackedChunks, AreReadWithoutTheFiltersThatTheyWereStoredWithout)
{
    const Buffer bytes = BytesOf(kSize);
    Buffer shuffled(kSize);
    Shuffle(bytes.data(), shuffled.data(), kSize, sizeof(int));
    const PackedChunk deflated = ShuffleAndDeflate(bytes.data(), kSize, 1, 6);
    const std::vector<Stored> chunks = {{"neither", 3, bytes.data(), kSize, false},
                                        {"no deflate", 2, shuffled.data(), kSize, false},
                                        {"no shuffle", 1, deflated.bytes.get(), deflated.size, true}};
    for (const Stored& stored : chunks)
    {
        SCOPED_TRACE(stored.name);
        ScopedDataSet writer = Create({stored.name, {20000}, {20000}, true, true, true}, H5T_NATIVE_INT);
        const hsize_t origin = 0;
        H5Dwrite_chunk(writer.get(), H5P_DEFAULT, stored.skippedFilters, &origin, stored.size, stored.chunk);
        writer.reset(); // HDF5 1.10 learns of the skipped filters when it opens the data set again

        const auto array = root->GetArray(stored.name);
        const Buffer straight = ReadStraight(array->LocationID(), H5T_NATIVE_INT, 20000);

        EXPECT_EQ(straight, stored.isReadStraight ? bytes : Buffer());
        EXPECT_EQ(ArrayReads(stored.name, kSize), bytes);
    }
}

TEST_F(PackedChunks, ThatAreDamagedFailInHdf5sWords)
{
    const ScopedDataSet dataSet = Create({"packed", {20000}, {20000}, true, true, true}, H5T_NATIVE_INT);
    PackedChunk packed = ShuffleAndDeflate(BytesOf(kSize).data(), kSize, sizeof(int), 6);
    packed.bytes[packed.size / 2] = static_cast<char>(~packed.bytes[packed.size / 2]);
    const hsize_t origin = 0;
    H5Dwrite_chunk(dataSet.get(), H5P_DEFAULT, 0, &origin, packed.size, packed.bytes.get());
    Buffer read(kSize);

    const std::string words = WordsOf([&] { root->GetArray("packed")->GetToBuffer(read.data(), TDataType::Int); });

    EXPECT_EQ(words, "Error -1 while reading from dataset 'packed':");
}

TEST(ChunkUnpacker, RefusesADamagedChunkWithinItsBuffers)
{
    constexpr size_t size = 4000;
    const Buffer bytes = BytesOf(size);
    const PackedChunk good = ShuffleAndDeflate(bytes.data(), size, 4, 6);
    const PackedChunk longer = ShuffleAndDeflate(BytesOf(size + 1).data(), size + 1, 4, 6);
    const PackedChunk shorter = ShuffleAndDeflate(bytes.data(), size - 1, 4, 6);
    ChunkUnpacker unpacker({true, true, 4}, size);
    const Bytes to = TryAllocate(size);
    const auto unpack = [&](const char* packed, size_t packedSize)
    {
        const Bytes exact = TryAllocate(packedSize);
        std::memcpy(exact.get(), packed, packedSize);
        return unpacker.Unpack(exact.get(), packedSize, 0, to.get());
    };

    EXPECT_TRUE(unpack(good.bytes.get(), good.size));
    EXPECT_FALSE(unpack(longer.bytes.get(), longer.size));
    EXPECT_FALSE(unpack(shorter.bytes.get(), shorter.size));
    for (size_t left = 0; left < good.size; left += 13)
    {
        EXPECT_FALSE(unpack(good.bytes.get(), left)) << left;
    }
    for (size_t place = 0; place < good.size; place += 13)
    {
        Buffer damaged(good.bytes.get(), good.bytes.get() + good.size);
        damaged[place] = static_cast<char>(damaged[place] ^ 0x55);
        EXPECT_FALSE(unpack(damaged.data(), damaged.size())) << place;
    }
    constexpr std::uint32_t noFilters = 3;
    EXPECT_FALSE(unpacker.Unpack(bytes.data(), size - 1, noFilters, to.get()));
    EXPECT_TRUE(unpacker.Unpack(bytes.data(), size, noFilters, to.get()));
}

} // namespace

} // namespace tarnwick::hdf::tests
