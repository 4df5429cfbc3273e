// Tells what the library tells of a file ("walk FILE"), or plays the operations of its input on it ("walk FILE play").
#include "IdCounts.h"

#include <tarnwickhdf/internal/SameOnEveryHdf5.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <hdf5_hl.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>
#include <set>

using namespace tarnwick::hdf;
using nlohmann::json;

namespace
{

// What a call returns, or "!" and the words of its failure.
json Try(const std::function<json()>& call)
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

json Each(size_t count, const std::function<json(int)>& call)
{
    json list = json::array();
    for (size_t i = 0; i < count; ++i)
    {
        list.push_back(call(static_cast<int>(i)));
    }
    return list;
}

struct Tell
{
    // Each value, or of many a checksum.
    static json Values(const std::vector<double>& values)
    {
        const auto* const bytes = reinterpret_cast<const Bytef*>(values.data());
        return values.size() < 1000 ? json(values) : json(crc32_z(0, bytes, values.size() * sizeof(double)));
    }

    // A scalar counts as 0 elements and moves its one.
    static json Numbers(size_t one, size_t other, const std::function<void(double*)>& read)
    {
        constexpr size_t most = 1U << 20U;
        std::vector<double> values(one < most && other < most ? std::max<size_t>(one * other, 1) : 0);
        return values.empty() ? json() : Try([&] { return read(values.data()), Values(values); });
    }

    static json Attributes(const INode& node)
    {
        return {Each(size_t(node.GetNumberOfAttrs()), [&](int i) { return Attribute(node, node.GetAttrName(i)); }),
                node.ListAttrs()};
    }

    static json Attribute(const INode& node, const std::string& name)
    {
        return {name, Try([&] { return node.GetAttrType(name); }), Try([&] { return node.GetAttr(name); })};
    }

    static json Of(const IGroup& group)
    {
        return {Attributes(group), group.GetNumberOfChildren(), group.GetNumberOfGroups(), group.HasDataSet()};
    }

    static json Of(const IArray& array)
    {
        const size_t length = array.GetLength(), width = array.GetComponents();
        const hid_t type = array.GetTypeID(), id = array.LocationID();
        std::vector<std::string> texts;
        const json bytes = Try([&] { return array.GetSizeInBytes(); });
        const json cells =
            array.GetType() >= TDataType::String
                ? Try([&] { return utils::ReadStringDataSet(texts, id, type, type, length, width), texts; })
                : Numbers(length, width, [&](double* to) { array.GetToBuffer(to, TDataType::Double); });
        return {Attributes(array), array.GetType(), length, width, array.GetSize(), bytes, cells};
    }

    // Some rows or columns, and one behind the last.
    static json Lines(IExtensibleArray2D& array, decltype(&IExtensibleArray2D::ReadRowToBuffer) read, size_t count,
                      size_t length)
    {
        return Each(count + 1, [&](int i)
                    { return Numbers(length, 1, [&](double* to) { (array.*read)(i, to, TDataType::Double); }); });
    }

    static json Of(IExtensibleArray2D& array)
    {
        const size_t rows = array.GetNumberOfRows(), columns = array.GetNumberOfColumns();
        const json bytes = Try([&] { return array.GetSizeInBytes(); });
        // Rows after columns: an object is made with rows in mind.
        const json byColumn = Lines(array, &IExtensibleArray2D::ReadColumnToBuffer, std::min<size_t>(columns, 2), rows);
        const json byRow = Lines(array, &IExtensibleArray2D::ReadRowToBuffer, std::min<size_t>(rows, 9), columns);
        return {Attributes(array), array.GetType(), rows, columns, bytes, byRow, byColumn};
    }

    static json Of(const ITable& table)
    {
        return {Attributes(table), table.GetNumberOfRows(),
                Each(table.GetNumberOfColumns(), [&](int i) { return Column(table, i, table.GetColumnName(i)); })};
    }

    static json Column(const ITable& table, int column, const std::string& name)
    {
        std::vector<std::string> texts;
        const ScopedType type(H5Tcreate(H5T_COMPOUND, sizeof(double)));
        H5Tinsert(type.get(), name.c_str(), 0, H5T_NATIVE_DOUBLE);
        return {name, table.GetColumnDataType(column),
                Try([&] { return table.FeedStringVector(texts, column), texts; }),
                Numbers(table.GetNumberOfRows(), 1, [&](double* to) { table.GetToBuffer(to, type.get()); })};
    }

    // How a name opens as each of the four classes.
    static json Child(IGroup& group, const std::string& name)
    {
        return {Try([&] { return Of(*group.GetGroup(name)); }), Try([&] { return Of(*group.GetArray(name)); }),
                Try([&] { return Of(*group.GetExtensibleArray2D(name)); }),
                Try([&] { return Of(*group.GetTable(name)); })};
    }

    template <typename Node>
    static json Names(const std::vector<boost::shared_ptr<Node>>& nodes)
    {
        return Each(nodes.size(), [&](int i) { return nodes[size_t(i)]->GetName(); });
    }

