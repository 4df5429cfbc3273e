#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

using Factories = OpenFileTest;

TEST_F(Factories, EachHasItsOwnAnswerToANameThatIsTaken)
{
    using Maker = std::function<boost::shared_ptr<INode>(IGroup & group, const std::string& name)>;
    std::vector<int> rows = {4, 3, 2, 1};
    const ScopedType type = CompoundOf({{"number", H5T_NATIVE_INT}});
    const hid_t t = type.get();
    int* const buffer = rows.data();
    const boost::weak_ptr<IFile> nobody;
    const std::string taken = "could not create dataset:";
    const std::string noTable = "could not open Table 'x':";
    const std::string there = "Fail to create an already existing table: x:";
    const std::string exist = "Table already exist. Fail to create!:";
    struct Case
    {
        Maker make;
        std::array<std::string, 4> words; // With the name held by a group, an array, an extensible array, a table.
        std::string kinds = "GAET";       // What the name stands for afterwards.
    };
    const Case cases[] = {
        {[&](auto& g, auto& n) { return g.CreateArray(n, TDataType::Int, 0); }, {taken}, "GAAA"},
        {[&](auto& g, auto& n) { return g.CreateArrayFromBuffer(n, buffer, TDataType::Int, 2, 1); },
         {taken, "", "not a valid Array", "H5T_COMPOUND is not a valid Array:"}},
        {[&](auto& g, auto& n) { return g.CreateExtensibleArray2D(n, TDataType::Int, 1, 1, 1, 1, 0); }, {}},
        {[&](auto& g, auto& n) { return g.CreateTable(n, t); }, {taken, there, there, there}},
        {[&](auto& g, auto& n) { return g.CreateTable(n, 3, t, 0); }, {taken, there, there, there}},
        {[&](auto& g, auto& n) { return g.CreateTableFromBuffer(n, buffer, 4, t, 0, H5T_NATIVE_CHAR, 2); },
         {taken, noTable, noTable, ""}},
        {[&](auto& g, auto& n) {
             return g.CreateTableFromSelection(n, buffer, 4, {3, 1}, t, 0, H5T_NATIVE_CHAR, 2);
         },
         {taken, noTable, noTable, ""}},
        {[&](auto& g, auto& n) { return ITable::CreateEmpty(nobody, g.LocationID(), n, t); },
         {taken, exist, exist, exist}},
        {[&](auto& g, auto& n) { return ITable::Create(nobody, g.LocationID(), n, 1, t, 0); },
         {taken, exist, exist, exist}},
        {[&](auto& g, auto& n) { return ITable::CreateFromBuffer(nobody, g.LocationID(), n, buffer, 4, t, 0, 0, 0); },
         {taken, taken, taken, taken}}};
    const Maker holders[] = {[&](auto& g, auto& n) { return g.CreateGroup(n); },
                             [&](auto& g, auto& n) { return g.CreateArrayFromBuffer(n, buffer, TDataType::Int, 3, 1); },
                             [&](auto& g, auto& n)
                             { return g.CreateExtensibleArray2D(n, TDataType::Int, 1, 1, 1, 1, 0); },
                             [&](auto& g, auto& n)
                             {
                                 return g.CreateTable(n, 3, t, 0);
                             }};
    for (const Case& factory : cases)
    {
        for (size_t holder = 0; holder < factory.words.size(); ++holder)
        {
            const boost::shared_ptr<IGroup> group =
                root->CreateGroup(std::to_string(&factory - cases) + "-" + std::to_string(holder));
            holders[holder](*group, "x");
            EXPECT_EQ(WordsOf([&] { factory.make(*group, "x"); }), factory.words[holder]) << group->GetName();
            EXPECT_EQ(KindsOf(*group, "x"), factory.kinds.substr(holder, 1)) << group->GetName();
            boost::shared_ptr<INode> made;
            const std::string words = WordsOf([&] { made = factory.make(*group, "no/y"); });
            EXPECT_TRUE(made ? made->LocationID() < 0 : words == taken) << words;
            EXPECT_EQ(group->GetNumberOfChildren(), 1U);
        }
    }
}

