#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

namespace
{

using Table = OpenFileTest;
using Rows = std::vector<hsize_t>;

// Rows, then name, TDataType and bytes of each column.
std::string ColumnsOf(const ITable& table)
{
    std::string text = Joined(Rows{table.GetNumberOfRows()});
    for (int i = 0; i < static_cast<int>(table.GetNumberOfColumns()); ++i)
    {
        const TDataType::THDFAndDataType type = table.GetColumnType(i);
        EXPECT_TRUE(type.hdfType == table.GetColumnTypeID(i) && type.dataType == table.GetColumnDataType(i));
        text += " " + table.GetColumnName(i) + Joined(Rows{hsize_t(type.dataType), H5Tget_size(type.hdfType)});
    }
    return text;
}

} // namespace

TEST_F(Table, MovesExactlyTheSelectedRows)
{
    const std::string inFile = "Error while selecting elements from file data set:";
    const std::string memory = "Error while selecting elements from memory data set:";
    const std::string read = "Error reading data set to a memory selection!:";
    const std::string slab = "Error reading data set hyperslab.:";
    const std::string write = "error writing to dataset:";
    const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}});
    const hid_t t = rows.get();
    struct Case
    {
        std::string operation;
        hid_t type;
        Rows from, to;
        std::string onRows, onNull; // The buffer of eight rows afterwards, or the words of the failure.
    };
    const auto move = [](const Case& one, ITable& x, int* b)
    {
        one.operation == "all" ? x.GetToBuffer(b, one.type) : void();
        one.operation == "slab" ? x.GetFromHyperslab(b, one.from[0], one.from[1], 3, one.type) : void();
        one.operation == "to" ? x.GetToSelection(b, 8, one.type, one.to) : void();
        one.operation == "from" ? x.GetFromSelection(b, one.type, one.from) : void();
        one.operation == "move" ? x.GetFromToSelection(b, 8, one.type, one.from, one.to) : void();
        one.operation == "run" ? x.GetFromHyperslabToSelection(b, 8, one.type, one.from[0], one.to) : void();
        one.operation == "set" ? x.SetToHyperslabFromSelection(b, 8, one.type, one.from[0], one.to) : void();
    };
    const Case cases[] = {{"all", 0, {}, {}, " 10 11 12 13 14 15 96 97", " 90 91 92 93 94 95 96 97"},
                          {"slab", t, {1, 2}, {}, " 11 13 15 93 94 95 96 97", inFile},
                          {"slab", t, {1, 0}, {}, inFile, inFile},
                          {"slab", t, {4, 1}, {}, slab, inFile},
                          {"slab", -1, {0, 1}, {}, slab, inFile},
                          {"to", 0, {}, {7, 6, 5, 4, 3, 2}, " 90 91 15 14 13 12 11 10", read},
                          {"to", 0, {}, {7, 6, 5}, read, read},
                          {"to", 0, {}, {7, 6, 5, 8, 0, 1}, memory, memory},
                          {"to", 0, {}, {}, memory, memory},
                          {"from", -1, {5, 2, 2}, {}, " 15 12 12 93 94 95 96 97", inFile},
                          {"from", 0, {1, 6}, {}, inFile, inFile},
                          {"from", 0, {}, {}, inFile, inFile},
                          {"move", 0, {5, 0, 5}, {1, 7, 0}, " 15 15 92 93 94 95 96 10", inFile},
                          {"move", 0, {5, 0}, {1}, read, inFile},
                          {"move", 0, {}, {1}, inFile, inFile},
                          {"move", 0, {1}, {}, memory, inFile},
                          {"move", 0, {1}, {1000}, memory, inFile},
                          {"run", t, {3}, {4, 0, 2}, " 14 91 15 93 13 95 96 97", inFile},
                          {"run", -1, {3}, {4, 0, 2}, read, inFile},
                          {"run", t, {4}, {4, 0, 2}, read, inFile},
                          {"run", t, {4}, {}, memory, inFile},
                          {"set", t, {2}, {7, 0, 0}, " 90 91 92 93 94 95 96 97", inFile},
                          {"set", -1, {2}, {1}, write, inFile},
                          {"set", t, {5}, {1, 1}, write, inFile},
                          {"set", t, {0}, {8}, memory, inFile}};
    std::vector<int> ids = {10, 11, 12, 13, 14, 15};
    const auto table = root->CreateTableFromBuffer("x", ids.data(), 6, t, 0, -1, 0);
    const auto empty = root->CreateTable("empty", t);
    for (const Case& one : cases)
    {
        for (const bool isNull : {false, true})
        {
            std::vector<int> buffer = {90, 91, 92, 93, 94, 95, 96, 97};
            const std::string words = WordsOf([&] { move(one, isNull ? *empty : *table, buffer.data()); });
            EXPECT_EQ(words.empty() ? Joined(buffer) : words, isNull ? one.onNull : one.onRows) << &one - cases;
        }
    }
    EXPECT_EQ(ContentOf(table->LocationID(), t), " 6 chunk 6: 10 11 97 90 90 15");
}

