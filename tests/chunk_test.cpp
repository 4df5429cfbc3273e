#include "Fixture.h"

#include <tarnwickhdf/internal/ChunkFilters.h>

#include <cstring>
#include <random>

namespace tarnwick::hdf::tests
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
            H5Dread_chunk(dataSet.get(), H5P_DEFAULT, &origin, &skipped, stored.data());

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

} // namespace tarnwick::hdf::tests
