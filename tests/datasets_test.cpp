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

const std::string kFile = "Error while selecting elements from file data set:";
const std::string kMemory = "Error while selecting elements from memory data set:";
const std::string kCreate = "could not create dataset:";

// How it lies in the file, and the size that the object knows.
std::string StateOf(const IExtensibleArray2D& array)
{
    return ContentOf(array.LocationID()) + " of" +
           Joined(std::array{array.GetNumberOfRows(), array.GetNumberOfColumns()});
}

} // namespace

TEST_F(Table, IsReplacedUnlessRowsAndTypeIdAreItsOwn)
{
    const ScopedType wide = CompoundOf({{"more", H5T_NATIVE_INT}, {"id", H5T_NATIVE_INT}});
    const ScopedType bigEndian = CompoundOf({{"id", H5T_STD_I32BE}});
    struct Case
    {
        std::function<void(ITable& x)> set;
        std::string content, words; // What is in the file afterwards, what was thrown.
    };
    const std::string kept = " 4 chunk 2 deflate 5: 3 4 5 6";
    const Case cases[] = {
        {[&](auto& x) { x.SetFromBuffer(b + 2, 4, x.GetCompoundTypeID(), 0); }, kept, ""},
        {[&](auto& x) { x.SetFromBuffer(b + 2, 4, t, 0); }, " 4 chunk 4: 3 4 5 6", ""},
        {[&](auto& x) { x.SetFromBuffer(b + 2, 6, -1, 0x100000002); }, " 6 chunk 6 deflate 2: 3 4 5 6 7 8", ""},
        {[&](auto& x) { x.SetFromBuffer(b + 2, 2, wide.get(), 0); }, " 2 chunk 2: 4 6", ""},
        {[&](auto& x) {
             x.SetFromSelection(b + 2, 4, {3, 3, 0}, t, 0, 2);
         },
         " 3 chunk 2: 6 6 3", ""},
        {[&](auto& x) { x.SetFromSelection(b + 2, 5, {5}, -1, 0, 0); }, "nothing:", kMemory},
        {[&](auto& x) { x.SetFromBuffer(b + 2, 1, bigEndian.get(), 0); }, " 1 chunk 1: 50331648", "invalid HDF type:"},
        {[&](auto& x) { x.SetFromBuffer(b + 2, 1, H5T_STD_I32LE, 0); }, " 1 chunk 1: 0", "could not open Table 'x':"}};
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
            EXPECT_EQ(WordsOf([&] { x->SetFromBuffer(b, 5, -1, 0); }), kCreate);
        }
        EXPECT_EQ(words.substr(0, words.find('\n')), one.words);
        EXPECT_EQ(ContentOf(*group, "x", t), one.content);
        EXPECT_EQ(ContentOf(x->LocationID(), t), words.empty() ? one.content : "nothing:");
        EXPECT_EQ(ContentOf(old.LocationID(), t), one.content == kept ? kept : " 4 chunk 2 deflate 5: 1 2 3 4");
        EXPECT_EQ(x->GetCompoundTypeID() == -1, !words.empty());
        EXPECT_TRUE(!words.empty() || std::to_string(x->GetNumberOfRows()) == one.content.substr(1, 1));
    }
}

TEST_F(Table, KeepsItsColumnsWhereItIsReopened)
{
    Names strings;
    const hid_t id = root->LocationID();
    const ScopedType all = CompoundOf({{"l", H5T_NATIVE_LONG}, {"s", H5T_NATIVE_SHORT}});
    const auto x = root->CreateGroup("group")->CreateTable("y", 2, all.get(), 0);
    root->CreateTable("z", t);
    ExpectWords({{[&] { ITable::CreateEmpty(file, id, "z", t); }, "Table already exist. Fail to create!:"},
                 {[&] { ITable::Create(file, id, "z", 1, t, 0); }, "Table already exist. Fail to create!:"},
                 {[&] { ITable::CreateFromBuffer(file, id, "z", b, 1, t, 0, 0, 0); }, kCreate},
                 {[&] { x->GetColumnType(2); }, "Invalid column index: 2 (2 columns)"},
                 {[&] { x->FeedStringVector(strings, -1); }, "Invalid column index: -1 (2 columns)"}});
    x->ReOpen(id, "z");
    EXPECT_EQ(Joined(Names{x->GetName(), x->GetColumnName(0), x->GetColumnName(1)}), " y id ");
    EXPECT_TRUE(x->GetColumnType(0).hdfType == x->GetColumnTypeID(0) && H5Tget_size(x->GetColumnTypeID(1)) == 2);
    EXPECT_TRUE(x->ParentID() == id && x->GetNumberOfRows() == 0);
}

