// The engine of random use: each step is done by the library in one file and by plain HDF5 in another, its twin.
//
// What is varied, by the seed, the number of the step and the name of an argument: the step and its arguments. A group,
// an array, an extensible array and a table stay open, whatever other steps do to their names, until a step opens
// others, opens both files anew, or fails to replace them.
// What is held fixed: the names; for a seed, the type of a table's rows. The library opens the twin's nodes, too.
// What is compared after each step: whether it failed, in which words if they are the library's own, the caller's
// buffer, what the library tells of the name, and chunk and compression there. At the end h5dump says the same of both
// files, and no id is open.
//
// One case again: `tarnwickhdf_random --gtest_filter='*/3'` plays seed 3 and tells the step that fails; a crash leaves it
// in the file `step` of the test's folder. TARNWICKHDF_LONG_TESTS in the environment plays 60 seeds.

#include "Fixture.h"
#include "Tell.h"

#include <numeric>
#include <random>
#include <stdexcept>

namespace tarnwick::hdf::tests
{

using namespace std::string_literals;
using nlohmann::json;
using Act = std::function<void()>;

// The names of each class. Those of groups end with paths.
const Names kGroups = {"a", "\\", "\xff\xfe", "a/b", "a//\"/", "./a", "/"};
const Names kArrays = {"Z\xc3\xbcrich", "new\nline", "%s", "a/c"};
const Names kExtensibles = {"a b", "..", std::string(99, 'x'), "a/d"};
const Names kTables = {"\"", "\1", "__vorl_", "a/e"};
const Names kAnyClass = {kGroups[0], kArrays[0], kExtensibles[0], kTables[0]};
const std::string kLongText(60000, 'x');
const std::string kTooLongText(70000, 'x'); // for an attribute
const Names kTexts = {"", "\0"s, "a", "ab\0\0"s, "a\0b"s, "Z\xfcrich", "Z\xc3\xbcrich", kLongText, kTooLongText};
const std::vector<int> kNumbers = {5, 5, 5, 14, 14, 14, 1, 2, 3, 4, 6, 7, 8, 13}; // TDataType's
// Of 16 and 4 bytes, and of one word more than the library copies by functions of their own.
const char* const kRowTypes[] = {
    R"(H5T_COMPOUND { H5T_IEEE_F64LE "a"; H5T_IEEE_F64LE "b"; })", R"(H5T_COMPOUND { H5T_IEEE_F32LE "a"; })",
    R"(H5T_COMPOUND { H5T_STRING { STRSIZE 128; STRPAD H5T_STR_NULLPAD; CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; } "a";
                      H5T_IEEE_F64LE "b"; })"};
constexpr auto kReplace = json::error_handler_t::replace;
constexpr int kBufferSize = 1 << 18;
constexpr hsize_t kMany = 5000;
constexpr auto kDouble = TDataType::Double;
const char* const kAnyWords = "a failure";

// A node that is open in both files, with its name; none has no name.
template <typename Class>
struct Held
{
    Names name;
    boost::shared_ptr<Class> library;
    boost::shared_ptr<Class> twin;
    int level = 0; ///< Of an array: the compression of what replaces it.

    hid_t Plain() const { return twin->LocationID(); }
    ScopedSpace Space() const { return ScopedSpace(H5Dget_space(Plain())); }
};

void Must(bool can, const std::string& words = kAnyWords)
{
    if (!can)
    {
        throw std::runtime_error(words);
    }
}

// Some versions of HDF5 let the row behind the end pass.
ScopedSpace Picked(ScopedSpace space, const Dims& rows)
{
    const auto extent = static_cast<hsize_t>(H5Sget_simple_extent_npoints(space.get()));
    Must(std::all_of(rows.begin(), rows.end(), [&](hsize_t row) { return row < extent; }));
    Must(H5Sselect_elements(space.get(), H5S_SELECT_SET, rows.size(), rows.data()) >= 0);
    return space;
}

ScopedSpace Slab(ScopedSpace space, const Dims& start, const Dims& stride, const Dims& count)
{
    Must(H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, start.data(), stride.data(), count.data(), nullptr) >= 0);
    return space;
}

