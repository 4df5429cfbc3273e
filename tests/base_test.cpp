#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>

#include <tarnwick/tarnwick.h>

namespace tarnwick::hdf::tests
{

using Base = HdfTest;

TEST_F(Base, IdsThatAreLeftOpenAreSeen)
{
    IdCounts expected = CountIds();
    const ScopedSpace space(H5Screate(H5S_NULL));
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    ++expected[3], ++expected[5], ++expected[6];
    EXPECT_EQ(CountIds(), expected);
}

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
    EXPECT_TRUE(std::regex_match(TextOf([&] { CheckResult(H5Fclose(-1), "no file"); }), shape));
    H5Eclear1();
    EXPECT_EQ(TextOf([] { CheckResult(-(1LL << 40U), "a ", "name", "'"); }), "a name':\n");
    EXPECT_EQ(TextOf([] { CheckResult(0, "rule"), CheckResult(0xFFFFFFFFLL, "rule"), GarbageCollect(); }), "");
}

TEST_F(Base, EachElementTypeHasTheSizeOfWhatHdf5MovesForIt)
{
    for (int value = -1; value < 20; ++value)
    {
        const auto type = static_cast<TDataType::TDataType>(value);
        const bool known = value > 0 && value < 18;
        size_t size = 1;
        EXPECT_EQ(WordsOf([&] { size = H5Tget_size(INode::DataTypeToHDFType(type)); }),
                  known ? "" : "invalid TDataType:");
        EXPECT_EQ(WordsOf([&] { EXPECT_EQ(INode::GetDataTypeSize(type), size) << value; }),
                  known && value < 17 ? "" : "unknown datatype!");
    }
}

} // namespace tarnwick::hdf::tests
