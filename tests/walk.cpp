// Tells what the library tells of a file ("walk FILE"), or plays the steps of its input on a new one ("walk FILE ROW",
// with the type of a table's rows in HDF5's data description language). Documents go in and out as MessagePack, so that
// odd bytes and values that aren't finite are compared as they are.

#include "IdCounts.h"
#include "Player.h"
#include "Tell.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <unistd.h>

namespace tarnwick::hdf::tests
{

void Print(const json& document)
{
    json::to_msgpack(document, std::cout);
}

// What an operation has stored, by the handle that stored it.
void ReadBack(Player& player, const std::string& stored)
{
    if (stored == "table")
    {
        player.table->GetToBuffer(player.values.data(), -1);
    }
    else if (!stored.empty())
    {
        player.array->GetToBuffer(player.values.data(), stored == "texts" ? TDataType::String : TDataType::Double);
    }
}

// The caller's buffer up to the last value that has changed.
json ChangedValues(const Player& player, double first)
{
    std::vector<double> changed = player.values;
    while (!changed.empty() && changed.back() == first + static_cast<double>(changed.size() - 1))
    {
        changed.pop_back();
    }
    return tell::Values(changed);
}

// Tells how the step failed, what the caller's buffer holds, and what is at the name.
json Play(Player& player, const json& step)
{
    const auto act = [&]
    {
        player.Open(step);
        player.Act(step);
        ReadBack(player, step.at("stored"));
        return json();
    };
    player.Prepare(step);
    const json words = tell::Try(act);
    return {words, ChangedValues(player, step.at("first")), tell::Child(*player.at, step.at("name"))};
}

// What is still open keeps the file open, and what it tells would be no wonder.
void Reopen(Player& player, int level)
{
    player.DropNodes();
    player.file.reset();
    if (H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_ALL & ~H5F_OBJ_DATATYPE) > 0)
    {
        std::cerr << "an object is open\n";
    }
    tell::File(player.path, &Print);
    player.OpenFile("r+", level);
}

// What was flushed must survive; what comes after is lost: so few groups that none is written by HDF5 on its own, or it
// would write halves of them.
void Kill(Player& player)
{
    std::cout.flush();
    player.file->GetRoot()->Flush();
    for (int i = 0; i < 300; ++i)
    {
        player.file->GetRoot()->CreateGroup("lost" + std::to_string(i));
    }
    raise(SIGKILL);
}

void PlayInput(const std::string& path, const std::string& rowType)
{
    Player player(path, "w", rowType, size_t{1} << 18U);
    while (std::cin.peek() != EOF)
    {
        const json step = json::from_msgpack(std::cin, false);
        if (step.at("action") == "reopen")
        {
            Reopen(player, step.at("level"));
        }
        else if (step.at("action") == "kill")
        {
            Kill(player);
        }
        else
        {
            Print(Play(player, step));
        }
    }
}

} // namespace tarnwick::hdf::tests

using namespace tarnwick::hdf;

#ifdef TARNWICKHDF_FUZZER
extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()) + ".h5");
    std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(size));
    tests::tell::File(path, &tests::Print);
    return 0;
}
#else
int main(int argc, char** argv)
{
    H5Eset_auto1(nullptr, nullptr);
    const tests::IdCounts before = tests::CountIds();
    if (argc == 2)
    {
        tests::tell::File(argv[1], &tests::Print);
    }
    else
    {
        tests::PlayInput(argv[1], argv[2]);
    }
    if (tests::CountIds() != before)
    {
        std::cerr << "ids were left open\n";
    }
}
#endif
