// Whatever happens to a download, what was there before stays until the new file is whole.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "SmallDisk.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

class CDownloadSafetyTest : public ::testing::Test
{
protected:
    CDownloadSafetyTest()
    {
        m_local.WriteFile("f", "old");
    }
    // A download of "f" that may have been granted "123456", of which so much has arrived.
    std::unique_ptr<CToolProcess> Start(CPeerScript& peer, const std::string& strArrived,
                                        const CNames& listOptions = {}) const
    {
        CNames listArguments = {"download", peer.GetPeer(), "f", "-o", m_local.GetPath()};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        auto pTool = std::make_unique<CToolProcess>(listArguments);
        peer.Accept();
        const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
        const size_t nBefore = CountTemps(strArrived.size());
        peer.Socket().Send(Wire::Dfrt(dwID, 0, 6, 0) + Wire::Dfrb(dwID, strArrived));
        pTool->WaitUntil("what was sent", [&] { return CountTemps(strArrived.size()) > nBefore; });
        return pTool;
    }
    // Files under construction of a size.
    size_t CountTemps(size_t nSize) const
    {
        const CNames listNames = ListFolder(m_local.GetPath());
        return static_cast<size_t>(std::count_if(
            listNames.begin(), listNames.end(),
            [&](const std::string& strName)
            { return strName != "f" && fs::file_size(m_local.GetPath(strName)) == nSize; }));
    }
    static void Finish(CPeerScript& peer, const std::string& strRest)
    {
        // The client counts its requests: the name was 1, the file 2.
        peer.Socket().Send(Wire::Dfrb(2, strRest));
    }
    void ExpectAlone(const std::string& strContents) const
    {
        EXPECT_EQ(ListFolder(m_local.GetPath()), CNames{"f"});
        EXPECT_EQ(ReadFile(m_local.GetPath("f")), strContents);
    }

    CTempFolder m_local;
};

using DownloadSafety = CDownloadSafetyTest;

}  // namespace

TEST_F(DownloadSafety, ServerThatSendsMoreThanItAnnouncedGives1)
{
    CPeerScript peer;
    CToolProcess tool({"download", peer.GetPeer(), "f", "-o", m_local.GetPath()});
    peer.Accept();
    const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 0, 3, 0) + Wire::Dfrb(dwID, "12345"));
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_EQ(tool.GetErrors(), "osprey: f: the server announced 3 bytes and sent 5\n");
    ExpectAlone("old");
}

TEST_F(DownloadSafety, ServerThatSendsLessThanItAnnouncedGives4)
{
    CPeerScript peer;
    const auto pTool = Start(peer, "new", {"--stall-timeout", "5"});
    // The end, as a server tells it whose file has shrunk.
    Finish(peer, "");
    EXPECT_EQ(pTool->Wait(), 4);
    ExpectAlone("old");
}

TEST_F(DownloadSafety, DiskThatFillsUpGives1)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", Pattern(300000));
    const std::string strRefused = RunWithSmallDisks(
        [&]
        {
            CTempFolder folder;
            const CSmallDisk disk(folder.GetPath(), 128UL * 1024);
            folder.WriteFile("f", "old");
            const CToolRun run({"download", served.GetPeer(), "f", "-o", folder.GetPath()});
            EXPECT_EQ(run.m_nExitCode, 1);
            EXPECT_EQ(run.m_strErrors,
                      "osprey: f: it could not be written; the disk may be full\n");
            EXPECT_EQ(ListFolder(folder.GetPath()), CNames{"f"});
            EXPECT_EQ(ReadFile(folder.GetPath("f")), "old");
        });
    if (!strRefused.empty())
    {
        GTEST_SKIP() << "no disk of its own for a test: " << strRefused;
    }
}

TEST_F(DownloadSafety, ReadOnlyFileIsNotReplaced)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "new");
    ASSERT_EQ(chmod(m_local.GetPath("f").c_str(), 0444), 0);
    const CToolRun run({"download", served.GetPeer(), "f", "-o", m_local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_EQ(run.m_strErrors, "osprey: f: " + m_local.GetPath("f") + " exists and is read-only\n");
    ExpectAlone("old");
}

TEST_F(DownloadSafety, LinkThatLeadsNowhereIsReplacedItself)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "new");
    fs::remove(m_local.GetPath("f"));
    fs::create_symlink("nowhere", m_local.GetPath("f"));
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f", "-o", m_local.GetPath()}).m_nExitCode,
              0);
    EXPECT_FALSE(fs::is_symlink(m_local.GetPath("f")));
    ExpectAlone("new");
}

TEST_F(DownloadSafety, DeathInTheMiddleLeavesTheOldFileAndTheNextRunTidiesUp)
{
    CPeerScript peer;
    const auto pTool = Start(peer, "new");
    pTool->Signal(SIGKILL);
    EXPECT_EQ(pTool->Wait(), -SIGKILL);
    EXPECT_EQ(ReadFile(m_local.GetPath("f")), "old");
    EXPECT_EQ(CountTemps(3), 1U);
    CServedFolder served;
    served.Around().WriteFile("root/f", "123456");
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f", "-o", m_local.GetPath()}).m_nExitCode,
              0);
    ExpectAlone("123456");
}

TEST_F(DownloadSafety, DeathAtAnyMomentLeavesTheOldFileOrTheNewOne)
{
    const std::string strNew = Pattern(3000000);
    CServedFolder served;
    served.Around().WriteFile("root/f", strNew);
    size_t nOld = 0;
    for (useconds_t dwMicroseconds = 0; dwMicroseconds < 60000; dwMicroseconds += 2000)
    {
        m_local.WriteFile("f", "old");
        CToolProcess tool({"download", served.GetPeer(), "f", "-o", m_local.GetPath()});
        usleep(dwMicroseconds);
        tool.Signal(SIGKILL);
        tool.Wait();
        const std::string strNow = ReadFile(m_local.GetPath("f"));
        ASSERT_TRUE(strNow == "old" || strNow == strNew) << strNow.size();
        nOld += strNow == "old" ? 1 : 0;
    }
    EXPECT_GT(nOld, 0U) << "no death came in time";
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f", "-o", m_local.GetPath()}).m_nExitCode,
              0);
    ExpectAlone(strNew);
}

TEST_F(DownloadSafety, TwoRunsOfOneTargetGiveWholeFilesAndTheLastOneStays)
{
    CPeerScript peers[2];
    const auto pFirst = Start(peers[0], "123");
    // It also sweeps up what dead runs left, and this one lives.
    const auto pSecond = Start(peers[1], "abc");
    Finish(peers[1], "def");
    EXPECT_EQ(pSecond->Wait(), 0) << pSecond->GetErrors();
    EXPECT_EQ(ReadFile(m_local.GetPath("f")), "abcdef");
    Finish(peers[0], "456");
    EXPECT_EQ(pFirst->Wait(), 0) << pFirst->GetErrors();
    ExpectAlone("123456");
}
