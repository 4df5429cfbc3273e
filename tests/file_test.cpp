#include "Fixture.h"

#include <tarnwickhdf/typed.h>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern "C" __attribute__((weak)) void __lsan_disable(); // NOLINT: there under the address sanitizer alone

namespace tarnwick::hdf::tests
{

using File = HdfTest;

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

TEST_F(File, OfALongNameTellsAllOfIt)
{
    const size_t askedForAtFirst = 1024;
    const std::string path = Path("") + std::string(askedForAtFirst - Path("").size() - 1, '/') + "a";

    EXPECT_EQ(IFile::Open(path, "w", 0)->GetFileName(), path);
}

TEST_F(OpenFileTest, GivesItsCacheALowerThresholdAndPrintsZerosWhenClosed)
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

TEST_F(File, ThatIsMissingBehindASymbolicLinkIsMadeThereWithoutTheVersionMarkOfModeW)
{
    std::filesystem::create_symlink("target.h5", Path("link.h5"));

    EXPECT_EQ(Open("link.h5", "r+")->GetAPIVersion(), 0U);

    EXPECT_TRUE(IFile::IsHDF5File(Path("target.h5")));
}

// Notes what it is told.
struct Recorder : IFileTracker
{
    void OnOpen(hid_t /*file*/, const std::string& name) override { events.push_back("open " + name); }
    void OnClose(hid_t file, const std::string& name) override
    {
        EXPECT_EQ(H5Iis_valid(file), 0);
        events.push_back("close " + name);
        throw 42; // reaches the caller, but not from the destructor
    }

    Names events;
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
        const auto root = other->GetRoot();
        const ScopedType named(H5Tcopy(H5T_NATIVE_INT));
        H5Tcommit1(root->LocationID(), "type", named.get());
        Make(root->LocationID(), "array", {named.get(), {3}}, Ints{1, 2, 3}.data());
        root->CreateGroup("group");
        root->CreateTable("table", 3, TypeOf("H5T_COMPOUND { H5T_STD_I32LE \"a\"; }").get(), 0);
        H5Lcreate_external("other.h5", "/", Open("main.h5", "w")->FileID(), "linked", H5P_DEFAULT, H5P_DEFAULT);
    }

    static ssize_t CountOpenObjects() { return H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_ALL & ~H5F_OBJ_DATATYPE); }
};

TEST_F(LinkedFiles, AreClosedWithTheFileThatLeadsToThem)
{
    const auto file = Open("main.h5", "r+");
    auto linked = file->GetRoot()->GetGroup("linked");
    const auto array = linked->GetArray("array");
    const hid_t named = array->GetTypeID();
    const auto listed = linked->ListTables();
    const IArray copy(*array);
    const ITable copyAlone(*linked->GetTable("table"));
    IGroup assigned(*linked->GetGroup("group"));
    assigned = *linked;
    linked.reset();
    H5Iinc_ref(array->LocationID()); // a share of the application's own goes too

    file->Close();

    EXPECT_EQ(CountOpenObjects(), 0);
    EXPECT_EQ(H5Iis_valid(named), 0) << "a named type lies in a file";
    EXPECT_FALSE(array->IsValid());
    EXPECT_TRUE(copy.IsValid()) << "a copy keeps the number of the id that is gone";
}

TEST_F(LinkedFiles, StayOpenForOtherFilesAndForTheApplication)
{
    const auto first = Open("main.h5", "r+");
    const auto second = Open("main.h5", "r+");
    const auto own = second->GetRoot()->GetArray("linked/array");
    const ScopedGroup applications(H5Gopen1(first->FileID(), "linked/group"));

    first->Close();

    EXPECT_EQ(ReadArray<int>(*own), (Ints{1, 2, 3}));
    second->Close();
    EXPECT_EQ(CountOpenObjects(), 1) << "the application's group";
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

TEST_F(File, OnAFullDiskTellsOfTheArrayThatIsLostAndThatItCannotBeClosed)
{
    const auto fillTheDisk = [&]
    {
        if (__lsan_disable != nullptr)
        {
            __lsan_disable(); // HDF5 loses what it couldn't write
        }
        const auto file = Open("full.h5", "w");
        const auto storeMoreThanFits = [&]
        {
            for (int number = 0; number < 180; ++number)
            {
                StoreArray(*file->GetRoot(), std::to_string(number), Ints(50, number));
            }
        };
        LimitFileSizes(20000);

        const std::string words = WordsOf(storeMoreThanFits);

        EXPECT_NE(words.find(": error writing to dataset:"), std::string::npos) << words;
#if !H5_VERSION_GE(2, 0, 0) // which ends the process by an assertion of its own
        EXPECT_EQ(WordsOf([&] { file->GetRoot()->Flush(); }), "Flush Fail!:");
        EXPECT_THROW(file->Close(), std::runtime_error);
#endif
        LimitFileSizes(RLIM_INFINITY);
    };
    InAProcessOfItsOwn(fillTheDisk);
}

// HDF5 takes back the space at the end of a file even where it reuses none, so that the recipe has something else lie
// behind the arrays.
TEST_F(File, ThatIsKilledLosesNothingThatWasFlushedWhereTheGuidesRecipeIsFollowed)
{
    if (fork() == 0)
    {
        const ScopedPropertyList list(H5Pcreate(H5P_FILE_CREATE));
        H5Pset_file_space_strategy(list.get(), H5F_FSPACE_STRATEGY_NONE, false, 1);
        H5Fclose(H5Fcreate(Path("a.h5").c_str(), H5F_ACC_TRUNC, list.get(), H5P_DEFAULT));
        const auto file = Open("a.h5", "r+");
        StoreArray(*file->GetRoot(), "flushed", Ints(3000, 1));
        file->GetRoot()->CreateGroup("behind it");
        file->GetRoot()->Flush();
        StoreArray(*file->GetRoot(), "flushed", Ints(2000, 2));
        StoreArray(*file->GetRoot(), "new", Ints(1000, 3));
        std::raise(SIGKILL);
    }
    wait(nullptr);

    EXPECT_EQ(ReadArray<int>(*Open("a.h5", "r")->GetRoot(), "flushed"), Ints(3000, 1));
}

} // namespace tarnwick::hdf::tests
