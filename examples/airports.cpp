// 3,376 airports as a table of text and number columns: written at once, then read by column and by scattered rows.
// Every value that comes back is compared with the CSV file; a wrong one ends the program with status 1.
// Usage: airports <folder of airports.csv> <output folder>
#include "Csv.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>
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

struct Airport
{
    char iata[4];
    char name[64];
    char city[40];
    char state[2];
    char country[32];
    double latitude;
    double longitude;
};

struct TextColumn
{
    const char* name;
    size_t offset;
    size_t size;
};

constexpr std::array<TextColumn, 5> kTextColumns = {
    {{"iata", offsetof(Airport, iata), sizeof(Airport::iata)},
     {"name", offsetof(Airport, name), sizeof(Airport::name)},
     {"city", offsetof(Airport, city), sizeof(Airport::city)},
     {"state", offsetof(Airport, state), sizeof(Airport::state)},
     {"country", offsetof(Airport, country), sizeof(Airport::country)}}};

// An HDF5 type that is closed with its scope. The library copies the types that it is given.
class AirportType
{
public:
    AirportType()
    {
        for (const TextColumn& column : kTextColumns)
        {
            const hid_t text = H5Tcopy(H5T_C_S1);
            H5Tset_size(text, column.size);
            H5Tset_strpad(text, H5T_STR_NULLPAD);
            H5Tset_cset(text, H5T_CSET_UTF8);
            H5Tinsert(m_id, column.name, column.offset, text);
            H5Tclose(text);
        }
        H5Tinsert(m_id, "latitude", HOFFSET(Airport, latitude), H5T_NATIVE_DOUBLE);
        H5Tinsert(m_id, "longitude", HOFFSET(Airport, longitude), H5T_NATIVE_DOUBLE);
    }
    AirportType(const AirportType&) = delete;
    AirportType& operator=(const AirportType&) = delete;
    ~AirportType() { H5Tclose(m_id); }

    hid_t id() const { return m_id; }

private:
    hid_t m_id = H5Tcreate(H5T_COMPOUND, sizeof(Airport));
};

Airport ParseAirport(const std::vector<std::string>& record)
{
    Airport airport = {};
    for (size_t i = 0; i < kTextColumns.size(); ++i)
    {
        if (record[i].size() > kTextColumns[i].size)
        {
            throw std::runtime_error("too long for its column: " + record[i]);
        }
        record[i].copy(reinterpret_cast<char*>(&airport) + kTextColumns[i].offset, kTextColumns[i].size);
    }
    airport.latitude = std::stod(record[5]);
    airport.longitude = std::stod(record[6]);
    return airport;
}

void Check(bool isRight, const std::string& what)
{
    if (!isRight)
    {
        throw std::runtime_error("wrong value: " + what);
    }
}

void Write(const std::string& filename, std::vector<Airport> airports)
{
    const auto file = hdf::IFile::Open(filename, "w", kCompression);
    const AirportType type;
    const auto table = file->GetRoot()->CreateTableFromBuffer("airports", airports.data(), airports.size(), type.id(),
                                                              kCompression, -1, kChunkRows);
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

void CheckNames(const hdf::ITable& table, const std::vector<std::vector<std::string>>& records)
{
    const std::vector<std::string> names = ReadColumn(table, kNameColumn);
    Check(names.size() == records.size(), "number of rows");
    for (size_t row = 0; row < records.size(); ++row)
    {
        Check(names[row] == records[row][kNameColumn], "name of row " + std::to_string(row));
    }
    std::cout << names.size() << " names, the first: " << names.front() << ", the last: " << names.back() << "\n";
}

void CheckAllRows(const hdf::ITable& table, const std::vector<Airport>& airports)
{
    std::vector<Airport> read(airports.size());
    const AirportType type;
    table.GetToBuffer(read.data(), type.id());
    Check(std::memcmp(read.data(), airports.data(), airports.size() * sizeof(Airport)) == 0, "rows");
}

// Scattered rows come in the order in which they are asked for, repetitions included.
void PrintSelection(const hdf::ITable& table, const std::vector<Airport>& airports)
{
    const std::vector<hsize_t> selection = {airports.size() - 1, 7, 1234, 7, 0};
    std::vector<Airport> read(selection.size());
    const AirportType type;
    table.GetFromSelection(read.data(), type.id(), selection);
    for (size_t i = 0; i < selection.size(); ++i)
    {
        Check(std::memcmp(&read[i], &airports[selection[i]], sizeof(Airport)) == 0, "selected row");
        std::cout << "row " << selection[i] << ": " << std::string(read[i].iata, strnlen(read[i].iata, 4)) << " at "
                  << read[i].latitude << ", " << read[i].longitude << "\n";
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

void ReadBack(const std::string& filename, const std::vector<std::vector<std::string>>& records,
              const std::vector<Airport>& airports)
{
    const auto file = hdf::IFile::Open(filename, "r", 0);
    const auto table = file->GetRoot()->GetTable("airports");
    CheckNames(*table, records);
    CheckAllRows(*table, airports);
    PrintSelection(*table, airports);
    PrintStates(*table);
    file->Close();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::cerr << "usage: airports <folder of airports.csv> <output folder>\n";
        return 1;
    }
    try
    {
        const auto records = ReadCsv(std::string(argv[1]) + "/airports.csv", kTextColumns.size() + 2);
        std::vector<Airport> airports;
        for (const std::vector<std::string>& record : records)
        {
            airports.push_back(ParseAirport(record));
        }
        const std::string filename = std::string(argv[2]) + "/airports.h5";
        Write(filename, airports);
        ReadBack(filename, records, airports);
        std::cout << "all values of " << airports.size() << " airports came back; look at them with: h5dump "
                  << filename << "\n";
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << failure.what() << "\n";
        return 1;
    }
}
