#include "Fixture.h"

namespace tarnwick::hdf::tests
{

namespace
{

using namespace TDataType;

struct DataSets : OpenFileTest
{
    const ScopedType row = CompoundOf({{"id", H5T_NATIVE_INT}});
    const hid_t t = row.get();
    std::array<int, 8> numbers = {1, 2, 3, 4, 5, 6, 7, 8};
    int* const b = numbers.data();
};
using Table = DataSets;
using ExtensibleArray2D = DataSets;
using GroupListing = DataSets;

const std::string kFile = "Error while selecting elements from file data set:";
const std::string kMemory = "Error while selecting elements from memory data set:";
const std::string kRead = "Error reading data set to a memory selection!:";
const std::string kCreate = "could not create dataset:";

const auto at = [](auto... rows)
{
    return Dims{hsize_t(rows)...};
};

// Rows, then name, TDataType and bytes of each column.
std::string ColumnsOf(const ITable& table)
{
    std::string text = Joined(Dims{table.GetNumberOfRows()});
    for (int i = 0; i < static_cast<int>(table.GetNumberOfColumns()); ++i)
    {
        const THDFAndDataType type = table.GetColumnType(i);
        EXPECT_TRUE(type.hdfType == table.GetColumnTypeID(i) && type.dataType == table.GetColumnDataType(i));
        text += " " + table.GetColumnName(i) + Joined(Dims{hsize_t(type.dataType), H5Tget_size(type.hdfType)});
    }
    return text;
}

// How it lies in the file, and the size that the object knows.
std::string StateOf(const IExtensibleArray2D& array)
{
    return ContentOf(array.LocationID()) + " of" +
           Joined(std::array{array.GetNumberOfRows(), array.GetNumberOfColumns()});
}

// How many groups, arrays, extensible arrays and tables are listed.
std::string SizesOf(const IGroup& group)
{
    return Joined(std::array{group.ListGroups().size(), group.ListArrays().size(),
                             group.ListExtensibleArrays2D().size(), group.ListTables().size()});
}

template <typename Nodes>
Names NamesOf(const Nodes& nodes)
{
    Names names;
    std::transform(nodes.begin(), nodes.end(), std::back_inserter(names), [](auto& node) { return node->GetName(); });
    return names;
}

// Newer kinds of link turn a group of the oldest format into one of a newer.
void MakeEveryKindOfChild(IGroup& group, bool hasNewLinks)
{
    const hid_t id = group.LocationID();
    const hid_t none = H5P_DEFAULT;
    const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}});
    // A link behind what it leads to may be taken for another child of that kind.
    for (const std::string name : {"z", "\xC3\xBC", "A b.c"})
    {
        group.CreateGroup("g" + name);
        WritePlain(id, "d" + name, H5T_NATIVE_INT, Dims{2, 2}, {kInf, 2});
        group.CreateTable("e" + name, rows.get());
        H5Tcommit2(id, ("t" + name).c_str(), ScopedType(H5Tcopy(rows.get())).get(), none, none, none);
        H5Lcreate_soft(("g" + name).c_str(), id, ("g" + name + " ").c_str(), none, none);
        H5Lcreate_soft(("d" + name).c_str(), id, ("d" + name + " ").c_str(), none, none);
        H5Lcreate_soft("nowhere", id, ("n" + name).c_str(), none, none);
        H5Lcreate_hard(id, ("d" + name).c_str(), id, ("h" + name).c_str(), none, none);
        hasNewLinks ? H5Lcreate_external("missing.h5", "/", id, ("x" + name).c_str(), none, none) : 0;
    }
    // Cut to 511 bytes, the longer names are another child's and nobody's.
    WritePlain(id, std::string(511, 'q'), H5T_NATIVE_INT, Dims{});
    WritePlain(id, std::string(513, 'q'), H5T_NATIVE_INT, Dims{});
    WritePlain(id, std::string(512, 'v'), H5T_NATIVE_INT, Dims{});
}

} // namespace

