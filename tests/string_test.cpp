#include "Fixture.h"

#include <tarnwickhdf/utils.h>

#include <sys/resource.h>

namespace tarnwick::hdf::tests
{

using namespace TDataType;

namespace
{

const char* const kReadFailed = "error reading string buffer from dataset:";
const char* const kNoCharset = "could not detect charset from dataset:";

ScopedType Utf8Text(size_t size)
{
    ScopedType type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type.get(), size);
    H5Tset_strpad(type.get(), H5T_STR_NULLPAD);
    H5Tset_cset(type.get(), H5T_CSET_UTF8);
    return type;
}

long PeakKilobytes()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

struct Strings : OpenFileTest
{
    /// Makes a data set by plain HDF5; a scalar if it has no dimensions. Nothing is written without `texts`.
    ScopedDataSet Store(const std::string& name, const ScopedType& type, const Dims& extent, const char* texts,
                        const Dims& chunk = {}) const
    {
        const int rank = static_cast<int>(extent.size());
        const ScopedSpace space(rank == 0 ? H5Screate(H5S_SCALAR) : H5Screate_simple(rank, extent.data(), nullptr));
        const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
        if (!chunk.empty())
        {
            H5Pset_chunk(list.get(), rank, chunk.data());
        }
        ScopedDataSet dataSet(H5Dcreate2(root->LocationID(), name.c_str(), type.get(), space.get(), H5P_DEFAULT,
                                         list.get(), H5P_DEFAULT));
        if (texts != nullptr)
        {
            H5Dwrite(dataSet.get(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, texts);
        }
        return dataSet;
    }

    /// What plain HDF5 reads of a data set of texts of `size` bytes.
    std::string PlainHdf5Reads(const std::string& name, size_t items, size_t size) const
    {
        const ScopedDataSet dataSet(H5Dopen2(root->LocationID(), name.c_str(), H5P_DEFAULT));
        std::string bytes(items * size, '?');
        H5Dread(dataSet.get(), Utf8Text(size).get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
        return bytes;
    }
};

TEST_F(Strings, OfNoSizeAreWrittenAndReadInPlaceByTheByte)
{
    std::string bytes = "abc";
    const auto array = root->CreateArrayFromBuffer("s", bytes.data(), String, 3, 0);
    std::string rewritten = "xyz";
    std::string read = "???";

    array->SetFromBuffer(rewritten.data(), String, 3, 0);
    array->GetToBuffer(read.data(), Undefined);

    EXPECT_EQ(PlainHdf5Reads("s", 3, 1), "xyz");
    EXPECT_EQ(read, "xyz");
}

TEST_F(Strings, InAScalarTakeTheirFirstByteInPlace)
{
    Store("s", Utf8Text(4), {}, "text");
    std::string byte = "x";

    root->GetArray("s")->SetFromBuffer(byte.data(), Undefined, 0, 0);

    EXPECT_EQ(PlainHdf5Reads("s", 1, 4), std::string("x\0\0\0", 4));
}

TEST_F(Strings, InAScalarOfAnotherCharacterSetAreRefusedInPlaceButNotWhereThereIsNone)
{
    Store("scalar", TypeOf("H5T_STRING { STRSIZE 4; STRPAD H5T_STR_NULLPAD; CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; }"),
          {}, "text");
    const auto none = root->CreateArray("none", String, 0);
    std::string byte = "x";

    EXPECT_EQ(WordsOf([&] { root->GetArray("scalar")->SetFromBuffer(byte.data(), Undefined, 0, 0); }),
              "error writing to dataset:");
    EXPECT_EQ(WordsOf([&] { none->SetFromBuffer(byte.data(), String, 0, 0); }), "");
}

TEST_F(Strings, InTwoDimensionsAreNotMovedThroughABufferForOne)
{
    Store("s", Utf8Text(4), {1, 1000}, nullptr);
    const auto array = root->GetArray("s");
    std::string buffer(array->GetSize(), '?');
    const std::string words = "Invalid buffer size: the dataset holds more elements than this object tells!:";

    ExpectWords({{[&] { array->GetToBuffer(buffer.data(), Undefined); }, words},
                 {[&] { array->SetFromBuffer(buffer.data(), Undefined, 1, 4); }, words}});
}

TEST_F(Strings, AreReadUpToTheCountInTheOrderOfTheFile)
{
    const ScopedDataSet dataSet = Store("s", Utf8Text(1), {2, 3, 4}, "abcdefghijklmnopqrstuvwx");
    const ScopedType type = Utf8Text(1);
    const std::string all = "abcdefghijklmnopqrstuvwx";

    for (size_t count = 0; count <= all.size() + 2; ++count)
    {
        Names texts = {"before"};
        utils::ReadStringDataSet(texts, dataSet.get(), type.get(), type.get(), count, 1);

        std::string joined;
        for (const std::string& text : texts)
        {
            joined += text;
        }
        EXPECT_EQ(joined, all.substr(0, count));
        EXPECT_EQ(texts.size(), count);
    }
}

TEST_F(Strings, OfVariableLengthAreReadUpToTheCount)
{
    const ScopedType type =
        TypeOf("H5T_STRING { STRSIZE H5T_VARIABLE; STRPAD H5T_STR_NULLTERM; CSET H5T_CSET_UTF8; CTYPE H5T_C_S1; }");
    const char* const stored[] = {"one", "two", "three"};
    const ScopedDataSet dataSet = Store("s", type, {3}, reinterpret_cast<const char*>(stored));
    Names two;
    Names four;

    utils::ReadStringDataSet(two, dataSet.get(), type.get(), type.get(), 2, sizeof(char*));
    utils::ReadStringDataSet(four, dataSet.get(), type.get(), type.get(), 4, sizeof(char*));

    EXPECT_EQ(two, (Names{"one", "two"}));
    EXPECT_EQ(four, (Names{"one", "two", "three", ""}));
}

TEST_F(Strings, CostTheMemoryOfTheCountWhateverTheDataSetClaims)
{
    const ScopedType type = Utf8Text(8);
    const ScopedDataSet dataSet = Store("s", type, {hsize_t{1} << 30U}, nullptr, {1024});
    const long before = PeakKilobytes();
    Names texts;

    utils::ReadStringDataSet(texts, dataSet.get(), type.get(), type.get(), 1, 8);

    EXPECT_EQ(texts, Names{""});
    EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
}

TEST_F(Strings, AreReadBeforeTheirCharacterSetIsAskedFor)
{
    const ScopedType type = Utf8Text(4);
    const ScopedDataSet dataSet = Store("s", type, {1}, "text");
    Names texts = {"before"};
    const auto read = [&](hid_t from, hid_t storedType)
    {
        return TextOf([&] { utils::ReadStringDataSet(texts, from, storedType, type.get(), 1, 4); });
    };

    const std::string unread = read(-1, H5T_NATIVE_INT);
    const std::string noText = read(dataSet.get(), H5T_NATIVE_INT);

    EXPECT_EQ(unread.find(std::string(kReadFailed) + "\n#0: in func H5Dread"), 0U) << unread;
    EXPECT_EQ(noText.find(std::string(kNoCharset) + "\n#0: in func H5Tget_cset"), 0U) << noText;
    EXPECT_EQ(texts, Names{"before"});
}

} // namespace tarnwick::hdf::tests
