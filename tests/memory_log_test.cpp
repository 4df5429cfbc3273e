#include "Fixture.h"

#include <ctime>

namespace tarnwick::hdf::tests
{

struct MemoryLog : OpenFileTest
{
    MemoryLog() { tracker.OnOpen(file->FileID(), ""); }

    MemoryLoggerFileTracker tracker;
    std::string path = Path("memory.log");
};

TEST_F(MemoryLog, GetsALineASampleWithWhatHdf5TellsOfEachFileInOrder)
{
    const auto second = Open("test.h5", "r+");
    const auto array = root->CreateArray("a", TDataType::Int, 0);
    const auto other = second->GetRoot()->CreateArray("b", TDataType::Int, 0);
    const auto third = second->GetRoot()->CreateArray("c", TDataType::Int, 0);
    const ScopedAttribute mark(H5Aopen(rootId, "__vorl_api_version", H5P_DEFAULT));
    double rate = 0;
    size_t most = 0;
    size_t clean = 0;
    size_t size = 0;
    int entries = 0;
    H5Fget_mdc_hit_rate(file->FileID(), &rate);
    H5Fget_mdc_size(file->FileID(), &most, &clean, &size, &entries);
    std::ofstream(path) << "{}\n";

    tracker.AppendToMemoryLog(-7, path);

    const std::string line = Read("memory.log").substr(3);
    const Json told = Json::parse(line);
    const Json sample = {{"name", Path("test.h5")}, {"dataset_count", 3},
                         {"group_count", 2},        {"attr_count", 1},
                         {"object_count", 8},       {"file_count", 2},
                         {"datatype_count", 0},     {"cache_hit_rate", rate},
                         {"cache_max_size", most},  {"cache_min_clean_size", clean},
                         {"cache_size", size},      {"cache_num_entries", entries}};
    const Json expected = {{"index", -7},
                           {"timestamp", told["timestamp"]},
                           {"total_heap_used_bytes", told["total_heap_used_bytes"]},
                           {"files", Json::array({sample})}};
    EXPECT_EQ(line, expected.dump() + "\n");
    EXPECT_EQ((Json{file->GetOpenDataSetsCount(), file->GetOpenGroupsCount(), file->GetOpenAttrsCount(),
                    file->GetOpenObjectsCount(), file->GetOpenFilesCount(), file->GetOpenDataTypesCount()}),
              (Json{3, 2, 1, 8, 2, 0}));
}

TEST_F(MemoryLog, TellsTheLocalTimeOfNowWhateverZoneTheProcessStartedIn)
{
    setenv("TZ", "BBB8", 1);

    tracker.AppendToMemoryLog(1, path);

    const std::string timestamp = Json::parse(Read("memory.log"))["timestamp"];
    std::tm local = {};
    EXPECT_STREQ(strptime(timestamp.c_str(), "%FT%T", &local), "-0800");
    EXPECT_NEAR(difftime(timegm(&local), std::time(nullptr)), -8 * 3600, 1800);
}

TEST_F(MemoryLog, ForgetsAFileThatClosesAndRefusesOneThatItWasNotToldOf)
{
    tracker.OnClose(file->FileID(), "");

    tracker.AppendToMemoryLog(1, path);
    tracker.AppendToMemoryLog(2, Path("no folder") + "/memory.log");

    EXPECT_EQ(Json::parse(Read("memory.log"))["files"], Json::array());
    EXPECT_THROW(tracker.OnClose(file->FileID(), "a.h5"), std::logic_error);
    EXPECT_EQ(TextOf([&] { tracker.OnClose(file->FileID(), "a.h5"); }),
              "Error closing file: a.h5: HDF5 file id was not registered.");
}

} // namespace tarnwick::hdf::tests
