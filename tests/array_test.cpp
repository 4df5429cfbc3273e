#include "Fixture.h"

#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/utils.h>

namespace tarnwick::hdf::tests
{

using Strings = std::vector<std::string>;
using Numbers = std::vector<int>;
using namespace TDataType;

using Array = OpenFileTest;

TEST_F(Array, ChunksAreOneUpTo2GiBAndTheFewestEqualPiecesAbove)
{
    const std::string tooLarge = "Invalid chunk size: The maximum size for any chunk is 4GB.:";
    const std::string tooLong = "Invalid chunk size: Must be smaller than data set dimensions.:";
    using Row = std::tuple<size_t, Dims, Dims, Dims, std::string>;
    for (const auto& [elementSize, dims, given, chunk, words] :
         {Row{8, {1000, 3}, {}, {1000, 3}, ""}, Row{1, {2147483648}, {}, {2147483648}, ""},
          Row{1, {2147483649}, {}, {1073741824}, ""}, Row{1, {65536, 65536}, {}, {21845, 21845}, ""},
          Row{1, {2147483648, 2}, {}, {715827882, 2}, ""}, Row{8, {1000, 3}, {10, 3}, {10, 3}, ""},
          Row{1, {4294967295}, {4294967295}, {4294967295}, ""}, Row{1, {4294967296}, {4294967296}, {}, tooLarge},
          Row{1, {4294967296, 3}, {4294967296, 4}, {}, tooLong}})
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

TEST_F(Array, AnEmptyOneRemembersItsCompressionAndAClosedOneComesBackWithAnotherShape)
{
    Numbers numbers = {1, 2};
    root->SetDefaultCompression(4);
    for (const auto type : {Int, String})
    {
        const auto array = root->CreateArray("a", type, 0);
        EXPECT_EQ(ContentOf(*root, "a") + std::to_string(root->GetArray("a")->GetSize()), ":0");
        EXPECT_EQ(WordsOf([&] { array->SetFromBuffer(nullptr, type, 0, 0); }), "");
        array->SetFromBuffer(numbers.data(), Int, 2, 1);
        EXPECT_EQ(ContentOf(*root, "a"), " 2 chunk 2 deflate 4: 1 2");
        EXPECT_THROW(array->ReOpen(root->LocationID(), "no"), std::runtime_error);
        EXPECT_EQ(WordsOf([&] { array->SetFromBuffer(numbers.data(), Int, 2, 1); }), "error writing to dataset:");
        array->SetFromBuffer(numbers.data(), Int, 1, 1);
        EXPECT_EQ(ContentOf(*root, "a"), " 1 chunk 1 deflate 4: 1");
    }
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
         {[&] { matrix->GetFromHyperslab(out, 0, 1, 1, Int); }, notOne},
         {[&] { tall->GetFromHyperslab(out, 0, 1, 1, Int); }, notOne},
         {[&] { array->GetFromHyperslab(out, 0, 0, 2, Int); }, "Error creating array space hyperslab!:"},
         {[&] { matrix->GetFromHyperslab(out, 1, 3, ones, ones, ones, Int); }, tooMany},
         {[&] { matrix->GetFromHyperslab(out, 1, 1, ones, ones, ones, Int); }, wrongRank},
         {[&] { array->GetFromHyperslab(out, 1, 2, ones, ones, ones, Int); }, wrongRank},
         {[&] { array->GetFromHyperslab(out, 1, 1, ones, huge, two, Int); }, "Error creating array space hyperslab!:"},
         {[&] { array->GetFromHyperslab(out, 2, 1, ones, ones, ones, Int); }, readFails},
         {[&] { array->GetToMemoryHyperslab(out, 0, 0, 2, Int); }, "Error creating memory data space hyperslab!:"},
         {[&] { scalar->GetToMemoryHyperslab(out, 0, 1, 1, Int); }, "Error creating file data space hyperslab!:"},
         {[&] { tall->GetToMemoryHyperslab(out, 0, 1, 1, Int); }, notOne}});
    EXPECT_EQ(Joined(read), " 1 -2 3");
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
}

TEST_F(Array, EveryNthOfManyElementsIsReadPackedAndConverted)
{
    Numbers numbers(1 << 19);
    std::iota(numbers.begin(), numbers.end(), 0);
    const auto large = root->CreateArrayFromBuffer("large", numbers.data(), Int, numbers.size(), 1);
    for (const int stride : {2, 511, 600})
    {
        const int count = ((1 << 19) - 4) / stride + 1;
        const auto size = static_cast<size_t>(count);
        Numbers read(size), wanted(size);
        std::vector<double> converted(size);
        std::generate(wanted.begin(), wanted.end(), [=, i = 3 - stride]() mutable { return i += stride; });
        large->GetFromHyperslab(read.data(), 3, stride, count, Undefined);
        EXPECT_EQ(read, wanted);
        large->GetFromHyperslab(converted.data(), 3, stride, count, Double);
        EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), converted.begin()));
        EXPECT_EQ(WordsOf([&] { large->GetFromHyperslab(read.data(), 3 + stride, stride, count, Int); }),
                  "Error reading from dataset to a memory hyperslab!:");
    }
}

TEST_F(Array, FailuresOfOpensAndWritesHaveTheirWordsAndLoseNothing)
{
    Numbers numbers = {1, 2, 3};
    root->CreateGroup("g")->CreateArrayFromBuffer("a", numbers.data(), Int, 3, 1);
    const auto create = [&](const char* name, auto type)
    {
        root->CreateArrayFromBuffer(name, numbers.data(), type, 3, 1);
    };
    create("s", String);
    ExpectWords({{[&] { create("", Int); }, "could not get info for :"},
                 {[&] { create("no/y", Int); }, "could not create dataset:"},
                 {[&] { root->CreateArray("g", Int, 0); }, "could not create dataset:"},
                 {[&] { create("new", VarLenString); }, "invalid TDataType:"},
                 {[&] { file->SetEncoding(H5T_CSET_RESERVED_2), create("s", String); },
                  "could not write charset for array: s:"},
                 {[&] { create("new", String); }, "error calling H5Tset_cset for array: new:"}});
    Reopen("r");
    ExpectWords({{[&] { create("g/a", Int); }, "error writing to dataset:"},
                 {[&] { root->CreateArray("g/a", Int, 0); }, "Fail to remove array: 'g/a':"}});
    EXPECT_EQ(ContentOf(*root, "g/a"), " 3 chunk 3: 1 2 3");
}

TEST_F(Array, StringsAreCutAndPaddedOnTheWayInAndAsManyAsAskedForComeOut)
{
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector({"ab", "c"}, 1).get(), 2), "ac");
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector({"ab", "c"}, 3).get(), 6), std::string("ab\0c\0\0", 6));
    std::string items = "a\0b";
    const auto text = root->CreateArrayFromBuffer("a", items.data(), String, 1, 3);
    for (const size_t count : {0U, 1U, 3U})
    {
        Strings read(4, "old");
        Strings wanted = {"a", "", ""};
        utils::ReadStringDataSet(read, text->LocationID(), text->GetTypeID(), text->GetTypeID(), count, 3);
        wanted.resize(count);
        EXPECT_EQ(read, wanted);
    }
}

} // namespace tarnwick::hdf::tests