TEST_F(Table, MovesExactlyTheSelectedRows)
{
    struct Case
    {
        std::function<void(ITable& x, int* to)> move;
        std::string onRows, onNull = kFile; // The buffer of six rows afterwards, or the words of the failure.
    };
    const std::string kept = " 90 91 92 93 94 95";
    const Case cases[] = {
        {[&](auto& x, int* to) { x.GetToBuffer(to, 0); }, " 1 2 3 4 94 95", kept},
        {[&](auto& x, int* to) { x.GetToSelection(to, 6, 0, at(5, 4, 3, 2)); }, " 90 91 4 3 2 1", kRead},
        {[&](auto& x, int* to) { x.GetToSelection(to, 6, 0, at(5, 6, 4, 3)); }, kMemory, kMemory},
        {[&](auto& x, int* to) { x.GetFromHyperslab(to, 1, 2, 2, t); }, " 2 4 92 93 94 95"},
        {[&](auto& x, int* to) { x.GetFromHyperslab(to, 3, 1, 2, t); }, "Error reading data set hyperslab.:"},
        {[&](auto& x, int* to) { x.GetFromSelection(to, -1, at(3, 2, 2)); }, " 4 3 3 93 94 95"},
        {[&](auto& x, int* to) { x.GetFromSelection(to, 0, at(1, 4)); }, kFile},
        {[&](auto& x, int* to) { x.GetFromToSelection(to, 6, 0, at(3, 0, 3), at(1, 5, 0)); }, " 4 4 92 93 94 1"},
        {[&](auto& x, int* to) { x.GetFromToSelection(to, 6, 0, at(3, 0), at(1)); }, kRead},
        {[&](auto& x, int* to) { x.GetFromToSelection(to, 6, 0, at(1), at(6)); }, kMemory},
        {[&](auto& x, int* to) { x.GetFromHyperslabToSelection(to, 6, t, 1, at(4, 0, 2)); }, " 3 91 4 93 2 95"},
        {[&](auto& x, int* to) { x.GetFromHyperslabToSelection(to, 6, t, 2, at(4, 0, 2)); }, kRead},
        {[&](auto& x, int* to) { x.SetToHyperslabFromSelection(to, 6, t, 1, at(5, 0, 0)); }, kept},
        {[&](auto& x, int* to) { x.SetToHyperslabFromSelection(to, 6, t, 3, at(1, 1)); }, "error writing to dataset:"},
        {[&](auto& x, int* to) { x.SetToHyperslabFromSelection(to, 6, t, 0, at(6)); }, kMemory}};
    const auto table = root->CreateTableFromBuffer("x", b, 4, t, 0, -1, 0);
    const auto empty = root->CreateTable("empty", t);
    for (const Case& one : cases)
    {
        for (const bool isNull : {false, true})
        {
            std::vector<int> buffer = {90, 91, 92, 93, 94, 95};
            const std::string words = WordsOf([&] { one.move(isNull ? *empty : *table, buffer.data()); });
            EXPECT_EQ(words.empty() ? Joined(buffer) : words, isNull ? one.onNull : one.onRows) << &one - cases;
        }
    }
    EXPECT_EQ(ContentOf(table->LocationID(), t), " 4 chunk 4: 1 95 90 90");
}