    // A group that is its own descendant is walked once.
    static void Walk(IGroup& group, const std::string& path, std::set<haddr_t>& seen)
    {
        ObjectInfo info = {};
        if (H5Oget_info1(group.LocationID(), &info) < 0 || !seen.insert(info.addr).second)
        {
            return;
        }
        const json told = Of(group), groups = Try([&] { return Names(group.ListGroups()); });
        const json arrays = Names(group.ListArrays()), extensible = Names(group.ListExtensibleArrays2D());
        json::to_msgpack({path, told, groups, arrays, extensible, Names(group.ListTables())}, std::cout);
        for (int i = 0; i < static_cast<int>(group.GetNumberOfChildren()); ++i)
        {
            const std::string name = group.GetChildName(i);
            json::to_msgpack({path + "/" + name, group.GetChildType(i), Child(group, name)}, std::cout);
            if (group.GetChildType(i) == H5G_GROUP && group.HasGroup(name))
            {
                Walk(*group.GetGroup(name), path + "/" + name, seen);
            }
        }
    }

    static json File(const std::string& path)
    {
        std::set<haddr_t> seen;
        const boost::shared_ptr<IFile> file = IFile::Open(path, "r", 0);
        return Walk(*file->GetRoot(), "", seen), json(file->GetAPIVersion());
    }
};

void TellAll(const std::string& path)
{
    json::to_msgpack(Try([&] { return Tell::File(path); }), std::cout);
}

// Plays operations on a file. What works on an open data set does so through a copy that lives on.
struct Play
{
    template <typename Node>
    static Node& Copy(boost::shared_ptr<Node>& copy, const boost::shared_ptr<Node>& node)
    {
        copy ? void(*copy = *node) : copy.reset(new Node(*node));
        return *copy;
    }

    IArray& Array() { return Copy(array, at->GetArray(name)); }
    ITable& Table() { return Copy(table, at->GetTable(name)); }
    INode& Node() { return at->HasGroup(name) ? Copy(group, at->GetGroup(name)) : static_cast<INode&>(Array()); }

    // From 2 on a handle that hasn't seen what others did since it was opened.
    IExtensibleArray2D& Extensible(int which)
    {
        boost::shared_ptr<IExtensibleArray2D>& kept = extensible[which % 2];
        return which > 1 && kept ? *kept : Copy(kept, at->GetExtensibleArray2D(name));
    }

    void Close()
    {
        at.reset(), file.reset();
        if (H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_ALL & ~H5F_OBJ_DATATYPE) > 0)
        {
            throw std::logic_error("an object is open");
        }
        // The array's is assigned from another file's, the others are made anew.
        group.reset(), table.reset(), extensible[0].reset(), extensible[1].reset();
    }

