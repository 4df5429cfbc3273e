// Calls with C++ values beside the calls that they are made of.
#include "Sides.h"

using namespace bench;

namespace
{

const RowType<Reading> kReading = {{"time", &Reading::time},   {"value", &Reading::value},
                                   {"error", &Reading::error}, {"channel", &Reading::channel},
                                   {"flags", &Reading::flags}, {"text", &Reading::text}};

// One vector of each type, which the rows of a size share.
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

const Reasons kOverhead = {{"*",
                            "a fixed cost of each call: element type and length come from the vector, and what is "
                            "stored is compared with them",
                            1024}};
const Reasons kSearch = {
    {"*", "each text is searched for NUL bytes, at which it would end in the file, and the plain calls don't search"}};
const Reasons kLookUp = {{"*", "every column is looked up before the read, which larger data hide", 13107}};

// Up to 1 MiB a call may cost a tenth more, above a fiftieth.
template <typename Open, typename Typed, typename Untyped>
void Add(Rows& rows, Name name, std::size_t bytesOfOne, const Reasons& reasons, const Place& place, Open open,
         Typed typed, Untyped untyped)
{
    for (const std::size_t bytes : {8UL << 10U, 512UL << 10U, 8UL << 20U, 64UL << 20U})
    {
        Row row = {"typed/" + name, "elements", {bytes / bytesOfOne}, bytes > (1UL << 20U) ? 1.02 : 1.10, reasons};
        row.library = OnFile(place, LibraryFile, open, typed);
        row.plain = OnFile(place, LibraryFile, open, untyped);
        rows.push_back(row);
    }
}

void StoreDoubles(IGroup& root, std::size_t count)
{
    StoreArray(root, "a", Values<double>(count));
}

void StoreTexts(IGroup& root, std::size_t count)
{
    StoreArray(root, "a", Texts(count));
}

void StoreReadings(IGroup& root, std::size_t count)
{
    StoreTable(root, "t", kReading, Values<Reading>(count));
}

// Data are made before what is measured.
void MakeValues(Name /*path*/, std::size_t count)
{
    Values<double>(count);
    Values<Reading>(count);
    Texts(count);
}

void AddStores(Rows& rows)
{
    const Place fresh = {"typed-new", "w", MakeValues};
    Add(rows, "store a vector of doubles, beside CreateArrayFromBuffer", 8, kOverhead, fresh, Root{}, StoreDoubles,
        [](IGroup& root, std::size_t count)
        { root.CreateArrayFromBuffer("a", Values<double>(count).data(), TDataType::Double, count, 1); });
    Add(rows, "store a vector of texts, beside CreateArrayFromBuffer", 12, kSearch, fresh, Root{}, StoreTexts,
        [](IGroup& root, std::size_t count)
        {
            const std::size_t length = IArray::CalculateMaxLengthFromStringVector(Texts(count));
            const auto buffer = IArray::CreateBufferFromStringVector(Texts(count), length);
            root.CreateArrayFromBuffer("a", buffer.get(), TDataType::String, count, length);
        });
    Add(rows, "store a table, beside CreateTableFromBuffer", sizeof(Reading), kOverhead, fresh, Root{}, StoreReadings,
        [](IGroup& root, std::size_t count)
        { root.CreateTableFromBuffer("t", Values<Reading>(count).data(), count, kReading.Id(), 0, -1, 0); });
    Add(
        rows, "append rows of 16 doubles at once, beside AppendRowsFromBuffer", 8, kOverhead, fresh,
        [](IFile& file, std::size_t /*count*/)
        { return MakeExtensibleArray2D<double>(*file.GetRoot(), "r", 16, 1024); },
        [](IExtensibleArray2D& array, std::size_t count) { AppendRows(array, Values<double>(count)); },
        [](IExtensibleArray2D& array, std::size_t count)
        { array.AppendRowsFromBuffer(static_cast<int>(count / 16), Values<double>(count).data(), TDataType::Double); });
}

void AddReads(Rows& rows)
{
    const auto openArray = [](IFile& file, std::size_t /*count*/)
    {
        return file.GetRoot()->GetArray("a");
    };
    Add(
        rows, "read a vector of doubles, beside GetToBuffer", 8, kOverhead,
        MadeByLibrary("typed-array", "r", StoreDoubles), openArray,
        [](const IArray& array, std::size_t count) { ReadArray(array, Values<double>(count)); },
        [](const IArray& array, std::size_t count)
        { array.GetToBuffer(Values<double>(count).data(), TDataType::Double); });
    Add(
        rows, "read a vector of texts, beside ReadStringDataSet", 12, kOverhead,
        MadeByLibrary("typed-texts", "r", StoreTexts), openArray,
        [](const IArray& array, std::size_t count) { ReadArray(array, Texts(count)); },
        [](const IArray& array, std::size_t count)
        {
            utils::ReadStringDataSet(Texts(count), array.LocationID(), array.GetTypeID(), array.GetTypeID(),
                                     array.GetLength(), array.GetComponents());
        });
    Add(
        rows, "read a table, beside GetToBuffer", sizeof(Reading), kLookUp,
        MadeByLibrary("typed-table", "r", StoreReadings),
        [](IFile& file, std::size_t /*count*/) { return file.GetRoot()->GetTable("t"); },
        [](const ITable& table, std::size_t count) { ReadTable(table, kReading, Values<Reading>(count)); },
        [](const ITable& table, std::size_t count)
        { table.GetToBuffer(Values<Reading>(count).data(), kReading.Id()); });
}

} // namespace

bench::Rows bench::TypedRows()
{
    Rows rows;
    AddStores(rows);
    AddReads(rows);
    return rows;
}