TEST_F(Table, IsReplacedUnlessRowsAndTypeIdAreItsOwn)
{
    const ScopedType wide = CompoundOf({{"more", H5T_NATIVE_INT}, {"id", H5T_NATIVE_INT}});
    const ScopedType bigEndian = CompoundOf({{"id", H5T_STD_I32BE}});
    int* const from = b + 2;
    struct Case
    {
        std::function<void(ITable& x)> set;
        std::string content, words; // What is in the file afterwards, what was thrown.
    };
    const std::string kept = " 4 chunk 2 deflate 5: 3 4 5 6";
    const Case cases[] = {
        {[&](auto& x) { x.SetFromBuffer(from, 4, -1, 9); }, kept, ""},
        {[&](auto& x) { x.SetFromBuffer(from, 4, x.GetCompoundTypeID(), 0); }, kept, ""},
        {[&](auto& x) { x.SetFromSelection(from, 4, at(1, 0), -1, 0, 1); }, kept, ""},
        {[&](auto& x) { x.SetFromBuffer(from, 4, t, 0); }, " 4 chunk 4: 3 4 5 6", ""},
        {[&](auto& x) { x.SetFromBuffer(from, 3, -1, 0); }, " 3 chunk 3: 3 4 5", ""},
        {[&](auto& x) { x.SetFromBuffer(from, 6, -1, 0x100000002); }, " 6 chunk 6 deflate 2: 3 4 5 6 7 8", ""},
        {[&](auto& x) { x.SetFromBuffer(from, 2, wide.get(), 0); }, " 2 chunk 2: 4 6", ""},
        {[&](auto& x) { x.SetFromBuffer(from, 0, 0, 0); }, " 0:", ""},
        {[&](auto& x) { x.SetFromSelection(from, 4, at(3, 3, 0), t, 0, 2); }, " 3 chunk 2: 6 6 3", ""},
        {[&](auto& x) { x.SetFromSelection(from, 6, {}, -1, 0, 0); }, "nothing:", kMemory},
        {[&](auto& x) { x.SetFromSelection(from, 5, at(5), -1, 0, 0); }, "nothing:", kMemory},
        {[&](auto& x) { x.SetFromBuffer(from, 1, bigEndian.get(), 0); }, " 1 chunk 1: 50331648", "invalid HDF type:"},
        {[&](auto& x) { x.SetFromBuffer(from, 1, H5T_STD_I32LE, 0); }, " 1 chunk 1: 0", "could not open Table 'x':"}};
    for (const Case& one : cases)
    {
        SCOPED_TRACE(&one - cases);
        const auto group = root->CreateGroup(std::to_string(&one - cases));
        const auto x = group->CreateTableFromBuffer("x", b, 4, t, 5, -1, 2);
        const ITable old = *x;
        std::string words;
        try
        {
            one.set(*x);
        }
        catch (const std::runtime_error& failure)
        {
            words = failure.what();
            EXPECT_EQ(WordsOf([&] { x->SetFromBuffer(from, 5, -1, 0); }), kCreate);
        }
        EXPECT_EQ(words.substr(0, words.find('\n')), one.words);
        EXPECT_EQ(ContentOf(*group, "x", t), one.content);
        EXPECT_EQ(ContentOf(x->LocationID(), t), words.empty() ? one.content : "nothing:");
        EXPECT_EQ(ContentOf(old.LocationID(), t), one.content == kept ? kept : " 4 chunk 2 deflate 5: 1 2 3 4");
        EXPECT_EQ(x->GetCompoundTypeID() == -1, !words.empty());
        EXPECT_TRUE(!words.empty() || std::to_string(x->GetNumberOfRows()) == one.content.substr(1, 1));
    }
}

TEST_F(Table, TellsItsColumnsAndKeepsThemWhereItIsReopened)
{
    Names strings;
    const ScopedType sequence(H5Tvlen_create(H5T_NATIVE_INT));
    const ScopedType array(H5Tarray_create2(H5T_NATIVE_SHORT, 1, Dims{3}.data()));
    const ScopedType choice(H5Tenum_create(H5T_NATIVE_INT));
    H5Tenum_insert(choice.get(), "one", b);
    const ScopedType all = CompoundOf({{"l", H5T_NATIVE_LONG}, {"s", sequence.get()}, {"a", array.get()}, {"i", t}});
    const ScopedType refused = CompoundOf({{"id", H5T_NATIVE_INT}, {"c", choice.get()}});
    const auto x = root->CreateGroup("group")->CreateTable("y", 2, all.get(), 0);
    EXPECT_EQ(ColumnsOf(*x), " 2 l 7 8 s 0 16 a 0 6 i 0 4");
    ExpectWords({{[&] { root->CreateTable("z", refused.get()); }, "invalid HDF type:"},
                 {[&] { root->GetTable("z"); }, "invalid HDF type:"},
                 {[&] { x->GetColumnType(4); }, "Invalid column index: 4 (4 columns)"},
                 {[&] { x->FeedStringVector(strings, -1); }, "Invalid column index: -1 (4 columns)"}});
    WritePlain(root->LocationID(), "scalar", t, Dims{});
    x->ReOpen(root->LocationID(), "scalar");
    EXPECT_EQ(ColumnsOf(*x) + x->GetName(), " 0 id 7 8  0 16  0 6  0 4y");
    EXPECT_EQ(x->ParentID(), root->LocationID());
}

