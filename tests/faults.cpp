// Runs the library's operations with HDF5 calls and allocations failing in turn; faults.txt says what each failure leads
// to. A program of its own, because what it defines takes HDF5's place for the shared library.

#include "Fixture.h"

#include <tarnwickhdf/internal/ScopedId.h>

#include <hdf5.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <new>
#include <regex>
#include <sstream>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr size_t kNone = static_cast<size_t>(-1);

// What fails, counted from 0: a call, a later one, with `lasting` all later ones of the same function; an allocation.
struct Plan
{
    size_t call = kNone;
    size_t second = kNone;
    bool lasting = false;
    size_t allocation = kNone;
} plan;

struct Log
{
    std::vector<std::string> calls, failed;
    size_t allocations = 0;
}* armed = nullptr;

std::string WithoutVersion(const std::string& function)
{
    return function.substr(0, function.find_last_not_of("0123456789") + 1);
}

bool Fails(const std::string& function, Log& log)
{
    const size_t position = log.calls.size();
    log.calls.push_back(function);
    const bool again = plan.lasting && !log.failed.empty() && WithoutVersion(log.failed[0]) == WithoutVersion(function);
    if (position != plan.call && position != plan.second && !again)
    {
        return false;
    }
    log.failed.push_back(function);
    return true;
}

const void* ModuleOf(const void* address)
{
    Dl_info info = {};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

template <const char* Name, typename Signature>
struct Shim;

template <const char* Name, typename Result, typename... Arguments>
struct Shim<Name, Result(Arguments...)>
{
    __attribute__((used)) static Result Call(Arguments... arguments)
    {
        static const auto real = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, Name));
        static const void* const hdf5 = ModuleOf(reinterpret_cast<const void*>(real));
        Log* const log = std::exchange(armed, nullptr);
        // HDF5's calls of its own functions aren't the library's. A tail call of the library shows its caller here.
        const bool counts = log != nullptr && ModuleOf(__builtin_return_address(0)) != hdf5;
        const bool fails = counts && Fails(Name, *log);
        // What releases has done so when it fails: nobody could do more, and what is open then was forgotten.
        if (fails && (std::strstr(Name, "close") || std::strstr(Name, "free") || std::strstr(Name, "reclaim")))
        {
            real(arguments...);
        }
        if (fails && std::strncmp(Name, "H5E", 3) != 0)
        {
            H5Eclear2(H5E_DEFAULT);
            H5Epush2(H5E_DEFAULT, "", Name, 0, H5E_ERR_CLS, H5E_RESOURCE, H5E_CANTINIT, "injected");
        }
        armed = log;
        if constexpr (std::is_pointer_v<Result> || std::is_unsigned_v<Result>)
        {
            return fails ? Result() : real(arguments...);
        }
        else
        {
            return fails ? static_cast<Result>(-1) : real(arguments...);
        }
    }
};

