// What the kernel still lets a confined process do.

#include "Sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

bool HasLandlock()
{
#if defined(__SANITIZE_ADDRESS__)
    return false;  // whose search for leaks it would stop
#endif
    return syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) > 0;
}

bool MayOpen(const std::string& strPath, int nFlags)
{
    return CDescriptor(open(strPath.c_str(), nFlags | O_CLOEXEC, 0666)).IsValid();
}

// In a process of its own: there is no way back.
class CSandboxTest : public ::testing::Test
{
protected:
    CSandboxTest()
    {
        GTEST_FLAG_SET(death_test_style, "fast");
        fs::create_directories(m_folder.GetPath("root/dir"));
        m_folder.WriteFile("root/file", "inside");
        m_folder.WriteFile("secret", "outside");
        m_root = CDescriptor(open(m_folder.GetPath("root").c_str(), O_PATH | O_CLOEXEC));
    }
    void SetUp() override
    {
        if (!HasLandlock())
        {
            GTEST_SKIP() << "no Landlock here";
        }
    }

    // Each says what it could not do, or could.
    void ExpectNothingOutside() const
    {
        Check(!MayOpen(m_folder.GetPath("secret"), O_RDONLY), "read outside");
        Check(!MayOpen(m_folder.GetPath("secret"), O_WRONLY), "write outside");
        Check(!MayOpen(m_folder.GetPath("new"), O_WRONLY | O_CREAT), "create outside");
        Check(!MayOpen("/etc/passwd", O_RDONLY), "read /etc/passwd");
        Check(truncate(m_folder.GetPath("secret").c_str(), 0) != 0, "truncate outside");
        Check(unlink(m_folder.GetPath("secret").c_str()) != 0, "delete outside");
        Check(mkdir(m_folder.GetPath("sub").c_str(), 0777) != 0, "make a folder outside");
        Check(rename(Inside("file").c_str(), m_folder.GetPath("moved").c_str()) != 0,
              "move a file outside");
        Check(link(m_folder.GetPath("secret").c_str(), Inside("stolen").c_str()) != 0,
              "link a file from outside");
        Check(MayOpen("/dev/null", O_RDONLY), "/dev/null");
    }
    static void Check(bool bGood, const char* pszWhat)
    {
        if (!bGood)
        {
            fprintf(stderr, "%s\n", pszWhat);
            _exit(1);
        }
    }
    std::string Inside(const std::string& strName) const
    {
        return m_folder.GetPath("root/" + strName);
    }

    CTempFolder m_folder;
    CDescriptor m_root;
};

using SandboxDeathTest = CSandboxTest;

}  // namespace

TEST_F(SandboxDeathTest, LeavesWhatAServerNeedsInsideAndNothingOutside)
{
    const auto Work = [this]
    {
        Check(ConfineTo(m_root, false), "confine");
        ExpectNothingOutside();
        Check(MayOpen(Inside("file"), O_RDONLY), "read");
        Check(MayOpen(Inside("dir/new"), O_RDWR | O_CREAT | O_TRUNC), "create");
        Check(MayOpen(Inside("dir/new"), O_RDWR | O_TRUNC), "truncate");
        Check(rename(Inside("dir/new").c_str(), Inside("dir/other").c_str()) == 0, "rename");
        Check(mkdir(Inside("dir/sub").c_str(), 0777) == 0, "make a folder");
        Check(unlink(Inside("file").c_str()) == 0, "delete");
        _exit(0);
    };
    EXPECT_EXIT(Work(), ::testing::ExitedWithCode(0), "");
}

TEST_F(SandboxDeathTest, ReadOnlyLeavesReading)
{
    const auto Work = [this]
    {
        Check(ConfineTo(m_root, true), "confine");
        ExpectNothingOutside();
        Check(MayOpen(Inside("file"), O_RDONLY), "read");
        Check(!MayOpen(Inside("file"), O_WRONLY), "write");
        Check(!MayOpen(Inside("new"), O_WRONLY | O_CREAT), "create");
        Check(mkdir(Inside("sub").c_str(), 0777) != 0, "make a folder");
        Check(unlink(Inside("file").c_str()) != 0, "delete");
        _exit(0);
    };
    EXPECT_EXIT(Work(), ::testing::ExitedWithCode(0), "");
}

TEST(Sandbox, IsToldWithTheServersStart)
{
    const CTempFolder folder;
    CToolProcess tool({"serve", "--root", folder.GetPath(), "--port", "0", "--json"});
    EXPECT_EQ(tool.WaitForEvent("listening")["sandbox"], HasLandlock() ? "landlock" : "none");
}

// The server itself would complete the upload: its folder is open.
TEST(Sandbox, FolderThatIsMovedOutIsOutOfReach)
{
    if (!HasLandlock())
    {
        GTEST_SKIP() << "no Landlock here";
    }
    CServedFolder served;
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Upfi(2, 6, 0, u"dir/f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    peer.Send(Wire::Upfb(2, 0, "abc"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    fs::rename(served.GetPath("dir"), served.Around().GetPath("moved"));
    peer.Send(Wire::Upfb(2, 1, "def"));
    EXPECT_EQ(peer.ReceiveToEnd(), "") << "what is not stored is not acknowledged";
    EXPECT_EQ(served.Tool().WaitForEvent("failed")["request"], "upload");
    EXPECT_FALSE(FileExists(served.Around().GetPath("moved/f")));
}
