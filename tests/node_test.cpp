#include "Fixture.h"

#include <tarnwickhdf/IArray.h>

#include <regex>

namespace tarnwick::hdf::tests
{

using Node = OpenFileTest;
using Group = OpenFileTest;

TEST_F(Node, AnInvalidOneFailsInItsOwnWords)
{
    const auto group = root->CreateGroup("g");
    file->Close();
    ExpectWords({{[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->SetAttr("a", ""); }, "Fail to delete an existing attribute named: a:"},
                 {[&] { group->ListAttrs(); }, "could not get number of attributes:"},
                 {[&] { group->GetGroup("x"); }, "Group does not exist:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
    EXPECT_FALSE(group->IsValid() || group->HasGroup("x") || group->HasArray("x") || group->HasTable("x"));
    EXPECT_TRUE(group->HasAttr("a") && group->LocationID() == -1 && group->GetName() == "g");
    file.reset();
    EXPECT_NE(FailureOf([&] { group->GetEncoding(); }), "");
}

TEST_F(Node, AnAssignedOneBelongsToTheFileItMovedTo)
{
    for (const bool targetGoesFirst : {true, false})
    {
        auto other = IFile::Open(Path("other.h5"), "w", 0);
        auto group = root->CreateGroup("old");
        auto array = root->CreateArray("a", TDataType::String, 0);
        *array = *other->GetRoot()->CreateArray("b", TDataType::Int, 0);
        *group = *other->GetRoot()->CreateGroup("new");
        Reopen();
        EXPECT_EQ(group->GetFullName() + array->GetFullName(), "/new/b");
        targetGoesFirst ? group.reset(), array.reset() : void();
        other->Close();
        EXPECT_TRUE(targetGoesFirst || (!group->IsValid() && !array->IsValid()));
    }
}

TEST_F(Node, TheFullNameIsThePathThatHdf5KnowsCutToTheBuffer)
{
    root->CreateGroup("a/b");
    const auto group = root->GetGroup("a//b");
    EXPECT_EQ(group->GetName() + " " + group->GetFullName(), "a//b /a/b");
    const std::string path = "/" + std::string(600, 'x') + "/" + std::string(600, 'y');
    EXPECT_EQ(root->CreateGroup(path)->GetFullName(), path.substr(0, 1023));
    root->DelGroup("a/b");
    EXPECT_EQ(group->GetFullName(), "");
    EXPECT_TRUE(group->IsValid());
}

TEST_F(Node, WithoutAFileObjectDataAreRefusedAsAPrecondition)
{
    int number = 1;
    const std::regex noFile(R"(Array\.tarnwickhdf:\d+: file must not be NULL \[.*: file\.get\(\) != NULL\])");
    EXPECT_TRUE(std::regex_match(
        FailureOf([&] { IArray::CreateFromBuffer({}, root->LocationID(), "b", &number, TDataType::Int, 1, 1, 0); }),
        noFile));
    EXPECT_FALSE(root->HasArray("b"));
}

TEST_F(Node, NullTextIsEmptyAndFailuresOfAttributesHaveTheirWords)
{
    const char* const null = nullptr;
    const ScopedType variable = StringType(H5T_VARIABLE, H5T_CSET_UTF8);
    const ScopedSpace scalar(H5Screate(H5S_SCALAR));
    ScopedAttribute made(H5Acreate1(root->LocationID(), "null", variable.get(), scalar.get(), H5P_DEFAULT));
    H5Awrite(made.get(), variable.get(), &null);
    made.reset();
    EXPECT_EQ(root->GetAttr("null"), "");
    ExpectWords(
        {{[&] { root->GetAttrType("no"); }, "invalid attribute name: no:"},
         {[&] { root->GetAttrName(-1); }, "could not open attribute by index:"},
         {[&] { file->SetEncoding(H5T_CSET_RESERVED_2), root->SetAttr("b", ""); },
          "could not set encoding for attribute: b:"},
         {[&] { Reopen("r"), root->SetAttr("null", "x"); }, "Fail to delete an existing attribute named: null:"}});
}

TEST_F(Group, AnswersForWhatIsInTheWayAndFailsInItsWords)
{
    root->CreateGroup("g/h");
    WritePlain(root->LocationID(), "d", H5T_NATIVE_INT, Dims{1});
    H5Lcreate_soft("nowhere", root->LocationID(), "dangling", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("/g", root->LocationID(), "soft", H5P_DEFAULT, H5P_DEFAULT);
    for (const std::string name : {"g", "/g/h", "g//h/", "/", "soft/h", "d", "d/x", "no", "no/x", "dangling"})
    {
        const bool there = name.find_first_not_of("gsofth/") == std::string::npos;
        EXPECT_EQ(root->HasGroup(name), there) << name;
        EXPECT_EQ(WordsOf([&] { root->GetGroup(name); }), there ? "" : "Group does not exist:") << name;
    }
    EXPECT_EQ(root->CreateGroup("//"), nullptr);
    const auto group = root->GetGroup("g");
    group->SetDefaultCompression(3);
    const auto child = group->CreateGroup("//h/i//");
    EXPECT_EQ(child->GetName() + child->GetFullName() + std::to_string(child->GetDefaultCompression()), "i/g/h/i3");
    ExpectWords({{[&] { root->HasGroup(""); }, "could not get info for :"},
                 {[&] { root->CreateGroup("./e"); }, "could not create group '.':"},
                 {[&] { root->CreateGroup("d/x/y"); }, "could not create group 'd':"},
                 {[&] { root->CreateGroup("dangling/x"); }, "could not create group 'dangling':"},
                 {[&] { root->DelGroup("no"); }, "could not remove group 'no':"},
                 {[&] { root->DelGroup("g"); }, ""}});
    EXPECT_TRUE(group->IsValid() && !root->HasGroup("g"));
}

} // namespace tarnwick::hdf::tests
