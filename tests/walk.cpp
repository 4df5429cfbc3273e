// Tells what the library tells of a file ("walk FILE"), or plays the operations of its input on it ("walk FILE play").
#include "IdCounts.h"

#include <tarnwick/text.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/tarnwickhdf.h>

#include <nlohmann/json.hpp>

#include <execinfo.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <numeric>
#include <set>
#include <sstream>

using namespace tarnwick::hdf;
using nlohmann::json;
using Texts = std::vector<std::string>;

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
        return tarnwick::latin1_to_utf8("!" + text.substr(0, text.find(":\n")));
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

// Text in JSON has a character for each byte.
struct Tell
{
    static json Text(const std::string& bytes) { return tarnwick::latin1_to_utf8(bytes); }
    static json All(const Texts& texts)
    {
        return Each(texts.size(), [&](int i) { return Text(texts[size_t(i)]); });
    }

    // A scalar counts as 0 elements and moves its one.
    static json Numbers(size_t one, size_t other, const std::function<void(double*)>& read)
    {
        constexpr size_t most = 1U << 20U;
        std::vector<double> values(one < most && other < most ? std::max<size_t>(one * other, 1) : 0);
        return values.empty() ? json() : Try([&] { return read(values.data()), json(values); });
    }

    static json Attributes(const INode& node)
    {
        return {Each(size_t(node.GetNumberOfAttrs()), [&](int i) { return Attribute(node, node.GetAttrName(i)); }),
                All(node.ListAttrs())};
    }

    static json Attribute(const INode& node, const std::string& name)
    {
        return {Text(name), Try([&] { return node.GetAttrType(name); }), Try([&] { return Text(node.GetAttr(name)); })};
    }

    static json Of(const IGroup& group)
    {
        return {Attributes(group), group.GetNumberOfChildren(), group.GetNumberOfGroups(), group.HasDataSet()};
    }

    static json Of(const IArray& array)
    {
        const size_t length = array.GetLength(), width = array.GetComponents();
        const hid_t type = array.GetTypeID(), id = array.LocationID();
        Texts texts;
        return {Attributes(array), array.GetType(), length, width,
                array.GetType() >= TDataType::String
                    ? Try([&] { return utils::ReadStringDataSet(texts, id, type, type, length, width), All(texts); })
                    : Numbers(length, width, [&](double* to) { array.GetToBuffer(to, TDataType::Double); })};
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
        const json some = Lines(array, &IExtensibleArray2D::ReadRowToBuffer, std::min<size_t>(rows, 9), columns);
        return {Attributes(array),
                array.GetType(),
                rows,
                columns,
                some,
                Lines(array, &IExtensibleArray2D::ReadColumnToBuffer, std::min<size_t>(columns, 2), rows)};
    }

    static json Of(const ITable& table)
    {
        return {Attributes(table), table.GetNumberOfRows(),
                Each(table.GetNumberOfColumns(), [&](int i) { return Column(table, i, table.GetColumnName(i)); })};
    }

    static json Column(const ITable& table, int column, const std::string& name)
    {
        Texts texts;
        const ScopedType type(H5Tcreate(H5T_COMPOUND, sizeof(double)));
        H5Tinsert(type.get(), name.c_str(), 0, H5T_NATIVE_DOUBLE);
        return {Text(name), table.GetColumnDataType(column),
                Try([&] { return table.FeedStringVector(texts, column), All(texts); }),
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
        return Each(nodes.size(), [&](int i) { return Text(nodes[size_t(i)]->GetName()); });
    }

    // A group that is its own descendant is walked once.
    static void Walk(IGroup& group, const std::string& path, std::set<haddr_t>& seen, std::ostream& out)
    {
        H5O_info_t info = {};
        if (H5Oget_info1(group.LocationID(), &info) < 0 || !seen.insert(info.addr).second)
        {
            return;
        }
        out << json{Text(path),
                    Of(group),
                    Try([&] { return Names(group.ListGroups()); }),
                    Names(group.ListArrays()),
                    Names(group.ListExtensibleArrays2D()),
                    Names(group.ListTables())}
            << "\n";
        for (int i = 0; i < static_cast<int>(group.GetNumberOfChildren()); ++i)
        {
            const std::string name = group.GetChildName(i);
            out << json{Text(path + "/" + name), group.GetChildType(i), Child(group, name)} << "\n";
            if (group.GetChildType(i) == H5G_GROUP && group.HasGroup(name))
            {
                Walk(*group.GetGroup(name), path + "/" + name, seen, out);
            }
        }
    }

    static json File(const std::string& path, std::ostream& out)
    {
        std::set<haddr_t> seen;
        const boost::shared_ptr<IFile> file = IFile::Open(path, "r", 0);
        return Walk(*file->GetRoot(), "", seen, out), json(file->GetAPIVersion());
    }
};

} // namespace

