#include "Fixture.h"

#include <tarnwick/tarnwick.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern "C" __attribute__((weak)) void __lsan_disable(); // NOLINT: there under the address sanitizer alone

namespace tarnwick::hdf::tests
{

using Watch = HdfTest;
using Json = nlohmann::ordered_json;

boost::shared_ptr<IFile> openAtExit; // goes after HDF5 has ended

// How a process of its own ends, because the tracker's slot can't be emptied: 0 regularly and without failures.
template <typename Body>
int EndOf(Body body) noexcept
{
    int status = std::fflush(stdout);
    if (fork() == 0)
    {
        body();
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    wait(&status);
    return status;
}

template <typename Exception, typename Call>
std::string TextOf(Call call)
{
    try
    {
        call();
    }
    catch (const Exception& failure)
    {
        return failure.what();
    }
    return "no failure";
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
        EXPECT_EQ(IFile::GetGlobalFileTracker(), nullptr);
        IFile::InstallGlobalFileTracker(tracker);
        EXPECT_EQ(FailureOf([] { IFile::InstallGlobalFileTracker({}); }),
                  "It's not allowed to install a file tracker in hdf::IFile if one is already installed.");
        EXPECT_EQ(IFile::GetGlobalFileTracker(), tracker);
        EXPECT_NE(FailureOf([&] { IFile::Open(path, "r", 0); }), "");
        auto file = IFile::Open(path, "r+", 0);
        // With a mark that can't be read the next open fails behind OnOpen; OnClose throws into that failure.
        file->GetRoot()->SetAttr("text", std::string("none"));
        H5Arename(file->GetRoot()->LocationID(), "text", "__vorl_api_version");
        file->Close();
        file->Close();
        tracker->throwOn = "close ";
        EXPECT_EQ(WordsOf([&] { IFile::Open(path, "r", 0); }), "could not read attribute: __vorl_api_version:");
        file = IFile::Open(path, "w", 0);
        EXPECT_THROW(file->Close(), int);
        EXPECT_TRUE(file->IsClosed());
        EXPECT_EQ(tracker->events, both + both + both);
        tracker->throwOn = "open ";
        EXPECT_THROW(IFile::Open(path, "w", 0), int);
        EXPECT_EQ(IdCounts::Now().counts[0], 0U);
    };
    EXPECT_EQ(EndOf(body), 0);
}

// Checks all reports on a file against each other and gives them in the form of the memory log.
Json DescribeFile(IFile& file)
{
    std::array<size_t, 3> sizes = {};
    int entries = 0;
    double rate = 0;
    H5Fget_mdc_hit_rate(file.FileID(), &rate);
    H5Fget_mdc_size(file.FileID(), &sizes[0], &sizes[1], &sizes[2], &entries);
    std::ostringstream dump;
    std::ostringstream expected;
    std::streambuf* const before = std::cout.rdbuf(dump.rdbuf());
    file.DumpCacheStatus(true);
    file.DumpCacheStatus(false);
    std::cout.rdbuf(before);
    expected << rate << "," << sizes[0] << "," << sizes[1] << "," << sizes[2] << "," << entries
             << "\nCache statistics: \n\tHit rate: " << rate << "\n\tMax size: " << sizes[0]
             << "\n\tMin clean size: " << sizes[1] << "\n\tCurrent size: " << sizes[2]
             << "\n\tCurrent number of entries: " << entries << "\n";
    EXPECT_EQ(dump.str(), expected.str());
    return {{"name", file.IsClosed() ? "" : file.GetFileName()},
            {"dataset_count", file.GetOpenDataSetsCount()},
            {"group_count", file.GetOpenGroupsCount()},
            {"attr_count", file.GetOpenAttrsCount()},
            {"object_count", file.GetOpenObjectsCount()},
            {"file_count", file.GetOpenFilesCount()},
            {"datatype_count", file.GetOpenDataTypesCount()},
            {"cache_hit_rate", rate},
            {"cache_max_size", sizes[0]},
            {"cache_min_clean_size", sizes[1]},
            {"cache_size", sizes[2]},
            {"cache_num_entries", entries}};
}

TEST_F(Watch, TheMemoryLogAndTheReportsTellWhatHdf5HasOpen)
{
    const auto body = [this]
    {
        const std::string log = Path("memory.log");
        const boost::shared_ptr<MemoryLoggerFileTracker> tracker(new MemoryLoggerFileTracker);
        const auto early = IFile::Open(Path("early.h5"), "w", 0);
        IFile::InstallGlobalFileTracker(tracker);
        std::string line;
        std::ifstream lines;
        const auto sample = [&](int index, const std::string& zone, const Json& files)
        {
            setenv("TZ", zone == "+0500" ? "AAA-5" : "BBB8", 1);
            tracker->AppendToMemoryLog(index, log);
            lines.is_open() ? lines.clear() : lines.open(log);
            std::getline(lines, line);
            const std::string json = line.substr(line.rfind("{\"index"));
            Json expected = Json::parse(json);
            const std::string time = expected["timestamp"];
            std::tm local = {};
            EXPECT_STREQ(strptime(time.c_str(), "%FT%T", &local), zone.c_str());
            EXPECT_NEAR(difftime(timegm(&local), std::time(nullptr)), std::stoi(zone) / 100 * 3600, 1800);
            const Json heap = expected["total_heap_used_bytes"];
            expected = {{"index", index}, {"timestamp", time}, {"total_heap_used_bytes", heap}, {"files", files}};
            EXPECT_EQ(json, expected.dump());
        };
        sample(-7, "+0500", Json::array());
        auto first = IFile::Open(Path("a.h5"), "w", 0);
        const auto second = IFile::Open(Path("a.h5"), "r+", 0);
        const auto third = IFile::Open(Path("b.h5"), "w", 0);
        const auto array = second->GetRoot()->CreateArray("array", TDataType::Int, 0);
        const hid_t type = H5Tcopy(H5T_NATIVE_INT);
        H5Tcommit1(first->FileID(), "type", type);
        H5Aopen_by_name(first->FileID(), "/", "__vorl_api_version", H5P_DEFAULT, H5P_DEFAULT);
        const Json counts = {1, 2, 1, 7, 2, 1};
        const Json described = DescribeFile(*first);
        EXPECT_TRUE(std::equal(counts.begin(), counts.end(), std::next(described.begin()))) << described;
        H5AC_cache_config_t config = first->GetCacheConfiguration();
        EXPECT_EQ(config.lower_hr_threshold, 0.8);
        config.min_size = 2 << 20;
        first->SetCacheConfiguration(config);
        EXPECT_EQ(second->GetCacheConfiguration().min_size, 2U << 20);
        sample(0, "-0800", {DescribeFile(*first), DescribeFile(*second), DescribeFile(*third)});
        second->Close();
        EXPECT_EQ(DescribeFile(*second)["object_count"], 4294967295);
        sample(2147483647, "-0800", {DescribeFile(*first), DescribeFile(*third)});
        EXPECT_EQ(TextOf<std::logic_error>([&] { early->Close(); }),
                  "Error closing file: " + Path("early.h5") + ": HDF5 file id was not registered.");
        first.reset();
        third->Close();
        tracker->AppendToMemoryLog(1, Path("no such directory") + "/memory.log");
        tracker->OnOpen(12345, "not a file");
        EXPECT_EQ(FailureOf([&] { tracker->AppendToMemoryLog(1, log); }), "Couldn't retrieve file name");
        tracker->OnClose(12345, "");
        const auto latin1 = IFile::Open(Path("caf\xE9.h5"), "w", 0);
        EXPECT_EQ(TextOf<Json::type_error>([&] { tracker->AppendToMemoryLog(8, log); }).substr(0, 60),
                  "[json.exception.type_error.316] invalid UTF-8 byte at index ");
        latin1->Close();
        sample(9, "-0800", Json::array());
        EXPECT_EQ(line.rfind(R"({"index":8,"timestamp":")", 0), 0U) << "the unfinished line stays before the next one";
    };
    EXPECT_EQ(EndOf(body), 0);
}

TEST(Heap, LargeAndSmallBlocksAppearAndGoWhileAnotherThreadAllocates)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers bring an allocator of their own, which the C library can't count";
#endif
    const auto allocate = [](int /*round*/)
    {
        std::make_unique<std::array<char, 50000>>();
    };
    const std::vector<int> rounds(1000000);
    std::thread other([&] { std::for_each(rounds.begin(), rounds.end(), allocate); });
    const auto before = static_cast<double>(count_heap_used_bytes());
    const auto growth = [before]
    {
        return (static_cast<double>(count_heap_used_bytes()) - before) / (1 << 20);
    };
    auto large = std::make_unique<std::array<char, 64 << 20>>();
    EXPECT_NEAR(growth(), 64, 2);
    large.reset();
    std::vector<std::unique_ptr<std::array<char, 500>>> small(100000);
    std::generate(small.begin(), small.end(), std::make_unique<std::array<char, 500>>);
    EXPECT_NEAR(growth(), 100000 * (512 + 8) / 1048576.0, 2);
    small.clear();
    EXPECT_NEAR(growth(), 0, 2);
    other.join();
}

TEST_F(Watch, WhatWasFlushedSurvivesAKill)
{
    std::vector<int> row(1000);
    const auto body = [&]
    {
        openAtExit = IFile::Open(Path("a.h5"), "w", 3);
        H5AC_cache_config_t config = openAtExit->GetCacheConfiguration();
        config.evictions_enabled = false; // else HDF5 writes halves of what comes after the flush
        config.incr_mode = H5C_incr__off;
        config.flash_incr_mode = H5C_flash_incr__off;
        config.decr_mode = H5C_decr__off;
        openAtExit->SetCacheConfiguration(config);
        const auto rows = openAtExit->GetRoot()->CreateExtensibleArray2D("rows", TDataType::Int, 0, 1000, 10, 1000, 3);
        for (row[0] = 0; row[0] < 3000; ++row[0])
        {
            rows->AppendRowFromBuffer(row.data(), TDataType::Int);
            openAtExit->GetRoot()->CreateGroup("group" + std::to_string(row[0]));
            row[0] == 199 ? rows->Flush() : void();
        }
        raise(SIGKILL);
    };
    EXPECT_EQ(EndOf(body), SIGKILL);
    const auto file = IFile::Open(Path("a.h5"), "r", 0);
    EXPECT_EQ(file->GetRoot()->ListGroups().size(), 200U);
    for (int i = 0; i < 200; ++i)
    {
        file->GetRoot()->GetExtensibleArray2D("rows")->ReadRowToBuffer(i, row.data(), TDataType::Int);
        EXPECT_EQ(row[0], i);
    }
}

TEST_F(Watch, AFullDiskGivesExceptionsAndLeavesOtherFilesAndTheExitAlone)
{
    for (int way = 0; way < 32; ++way)
    {
        const auto body = [&]
        {
            GarbageCollect();                                      // what HDF5 keeps for reuse was allocated before
            __lsan_disable != nullptr ? __lsan_disable() : void(); // HDF5 loses the chunks that it couldn't write
            const boost::shared_ptr<Recorder> tracker(new Recorder);
            std::vector<int> numbers((way & 4) != 0 ? 400000 : 10); // a large chunk goes to the disk at once
            auto file = IFile::Open(Path("full.h5"), "w", 0);
            const auto other = IFile::Open(Path("other.h5"), "w", 0);
            IFile::InstallGlobalFileTracker(tracker);
            rlimit limit = {};
            getrlimit(RLIMIT_FSIZE, &limit);
            const rlimit full = {rlim_t(1000) << way % 4 * 3, limit.rlim_max};
            std::signal(SIGXFSZ, SIG_IGN);
            setrlimit(RLIMIT_FSIZE, &full);
            const auto write = [&](const std::string& name)
            {
                file->GetRoot()->CreateArrayFromBuffer(name, numbers.data(), TDataType::Int, numbers.size(), 1);
            };
            for (int i = 0; i < ((way & 4) != 0 ? 5 : 300); ++i)
            {
                EXPECT_EQ(WordsOf([&] { write(std::to_string(i)); }),
                          (way & 4) != 0 ? "error writing to dataset:" : "");
            }
            EXPECT_EQ((way & 8) != 0 ? WordsOf([&] { file->GetRoot()->Flush(); }) : "Flush Fail!:", "Flush Fail!:");
            const auto close = [&]
            {
                (way & 16) != 0 ? file->Close() : file.reset();
            };
            EXPECT_EQ(
                TextOf<std::runtime_error>(close).find("Error closing file: " + Path("full.h5") + ":\n#0: in func "),
                (way & 16) != 0 ? 0 : std::string::npos);
            file.reset();
            EXPECT_EQ(tracker->events, "");
            setrlimit(RLIMIT_FSIZE, &limit);
            other->GetRoot()->SetAttr("text", std::string("written"));
            other->Close();
            EXPECT_EQ(IFile::Open(Path("other.h5"), "r", 0)->GetRoot()->GetAttr("text"), "written");
            openAtExit = IFile::Open(Path("late.h5"), "w", 0);
            openAtExit->GetRoot()->SetAttr("text", std::to_string(way));
        };
        EXPECT_EQ(EndOf(body), 0) << way;
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
        for (size_t i = 0; i < 8; ++i)
        {
            EXPECT_EQ(WordsOf([&] { IFile::Open(names[i / 2], i % 2 == 0 ? "w" : "r+", 0); }),
                      "Failed to obtain a valid file handle for filename: " + names[i / 2] + ":");
        }
        const auto file = IFile::Open(names[0], "r", 0);
        EXPECT_EQ(WordsOf([&] { file->GetRoot()->CreateGroup("group"); }), "could not create group 'group':");
    };
    IFile::Open(names[0], "w", 0)->GetRoot()->SetAttr("text", std::string("kept"));
    std::filesystem::copy(names[0], names[1]);
    chmod(names[0].c_str(), 0444);
    chmod(names[1].c_str(), 0);
    EXPECT_EQ(EndOf(body), 0);
    chmod(names[1].c_str(), 0444);
    EXPECT_EQ(IFile::Open(names[0], "r", 0)->GetRoot()->GetAttr("text"), "kept");
    EXPECT_EQ(IFile::Open(names[1], "r", 0)->GetRoot()->GetAttr("text"), "kept");
}

TEST_F(Watch, AFileRemovedWhileOpenGoesOnAndHandlesOnOneFileCloseAlone)
{
    const auto removed = IFile::Open(Path("a.h5"), "w", 0);
    std::filesystem::remove(Path("a.h5"));
    const auto first = IFile::Open(Path("a.h5"), "w", 0);
    const auto second = IFile::Open(Path("a.h5"), "r+", 0);
    EXPECT_EQ(WordsOf([&] { IFile::Open(Path("a.h5"), "w", 0); }),
              "Failed to obtain a valid file handle for filename: " + Path("a.h5") + ":");
    const auto group = first->GetRoot()->CreateGroup("group");
    EXPECT_NO_THROW(removed->GetRoot()->CreateGroup("removed"));
    EXPECT_NO_THROW(second->GetRoot()->GetGroup("group"));
    EXPECT_NO_THROW(second->Close());
    EXPECT_NO_THROW(group->SetAttr("text", std::string("open still")));
    EXPECT_NO_THROW(removed->GetRoot()->Flush());
    EXPECT_NO_THROW(removed->Close());
    EXPECT_FALSE(first->GetRoot()->HasGroup("removed"));
}

} // namespace tarnwick::hdf::tests
