// The real tool sends, to the real server or to a scripted one.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>

#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

// A folder "src" with a few files, 65,541 bytes in all.
class CSubmitToolTest : public ::testing::Test
{
protected:
    CSubmitToolTest()
    {
        fs::create_directories(m_local.GetPath("src/sub/deep"));
        m_local.WriteFile("src/a.txt", "hello");
        m_local.WriteFile("src/sub/big", Pattern(65536));
        m_local.WriteFile("src/sub/deep/\u00fc \u65e5", "");
    }
    // A run that a signal will meet while its first file is under way.
    std::unique_ptr<CToolProcess> StartUpload(CPeerScript& peer) const
    {
        auto pTool = std::make_unique<CToolProcess>(
            CNames{"submit", peer.GetPeer(), m_local.GetPath("src/sub/big")});
        peer.Accept();
        const std::string strRequest = peer.Expect("UPFI");
        peer.Socket().Send(Wire::Upfr(Wire::GetU32(strRequest, 12), 0, 0));
        peer.Expect("UPFB");
        return pTool;
    }

    CTempFolder m_local;
};

using SubmitTool = CSubmitToolTest;

}  // namespace

TEST_F(SubmitTool, FolderArrivesWhole)
{
    CServedFolder served;
    const CToolRun run({"submit", served.GetPeer(), m_local.GetPath("src"), "--name", "me"});
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(run.m_strErrors, "");
    EXPECT_EQ(ListFolder(served.GetRoot()), ListFolder(m_local.GetPath()));
    EXPECT_EQ(ReadFile(served.GetPath("src/a.txt")), "hello");
    EXPECT_EQ(ReadFile(served.GetPath("src/sub/big")), Pattern(65536));
    served.Tool().WaitForEvent("disconnected");
    std::string strOrder;
    for (const CEvent& event : served.Tool().GetEvents())
    {
        const std::string strEvent = event["event"].As<std::string>();
        strOrder += strEvent == "folder" ? "d" : strEvent == "upload" ? "f" : "";
    }
    EXPECT_EQ(strOrder, "dddfff");
}

TEST_F(SubmitTool, PipeGetsALineAFileAndASummary)
{
    CServedFolder served;
    const CToolRun run({"submit", served.GetPeer(), m_local.GetPath("src")});
    ASSERT_EQ(run.m_listLines.size(), 4U) << run.m_strOutput;
    EXPECT_EQ(run.m_listLines[0].find("sent src/a.txt: 5 B in "), 0U);
    EXPECT_EQ(run.m_listLines[1].find("sent src/sub/big: 64.0 KiB in "), 0U);
    EXPECT_EQ(run.m_listLines[2].find("sent src/sub/deep/\u00fc \u65e5: 0 B in "), 0U);
    EXPECT_EQ(run.m_listLines[3].find("3 files and 3 folders sent, 64.0 KiB in "), 0U);
    EXPECT_EQ(run.m_strOutput.find_first_of("\r\x1B"), std::string::npos);
}

TEST_F(SubmitTool, JsonLinesTellTheSame)
{
    CServedFolder served;
    CToolProcess tool({"submit", served.GetPeer(), m_local.GetPath("src"), "--json"});
    EXPECT_EQ(tool.Wait(), 0);
    tool.WaitForEvent("connected");
    EXPECT_EQ(tool.WaitForEvent("folder")["path"], "src");
    EXPECT_EQ(tool.WaitForEvent("sent")["path"], "src/a.txt");
    const CEvent big = tool.WaitForEvent("sent");
    EXPECT_EQ(big["path"], "src/sub/big");
    EXPECT_EQ(big["bytes"], 65536);
    const CEvent summary = tool.WaitForEvent("summary");
    EXPECT_EQ(summary["files"], 3);
    EXPECT_EQ(summary["folders"], 3);
    EXPECT_EQ(summary["failed"], 0);
    EXPECT_EQ(summary["bytes"], 65541);
}

TEST_F(SubmitTool, QuietSaysNothing)
{
    CServedFolder served;
    const CToolRun run({"submit", served.GetPeer(), m_local.GetPath("src"), "-q"});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strOutput + run.m_strErrors, "");
}

TEST_F(SubmitTool, ToNamesTheFolderAtTheServer)
{
    CServedFolder served;
    const CToolRun run(
        {"submit", served.GetPeer(), m_local.GetPath("src/a.txt"), "--to", "in/today/"});
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(served.List(), (CNames{"in/", "in/today/", "in/today/a.txt"}));
}

