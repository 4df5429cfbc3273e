// Arrays and tables. For plain HDF5 arrays and tables are data sets of one dimension.
#include "Work.h"

#include <algorithm>
#include <cstring>
#include <memory>

using namespace bench;

namespace
{

constexpr std::size_t kPickFrom = 20000;
constexpr hsize_t kRunStart = 100;
constexpr const char* kName = "data";

// The array or the table of a file, for `open`.
template <auto getNode>
struct Data
{
    auto operator()(IFile& file, const Task& /*task*/) const { return std::invoke(getNode, file.GetRoot(), kName); }
    auto operator()(hid_t file, const Task& /*task*/) const { return Id(H5Dopen2(file, kName, H5P_DEFAULT)); }
    auto operator()(H5::H5File& file, const Task& /*task*/) const { return file.openDataSet(kName); }
};

constexpr Data<&IGroup::GetArray> kArray;
constexpr Data<&IGroup::GetTable> kTable;

const Work kWrite(
    "write", Root{}, kOnce,
    [](IGroup& root, const Task& task)
    {
        if (task.isTable)
        {
            root.CreateTableFromBuffer(kName, task.elements, task.length, task.type, task.level, -1, 0);
            return;
        }
        root.SetDefaultCompression(task.level);
        root.CreateArrayFromBuffer(kName, task.elements, task.number, task.length, 1);
    },
    [](hid_t root, const Task& task)
    {
        const hsize_t chunk = std::min<hsize_t>(task.chunk, task.length);
        const Id space(H5Screate_simple(1, &task.length, nullptr));
        const Id list(H5Pcreate(H5P_DATASET_CREATE));
        SetStorage(list, 1, &chunk, task.level);
        const Id set(H5Dcreate2(root, kName, task.type, space, H5P_DEFAULT, list, H5P_DEFAULT));
        H5Dwrite(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, task.elements);
    },
    [](const H5::Group& root, const Task& task)
    {
        const hsize_t chunk = std::min<hsize_t>(task.chunk, task.length);
        const H5::DataType type(task.type);
        const H5::DSetCreatPropList list;
        SetStorage(list.getId(), 1, &chunk, task.level);
        root.createDataSet(kName, type, H5::DataSpace(1, &task.length), list).write(task.elements, type);
    });

void ReadPlainly(hid_t set, const Task& task)
{
    H5Dread(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, task.memory);
}

void ReadByCpp(const H5::DataSet& set, const Task& task)
{
    set.read(task.memory, H5::DataType(task.type));
}

const Work kReadArrays(
    "read arrays", kArray, kOnce,
    [](const IArray& array, const Task& task) { array.GetToBuffer(task.memory, task.number); }, ReadPlainly, ReadByCpp);
const Work kReadTables(
    "read tables", kTable, kOnce, [](const ITable& table, const Task& task) { table.GetToBuffer(task.memory, -1); },
    ReadPlainly, ReadByCpp);

// Elements of a data set with as far from one to the next, and memory for them.
struct Stride
{
    Id file;
    Id memory;

    Stride(hid_t set, hsize_t start, hsize_t stride, hsize_t count)
        : file(H5Dget_space(set)), memory(H5Screate_simple(1, &count, nullptr))
    {
        H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, &stride, &count, nullptr);
    }
};

void ReadStridePlainly(hid_t set, const Task& task)
{
    const Stride stride(set, 0, task.stride, task.count);
    H5Dread(set, task.type, stride.memory, stride.file, H5P_DEFAULT, task.memory);
}

void ReadStrideByCpp(const H5::DataSet& set, const Task& task)
{
    const hsize_t start = 0;
    const H5::DataSpace file = set.getSpace();
    file.selectHyperslab(H5S_SELECT_SET, &task.count, &start, &task.stride);
    set.read(task.memory, H5::DataType(task.type), H5::DataSpace(1, &task.count), file);
}