TEST_F(Table, StringColumnsComeAsUtf8WithNothingBehindThem)
{
    struct Row
    {
        char padded[8], full[8];
        const char *variable, *variableUtf8;
        long number;
    };
    Row rows[2] = {{"Z\xFCr\0xxx", {'Z', '\xC3', '\xBC', 'r', 'i', 'c', 'h', '\xFC'}, "Z\xFCrich", "Z\xC3\xBCrich", 0}};
    const ScopedType type = CompoundOf({{"padded", StringType(8, H5T_CSET_ASCII).get()},
                                        {"full", StringType(8, H5T_CSET_UTF8).get()},
                                        {"variable", StringType(H5T_VARIABLE, H5T_CSET_ASCII).get()},
                                        {"variableUtf8", StringType(H5T_VARIABLE, H5T_CSET_UTF8).get()},
                                        {"number", H5T_NATIVE_LONG}});
    const Names expected = {"Z\xC3\xBCr", "Z\xC3\xBCrich\xFC", "Z\xC3\xBCrich", "Z\xC3\xBCrich"};
    const auto x = root->CreateTableFromBuffer("x", rows, 2, type.get(), 0, -1, 0);
    const auto empty = root->CreateTable("empty", type.get());
    EXPECT_EQ(ColumnsOf(*x).substr(2), ColumnsOf(*empty).substr(2)); // opens the columns' types, which are the table's
    Names strings;
    for (const int column : {0, 1, 2, 3})
    {
        EXPECT_EQ(WordsOf([&] { x->FeedStringVector(strings, column); }), "");
        EXPECT_EQ(strings, (Names{expected[size_t(column)], ""}));
        EXPECT_EQ(FailureOf([&] { x->FeedStringVector(strings, 4); }) + strings[1], "not a string array");
        empty->FeedStringVector(strings, column);
        EXPECT_TRUE(strings.empty());
    }
}

TEST_F(Table, AHundredThousandRowsAreWhatPlainHdf5Reads)
{
    std::vector<std::array<int, 2>> rows(100000);
    std::generate(rows.begin(), rows.end(), [i = 0]() mutable { return std::array{++i, 7 * i % 1001}; });
    const ScopedType type = CompoundOf({{"id", H5T_NATIVE_INT}, {"value", H5T_NATIVE_INT}});
    const auto x = root->CreateTableFromBuffer("x", rows.data(), rows.size(), type.get(), 1, -1, 4096);
    std::vector<std::array<int, 2>> read(rows.size()), picked(5000);
    H5Dread(x->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data());
    EXPECT_EQ(read, rows);
    Dims selection(picked.size());
    std::generate(selection.begin(), selection.end(), [i = 0U]() mutable { return i = (i + 77777) % 100000; });
    x->GetFromSelection(picked.data(), -1, selection);
    x->GetFromHyperslabToSelection(read.data(), read.size(), type.get(), 9, selection);
    for (size_t i = 0; i < picked.size(); ++i)
    {
        EXPECT_TRUE(picked[i] == rows[selection[i]] && read[selection[i]] == rows[i + 9]) << i;
    }
    selection[7] = rows.size();
    EXPECT_EQ(WordsOf([&] { x->GetFromSelection(picked.data(), -1, selection); }), kFile);
    // All rows to the buffer from its end on, and the first 40,000 of them back to the table 50 rows further on.
    Dims backwards(rows.size());
    std::iota(backwards.rbegin(), backwards.rend(), 0U);
    x->GetToSelection(read.data(), read.size(), -1, backwards);
    EXPECT_TRUE(std::equal(rows.rbegin(), rows.rend(), read.begin()));
    backwards.resize(40000);
    x->SetToHyperslabFromSelection(read.data(), read.size(), type.get(), 50, backwards);
    std::vector<std::array<int, 2>> moved = rows;
    std::copy_n(rows.begin(), backwards.size(), moved.begin() + 50);
    H5Dread(x->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data());
    EXPECT_EQ(read, moved);
}

