#pragma once

#include "Fixture.h"

#include <tarnwickhdf/version.h>

namespace tarnwick::hdf::tests
{

/// The file that an operation finds: a group "g" with one data set of each kind and attributes of each kind.
inline const std::string kPath = "run/file.h5";
/// A second file of the same content, for the operations that open one.
inline const std::string kNewPath = "run/new.h5";
inline const Dims kSomeRows = {0, 2};

/// So many elements are worth reading straight from the file.
constexpr size_t kPacked = 20000;

inline std::string TextTypeOf(const std::string& size)
{
    return "H5T_STRING { STRSIZE " + size + "; STRPAD H5T_STR_NULLTERM; CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; }";
}

inline std::string RowTypeWith(const std::string& secondColumn)
{
    return "H5T_COMPOUND { H5T_NATIVE_INT \"number\"; " + secondColumn + "}";
}

inline const std::string kFixedText = TextTypeOf("4");
inline const std::string kVariableText = TextTypeOf("H5T_VARIABLE");
inline const std::string kRowType = RowTypeWith(kFixedText + "\"text\"; ");

inline void AddForeignAttributes(hid_t group)
{
    int number = 7;
    const char* text = "first";
    const ScopedType type = TypeOf(kVariableText);
    const ScopedSpace scalar(H5Screate(H5S_SCALAR));
    const ScopedAttribute attribute(H5Acreate1(group, "vlen", type.get(), scalar.get(), H5P_DEFAULT));
    H5Awrite(attribute.get(), type.get(), &text);
    H5LTset_attribute_int(group, ".", "number", &number, 1);
}

inline void MakeFile(const std::string& name)
{
    const ScopedType row = TypeOf(kRowType);
    const ScopedType oneText = TypeOf("H5T_COMPOUND {" + kVariableText + "\"text\"; }");
    int numbers[] = {7, 8, 9, 10, 11, 12};
    const char* texts[] = {"first", "second"};
    const auto file = IFile::Open(name, "w", 0);
    const auto g = file->GetRoot()->CreateGroup("g");
    g->CreateGroup("sub/sub");
    g->SetAttr("unit", "a text that is longer than a short one");
    AddForeignAttributes(g->LocationID());
    g->CreateArrayFromBuffer("a", numbers, TDataType::Int, 4, 1);
    g->CreateArrayFromBuffer("m", numbers, TDataType::Int, 3, 2);
    g->CreateArrayFromBuffer("s", numbers, TDataType::String, 3, 4);
    const auto e = g->CreateExtensibleArray2D("e", TDataType::Int, 0, 3, 2, 3, 1);
    e->AppendRowFromBuffer(numbers, TDataType::Int);
    e->AppendRowFromBuffer(numbers, TDataType::Int);
    g->CreateExtensibleArray2D("big", TDataType::Int, 0, 512, 1024, 512, 1);
    g->CreateTableFromBuffer("t", numbers, 3, row.get(), 0, -1, 0);
    g->CreateTableFromBuffer("w", texts, 2, oneText.get(), 0, -1, 0);
    g->CreateTable("large", 300, row.get(), 0);
    std::vector<int> many(kPacked, 7);
    IArray::CreateFromBuffer(file, g->LocationID(), "sub/packed", many.data(), TDataType::Int, many.size(), 1, 1);
}

/// One run of an operation: the file, a handle of each kind, the caller's buffers, and what the operation answers.
struct Case
{
    boost::shared_ptr<IFile> file = IFile::Open(kPath, "r+", 0);
    boost::shared_ptr<IGroup> g = file->GetRoot()->GetGroup("g");
    boost::shared_ptr<IArray> a = g->GetArray("a");
    boost::shared_ptr<IArray> m = g->GetArray("m");
    boost::shared_ptr<IArray> s = g->GetArray("s");
    boost::shared_ptr<IArray> packed = g->GetArray("sub/packed");
    boost::shared_ptr<IExtensibleArray2D> e = g->GetExtensibleArray2D("e");
    boost::shared_ptr<ITable> t = g->GetTable("t");
    boost::shared_ptr<ITable> w = g->GetTable("w");
    boost::shared_ptr<ITable> large = g->GetTable("large");
    ScopedType row = TypeOf(kRowType);
    int ints[12] = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21};
    std::vector<std::string> strings = {"untouched"};
    std::ostringstream answer;

    std::string Answer() const { return answer.str() + Json(ints).dump() + Json(strings).dump(); }

