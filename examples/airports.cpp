// A table of American airports, written once and read in four ways: one column, all rows, scattered rows, as groups.
// What comes back is compared with the CSV file; a wrong value ends the program with status 1.
// Usage: airports <folder of airports.csv> <output folder> [check]
#include "Check.h"
#include "Csv.h"

#include <tarnwickhdf/typed.h>

#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace
{

namespace hdf = tarnwick::hdf;

constexpr int kCompression = 6;
// Some hundred rows in a chunk: a reader of a few rows unpacks only the chunks that they lie in.
constexpr size_t kChunkRows = 512;
constexpr int kNameColumn = 1;
constexpr int kStateColumn = 3;
constexpr size_t kFields = 7;

struct Airport
{
    hdf::FixedText<4> iata;
    hdf::FixedText<64> name;
    hdf::FixedText<40> city;
    hdf::FixedText<4> state;
    hdf::FixedText<32> country;
    double latitude;
    double longitude;
};

const hdf::RowType<Airport> kAirportType = {{"iata", &Airport::iata},          {"name", &Airport::name},
                                            {"city", &Airport::city},          {"state", &Airport::state},
                                            {"country", &Airport::country},    {"latitude", &Airport::latitude},
                                            {"longitude", &Airport::longitude}};

bool operator==(const Airport& one, const Airport& other)
{
    return one.iata == other.iata && one.name == other.name && one.city == other.city && one.state == other.state &&
           one.country == other.country && one.latitude == other.latitude && one.longitude == other.longitude;
}

std::vector<Airport> AirportsOf(const std::vector<std::vector<std::string>>& records)
{
    std::vector<Airport> airports;
    airports.reserve(records.size());
    for (const std::vector<std::string>& record : records)
    {
        airports.push_back(
            {record[0], record[1], record[2], record[3], record[4], std::stod(record[5]), std::stod(record[6])});
    }
    return airports;
}

void Write(const std::string& filename, const std::vector<Airport>& airports)
{
    const auto file = hdf::IFile::Open(filename, "w", kCompression);
    const auto table = hdf::StoreTable(*file->GetRoot(), "airports", kAirportType, airports, kCompression, kChunkRows);
    table->SetAttr("latitude, longitude", "degrees, north and east positive");
    file->Close();
}

// One column alone: HDF5 moves nothing else into memory.
std::vector<std::string> ReadColumn(const hdf::ITable& table, int column)
{
    std::vector<std::string> texts;
    table.FeedStringVector(texts, column);
    return texts;
}

void CheckNames(const hdf::ITable& table, const std::vector<Airport>& airports)
{
    const std::vector<std::string> names = ReadColumn(table, kNameColumn);
    for (size_t row = 0; row < airports.size(); ++row)
    {
        Check(names.at(row) == airports[row].name.Text(), "name of row " + std::to_string(row));
    }
    std::cout << names.size() << " names, the first: " << names.front() << ", the last: " << names.back() << "\n";
}

// Scattered rows come in the order in which they are asked for, repetitions included.
void PrintSelection(const hdf::ITable& table, const std::vector<Airport>& airports)
{
    const std::vector<hsize_t> selection = {airports.size() - 1, 7, 1234, 7, 0};
    const std::vector<Airport> read = hdf::ReadTable(table, kAirportType, selection);
    for (size_t i = 0; i < selection.size(); ++i)
    {
        Check(read[i] == airports[selection[i]], "selected row");
        std::cout << "row " << selection[i] << ": " << read[i].iata.Text() << " at " << read[i].latitude << ", "
                  << read[i].longitude << "\n";
    }
}

void PrintStates(const hdf::ITable& table)
{
    std::map<std::string, int> airportsOfState;
    for (const std::string& state : ReadColumn(table, kStateColumn))
    {
        ++airportsOfState[state];
    }
    std::cout << "airports by state:";
    for (const auto& [state, count] : airportsOfState)
    {
        std::cout << " " << state << " " << count;
    }
    std::cout << "\n";
}

} // namespace

int main(int argc, char** argv)
{
    const bool isCheck = argc == 4 && std::string(argv[3]) == "check";
    if (argc != 3 && !isCheck)
    {
        std::cerr << "usage: airports <folder of airports.csv> <output folder> [check]\n"
                     "With \"check\" the file is there already, from another run.\n";
        return 1;
    }
    hdf::KeepHdf5Quiet();
    try
    {
        const auto airports = AirportsOf(ReadCsv(std::string(argv[1]) + "/airports.csv", kFields));
        const std::string filename = std::string(argv[2]) + "/airports.h5";
        if (!isCheck)
        {
            Write(filename, airports);
        }
        const auto file = hdf::IFile::Open(filename, "r", 0);
        const auto table = file->GetRoot()->GetTable("airports");
        CheckNames(*table, airports);
        Check(hdf::ReadTable(*table, kAirportType) == airports, "rows");
        PrintSelection(*table, airports);
        PrintStates(*table);
        std::cout << "all values of " << airports.size() << " airports came back; look at them with: h5dump "
                  << filename << "\n";
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << hdf::ReasonOf(failure) << "\n";
        return 1;
    }
}
