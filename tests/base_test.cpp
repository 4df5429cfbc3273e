#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>

#include <tarnwick/tarnwick.h>

#include <regex>

namespace tarnwick::hdf::tests
{

using Base = HdfTest;

TEST_F(Base, TextOfOtherEncodingsIsConvertedAndBadBytesAreReplaced)
{
    EXPECT_EQ(latin1_to_utf8(std::string("Z\xFC\0\xFF", 4)), std::string("Z\xC3\xBC\0\xC3\xBF", 6));
    EXPECT_EQ(utf8_to_filesystem_unicode("a\xC3\xBC/\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00FC/\u20AC\U0001F600");
    // A Latin-1 byte, a cut sequence, an overlong one, a surrogate, a character past the last.
    for (const std::string bad : {"\xFC", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    {
        EXPECT_EQ(utf8_to_filesystem_unicode(bad + "a"), std::wstring(bad.size(), L'\uFFFD') + L"a") << bad;
    }
}

TEST_F(Base, OnlyResultsBelowZeroFailAndTheTracebackBeginsAtTheCall)
{
    const std::regex shape("no file:\n#0: in func H5Fclose\\(\\): .+\n  major: .+\n  minor: .+\n(#[^#]+\n)*");
    EXPECT_TRUE(std::regex_match(FailureOf([&] { CheckResult(H5Fclose(-1), "no file"); }), shape));
    H5Eclear1();
    EXPECT_EQ(FailureOf([] { CheckResult(-(1LL << 40U), "a ", "name", "'"); }), "a name':\n");
    EXPECT_EQ(FailureOf([] { CheckResult(0, "rule"), CheckResult(0xFFFFFFFFLL, "rule"), GarbageCollect(); }), "");
}

TEST_F(Base, EachElementTypeIsAPredefinedTypeOfHdf5AndHasItsSize)
{
    const hid_t ids[] = {H5T_NATIVE_SCHAR, H5T_NATIVE_UCHAR,  H5T_NATIVE_SHORT, H5T_NATIVE_USHORT, H5T_NATIVE_INT,
                         H5T_NATIVE_UINT,  H5T_STD_I64LE,     H5T_STD_U64LE,    H5T_NATIVE_LONG,   H5T_NATIVE_ULONG,
                         H5T_NATIVE_LLONG, H5T_NATIVE_ULLONG, H5T_NATIVE_FLOAT, H5T_NATIVE_DOUBLE, H5T_IEEE_F32LE,
                         H5T_IEEE_F64LE,   H5T_C_S1};
    for (int value = -1; value < 20; ++value)
    {
        const auto type = static_cast<TDataType::TDataType>(value);
        const bool known = value > 0 && value < 18;
        hid_t id = -1;
        size_t size = 1;
        EXPECT_EQ(WordsOf([&] { id = INode::DataTypeToHDFType(type); }), known ? "" : "invalid TDataType:") << value;
        EXPECT_EQ(id, known ? ids[value - 1] : -1);
        EXPECT_EQ(FailureOf([&] { size = INode::GetDataTypeSize(type); }),
                  known && value < 17 ? "" : "unknown datatype!");
        EXPECT_EQ(size, known ? H5Tget_size(id) : 1);
    }
}

} // namespace tarnwick::hdf::tests
