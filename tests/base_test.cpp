#include "PlainHdf5.h"

#include <tarnwickhdf/internal/CheckResult.h>

#include <tarnwick/tarnwick.h>

#include <regex>

namespace tarnwick::hdf::tests
{

TEST(Base, TextOfOtherEncodingsIsConvertedAndBadBytesAreReplaced)
{
    EXPECT_EQ(latin1_to_utf8("Z\xFCrich"), "Z\xC3\xBCrich");
    EXPECT_EQ(latin1_to_utf8(std::string("a\0\xFF", 3)), std::string("a\0\xC3\xBF", 4));
    // Good text; then a Latin-1 byte, a cut sequence, an overlong one, a surrogate, a character past the last.
    EXPECT_EQ(utf8_to_filesystem_unicode("a\xC3\xBC/\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00FC/\u20AC\U0001F600");
    for (const std::string bad : {"\xFC", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    {
        EXPECT_EQ(utf8_to_filesystem_unicode(bad + "a"), std::wstring(bad.size(), L'\uFFFD') + L"a") << bad;
    }
}

class Fixture : public OpenFileTest
{
};

TEST_F(Fixture, SeesEveryKindOfIdThatIsLeftOpen)
{
    EXPECT_EQ(WordsOf([&] { root->GetArray("missing"); }), "Array does not exist:");
    const IdCounts before = IdCounts::Now();
    for (const hid_t left : {H5Screate(H5S_SCALAR), H5Tcopy(H5T_NATIVE_INT), H5Pcreate(H5P_DATASET_CREATE)})
    {
        EXPECT_FALSE(before == IdCounts::Now());
        H5Idec_ref(left);
    }
    EXPECT_EQ(before, IdCounts::Now());
}

class Errors : public HdfTest
{
};

TEST_F(Errors, OnlyResultsBelowZeroFailAndTheTracebackBeginsAtTheCall)
{
    const std::regex shape("no file:\n#0: in func H5Fclose\\(\\): .+\n  major: .+\n  minor: .+\n"
                           "(#[0-9]+: in func \\w+\\(\\): .+\n  major: .+\n  minor: .+\n)*");
    const std::string text = FailureOf([&] { CheckResult(H5Fclose(-1), "no file"); });
    EXPECT_TRUE(std::regex_match(text, shape)) << text;
    H5Eclear1();
    EXPECT_EQ(FailureOf([] { CheckResult(-1, "broken rule"); }), "broken rule:\n");
    EXPECT_EQ(FailureOf([] { CheckResult(-(1LL << 40U), "a ", "name", "'"); }), "a name':\n");
    EXPECT_EQ(FailureOf([] { CheckResult(0, "no failure"); }), "");
    EXPECT_EQ(FailureOf([] { CheckResult(0xFFFFFFFFLL, "no failure"); }), "");
    EXPECT_EQ(FailureOf([] { GarbageCollect(); }), "");
    H5Eset_auto1([](void* /*data*/) { return 0; }, nullptr);
    IFile::Open(Path("a.h5"), "w", 0);
    H5E_auto1_t printer = nullptr;
    void* data = nullptr;
    H5Eget_auto1(&printer, &data);
    EXPECT_EQ(printer, nullptr);
}

class DataTypes : public HdfTest
{
};

TEST_F(DataTypes, EachIsAPredefinedTypeAndReadsBackAsTheFirstThatIsEqual)
{
    const hid_t ids[] = {H5T_NATIVE_SCHAR, H5T_NATIVE_UCHAR,  H5T_NATIVE_SHORT, H5T_NATIVE_USHORT, H5T_NATIVE_INT,
                         H5T_NATIVE_UINT,  H5T_STD_I64LE,     H5T_STD_U64LE,    H5T_NATIVE_LONG,   H5T_NATIVE_ULONG,
                         H5T_NATIVE_LLONG, H5T_NATIVE_ULLONG, H5T_NATIVE_FLOAT, H5T_NATIVE_DOUBLE, H5T_IEEE_F32LE,
                         H5T_IEEE_F64LE,   H5T_C_S1};
    const int firstEqual[] = {1, 2, 3, 4, 5, 6, 7, 8, 7, 8, 7, 8, 13, 14, 13, 14, 17};
    for (int value = -1; value < 20; ++value)
    {
        const auto type = static_cast<TDataType::TDataType>(value);
        const bool known = value > 0 && value < 18;
        EXPECT_EQ(WordsOf([&] { INode::DataTypeToHDFType(type); }), known ? "" : "invalid TDataType:") << value;
        EXPECT_EQ(FailureOf([&] { INode::GetDataTypeSize(type); }), known && value < 17 ? "" : "unknown datatype!");
        if (known)
        {
            hid_t id = INode::DataTypeToHDFType(type);
            EXPECT_EQ(id, ids[value - 1]) << value;
            EXPECT_TRUE(value == 17 || INode::GetDataTypeSize(type) == H5Tget_size(id)) << value;
            const ScopedType copy(H5Tcopy(id));
            hid_t copyId = copy.get();
            EXPECT_EQ(INode::HDFTypeToDataType(id), firstEqual[value - 1]);
            EXPECT_EQ(INode::HDFTypeToDataType(copyId), firstEqual[value - 1]);
        }
    }
}

TEST_F(DataTypes, EveryStringTypeIsAStringAndWhatHasNoNameIsRefused)
{
    const hsize_t two = 2;
    const ScopedType text = StringType(20, H5T_CSET_UTF8);
    for (hid_t id : {H5Tcopy(text.get()), H5Tcreate(H5T_STRING, H5T_VARIABLE), H5Tvlen_create(text.get()), hid_t{-1}})
    {
        const auto wanted = id < 0 ? TDataType::Char : TDataType::String;
        EXPECT_EQ(INode::HDFTypeToDataType(id), H5Tget_class(id) == H5T_VLEN ? TDataType::VarLenString : wanted);
        H5Tclose(id);
    }
    for (hid_t id : {H5T_STD_I32BE, H5T_IEEE_F64BE, H5T_STD_B8LE, H5T_STD_REF_OBJ, H5Tcreate(H5T_COMPOUND, 8),
                     H5Tcreate(H5T_OPAQUE, 8), H5Tenum_create(H5T_NATIVE_INT), H5Tvlen_create(H5T_NATIVE_INT),
                     H5Tarray_create2(H5T_NATIVE_INT, 1, &two)})
    {
        EXPECT_EQ(WordsOf([&] { INode::HDFTypeToDataType(id); }), "invalid HDF type:") << H5Tget_class(id);
        H5Tclose(id);
    }
}

} // namespace tarnwick::hdf::tests
