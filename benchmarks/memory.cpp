#include "Pairs.h"
#include "attributes_plain.h"
#include "extensible_arrays_plain.h"
#include "files_groups_plain.h"
#include "small_arrays_plain.h"
#include "tables_plain.h"
#include "whole_arrays_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <cstring>

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;
namespace TDataType = tarnwick::hdf::TDataType;

// The heap of the process, this library's and HDF5's: every block goes through here.
namespace
{

std::size_t inUse = 0;
std::size_t peak = 0;

void Count(void* block)
{
    inUse += block == nullptr ? 0 : malloc_usable_size(block);
    peak = std::max(peak, inUse);
}

void Discount(void* block)
{
    inUse -= block == nullptr ? 0 : malloc_usable_size(block);
}

} // namespace

extern "C"
{
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void __libc_free(void* block);

    void* malloc(std::size_t size)
    {
        void* block = __libc_malloc(size);
        Count(block);
        return block;
    }

    void* calloc(std::size_t count, std::size_t size)
    {
        void* block = __libc_calloc(count, size);
        Count(block);
        return block;
    }

    void* realloc(void* block, std::size_t size)
    {
        Discount(block);
        void* moved = __libc_realloc(block, size);
        Count(moved == nullptr && size != 0 ? block : moved);
        return moved;
    }

    void free(void* block)
    {
        Discount(block);
        __libc_free(block);
    }
}

namespace
{

constexpr std::size_t kLength = std::size_t{8} << 20U;
constexpr std::size_t kRows = 1000000;
constexpr std::size_t kChildren = 1000;
constexpr unsigned int kColumns = 16;
double small[8] = {1, 2, 3, 4, 5, 6, 7, 8};

template <typename Work>
std::size_t PeakOf(Work work)
{
    H5garbage_collect();
    const std::size_t before = inUse;
    peak = inUse;
    work();
    return peak - before;
}

using Library = std::function<void(IFile&, IGroup&)>;
using Plain = std::function<void(hid_t)>;

// One operation on a file that is open on either side, in the same state.
void ComparePeaks(const std::string& work, const Library& prepare, const Library& library, const Plain& plain)
{
    const auto run = [=](benchmark::State& state)
    {
        const std::string path = bench::PathOf("memory.h5");
        const auto fresh = [&]
        {
            const auto file = IFile::Open(path, "w", 0);
            prepare(*file, *file->GetRoot());
        };
        std::size_t librarySide = 0;
        std::size_t plainSide = 0;
        for (auto _ : state)
        {
            fresh();
            {
                const auto file = IFile::Open(path, "r+", 0);
                librarySide = PeakOf([&] { library(*file, *file->GetRoot()); });
            }
            fresh();
            const hid_t access = plain_access_list();
            const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDWR, access);
            plainSide = PeakOf([&] { plain(file); });
            H5Fclose(file);
            H5Pclose(access);
            state.SetIterationTime(1e-9);
        }
        state.counters["peak_library"] = static_cast<double>(librarySide);
        state.counters["peak_plain"] = static_cast<double>(plainSide);
        state.counters["peak_target"] = 1 << 20;
    };
    benchmark::RegisterBenchmark(("memory/" + work).c_str(), run)->Iterations(1)->UseManualTime();
}

void Nothing(IFile& /*file*/, IGroup& /*root*/)
{
}

std::vector<double>& Values()
{
    static std::vector<double> values(kLength, 1.5);
    return values;
}

std::vector<plain_row>& Rows()
{
    static std::vector<plain_row> rows(kRows);
    return rows;
}

hid_t RowType()
{
    static const hid_t type = plain_row_type();
    return type;
}

const bench::Texts& Children()
{
    static const bench::Texts names(bench::Names("child", kChildren));
    return names;
}

template <typename Work>
Plain WithSet(Work work)
{
    return [=](hid_t file)
    {
        const hid_t set = H5Dopen2(file, "set", H5P_DEFAULT);
        work(set);
        H5Dclose(set);
    };
}