// Defines HDF5's function of that name, with the parameters of its declaration.
#define SHIM(function)                                                                                                 \
    constexpr char name_##function[] = #function;                                                                      \
    __attribute__((used, noinline)) void Define_##function()                                                           \
    {                                                                                                                  \
        asm volatile(".globl " #function "\n.type " #function ", @function\n.set " #function                           \
                     ", %c0" ::"i"(&Shim<name_##function, decltype(function)>::Call));                                 \
    }
#include "hdf5_calls.inc" // a line for each function that the library imports

} // namespace

__attribute__((noinline)) void* operator new(size_t size)
{
    void* const memory = armed != nullptr && armed->allocations++ == plan.allocation ? nullptr : malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* memory) noexcept
{
    free(memory);
}
__attribute__((noinline)) void operator delete(void* memory, size_t /*size*/) noexcept
{
    free(memory);
}

namespace tarnwick::hdf::tests
{

namespace
{

struct Row
{
    int number;
    char text[4];
};

const std::filesystem::path directory =
    std::filesystem::temp_directory_path() / ("tarnwickhdf-faults-" + std::to_string(getpid()));
const std::string path = directory / "run/file.h5", newPath = directory / "run/new.h5";
const std::vector<hsize_t> rows02 = {0, 2};
const hid_t kInt = H5T_NATIVE_INT;
hid_t rowType = -1;

void MakeFile(const std::string& name)
{
    rowType = H5Tcreate(H5T_COMPOUND, sizeof(Row));
    const ScopedType text(H5Tcopy(H5T_C_S1)), variable(H5Tcopy(H5T_C_S1));
    H5Tset_size(text.get(), 4);
    H5Tset_size(variable.get(), H5T_VARIABLE);
    H5Tinsert(rowType, "number", 0, kInt);
    H5Tinsert(rowType, "text", offsetof(Row, text), text.get());
    const ScopedType variableRow(H5Tcreate(H5T_COMPOUND, sizeof(char*)));
    H5Tinsert(variableRow.get(), "text", 0, variable.get());
    const auto file = IFile::Open(name, "w", 0);
    const auto g = file->GetRoot()->CreateGroup("g");
    g->CreateGroup("sub/sub");
    g->SetAttr("unit", "a text that is longer than a short one");
    const char* text0 = "variable";
    const ScopedSpace scalar(H5Screate(H5S_SCALAR));
    const ScopedAttribute vlen(H5Acreate1(g->LocationID(), "vlen", variable.get(), scalar.get(), H5P_DEFAULT));
    H5Awrite(vlen.get(), variable.get(), &text0);
    const ScopedAttribute number(H5Acreate1(g->LocationID(), "number", kInt, scalar.get(), H5P_DEFAULT));
    std::vector<int> numbers(1024 * 512, 7);
    Row rows[] = {{1, "x"}, {2, "yy"}, {3, "zz"}};
    char text12[] = "one\0two\0four";
    g->CreateArrayFromBuffer("a", numbers.data(), TDataType::Int, 4, 1);
    g->CreateArrayFromBuffer("m", numbers.data(), TDataType::Int, 3, 2);
    g->CreateArrayFromBuffer("s", text12, TDataType::String, 3, 4);
    g->CreateExtensibleArray2D("e", TDataType::Int, 0, 3, 2, 3, 1)->AppendRowFromBuffer(rows, TDataType::Int);
    g->GetExtensibleArray2D("e")->AppendRowFromBuffer(numbers.data(), TDataType::Int);
    g->CreateExtensibleArray2D("big", TDataType::Int, 0, 512, 1024, 512, 1);
    g->CreateTableFromBuffer("t", rows, 3, rowType, 0, -1, 0);
    const char* items[] = {"first", "second"};
    g->CreateTableFromBuffer("w", items, 2, variableRow.get(), 0, -1, 0);
}

// A file open with a handle of each kind, and what an operation answers.
struct Case
{
    boost::shared_ptr<IFile> file = IFile::Open(path, "r+", 0);
    boost::shared_ptr<IGroup> g = file->GetRoot()->GetGroup("g");
    boost::shared_ptr<IArray> a = g->GetArray("a"), m = g->GetArray("m"), s = g->GetArray("s");
    boost::shared_ptr<IExtensibleArray2D> e = g->GetExtensibleArray2D("e");
    boost::shared_ptr<ITable> t = g->GetTable("t"), w = g->GetTable("w");
    int ints[12] = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21};
    char texts[12] = "abcd\0ef";
    Row rows[4] = {{6, "a"}, {7, "b"}, {8, "c"}, {9, "d"}};
    std::vector<std::string> strings = {"untouched"};
    std::ostringstream answer;

    template <typename T>
    void Keep(const T& buffer)
    {
        answer.write(reinterpret_cast<const char*>(&buffer), sizeof(buffer));
    }
};

struct Operation
{
    const char* name;
    std::function<void(Case&)> run;
};

using T = TDataType::TDataType;
// clang-format off
const Operation operations[] = {
    {"file.open.w", [](Case& c) { c.answer << IFile::Open(newPath, "w", 6)->GetAPIVersion(); }},
    {"file.open.r", [](Case& c) { c.answer << IFile::Open(newPath, "r", 0)->GetAPIVersion(); }},
    {"file.open.r+", [](Case& c) { c.answer << IFile::Open(newPath, "r+", 0)->GetAPIVersion(); }},
    {"file.open.missing", [](Case& c) { c.answer << IFile::Open(newPath + "0", "r+", 0)->GetAPIVersion(); }},
    {"file.close", [](Case& c) { c.file->Close(); }},
    {"file.exists", [](Case& c) { c.answer << IFile::FileExists(path) << IFile::IsHDF5File(path); }},
    {"file.name", [](Case& c) { c.answer << c.file->GetFileName(); }},
    {"file.counts", [](Case& c) { c.answer << c.file->GetOpenFilesCount() << c.file->GetOpenGroupsCount()
        << c.file->GetOpenDataSetsCount() << c.file->GetOpenDataTypesCount() << c.file->GetOpenAttrsCount(); }},
    {"file.cache", [](Case& c) { H5AC_cache_config_t config = c.file->GetCacheConfiguration();
        c.file->SetCacheConfiguration(config), c.file->DumpCacheStatus(true), c.answer << config.lower_hr_threshold; }},
    {"file.log", [](Case& c) { MemoryLoggerFileTracker tracker; tracker.OnOpen(c.file->FileID(), "");
        tracker.AppendToMemoryLog(1, newPath + "log"), tracker.OnClose(c.file->FileID(), ""); }},
    {"garbage", [](Case&) { GarbageCollect(); }},
    {"node.name", [](Case& c) { c.answer << c.g->GetFullName(); }},
    {"node.flush", [](Case& c) { c.g->Flush(); }},
    {"node.copy", [](Case& c) { IGroup g(*c.g); IArray a(*c.a); IExtensibleArray2D e(*c.e); ITable t(*c.t);
        g = *c.file->GetRoot(), a = *c.s, e = IExtensibleArray2D(*c.e), t = *c.w; }},
    {"attr.set.new", [](Case& c) { c.s->SetAttr("unit", "new"); }},
    {"attr.set.again", [](Case& c) { c.g->SetAttr("unit", ""); }},
    {"attr.get.unit", [](Case& c) { c.answer << c.g->GetAttr("unit"); }},
    {"attr.get.vlen", [](Case& c) { c.answer << c.g->GetAttr("vlen"); }},
    {"attr.type", [](Case& c) { c.answer << c.g->GetAttrType("number") << c.g->GetAttrType("unit"); }},
    {"attr.name", [](Case& c) { c.answer << c.g->GetAttrName(1); }},
    {"attr.count", [](Case& c) { c.answer << c.g->GetNumberOfAttrs(); }},
    {"attr.list", [](Case& c) { c.answer << c.g->ListAttrs().at(2); }},
    {"attr.has", [](Case& c) { c.answer << c.g->HasAttr("unit"); }},
    {"attr.delete", [](Case& c) { c.g->DelAttr("unit"); }},
    {"group.create.new", [](Case& c) { c.g->CreateGroup("new/new"); }},
    {"group.create.again", [](Case& c) { c.g->CreateGroup("sub/sub"); }},
    {"group.get", [](Case& c) { c.g->GetGroup("sub/sub"); }},
    {"group.has", [](Case& c) { c.answer << c.g->HasGroup("sub/sub"); }},
    {"group.delete", [](Case& c) { c.g->DelGroup("sub"); }},
    {"group.list.groups", [](Case& c) { c.answer << c.g->ListGroups().size(); }},
    {"group.list.arrays", [](Case& c) { c.answer << c.g->ListArrays().size(); }},
    {"group.list.extensible", [](Case& c) { c.answer << c.g->ListExtensibleArrays2D().size(); }},
    {"group.list.tables", [](Case& c) { c.answer << c.g->ListTables().size(); }},
    {"group.child", [](Case& c) { c.answer << c.g->GetChildType(0) << c.g->GetChildName(0); }},
    {"group.count", [](Case& c) { c.answer << c.g->GetNumberOfChildren(); }},
    {"group.kinds", [](Case& c) { c.answer << c.g->GetNumberOfGroups() << c.g->HasDataSet(); }},
    {"create.array.new", [](Case& c) { c.g->CreateArray("new", T::Int, 0); }},
    {"create.array.again", [](Case& c) { c.g->CreateArray("a", T::Int, 0); }},
    {"create.buffer.new", [](Case& c) { c.g->CreateArrayFromBuffer("new", c.ints, T::Int, 3, 4); }},
    {"create.buffer.packed", [](Case& c) { c.g->SetDefaultCompression(6);
        c.g->CreateArrayFromBuffer("new", c.ints, T::Int, 12, 1); }},
    {"create.buffer.text", [](Case& c) { c.g->CreateArrayFromBuffer("new", c.texts, T::String, 3, 4); }},
    {"create.buffer.again", [](Case& c) { c.g->CreateArrayFromBuffer("a", c.ints, T::Int, 4, 1); }},
    {"create.buffer.shape", [](Case& c) { c.g->CreateArrayFromBuffer("a", c.ints, T::Int, 4, 3); }},
    {"create.extensible", [](Case& c) { c.g->CreateExtensibleArray2D("new", T::Int, 0, 9, 4, 9, 1); }},
    {"create.table.empty", [](Case& c) { c.answer << c.g->CreateTable("new", rowType)->GetColumnDataType(1); }},
    {"create.table.rows", [](Case& c) { c.answer << c.g->CreateTable("new", 4, rowType, 6)->GetColumnDataType(1); }},
    {"create.rows.new", [](Case& c) { c.g->CreateTableFromBuffer("new", c.rows, 4, rowType, 0, -1, 2); }},
    {"create.rows.again", [](Case& c) { c.g->CreateTableFromBuffer("t", c.rows, 4, rowType, 0, -1, 0); }},
    {"create.some.new", [](Case& c) { c.g->CreateTableFromSelection("new", c.rows, 4, rows02, rowType, 0, -1, 0); }},
    {"create.some.again", [](Case& c) { c.g->CreateTableFromSelection("t", c.rows, 4, rows02, rowType, 0, -1, 0); }},
    {"get.array", [](Case& c) { c.answer << c.g->GetArray("a")->GetType() << c.g->GetArray("a")->GetLength(); }},
    {"get.extensible", [](Case& c) { c.answer << c.g->GetExtensibleArray2D("e")->GetNumberOfRows(); }},
    {"get.big", [](Case& c) { c.answer << c.g->GetExtensibleArray2D("big")->GetNumberOfColumns(); }},
    {"get.table", [](Case& c) { c.answer << c.g->GetTable("t")->GetColumnDataType(1); }},
    {"has.array", [](Case& c) { c.answer << c.g->HasArray("a"); }},
    {"has.table", [](Case& c) { c.answer << c.g->HasTable("a"); }},
    {"has.extensible", [](Case& c) { c.answer << c.g->HasExtensibleArray2D("e"); }},
    {"delete.array", [](Case& c) { c.g->DelArray("a"); }},
    {"delete.extensible", [](Case& c) { c.g->DelExtensibleArray2D("e"); }},
    {"array.reopen", [](Case& c) { c.a->ReOpen(c.g->LocationID(), "a"); }},
    {"array.set.same", [](Case& c) { c.a->SetFromBuffer(c.ints, T::Undefined, 4, 1); }},
    {"array.set.text", [](Case& c) { c.s->SetFromBuffer(c.texts, T::Undefined, 3, 4); }},
    {"array.set.shape", [](Case& c) { c.a->SetFromBuffer(c.ints, T::Int, 4, 3); }},
    {"array.read.a", [](Case& c) { c.a->GetToBuffer(c.ints, T::Undefined), c.Keep(c.ints); }},
    {"array.read.s", [](Case& c) { c.s->GetToBuffer(c.texts, T::Undefined), c.Keep(c.texts); }},
    {"array.slab", [](Case& c) { c.a->GetFromHyperslab(c.ints, 0, 2, 2, T::Int), c.Keep(c.ints); }},
    {"array.slab.2d", [](Case& c) { size_t size[] = {2, 1}, start[] = {0, 1}, stride[] = {1, 1};
        c.m->GetFromHyperslab(c.ints, 2, 2, start, stride, size, T::Int), c.Keep(c.ints); }},
    {"array.spread", [](Case& c) { c.a->GetToMemoryHyperslab(c.ints, 1, 2, 4, T::Int), c.Keep(c.ints); }},
    {"array.strings", [](Case& c) { const hid_t type = c.s->GetTypeID();
        utils::ReadStringDataSet(c.strings, c.s->LocationID(), type, type, 3, 4), c.answer << c.strings.at(2); }},
    {"extensible.resize", [](Case& c) { const bool done = c.e->Resize(4, 3) == 0;
        if (done != (c.e->GetNumberOfRows() == 4)) ADD_FAILURE(); }},
    {"extensible.append.row", [](Case& c) { c.e->AppendRowFromBuffer(c.ints, T::Int); }},
    {"extensible.append.column", [](Case& c) { c.e->AppendColumnFromBuffer(c.ints, T::Int); }},
    {"extensible.read.row", [](Case& c) { c.e->ReadRowToBuffer(1, c.ints, T::Int), c.Keep(c.ints); }},
    {"extensible.read.column", [](Case& c) { c.e->ReadColumnToBuffer(1, c.ints, T::Int), c.Keep(c.ints); }},
    {"extensible.write.row", [](Case& c) { c.e->WriteRowFromBuffer(1, c.ints, T::Int); }},
    {"extensible.write.column", [](Case& c) { c.e->WriteColumnFromBuffer(1, c.ints, T::Int); }},
    {"table.reopen", [](Case& c) { c.t->ReOpen(c.g->LocationID(), "t"); }},
    {"table.set.same", [](Case& c) { c.t->SetFromBuffer(c.rows, 3, -1, 0); }},
    {"table.set.all", [](Case& c) { c.t->SetFromBuffer(c.rows, 4, rowType, 6); }},
    {"table.set.some", [](Case& c) { c.t->SetFromSelection(c.rows, 4, rows02, rowType, 0, 0); }},
    {"table.read", [](Case& c) { c.t->GetToBuffer(c.rows, -1), c.Keep(c.rows); }},
    {"table.slab", [](Case& c) { c.t->GetFromHyperslab(c.rows, 0, 2, 2, rowType), c.Keep(c.rows); }},
    {"table.strings.t", [](Case& c) { c.t->FeedStringVector(c.strings, 1), c.answer << c.strings.at(1); }},
    {"table.strings.w", [](Case& c) { c.w->FeedStringVector(c.strings, 0), c.answer << c.strings.at(1); }},
    {"table.column", [](Case& c) { c.answer << c.t->GetColumnName(1); }},
    {"table.to", [](Case& c) { c.t->GetToSelection(c.rows, 4, -1, {0, 1, 2}), c.Keep(c.rows); }},
    {"table.from", [](Case& c) { c.t->GetFromSelection(c.rows, -1, rows02), c.Keep(c.rows); }},
    {"table.fromto", [](Case& c) { c.t->GetFromToSelection(c.rows, 4, -1, rows02, rows02), c.Keep(c.rows); }},
    {"table.runto", [](Case& c) { c.t->GetFromHyperslabToSelection(c.rows, 4, rowType, 1, rows02), c.Keep(c.rows); }},
    {"table.put", [](Case& c) { c.t->SetToHyperslabFromSelection(c.rows, 4, rowType, 1, rows02); }},
};
const Operation nothing = {"", [](Case&) {}};
// clang-format on

// The names and values of all that is in the file.
std::string Contents(hid_t file)
{
    const auto add = [](hid_t root, const char* name, const H5O_info_t* info, void* data)
    {
        std::string& contents = *static_cast<std::string*>(data) += name;
        if (info->type == H5O_TYPE_DATASET && std::strcmp(name, "g/w") != 0)
        {
            const ScopedDataSet dataSet(H5Dopen1(root, name));
            const ScopedSpace space(H5Dget_space(dataSet.get()));
            const ScopedType type(H5Dget_type(dataSet.get()));
            const hssize_t elements = H5Sget_simple_extent_npoints(space.get());
            std::string values(static_cast<size_t>(elements) * H5Tget_size(type.get()), '\0');
            H5Dread(dataSet.get(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
            contents += values;
        }
        return herr_t(0);
    };
    std::string contents;
    H5Ovisit1(file, H5_INDEX_NAME, H5_ITER_INC, add, &contents);
    return contents;
}

struct Rule
{
    std::regex functions, words;
    std::string message; ///< "=" is another answer; "?" in front, that a single failure is made up for; "~", each.
};

std::vector<Rule> RulesFor(const std::string& operation)
{
    std::vector<Rule> rules;
    std::ifstream table(TARNWICKHDF_FAULTS);
    for (std::string names, functions, message; table >> names >> functions;)
    {
        std::getline(table >> std::ws, message);
        if (std::regex_match(operation, std::regex(names)))
        {
            const std::regex words(message.substr(message.find_first_not_of("?~")));
            rules.push_back({std::regex(functions), words, message});
        }
    }
    return rules;
}

struct Outcome
{
    Log log;
    std::string words, text, answer, contents, next;
    bool badAlloc = false;
    IdCounts idsBefore, idsAfter;
};

std::string Words(const std::string& text)
{
    const size_t traceback = text.find(":\n");
    return std::regex_replace(text.substr(0, traceback) + (traceback < text.size() ? ":" : ""),
                              std::regex(directory.string() + "/run/"), "");
}

std::string TextOf(const Operation& operation, Case& c, bool& badAlloc)
{
    std::string text;
    try
    {
        operation.run(c);
        armed = nullptr;
    }
    catch (const std::runtime_error& failure)
    {
        armed = nullptr;
        text = failure.what();
    }
    catch (const std::bad_alloc&)
    {
        armed = nullptr;
        badAlloc = true;
    }
    return text;
}

// Makes a fresh file, runs the operation with the plan's failures, then once more without any.
Outcome RunWith(const Operation& operation, const Plan& faults)
{
    std::filesystem::remove_all(directory / "run");
    std::filesystem::create_directory(directory / "run");
    std::filesystem::copy_file(directory / "file.h5", path);
    std::filesystem::copy_file(directory / "file.h5", newPath);
    Outcome outcome;
    outcome.idsBefore = IdCounts::Now();
    {
        Case c;
        c.answer.exceptions(std::ios::badbit);
        plan = faults;
        armed = &outcome.log;
        outcome.text = TextOf(operation, c, outcome.badAlloc);
        outcome.words = Words(outcome.text);
        outcome.answer = c.answer.str();
        EXPECT_TRUE(outcome.words.empty() || c.strings.at(0) == "untouched");
        EXPECT_TRUE(c.file->IsClosed() || (c.a->LocationID() > 0) == (c.a->GetTypeID() > 0));
        EXPECT_TRUE(c.file->IsClosed() || (c.t->LocationID() > 0) == (c.t->GetCompoundTypeID() > 0));
        const ScopedFile closed(c.file->IsClosed() ? H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT) : -1);
        outcome.contents = Contents(c.file->IsClosed() ? closed.get() : c.file->FileID());
        c.answer.clear();
        c.answer.str("");
        outcome.next = Words(TextOf(operation, c, outcome.badAlloc));
        outcome.next += c.answer.str();
        c.g.reset(), c.a.reset(), c.m.reset(), c.s.reset(), c.e.reset(), c.t.reset(), c.w.reset();
        EXPECT_TRUE(c.file->IsClosed() || c.file->GetOpenObjectsCount() == 2);
    }
    outcome.idsAfter = IdCounts::Now();
    return outcome;
}

bool IsKnown(const std::vector<Rule>& rules, const std::string& words)
{
    return std::any_of(rules.begin(), rules.end(), [&](const Rule& r) { return std::regex_match(words, r.words); });
}

const bool isLong = std::getenv("TARNWICKHDF_LONG_TESTS") != nullptr;

class Faults : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        std::filesystem::create_directory(directory);
        MakeFile(directory / "file.h5");
        std::cout.setstate(std::ios::failbit);
    }

    static void TearDownTestSuite()
    {
        std::cout.clear();
        std::filesystem::remove_all(directory);
    }

    // What one failing call, and all later ones of its function, lead to.
    void Judge(const Plan& faults, const Outcome& outcome)
    {
        const std::string& function = outcome.log.failed[0];
        const auto rule = std::find_if(rules.begin(), rules.end(),
                                       [&](const Rule& r) { return std::regex_match(function, r.functions); });
        const std::string message = rule == rules.end() ? "" : rule->message;
        if (outcome.words.empty())
        {
            ++silent;
            EXPECT_TRUE(message.empty() || message == "=" || message[0] == '~' ||
                        (message[0] == '?' && !faults.lasting));
            EXPECT_TRUE(message == "=" || outcome.answer == usual.answer);
            EXPECT_TRUE(message == "=" || outcome.contents == usual.contents);
            return;
        }
        ++thrown;
        const bool checked = !message.empty() && message != "=";
        EXPECT_TRUE(checked ? std::regex_match(outcome.words, rule->words) : IsKnown(rules, outcome.words));
        const bool hasTraceback = outcome.words.size() < outcome.text.size() && outcome.words.back() == ':';
        EXPECT_TRUE(!checked || !hasTraceback || outcome.text.find("injected") != std::string::npos);
    }

    // No id is open, nothing that is only read has changed, and the same operation works afterwards.
    void JudgeState(const Outcome& outcome)
    {
        EXPECT_EQ(outcome.idsBefore, outcome.idsAfter);
        EXPECT_TRUE(!readsOnly || outcome.contents == usual.contents);
        const bool worked = outcome.next == usual.next || outcome.next == usual.answer;
        EXPECT_TRUE(worked || (!readsOnly && IsKnown(rules, outcome.next)));
    }

    void Learn(const Operation& operation)
    {
        rules = RulesFor(operation.name);
        usual = RunWith(operation, {});
        EXPECT_EQ(usual.words, "") << operation.name;
        readsOnly = usual.contents == RunWith(nothing, {}).contents;
    }

    std::vector<Rule> rules;
    Outcome usual;
    bool readsOnly = false;
    size_t calls = 0, injected = 0, silent = 0, thrown = 0;
};

// What the first translation learns stays for the whole process, so each failure gets a process of its own.
TEST(FirstTranslation, AFailingCallInItSpoilsNoneAfterIt)
{
    hid_t type = H5T_NATIVE_LONG;
    constexpr int kRight = 0, kWrong = 1, kNothingFailed = 2;
    for (int call = 0, result = kRight; result != kNothingFailed; ++call)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            Log log;
            plan.call = static_cast<size_t>(call);
            armed = &log;
            try
            {
                INode::HDFTypeToDataType(type);
            }
            catch (const std::runtime_error&)
            {
            }
            armed = nullptr;
            const bool isRight = INode::HDFTypeToDataType(type) == T::Int64 && INode::DataTypeToHDFType(T::Int) == kInt;
            _exit(log.failed.empty() ? kNothingFailed : isRight ? kRight : kWrong);
        }
        int status = 0;
        waitpid(child, &status, 0);
        result = WIFEXITED(status) ? WEXITSTATUS(status) : kNothingFailed;
        EXPECT_TRUE(WIFEXITED(status) && result != kWrong) << "call " << call;
    }
}

