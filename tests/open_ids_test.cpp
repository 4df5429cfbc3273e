#include "Fixture.h"

#include <boost/make_shared.hpp>

namespace tarnwick::hdf::tests
{

using namespace TDataType;
using OpenIds = HdfTest;

/// A file "main.h5" whose root has a link "linked" to the root of another file, "other.h5". That one holds a group, an
/// array and a table of named types, and an extensible array.
struct LinkedFiles : HdfTest
{
    LinkedFiles()
    {
        int numbers[] = {1, 2, 3};
        const auto other = Open("other.h5", "w");
        other->GetRoot()->CreateGroup("group");
        other->GetRoot()->CreateExtensibleArray2D("extensible", Int, 2, 2, 1, 1, 0);
        const ScopedSpace space(H5Screate_simple(1, std::array<hsize_t, 1>{3}.data(), nullptr));
        for (const std::string name : {"array", "table"})
        {
            const ScopedType type =
                name == "array" ? ScopedType(H5Tcopy(H5T_NATIVE_INT)) : TypeOf("H5T_COMPOUND { H5T_STD_I32LE \"a\"; }");
            H5Tcommit1(other->FileID(), ("type of " + name).c_str(), type.get());
            const ScopedDataSet dataSet(H5Dcreate1(other->FileID(), name.c_str(), type.get(), space.get(), 0));
            H5Dwrite(dataSet.get(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers);
        }
        const auto main = Open("main.h5", "w");
        H5Lcreate_external("other.h5", "/", main->FileID(), "linked", H5P_DEFAULT, H5P_DEFAULT);
    }

    /// Files, groups, data sets and attributes that are open anywhere in the process, and named types.
    static Json OpenObjects()
    {
        std::vector<hid_t> types(static_cast<size_t>(H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_DATATYPE)));
        H5Fget_obj_ids(hid_t{H5F_OBJ_ALL}, H5F_OBJ_DATATYPE, types.size(), types.data());
        const auto named = std::count_if(types.begin(), types.end(), [](hid_t type) { return H5Tcommitted(type) > 0; });
        const IdCounts all = CountIds();
        return {all[0], all[1], all[2], all[4], named};
    }
    const Json kNothing = {0, 0, 0, 0, 0};
};

TEST_F(LinkedFiles, AreClosedWithTheFileThatLeadsToThem)
{
    using Nodes = std::vector<boost::shared_ptr<INode>>;
    struct Way
    {
        std::string name;
        std::function<Nodes(IGroup& linked)> open;
    };
    const auto copyOf = [](const auto& node)
    {
        return boost::make_shared<std::decay_t<decltype(*node)>>(*node);
    };
    const std::vector<Way> ways = {
        {"group",
         [](IGroup& linked) -> Nodes
         {
             return {linked.GetGroup("group")};
         }},
        {"array",
         [](IGroup& linked) -> Nodes
         {
             return {linked.GetArray("array")};
         }},
        {"table",
         [](IGroup& linked) -> Nodes
         {
             return {linked.GetTable("table")};
         }},
        {"extensible array",
         [](IGroup& linked) -> Nodes
         {
             return {linked.GetExtensibleArray2D("extensible")};
         }},
        {"list",
         [](IGroup& linked) -> Nodes
         {
             return {linked.ListArrays()[0], linked.ListTables()[0]};
         }},
        {"new array",
         [](IGroup& linked) -> Nodes
         {
             return {linked.CreateArray("new", Int, 0)};
         }},
        {"array and copy",
         [&](IGroup& linked) -> Nodes
         {
             const auto array = linked.GetArray("array");
             return {array, copyOf(array)};
         }},
        {"copy alone",
         [&](IGroup& linked) -> Nodes
         {
             return {copyOf(linked.GetTable("table"))};
         }},
        {"assigned copy",
         [&](IGroup& linked) -> Nodes
         {
             const auto copy = copyOf(linked.GetGroup("group"));
             *copy = linked;
             return {copy};
         }},
    };
    for (const bool byDestructor : {false, true})
    {
        for (const Way& way : ways)
        {
            SCOPED_TRACE(way.name + (byDestructor ? ", by the destructor" : ""));
            auto file = Open("main.h5", "r+");
            const Nodes nodes = way.open(*file->GetRoot()->GetGroup("linked"));

            if (byDestructor)
            {
                file.reset();
            }
            else
            {
                file->Close();
            }

            EXPECT_EQ(OpenObjects(), kNothing);
            EXPECT_LT(H5Iget_ref(nodes.front()->LocationID()), 0);
        }
    }
    EXPECT_EQ(WordsOf([&] { Open("other.h5", "w"); }), "");
}

TEST_F(LinkedFiles, StayOpenForOtherFilesAndForTheApplication)
{
    const auto first = Open("main.h5", "r+");
    const auto second = Open("main.h5", "r+");
    const auto own = second->GetRoot()->GetArray("linked/array");
    const auto gone = first->GetRoot()->GetArray("linked/array");
    const ScopedGroup applications(H5Gopen1(first->FileID(), "linked/group"));

    first->Close();

    int numbers[3] = {};
    EXPECT_EQ(WordsOf([&] { own->GetToBuffer(numbers, Int); }), "");
    EXPECT_EQ(numbers[2], 3);
    EXPECT_FALSE(gone->IsValid());
    EXPECT_EQ(H5Iis_valid(applications.get()), 1);
    second->Close();
    EXPECT_EQ(OpenObjects(), (Json{0, 1, 0, 0, 0}));
}

TEST_F(LinkedFiles, AreClosedAlsoWhenTheFilesNameCannotBeTold)
{
    auto file = Open("main.h5", "r+");
    const auto array = file->GetRoot()->GetArray("linked/array");
    H5Fclose(file->FileID());

    file.reset();

    EXPECT_EQ(OpenObjects(), kNothing);
    EXPECT_FALSE(array->IsValid());
}

/// Counts the property lists that are open when it is called for a file.
struct ListCounter : IFileTracker
{
    void OnOpen(hid_t /*file*/, const std::string& name) override
    {
        listsAtOpen = CountIds()[5];
        if (name == refused)
        {
            throw std::runtime_error("refused");
        }
    }
    void OnClose(hid_t /*file*/, const std::string& /*name*/) override {}

    std::int64_t listsAtOpen = -1;
    std::string refused;
};

TEST_F(OpenIds, OfAFileAreNoPropertyLists)
{
    InAProcessOfItsOwn(
        [this]
        {
            int numbers[] = {1, 2};
            const boost::shared_ptr<ListCounter> tracker(new ListCounter);
            IFile::InstallGlobalFileTracker(tracker);
            const std::int64_t before = CountIds()[5];
            ScopedFile plain(H5Fcreate(Path("plain.h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
            const std::int64_t withAFile = CountIds()[5]; // HDF5 keeps lists of its own for a file
            plain.reset();

            const auto file = Open("a.h5", "w");
            file->GetRoot()->CreateArrayFromBuffer("array", numbers, Int, 2, 1);

            EXPECT_EQ(tracker->listsAtOpen, withAFile);
            EXPECT_EQ(CountIds()[5], withAFile);
            file->Close();
            tracker->refused = Path("b.h5");
            EXPECT_EQ(TextOf([&] { Open("b.h5", "w"); }), "refused");
            EXPECT_EQ(tracker->listsAtOpen, withAFile);
            EXPECT_EQ(CountIds()[5], before);
        });
}

} // namespace tarnwick::hdf::tests
