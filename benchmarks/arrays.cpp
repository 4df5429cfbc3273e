#include "Sides.h"

#include <memory>

using tarnwick::hdf::IArray;
using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMiB = 1024 * kKiB;
constexpr std::size_t kStridedLength = 16 * kMiB / sizeof(double);
constexpr hsize_t kFarStride = 500;
constexpr hsize_t kNearStride = 20;
constexpr hsize_t kSmallChunk = 1024;
constexpr int kReads = 10;
constexpr const char* kName = "array";

// Counts as a converter gives them, which deflate makes smaller but not nothing. One buffer serves all sizes.
std::vector<double>& Values(std::size_t length)
{
    static std::vector<double> values;
    static unsigned int state = 1;
    while (values.size() < length)
    {
        state = state * 1664525U + 1013904223U;
        values.push_back(static_cast<double>(state >> 22U));
    }
    return values;
}

std::size_t LengthOf(std::size_t bytes)
{
    return bytes / sizeof(double);
}

auto Write(int compression)
{
    return [=](IGroup& root, std::size_t bytes)
    {
        root.SetDefaultCompression(compression);
        const std::size_t length = LengthOf(bytes);
        root.CreateArrayFromBuffer(kName, Values(length).data(), TDataType::Double, length, 1);
    };
}

auto WriteArrayPlainly(int storage)
{
    return [=](hid_t root, std::size_t bytes)
    {
        const std::size_t length = LengthOf(bytes);
        bench::WritePlainly(root, kName, H5T_NATIVE_DOUBLE, length, storage, Values(length).data());
    };
}

auto WriteArrayByCpp(int storage)
{
    return [=](const H5::Group& root, std::size_t bytes)
    {
        const std::size_t length = LengthOf(bytes);
        bench::WriteByCpp(root, kName, H5::PredType::NATIVE_DOUBLE, length, storage, Values(length).data());
    };
}

bench::Place Stored(const std::string& name, int compression)
{
    const auto make = [=](const std::string& path, std::size_t bytes)
    {
        Write(compression)(*IFile::Open(path, "w", 0)->GetRoot(), bytes);
    };
    return {name, "r", make};
}

bench::Place StoredContiguously()
{
    const auto make = [](const std::string& path, std::size_t bytes)
    {
        WriteArrayPlainly(bench::kContiguous)(bench::PlainFile(path, "w"), bytes);
    };
    return {"array-contiguous", "r", make};
}

struct OpenArray : bench::DataSet
{
    OpenArray() : DataSet{kName} {}
    using DataSet::operator();
    boost::shared_ptr<IArray> operator()(IFile& file, std::size_t /*size*/) const
    {
        return file.GetRoot()->GetArray(kName);
    }
};

const auto readWhole = [](const IArray& array, std::size_t bytes)
{
    array.GetToBuffer(Values(LengthOf(bytes)).data(), TDataType::Double);
};

void ReadArrayPlainly(hid_t set, std::size_t bytes)
{
    H5Dread(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, Values(LengthOf(bytes)).data());
}

void ReadArrayByCpp(const H5::DataSet& set, std::size_t bytes)
{
    set.read(Values(LengthOf(bytes)).data(), H5::PredType::NATIVE_DOUBLE);
}