    json Act(const json& operation)
    {
        using TDataType::Double;
        using TDataType::String;
        name = operation["name"];
        at = file ? file->GetRoot() : nullptr;
        at = operation["below"] == 0 ? at : at->CreateGroup("below/" + name);
        const std::vector<hsize_t> some = operation["text"], others = operation["mark"];
        const std::string mark(others.begin(), others.end());
        std::string text(some.begin(), some.end());
        const int kind = operation["type"], level = operation["level"], one = operation["one"], two = operation["two"];
        const int start = operation["start"], stride = operation["stride"], count = operation["steps"];
        const auto type = static_cast<TDataType::TDataType>(kind);
        const hid_t row = rowType.get();
        std::vector<double> values(size_t{1} << 18U);
        std::iota(values.begin(), values.end(), operation["first"].get<double>());
        double* const v = values.data();
        std::vector<hsize_t> turned(static_cast<size_t>(one));
        std::iota(turned.rbegin(), turned.rend(), 0U);
        size_t starts[] = {size_t(start), 0}, strides[] = {size_t(stride), 1}, counts[] = {size_t(count), size_t(two)};
        std::vector<double> converted;
        const auto typed = [&]
        {
            converted = values;
            const hid_t to = INode::DataTypeToHDFType(type);
            H5Tconvert(H5T_NATIVE_DOUBLE, to, size_t(one * two), converted.data(), nullptr, 0);
            return converted.data();
        };
        // clang-format off
        const std::map<std::string, std::function<void()>> actions = {
            {"open", [&] { rowType.reset(H5LTtext_to_dtype(std::string(operation["row"]).c_str(), H5LT_DDL));
                file = IFile::Open(path, "w", level); }},
            {"reopen", [&] { Close(), TellAll(path), file = IFile::Open(path, "r+", level); }},
            // So few groups that none is written, or HDF5 would write halves of what comes after a flush.
            {"kill", [&] { std::cout.flush(), at->Flush();
                for (int i = 0; i < 300; ++i) { at->CreateGroup("lost" + std::to_string(i)); }
                raise(SIGKILL); }},
            {"group", [&] { at->CreateGroup(name); }},
            {"array", [&] { Copy(array, at->CreateArrayFromBuffer(name, typed(), type, one, two));
                array->GetToBuffer(v, Double); }},
            {"texts", [&] { Copy(array, at->CreateArrayFromBuffer(name, text.data(), String, one, two));
                array->GetToBuffer(v, String); }},
            {"extend", [&] { at->CreateExtensibleArray2D(name, type, one, two, 3, 2, level); }},
            {"row", [&] { Extensible(start).AppendRowFromBuffer(v, Double); }},
            {"column", [&] { Extensible(start).AppendColumnFromBuffer(v, Double); }},
            {"rows", [&] { Extensible(start).AppendRowsFromBuffer(count, v, Double); }},
            {"columns", [&] { Extensible(start).AppendColumnsFromBuffer(count, v, Double); }},
            {"resize", [&] { IExtensibleArray2D& resized = Extensible(start); resized.Resize(one, two);
                v[0] = resized.GetNumberOfRows(), v[1] = resized.GetNumberOfColumns(); }},
            {"table", [&] { Copy(table, at->CreateTableFromBuffer(name, v, one, row, level, -1, start));
                table->GetToBuffer(v, -1); }},
            {"empty table", [&] { Copy(table, at->CreateTable(name, row)).GetToBuffer(v, -1); }},
            {"blank table", [&] { Copy(table, at->CreateTable(name, one, row, level)).GetToBuffer(v, -1); }},
            {"turned table", [&] { Copy(table, at->CreateTableFromSelection(name, v, one, turned, row, level, -1, 0));
                table->GetToBuffer(v, -1); }},
            {"delete", [&] { at->DelGroup(name); }},
            {"mark", [&] { Node().SetAttr(mark, text); }},
            {"unmark", [&] { Node().DelAttr(mark); }},
            {"put row", [&] { Extensible(start).WriteRowFromBuffer(one, v, Double); }},
            {"put column", [&] { Extensible(start).WriteColumnFromBuffer(two, v, Double); }},
            {"put rows", [&] { Extensible(start).WriteRowsFromBuffer(one, count, v, Double); }},
            {"put columns", [&] { Extensible(start).WriteColumnsFromBuffer(two, count, v, Double); }},
            {"get rows", [&] { Extensible(start).ReadRowsToBuffer(one, count, v, Double); }},
            {"get columns", [&] { Extensible(start).ReadColumnsToBuffer(two, count, v, Double); }},
            {"encode", [&] { file->SetEncoding(type % 2 == 0 ? H5T_CSET_UTF8 : H5T_CSET_ASCII); }},
            {"new array", [&] { Copy(array, at->CreateArray(name, type, 0)).SetFromBuffer(typed(), type, one, two);
                array->GetToBuffer(v, Double); }},
            {"set", [&] { Array().SetFromBuffer(typed(), type, one, two), array->GetToBuffer(v, Double); }},
            {"set table", [&] { const hid_t own = Table().GetCompoundTypeID();
                table->SetFromBuffer(v, one, start == 0 ? -1 : start == 1 ? row : own, level);
                table->GetToBuffer(v, -1); }},
            {"move 0", [&] { Table().GetToBuffer(v, -1); }},
            {"move 1", [&] { Table().GetToSelection(v, one, row, others); }},
            {"move 2", [&] { Table().GetFromHyperslab(v, start, stride, count, row); }},
            {"move 3", [&] { Table().GetFromSelection(v, 0, some); }},
            {"move 4", [&] { Table().GetFromToSelection(v, one, -1, some, others); }},
            {"move 5", [&] { Table().GetFromHyperslabToSelection(v, one, row, start, others); }},
            {"move 6", [&] { Table().SetToHyperslabFromSelection(v, one, row, start, some); }},
            {"move 7", [&] { Table().SetFromSelection(v, one, some, -1, level, 0); }},
            {"slab 0", [&] { Array().GetFromHyperslab(v, start, stride, count, Double); }},
            {"slab 1", [&] { Array().GetToMemoryHyperslab(v, start, stride, count, Double); }},
            {"slab 2", [&] { Array().GetFromHyperslab(v, count * two, 1 + kind / 3 % 3, starts, strides, counts,
                Double); }},
        };
        // clang-format on
        const json words = Try([&] { return actions.at(operation["action"])(), json(); });
        return {words, Tell::Values(values), Tell::Child(at ? *at : *file->GetRoot(), name)};
    }

    std::string path, name;
    boost::shared_ptr<IGroup> at;
    ScopedType rowType;
    boost::shared_ptr<IFile> file;
    boost::shared_ptr<IGroup> group;
    boost::shared_ptr<IArray> array;
    boost::shared_ptr<IExtensibleArray2D> extensible[2];
    boost::shared_ptr<ITable> table;
};

} // namespace

#ifdef TARNWICKHDF_FUZZER
extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()) + ".h5");
    std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(size));
    return TellAll(path), 0;
}
#else
int main(int argc, char** argv)
{
    H5Eset_auto1(nullptr, nullptr);
    const tests::IdCounts before = tests::CountIds();
    if (argc == 2)
    {
        TellAll(argv[1]);
    }
    else
    {
        Play play;
        play.path = argv[1];
        while (std::cin.peek() != EOF)
        {
            json::to_msgpack(play.Act(json::from_msgpack(std::cin, false)), std::cout);
        }
    }
    std::cerr << (tests::CountIds() == before ? "" : "ids were left open\n");
}
#endif
