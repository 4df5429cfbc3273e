#include "Fixture.h"

namespace tarnwick::hdf::tests
{

using Group = OpenFileTest;

TEST_F(Group, IsMadeLevelByLevelBelowTheOneAskedWhereverItsPathBegins)
{
    const auto group = root->CreateGroup("g");

    const auto child = group->CreateGroup("//h/i//");

    EXPECT_EQ(child->GetName(), "i");
    EXPECT_EQ(child->GetFullName(), "/g/h/i");
    EXPECT_EQ(root->CreateGroup("//"), nullptr);
}

TEST_F(Group, TakesTheCompressionOfTheHandleItWasReachedThrough)
{
    root->SetDefaultCompression(3);
    const auto group = root->CreateGroup("g");

    root->SetDefaultCompression(4);

    EXPECT_EQ(group->GetDefaultCompression(), 3);
    EXPECT_EQ(group->CreateGroup("h")->GetDefaultCompression(), 3);
    EXPECT_EQ(root->GetGroup("g")->GetDefaultCompression(), 4);
}

struct LinkedGroup : OpenFileTest
{
    LinkedGroup()
    {
        root->CreateGroup("g/h/i");
        H5Lcreate_soft("nowhere", root->LocationID(), "dangling", H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft("/g", root->LocationID(), "soft", H5P_DEFAULT, H5P_DEFAULT);
    }
};

TEST_F(LinkedGroup, IsFoundThroughSoftLinksAndSlashes)
{
    EXPECT_TRUE(root->HasGroup("soft/h//i/"));
    EXPECT_TRUE(root->GetGroup("g/h")->HasGroup("/g"));
    EXPECT_FALSE(root->HasGroup("dangling/h"));
    EXPECT_EQ(root->GetGroup("/soft")->GetName(), "/soft");
    EXPECT_EQ(root->GetGroup("/soft")->GetFullName(), "/soft");
}

TEST_F(LinkedGroup, ListsNamesOfAKindAndForgetsWhatTheVectorHeld)
{
    Names names = {"left from before"};

    (root.get()->*(&Inside::ListNames))(H5G_LINK, names);

    EXPECT_EQ(names, (Names{"dangling", "soft"}));
}

TEST_F(LinkedGroup, TellsALinkFromWhatItLeadsTo)
{
    H5Lcreate_external("test.h5", "/g", root->LocationID(), "external", H5P_DEFAULT, H5P_DEFAULT);

    std::vector<int> kinds;
    for (int child = 0; child < 5; ++child)
    {
        kinds.push_back(root->GetChildType(child));
    }

    // Dangling, external, g, soft, and one behind the last.
    EXPECT_EQ(kinds, (std::vector<int>{H5G_LINK, H5G_UDLINK, H5G_GROUP, H5G_LINK, H5G_UNKNOWN}));
    EXPECT_EQ(root->GetNumberOfGroups(), 1U);
    EXPECT_EQ(root->ListGroups().size(), 1U);
    EXPECT_FALSE(root->HasDataSet());
}

TEST_F(LinkedGroup, FailsInItsWords)
{
    ExpectWords({{[&] { root->HasGroup(""); }, "could not get info for :"},
                 {[&] { root->CreateGroup("dangling/x"); }, "could not create group 'dangling':"}});
}

} // namespace tarnwick::hdf::tests
