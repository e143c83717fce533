#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <vector>

#include "ServerFixture.h"
#include "WXSPDirectoryRequests.h"

namespace
{

// Calls of the whole process, counted whatever they answer.
std::atomic<int> g_nFileCalls{0};

}  // namespace

extern "C"
{
    int __real_access(const char* pszPath, int nMode);
    int __real_mkdir(const char* pszPath, mode_t mode);
    int __real_stat(const char* pszPath, void* pInfo);
    int __real_stat64(const char* pszPath, void* pInfo);

    int __wrap_access(const char* pszPath, int nMode)
    {
        ++g_nFileCalls;
        return __real_access(pszPath, nMode);
    }

    int __wrap_mkdir(const char* pszPath, mode_t mode)
    {
        ++g_nFileCalls;
        return __real_mkdir(pszPath, mode);
    }

    int __wrap_stat(const char* pszPath, void* pInfo)
    {
        ++g_nFileCalls;
        return __real_stat(pszPath, pInfo);
    }

    int __wrap_stat64(const char* pszPath, void* pInfo)
    {
        ++g_nFileCalls;
        return __real_stat64(pszPath, pInfo);
    }
}

namespace
{

class CDirectoryTest : public CUntimedServerTest
{
protected:
    CDirectoryTest()
    {
        Start();
        m_peer = Browse();
    }
    void MakeDir(const std::string& strPath, uint32_t dwResult)
    {
        Exchange(m_peer, Wire::Cdir(5, Widen(strPath)), Wire::Result("CDRT", 5, dwResult));
    }
    void Delete(const std::string& strPath, uint32_t dwResult)
    {
        Exchange(m_peer, Wire::Delt(6, Widen(strPath)), Wire::Result("DTRT", 6, dwResult));
    }

    CRawSocket m_peer;
};
using NameConnection = CDirectoryTest;
using CreateDir = CDirectoryTest;
using DeleteTree = CDirectoryTest;

TEST_F(NameConnection, HostLearnsNameAndTask)
{
    Exchange(m_peer, Wire::Namc(0xFFFFFFFF, u"\u00C4rger"), Wire::Result("NAMR", 0xFFFFFFFF, 0));
    const auto requests = m_host.GetRequests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].m_eRequest, KS_REQUEST_NAME_CONNECTION);
    EXPECT_EQ(requests[0].m_strName, "\xC3\x84rger");
    EXPECT_NE(requests[0].m_lTask, 0);
}

TEST_F(NameConnection, VersionWordOfTheReplyHoldsNothingOfTheHeap)
{
    m_peer.Send(Wire::Namc(1, u"x"));
    EXPECT_EQ(Wire::GetU32(m_peer.ReceivePacket(), 0), 0U);
}

TEST_F(NameConnection, EmptyNameIsAName)
{
    Exchange(m_peer, Wire::Namc(1, u""), Wire::Result("NAMR", 1, 0));
    Delete("/nothing", 0);
    m_peer.Close();
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(m_host.GetRequests()[1].m_strConnection, "");
    EXPECT_EQ(m_host.GetDisconnects(), (std::vector<std::string>{""}));
}

TEST_F(NameConnection, SecondNameReplacesTheFirst)
{
    Exchange(m_peer, Wire::Namc(1, u"first"), Wire::Result("NAMR", 1, 0));
    Delete("/nothing", 0);
    Exchange(m_peer, Wire::Namc(2, u"second"), Wire::Result("NAMR", 2, 0));
    Delete("/nothing", 0);
    m_peer.Close();
    m_host.WaitForDisconnects(1);
    const auto requests = m_host.GetRequests();
    EXPECT_EQ(requests[1].m_strConnection, "first");
    EXPECT_EQ(requests[3].m_strConnection, "second");
    EXPECT_EQ(m_host.GetDisconnects(), (std::vector<std::string>{"second"}));
}

TEST_F(NameConnection, UnnamedConnectionHasANullName)
{
    Delete("/nothing", 0);
    EXPECT_EQ(m_host.GetRequests()[0].m_strConnection, "(null)");
}

TEST_F(CreateDir, MakesEveryMissingPart)
{
    MakeDir(m_folder.GetPath("b/c"), 0);
    EXPECT_TRUE(FileExists(m_folder.GetPath("b/c")));
    const auto requests = m_host.GetRequests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].m_eRequest, KS_REQUEST_CREATE_DIR);
    EXPECT_EQ(requests[0].m_strName, m_folder.GetPath("b/c"));
    EXPECT_EQ(requests[0].m_strResolvedOnEntry, "");
}

