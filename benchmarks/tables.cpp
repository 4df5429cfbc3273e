#include "Pairs.h"
#include "tables_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

using tarnwick::hdf::IFile;
using tarnwick::hdf::ITable;

namespace
{

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kPickFrom = 20000;
constexpr const char* kName = "table";
constexpr double kTarget = 1.02;
constexpr double kSelectionTarget = 1.05;

using Rows = std::vector<plain_row>;
using Selection = std::shared_ptr<const std::vector<hsize_t>>;

struct Data
{
    explicit Data(std::size_t count) : type(plain_row_type()), rows(count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            rows[i].time = static_cast<double>(i) / 100;
            rows[i].value = static_cast<double>(i % 1000);
            rows[i].channel = static_cast<int>(i % 16);
            std::snprintf(rows[i].text, sizeof(rows[i].text), "row %d", static_cast<int>(i % 1000));
        }
    }
    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;
    ~Data() { H5Tclose(type); }

    hid_t type;
    Rows rows;
};

Data& SharedData(std::size_t rows)
{
    static std::unique_ptr<Data> data;
    if (!data || data->rows.size() != rows)
    {
        data = std::make_unique<Data>(rows);
    }
    return *data;
}

std::string Prepared(std::size_t rows)
{
    const std::string path = bench::PathOf("table-" + std::to_string(rows) + ".h5");
    if (!IFile::IsHDF5File(path))
    {
        Data& data = SharedData(rows);
        IFile::Open(path, "w", 0)->GetRoot()->CreateTableFromBuffer(kName, data.rows.data(), rows, data.type, 0, -1, 0);
    }
    return path;
}

void RegisterWriting(std::size_t rows)
{
    const auto library = [=]
    {
        Data& data = SharedData(rows);
        const auto file = IFile::Open(bench::PathOf("table-write.h5"), "w", 0);
        const auto root = file->GetRoot();
        return bench::SecondsOf([&]
                                { root->CreateTableFromBuffer(kName, data.rows.data(), rows, data.type, 0, -1, 0); });
    };
    const auto plain = [=]
    {
        Data& data = SharedData(rows);
        const hid_t file = plain_new_file(bench::PathOf("table-write.h5").c_str());
        const double seconds =
            bench::SecondsOf([&] { plain_write_table(file, kName, data.type, rows, data.rows.data()); });
        H5Fclose(file);
        return seconds;
    };
    bench::Compare("table/write", rows, rows >= kRows / 10 ? kTarget : 0, library, plain);
}

// Both sides on an open table of so many rows, with a buffer as large as the table.
template <typename Library, typename Plain>
void CompareOnTable(const std::string& work, std::size_t size, std::size_t rows, double target, Library library,
                    Plain plain)
{
    const auto librarySide = [=]
    {
        Data& data = SharedData(rows);
        const auto file = IFile::Open(Prepared(rows), "r+", 0);
        const auto table = file->GetRoot()->GetTable(kName);
        return bench::SecondsOf([&] { library(*table, data); });
    };
    const auto plainSide = [=]
    {
        Data& data = SharedData(rows);
        const hid_t access = plain_access_list();
        const hid_t file = H5Fopen(Prepared(rows).c_str(), H5F_ACC_RDWR, access);
        H5Pclose(access);
        const hid_t set = H5Dopen2(file, kName, H5P_DEFAULT);
        const double seconds = bench::SecondsOf([&] { plain(set, data); });
        H5Dclose(set);
        H5Fclose(file);
        return seconds;
    };
    bench::Compare(work, size, target, librarySide, plainSide);
}

