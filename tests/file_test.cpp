#include "Fixture.h"

#include <tarnwick/tarnwick.h>

#include <climits>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

extern "C" __attribute__((weak)) void __lsan_disable(); // NOLINT: there under the address sanitizer alone

namespace tarnwick::hdf::tests
{

using namespace TDataType;

boost::shared_ptr<IFile> openAtExit; // goes after HDF5 has ended

// Runs in a process of its own: the tracker's slot can't be emptied, and limits and the exit are the process's.
void RunApart(const std::function<void()>& body)
{
    EXPECT_EXIT((body(), std::exit(::testing::Test::HasFailure() ? 1 : 0)), ::testing::ExitedWithCode(0), "");
}

struct File : HdfTest
{
    std::string Read(const std::string& name) const
    {
        std::ifstream stream(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    auto Open(const std::string& name, const std::string& mode) { return IFile::Open(Path(name), mode, 0); }
};

TEST_F(File, WhatIsNoWholeHdf5FileNoModeNoCompressionOrNotPermittedIsRefusedUnchanged)
{
    for (const std::string name : {"whole", "read only", "write only"})
    {
        Open(name, "w");
    }
    std::filesystem::create_directory(Path("locked"));
    std::ofstream(Path("text")) << "no HDF5 file";
    std::ofstream(Path("truncated")) << Read("whole").substr(0, 700);
    using Row = std::tuple<std::string, mode_t, bool, bool, std::string>;
    const std::vector<Row> rows = {{"locked", 0555, false, false, " "},    {"no/file", 0, false, false, " "},
                                   {"text", 0666, true, false, " w "},     {"truncated", 0666, true, true, " w "},
                                   {"missing", 0, false, false, " r+ w "}, {"whole", 0666, true, true, " r r+ w "},
                                   {"read only", 0444, true, true, " r "}, {"write only", 0222, false, false, " "},
                                   {"locked/new", 0, false, false, " "},   {"", 0777, false, false, " "}};
    for (const auto& [name, permissions, exists, isHdf5, modes] : rows)
    {
        chmod(Path(name).c_str(), permissions);
    }
    const auto body = [&]
    {
        EXPECT_TRUE(geteuid() != 0 || setresuid(65534, 65534, 65534) == 0); // permissions don't bind root
        for (const auto& [name, permissions, exists, isHdf5, modes] : rows)
        {
            EXPECT_EQ(IFile::FileExists(Path(name)), exists) << name;
            EXPECT_EQ(IFile::IsHDF5File(Path(name)), isHdf5) << name;
            const std::string content = exists ? Read(name) : "";
            const std::string noHandle = "Failed to obtain a valid file handle for filename: " + Path(name) + ":";
            for (const int level : {10, -1, INT_MIN, INT_MAX})
            {
                EXPECT_EQ(WordsOf([&] { IFile::Open(Path(name), "w", level); }),
                          "invalid compression value; must be 0 to 9 (inclusive)");
            }
            for (const std::string mode : {"", "R", "W", "r ", "rw", "w+", "a", "r", "r+", "w"})
            {
                const bool isMode = mode == "r" || mode == "r+" || mode == "w";
                const bool opens = isMode && modes.find(" " + mode + " ") != std::string::npos;
                EXPECT_EQ(WordsOf([&] { Open(name, mode); }), opens    ? ""
                                                              : isMode ? noHandle
                                                                       : "invalid file mode: " + mode);
                EXPECT_TRUE(opens || !exists || Read(name) == content) << name << mode;
                const unsigned int version = name == "missing" && mode == "r+" ? 0 : 1;
                EXPECT_TRUE(!opens || Open(name, "r")->GetAPIVersion() == version) << name << mode;
            }
        }
        // Not even tried to make anew.
        EXPECT_NE(TextOf([&] { Open("write only", "r+"); }).find("#0: in func H5Fopen()"), std::string::npos);
    };
    RunApart(body);
    chmod(Path("write only").c_str(), 0444);
    EXPECT_EQ(Open("write only", "r")->GetAPIVersion(), 1U);
}

struct Recorder : IFileTracker
{
    void OnOpen(hid_t file, const std::string& name) override { Note("open ", H5Fget_obj_count(file, 31) == 1, name); }
    void OnClose(hid_t file, const std::string& name) override { Note("close ", H5Iis_valid(file) == 0, name); }
    void Note(const std::string& event, bool inTime, const std::string& name)
    {
        events += event + (inTime ? "" : "too early or late ") + name + "\n";
        event == throwOn ? throw 42 : 0;
    }
    std::string events, throwOn;
};

TEST_F(File, TheSlotTakesOneTrackerWhichHearsOfEveryOpenAndClose)
{
    const auto body = [path = Path("a.h5")]
    {
        const std::string both = "open " + path + "\nclose " + path + "\n";
        const boost::shared_ptr<Recorder> tracker(new Recorder);
        IFile::InstallGlobalFileTracker({});
        IFile::InstallGlobalFileTracker(tracker);
        EXPECT_EQ(WordsOf([] { IFile::InstallGlobalFileTracker({}); }),
                  "It's not allowed to install a file tracker in hdf::IFile if one is already installed.");
        EXPECT_EQ(IFile::GetGlobalFileTracker(), tracker);
        EXPECT_NE(WordsOf([&] { IFile::Open(path, "r", 0); }), "");
        auto file = IFile::Open(path, "w", 0);
        file->Close(), file->Close();
        tracker->throwOn = "close ";
        EXPECT_NO_THROW(IFile::Open(path, "w", 0).reset());
        file = IFile::Open(path, "w", 0);
        EXPECT_THROW(file->Close(), int);
        EXPECT_EQ(tracker->events, both + both + both);
        tracker->throwOn = "open ";
        EXPECT_THROW(IFile::Open(path, "w", 0), int);
        EXPECT_EQ(CountIds()[0], 0);
    };
    RunApart(body);
}

std::string CacheStatusOf(const IFile& file, bool compact)
{
    std::ostringstream dump;
    std::streambuf* const before = std::cout.rdbuf(dump.rdbuf());
    file.DumpCacheStatus(compact);
    std::cout.rdbuf(before);
    return dump.str();
}

TEST_F(File, TheMemoryLogAndTheReportsTellWhatHdf5HasOpen)
{
    const std::string log = Path("memory.log"), path = Path(std::string(500, '/') + "Z\xC3\xBC.h5");
    std::ofstream(log) << "kept\n";
    MemoryLoggerFileTracker tracker;
    const auto first = IFile::Open(path, "w", 0);
    const auto second = IFile::Open(path, "r+", 0);
    const auto array = second->GetRoot()->CreateArray("array", Int, 0);
    EXPECT_EQ(second->GetFileName(), path);
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    H5Tcommit1(first->FileID(), "type", type.get());
    const ScopedAttribute mark(H5Aopen(first->GetRoot()->LocationID(), "__vorl_api_version", H5P_DEFAULT));
    H5AC_cache_config_t config = first->GetCacheConfiguration();
    EXPECT_EQ(config.lower_hr_threshold, 0.8);
    config.min_size = 2 << 20;
    first->SetCacheConfiguration(config);
    EXPECT_EQ(second->GetCacheConfiguration().min_size, 2U << 20);
    EXPECT_EQ(WordsOf([&] { tracker.AppendToMemoryLog(1, Path("no such directory") + "/memory.log"); }), "");
    tracker.OnOpen(first->FileID(), "");
    // Local time is that of now, whatever zone the process started in.
    for (const char* const zone : {"AAA-5", "BBB8"})
    {
        setenv("TZ", zone, 1);
        tracker.AppendToMemoryLog(-7, log);
    }
    double rate = 0;
    size_t most = 0, clean = 0, size = 0;
    int entries = 0;
    H5Fget_mdc_hit_rate(first->FileID(), &rate);
    H5Fget_mdc_size(first->FileID(), &most, &clean, &size, &entries);
    std::ostringstream cache;
    cache << rate << "," << most << "," << clean << "," << size << "," << entries << "\n";
    EXPECT_EQ(CacheStatusOf(*first, true), cache.str());
    const Json counts = {first->GetOpenDataSetsCount(), first->GetOpenGroupsCount(), first->GetOpenAttrsCount(),
                         first->GetOpenObjectsCount(),  first->GetOpenFilesCount(),  first->GetOpenDataTypesCount()};
    EXPECT_EQ(counts.dump(), "[1,2,1,7,2,1]");
    const Json sample = {{"name", path},           {"dataset_count", 1},
                         {"group_count", 2},       {"attr_count", 1},
                         {"object_count", 7},      {"file_count", 2},
                         {"datatype_count", 1},    {"cache_hit_rate", rate},
                         {"cache_max_size", most}, {"cache_min_clean_size", clean},
                         {"cache_size", size},     {"cache_num_entries", entries}};
    std::ifstream lines(log);
    std::string line;
    EXPECT_TRUE(std::getline(lines, line) && line == "kept");
    for (const int hours : {5, -8})
    {
        std::getline(lines, line);
        std::smatch match;
        const std::regex shape(R"-(\{"index":-7,"timestamp":"(.*)","total_heap_used_bytes":\d+,"files":\[(.*)\]\})-");
        EXPECT_TRUE(std::regex_match(line, match, shape));
        std::tm local = {};
        EXPECT_STREQ(strptime(match.str(1).c_str(), "%FT%T", &local), hours == 5 ? "+0500" : "-0800");
        EXPECT_NEAR(difftime(timegm(&local), std::time(nullptr)), hours * 3600, 1800);
        EXPECT_EQ(match[2], sample.dump());
    }
    first->Close(), first->Close();
    EXPECT_EQ(WordsOf([&] { first->GetFileName(); }), "Couldn't retrieve file name");
    EXPECT_EQ(CacheStatusOf(*first, false), "Cache statistics: \n\tHit rate: 0\n\tMax size: 0\n\tMin clean size: 0\n"
                                            "\tCurrent size: 0\n\tCurrent number of entries: 0\n");
    EXPECT_EQ(WordsOf([&] { tracker.AppendToMemoryLog(1, log); }), "Couldn't retrieve file name");
    tracker.OnClose(first->FileID(), "");
    EXPECT_THROW(tracker.OnClose(first->FileID(), "a"), std::logic_error);
    const auto latin1 = Open("caf\xE9.h5", "w");
    tracker.OnOpen(latin1->FileID(), "");
    EXPECT_THROW(tracker.AppendToMemoryLog(8, log), Json::type_error);
    const auto root = latin1->GetRoot();
    H5Fclose(latin1->FileID());
    EXPECT_EQ(WordsOf([&] { latin1->Close(); }), "Couldn't retrieve file name");
    EXPECT_TRUE(!latin1->IsClosed() && root->IsValid());
}

TEST(Text, OfOtherEncodingsIsConvertedAndBadBytesAreReplaced)
{
    EXPECT_EQ(latin1_to_utf8(std::string("Z\xFC\0\xFF", 4)), std::string("Z\xC3\xBC\0\xC3\xBF", 6));
    EXPECT_EQ(utf8_to_filesystem_unicode("a\xC3\xBC/\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00FC/\u20AC\U0001F600");
    // A Latin-1 byte, a cut sequence, an overlong one, a surrogate, a character past the last.
    for (const std::string bad : {"\xFC", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    {
        EXPECT_EQ(utf8_to_filesystem_unicode(bad + "a"), std::wstring(bad.size(), L'\uFFFD') + L"a") << bad;
    }
}

TEST(Heap, LargeAndSmallBlocksAppearAndGo)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers bring an allocator of their own, which the C library can't count";
#endif
    const auto growth = [before = static_cast<double>(count_heap_used_bytes())]
    {
        return (static_cast<double>(count_heap_used_bytes()) - before) / (1 << 20);
    };
    auto large = std::make_unique<std::array<char, 64 << 20>>();
    EXPECT_NEAR(growth(), 64, 2);
    large.reset();
    std::vector<std::string> small(100000, std::string(500, 'x'));
    EXPECT_NEAR(growth(), 100000 * (512 + sizeof(std::string)) / 1048576.0, 2);
    std::vector<std::string>().swap(small);
    EXPECT_NEAR(growth(), 0, 2);
}

TEST_F(File, AFullDiskGivesExceptionsAndLeavesOtherFilesAndTheExitAlone)
{
    for (int way = 0; way < 8; ++way)
    {
        SCOPED_TRACE(way);
        const auto body = [&]
        {
            GarbageCollect();                                      // what HDF5 keeps for reuse was allocated before
            __lsan_disable != nullptr ? __lsan_disable() : void(); // HDF5 loses the chunks that it couldn't write
            const bool large = (way & 1) != 0;
            std::vector<int> numbers(large ? 400000 : 10); // a large chunk goes to the disk at once
            auto file = Open("full.h5", "w");
            const auto other = Open("other.h5", "w");
            rlimit limit = {};
            getrlimit(RLIMIT_FSIZE, &limit);
            const rlimit full = {rlim_t(1000) << way, limit.rlim_max};
            std::signal(SIGXFSZ, SIG_IGN);
            setrlimit(RLIMIT_FSIZE, &full);
            auto root = file->GetRoot();
            for (int i = 0; i < (large ? 5 : 300); ++i)
            {
                const std::string name = std::to_string(i);
                EXPECT_EQ(WordsOf([&] { root->CreateArrayFromBuffer(name, &numbers[0], Int, numbers.size(), 1); }),
                          large ? "error writing to dataset:" : "");
            }
            EXPECT_EQ((way & 2) != 0 ? WordsOf([&] { root->Flush(); }) : "Flush Fail!:", "Flush Fail!:");
            if ((way & 4) != 0)
            {
                EXPECT_THROW(file->Close(), std::runtime_error);
            }
            root.reset(), file.reset();
            setrlimit(RLIMIT_FSIZE, &limit);
            other->GetRoot()->SetAttr("text", "written"), other->Close();
            EXPECT_EQ(Open("other.h5", "r")->GetRoot()->GetAttr("text"), "written");
            openAtExit = Open("late.h5", "w");
            openAtExit->GetRoot()->SetAttr("text", std::to_string(way));
        };
        RunApart(body);
        EXPECT_EQ(Open("late.h5", "r")->GetRoot()->GetAttr("text"), std::to_string(way));
    }
}

} // namespace tarnwick::hdf::tests
