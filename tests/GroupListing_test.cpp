#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

namespace
{

using GroupListing = OpenFileTest;
using Names = std::vector<std::string>;

// Reaches what only the library's own code may call.
struct Inside : IGroup
{
    explicit Inside(const IGroup& group) : IGroup(group) {}
    using IGroup::ListNames;
};

template <typename Nodes>
Names NamesOf(const Nodes& nodes)
{
    Names names;
    std::transform(nodes.begin(), nodes.end(), std::back_inserter(names), [](auto& node) { return node->GetName(); });
    return names;
}

// The children of one kind as HDF5 tells them one by one, if they open.
template <typename Open>
Names WalkOf(const IGroup& group, int kind, Open open)
{
    Names names;
    for (int i = 0; i < static_cast<int>(group.GetNumberOfChildren()); ++i)
    {
        const std::string name = group.GetChildName(i);
        if (group.GetChildType(i) == kind && FailureOf([&] { open(name); }).empty())
        {
            names.push_back(name);
        }
    }
    return names;
}

// Newer kinds of link turn a group of the oldest format into one of a newer.
void MakeEveryKindOfChild(const hid_t group, bool hasNewLinks)
{
    const auto never = [](const char*, hid_t, const void*, size_t, hid_t, hid_t)
    {
        return hid_t(-1);
    };
    const H5L_class_t custom = {
        H5L_LINK_CLASS_T_VERS, H5L_type_t(200), "custom", nullptr, nullptr, nullptr, never, nullptr, nullptr};
    H5Lregister(&custom);
    const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}});
    for (const std::string name : {"z", "m", "\xC3\xBC", "A b.c"})
    {
        H5Gclose(H5Gcreate1(group, ("g" + name).c_str(), 0));
        WritePlain(group, "d" + name, H5T_NATIVE_INT, Dims{2, 2}, {kInf, 2});
        WritePlain(group, "e" + name, rows.get(), Dims{2});
        WritePlain(group, "f" + name, H5T_STD_I32BE, Dims{2});
        const ScopedType named(H5Tcopy(H5T_NATIVE_INT));
        H5Tcommit2(group, ("t" + name).c_str(), named.get(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft(("g" + name).c_str(), group, ("r" + name).c_str(), H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft("dz", group, ("s" + name).c_str(), H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft("nowhere", group, ("n" + name).c_str(), H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_hard(group, ("d" + name).c_str(), group, ("h" + name).c_str(), H5P_DEFAULT, H5P_DEFAULT);
        if (hasNewLinks)
        {
            H5Lcreate_external("missing.h5", "/", group, ("x" + name).c_str(), H5P_DEFAULT, H5P_DEFAULT);
            H5Lcreate_external("test.h5", "/", group, ("y" + name).c_str(), H5P_DEFAULT, H5P_DEFAULT);
            H5Lcreate_ud(group, ("u" + name).c_str(), custom.id, nullptr, 0, H5P_DEFAULT, H5P_DEFAULT);
        }
    }
    H5Gclose(H5Gcreate1(group, std::string(511, 'k').c_str(), 0));
    // Cut to 511 bytes, the longer names are another child's and nobody's.
    for (const std::string& name : {std::string(511, 'q'), std::string(600, 'q'), std::string(512, 'v')})
    {
        WritePlain(group, name, H5T_NATIVE_INT, Dims{});
    }
}

} // namespace

TEST_F(GroupListing, EveryTypeAndSpaceOpensAsTheKindsItIsListedAs)
{
    const ScopedType text = StringType(7, H5T_CSET_ASCII);
    const ScopedType variable = StringType(H5T_VARIABLE, H5T_CSET_UTF8);
    const ScopedType rows = CompoundOf({{"text", text.get()}, {"number", H5T_NATIVE_DOUBLE}});
    const ScopedType bigEndian = CompoundOf({{"number", H5T_STD_I64BE}});
    const ScopedType texts(H5Tvlen_create(text.get()));
    const ScopedType numbers(H5Tvlen_create(H5T_NATIVE_INT));
    const ScopedType choice(H5Tenum_create(H5T_NATIVE_INT));
    const ScopedType array(H5Tarray_create2(H5T_NATIVE_INT, 1, Dims{3}.data()));
    H5Tenum_insert(choice.get(), "one", Dims{1}.data());
    const std::pair<std::optional<Dims>, Dims> spaces[] = {{std::nullopt, {}},      {Dims{}, {}},
                                                           {Dims{3}, {}},           {Dims{3}, {kInf}},
                                                           {Dims{2, 3}, {}},        {Dims{2, 3}, {kInf, 3}},
                                                           {Dims{2, 3}, {2, kInf}}, {Dims{2, 3}, {kInf, kInf}},
                                                           {Dims{2, 3, 2}, {}}};
    const std::pair<Names, std::vector<hid_t>> table[] = {
        {{"A", "A", "A", "A", "A", "AE", "AE", "E", ""}, {H5T_NATIVE_INT, H5T_IEEE_F32LE, text.get(), variable.get()}},
        {{"T", "T", "T", "T", "", "", "", "", ""}, {rows.get(), numbers.get()}},
        {{"AT", "AT", "AT", "AT", "", "E", "E", "E", ""}, {texts.get()}},
        {{"", "", "", "", "", "", "", "", ""}, {bigEndian.get(), choice.get(), array.get(), H5T_STD_I16BE}}};
    for (const auto& [expected, types] : table)
    {
        for (const hid_t type : types)
        {
            const boost::shared_ptr<IGroup> group = root->CreateGroup(std::to_string(type));
            for (size_t i = 0; i < expected.size(); ++i)
            {
                const std::string name = std::to_string(i);
                WritePlain(group->LocationID(), name, type, spaces[i].first, spaces[i].second);
                std::string opens = FailureOf([&] { group->GetArray(name); }).empty() ? "A" : "";
                opens += FailureOf([&] { group->GetExtensibleArray2D(name); }).empty() ? "E" : "";
                opens += FailureOf([&] { group->GetTable(name); }).empty() ? "T" : "";
                EXPECT_EQ(KindsOf(*group, name), expected[i]) << type << " in space " << i;
                EXPECT_EQ(opens, expected[i]) << type << " in space " << i;
                EXPECT_EQ(group->HasExtensibleArray2D(name), opens.find('E') != std::string::npos);
                EXPECT_TRUE(group->HasArray(name) && group->HasTable(name) && !group->HasGroup(name));
            }
        }
    }
}

TEST_F(GroupListing, GivesWhatTheWalkByIndexGivesInEveryGroupFormat)
{
    const ScopedPropertyList compact(H5Pcreate(H5P_GROUP_CREATE));
    H5Pset_link_creation_order(compact.get(), H5P_CRT_ORDER_TRACKED);
    H5Pset_link_phase_change(compact.get(), 200, 100);
    for (const int storage : {H5G_STORAGE_TYPE_SYMBOL_TABLE, H5G_STORAGE_TYPE_COMPACT, H5G_STORAGE_TYPE_DENSE})
    {
        const hid_t list = storage == H5G_STORAGE_TYPE_COMPACT ? compact.get() : H5P_DEFAULT;
        ScopedGroup(H5Gcreate2(root->LocationID(), "new", H5P_DEFAULT, list, H5P_DEFAULT)).reset();
        const boost::shared_ptr<IGroup> group = root->GetGroup("new");
        MakeEveryKindOfChild(group->LocationID(), storage != H5G_STORAGE_TYPE_SYMBOL_TABLE);
        H5G_info_t info = {};
        H5Gget_info(group->LocationID(), &info);
        EXPECT_EQ(info.storage_type, storage);
        EXPECT_EQ(group->GetNumberOfChildren(), storage == H5G_STORAGE_TYPE_SYMBOL_TABLE ? 40U : 52U);
        for (const int kind : {H5G_UNKNOWN, H5G_GROUP, H5G_DATASET, H5G_TYPE, H5G_LINK, H5G_UDLINK})
        {
            Names names = {"left from before"};
            Inside(*group).ListNames(kind, names);
            EXPECT_EQ(names, WalkOf(*group, kind, [](auto&) {})) << kind;
        }
        const auto walkOf = [&](auto open)
        {
            return WalkOf(*group, H5G_DATASET, open);
        };
        EXPECT_EQ(NamesOf(group->ListGroups()), WalkOf(*group, H5G_GROUP, [](auto&) {}));
        EXPECT_EQ(NamesOf(group->ListArrays()), walkOf([&](auto& name) { group->GetArray(name); }));
        EXPECT_EQ(NamesOf(group->ListExtensibleArrays2D()), walkOf([&](auto& n) { group->GetExtensibleArray2D(n); }));
        EXPECT_EQ(NamesOf(group->ListTables()), walkOf([&](auto& name) { group->GetTable(name); }));
        EXPECT_EQ(group->ListArrays().size(), 10U);
        H5Gclose(H5Gcreate1(group->LocationID(), std::string(600, 'w').c_str(), 0));
        EXPECT_EQ(WordsOf([&] { group->ListGroups(); }), "Group does not exist:");
        EXPECT_EQ(group->GetNumberOfGroups(), 6U);
        root->DelGroup("new");
    }
}

TEST_F(GroupListing, HasDataSetLooksAtNoChildBehindTheFirstDataSet)
{
    for (int i = 0; i < 300; ++i)
    {
        root->CreateGroup("group" + std::to_string(i));
    }
    EXPECT_FALSE(root->HasDataSet());
    root->CreateArray("a data set", TDataType::Int, 0);
    const auto entriesReadBy = [&](auto call)
    {
        Reopen("r");
        call();
        int entries = 0;
        H5Fget_mdc_size(file->FileID(), nullptr, nullptr, nullptr, &entries);
        return entries;
    };
    const int byStopping = entriesReadBy([&] { EXPECT_TRUE(root->HasDataSet()); });
    EXPECT_LT(byStopping + 290, entriesReadBy([&] { EXPECT_EQ(root->GetNumberOfGroups(), 300U); }));
}

TEST_F(GroupListing, EmptyClosedAndBadlyIndexedGroupsHaveTheirAnswers)
{
    const boost::shared_ptr<IGroup> group = root->CreateGroup("group");
    EXPECT_EQ(group->ListGroups().size() + group->ListArrays().size() + group->ListExtensibleArrays2D().size(), 0U);
    EXPECT_EQ(group->ListTables().size() + group->GetNumberOfGroups() + group->GetNumberOfChildren(), 0U);
    EXPECT_FALSE(group->HasDataSet());
    EXPECT_EQ(WordsOf([&] { root->GetChildName(1); }), "error getting object name:");
    EXPECT_EQ(WordsOf([&] { root->GetChildName(-1); }), "error getting object name:");
    EXPECT_EQ(root->GetChildType(1), -1);
    root->SetDefaultCompression(4);
    EXPECT_EQ(root->ListGroups().at(0)->GetDefaultCompression(), 4);
    file->Close();
    const std::function<void()> calls[] = {[&] { group->ListGroups(); },
                                           [&] { group->ListArrays(); },
                                           [&] { group->ListExtensibleArrays2D(); },
                                           [&] { group->ListTables(); },
                                           [&] { group->GetNumberOfGroups(); },
                                           [&] { group->GetNumberOfChildren(); },
                                           [&]
                                           {
                                               group->HasDataSet();
                                           }};
    for (const auto& call : calls)
    {
        EXPECT_EQ(WordsOf(call), "error getting number of objects in group:");
    }
}

} // namespace tarnwick::hdf::tests
