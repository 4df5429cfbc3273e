#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>

#include <regex>

namespace tarnwick::hdf::tests
{

using Object = HdfTest;
using Node = OpenFileTest;

TEST_F(Object, FailsForResultsBelowZeroWithATracebackThatBeginsAtTheCall)
{
    const long long negativeInItsLow32Bits = 0xFFFFFFFFLL;
    const long long negativeInItsHighBitsAlone = -(1LL << 40U);
    EXPECT_NO_THROW(CheckResult(negativeInItsLow32Bits, "rule"));
    EXPECT_THROW(CheckResult(negativeInItsHighBitsAlone, "rule"), std::runtime_error);

    const std::string text = TextOf([] { CheckResult(H5Fopen("missing", H5F_ACC_RDONLY, H5P_DEFAULT), "no file"); });
    const std::regex shape(
        "no file:\n#0: in func H5Fopen\\(\\): .+\n  major: File accessib.+\n  minor: .+\n(#[^#]+\n)+");
    EXPECT_TRUE(std::regex_match(text, shape)) << text;
    H5Eclear1();
    EXPECT_EQ(TextOf([] { CheckResult(-1, "a ", "name", "'"); }), "a name':\n");
}

TEST_F(Object, OfEachElementTypeHasTheSizeOfWhatHdf5MovesForIt)
{
    for (int value = TDataType::Char; value < TDataType::String; ++value)
    {
        const auto type = static_cast<TDataType::TDataType>(value);
        EXPECT_EQ(INode::GetDataTypeSize(type), H5Tget_size(INode::DataTypeToHDFType(type))) << value;
    }
    ExpectWords({{[] { INode::GetDataTypeSize(TDataType::Undefined); }, "unknown datatype!"},
                 {[] { INode::GetDataTypeSize(TDataType::String); }, "unknown datatype!"},
                 {[] { INode::DataTypeToHDFType(TDataType::Undefined); }, "invalid TDataType:"},
                 {[] { INode::DataTypeToHDFType(TDataType::VarLenString); }, "invalid TDataType:"}});
}

TEST_F(Node, OfAClosedFileFailsInItsOwnWords)
{
    const auto group = root->CreateGroup("g");

    file->Close();
    file->Close();

    EXPECT_TRUE(file->IsClosed());
    EXPECT_EQ(file->GetRoot(), nullptr);
    EXPECT_FALSE(group->IsValid());
    EXPECT_EQ(group->LocationID(), -1);
    EXPECT_EQ(group->GetName(), "g");
    EXPECT_TRUE(group->HasAttr("a"));
    EXPECT_FALSE(group->HasGroup("x"));
    ExpectWords({{[&] { file->GetFileName(); }, "Couldn't retrieve file name"},
                 {[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
}

TEST_F(Node, WhoseFileObjectIsGoneBreaksAPrecondition)
{
    int number = 1;
    file.reset();

    const std::string create =
        TextOf([&] { IArray::CreateFromBuffer({}, rootId, "b", &number, TDataType::Int, 1, 1, 0); });
    const std::string encoding = TextOf([&] { root->GetEncoding(); });

    const std::regex line(":\\d+:");
    EXPECT_EQ(std::regex_replace(create, line, ""),
              "Array.tarnwickhdf file must not be NULL [precondition failed: file.get() != NULL]");
    EXPECT_EQ(std::regex_replace(encoding, line, ""),
              "Node.tarnwickhdf INode::GetEncoding(): file is NULL [precondition failed: f.get() != NULL]");
}

TEST_F(Node, ThatIsAGroupIsMadeLevelByLevelWithTheCompressionOfTheHandleItWasReachedThrough)
{
    root->SetDefaultCompression(3);
    const auto group = root->CreateGroup("g");
    root->SetDefaultCompression(4);

    const auto child = group->CreateGroup("//h/i//");

    EXPECT_EQ(child->GetName(), "i");
    EXPECT_EQ(child->GetFullName(), "/g/h/i");
    EXPECT_EQ(child->GetDefaultCompression(), 3);
    EXPECT_EQ(root->GetGroup("/g")->GetName(), "/g");
    EXPECT_EQ(root->ListGroups().at(0)->GetDefaultCompression(), 4);
    EXPECT_EQ(root->CreateGroup("//"), nullptr);
}

TEST_F(Node, IsListedByItsKind)
{
    Names names = {"left from before"};
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    H5Tcommit1(rootId, "type", type.get());

    (root.get()->*&Inside::ListNames)(H5G_TYPE, names);

    EXPECT_EQ(names, Names{"type"});
}

TEST_F(Node, IsNotListedTwiceWhereADamagedNameEndsTheListing)
{
    Names names;
    root->CreateGroup("a");
    root->CreateGroup("b");
    root->CreateGroup("c");
    file->Close();
    std::string bytes = Read("test.h5");
    // The entries of a group's table have 40 bytes each, behind 8 bytes of a header. They begin with the name's place.
    bytes.replace(bytes.find("SNOD") + 8 + size_t{2} * 40, 2, "\xff\xff");
    std::ofstream(Path("test.h5"), std::ios::binary) << bytes;
    file = Open("test.h5", "r");

    TextOf([&] { (file->GetRoot().get()->*&Inside::ListNames)(H5G_GROUP, names); });

    EXPECT_LE(names.size(), 3U);
}

using Paths = OpenFileTest;

TEST_F(Paths, LeadToAGroupOrFailWithTheTracebackOfTheFirstLevelThatIsMissing)
{
    root->CreateGroup("g/h/i");
    root->CreateArray("data", TDataType::Int, 0);
    H5Lcreate_soft("/g", rootId, "soft", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("nowhere", rootId, "g/dangling", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_external("missing.h5", "/", rootId, "outside", H5P_DEFAULT, H5P_DEFAULT);

    for (const std::string name : {"/", "//g//h///i/", "soft/h/i"})
    {
        EXPECT_TRUE(root->HasGroup(name)) << name;
    }
    for (const std::string name : {"no", "no/x/y", "g/h/i/no/x", "data", "soft/no", "g/dangling", "g/dangling/x",
                                   "outside", "outside/x", ".", "./g", "g/.", "g/./h", "..", "g/../g"})
    {
        EXPECT_EQ(TextOf([&] { root->GetGroup(name); }), "Group does not exist:\n") << name;
    }
    const std::string throughData = TextOf([&] { root->GetGroup("data/x/y"); });
    EXPECT_EQ(throughData.find("Group does not exist:\n#0: in func H5Lexists()"), 0U) << throughData;
    EXPECT_EQ(WordsOf([&] { root->HasGroup(""); }), "could not get info for :");
}

} // namespace tarnwick::hdf::tests
