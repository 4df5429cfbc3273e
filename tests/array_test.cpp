#include "PlainHdf5.h"

#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/utils.h>

namespace tarnwick::hdf::tests
{

using Strings = std::vector<std::string>;
using Numbers = std::vector<int>;
using namespace TDataType;

class DataSetBuilder : public OpenFileTest
{
};

TEST_F(DataSetBuilder, ChunksAreOneUpTo2GiBAndTheFewestEqualPiecesAbove)
{
    const std::string tooLarge = "Invalid chunk size: The maximum size for any chunk is 4GB.:";
    const std::string tooLong = "Invalid chunk size: Must be smaller than data set dimensions.:";
    using Row = std::tuple<size_t, Dims, Dims, Dims, std::string>;
    for (const auto& [elementSize, dims, given, chunk, words] :
         {Row{8, {1000, 3}, {}, {1000, 3}, ""}, Row{1, {2147483648}, {}, {2147483648}, ""},
          Row{1, {2147483649}, {}, {1073741824}, ""}, Row{1, {65536, 65536}, {}, {21845, 21845}, ""},
          Row{1, {2147483648, 2}, {}, {715827882, 2}, ""}, Row{2, {2147483648, 3}, {}, {306783378, 3}, ""},
          Row{0, {4294967295}, {}, {4294967295}, ""}, Row{8, {0, 3}, {}, {}, ""},
          Row{8, {1000, 3}, {10, 3}, {10, 3}, ""}, Row{1, {4294967295}, {4294967295}, {4294967295}, ""},
          Row{1, {4294967296}, {4294967296}, {}, tooLarge}, Row{1, {4294967296, 3}, {4294967296, 4}, {}, tooLong}})
    {
        Dims set;
        const auto create = [&]
        {
            IDataSetBuilder builder;
            builder.dcpl = H5Pcreate(H5P_DATASET_CREATE);
            const hsize_t* const chunkOrNone = given.empty() ? nullptr : given.data();
            builder.CreateSpace(static_cast<int>(dims.size()), dims.data(), elementSize, chunkOrNone);
            set.resize(2);
            set.resize(static_cast<size_t>(std::max(H5Pget_chunk(builder.dcpl, 2, set.data()), 0)));
        };
        EXPECT_EQ(WordsOf(create), words);
        EXPECT_EQ(set, chunk) << dims[0];
    }
}

TEST_F(DataSetBuilder, EachStageIsReachedOnce)
{
    IDataSetBuilder builder;
    const hsize_t four = 4;
    const std::array<int, 4> numbers = {1, 2, 3, 4};
    const hid_t parent = root->LocationID();
    EXPECT_EQ(WordsOf([&] { builder.SetChunk(1, &four); }), "Invalid property for setting chunk!:");
    builder.CreateSpace1D(4, 6, 4, 2);
    EXPECT_EQ(H5Pget_filter2(builder.dcpl, 0, nullptr, nullptr, nullptr, 0, nullptr, nullptr), H5Z_FILTER_SHUFFLE);
    builder.CreateDataSetAndWrite(parent, "a", H5T_NATIVE_INT, numbers.data(), -1);
    EXPECT_EQ(ContentOf(*root, "a"), " 4 chunk 2 deflate 6: 1 2 3 4");
    ExpectWords({{[&] { builder.CreateSpace(1, &four, 4, nullptr); }, "Data set space already created!:"},
                 {[&] { builder.CreateDataSet(parent, "b", H5T_NATIVE_INT); }, "DataSet already created!:"},
                 {[&] { builder.OpenDataSet(parent, "a"); }, "DataSet already created!:"},
                 {[&] { builder.OpenFileSpace(-1); }, "Invalid operation on an open data set space:"},
                 {[] { IDataSetBuilder().OpenFileSpace(-1); }, "Fail to on an open data set space:"}});
}

class Array : public OpenFileTest
{
protected:
    std::string LayoutOf(const std::string& name)
    {
        const std::string content = ContentOf(*root, name);
        return content.substr(0, content.find(':'));
    }
};

TEST_F(Array, LiesInTheFileAsOneChunkBehindTheFiltersOfItsGroup)
{
    Numbers buffer(100, 7);
    using Row = std::tuple<TDataType::TDataType, size_t, size_t, int, std::string>;
    for (const auto& [type, length, components, compression, layout] :
         {Row{Double, 10, 1, 0, " 10 chunk 10"}, Row{Double, 10, 3, 6, " 10 3 chunk 10 3 deflate 6"},
          Row{Short, 1, 2, -3, " 1 2 chunk 1 2"}, Row{Int, 10, 0, 0, " 10 0"}, Row{Int, 0, 1, 0, " 0"},
          Row{UChar, 9, 1, 10, " 9 chunk 9"}, Row{String, 5, 8, 9, " 5 chunk 5 deflate 9"},
          Row{String, 5, 0, 0, " 5 chunk 5"}})
    {
        root->SetDefaultCompression(compression);
        const auto array = root->CreateArrayFromBuffer("a", buffer.data(), type, length, components);
        EXPECT_EQ(LayoutOf("a"), layout);
        const ScopedDataSet dataSet(H5Dopen1(root->LocationID(), "a"));
        const ScopedType stored(H5Dget_type(dataSet.get()));
        const bool text = type == String;
        EXPECT_EQ(H5Tget_size(stored.get()), text ? std::max<size_t>(components, 1) : INode::GetDataTypeSize(type));
        EXPECT_TRUE(!text || (H5Tget_strpad(stored.get()) == H5T_STR_NULLPAD && H5Tget_cset(stored.get()) == 1));
        EXPECT_EQ(array->GetLength() * 100 + array->GetSize(), length * (100 + components));
        EXPECT_EQ(FailureOf([&] { array->GetSizeInBytes(); }), text ? "unknown datatype!" : "");
        root->DelArray("a");
    }
}

TEST_F(Array, RewriteIsInPlaceIfNothingChangesAndReplacesTheDataSetOtherwise)
{
    std::string text = "0123456789abcdefghijklmnopqrstuv";
    using Row = std::tuple<TDataType::TDataType, TDataType::TDataType, size_t, size_t, bool>;
    for (const auto& [first, second, length, components, inPlace] :
         {Row{Int, Int, 4, 1, true}, Row{Int, Undefined, 4, 1, true}, Row{Int, Int, 2, 2, false},
          Row{Int, Int, 3, 1, false}, Row{Int, Float, 4, 1, false}, Row{Long, Int64, 4, 1, true},
          Row{Long, Long, 4, 1, false}, Row{String, String, 4, 1, true}, Row{String, String, 4, 2, false}})
    {
        for (const bool opened : {false, true})
        {
            root->SetDefaultCompression(5);
            auto array = root->CreateArrayFromBuffer("a", std::string(32, '\0').data(), first, 4, 1);
            array = opened ? root->GetArray("a") : array;
            const hid_t before = array->LocationID();
            array->SetFromBuffer(text.data(), second, length, components);
            EXPECT_EQ(array->LocationID() == before, inPlace) << first << " " << second;
            std::string read(32, '\0');
            array->GetToBuffer(read.data(), Undefined);
            EXPECT_EQ(read.substr(0, 4), text.substr(0, 4));
            EXPECT_EQ(array->GetSize(), length * components);
            EXPECT_EQ(LayoutOf("a").find("deflate 5") != std::string::npos, inPlace || !opened);
            root->DelArray("a");
        }
    }
}

TEST_F(Array, AnEmptyOneRemembersItsCompressionForTheFirstWrite)
{
    root->SetDefaultCompression(4);
    Numbers numbers = {1, 2};
    for (const auto type : {Int, String})
    {
        const auto array = root->CreateArray("a", type, 0);
        EXPECT_EQ(LayoutOf("a") + std::to_string(root->GetArray("a")->GetSize()), "0");
        EXPECT_EQ(WordsOf([&] { array->SetFromBuffer(nullptr, type, 0, 0); }), "");
        array->SetFromBuffer(numbers.data(), Int, 2, 1);
        EXPECT_EQ(ContentOf(*root, "a"), " 2 chunk 2 deflate 4: 1 2");
    }
}

TEST_F(Array, OpensWhatHasAtMostTwoDimensionsOfNumbersOrStrings)
{
    Numbers numbers = {1, 2};
    const ScopedType text = StringType(8, H5T_CSET_ASCII);
    const ScopedType variable = StringType(H5T_VARIABLE, H5T_CSET_UTF8);
    const ScopedType texts(H5Tvlen_create(text.get()));
    const ScopedType compound = CompoundOf({{"n", H5T_NATIVE_INT}});
    const hid_t number = H5T_NATIVE_INT;
    const std::string tooMany = "there's no support for arrays with more than 2 dimensions:";
    const std::string tooManyTexts = "there's no support for variable length strings with more than 1 dimension:";
    const auto other = root->CreateArrayFromBuffer("other", numbers.data(), Int, 2, 1);
    using Row = std::tuple<hid_t, std::optional<Dims>, Dims, size_t, size_t, std::string>;
    for (const auto& [type, dims, max, length, components, words] :
         {Row{number, std::nullopt, {}, 0, 0, ""}, Row{number, Dims{}, {}, 0, 0, ""}, Row{number, {{1}}, {}, 1, 1, ""},
          Row{number, {{1, 1}}, {}, 1, 1, ""}, Row{number, {{4, 3}}, {4, kInf}, 4, 3, ""},
          Row{number, {{4}}, {kInf}, 4, 1, ""}, Row{text.get(), {{9}}, {}, 9, 8, ""},
          Row{text.get(), {{9, 3}}, {}, 9, 8, ""}, Row{variable.get(), {{5}}, {}, 5, sizeof(char*), ""},
          Row{texts.get(), {{5}}, {}, 5, 1, ""}, Row{number, {{2, 2}}, {kInf, kInf}, 0, 0, "not a valid Array"},
          Row{number, {{2, 2, 2}}, {}, 0, 0, tooMany}, Row{texts.get(), {{2, 2}}, {}, 0, 0, tooManyTexts},
          Row{compound.get(), {{2, 2, 2}}, {}, 0, 0, "H5T_COMPOUND is not a valid Array:"},
          Row{H5T_STD_I32BE, {{2}}, {}, 0, 0, "invalid HDF type:"}})
    {
        WritePlain(root->LocationID(), "a", type, dims, max);
        size_t shape[] = {0, 0};
        const auto open = [&]
        {
            const auto array = root->GetArray("a");
            shape[0] = array->GetLength();
            shape[1] = array->GetComponents();
        };
        EXPECT_EQ(WordsOf(open), words);
        EXPECT_TRUE(shape[0] == length && shape[1] == components) << shape[0] << " " << shape[1];
        root->DelArray("a");
    }
    other->ReOpen(root->LocationID(), "other");
    EXPECT_THROW(other->ReOpen(root->LocationID(), "no"), std::runtime_error);
    EXPECT_FALSE(other->IsValid());
    EXPECT_EQ(WordsOf([&] { other->SetFromBuffer(numbers.data(), Int, 2, 1); }), "error writing to dataset:");
    other->SetFromBuffer(numbers.data(), Int, 1, 1);
    EXPECT_EQ(ContentOf(*root, "other"), " 1 chunk 1: 1");
}

TEST_F(Array, ReadsConvertNumbersAndRefuseWhatHasNoConversionAndWhatDoesNotFit)
{
    Numbers numbers = {1, -2, 3};
    std::string text("ab\0cdefgh", 9);
    const auto array = root->CreateArrayFromBuffer("a", numbers.data(), Int, 3, 1);
    const auto strings = root->CreateArrayFromBuffer("s", text.data(), String, 3, 3);
    const auto matrix = root->CreateArrayFromBuffer("m", numbers.data(), Int, 1, 3);
    WritePlain(root->LocationID(), "tall", H5T_NATIVE_INT, Dims{3, 1});
    WritePlain(root->LocationID(), "scalar", H5T_NATIVE_INT, Dims{});
    const auto tall = root->GetArray("tall");
    const auto scalar = root->GetArray("scalar");
    std::vector<double> read(3);
    double* const out = read.data();
    array->GetToBuffer(out, Double);
    EXPECT_EQ(Joined(read), " 1 -2 3");
    size_t ones[] = {1, 1, 1};
    size_t huge[] = {SIZE_MAX};
    size_t two[] = {2};
    const std::string notOne = "Error reading hyperslab from a multidimensional array!:";
    const std::string wrongRank = "Error reading hyperslab: the number of dimensions doesn't match the array!:";
    const std::string tooMany = "Error reading hyperslab: there's no support for arrays with more than 2 dimensions!:";
    const std::string readFails = "Error reading from dataset to a memory hyperslab!:";
    ExpectWords(
        {{[&] { array->GetToBuffer(out, String); }, "Error -1 while reading from dataset 'a':"},
         {[&] { strings->GetToBuffer(out, Double); }, "Error -1 while reading from dataset 's':"},
         {[&] { array->GetToBuffer(out, VarLenString); }, "invalid TDataType:"},
         {[&] { array->GetFromHyperslab(out, 0, 1, 1, VarLenString); }, "invalid TDataType:"},
         {[&] { array->GetToMemoryHyperslab(out, 0, 1, 1, VarLenString); }, "invalid TDataType:"},
         {[&] { array->GetFromHyperslab(out, 0, 1, 1, String); }, readFails},
         {[&] { matrix->GetFromHyperslab(out, 0, 1, 1, Int); }, notOne},
         {[&] { strings->GetFromHyperslab(out, 0, 1, 1, String); }, notOne},
         {[&] { tall->GetFromHyperslab(out, 0, 1, 1, Int); }, notOne},
         {[&] { array->GetFromHyperslab(out, 0, 0, 2, Int); }, "Error creating array space hyperslab!:"},
         {[&] { matrix->GetFromHyperslab(out, 1, 3, ones, ones, ones, Int); }, tooMany},
         {[&] { matrix->GetFromHyperslab(out, 1, 1, ones, ones, ones, Int); }, wrongRank},
         {[&] { array->GetFromHyperslab(out, 1, 2, ones, ones, ones, Int); }, wrongRank},
         {[&] { array->GetFromHyperslab(out, 1, 0, ones, ones, ones, Int); }, wrongRank},
         {[&] { array->GetFromHyperslab(out, 1, 1, ones, huge, two, Int); }, "Error creating array space hyperslab!:"},
         {[&] { array->GetFromHyperslab(out, 2, 1, ones, ones, ones, Int); }, readFails},
         {[&] { array->GetToMemoryHyperslab(out, 0, 0, 2, Int); }, "Error creating memory data space hyperslab!:"},
         {[&] { scalar->GetToMemoryHyperslab(out, 0, 1, 1, Int); }, "Error creating file data space hyperslab!:"},
         {[&] { tall->GetToMemoryHyperslab(out, 0, 1, 1, Int); }, notOne}});
    EXPECT_EQ(Joined(read), " 1 -2 3");
    std::string back(9, 'x');
    strings->GetToBuffer(back.data(), Undefined);
    EXPECT_EQ(back, text);
    strings->GetFromHyperslab(back.data(), 1, 1, ones, ones, ones, String);
    EXPECT_EQ(back.substr(0, 3), "cde");
}

TEST_F(Array, HyperslabsPackAndSpreadOrAreRefused)
{
    Numbers numbers(8);
    std::iota(numbers.begin(), numbers.end(), 0);
    const auto row = root->CreateArrayFromBuffer("row", numbers.data(), Int, 8, 1);
    for (int i = 0; i < 7 * 7 * 7; ++i)
    {
        const int start = i % 7 - 2;
        const int stride = i / 7 % 7 - 2;
        const int count = i / 49 - 2;
        Numbers packed(8, -1);
        Numbers spread(40, -1);
        Numbers packedWanted = packed;
        Numbers spreadWanted = spread;
        const bool packs = count == 0 || (start >= 0 && stride > 0 && count > 0 && start + (count - 1) * stride < 8);
        const bool spreads = count == 0 || (start >= 0 && start < stride && count > 0);
        for (int n = 0; n < count; ++n)
        {
            packs ? void(packedWanted[static_cast<size_t>(n)] = start + n * stride) : void();
            spreads ? void(spreadWanted[static_cast<size_t>(start + n * stride)] = n) : void();
        }
        const std::string packWords = WordsOf([&] { row->GetFromHyperslab(packed.data(), start, stride, count, Int); });
        WordsOf([&] { row->GetToMemoryHyperslab(spread.data(), start, stride, count, Undefined); });
        EXPECT_TRUE(packed == packedWanted && (packs || !packWords.empty())) << start << " " << stride << " " << count;
        EXPECT_EQ(spread, spreadWanted) << start << " " << stride << " " << count;
    }
    const auto matrix = root->CreateArrayFromBuffer("matrix", numbers.data(), Int, 2, 4);
    size_t start[] = {0, 1};
    size_t stride[] = {1, 2};
    size_t count[] = {2, 2};
    Numbers read(5, -1);
    matrix->GetFromHyperslab(read.data(), 4, 2, start, stride, count, Int);
    EXPECT_EQ(Joined(read), " 1 3 5 7 -1");
}

TEST_F(Array, FailuresOfWritesHaveTheirWordsAndNamesThatAreTakenTheirRules)
{
    Numbers numbers = {1, 2, 3};
    root->CreateGroup("g")->CreateArrayFromBuffer("a", numbers.data(), Int, 3, 1);
    const auto create = [&](const char* name, TDataType::TDataType type)
    {
        return root->CreateArrayFromBuffer(name, numbers.data(), type, 3, 1);
    };
    create("s", String);
    const auto encode = [&](int encoding, const char* name)
    {
        file->SetEncoding(static_cast<H5T_cset_t>(encoding));
        create(name, String);
    };
    auto orphan = root->GetGroup("g")->GetArray("a");
    EXPECT_THROW(orphan->SetFromBuffer(numbers.data(), Int, 2, 1), std::runtime_error);
    orphan.reset();
    ExpectWords({{[&] { create("g", Int); }, "could not create dataset:"},
                 {[&] { root->CreateArray("g", Int, 0); }, "could not create dataset:"},
                 {[&] { create("no/a", Int); }, "could not create dataset:"},
                 {[&] { create("", Int); }, "could not get info for :"},
                 {[&] { create("new", VarLenString); }, "invalid TDataType:"},
                 {[&] { root->CreateArray("new", Undefined, 0); }, "invalid TDataType:"},
                 {[&] { encode(2, "s"); }, "could not write charset for array: s:"},
                 {[&] { encode(2, "new"); }, "error calling H5Tset_cset for array: new:"},
                 {[&] { encode(H5T_CSET_ASCII, "s"); }, "error writing to dataset:"},
                 {[&] { Reopen("r"); }, ""},
                 {[&] { create("g/a", Int); }, "error writing to dataset:"},
                 {[&] { root->CreateArray("g/a", Int, 0); }, "Fail to remove array: 'g/a':"}});
    EXPECT_EQ(ContentOf(*root, "g/a"), " 3 chunk 3: 1 2 3");
}

TEST_F(Array, StringsAreCutAndPaddedOnTheWayInAndComeOutAsUtf8)
{
    using Row = std::tuple<Strings, size_t, std::string>;
    for (const auto& [strings, size, wanted] :
         {Row{{"ab", "c"}, 0, std::string("abc\0", 4)}, Row{{"ab", "c"}, 1, "ac"},
          Row{{"ab", "c"}, 3, std::string("ab\0c\0\0", 6)}, Row{{"", ""}, 0, std::string(2, '\0')}, Row{{}, 0, ""}})
    {
        const auto buffer = IArray::CreateBufferFromStringVector(strings, size);
        EXPECT_EQ(std::string(buffer.get(), wanted.size()), wanted);
    }
    EXPECT_EQ(IArray::CalculateMaxLengthFromStringVector({"ab", "", "abc"}), 3);
    std::string items("Z\xFCrich!\0b\0\0\0\0\0x\0\0\0\0\0\0", 21);
    for (const H5T_cset_t charset : {H5T_CSET_ASCII, H5T_CSET_UTF8})
    {
        file->SetEncoding(charset);
        const auto array = root->CreateArrayFromBuffer("cset", items.data(), String, 3, 7);
        const Strings wanted = {charset == H5T_CSET_ASCII ? "Z\xC3\xBCrich!" : "Z\xFCrich!", "", "x", "", ""};
        for (const size_t count : {3U, 0U, 1U, 5U})
        {
            Strings read(4, "old");
            const hid_t type = array->GetTypeID();
            utils::ReadStringDataSet(read, array->LocationID(), type, type, count, array->GetComponents());
            EXPECT_EQ(read, Strings(wanted.begin(), wanted.begin() + static_cast<int>(count)));
        }
        root->DelArray("cset");
    }
    const auto numbers = root->CreateArrayFromBuffer("n", items.data(), Int, 3, 1);
    Strings kept = {"kept"};
    const auto readAs = [&](hid_t type)
    {
        utils::ReadStringDataSet(kept, numbers->LocationID(), type, type, 3, H5Tget_size(type));
    };
    ExpectWords({{[&] { readAs(H5T_C_S1); }, "error reading string buffer from dataset:"},
                 {[&] { readAs(H5T_NATIVE_INT); }, "could not detect charset from dataset:"}});
    EXPECT_EQ(kept, Strings{"kept"});
}

} // namespace tarnwick::hdf::tests