TEST_F(ExtensibleArray2D, MovesRowsAndColumnsAndConvertsThem)
{
    std::vector<double> fractions = {4.5, 5.5, 6.5, 7.5};
    const auto x = root->CreateExtensibleArray2D("x", Int, 2, 3, 2, 2, 1);
    x->WriteRowFromBuffer(0, b, Int);
    x->WriteColumnFromBuffer(2, b, Int);
    x->AppendRowFromBuffer(fractions.data(), Double);
    const auto again = root->GetExtensibleArray2D("x");
    again->AppendColumnFromBuffer(b, Int);
    EXPECT_EQ(StateOf(*again), " 3 4 chunk 2 2 deflate 1: 1 2 1 1 0 0 2 2 4 5 6 3 of 3 4");
    std::vector<unsigned int> column(3);
    again->ReadRowToBuffer(2, fractions.data(), Double);
    again->ReadColumnToBuffer(1, column.data(), UInt);
    EXPECT_EQ(Joined(fractions) + Joined(column), " 4 5 6 3 2 0 5");
    EXPECT_EQ(again->GetSizeInBytes() + again->GetType(), 48U + Int);
}

TEST_F(ExtensibleArray2D, AppendsTakeTheirPlaceFromTheFileAndTheirWidthFromTheObject)
{
    const auto x = root->CreateExtensibleArray2D("x", Int, 0, 0, 2, 2, 0);
    EXPECT_EQ(x->Resize(1, 2), 0);
    EXPECT_EQ(WordsOf([&] { x->AppendRowFromBuffer(b, Undefined); }), "invalid TDataType:");
    EXPECT_EQ(StateOf(*x), " 2 2 chunk 2 2: 0 0 0 0 of 1 2");
    x->AppendRowFromBuffer(b, Int);
    EXPECT_EQ(StateOf(*x), " 3 2 chunk 2 2: 0 0 0 0 1 2 of 2 2");
    // Another handle knows what it saw when it was opened, and never makes the array smaller.
    const auto other = root->GetExtensibleArray2D("x");
    other->AppendColumnFromBuffer(b, Int);
    x->AppendRowFromBuffer(b + 2, Int);
    EXPECT_EQ(StateOf(*x), " 4 3 chunk 2 2: 0 0 1 0 0 2 1 2 3 3 4 0 of 3 2");
    x->AppendColumnFromBuffer(b, Int);
    EXPECT_EQ(StateOf(*other), " 4 4 chunk 2 2: 0 0 1 1 0 0 2 2 1 2 3 3 3 4 0 0 of 3 3");
    EXPECT_EQ(other->Resize(2, 1), 0);
    x->AppendRowFromBuffer(b, Int);
    EXPECT_EQ(StateOf(*x), " 3 3 chunk 2 2: 0 0 0 0 0 0 1 2 3 of 4 3");
}

TEST_F(ExtensibleArray2D, FailuresLeaveTheCountsAndNoId)
{
    const std::string failed = "error during io operation for ExtensibleArray2D dataset:";
    WritePlain(root->LocationID(), "x", H5T_NATIVE_INT, Dims{1, 2}, {kInf, 2});
    auto x = root->GetExtensibleArray2D("x");
    EXPECT_EQ(WordsOf([&] { x->AppendColumnFromBuffer(b, Int); }), failed);
    x->AppendRowFromBuffer(b, Int);
    EXPECT_EQ(StateOf(*x), " 2 2 chunk 1 1: 0 0 1 2 of 2 2");
    ExpectWords({{[&] { x->ReadRowToBuffer(-1, b, Undefined); }, "Invalid row index: -1 (2 rows x 2 columns)"},
                 {[&] { x->WriteRowFromBuffer(2, b, Int); }, "Invalid row index: 2 (2 rows x 2 columns)"},
                 {[&] { x->ReadColumnToBuffer(2, b, Int); }, "Invalid column index: 2 (2 rows x 2 columns)"},
                 {[&] { x->WriteColumnFromBuffer(-1, b, Int); }, "Invalid column index: -1 (2 rows x 2 columns)"}});
    const auto noChunk = root->CreateExtensibleArray2D("y", Int, 2, 2, 0, 9, 0);
    EXPECT_FALSE(root->HasArray("y"));
    Reopen("r");
    x = root->GetExtensibleArray2D("x");
    for (const auto& bad : {noChunk, x, x})
    {
        ExpectWords({{[&] { bad->AppendRowFromBuffer(b, Int); }, failed},
                     {[&] { bad->WriteColumnFromBuffer(0, b, Int); }, failed}});
        EXPECT_LT(bad->Resize(5, 5), 0);
        EXPECT_EQ(bad->GetNumberOfRows() + bad->GetNumberOfColumns(), 4U);
        bad == x ? file->Close() : void();
    }
}