struct Random : HdfTest, ::testing::WithParamInterface<unsigned int>
{
    Random()
    {
        OpenFiles("w");
        AddFilesAndGroups();
        AddNode("Group", kGroups, group, &IGroup::GetGroup);
        AddNode("Array", kArrays, array, &IGroup::GetArray);
        AddNode("ExtensibleArray2D", kExtensibles, extensible, &IGroup::GetExtensibleArray2D);
        AddNode("Table", kTables, table, &IGroup::GetTable);
        AddArrays();
        AddExtensibleArrays();
        AddTables();
        AddMovesOfRows();
    }

    struct Step
    {
        std::string operation;
        const Names* names; ///< It acts at one of these.
        Act library;
        Act plain;
    };

    void Play(size_t number)
    {
        step = number;
        const Step& chosen = steps[Choose("step", steps.size())];
        if (!chosen.names->empty())
        {
            told = "step " + std::to_string(number) + ": " + chosen.operation;
            std::ofstream(Path("step")) << told;
            at = SomeName(*chosen.names);
            Compare(chosen);
        }
    }

    void Compare(const Step& chosen)
    {
        std::iota(libraryBuffer.begin(), libraryBuffer.end(), Arg<double>("buffer from", {0, 17, 42}));
        plainBuffer = libraryBuffer;
        buffer = libraryBuffer.data();
        const std::string words = WithoutTraceback(TextOf(chosen.library));
        buffer = plainBuffer.data();
        const std::string expected = WithoutTraceback(TextOf(chosen.plain));
        ASSERT_EQ(expected == kAnyWords && !words.empty() ? kAnyWords : words, expected) << told;
        const json there = tell::Child(*root, at);
        const json expectedThere = tell::Child(*twinRoot, at);
        ASSERT_EQ(Text(json::diff(expectedThere, there)), "[]") << told << Text(json::diff(there, expectedThere));
        const ScopedDataSet dataSet = DataSetIn(root->LocationID());
        ASSERT_EQ(StorageOf(dataSet.get()), StorageOf(DataSetIn(Twin()).get())) << told;
        const auto values = std::mismatch(libraryBuffer.begin(), libraryBuffer.end(), plainBuffer.begin());
        ASSERT_EQ(values.first - libraryBuffer.begin(), kBufferSize) << "is the first to differ, " << told;
    }

    static std::string WithoutTraceback(const std::string& text) { return text.substr(0, text.find(":\n")); }

    static std::string Text(const json& value) { return value.dump(-1, ' ', true, kReplace).substr(0, 500); }

