#include "Fixture.h"

#include <climits>

namespace tarnwick::hdf::tests
{

struct File : HdfTest
{
    std::string Read(const std::string& name) const
    {
        std::ifstream stream(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    auto Open(const std::string& name, const std::string& mode) { return IFile::Open(Path(name), mode, 0); }
    const std::string noHandle = "Failed to obtain a valid file handle for filename: " + Path("");
};

TEST_F(File, WhatIsNoWholeHdf5FileNoModeOrNoCompressionIsRefusedUnchanged)
{
    std::filesystem::create_directory(Path("directory"));
    std::ofstream(Path("text")) << "no HDF5 file";
    Open("whole", "w");
    std::ofstream(Path("truncated")) << Read("whole").substr(0, 700);
    using Row = std::tuple<std::string, bool, bool, std::string>;
    for (const auto& [name, exists, isHdf5, modes] :
         {Row{"directory", false, false, " "}, Row{"no/file", false, false, " "}, Row{"text", true, false, " w "},
          Row{"truncated", true, true, " w "}, Row{"missing", false, false, " r+ w "},
          Row{"whole", true, true, " r r+ w "}})
    {
        EXPECT_EQ(IFile::FileExists(Path(name)), exists) << name;
        EXPECT_EQ(IFile::IsHDF5File(Path(name)), isHdf5) << name;
        const std::string content = exists ? Read(name) : "";
        for (const int level : {10, -1, INT_MIN, INT_MAX})
        {
            EXPECT_EQ(FailureOf([&] { IFile::Open(Path(name), "w", level); }),
                      "invalid compression value; must be 0 to 9 (inclusive)");
        }
        for (const std::string mode : {"", "R", "W", "r ", "rw", "w+", "a", "r", "r+", "w"})
        {
            const bool isMode = mode == "r" || mode == "r+" || mode == "w";
            const bool opens = isMode && modes.find(" " + mode + " ") != std::string::npos;
            EXPECT_EQ(WordsOf([&] { Open(name, mode); }), opens    ? ""
                                                          : isMode ? noHandle + name + ":"
                                                                   : "invalid file mode: " + mode);
            EXPECT_TRUE(opens || !exists || Read(name) == content) << name << mode;
            const unsigned int version = name == "missing" && mode == "r+" ? 0 : 1;
            EXPECT_TRUE(!opens || Open(name, "r")->GetAPIVersion() == version) << name << mode;
        }
    }
}

TEST_F(File, OnesRemovedWhileOpenGoOnAndHandlesOnOneFileCloseAlone)
{
    const std::string name = std::string(250, 'd') + "/Z\xC3\xBC" + std::string(240, 'r');
    std::filesystem::create_directory(Path(std::string(250, 'd')));
    const auto removed = Open(name, "w");
    std::filesystem::remove(Path(name));
    const auto first = Open(name, "w");
    const auto second = Open(name, "r+");
    EXPECT_EQ(WordsOf([&] { Open(name, "w"); }), noHandle + name + ":");
    EXPECT_EQ(second->GetFileName(), Path(name));
    const auto group = first->GetRoot()->CreateGroup("g");
    removed->GetRoot()->CreateGroup("removed")->Flush();
    removed->Close();
    second->GetRoot()->GetGroup("g");
    second->Close();
    second->Close();
    EXPECT_TRUE(second->IsClosed() && second->GetRoot() == nullptr && second->GetAPIVersion() == 1);
    EXPECT_EQ(FailureOf([&] { second->GetFileName(); }), "Couldn't retrieve file name");
    group->SetAttr("text", "open still");
    EXPECT_FALSE(first->GetRoot()->HasGroup("removed"));
    H5Fclose(first->FileID());
    EXPECT_EQ(FailureOf([&] { first->Close(); }), "Couldn't retrieve file name");
    EXPECT_TRUE(!first->IsClosed() && group->IsValid());
}

} // namespace tarnwick::hdf::tests