TEST_F(DataSets, AreMadeWithAnAnswerOfEachFactoryToANameThatIsTaken)
{
    std::map<char, std::string> words = {{'-', ""},
                                         {'c', kCreate},
                                         {'o', "could not open Table 'x':"},
                                         {'f', "Fail to create an already existing table: x:"},
                                         {'t', "Table already exist. Fail to create!:"},
                                         {'v', "not a valid Array"},
                                         {'h', "H5T_COMPOUND is not a valid Array:"}};
    std::map<char, std::string> sizes = {{'G', " 1 0 0 0"}, {'A', " 0 1 0 0"}, {'E', " 0 0 1 0"}, {'T', " 0 0 0 1"}};
    struct Case
    {
        std::function<boost::shared_ptr<INode>(IGroup& group, const std::string& name)> make;
        std::string words, kinds = "GAET"; // With the name of a group, an array, an extensible array, a table.
    };
    const Case cases[] = {
        {[&](auto& g, auto& n) { return g.CreateArrayFromBuffer(n, b, Int, 2, 1); }, "c-vh"},
        {[&](auto& g, auto& n) { return g.CreateExtensibleArray2D(n, Int, 1, 1, 1, 1, 0); }, "----"},
        {[&](auto& g, auto& n) { return g.CreateTable(n, t); }, "cfff"},
        {[&](auto& g, auto& n) { return g.CreateTable(n, 3, t, 0); }, "cfff"},
        {[&](auto& g, auto& n) { return g.CreateTableFromBuffer(n, b, 4, t, 0, H5T_NATIVE_CHAR, 2); }, "coo-"},
        {[&](auto& g, auto& n) { return g.CreateTableFromSelection(n, b, 4, at(3, 1), t, 0, -1, 2); }, "coo-"},
        {[&](auto& g, auto& n) { return ITable::CreateEmpty(file, g.LocationID(), n, t); }, "cttt"},
        {[&](auto& g, auto& n) { return ITable::Create(file, g.LocationID(), n, 1, t, 0); }, "cttt"},
        {[&](auto& g, auto& n) { return ITable::CreateFromBuffer(file, g.LocationID(), n, b, 4, t, 0, 0, 0); }, "cccc"},
        {[&](auto& g, auto& n) { return g.CreateArray(n, Int, 0); }, "c---", "GAAA"}};
    for (const Case& one : cases)
    {
        for (size_t holder = 0; holder < 4; ++holder)
        {
            const auto group = root->CreateGroup(std::to_string(&one - cases) + "-" + std::to_string(holder));
            holder == 0 ? void(group->CreateGroup("x")) : void(cases[holder - 1].make(*group, "x"));
            holder == 3 ? (group->DelArray("x"), void(group->CreateTable("x", 3, t, 0))) : void();
            EXPECT_EQ(WordsOf([&] { one.make(*group, "x"); }), words[one.words[holder]]) << group->GetName();
            EXPECT_EQ(group->HasExtensibleArray2D("x"), one.kinds[holder] == 'E') << group->GetName();
            EXPECT_EQ(WordsOf([&] { one.make(*group, "no/y"); }), words[one.words == "----" ? '-' : 'c']);
            EXPECT_EQ(SizesOf(*group), sizes[one.kinds[holder]]) << group->GetName();
        }
    }
}

TEST_F(DataSets, CompressionIsTheGroupsBelowZeroAndTheCallersFromZeroOn)
{
    root->SetDefaultCompression(6);
    for (const auto& [level, stored] : {std::pair{-1, std::string(" deflate 6")}, {0, ""}, {2, " deflate 2"}})
    {
        const auto group = root->CreateGroup(std::to_string(level));
        group->CreateTable("t", 2, t, level);
        group->CreateTableFromBuffer("b", b, 4, t, level, -1, 3);
        group->CreateTableFromSelection("s", b, 4, {3, 0, 0}, t, level, -1, 0);
        group->CreateExtensibleArray2D("e", Int, 0, 2, 7, 3, level);
        EXPECT_EQ(ContentOf(*group, "t", t), " 2 chunk 2" + stored + ": 0 0");
        EXPECT_EQ(ContentOf(*group, "b", t), " 4 chunk 3" + stored + ": 1 2 3 4");
        EXPECT_EQ(ContentOf(*group, "s", t), " 3 chunk 3" + stored + ": 4 1 1");
        EXPECT_EQ(ContentOf(*group, "e"), " 0 2 chunk 7 3" + stored + ":");
    }
    EXPECT_EQ(root->ListGroups().at(0)->GetDefaultCompression(), 6);
}

