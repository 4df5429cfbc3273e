#include "PlainHdf5.h"

namespace tarnwick::hdf::tests
{

namespace
{

using GroupListing = OpenFileTest;

hid_t LeadsNowhere(const char*, hid_t, const void*, size_t, hid_t, hid_t)
{
    return -1;
}

// Reaches what only the library's own code may call.
struct Inside : IGroup
{
    explicit Inside(const IGroup& group) : IGroup(group) {}
    using IGroup::ListNames;
};

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
void MakeEveryKindOfChild(hid_t group, bool hasNewLinks)
{
    const hid_t none = H5P_DEFAULT;
    const H5L_class_t custom = {H5L_LINK_CLASS_T_VERS, H5L_type_t(200), "",     nullptr, nullptr, nullptr,
                                &LeadsNowhere,         nullptr,         nullptr};
    H5Lregister(&custom);
    const ScopedType rows = CompoundOf({{"id", H5T_NATIVE_INT}});
    for (const std::string name : {"z", "m", "\xC3\xBC", "A b.c"})
    {
        const auto named = [&](const char* kind)
        {
            return kind + name;
        };
        H5Gclose(H5Gcreate1(group, named("g").c_str(), 0));
        WritePlain(group, named("d"), H5T_NATIVE_INT, Dims{2, 2}, {kInf, 2});
        WritePlain(group, named("e"), rows.get(), Dims{2});
        WritePlain(group, named("f"), H5T_STD_I32BE, Dims{2});
        H5Tcommit2(group, named("t").c_str(), ScopedType(H5Tcopy(rows.get())).get(), none, none, none);
        // Each behind what it leads to, where a listing may take it for another child of that kind.
        H5Lcreate_soft(named("g").c_str(), group, (named("g") + " ").c_str(), none, none);
        H5Lcreate_soft(named("d").c_str(), group, (named("d") + " ").c_str(), none, none);
        H5Lcreate_soft("nowhere", group, named("n").c_str(), none, none);
        H5Lcreate_hard(group, named("d").c_str(), group, named("h").c_str(), none, none);
        hasNewLinks ? H5Lcreate_external("missing.h5", "/", group, named("x").c_str(), none, none) : 0;
        hasNewLinks ? H5Lcreate_external("test.h5", "/", group, named("y").c_str(), none, none) : 0;
        hasNewLinks ? H5Lcreate_ud(group, named("u").c_str(), custom.id, nullptr, 0, none, none) : 0;
    }
    H5Gclose(H5Gcreate1(group, std::string(511, 'k').c_str(), 0));
    // Cut to 511 bytes, the longer names are another child's and nobody's.
    WritePlain(group, std::string(511, 'q'), H5T_NATIVE_INT, Dims{});
    WritePlain(group, std::string(600, 'q'), H5T_NATIVE_INT, Dims{});
    WritePlain(group, std::string(512, 'v'), H5T_NATIVE_INT, Dims{});
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
    const std::optional<Dims> dims[] = {std::nullopt, Dims{},     Dims{3},    Dims{3},      Dims{2, 3},
                                        Dims{2, 3},   Dims{2, 3}, Dims{2, 3}, Dims{2, 3, 2}};
    const Dims max[] = {{}, {}, {}, {kInf}, {}, {kInf, 3}, {2, kInf}, {kInf, kInf}, {}};
    const std::pair<Names, std::vector<hid_t>> table[] = {
        {{"A", "A", "A", "A", "A", "AE", "AE", "E", ""}, {H5T_NATIVE_INT, H5T_IEEE_F32LE, text.get(), variable.get()}},
        {{"T", "T", "T", "T", "", "", "", "", ""}, {rows.get(), numbers.get()}},
        {{"AT", "AT", "AT", "AT", "", "E", "E", "E", ""}, {texts.get()}},
        {{"", "", "", "", "", "", "", "", ""}, {bigEndian.get(), choice.get(), array.get(), H5T_STD_I16BE}}};
    for (const auto& [expected, types] : table)
    {
        for (const hid_t type : types)
        {
            const auto group = root->CreateGroup(std::to_string(type));
            for (size_t i = 0; i < expected.size(); ++i)
            {
                const std::string name = std::to_string(i);
                WritePlain(group->LocationID(), name, type, dims[i], max[i]);
                std::string opens = FailureOf([&] { group->GetArray(name); }).empty() ? "A" : "";
                opens += FailureOf([&] { group->GetExtensibleArray2D(name); }).empty() ? "E" : "";
                opens += FailureOf([&] { group->GetTable(name); }).empty() ? "T" : "";
                EXPECT_EQ(opens + KindsOf(*group, name), expected[i] + expected[i]) << type << " in space " << i;
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
        EXPECT_EQ(NamesOf(group->ListGroups()), WalkOf(*group, H5G_GROUP, [](auto&) {}));
        EXPECT_EQ(NamesOf(group->ListArrays()), WalkOf(*group, H5G_DATASET, [&](auto& n) { group->GetArray(n); }));
        EXPECT_EQ(NamesOf(group->ListTables()), WalkOf(*group, H5G_DATASET, [&](auto& n) { group->GetTable(n); }));
        EXPECT_EQ(NamesOf(group->ListExtensibleArrays2D()),
                  WalkOf(*group, H5G_DATASET, [&](auto& n) { group->GetExtensibleArray2D(n); }));
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
    const auto metadataReadBy = [&](auto call)
    {
        Reopen("r");
        int entries = 0;
        EXPECT_GT(call(), 0U);
        H5Fget_mdc_size(file->FileID(), nullptr, nullptr, nullptr, &entries);
        return entries;
    };
    const int all = metadataReadBy([&] { return root->GetNumberOfGroups(); });
    EXPECT_LT(metadataReadBy([&] { return root->HasDataSet() ? 1U : 0U; }) + 290, all);
}

TEST_F(GroupListing, EmptyClosedAndBadlyIndexedGroupsHaveTheirAnswers)
{
    const auto group = root->CreateGroup("group");
    const auto sizes = [&](int i)
    {
        const size_t groups = i == 0 ? group->ListGroups().size() : i == 1 ? group->GetNumberOfGroups() : 0;
        const size_t tables = i == 2 ? group->ListTables().size() : i == 3 ? group->ListArrays().size() : 0;
        const size_t arrays = i == 4 ? group->ListExtensibleArrays2D().size() : i == 5 ? group->HasDataSet() : 0;
        return groups + tables + arrays + (i == 6 ? group->GetNumberOfChildren() : 0);
    };
    const std::string whileOpen =
        Joined(std::vector{sizes(0), sizes(1), sizes(2), sizes(3), sizes(4), sizes(5), sizes(6)});
    EXPECT_EQ(whileOpen, " 0 0 0 0 0 0 0");
    EXPECT_EQ(WordsOf([&] { root->GetChildName(1); }), "error getting object name:");
    EXPECT_EQ(WordsOf([&] { root->GetChildName(-1); }), "error getting object name:");
    EXPECT_EQ(root->GetChildType(1), -1);
    root->SetDefaultCompression(4);
    EXPECT_EQ(root->ListGroups().at(0)->GetDefaultCompression(), 4);
    file->Close();
    for (const int i : {0, 1, 2, 3, 4, 5, 6})
    {
        EXPECT_EQ(WordsOf([&] { sizes(i); }), "error getting number of objects in group:") << i;
    }
}

} // namespace tarnwick::hdf::tests
