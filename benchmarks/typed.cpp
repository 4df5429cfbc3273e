// Calls with C++ values, as the library's side, beside the calls that they are made of, as the plain one.
#include "Work.h"

using namespace bench;

namespace
{

using Numbers = std::vector<double>;
using Readings = std::vector<Reading>;

const RowType<Reading> kReading = {{"time", &Reading::time},   {"value", &Reading::value},
                                   {"error", &Reading::error}, {"channel", &Reading::channel},
                                   {"flags", &Reading::flags}, {"text", &Reading::text}};

template <typename T>
const T kValue = {};
template <>
const std::string kValue<std::string> = "Grad Celsius";

// Both calls get what `open` gives, and one vector of values of their type, which serves all tasks.
template <typename T>
struct TypedWork
{
    template <typename Open, typename Typed, typename Untyped>
    TypedWork(Name work, Open open, Typed typed, Untyped untyped)
    {
        static std::vector<T> values;
        const auto openWithValues = [=](IFile& file, const Task& task)
        {
            values.resize(task.count, kValue<T>);
            return open(file);
        };
        const auto withValues = [](auto& object, const Task& /*task*/, const auto& call)
        {
            call(object, values);
        };
        Side("library " + work, LibraryFile, openWithValues, withValues, typed);
        Side("plain " + work, LibraryFile, openWithValues, withValues, untyped);
    }
};

constexpr auto kOpenRoot = [](IFile& file)
{
    return file.GetRoot();
};
constexpr auto kOpenArray = [](IFile& file)
{
    return file.GetRoot()->GetArray("a");
};

const TypedWork<double> kStoreNumbers(
    "store numbers", kOpenRoot, [](IGroup& root, Numbers& values) { StoreArray(root, "a", values); },
    [](IGroup& root, Numbers& values)
    { root.CreateArrayFromBuffer("a", values.data(), TDataType::Double, values.size(), 1); });

const TypedWork<std::string> kStoreTexts(
    "store texts", kOpenRoot, [](IGroup& root, Names& texts) { StoreArray(root, "a", texts); },
    [](IGroup& root, Names& texts)
    {
        const std::size_t length = IArray::CalculateMaxLengthFromStringVector(texts);
        const auto buffer = IArray::CreateBufferFromStringVector(texts, length);
        root.CreateArrayFromBuffer("a", buffer.get(), TDataType::String, texts.size(), length);
    });

const TypedWork<Reading> kStoreReadings(
    "store readings", kOpenRoot, [](IGroup& root, Readings& rows) { StoreTable(root, "t", kReading, rows); },
    [](IGroup& root, Readings& rows)
    { root.CreateTableFromBuffer("t", rows.data(), rows.size(), kReading.Id(), 0, -1, 0); });

const TypedWork<double> kAppendNumbers(
    "append numbers", [](IFile& file) { return MakeExtensibleArray2D<double>(*file.GetRoot(), "r", 16, 1024); },
    [](IExtensibleArray2D& array, Numbers& values) { AppendRows(array, values); },
    [](IExtensibleArray2D& array, Numbers& values)
    { array.AppendRowsFromBuffer(static_cast<int>(values.size() / 16), values.data(), TDataType::Double); });

const TypedWork<double> kReadNumbers(
    "read numbers", kOpenArray, [](const IArray& array, Numbers& values) { ReadArray(array, values); },
    [](const IArray& array, Numbers& values) { array.GetToBuffer(values.data(), TDataType::Double); });

const TypedWork<std::string> kReadTexts(
    "read text values", kOpenArray, [](const IArray& array, Names& texts) { ReadArray(array, texts); },
    [](const IArray& array, Names& texts)
    {
        utils::ReadStringDataSet(texts, array.LocationID(), array.GetTypeID(), array.GetTypeID(), array.GetLength(),
                                 array.GetComponents());
    });

const TypedWork<Reading> kReadReadings(
    "read readings", [](IFile& file) { return file.GetRoot()->GetTable("t"); },
    [](const ITable& table, Readings& rows) { ReadTable(table, kReading, rows); },
    [](const ITable& table, Readings& rows) { table.GetToBuffer(rows.data(), kReading.Id()); });

const TypedWork<Reading> kReadNamedReadings(
    "read readings by name", kOpenRoot, [](IGroup& root, Readings& rows) { rows = ReadTable(root, "t", kReading); },
    [](IGroup& root, Readings& rows)
    {
        const auto table = root.GetTable("t");
        rows = Readings(table->GetNumberOfRows());
        table->GetToBuffer(rows.data(), kReading.Id());
    });

} // namespace
