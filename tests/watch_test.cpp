#include "Fixture.h"

#include <tarnwick/tarnwick.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

extern "C" __attribute__((weak)) void __lsan_disable(); // NOLINT: there under the address sanitizer alone

namespace tarnwick::hdf::tests
{

using namespace TDataType;
using Watch = HdfTest;
using Json = nlohmann::ordered_json;

boost::shared_ptr<IFile> openAtExit; // goes after HDF5 has ended

// Runs in a process of its own, because the tracker's slot can't be emptied.
template <typename Body>
void RunApart(Body body)
{
    EXPECT_EXIT((body(), std::exit(::testing::Test::HasFailure() ? 1 : 0)), ::testing::ExitedWithCode(0), "");
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

TEST_F(Watch, TheSlotTakesOneTrackerWhichHearsOfEveryOpenAndClose)
{
    const auto body = [path = Path("a.h5")]
    {
        const std::string both = "open " + path + "\nclose " + path + "\n";
        const boost::shared_ptr<Recorder> tracker(new Recorder);
        IFile::InstallGlobalFileTracker({});
        IFile::InstallGlobalFileTracker(tracker);
        EXPECT_EQ(FailureOf([] { IFile::InstallGlobalFileTracker({}); }),
                  "It's not allowed to install a file tracker in hdf::IFile if one is already installed.");
        EXPECT_EQ(IFile::GetGlobalFileTracker(), tracker);
        EXPECT_NE(FailureOf([&] { IFile::Open(path, "r", 0); }), "");
        auto file = IFile::Open(path, "w", 0);
        file->Close();
        file->Close();
        tracker->throwOn = "close ";
        EXPECT_NO_THROW(IFile::Open(path, "w", 0).reset());
        file = IFile::Open(path, "w", 0);
        EXPECT_THROW(file->Close(), int);
        EXPECT_EQ(tracker->events, both + both + both);
        tracker->throwOn = "open ";
        EXPECT_THROW(IFile::Open(path, "w", 0), int);
        EXPECT_EQ(IdCounts::Now()[0], 0);
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

TEST_F(Watch, TheMemoryLogAndTheReportsTellWhatHdf5HasOpen)
{
    const std::string log = Path("memory.log");
    std::ofstream(log) << "kept\n";
    MemoryLoggerFileTracker tracker;
    const auto first = IFile::Open(Path("a.h5"), "w", 0);
    const auto second = IFile::Open(Path("a.h5"), "r+", 0);
    const auto array = second->GetRoot()->CreateArray("array", Int, 0);
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    H5Tcommit1(first->FileID(), "type", type.get());
    const ScopedAttribute mark(H5Aopen(first->GetRoot()->LocationID(), "__vorl_api_version", H5P_DEFAULT));
    H5AC_cache_config_t config = first->GetCacheConfiguration();
    EXPECT_EQ(config.lower_hr_threshold, 0.8);
    config.min_size = 2 << 20;
    first->SetCacheConfiguration(config);
    EXPECT_EQ(second->GetCacheConfiguration().min_size, 2U << 20);
    EXPECT_EQ(FailureOf([&] { tracker.AppendToMemoryLog(1, Path("no such directory") + "/memory.log"); }), "");
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
    std::ostringstream cache, files;
    cache << rate << "," << most << "," << clean << "," << size << "," << entries << "\n";
    files << R"(,"files":[{"name":)" << Json(Path("a.h5")) << R"(,"dataset_count":1,"group_count":2,"attr_count":1,)"
          << R"("object_count":7,"file_count":2,"datatype_count":1,"cache_hit_rate":)" << Json(rate)
          << R"(,"cache_max_size":)" << most << R"(,"cache_min_clean_size":)" << clean << R"(,"cache_size":)" << size
          << R"(,"cache_num_entries":)" << entries << "}]}";
    EXPECT_EQ(CacheStatusOf(*first, true), cache.str());
    const std::vector<unsigned int> counts = {first->GetOpenDataSetsCount(), first->GetOpenGroupsCount(),
                                              first->GetOpenAttrsCount(),    first->GetOpenObjectsCount(),
                                              first->GetOpenFilesCount(),    first->GetOpenDataTypesCount()};
    EXPECT_EQ(Joined(counts), " 1 2 1 7 2 1");
    std::ifstream lines(log);
    std::string line;
    EXPECT_TRUE(std::getline(lines, line) && line == "kept");
    for (const int hours : {5, -8})
    {
        std::getline(lines, line);
        std::smatch match;
        const std::regex shape(R"-(\{"index":-7,"timestamp":"(.*)","total_heap_used_bytes":\d+(.*))-");
        EXPECT_TRUE(std::regex_match(line, match, shape));
        std::tm local = {};
        EXPECT_STREQ(strptime(match.str(1).c_str(), "%FT%T", &local), hours == 5 ? "+0500" : "-0800");
        EXPECT_NEAR(difftime(timegm(&local), std::time(nullptr)), hours * 3600, 1800);
        EXPECT_EQ(match[2], files.str());
    }
    first->Close();
    EXPECT_EQ(CacheStatusOf(*first, false), "Cache statistics: \n\tHit rate: 0\n\tMax size: 0\n\tMin clean size: 0\n"
                                            "\tCurrent size: 0\n\tCurrent number of entries: 0\n");
    EXPECT_EQ(FailureOf([&] { tracker.AppendToMemoryLog(1, log); }), "Couldn't retrieve file name");
    tracker.OnClose(first->FileID(), "");
    EXPECT_THROW(tracker.OnClose(first->FileID(), "a"), std::logic_error);
    const auto latin1 = IFile::Open(Path("caf\xE9.h5"), "w", 0);
    tracker.OnOpen(latin1->FileID(), "");
    EXPECT_THROW(tracker.AppendToMemoryLog(8, log), Json::type_error);
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

TEST_F(Watch, AFullDiskGivesExceptionsAndLeavesOtherFilesAndTheExitAlone)
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
            auto file = IFile::Open(Path("full.h5"), "w", 0);
            const auto other = IFile::Open(Path("other.h5"), "w", 0);
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
            other->GetRoot()->SetAttr("text", "written");
            other->Close();
            EXPECT_EQ(IFile::Open(Path("other.h5"), "r", 0)->GetRoot()->GetAttr("text"), "written");
            openAtExit = IFile::Open(Path("late.h5"), "w", 0);
            openAtExit->GetRoot()->SetAttr("text", std::to_string(way));
        };
        RunApart(body);
        EXPECT_EQ(IFile::Open(Path("late.h5"), "r", 0)->GetRoot()->GetAttr("text"), std::to_string(way));
    }
}

TEST_F(Watch, WhatMayNotBeReadOrWrittenIsRefusedAndStaysAsItIs)
{
    const std::array<std::string, 4> names = {Path("a.h5"), Path("secret.h5"), "/new.h5", "/"};
    const auto body = [&]
    {
        EXPECT_TRUE(geteuid() != 0 || setresuid(65534, 65534, 65534) == 0); // permissions don't bind root
        EXPECT_FALSE(IFile::FileExists(names[1]));
        // Not even tried to make anew.
        EXPECT_NE(FailureOf([&] { IFile::Open(names[1], "r+", 0); }).find("#0: in func H5Fopen()"), std::string::npos);
        for (size_t i = 0; i < 8; ++i)
        {
            EXPECT_EQ(WordsOf([&] { IFile::Open(names[i / 2], i % 2 == 0 ? "w" : "r+", 0); }),
                      "Failed to obtain a valid file handle for filename: " + names[i / 2] + ":");
        }
    };
    for (const size_t i : {0U, 1U})
    {
        IFile::Open(names[i], "w", 0);
        chmod(names[i].c_str(), i == 0 ? 0444 : 0222);
    }
    RunApart(body);
    chmod(names[1].c_str(), 0444);
    EXPECT_EQ(IFile::Open(names[1], "r", 0)->GetAPIVersion(), 1U);
}

} // namespace tarnwick::hdf::tests
