// The fault engine.
//
// What is varied: the operation (Operations(), two tests each), and what fails while it runs: each of its HDF5 calls
// alone, each together with all later calls of the same function, each of its allocations, and allocations while calls
// fail.
// What is held fixed: the file that the operation finds, made once and copied for every run, and the open handles.
// What is checked after every run: the words of the exception, by the rules of faults.txt, which begins with what they
// mean; that nothing that is only read has changed, that a handle is open or closed as a whole, that no id stays open,
// and that the operation works when nothing fails.
//
// One case again: `tarnwickhdf_faults --gtest_filter='*table_put*'`; the trace of a failure names the call's number.
// TARNWICKHDF_LONG_TESTS in the environment lets allocations fail behind every failing call, not behind every fourth.
//
// This is a program of its own, because what it defines takes HDF5's place for the shared library.

#include "Fixture.h"

#include <tarnwickhdf/version.h>

#include <cstring>
#include <iostream>
#include <new>
#include <numeric>
#include <regex>

#include <dlfcn.h>

namespace
{

// What fails, counted from 0 within a run.
struct Plan
{
    size_t call = SIZE_MAX;
    bool lasting = false; ///< The later calls of the same function fail too.
    size_t allocation = SIZE_MAX;
};

struct Outcome
{
    std::vector<std::string> calls;  ///< The HDF5 functions called, in order.
    std::vector<std::string> failed; ///< Those that failed.
    size_t allocations = 0;
    std::string text;       ///< What the operation threw, "" for nothing.
    std::string answer;     ///< What it gave back, and the caller's buffers.
    std::string contents;   ///< What plain HDF5 finds in the file afterwards.
    std::string nextText;   ///< The same operation once more, without a failure: what it threw,
    std::string nextAnswer; ///< and what it gave back.
};

Plan plan;
Outcome* armed = nullptr; // what the shims write to; null while nothing is to fail

// Arms the shims until its end.
class Arming
{
public:
    explicit Arming(Outcome& outcome) { armed = &outcome; }
    ~Arming() { armed = nullptr; }
    Arming(const Arming&) = delete;
    Arming& operator=(const Arming&) = delete;
};

// Functions that differ in the number of their version stand in for each other.
bool AreVersionsOfOne(const std::string& one, const std::string& other)
{
    return one.compare(0, one.size() - 1, other, 0, other.size() - 1) == 0;
}

bool NoteCall(const std::string& function, Outcome& outcome)
{
    const bool isChosen = outcome.calls.size() == plan.call;
    const bool isLaterOne = plan.lasting && !outcome.failed.empty() && AreVersionsOfOne(outcome.failed[0], function);
    outcome.calls.push_back(function);
    if (isChosen || isLaterOne)
    {
        outcome.failed.push_back(function);
    }
    return isChosen || isLaterOne;
}

// What releases has done so when it fails: nobody could do more, and what is open then was forgotten.
bool ReleasesSomething(const char* function)
{
    return std::strstr(function, "close") != nullptr || std::strstr(function, "free") != nullptr ||
           std::strstr(function, "reclaim") != nullptr;
}

// HDF5's way to say that a function failed: a negative number, or nothing where that can't be said.
template <typename Result>
Result FailureOf()
{
    Result result = {};
    std::memset(&result, std::is_pointer_v<Result> || std::is_unsigned_v<Result> ? 0 : -1, sizeof(result));
    return result;
}

template <const char* Name, typename Result, typename... Arguments>
__attribute__((used)) Result Call(Arguments... arguments)
{
    static const auto real = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, Name));
    Outcome* const outcome = std::exchange(armed, nullptr);
    const bool fails = outcome != nullptr && NoteCall(Name, *outcome);
    if (fails && ReleasesSomething(Name))
    {
        real(arguments...);
    }
    if (fails)
    {
        H5Epush2(H5E_DEFAULT, "", Name, 0, H5E_ERR_CLS, H5E_RESOURCE, H5E_CANTINIT, "injected");
    }
    // Armed inside HDF5 too: it calls none of these functions itself, but the library's callbacks do.
    armed = outcome;
    return fails ? FailureOf<Result>() : real(arguments...);
}

