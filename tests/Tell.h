#pragma once

#include <tarnwickhdf/internal/SameOnEveryHdf5.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

/// What the library tells of the objects of a file, as documents that another program can compare.
namespace tarnwick::hdf::tests::tell
{

using nlohmann::json;

/// What a call returns, or "!" and the words of its failure.
inline json Try(const std::function<json()>& call)
{
    try
    {
        return call();
    }
    catch (const std::exception& failure)
    {
        const std::string text = failure.what();
        return "!" + text.substr(0, text.find(":\n"));
    }
}

/// The numbers that `read` stores; null for more than a damaged file may ask for. A scalar counts as 0 elements and
/// moves its one.
inline json Numbers(size_t length, size_t width, const std::function<void(double*)>& read)
{
    constexpr size_t most = 1U << 20U;
    if (length >= most || width >= most || length * width >= most)
    {
        return json();
    }
    std::vector<double> values(std::max<size_t>(length * width, 1));
    const auto readThem = [&]
    {
        read(values.data());
        return json(values);
    };
    return Try(readThem);
}

inline json Attributes(const INode& node)
{
    json told = json::array();
    for (int i = 0; i < node.GetNumberOfAttrs(); ++i)
    {
        const std::string name = node.GetAttrName(i);
        const json type = Try([&] { return node.GetAttrType(name); });
        const json text = Try([&] { return node.GetAttr(name); });
        told.push_back({name, type, text});
    }
    return {told, node.ListAttrs()};
}

inline json Of(const IGroup& group)
{
    return {Attributes(group), group.GetNumberOfChildren(), group.GetNumberOfGroups(), group.HasDataSet()};
}

inline json Texts(const IArray& array)
{
    std::vector<std::string> texts;
    const hid_t type = array.GetTypeID();
    utils::ReadStringDataSet(texts, array.LocationID(), type, type, array.GetLength(), array.GetComponents());
    return texts;
}

inline json Of(const IArray& array)
{
    const size_t length = array.GetLength();
    const size_t width = array.GetComponents();
    const json bytes = Try([&] { return array.GetSizeInBytes(); });
    const json cells = array.GetType() >= TDataType::String
                           ? Try([&] { return Texts(array); })
                           : Numbers(length, width, [&](double* to) { array.GetToBuffer(to, TDataType::Double); });
    return {Attributes(array), array.GetType(), length, width, array.GetSize(), bytes, cells};
}

inline json Of(IExtensibleArray2D& array)
{
    const auto rows = static_cast<int>(array.GetNumberOfRows());
    const unsigned int columns = array.GetNumberOfColumns();
    const json bytes = Try([&] { return array.GetSizeInBytes(); });
    const json cells = Numbers(array.GetNumberOfRows(), columns,
                               [&](double* to) { array.ReadRowsToBuffer(0, rows, to, TDataType::Double); });
    return {Attributes(array), array.GetType(), array.GetNumberOfRows(), columns, bytes, cells};
}

inline json TextsOfColumn(const ITable& table, int column)
{
    std::vector<std::string> texts;
    table.FeedStringVector(texts, column);
    return texts;
}

inline json Column(const ITable& table, int column)
{
    const std::string name = table.GetColumnName(column);
    const ScopedType type(H5Tcreate(H5T_COMPOUND, sizeof(double)));
    H5Tinsert(type.get(), name.c_str(), 0, H5T_NATIVE_DOUBLE);
    const json texts = Try([&] { return TextsOfColumn(table, column); });
    const json numbers = Numbers(table.GetNumberOfRows(), 1, [&](double* to) { table.GetToBuffer(to, type.get()); });
    return {name, table.GetColumnDataType(column), texts, numbers};
}

inline json Of(const ITable& table)
{
    json columns = json::array();
    for (size_t i = 0; i < table.GetNumberOfColumns(); ++i)
    {
        columns.push_back(Column(table, static_cast<int>(i)));
    }
    return {Attributes(table), table.GetNumberOfRows(), columns};
}

/// How a name opens as each of the four classes.
inline json Child(IGroup& group, const std::string& name)
{
    const json asGroup = Try([&] { return Of(*group.GetGroup(name)); });
    const json asArray = Try([&] { return Of(*group.GetArray(name)); });
    const json asExtensible = Try([&] { return Of(*group.GetExtensibleArray2D(name)); });
    const json asTable = Try([&] { return Of(*group.GetTable(name)); });
    return {asGroup, asArray, asExtensible, asTable};
}

template <typename Node>
json Names(const std::vector<boost::shared_ptr<Node>>& nodes)
{
    std::vector<std::string> names(nodes.size());
    std::transform(nodes.begin(), nodes.end(), names.begin(), [](auto& node) { return node->GetName(); });
    return names;
}

/// Hands each document about a group and what is below it to `print`. A group that is its own descendant is walked
/// once.
inline void Walk(IGroup& group, const std::string& path, std::set<haddr_t>& seen,
                 const std::function<void(const json&)>& print)
{
    ObjectInfo info = {};
    if (H5Oget_info1(group.LocationID(), &info) < 0 || !seen.insert(info.addr).second)
    {
        return;
    }
    const json groups = Try([&] { return Names(group.ListGroups()); });
    print({path, Of(group), groups, Names(group.ListArrays()), Names(group.ListExtensibleArrays2D()),
           Names(group.ListTables())});
    for (int i = 0; i < static_cast<int>(group.GetNumberOfChildren()); ++i)
    {
        const std::string name = group.GetChildName(i);
        const int kind = group.GetChildType(i);
        print({path + "/" + name, kind, Child(group, name)});
        if (kind == H5G_GROUP && group.HasGroup(name))
        {
            Walk(*group.GetGroup(name), path + "/" + name, seen, print);
        }
    }
}

/// Walks a whole file; the last document is its version, or the words with which the walk ended.
inline void File(const std::string& path, const std::function<void(const json&)>& print)
{
    const auto walk = [&]
    {
        std::set<haddr_t> seen;
        const boost::shared_ptr<IFile> file = IFile::Open(path, "r", 0);
        Walk(*file->GetRoot(), "", seen, print);
        return json(file->GetAPIVersion());
    };
    print(Try(walk));
}

} // namespace tarnwick::hdf::tests::tell