void RegisterArrays()
{
    const auto prepare = [](IFile& /*file*/, IGroup& root)
    {
        root.CreateArrayFromBuffer("set", Values().data(), TDataType::Double, kLength, 1);
    };
    for (const int deflate : {0, 1})
    {
        ComparePeaks(
            "write-64-MiB-deflate-" + std::to_string(deflate), &Nothing,
            [=](IFile& /*file*/, IGroup& root)
            {
                root.SetDefaultCompression(deflate);
                root.CreateArrayFromBuffer("set", Values().data(), TDataType::Double, kLength, 1);
            },
            [=](hid_t file) { plain_write_array(file, "set", kLength, deflate, Values().data()); });
    }
    ComparePeaks(
        "read-64-MiB", prepare,
        [](IFile& /*file*/, IGroup& root) { root.GetArray("set")->GetToBuffer(Values().data(), TDataType::Double); },
        WithSet([](hid_t set) { plain_read_array(set, Values().data()); }));
    ComparePeaks(
        "hyperslab-stride-2", prepare,
        [](IFile& /*file*/, IGroup& root) {
            root.GetArray("set")->GetFromHyperslab(Values().data(), 0, 2, static_cast<int>(kLength / 2),
                                                   TDataType::Double);
        },
        WithSet([](hid_t set) { plain_read_hyperslab(set, 0, 2, kLength / 2, Values().data()); }));
}

void RegisterChildren()
{
    const auto prepare = [](IFile& /*file*/, IGroup& root)
    {
        for (const std::string& name : Children().strings)
        {
            root.CreateArrayFromBuffer(name, small, TDataType::Double, 8, 1);
        }
    };
    ComparePeaks("create-1000-arrays", &Nothing, prepare,
                 [](hid_t file) { plain_create_arrays(file, Children().pointers.data(), kChildren, small); });
    ComparePeaks(
        "list-1000-arrays", prepare, [](IFile& /*file*/, IGroup& root) { root.ListArrays(); },
        [](hid_t file) { plain_list(file, PLAIN_ARRAYS); });
    ComparePeaks(
        "set-1000-attributes", &Nothing,
        [](IFile& /*file*/, IGroup& root)
        {
            for (const std::string& name : Children().strings)
            {
                root.SetAttr(name, name);
            }
        },
        [](hid_t file)
        {
            const hid_t root = H5Gopen2(file, "/", H5P_DEFAULT);
            plain_set_attributes(&root, 1, Children().pointers.data(), Children().pointers.data(), kChildren);
            H5Gclose(root);
        });
    ComparePeaks(
        "create-1000-groups", &Nothing,
        [](IFile& /*file*/, IGroup& root)
        {
            for (const std::string& name : Children().strings)
            {
                root.CreateGroup(name);
            }
        },
        [](hid_t file) { plain_create_groups(file, Children().pointers.data(), kChildren); });
}

void RegisterExtensible()
{
    const auto prepare = [](IFile& /*file*/, IGroup& root)
    {
        root.CreateExtensibleArray2D("rows", TDataType::Double, 0, kColumns, 1024, kColumns, 0);
    };
    ComparePeaks(
        "append-1000-rows", prepare,
        [](IFile& /*file*/, IGroup& root)
        {
            const auto array = root.GetExtensibleArray2D("rows");
            for (int row = 0; row < 1000; ++row)
            {
                array->AppendRowFromBuffer(Values().data(), TDataType::Double);
            }
        },
        [](hid_t file)
        {
            const hid_t set = plain_open_extensible(file);
            for (int row = 0; row < 1000; ++row)
            {
                plain_append_row(set, kColumns, Values().data());
            }
            H5Dclose(set);
        });
}

void RegisterTables()
{
    const auto write = [](IFile& /*file*/, IGroup& root)
    {
        root.CreateTableFromBuffer("set", Rows().data(), kRows, RowType(), 0, -1, 0);
    };
    ComparePeaks("write-table-of-40-MB", &Nothing, write,
                 [](hid_t file) { plain_write_table(file, "set", RowType(), kRows, Rows().data()); });
    ComparePeaks(
        "read-table-of-40-MB", write,
        [](IFile& /*file*/, IGroup& root) { root.GetTable("set")->GetToBuffer(Rows().data(), -1); },
        WithSet([](hid_t set) { plain_read_table(set, RowType(), Rows().data()); }));
    static std::vector<hsize_t> selection(100000);
    for (std::size_t i = 0; i < selection.size(); ++i)
    {
        selection[i] = i * 7919 % kRows;
    }
    ComparePeaks(
        "read-100000-selected-rows", write,
        [](IFile& /*file*/, IGroup& root) { root.GetTable("set")->GetFromSelection(Rows().data(), -1, selection); },
        WithSet([](hid_t set)
                { plain_read_points(set, RowType(), selection.data(), selection.size(), Rows().data()); }));
}

} // namespace

void bench::RegisterWork()
{
    // The caller's data are there before any work is measured.
    Values();
    Rows();
    RowType();
    Children();
    RegisterChildren();
    RegisterArrays();
    RegisterExtensible();
    RegisterTables();
}
