#pragma once

#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/tarnwickhdf.h>
#include <tarnwickhdf/version.h>

#include <hdf5_hl.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnwick::hdf::tests
{

using nlohmann::json;

/// Opens to tests what a group keeps for its own classes.
struct Protected : IGroup
{
    using IGroup::CreateSubGroup;
    using IGroup::ListNames;
};

/// Plays steps on a file. What works on an open object does so through a copy that lives on.
class Player
{
public:
    Player(std::string filePath, const std::string& mode, const std::string& rows, size_t bufferSize)
        : path(std::move(filePath)), values(bufferSize), m_rowType(H5LTtext_to_dtype(rows.c_str(), H5LT_DDL))
    {
        OpenFile(mode, 0);
        AddFiles();
        AddNodes();
        AddGroups();
        AddFactories();
        AddArrays();
        AddExtensibleArrays();
        AddTables();
    }

    void OpenFile(const std::string& mode, int level) { file = IFile::Open(path, mode, level); }

    /// The array stays, so that it is assigned from another file's.
    void DropNodes()
    {
        at.reset();
        node.reset();
        group.reset();
        extensible.reset();
        extensibles = {};
        table.reset();
    }

    /// Finds the group in which the step takes place, and fills the caller's buffer.
    void Prepare(const json& step)
    {
        at = file->GetRoot();
        if (step.at("at") != "")
        {
            at = at->CreateGroup(step.at("at"));
        }
        std::iota(values.begin(), values.end(), step.at("first").get<double>());
    }

    /// Opens what the step works on.
    void Open(const json& step)
    {
        const std::string action = step.at("action");
        const std::string owner = action.substr(0, action.find('.'));
        const std::string name = step.at("name");
        if (owner == "node" && at->HasGroup(name))
        {
            node = Assign(group, at->GetGroup(name));
        }
        else if (owner == "node" || owner == "array")
        {
            node = Assign(array, at->GetArray(name));
        }
        else if (owner == "extensible")
        {
            boost::shared_ptr<IExtensibleArray2D>& handle = extensibles.at(step.at("handle"));
            extensible = step.at("kept") && handle ? handle : Assign(handle, at->GetExtensibleArray2D(name));
        }
        else if (owner == "table")
        {
            Assign(table, at->GetTable(name));
        }
    }

    void Act(const json& step) { m_actions.at(step.at("action"))(step); }

    std::string path;
    boost::shared_ptr<IFile> file;
    boost::shared_ptr<IGroup> at;  ///< In which a step takes place.
    boost::shared_ptr<INode> node; ///< The group or the array.
    boost::shared_ptr<IGroup> group;
    boost::shared_ptr<IArray> array;
    boost::shared_ptr<IExtensibleArray2D> extensible; ///< The handle that is in use.
    std::array<boost::shared_ptr<IExtensibleArray2D>, 2> extensibles;
    boost::shared_ptr<ITable> table;
    std::vector<double> values; ///< The caller's buffer.
    std::vector<std::string> texts = {"untouched"};
    std::ostringstream answers;

private:
    template <typename Node>
    static boost::shared_ptr<Node> Assign(boost::shared_ptr<Node>& handle, const boost::shared_ptr<Node>& opened)
    {
        if (handle)
        {
            *handle = *opened;
        }
        else
        {
            handle.reset(new Node(*opened));
        }
        return handle;
    }

    // A family of actions calls operations of one of the handles above. Their arguments are constants, the names of the
    // step's fields, or one of these.
    using Buffer = std::integral_constant<int, 0>;   // The caller's.
    using Elements = std::integral_constant<int, 1>; // What an array is to hold.
    using RowType = std::integral_constant<int, 2>;  // Of a table, as the step's type says.
    using NewType = std::integral_constant<int, 3>;  // Of a new table's rows.

    template <typename Object>
    struct Family
    {
        template <typename Operation, typename... Arguments>
        void operator()(const std::string& name, Operation operation, Arguments... arguments) const
        {
            player.m_actions[kind + "." + name] = [=, &player = player, handle = handle](const json& step)
            {
                const auto call = [&]
                {
                    return std::invoke(operation, *(player.*handle), player.Value(step, arguments)...);
                };
                if constexpr (std::is_void_v<decltype(call())>)
                {
                    call();
                }
                else
                {
                    player.Take(call());
                }
            };
        }

        Player& player;
        std::string kind;
        boost::shared_ptr<Object> Player::*handle;
    };

    // What an operation answers is told, or is what the next step works on.
    template <typename Answer>
    void Take(const Answer& answer)
    {
        answers << answer << ' ';
    }
    template <typename Answer>
    void Take(const std::vector<Answer>& list)
    {
        Take(list.size());
    }
    void Take(const boost::shared_ptr<IGroup>& made) { group = made; }
    void Take(const boost::shared_ptr<IArray>& made) { array = made; }
    void Take(const boost::shared_ptr<IExtensibleArray2D>& made) { extensible = made; }
    void Take(const boost::shared_ptr<ITable>& made) { table = made; }

    template <typename Constant>
    Constant Value(const json& /*step*/, Constant constant)
    {
        return constant;
    }
    const json& Value(const json& step, const char* field) { return step.at(field); }
    void* Value(const json& /*step*/, Buffer /*of the caller*/) { return values.data(); }
    hid_t Value(const json& /*step*/, NewType /*of rows*/) { return m_rowType.get(); }

    // 0 stands for the table's own type, 1 for another one of the same columns, 2 for the own one by its id.
    hid_t Value(const json& step, RowType /*of a table*/)
    {
        const hid_t types[] = {-1, m_rowType.get(), table->GetCompoundTypeID()};
        return types[step.at("type").get<size_t>()];
    }

    // The caller's values, or the text, as rows x columns elements of the step's type.
    void* Value(const json& step, Elements /*of an array*/)
    {
        const size_t count = step.at("rows").get<size_t>() * step.at("columns").get<size_t>();
        const std::string text = step.at("text");
        m_elements.assign(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count));
        if (step.at("type") == TDataType::String)
        {
            text.copy(reinterpret_cast<char*>(m_elements.data()), count);
        }
        else if (step.at("type") != TDataType::Undefined)
        {
            const hid_t type = INode::DataTypeToHDFType(step.at("type"));
            H5Tconvert(H5T_NATIVE_DOUBLE, type, count, m_elements.data(), nullptr, 0);
        }
        return m_elements.data();
    }

    template <typename Node>
    static void Copy(const Node& source)
    {
        Node copy(source);
        copy = source;
    }

    void AddFiles()
    {
        const Family<IFile> add = {*this, "file", &Player::file};
        add("Open", &Player::OpenAnother, "name", "mode", "level");
        add("Close", &IFile::Close);
        add("SetEncoding", &IFile::SetEncoding, "type");
        add("IsHDF5File", [](IFile& used) { return IFile::IsHDF5File(used.GetFileName()); });
        add("FileExists", [](IFile& used) { return IFile::FileExists(used.GetFileName()); });
        add("GetFileName", &IFile::GetFileName);
        add("GetOpenFilesCount", &IFile::GetOpenFilesCount);
        add("GetOpenGroupsCount", &IFile::GetOpenGroupsCount);
        add("GetOpenDataSetsCount", &IFile::GetOpenDataSetsCount);
        add("GetOpenDataTypesCount", &IFile::GetOpenDataTypesCount);
        add("GetOpenAttrsCount", &IFile::GetOpenAttrsCount);
        add("UseCache", &Player::UseCache);
        add("LogMemory", &Player::LogMemory, "name");
    }

    static unsigned int OpenAnother(const IFile& /*this*/, const std::string& name, const std::string& mode, int level)
    {
        return IFile::Open(name, mode, level)->GetAPIVersion();
    }

    static double UseCache(IFile& used)
    {
        H5AC_cache_config_t config = used.GetCacheConfiguration();
        used.SetCacheConfiguration(config);
        used.DumpCacheStatus(true);
        return config.lower_hr_threshold;
    }

    static void LogMemory(const IFile& logged, const std::string& log)
    {
        MemoryLoggerFileTracker tracker;
        tracker.OnOpen(logged.FileID(), "");
        tracker.AppendToMemoryLog(1, log);
        tracker.OnClose(logged.FileID(), "");
    }

    void AddNodes()
    {
        const Family<INode> add = {*this, "node", &Player::node};
        add("SetAttr", &INode::SetAttr, "attribute", "text");
        add("GetAttr", &INode::GetAttr, "attribute");
        add("GetAttrType", &INode::GetAttrType, "attribute");
        add("GetAttrName", &INode::GetAttrName, "index");
        add("GetNumberOfAttrs", &INode::GetNumberOfAttrs);
        add("ListAttrs", &INode::ListAttrs);
        add("HasAttr", &INode::HasAttr, "attribute");
        add("DelAttr", &INode::DelAttr, "attribute");
        add("GetFullName", &INode::GetFullName);
        add("Flush", &INode::Flush);
        add("GarbageCollect", [](INode& /*any*/) { GarbageCollect(); });
        add("DescribeVersions", [](INode& /*any*/) { return DescribeVersions(); });
    }

    void AddGroups()
    {
        const Family<IGroup> add = {*this, "group", &Player::at};
        add("CreateGroup", &IGroup::CreateGroup, "name");
        add("CreateSubGroup", &Protected::CreateSubGroup, "name");
        add("GetGroup", &IGroup::GetGroup, "name");
        add("GetArray", &IGroup::GetArray, "name");
        add("GetExtensibleArray2D", &IGroup::GetExtensibleArray2D, "name");
        add("GetTable", &IGroup::GetTable, "name");
        add("HasGroup", &IGroup::HasGroup, "name");
        add("HasArray", &IGroup::HasArray, "name");
        add("HasExtensibleArray2D", &IGroup::HasExtensibleArray2D, "name");
        add("HasTable", &IGroup::HasTable, "name");
        add("HasDataSet", &IGroup::HasDataSet);
        add("DelGroup", &IGroup::DelGroup, "name");
        add("DelArray", &IGroup::DelArray, "name");
        add("DelExtensibleArray2D", &IGroup::DelExtensibleArray2D, "name");
        add("ListGroups", &IGroup::ListGroups);
        add("ListArrays", &IGroup::ListArrays);
        add("ListExtensibleArrays2D", &IGroup::ListExtensibleArrays2D);
        add("ListTables", &IGroup::ListTables);
        add("ListNames", &Player::ListNames);
        add("GetChildType", &IGroup::GetChildType, "index");
        add("GetChildName", &IGroup::GetChildName, "index");
        add("GetNumberOfChildren", &IGroup::GetNumberOfChildren);
        add("GetNumberOfGroups", &IGroup::GetNumberOfGroups);
        add("Copy", &Player::Copy<IGroup>);
        add("SetDefaultCompression", &IGroup::SetDefaultCompression, "level");
    }

    static std::vector<std::string> ListNames(const IGroup& parent)
    {
        std::vector<std::string> names;
        (parent.*&Protected::ListNames)(H5G_DATASET, names);
        return names;
    }

    void AddFactories()
    {
        using Empty = boost::shared_ptr<ITable> (IGroup::*)(const std::string&, hid_t);
        using OfRows = boost::shared_ptr<ITable> (IGroup::*)(const std::string&, size_t, hid_t, int);
        const Family<IGroup> add = {*this, "group", &Player::at};
        add("CreateArray", &IGroup::CreateArray, "name", "type", 0);
        add("CreateArrayFromBuffer", &IGroup::CreateArrayFromBuffer, "name", Elements(), "type", "rows", "columns");
        add("CreateArrayAndSet", &Player::CreateArrayAndSet, "name", Elements(), "type", "rows", "columns");
        add("CreateExtensibleArray2D", &IGroup::CreateExtensibleArray2D, "name", "type", "rows", "columns", "chunk",
            "chunk_columns", "level");
        add("CreateEmptyTable", static_cast<Empty>(&IGroup::CreateTable), "name", NewType());
        add("CreateTable", static_cast<OfRows>(&IGroup::CreateTable), "name", "rows", NewType(), "level");
        add("CreateTableFromBuffer", &IGroup::CreateTableFromBuffer, "name", Buffer(), "rows", NewType(), "level", -1,
            "chunk");
        add("CreateTableFromSelection", &IGroup::CreateTableFromSelection, "name", Buffer(), "rows", "sources",
            NewType(), "level", -1, 0);
    }

    static boost::shared_ptr<IArray> CreateArrayAndSet(IGroup& parent, const std::string& name, void* elements,
                                                       TDataType::TDataType type, size_t rows, size_t columns)
    {
        const boost::shared_ptr<IArray> made = parent.CreateArray(name, type, 0);
        made->SetFromBuffer(elements, type, rows, columns);
        return made;
    }

    void AddArrays()
    {
        using Line = void (IArray::*)(void*, int, int, int, TDataType::TDataType) const;
        const Family<IArray> add = {*this, "array", &Player::array};
        const auto asDouble = TDataType::Double;
        add("ReOpen", &Player::ReOpen<IArray>, this, "name");
        add("SetFromBuffer", &IArray::SetFromBuffer, Elements(), "type", "rows", "columns");
        add("GetToBuffer", &IArray::GetToBuffer, Buffer(), "type");
        add("GetFromHyperslab", static_cast<Line>(&IArray::GetFromHyperslab), Buffer(), "start", "stride", "count",
            asDouble);
        add("GetFromHyperslabOfDimensions", &Player::ReadSlab, Buffer(), "dimensions", "start", "stride", "count",
            "columns");
        add("GetToMemoryHyperslab", &IArray::GetToMemoryHyperslab, Buffer(), "start", "stride", "count", asDouble);
        add("Copy", &Player::Copy<IArray>);
        add("GetLength", &IArray::GetLength);
        add("GetType", &IArray::GetType);
        add("ReadStringDataSet", &Player::ReadTexts, &texts);
    }

    template <typename Node>
    static void ReOpen(Node& node, Player* player, const std::string& name)
    {
        node.ReOpen(player->at->LocationID(), name);
    }

    static void ReadSlab(const IArray& read, void* buffer, size_t dimensions, size_t start, size_t stride, size_t count,
                         size_t columns)
    {
        size_t starts[] = {start, 0};
        size_t strides[] = {stride, 1};
        size_t counts[] = {count, columns};
        const auto length = static_cast<int>(count * columns);
        read.GetFromHyperslab(buffer, length, dimensions, starts, strides, counts, TDataType::Double);
    }

    static void ReadTexts(const IArray& read, std::vector<std::string>* texts)
    {
        const hid_t type = read.GetTypeID();
        utils::ReadStringDataSet(*texts, read.LocationID(), type, type, read.GetLength(), read.GetComponents());
    }

    void AddExtensibleArrays()
    {
        using Array = IExtensibleArray2D;
        const Family<Array> add = {*this, "extensible", &Player::extensible};
        const auto asDouble = TDataType::Double;
        add("Copy", &Player::Copy<Array>);
        add("Resize", &Player::Resize, "rows", "columns", Buffer());
        add("GetNumberOfColumns", &Array::GetNumberOfColumns);
        add("AppendRow", &Array::AppendRowFromBuffer, Buffer(), asDouble);
        add("AppendColumn", &Array::AppendColumnFromBuffer, Buffer(), asDouble);
        add("AppendRows", &Array::AppendRowsFromBuffer, "count", Buffer(), asDouble);
        add("AppendColumns", &Array::AppendColumnsFromBuffer, "count", Buffer(), asDouble);
        add("ReadRow", &Array::ReadRowToBuffer, "index", Buffer(), asDouble);
        add("ReadColumn", &Array::ReadColumnToBuffer, "index", Buffer(), asDouble);
        add("ReadRows", &Array::ReadRowsToBuffer, "index", "count", Buffer(), asDouble);
        add("ReadColumns", &Array::ReadColumnsToBuffer, "index", "count", Buffer(), asDouble);
        add("WriteRow", &Array::WriteRowFromBuffer, "index", Buffer(), asDouble);
        add("WriteColumn", &Array::WriteColumnFromBuffer, "index", Buffer(), asDouble);
        add("WriteRows", &Array::WriteRowsFromBuffer, "index", "count", Buffer(), asDouble);
        add("WriteColumns", &Array::WriteColumnsFromBuffer, "index", "count", Buffer(), asDouble);
    }

    // Stores the new extent in the buffer. Failures are answered, not thrown, and then the extent stays.
    static void Resize(IExtensibleArray2D& resized, unsigned int rows, unsigned int columns, void* buffer)
    {
        const bool hasResized = resized.Resize(rows, columns) == 0;
        const double extent[] = {double(resized.GetNumberOfRows()), double(resized.GetNumberOfColumns())};
        std::copy(std::begin(extent), std::end(extent), static_cast<double*>(buffer));
        if (hasResized != (extent[0] == rows))
        {
            throw std::logic_error("the answer of Resize and the rows don't agree");
        }
    }

    void AddTables()
    {
        const Family<ITable> add = {*this, "table", &Player::table};
        add("ReOpen", &Player::ReOpen<ITable>, this, "name");
        add("SetFromBuffer", &ITable::SetFromBuffer, Buffer(), "rows", RowType(), "level");
        add("SetFromSelection", &ITable::SetFromSelection, Buffer(), "rows", "sources", RowType(), "level", 0);
        add("GetToBuffer", &ITable::GetToBuffer, Buffer(), RowType());
        add("GetToSelection", &ITable::GetToSelection, Buffer(), "rows", RowType(), "targets");
        add("GetFromHyperslab", &ITable::GetFromHyperslab, Buffer(), "start", "stride", "count", RowType());
        add("GetFromSelection", &ITable::GetFromSelection, Buffer(), RowType(), "sources");
        add("GetFromToSelection", &ITable::GetFromToSelection, Buffer(), "rows", RowType(), "sources", "targets");
        add("GetFromHyperslabToSelection", &ITable::GetFromHyperslabToSelection, Buffer(), "rows", RowType(), "start",
            "targets");
        add("SetToHyperslabFromSelection", &ITable::SetToHyperslabFromSelection, Buffer(), "rows", RowType(), "start",
            "sources");
        add(
            "FeedStringVector", [this](ITable& read, int column) { read.FeedStringVector(texts, column); }, "index");
        add("Copy", &Player::Copy<ITable>);
        add("GetColumnName", &ITable::GetColumnName, "index");
        add("GetColumnDataType", &ITable::GetColumnDataType, "index");
    }

    std::map<std::string, std::function<void(const json& step)>> m_actions;
    std::vector<double> m_elements;
    ScopedType m_rowType;
};

} // namespace tarnwick::hdf::tests
