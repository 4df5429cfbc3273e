#include "Pairs.h"
#include "files_groups_plain.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <filesystem>
#include <memory>

using tarnwick::hdf::IFile;

namespace
{

constexpr std::size_t kFanOut = 10;

std::vector<std::string> FilePaths(const std::string& kind, std::size_t count)
{
    const std::string folder = bench::PathOf(kind);
    std::filesystem::create_directories(folder);
    return bench::Names(folder + "/f", count);
}

void RegisterFiles(std::size_t count)
{
    const auto library = std::make_shared<const bench::Texts>(FilePaths("files-library", count));
    const auto plain = std::make_shared<const bench::Texts>(FilePaths("files-plain", count));
    const auto createPlain = [=](int parts)
    {
        return [=]
        {
            return bench::SecondsOf([&] { plain_create_files(plain->pointers.data(), count, parts); });
        };
    };
    const auto openAll = [=](const std::string& mode)
    {
        return [=]
        {
            return bench::SecondsOf(
                [&]
                {
                    for (const std::string& path : library->strings)
                    {
                        IFile::Open(path, mode, 0)->Close();
                    }
                });
        };
    };
    bench::Compare("files/create", count, 1.15, openAll("w"), createPlain(PLAIN_ALL));
    bench::Compare("files/create-against-an-access-list-each", count, 0, openAll("w"),
                   createPlain(PLAIN_ALL | PLAIN_OWN_LIST));
    bench::Measure("files/create-bare", count, createPlain(PLAIN_BARE));
    bench::Measure("files/create-with-cache-setting", count, createPlain(PLAIN_CACHE));
    bench::Measure("files/create-with-mark", count, createPlain(PLAIN_MARK));
    bench::Compare("files/open", count, 1.15, openAll("r"),
                   [=] { return bench::SecondsOf([&] { plain_open_files(plain->pointers.data(), count); }); });
}

// Each group holds ten of the next level, so that most levels of a path are there already, as in a tree of
// measurements.
std::vector<std::string> GroupPaths(std::size_t count, std::size_t levels)
{
    std::vector<std::string> paths = bench::Names("leaf", count);
    for (std::size_t i = 0; i < count; ++i)
    {
        std::size_t above = i;
        for (std::size_t level = 1; level < levels; ++level)
        {
            above /= kFanOut;
            paths[i] = "group" + std::to_string(above) + "/" + paths[i];
        }
    }
    return paths;
}

void RegisterGroups(std::size_t count, std::size_t levels)
{
    const auto paths = std::make_shared<const bench::Texts>(GroupPaths(count, levels));
    const auto library = [=]
    {
        const auto file = IFile::Open(bench::PathOf("groups-library.h5"), "w", 0);
        const auto root = file->GetRoot();
        return bench::SecondsOf(
            [&]
            {
                for (const std::string& path : paths->strings)
                {
                    root->CreateGroup(path);
                }
            });
    };
    const auto plain = [=]
    {
        const hid_t file = plain_new_file(bench::PathOf("groups-plain.h5").c_str());
        const double seconds = bench::SecondsOf([&] { plain_create_groups(file, paths->pointers.data(), count); });
        H5Fclose(file);
        return seconds;
    };
    bench::Compare("groups/create-" + std::to_string(levels) + "-levels", count, 1.15, library, plain);
}

} // namespace

void bench::RegisterWork()
{
    for (const std::size_t count : Sizes({10, 100, 1000}))
    {
        RegisterFiles(count);
    }
    for (const std::size_t levels : {1, 2, 3, 4, 5, 6})
    {
        RegisterGroups(IsQuick() ? 1000 : 10000, levels);
    }
}
