#include "Sides.h"

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;

namespace
{

constexpr std::size_t kGroups = 10000;
constexpr std::size_t kFanOut = 10;

const std::vector<std::string>& FilePaths(std::size_t count)
{
    std::filesystem::create_directories(bench::PathOf("files"));
    return bench::Names(bench::PathOf("files/f"), count);
}

template <typename Work>
bench::Side ForEachFile(Work work)
{
    return [=](std::size_t count)
    {
        const std::vector<std::string>& paths = FilePaths(count);
        return bench::Measured(
            [&]
            {
                for (const std::string& path : paths)
                {
                    work(path);
                }
            });
    };
}

bench::Side OpenWithTheLibrary(const std::string& mode)
{
    return ForEachFile([=](const std::string& path) { IFile::Open(path, mode, 0)->Close(); });
}

void ReadMark(hid_t file)
{
    unsigned int version = 0;
    const bench::Id mark(H5Aopen(file, bench::kMark, H5P_DEFAULT));
    H5Aread(mark, H5T_NATIVE_UINT, &version);
}

// One access list serves all files.
template <typename Work>
bench::Side ForEachPlainFile(Work work)
{
    return [=](std::size_t count)
    {
        const std::vector<std::string>& paths = FilePaths(count);
        return bench::Measured(
            [&]
            {
                const bench::Id access = bench::PlainAccessList();
                for (const std::string& path : paths)
                {
                    work(path, access.id);
                }
            });
    };
}

void CreatePlainFile(const std::string& path, hid_t access)
{
    const bench::Id file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access));
    bench::LowerHitRateThreshold(file);
    bench::WriteMark(file);
}

void OpenPlainFile(const std::string& path, hid_t access)
{
    const bench::Id file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access));
    bench::LowerHitRateThreshold(file);
    ReadMark(file);
}

void CreateFileByCpp(const std::string& path)
{
    const unsigned int version = 1;
    const hsize_t one = 1;
    const H5::H5File file(path, H5F_ACC_TRUNC);
    H5::Attribute mark = file.createAttribute(bench::kMark, H5::PredType::NATIVE_UINT, H5::DataSpace(1, &one));
    mark.write(H5::PredType::NATIVE_UINT, &version);
}

void OpenFileByCpp(const std::string& path)
{
    unsigned int version = 0;
    const H5::H5File file(path, H5F_ACC_RDONLY);
    file.openAttribute(bench::kMark).read(H5::PredType::NATIVE_UINT, &version);
}

// Each group holds ten of the next level, so that most levels of a path are there already, as in a tree of measurements.
const std::vector<std::string>& GroupPaths(std::size_t levels)
{
    static std::vector<std::string> paths[7];
    if (paths[levels].empty())
    {
        paths[levels] = bench::Names("leaf", kGroups);
        for (std::size_t i = 0; i < kGroups; ++i)
        {
            std::size_t above = i;
            for (std::size_t level = 1; level < levels; ++level)
            {
                above /= kFanOut;
                paths[levels][i] = "group" + std::to_string(above) + "/" + paths[levels][i];
            }
        }
    }
    return paths[levels];
}

void CreateGroups(IGroup& root, std::size_t levels)
{
    for (const std::string& path : GroupPaths(levels))
    {
        root.CreateGroup(path);
    }
}

void CreatePlainGroups(hid_t root, std::size_t levels)
{
    const bench::Id links(H5Pcreate(H5P_LINK_CREATE));
    H5Pset_create_intermediate_group(links, 1);
    for (const std::string& path : GroupPaths(levels))
    {
        H5Gclose(H5Gcreate2(root, path.c_str(), links, H5P_DEFAULT, H5P_DEFAULT));
    }
}

void CreateGroupsByCpp(const H5::Group& root, std::size_t levels)
{
    H5::LinkCreatPropList links;
    links.setCreateIntermediateGroup(true);
    for (const std::string& path : GroupPaths(levels))
    {
        root.createGroup(path, links);
    }
}

} // namespace

bench::Rows bench::FileRows()
{
    const Row groups = {"files and groups/create 10,000 groups", "levels =", {1, 2, 3, 4, 5, 6}, 1.15};
    Rows rows = {On(groups, {"groups"}, Root{}, CreateGroups, CreatePlainGroups, CreateGroupsByCpp)};
    const auto add = [&](const std::string& work, double target, Side library, Side plain, Side cpp = {})
    {
        rows.push_back({"files and groups/" + work, "files", {10, 100, 1000}, target, 0, library, plain, cpp});
    };
    const auto addAlone = [&](const std::string& part, auto finish)
    {
        add("create files with " + part, 0, {},
            ForEachPlainFile([=](const std::string& path, hid_t access)
                             { finish(Id(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access))); }));
    };
    add("create and close files", 1.15, OpenWithTheLibrary("w"), ForEachPlainFile(CreatePlainFile),
        ForEachFile(CreateFileByCpp));
    add("create and close files, beside an access list for each", 0, OpenWithTheLibrary("w"),
        ForEachFile([](const std::string& path) { CreatePlainFile(path, PlainAccessList()); }));
    add("open and close files", 1.15, OpenWithTheLibrary("r"), ForEachPlainFile(OpenPlainFile),
        ForEachFile(OpenFileByCpp));
    addAlone("neither mark nor cache setting", [](hid_t /*file*/) {});
    addAlone("the cache setting", LowerHitRateThreshold);
    addAlone("the mark", WriteMark);
    return rows;
}
