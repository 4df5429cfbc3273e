#pragma once

#include "IdCounts.h"

#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <gtest/gtest.h>
#include <hdf5_hl.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

namespace tarnwick::hdf::tests
{

/// Every test gets a fresh directory and must leave as many open ids behind as it found.
struct HdfTest : ::testing::Test
{
    HdfTest()
    {
        std::filesystem::remove_all(m_directory);
        std::filesystem::create_directory(m_directory);
        H5Eset_auto1(nullptr, nullptr);
        m_idsBefore = CountIds();
    }
    ~HdfTest() override
    {
        EXPECT_EQ(m_idsBefore, CountIds());
        std::filesystem::remove_all(m_directory);
    }

    std::string Path(const std::string& name) const { return (m_directory / name).string(); }

    /// The bytes of a file, "" if it can't be read.
    std::string Read(const std::string& name) const
    {
        std::ifstream stream(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    boost::shared_ptr<IFile> Open(const std::string& name, const std::string& mode) const
    {
        return IFile::Open(Path(name), mode, 0);
    }

private:
    std::filesystem::path m_directory =
        std::filesystem::temp_directory_path() / ("tarnwickhdf-test-" + std::to_string(getpid()));
    IdCounts m_idsBefore = {};
};

/// A test with a file that is open for writing.
struct OpenFileTest : HdfTest
{
    boost::shared_ptr<IFile> file = Open("test.h5", "w");
    boost::shared_ptr<IGroup> root = file->GetRoot();
    hid_t rootId = root->LocationID();
};

/// Runs a part of a test in a process of its own, for what belongs to the process: the tracker's slot, limits,
/// permissions, the exit. What it expects counts for the test.
inline void InAProcessOfItsOwn(const std::function<void()>& body)
{
    const auto runAndExit = [&]
    {
        body();
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(runAndExit(), ::testing::ExitedWithCode(0), "");
}

/// What a call throws, "" if it throws nothing.
inline std::string TextOf(const std::function<void()>& call)
{
    try
    {
        call();
        return "";
    }
    catch (const std::exception& failure)
    {
        return failure.what();
    }
}

/// The first line of TextOf, without a traceback: the operation's own words. The call must leave the ids as they were.
inline std::string WordsOf(const std::function<void()>& call)
{
    const IdCounts before = CountIds();
    const std::string text = TextOf(call);
    EXPECT_EQ(before, CountIds()) << "after: " << text;
    return text.substr(0, text.find('\n'));
}

struct FailingCall
{
    std::function<void()> call;
    std::string words; ///< As WordsOf tells them.
};

/// Makes each call, one after the other.
inline void ExpectWords(const std::vector<FailingCall>& calls)
{
    for (const FailingCall& failing : calls)
    {
        EXPECT_EQ(WordsOf(failing.call), failing.words) << "call " << &failing - calls.data();
    }
}

using Json = nlohmann::ordered_json;
using Dims = std::vector<hsize_t>;
using Ints = std::vector<int>;
using Names = std::vector<std::string>;

/// Opens to tests what a group keeps for its own classes.
struct Inside : IGroup
{
    using IGroup::CreateSubGroup;
    using IGroup::ListNames;
};

/// The type that a text describes in HDF5's data description language.
inline ScopedType TypeOf(const std::string& description)
{
    return ScopedType(H5LTtext_to_dtype(description.c_str(), H5LT_DDL));
}

/// A text in a fixed room, filled up with NUL bytes.
inline ScopedType TextType(size_t size, H5T_cset_t charset = H5T_CSET_ASCII)
{
    ScopedType type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type.get(), size);
    H5Tset_strpad(type.get(), H5T_STR_NULLPAD);
    H5Tset_cset(type.get(), charset);
    return type;
}

/// A data set as plain HDF5 makes it.
struct PlainDataSet
{
    hid_t type;
    Dims extent;                                    ///< Empty for a scalar.
    Dims chunk = {};                                ///< Empty for a contiguous one.
    Dims maximum = {};                              ///< Empty for that of the extent.
    std::function<void(hid_t list)> addToList = {}; ///< What else its creation list has.
    H5S_class_t withoutExtent = H5S_SCALAR;         ///< Of an empty extent.
};

/// For a creation list: where nothing was written, a read leaves the buffer as it is.
inline void FillNever(hid_t list)
{
    H5Pset_fill_time(list, H5D_FILL_TIME_NEVER);
}

/// Makes a data set by plain HDF5, and writes all of it if there are values.
inline ScopedDataSet Make(hid_t parent, const std::string& name, const PlainDataSet& wanted,
                          const void* values = nullptr)
{
    const int rank = static_cast<int>(wanted.extent.size());
    const hsize_t* const maximum = wanted.maximum.empty() ? nullptr : wanted.maximum.data();
    const ScopedSpace space(rank == 0 ? H5Screate(wanted.withoutExtent)
                                      : H5Screate_simple(rank, wanted.extent.data(), maximum));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    if (!wanted.chunk.empty())
    {
        H5Pset_chunk(list.get(), rank, wanted.chunk.data());
    }
    if (wanted.addToList)
    {
        wanted.addToList(list.get());
    }
    ScopedDataSet made(
        H5Dcreate2(parent, name.c_str(), wanted.type, space.get(), H5P_DEFAULT, list.get(), H5P_DEFAULT));
    if (values != nullptr)
    {
        H5Dwrite(made.get(), wanted.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values);
    }
    return made;
}

inline Dims ExtentOf(hid_t dataSet)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    Dims dims(static_cast<size_t>(std::max(H5Sget_simple_extent_ndims(space.get()), 0)));
    H5Sget_simple_extent_dims(space.get(), dims.data(), nullptr);
    return dims;
}

/// Chunk and filters of a data set, as " chunk [1,1] deflate 6"; "" for neither.
inline std::string StorageOf(hid_t dataSet)
{
    const ScopedPropertyList list(H5Dget_create_plist(dataSet));
    Dims chunk(ExtentOf(dataSet).size());
    std::string text;
    if (H5Pget_chunk(list.get(), static_cast<int>(chunk.size()), chunk.data()) > 0)
    {
        text += " chunk " + Json(chunk).dump();
    }
    unsigned int level = 0;
    size_t count = 1;
    if (H5Pget_filter_by_id2(list.get(), H5Z_FILTER_DEFLATE, nullptr, &count, &level, 0, nullptr, nullptr) >= 0)
    {
        text += " deflate " + std::to_string(level);
    }
    return text;
}

/// How a data set lies in the file and what plain HDF5 reads of it, as "[3,2] chunk [1,1] deflate 6: [1,2,3,4,5,6]".
inline std::string ContentOf(hid_t dataSet, hid_t memoryType = H5T_NATIVE_INT)
{
    if (dataSet < 0)
    {
        return "nothing";
    }
    const ScopedSpace space(H5Dget_space(dataSet));
    std::vector<int> cells(static_cast<size_t>(std::max<hssize_t>(H5Sget_simple_extent_npoints(space.get()), 0)));
    H5Dread(dataSet, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, cells.data());
    return Json(ExtentOf(dataSet)).dump() + StorageOf(dataSet) + ": " + Json(cells).dump();
}

} // namespace tarnwick::hdf::tests
