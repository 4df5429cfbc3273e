// Tells what the library tells of a file ("walk FILE"), or plays the operations of its input on it ("walk FILE play").
// Documents go in and out as MessagePack, so that odd bytes and values that aren't finite are compared as they are.

#include "IdCounts.h"
#include "Tell.h"

#include <hdf5_hl.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <numeric>

#include <unistd.h>

namespace tarnwick::hdf::tests
{

using nlohmann::json;

void Print(const json& document)
{
    json::to_msgpack(document, std::cout);
}

// One step of random use. What a field means depends on the action: the table of actions below tells.
struct Operation
{
    explicit Operation(const json& document)
        : action(document["action"]), name(document["name"]), isBelow(document["below"] != 0),
          places(document["text"].get<std::vector<hsize_t>>()), others(document["mark"].get<std::vector<hsize_t>>()),
          text(places.begin(), places.end()), mark(others.begin(), others.end()),
          type(static_cast<TDataType::TDataType>(document["type"])), level(document["level"]), one(document["one"]),
          two(document["two"]), start(document["start"]), stride(document["stride"]), count(document["steps"]),
          first(document["first"]), rowType(document.value("row", ""))
    {
    }

    std::string action;
    std::string name;
    bool isBelow;                ///< The name is meant in a group of its own.
    std::vector<hsize_t> places; ///< Rows of a table, or the bytes of `text`.
    std::vector<hsize_t> others; ///< Rows of a buffer, or the bytes of `mark`.
    std::string text;
    std::string mark; ///< The name of an attribute.
    TDataType::TDataType type;
    int level;
    int one; ///< Mostly rows or a length,
    int two; ///< and columns or a width.
    int start;
    int stride;
    int count;
    double first; ///< Of the buffer's values, which count up.
    std::string rowType;
};

// Plays operations on a file. What works on an open data set does so through a copy that lives on.
class Player
{
public:
    explicit Player(std::string path) : m_path(std::move(path)) {}

    // Tells how the operation failed, what the caller's buffer holds, and what is at the name.
    json Play(const json& document)
    {
        const Operation operation(document);
        const auto act = [&]
        {
            Act(operation);
            return json();
        };
        m_at = m_file ? m_file->GetRoot() : nullptr;
        if (operation.isBelow)
        {
            m_at = m_at->CreateGroup("below/" + operation.name);
        }
        m_values.resize(size_t{1} << 18U);
        std::iota(m_values.begin(), m_values.end(), operation.first);
        const json words = tell::Try(act);
        IGroup& parent = m_at ? *m_at : *m_file->GetRoot();
        return {words, tell::Values(m_values), tell::Child(parent, operation.name)};
    }

private:
    using Action = void (Player::*)(const Operation& o);

    void Act(const Operation& o)
    {
        static const std::map<std::string, Action> actions = {{"open", &Player::OpenNew},
                                                              {"reopen", &Player::Reopen},
                                                              {"kill", &Player::Kill},
                                                              {"encode", &Player::Encode},
                                                              {"group", &Player::MakeGroup},
                                                              {"delete", &Player::Delete},
                                                              {"mark", &Player::Mark},
                                                              {"unmark", &Player::Unmark},
                                                              {"array", &Player::StoreArray},
                                                              {"texts", &Player::StoreTexts},
                                                              {"new array", &Player::FillEmptyArray},
                                                              {"set", &Player::SetArray},
                                                              {"slab 0", &Player::ReadSlab},
                                                              {"slab 1", &Player::SpreadInMemory},
                                                              {"slab 2", &Player::ReadSlabOfDimensions},
                                                              {"extend", &Player::MakeExtensible},
                                                              {"row", &Player::AppendRow},
                                                              {"column", &Player::AppendColumn},
                                                              {"put row", &Player::WriteRow},
                                                              {"put column", &Player::WriteColumn},
                                                              {"rows", &Player::AppendRows},
                                                              {"columns", &Player::AppendColumns},
                                                              {"put rows", &Player::WriteRows},
                                                              {"put columns", &Player::WriteColumns},
                                                              {"get rows", &Player::ReadRows},
                                                              {"get columns", &Player::ReadColumns},
                                                              {"resize", &Player::Resize},
                                                              {"table", &Player::StoreTable},
                                                              {"empty table", &Player::MakeEmptyTable},
                                                              {"blank table", &Player::MakeBlankTable},
                                                              {"turned table", &Player::StoreTurnedTable},
                                                              {"set table", &Player::SetTable},
                                                              {"move 0", &Player::ReadTable},
                                                              {"move 1", &Player::ReadToSelection},
                                                              {"move 2", &Player::ReadRowSlab},
                                                              {"move 3", &Player::ReadFromSelection},
                                                              {"move 4", &Player::ReadFromToSelection},
                                                              {"move 5", &Player::ReadRunToSelection},
                                                              {"move 6", &Player::WriteRunFromSelection},
                                                              {"move 7", &Player::SetFromSelection}};
        (this->*actions.at(o.action))(o);
    }

