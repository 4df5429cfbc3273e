#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ObjectLookup.h>

#include <ctime>

namespace tarnwick::hdf::tests
{

/// A file with a group, a data set and a named type at "g", "data" and "type", and links that lead to them, to the root,
/// nowhere and to a file that is missing.
struct Paths : OpenFileTest
{
    Paths()
    {
        int numbers[] = {1, 2, 3};
        const hid_t at = root->LocationID();
        const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
        root->CreateGroup("g/h/i");
        root->CreateArrayFromBuffer("data", numbers, TDataType::Int, 3, 1);
        H5Tcommit1(at, "type", type.get());
        H5Lcreate_soft("/g", at, "soft", H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft("/", at, "up", H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft("nowhere", at, "dangling", H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_soft("nowhere", at, "g/dangling", H5P_DEFAULT, H5P_DEFAULT);
        H5Lcreate_external("missing.h5", "/", at, "outside", H5P_DEFAULT, H5P_DEFAULT);
    }
};

std::string Repeated(const std::string& level, int times)
{
    std::string path = level;
    for (int i = 1; i < times; ++i)
    {
        path += "/" + level;
    }
    return path;
}

/// What CheckObjectOfType says to one level after the other, each from the start of the path.
std::string AnswerLevelByLevel(hid_t location, const std::string& name)
{
    const CumulativePathPrefixes prefixes(name);
    for (size_t level = 0; level < prefixes.size(); ++level)
    {
        if (H5Lexists(location, prefixes[level].c_str(), H5P_DEFAULT) <= 0 ||
            H5Oexists_by_name(location, prefixes[level].c_str(), H5P_DEFAULT) <= 0)
        {
            return TextOf([] { CheckResult(-1, "Group does not exist"); });
        }
    }
    const ScopedGroup group(H5Gopen1(location, name.c_str()));
    H5Eclear1();
    return group.get() >= 0 ? "" : TextOf([] { CheckResult(-1, "Group does not exist"); });
}

TEST_F(Paths, AreAnsweredWithTheTracebackOfTheFirstLevelThatIsMissing)
{
    const std::vector<std::string> names = {"/",
                                            "//",
                                            "g",
                                            "/g",
                                            "g/",
                                            "//g//h///i/",
                                            "no",
                                            "no/x",
                                            "no/x/y/z",
                                            "g/no",
                                            "g/no/x",
                                            "g/h/i/no",
                                            "g/h/i/no/x/y/z/a",
                                            "data",
                                            "data/x",
                                            "data/x/y",
                                            "type",
                                            "type/x",
                                            "soft/h/i",
                                            "soft/no",
                                            "soft/no/x",
                                            "dangling",
                                            "dangling/x",
                                            "dangling/x/y",
                                            "g/dangling/x/y/z",
                                            "outside",
                                            "outside/x",
                                            "outside/x/y",
                                            ".",
                                            "./g",
                                            "g/.",
                                            "g/./h",
                                            "g/./no",
                                            "no/.",
                                            "..",
                                            "g/..",
                                            "g/../g",
                                            ".g",
                                            "g/h./i",
                                            Repeated("up", 15) + "/g",
                                            Repeated("up", 17) + "/g",
                                            Repeated("up", 40),
                                            Repeated("x", 100),
                                            "g/h/i/" + Repeated("x", 100)};
    for (const std::string& name : names)
    {
        for (const hid_t location : {root->LocationID(), root->GetGroup("g")->LocationID()})
        {
            EXPECT_EQ(TextOf([&] { CheckObjectOfType("Group", location, name, H5O_TYPE_GROUP); }),
                      AnswerLevelByLevel(location, name))
                << name;
        }
    }
}

TEST_F(Paths, HaveAPrefixForEachLevel)
{
    struct Row
    {
        std::string name;
        Names prefixes;
    };
    for (const Row& row : {Row{"", {}}, Row{"/", {"/"}}, Row{"//", {"/"}}, Row{"a/", {"a"}}, Row{"a//b", {"a", "a/b"}},
                           Row{"/a/b", {"/", "/a", "/a/b"}}, Row{"a/b/c", {"a", "a/b", "a/b/c"}}})
    {
        const CumulativePathPrefixes prefixes(row.name);

        Names found;
        for (size_t level = 0; level < prefixes.size(); ++level)
        {
            found.push_back(prefixes[level]);
        }
        EXPECT_EQ(found, row.prefixes) << row.name;
    }
}

TEST_F(Paths, OfManyLevelsTakeTimeAndMemoryThatGrowWithTheirLength)
{
    const std::string existing = Repeated("level", 1000);
    root->CreateGroup(existing);
    const long before = PeakKilobytes();
    const std::clock_t start = std::clock();

    EXPECT_TRUE(root->HasGroup(existing));
    EXPECT_FALSE(root->HasGroup(existing + "/" + existing));
    EXPECT_FALSE(root->HasGroup(Repeated("no", 64000)));
    EXPECT_EQ(WordsOf([&] { root->GetGroup(Repeated("no", 64000)); }), "Group does not exist:");

    EXPECT_LT(double(std::clock() - start) / CLOCKS_PER_SEC, 1);
    EXPECT_LT(PeakKilobytes() - before, 100 * 1024) << "kilobytes";
}

} // namespace tarnwick::hdf::tests
