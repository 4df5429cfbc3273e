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
    std::string NoHandle(const std::string& name) const
    {
        return "Failed to obtain a valid file handle for filename: " + Path(name) + ":";
    }
};

TEST_F(File, AWrongCompressionOrModeTouchesNoFile)
{
    std::ofstream(Path("kept")) << "kept";
    for (const std::string name : {"kept", "new"})
    {
        for (const int compression : {10, -1, INT_MIN, INT_MAX})
        {
            EXPECT_EQ(FailureOf([&] { IFile::Open(Path(name), "w", compression); }),
                      "invalid compression value; must be 0 to 9 (inclusive)");
        }
        for (const std::string mode : {"", "R", "W", "r ", "rw", "w+", "a"})
        {
            EXPECT_EQ(FailureOf([&] { IFile::Open(Path(name), mode, 0); }), "invalid file mode: " + mode);
        }
    }
    EXPECT_EQ(Read("kept"), "kept");
    EXPECT_FALSE(std::filesystem::exists(Path("new")));
    EXPECT_EQ(IFile::Open(Path("new"), "w", 9)->GetRoot()->GetDefaultCompression(), 9);
}

TEST_F(File, WhatIsNoWholeHdf5FileIsRefusedUnchangedByEveryModeButW)
{
    std::filesystem::create_directory(Path("directory"));
    std::ofstream(Path("text")) << "no HDF5 file";
    IFile::Open(Path("whole"), "w", 0);
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
            EXPECT_EQ(WordsOf([&] { IFile::Open(Path(name), mode, 0); }), opens ? "" : NoHandle(name)) << name << mode;
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
        const auto file = IFile::Open(Path(name), mode, 0);
        const auto root = file->GetRoot();
        EXPECT_EQ(file->GetAPIVersion(), version) << name << mode;
        EXPECT_EQ(root->HasGroup("old"), hadGroup) << name << mode;
        EXPECT_EQ(root->GetNumberOfAttrs(), static_cast<int>(version));
        EXPECT_TRUE(root->ListAttrs().empty());
        EXPECT_EQ(WordsOf([&] { root->CreateGroup(mode); }), mode == "r" ? "could not create group 'r':" : "");
        hadGroup ? nullptr : root->CreateGroup("old");
    }
}

TEST_F(File, TheVersionMarkIsOneUnsignedNumberAndAnyOtherIsRefused)
{
    const std::string name = "__vorl_api_version";
    const std::pair<hid_t, hsize_t> marks[] = {{H5T_NATIVE_UINT, 1}, {H5T_NATIVE_UINT, 2}, {H5T_C_S1, 1}};
    for (const auto& [type, length] : marks)
    {
        IFile::Open(Path("a"), "w", 0);
        {
            const ScopedFile file(H5Fopen(Path("a").c_str(), H5F_ACC_RDWR, H5P_DEFAULT));
            const ScopedAttribute mark(H5Aopen(file.get(), name.c_str(), H5P_DEFAULT));
            const ScopedType stored(H5Aget_type(mark.get()));
            const ScopedSpace space(H5Aget_space(mark.get()));
            EXPECT_TRUE(H5Tequal(stored.get(), H5T_NATIVE_UINT) > 0 && H5Sget_simple_extent_ndims(space.get()) == 1);
            H5Adelete(file.get(), name.c_str());
            const ScopedSpace other(H5Screate_simple(1, &length, nullptr));
            ScopedAttribute(H5Acreate1(file.get(), name.c_str(), type, other.get(), H5P_DEFAULT));
        }
        const bool readable = type == H5T_NATIVE_UINT && length == 1;
        EXPECT_EQ(WordsOf([&] { IFile::Open(Path("a"), "r", 0); }),
                  readable ? "" : "could not read attribute: " + name + ":");
    }
}

TEST_F(File, RPlusNeverEmptiesAFileThatCannotBeRead)
{
    std::ofstream(Path("secret")) << "secret";
    chmod(Path("secret").c_str(), S_IWUSR | S_IWOTH);
    const auto openAsNobody = [&]
    {
        const uid_t nobody = 65534;
        const bool stillRoot = geteuid() == 0 && setresuid(nobody, nobody, nobody) != 0;
        const bool refused = WordsOf([&] { IFile::Open(Path("secret"), "r+", 0); }) == NoHandle("secret");
        _exit(refused && !IFile::FileExists(Path("secret")) && !stillRoot ? 0 : 1);
    };
    EXPECT_EXIT(openAsNobody(), ::testing::ExitedWithCode(0), "");
    chmod(Path("secret").c_str(), S_IRUSR);
    EXPECT_EQ(Read("secret"), "secret");
}

TEST_F(File, AnOpenOneCannotBeEmptiedAndAClosedOneAnswersWhatItKnows)
{
    const std::string part(250, 'd');
    const std::string name = part + "/" + part + "/" + part + "/" + part + "/Z\xC3\xBCrich";
    std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
    auto file = IFile::Open(Path(name), "w", 0);
    const auto group = file->GetRoot()->CreateGroup("g");
    const hid_t id = file->FileID();
    EXPECT_EQ(file->GetFileName(), Path(name));
    EXPECT_EQ(WordsOf([&] { IFile::Open(Path(name), "w", 0); }), NoHandle(name));
    EXPECT_FALSE(file->IsClosed());
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