TEST_F(Table, IsReplacedUnlessRowsAndTypeIdAreItsOwn)
{
    const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}});
    const ScopedType wide = CompoundOf({{"more", H5T_NATIVE_INT}, {"id", H5T_NATIVE_INT}});
    const ScopedType bigEndian = CompoundOf({{"id", H5T_STD_I32BE}});
    const hid_t t = rows.get();
    constexpr hid_t kOwn = -2;
    struct Case
    {
        size_t rows;
        std::optional<Rows> selection;
        hid_t type;
        size_t compression, chunkRows;
        std::string content, words; // What is in the file afterwards, what was thrown.
    };
    const std::optional<Rows> all;
    const std::string kept = " 4 chunk 2 deflate 5: 3 2 1 0";
    const std::string badPick = "Error while selecting elements from memory data set:";
    const std::string badChunk = "Invalid chunk size: Must be smaller than data set dimensions.:";
    const Case cases[] = {{4, all, -1, 9, 0, kept, ""},
                          {4, all, kOwn, 0, 0, kept, ""},
                          {4, Rows{1, 0}, -1, 0, 1, kept, ""},
                          {4, all, t, 0, 0, " 4 chunk 4: 3 2 1 0", ""},
                          {3, all, -1, 0, 0, " 3 chunk 3: 3 2 1", ""},
                          {6, all, kOwn, 0x100000002, 0, " 6 chunk 6 deflate 2: 3 2 1 0 8 9", ""},
                          {2, all, wide.get(), 0, 0, " 2 chunk 2: 2 0", ""},
                          {0, all, 0, 0, 0, " 0:", ""},
                          {4, Rows{3, 3, 0}, t, 0, 2, " 3 chunk 2: 0 0 3", ""},
                          {6, Rows{5}, 0, 1, 0, " 1 chunk 1 deflate 1: 9", ""},
                          {0, all, -1, 1, 0, "nothing:", "could not create dataset:"},
                          {6, Rows{}, -1, 0, 0, "nothing:", badPick},
                          {5, Rows{5}, -1, 0, 0, "nothing:", badPick},
                          {6, Rows{1, 2}, -1, 0, 3, "nothing:", badChunk},
                          {1, all, bigEndian.get(), 0, 0, " 1 chunk 1: 50331648", "invalid HDF type:"},
                          {2, all, H5T_NATIVE_INT, 0, 0, " 2 chunk 2: 0 0", "could not open Table 'x':"}};
    std::vector<int> ids = {10, 11, 12, 13};
    std::vector<int> buffer = {3, 2, 1, 0, 8, 9};
    const auto replace = [&](IGroup& group, const Case& one)
    {
        const auto x = group.CreateTableFromBuffer("x", ids.data(), 4, t, 5, -1, 2);
        const ITable old = *x;
        const auto spare = group.CreateTableFromBuffer("spare", ids.data(), 3, t, 0, -1, 0);
        const hid_t type = one.type == kOwn ? x->GetCompoundTypeID() : one.type;
        try
        {
            one.selection
                ? x->SetFromSelection(buffer.data(), one.rows, *one.selection, type, one.compression, one.chunkRows)
                : x->SetFromBuffer(buffer.data(), one.rows, type, one.compression);
        }
        catch (const std::runtime_error&)
        {
            EXPECT_TRUE(!x->IsValid() && x->GetCompoundTypeID() == -1);
            EXPECT_EQ(WordsOf([&] { x->GetToBuffer(buffer.data(), 0); }), "Error -1 while reading from dataset 'x':");
            EXPECT_EQ(WordsOf([&] { x->SetFromBuffer(buffer.data(), 5, -1, 0); }), "could not create dataset:");
            EXPECT_EQ(ContentOf(group, "x", t), one.content);
            x->ReOpen(group.LocationID(), "spare");
            EXPECT_EQ(ContentOf(x->LocationID(), t) + x->GetName(), " 3 chunk 3: 10 11 12x");
            throw;
        }
        EXPECT_EQ(ContentOf(group, "x", t), one.content);
        EXPECT_EQ(x->LocationID() == old.LocationID(), one.content == kept);
        EXPECT_EQ(ContentOf(old.LocationID(), t), one.content == kept ? kept : " 4 chunk 2 deflate 5: 10 11 12 13");
        EXPECT_EQ(ColumnsOf(*x).substr(2), type == wide.get() ? " more 5 4" : " id 5 4");
    };
    for (const Case& one : cases)
    {
        SCOPED_TRACE(&one - cases);
        const auto group = root->CreateGroup(std::to_string(&one - cases));
        EXPECT_EQ(WordsOf([&] { replace(*group, one); }), one.words);
    }
}

