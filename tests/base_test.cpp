#include "Fixture.h"

#include <tarnwick/tarnwick.h>

namespace tarnwick::hdf::tests
{

TEST(Text, Latin1BecomesUtf8)
{
    EXPECT_EQ(latin1_to_utf8("Z\xFCrich"), "Z\xC3\xBCrich");
    EXPECT_EQ(latin1_to_utf8(std::string("a\0\xFF", 3)), std::string("a\0\xC3\xBF", 4));
}

class Fixture : public OpenFileTest
{
};

TEST_F(Fixture, TellsTheWordsOfAFailure)
{
    EXPECT_EQ(WordsOf([&] { root->GetArray("missing"); }), "Array does not exist:");
    EXPECT_EQ(WordsOf([&] { root->HasGroup("missing"); }), "");
}

} // namespace tarnwick::hdf::tests
