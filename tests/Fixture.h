#pragma once

#include <tarnwickhdf/tarnwickhdf.h>

#include <tarnwick/IException.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tarnwick::hdf::tests
{

/// How many HDF5 ids of each kind are open in this process.
struct IdCounts
{
    static IdCounts Now();
    std::array<hsize_t, 7> counts{};
};
bool operator==(const IdCounts& one, const IdCounts& other);
std::ostream& operator<<(std::ostream& out, const IdCounts& ids);

/// Every test gets a fresh directory and must leave as many open ids behind as it found.
class HdfTest : public ::testing::Test
{
protected:
    HdfTest();
    ~HdfTest() override;

    void TearDown() override;

    std::string Path(const std::string& name) const { return (m_directory / name).string(); }

private:
    std::filesystem::path m_directory;
    IdCounts m_idsBefore;
};

/// A test with a file that is open for writing.
class OpenFileTest : public HdfTest
{
protected:
    OpenFileTest() : file(IFile::Open(Path("test.h5"), "w", 0)), root(file->GetRoot()) {}

    void TearDown() override
    {
        root.reset();
        file.reset();
        HdfTest::TearDown();
    }

    /// Closes the file and opens it again.
    void Reopen(const std::string& mode = "r+");

    boost::shared_ptr<IFile> file;
    boost::shared_ptr<IGroup> root;
};

/// What a call throws as std::runtime_error or as a failed precondition, "" if it throws nothing. The call must leave the
/// open ids as they were.
template <typename Call>
std::string FailureOf(Call call)
{
    const IdCounts before = IdCounts::Now();
    std::string text;
    try
    {
        call();
    }
    catch (const std::runtime_error& failure)
    {
        text = failure.what();
    }
    catch (const IPreconditionException& failure)
    {
        text = failure.what();
    }
    EXPECT_EQ(before, IdCounts::Now()) << "after: " << text;
    return text;
}

/// FailureOf, without the traceback: the operation's own words with ":" behind them, or all of a plain failure.
template <typename Call>
std::string WordsOf(Call call)
{
    const std::string text = FailureOf(call);
    const size_t traceback = text.find(":\n");
    return traceback == std::string::npos ? text : text.substr(0, traceback + 1);
}

/// Calls with the words that they fail with, as WordsOf tells them; the number of the row goes to the report.
inline void ExpectWords(const std::vector<std::pair<std::function<void()>, std::string>>& calls)
{
    for (size_t i = 0; i < calls.size(); ++i)
    {
        EXPECT_EQ(WordsOf(calls[i].first), calls[i].second) << "call " << i;
    }
}

} // namespace tarnwick::hdf::tests
