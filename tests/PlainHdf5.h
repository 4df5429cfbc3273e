#pragma once

#include "Fixture.h"

#include <tarnwickhdf/internal/ScopedId.h>

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <sstream>

namespace tarnwick::hdf::tests
{

using Dims = std::vector<hsize_t>;
constexpr hsize_t kInf = H5S_UNLIMITED;

/// A compound type without gaps.
inline ScopedType CompoundOf(const std::vector<std::pair<std::string, hid_t>>& members)
{
    ScopedType type(H5Tcreate(H5T_COMPOUND, 4096));
    size_t offset = 0;
    for (const auto& [name, member] : members)
    {
        H5Tinsert(type.get(), name.c_str(), offset, member);
        offset += H5Tget_size(member);
    }
    H5Tset_size(type.get(), offset);
    return type;
}

inline ScopedType StringType(size_t size, H5T_cset_t charset)
{
    ScopedType type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type.get(), size);
    H5Tset_cset(type.get(), charset);
    return type;
}

/// Makes a data set past the library: null without dimensions, in chunks of one element if it can grow.
inline void WritePlain(hid_t parent, const std::string& name, hid_t type, const std::optional<Dims>& dims,
                       const Dims& max = {}, const void* buffer = nullptr)
{
    const int rank = dims ? static_cast<int>(dims->size()) : 0;
    const ScopedSpace space(rank == 0 ? H5Screate(dims ? H5S_SCALAR : H5S_NULL)
                                      : H5Screate_simple(rank, dims->data(), max.empty() ? nullptr : max.data()));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    max.empty() ? 0 : H5Pset_chunk(list.get(), rank, Dims(max.size(), 1).data());
    const ScopedDataSet made(H5Dcreate2(parent, name.c_str(), type, space.get(), H5P_DEFAULT, list.get(), H5P_DEFAULT));
    EXPECT_GE(made.get(), 0) << name;
    buffer == nullptr ? 0 : H5Dwrite(made.get(), type, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer);
}

template <typename Numbers>
std::string Joined(const Numbers& numbers)
{
    std::ostringstream text;
    std::for_each(numbers.begin(), numbers.end(), [&](const auto& number) { text << " " << number; });
    return text.str();
}

/// How a data set lies in the file and what plain HDF5 reads of it, as " 3 2 chunk 1 1 unlimited deflate 6: 1 2 3".
inline std::string ContentOf(hid_t dataSet, hid_t memoryType = H5T_NATIVE_INT)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    const ScopedPropertyList list(H5Dget_create_plist(dataSet));
    Dims dims(static_cast<size_t>(std::max(H5Sget_simple_extent_ndims(space.get()), 0)));
    Dims max = dims;
    H5Sget_simple_extent_dims(space.get(), dims.data(), max.data());
    std::string text = dataSet < 0 ? "nothing" : Joined(dims);
    text += H5Pget_chunk(list.get(), static_cast<int>(dims.size()), dims.data()) > 0 ? " chunk" + Joined(dims) : "";
    text += max == Dims{kInf, kInf} ? " unlimited" : "";
    std::vector<unsigned int> level(1);
    size_t count = 1;
    const bool filtered =
        H5Pget_nfilters(list.get()) == 2 &&
        H5Pget_filter2(list.get(), 1, nullptr, &count, level.data(), 0, nullptr, nullptr) == H5Z_FILTER_DEFLATE;
    text += filtered ? " deflate" + Joined(level) : "";
    std::vector<int> cells(static_cast<size_t>(std::max<hssize_t>(H5Sget_simple_extent_npoints(space.get()), 0)));
    H5Dread(dataSet, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, cells.data());
    return text + ":" + Joined(cells);
}

inline std::string ContentOf(const IGroup& group, const std::string& name, hid_t memoryType = H5T_NATIVE_INT)
{
    return ContentOf(ScopedDataSet(H5Dopen1(group.LocationID(), name.c_str())).get(), memoryType);
}

using Names = std::vector<std::string>;

template <typename Nodes>
Names NamesOf(const Nodes& nodes)
{
    Names names;
    std::transform(nodes.begin(), nodes.end(), std::back_inserter(names), [](auto& node) { return node->GetName(); });
    return names;
}

/// Which listings a child is in: G, A, E and T for the four kinds.
inline std::string KindsOf(const IGroup& group, const std::string& name)
{
    const auto has = [&](const auto& nodes, const char* kind)
    {
        return (Joined(NamesOf(nodes)) + " ").find(" " + name + " ") == std::string::npos ? "" : kind;
    };
    return std::string(has(group.ListGroups(), "G")) + has(group.ListArrays(), "A") +
           has(group.ListExtensibleArrays2D(), "E") + has(group.ListTables(), "T");
}

} // namespace tarnwick::hdf::tests