    // Where a data set lies and how small deflate makes it isn't HDF5's to say.
    void CompareDumps()
    {
        CloseFiles();
        const std::string compare = "cd " + Path("") + R"(
            for side in library plain
            do h5dump -p $side.h5 > $side.txt && sed -i -E '1d; /OFFSET|:1 COMPRESSION/d' $side.txt || exit
            done
            diff -a library.txt plain.txt)";
        EXPECT_EQ(std::system(compare.c_str()), 0) << "the difference is above";
    }

    // Choosing. Within a step the same question has the same answer.

    size_t Choose(const std::string& what, size_t end) const
    {
        const std::string question = std::to_string(GetParam()) + " " + std::to_string(step) + " " + what;
        std::seed_seq seeds(question.begin(), question.end());
        return std::mt19937(seeds)() % end;
    }

    bool Chance(size_t oneIn, const std::string& what) const { return Choose(what, oneIn) == 0; }

    template <typename Value>
    Value Arg(const std::string& what, const std::vector<Value>& values)
    {
        const Value& value = values[Choose(what, values.size())];
        const std::string answer = ", " + what + " " + Text(value);
        told += told.find(answer) == std::string::npos ? answer : "";
        return value;
    }

    // Mostly the first, sometimes one of another class.
    std::string SomeName(const Names& names)
    {
        if (names.size() > 1 && Chance(10, "other class"))
        {
            return Arg("at", kAnyClass);
        }
        return Arg("at", Chance(3, "other name") ? names : Names{names[0]});
    }

    // Few rows or as many as there are, in another order, mostly below `end`.
    Dims Rows(const std::string& what, hsize_t count, hsize_t end)
    {
        const hsize_t wrap = std::max<hsize_t>(end + Arg<hsize_t>(what + " outside", {0, 0, 0, 1}), 1);
        Dims rows(Arg("number of " + what,
                      count > kMany ? Dims{count, count, count - 60, count / 20} : Dims{0, 1, 2, count}));
        hsize_t row = Choose("first of " + what, wrap);
        for (hsize_t& each : rows)
        {
            each = row;
            row = (row + 77777) % wrap;
        }
        return rows;
    }

    unsigned int Size(const std::string& what) { return Arg<unsigned int>(what, {0, 1, 1, 2, 3, 5, 12}); }
    int Few(const std::string& what) { return Arg<int>(what, {0, 0, 1, 1, 2, 3}); }
    hsize_t FewRows(const std::string& what) { return static_cast<hsize_t>(Few(what)); }
    int Level() { return Arg<int>("level", {0, 0, 4, -1}); }
    int SettledLevel() { return Level() < 0 ? fileLevel : Level(); }
    std::string Value() { return Arg("value", kTexts); }
    H5T_cset_t Charset() { return Arg<H5T_cset_t>("charset", {H5T_CSET_ASCII, H5T_CSET_UTF8}); }

    // Files, groups, and nodes of any class.

    void OpenFiles(const char* mode)
    {
        fileLevel = Arg<int>("the file's level", {0, 0, 4});
        charset = H5T_CSET_UTF8;
        library = IFile::Open(Path("library.h5"), mode, fileLevel);
        twin = IFile::Open(Path("plain.h5"), mode, 0);
        root = library->GetRoot();
        twinRoot = twin->GetRoot();
    }

    void CloseFiles()
    {
        group = {};
        array = {};
        extensible = {};
        table = {};
        library->Close();
        twin->Close();
    }

    // The steps that are added from here on act at one of these names.
    void At(const Names& names) { next.names = &names; }

    void Add(const std::string& operation, const Act& byLibrary)
    {
        next.operation = operation;
        next.library = byLibrary;
    }

    void Plainly(const Act& byPlain, size_t often = 4)
    {
        next.plain = byPlain;
        steps.insert(steps.end(), often, next);
    }

    void AddFilesAndGroups()
    {
        At(rootName);
        Add("Reopen", [&] { CloseFiles(); });
        Plainly([&] { OpenFiles("r+"); }, 1);
        Add("SetEncoding", [&] { library->SetEncoding(Charset()); });
        Plainly([&] { charset = Charset(); });
        At(kGroups);
        Add("CreateGroup", [&] { root->CreateGroup(at); });
        Plainly([&] { MakeGroups(); });
    }

    // The library makes no level "." either, and nothing at "/".
    void MakeGroups() const
    {
        const ScopedPropertyList list(H5Pcreate(H5P_LINK_CREATE));
        H5Pset_create_intermediate_group(list.get(), 1);
        Must(at != "./a");
        const ScopedGroup made(H5Gcreate2(Twin(), at.c_str(), list.get(), H5P_DEFAULT, H5P_DEFAULT));
        Must(ScopedGroup(H5Gopen2(Twin(), at.c_str(), H5P_DEFAULT)).get() >= 0);
    }

    template <typename Class, typename Get>
    void AddNode(const std::string& kind, const Names& names, Held<Class>& node, Get get)
    {
        At(names);
        Add("Get" + kind, [this, &node, get] { node.library = (root.get()->*get)(at); });
        Plainly([this, &node, get] { Keep(node, get); });
        Add("DelGroup", [&] { root->DelGroup(at); });
        Plainly([&] { Must(Unlink()); });
        At(node.name);
        Add("SetAttr", [&] { node.library->SetAttr(at, Value()); });
        Plainly([&] { SetAttribute(node.Plain()); });
        Add("DelAttr", [&] { node.library->DelAttr(at); });
        Plainly([&] { Must(H5Adelete(node.Plain(), at.c_str()) >= 0); });
    }

    // Opens the twin of what the library has made or opened.
    template <typename Class, typename Get>
    void Keep(Held<Class>& node, Get get, int level = 0)
    {
        // g++ 10 would lose what a braced list has made so far when a later part of it throws.
        const boost::shared_ptr<Class> itsTwin = (twinRoot.get()->*get)(at);
        node = {{at}, node.library, itsTwin, level};
    }

    void SetAttribute(hid_t object)
    {
        const ScopedType type = TextType(std::max<size_t>(Value().size(), 1), charset);
        H5Tset_strpad(type.get(), H5T_STR_NULLTERM);
        H5Adelete(object, at.c_str());
        const ScopedAttribute made(H5Acreate2(object, at.c_str(), type.get(), Flat(1).get(), H5P_DEFAULT, H5P_DEFAULT));
        Must(H5Awrite(made.get(), type.get(), Value().c_str()) >= 0);
    }

    hid_t Twin() const { return twinRoot->LocationID(); }
    ScopedDataSet DataSetIn(hid_t side) const { return ScopedDataSet(H5Dopen2(side, at.c_str(), H5P_DEFAULT)); }
    bool IsDataSet() const { return DataSetIn(Twin()).get() >= 0; }
    bool Unlink() const { return H5Ldelete(Twin(), at.c_str(), H5P_DEFAULT) >= 0; }

    static void Compress(hid_t list)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, 4);
    }

    ScopedDataSet MakeTwin(hid_t type, const Dims& extent, const Dims& chunk, int level, const Dims& maximum = {}) const
    {
        const auto addToList = level > 0 ? &Compress : nullptr;
        ScopedDataSet made = Make(Twin(), at, {type, extent, chunk, maximum, addToList, H5S_NULL});
        Must(made.get() >= 0);
        return made;
    }

    // Arrays.

    void AddArrays()
    {
        At(kArrays);
        Add("CreateArray", [&] { array.library = root->CreateArray(at, Number(), 0); });
        Plainly([&] { MakeEmptyArray(); });
        Add("CreateArrayFromBuffer",
            [&] { array.library = root->CreateArrayFromBuffer(at, buffer, Element(), Length(), Components()); });
        Plainly([&] { StoreArray(IsDataSet() ? twinRoot->GetArray(at) : nullptr, IsDataSet() ? 0 : fileLevel); }, 8);
        At(array.name);
        Add("SetFromBuffer", [&] { array.library->SetFromBuffer(buffer, Element(), Length(), Components()); });
        Plainly([&] { StoreArray(array.twin, array.level); });
    }

    TDataType::TDataType Number() { return static_cast<TDataType::TDataType>(Arg("type", kNumbers)); }
    bool IsText() { return Arg<std::string>("elements", {"numbers", "numbers", "numbers", "texts"}) == "texts"; }
    TDataType::TDataType Element() { return IsText() ? TDataType::String : Number(); }
    hsize_t Length() { return Size("length"); }
    hsize_t Components() { return IsText() ? 12 : Arg<hsize_t>("components", {0, 1, 1, 1, 1, 2}); }

    void MakeEmptyArray()
    {
        Must(!IsDataSet() || Unlink());
        MakeTwin(INode::DataTypeToHDFType(Number()), {}, {}, 0);
        Keep(array, &IGroup::GetArray, fileLevel);
    }

    // In the array that is there if type and shape are the same, whatever has its name by now; else in its place.
    void StoreArray(boost::shared_ptr<IArray> stored, int level)
    {
        const hid_t number = INode::DataTypeToHDFType(Number());
        const ScopedType type = IsText() ? TextType(Components(), charset) : ScopedType(H5Tcopy(number));
        const bool fits = stored && stored->GetType() == Element() && stored->GetLength() == Length() &&
                          stored->GetComponents() == Components();
        if (!fits)
        {
            array.name.clear();
            if (stored)
            {
                Unlink();
            }
            const Dims extent = IsText() || Components() == 1 ? Dims{Length()} : Dims{Length(), Components()};
            MakeTwin(type.get(), extent, extent, level);
            stored = twinRoot->GetArray(at);
        }
        Must(H5Dwrite(stored->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer) >= 0);
        array = {{at}, array.library, stored, level};
    }

    // Extensible arrays. Lines are rows along axis 0 and columns along axis 1.

    void AddExtensibleArrays()
    {
        At(kExtensibles);
        Add("CreateExtensibleArray2D",
            [&] { Take(root->CreateExtensibleArray2D(at, Number(), Size("rows"), Size("columns"), 3, 2, Level())); });
        Plainly([&] { MakeExtensible(); });
        At(extensible.name);
        Add("Resize", [&] { Lines().Resize(Size("rows"), Size("columns")); });
        Plainly([&] { SetExtent({Size("rows"), Size("columns")}); });
        Add("AppendRows", [&] { Lines().AppendRowsFromBuffer(Few("count"), buffer, kDouble); });
        Plainly([&] { AppendLines(0); });
        Add("AppendColumns", [&] { Lines().AppendColumnsFromBuffer(Few("count"), buffer, kDouble); });
        Plainly([&] { AppendLines(1); });
        Add("ReadRows", [&] { Lines().ReadRowsToBuffer(Few("first"), Few("count"), buffer, kDouble); });
        Plainly([&] { MoveLines(&H5Dread, 0, First()); });
        Add("ReadColumns", [&] { Lines().ReadColumnsToBuffer(Few("first"), Few("count"), buffer, kDouble); });
        Plainly([&] { MoveLines(&H5Dread, 1, First()); });
        Add("WriteRows", [&] { Lines().WriteRowsFromBuffer(Few("first"), Few("count"), buffer, kDouble); });
        Plainly([&] { MoveLines(&H5Dwrite, 0, First()); });
        Add("WriteColumns", [&] { Lines().WriteColumnsFromBuffer(Few("first"), Few("count"), buffer, kDouble); });
        Plainly([&] { MoveLines(&H5Dwrite, 1, First()); });
    }

    IExtensibleArray2D& Lines() const { return *extensible.library; }

    // That a name was taken is told by the id alone.
    void Take(const boost::shared_ptr<IExtensibleArray2D>& made)
    {
        Must(made->LocationID() >= 0);
        extensible.library = made;
    }

    void MakeExtensible()
    {
        const hid_t type = INode::DataTypeToHDFType(Number());
        MakeTwin(type, {Size("rows"), Size("columns")}, {3, 2}, SettledLevel(), {H5S_UNLIMITED, H5S_UNLIMITED});
        Keep(extensible, &IGroup::GetExtensibleArray2D);
    }

    void SetExtent(const Dims& extent) const { Must(H5Dset_extent(extensible.Plain(), extent.data()) >= 0); }

    void AppendLines(size_t axis)
    {
        Dims extent = ExtentOf(extensible.Plain());
        const hsize_t first = extent[axis];
        extent[axis] += FewRows("count");
        SetExtent(extent);
        MoveLines(&H5Dwrite, axis, first);
    }

    template <typename Way>
    void MoveLines(Way readOrWrite, size_t axis, hsize_t first)
    {
        const Dims extent = ExtentOf(extensible.Plain());
        Dims start = {0, 0};
        Dims count = extent;
        start[axis] = first;
        count[axis] = FewRows("count");
        const std::string lines = axis == 0 ? "row" : "column";
        const std::string size = std::to_string(extent[0]) + " rows x " + std::to_string(extent[1]) + " columns";
        const std::string missing = std::to_string(std::max(first, extent[axis]));
        Must(first + count[axis] <= extent[axis], "Invalid " + lines + " index: " + missing + " (" + size + ")");
        const ScopedSpace memory(H5Screate_simple(2, count.data(), nullptr));
        const ScopedSpace inFile = Slab(extensible.Space(), start, {1, 1}, count);
        Must(readOrWrite(extensible.Plain(), H5T_NATIVE_DOUBLE, memory.get(), inFile.get(), H5P_DEFAULT, buffer) >= 0);
    }

    // Tables.

    void AddTables()
    {
        At(kTables);
        Add("CreateTable", [&] { Take(root->CreateTable(at, Row())); });
        Plainly([&] { MakeTable({}, 0); });
        Add("CreateTable of rows", [&] { Take(root->CreateTable(at, TableRows(), Row(), Level())); });
        Plainly([&] { MakeTable({TableRows()}, SettledLevel()); });
        Add("CreateTableFromBuffer",
            [&] { Take(root->CreateTableFromBuffer(at, buffer, TableRows(), Row(), Level(), -1, Chunk())); });
        Plainly([&] { Store(false, IsDataSet() ? 0 : Chunk(), SettledLevel()); });
        Add("CreateTableFromSelection",
            [&] { Take(root->CreateTableFromSelection(at, buffer, Sources(), Picks(), Row(), Level(), -1, Chunk())); });
        Plainly([&] { Store(true, Chunk(), SettledLevel()); });
        At(table.name);
        Add("SetFromBuffer", [&] { Table().SetFromBuffer(buffer, TableRows(), Type(), PlainLevel()); });
        Plainly([&] { Rewrite(TableRows(), [&] { Store(false, 0, Level()); }); });
        Add("SetFromSelection",
            [&] { Table().SetFromSelection(buffer, Sources(), Picks(), Type(), PlainLevel(), Chunk()); });
        Plainly([&] { Rewrite(Sources(), [&] { Store(true, Chunk(), Level()); }); });
    }

    void Take(const boost::shared_ptr<ITable>& made) { table.library = made; }
    ITable& Table() const { return *table.library; }
    hid_t Row() const { return rowType.get(); }
    // HDF5 1.10.6 takes a time that grows with the square of the picked rows.
    hsize_t ManyRows() const { return std::min<hsize_t>(1100000 / H5Tget_size(Row()), 10000); }
    hsize_t TableRows() { return Chance(8, "many") ? Arg<hsize_t>("rows", {ManyRows()}) : Size("rows"); }
    hsize_t Chunk() { return TableRows() > kMany ? 2048 : Arg<hsize_t>("chunk", {0, 0, 1, 2}); }
    hsize_t Sources() { return TableRows() + 3; }
    Dims Picks() { return Rows("picks", Sources(), Sources()); }
    size_t PlainLevel() { return static_cast<size_t>(Level()); }
    std::string TypeIs() { return Arg<std::string>("type", {"none", "own", "own", "the caller's"}); }
    hid_t GivenType() { return TypeIs() == "none" ? -1 : Row(); }
    hid_t Type() { return TypeIs() == "own" ? Table().GetCompoundTypeID() : GivenType(); }

    void MakeTable(const Dims& extent, int level)
    {
        Must(!IsDataSet(), "Fail to create an already existing table: " + at);
        MakeTwin(Row(), extent, extent, level);
        Keep(table, &IGroup::GetTable);
    }

    // In place if the number of rows is the same and the type isn't the caller's.
    void Rewrite(hsize_t rows, const Act& store)
    {
        if (rows == OwnRows() && TypeIs() != "the caller's")
        {
            MoveRows(&H5Dwrite, Row(), All(), All());
            return;
        }
        table.name.clear();
        Unlink();
        store();
    }

    // What has the name must be a table, and is gone before its successor is refused. That is made before a row outside
    // the buffer is refused.
    void Store(bool arePicked, hsize_t chunk, int level)
    {
        const hsize_t rows = arePicked ? Picks().size() : TableRows();
        Must(!IsDataSet() || (twinRoot->GetTable(at) && Unlink()));
        Must(!arePicked || rows > 0);
        Must(chunk <= rows, "Invalid chunk size: Must be smaller than data set dimensions.");
        const ScopedDataSet made = MakeTwin(Row(), {rows}, {chunk == 0 ? rows : chunk}, level);
        const ScopedSpace inBuffer = arePicked ? Picked(Flat(Sources()), Picks()) : All();
        Must(H5Dwrite(made.get(), Row(), inBuffer.get(), H5S_ALL, H5P_DEFAULT, buffer) >= 0);
        Keep(table, &IGroup::GetTable);
    }

    // Moves of a table's rows.

    void AddMovesOfRows()
    {
        Add("GetToBuffer", [&] { Table().GetToBuffer(buffer, Type()); });
        Plainly([&] { MoveRows(&H5Dread, Row(), All(), All()); }, 12);
        Add("GetToSelection", [&] { Table().GetToSelection(buffer, BufferRows(), Type(), Places()); });
        Plainly([&] { MoveRows(&H5Dread, Row(), AtPlaces(), All()); }, 12);
        Add("GetFromSelection", [&] { Table().GetFromSelection(buffer, Type(), FileRows()); });
        Plainly([&] { MoveRows(&H5Dread, Row(), Flat(FileRows().size()), AtFileRows()); }, 12);
        Add("GetFromToSelection",
            [&] { Table().GetFromToSelection(buffer, BufferRows(), Type(), FileRows(), Places()); });
        Plainly([&] { MoveRows(&H5Dread, Row(), AtPlaces(), AtFileRows()); }, 12);
        Add("GetFromHyperslab", [&] { Table().GetFromHyperslab(buffer, First(), Stride(), Count(), Type()); });
        Plainly([&] { MoveRows(&H5Dread, GivenType(), Flat(Count()), Every()); }, 12);
        Add("GetFromHyperslabToSelection",
            [&] { Table().GetFromHyperslabToSelection(buffer, BufferRows(), Type(), First(), Places()); });
        Plainly([&] { MoveRows(&H5Dread, GivenType(), AtPlaces(), Run()); }, 12);
        Add("SetToHyperslabFromSelection",
            [&] { Table().SetToHyperslabFromSelection(buffer, BufferRows(), Type(), First(), Places()); });
        Plainly([&] { MoveRows(&H5Dwrite, GivenType(), AtPlaces(), Run()); }, 12);
    }

    hsize_t OwnRows() const { return table.twin->GetNumberOfRows(); }
    hsize_t BufferRows() const { return std::max<hsize_t>(OwnRows(), 13); }
    hsize_t First() { return FewRows("first"); }
    hsize_t Stride() { return Arg<hsize_t>("stride", {0, 1, 2, 19}); }
    hsize_t Count() { return OwnRows() > kMany ? OwnRows() / 19 : FewRows("count"); }
    Dims FileRows() { return Rows("file rows", OwnRows(), OwnRows()); }
    Dims Places() { return Rows("places", OwnRows(), BufferRows()); }
    static ScopedSpace All() { return ScopedSpace(H5S_ALL); }
    static ScopedSpace Flat(hsize_t rows) { return ScopedSpace(H5Screate_simple(1, &rows, nullptr)); }
    ScopedSpace AtPlaces() { return Picked(Flat(BufferRows()), Places()); }
    ScopedSpace AtFileRows() { return Picked(table.Space(), FileRows()); }
    ScopedSpace Every() { return Slab(table.Space(), {First()}, {Stride()}, {Count()}); }
    ScopedSpace Run() { return Slab(table.Space(), {First()}, {1}, {Places().size()}); }

    template <typename Way>
    void MoveRows(Way readOrWrite, hid_t type, const ScopedSpace& memory, const ScopedSpace& inFile)
    {
        Must(readOrWrite(table.Plain(), type, memory.get(), inFile.get(), H5P_DEFAULT, buffer) >= 0);
    }

    const Names rootName = {"/"};
    ScopedType rowType = TypeOf(kRowTypes[GetParam() % 3]);
    std::vector<Step> steps;
    Step next;
    size_t step = 0;
    std::string told; ///< The step and its arguments.
    std::string at;
    double* buffer = nullptr; ///< That of the side that acts.
    std::vector<double> libraryBuffer = std::vector<double>(kBufferSize);
    std::vector<double> plainBuffer;
    boost::shared_ptr<IFile> library;
    boost::shared_ptr<IFile> twin;
    boost::shared_ptr<IGroup> root;
    boost::shared_ptr<IGroup> twinRoot;
    int fileLevel = 0;
    H5T_cset_t charset = H5T_CSET_UTF8;
    Held<IGroup> group;
    Held<IArray> array;
    Held<IExtensibleArray2D> extensible;
    Held<ITable> table;
};

TEST_P(Random, UseEndsAsWithPlainHdf5)
{
    for (size_t number = 0; number < TARNWICKHDF_RANDOM_STEPS; ++number)
    {
        ASSERT_NO_FATAL_FAILURE(Play(number));
    }

    CompareDumps();
}

const bool kIsLong = std::getenv("TARNWICKHDF_LONG_TESTS") != nullptr;
INSTANTIATE_TEST_SUITE_P(Seed, Random, ::testing::Range(0U, kIsLong ? 60U : TARNWICKHDF_RANDOM_SEEDS));

} // namespace tarnwick::hdf::tests
