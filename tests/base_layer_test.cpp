#include <tarnwick/tarnwick.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace tarnwick::tests
{

TEST(Text, InLatin1BecomesUtf8)
{
    EXPECT_EQ(latin1_to_utf8(std::string("Z\xFC\0\xFF", 4)), std::string("Z\xC3\xBC\0\xC3\xBF", 6));
}

TEST(Text, InUtf8BecomesAWidePathAndEachBadByteAReplacementCharacter)
{
    EXPECT_EQ(utf8_to_filesystem_unicode("a\xC3\xBC/\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00FC/\u20AC\U0001F600");

    // A byte of Latin-1, a cut and an overlong sequence, a surrogate, a character past the last.
    for (const std::string bad : {"\xFC", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    {
        EXPECT_EQ(utf8_to_filesystem_unicode(bad + "a"), std::wstring(bad.size(), L'\uFFFD') + L"a");
    }
}

// In MiB.
double HeapInUse()
{
    return static_cast<double>(count_heap_used_bytes()) / (1U << 20U);
}

TEST(Heap, LargeAndSmallBlocksAppearAndGo)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers bring an allocator of their own, which the C library can't count";
#endif
    const double before = HeapInUse();
    auto large = std::make_unique<std::array<char, 64U << 20U>>();
    // Or a compiler may leave out a block that nobody looks at.
    const volatile void* const volatile seen = large.get();
    static_cast<void>(seen);
    EXPECT_NEAR(HeapInUse() - before, 64, 2);
    large.reset();

    std::vector<std::string> small(100000, std::string(500, 'x'));
    EXPECT_NEAR(HeapInUse() - before, 100000 * (512 + sizeof(std::string)) / 1048576.0, 2);

    small = std::vector<std::string>();
    EXPECT_NEAR(HeapInUse() - before, 0, 2);
}

} // namespace tarnwick::tests
