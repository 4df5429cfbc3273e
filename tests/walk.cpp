// Tells what the library tells of a file ("walk FILE"), or plays the steps of its input on a new one ("walk FILE ROW",
// with the type of a table's rows in HDF5's data description language). Documents go in and out as MessagePack, so that
// odd bytes and values that aren't finite are compared as they are.

#include "IdCounts.h"
#include "Tell.h"

#include <hdf5_hl.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <numeric>

#include <unistd.h>

namespace tarnwick::hdf::tests
{

using nlohmann::json;

void Print(const json& document)
{
    json::to_msgpack(document, std::cout);
}

// Plays steps on a file. A step is a call, ["kind.Operation", OBJECT, ARGUMENT...], and last the name of what the step
// may have changed. The object is opened first; "" is the root. A buffer is the caller's, filled with a text or with
// numbers that count up from the one given. A type of rows is 0 for the table's own, 1 for the one of the command line,
// 2 for the table's own by its id.
struct Player
{
    using Step = const json&;
    using Operation = std::function<void(Step)>;
    static constexpr auto kDouble = TDataType::Double;

    Player(std::string filePath, const std::string& rows)
        : path(std::move(filePath)), rowType(H5LTtext_to_dtype(rows.c_str(), H5LT_DDL))
    {
        Add("file", [&](Step /*s*/) {});
        Add("file.Kill", [&](Step /*s*/) { Kill(); });
        Add("file.Reopen", [&](Step s) { Reopen(s[2]); });
        Add("file.SetEncoding", [&](Step s) { file->SetEncoding(s[2]); });
        AddGroups();
        AddArrays();
        AddTables();
    }

    // Tells how the step failed, what has changed in the caller's buffer, and what is at the name.
    void Play(Step step)
    {
        const std::string operation = step.at(0);
        const auto act = [&]
        {
            operations.at(operation.substr(0, operation.find('.')))(step);
            operations.at(operation)(step);
            return json();
        };
        Fill(0);
        const json words = tell::Try(act);
        Print({words, Changes(), tell::Child(*file->GetRoot(), step.back())});
    }

    void* Fill(const json& contents)
    {
        first = contents.is_string() ? 0 : contents.get<double>();
        std::iota(values.begin(), values.end(), first);
        if (contents.is_string())
        {
            const auto& text = contents.get_ref<const std::string&>();
            text.copy(reinterpret_cast<char*>(values.data()), text.size());
        }
        return values.data();
    }

    // The caller's buffer up to the last value that has changed.
    json Changes() const
    {
        size_t count = values.size();
        while (count > 0 && values[count - 1] == first + static_cast<double>(count - 1))
        {
            --count;
        }
        return tell::Values({values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count)});
    }

    hid_t Row(const json& which) const
    {
        const hid_t types[] = {-1, rowType.get(), table->GetCompoundTypeID()};
        return types[which.get<size_t>()];
    }