TEST_F(CreateDir, ExistingOneIsASuccess)
{
    MakeDir(m_folder.GetPath(), 0);
}

TEST_F(CreateDir, SlashesAtTheEndAndTwiceDoNotMatter)
{
    MakeDir(m_folder.GetPath("a//b/"), 0);
    EXPECT_TRUE(FileExists(m_folder.GetPath("a/b")));
}

TEST_F(CreateDir, NameWithoutASlashThatDoesNotExistFails)
{
    MakeDir("no-such-directory-here", 8);
}

TEST_F(CreateDir, BelowTheRootAMissingOneFails)
{
    MakeDir("/no-such-directory-here", 8);
}

TEST_F(CreateDir, FileInTheWayFails)
{
    m_folder.WriteFile("file", "");
    MakeDir(m_folder.GetPath("file"), 8);
    MakeDir(m_folder.GetPath("file/below"), 8);
}

// For root every directory is writable, so a process of nobody's looks.
bool CheckAsNobody(const std::string& strPath)
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        const bool bNobody = geteuid() != 0 || setuid(65534) == 0;
        _exit(bNobody && CCreateDirRequestHandler::CheckDirExistsAndWriteLimit(strPath) ? 0 : 1);
    }
    int nStatus = -1;
    EXPECT_EQ(waitpid(pid, &nStatus, 0), pid);
    return WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
}

TEST_F(CreateDir, ReadOnlyOneIsMadeWritable)
{
    const std::string strPath = m_folder.GetPath("locked");
    ASSERT_EQ(mkdir(strPath.c_str(), 0555), 0);
    if (geteuid() == 0)
    {
        ASSERT_EQ(chmod(m_folder.GetPath().c_str(), 0755), 0);
        ASSERT_EQ(chown(strPath.c_str(), 65534, 65534), 0);
    }
    EXPECT_TRUE(CheckAsNobody(strPath + "/below"));
    struct stat info = {};
    EXPECT_EQ(stat(strPath.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0755U);
    EXPECT_TRUE(FileExists(strPath + "/below"));
}

TEST_F(CreateDir, ReadOnlyOneOfSomebodyElseIsRefused)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "only root has folders that are somebody else's";
    }
    const std::string strPath = m_folder.GetPath("locked");
    ASSERT_EQ(mkdir(strPath.c_str(), 0555), 0);
    ASSERT_EQ(chmod(m_folder.GetPath().c_str(), 0755), 0);
    EXPECT_FALSE(CheckAsNobody(strPath));
    EXPECT_FALSE(CheckAsNobody(strPath + "/below"));
}

TEST_F(CreateDir, HostMayNameAnotherPath)
{
    CServerTest::Stop();
    m_pServer = CreateOspreyServer(&m_host);
    m_host.m_fnResolve = [&](const std::string& strName) { return m_folder.GetPath(strName); };
    Start();
    m_peer = Browse();
    MakeDir("mapped", 0);
    EXPECT_TRUE(FileExists(m_folder.GetPath("mapped")));
}

// As many parts as a packet holds: each of them once was a level of recursion.
TEST_F(CreateDir, HostilePathOf65000LevelsFails)
{
    std::string strPath = m_folder.GetPath();
    while (strPath.size() < 65000)
    {
        strPath += "/x";
    }
    MakeDir(strPath, 8);
    MakeDir(std::string(65000, '/') + "none", 8);
    ExpectAlive(m_peer);
}

int CountFileCalls(const std::string& strPath, bool bExpected)
{
    const int nBefore = g_nFileCalls;
    EXPECT_EQ(CCreateDirRequestHandler::CheckDirExistsAndWriteLimit(strPath), bExpected);
    return g_nFileCalls - nBefore;
}

TEST_F(CreateDir, PathOf1900MissingPartsAsksTheFileSystemAFewTimes)
{
    std::string strParts;
    for (int i = 0; i < 1900; ++i)
    {
        strParts += "/x";
    }
    const std::string strFile = m_folder.WriteFile("file", "");
    const int nCalls = CountFileCalls(strFile + strParts, false);
    EXPECT_GT(nCalls, 0);
    EXPECT_LT(nCalls, 50);
    EXPECT_LT(CountFileCalls("/no-such-directory-here" + strParts, false), 50);
    EXPECT_LT(CountFileCalls("no-such-directory-here" + strParts, false), 50);
}

