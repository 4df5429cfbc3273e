#include "Fixture.h"

#include <tarnwickhdf/typed.h>

#include <boost/make_shared.hpp>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern "C" __attribute__((weak)) void __lsan_disable(); // NOLINT: there under the address sanitizer alone

namespace tarnwick::hdf::tests
{

using File = HdfTest;
using OpenFile = OpenFileTest;

struct FilePlace
{
    std::string name;
    bool isFile;
    Names modes; ///< In which it opens.
};

TEST_F(File, OpensInTheModesThatItsPlaceAllows)
{
    const std::vector<FilePlace> places = {
        {"whole", true, {"r", "r+", "w"}}, {"missing", false, {"r+", "w"}}, {"folder", false, {}},
        {"no folder/new", false, {}},      {"text", true, {"w"}},           {"cut", true, {"w"}}};
    Open("whole", "w");
    std::filesystem::create_directory(Path("folder"));
    std::ofstream(Path("text")) << "no HDF5 file";
    std::ofstream(Path("cut")) << Read("whole").substr(0, 700);
    for (const FilePlace& place : places)
    {
        const std::string path = Path(place.name);
        EXPECT_EQ(IFile::FileExists(path), place.isFile) << path;
        for (const std::string mode : {"r", "r+", "w"})
        {
            const bool opens = std::count(place.modes.begin(), place.modes.end(), mode) != 0;
            EXPECT_EQ(WordsOf([&] { Open(place.name, mode); }),
                      opens ? "" : "Failed to obtain a valid file handle for filename: " + path + ":")
                << mode;
        }
    }
    EXPECT_TRUE(IFile::IsHDF5File(Path("whole")));
    EXPECT_FALSE(IFile::IsHDF5File(Path("folder")));
}

TEST_F(File, OfAnUnknownModeOrCompressionIsRefusedAndNotTouched)
{
    const std::string path = Path("new.h5");
    const std::string levels = "invalid compression value; must be 0 to 9 (inclusive)";

    ExpectWords({{[&] { IFile::Open(path, "", 0); }, "invalid file mode: "},
                 {[&] { IFile::Open(path, "w+", 0); }, "invalid file mode: w+"},
                 {[&] { IFile::Open(path, "w", 10); }, levels},
                 {[&] { IFile::Open(path, "w", -1); }, levels}});
    EXPECT_FALSE(IFile::FileExists(path));
    EXPECT_EQ(IFile::Open(path, "w", 9)->GetRoot()->GetDefaultCompression(), 9);
}

TEST_F(File, MadeByModeWCarriesTheVersionMarkAndOneMadeByReadPlusDoesNot)
{
    EXPECT_EQ(Open("w.h5", "w")->GetAPIVersion(), 1U);
    EXPECT_EQ(Open("w.h5", "r")->GetAPIVersion(), 1U);
    EXPECT_EQ(Open("r+.h5", "r+")->GetAPIVersion(), 0U);
}

TEST_F(File, OfALongNameTellsAllOfIt)
{
    // Around the name that HDF5 is asked for at first.
    for (const size_t length : {1023U, 1024U, 1500U})
    {
        const std::string path = Path("") + std::string(length - Path("").size() - 4, '/') + "a.h5";

        EXPECT_EQ(IFile::Open(path, "w", 0)->GetFileName(), path);
    }
}

TEST_F(OpenFile, HasTheFormThatHdf5HadBefore2)
{
    // More than newer forms keep in the order of their making.
    const Names names = {"k", "e", "b", "j", "a", "i", "c", "h", "d", "g", "f"};
    for (const std::string& name : names)
    {
        root->SetAttr(name, "value");
    }

    EXPECT_EQ(root->ListAttrs(), names);
    EXPECT_EQ(WordsOf([&] { root->SetAttr("large", std::string(70000, 'x')); }), "fail to create attribute: large:");
}

TEST_F(OpenFile, GivesItsCacheALowerThresholdAndPrintsZerosWhenClosed)
{
    EXPECT_EQ(file->GetCacheConfiguration().lower_hr_threshold, 0.8);

    file->Close();
    ::testing::internal::CaptureStdout();
    file->DumpCacheStatus(true);
    file->DumpCacheStatus(false);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "0,0,0,0,0\nCache statistics: \n\tHit rate: 0\n\tMax size: 0\n\tMin clean size: 0\n"
              "\tCurrent size: 0\n\tCurrent number of entries: 0\n");
}