TEST_F(SubmitTool, DotIsSentUnderTheFoldersName)
{
    CServedFolder served;
    const CToolRun run({"submit", served.GetPeer(), "."}, m_local.GetPath("src/sub"));
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(served.List(), (CNames{"sub/", "sub/big", "sub/deep/", "sub/deep/\u00fc \u65e5"}));
}

TEST_F(SubmitTool, RemoteNamesHaveTheLongForm)
{
    CPeerScript peer;
    CToolProcess tool({"submit", peer.GetPeer(), "src/sub/", "--to", "R"}, 0, m_local.GetPath());
    peer.Accept();
    std::string strRequest = peer.Expect("CDIR");
    EXPECT_EQ(strRequest.substr(16), Wire::Name(u"FILESUBMIT|R|sub"));
    peer.Socket().Send(Wire::Result("CDRT", Wire::GetU32(strRequest, 12), 0));
    strRequest = peer.Expect("CDIR");
    EXPECT_EQ(strRequest.substr(16), Wire::Name(u"FILESUBMIT|R|sub\\deep"));
}

TEST_F(SubmitTool, OneBadFileGives1AndTheOthersArrive)
{
    m_local.WriteFile("src/x\\y", "");
    CServedFolder served;
    const CToolRun run({"submit", served.GetPeer(), m_local.GetPath("src")});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_EQ(run.m_strErrors, "osprey: " + m_local.GetPath("src/x\\y") +
                                   ": a backslash in a name would arrive as a folder\n");
    EXPECT_TRUE(FileExists(served.GetPath("src/a.txt")));
    EXPECT_NE(run.m_listLines.back().find("; 1 failed"), std::string::npos);
}

TEST_F(SubmitTool, EveryRefusedFileIsNamed)
{
    CServedFolder served({"--read-only"});
    const CToolRun run(
        {"submit", served.GetPeer(), m_local.GetPath("src/a.txt"), m_local.GetPath("src/sub/big")});
    EXPECT_EQ(run.m_nExitCode, 1);
    for (const char* pszName : {"src/a.txt", "src/sub/big"})
    {
        EXPECT_NE(run.m_strErrors.find("osprey: " + m_local.GetPath(pszName) +
                                       ": the server refused the file, or could not create it\n"),
                  std::string::npos);
    }
}

TEST_F(SubmitTool, NothingToSendGives1WithoutConnecting)
{
    const CToolRun run({"submit", "127.0.0.1:1", m_local.GetPath("missing")});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_EQ(run.m_strErrors,
              "osprey: " + m_local.GetPath("missing") + ": No such file or directory\n");
}

TEST_F(SubmitTool, WrongUsageGives2)
{
    EXPECT_EQ(CToolRun({}).m_nExitCode, 2);
    EXPECT_EQ(CToolRun({"submit"}).m_nExitCode, 2);
    EXPECT_EQ(CToolRun({"submit", "h", "--nonsense", "x"}).m_nExitCode, 2);
    const CToolRun run({"submit", "h", m_local.GetPath("src"), m_local.GetPath("src")});
    EXPECT_EQ(run.m_nExitCode, 2);
    EXPECT_EQ(run.m_strOutput, "");
}

TEST_F(SubmitTool, HelpGives0OnStandardOutput)
{
    const CToolRun run({"submit", "--help"});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_NE(run.m_strOutput.find("Usage: osprey submit"), std::string::npos);
    EXPECT_EQ(run.m_strErrors, "");
}

TEST_F(SubmitTool, VersionIsTheLibrarys)
{
    const CToolRun run({"version"});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strOutput.find("osprey version: "), 0U);
}

TEST_F(SubmitTool, RefusedConnectionGives3)
{
    const std::string strPeer = "127.0.0.1:" + std::to_string(FreePort());
    const CToolRun run({"submit", strPeer, m_local.GetPath("src")});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strErrors,
              "osprey: cannot connect to " + strPeer + ": refused, or not to be reached\n");
}

TEST_F(SubmitTool, UnknownHostGives3)
{
    const CToolRun run({"submit", "nobody.invalid.", m_local.GetPath("src")});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strErrors.find("osprey: cannot find nobody.invalid.: "), 0U);
}

TEST_F(SubmitTool, ServerThatClosesBeforeItAnswersGives3)
{
    CRawServer server;
    CToolProcess tool(
        {"submit", "127.0.0.1:" + std::to_string(server.GetPort()), m_local.GetPath("src")});
    server.Accept().Reset();
    EXPECT_EQ(tool.Wait(), 3);
    EXPECT_NE(tool.GetErrors().find("cannot connect to 127.0.0.1:"), std::string::npos);
}

