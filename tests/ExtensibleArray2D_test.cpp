#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

namespace
{

using ExtensibleArray2D = OpenFileTest;

// Size and cells in the file, and the size that the object knows.
std::string StateOf(const IExtensibleArray2D& array)
{
    const std::string content = ContentOf(array.LocationID());
    return content.substr(0, content.find(" chunk")) + content.substr(content.find(':')) + " of" +
           Joined(std::vector{array.GetNumberOfRows(), array.GetNumberOfColumns()});
}

// Reaches what only the library's own code may call.
struct Inside : IExtensibleArray2D
{
    explicit Inside(const IExtensibleArray2D& array) : IExtensibleArray2D(array) {}
    using IExtensibleArray2D::CloseIOOperation;
};

} // namespace

TEST_F(ExtensibleArray2D, MovesRowsAndColumnsAndConvertsThem)
{
    const auto x = root->CreateExtensibleArray2D("x", TDataType::Int, 2, 3, 2, 2, 0);
    std::vector<int> numbers = {1, 2, 3};
    std::vector<double> fractions = {4.5, 5.5, 6.5, 7.5};
    x->WriteRowFromBuffer(0, numbers.data(), TDataType::Int);
    x->WriteColumnFromBuffer(2, numbers.data(), TDataType::Int);
    x->AppendRowFromBuffer(fractions.data(), TDataType::Double);
    x->AppendColumnFromBuffer(numbers.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 3 4: 1 2 1 1 0 0 2 2 4 5 6 3 of 3 4");
    Reopen();
    const auto again = root->GetExtensibleArray2D("x");
    again->ReadRowToBuffer(2, fractions.data(), TDataType::Double);
    again->ReadColumnToBuffer(1, numbers.data(), TDataType::UInt);
    EXPECT_EQ(Joined(fractions) + Joined(numbers), " 4 5 6 3 2 0 5");
    EXPECT_EQ(again->GetSizeInBytes(), 48U);
    EXPECT_EQ(again->GetType(), TDataType::Int);
}

TEST_F(ExtensibleArray2D, AppendsTakeTheirPlaceFromTheFileAndTheirWidthFromTheObject)
{
    const std::array<int, 4> b = {1, 2, 3, 4};
    const auto x = root->CreateExtensibleArray2D("x", TDataType::Int, 0, 0, 2, 2, 0);
    x->AppendRowFromBuffer(b.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 1 0: of 1 0");
    EXPECT_EQ(x->Resize(1, 2), 0);
    EXPECT_EQ(WordsOf([&] { x->AppendRowFromBuffer(b.data(), TDataType::Undefined); }), "invalid TDataType:");
    EXPECT_EQ(StateOf(*x), " 2 2: 0 0 0 0 of 1 2");
    x->AppendRowFromBuffer(b.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 3 2: 0 0 0 0 1 2 of 2 2");
    EXPECT_EQ(FailureOf([&] { x->WriteRowFromBuffer(2, b.data(), TDataType::Int); }),
              "Invalid row index: 2 (2 rows x 2 columns)");
    // Another handle knows what it saw when it was opened, and never makes the array smaller.
    const auto other = root->GetExtensibleArray2D("x");
    other->AppendColumnFromBuffer(b.data(), TDataType::Int);
    x->AppendRowFromBuffer(b.data() + 2, TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 4 3: 0 0 1 0 0 2 1 2 3 3 4 0 of 3 2");
    x->AppendColumnFromBuffer(b.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*other), " 4 4: 0 0 1 1 0 0 2 2 1 2 3 3 3 4 0 0 of 3 3");
    EXPECT_EQ(other->Resize(2, 1), 0);
    other->AppendRowFromBuffer(b.data() + 3, TDataType::Int);
    EXPECT_EQ(StateOf(*other), " 3 1: 0 0 4 of 3 1");
}

TEST_F(ExtensibleArray2D, FailuresLeaveTheCountsAndNoId)
{
    const std::string failed = "error during io operation for ExtensibleArray2D dataset:";
    const hid_t id = root->LocationID();
    std::array<int, 4> b = {1, 2, 3, 4};
    WritePlain(id, "x", H5T_NATIVE_INT, Dims{1, 2}, {kInf, 2});
    const auto x = root->GetExtensibleArray2D("x");
    EXPECT_EQ(WordsOf([&] { x->AppendColumnFromBuffer(b.data(), TDataType::Int); }), failed);
    EXPECT_LT(x->Resize(1, 3), 0);
    x->AppendRowFromBuffer(b.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 2 2: 0 0 1 2 of 2 2");
    for (const int i : {-1, 2, 5})
    {
        const std::string end = " index: " + std::to_string(i) + " (2 rows x 2 columns)";
        EXPECT_EQ(FailureOf([&] { x->ReadRowToBuffer(i, b.data(), TDataType::Undefined); }), "Invalid row" + end);
        EXPECT_EQ(FailureOf([&] { x->WriteRowFromBuffer(i, b.data(), TDataType::Int); }), "Invalid row" + end);
        EXPECT_EQ(FailureOf([&] { x->ReadColumnToBuffer(i, b.data(), TDataType::Int); }), "Invalid column" + end);
        EXPECT_EQ(FailureOf([&] { x->WriteColumnFromBuffer(i, b.data(), TDataType::Int); }), "Invalid column" + end);
    }
    EXPECT_EQ(WordsOf([&] { x->ReadRowToBuffer(1, b.data(), TDataType::Undefined); }), "invalid TDataType:");
    const auto make = [&](TDataType::TDataType type, unsigned int size, unsigned int chunk)
    {
        return root->CreateExtensibleArray2D(std::to_string(size), type, size, size, chunk, 9, 0);
    };
    EXPECT_EQ(WordsOf([&] { make(TDataType::VarLenString, 3, 1); }), "invalid TDataType:");
    EXPECT_EQ(FailureOf([&] { make(TDataType::String, 4, 1)->GetSizeInBytes(); }), "unknown datatype!");
    EXPECT_EQ(make(TDataType::Char, 65536, 9)->GetSizeInBytes(), 0U);
    const auto fails = [&](IExtensibleArray2D& bad)
    {
        EXPECT_EQ(WordsOf([&] { bad.AppendRowFromBuffer(b.data(), TDataType::Int); }), failed);
        EXPECT_EQ(WordsOf([&] { bad.WriteColumnFromBuffer(0, b.data(), TDataType::Int); }), failed);
        EXPECT_LT(bad.Resize(5, 5), 0);
        EXPECT_EQ(bad.GetNumberOfRows() + bad.GetNumberOfColumns(), 4U);
    };
    fails(*make(TDataType::Int, 2, 0));
    EXPECT_FALSE(root->HasArray("2") || root->HasArray("3"));
    EXPECT_EQ(WordsOf([&] { Inside(*x).CloseIOOperation(-1, H5Screate(H5S_NULL), H5Screate(H5S_NULL)); }), failed);
    Reopen("r");
    const auto closed = root->GetExtensibleArray2D("x");
    fails(*closed);
    file->Close();
    fails(*closed);
}

TEST_F(ExtensibleArray2D, OpensOnlyWhatGrowsInTwoDimensions)
{
    const ScopedType compound = CompoundOf({{"number", H5T_NATIVE_INT}});
    const std::string fixed = "not an ExtensibleArray2D";
    const std::string rank = "dimension for ExtensibleArray did not return 2 as expected.";
    const std::tuple<hid_t, Dims, Dims, std::string> cases[] = {
        {H5T_NATIVE_INT, {2, 2}, {}, fixed},
        {compound.get(), {2, 2}, {kInf, kInf}, fixed},
        {compound.get(), {2}, {}, fixed},
        {H5T_NATIVE_INT, {}, {}, rank},
        {H5T_NATIVE_INT, {2}, {kInf}, rank},
        {H5T_NATIVE_INT, {2, 2, 2}, {kInf, 2, 2}, rank},
        {H5T_STD_I32BE, {2, 2}, {kInf, 2}, "invalid HDF type:\n"}};
    for (const auto& [type, dims, max, words] : cases)
    {
        const std::string name = std::to_string(root->GetNumberOfChildren());
        WritePlain(root->LocationID(), name, type, dims, max);
        EXPECT_EQ(FailureOf([&, n = name] { root->GetExtensibleArray2D(n); }), words) << name;
    }
}

TEST_F(ExtensibleArray2D, ChunksLargerThanHdf5sCacheAreWrittenAndReadBack)
{
    std::vector<int> row(1000);
    root->CreateExtensibleArray2D("x", TDataType::Int, 0, 1000, 500, 1000, 1);
    for (row[0] = 1; row[0] < 4; ++row[0])
    {
        root->GetExtensibleArray2D("x")->AppendRowFromBuffer(row.data(), TDataType::Int);
    }
    root->GetExtensibleArray2D("x")->ReadColumnToBuffer(0, row.data(), TDataType::Int);
    EXPECT_EQ(Joined(std::vector(row.begin(), row.begin() + 4)), " 1 2 3 0");
}

} // namespace tarnwick::hdf::tests