TEST_F(Faults, EveryFailingCallIsReportedInItsWordsOrMadeUpFor)
{
    for (const Operation& operation : operations)
    {
        Learn(operation);
        calls += usual.log.calls.size();
        for (size_t call = 0; call < usual.log.calls.size(); ++call)
        {
            for (const bool lasting : {false, true})
            {
                const Plan faults = {call, kNone, lasting, kNone};
                SCOPED_TRACE(std::string(operation.name) + ", call " + std::to_string(call) + " " +
                             usual.log.calls[call] + (lasting ? " and later" : ""));
                const Outcome outcome = RunWith(operation, faults);
                SCOPED_TRACE(outcome.text + "|" + outcome.next);
                Judge(faults, outcome);
                JudgeState(outcome);
                injected += outcome.log.failed.size();
            }
            for (size_t second = call + 1; isLong && second < usual.log.calls.size(); ++second)
            {
                SCOPED_TRACE(std::string(operation.name) + ", calls " + std::to_string(call) + ", " +
                             std::to_string(second));
                const Outcome outcome = RunWith(operation, {call, second, false, kNone});
                EXPECT_TRUE(outcome.words.empty() || IsKnown(rules, outcome.words)) << outcome.text;
                JudgeState(outcome);
                injected += outcome.log.failed.size();
            }
        }
    }
    std::cerr << std::size(operations) << " operations, " << calls << " calls, " << injected << " injected failures, "
              << thrown << " exceptions checked, " << silent << " silent by rule\n";
}