TEST_F(File, ThatIsOpenElsewhereIsNotEmptied)
{
    Open("kept.h5", "w");
    const std::string before = Read("kept.h5");
    // The lock of a reader in another process: Linux grants locks to open files, not to processes.
    const int reader = open(Path("kept.h5").c_str(), O_RDONLY);
    flock(reader, LOCK_SH);

    const std::string elsewhere = TextOf([&] { Open("kept.h5", "w"); });
    close(reader);
    const auto here = Open("kept.h5", "r");
    const std::string twice = TextOf([&] { Open("kept.h5", "w"); });

    EXPECT_NE(elsewhere.find("unable to lock"), std::string::npos) << elsewhere;
    EXPECT_NE(twice.find("unable to truncate a file which is already open"), std::string::npos) << twice;
    EXPECT_EQ(Read("kept.h5"), before);
}

TEST_F(File, ThatIsMissingBehindASymbolicLinkIsMadeThere)
{
    std::filesystem::create_symlink("target.h5", Path("link.h5"));

    Open("link.h5", "r+");

    EXPECT_TRUE(IFile::IsHDF5File(Path("target.h5")));
}

// Notes what it is told.
class Recorder : public IFileTracker
{
public:
    void OnOpen(hid_t file, const std::string& name) override
    {
        EXPECT_EQ(H5Fget_obj_count(file, H5F_OBJ_ALL), 1) << "nobody has used the file before";
        lists = CountIds()[5];
        events.push_back("open " + name);
    }
    void OnClose(hid_t file, const std::string& name) override
    {
        EXPECT_EQ(H5Iis_valid(file), 0);
        events.push_back("close " + name);
        throw 42; // reaches the caller, but not from the destructor
    }

    Names events;
    std::int64_t lists = -1; ///< The property lists that were open at the last open of a file.
};

TEST_F(File, TellsTheOneTrackerOfEveryOpenThatSucceedsAndOfItsClose)
{
    const boost::shared_ptr<Recorder> tracker(new Recorder);
    const auto openAndClose = [&]
    {
        IFile::InstallGlobalFileTracker({});
        IFile::InstallGlobalFileTracker(tracker);
        EXPECT_EQ(WordsOf([] { IFile::InstallGlobalFileTracker({}); }),
                  "It's not allowed to install a file tracker in hdf::IFile if one is already installed.");

        EXPECT_THROW(Open("a.h5", "r"), std::runtime_error);
        const auto file = Open("a.h5", "r+");
        EXPECT_EQ(tracker->lists, CountIds()[5]) << "HDF5's own alone";
        EXPECT_THROW(file->Close(), int);
        file->Close();
        Open("b.h5", "w").reset();

        EXPECT_EQ(tracker->events, (Names{"open " + Path("a.h5"), "close " + Path("a.h5"), "open " + Path("b.h5"),
                                          "close " + Path("b.h5")}));
    };
    InAProcessOfItsOwn(openAndClose);
}

// A file "main.h5" whose root has a link "linked" to the root of another file, with objects of each kind.
struct LinkedFiles : HdfTest
{
    LinkedFiles()
    {
        const auto other = Open("other.h5", "w");
        const ScopedType named(H5Tcopy(H5T_NATIVE_INT));
        H5Tcommit1(other->FileID(), "type", named.get());
        Make(other->FileID(), "array", {named.get(), {3}}, Ints{1, 2, 3}.data());
        other->GetRoot()->CreateGroup("group");
        other->GetRoot()->CreateTable("table", 3, TypeOf("H5T_COMPOUND { H5T_STD_I32LE \"a\"; }").get(), 0);
        H5Lcreate_external("other.h5", "/", Open("main.h5", "w")->FileID(), "linked", H5P_DEFAULT, H5P_DEFAULT);
    }

    // Nodes from getters, lists and factories; copies beside their originals, alone, and assigned.
    static std::vector<boost::shared_ptr<INode>> OpenAllWays(IGroup& linked)
    {
        const auto array = linked.GetArray("array");
        H5Iinc_ref(array->LocationID()); // a share of the application's own goes too
        const auto assigned = boost::make_shared<IGroup>(*linked.GetGroup("group"));
        *assigned = linked;
        return {
            array,
            boost::make_shared<IArray>(*array),
            assigned,
            boost::make_shared<ITable>(*linked.GetTable("table")),
            linked.ListTables()[0],
        };
    }

    /// Types that aren't named lie in no file.
    static ssize_t CountOpenObjects()
    {
        return H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_FILE | H5F_OBJ_GROUP | H5F_OBJ_DATASET | H5F_OBJ_ATTR);
    }
};

TEST_F(LinkedFiles, AreClosedWithTheFileThatLeadsToThem)
{
    const auto file = Open("main.h5", "r+");
    const auto nodes = OpenAllWays(*file->GetRoot()->GetGroup("linked"));

    file->Close();

    EXPECT_EQ(CountOpenObjects(), 0);
    EXPECT_FALSE(nodes[0]->IsValid());
    EXPECT_TRUE(nodes[1]->IsValid()) << "a copy keeps the number of the id that is gone";
}

