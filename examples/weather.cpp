// Four years of weather go into an HDF5 file and come back: groups, attributes, arrays, a table, a growing array.
// Every value that comes back is compared with the CSV file; a wrong one ends the program with status 1.
// Usage: weather <folder of seattle-weather.csv> <output folder>
#include "Csv.h"
#include "TypeName.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

namespace hdf = tarnwick::hdf;

constexpr int kCompression = 6;
constexpr size_t kMeasured = 4;
constexpr size_t kSampleEvery = 30;

constexpr const char* kPlace = "Seattle, 47°36′ N 122°20′ W";

struct Column
{
    const char* name;
    const char* unit;
    const char* description;
};

constexpr std::array<Column, kMeasured> kColumns = {{{"precipitation", "mm", "rain and melted snow of the day"},
                                                     {"temp_max", "°C", "highest temperature of the day"},
                                                     {"temp_min", "°C", "lowest temperature of the day"},
                                                     {"wind", "m/s", "mean wind speed of the day"}}};

// A day as it lies in the CSV file and in a row of the table.
struct Day
{
    char date[10];
    char weather[8];
    double measured[kMeasured];
};

std::string TextOf(const char* characters, size_t size)
{
    return std::string(characters, strnlen(characters, size));
}

// Half of a text is a wrong text: one that doesn't fit is refused.
template <size_t size>
void SetText(char (&field)[size], const std::string& text)
{
    if (text.size() > size)
    {
        throw std::runtime_error("too long for its column: " + text);
    }
    text.copy(field, size);
}

std::vector<Day> ReadDays(const std::string& filename)
{
    std::vector<Day> days;
    for (const std::vector<std::string>& record : ReadCsv(filename, kMeasured + 2))
    {
        Day day = {};
        SetText(day.date, record.front());
        SetText(day.weather, record.back());
        for (size_t i = 0; i < kMeasured; ++i)
        {
            day.measured[i] = std::stod(record[i + 1]);
        }
        days.push_back(day);
    }
    return days;
}

// An HDF5 type that is closed with its scope. The library copies the types that it is given.
class DayType
{
public:
    DayType()
    {
        InsertText("date", HOFFSET(Day, date), sizeof(Day::date));
        for (size_t i = 0; i < kMeasured; ++i)
        {
            H5Tinsert(m_id, kColumns[i].name, HOFFSET(Day, measured) + i * sizeof(double), H5T_NATIVE_DOUBLE);
        }
        InsertText("weather", HOFFSET(Day, weather), sizeof(Day::weather));
    }
    DayType(const DayType&) = delete;
    DayType& operator=(const DayType&) = delete;
    ~DayType() { H5Tclose(m_id); }

    hid_t id() const { return m_id; }

private:
    void InsertText(const char* name, size_t offset, size_t size) const
    {
        const hid_t text = H5Tcopy(H5T_C_S1);
        H5Tset_size(text, size);
        H5Tset_strpad(text, H5T_STR_NULLPAD);
        H5Tinsert(m_id, name, offset, text);
        H5Tclose(text);
    }

    hid_t m_id = H5Tcreate(H5T_COMPOUND, sizeof(Day));
};

// Takes samples of heap and open HDF5 objects while the program works.
class MemoryLog
{
public:
    explicit MemoryLog(const std::string& filename) : m_filename(filename), m_tracker(new hdf::MemoryLoggerFileTracker)
    {
        std::filesystem::remove(filename); // the tracker appends, and a log of two runs is none
        hdf::IFile::InstallGlobalFileTracker(m_tracker);
    }

    void Sample() { m_tracker->AppendToMemoryLog(m_index++, m_filename); }

private:
    std::string m_filename;
    boost::shared_ptr<hdf::MemoryLoggerFileTracker> m_tracker;
    int m_index = 0;
};

// Keeps its arrays open to the end, so that the log shows them.
void WriteColumns(hdf::IGroup& station, const std::vector<Day>& days, MemoryLog& log)
{
    std::vector<boost::shared_ptr<hdf::IArray>> arrays;
    for (size_t i = 0; i < kMeasured; ++i)
    {
        std::vector<double> values;
        for (const Day& day : days)
        {
            values.push_back(day.measured[i]);
        }
        arrays.push_back(
            station.CreateArrayFromBuffer(kColumns[i].name, values.data(), hdf::TDataType::Double, values.size(), 1));
        arrays.back()->SetAttr("unit", kColumns[i].unit);
        arrays.back()->SetAttr("description", kColumns[i].description);
        log.Sample();
    }
}

void WriteMatrix(hdf::IGroup& station, const std::vector<Day>& days)
{
    std::vector<double> values;
    for (const Day& day : days)
    {
        values.insert(values.end(), std::begin(day.measured), std::end(day.measured));
    }
    const auto matrix =
        station.CreateArrayFromBuffer("measured", values.data(), hdf::TDataType::Double, days.size(), kMeasured);
    matrix->SetAttr("columns", "precipitation, temp_max, temp_min, wind");
}