// An array of 16 MiB, for reads of some of its elements.
bench::Place StoredForStrides(const std::string& name, hsize_t chunk)
{
    const auto make = [=](const std::string& path, std::size_t /*size*/)
    {
        const bench::Id file = bench::PlainFile(path, "w");
        const hsize_t length = kStridedLength;
        const bench::Id space(H5Screate_simple(1, &length, nullptr));
        const bench::Id list(H5Pcreate(H5P_DATASET_CREATE));
        if (chunk > 0)
        {
            H5Pset_chunk(list, 1, &chunk);
        }
        const bench::Id set(H5Dcreate2(file, kName, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
        H5Dwrite(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, Values(length).data());
    };
    return {name, "r", make};
}

const auto readEveryNth = [](const IArray& array, std::size_t stride)
{
    array.GetFromHyperslab(Values(kStridedLength).data(), 0, static_cast<int>(stride),
                           static_cast<int>(kStridedLength / stride), TDataType::Double);
};

void SelectEveryNthPlainly(hid_t set, std::size_t stride)
{
    bench::ReadPlainly(set, H5T_NATIVE_DOUBLE, 0, stride, kStridedLength / stride, Values(kStridedLength).data());
}

// Who has measured HDF5's selections reads everything and picks.
void PickEveryNthPlainly(hid_t set, std::size_t stride)
{
    if (stride == 1)
    {
        SelectEveryNthPlainly(set, stride);
        return;
    }
    const std::unique_ptr<double[]> all(new double[kStridedLength]);
    H5Dread(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    std::vector<double>& picked = Values(kStridedLength);
    for (std::size_t i = 0; i < kStridedLength / stride; ++i)
    {
        picked[i] = all[i * stride];
    }
}

void ReadEveryNthByCpp(const H5::DataSet& set, std::size_t stride)
{
    bench::ReadByCpp(set, H5::PredType::NATIVE_DOUBLE, 0, stride, kStridedLength / stride,
                     Values(kStridedLength).data());
}

// Some reads of a few elements of an open array.
template <typename Read>
auto Repeat(Read readOnce)
{
    return [=](auto&& array, std::size_t count)
    {
        for (int i = 0; i < kReads; ++i)
        {
            readOnce(array, count);
        }
    };
}

bench::Row ReadsOfFew(const std::string& name, const bench::Place& place, hsize_t stride,
                      const std::vector<std::size_t>& counts)
{
    const auto library = [=](const IArray& array, std::size_t count)
    {
        array.GetFromHyperslab(Values(kStridedLength).data(), 0, static_cast<int>(stride), static_cast<int>(count),
                               TDataType::Double);
    };
    const auto plain = [=](hid_t set, std::size_t count)
    {
        bench::ReadPlainly(set, H5T_NATIVE_DOUBLE, 0, stride, count, Values(kStridedLength).data());
    };
    const auto cpp = [=](const H5::DataSet& set, std::size_t count)
    {
        bench::ReadByCpp(set, H5::PredType::NATIVE_DOUBLE, 0, stride, count, Values(kStridedLength).data());
    };
    return bench::On({name, "elements", counts, 1.05}, place, OpenArray{}, Repeat(library), Repeat(plain), Repeat(cpp));
}

} // namespace

bench::Rows bench::ArrayRows()
{
    const std::vector<std::size_t> bytes = {8 * kKiB, 512 * kKiB, 8 * kMiB, 64 * kMiB, 512 * kMiB};
    const std::vector<std::size_t> strides = {16, 4, 2, 1};
    const Place fresh = {"array", "w",
                         [](const std::string& /*path*/, std::size_t size)
                         {
                             Values(LengthOf(size));
                         }};
    const Place inOneChunk = Stored("array-chunk", 0);
    const Place strided = StoredForStrides("array-strided", kStridedLength);
    const OpenArray open;
    Row read = {"arrays/read", "bytes", bytes, 1.05, 8 * kMiB};
    read.library = Library(inOneChunk, open, readWhole);
    read.plain = Plain(StoredContiguously(), open, ReadArrayPlainly);
    read.cpp = Cpp(StoredContiguously(), open, ReadArrayByCpp);
    Rows rows = {
        On({"arrays/write", "bytes", bytes, 1.10, 8 * kMiB}, fresh, Root{}, Write(0), WriteArrayPlainly(kContiguous),
           WriteArrayByCpp(kContiguous)),
        On({"arrays/write, beside H5Dwrite of one chunk", "bytes", bytes, 1.02, 8 * kMiB}, fresh, Root{}, Write(0),
           WriteArrayPlainly(kOneChunk)),
        read,
        On({"arrays/read, beside H5Dread of one chunk", "bytes", bytes, 1.02, 8 * kMiB}, inOneChunk, open, readWhole,
           ReadArrayPlainly),
        On({"arrays/read every n-th element of 16 MiB", "n =", strides, 1.02}, strided, open, readEveryNth,
           PickEveryNthPlainly, ReadEveryNthByCpp),
        On({"arrays/read every n-th element of 16 MiB, beside HDF5's selection", "n =", strides, 1.02}, strided, open,
           readEveryNth, SelectEveryNthPlainly),
        ReadsOfFew("arrays/read every 500th element of a contiguous array, 10 times", StoredForStrides("array-few", 0),
                   kFarStride, {16, 256, 4096}),
        ReadsOfFew("arrays/read every 20th element in chunks of 8 KiB, 10 times",
                   StoredForStrides("array-few-small", kSmallChunk), kNearStride, {256, 4096, 65536}),
    };
    for (const int level : {1, 6})
    {
        const std::string word = " with shuffle and deflate " + std::to_string(level);
        rows.push_back(On({"arrays/write" + word, "bytes", bytes, level == 1 ? 0.50 : 0.65, 8 * kMiB}, fresh, Root{},
                          Write(level), WriteArrayPlainly(level), WriteArrayByCpp(level)));
        rows.push_back(On({"arrays/read" + word, "bytes", bytes, 0.55, 8 * kMiB},
                          Stored("array-deflate-" + std::to_string(level), level), open, readWhole, ReadArrayPlainly,
                          ReadArrayByCpp));
    }
    return rows;
}
