// Calls with C++ values, as the library's side, beside the calls that they are made of, as the plain one.
#include "Work.h"

using namespace bench;

namespace
{

const RowType<Reading> kReading = {{"time", &Reading::time},   {"value", &Reading::value},
                                   {"error", &Reading::error}, {"channel", &Reading::channel},
                                   {"flags", &Reading::flags}, {"text", &Reading::text}};

template <typename T>
const T kValue = {};
template <>
const std::string kValue<std::string> = "Grad Celsius";

// One vector of each type serves all tasks.
template <typename T>
std::vector<T>& Values(std::size_t count)
{
    static std::vector<T> values;
    values.resize(count, kValue<T>);
    return values;
}

// Both calls get what `open` gives and the values, which are made before what is measured.
template <typename T, typename Open, typename Typed, typename Untyped>
void Add(Works& works, Name work, Open open, Typed typed, Untyped untyped)
{
    const auto openWithValues = [=](IFile& file, const Task& task)
    {
        Values<T>(task.size);
        return open(file);
    };
    AddSide(works, "library " + work, LibraryFile, openWithValues,
            [=](auto& object, const Task& task) { typed(object, Values<T>(task.size)); });
    AddSide(works, "plain " + work, LibraryFile, openWithValues,
            [=](auto& object, const Task& task) { untyped(object, Values<T>(task.size)); });
}

using Numbers = std::vector<double>;
using Readings = std::vector<Reading>;

const auto kOpenRoot = [](IFile& file)
{
    return file.GetRoot();
};
const auto kOpenArray = [](IFile& file)
{
    return file.GetRoot()->GetArray("a");
};

} // namespace

void bench::AddTypedWorks(Works& works)
{
    Add<double>(
        works, "store numbers", kOpenRoot, [](IGroup& root, Numbers& values) { StoreArray(root, "a", values); },
        [](IGroup& root, Numbers& values)
        { root.CreateArrayFromBuffer("a", values.data(), TDataType::Double, values.size(), 1); });
    Add<std::string>(
        works, "store texts", kOpenRoot, [](IGroup& root, Names& texts) { StoreArray(root, "a", texts); },
        [](IGroup& root, Names& texts)
        {
            const std::size_t length = IArray::CalculateMaxLengthFromStringVector(texts);
            const auto buffer = IArray::CreateBufferFromStringVector(texts, length);
            root.CreateArrayFromBuffer("a", buffer.get(), TDataType::String, texts.size(), length);
        });
    Add<Reading>(
        works, "store readings", kOpenRoot, [](IGroup& root, Readings& rows) { StoreTable(root, "t", kReading, rows); },
        [](IGroup& root, Readings& rows)
        { root.CreateTableFromBuffer("t", rows.data(), rows.size(), kReading.Id(), 0, -1, 0); });
    Add<double>(
        works, "append numbers",
        [](IFile& file) { return MakeExtensibleArray2D<double>(*file.GetRoot(), "r", 16, 1024); },
        [](IExtensibleArray2D& array, Numbers& values) { AppendRows(array, values); },
        [](IExtensibleArray2D& array, Numbers& values)
        { array.AppendRowsFromBuffer(static_cast<int>(values.size() / 16), values.data(), TDataType::Double); });
    Add<double>(
        works, "read numbers", kOpenArray, [](const IArray& array, Numbers& values) { ReadArray(array, values); },
        [](const IArray& array, Numbers& values) { array.GetToBuffer(values.data(), TDataType::Double); });
    Add<std::string>(
        works, "read text values", kOpenArray, [](const IArray& array, Names& texts) { ReadArray(array, texts); },
        [](const IArray& array, Names& texts)
        {
            utils::ReadStringDataSet(texts, array.LocationID(), array.GetTypeID(), array.GetTypeID(), array.GetLength(),
                                     array.GetComponents());
        });
    Add<Reading>(
        works, "read readings", [](IFile& file) { return file.GetRoot()->GetTable("t"); },
        [](const ITable& table, Readings& rows) { ReadTable(table, kReading, rows); },
        [](const ITable& table, Readings& rows) { table.GetToBuffer(rows.data(), kReading.Id()); });
}
