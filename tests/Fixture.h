#pragma once

#include "IdCounts.h"

#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <gtest/gtest.h>
#include <hdf5_hl.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

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
    }
    ~HdfTest() override
    {
        EXPECT_EQ(m_idsBefore, CountIds());
        std::filesystem::remove_all(m_directory);
    }

    std::string Path(const std::string& name) const { return (m_directory / name).string(); }

private:
    std::filesystem::path m_directory =
        std::filesystem::temp_directory_path() / ("tarnwickhdf-test-" + std::to_string(getpid()));
    IdCounts m_idsBefore = (H5open(), CountIds());
};

/// A test with a file that is open for writing.
struct OpenFileTest : HdfTest
{
    boost::shared_ptr<IFile> file = IFile::Open(Path("test.h5"), "w", 0);
    boost::shared_ptr<IGroup> root = file->GetRoot();
};

/// What a call throws, "" if it throws nothing.
inline std::string TextOf(const std::function<void()>& call)
{
    try
    {
        return call(), "";
    }
    catch (const std::exception& failure)
    {
        return failure.what();
    }
}

/// TextOf, without the traceback: the operation's own words with ":" behind them, or all of a plain failure. The call
/// must leave the open ids as they were.
inline std::string WordsOf(const std::function<void()>& call)
{
    const IdCounts before = CountIds();
    const std::string text = TextOf(call);
    EXPECT_EQ(before, CountIds()) << "after: " << text;
    const size_t traceback = text.find(":\n");
    return traceback == std::string::npos ? text : text.substr(0, traceback + 1);
}

/// Calls with the words that they fail with, as WordsOf tells them; the number of the row goes to the report.
inline void ExpectWords(const std::vector<std::pair<std::function<void()>, std::string>>& calls)
{
    for (size_t i = 0; i < calls.size(); ++i)
    {
        EXPECT_EQ(WordsOf(calls[i].first), calls[i].second) << "call " << i;
    }
}

using Json = nlohmann::ordered_json;
using Dims = std::vector<hsize_t>;
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

/// How a data set lies in the file and what plain HDF5 reads of it, as "[3,2] chunk [1,1] deflate 6: [1,2,3]".
inline std::string ContentOf(hid_t dataSet, hid_t memoryType = H5T_NATIVE_INT)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    const ScopedPropertyList list(H5Dget_create_plist(dataSet));
    Dims dims(static_cast<size_t>(std::max(H5Sget_simple_extent_ndims(space.get()), 0)));
    H5Sget_simple_extent_dims(space.get(), dims.data(), nullptr);
    std::string text = dataSet < 0 ? "nothing" : Json(dims).dump();
    text +=
        H5Pget_chunk(list.get(), static_cast<int>(dims.size()), dims.data()) > 0 ? " chunk " + Json(dims).dump() : "";
    unsigned int level = 0;
    size_t count = 1;
    H5Pget_filter_by_id2(list.get(), H5Z_FILTER_DEFLATE, nullptr, &count, &level, 0, nullptr, nullptr);
    text += H5Pget_nfilters(list.get()) == 2 ? " deflate " + std::to_string(level) : "";
    std::vector<int> cells(static_cast<size_t>(std::max<hssize_t>(H5Sget_simple_extent_npoints(space.get()), 0)));
    H5Dread(dataSet, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, cells.data());
    return text + ": " + Json(cells).dump();
}

} // namespace tarnwick::hdf::tests
