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
template <bool isTable>
struct OpenData
{
    auto operator()(IFile& file, const Task& /*task*/) const
    {
        if constexpr (isTable)
        {
            return file.GetRoot()->GetTable(kName);
        }
        else
        {
            return file.GetRoot()->GetArray(kName);
        }
    }
    auto operator()(hid_t file, const Task& /*task*/) const { return Id(H5Dopen2(file, kName, H5P_DEFAULT)); }
    auto operator()(H5::H5File& file, const Task& /*task*/) const { return file.openDataSet(kName); }
};

struct Write
{
    void operator()(IGroup& root, const Task& task) const
    {
        if (task.element == "reading")
        {
            root.CreateTableFromBuffer(kName, task.data, task.count, task.type, task.level, -1, 0);
            return;
        }
        root.SetDefaultCompression(task.level);
        root.CreateArrayFromBuffer(kName, task.data, task.number, task.count, 1);
    }
    void operator()(hid_t root, const Task& task) const
    {
        const hsize_t chunk = std::min<hsize_t>(task.chunk, task.count);
        const Id space(H5Screate_simple(1, &task.count, nullptr));
        const Id list = CreationList(chunk == 0 ? 0 : 1, &chunk, task.level);
        const Id set(H5Dcreate2(root, kName, task.type, space, H5P_DEFAULT, list, H5P_DEFAULT));
        H5Dwrite(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, task.data);
    }
    void operator()(const H5::Group& root, const Task& task) const
    {
        const hsize_t chunk = std::min<hsize_t>(task.chunk, task.count);
        const H5::DataType type(task.type);
        H5::DSetCreatPropList list;
        if (chunk > 0)
        {
            list.setChunk(1, &chunk);
        }
        if (task.level > 0)
        {
            list.setShuffle();
            list.setDeflate(task.level);
        }
        root.createDataSet(kName, type, H5::DataSpace(1, &task.count), list).write(task.data, type);
    }
};

struct Read
{
    void operator()(const IArray& array, const Task& task) const { array.GetToBuffer(task.data, task.number); }
    void operator()(const ITable& table, const Task& task) const { table.GetToBuffer(task.data, -1); }
    void operator()(hid_t set, const Task& task) const
    {
        H5Dread(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, task.data);
    }
    void operator()(const H5::DataSet& set, const Task& task) const { set.read(task.data, H5::DataType(task.type)); }
};

// The space of a data set with a selection.
Id SelectedSpace(hid_t set, hsize_t start, hsize_t stride, hsize_t count)
{
    const hid_t space = H5Dget_space(set);
    H5Sselect_hyperslab(space, H5S_SELECT_SET, &start, &stride, &count, nullptr);
    return Id(space);
}

struct ReadStride
{
    void operator()(const IArray& array, const Task& task) const
    {
        const int stride = static_cast<int>(task.stride);
        array.GetFromHyperslab(task.data, 0, stride, static_cast<int>(task.picked), task.number);
    }
    void operator()(const ITable& table, const Task& task) const
    {
        table.GetFromHyperslab(task.data, 0, task.stride, task.picked, task.type);
    }
    void operator()(hid_t set, const Task& task) const
    {
        const Id file = SelectedSpace(set, 0, task.stride, task.picked);
        const Id memory(H5Screate_simple(1, &task.picked, nullptr));
        H5Dread(set, task.type, memory, file, H5P_DEFAULT, task.data);
    }
    void operator()(const H5::DataSet& set, const Task& task) const
    {
        const hsize_t start = 0;
        const H5::DataSpace file = set.getSpace();
        file.selectHyperslab(H5S_SELECT_SET, &task.picked, &start, &task.stride);
        set.read(task.data, H5::DataType(task.type), H5::DataSpace(1, &task.picked), file);
    }
};