void RegisterReading(std::size_t rows)
{
    const double target = rows >= kRows / 10 ? kTarget : 0;
    CompareOnTable(
        "table/read", rows, rows, target,
        [](const ITable& table, Data& data) { table.GetToBuffer(data.rows.data(), -1); },
        [](hid_t set, Data& data) { plain_read_table(set, data.type, data.rows.data()); });
    CompareOnTable(
        "table/hyperslab-stride-4", rows, rows, target,
        [=](const ITable& table, Data& data) { table.GetFromHyperslab(data.rows.data(), 0, 4, rows / 4, data.type); },
        [=](hid_t set, Data& data) { plain_read_rows(set, data.type, 0, 4, rows / 4, data.rows.data()); });
    CompareOnTable(
        "table/string-column", rows, rows, 1.1,
        [](const ITable& table, Data& /*data*/)
        {
            std::vector<std::string> strings;
            table.FeedStringVector(strings, 5);
        },
        [=](hid_t set, Data& /*data*/)
        {
            std::vector<char> bytes(rows * PLAIN_TEXT);
            plain_read_text(set, bytes.data());
            std::vector<std::string> strings(rows);
            for (std::size_t i = 0; i < rows; ++i)
            {
                const char* text = bytes.data() + i * PLAIN_TEXT;
                strings[i].assign(text, strnlen(text, PLAIN_TEXT));
            }
        });
}

Selection Sorted(std::size_t count)
{
    auto rows = std::make_shared<std::vector<hsize_t>>(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        (*rows)[i] = i * (kRows / count) + i % 7 % (kRows / count);
    }
    return rows;
}

Selection Shuffled(std::size_t count)
{
    auto rows = std::make_shared<std::vector<hsize_t>>(*Sorted(count));
    unsigned long long state = 1;
    for (std::size_t i = count - 1; i > 0; --i)
    {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        std::swap((*rows)[i], (*rows)[(state >> 33U) % (i + 1)]);
    }
    return rows;
}

// Each row four times, at different places.
Selection Repeated(std::size_t count)
{
    const Selection some = Shuffled(count / 4);
    auto rows = std::make_shared<std::vector<hsize_t>>();
    for (int time = 0; time < 4; ++time)
    {
        rows->insert(rows->end(), some->begin(), some->end());
    }
    return rows;
}

void RegisterSelection(const std::string& word, const Selection& selection)
{
    const std::size_t count = selection->size();
    const auto packed = std::make_shared<Rows>(count);
    CompareOnTable(
        "selection/rows-to-buffer-" + word, count, kRows, kSelectionTarget,
        [=](const ITable& table, Data& /*data*/) { table.GetFromSelection(packed->data(), -1, *selection); },
        [=](hid_t set, Data& data)
        {
            // The faster of two plain ways: points for few rows, all rows for many.
            if (count < kPickFrom)
            {
                plain_read_points(set, data.type, selection->data(), count, packed->data());
                return;
            }
            plain_read_and_pick(set, data.type, kRows, selection->data(), count, packed->data());
        });
    CompareOnTable(
        "selection/run-to-rows-" + word, count, kRows, kSelectionTarget,
        [=](const ITable& table, Data& data)
        { table.GetFromHyperslabToSelection(data.rows.data(), kRows, data.type, 100, *selection); },
        [=](hid_t set, Data& data)
        { plain_read_and_scatter(set, data.type, 100, selection->data(), count, data.rows.data()); });
    CompareOnTable(
        "selection/rows-to-run-" + word, count, kRows, kSelectionTarget,
        [=](ITable& table, Data& data)
        { table.SetToHyperslabFromSelection(data.rows.data(), kRows, data.type, 100, *selection); },
        [=](hid_t set, Data& data)
        { plain_collect_and_write(set, data.type, 100, selection->data(), count, data.rows.data()); });
}

} // namespace

void bench::RegisterWork()
{
    for (const std::size_t rows : Sizes({10000, 100000, kRows}))
    {
        RegisterWriting(rows);
        RegisterReading(rows);
    }
    for (const std::size_t count : Sizes({1000, 10000, 100000}))
    {
        RegisterSelection("sorted", Sorted(count));
        RegisterSelection("shuffled", Shuffled(count));
        RegisterSelection("repeated", Repeated(count));
    }
}