#ifdef TARNWICKHDF_FUZZER
extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()) + ".h5");
    std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(size));
    std::ostringstream nowhere;
    Try([&] { return Tell::File(path, nowhere); });
    return 0;
}
#else
namespace
{

void TellAll(const std::string& path)
{
    std::cout << Try([&] { return Tell::File(path, std::cout); }) << "\n";
}

// Plays operations on a file. What works on an open data set does so through a copy that lives on.
struct Play
{
    static std::string Bytes(const std::vector<unsigned char>& bytes) { return {bytes.begin(), bytes.end()}; }

    template <typename Node>
    static Node& Copy(boost::shared_ptr<Node>& copy, const boost::shared_ptr<Node>& node)
    {
        copy ? void(*copy = *node) : copy.reset(new Node(*node));
        return *copy;
    }

    IArray& Array() { return Copy(array, at->GetArray(name)); }
    IExtensibleArray2D& Extensible() { return Copy(extensible, at->GetExtensibleArray2D(name)); }
    ITable& Table() { return Copy(table, at->GetTable(name)); }
    INode& Node() { return at->HasGroup(name) ? Copy(group, at->GetGroup(name)) : static_cast<INode&>(Array()); }

    json Act(const json& operation)
    {
        using TDataType::Double;
        using TDataType::String;
        name = Bytes(operation["name"]);
        at = !file                     ? nullptr
             : operation["below"] == 0 ? file->GetRoot()
                                       : file->GetRoot()->CreateGroup("below/" + name);
        const std::string mark = Bytes(operation["mark"]);
        std::string text = Bytes(operation["text"]);
        const int kind = operation["type"], level = operation["level"], one = operation["one"], two = operation["two"];
        const int start = operation["start"], stride = operation["stride"], count = operation["steps"];
        const auto type = static_cast<TDataType::TDataType>(kind);
        const hid_t row = rowType.get();
        const size_t action = operation["action"];
        const bool moves = action > 20;
        std::vector<double> values = operation["values"];
        values.resize(moves ? size_t{1} << 18U : values.size());
        double* const v = values.data();
        const std::vector<hsize_t> some(text.begin(), text.end()), others(mark.begin(), mark.end());
        std::vector<hsize_t> turned(static_cast<size_t>(one));
        std::iota(turned.rbegin(), turned.rend(), 0U);
        size_t starts[] = {size_t(start), 0}, strides[] = {size_t(stride), 1}, counts[] = {size_t(count), size_t(two)};
        const auto typed = [&]
        {
            return H5Tconvert(H5T_NATIVE_DOUBLE, INode::DataTypeToHDFType(type), size_t(one * two), v, nullptr, 0), v;
        };
        const std::function<void()> actions[] = {
            [&] { file = IFile::Open(path, one == 0 ? "w" : "r+", level); },
            [&] { at.reset(), file.reset(), TellAll(path), file = IFile::Open(path, "r+", level); },
            [&] { at->CreateGroup(name); },
            [&] { at->CreateArrayFromBuffer(name, typed(), type, one, two); },
            [&] { at->CreateArrayFromBuffer(name, text.data(), String, one, two); },
            [&] { at->CreateExtensibleArray2D(name, type, one, two, 3, 2, level); },
            [&] { Extensible().AppendRowFromBuffer(v, Double); },
            [&] { Extensible().AppendColumnFromBuffer(v, Double); },
            [&] { Extensible().Resize(one, two); },
            [&] { at->CreateTableFromBuffer(name, v, one, row, level, -1, start); },
            [&] { at->CreateTable(name, row); },
            [&] { at->CreateTable(name, one, row, level); },
            [&] { at->CreateTableFromSelection(name, v, one, turned, row, level, -1, 0); },
            [&] { at->DelGroup(name); },
            [&] { Node().SetAttr(mark, text); },
            [&] { Node().DelAttr(mark); },
            [&] { Extensible().WriteRowFromBuffer(one, v, Double); },
            [&] { Extensible().WriteColumnFromBuffer(two, v, Double); },
            [&] { file->SetEncoding(type % 2 == 0 ? H5T_CSET_UTF8 : H5T_CSET_ASCII); },
            [&] { Array().SetFromBuffer(typed(), type, one, two); },
            [&] { Table().SetFromBuffer(v, one, -1, level); },
            [&] { Table().GetToBuffer(v, -1); },
            [&] { Table().GetToSelection(v, one, row, others); },
            [&] { Table().GetFromHyperslab(v, start, stride, count, row); },
            [&] { Table().GetFromSelection(v, 0, some); },
            [&] { Table().GetFromToSelection(v, one, -1, some, others); },
            [&] { Table().GetFromHyperslabToSelection(v, one, row, start, others); },
            [&] { Table().SetToHyperslabFromSelection(v, one, row, start, some); },
            [&] { Table().SetFromSelection(v, one, some, -1, level, 0); },
            [&] { Array().GetFromHyperslab(v, start, stride, count, Double); },
            [&] { Array().GetToMemoryHyperslab(v, start, stride, count, Double); },
            [&]
            {
                Array().GetFromHyperslab(v, count * two, 1 + kind / 3 % 3, starts, strides, counts, Double);
            }};
        const json words = Try([&] { return actions[action](), json(); });
        values.resize(40);
        return {words, moves ? json(values) : json(), Tell::Child(at ? *at : *file->GetRoot(), name)};
    }