void WriteWords(hdf::IGroup& station, const std::vector<Day>& days)
{
    std::vector<std::string> words;
    for (const Day& day : days)
    {
        words.push_back(TextOf(day.weather, sizeof(day.weather)));
    }
    const size_t size = hdf::IArray::CalculateMaxLengthFromStringVector(words);
    const auto buffer = hdf::IArray::CreateBufferFromStringVector(words, size);
    station.CreateArrayFromBuffer("weather", buffer.get(), hdf::TDataType::String, words.size(), size);
}

void AppendDayByDay(hdf::IGroup& station, const std::vector<Day>& days, MemoryLog& log)
{
    const auto growing =
        station.CreateExtensibleArray2D("appended", hdf::TDataType::Double, 0, kMeasured, 365, kMeasured, kCompression);
    for (size_t i = 0; i < days.size(); ++i)
    {
        growing->AppendRowFromBuffer(days[i].measured, hdf::TDataType::Double);
        if (i % kSampleEvery == 0)
        {
            log.Sample();
        }
    }
}

void Write(const std::string& filename, std::vector<Day> days, MemoryLog& log)
{
    const auto file = hdf::IFile::Open(filename, "w", kCompression);
    log.Sample();
    const auto station = file->GetRoot()->CreateGroup("/stations/seattle");
    station->SetAttr("place", kPlace);
    station->SetAttr("source", "U.S. National Oceanic and Atmospheric Administration");
    WriteColumns(*station, days, log);
    WriteMatrix(*station, days);
    WriteWords(*station, days);
    log.Sample();
    const DayType type;
    station->CreateTableFromBuffer("days", days.data(), days.size(), type.id(), kCompression, -1, 0);
    log.Sample();
    AppendDayByDay(*station, days, log);
    file->Close();
    log.Sample();
}

void Check(bool isRight, const std::string& what)
{
    if (!isRight)
    {
        throw std::runtime_error("wrong value: " + what);
    }
}

std::vector<double> ReadArray(const hdf::IGroup& group, const std::string& name)
{
    const auto array = group.GetArray(name);
    std::vector<double> values(array->GetSize());
    array->GetToBuffer(values.data(), hdf::TDataType::Double);
    return values;
}

std::vector<std::string> ReadWords(const hdf::IArray& array)
{
    std::vector<std::string> words;
    hdf::utils::ReadStringDataSet(words, array.LocationID(), array.GetTypeID(), array.GetTypeID(), array.GetLength(),
                                  array.GetComponents());
    return words;
}

void CheckArrays(const hdf::IGroup& station, const std::vector<Day>& days)
{
    const std::vector<double> matrix = ReadArray(station, "measured");
    const std::vector<std::string> words = ReadWords(*station.GetArray("weather"));
    Check(station.GetAttr("place") == kPlace, "place");
    Check(matrix.size() == days.size() * kMeasured && words.size() == days.size(), "size of an array");
    for (size_t i = 0; i < kMeasured; ++i)
    {
        const std::vector<double> column = ReadArray(station, kColumns[i].name);
        Check(column.size() == days.size(), "size of a column");
        Check(station.GetArray(kColumns[i].name)->GetAttr("unit") == kColumns[i].unit, "unit");
        for (size_t day = 0; day < days.size(); ++day)
        {
            Check(column[day] == days[day].measured[i], kColumns[i].name);
            Check(matrix[day * kMeasured + i] == days[day].measured[i], "measured");
        }
    }
    for (size_t day = 0; day < days.size(); ++day)
    {
        Check(words[day] == TextOf(days[day].weather, sizeof(Day::weather)), "weather");
    }
}

void CheckTable(const hdf::IGroup& station, const std::vector<Day>& days)
{
    const auto table = station.GetTable("days");
    Check(table->GetNumberOfRows() == days.size(), "rows of the table");
    std::vector<Day> read(days.size());
    const DayType type;
    table->GetToBuffer(read.data(), type.id());
    Check(std::memcmp(read.data(), days.data(), days.size() * sizeof(Day)) == 0, "days");
}

void CheckAppended(const hdf::IGroup& station, const std::vector<Day>& days)
{
    const auto appended = station.GetExtensibleArray2D("appended");
    Check(appended->GetNumberOfRows() == days.size() && appended->GetNumberOfColumns() == kMeasured,
          "size of appended");
    double row[kMeasured] = {};
    for (size_t day = 0; day < days.size(); ++day)
    {
        appended->ReadRowToBuffer(static_cast<int>(day), row, hdf::TDataType::Double);
        Check(std::equal(std::begin(row), std::end(row), std::begin(days[day].measured)), "appended");
    }
}

void PrintAttributes(const hdf::INode& node, const std::string& indent)
{
    for (const std::string& name : node.ListAttrs())
    {
        std::cout << indent << "  @" << name << " = " << node.GetAttr(name) << "\n";
    }
}

template <typename TValue>
void PrintFirst(const std::vector<TValue>& values, const std::string& indent)
{
    std::cout << indent << "  ";
    for (size_t i = 0; i < std::min<size_t>(values.size(), kMeasured); ++i)
    {
        std::cout << values[i] << ", ";
    }
    std::cout << "...\n";
}