    // Files.

    void OpenNew(const Operation& o)
    {
        m_rowType.reset(H5LTtext_to_dtype(o.rowType.c_str(), H5LT_DDL));
        m_file = IFile::Open(m_path, "w", o.level);
    }

    void Reopen(const Operation& o)
    {
        Close();
        tell::File(m_path, &Print);
        m_file = IFile::Open(m_path, "r+", o.level);
    }

    void Close()
    {
        m_at.reset();
        m_file.reset();
        if (H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_ALL & ~H5F_OBJ_DATATYPE) > 0)
        {
            throw std::logic_error("an object is open");
        }
        // The array's copy is assigned from another file's, the others are made anew.
        m_group.reset();
        m_table.reset();
        m_extensible[0].reset();
        m_extensible[1].reset();
    }

    // What was flushed must survive; what comes after is lost: so few groups that none is written by HDF5 on its own,
    // or it would write halves of them.
    void Kill(const Operation& /*o*/)
    {
        std::cout.flush();
        m_at->Flush();
        for (int i = 0; i < 300; ++i)
        {
            m_at->CreateGroup("lost" + std::to_string(i));
        }
        raise(SIGKILL);
    }

    void Encode(const Operation& o) { m_file->SetEncoding(o.type % 2 == 0 ? H5T_CSET_UTF8 : H5T_CSET_ASCII); }

    // Groups and attributes.

    void MakeGroup(const Operation& o) { m_at->CreateGroup(o.name); }
    void Delete(const Operation& o) { m_at->DelGroup(o.name); }
    void Mark(const Operation& o) { Node(o).SetAttr(o.mark, o.text); }
    void Unmark(const Operation& o) { Node(o).DelAttr(o.mark); }

    // Arrays of `one` x `two` elements.

    void StoreArray(const Operation& o)
    {
        const std::vector<double> values = ValuesAs(o);
        Copy(m_array, m_at->CreateArrayFromBuffer(o.name, Bytes(values), o.type, Length(o.one), Length(o.two)));
        m_array->GetToBuffer(m_values.data(), TDataType::Double);
    }

    void StoreTexts(const Operation& o)
    {
        std::string text = o.text;
        Copy(m_array,
             m_at->CreateArrayFromBuffer(o.name, text.data(), TDataType::String, Length(o.one), Length(o.two)));
        m_array->GetToBuffer(m_values.data(), TDataType::String);
    }

    void FillEmptyArray(const Operation& o)
    {
        const std::vector<double> values = ValuesAs(o);
        Copy(m_array, m_at->CreateArray(o.name, o.type, 0))
            .SetFromBuffer(Bytes(values), o.type, Length(o.one), Length(o.two));
        m_array->GetToBuffer(m_values.data(), TDataType::Double);
    }

    void SetArray(const Operation& o)
    {
        IArray& array = Array(o);
        const std::vector<double> values = ValuesAs(o);
        array.SetFromBuffer(Bytes(values), o.type, Length(o.one), Length(o.two));
        array.GetToBuffer(m_values.data(), TDataType::Double);
    }

    void ReadSlab(const Operation& o)
    {
        Array(o).GetFromHyperslab(m_values.data(), o.start, o.stride, o.count, TDataType::Double);
    }

    void SpreadInMemory(const Operation& o)
    {
        Array(o).GetToMemoryHyperslab(m_values.data(), o.start, o.stride, o.count, TDataType::Double);
    }