// All elements of a data set, for programs that pick some.
template <typename T>
std::unique_ptr<T[]> ReadAll(hid_t set, const Task& task)
{
    std::unique_ptr<T[]> all(new T[task.count]);
    H5Dread(set, task.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    return all;
}

template <typename T>
void ReadAllAndPick(hid_t set, const Task& task)
{
    const auto all = ReadAll<T>(set, task);
    for (std::size_t i = 0; i < task.picked; ++i)
    {
        static_cast<T*>(task.data)[i] = all[i * task.stride];
    }
}

struct ReadSelected
{
    void operator()(const ITable& table, const Task& task) const { table.GetFromSelection(task.data, -1, task.rows); }
    // The faster of two ways: a selection of points for few rows, all rows for many.
    void operator()(hid_t set, const Task& task) const
    {
        const hsize_t count = task.rows.size();
        if (count >= kPickFrom)
        {
            const auto all = ReadAll<Reading>(set, task);
            std::transform(task.rows.begin(), task.rows.end(), static_cast<Reading*>(task.data),
                           [&](hsize_t row) { return all[row]; });
            return;
        }
        const Id file(H5Dget_space(set));
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Sselect_elements(file, H5S_SELECT_SET, count, task.rows.data());
        H5Dread(set, task.type, memory, file, H5P_DEFAULT, task.data);
    }
    void operator()(const H5::DataSet& set, const Task& task) const
    {
        const hsize_t count = task.rows.size();
        const H5::DataSpace file = set.getSpace();
        file.selectElements(H5S_SELECT_SET, count, task.rows.data());
        set.read(task.data, H5::DataType(task.type), H5::DataSpace(1, &count), file);
    }
};

// The spaces of a transfer by HDF5's C++ API between a run of the table and selected rows of the buffer.
struct CppRun
{
    H5::DataType type;
    H5::DataSpace memory;
    H5::DataSpace file;

    CppRun(const H5::DataSet& set, const Task& task) : type(task.type), memory(1, &task.count), file(set.getSpace())
    {
        const hsize_t count = task.rows.size();
        memory.selectElements(H5S_SELECT_SET, count, task.rows.data());
        file.selectHyperslab(H5S_SELECT_SET, &count, &kRunStart);
    }
};

// A run of the table goes to selected rows of the buffer,
struct Scatter
{
    void operator()(const ITable& table, const Task& task) const
    {
        table.GetFromHyperslabToSelection(task.data, task.count, task.type, kRunStart, task.rows);
    }
    void operator()(hid_t set, const Task& task) const
    {
        const hsize_t count = task.rows.size();
        const std::unique_ptr<Reading[]> run(new Reading[count]);
        const Id file = SelectedSpace(set, kRunStart, 1, count);
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Dread(set, task.type, memory, file, H5P_DEFAULT, run.get());
        for (std::size_t i = 0; i < count; ++i)
        {
            static_cast<Reading*>(task.data)[task.rows[i]] = run[i];
        }
    }
    void operator()(const H5::DataSet& set, const Task& task) const
    {
        const CppRun run(set, task);
        set.read(task.data, run.type, run.memory, run.file);
    }
};

// and back.
struct Collect
{
    void operator()(ITable& table, const Task& task) const
    {
        table.SetToHyperslabFromSelection(task.data, task.count, task.type, kRunStart, task.rows);
    }
    void operator()(hid_t set, const Task& task) const
    {
        const hsize_t count = task.rows.size();
        const std::unique_ptr<Reading[]> run(new Reading[count]);
        const auto* buffer = static_cast<const Reading*>(task.data);
        std::transform(task.rows.begin(), task.rows.end(), run.get(), [=](hsize_t row) { return buffer[row]; });
        const Id file = SelectedSpace(set, kRunStart, 1, count);
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Dwrite(set, task.type, memory, file, H5P_DEFAULT, run.get());
    }
    void operator()(const H5::DataSet& set, const Task& task) const
    {
        const CppRun run(set, task);
        set.write(task.data, run.type, run.memory, run.file);
    }
};

// The column of texts alone, and a string of each.
struct ReadTexts
{
    template <typename ReadColumn>
    static void ReadEach(std::size_t rows, ReadColumn readColumn)
    {
        constexpr std::size_t kText = sizeof(Reading::text);
        const Id text(H5Tcopy(H5T_C_S1));
        H5Tset_size(text, kText);
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
    void operator()(const ITable& table, const Task& /*task*/) const
    {
        Names strings;
        table.FeedStringVector(strings, 5);
    }
    void operator()(hid_t set, const Task& task) const
    {
        ReadEach(task.count, [=](hid_t type, char* to) { H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, to); });
    }
    void operator()(const H5::DataSet& set, const Task& task) const
    {
        ReadEach(task.count, [&](hid_t type, char* to) { set.read(to, H5::CompType(type)); });
    }
};

} // namespace

void bench::AddDataSetWorks(Works& works)
{
    const OpenData<false> openArray;
    const OpenData<true> openTable;
    AddWork(works, "write", Root{}, Write{});
    AddWork(works, "read arrays", openArray, Read{});
    AddWork(works, "read tables", openTable, Read{});
    AddWork(works, "read a stride of arrays", openArray, ReadStride{});
    AddWork(works, "read a stride of tables", openTable, ReadStride{});
    AddSide(works, "plain read all and pick of arrays", PlainFile, openArray, ReadAllAndPick<double>);
    AddSide(works, "plain read all and pick of tables", PlainFile, openTable, ReadAllAndPick<Reading>);
    AddWork(works, "read selected", openTable, ReadSelected{});
    AddWork(works, "scatter", openTable, Scatter{});
    AddWork(works, "collect", openTable, Collect{});
    AddWork(works, "read texts", openTable, ReadTexts{});
}