TEST_F(LinkedFiles, StayOpenForOtherFilesAndForTheApplication)
{
    const auto first = Open("main.h5", "r+");
    const auto second = Open("main.h5", "r+");
    const auto own = second->GetRoot()->GetArray("linked/array");
    const ScopedGroup applications(H5Gopen1(first->FileID(), "linked/group"));

    first->Close();

    EXPECT_EQ(ReadArray<int>(*own), (Ints{1, 2, 3}));
    EXPECT_EQ(H5Iis_valid(applications.get()), 1);
    second->Close();
    EXPECT_EQ(CountOpenObjects(), 1);
}

// As if the disk were full: a write past this size fails.
void LimitFileSizes(rlim_t bytes)
{
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST_F(File, OnAFullDiskTellsOfEachArrayThatIsLostAndThatItCannotBeClosed)
{
    const auto writeUntilTheDiskIsFull = [&]
    {
        if (__lsan_disable != nullptr)
        {
            __lsan_disable(); // HDF5 loses what it couldn't write
        }
        const Ints numbers(50, 7);
        Names words;
        auto file = Open("full.h5", "w");
        const auto unclosed = Open("unclosed.h5", "w");
        LimitFileSizes(20000);
        for (int i = 0; i < 180; ++i)
        {
            file->GetRoot()->SetDefaultCompression(i % 2);
            unclosed->GetRoot()->CreateGroup(std::to_string(i));
            words.push_back(WordsOf([&] { StoreArray(*file->GetRoot(), std::to_string(i), numbers); }));
        }
#if !H5_VERSION_GE(2, 0, 0) // which ends the process by an assertion of its own
        EXPECT_EQ(WordsOf([&] { unclosed->GetRoot()->Flush(); }), "Flush Fail!:");
        EXPECT_THROW(unclosed->Close(), std::runtime_error);
#endif
        LimitFileSizes(RLIM_INFINITY);
        file->Close();

        file = Open("full.h5", "r");
        for (size_t i = 0; i < words.size(); ++i)
        {
            const std::string name = std::to_string(i);
            Ints read;
            TextOf([&] { read = ReadArray<int>(*file->GetRoot(), name); });
            EXPECT_EQ(words[i], read == numbers ? "" : "/" + name + ": error writing to dataset:");
        }
        EXPECT_EQ(words.front(), "");
        EXPECT_NE(words.back(), "");
    };
    InAProcessOfItsOwn(writeUntilTheDiskIsFull);
}

constexpr int kArrays = 6;

struct Kills : HdfTest
{
    /// Flushes arrays and writes them anew in other sizes until it is killed. All elements of an array tell whose they
    /// are. HDF5 takes back the space at the end of a file even where it reuses none, so that the guide's recipe has
    /// something else lie behind the arrays.
    void WriteUntilKilled(bool followsRecipe) const
    {
        const ScopedPropertyList list(H5Pcreate(H5P_FILE_CREATE));
        H5Pset_file_space_strategy(list.get(), followsRecipe ? H5F_FSPACE_STRATEGY_NONE : H5F_FSPACE_STRATEGY_FSM_AGGR,
                                   false, 1);
        H5Fclose(H5Fcreate(Path("a.h5").c_str(), H5F_ACC_TRUNC, list.get(), H5P_DEFAULT));
        const auto file = Open("a.h5", "r+");
        const auto root = file->GetRoot();
        const auto storeAll = [&](size_t size)
        {
            for (int index = 0; index < kArrays; ++index)
            {
                StoreArray(*root, std::to_string(index), Ints(size, index));
            }
        };
        storeAll(3000);
        if (followsRecipe)
        {
            root->CreateGroup("flushes/1");
        }
        root->Flush();
        root->DelArray(std::to_string(kArrays - 1));
        storeAll(2000);
        storeAll(1000);
        std::raise(SIGKILL);
    }

    int CountWholeArraysBehindAKill(bool followsRecipe) const
    {
        const pid_t killed = fork();
        if (killed == 0)
        {
            WriteUntilKilled(followsRecipe);
        }
        waitpid(killed, nullptr, 0);
        int whole = 0;
        for (int index = 0; index < kArrays; ++index)
        {
            Ints values;
            TextOf([&] { values = ReadArray<int>(*Open("a.h5", "r")->GetRoot(), std::to_string(index)); });
            whole += !values.empty() && values == Ints(values.size(), index) ? 1 : 0;
        }
        return whole;
    }
};

TEST_F(Kills, LoseNothingThatWasFlushedWhereTheGuidesRecipeIsFollowed)
{
    EXPECT_EQ(CountWholeArraysBehindAKill(true), kArrays);
}

// If nothing is lost any more, HDF5 has become better than the guide says.
TEST_F(Kills, LoseFlushedArraysWhereHdf5GivesTheSpaceOfOthersAway)
{
    EXPECT_LT(CountWholeArraysBehindAKill(false), kArrays);
}

} // namespace tarnwick::hdf::tests