    // What is still open keeps the file open, and what it tells would be no wonder.
    void Reopen(int level)
    {
        group.reset();
        node.reset();
        array.reset();
        extensible.reset();
        table.reset();
        file.reset();
        if (H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_ALL & ~H5F_OBJ_DATATYPE) > 0)
        {
            std::cerr << "an object is open\n";
        }
        file = IFile::Open(path, "r+", level);
    }

    // What was flushed must survive; what comes after is lost: so few groups that none is written by HDF5 on its own,
    // or it would write halves of them.
    void Kill()
    {
        std::cout.flush();
        file->GetRoot()->Flush();
        for (int i = 0; i < 300; ++i)
        {
            file->GetRoot()->CreateGroup("lost" + std::to_string(i));
        }
        raise(SIGKILL);
    }

    void Add(const std::string& name, const Operation& operation) { operations[name] = operation; }

    boost::shared_ptr<IGroup> GroupAt(const std::string& name) const
    {
        const boost::shared_ptr<IGroup> root = file->GetRoot();
        return name.empty() ? root : root->GetGroup(name);
    }

    boost::shared_ptr<INode> NodeAt(const std::string& name) const
    {
        const boost::shared_ptr<IGroup> root = file->GetRoot();
        return root->HasGroup(name) ? boost::shared_ptr<INode>(root->GetGroup(name)) : root->GetArray(name);
    }

    // The handle stays while the steps stay with its name, whatever is done to the object at that name.
    void OpenExtensible(const std::string& name)
    {
        if (!extensible || extensibleName != name)
        {
            extensible = file->GetRoot()->GetExtensibleArray2D(name);
            extensibleName = name;
        }
    }

    void AddGroups()
    {
        Add("node", [&](Step s) { node = NodeAt(s[1]); });
        Add("node.SetAttr", [&](Step s) { node->SetAttr(s[2], s[3]); });
        Add("node.DelAttr", [&](Step s) { node->DelAttr(s[2]); });
        Add("group", [&](Step s) { group = GroupAt(s[1]); });
        Add("group.CreateGroup", [&](Step s) { group->CreateGroup(s[2]); });
        Add("group.DelGroup", [&](Step s) { group->DelGroup(s[2]); });
        Add("group.CreateArray", [&](Step s) { group->CreateArray(s[2], s[3], 0); });
        Add("group.CreateArrayFromBuffer",
            [&](Step s) { group->CreateArrayFromBuffer(s[2], Fill(s[3]), s[4], s[5], s[6]); });
        Add("group.CreateExtensibleArray2D",
            [&](Step s) { group->CreateExtensibleArray2D(s[2], s[3], s[4], s[5], s[6], s[7], s[8]); });
        Add("group.CreateEmptyTable", [&](Step s) { group->CreateTable(s[2], rowType.get()); });
        Add("group.CreateTable", [&](Step s) { group->CreateTable(s[2], s[3], rowType.get(), s[4]); });
        Add("group.CreateTableFromBuffer",
            [&](Step s) { group->CreateTableFromBuffer(s[2], Fill(s[3]), s[4], rowType.get(), s[5], -1, s[6]); });
        Add("group.CreateTableFromSelection",
            [&](Step s) { group->CreateTableFromSelection(s[2], Fill(s[3]), s[4], s[5], rowType.get(), s[6], -1, 0); });
    }

    void AddArrays()
    {
        Add("array", [&](Step s) { array = file->GetRoot()->GetArray(s[1]); });
        Add("array.SetFromBuffer", [&](Step s) { array->SetFromBuffer(Fill(s[2]), s[3], s[4], s[5]); });
        Add("extensible", [&](Step s) { OpenExtensible(s[1]); });
        Add("extensible.Resize", [&](Step s) { extensible->Resize(s[2], s[3]); });
        Add("extensible.AppendRow", [&](Step s) { extensible->AppendRowFromBuffer(Fill(s[2]), kDouble); });
        Add("extensible.AppendColumn", [&](Step s) { extensible->AppendColumnFromBuffer(Fill(s[2]), kDouble); });
        Add("extensible.AppendRows", [&](Step s) { extensible->AppendRowsFromBuffer(s[2], Fill(s[3]), kDouble); });
        Add("extensible.AppendColumns",
            [&](Step s) { extensible->AppendColumnsFromBuffer(s[2], Fill(s[3]), kDouble); });
        Add("extensible.ReadRows", [&](Step s) { extensible->ReadRowsToBuffer(s[2], s[3], Fill(s[4]), kDouble); });
        Add("extensible.ReadColumns",
            [&](Step s) { extensible->ReadColumnsToBuffer(s[2], s[3], Fill(s[4]), kDouble); });
        Add("extensible.WriteRows", [&](Step s) { extensible->WriteRowsFromBuffer(s[2], s[3], Fill(s[4]), kDouble); });
        Add("extensible.WriteColumns",
            [&](Step s) { extensible->WriteColumnsFromBuffer(s[2], s[3], Fill(s[4]), kDouble); });
    }

    void AddTables()
    {
        Add("table", [&](Step s) { table = file->GetRoot()->GetTable(s[1]); });
        Add("table.SetFromBuffer", [&](Step s) { table->SetFromBuffer(Fill(s[2]), s[3], Row(s[4]), s[5]); });
        Add("table.SetFromSelection",
            [&](Step s) { table->SetFromSelection(Fill(s[2]), s[3], s[4], Row(s[5]), s[6], 0); });
        Add("table.GetToBuffer", [&](Step s) { table->GetToBuffer(Fill(s[2]), Row(s[3])); });
        Add("table.GetToSelection", [&](Step s) { table->GetToSelection(Fill(s[2]), s[3], Row(s[4]), s[5]); });
        Add("table.GetFromHyperslab",
            [&](Step s) { table->GetFromHyperslab(Fill(s[2]), s[3], s[4], s[5], rowType.get()); });
        Add("table.GetFromSelection", [&](Step s) { table->GetFromSelection(Fill(s[2]), Row(s[3]), s[4]); });
        Add("table.SetToHyperslabFromSelection",
            [&](Step s) { table->SetToHyperslabFromSelection(Fill(s[2]), s[3], rowType.get(), s[4], s[5]); });
    }

    std::string path;
    ScopedType rowType;
    boost::shared_ptr<IFile> file = IFile::Open(path, "w", 0);
    boost::shared_ptr<INode> node;
    boost::shared_ptr<IGroup> group;
    boost::shared_ptr<IArray> array;
    boost::shared_ptr<IExtensibleArray2D> extensible;
    std::string extensibleName;
    boost::shared_ptr<ITable> table;
    double first = 0;
    std::vector<double> values = std::vector<double>(size_t{1} << 18U); ///< The caller's buffer.
    std::map<std::string, Operation> operations;
};

} // namespace tarnwick::hdf::tests

using namespace tarnwick::hdf;

#ifdef TARNWICKHDF_FUZZER
extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()) + ".h5");
    std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(size));
    tests::tell::File(path, &tests::Print);
    return 0;
}
#else
int main(int argc, char** argv)
{
    H5Eset_auto1(nullptr, nullptr);
    const tests::IdCounts before = tests::CountIds();
    if (argc == 2)
    {
        tests::tell::File(argv[1], &tests::Print);
    }
    else
    {
        tests::Player player(argv[1], argv[2]);
        while (std::cin.peek() != EOF)
        {
            player.Play(nlohmann::json::from_msgpack(std::cin, false));
        }
    }
    if (tests::CountIds() != before)
    {
        std::cerr << "ids were left open\n";
    }
}
#endif
