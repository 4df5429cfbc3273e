#include "Pairs.h"
#include "whole_arrays_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <memory>

using tarnwick::hdf::IArray;
using tarnwick::hdf::IFile;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

constexpr std::size_t kKilobyte = 1024;
constexpr std::size_t kMegabyte = 1024 * kKilobyte;
constexpr std::size_t kHyperslabArray = 16 * kMegabyte;
constexpr const char* kName = "array";
constexpr double kTarget = 1.02;

using Values = std::shared_ptr<std::vector<double>>;

// Counts as a converter gives them, which deflate makes smaller but not nothing.
Values MakeValues(std::size_t bytes)
{
    auto values = std::make_shared<std::vector<double>>(bytes / sizeof(double));
    unsigned int state = 1;
    for (double& value : *values)
    {
        state = state * 1664525U + 1013904223U;
        value = static_cast<double>(state >> 22U);
    }
    return values;
}

// The buffer of the size that is in work: the largest has 512 MiB.
Values SharedValues(std::size_t bytes)
{
    static Values values;
    if (!values || values->size() != bytes / sizeof(double))
    {
        values.reset();
        values = MakeValues(bytes);
    }
    return values;
}

std::string Word(int deflate)
{
    return deflate == 0 ? "plain" : "deflate-" + std::to_string(deflate);
}

// One file for the reads, made anew when size or filters change.
std::string Prepared(std::size_t bytes, int deflate)
{
    static std::string held;
    const std::string path = bench::PathOf("whole-read.h5");
    const std::string wanted = Word(deflate) + std::to_string(bytes);
    if (held != wanted)
    {
        const auto values = SharedValues(bytes);
        IFile::Open(path, "w", deflate)
            ->GetRoot()
            ->CreateArrayFromBuffer(kName, values->data(), TDataType::Double, values->size(), 1);
        held = wanted;
    }
    return path;
}

void RegisterWriting(std::size_t bytes, int deflate, double target)
{
    const auto library = [=]
    {
        const auto values = SharedValues(bytes);
        const auto file = IFile::Open(bench::PathOf("whole-write.h5"), "w", deflate);
        const auto root = file->GetRoot();
        return bench::SecondsOf(
            [&] { root->CreateArrayFromBuffer(kName, values->data(), TDataType::Double, values->size(), 1); });
    };
    const auto plain = [=]
    {
        const auto values = SharedValues(bytes);
        const hid_t file = plain_new_file(bench::PathOf("whole-write.h5").c_str());
        const double seconds =
            bench::SecondsOf([&] { plain_write_array(file, kName, values->size(), deflate, values->data()); });
        H5Fclose(file);
        return seconds;
    };
    bench::Compare("whole/write-" + Word(deflate), bytes, target, library, plain);
}

template <typename Library, typename Plain>
void RegisterReading(const std::string& work, std::size_t bytes, int deflate, double target, Library library,
                     Plain plain)
{
    const auto librarySide = [=]
    {
        const auto values = SharedValues(bytes);
        const auto file = IFile::Open(Prepared(bytes, deflate), "r", 0);
        const auto array = file->GetRoot()->GetArray(kName);
        return bench::SecondsOf([&] { library(*array, values->data()); });
    };
    const auto plainSide = [=]
    {
        const auto values = SharedValues(bytes);
        const hid_t file = plain_old_file(Prepared(bytes, deflate).c_str());
        const hid_t set = H5Dopen2(file, kName, H5P_DEFAULT);
        const double seconds = bench::SecondsOf([&] { plain(set, values->data()); });
        H5Dclose(set);
        H5Fclose(file);
        return seconds;
    };
    bench::Compare(work, bytes, target, librarySide, plainSide);
}

void RegisterWhole(std::size_t bytes, int deflate)
{
    const double target = bytes > kMegabyte ? kTarget : 0;
    RegisterWriting(bytes, deflate, target);
    RegisterReading(
        "whole/read-" + Word(deflate), bytes, deflate, target,
        [](const IArray& array, double* values) { array.GetToBuffer(values, TDataType::Double); },
        [](hid_t set, double* values) { plain_read_array(set, values); });
}

void RegisterHyperslab(std::size_t stride)
{
    const std::size_t count = kHyperslabArray / sizeof(double) / stride;
    RegisterReading(
        "hyperslab/stride-" + std::to_string(stride), kHyperslabArray, 0, kTarget,
        [=](const IArray& array, double* values)
        { array.GetFromHyperslab(values, 0, static_cast<int>(stride), static_cast<int>(count), TDataType::Double); },
        [=](hid_t set, double* values) { plain_read_hyperslab(set, 0, stride, count, values); });
}

} // namespace

void bench::RegisterWork()
{
    for (const int deflate : {0, 1, 6})
    {
        for (const std::size_t bytes :
             Sizes({8 * kKilobyte, 512 * kKilobyte, 8 * kMegabyte, 64 * kMegabyte, 512 * kMegabyte}))
        {
            RegisterWhole(bytes, deflate);
        }
    }
    for (const std::size_t stride : {1, 2, 16})
    {
        RegisterHyperslab(stride);
    }
}
