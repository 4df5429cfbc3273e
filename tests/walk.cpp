// Tells what the library tells of a file: `walk FILE`. The documents come out as MessagePack, so that odd bytes and
// values that aren't finite are compared as they are. Built for fuzzing, it walks each input.

#include "IdCounts.h"
#include "Tell.h"

#include <filesystem>
#include <fstream>
#include <iostream>

#include <unistd.h>

using namespace tarnwick::hdf::tests;

static void Print(const nlohmann::json& document)
{
    nlohmann::json::to_msgpack(document, std::cout);
}

#ifdef TARNWICKHDF_FUZZER
extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    const std::string path = std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()) + ".h5");
    std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(size));
    tell::File(path, Print);
    return 0;
}
#else
int main(int /*argc*/, char** argv)
{
    H5Eset_auto1(nullptr, nullptr);
    const IdCounts before = CountIds();
    tell::File(argv[1], Print);
    if (CountIds() != before)
    {
        std::cerr << "ids were left open\n";
    }
}
#endif