TEST_F(Factories, CompressionIsTheGroupsBelowZeroAndTheCallersFromZeroOn)
{
    std::vector<int> rows = {1, 2, 3, 4, 5};
    const ScopedType type = CompoundOf({{"number", H5T_NATIVE_INT}});
    const hid_t t = type.get();
    root->SetDefaultCompression(6);
    const std::pair<int, std::string> filters[] = {{-1, " shuffle deflate 6"}, {0, ""}, {2, " shuffle deflate 2"}};
    for (const auto& [compression, stored] : filters)
    {
        const std::string name = std::to_string(compression);
        root->CreateTable("t" + name, 5, t, compression);
        root->CreateTableFromBuffer("b" + name, rows.data(), 4, t, compression, -1, 3);
        root->CreateTableFromSelection("s" + name, rows.data(), 4, {3, 0, 0}, t, compression, -1, 0);
        root->CreateExtensibleArray2D("e" + name, TDataType::Float64, 0, 2, 7, 3, compression);
        EXPECT_EQ(ContentOf(*root, "t" + name, t), " 5 chunk 5" + stored + ": 0 0 0 0 0");
        EXPECT_EQ(ContentOf(*root, "b" + name, t), " 4 chunk 3" + stored + ": 1 2 3 4");
        EXPECT_EQ(ContentOf(*root, "s" + name, t), " 3 chunk 3" + stored + ": 4 1 1");
        EXPECT_EQ(ContentOf(*root, "e" + name), " 0 2 chunk 7 3 unlimited" + stored + ":");
    }
    root->CreateTable("none", 0, t, 0);
    EXPECT_EQ(ContentOf(*root, "none", t), " 0:");
    EXPECT_EQ(WordsOf([&] { root->CreateTable("0", 0, t, 1); }), "could not create dataset:");
    // A name that is taken keeps its filters where its rows fit and loses them where not.
    root->CreateTableFromBuffer("t0", rows.data(), 5, -1, 9, -1, 0);
    EXPECT_EQ(ContentOf(*root, "t0", t), " 5 chunk 5: 1 2 3 4 5");
    root->CreateTableFromBuffer("t0", rows.data(), 2, -1, -1, -1, 1);
    EXPECT_EQ(ContentOf(*root, "t0", t), " 2 chunk 2 shuffle deflate 6: 1 2");
}

TEST_F(Factories, GetHasAndDelAnswerForEveryKind)
{
    root->CreateGroup("group");
    root->CreateTable("table", CompoundOf({{"number", H5T_NATIVE_INT}}).get());
    root->CreateExtensibleArray2D("extensible", TDataType::Int, 1, 1, 1, 1, 0);
    for (const std::string name : {"missing", "no/table", "group", "table/x"})
    {
        EXPECT_EQ(WordsOf([&] { root->GetArray(name); }), "Array does not exist:");
        EXPECT_EQ(WordsOf([&] { root->GetTable(name); }), "Array does not exist:");
        EXPECT_EQ(WordsOf([&] { root->GetExtensibleArray2D(name); }), "ExtensibleArray does not exist:");
        EXPECT_FALSE(root->HasArray(name) || root->HasTable(name) || root->HasExtensibleArray2D(name)) << name;
    }
    EXPECT_EQ(WordsOf([&] { root->GetTable(""); }), "could not get info for :");
    EXPECT_FALSE(root->HasExtensibleArray2D(""));
    const auto table = root->GetTable("table");
    EXPECT_NE(table->LocationID(), root->GetTable("/table")->LocationID());
    root->DelArray("table");
    root->DelArray("extensible");
    EXPECT_EQ(WordsOf([&] { root->DelArray("table"); }), "could not remove array 'table':");
    EXPECT_EQ(WordsOf([&] { root->DelExtensibleArray2D("x"); }), "could not remove extensible array 'x':");
    EXPECT_EQ(root->GetNumberOfChildren(), 1U);
}

TEST_F(Factories, CopiesOfANodeGoInAnyOrderAlsoAfterTheFile)
{
    const ScopedType type = CompoundOf({{"number", H5T_NATIVE_INT}});
    const auto drop = [&](auto source, auto other, auto works, const std::array<size_t, 3>& order, bool closes)
    {
        using Node = typename decltype(source)::element_type;
        std::array<boost::shared_ptr<Node>, 3> nodes = {source, boost::shared_ptr<Node>(new Node(*source)), other};
        *other = *source;
        *other = *other;
        source.reset();
        other.reset();
        closes ? file->Close() : void();
        for (const size_t next : order)
        {
            std::for_each(nodes.begin(), nodes.end(),
                          [&](auto& node) { EXPECT_TRUE(!node || works(*node) != closes); });
            nodes[next].reset();
        }
    };
    std::array<size_t, 3> order = {0, 1, 2};
    int row = 7;
    root->CreateTableFromBuffer("t", &row, 1, type.get(), 0, -1, 0);
    root->CreateExtensibleArray2D("e", TDataType::Int, 1, 1, 1, 1, 0);
    const auto readTable = [&](auto& t)
    {
        return t.GetColumnName(0) == "number" && H5Tget_size(t.GetColumnTypeID(0)) == 4 &&
               WordsOf([&] { t.GetToBuffer(&row, 0); }).empty();
    };
    const auto readArray = [&](auto& e)
    {
        return WordsOf([&] { e.ReadRowToBuffer(0, &row, TDataType::Int); }).empty();
    };
    do
    {
        for (const bool closes : {false, true})
        {
            drop(root->GetTable("t"), root->CreateTable(std::to_string(root->GetNumberOfChildren()), type.get()),
                 readTable, order, closes);
            closes ? Reopen() : void();
            drop(root->GetExtensibleArray2D("e"),
                 root->CreateExtensibleArray2D(std::to_string(root->GetNumberOfChildren()), TDataType::Int, 1, 1, 1, 1,
                                               0),
                 readArray, order, closes);
            closes ? Reopen() : void();
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

} // namespace tarnwick::hdf::tests