    void ReadSlabOfDimensions(const Operation& o)
    {
        const auto dimensions = static_cast<size_t>(1 + o.type / 3 % 3);
        size_t starts[] = {Length(o.start), 0};
        size_t strides[] = {Length(o.stride), 1};
        size_t counts[] = {Length(o.count), Length(o.two)};
        Array(o).GetFromHyperslab(m_values.data(), o.count * o.two, dimensions, starts, strides, counts,
                                  TDataType::Double);
    }

    // Extensible arrays, through one of two handles.

    void MakeExtensible(const Operation& o)
    {
        const auto rows = static_cast<unsigned int>(o.one);
        const auto columns = static_cast<unsigned int>(o.two);
        m_at->CreateExtensibleArray2D(o.name, o.type, rows, columns, 3, 2, o.level);
    }

    void AppendRow(const Operation& o) { Extensible(o).AppendRowFromBuffer(m_values.data(), TDataType::Double); }
    void AppendColumn(const Operation& o) { Extensible(o).AppendColumnFromBuffer(m_values.data(), TDataType::Double); }
    void WriteRow(const Operation& o) { Extensible(o).WriteRowFromBuffer(o.one, m_values.data(), TDataType::Double); }

    void WriteColumn(const Operation& o)
    {
        Extensible(o).WriteColumnFromBuffer(o.two, m_values.data(), TDataType::Double);
    }

    void AppendRows(const Operation& o)
    {
        Extensible(o).AppendRowsFromBuffer(o.count, m_values.data(), TDataType::Double);
    }

    void AppendColumns(const Operation& o)
    {
        Extensible(o).AppendColumnsFromBuffer(o.count, m_values.data(), TDataType::Double);
    }

    void WriteRows(const Operation& o)
    {
        Extensible(o).WriteRowsFromBuffer(o.one, o.count, m_values.data(), TDataType::Double);
    }

    void WriteColumns(const Operation& o)
    {
        Extensible(o).WriteColumnsFromBuffer(o.two, o.count, m_values.data(), TDataType::Double);
    }

    void ReadRows(const Operation& o)
    {
        Extensible(o).ReadRowsToBuffer(o.one, o.count, m_values.data(), TDataType::Double);
    }

    void ReadColumns(const Operation& o)
    {
        Extensible(o).ReadColumnsToBuffer(o.two, o.count, m_values.data(), TDataType::Double);
    }

    void Resize(const Operation& o)
    {
        IExtensibleArray2D& array = Extensible(o);
        array.Resize(static_cast<unsigned int>(o.one), static_cast<unsigned int>(o.two));
        m_values[0] = array.GetNumberOfRows();
        m_values[1] = array.GetNumberOfColumns();
    }

    // Tables of `one` rows; the buffer is laid out as the row type says.

    void StoreTable(const Operation& o)
    {
        const hid_t ownType = -1;
        Copy(m_table, m_at->CreateTableFromBuffer(o.name, m_values.data(), Length(o.one), m_rowType.get(), o.level,
                                                  ownType, Length(o.start)));
        m_table->GetToBuffer(m_values.data(), ownType);
    }

    void MakeEmptyTable(const Operation& o)
    {
        Copy(m_table, m_at->CreateTable(o.name, m_rowType.get())).GetToBuffer(m_values.data(), -1);
    }

    void MakeBlankTable(const Operation& o)
    {
        Copy(m_table, m_at->CreateTable(o.name, Length(o.one), m_rowType.get(), o.level))
            .GetToBuffer(m_values.data(), -1);
    }

    void StoreTurnedTable(const Operation& o)
    {
        std::vector<hsize_t> turned(Length(o.one));
        std::iota(turned.rbegin(), turned.rend(), 0U);
        Copy(m_table, m_at->CreateTableFromSelection(o.name, m_values.data(), Length(o.one), turned, m_rowType.get(),
                                                     o.level, -1, 0));
        m_table->GetToBuffer(m_values.data(), -1);
    }

