// The real tool fetches, from the real server or from a scripted one.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "DownloadCommand.h"
#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

class CDownloadToolTest : public ::testing::Test
{
protected:
    // A run whose first file has half arrived.
    std::unique_ptr<CToolProcess> StartDownload(CPeerScript& peer) const
    {
        auto pTool = std::make_unique<CToolProcess>(
            CNames{"download", peer.GetPeer(), "f", "-o", m_local.GetPath()});
        peer.Accept();
        const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
        peer.Socket().Send(Wire::Dfrt(dwID, 0, 6, 0) + Wire::Dfrb(dwID, "new"));
        pTool->WaitUntil("half a file",
                         [this]
                         {
                             for (const std::string& strName : ListFolder(m_local.GetPath()))
                             {
                                 if (strName != "f" && fs::file_size(m_local.GetPath(strName)) == 3)
                                 {
                                     return true;
                                 }
                             }
                             return false;
                         });
        return pTool;
    }
    void ExpectOldFileAlone() const
    {
        EXPECT_EQ(ListFolder(m_local.GetPath()), CNames{"f"});
        EXPECT_EQ(ReadFile(m_local.GetPath("f")), "old");
    }

    CTempFolder m_local;
};

using DownloadTool = CDownloadToolTest;

}  // namespace

TEST_F(DownloadTool, FilesArriveWhole)
{
    CServedFolder served;
    fs::create_directory(served.GetPath("dir"));
    served.Around().WriteFile("root/dir/big", Pattern(131073));
    served.Around().WriteFile("root/\u00fc \u65e5", "");
    const CToolRun run({"download", served.GetPeer(), "dir/big", "\u00fc \u65e5", "-o",
                        m_local.GetPath("out/deep")});
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(ListFolder(m_local.GetPath("out/deep")), (CNames{"big", "\u00fc \u65e5"}));
    EXPECT_EQ(ReadFile(m_local.GetPath("out/deep/big")), Pattern(131073));
    ASSERT_EQ(run.m_listLines.size(), 3U) << run.m_strOutput;
    EXPECT_EQ(run.m_listLines[0].find("received dir/big: 128.0 KiB in "), 0U);
    EXPECT_EQ(run.m_listLines[2].find("2 files received, 128.0 KiB in "), 0U);
}

TEST_F(DownloadTool, FilesGoToTheWorkingFolderUnlessToldOtherwise)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "1234");
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f"}, m_local.GetPath()).m_nExitCode, 0);
    EXPECT_EQ(ReadFile(m_local.GetPath("f")), "1234");
}

TEST_F(DownloadTool, ReplacedFileHandsItsModeOn)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "new");
    ASSERT_EQ(chmod(m_local.WriteFile("f", "old").c_str(), 0750), 0);
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f", "-o", m_local.GetPath()}).m_nExitCode,
              0);
    struct stat info
    {
    };
    ASSERT_EQ(stat(m_local.GetPath("f").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0750U);
    EXPECT_EQ(ReadFile(m_local.GetPath("f")), "new");
}

TEST_F(DownloadTool, LinkStaysAndItsFileIsReplaced)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "new");
    fs::create_directory(m_local.GetPath("real"));
    m_local.WriteFile("real/target", "old");
    fs::create_symlink("real/target", m_local.GetPath("f"));
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f", "-o", m_local.GetPath()}).m_nExitCode,
              0);
    EXPECT_TRUE(fs::is_symlink(m_local.GetPath("f")));
    EXPECT_EQ(ReadFile(m_local.GetPath("real/target")), "new");
}

