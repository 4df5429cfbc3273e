#include "Fixture.h"

#include <ctime>

namespace tarnwick::hdf::tests
{

struct MemoryLog : OpenFileTest
{
    MemoryLog() { tracker.OnOpen(file->FileID(), ""); }

    Names Lines() const
    {
        Names lines;
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
    const auto second = Open("test.h5", "r+");
    const auto arrays = {root->CreateArray("a", TDataType::Int, 0), root->CreateArray("b", TDataType::Int, 0),
                         second->GetRoot()->CreateArray("c", TDataType::Int, 0)};
    const ScopedAttribute mark(H5Aopen(root->LocationID(), "__vorl_api_version", H5P_DEFAULT));
    std::ofstream(path) << "kept\n";

    tracker.AppendToMemoryLog(-7, path);

    double rate = 0;
    size_t most = 0;
    size_t clean = 0;
    size_t size = 0;
    int entries = 0;
    H5Fget_mdc_hit_rate(file->FileID(), &rate);
    H5Fget_mdc_size(file->FileID(), &most, &clean, &size, &entries);
    const Json sample = {{"name", Path("test.h5")}, {"dataset_count", 3},
                         {"group_count", 2},        {"attr_count", 1},
                         {"object_count", 8},       {"file_count", 2},
                         {"datatype_count", 0},     {"cache_hit_rate", rate},
                         {"cache_max_size", most},  {"cache_min_clean_size", clean},
                         {"cache_size", size},      {"cache_num_entries", entries}};
    ASSERT_EQ(Lines().size(), 2U);
    EXPECT_EQ(Lines()[0], "kept");
    std::smatch parts;
    const std::string line = Lines()[1];
    const std::regex shape(R"-(\{"index":-7,"timestamp":".*","total_heap_used_bytes":\d+,"files":\[(.*)\]\})-");
    ASSERT_TRUE(std::regex_match(line, parts, shape)) << line;
    EXPECT_EQ(parts[1], sample.dump());
    EXPECT_EQ(file->GetOpenDataSetsCount(), arrays.size());
    EXPECT_EQ(file->GetOpenGroupsCount(), 2U);
    EXPECT_EQ(file->GetOpenAttrsCount(), 1U);
    EXPECT_EQ(file->GetOpenObjectsCount(), 8U);
    EXPECT_EQ(file->GetOpenFilesCount(), 2U);
    EXPECT_EQ(file->GetOpenDataTypesCount(), 0U);
}

TEST_F(MemoryLog, TellsTheLocalTimeOfNowWhateverZoneTheProcessStartedIn)
{
    setenv("TZ", "BBB8", 1);

    tracker.AppendToMemoryLog(1, path);

    const std::string timestamp = Json::parse(Lines().at(0))["timestamp"];
    std::tm local = {};
    EXPECT_STREQ(strptime(timestamp.c_str(), "%FT%T", &local), "-0800");
    EXPECT_NEAR(difftime(timegm(&local), std::time(nullptr)), -8 * 3600, 1800);
}

TEST_F(MemoryLog, ThatCannotBeWrittenIsPassedOverAndOneOfABadNameHasNoLine)
{
    EXPECT_EQ(WordsOf([&] { tracker.AppendToMemoryLog(1, Path("no folder") + "/memory.log"); }), "");

    file->Close();
    EXPECT_EQ(WordsOf([&] { tracker.AppendToMemoryLog(1, path); }), "Couldn't retrieve file name");
    EXPECT_TRUE(Lines().empty());

    const auto latin1 = Open("caf\xE9.h5", "w");
    MemoryLoggerFileTracker other;
    other.OnOpen(latin1->FileID(), "");
    EXPECT_THROW(other.AppendToMemoryLog(8, path), Json::type_error);
}

TEST_F(MemoryLog, ForgetsAFileThatClosesAndRefusesOneThatItWasNotToldOf)
{
    tracker.OnClose(file->FileID(), "");

    tracker.AppendToMemoryLog(1, path);

    EXPECT_EQ(Json::parse(Lines().at(0))["files"].size(), 0U);
    EXPECT_THROW(tracker.OnClose(file->FileID(), "a.h5"), std::logic_error);
    EXPECT_EQ(TextOf([&] { tracker.OnClose(file->FileID(), "a.h5"); }),
              "Error closing file: a.h5: HDF5 file id was not registered.");
}

} // namespace tarnwick::hdf::tests
