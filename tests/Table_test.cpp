#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

namespace
{

using Table = OpenFileTest;
using Rows = std::vector<hsize_t>;

const std::string kFile = "Error while selecting elements from file data set:";
const std::string kMemory = "Error while selecting elements from memory data set:";
const std::string kRead = "Error reading data set to a memory selection!:";
const std::string kSlab = "Error reading data set hyperslab.:";
const std::string kWrite = "error writing to dataset:";

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
    const ScopedType row = CompoundOf({{"id", H5T_NATIVE_INT}});
    const hid_t t = row.get();
    struct Case
    {
        std::string operation;
        hid_t type;
        Rows from, to;
        std::string onRows, onNull = kFile; // The buffer of six rows afterwards, or the words of the failure.
    };
    const auto move = [](const Case& one, ITable& x, int* b)
    {
        one.operation == "all" ? x.GetToBuffer(b, one.type) : void();
        one.operation == "slab" ? x.GetFromHyperslab(b, one.from[0], one.from[1], 2, one.type) : void();
        one.operation == "to" ? x.GetToSelection(b, 6, one.type, one.to) : void();
        one.operation == "from" ? x.GetFromSelection(b, one.type, one.from) : void();
        one.operation == "move" ? x.GetFromToSelection(b, 6, one.type, one.from, one.to) : void();
        one.operation == "run" ? x.GetFromHyperslabToSelection(b, 6, one.type, one.from[0], one.to) : void();
        one.operation == "set" ? x.SetToHyperslabFromSelection(b, 6, one.type, one.from[0], one.to) : void();
    };
    const std::string keptAll = " 90 91 92 93 94 95";
    const std::vector<Case> cases = {{"all", 0, {}, {}, " 10 11 12 13 94 95", keptAll},
                                     {"to", 0, {}, {5, 4, 3, 2}, " 90 91 13 12 11 10", kRead},
                                     {"to", 0, {}, {5, 4, 3}, kRead, kRead},
                                     {"to", 0, {}, {5, 6, 4, 3}, kMemory, kMemory},
                                     {"to", 0, {}, {}, kMemory, kMemory},
                                     {"slab", t, {1, 2}, {}, " 11 13 92 93 94 95"},
                                     {"slab", t, {1, 0}, {}, kFile},
                                     {"slab", t, {3, 1}, {}, kSlab},
                                     {"slab", -1, {1, 1}, {}, kSlab},
                                     {"from", -1, {3, 2, 2}, {}, " 13 12 12 93 94 95"},
                                     {"from", 0, {1, 4}, {}, kFile},
                                     {"from", 0, {}, {}, kFile},
                                     {"move", 0, {3, 0, 3}, {1, 5, 0}, " 13 13 92 93 94 10"},
                                     {"move", 0, {3, 0}, {1}, kRead},
                                     {"move", 0, {}, {1}, kFile},
                                     {"move", 0, {1}, {}, kMemory},
                                     {"move", 0, {1}, {99}, kMemory},
                                     {"run", t, {1}, {4, 0, 2}, " 12 91 13 93 11 95"},
                                     {"run", -1, {1}, {4, 0}, kRead},
                                     {"run", t, {2}, {4, 0, 2}, kRead},
                                     {"run", t, {2}, {}, kMemory},
                                     {"set", t, {1}, {5, 0, 0}, keptAll},
                                     {"set", -1, {1}, {1}, kWrite},
                                     {"set", t, {3}, {1, 1}, kWrite},
                                     {"set", t, {0}, {6}, kMemory}};
    std::vector<int> ids = {10, 11, 12, 13};
    const auto table = root->CreateTableFromBuffer("x", ids.data(), 4, t, 0, -1, 0);
    const auto empty = root->CreateTable("empty", t);
    for (const Case& one : cases)
    {
        for (const bool isNull : {false, true})
        {
            std::vector<int> buffer = {90, 91, 92, 93, 94, 95};
            const std::string words = WordsOf([&] { move(one, isNull ? *empty : *table, buffer.data()); });
            EXPECT_EQ(words.empty() ? Joined(buffer) : words, isNull ? one.onNull : one.onRows) << &one - &cases[0];
        }
    }
    EXPECT_EQ(ContentOf(table->LocationID(), t), " 4 chunk 4: 10 95 90 90");
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
                          {6, Rows{}, -1, 0, 0, "nothing:", kMemory},
                          {5, Rows{5}, -1, 0, 0, "nothing:", kMemory},
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
    int row = 7;
    const ScopedType wide = CompoundOf({{"f", H5T_NATIVE_FLOAT}, {"g", H5T_NATIVE_CHAR}});
    WritePlain(root->LocationID(), "scalar", CompoundOf({{"id", H5T_NATIVE_INT}}).get(), Dims{}, {}, &row);
    const auto x = root->CreateGroup("group")->CreateTable("x", 3, wide.get(), 0);
    for (const int column : {-1, 2})
    {
        Names strings;
        const std::string words = "Invalid column index: " + std::to_string(column) + " (2 columns)";
        EXPECT_EQ(x->GetColumnName(column) + FailureOf([&] { x->GetColumnType(column); }), words);
        EXPECT_EQ(FailureOf([&] { x->FeedStringVector(strings, column); }), words);
    }
    x->ReOpen(root->LocationID(), "scalar");
    EXPECT_EQ(ColumnsOf(*x) + " " + x->GetName(), " 0 id 13 4  1 1 x");
    x->GetToBuffer(&(row = 0), 0);
    EXPECT_TRUE(row == 7 && x->ParentID() == root->LocationID());
    EXPECT_EQ(WordsOf([&] { root->GetTable("scalar")->ReOpen(-1, "x"); }), "Array does not exist:");
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
    auto read = rows;
    read.assign(rows.size(), {});
    H5Dread(x->LocationID(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data());
    EXPECT_EQ(read, rows);
    const Rows selection = {99999, 0, 50000, 4095, 4096};
    std::array<int, 5> picked = {};
    x->GetFromSelection(picked.data(), value.get(), selection);
    for (size_t i = 0; i < picked.size(); ++i)
    {
        EXPECT_EQ(picked[i], rows[selection[i]][1]);
    }
    std::vector<int> run(33333);
    x->GetFromHyperslab(run.data(), 1, 3, run.size(), value.get());
    EXPECT_TRUE(std::all_of(run.begin(), run.end(), [i = 1](int v) mutable { return v == 7 * (3 * i++ - 1) % 1001; }));
}

} // namespace tarnwick::hdf::tests