    void DropNodes()
    {
        g.reset();
        a.reset();
        m.reset();
        s.reset();
        packed.reset();
        e.reset();
        t.reset();
        w.reset();
        large.reset();
    }
};

struct Operation
{
    const char* name; ///< By which faults.txt knows it.
    void (*run)(Case& c);
};

using TDataType::Int;
using TDataType::String;
using TDataType::Undefined;

/// Every public operation of the library at least once, and the two protected ones of a group.
inline const Operation kOperations[] = {
    {"file.open.w",
     [](Case& c)
     {
         c.answer << IFile::Open(kNewPath, "w", 6)->GetAPIVersion();
     }},
    {"file.open.r",
     [](Case& c)
     {
         c.answer << IFile::Open(kNewPath, "r", 0)->GetAPIVersion();
     }},
    {"file.open.r+",
     [](Case& c)
     {
         c.answer << IFile::Open(kNewPath, "r+", 0)->GetAPIVersion();
     }},
    {"file.open.missing",
     [](Case& c)
     {
         c.answer << IFile::Open(kNewPath + "0", "r+", 0)->GetAPIVersion();
     }},
    {"file.close",
     [](Case& c)
     {
         c.file->Close();
     }},
    {"file.told",
     [](Case& c)
     {
         c.answer << IFile::IsHDF5File(kPath) << IFile::FileExists(kPath) << c.file->GetFileName();
         c.answer << c.file->GetOpenFilesCount() << c.file->GetOpenGroupsCount() << c.file->GetOpenDataSetsCount();
         c.answer << c.file->GetOpenDataTypesCount() << c.file->GetOpenAttrsCount();
     }},
    {"file.cache",
     [](Case& c)
     {
         H5AC_cache_config_t config = c.file->GetCacheConfiguration();
         c.file->SetCacheConfiguration(config);
         c.file->DumpCacheStatus(true);
         c.answer << config.lower_hr_threshold;
     }},
    {"file.log",
     [](Case& c)
     {
         MemoryLoggerFileTracker tracker;
         tracker.OnOpen(c.file->FileID(), "");
         tracker.AppendToMemoryLog(1, kNewPath + "log");
         tracker.OnClose(c.file->FileID(), "");
     }},
    {"node.flush",
     [](Case& c)
     {
         c.answer << c.g->GetFullName();
         c.g->Flush();
         GarbageCollect();
         c.answer << DescribeVersions();
     }},
    {"node.copy",
     [](Case& c)
     {
         IGroup group(*c.g);
         IArray array(*c.a);
         const IExtensibleArray2D extensible(*c.e);
         IExtensibleArray2D assigned(*c.e);
         ITable table(*c.t);
         group = *c.file->GetRoot();
         array = *c.s;
         assigned = extensible;
         table = *c.w;
     }},
    {"attr.set",
     [](Case& c)
     {
         c.s->SetAttr("unit", "new");
         c.g->SetAttr("unit", "");
     }},
    {"attr.get",
     [](Case& c)
     {
         c.answer << c.g->GetAttr("unit") << c.g->GetAttr("vlen");
     }},
    {"attr.type",
     [](Case& c)
     {
         c.answer << c.g->GetAttrType("number") << c.g->GetAttrType("unit");
     }},
    {"attr.list",
     [](Case& c)
     {
         c.answer << c.g->GetAttrName(1) << c.g->ListAttrs().at(2);
         c.answer << c.g->GetNumberOfAttrs() << c.g->HasAttr("unit");
     }},
    {"delete",
     [](Case& c)
     {
         c.g->DelAttr("unit");
         c.g->DelArray("a");
         c.g->DelGroup("sub");
         c.g->DelExtensibleArray2D("e");
     }},
    {"group.create.new",
     [](Case& c)
     {
         c.g->CreateGroup("new/new");
     }},
    {"group.create.again",
     [](Case& c)
     {
         c.g->CreateGroup("sub/sub");
     }},
    {"group.create.sub",
     [](Case& c)
     {
         (c.g.get()->*&Inside::CreateSubGroup)("new");
     }},
    {"group.get",
     [](Case& c)
     {
         c.g->GetGroup("sub/sub");
     }},
    {"group.list.groups",
     [](Case& c)
     {
         c.answer << c.g->ListGroups().size();
     }},
    {"group.list.sets",
     [](Case& c)
     {
         c.answer << c.g->ListExtensibleArrays2D().size();
         c.answer << c.g->ListTables().size() << c.g->ListArrays().size();
     }},
    {"group.list.names",
     [](Case& c)
     {
         Names names;
         (c.g.get()->*&Inside::ListNames)(H5G_DATASET, names);
         for (const std::string& name : names)
         {
             c.answer << name;
         }
     }},
    {"group.child",
     [](Case& c)
     {
         c.answer << c.g->GetChildType(0) << c.g->GetChildName(0) << c.g->HasDataSet();
         c.answer << c.g->GetNumberOfChildren() << c.g->GetNumberOfGroups();
     }},
    {"has.array",
     [](Case& c)
     {
         c.answer << c.g->HasGroup("sub/sub") << c.g->HasArray("a") << c.g->HasTable("a");
     }},
    {"has.extensible",
     [](Case& c)
     {
         c.answer << c.g->HasExtensibleArray2D("e");
     }},
    {"create.array.new",
     [](Case& c)
     {
         c.g->CreateArray("new", Int, 0);
     }},
    {"create.array.again",
     [](Case& c)
     {
         c.g->CreateArray("a", Int, 0);
     }},
    {"create.buffer.new",
     [](Case& c)
     {
         c.g->SetDefaultCompression(6);
         c.g->CreateArrayFromBuffer("new", c.ints, Int, 3, 4);
     }},
    {"create.buffer.text",
     [](Case& c)
     {
         c.g->CreateArrayFromBuffer("new", c.ints, String, 3, 4);
     }},
    {"create.buffer.again",
     [](Case& c)
     {
         c.g->CreateArrayFromBuffer("a", c.ints, Int, 4, 1);
     }},
    {"create.buffer.shape",
     [](Case& c)
     {
         c.g->CreateArrayFromBuffer("a", c.ints, Int, 4, 3);
     }},
    {"create.extensible",
     [](Case& c)
     {
         c.g->CreateExtensibleArray2D("new", Int, 0, 9, 4, 9, 1);
     }},
    {"create.table.empty",
     [](Case& c)
     {
         c.answer << c.g->CreateTable("new", c.row.get())->GetColumnDataType(1);
     }},
    {"create.table",
     [](Case& c)
     {
         c.answer << c.g->CreateTable("new", 4, c.row.get(), 6)->GetColumnDataType(1);
     }},
    {"create.rows.new",
     [](Case& c)
     {
         c.g->CreateTableFromBuffer("new", c.ints, 4, c.row.get(), 0, -1, 2);
     }},
    {"create.rows.again",
     [](Case& c)
     {
         c.g->CreateTableFromBuffer("t", c.ints, 4, c.row.get(), 0, -1, 0);
     }},
    {"create.some.new",
     [](Case& c)
     {
         c.g->CreateTableFromSelection("new", c.ints, 4, kSomeRows, c.row.get(), 0, -1, 0);
     }},
    {"create.some.again",
     [](Case& c)
     {
         c.g->CreateTableFromSelection("t", c.ints, 4, kSomeRows, c.row.get(), 0, -1, 0);
     }},
    {"get.array",
     [](Case& c)
     {
         c.answer << c.g->GetArray("a")->GetType() << c.g->GetArray("a")->GetLength();
     }},
    {"get.extensible",
     [](Case& c)
     {
         c.answer << c.g->GetExtensibleArray2D("big")->GetNumberOfColumns();
     }},
    {"get.table",
     [](Case& c)
     {
         c.answer << c.g->GetTable("t")->GetColumnDataType(1) << c.t->GetColumnName(1);
     }},
    {"array.reopen",
     [](Case& c)
     {
         c.a->ReOpen(c.g->LocationID(), "a");
     }},
    {"array.set.same",
     [](Case& c)
     {
         c.a->SetFromBuffer(c.ints, Undefined, 4, 1);
     }},
    {"array.set.text",
     [](Case& c)
     {
         c.s->SetFromBuffer(c.ints, Undefined, 3, 4);
     }},
    {"array.set.shape",
     [](Case& c)
     {
         c.a->SetFromBuffer(c.ints, Int, 4, 3);
     }},
    {"array.read",
     [](Case& c)
     {
         c.a->GetToBuffer(c.ints, Undefined);
         c.s->GetToBuffer(c.ints, Undefined);
     }},
    {"array.packed",
     [](Case& c)
     {
         std::vector<int> read(kPacked);
         c.packed->GetToBuffer(read.data(), Undefined);
         c.answer << (read == std::vector<int>(kPacked, 7));
     }},
    {"array.slab",
     [](Case& c)
     {
         size_t start[] = {0, 1};
         size_t stride[] = {1, 1};
         size_t count[] = {2, 1};
         c.a->GetFromHyperslab(c.ints + 4, 0, 2, 2, Int);
         c.m->GetFromHyperslab(c.ints, 2, 2, start, stride, count, Int);
     }},
    {"array.spread",
     [](Case& c)
     {
         c.a->GetToMemoryHyperslab(c.ints, 1, 2, 4, Int);
     }},
    {"array.strings",
     [](Case& c)
     {
         const hid_t type = c.s->GetTypeID();
         utils::ReadStringDataSet(c.strings, c.s->LocationID(), type, type, 3, 4);
     }},
    {"extensible.resize",
     [](Case& c)
     {
         const bool isResized = c.e->Resize(4, 3) == 0;
         EXPECT_EQ(isResized, c.e->GetNumberOfRows() == 4);
     }},
    {"extensible.append",
     [](Case& c)
     {
         c.e->AppendRowFromBuffer(c.ints, Int);
         c.e->AppendColumnFromBuffer(c.ints, Int);
     }},
    {"extensible.append.block",
     [](Case& c)
     {
         c.e->AppendRowsFromBuffer(2, c.ints, Int);
         c.e->AppendColumnsFromBuffer(2, c.ints, Int);
     }},
    {"extensible.read",
     [](Case& c)
     {
         c.e->ReadRowToBuffer(1, c.ints, Int);
         c.e->ReadColumnToBuffer(1, c.ints + 4, Int);
     }},
    {"extensible.read.block",
     [](Case& c)
     {
         c.e->ReadRowsToBuffer(0, 2, c.ints, Int);
         c.e->ReadColumnsToBuffer(1, 2, c.ints + 6, Int);
     }},
    {"extensible.write",
     [](Case& c)
     {
         c.e->WriteRowFromBuffer(1, c.ints, Int);
         c.e->WriteColumnFromBuffer(1, c.ints, Int);
     }},
    {"extensible.write.block",
     [](Case& c)
     {
         c.e->WriteRowsFromBuffer(0, 2, c.ints, Int);
         c.e->WriteColumnsFromBuffer(1, 2, c.ints, Int);
     }},
    {"table.reopen",
     [](Case& c)
     {
         c.t->ReOpen(c.g->LocationID(), "t");
     }},
    {"table.set.same",
     [](Case& c)
     {
         c.t->SetFromBuffer(c.ints, 3, -1, 0);
     }},
    {"table.set.all",
     [](Case& c)
     {
         c.t->SetFromBuffer(c.ints, 4, c.row.get(), 6);
     }},
    {"table.set.some",
     [](Case& c)
     {
         c.t->SetFromSelection(c.ints, 4, kSomeRows, c.row.get(), 6, 0);
     }},
    {"table.read",
     [](Case& c)
     {
         c.t->GetToBuffer(c.ints, -1);
         c.t->GetFromSelection(c.ints + 6, -1, kSomeRows);
     }},
    {"table.slab",
     [](Case& c)
     {
         c.t->GetFromHyperslab(c.ints, 0, 2, 2, c.row.get());
     }},
    {"table.strings.t",
     [](Case& c)
     {
         c.t->FeedStringVector(c.strings, 1);
     }},
    {"table.strings.w",
     [](Case& c)
     {
         c.w->FeedStringVector(c.strings, 0);
     }},
    {"table.to",
     [](Case& c)
     {
         c.t->GetToSelection(c.ints, 4, -1, {0, 1, 2});
         c.t->GetFromToSelection(c.ints, 4, -1, kSomeRows, {3, 1});
         c.t->GetFromHyperslabToSelection(c.ints + 8, 2, c.row.get(), 1, {1, 0});
     }},
    {"table.blocks",
     [](Case& c)
     {
         std::vector<int> buffer(600, 1);
         const Dims manyTimesTheSame(300, 7);
         c.large->GetToSelection(buffer.data(), 300, -1, manyTimesTheSame);
         c.answer << buffer[14];
         c.large->GetFromSelection(buffer.data(), -1, manyTimesTheSame);
         c.answer << buffer[599];
         buffer[14] = 5;
         c.large->SetToHyperslabFromSelection(buffer.data(), 300, c.row.get(), 0, manyTimesTheSame);
     }},
    {"table.put",
     [](Case& c)
     {
         c.t->SetToHyperslabFromSelection(c.ints, 4, c.row.get(), 1, kSomeRows);
     }},
};

} // namespace tarnwick::hdf::tests
