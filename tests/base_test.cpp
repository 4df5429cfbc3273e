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

TEST_F(Fixture, SeesEveryKindOfIdThatIsLeftOpen)
{
    const IdCounts before = IdCounts::Now();
    for (const hid_t left : {H5Screate(H5S_SCALAR), H5Tcopy(H5T_NATIVE_INT), H5Pcreate(H5P_DATASET_CREATE)})
    {
        EXPECT_FALSE(before == IdCounts::Now());
        H5Idec_ref(left);
    }
    EXPECT_EQ(before, IdCounts::Now());
}

} // namespace tarnwick::hdf::tests
