#include <tarnwickhdf/tarnwickhdf.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include <unistd.h>

namespace tarnwick::hdf::tests
{

// The callback of an iteration holds HDF5's own lock: whoever waits in it for a thread that waits for HDF5 waits forever.
TEST(Threads, TheFirstTypeTranslationsOfTwoThreadsDontWaitForEachOther)
{
    std::thread other;
    const hid_t list = H5Pcreate(H5P_FILE_ACCESS);
    const auto translate = [](hid_t, const char*, void* data)
    {
        *static_cast<std::thread*>(data) = std::thread([] { INode::DataTypeToHDFType(TDataType::Double); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return static_cast<herr_t>(INode::DataTypeToHDFType(TDataType::Int) > 0);
    };
    EXPECT_EQ(H5Piterate(list, nullptr, translate, &other), 1);
    other.join();
    H5Pclose(list);
}

void UseAFile(const std::string& path, int rounds)
{
    for (int round = 0; round < rounds; ++round)
    {
        std::vector<int> numbers(1000, round);
        auto file = IFile::Open(path, "w", round % 3);
        const auto group = file->GetRoot()->CreateGroup("group/data");
        group->CreateArrayFromBuffer("numbers", numbers.data(), TDataType::Int, 100, 10)->SetAttr("unit", path);
        group->Flush();
        file->Close();
        file = IFile::Open(path, "r", 0);
        const auto arrays = file->GetRoot()->GetGroup("group/data")->ListArrays();
        std::vector<int> back(1000, -1);
        arrays.at(0)->GetToBuffer(back.data(), TDataType::Int);
        EXPECT_EQ(back, numbers);
        EXPECT_EQ(arrays[0]->GetAttr("unit"), path);
        EXPECT_THROW(file->GetRoot()->GetArray("missing"), std::runtime_error);
    }
}

TEST(Threads, EightThreadsUseAFileEachUnderOneTrackerWhileANinthSamples)
{
    const auto directory = std::filesystem::temp_directory_path() / ("tarnwickhdf-threads-" + std::to_string(getpid()));
    std::filesystem::create_directory(directory);
    const std::string log = directory / "memory.log";
    const boost::shared_ptr<MemoryLoggerFileTracker> tracker(new MemoryLoggerFileTracker);
    IFile::InstallGlobalFileTracker(tracker);
    H5Eset_auto1(nullptr, nullptr);
    std::atomic<int> atWork{8};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
    {
        threads.emplace_back([&, i] { UseAFile(directory / (std::to_string(i) + ".h5"), 20), --atWork; });
    }
    int samples = 0;
    while (atWork > 0)
    {
        try
        {
            tracker->AppendToMemoryLog(samples, log);
            ++samples;
        }
        catch (const std::runtime_error& closing)
        {
            EXPECT_STREQ(closing.what(), "Couldn't retrieve file name");
        }
    }
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
    tracker->AppendToMemoryLog(samples, log);
    nlohmann::json last;
    std::ifstream lines(log);
    for (int index = 0; index <= samples; ++index)
    {
        lines >> last;
        EXPECT_EQ(last["index"], index);
    }
    EXPECT_EQ(last["files"], nlohmann::json::array());
    std::filesystem::remove_all(directory);
}

} // namespace tarnwick::hdf::tests
