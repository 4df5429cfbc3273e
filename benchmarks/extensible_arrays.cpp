#include "Pairs.h"
#include "extensible_arrays_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <algorithm>

using tarnwick::hdf::IExtensibleArray2D;
using tarnwick::hdf::IFile;
namespace TDataType = tarnwick::hdf::TDataType;

namespace
{

constexpr unsigned int kColumns = 16;
constexpr std::size_t kRowsOfAColumn = 10000;
constexpr std::size_t kAppendedColumns = 16;
constexpr const char* kName = "rows";

struct Storage
{
    const char* word;
    unsigned int chunkRows;
    int compression;
    std::size_t mostRows; ///< Where the literal way is too slow for more.
};

// 16 doubles a row: 128 KiB and 2 MiB a chunk, below and above HDF5's chunk cache of 1 MiB.
constexpr Storage kSmallChunks = {"small-chunks", 1024, 0, 100000};
constexpr Storage kLargeChunks = {"large-chunks", 16384, 0, 100000};
constexpr Storage kLargeDeflatedChunks = {"large-deflated-chunks", 16384, 1, 100};

std::vector<double> Line(std::size_t length)
{
    std::vector<double> line(length);
    for (std::size_t i = 0; i < length; ++i)
    {
        line[i] = static_cast<double>(i % 100);
    }
    return line;
}

struct Plain
{
    explicit Plain(hid_t openFile, hid_t openSet) : file(openFile), set(openSet) {}
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;
    ~Plain()
    {
        H5Dclose(set);
        H5Fclose(file);
    }

    hid_t file;
    hid_t set;
};

Plain CreatePlain(const std::string& path, std::size_t rows, unsigned int columns, const Storage& storage)
{
    const hid_t file = plain_new_file(path.c_str());
    const hsize_t chunk[] = {storage.chunkRows, kColumns};
    return Plain(file, plain_create_extensible(file, rows, columns, chunk, storage.compression));
}

boost::shared_ptr<IExtensibleArray2D> CreateArray(IFile& file, std::size_t rows, unsigned int columns,
                                                  const Storage& storage)
{
    return file.GetRoot()->CreateExtensibleArray2D(kName, TDataType::Double, static_cast<unsigned int>(rows), columns,
                                                   storage.chunkRows, kColumns, storage.compression);
}

void RegisterAppendingRows(std::size_t rows, const Storage& storage)
{
    const auto line = Line(kColumns);
    const auto library = [=]
    {
        const auto file = IFile::Open(bench::PathOf("append-library.h5"), "w", 0);
        const auto array = CreateArray(*file, 0, kColumns, storage);
        return bench::SecondsOf(
            [&]
            {
                for (std::size_t row = 0; row < rows; ++row)
                {
                    array->AppendRowFromBuffer(line.data(), TDataType::Double);
                }
            });
    };
    const auto plain = [=]
    {
        const Plain side = CreatePlain(bench::PathOf("append-plain.h5"), 0, kColumns, storage);
        return bench::SecondsOf(
            [&]
            {
                for (std::size_t row = 0; row < rows; ++row)
                {
                    plain_append_row(side.set, kColumns, line.data());
                }
            });
    };
    bench::Compare(std::string("extensible/append-rows-") + storage.word, rows, 0.9, library, plain);
}

void RegisterAppendingColumns(std::size_t rows, const Storage& storage)
{
    const auto line = Line(rows);
    const auto library = [=]
    {
        const auto file = IFile::Open(bench::PathOf("append-library.h5"), "w", 0);
        const auto array = CreateArray(*file, rows, 0, storage);
        return bench::SecondsOf(
            [&]
            {
                for (std::size_t column = 0; column < kAppendedColumns; ++column)
                {
                    array->AppendColumnFromBuffer(line.data(), TDataType::Double);
                }
            });
    };
    const auto plain = [=]
    {
        const Plain side = CreatePlain(bench::PathOf("append-plain.h5"), rows, 0, storage);
        return bench::SecondsOf(
            [&]
            {
                for (std::size_t column = 0; column < kAppendedColumns; ++column)
                {
                    plain_append_column(side.set, rows, line.data());
                }
            });
    };
    bench::Compare(std::string("extensible/append-16-columns-") + storage.word, rows, 0.9, library, plain);
}

// A file with an array of so many rows, made when it is first asked for.
std::string Prepared(std::size_t rows, const Storage& storage)
{
    const std::string path =
        bench::PathOf("extensible-" + std::string(storage.word) + "-" + std::to_string(rows) + ".h5");
    if (!IFile::IsHDF5File(path))
    {
        const auto file = IFile::Open(path, "w", 0);
        const auto array = CreateArray(*file, rows, kColumns, storage);
        const auto line = Line(rows);
        for (unsigned int column = 0; column < kColumns; ++column)
        {
            array->WriteColumnFromBuffer(static_cast<int>(column), line.data(), TDataType::Double);
        }
    }
    return path;
}

template <typename Library, typename PlainWork>
void RegisterReading(const std::string& work, std::size_t rows, const Storage& storage, Library library,
                     PlainWork plain)
{
    const auto librarySide = [=]
    {
        const auto file = IFile::Open(Prepared(rows, storage), "r", 0);
        const auto array = file->GetRoot()->GetExtensibleArray2D(kName);
        std::vector<double> values(std::max<std::size_t>(rows, kColumns));
        return bench::SecondsOf([&] { library(*array, values.data()); });
    };
    const auto plainSide = [=]
    {
        const hid_t file = plain_old_file(Prepared(rows, storage).c_str());
        const Plain side(file, plain_open_extensible(file));
        std::vector<double> values(std::max<std::size_t>(rows, kColumns));
        return bench::SecondsOf([&] { plain(side.set, values.data()); });
    };
    bench::Compare("extensible/" + work + "-" + storage.word, rows, 0.9, librarySide, plainSide);
}

void RegisterReadingBack(std::size_t rows, const Storage& storage)
{
    const auto readRows = [=](IExtensibleArray2D& array, double* values)
    {
        for (std::size_t row = 0; row < rows; ++row)
        {
            array.ReadRowToBuffer(static_cast<int>(row), values, TDataType::Double);
        }
    };
    const auto readRowsPlainly = [=](hid_t set, double* values)
    {
        for (std::size_t row = 0; row < rows; ++row)
        {
            plain_read_row(set, row, kColumns, values);
        }
    };
    const auto readColumns = [=](IExtensibleArray2D& array, double* values)
    {
        for (unsigned int column = 0; column < kColumns; ++column)
        {
            array.ReadColumnToBuffer(static_cast<int>(column), values, TDataType::Double);
        }
    };
    const auto readColumnsPlainly = [=](hid_t set, double* values)
    {
        for (unsigned int column = 0; column < kColumns; ++column)
        {
            plain_read_column(set, column, rows, values);
        }
    };
    RegisterReading("read-rows", rows, storage, readRows, readRowsPlainly);
    RegisterReading("read-16-columns", rows, storage, readColumns, readColumnsPlainly);
}

} // namespace

void bench::RegisterWork()
{
    for (const Storage& storage : {kSmallChunks, kLargeChunks, kLargeDeflatedChunks})
    {
        for (const std::size_t rows : Sizes({100, 1000, 10000, 100000}))
        {
            if (rows <= storage.mostRows)
            {
                RegisterAppendingRows(rows, storage);
                RegisterReadingBack(rows, storage);
            }
        }
        RegisterAppendingColumns(kRowsOfAColumn, storage);
    }
}