TEST_F(Faults, WantOfMemoryReachesTheCallerAndLeavesNothingOpen)
{
    for (const Operation& operation : operations)
    {
        Learn(operation);
        const std::vector<std::string> names = usual.log.calls;
        // Without a failing call, then with functions that fail from one of their calls on.
        for (size_t call = names.size() + 1; call-- > 0;)
        {
            const bool alone = call == names.size();
            if (!alone && !isLong && call % 8 != 0)
            {
                continue;
            }
            for (size_t allocation = 0;; ++allocation)
            {
                SCOPED_TRACE(std::string(operation.name) + ", allocation " + std::to_string(allocation) +
                             (alone ? "" : ", call " + std::to_string(call) + " " + names[call]));
                const Outcome outcome = RunWith(operation, {alone ? kNone : call, kNone, true, allocation});
                JudgeState(outcome);
                if (outcome.log.allocations <= allocation)
                {
                    break;
                }
                ++injected;
                // A destructor keeps it to itself, a failing call may be told instead.
                EXPECT_TRUE(outcome.badAlloc || !alone || std::strncmp(operation.name, "file.open", 9) == 0);
            }
        }
    }
    std::cerr << std::size(operations) << " operations, " << injected << " failed allocations\n";
}

} // namespace

} // namespace tarnwick::hdf::tests