// Defines HDF5's function of that name, with the parameters of its declaration.
#define SHIM(function)                                                                                                 \
    constexpr char name_##function[] = #function;                                                                      \
    __attribute__((used, noinline)) void Define_##function()                                                           \
    {                                                                                                                  \
        asm volatile(".globl " #function "\n.type " #function ", @function\n.set " #function                           \
                     ", %c0" ::"i"(static_cast<decltype(function)*>(&Call<name_##function>)));                         \
    }
#include "hdf5_calls.inc" // a line for each function that the library imports

} // namespace

// Memory comes from where it would without this, so that the usual operator delete can have it back.
void* operator new(size_t size)
{
    static const auto real = reinterpret_cast<void* (*)(size_t)>(dlsym(RTLD_NEXT, "_Znwm"));
    if (armed != nullptr && armed->allocations++ == plan.allocation)
    {
        throw std::bad_alloc();
    }
    return real(size);
}

namespace tarnwick::hdf::tests
{

const char* const kRow = "H5T_COMPOUND { H5T_NATIVE_INT \"number\"; H5T_STRING { STRSIZE 4; STRPAD H5T_STR_NULLTERM; "
                         "CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; } \"text\"; }";
const char* const kTexts = "H5T_COMPOUND { H5T_STRING { STRSIZE H5T_VARIABLE; STRPAD H5T_STR_NULLTERM; "
                           "CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; } \"text\"; }";
constexpr auto kDouble = TDataType::Double;
constexpr auto kString = TDataType::String;

// The file that every operation finds: an object of each kind.
void MakeFile(const std::string& name)
{
    std::vector<double> values(2000);
    std::iota(values.begin(), values.end(), 10);
    double* const buffer = values.data();
    std::string text = "ab__cdefgh__";
    const char* texts[] = {"first", "so long that std::string allocates memory for it"};
    const int number = 7;
    const ScopedType row = TypeOf(kRow);
    const ScopedType rowOfTexts = TypeOf(kTexts);
    const ScopedType vlen(H5Tget_member_type(rowOfTexts.get(), 0));
    const ScopedSpace scalar(H5Screate(H5S_SCALAR));

    const auto file = IFile::Open(name, "w", 0);
    const auto root = file->GetRoot();
    const auto group = root->CreateGroup("g");
    group->SetAttr("unit", "a text that is longer than a short one");
    const ScopedAttribute attribute(H5Acreate1(group->LocationID(), "vlen", vlen.get(), scalar.get(), 0));
    H5Awrite(attribute.get(), vlen.get(), texts);
    H5LTset_attribute_int(group->LocationID(), ".", "number", &number, 1);
    root->CreateGroup("sub/sub");
    root->CreateArrayFromBuffer("a", buffer, kDouble, 4, 1);
    root->CreateArrayFromBuffer("m", buffer, kDouble, 3, 2);
    root->CreateArrayFromBuffer("s", text.data(), kString, 3, 4);
    const auto extensible = root->CreateExtensibleArray2D("e", kDouble, 0, 3, 2, 3, 1);
    extensible->AppendRowsFromBuffer(2, buffer, kDouble);
    root->CreateExtensibleArray2D("big", kDouble, 0, 512, 1024, 512, 1);
    root->CreateTableFromBuffer("t", buffer, 3, row.get(), 0, -1, 0);
    root->CreateTable("large", 300, row.get(), 0);
    root->CreateTableFromBuffer("w", texts, 2, rowOfTexts.get(), 0, -1, 0);
    root->SetDefaultCompression(1);
    root->CreateArrayFromBuffer("sub/packed", buffer, kDouble, 2000, 1);
}

// What is open when an operation begins, and what it is given.
struct Objects
{
    Objects(const std::string& nameOfArray, const std::string& nameOfTable)
        : array(root->GetArray(nameOfArray)), table(root->GetTable(nameOfTable))
    {
        std::iota(values.begin(), values.end(), 20);
        root->SetDefaultCompression(6);
        told.exceptions(std::ios::badbit);
    }

    std::string Answers() const
    {
        const auto* const bytes = static_cast<const char*>(buffer);
        return told.str() + Json(texts).dump() + std::string(bytes, values.size() * sizeof(double));
    }

    void DropNodes()
    {
        group.reset();
        extensible.reset();
        array.reset();
        table.reset();
    }

    boost::shared_ptr<IFile> file = IFile::Open("run/file.h5", "r+", 0);
    boost::shared_ptr<IGroup> root = file->GetRoot();
    boost::shared_ptr<IGroup> group = root->GetGroup("g");
    boost::shared_ptr<IExtensibleArray2D> extensible = root->GetExtensibleArray2D("e");
    boost::shared_ptr<IArray> array;
    boost::shared_ptr<ITable> table;
    hid_t parent = root->LocationID();
    ScopedType rowType = TypeOf(kRow);
    hid_t row = rowType.get();
    std::vector<double> values = std::vector<double>(2000); ///< The caller's buffer.
    void* buffer = values.data();
    std::string text = "new_textes__";
    std::vector<std::string> texts = {"untouched", "too"}; ///< As many as the table of texts has.
    std::vector<hsize_t> two = {0, 2};                     ///< Rows of a table or of the buffer.
    std::vector<hsize_t> three = {2, 0, 1};
    std::vector<hsize_t> many = std::vector<hsize_t>(300, 7);
    std::ostringstream told; ///< What operations answer.
};

template <typename Node>
void Copy(const Node& source)
{
    Node copy(source);
    copy = source;
}

double UseCache(IFile& file)
{
    H5AC_cache_config_t config = file.GetCacheConfiguration();
    file.SetCacheConfiguration(config);
    file.DumpCacheStatus(true);
    return config.lower_hr_threshold;
}

void LogMemory(const IFile& file)
{
    MemoryLoggerFileTracker tracker;
    tracker.OnOpen(file.FileID(), "");
    tracker.AppendToMemoryLog(1, "run/log");
    tracker.OnClose(file.FileID(), "");
}

size_t CountNames(const IGroup& group)
{
    std::vector<std::string> names;
    (group.*&Inside::ListNames)(H5G_DATASET, names);
    return names.size();
}

void ReadSlab(const IArray& matrix, void* buffer)
{
    size_t start[] = {0, 0};
    size_t stride[] = {1, 1};
    size_t count[] = {2, 1};
    matrix.GetFromHyperslab(buffer, 2, 2, start, stride, count, kDouble);
}

void ReadTexts(const IArray& array, std::vector<std::string>& texts)
{
    const hid_t type = array.GetTypeID();
    utils::ReadStringDataSet(texts, array.LocationID(), type, type, array.GetLength(), array.GetComponents());
}

void Resize(IExtensibleArray2D& array)
{
    const bool hasResized = array.Resize(4, 3) == 0;
    EXPECT_EQ(hasResized, array.GetNumberOfRows() == 4);
}

struct Operation
{
    std::string name;        ///< Of which faults.txt speaks.
    std::string array = "a"; ///< Which array is open,
    std::string table = "t"; ///< and which table.
    void (*act)(Objects&) = nullptr;
};

void PrintTo(const Operation& operation, std::ostream* stream)
{
    *stream << operation.name;
}

using O = Objects;
using Add = std::function<void(Operation, void (*act)(Objects&))>;

void AddThoseOfFilesAndGroups(const Add& add)
{
    add({"file_open_w"}, [](O& o) { o.told << IFile::Open("run/new.h5", "w", 6)->GetAPIVersion(); });
    add({"file_open_r"}, [](O& o) { o.told << IFile::Open("run/new.h5", "r", 0)->GetAPIVersion(); });
    add({"file_open_rw"}, [](O& o) { o.told << IFile::Open("run/new.h5", "r+", 0)->GetAPIVersion(); });
    add({"file_open_missing"}, [](O& o) { o.told << IFile::Open("run/new.h50", "r+", 0)->GetAPIVersion(); });
    add({"file_close"}, [](O& o) { o.file->Close(); });
    add({"file_told_name"}, [](O& o) { o.told << o.file->GetFileName(); });
    add({"file_cache"}, [](O& o) { o.told << UseCache(*o.file); });
    add({"file_log"}, [](O& o) { LogMemory(*o.file); });
    add({"node_name"}, [](O& o) { o.told << o.group->GetFullName(); });
    add({"node_flush"}, [](O& o) { o.group->Flush(); });
    add({"node_collect"}, [](O& /*any*/) { GarbageCollect(); });
    add({"node_versions"}, [](O& o) { o.told << DescribeVersions(); });
    add({"node_copy_group"}, [](O& o) { Copy(*o.group); });
    add({"node_copy_array"}, [](O& o) { Copy(*o.array); });
    add({"node_copy_extensible"}, [](O& o) { Copy(*o.extensible); });
    add({"node_copy_table"}, [](O& o) { Copy(*o.table); });
    add({"attr_set"}, [](O& o) { o.group->SetAttr("unit", "new"); });
    add({"attr_set_empty"}, [](O& o) { o.group->SetAttr("other", ""); });
    add({"attr_get"}, [](O& o) { o.told << o.group->GetAttr("unit"); });
    add({"attr_get_vlen"}, [](O& o) { o.told << o.group->GetAttr("vlen"); });
    add({"attr_type"}, [](O& o) { o.told << o.group->GetAttrType("number"); });
    add({"attr_list"}, [](O& o) { o.told << o.group->ListAttrs().size(); });
    add({"attr_list_name"}, [](O& o) { o.told << o.group->GetAttrName(1); });
    add({"attr_list_has"}, [](O& o) { o.told << o.group->HasAttr("unit"); });
    add({"delete_attribute"}, [](O& o) { o.group->DelAttr("number"); });
    add({"delete_array"}, [](O& o) { o.root->DelArray("a"); });
    add({"delete_group"}, [](O& o) { o.root->DelGroup("sub"); });
    add({"delete_extensible"}, [](O& o) { o.root->DelExtensibleArray2D("e"); });
    add({"group_create_new"}, [](O& o) { o.root->CreateGroup("new/new"); });
    add({"group_create_again"}, [](O& o) { o.root->CreateGroup("sub/sub"); });
    add({"group_create_sub"}, [](O& o) { (o.root.get()->*&Inside::CreateSubGroup)("new"); });
    add({"group_get"}, [](O& o) { o.root->GetGroup("sub/sub"); });
    add({"group_list_groups"}, [](O& o) { o.told << o.root->ListGroups().size(); });
    add({"group_list_sets_extensible"}, [](O& o) { o.told << o.root->ListExtensibleArrays2D().size(); });
    add({"group_list_sets_table"}, [](O& o) { o.told << o.root->ListTables().size(); });
    add({"group_list_sets_array"}, [](O& o) { o.told << o.root->ListArrays().size(); });
    add({"group_list_names"}, [](O& o) { o.told << CountNames(*o.root); });
    add({"group_child_type"}, [](O& o) { o.told << o.root->GetChildType(0); });
    add({"group_child_name"}, [](O& o) { o.told << o.root->GetChildName(0); });
    add({"group_child_data_set"}, [](O& o) { o.told << o.root->HasDataSet(); });
    add({"group_child_count"}, [](O& o) { o.told << o.root->GetNumberOfChildren(); });
    add({"has_array"}, [](O& o) { o.told << o.root->HasArray("a"); });
    add({"has_table"}, [](O& o) { o.told << o.root->HasTable("a"); });
    add({"has_extensible"}, [](O& o) { o.told << o.root->HasExtensibleArray2D("e"); });
}

void AddThoseOfDataSets(const Add& add)
{
    add({"create_array_new"}, [](O& o) { o.root->CreateArray("new", TDataType::Int, 0); });
    add({"create_array_again"}, [](O& o) { o.root->CreateArray("a", kDouble, 0); });
    add({"create_buffer_new"}, [](O& o) { o.root->CreateArrayFromBuffer("new", o.buffer, TDataType::Int, 3, 4); });
    add({"create_buffer_text"}, [](O& o) { o.root->CreateArrayFromBuffer("new", o.text.data(), kString, 3, 4); });
    add({"create_buffer_again"}, [](O& o) { o.root->CreateArrayFromBuffer("a", o.buffer, kDouble, 4, 1); });
    add({"create_buffer_shape"}, [](O& o) { o.root->CreateArrayFromBuffer("a", o.buffer, kDouble, 4, 3); });
    add({"create_extensible"}, [](O& o) { o.root->CreateExtensibleArray2D("new", TDataType::Int, 0, 9, 4, 9, 1); });
    add({"create_table_empty"}, [](O& o) { o.told << o.root->CreateTable("new", o.row)->GetColumnDataType(1); });
    add({"create_table"}, [](O& o) { o.told << o.root->CreateTable("new", 4, o.row, 6)->GetColumnDataType(1); });
    add({"create_rows_new"}, [](O& o) { o.root->CreateTableFromBuffer("new", o.buffer, 4, o.row, 6, -1, 2); });
    add({"create_rows_again"}, [](O& o) { o.root->CreateTableFromBuffer("t", o.buffer, 4, o.row, 0, -1, 0); });
    add({"create_some_new"},
        [](O& o) { o.root->CreateTableFromSelection("new", o.buffer, 4, o.two, o.row, 0, -1, 0); });
    add({"create_some_again"},
        [](O& o) { o.root->CreateTableFromSelection("t", o.buffer, 4, o.two, o.row, 0, -1, 0); });
    add({"get_array"}, [](O& o) { o.told << o.root->GetArray("a")->GetType(); });
    add({"get_extensible"}, [](O& o) { o.told << o.root->GetExtensibleArray2D("big")->GetNumberOfColumns(); });
    add({"get_table"}, [](O& o) { o.told << o.root->GetTable("t")->GetColumnName(1); });
    add({"get_table_type"}, [](O& o) { o.told << o.root->GetTable("t")->GetColumnDataType(1); });
    add({"array_reopen"}, [](O& o) { o.array->ReOpen(o.parent, "a"); });
    add({"array_set_same"}, [](O& o) { o.array->SetFromBuffer(o.buffer, kDouble, 4, 1); });
    add({"array_set_text", "s"}, [](O& o) { o.array->SetFromBuffer(o.text.data(), kString, 3, 4); });
    add({"array_set_shape"}, [](O& o) { o.array->SetFromBuffer(o.buffer, kDouble, 4, 3); });
    add({"array_read"}, [](O& o) { o.array->GetToBuffer(o.buffer, TDataType::Undefined); });
    add({"array_read_text", "s"}, [](O& o) { o.array->GetToBuffer(o.buffer, TDataType::Undefined); });
    add({"array_packed", "sub/packed"}, [](O& o) { o.array->GetToBuffer(o.buffer, TDataType::Undefined); });
    add({"array_slab"}, [](O& o) { o.array->GetFromHyperslab(o.buffer, 0, 2, 2, kDouble); });
    add({"array_slab_of_dimensions", "m"}, [](O& o) { ReadSlab(*o.array, o.buffer); });
    add({"array_spread"}, [](O& o) { o.array->GetToMemoryHyperslab(o.buffer, 1, 2, 4, kDouble); });
    add({"array_strings", "s"}, [](O& o) { ReadTexts(*o.array, o.texts); });
    add({"extensible_resize"}, [](O& o) { Resize(*o.extensible); });
    add({"extensible_append_row"}, [](O& o) { o.extensible->AppendRowFromBuffer(o.buffer, kDouble); });
    add({"extensible_append_columns"}, [](O& o) { o.extensible->AppendColumnsFromBuffer(2, o.buffer, kDouble); });
    add({"extensible_read_row"}, [](O& o) { o.extensible->ReadRowToBuffer(1, o.buffer, kDouble); });
    add({"extensible_read_columns"}, [](O& o) { o.extensible->ReadColumnsToBuffer(1, 2, o.buffer, kDouble); });
    add({"extensible_write_column"}, [](O& o) { o.extensible->WriteColumnFromBuffer(1, o.buffer, kDouble); });
    add({"extensible_write_rows"}, [](O& o) { o.extensible->WriteRowsFromBuffer(0, 2, o.buffer, kDouble); });
    add({"table_reopen"}, [](O& o) { o.table->ReOpen(o.parent, "t"); });
    add({"table_set_same"}, [](O& o) { o.table->SetFromBuffer(o.buffer, 3, -1, 0); });
    add({"table_set_all"}, [](O& o) { o.table->SetFromBuffer(o.buffer, 4, o.row, 6); });
    add({"table_set_some"}, [](O& o) { o.table->SetFromSelection(o.buffer, 4, o.two, o.row, 6, 0); });
    add({"table_read"}, [](O& o) { o.table->GetToBuffer(o.buffer, -1); });
    add({"table_read_some"}, [](O& o) { o.table->GetFromSelection(o.buffer, -1, o.two); });
    add({"table_slab"}, [](O& o) { o.table->GetFromHyperslab(o.buffer, 0, 2, 2, o.row); });
    add({"table_strings_t"}, [](O& o) { o.table->FeedStringVector(o.texts, 1); });
    add({"table_strings_w", "a", "w"}, [](O& o) { o.table->FeedStringVector(o.texts, 0); });
    add({"table_to"}, [](O& o) { o.table->GetToSelection(o.buffer, 4, -1, o.three); });
    add({"table_to_from"}, [](O& o) { o.table->GetFromToSelection(o.buffer, 4, -1, o.two, o.two); });
    add({"table_to_run"}, [](O& o) { o.table->GetFromHyperslabToSelection(o.buffer, 4, o.row, 1, o.two); });
    add({"table_put"}, [](O& o) { o.table->SetToHyperslabFromSelection(o.buffer, 4, o.row, 1, o.two); });
    add({"table_blocks_to", "a", "large"}, [](O& o) { o.table->GetToSelection(o.buffer, 300, -1, o.many); });
    add({"table_blocks_from", "a", "large"}, [](O& o) { o.table->GetFromSelection(o.buffer, -1, o.many); });
    add({"table_blocks_put", "a", "large"},
        [](O& o) { o.table->SetToHyperslabFromSelection(o.buffer, 300, o.row, 0, o.many); });
}

std::vector<Operation> Operations()
{
    std::vector<Operation> all;
    const auto add = [&](Operation operation, void (*act)(Objects&))
    {
        operation.act = act;
        all.push_back(operation);
    };
    AddThoseOfFilesAndGroups(add);
    AddThoseOfDataSets(add);
    return all;
}

// What plain HDF5 finds: which objects there are, how the data sets lie in the file, and their values.
std::string ContentsOf(hid_t file)
{
    const ScopedType text = TextType(4);
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"number\"; }");
    const std::pair<const char*, hid_t> dataSets[] = {{"a", H5T_NATIVE_INT}, {"s", text.get()},
                                                      {"e", H5T_NATIVE_INT}, {"t", row.get()},
                                                      {"large", row.get()},  {"new", H5T_NATIVE_INT}};
    const htri_t exist[] = {H5Lexists(file, "sub", 0), H5Lexists(file, "new", 0),
                            H5Aexists_by_name(file, "g", "number", 0)};
    std::string contents = Json(exist).dump();
    for (const auto& [name, type] : dataSets)
    {
        contents += ContentOf(ScopedDataSet(H5Dopen1(file, name)).get(), type);
    }
    return contents;
}

std::string ContentsOf(const std::string& path)
{
    return ContentsOf(ScopedFile(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)).get());
}

// A handle that failed half-way would have one of its two ids. A new table can be without its type, and says so.
void ExpectWholeHandles(const Objects& objects, const std::string& operation)
{
    if (!objects.file->IsClosed() && operation.find("create") == std::string::npos)
    {
        EXPECT_EQ(objects.array->LocationID() > 0, objects.array->GetTypeID() > 0);
        EXPECT_EQ(objects.table->LocationID() > 0, objects.table->GetCompoundTypeID() > 0);
    }
}

// Runs an operation on a fresh copy of the file with the plan's failures, then once more without any.
Outcome RunWith(const Operation& operation, const Plan& faults)
{
    std::filesystem::remove_all("run");
    std::filesystem::copy("files", "run");
    const IdCounts before = CountIds();
    Outcome outcome;
    {
        Objects objects(operation.array, operation.table);
        plan = faults;
        const auto actArmed = [&]
        {
            const Arming arming(outcome);
            operation.act(objects);
        };

        outcome.text = TextOf(actArmed);
        outcome.answer = objects.Answers();
        outcome.contents = objects.file->IsClosed() ? ContentsOf("run/file.h5") : ContentsOf(objects.file->FileID());
        EXPECT_TRUE(outcome.text.empty() || objects.texts.at(0) == "untouched");
        ExpectWholeHandles(objects, operation.name);

        objects.told = {};
        outcome.nextText = TextOf([&] { operation.act(objects); });
        outcome.nextAnswer = objects.Answers();
        objects.DropNodes();
        EXPECT_TRUE(objects.file->IsClosed() || objects.file->GetOpenObjectsCount() == 2) << "more than file and root";
    }
    EXPECT_EQ(before, CountIds());
    return outcome;
}

struct Rule
{
    std::regex functions;
    std::regex words;
    std::string effect; ///< As it stands in faults.txt.
};

std::vector<Rule> RulesOf(const std::string& operation)
{
    std::vector<Rule> rules;
    std::ifstream table(TARNWICKHDF_TESTS "/faults.txt");
    for (std::string operations, functions, effect; table >> operations >> functions;)
    {
        std::getline(table >> std::ws, effect);
        if (std::regex_match(operation, std::regex(operations)))
        {
            const std::string words = effect.substr(effect.find_first_not_of("?~"));
            rules.push_back({std::regex(functions), std::regex("^" + words + "(\n|$)"), effect});
        }
    }
    return rules;
}

// A test with the files that each run copies.
struct FilesTest : HdfTest
{
    FilesTest()
    {
        std::filesystem::current_path(Path(""));
        std::filesystem::create_directory("files");
        MakeFile("files/file.h5");
        std::filesystem::copy_file("files/file.h5", "files/new.h5");
    }
};

struct Faults : FilesTest, ::testing::WithParamInterface<Operation>
{
    Faults() : rules(RulesOf(GetParam().name))
    {
        std::cout.setstate(std::ios::failbit); // one operation prints
        untouched = ContentsOf("files/file.h5");
        EXPECT_EQ(untouched.rfind("[1,0,1][4] chunk [4]: [10,11,12,13]", 0), 0U) << untouched;

        usual = RunWith(GetParam(), {});
        EXPECT_EQ(usual.text, "");
    }

    bool IsKnown(const std::string& text) const
    {
        return std::any_of(rules.begin(), rules.end(), [&](auto& rule) { return std::regex_search(text, rule.words); });
    }

    const Rule* RuleFor(const std::string& function) const
    {
        const auto rule =
            std::find_if(rules.begin(), rules.end(), [&](auto& r) { return std::regex_match(function, r.functions); });
        return rule == rules.end() ? nullptr : &*rule;
    }

    // Runs with failures; whatever they led to, nothing that is only read has changed, and the operation works again.
    Outcome Try(const Plan& faults) const
    {
        Outcome outcome = RunWith(GetParam(), faults);
        const bool readsOnly = usual.contents == untouched;
        const bool worksAgain =
            outcome.nextText.empty() && (outcome.nextAnswer == usual.nextAnswer || outcome.nextAnswer == usual.answer);
        EXPECT_TRUE(worksAgain || (!readsOnly && IsKnown(outcome.nextText))) << TraceOf(faults, outcome);
        EXPECT_TRUE(!readsOnly || outcome.contents == usual.contents) << TraceOf(faults, outcome);
        return outcome;
    }

    static std::string TraceOf(const Plan& faults, const Outcome& outcome)
    {
        return "call " + std::to_string(faults.call) + (faults.lasting ? " and later ones" : "") + ", allocation " +
               std::to_string(faults.allocation) + ", failed: " + Json(outcome.failed).dump() +
               ", threw: " + outcome.text + ", the next time: " + outcome.nextText;
    }

    void ExpectAnExceptionByRule(const Plan& faults, const Outcome& outcome) const
    {
        const Rule* const rule = RuleFor(outcome.failed.at(0));
        const bool hasWords = rule != nullptr && rule->effect != "=";
        const bool isTold = hasWords ? std::regex_search(outcome.text, rule->words) : IsKnown(outcome.text);
        EXPECT_TRUE(isTold) << TraceOf(faults, outcome);

        const bool hasTraceback = outcome.text.find(":\n") != std::string::npos;
        const bool showsTheFailure = outcome.text.find("injected") != std::string::npos;
        EXPECT_TRUE(!hasWords || !hasTraceback || showsTheFailure) << TraceOf(faults, outcome);
    }

    void ExpectSilenceByRule(const Plan& faults, const Outcome& outcome) const
    {
        const Rule* const rule = RuleFor(outcome.failed.at(0));
        const std::string effect = rule == nullptr ? "~" : rule->effect;
        const bool mayBeMadeUpFor = effect[0] == '~' || (effect[0] == '?' && !faults.lasting);
        const bool isMadeUpFor = outcome.answer == usual.answer && outcome.contents == usual.contents;
        EXPECT_TRUE(effect == "=" || (mayBeMadeUpFor && isMadeUpFor)) << TraceOf(faults, outcome);
    }

    void TryCall(const Plan& faults) const
    {
        const Outcome outcome = Try(faults);
        if (outcome.text.empty())
        {
            ExpectSilenceByRule(faults, outcome);
        }
        else
        {
            ExpectAnExceptionByRule(faults, outcome);
        }
    }

    // Lets one allocation after the other fail, until the operation needs no more; what else fails stays the same.
    void TryAllocations(Plan faults) const
    {
        // A destructor keeps the failure to itself, and a failing call may be told instead.
        const bool mayKeepIt = faults.call != SIZE_MAX || GetParam().name.find("file_open") != std::string::npos;
        for (faults.allocation = 0;; ++faults.allocation)
        {
            const Outcome outcome = Try(faults);
            if (outcome.allocations <= faults.allocation)
            {
                return;
            }
            const bool isMadeUpFor = RuleFor("memory") != nullptr && outcome.text.empty() &&
                                     outcome.answer == usual.answer && outcome.contents == usual.contents;
            EXPECT_TRUE(outcome.text == "std::bad_alloc" || mayKeepIt || isMadeUpFor) << TraceOf(faults, outcome);
        }
    }

    std::string untouched;
    std::vector<Rule> rules;
    Outcome usual;
};

TEST_P(Faults, FailingCallsAreReportedInTheirWordsOrMadeUpFor)
{
    for (size_t call = 0; call < usual.calls.size(); ++call)
    {
        TryCall({call, false, SIZE_MAX});
        TryCall({call, true, SIZE_MAX});
    }
}

TEST_P(Faults, FailingAllocationsAreReportedAndLeaveNothingOpen)
{
    if (GetParam().name == "file_log")
    {
        GTEST_SKIP()
            << "the destructors of the JSON library allocate, so that running out of memory ends the process there";
    }
    TryAllocations({});
    const size_t step = std::getenv("TARNWICKHDF_LONG_TESTS") != nullptr ? 1 : 4;
    for (size_t call = 0; call < usual.calls.size(); call += step)
    {
        TryAllocations({call, true, 0});
    }
}

// A process translates types for the first time once. gtest runs tests of this ending first, so that the parts that it
// forks for haven't done so yet.
TEST(FirstTranslationDeathTest, OfTypesThatFailsIsMadeAgain)
{
    constexpr size_t moreThanItsCalls = 100;
    const ScopedType copy(H5Tcopy(H5T_NATIVE_SCHAR));
    for (size_t call = 0; call < moreThanItsCalls && !HasFailure(); ++call)
    {
        SCOPED_TRACE(call);
        InAProcessOfItsOwn(
            [&]
            {
                Outcome outcome;
                plan = {call, true, SIZE_MAX};
                const auto translate = [&]
                {
                    const Arming arming(outcome);
                    INode::DataTypeToHDFType(TDataType::Int);
                };
                TextOf(translate);

                hid_t type = copy.get();
                EXPECT_EQ(INode::HDFTypeToDataType(type), TDataType::Char);
            });
    }
}

TEST_F(FilesTest, AskingForADataSetStopsAtTheFirstChildThatIsOne)
{
    const Operation ask = {"group_child", "a", "t",
                           [](Objects& o)
                           {
                               o.root->HasDataSet();
                           }};

    const std::vector<std::string> calls = RunWith(ask, {}).calls;

    EXPECT_EQ(std::count(calls.begin(), calls.end(), "H5Oget_info_by_name2"), 1);
}

INSTANTIATE_TEST_SUITE_P(Operations, Faults, ::testing::ValuesIn(Operations()),
                         [](auto& operation) { return operation.param.name; });

} // namespace tarnwick::hdf::tests
