#include "Fixture.h"

#include <tarnwickhdf/typed.h>

#include <chrono>
#include <future>
#include <thread>

namespace tarnwick::hdf::tests
{

using Threads = HdfTest;

// The callback of an iteration holds HDF5's own lock: whoever waits in it for a thread that waits for HDF5 waits
// forever.
TEST_F(Threads, TheFirstTypeTranslationsOfTwoThreadsDontWaitForEachOther)
{
    std::thread other;
    const ScopedPropertyList list(H5Pcreate(H5P_FILE_ACCESS));
    const auto translate = [](hid_t, const char*, void* data)
    {
        *static_cast<std::thread*>(data) = std::thread([] { INode::DataTypeToHDFType(TDataType::Double); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return static_cast<herr_t>(INode::DataTypeToHDFType(TDataType::Int) > 0);
    };
    EXPECT_EQ(H5Piterate(list.get(), nullptr, translate, &other), 1);
    other.join();
}

void UseAFile(const std::string& path)
{
    for (int round = 0; round < 20; ++round)
    {
        const Ints numbers(1000, round);
        StoreArray(*IFile::Open(path, "w", round % 3)->GetRoot(), "numbers", numbers, 10);
        const auto file = IFile::Open(path, "r", 0);
        EXPECT_EQ(ReadArray<int>(*file->GetRoot()->ListArrays().at(0)), numbers);
        EXPECT_THROW(file->GetRoot()->GetArray("missing"), std::runtime_error);
    }
}

TEST_F(Threads, EightUseAFileEachUnderOneTrackerWhileANinthSamples)
{
    const boost::shared_ptr<MemoryLoggerFileTracker> tracker(new MemoryLoggerFileTracker);
    IFile::InstallGlobalFileTracker(tracker);
    std::vector<std::future<void>> uses(8);
    for (std::future<void>& use : uses)
    {
        use = std::async(std::launch::async, UseAFile, Path(std::to_string(&use - uses.data())));
    }

    for (const std::future<void>& use : uses)
    {
        while (use.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        {
            const std::string text = TextOf([&] { tracker->AppendToMemoryLog(1, Path("memory.log")); });
            EXPECT_TRUE(text.empty() || text == "Couldn't retrieve file name") << text;
        }
    }

    tracker->AppendToMemoryLog(2, Path("last.log"));
    EXPECT_EQ(Json::parse(Read("last.log"))["files"], Json::array());
}

} // namespace tarnwick::hdf::tests
