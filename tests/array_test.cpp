#include "Fixture.h"

#include <tarnwickhdf/internal/IDataSetBuilder.h>

namespace tarnwick::hdf::tests
{

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
        Dims set(2);
        const auto create = [&]
        {
            IDataSetBuilder builder;
            builder.dcpl = H5Pcreate(H5P_DATASET_CREATE);
            builder.CreateSpace(int(dims.size()), dims.data(), elementSize, given.empty() ? nullptr : given.data());
            set.resize(static_cast<size_t>(H5Pget_chunk(builder.dcpl, 2, set.data())));
        };
        EXPECT_EQ(WordsOf(create), words);
        EXPECT_EQ(set, words.empty() ? chunk : Dims(2)) << dims[0];
    }
}

TEST_F(Array, AnEmptyOneRemembersItsCompressionAndAClosedOneComesBackWithAnotherShape)
{
    Numbers numbers = {1, 2};
    root->SetDefaultCompression(4);
    const auto array = root->CreateArray("a", String, 0);
    EXPECT_EQ(ContentOf(*root, "a") + std::to_string(root->GetArray("a")->GetSize()), ":0");
    EXPECT_EQ(WordsOf([&] { array->SetFromBuffer(nullptr, String, 0, 0); }), "");
    array->SetFromBuffer(numbers.data(), Int, 2, 1);
    EXPECT_EQ(ContentOf(*root, "a"), " 2 chunk 2 deflate 4: 1 2");
    EXPECT_THROW(array->ReOpen(root->LocationID(), "no"), std::runtime_error);
    EXPECT_EQ(WordsOf([&] { array->SetFromBuffer(numbers.data(), Int, 2, 1); }), "error writing to dataset:");
    array->SetFromBuffer(numbers.data(), Int, 1, 1);
    EXPECT_EQ(ContentOf(*root, "a"), " 1 chunk 1 deflate 4: 1");
}

TEST_F(Array, WhatDoesNotFitOrMayNotBeWrittenIsRefusedAndLosesNothing)
{
    Numbers numbers = {1, 2, 3};
    size_t ones[] = {1}, huge[] = {SIZE_MAX}, two[] = {2};
    const auto create = [&](const char* name, auto type)
    {
        root->CreateArrayFromBuffer(name, numbers.data(), type, 3, 1);
    };
    create("a", Int), create("s", String);
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector({"ab", "c"}, 1).get(), 2), "ac");
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector({"ab", "c"}, 3).get(), 6), std::string("ab\0c\0\0", 6));
    ExpectWords({{[&] { root->GetArray("a")->GetFromHyperslab(&numbers[0], 1, 1, ones, huge, two, Int); },
                  "Error creating array space hyperslab!:"},
                 {[&] { create("", Int); }, "could not get info for :"},
                 {[&] { create("new", VarLenString); }, "invalid TDataType:"},
                 {[&] { file->SetEncoding(H5T_CSET_RESERVED_2), create("s", String); },
                  "could not write charset for array: s:"},
                 {[&] { create("new", String); }, "error calling H5Tset_cset for array: new:"},
                 {[&] { Reopen("r"), create("a", Int); }, "error writing to dataset:"},
                 {[&] { root->CreateArray("a", Int, 0); }, "Fail to remove array: 'a':"}});
    EXPECT_EQ(ContentOf(*root, "a"), " 3 chunk 3: 1 2 3");
}

} // namespace tarnwick::hdf::tests
