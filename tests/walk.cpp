// Tells what the library tells of a file ("walk FILE"), or plays the operations of its input on it ("walk FILE play").
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
        const size_t length = array.GetLength();
        const size_t width = array.GetComponents();
        const hid_t type = array.GetTypeID();
        Texts texts;
        const hid_t id = array.LocationID();
        return {Attributes(array), array.GetType(), length, width,
                array.GetType() >= TDataType::String
                    ? Try([&] { return utils::ReadStringDataSet(texts, id, type, type, length, width), All(texts); })
                    : Numbers(length, width, [&](double* to) { array.GetToBuffer(to, TDataType::Double); })};
    }

    static json Of(IExtensibleArray2D& array)
    {
        const size_t rows = array.GetNumberOfRows();
        const size_t columns = array.GetNumberOfColumns();
        return {Attributes(array),
                array.GetType(),
                rows,
                columns,
                Each(std::min<size_t>(rows, 9) + 1,
                     [&](int row) {
                         return Numbers(columns, 1,
                                        [&](double* to) { array.ReadRowToBuffer(row, to, TDataType::Double); });
                     }),
                Each(std::min<size_t>(columns, 2) + 1,
                     [&](int column) {
                         return Numbers(rows, 1,
                                        [&](double* to) { array.ReadColumnToBuffer(column, to, TDataType::Double); });
                     })};
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

    double* Typed()
    {
        H5Tconvert(H5T_NATIVE_DOUBLE, INode::DataTypeToHDFType(type), values.size(), values.data(), nullptr, 0);
        return values.data();
    }

    IExtensibleArray2D& Extensible() { return Copy(extensible, at->GetExtensibleArray2D(name)); }
    INode& Node()
    {
        return at->HasGroup(name) ? Copy(group, at->GetGroup(name))
                                  : static_cast<INode&>(Copy(array, at->GetArray(name)));
    }

    void MakeGroup() { at->CreateGroup(name); }
    void Array() { at->CreateArrayFromBuffer(name, Typed(), type, n[1], n[2]); }
    void Strings() { at->CreateArrayFromBuffer(name, text.data(), TDataType::String, n[1], n[2]); }
    void Extend() { at->CreateExtensibleArray2D(name, type, n[1], n[2], 3, 2, int(n[3])); }
    void Row() { Extensible().AppendRowFromBuffer(values.data(), TDataType::Double); }
    void Column() { Extensible().AppendColumnFromBuffer(values.data(), TDataType::Double); }
    void PutRow() { Extensible().WriteRowFromBuffer(int(n[1]), values.data(), TDataType::Double); }
    void PutColumn() { Extensible().WriteColumnFromBuffer(int(n[2]), values.data(), TDataType::Double); }
    void Resize() { Extensible().Resize(n[1], n[2]); }
    void Table() { at->CreateTableFromBuffer(name, values.data(), n[1], rowType.get(), int(n[3]), -1, 0); }
    void EmptyTable() { at->CreateTable(name, rowType.get()); }
    void BlankTable() { at->CreateTable(name, n[1], rowType.get(), int(n[3])); }
    void TurnedTable()
    {
        std::vector<hsize_t> rows(n[1]);
        std::iota(rows.rbegin(), rows.rend(), 0U);
        at->CreateTableFromSelection(name, values.data(), n[1], rows, rowType.get(), int(n[3]), -1, 0);
    }
    void SetArray() { Copy(array, at->GetArray(name)).SetFromBuffer(Typed(), type, n[1], n[2]); }
    void SetTable() { Copy(table, at->GetTable(name)).SetFromBuffer(values.data(), n[1], -1, n[3]); }
    void Encode() { file->SetEncoding(n[0] % 2 == 0 ? H5T_CSET_UTF8 : H5T_CSET_ASCII); }
    void Delete() { at->DelGroup(name); }
    void Mark() { Node().SetAttr(mark, text); }
    void Unmark() { Node().DelAttr(mark); }

    void Open() { file = IFile::Open(path, n[1] == 0 ? "w" : "r+", int(n[3])); }

    void Reopen()
    {
        at.reset();
        file.reset();
        std::cout << Try([&] { return Tell::File(path, std::cout); }) << "\n";
        Open();
    }

    json Act(const json& operation)
    {
        constexpr void (Play::*actions[])() = {
            &Play::Open,        &Play::Reopen,   &Play::MakeGroup, &Play::Array,  &Play::Strings,    &Play::Extend,
            &Play::Row,         &Play::Column,   &Play::Resize,    &Play::Table,  &Play::EmptyTable, &Play::BlankTable,
            &Play::TurnedTable, &Play::Delete,   &Play::Mark,      &Play::Unmark, &Play::PutRow,     &Play::PutColumn,
            &Play::Encode,      &Play::SetArray, &Play::SetTable};
        name = Bytes(operation[1]);
        mark = Bytes(operation[2]);
        text = Bytes(operation[3]);
        n = operation[4].get<std::vector<unsigned>>();
        values = operation[5].get<std::vector<double>>();
        type = static_cast<TDataType::TDataType>(n[0]);
        at = !file ? nullptr : n[4] == 0 ? file->GetRoot() : file->GetRoot()->CreateGroup("below/" + name);
        const json words = Try([&] { return (this->*actions[operation[0].get<size_t>()])(), json(); });
        return {words, Tell::Child(at ? *at : *file->GetRoot(), name)};
    }

    boost::shared_ptr<IFile> file;
    boost::shared_ptr<IGroup> at;
    boost::shared_ptr<IGroup> group;
    boost::shared_ptr<IArray> array;
    boost::shared_ptr<IExtensibleArray2D> extensible;
    boost::shared_ptr<ITable> table;
    std::string path, name, mark, text;
    TDataType::TDataType type = TDataType::Undefined;
    std::vector<unsigned> n;
    std::vector<double> values;
    ScopedType rowType{H5Tcreate(H5T_COMPOUND, 2 * sizeof(double))};
};

void TellWhere(int signal)
{
    void* frames[64];
    backtrace_symbols_fd(frames + 1, backtrace(frames, 64) - 1, STDERR_FILENO);
    _exit(signal);
}

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
int main(int argc, char** argv)
{
    for (const int crash : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT, SIGXCPU})
    {
        std::signal(crash, &TellWhere);
    }
    Play play;
    play.path = argv[1];
    H5Tinsert(play.rowType.get(), "a", 0, H5T_NATIVE_DOUBLE);
    H5Tinsert(play.rowType.get(), "b", sizeof(double), H5T_NATIVE_DOUBLE);
    for (std::string line; argc > 2 && std::getline(std::cin, line);)
    {
        std::cout << play.Act(json::parse(line)) << "\n";
    }
    std::cout << (argc > 2 ? json() : Try([&] { return Tell::File(argv[1], std::cout); })) << "\n";
}
#endif
