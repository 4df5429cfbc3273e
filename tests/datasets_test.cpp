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
    ExpectWords(
        {{[&] { root->CreateTable("z", refused.get()); }, "invalid HDF type:"},
         {[&] { root->GetTable("z"); }, "invalid HDF type:"},
         {[&] { ITable::CreateEmpty(file, root->LocationID(), "z", t); }, "Table already exist. Fail to create!:"},
         {[&] { ITable::Create(file, root->LocationID(), "z", 1, t, 0); }, "Table already exist. Fail to create!:"},
         {[&] { ITable::CreateFromBuffer(file, root->LocationID(), "z", b, 1, t, 0, 0, 0); }, kCreate},
         {[&] { root->CreateTable("no/y", t); }, kCreate},
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

TEST_F(Table, ManyScatteredRowsMoveAsFewDo)
{
    // Rows that are copied word by word and others, in one block and in several, to the buffer and back.
    for (const size_t width : {1U, 2U, 40U})
    {
        const hsize_t count = 400000 / width;
        std::vector<std::pair<std::string, hid_t>> members;
        std::generate_n(std::back_inserter(members), width,
                        [&] { return std::pair(std::to_string(members.size()), H5T_NATIVE_INT); });
        const ScopedType type = CompoundOf(members);
        std::vector<int> rows(count * width), read(rows.size()), picked(rows.size() / 20);
        std::generate(rows.begin(), rows.end(), [i = 0]() mutable { return 7 * ++i % 100001; });
        const auto x = root->CreateTableFromBuffer(std::to_string(width), rows.data(), count, type.get(), width % 2, -1,
                                                   width % 2 * 2048);
        H5Dread(x->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data());
        EXPECT_EQ(read, rows);
        const auto rowOf = [&](const std::vector<int>& all, hsize_t index)
        {
            return std::vector<int>(&all[index * width], &all[index * width] + width);
        };
        Dims selection(count / 20);
        std::generate(selection.begin(), selection.end(),
                      [&, i = hsize_t{0}]() mutable { return i = (i + 77777) % count; });
        x->GetFromSelection(picked.data(), -1, selection);
        x->GetFromHyperslabToSelection(read.data(), count, type.get(), 9, selection);
        for (size_t i = 0; i < selection.size(); ++i)
        {
            EXPECT_EQ(rowOf(picked, i), rowOf(rows, selection[i])) << i;
            EXPECT_EQ(rowOf(read, selection[i]), rowOf(rows, i + 9)) << i;
        }
        x->GetFromHyperslab(picked.data(), 5, 19, count / 20, type.get());
        for (size_t i = 0; i < count / 20; ++i)
        {
            EXPECT_EQ(rowOf(picked, i), rowOf(rows, 5 + 19 * i)) << i;
        }
        // All rows to the buffer from its end on, and the first of them back to the table 50 rows further on.
        Dims backwards(count);
        std::iota(backwards.rbegin(), backwards.rend(), 0U);
        x->GetToSelection(read.data(), count, -1, backwards);
        backwards.resize(count - 60);
        x->SetToHyperslabFromSelection(read.data(), count, type.get(), 50, backwards);
        std::copy_backward(rows.begin(), rows.end() - 60 * width, rows.end() - 10 * width);
        H5Dread(x->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data());
        EXPECT_EQ(read, rows);
        selection[7] = count;
        EXPECT_EQ(WordsOf([&] { x->GetFromSelection(picked.data(), -1, selection); }), kFile);
        EXPECT_EQ(WordsOf([&] { x->GetToSelection(read.data(), count - 1, -1, backwards); }), kMemory);
    }
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
    EXPECT_EQ(x->GetSizeInBytes(), 48U);
}

TEST_F(ExtensibleArray2D, FailuresLeaveTheCountsAndNoId)
{
    const std::string failed = "error during io operation for ExtensibleArray2D dataset:";
    WritePlain(root->LocationID(), "x", H5T_NATIVE_INT, Dims{1, 2}, {kInf, 2});
    auto x = root->GetExtensibleArray2D("x");
    EXPECT_EQ(WordsOf([&] { x->AppendColumnFromBuffer(b, Int); }), failed);
    x->AppendRowFromBuffer(b, Int);
    EXPECT_EQ(StateOf(*x), " 2 2 chunk 1 1: 0 0 1 2 of 2 2");
    EXPECT_EQ(WordsOf([&] { x->ReadRowToBuffer(-1, b, Undefined); }), "Invalid row index: -1 (2 rows x 2 columns)");
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

TEST_F(GroupListing, TellsTheNamesOfEachKindOfChild)
{
    struct Inside : IGroup
    {
        using IGroup::ListNames;
    };
    const hid_t id = root->LocationID();
    root->CreateGroup("g");
    WritePlain(id, "d", H5T_NATIVE_INT, Dims{});
    H5Tcommit1(id, "t", ScopedType(H5Tcopy(t)).get());
    H5Lcreate_soft("d", id, "l", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_external("missing.h5", "/", id, "x", H5P_DEFAULT, H5P_DEFAULT);
    Names names = {"left from before"};
    const auto list = [&](int kind)
    {
        (root.get()->*(&Inside::ListNames))(kind, names);
        return Joined(names);
    };
    EXPECT_EQ(list(H5G_UNKNOWN) + list(H5G_UDLINK) + list(H5G_LINK), " x l");
    EXPECT_EQ(list(H5G_GROUP) + list(H5G_DATASET) + list(H5G_TYPE), " g d t");
    EXPECT_EQ(WordsOf([&] { root->GetChildName(-1); }) + std::to_string(root->GetChildType(5)),
              "error getting object name:-1");
    file->Close();
    EXPECT_EQ(WordsOf([&] { root->HasDataSet(); }), "error getting number of objects in group:");
}

} // namespace tarnwick::hdf::tests
