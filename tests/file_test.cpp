#include "PlainHdf5.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <iterator>

namespace tarnwick::hdf::tests
{

class File : public HdfTest
{
protected:
    std::string Read(const std::string& name) const
    {
        std::ifstream stream(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void Open(const std::string& name, const std::string& mode, int level = 0) { IFile::Open(Path(name), mode, level); }
    std::string NoHandle(const std::string& name) const
    {
        return "Failed to obtain a valid file handle for filename: " + Path(name) + ":";
    }
};

TEST_F(File, AWrongCompressionOrModeTouchesNoFile)
{
    std::ofstream(Path("kept")) << "kept";
    for (const int level : {10, -1, INT_MIN, INT_MAX})
    {
        EXPECT_EQ(FailureOf([&] { Open("kept", "w", level); }),
                  "invalid compression value; must be 0 to 9 (inclusive)");
    }
    for (const std::string mode : {"", "R", "W", "r ", "rw", "w+", "a"})
    {
        EXPECT_EQ(FailureOf([&] { Open("kept", mode, 9); }), "invalid file mode: " + mode);
    }
    EXPECT_EQ(Read("kept"), "kept");
}

TEST_F(File, WhatIsNoWholeHdf5FileIsRefusedUnchangedByEveryModeButW)
{
    std::filesystem::create_directory(Path("directory"));
    std::ofstream(Path("text")) << "no HDF5 file";
    Open("whole", "w");
    std::ofstream(Path("truncated")) << Read("whole").substr(0, 700);
    using Row = std::tuple<std::string, bool, bool, std::string>;
    for (const auto& [name, exists, isHdf5, modes] :
         {Row{"directory", false, false, ""}, Row{"no/file", false, false, ""}, Row{"text", true, false, " w"},
          Row{"truncated", true, true, " w"}, Row{"missing", false, false, " r+ w"},
          Row{"whole", true, true, " r r+ w"}})
    {
        EXPECT_EQ(IFile::FileExists(Path(name)), exists) << name;
        EXPECT_EQ(IFile::IsHDF5File(Path(name)), isHdf5) << name;
        for (const std::string mode : {"r", "r+", "w"})
        {
            const std::string content = exists ? Read(name) : "";
            const bool opens = (modes + " ").find(" " + mode + " ") != std::string::npos;
            EXPECT_EQ(WordsOf([&] { Open(name, mode); }), opens ? "" : NoHandle(name)) << name << mode;
            EXPECT_TRUE(opens || !exists || Read(name) == content) << name << mode;
        }
    }
}

TEST_F(File, OnlyWEmptiesAndMarksTheVersionAndRWritesNothing)
{
    using Row = std::tuple<std::string, std::string, unsigned int, bool>;
    for (const auto& [name, mode, version, hadGroup] :
         {Row{"a", "w", 1, false}, Row{"a", "r+", 1, true}, Row{"a", "r", 1, true}, Row{"a", "w", 1, false},
          Row{"b", "r+", 0, false}, Row{"b", "r+", 0, true}, Row{"b", "r", 0, true}})
    {
        const auto file = IFile::Open(Path(name), mode, 9);
        const auto root = file->GetRoot();
        EXPECT_TRUE(file->GetAPIVersion() == version && root->GetDefaultCompression() == 9) << name << mode;
        EXPECT_TRUE(root->HasGroup("old") == hadGroup && root->ListAttrs().empty()) << name << mode;
        EXPECT_EQ(root->GetNumberOfAttrs(), static_cast<int>(version));
        EXPECT_EQ(WordsOf([&] { root->CreateGroup(mode); }), mode == "r" ? "could not create group 'r':" : "");
        hadGroup ? nullptr : root->CreateGroup("old");
    }
}

TEST_F(File, RPlusNeverEmptiesAFileThatCannotBeRead)
{
    std::ofstream(Path("secret")) << "secret";
    chmod(Path("secret").c_str(), S_IWUSR | S_IWOTH);
    const auto openAsNobody = [&]
    {
        const bool stillRoot = geteuid() == 0 && setresuid(65534, 65534, 65534) != 0;
        const bool refused = WordsOf([&] { Open("secret", "r+"); }) == NoHandle("secret");
        _exit(refused && !IFile::FileExists(Path("secret")) && !stillRoot ? 0 : 1);
    };
    EXPECT_EXIT(openAsNobody(), ::testing::ExitedWithCode(0), "");
    chmod(Path("secret").c_str(), S_IRUSR);
    EXPECT_EQ(Read("secret"), "secret");
}

TEST_F(File, AnOpenOneCannotBeEmptiedAndAClosedOneAnswersWhatItKnows)
{
    const std::string name = std::string(250, 'd') + "/Z\xC3\xBC" + std::string(240, 'r');
    std::filesystem::create_directory(Path(std::string(250, 'd')));
    auto file = IFile::Open(Path(name), "w", 0);
    EXPECT_EQ(file->GetFileName(), Path(name));
    EXPECT_EQ(WordsOf([&] { Open(name, "w"); }), NoHandle(name));
    const auto group = file->GetRoot()->CreateGroup("g");
    const hid_t id = file->FileID();
    file->Close();
    file->Close();
    EXPECT_TRUE(file->IsClosed() && file->GetRoot() == nullptr && !group->IsValid() && file->FileID() == id);
    EXPECT_TRUE(file->GetAPIVersion() == 1 && file->GetEncoding() == H5T_CSET_UTF8);
    EXPECT_EQ(FailureOf([&] { file->GetFileName(); }), "Couldn't retrieve file name");
    file = IFile::Open(Path("a"), "w", 0);
    H5Fclose(file->FileID());
    EXPECT_EQ(FailureOf([&] { file->Close(); }), "Couldn't retrieve file name");
    EXPECT_TRUE(!file->IsClosed() && file->GetRoot()->IsValid());
}

} // namespace tarnwick::hdf::tests
