#include "PlainHdf5.h"

#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/internal/ObjectLookup.h>

#include <regex>

namespace tarnwick::hdf::tests
{

class Node : public OpenFileTest
{
protected:
    void WriteAttr(const std::string& name, hid_t type, hsize_t length, const void* data)
    {
        const ScopedSpace space(length == 0 ? H5Screate(H5S_NULL) : H5Screate_simple(1, &length, nullptr));
        const ScopedAttribute made(H5Acreate1(root->LocationID(), name.c_str(), type, space.get(), H5P_DEFAULT));
        EXPECT_TRUE(length == 0 || H5Awrite(made.get(), type, data) >= 0) << name;
    }
};

TEST_F(Node, AnInvalidOneFailsInItsOwnWords)
{
    const auto group = root->CreateGroup("g");
    file->Close();
    ExpectWords({{[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->GetAttrType("a"); }, "invalid attribute name: a:"},
                 {[&] { group->SetAttr("a", ""); }, "Fail to delete an existing attribute named: a:"},
                 {[&] { group->GetNumberOfAttrs(); }, "could not get number of attributes:"},
                 {[&] { group->ListAttrs(); }, "could not get number of attributes:"},
                 {[&] { group->GetGroup("x"); }, "Group does not exist:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
    EXPECT_FALSE(group->IsValid() || group->HasGroup("x") || group->HasArray("x") || group->HasTable("x"));
    EXPECT_TRUE(group->HasAttr("a") && group->LocationID() == -1 && group->GetName() == "g");
    EXPECT_TRUE(group->GetEncoding() == H5T_CSET_UTF8 && group->GetFile().lock() == file);
    file.reset();
    EXPECT_NE(FailureOf([&] { group->GetEncoding(); }), "");
}

TEST_F(Node, AnAssignedOneBelongsToTheFileItMovedTo)
{
    for (const bool targetGoesFirst : {true, false})
    {
        int number = 2;
        auto other = IFile::Open(Path("other.h5"), "w", 0);
        auto group = root->CreateGroup("old");
        auto array = root->CreateArray("a", TDataType::String, 0);
        *array = *other->GetRoot()->CreateArrayFromBuffer("b", &number, TDataType::Int, 1, 1);
        *group = *other->GetRoot()->CreateGroup("new");
        *group = *group;
        Reopen();
        EXPECT_EQ(group->GetFullName() + array->GetFullName(), "/new/b");
        targetGoesFirst ? group.reset() : void();
        targetGoesFirst ? array.reset() : void();
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
    EXPECT_EQ(WordsOf([&] { group->Flush(); }), "");
}

TEST_F(Node, WithoutAFileObjectTextAndDataAreRefusedAsPreconditions)
{
    int number = 1;
    root->CreateArrayFromBuffer("a", &number, TDataType::Int, 1, 1);
    const auto array = IArray::Open({}, root->LocationID(), "a");
    const std::regex noEncoding(
        R"(Node\.tarnwickhdf:\d+: INode::GetEncoding\(\): file is NULL .*: f\.get\(\) != NULL\])");
    const std::regex noFile(R"(Array\.tarnwickhdf:\d+: file must not be NULL \[.*: file\.get\(\) != NULL\])");
    EXPECT_TRUE(std::regex_match(FailureOf([&] { array->SetAttr("t", "x"); }), noEncoding));
    EXPECT_TRUE(std::regex_match(
        FailureOf([&] { IArray::CreateFromBuffer({}, root->LocationID(), "b", &number, TDataType::Int, 1, 1, 0); }),
        noFile));
    EXPECT_FALSE(root->HasArray("b"));
}

TEST_F(Node, TextLiesInTheFileAsOneStringWithTheFilesMark)
{
    const int number = 7;
    const H5T_cset_t ascii = H5T_CSET_ASCII;
    const H5T_cset_t utf8 = H5T_CSET_UTF8;
    WriteAttr("a", H5T_NATIVE_INT, 1, &number);
    using Row = std::tuple<std::string, H5T_cset_t, size_t, std::string>;
    for (const auto& [value, encoding, size, comesBack] :
         {Row{"abc", utf8, 3, "abc"}, Row{"", utf8, 1, ""}, Row{std::string(1, '\0'), utf8, 1, ""},
          Row{std::string("a\0b\0", 4), utf8, 4, std::string("a\0b", 3)}, Row{"\xC2\xB0", utf8, 2, "\xC2\xB0"},
          Row{"\xB0", ascii, 1, "\xC2\xB0"}, Row{std::string(60000, 'x'), ascii, 60000, std::string(60000, 'x')}})
    {
        file->SetEncoding(encoding);
        root->SetAttr("a", value);
        EXPECT_EQ(root->GetAttr("a"), comesBack);
        const ScopedAttribute attribute(H5Aopen(root->LocationID(), "a", H5P_DEFAULT));
        const ScopedType type(H5Aget_type(attribute.get()));
        const ScopedSpace space(H5Aget_space(attribute.get()));
        EXPECT_EQ(H5Tget_size(type.get()), size);
        EXPECT_TRUE(H5Tget_strpad(type.get()) == H5T_STR_NULLTERM && H5Tget_cset(type.get()) == encoding);
        EXPECT_EQ(H5Sget_simple_extent_ndims(space.get()) * H5Sget_simple_extent_npoints(space.get()), 1);
    }
}

TEST_F(Node, TextOfOtherWritersIsReadAndWhatIsNoSingleTextIsRefused)
{
    const hsize_t two = 2;
    const char* const items[] = {"Z\xFC", "b"};
    const char* const null = nullptr;
    const ScopedType padded = StringType(5, H5T_CSET_UTF8);
    H5Tset_strpad(padded.get(), H5T_STR_NULLPAD);
    const ScopedType ascii = StringType(5, H5T_CSET_ASCII);
    const ScopedType variable = StringType(H5T_VARIABLE, H5T_CSET_ASCII);
    const ScopedType variableArray(H5Tarray_create2(variable.get(), 1, &two));
    const ScopedType fixedArray(H5Tarray_create2(ascii.get(), 1, &two));
    const std::string noText = "could not detect charset for attribute: a";
    const std::string unreadable = "could not read attribute: a";
    using Row = std::tuple<const ScopedType&, hsize_t, const void*, std::string, std::string>;
    const ScopedType number(H5Tcopy(H5T_NATIVE_INT));
    for (const auto& [type, length, data, text, failure] :
         {Row{padded, 1, "abc\0", std::string("abc\0", 4), ""}, Row{padded, 0, nullptr, "", ""},
          Row{padded, 2, "abcdefghij", "", unreadable}, Row{ascii, 1, "Z\xFC\0\0", "Z\xC3\xBC", ""},
          Row{variable, 1, items, "Z\xFC", ""}, Row{variable, 1, &null, "", ""}, Row{variable, 0, nullptr, "", ""},
          Row{variable, 2, items, "", unreadable}, Row{variableArray, 1, items, "", noText},
          Row{fixedArray, 1, "abcdefghij", "", noText}, Row{number, 1, "\1\0\0", "", noText}})
    {
        WriteAttr("a", type.get(), length, data);
        std::string read;
        EXPECT_EQ(FailureOf([&] { read = root->GetAttr("a"); }), failure);
        EXPECT_EQ(read, text);
        root->DelAttr("a");
    }
}

TEST_F(Node, FailuresOfAttributesHaveTheirWords)
{
    WriteAttr("big-endian", H5T_STD_I32BE, 0, nullptr);
    const auto setMarked = [&](int mark)
    {
        file->SetEncoding(static_cast<H5T_cset_t>(mark));
        root->SetAttr("a", "x");
    };
    EXPECT_EQ(root->GetAttrType("__vorl_api_version"), TDataType::UInt);
    ExpectWords(
        {{[&] { root->GetAttr("no"); }, "invalid attribute name: no:"},
         {[&] { root->GetAttrType("no"); }, "invalid attribute name: no:"},
         {[&] { root->GetAttrType("big-endian"); }, "invalid HDF type:"},
         {[&] { root->DelAttr("no"); }, "could not delete attribute no:"},
         {[&] { root->GetAttrName(2); }, "could not open attribute by index:"},
         {[&] { root->GetAttrName(-1); }, "could not open attribute by index:"},
         {[&] { root->SetAttr("a", std::string(70000, 'x')); }, "fail to create attribute: a:"},
         {[&] { setMarked(2); }, "could not set encoding for attribute: a:"},
         {[&] { Reopen("r"); }, ""},
         {[&] { root->SetAttr("a", "x"); }, "fail to create attribute: a:"},
         {[&] { root->SetAttr("big-endian", ""); }, "Fail to delete an existing attribute named: big-endian:"}});
}

TEST_F(Node, AListingOfAttributesFollowsTheIndexWithoutReservedNamesInEveryStorage)
{
    const ScopedPropertyList latest(H5Pcreate(H5P_FILE_ACCESS));
    H5Pset_libver_bounds(latest.get(), H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
    ScopedFile(H5Fcreate(Path("dense.h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, latest.get()));
    const auto dense = IFile::Open(Path("dense.h5"), "r+", 0);
    const ScopedPropertyList creation(H5Pcreate(H5P_GROUP_CREATE));
    for (const unsigned int order : {0U, 1U, 3U})
    {
        H5Pset_attr_creation_order(creation.get(), order);
        const std::string name = std::to_string(order);
        ScopedGroup(H5Gcreate2(dense->FileID(), name.c_str(), H5P_DEFAULT, creation.get(), H5P_DEFAULT));
        const auto group = dense->GetRoot()->GetGroup(name);
        for (const std::string& attribute : {std::string("__vorl_"), std::string("__vorl"), std::string(600, 'n')})
        {
            group->SetAttr(attribute, "x");
        }
        std::vector<std::string> walked;
        for (int count = 3; count < 40; ++count)
        {
            EXPECT_EQ(group->GetNumberOfAttrs(), count);
            walked.clear();
            for (int i = 0; i < count; ++i)
            {
                group->GetAttrName(i) == "__vorl_" ? void() : walked.push_back(group->GetAttrName(i));
            }
            EXPECT_EQ(group->ListAttrs(), walked) << order << " " << count;
            group->SetAttr("a" + std::to_string(99 - count), "");
        }
        EXPECT_EQ(std::count(walked.begin(), walked.end(), std::string(511, 'n')), 1);
        EXPECT_EQ(group->GetAttr("__vorl_"), "x");
    }
}

class Group : public OpenFileTest
{
};

TEST_F(Group, PathsAreReadLevelByLevel)
{
    using Row = std::tuple<std::string, std::string, std::string, std::string>;
    for (const auto& [path, prefixes, name, fullName] :
         {Row{"a/b/c", " a a/b a/b/c", "c", "/g/a/b/c"}, Row{"/a/b", " / /a /a/b", "b", "/g/a/b"},
          Row{"a//d/", " a a/d", "d", "/g/a/d"}, Row{"/", " /", "", ""}, Row{"", "", "", ""}})
    {
        EXPECT_EQ(Joined(CumulativePathPrefixes(path)), prefixes);
        const auto parent = root->CreateGroup("g");
        parent->SetDefaultCompression(3);
        const auto group = parent->CreateGroup(path);
        parent->SetDefaultCompression(4);
        EXPECT_EQ(group == nullptr, name.empty());
        EXPECT_TRUE(name.empty() || (group->GetName() == name && group->GetFullName() == fullName)) << path;
        EXPECT_TRUE(name.empty() || (group->GetDefaultCompression() == 3 && root->HasGroup(fullName))) << path;
        EXPECT_EQ(file->GetOpenGroupsCount(), name.empty() ? 2 : 3);
    }
}

TEST_F(Group, AnswersForWhatIsInTheWayAndFailsInItsWords)
{
    struct Access : IGroup
    {
        using IGroup::CreateSubGroup;
    };
    const auto createSub = [&](const char* name)
    {
        return (root.get()->*(&Access::CreateSubGroup))(name);
    };
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
    const auto group = root->GetGroup("g");
    EXPECT_NE(group->LocationID(), createSub("/g")->LocationID());
    EXPECT_NE(createSub("g/new"), nullptr);
    ExpectWords({{[&] { root->HasGroup(""); }, "could not get info for :"},
                 {[&] { root->GetGroup(""); }, "could not get info for :"},
                 {[&] { createSub(""); }, "could not get info for :"},
                 {[&] { createSub("no/x"); }, "could not create group 'no/x':"},
                 {[&] { root->CreateGroup("./e"); }, "could not create group '.':"},
                 {[&] { root->CreateGroup("d/x/y"); }, "could not create group 'd':"},
                 {[&] { root->CreateGroup("dangling/x"); }, "could not create group 'dangling':"},
                 {[&] { root->DelGroup("no"); }, "could not remove group 'no':"},
                 {[&] { root->DelGroup("d"); }, ""},
                 {[&] { root->DelGroup("g"); }, ""}});
    EXPECT_TRUE(group->IsValid() && !root->HasGroup("g") && !root->HasArray("d"));
}

} // namespace tarnwick::hdf::tests
