#include "Fixture.h"

#include <utility>

#include <dlfcn.h>
#include <sys/wait.h>

namespace
{

std::function<void()> beforeTheNextCreation; // what somebody else does in the last moment

} // namespace

// Takes the place of HDF5's own for the library's objects in this program.
extern "C" hid_t H5Fcreate(const char* name, unsigned int flags, hid_t creationList, hid_t accessList)
{
    static const auto real = reinterpret_cast<decltype(&H5Fcreate)>(dlsym(RTLD_NEXT, "H5Fcreate"));
    if (const auto act = std::exchange(beforeTheNextCreation, nullptr))
    {
        act();
    }
    return real(name, flags, creationList, accessList);
}

namespace tarnwick::hdf::tests
{

/// A second process, which ends without HDF5's own end: what this process has open is none of its business.
class OtherProcess
{
public:
    using Body = std::function<void(const std::function<void()>& waitForFinish)>;

    /// Runs `body` in the other process up to the call of what it is given.
    explicit OtherProcess(const Body& body)
    {
        EXPECT_EQ(pipe(m_ready), 0);
        EXPECT_EQ(pipe(m_finish), 0);
        m_process = fork();
        if (m_process == 0)
        {
            Run(body);
        }
        close(m_ready[1]);
        close(m_finish[0]);
        char byte = 0;
        EXPECT_EQ(read(m_ready[0], &byte, 1), 1) << "the other process failed before it was ready";
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess()
    {
        close(m_ready[0]);
        Finish();
    }

    /// Lets the other process go on, and waits for its end.
    void Finish()
    {
        if (m_process < 0)
        {
            return;
        }
        int status = 0;
        close(m_finish[1]);
        waitpid(m_process, &status, 0);
        EXPECT_EQ(status, 0) << "the other process failed";
        m_process = -1;
    }

private:
    [[noreturn]] void Run(const Body& body)
    {
        close(m_finish[1]);
        const auto waitForFinish = [&]
        {
            char byte = 0;
            if (write(m_ready[1], "r", 1) != 1 || read(m_finish[0], &byte, 1) != 0)
            {
                _exit(2);
            }
        };
        _exit(TextOf([&] { body(waitForFinish); }).empty() ? 0 : 1);
    }

    int m_ready[2] = {-1, -1};
    int m_finish[2] = {-1, -1};
    pid_t m_process = -1;
};

struct TwoProcesses : HdfTest
{
    TwoProcesses() { Open("kept.h5", "w")->GetRoot()->SetAttr("text", "kept"); }
};

TEST_F(TwoProcesses, EmptyNoFileThatTheOtherHasOpen)
{
    for (const std::string mode : {"r", "r+", "w"})
    {
        SCOPED_TRACE(mode);
        OtherProcess other(
            [&](const auto& waitForFinish)
            {
                const auto file = Open("kept.h5", mode);
                if (mode != "r")
                {
                    file->GetRoot()->SetAttr("text", "kept");
                    file->GetRoot()->Flush();
                }
                waitForFinish();
                file->Close();
            });
        const std::string before = Read("kept.h5");

        const std::string failure = TextOf([&] { Open("kept.h5", "w"); });

        EXPECT_EQ(failure.rfind("Failed to obtain a valid file handle for filename: " + Path("kept.h5") + ":\n#0:", 0),
                  0U)
            << failure;
        EXPECT_NE(failure.find("unable to lock"), std::string::npos) << failure;
        EXPECT_EQ(Read("kept.h5"), before);
        other.Finish();
        EXPECT_EQ(Open("kept.h5", "r")->GetRoot()->GetAttr("text"), "kept");
    }
    EXPECT_FALSE(Open("kept.h5", "w")->GetRoot()->HasAttr("text"));
}

TEST_F(TwoProcesses, LoseNothingWhenBothMakeAMissingFile)
{
    beforeTheNextCreation = [&]
    {
        OtherProcess other(
            [&](const auto& waitForFinish)
            {
                waitForFinish();
                Open("new.h5", "r+")->GetRoot()->CreateGroup("theirs");
            });
    };

    Open("new.h5", "r+")->GetRoot()->CreateGroup("ours");

    EXPECT_TRUE(Open("new.h5", "r")->GetRoot()->HasGroup("ours"));
    EXPECT_TRUE(Open("new.h5", "r")->GetRoot()->HasGroup("theirs"));
}

TEST_F(TwoProcesses, AreNotTakenForThisOneWhichHdf5RefusesToEmptyItsFileUnder)
{
    for (const std::string mode : {"r", "r+"})
    {
        const auto file = Open("kept.h5", mode);

        const std::string failure = TextOf([&] { Open("kept.h5", "w"); });

        EXPECT_NE(failure.find("unable to truncate a file which is already open"), std::string::npos) << failure;
        EXPECT_EQ(file->GetRoot()->GetAttr("text"), "kept");
    }
}

TEST_F(TwoProcesses, FindAMissingFileBehindASymbolicLink)
{
    std::filesystem::create_symlink("target.h5", Path("link.h5"));

    Open("link.h5", "r+")->GetRoot()->SetAttr("text", "made");

    EXPECT_EQ(Open("target.h5", "r")->GetRoot()->GetAttr("text"), "made");
}

} // namespace tarnwick::hdf::tests