template <typename T>
void ReadAllAndPick(hid_t set, const Task& task)
{
    const std::unique_ptr<T[]> all(new T[task.length]);
    H5Dread(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    for (std::size_t i = 0; i < task.count; ++i)
    {
        static_cast<T*>(task.memory)[i] = all[i * task.stride];
    }
}

const Work kReadStrideOfArrays(
    "read a stride of arrays", kArray, kOnce,
    [](const IArray& array, const Task& task)
    {
        const int stride = static_cast<int>(task.stride);
        array.GetFromHyperslab(task.memory, 0, stride, static_cast<int>(task.count), task.number);
    },
    ReadStridePlainly, ReadStrideByCpp);
const Work kReadStrideOfTables(
    "read a stride of tables", kTable, kOnce,
    [](const ITable& table, const Task& task)
    { table.GetFromHyperslab(task.memory, 0, task.stride, task.count, task.type); },
    ReadStridePlainly, ReadStrideByCpp);
const Side kPickOfArrays("plain read all and pick of arrays", PlainFile, kArray, kOnce, ReadAllAndPick<double>);
const Side kPickOfTables("plain read all and pick of tables", PlainFile, kTable, kOnce, ReadAllAndPick<Reading>);

// The plain side takes the faster of two ways: a selection of points for few rows, all rows for many.
const Work kReadSelected(
    "read selected", kTable, kOnce,
    [](const ITable& table, const Task& task) { table.GetFromSelection(task.memory, -1, task.selection); },
    [](hid_t set, const Task& task)
    {
        const hsize_t count = task.selection.size();
        if (count >= kPickFrom)
        {
            const std::unique_ptr<Reading[]> all(new Reading[task.length]);
            H5Dread(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
            std::transform(task.selection.begin(), task.selection.end(), static_cast<Reading*>(task.memory),
                           [&](hsize_t row) { return all[row]; });
            return;
        }
        const Id file(H5Dget_space(set));
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Sselect_elements(file, H5S_SELECT_SET, count, task.selection.data());
        H5Dread(set, task.type, memory, file, H5P_DEFAULT, task.memory);
    },
    [](const H5::DataSet& set, const Task& task)
    {
        const hsize_t count = task.selection.size();
        const H5::DataSpace file = set.getSpace();
        file.selectElements(H5S_SELECT_SET, count, task.selection.data());
        set.read(task.memory, H5::DataType(task.type), H5::DataSpace(1, &count), file);
    });

// The spaces of a transfer by HDF5's C++ API between a run of the table and selected rows of the buffer.
struct CppRun
{
    H5::DataType type;
    H5::DataSpace memory;
    H5::DataSpace file;

    CppRun(const H5::DataSet& set, const Task& task) : type(task.type), memory(1, &task.length), file(set.getSpace())
    {
        const hsize_t count = task.selection.size();
        memory.selectElements(H5S_SELECT_SET, count, task.selection.data());
        file.selectHyperslab(H5S_SELECT_SET, &count, &kRunStart);
    }
};

// A run of the table goes to selected rows of the buffer,
const Work kScatter(
    "scatter", kTable, kOnce,
    [](const ITable& table, const Task& task)
    { table.GetFromHyperslabToSelection(task.memory, task.length, task.type, kRunStart, task.selection); },
    [](hid_t set, const Task& task)
    {
        const hsize_t count = task.selection.size();
        const std::unique_ptr<Reading[]> rows(new Reading[count]);
        const Stride run(set, kRunStart, 1, count);
        H5Dread(set, task.type, run.memory, run.file, H5P_DEFAULT, rows.get());
        for (std::size_t i = 0; i < count; ++i)
        {
            static_cast<Reading*>(task.memory)[task.selection[i]] = rows[i];
        }
    },
    [](const H5::DataSet& set, const Task& task)
    {
        const CppRun run(set, task);
        set.read(task.memory, run.type, run.memory, run.file);
    });

// and back.
const Work kCollect(
    "collect", kTable, kOnce,
    [](ITable& table, const Task& task)
    { table.SetToHyperslabFromSelection(task.elements, task.length, task.type, kRunStart, task.selection); },
    [](hid_t set, const Task& task)
    {
        const hsize_t count = task.selection.size();
        const std::unique_ptr<Reading[]> rows(new Reading[count]);
        const auto* buffer = static_cast<const Reading*>(task.elements);
        std::transform(task.selection.begin(), task.selection.end(), rows.get(),
                       [=](hsize_t row) { return buffer[row]; });
        const Stride run(set, kRunStart, 1, count);
        H5Dwrite(set, task.type, run.memory, run.file, H5P_DEFAULT, rows.get());
    },
    [](const H5::DataSet& set, const Task& task)
    {
        const CppRun run(set, task);
        set.write(task.elements, run.type, run.memory, run.file);
    });

// The column of texts alone, and a string of each.
template <typename ReadColumn>
void ReadTexts(std::size_t rows, ReadColumn readColumn)
{
    constexpr std::size_t kText = sizeof(Reading::text);
    const Id text(H5Tcopy(H5T_C_S1));
    H5Tset_size(text, kText);
    H5Tset_strpad(text, H5T_STR_NULLPAD);
    const Id type(H5Tcreate(H5T_COMPOUND, kText));
    H5Tinsert(type, "text", 0, text);
    const std::unique_ptr<char[]> texts(new char[rows * kText]);
    readColumn(type.id, texts.get());
    Names strings(rows);
    for (std::size_t i = 0; i < rows; ++i)
    {
        const char* begin = &texts[i * kText];
        strings[i].assign(begin, strnlen(begin, kText));
    }
}

const Work kReadTexts(
    "read texts", kTable, kOnce,
    [](const ITable& table, const Task& /*task*/)
    {
        Names strings;
        table.FeedStringVector(strings, 5);
    },
    [](hid_t set, const Task& task)
    { ReadTexts(task.length, [=](hid_t type, char* to) { H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, to); }); },
    [](const H5::DataSet& set, const Task& task)
    { ReadTexts(task.length, [&](hid_t type, char* to) { set.read(to, H5::CompType(type)); }); });

} // namespace
