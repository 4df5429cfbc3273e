#include <tarnwick/tarnwick.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarnwick::tests
{

TEST(Text, InUtf8BecomesAWidePathAndEachBadByteAReplacementCharacter)
{
    EXPECT_EQ(utf8_to_filesystem_unicode("a\xC3\xBC/\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00FC/\u20AC\U0001F600");

    // A byte of Latin-1, a cut and an overlong sequence, a surrogate, a character past the last.
    for (const std::string bad : {"\xFC", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    {
        EXPECT_EQ(utf8_to_filesystem_unicode(bad + "a"), std::wstring(bad.size(), L'\uFFFD') + L"a");
    }
}

TEST(Heap, IsCountedInSmallAndInLargeBlocksAsLongAsTheyAreThere)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers bring an allocator of their own, which the C library can't count";
#endif
    const auto before = static_cast<double>(count_heap_used_bytes());
    for (const size_t size : {size_t{500}, size_t{16} << 20U})
    {
        const std::vector<std::string> blocks((size_t{64} << 20U) / size, std::string(size, 'x'));
        const double bytes = static_cast<double>(blocks.size() * (size + sizeof(std::string)));

        EXPECT_NEAR((static_cast<double>(count_heap_used_bytes()) - before) / bytes, 1, 0.05) << size;
    }
}

} // namespace tarnwick::tests
