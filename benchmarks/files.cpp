#include "Sides.h"

using namespace bench;

namespace
{

constexpr std::size_t kGroups = 10000;
constexpr std::size_t kFanOut = 10;

// Works have what they make once for all files, in the time that is measured.
template <typename Work>
Turn ForEachFile(std::size_t count)
{
    std::filesystem::create_directories(PathOf("files"));
    const std::vector<std::string>& paths = Names(PathOf("files/f"), count);
    return Measured(
        [&]
        {
            const Work work;
            ForEach(paths, work);
        });
}

struct Create
{
    void operator()(Name path) const { IFile::Open(path, "w", 0)->Close(); }
};

// One access list serves all files.
template <void (*Finish)(hid_t file)>
struct CreatePlainly
{
    Id access = PlainAccessList();
    void operator()(Name path) const { Finish(Id(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access))); }
};

void MarkAndSetCache(hid_t file)
{
    LowerHitRateThreshold(file);
    WriteMark(file);
}

void DoNothing(hid_t /*file*/)
{
}

struct CreateEachWithItsAccessList
{
    void operator()(Name path) const { CreatePlainly<MarkAndSetCache>{}(path); }
};

struct CreateByCpp
{
    void operator()(Name path) const
    {
        const unsigned int version = 1;
        const hsize_t one = 1;
        const H5::H5File file(path, H5F_ACC_TRUNC);
        H5::Attribute mark = file.createAttribute(kMark, H5::PredType::NATIVE_UINT, H5::DataSpace(1, &one));
        mark.write(H5::PredType::NATIVE_UINT, &version);
    }
};

struct Open
{
    void operator()(Name path) const { IFile::Open(path, "r", 0)->Close(); }
};

struct OpenPlainly
{
    Id access = PlainAccessList();
    void operator()(Name path) const
    {
        const Id file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access));
        LowerHitRateThreshold(file);
        unsigned int version = 0;
        const Id mark(H5Aopen(file, kMark, H5P_DEFAULT));
        H5Aread(mark, H5T_NATIVE_UINT, &version);
    }
};

struct OpenByCpp
{
    void operator()(Name path) const
    {
        unsigned int version = 0;
        const H5::H5File file(path, H5F_ACC_RDONLY);
        file.openAttribute(kMark).read(H5::PredType::NATIVE_UINT, &version);
    }
};

// Each group holds ten of the next level, so that most levels of a path are there already, as in a tree of measurements.
const std::vector<std::string>& GroupPaths(std::size_t levels)
{
    static std::vector<std::string> paths[7];
    if (paths[levels].empty())
    {
        paths[levels] = Names("leaf", kGroups);
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

struct CreateGroups
{
    void operator()(IGroup& root, std::size_t levels) const
    {
        ForEach(GroupPaths(levels), [&](Name path) { root.CreateGroup(path); });
    }
    void operator()(hid_t root, std::size_t levels) const
    {
        const Id links(H5Pcreate(H5P_LINK_CREATE));
        H5Pset_create_intermediate_group(links, 1);
        ForEach(GroupPaths(levels),
                [&](Name path) { Id(H5Gcreate2(root, path.c_str(), links, H5P_DEFAULT, H5P_DEFAULT)); });
    }
    void operator()(const H5::Group& root, std::size_t levels) const
    {
        H5::LinkCreatPropList links;
        links.setCreateIntermediateGroup(true);
        ForEach(GroupPaths(levels), [&](Name path) { root.createGroup(path, links); });
    }
};

} // namespace

bench::Rows bench::FileRows()
{
    const Reasons ownGroups = {{"*", "each group is an object with its own name and pointers that the file knows of"}};
    const Reasons ownLists = {
        {"*", "each open makes its own access list and asks for the file's name and root group, so that a file that is "
              "opened twice is seen and nothing stays open"}};
    const auto row = [&](Name work, double target, const Side& library, const Side& plain, const Side& cpp)
    {
        return Row{"files and groups/" + work, "files", {10, 100, 1000}, target, ownLists, 0, library, plain, cpp};
    };
    const Row create = row("create and close files", 1.15, ForEachFile<Create>,
                           ForEachFile<CreatePlainly<MarkAndSetCache>>, ForEachFile<CreateByCpp>);
    return {
        On({"files and groups/create 10,000 groups", "levels =", {1, 2, 3, 4, 5, 6}, 1.15, ownGroups}, {"groups"},
           Root{}, CreateGroups{}),
        create,
        Beside(create, "an access list for each", 0, ForEachFile<CreateEachWithItsAccessList>),
        row("open and close files", 1.15, ForEachFile<Open>, ForEachFile<OpenPlainly>, ForEachFile<OpenByCpp>),
        row("create files with neither mark nor cache setting", 0, {}, ForEachFile<CreatePlainly<DoNothing>>, {}),
        row("create files with the cache setting", 0, {}, ForEachFile<CreatePlainly<LowerHitRateThreshold>>, {}),
        row("create files with the mark", 0, {}, ForEachFile<CreatePlainly<WriteMark>>, {}),
    };
}