TEST_F(DataSets, ManyScatteredRowsMoveAsFewDo)
{
    // Rows that are copied word by word and others, in one block and in several, to the buffer and back.
    for (const size_t width : {1U, 2U, 40U})
    {
        const hsize_t count = 400000 / width;
        std::vector<std::pair<std::string, hid_t>> members;
        std::generate_n(std::back_inserter(members), width,
                        [&] { return std::pair(std::to_string(members.size()), H5T_NATIVE_INT); });
        const ScopedType type = CompoundOf(members);
        std::vector<int> rows(count * width), read(rows.size()), picked(rows.size() / 20), every = picked;
        std::generate(rows.begin(), rows.end(), [i = 0]() mutable { return 7 * ++i % 100001; });
        const auto x = root->CreateTableFromBuffer(std::to_string(width), rows.data(), count, type.get(), width % 2, -1,
                                                   width % 2 * 2048);
        Dims selection(count / 20);
        std::generate(selection.begin(), selection.end(),
                      [&, i = hsize_t{0}]() mutable { return i = (i + 77777) % count; });
        x->GetFromSelection(picked.data(), -1, selection);
        x->GetFromHyperslabToSelection(read.data(), count, type.get(), 9, selection);
        x->GetFromHyperslab(every.data(), 5, 19, count / 20, type.get());
        for (size_t i = 0; i < selection.size(); ++i)
        {
            const auto isRow = [&](hsize_t index, const std::vector<int>& buffer, hsize_t place)
            {
                return std::equal(&rows[index * width], &rows[index * width] + width, &buffer[place * width]);
            };
            EXPECT_TRUE(isRow(selection[i], picked, i) && isRow(i + 9, read, selection[i])) << i;
            EXPECT_TRUE(isRow(5 + 19 * i, every, i)) << i;
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
        ExpectWords({{[&] { x->GetFromSelection(picked.data(), -1, selection); }, kFile},
                     {[&] { x->GetToSelection(read.data(), count - 1, -1, backwards); }, kMemory}});
    }
    std::vector<int> elements(1 << 19);
    std::iota(elements.begin(), elements.end(), 0);
    const auto large = root->CreateArrayFromBuffer("large", elements.data(), Int, elements.size(), 1);
    for (const int stride : {2, 511, 600})
    {
        std::vector<double> read(static_cast<size_t>(((1 << 19) - 4) / stride + 1)), wanted = read;
        std::generate(wanted.begin(), wanted.end(), [=, i = 3 - stride]() mutable { return i += stride; });
        large->GetFromHyperslab(read.data(), 3, stride, static_cast<int>(read.size()), Double);
        EXPECT_EQ(read, wanted);
        large->GetFromHyperslab(elements.data(), 3, stride, static_cast<int>(read.size()), Undefined);
        EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), elements.begin()));
        EXPECT_EQ(WordsOf([&] { large->GetFromHyperslab(read.data(), 3 + stride, stride, int(read.size()), Int); }),
                  "Error reading from dataset to a memory hyperslab!:");
    }
}

TEST_F(ExtensibleArray2D, AppendsTakeTheirPlaceFromTheFileAndTheirWidthFromTheObject)
{
    const auto x = root->CreateExtensibleArray2D("x", Int, 0, 0, 2, 2, 0);
    EXPECT_EQ(x->Resize(1, 2), 0);
    EXPECT_EQ(WordsOf([&] { x->AppendRowFromBuffer(b, Undefined); }), "invalid TDataType:");
    EXPECT_EQ(StateOf(*x), " 2 2 chunk 2 2: 0 0 0 0 of 1 2");
    x->AppendRowFromBuffer(b, Int);
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

TEST_F(DataSets, CopiesOfANodeGoInAnyOrderAlsoAfterTheFile)
{
    const auto dropInEveryOrder = [&](auto make, auto read)
    {
        std::array<size_t, 4> order = {0, 1, 2, 3}; // The three copies and the file.
        do
        {
            const auto other = IFile::Open(Path("other.h5"), "w", 0);
            std::array nodes = {make(*root), make(*other->GetRoot()), decltype(make(*root))()};
            *nodes[1] = *nodes[0];
            nodes[2].reset(new auto(*nodes[1]));
            other->Close();
            for (const size_t next : order)
            {
                const std::string words = next < 3 ? WordsOf([&] { read(*nodes[next]); }) : (file->Close(), "");
                EXPECT_EQ(words.empty(), next == 3 || !file->IsClosed());
                next < 3 ? nodes[next].reset() : void();
            }
            Reopen("w");
        } while (std::next_permutation(order.begin(), order.end()));
    };
    dropInEveryOrder([&](IGroup& in) { return in.CreateTableFromBuffer("x", b, 1, t, 0, -1, 0); },
                     [&](auto& x) { x.GetToBuffer(b, 0); });
    dropInEveryOrder([&](IGroup& in) { return in.CreateArrayFromBuffer("x", b, Int, 1, 1); },
                     [&](auto& x) { x.GetToBuffer(b, Int); });
    dropInEveryOrder([&](IGroup& in) { return in.CreateExtensibleArray2D("x", Int, 1, 1, 1, 1, 0); },
                     [&](auto& x) { x.ReadRowToBuffer(0, b, Int); });
    dropInEveryOrder([&](IGroup& in) { return in.CreateGroup("x"); }, [&](auto& x) { x.GetFullName(); });
}

} // namespace tarnwick::hdf::tests
