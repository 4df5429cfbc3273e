// Calls with C++ values beside the calls that they are made of.
#include "Sides.h"

#include <tarnwickhdf/typed.h>

using namespace tarnwick::hdf;
using bench::Reading;

namespace
{

const RowType<Reading> kReading = {{"time", &Reading::time},   {"value", &Reading::value},
                                   {"error", &Reading::error}, {"channel", &Reading::channel},
                                   {"flags", &Reading::flags}, {"text", &Reading::text}};

// One vector of each size, which the rows of a size share.
template <typename T>
std::vector<T>& Values(std::size_t count)
{
    static std::vector<T> values;
    values.resize(count);
    return values;
}

std::vector<std::string>& Texts(std::size_t count)
{
    static std::vector<std::string> texts;
    texts.resize(count, "Grad Celsius");
    return texts;
}

// Up to 1 MiB a call may cost a tenth more, above a fiftieth.
template <typename Open, typename Typed, typename Plain>
void Add(bench::Rows& rows, const std::string& name, std::size_t bytesOfOne, const bench::Place& place, Open open,
         Typed typed, Plain plain)
{
    for (const std::size_t bytes : {8UL << 10U, 512UL << 10U, 8UL << 20U, 64UL << 20U})
    {
        bench::Row row = {"typed/" + name, "elements", {bytes / bytesOfOne}, bytes > (1UL << 20U) ? 1.02 : 1.10};
        row.library = bench::Library(place, open, typed);
        row.plain = bench::Library(place, open, plain);
        rows.push_back(row);
    }
}

template <typename Store>
bench::Place Stored(const std::string& name, Store store)
{
    return {name, "r",
            [=](const std::string& path, std::size_t count)
            {
                store(*IFile::Open(path, "w", 0)->GetRoot(), count);
            }};
}

} // namespace

bench::Rows bench::TypedRows()
{
    Rows rows;
    const auto openArray = [](IFile& file, std::size_t /*count*/)
    {
        return file.GetRoot()->GetArray("a");
    };
    const auto openTable = [](IFile& file, std::size_t /*count*/)
    {
        return file.GetRoot()->GetTable("t");
    };
    const auto storeArray = [](IGroup& root, std::size_t count)
    {
        StoreArray(root, "a", Values<double>(count));
    };
    const auto storeTexts = [](IGroup& root, std::size_t count)
    {
        StoreArray(root, "a", Texts(count));
    };
    const auto storeTable = [](IGroup& root, std::size_t count)
    {
        StoreTable(root, "t", kReading, Values<Reading>(count));
    };
    const Place fresh = {"typed-new", "w",
                         [](const std::string& /*path*/, std::size_t count)
                         {
                             Values<double>(count);
                             Values<Reading>(count);
                             Texts(count);
                         }};
    const auto makeRows = [](IFile& file, std::size_t /*count*/)
    {
        return MakeExtensibleArray2D<double>(*file.GetRoot(), "r", 16, 1024);
    };
    Add(rows, "store a vector of doubles, beside CreateArrayFromBuffer", 8, fresh, Root{}, storeArray,
        [](IGroup& root, std::size_t count)
        { root.CreateArrayFromBuffer("a", Values<double>(count).data(), TDataType::Double, count, 1); });
    Add(
        rows, "read a vector of doubles, beside GetToBuffer", 8, Stored("typed-array", storeArray), openArray,
        [](const IArray& array, std::size_t count) { ReadArray(array, Values<double>(count)); },
        [](const IArray& array, std::size_t count)
        { array.GetToBuffer(Values<double>(count).data(), TDataType::Double); });
    Add(rows, "store a vector of texts, beside CreateArrayFromBuffer", 12, fresh, Root{}, storeTexts,
        [](IGroup& root, std::size_t count)
        {
            const std::size_t length = IArray::CalculateMaxLengthFromStringVector(Texts(count));
            const auto buffer = IArray::CreateBufferFromStringVector(Texts(count), length);
            root.CreateArrayFromBuffer("a", buffer.get(), TDataType::String, count, length);
        });
    Add(
        rows, "read a vector of texts, beside ReadStringDataSet", 12, Stored("typed-texts", storeTexts), openArray,
        [](const IArray& array, std::size_t count) { ReadArray(array, Texts(count)); },
        [](const IArray& array, std::size_t count)
        {
            utils::ReadStringDataSet(Texts(count), array.LocationID(), array.GetTypeID(), array.GetTypeID(),
                                     array.GetLength(), array.GetComponents());
        });
    Add(rows, "store a table, beside CreateTableFromBuffer", sizeof(Reading), fresh, Root{}, storeTable,
        [](IGroup& root, std::size_t count)
        { root.CreateTableFromBuffer("t", Values<Reading>(count).data(), count, kReading.Id(), 0, -1, 0); });
    Add(
        rows, "read a table, beside GetToBuffer", sizeof(Reading), Stored("typed-table", storeTable), openTable,
        [](const ITable& table, std::size_t count) { ReadTable(table, kReading, Values<Reading>(count)); },
        [](const ITable& table, std::size_t count)
        { table.GetToBuffer(Values<Reading>(count).data(), kReading.Id()); });
    Add(
        rows, "append rows of 16 doubles at once, beside AppendRowsFromBuffer", 8, fresh, makeRows,
        [](IExtensibleArray2D& array, std::size_t count) { AppendRows(array, Values<double>(count)); },
        [](IExtensibleArray2D& array, std::size_t count)
        { array.AppendRowsFromBuffer(static_cast<int>(count / 16), Values<double>(count).data(), TDataType::Double); });
    return rows;
}
