// Four years of weather go into an HDF5 file and come back: groups, attributes, arrays, a table, a growing array.
// Every value that comes back is compared with the CSV file; a wrong one ends the program with status 1.
// Usage: weather <folder of seattle-weather.csv> <output folder> [check]
#include "Check.h"
#include "Csv.h"

#include <tarnwickhdf/typed.h>

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace
{

namespace hdf = tarnwick::hdf;

constexpr int kCompression = 6;
constexpr size_t kDaysOfABlock = 30;
constexpr unsigned int kDaysOfAChunk = 365;

constexpr const char* kPlace = "Seattle, 47°36′ N 122°20′ W";

// A day as it lies in a row of the table.
struct Day
{
    double precipitation;
    double temp_max;
    double temp_min;
    double wind;
    hdf::FixedText<12> date;
    hdf::FixedText<12> weather;
};

bool operator==(const Day& one, const Day& other)
{
    return one.precipitation == other.precipitation && one.temp_max == other.temp_max &&
           one.temp_min == other.temp_min && one.wind == other.wind && one.date == other.date &&
           one.weather == other.weather;
}

const hdf::RowType<Day> kDayType = {{"date", &Day::date},         {"precipitation", &Day::precipitation},
                                    {"temp_max", &Day::temp_max}, {"temp_min", &Day::temp_min},
                                    {"wind", &Day::wind},         {"weather", &Day::weather}};

struct Measure
{
    const char* name;
    double Day::*value;
    const char* unit;
    const char* description;
};

constexpr std::array<Measure, 4> kMeasures = {
    {{"precipitation", &Day::precipitation, "mm", "rain and melted snow of the day"},
     {"temp_max", &Day::temp_max, "°C", "highest temperature of the day"},
     {"temp_min", &Day::temp_min, "°C", "lowest temperature of the day"},
     {"wind", &Day::wind, "m/s", "mean wind speed of the day"}}};

std::vector<Day> ReadDays(const std::string& filename)
{
    std::vector<Day> days;
    for (const std::vector<std::string>& record : ReadCsv(filename, kMeasures.size() + 2))
    {
        Day day = {};
        day.date = record.front();
        day.weather = record.back();
        for (size_t i = 0; i < kMeasures.size(); ++i)
        {
            day.*kMeasures[i].value = std::stod(record[i + 1]);
        }
        days.push_back(day);
    }
    return days;
}

// All values of one measure.
std::vector<double> ColumnOf(const std::vector<Day>& days, double Day::*value)
{
    std::vector<double> column;
    column.reserve(days.size());
    for (const Day& day : days)
    {
        column.push_back(day.*value);
    }
    return column;
}

// All values row by row, a row a day.
std::vector<double> MatrixOf(const std::vector<Day>& days)
{
    std::vector<double> matrix;
    for (const Day& day : days)
    {
        matrix.insert(matrix.end(), {day.precipitation, day.temp_max, day.temp_min, day.wind});
    }
    return matrix;
}

std::vector<std::string> WordsOf(const std::vector<Day>& days)
{
    std::vector<std::string> words;
    words.reserve(days.size());
    for (const Day& day : days)
    {
        words.push_back(day.weather.Text());
    }
    return words;
}

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
void WriteMeasures(hdf::IGroup& station, const std::vector<Day>& days, MemoryLog& log)
{
    std::vector<boost::shared_ptr<hdf::IArray>> arrays;
    for (const Measure& measure : kMeasures)
    {
        arrays.push_back(hdf::StoreArray(station, measure.name, ColumnOf(days, measure.value)));
        arrays.back()->SetAttr("unit", measure.unit);
        arrays.back()->SetAttr("description", measure.description);
        log.Sample();
    }
}

void AppendBlockByBlock(hdf::IGroup& station, const std::vector<Day>& days, MemoryLog& log)
{
    const auto growing = hdf::MakeExtensibleArray2D<double>(station, "appended", kMeasures.size(), kDaysOfAChunk);
    for (size_t first = 0; first < days.size(); first += kDaysOfABlock)
    {
        const size_t end = std::min(first + kDaysOfABlock, days.size());
        hdf::AppendRows(*growing, MatrixOf({days.begin() + static_cast<std::ptrdiff_t>(first),
                                            days.begin() + static_cast<std::ptrdiff_t>(end)}));
        log.Sample();
    }
}

void Write(const std::string& filename, const std::vector<Day>& days, MemoryLog& log)
{
    const auto file = hdf::IFile::Open(filename, "w", kCompression);
    log.Sample();
    const auto station = file->GetRoot()->CreateGroup("/stations/seattle");
    station->SetAttr("place", kPlace);
    station->SetAttr("source", "U.S. National Oceanic and Atmospheric Administration");
    hdf::StoreAttr(*station, "years", std::vector<int>{2012, 2015});
    WriteMeasures(*station, days, log);
    hdf::StoreArray(*station, "measured", MatrixOf(days), kMeasures.size());
    hdf::StoreArray(*station, "weather", WordsOf(days));
    log.Sample();
    hdf::StoreTable(*station, "days", kDayType, days);
    log.Sample();
    AppendBlockByBlock(*station, days, log);
    file->Close();
    log.Sample();
}

void CheckAll(const hdf::IGroup& station, const std::vector<Day>& days)
{
    Check(station.GetAttr("place") == kPlace, "place");
    Check(hdf::ReadAttr<std::vector<int>>(station, "years").at(1) == 2015, "years");
    for (const Measure& measure : kMeasures)
    {
        const auto array = station.GetArray(measure.name);
        Check(hdf::ReadArray<double>(*array) == ColumnOf(days, measure.value), measure.name);
        Check(array->GetAttr("unit") == measure.unit, "unit");
    }
    Check(hdf::ReadArray<double>(station, "measured") == MatrixOf(days), "measured");
    Check(hdf::ReadArray<std::string>(station, "weather") == WordsOf(days), "weather");
    Check(hdf::ReadTable(station, "days", kDayType) == days, "days");
    Check(hdf::ReadRows<double>(*station.GetExtensibleArray2D("appended")) == MatrixOf(days), "appended");
}

// Reads only the rows of the days with snow out of the table, wherever they are.
void PrintSnow(const hdf::IGroup& station)
{
    const std::vector<std::string> words = hdf::ReadArray<std::string>(station, "weather");
    std::vector<hsize_t> snowy;
    for (size_t day = 0; day < words.size(); ++day)
    {
        if (words[day] == "snow")
        {
            snowy.push_back(day);
        }
    }
    const std::vector<Day> days = hdf::ReadTable(*station.GetTable("days"), kDayType, snowy);
    std::cout << days.size() << " days with snow:";
    for (const Day& day : days)
    {
        Check(day.weather == "snow", "a day with snow");
        std::cout << " " << day.date.Text();
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
    std::map<std::string, Year> years;
    for (const Day& day : hdf::ReadTable(station, "days", kDayType))
    {
        Year& year = years[day.date.Text().substr(0, 4)];
        year.rain += day.precipitation;
        year.temperature += (day.temp_max + day.temp_min) / 2;
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
    CheckAll(*station, days);
    log.Sample();
    PrintSnow(*station);
    PrintYears(*station);
    file->Close();
    log.Sample();
}

} // namespace

int main(int argc, char** argv)
{
    const bool isCheck = argc == 4 && std::string(argv[3]) == "check";
    if (argc != 3 && !isCheck)
    {
        std::cerr << "usage: weather <folder of seattle-weather.csv> <output folder> [check]\n"
                     "With \"check\" the file is there already, from another run.\n";
        return 1;
    }
    hdf::KeepHdf5Quiet();
    try
    {
        const std::vector<Day> days = ReadDays(std::string(argv[1]) + "/seattle-weather.csv");
        const std::string filename = std::string(argv[2]) + "/weather.h5";
        MemoryLog log(std::string(argv[2]) + "/memory.log");
        if (!isCheck)
        {
            Write(filename, days, log);
        }
        ReadBack(filename, days, log);
        std::cout << "all values of " << days.size() << " days came back; look at them with: h5dump " << filename
                  << "\n";
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << hdf::ReasonOf(failure) << "\n";
        return 1;
    }
}