TEST_F(DataSets, CopiesOfANodeGoInAnyOrderAlsoAfterTheFile)
{
    const auto dropInEveryOrder = [&](auto make, auto read)
    {
        std::array<size_t, 4> order = {0, 1, 2, 3}; // The three copies and the file.
        do
        {
            std::array nodes = {make("one"), make("other"), decltype(make(""))()};
            *nodes[1] = *nodes[0];
            nodes[2].reset(new auto(*nodes[1]));
            for (const size_t next : order)
            {
                const std::string words = next < 3 ? WordsOf([&] { read(*nodes[next]); }) : (file->Close(), "");
                EXPECT_EQ(words.empty(), next == 3 || !file->IsClosed());
                next < 3 ? nodes[next].reset() : void();
            }
            Reopen("w");
        } while (std::next_permutation(order.begin(), order.end()));
    };
    dropInEveryOrder([&](auto name) { return root->CreateTableFromBuffer(name, b, 1, t, 0, -1, 0); },
                     [&](auto& x) { x.GetToBuffer(b, 0); });
    dropInEveryOrder([&](auto name) { return root->CreateExtensibleArray2D(name, Int, 1, 1, 1, 1, 0); },
                     [&](auto& x) { x.ReadRowToBuffer(0, b, Int); });
    dropInEveryOrder([&](auto name) { return root->CreateGroup(name); }, [&](auto& x) { x.GetFullName(); });
}

TEST_F(GroupListing, GivesWhatTheWalkByIndexGivesAndFailsInItsWords)
{
    struct Inside : IGroup
    {
        using IGroup::ListNames;
    };
    for (const bool hasNewLinks : {false, true})
    {
        const auto group = root->CreateGroup(hasNewLinks ? "new" : "old");
        MakeEveryKindOfChild(*group, hasNewLinks);
        // The children of one kind as HDF5 tells them one by one, if they open.
        const auto walkOf = [&](int kind, const std::function<void(const std::string&)>& open)
        {
            Names names;
            for (int i = 0; i < static_cast<int>(group->GetNumberOfChildren()); ++i)
            {
                const std::string name = group->GetChildName(i);
                const bool isListed = group->GetChildType(i) == kind && FailureOf([&] { open(name); }).empty();
                isListed ? names.push_back(name) : void();
            }
            return names;
        };
        for (const int kind : {H5G_UNKNOWN, H5G_GROUP, H5G_DATASET, H5G_TYPE, H5G_LINK, H5G_UDLINK})
        {
            Names names = {"left from before"};
            (group.get()->*(&Inside::ListNames))(kind, names);
            EXPECT_EQ(names, walkOf(kind, [](auto&) {})) << kind;
        }
        EXPECT_EQ(NamesOf(group->ListGroups()), walkOf(H5G_GROUP, [](auto&) {}));
        EXPECT_EQ(NamesOf(group->ListArrays()), walkOf(H5G_DATASET, [&](auto& n) { group->GetArray(n); }));
        EXPECT_EQ(NamesOf(group->ListTables()), walkOf(H5G_DATASET, [&](auto& n) { group->GetTable(n); }));
        EXPECT_EQ(NamesOf(group->ListExtensibleArrays2D()),
                  walkOf(H5G_DATASET, [&](auto& n) { group->GetExtensibleArray2D(n); }));
        EXPECT_EQ(SizesOf(*group), " 3 8 6 3");
        EXPECT_EQ(group->GetNumberOfGroups(), 3U);
    }
    EXPECT_EQ(SizesOf(*root->CreateGroup("empty")) + std::to_string(root->GetChildType(3)), " 0 0 0 0-1");
    EXPECT_EQ(WordsOf([&] { root->GetChildName(-1); }), "error getting object name:");
    file->Close();
    const std::string words = "error getting number of objects in group:";
    ExpectWords({{[&] { root->ListGroups(); }, words}, {[&] { root->HasDataSet(); }, words}});
}

} // namespace tarnwick::hdf::tests
