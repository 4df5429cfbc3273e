#include "Fixture.h"

namespace tarnwick::hdf::tests
{

using Node = OpenFileTest;
using Group = OpenFileTest;

TEST_F(Node, AnInvalidOneFailsInItsOwnWords)
{
    int number = 1;
    const auto group = root->CreateGroup("g");
    EXPECT_TRUE(std::regex_match(
        FailureOf([&] { IArray::CreateFromBuffer({}, root->LocationID(), "b", &number, TDataType::Int, 1, 1, 0); }),
        std::regex(R"(Array\.tarnwickhdf:\d+: file must not be NULL \[.*: file\.get\(\) != NULL\])")));
    EXPECT_FALSE(root->HasArray("b"));
    const auto other = IFile::Open(Path("other.h5"), "w", 0);
    const auto moved = root->CreateGroup("moved");
    *moved = *other->GetRoot();
    file->Close();
    EXPECT_TRUE(moved->IsValid() && moved->GetFullName() == "/");
    other->Close();
    EXPECT_FALSE(moved->IsValid());
    ExpectWords({{[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->SetAttr("a", ""); }, "Fail to delete an existing attribute named: a:"},
                 {[&] { group->ListAttrs(); }, "could not get number of attributes:"},
                 {[&] { group->GetGroup("x"); }, "Group does not exist:"},
                 {[&] { group->HasDataSet(); }, "error getting number of objects in group:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
    EXPECT_FALSE(group->IsValid() || group->HasGroup("x") || group->HasArray("x") || group->HasTable("x"));
    EXPECT_TRUE(group->HasAttr("a") && group->LocationID() == -1 && group->GetName() == "g");
    file.reset();
    EXPECT_NE(FailureOf([&] { group->GetEncoding(); }), "");
}

TEST_F(Group, AnswersForPathsAndFailsInItsWords)
{
    struct Inside : IGroup
    {
        using IGroup::ListNames;
    };
    Names names = {"left from before"};
    const std::string path = "/" + std::string(600, 'x') + "/" + std::string(600, 'y');
    EXPECT_EQ(root->CreateGroup(path)->GetFullName(), path.substr(0, 1023));
    H5Lcreate_soft("nowhere", root->LocationID(), "dangling", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("/g", root->LocationID(), "soft", H5P_DEFAULT, H5P_DEFAULT);
    (root.get()->*(&Inside::ListNames))(H5G_LINK, names);
    EXPECT_EQ(Joined(names), " dangling soft");
    const auto group = root->CreateGroup("g");
    group->SetDefaultCompression(3);
    const auto child = group->CreateGroup("//h/i//");
    EXPECT_EQ(child->GetName() + child->GetFullName() + std::to_string(child->GetDefaultCompression()), "i/g/h/i3");
    EXPECT_TRUE(root->HasGroup("soft/h//i/") && child->HasGroup("/g") && !root->HasGroup("dangling/h"));
    EXPECT_EQ(root->GetGroup("/soft")->GetName() + root->GetGroup("/soft")->GetFullName(), "/soft/soft");
    EXPECT_EQ(root->CreateGroup("//"), nullptr);
    ExpectWords({{[&] { root->HasGroup(""); }, "could not get info for :"},
                 {[&] { root->CreateGroup("dangling/x"); }, "could not create group 'dangling':"},
                 {[&] { root->GetAttrType("no"); }, "invalid attribute name: no:"},
                 {[&] { root->GetAttrName(-1); }, "could not open attribute by index:"},
                 {[&] { file->SetEncoding(H5T_CSET_RESERVED_2), root->SetAttr("b", ""); },
                  "could not set encoding for attribute: b:"},
                 {[&] { root->DelGroup("g"); }, ""}});
    EXPECT_TRUE(group->IsValid() && !root->HasGroup("g") && group->GetName() == "g" && group->GetFullName().empty());
}

} // namespace tarnwick::hdf::tests