TEST_F(Table, TellsItsColumnsAndThoseThatOthersWrote)
{
    const int row = 7;
    const ScopedType inner = CompoundOf({{"id", H5T_NATIVE_INT}});
    const ScopedType text = StringType(5, H5T_CSET_ASCII);
    const ScopedType sequence(H5Tvlen_create(H5T_NATIVE_INT));
    const ScopedType texts(H5Tvlen_create(text.get()));
    const ScopedType array(H5Tarray_create2(H5T_NATIVE_SHORT, 1, Dims{3}.data()));
    const ScopedType choice(H5Tenum_create(H5T_NATIVE_INT));
    H5Tenum_insert(choice.get(), "seven", &row);
    const std::pair<hid_t, std::string> kinds[] = {{H5T_NATIVE_LONG, " c 7 8"}, {H5T_NATIVE_FLOAT, " c 13 4"},
                                                   {text.get(), " c 17 5"},     {sequence.get(), " c 0 16"},
                                                   {texts.get(), " c 18 16"},   {array.get(), " c 0 6"},
                                                   {inner.get(), " c 0 4"},     {choice.get(), ""},
                                                   {H5T_STD_I32BE, ""},         {H5T_STD_B8LE, ""}};
    for (const auto& [type, column] : kinds)
    {
        const std::string name = std::to_string(type);
        const std::string columns = " 2 id 5 4" + column;
        const std::string words = column.empty() ? "invalid HDF type:" : "";
        const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}, {"c", type}});
        EXPECT_EQ(WordsOf([&] { EXPECT_EQ(ColumnsOf(*root->CreateTable(name, 2, rows.get(), 0)), columns); }), words);
        EXPECT_EQ(WordsOf([&] { EXPECT_EQ(ColumnsOf(*root->GetTable(name)), columns); }), words);
    }
}

TEST_F(Table, KeepsItsColumnsWhereItIsReopened)
{
    const int row = 7;
    const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}});
    const ScopedType wide = CompoundOf({{"f", H5T_NATIVE_FLOAT}, {"g", H5T_NATIVE_CHAR}});
    WritePlain(root->LocationID(), "scalar", rows.get(), Dims{}, {}, &row);
    WritePlain(root->LocationID(), "sequence", ScopedType(H5Tvlen_create(H5T_NATIVE_INT)).get(), Dims{2});
    EXPECT_EQ(ColumnsOf(*root->GetTable("sequence")), " 2");
    const auto group = root->CreateGroup("group");
    const auto x = group->CreateTable("x", 3, wide.get(), 0);
    for (const int column : {-1, 2})
    {
        const std::string words = "Invalid column index: " + std::to_string(column) + " (2 columns)";
        Names strings;
        EXPECT_EQ(FailureOf([&] { x->GetColumnType(column); }), words);
        EXPECT_EQ(FailureOf([&] { x->FeedStringVector(strings, column); }), words);
        EXPECT_EQ(x->GetColumnName(column), "");
    }
    x->ReOpen(root->LocationID(), "scalar");
    EXPECT_EQ(ColumnsOf(*x) + " " + x->GetName(), " 0 id 13 4  1 1 x");
    int read = 0;
    x->GetToBuffer(&read, 0);
    EXPECT_EQ(read, row);
    EXPECT_EQ(x->ParentID(), root->LocationID());
    EXPECT_EQ(WordsOf([&] { group->GetTable("x")->ReOpen(-1, "x"); }), "Array does not exist:");
}

