#include "Fixture.h"

#include <ctime>

namespace tarnwick::hdf::tests
{

struct MemoryLog : OpenFileTest
{
    MemoryLog() { tracker.OnOpen(file->FileID(), ""); }

    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        std::ifstream log(path);
        for (std::string line; std::getline(log, line);)
        {
            lines.push_back(line);
        }
        return lines;
    }

    MemoryLoggerFileTracker tracker;
    std::string path = Path("memory.log");
};

TEST_F(MemoryLog, HasALineASampleWithWhatHdf5TellsOfEachFileInOrder)
{
    const auto array = root->CreateArray("array", TDataType::Int, 0);
    const ScopedAttribute mark(H5Aopen(root->LocationID(), "__vorl_api_version", H5P_DEFAULT));
    std::ofstream(path) << "kept\n";

    tracker.AppendToMemoryLog(-7, path);

    const CacheStatus cache(file->FileID());
    const Json sample = {{"name", Path("test.h5")},
                         {"dataset_count", 1},
                         {"group_count", 1},
                         {"attr_count", 1},
                         {"object_count", 4},
                         {"file_count", 1},
                         {"datatype_count", 0},
                         {"cache_hit_rate", cache.rate},
                         {"cache_max_size", cache.most},
                         {"cache_min_clean_size", cache.clean},
                         {"cache_size", cache.size},
                         {"cache_num_entries", cache.entries}};
    ASSERT_EQ(Lines().size(), 2U);
    EXPECT_EQ(Lines()[0], "kept");
    std::smatch parts;
    const std::string line = Lines()[1];
    const std::regex shape(R"-(\{"index":-7,"timestamp":".*","total_heap_used_bytes":\d+,"files":\[(.*)\]\})-");
    ASSERT_TRUE(std::regex_match(line, parts, shape)) << line;
    EXPECT_EQ(parts[1], sample.dump());
}

TEST_F(MemoryLog, TellsTheLocalTimeOfNowWhateverZoneTheProcessStartedIn)
{
    struct Zone
    {
        const char* setting;
        const char* offset;
        int hours;
    };
    for (const Zone& zone : {Zone{"AAA-5", "+0500", 5}, Zone{"BBB8", "-0800", -8}})
    {
        setenv("TZ", zone.setting, 1);

        tracker.AppendToMemoryLog(1, path);

        const std::string timestamp = Json::parse(Lines().back())["timestamp"];
        std::tm local = {};
        EXPECT_STREQ(strptime(timestamp.c_str(), "%FT%T", &local), zone.offset);
        EXPECT_NEAR(difftime(timegm(&local), std::time(nullptr)), zone.hours * 3600, 1800);
    }
}

TEST_F(MemoryLog, ThatCannotBeWrittenIsPassedOver)
{
    EXPECT_EQ(WordsOf([&] { tracker.AppendToMemoryLog(1, Path("no folder") + "/memory.log"); }), "");
}

TEST_F(MemoryLog, GetsNoLineIfAFileHasNoNameAnyMore)
{
    file->Close();

    EXPECT_EQ(WordsOf([&] { tracker.AppendToMemoryLog(1, path); }), "Couldn't retrieve file name");
    EXPECT_TRUE(Lines().empty());
}

TEST_F(MemoryLog, RefusesAFileNameThatIsNotUtf8)
{
    const auto latin1 = Open("caf\xE9.h5", "w");
    tracker.OnOpen(latin1->FileID(), "");

    EXPECT_THROW(tracker.AppendToMemoryLog(8, path), Json::type_error);
}

TEST_F(MemoryLog, ForgetsAFileThatClosesAndRefusesOneThatItWasNotToldOf)
{
    tracker.OnClose(file->FileID(), "");

    tracker.AppendToMemoryLog(1, path);

    EXPECT_EQ(Json::parse(Lines().at(0))["files"].size(), 0U);
    try
    {
        tracker.OnClose(file->FileID(), "a.h5");
        FAIL() << "an unknown file was closed";
    }
    catch (const std::logic_error& failure)
    {
        EXPECT_STREQ(failure.what(), "Error closing file: a.h5: HDF5 file id was not registered.");
    }
}

} // namespace tarnwick::hdf::tests