TEST_F(SubmitTool, LostConnectionGives4AndNamesWhatWasNotSent)
{
    CPeerScript peer;
    const std::string strBig = m_local.GetPath("src/sub/big");
    CToolProcess tool({"submit", peer.GetPeer(), strBig, m_local.GetPath("src/a.txt")});
    peer.Accept();
    const std::string strRequest = peer.Expect("UPFI");
    peer.Socket().Send(Wire::Upfr(Wire::GetU32(strRequest, 12), 0, 0));
    peer.Expect("UPFB");
    peer.Socket().Close();
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_NE(tool.GetErrors().find("osprey: " + strBig + ": the connection was lost on the way\n"),
              std::string::npos);
    EXPECT_NE(tool.GetErrors().find("lost: closed by the server; not tried: 1 file\n"),
              std::string::npos)
        << tool.GetErrors();
}

TEST_F(SubmitTool, ServerThatFallsSilentGives4)
{
    CPeerScript peer;
    CToolProcess tool(
        {"submit", peer.GetPeer(), m_local.GetPath("src/a.txt"), "--stall-timeout", "5"});
    peer.Accept();
    peer.Expect("UPFI");
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_NE(tool.GetErrors().find("nothing moved for 5 seconds"), std::string::npos);
}

TEST_F(SubmitTool, InterruptGives130AndCancelsAtTheServer)
{
    for (const int nSignal : {SIGINT, SIGTERM})
    {
        CPeerScript peer;
        const auto pTool = StartUpload(peer);
        pTool->Signal(nSignal);
        peer.Expect("CAOP");
        const std::string strRequest = peer.Expect("DELT");
        EXPECT_EQ(strRequest.substr(16), Wire::Name(u"FILESUBMIT||big"));
        peer.Socket().Send(Wire::Result("DTRT", Wire::GetU32(strRequest, 12), 0));
        EXPECT_EQ(pTool->Wait(), 130);
        EXPECT_EQ(pTool->GetErrors(), "osprey: interrupted\n");
    }
}

TEST_F(SubmitTool, InterruptWhileConnectingGives130)
{
    CRawServer server;
    CToolProcess tool(
        {"submit", "127.0.0.1:" + std::to_string(server.GetPort()), m_local.GetPath("src")});
    CRawSocket peer = server.Accept();
    peer.ReceivePacket();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 130);
}

TEST_F(SubmitTool, InterruptedUploadLeavesNothingAtTheServer)
{
    // A sparse file large enough that the signal comes first.
    const std::string strHuge = m_local.WriteFile("huge", "");
    fs::resize_file(strHuge, 64ULL << 30);
    CServedFolder served;
    CToolProcess tool({"submit", served.GetPeer(), strHuge});
    ASSERT_TRUE(tool.WaitUntil("a file under construction",
                               [&]
                               {
                                   const CNames listNames = served.List();
                                   return listNames.size() == 1 &&
                                          fs::file_size(served.GetPath(listNames[0])) > 0;
                               }));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 130);
    served.Tool().WaitForEvent("disconnected");
    EXPECT_EQ(served.List(), CNames()) << served.Tool().GetOutput();
}

TEST_F(SubmitTool, SecondInterruptEndsAtOnce)
{
    const CEndWithoutJoin unjoined;
    CPeerScript peer;
    const auto pTool = StartUpload(peer);
    const auto begin = std::chrono::steady_clock::now();
    pTool->Signal(SIGINT);
    peer.Expect("CAOP");
    peer.Expect("DELT");  // not answered: an orderly end waits a second for it
    pTool->Signal(SIGINT);
    const bool bInTime = std::chrono::steady_clock::now() - begin < std::chrono::seconds(1);
    EXPECT_EQ(pTool->Wait(), 130);
    EXPECT_TRUE(pTool->GetErrors().empty() || !bInTime) << pTool->GetErrors();
}

TEST_F(SubmitTool, ReaderThatGoesAwayEndsItQuietly)
{
    CPeerScript peer;
    CToolProcess tool({"submit", peer.GetPeer(), m_local.GetPath("src/a.txt"), "--json"});
    tool.CloseOutput();
    peer.Accept();
    EXPECT_EQ(tool.Wait(), 130);
    EXPECT_EQ(tool.GetErrors(), "");
}