// Below a folder that has them all, each of them costs the walk through those above it.
TEST_F(CreateDir, PathOf1900ExistingPartsAsksTheFileSystemAFewTimes)
{
    std::string strPath = m_folder.GetPath();
    for (int i = 0; i < 1900; ++i)
    {
        strPath += "/x";
    }
    CountFileCalls(strPath, true);
    EXPECT_LT(CountFileCalls(strPath, true), 50);
    EXPECT_LT(CountFileCalls(strPath + "/y", true), 50);
}

// Relative paths start at the working directory: a folder of the test's own for a while.
class CRelativePaths : public ::testing::Test
{
protected:
    CRelativePaths()
    {
        EXPECT_EQ(chdir(m_folder.GetPath().c_str()), 0);
    }
    ~CRelativePaths() override
    {
        EXPECT_EQ(fchdir(m_hBefore), 0);
        close(m_hBefore);
    }
    static bool Check(const std::string& strPath)
    {
        return CCreateDirRequestHandler::CheckDirExistsAndWriteLimit(strPath);
    }
    bool IsDir(const std::string& strName) const
    {
        struct stat info = {};
        return stat(m_folder.GetPath(strName).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    }

    const int m_hBefore = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    CTempFolder m_folder;
};
using CreateDirRelative = CRelativePaths;

// Nothing is made at the working directory itself, nor at the root.
TEST_F(CreateDirRelative, WithoutAnExistingFirstPartFails)
{
    for (const char* pszPath :
         {"", "x", "x/", "x//", "a//b", "a/b/c", "dir/../new", "x/..", "/no-such-directory-here",
          "/no-such-directory-here/", "/no-such-directory-here/x"})
    {
        EXPECT_FALSE(Check(pszPath)) << pszPath;
    }
    EXPECT_EQ(rmdir(m_folder.GetPath().c_str()), 0) << "nothing was made";
    EXPECT_EQ(mkdir(m_folder.GetPath().c_str(), 0777), 0);
}

TEST_F(CreateDirRelative, BelowAnExistingFirstPartIsMade)
{
    for (const char* pszName : {"x", "a", "dir", "dots"})
    {
        ASSERT_EQ(mkdir(pszName, 0777), 0);
    }
    for (const char* pszPath : {"/", "//", "x", "x/", "x//", "a//b", "a/b/c/", "dir/../new",
                                "dots/sub/../beside", "./here", "x/.", "x/.."})
    {
        EXPECT_TRUE(Check(pszPath)) << pszPath;
    }
    for (const char* pszName : {"a/b/c", "new", "dots/sub", "dots/beside", "here"})
    {
        EXPECT_TRUE(IsDir(pszName)) << pszName;
    }
    EXPECT_FALSE(IsDir("dir/new"));
}

TEST_F(CreateDirRelative, BelowAFileOrABrokenLinkFails)
{
    m_folder.WriteFile("file", "");
    ASSERT_EQ(symlink("missing", "link"), 0);
    ASSERT_EQ(mkdir("dir", 0777), 0);
    m_folder.WriteFile("dir/file", "");
    for (const char* pszPath : {"file", "file/", "file/x", "file/../dir", "link", "link/x",
                                "dir/file", "dir/file/x/y", "dir/made/../file/x"})
    {
        EXPECT_FALSE(Check(pszPath)) << pszPath;
    }
    EXPECT_TRUE(IsDir("dir/made")) << "directories made before a failure stay";
}

TEST_F(CreateDirRelative, ThroughALinkToAFolderIsMadeThere)
{
    ASSERT_EQ(mkdir("dir", 0777), 0);
    ASSERT_EQ(symlink("dir", "link"), 0);
    EXPECT_TRUE(Check("link/below/it"));
    EXPECT_TRUE(IsDir("dir/below/it"));
}

TEST_F(DeleteTree, RemovesAFile)
{
    const std::string strPath = m_folder.WriteFile("file", "text");
    Delete(strPath, 0);
    EXPECT_FALSE(FileExists(strPath));
    EXPECT_EQ(m_host.GetRequests()[0].m_eRequest, KS_REQUEST_DELETE_TREE);
}

TEST_F(DeleteTree, MissingPathIsASuccess)
{
    Delete(m_folder.GetPath("missing"), 0);
    Delete("", 0);
}

TEST_F(DeleteTree, DirectoryIsASuccessAndStays)
{
    mkdir(m_folder.GetPath("dir").c_str(), 0777);
    Delete(m_folder.GetPath("dir"), 0);
    EXPECT_TRUE(FileExists(m_folder.GetPath("dir")));
}

TEST_F(DeleteTree, RefusedRemovalIsMinusOne)
{
    Delete("/proc/version", 0xFFFFFFFF);
}

}  // namespace
