#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ObjectLookup.h>

#include <ctime>

namespace tarnwick::hdf::tests
{

using Object = HdfTest;
using Node = OpenFileTest;

TEST_F(Object, LeftOpenIsSeenByTheCountOfIds)
{
    const IdCounts before = CountIds();

    const ScopedSpace space(H5Screate(H5S_NULL));

    EXPECT_EQ(CountIds()[3], before[3] + 1);
}

TEST_F(Object, FailsForResultsBelowZeroWithATracebackThatBeginsAtTheCall)
{
    const long long negativeInItsLow32Bits = 0xFFFFFFFFLL;
    const long long negativeInItsHighBitsAlone = -(1LL << 40U);
    EXPECT_NO_THROW(CheckResult(negativeInItsLow32Bits, "rule"));
    EXPECT_THROW(CheckResult(negativeInItsHighBitsAlone, "rule"), std::runtime_error);

    const std::string text = TextOf([] { CheckResult(H5Fclose(-1), "no file"); });
    // HDF5 1.10.6 blames the file, later ones the argument.
    const std::regex shape("no file:\n#0: in func H5Fclose\\(\\): .+\n  major: (Invalid arg|File accessib).+\n"
                           "  minor: .+\n(#[^#]+\n)*");
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

    EXPECT_FALSE(group->IsValid());
    EXPECT_EQ(group->LocationID(), -1);
    EXPECT_EQ(group->GetName(), "g");
    EXPECT_TRUE(group->HasAttr("a"));
    EXPECT_FALSE(group->HasGroup("x"));
    ExpectWords({{[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
}

// The line that a precondition names must hold the test that failed.
void ExpectPrecondition(const std::string& text, const std::string& unit, const std::string& meaning,
                        const std::string& condition)
{
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(text, parts, std::regex("(.*):(\\d+): (.*)"))) << text;
    EXPECT_EQ(parts[1], unit);
    EXPECT_EQ(parts[3], meaning + " [precondition failed: " + condition + "]");
    std::ifstream source(TARNWICKHDF_SOURCES "/" + unit + ".cpp");
    std::string line;
    for (int number = 0; number < std::stoi(parts[2]); ++number)
    {
        std::getline(source, line);
    }
    EXPECT_NE(line.find(condition), std::string::npos) << line;
}

TEST_F(Node, WhoseFileObjectIsGoneBreaksAPrecondition)
{
    int number = 1;
    ExpectPrecondition(
        WordsOf([&] { IArray::CreateFromBuffer({}, root->LocationID(), "b", &number, TDataType::Int, 1, 1, 0); }),
        "Array.tarnwickhdf", "file must not be NULL", "file.get() != NULL");
    EXPECT_FALSE(root->HasArray("b"));

    file.reset();
    ExpectPrecondition(WordsOf([&] { root->GetEncoding(); }), "Node.tarnwickhdf", "INode::GetEncoding(): file is NULL",
                       "f.get() != NULL");
}

TEST_F(Node, TakesItsEncodingFromTheFileWhateverThatIs)
{
    int encoding = -70000;

    file->SetEncoding(static_cast<H5T_cset_t>(encoding));

    EXPECT_EQ(static_cast<int>(root->GetEncoding()), encoding);
}

TEST_F(Node, TellsTheFirst1023CharactersOfItsPathAndNoneOnceItIsRemoved)
{
    const std::string path = "/" + std::string(600, 'x') + "/" + std::string(600, 'y');
    const auto group = root->CreateGroup(path);
    EXPECT_EQ(group->GetFullName(), path.substr(0, 1023));

    root->DelGroup(path);

    EXPECT_TRUE(group->IsValid());
    EXPECT_EQ(group->GetFullName(), "");
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
    Names names = {"left from before"};
    (root.get()->*(&Inside::ListNames))(H5G_GROUP, names);
    EXPECT_EQ(names, Names{"g"});
}

TEST_F(Node, ThatIsANamedTypeIsListedAsOne)
{
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    H5Tcommit1(root->LocationID(), "type", type.get());
    root->CreateGroup("group");
    Names names;

    (root.get()->*(&Inside::ListNames))(H5G_TYPE, names);

    EXPECT_EQ(names, Names{"type"});
}

TEST_F(Node, IsNotCountedTwiceWhereADamagedNameEndsTheListing)
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
    Names names;

    TextOf([&] { (file->GetRoot().get()->*(&Inside::ListNames))(H5G_GROUP, names); });

    EXPECT_LE(names.size(), 3U);
    EXPECT_LE(file->GetRoot()->GetNumberOfGroups(), 3U);
}

std::string Repeated(const std::string& level, int times)
{
    std::string path;
    for (int i = 0; i < times; ++i)
    {
        path += level + "/";
    }
    return path;
}

/// What CheckObjectOfType says to one level after the other, each from the start of the path.
std::string AnswerLevelByLevel(hid_t location, const std::string& name)
{
    const CumulativePathPrefixes prefixes(name);
    for (size_t level = 0; level < prefixes.size(); ++level)
    {
        if (H5Lexists(location, prefixes[level].c_str(), H5P_DEFAULT) <= 0 ||
            H5Oexists_by_name(location, prefixes[level].c_str(), H5P_DEFAULT) <= 0)
        {
            return TextOf([] { CheckResult(-1, "Group does not exist"); });
        }
    }
    const ScopedGroup group(H5Gopen1(location, name.c_str()));
    H5Eclear1();
    return group.get() >= 0 ? "" : TextOf([] { CheckResult(-1, "Group does not exist"); });
}

using Paths = OpenFileTest;

TEST_F(Paths, AreAnsweredWithTheTracebackOfTheFirstLevelThatIsMissing)
{
    const hid_t at = root->LocationID();
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    const auto group = root->CreateGroup("g");
    group->CreateGroup("h/i");
    root->CreateArray("data", TDataType::Int, 0);
    H5Tcommit1(at, "type", type.get());
    H5Lcreate_soft("/g", at, "soft", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("/", at, "up", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("nowhere", at, "g/dangling", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_external("missing.h5", "/", at, "outside", H5P_DEFAULT, H5P_DEFAULT);
    std::istringstream words("/ // g /g g/ //g//h///i/ no no/x no/x/y/z g/no g/no/x g/h/i/no g/h/i/no/x/y/z/a data "
                             "data/x data/x/y type type/x soft/h/i soft/no soft/no/x g/dangling g/dangling/x/y/z "
                             "outside outside/x . ./g g/. g/./h g/./no no/. .. g/.. g/../g .g g/h./i");
    Names names{std::istream_iterator<std::string>(words), {}};
    names.insert(names.end(), {Repeated("up", 15) + "g", Repeated("up", 17) + "g", Repeated("up", 40),
                               Repeated("x", 100), "g/h/i/" + Repeated("x", 100)});
    for (const std::string& name : names)
    {
        for (const hid_t location : {at, group->LocationID()})
        {
            EXPECT_EQ(TextOf([&] { CheckObjectOfType("Group", location, name, H5O_TYPE_GROUP); }),
                      AnswerLevelByLevel(location, name))
                << name;
        }
    }
    EXPECT_EQ(WordsOf([&] { root->HasGroup(""); }), "could not get info for :");
    EXPECT_EQ(WordsOf([&] { root->GetGroup("g/."); }), "Group does not exist:");
}

TEST_F(Paths, OfManyLevelsTakeTimeAndMemoryThatGrowWithTheirLength)
{
    const std::string existing = Repeated("level", 1000);
    root->CreateGroup(existing);
    const long before = PeakKilobytes();
    const std::clock_t start = std::clock();

    EXPECT_TRUE(root->HasGroup(existing));
    EXPECT_FALSE(root->HasGroup(existing + existing));
    EXPECT_EQ(WordsOf([&] { root->GetGroup(Repeated("no", 64000)); }), "Group does not exist:");

    EXPECT_LT(double(std::clock() - start) / CLOCKS_PER_SEC, 1);
    EXPECT_LT(PeakKilobytes() - before, 100 * 1024);
}

} // namespace tarnwick::hdf::tests
