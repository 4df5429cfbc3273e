#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

/// Just enough of CSV for the examples: one record a line, fields in double quotes may hold commas.
inline std::vector<std::string> SplitCsvLine(const std::string& line)
{
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (const char c : line)
    {
        if (c == '"')
        {
            quoted = !quoted;
        }
        else if (c == ',' && !quoted)
        {
            fields.emplace_back();
        }
        else if (c != '\r')
        {
            fields.back() += c;
        }
    }
    return fields;
}

/// All records behind the header line.
inline std::vector<std::vector<std::string>> ReadCsv(const std::string& filename, size_t fieldCount)
{
    std::ifstream file(filename);
    if (!file)
    {
        throw std::runtime_error("can't read " + filename);
    }
    std::vector<std::vector<std::string>> records;
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line))
    {
        records.push_back(SplitCsvLine(line));
        if (records.back().size() != fieldCount)
        {
            throw std::runtime_error(filename + ": not " + std::to_string(fieldCount) + " fields: " + line);
        }
    }
    return records;
}