TEST_F(DownloadTool, MissingFileGives1AndLeavesTheOldOne)
{
    m_local.WriteFile("f", "old");
    CServedFolder served;
    served.Around().WriteFile("root/g", "1");
    const CToolRun run({"download", served.GetPeer(), "f", "dir/..", "g", "-o", m_local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 2);
    const CToolRun second({"download", served.GetPeer(), "f", "g", "-o", m_local.GetPath()});
    EXPECT_EQ(second.m_nExitCode, 1);
    EXPECT_EQ(second.m_strErrors, "osprey: f: not found at the server, or refused\n");
    EXPECT_EQ(ListVisible(m_local.GetPath()), (CNames{"f", "g"}));
    EXPECT_EQ(ReadFile(m_local.GetPath("f")), "old");
}

TEST_F(DownloadTool, FolderInTheWayGives1)
{
    fs::create_directory(m_local.GetPath("f"));
    CServedFolder served;
    served.Around().WriteFile("root/f", "1");
    const CToolRun run({"download", served.GetPeer(), "f", "-o", m_local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_NE(run.m_strErrors.find("exists and is no regular file"), std::string::npos);
}

TEST_F(DownloadTool, OutputThatIsNoFolderGives1)
{
    const CToolRun run({"download", "127.0.0.1:1", "f", "-o", m_local.WriteFile("file", "")});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_NE(run.m_strErrors.find("cannot use the folder"), std::string::npos);
}

TEST_F(DownloadTool, RefusedConnectionGives3)
{
    const CToolRun run(
        {"download", "127.0.0.1:" + std::to_string(FreePort()), "f", "-o", m_local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_TRUE(ListFolder(m_local.GetPath()).empty());
}

TEST_F(DownloadTool, LostConnectionGives4AndLeavesTheOldFile)
{
    m_local.WriteFile("f", "old");
    CPeerScript peer;
    const auto pTool = StartDownload(peer);
    peer.Socket().Reset();
    EXPECT_EQ(pTool->Wait(), 4);
    EXPECT_NE(pTool->GetErrors().find("osprey: f: the connection was lost on the way\n"),
              std::string::npos);
    ExpectOldFileAlone();
}

TEST_F(DownloadTool, InterruptGives130AndLeavesTheOldFile)
{
    m_local.WriteFile("f", "old");
    CPeerScript peer;
    const auto pTool = StartDownload(peer);
    pTool->Signal(SIGINT);
    peer.Expect("CAOP");
    EXPECT_EQ(pTool->Wait(), 130);
    EXPECT_EQ(pTool->GetErrors(), "osprey: interrupted\n");
    ExpectOldFileAlone();
}

TEST_F(DownloadTool, SecondInterruptEndsAtOnceAndLeavesTheOldFile)
{
    const CEndWithoutJoin unjoined;
    m_local.WriteFile("f", "old");
    CPeerScript peer;
    const auto pTool = StartDownload(peer);
    pTool->Signal(SIGINT);
    peer.Expect("CAOP");
    pTool->Signal(SIGINT);
    EXPECT_EQ(pTool->Wait(), 130);
    ExpectOldFileAlone();
}

TEST_F(DownloadTool, RefusalWithAnotherCodeIsNamed)
{
    CPeerScript peer;
    CToolProcess tool({"download", peer.GetPeer(), "f", "-o", m_local.GetPath()});
    peer.Accept();
    const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 77, 0, 0));
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_EQ(tool.GetErrors(), "osprey: f: the server answered with code 77\n");
    EXPECT_TRUE(ListFolder(m_local.GetPath()).empty());
}

TEST(DownloadPlan, FilesAreNamedAfterTheLastPart)
{
    std::vector<CDownloadEntry> listEntries;
    std::string strReason;
    ASSERT_TRUE(PlanDownload({"a", "d/b", "d\\c", "FILESUBMIT|r|x\\d", "FILESUBMIT|r|e", "f|g"},
                             "out", listEntries, strReason));
    CNames listTargets;
    for (const CDownloadEntry& entry : listEntries)
    {
        listTargets.push_back(entry.m_strTarget);
    }
    EXPECT_EQ(listTargets, (CNames{"out/a", "out/b", "out/c", "out/d", "out/e", "out/f|g"}));
}

TEST(DownloadPlan, NamesWithoutALastPartAreRefused)
{
    for (const char* pszName : {"", "/", "d/", "..", "d/..", "d\\.", "\xFF"})
    {
        std::vector<CDownloadEntry> listEntries;
        std::string strReason;
        EXPECT_FALSE(PlanDownload({pszName}, ".", listEntries, strReason)) << pszName;
        EXPECT_NE(strReason.find("does not name a file"), std::string::npos);
    }
}

TEST(DownloadPlan, TwoNamesOfOneFileAreRefused)
{
    std::vector<CDownloadEntry> listEntries;
    std::string strReason;
    EXPECT_FALSE(PlanDownload({"a/f", "b/f"}, ".", listEntries, strReason));
    EXPECT_NE(strReason.find("one file"), std::string::npos);
}
