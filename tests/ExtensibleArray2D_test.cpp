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

} // namespace

TEST_F(ExtensibleArray2D, MovesRowsAndColumnsAndConvertsThem)
{
    std::vector<int> numbers = {1, 2, 3};
    std::vector<double> fractions = {4.5, 5.5, 6.5, 7.5};
    for (const unsigned int chunk : {2U, 700U}) // 700 x 700 is more than HDF5's own cache of chunks holds.
    {
        const std::string name = std::to_string(chunk);
        const auto x = root->CreateExtensibleArray2D(name, TDataType::Int, 2, 3, chunk, chunk, 1);
        x->WriteRowFromBuffer(0, numbers.data(), TDataType::Int);
        x->WriteColumnFromBuffer(2, numbers.data(), TDataType::Int);
        x->AppendRowFromBuffer(fractions.data(), TDataType::Double);
        const auto again = root->GetExtensibleArray2D(name);
        again->AppendColumnFromBuffer(numbers.data(), TDataType::Int);
        EXPECT_EQ(StateOf(*again), " 3 4: 1 2 1 1 0 0 2 2 4 5 6 3 of 3 4");
        std::vector<double> row(4);
        std::vector<unsigned int> column(3);
        again->ReadRowToBuffer(2, row.data(), TDataType::Double);
        again->ReadColumnToBuffer(1, column.data(), TDataType::UInt);
        EXPECT_EQ(Joined(row) + Joined(column), " 4 5 6 3 2 0 5");
        EXPECT_EQ(again->GetSizeInBytes() + again->GetType(), 48U + TDataType::Int);
    }
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
    x->AppendRowFromBuffer(b.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 4 3: 0 0 0 0 0 0 4 0 0 1 2 3 of 4 3");
}

TEST_F(ExtensibleArray2D, FailuresLeaveTheCountsAndNoId)
{
    const std::string failed = "error during io operation for ExtensibleArray2D dataset:";
    std::array<int, 4> b = {1, 2, 3, 4};
    WritePlain(root->LocationID(), "x", H5T_NATIVE_INT, Dims{1, 2}, {kInf, 2});
    const auto x = root->GetExtensibleArray2D("x");
    EXPECT_EQ(WordsOf([&] { x->AppendColumnFromBuffer(b.data(), TDataType::Int); }), failed);
    x->AppendRowFromBuffer(b.data(), TDataType::Int);
    EXPECT_EQ(StateOf(*x), " 2 2: 0 0 1 2 of 2 2");
    for (const int i : {-1, 2})
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
    Reopen("r");
    const auto closed = root->GetExtensibleArray2D("x");
    fails(*closed);
    file->Close();
    fails(*closed);
}

TEST_F(ExtensibleArray2D, OpensOnlyWhatGrowsInTwoDimensions)
{
    const ScopedType rows = CompoundOf({{"number", H5T_NATIVE_INT}});
    const std::string fixed = "not an ExtensibleArray2D";
    const std::string rank = "dimension for ExtensibleArray did not return 2 as expected.";
    const std::vector<std::tuple<hid_t, Dims, Dims, std::string>> cases = {
        {H5T_NATIVE_INT, {2, 2}, {}, fixed}, {rows.get(), {2, 2}, {kInf, kInf}, fixed},
        {H5T_NATIVE_INT, {2}, {kInf}, rank}, {H5T_NATIVE_INT, {2, 2, 2}, {kInf, 2, 2}, rank},
        {H5T_NATIVE_INT, {}, {}, rank},      {H5T_STD_I32BE, {2, 2}, {kInf, 2}, "invalid HDF type:\n"}};
    for (const auto& [type, dims, max, words] : cases)
    {
        const std::string name = std::to_string(root->GetNumberOfChildren());
        WritePlain(root->LocationID(), name, type, dims, max);
        EXPECT_EQ(FailureOf([&] { root->GetExtensibleArray2D(name); }), words) << name;
    }
}

} // namespace tarnwick::hdf::tests