void PrintArray(const hdf::IArray& array, const std::string& indent)
{
    std::cout << indent << array.GetName() << ": array of " << TypeName(array.GetType()) << ", " << array.GetLength()
              << " x " << array.GetComponents() << "\n";
    PrintAttributes(array, indent);
    if (array.GetType() == hdf::TDataType::String)
    {
        PrintFirst(ReadWords(array), indent);
        return;
    }
    std::vector<double> values(array.GetSize());
    array.GetToBuffer(values.data(), hdf::TDataType::Double);
    PrintFirst(values, indent);
}

void PrintExtensibleArray(hdf::IExtensibleArray2D& array, const std::string& indent)
{
    std::cout << indent << array.GetName() << ": extensible array of " << TypeName(array.GetType()) << ", "
              << array.GetNumberOfRows() << " rows x " << array.GetNumberOfColumns() << " columns\n";
    PrintAttributes(array, indent);
    std::vector<double> row(array.GetNumberOfColumns());
    array.ReadRowToBuffer(0, row.data(), hdf::TDataType::Double);
    PrintFirst(row, indent);
}

void PrintTable(const hdf::ITable& table, const std::string& indent)
{
    std::cout << indent << table.GetName() << ": table, " << table.GetNumberOfRows() << " rows";
    for (int column = 0; column < static_cast<int>(table.GetNumberOfColumns()); ++column)
    {
        std::cout << ", " << table.GetColumnName(column) << " " << TypeName(table.GetColumnDataType(column));
    }
    std::cout << "\n";
    PrintAttributes(table, indent);
    std::vector<std::string> dates;
    table.FeedStringVector(dates, 0);
    PrintFirst(dates, indent);
}

void PrintTree(const hdf::IGroup& group, const std::string& indent)
{
    std::cout << indent << group.GetName() << "\n";
    PrintAttributes(group, indent);
    const std::string inner = indent + "  ";
    for (const auto& array : group.ListArrays())
    {
        PrintArray(*array, inner);
    }
    for (const auto& growing : group.ListExtensibleArrays2D())
    {
        PrintExtensibleArray(*growing, inner);
    }
    for (const auto& table : group.ListTables())
    {
        PrintTable(*table, inner);
    }
    for (const auto& child : group.ListGroups())
    {
        PrintTree(*child, inner);
    }
}

// Reads only the rows of the days with snow out of the table, wherever they are.
void PrintSnow(const hdf::IGroup& station)
{
    const std::vector<std::string> words = ReadWords(*station.GetArray("weather"));
    std::vector<hsize_t> snowy;
    for (size_t day = 0; day < words.size(); ++day)
    {
        if (words[day] == "snow")
        {
            snowy.push_back(day);
        }
    }
    std::vector<Day> days(snowy.size());
    const DayType type;
    station.GetTable("days")->GetFromSelection(days.data(), type.id(), snowy);
    std::cout << days.size() << " days with snow:";
    for (const Day& day : days)
    {
        Check(TextOf(day.weather, sizeof(day.weather)) == "snow", "a day with snow");
        std::cout << " " << TextOf(day.date, sizeof(day.date));
    }
    std::cout << "\n";
}

struct Year
{
    double temperature = 0;
    double rain = 0;
    size_t days = 0;
};

void PrintYears(const hdf::IGroup& station)
{
    std::vector<std::string> dates;
    station.GetTable("days")->FeedStringVector(dates, 0);
    const std::vector<double> measured = ReadArray(station, "measured");
    std::map<std::string, Year> years;
    for (size_t day = 0; day < dates.size(); ++day)
    {
        const double* values = &measured[day * kMeasured];
        Year& year = years[dates[day].substr(0, 4)];
        year.rain += values[0];
        year.temperature += (values[1] + values[2]) / 2;
        ++year.days;
    }
    std::cout << std::fixed << std::setprecision(1);
    for (const auto& [name, year] : years)
    {
        std::cout << name << ": mean temperature " << year.temperature / static_cast<double>(year.days)
                  << " °C, rainfall " << year.rain << " mm\n";
    }
}

void ReadBack(const std::string& filename, const std::vector<Day>& days, MemoryLog& log)
{
    const auto file = hdf::IFile::Open(filename, "r", 0);
    const auto station = file->GetRoot()->GetGroup("/stations/seattle");
    log.Sample();
    CheckArrays(*station, days);
    CheckTable(*station, days);
    log.Sample();
    CheckAppended(*station, days);
    log.Sample();
    PrintTree(*file->GetRoot(), "");
    PrintSnow(*station);
    PrintYears(*station);
    file->Close();
    log.Sample();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::cerr << "usage: weather <folder of seattle-weather.csv> <output folder>\n";
        return 1;
    }
    try
    {
        const std::vector<Day> days = ReadDays(std::string(argv[1]) + "/seattle-weather.csv");
        const std::string filename = std::string(argv[2]) + "/weather.h5";
        MemoryLog log(std::string(argv[2]) + "/memory.log");
        Write(filename, days, log);
        ReadBack(filename, days, log);
        std::cout << "all values of " << days.size() << " days came back; look at them with: h5dump " << filename
                  << "\n";
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << failure.what() << "\n";
        return 1;
    }
}
