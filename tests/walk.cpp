// Tells what the library tells of a file ("walk FILE"). The documents go out as MessagePack, so that odd bytes and values
// that aren't finite are compared as they are.

#include "IdCounts.h"
#include "Tell.h"

#include <filesystem>
#include <fstream>
#include <iostream>

#include <unistd.h>

namespace tarnwick::hdf::tests
{

using nlohmann::json;

void Print(const json& document)
{
    json::to_msgpack(document, std::cout);
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
int main(int /*argc*/, char** argv)
{
    H5Eset_auto1(nullptr, nullptr);
    const tests::IdCounts before = tests::CountIds();
    tests::tell::File(argv[1], &tests::Print);
    if (tests::CountIds() != before)
    {
        std::cerr << "ids were left open\n";
    }
}
#endif
