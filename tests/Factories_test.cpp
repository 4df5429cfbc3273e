#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

using Factories = OpenFileTest;

TEST_F(Factories, EachHasItsOwnAnswerToANameThatIsTaken)
{
    const ScopedType type = CompoundOf({{"number", H5T_NATIVE_INT}});
    const hid_t t = type.get();
    std::array<int, 4> data = {4, 3, 2, 1};
    int* const b = data.data();
    const std::vector<hsize_t> some = {3, 1};
    const boost::weak_ptr<IFile> f = file;
    const std::map<char, std::string> words = {{'-', ""},
                                               {'c', "could not create dataset:"},
                                               {'o', "could not open Table 'x':"},
                                               {'f', "Fail to create an already existing table: x:"},
                                               {'t', "Table already exist. Fail to create!:"},
                                               {'v', "not a valid Array"},
                                               {'h', "H5T_COMPOUND is not a valid Array:"}};
    struct Case
    {
        std::function<boost::shared_ptr<INode>(IGroup& group, const std::string& name)> make;
        std::string words, kinds = "GAET"; // With the name held by a group, an array, an extensible array, a table.
    };
    const Case cases[] = {
        {[&](auto& g, auto& n) { return g.CreateArrayFromBuffer(n, b, TDataType::Int, 2, 1); }, "c-vh"},
        {[&](auto& g, auto& n) { return g.CreateExtensibleArray2D(n, TDataType::Int, 1, 1, 1, 1, 0); }, "----"},
        {[&](auto& g, auto& n) { return g.CreateTable(n, t); }, "cfff"},
        {[&](auto& g, auto& n) { return g.CreateTable(n, 3, t, 0); }, "cfff"},
        {[&](auto& g, auto& n) { return g.CreateTableFromBuffer(n, b, 4, t, 0, H5T_NATIVE_CHAR, 2); }, "coo-"},
        {[&](auto& g, auto& n) { return g.CreateTableFromSelection(n, b, 4, some, t, 0, -1, 2); }, "coo-"},
        {[&](auto& g, auto& n) { return ITable::CreateEmpty(f, g.LocationID(), n, t); }, "cttt"},
        {[&](auto& g, auto& n) { return ITable::Create(f, g.LocationID(), n, 1, t, 0); }, "cttt"},
        {[&](auto& g, auto& n) { return ITable::CreateFromBuffer(f, g.LocationID(), n, b, 4, t, 0, 0, 0); }, "cccc"},
        {[&](auto& g, auto& n) { return g.CreateArray(n, TDataType::Int, 0); }, "c---", "GAAA"}};
    for (const Case& one : cases)
    {
        for (size_t holder = 0; holder < 4; ++holder)
        {
            const auto group = root->CreateGroup(std::to_string(&one - cases) + "-" + std::to_string(holder));
            holder == 0 ? group->CreateGroup("x"), 0 : (cases[holder - 1].make(*group, "x"), 0);
            holder == 3 ? (group->DelArray("x"), group->CreateTable("x", 3, t, 0), 0) : 0;
            EXPECT_EQ(WordsOf([&] { one.make(*group, "x"); }), words.at(one.words[holder])) << group->GetName();
            EXPECT_EQ(KindsOf(*group, "x"), one.kinds.substr(holder, 1)) << group->GetName();
            EXPECT_EQ(WordsOf([&] { one.make(*group, "no/y"); }), words.at(one.words == "----" ? '-' : 'c'));
            EXPECT_EQ(group->GetNumberOfChildren(), 1U);
        }
    }
}