    std::string path, name;
    boost::shared_ptr<IGroup> at;
    ScopedType rowType{H5Tcreate(H5T_COMPOUND, 2 * sizeof(double))};
    boost::shared_ptr<IFile> file;
    boost::shared_ptr<IGroup> group;
    boost::shared_ptr<IArray> array;
    boost::shared_ptr<IExtensibleArray2D> extensible;
    boost::shared_ptr<ITable> table;
};

void TellWhere(int signal)
{
    void* frames[64];
    backtrace_symbols_fd(frames + 1, backtrace(frames, 64) - 1, STDERR_FILENO);
    _exit(signal);
}

} // namespace

int main(int argc, char** argv)
{
    for (const int crash : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT, SIGXCPU})
    {
        std::signal(crash, &TellWhere);
    }
    H5Eset_auto1(nullptr, nullptr);
    const tests::IdCounts before = tests::IdCounts::Now();
    if (argc == 2)
    {
        TellAll(argv[1]);
    }
    else
    {
        Play play;
        play.path = argv[1];
        H5Tinsert(play.rowType.get(), "a", 0, H5T_NATIVE_DOUBLE);
        H5Tinsert(play.rowType.get(), "b", sizeof(double), H5T_NATIVE_DOUBLE);
        for (std::string line; std::getline(std::cin, line);)
        {
            std::cout << play.Act(json::parse(line)) << "\n";
        }
    }
    std::cerr << (tests::IdCounts::Now() == before ? "" : "ids were left open\n");
}
#endif