TEST_F(Table, StringColumnsComeAsUtf8WithNothingBehindThem)
{
    struct Row
    {
        char padded[8], full[8];
        const char *variable, *variableUtf8;
    };
    std::vector<Row> rows(2);
    rows[0] = {"Z\xFCr\0xxx", {'Z', '\xC3', '\xBC', 'r', 'i', 'c', 'h', '\xFC'}, "Z\xFCrich", "Z\xC3\xBCrich"};
    const ScopedType types[] = {StringType(8, H5T_CSET_ASCII), StringType(8, H5T_CSET_UTF8),
                                StringType(H5T_VARIABLE, H5T_CSET_ASCII), StringType(H5T_VARIABLE, H5T_CSET_UTF8)};
    const Names expected = {"Z\xC3\xBCr", "Z\xC3\xBCrich\xFC", "Z\xC3\xBCrich", "Z\xC3\xBCrich"};
    for (size_t i = 0; i < 4; ++i)
    {
        const ScopedType type = CompoundOf({{"n", H5T_NATIVE_INT}, {"s", types[i].get()}});
        const ScopedType memory(H5Tcreate(H5T_COMPOUND, sizeof(Row)));
        H5Tinsert(memory.get(), "s", 8 * i, types[i].get());
        const auto x = root->CreateTableFromBuffer(std::to_string(i), rows.data(), 2, type.get(), 0, memory.get(), 0);
        Names strings(5, "left from before");
        EXPECT_EQ(FailureOf([&] { x->FeedStringVector(strings, 0); }), "not a string array");
        EXPECT_EQ(strings.size(), 5U);
        EXPECT_EQ(WordsOf([&] { x->FeedStringVector(strings, 1); }), "");
        EXPECT_EQ(strings, (Names{expected[i], ""}));
        root->CreateTable("null" + std::to_string(i), type.get())->FeedStringVector(strings, 1);
        EXPECT_TRUE(strings.empty());
        Reopen();
        EXPECT_EQ(WordsOf([&] { x->FeedStringVector(strings, 1); }), "error reading string buffer from dataset:");
    }
}

TEST_F(Table, AHundredThousandRowsAreWhatPlainHdf5Reads)
{
    std::vector<std::array<int, 2>> rows(100000);
    std::generate(rows.begin(), rows.end(), [i = 0]() mutable { return std::array{++i, 7 * i % 1001}; });
    const ScopedType value = CompoundOf({{"value", H5T_NATIVE_INT}});
    const ScopedType type = CompoundOf({{"id", H5T_NATIVE_INT}, {"value", H5T_NATIVE_INT}});
    const auto x = root->CreateTableFromBuffer("x", rows.data(), rows.size(), type.get(), 1, -1, 4096);
    std::vector<std::array<int, 2>> read(rows.size());
    H5Dread(x->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data());
    EXPECT_EQ(read, rows);
    std::vector<int> run(33333);
    std::vector<int> picked(33333);
    Rows selection(33333);
    std::generate(selection.begin(), selection.end(), [i = 99999U]() mutable { return i -= 3; });
    x->GetFromHyperslab(run.data(), 0, 3, run.size(), value.get());
    x->GetFromSelection(picked.data(), value.get(), selection);
    for (size_t i = 0; i < run.size(); ++i)
    {
        ASSERT_TRUE(run[i] == rows[3 * i][1] && picked[picked.size() - 1 - i] == run[i]) << i;
    }
}

} // namespace tarnwick::hdf::tests