TEST_F(Factories, CompressionIsTheGroupsBelowZeroAndTheCallersFromZeroOn)
{
    std::array<int, 4> data = {1, 2, 3, 4};
    const ScopedType type = CompoundOf({{"number", H5T_NATIVE_INT}});
    root->SetDefaultCompression(6);
    const std::pair<int, std::string> filters[] = {{-1, " deflate 6"}, {0, ""}, {2, " deflate 2"}};
    for (const auto& [compression, stored] : filters)
    {
        const auto group = root->CreateGroup(std::to_string(compression));
        group->CreateTable("t", 2, type.get(), compression);
        group->CreateTableFromBuffer("b", data.data(), 4, type.get(), compression, -1, 3);
        group->CreateTableFromSelection("s", data.data(), 4, {3, 0, 0}, type.get(), compression, -1, 0);
        group->CreateExtensibleArray2D("e", TDataType::Int, 0, 2, 7, 3, compression);
        EXPECT_EQ(ContentOf(*group, "t", type.get()), " 2 chunk 2" + stored + ": 0 0");
        EXPECT_EQ(ContentOf(*group, "b", type.get()), " 4 chunk 3" + stored + ": 1 2 3 4");
        EXPECT_EQ(ContentOf(*group, "s", type.get()), " 3 chunk 3" + stored + ": 4 1 1");
        EXPECT_EQ(ContentOf(*group, "e"), " 0 2 chunk 7 3 unlimited" + stored + ":");
    }
}

TEST_F(Factories, MissingNamesAndRemovalsHaveTheirOwnWords)
{
    for (const std::string name : {"missing", "no/table", "/"})
    {
        EXPECT_EQ(WordsOf([&] { root->GetTable(name); }), "Array does not exist:");
        EXPECT_EQ(WordsOf([&] { root->GetExtensibleArray2D(name); }), "ExtensibleArray does not exist:");
        EXPECT_FALSE(root->HasArray(name) || root->HasTable(name) || root->HasExtensibleArray2D(name)) << name;
    }
    EXPECT_EQ(WordsOf([&] { root->GetTable(""); }), "could not get info for :");
    EXPECT_EQ(WordsOf([&] { root->DelArray("x"); }), "could not remove array 'x':");
    EXPECT_EQ(WordsOf([&] { root->DelExtensibleArray2D("x"); }), "could not remove extensible array 'x':");
    EXPECT_FALSE(root->HasExtensibleArray2D(""));
}

TEST_F(Factories, CopiesOfANodeGoInAnyOrderAlsoAfterTheFile)
{
    int row = 7;
    const ScopedType type = CompoundOf({{"number", H5T_NATIVE_INT}});
    for (const std::string name : {"1", "2"})
    {
        root->CreateTableFromBuffer("t" + name, &row, 1, type.get(), 0, -1, 0);
        root->CreateExtensibleArray2D("e" + name, TDataType::Int, 1, 1, 1, 1, 0);
        root->CreateArrayFromBuffer("s" + name, &row, TDataType::String, 1, 4);
        root->CreateGroup("g" + name);
    }
    const auto dropInEveryOrder = [&](bool closes, auto open, auto read)
    {
        std::array<size_t, 3> order = {0, 1, 2};
        do
        {
            auto nodes = std::array{open("1"), open("2"), open("2")};
            *nodes[1] = *nodes[0];
            nodes[2].reset(new auto(*nodes[1]));
            closes ? file->Close() : void();
            for (const size_t next : order)
            {
                EXPECT_EQ(WordsOf([&] { read(*nodes[next]); }).empty(), !closes);
                nodes[next].reset();
            }
            closes ? Reopen() : void();
        } while (std::next_permutation(order.begin(), order.end()));
    };
    for (const bool closes : {false, true})
    {
        dropInEveryOrder(
            closes, [&](const std::string& n) { return root->GetTable("t" + n); },
            [&](auto& x) { x.GetToBuffer(&row, 0); });
        dropInEveryOrder(
            closes, [&](const std::string& n) { return root->GetExtensibleArray2D("e" + n); },
            [&](auto& x) { x.ReadRowToBuffer(0, &row, TDataType::Int); });
        dropInEveryOrder(
            closes, [&](const std::string& n) { return root->GetArray("s" + n); },
            [&](auto& x) { x.GetToBuffer(&row, TDataType::Undefined); });
        dropInEveryOrder(
            closes, [&](const std::string& n) { return root->GetGroup("g" + n); }, [&](auto& x) { x.GetFullName(); });
    }
}

} // namespace tarnwick::hdf::tests