    void SetTable(const Operation& o)
    {
        ITable& table = Table(o);
        const std::map<int, hid_t> types = {{0, -1}, {1, m_rowType.get()}};
        const auto type = types.find(o.start);
        table.SetFromBuffer(m_values.data(), Length(o.one),
                            type == types.end() ? table.GetCompoundTypeID() : type->second, Length(o.level));
        table.GetToBuffer(m_values.data(), -1);
    }

    void ReadTable(const Operation& o) { Table(o).GetToBuffer(m_values.data(), -1); }

    void ReadToSelection(const Operation& o)
    {
        Table(o).GetToSelection(m_values.data(), Length(o.one), m_rowType.get(), o.others);
    }

    void ReadRowSlab(const Operation& o)
    {
        Table(o).GetFromHyperslab(m_values.data(), Length(o.start), Length(o.stride), Length(o.count), m_rowType.get());
    }

    void ReadFromSelection(const Operation& o) { Table(o).GetFromSelection(m_values.data(), 0, o.places); }

    void ReadFromToSelection(const Operation& o)
    {
        Table(o).GetFromToSelection(m_values.data(), Length(o.one), -1, o.places, o.others);
    }

    void ReadRunToSelection(const Operation& o)
    {
        Table(o).GetFromHyperslabToSelection(m_values.data(), Length(o.one), m_rowType.get(), Length(o.start),
                                             o.others);
    }

    void WriteRunFromSelection(const Operation& o)
    {
        Table(o).SetToHyperslabFromSelection(m_values.data(), Length(o.one), m_rowType.get(), Length(o.start),
                                             o.places);
    }

    void SetFromSelection(const Operation& o)
    {
        Table(o).SetFromSelection(m_values.data(), Length(o.one), o.places, -1, Length(o.level), 0);
    }

    // What the operations work on.

    template <typename Node>
    static Node& Copy(boost::shared_ptr<Node>& copy, const boost::shared_ptr<Node>& node)
    {
        if (copy)
        {
            *copy = *node;
        }
        else
        {
            copy.reset(new Node(*node));
        }
        return *copy;
    }

    IArray& Array(const Operation& o) { return Copy(m_array, m_at->GetArray(o.name)); }
    ITable& Table(const Operation& o) { return Copy(m_table, m_at->GetTable(o.name)); }

    INode& Node(const Operation& o)
    {
        if (m_at->HasGroup(o.name))
        {
            return Copy(m_group, m_at->GetGroup(o.name));
        }
        return Array(o);
    }

    // From a start of 2 on a handle that hasn't seen what others did since it was opened.
    IExtensibleArray2D& Extensible(const Operation& o)
    {
        boost::shared_ptr<IExtensibleArray2D>& kept = m_extensible[o.start % 2];
        if (o.start > 1 && kept)
        {
            return *kept;
        }
        return Copy(kept, m_at->GetExtensibleArray2D(o.name));
    }

    static size_t Length(int number) { return static_cast<size_t>(number); }

    // The library takes what it writes without const, and leaves it alone.
    static void* Bytes(const std::vector<double>& values) { return const_cast<double*>(values.data()); }

    // The values as elements of the operation's type.
    std::vector<double> ValuesAs(const Operation& o) const
    {
        std::vector<double> values = m_values;
        const hid_t type = INode::DataTypeToHDFType(o.type);
        H5Tconvert(H5T_NATIVE_DOUBLE, type, Length(o.one * o.two), values.data(), nullptr, 0);
        return values;
    }

    std::string m_path;
    std::vector<double> m_values; ///< The caller's buffer.
    ScopedType m_rowType;
    boost::shared_ptr<IFile> m_file;
    boost::shared_ptr<IGroup> m_at; ///< The group in which the operation's name is meant.
    boost::shared_ptr<IGroup> m_group;
    boost::shared_ptr<IArray> m_array;
    boost::shared_ptr<IExtensibleArray2D> m_extensible[2];
    boost::shared_ptr<ITable> m_table;
};

void PlayInput(const std::string& path)
{
    Player player(path);
    while (std::cin.peek() != EOF)
    {
        Print(player.Play(json::from_msgpack(std::cin, false)));
    }
}

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
        tests::PlayInput(argv[1]);
    }
    if (tests::CountIds() != before)
    {
        std::cerr << "ids were left open\n";
    }
}
#endif
