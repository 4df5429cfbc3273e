// One machine's share of a job: writes one shard of an array and one shard of a table into a file of its own.
// Usage: shard_writer <file> <shard> <rows per shard>
#include <tarnwickhdf/tarnwickhdf.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{

namespace hdf = tarnwick::hdf;

constexpr size_t kChannels = 4;
constexpr size_t kRowsInChunk = 8192;
constexpr int kCompression = 1;

// A row of the table.
struct Event
{
    std::int64_t row;
    std::int32_t channel;
    double energy;
};

// Stands for the measurement: any reader can compute what must stand in a row of the whole.
double Sample(size_t row, size_t channel)
{
    return std::sin(static_cast<double>(row) * 0.001) + static_cast<double>(channel);
}

std::vector<double> MakeSamples(size_t firstRow, size_t rows)
{
    std::vector<double> samples;
    samples.reserve(rows * kChannels);
    for (size_t row = firstRow; row < firstRow + rows; ++row)
    {
        for (size_t channel = 0; channel < kChannels; ++channel)
        {
            samples.push_back(Sample(row, channel));
        }
    }
    return samples;
}

std::vector<Event> MakeEvents(size_t firstRow, size_t rows)
{
    std::vector<Event> events;
    events.reserve(rows);
    for (size_t row = firstRow; row < firstRow + rows; ++row)
    {
        const size_t channel = row % kChannels;
        events.push_back(
            {static_cast<std::int64_t>(row), static_cast<std::int32_t>(channel), Sample(row, channel) * 2.0});
    }
    return events;
}

void WriteTable(hdf::IGroup& root, std::vector<Event> events)
{
    const hid_t type = H5Tcreate(H5T_COMPOUND, sizeof(Event));
    H5Tinsert(type, "row", HOFFSET(Event, row), H5T_NATIVE_INT64);
    H5Tinsert(type, "channel", HOFFSET(Event, channel), H5T_NATIVE_INT32);
    H5Tinsert(type, "energy", HOFFSET(Event, energy), H5T_NATIVE_DOUBLE);
    // Readers of different parts of a table should not have to unpack the same chunk: give it more than one.
    const size_t chunkRows = std::min(kRowsInChunk, events.size());
    root.CreateTableFromBuffer("events", events.data(), events.size(), type, kCompression, -1, chunkRows);
    H5Tclose(type);
}

void WriteShard(const std::string& filename, size_t shard, size_t rows)
{
    const size_t firstRow = shard * rows;
    const auto file = hdf::IFile::Open(filename, "w", kCompression);
    const auto root = file->GetRoot();
    root->SetAttr("first_row", std::to_string(firstRow));
    std::vector<double> samples = MakeSamples(firstRow, rows);
    root->CreateArrayFromBuffer("samples", samples.data(), hdf::TDataType::Double, rows, kChannels);
    WriteTable(*root, MakeEvents(firstRow, rows));
    file->Close();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::cerr << "usage: shard_writer <file> <shard> <rows per shard>\n";
        return EXIT_FAILURE;
    }
    try
    {
        WriteShard(argv[1], std::stoul(argv[2]), std::stoul(argv[3]));
        return EXIT_SUCCESS;
    }
    catch (const std::exception& failure)
    {
        std::cerr << failure.what() << "\n";
        return EXIT_FAILURE;
    }
}
