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

TEST_F(Group, GivesTablesItsCompressionWhereTheyHaveNoneOfTheirOwn)
{
    root->SetDefaultCompression(3);
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    int rows[] = {1, 2};

    const auto blank = root->CreateTable("blank", 2, row.get(), -1);
    const auto written = root->CreateTableFromBuffer("written", rows, 2, row.get(), -1, -1, 0);
    const auto selected = root->CreateTableFromSelection("selected", rows, 2, {0, 1}, row.get(), -1, -1, 0);
    const auto plain = root->CreateTableFromBuffer("plain", rows, 2, row.get(), 0, -1, 0);

    EXPECT_EQ(StorageOf(blank->LocationID()), " chunk [2] deflate 3");
    EXPECT_EQ(StorageOf(written->LocationID()), " chunk [2] deflate 3");
    EXPECT_EQ(StorageOf(selected->LocationID()), " chunk [2] deflate 3");
    EXPECT_EQ(StorageOf(plain->LocationID()), " chunk [2]");
}

TEST_F(Group, IsNotCountedTwiceWhereADamagedNameEndsTheListing)
{
    for (const char* name : {"a", "b", "c"})
    {
        root->CreateGroup(name);
    }
    file->Close();
    // The entries of a group's table have 40 bytes each, behind 8 bytes of a header. They begin with the name's place.
    const size_t table = Read("test.h5").find("SNOD");
    std::fstream bytes(Path("test.h5"), std::ios::in | std::ios::out | std::ios::binary);
    bytes.seekp(static_cast<std::streamoff>(table + 8 + 2 * 40));
    bytes.write("\xff\xff\0\0\0\0\0\0", 8);
    bytes.close();
    file = Open("test.h5", "r");

    EXPECT_LE(file->GetRoot()->GetNumberOfGroups(), 3U);
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
