// The real tool watches a folder: what appears there arrives, once, whatever dies on the way.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "AppearedFiles.h"
#include "Descriptor.h"
#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

class CWatchToolTest : public ::testing::Test
{
protected:
    CWatchToolTest()
    {
        fs::create_directories(m_local.GetPath("box"));
        fs::create_directories(m_local.GetPath("elsewhere"));
    }
    std::string Put(const std::string& strName, const std::string& strContents) const
    {
        return m_local.WriteFile("box/" + strName, strContents);
    }
    std::string Box(const std::string& strName = "") const
    {
        return m_local.GetPath("box" + (strName.empty() ? "" : "/" + strName));
    }
    std::unique_ptr<CToolProcess> Watch(const std::string& strPeer,
                                        const CNames& listOptions = {}) const
    {
        CNames listArguments = {"watch", Box(), strPeer, "--json"};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        auto pTool = std::make_unique<CToolProcess>(listArguments);
        pTool->WaitForEvent("watching");
        return pTool;
    }
    // The paths of a tool's events of a kind, in their order.
    static CNames PathsOf(CToolProcess& tool, const char* pszEvent)
    {
        CNames listPaths;
        for (const CEvent& event : tool.GetEvents())
        {
            if (event["event"] == pszEvent)
            {
                listPaths.push_back(event["path"].As<std::string>());
            }
        }
        return listPaths;
    }
    static void WaitForUploads(CToolProcess& server, size_t nUploads)
    {
        server.WaitUntil(std::to_string(nUploads) + " uploads",
                         [&] { return PathsOf(server, "upload").size() >= nUploads; });
    }
    // What has arrived by now, sorted; a name twice when it came twice.
    static CNames Arrived(CServedFolder& served)
    {
        CNames listNames = PathsOf(served.Tool(), "upload");
        std::sort(listNames.begin(), listNames.end());
        return listNames;
    }
    // Ends it once it knows that so many files have arrived: what it does not know of is cancelled.
    static void ExpectOrderlyEnd(CToolProcess& tool, size_t nSent, int nSignal = SIGINT)
    {
        tool.WaitUntil(std::to_string(nSent) + " sent",
                       [&] { return PathsOf(tool, "sent").size() >= nSent; });
        tool.Signal(nSignal);
        EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
    }
    // Takes so many files at a scripted server, which has a caller; adds their names.
    static void Take(CPeerScript& peer, size_t nFiles, CNames& listTaken)
    {
        for (size_t i = 0; i < nFiles; ++i)
        {
            const std::string strRequest = peer.Expect("UPFI");
            std::string strName;
            for (size_t nAt = 36; nAt + 2 < strRequest.size(); nAt += 2)
            {
                strName += strRequest[nAt];
            }
            listTaken.push_back(strName.substr(strName.rfind('|') + 1));
            peer.Connection().TakeFile(Wire::GetU32(strRequest, 12));
        }
    }

    CTempFolder m_local;
};

using WatchTool = CWatchToolTest;

}  // namespace

TEST(AppearedFiles, PausesGrowTo30Seconds)
{
    CNames listPauses;
    for (unsigned int i = 1; i < 9; ++i)
    {
        listPauses.push_back(std::to_string(PauseSeconds(i)));
    }
    EXPECT_EQ(listPauses, (CNames{"1", "2", "4", "8", "16", "30", "30", "30"}));
}

TEST_F(WatchTool, FileThatGetsItsNameOnlyWhenItIsWrittenArrives)
{
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer());
    CDescriptor file(open(Box().c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644));
    if (!file.IsValid())
    {
        GTEST_SKIP() << "the file system has no files without a name";
    }
    ASSERT_EQ(write(file.Get(), "whole", 5), 5);
    ASSERT_EQ(
        linkat(AT_FDCWD, file.Path().c_str(), AT_FDCWD, Box("linked").c_str(), AT_SYMLINK_FOLLOW),
        0);
    file.Close();
    WaitForUploads(served.Tool(), 1);
    EXPECT_EQ(ReadFile(served.GetPath("linked")), "whole");
    ExpectOrderlyEnd(*pTool, 1);
}

TEST_F(WatchTool, EverythingThatAppearsArrivesOnce)
{
    Put("before", "1");
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer(), {"--to", "in", "--jobs", "3"});
    Put("written", Pattern(100000));
    fs::rename(m_local.WriteFile("elsewhere/x", "moved"), Box("moved in"));
    fs::create_directories(m_local.GetPath("elsewhere/d/deep"));
    m_local.WriteFile("elsewhere/d/one", "1");
    m_local.WriteFile("elsewhere/d/deep/two", "2");
    fs::rename(m_local.GetPath("elsewhere/d"), Box("d"));
    fs::create_hard_link(m_local.WriteFile("elsewhere/h", "hard"), Box("linked"));
    WaitForUploads(served.Tool(), 6);
    // Folders that came later are watched as well.
    Put("d/deep/three", "3");
    fs::create_directories(Box("made/below"));
    Put("made/below/four", "4");
    WaitForUploads(served.Tool(), 8);
    ExpectOrderlyEnd(*pTool, 8);
    EXPECT_EQ(pTool->GetErrors(), "");
    EXPECT_EQ(Arrived(served),
              (CNames{"in/before", "in/d/deep/three", "in/d/deep/two", "in/d/one", "in/linked",
                      "in/made/below/four", "in/moved in", "in/written"}));
    EXPECT_EQ(ListFolder(served.GetPath("in")), ListFolder(Box()));
    EXPECT_EQ(ReadFile(served.GetPath("in/written")), Pattern(100000));
}

TEST_F(WatchTool, TwoHundredFilesAtOnceArriveOnce)
{
    fs::create_directories(m_local.GetPath("elsewhere/many"));
    CNames listNames;
    for (int i = 100; i < 300; ++i)
    {
        listNames.push_back("many/" + std::to_string(i));
        m_local.WriteFile("elsewhere/" + listNames.back(), std::to_string(i));
    }
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer(), {"--jobs", "4"});
    fs::rename(m_local.GetPath("elsewhere/many"), Box("many"));
    WaitForUploads(served.Tool(), listNames.size());
    Put("last", "");
    WaitForUploads(served.Tool(), listNames.size() + 1);
    listNames.insert(listNames.begin(), "last");
    EXPECT_EQ(Arrived(served), listNames);
    EXPECT_EQ(ReadFile(served.GetPath("many/217")), "217");
    ExpectOrderlyEnd(*pTool, 201, SIGTERM);
}

TEST_F(WatchTool, FileIsNotSentWhileSomebodyWritesIt)
{
    const int nBefore = open(Put("before", "half ").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_GE(nBefore, 0);
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer());
    const int nAfter = open(Box("after").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_GE(nAfter, 0);
    ASSERT_EQ(write(nAfter, "half ", 5), 5);
    // Others go on meanwhile, for longer than a file settles.
    for (const char* pszName : {"m1", "m2", "m3", "m4"})
    {
        Put(pszName, "");
        WaitForUploads(served.Tool(), static_cast<size_t>(pszName[1] - '0'));
    }
    EXPECT_EQ(Arrived(served), (CNames{"m1", "m2", "m3", "m4"}));
    for (const int nFile : {nBefore, nAfter})
    {
        ASSERT_EQ(write(nFile, "and half", 8), 8);
        close(nFile);
    }
    WaitForUploads(served.Tool(), 6);
    EXPECT_EQ(Arrived(served), (CNames{"after", "before", "m1", "m2", "m3", "m4"}));
    EXPECT_EQ(ReadFile(served.GetPath("before")), "half and half");
    EXPECT_EQ(ReadFile(served.GetPath("after")), "half and half");
    ExpectOrderlyEnd(*pTool, 6);
}

TEST_F(WatchTool, ChangedFileIsSentAgainAndTheSameOneIsNot)
{
    CServedFolder served;
    auto pTool = Watch(served.GetPeer());
    Put("a", "1");
    Put("b", "1");
    WaitForUploads(served.Tool(), 2);
    // Opened for writing and closed, but not changed.
    close(open(Box("b").c_str(), O_WRONLY | O_CLOEXEC));
    Put("a", "22");
    WaitForUploads(served.Tool(), 3);
    ExpectOrderlyEnd(*pTool, 3);
    // The next watch knows all this; a file that was replaced meanwhile is another one.
    fs::rename(m_local.WriteFile("elsewhere/b", "3"), Box("b"));
    Put("c", "1");
    pTool = Watch(served.GetPeer());
    WaitForUploads(served.Tool(), 5);
    EXPECT_EQ(Arrived(served), (CNames{"a", "a", "b", "b", "c"}));
    EXPECT_EQ(ReadFile(served.GetPath("a")), "22");
    EXPECT_EQ(ReadFile(served.GetPath("b")), "3");
    ExpectOrderlyEnd(*pTool, 2);
}

TEST_F(WatchTool, ServerThatWasKilledGetsTheRestOnceItIsBack)
{
    const CNames listServe = {"serve", "--root", m_local.GetPath("elsewhere"), "--json", "--port"};
    CNames listFirst = listServe;
    listFirst.push_back("0");
    auto pServer = std::make_unique<CToolProcess>(listFirst);
    const std::string strPort =
        std::to_string(pServer->WaitForEvent("listening")["port"].As<int>());
    const auto pTool = Watch("127.0.0.1:" + strPort);
    for (int i = 0; i < 10; ++i)
    {
        Put("a" + std::to_string(i), "1");
    }
    pTool->WaitUntil("all sent", [&] { return PathsOf(*pTool, "sent").size() == 10; });
    pServer->Signal(SIGKILL);
    pServer->Wait();
    for (int i = 0; i < 10; ++i)
    {
        Put("b" + std::to_string(i), "2");
    }
    pTool->WaitUntil("a complaint", [&] { return !pTool->GetErrors().empty(); });
    CNames listSecond = listServe;
    listSecond.push_back(strPort);
    CToolProcess second(listSecond);
    WaitForUploads(second, 10);
    CNames listNames = PathsOf(second, "upload");
    std::sort(listNames.begin(), listNames.end());
    EXPECT_EQ(listNames, (CNames{"b0", "b1", "b2", "b3", "b4", "b5", "b6", "b7", "b8", "b9"}));
    ExpectOrderlyEnd(*pTool, 20);
    // Once, however often it tried.
    EXPECT_EQ(pTool->GetErrors(), "osprey: cannot connect to 127.0.0.1:" + strPort +
                                      ": refused, or not to be reached; trying again until it is "
                                      "there\n");
}

TEST_F(WatchTool, ConnectionLostInTheMiddleOfAFileLosesNoneAndRepeatsNone)
{
    for (int i = 0; i < 8; ++i)
    {
        Put("f" + std::to_string(i), "1");
    }
    CPeerScript peer;
    const auto pTool = Watch(peer.GetPeer());
    peer.Accept();
    CNames listTaken;
    Take(peer, 3, listTaken);
    peer.Socket().Send(Wire::Upfr(Wire::GetU32(peer.Expect("UPFI"), 12), 0, 0));
    peer.Expect("UPFB");
    peer.Socket().Reset();
    peer.Accept();
    Take(peer, 5, listTaken);
    EXPECT_EQ(listTaken, (CNames{"f0", "f1", "f2", "f3", "f4", "f5", "f6", "f7"}));
    ExpectOrderlyEnd(*pTool, 8);
    EXPECT_EQ(pTool->GetErrors(), "osprey: connection to " + peer.GetPeer() +
                                      " lost; trying again until it is there\n");
}

TEST_F(WatchTool, WatcherThatWasKilledGoesOnWhereItDied)
{
    for (int i = 0; i < 8; ++i)
    {
        Put("f" + std::to_string(i), "1");
    }
    CPeerScript peer;
    CNames listTaken;
    {
        const auto pTool = Watch(peer.GetPeer());
        peer.Accept();
        Take(peer, 3, listTaken);
        // The next one is asked for once the one before is noted.
        peer.Expect("UPFI");
        pTool->Signal(SIGKILL);
        EXPECT_EQ(pTool->Wait(), -SIGKILL);
    }
    const auto pTool = Watch(peer.GetPeer());
    peer.Accept();
    Take(peer, 5, listTaken);
    EXPECT_EQ(listTaken, (CNames{"f0", "f1", "f2", "f3", "f4", "f5", "f6", "f7"}));
    ExpectOrderlyEnd(*pTool, 5);
}

TEST_F(WatchTool, EventsThatTheSystemLostAreMadeUpFor)
{
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer());
    Put("first", "");
    WaitForUploads(served.Tool(), 1);
    pTool->Signal(SIGSTOP);
    // Each gives two events; the system keeps 16,384 unless it is told otherwise.
    for (int i = 0; i < 20000; ++i)
    {
        const std::string strName = Box(i % 2 == 0 ? ".even" : ".odd");
        close(open(strName.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
        unlink(strName.c_str());
    }
    fs::create_directories(Box("d"));
    Put("d/f", "");
    Put("second", "");
    pTool->Signal(SIGCONT);
    WaitForUploads(served.Tool(), 3);
    EXPECT_EQ(Arrived(served), (CNames{"d/f", "first", "second"}));
    ExpectOrderlyEnd(*pTool, 3);
}

TEST_F(WatchTool, HiddenFilesAndLinksAreLeftOut)
{
    fs::create_directories(Box(".hidden"));
    Put(".hidden/f", "");
    Put(".osprey-0123456789abcdef.part", "");
    Put("x.osprey-partial", "");
    fs::create_symlink(m_local.WriteFile("elsewhere/secret", ""), Box("link"));
    fs::create_directory_symlink(m_local.GetPath("elsewhere"), Box("folder"));
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer());
    Put(".x", "");
    fs::rename(Box(".x"), Box("x"));
    WaitForUploads(served.Tool(), 1);
    EXPECT_EQ(served.List(), CNames{"x"});
    ExpectOrderlyEnd(*pTool, 1);
    EXPECT_EQ(pTool->GetErrors(), "");
}

TEST_F(WatchTool, FolderThatWasMovedAwayIsWatchedNoMore)
{
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer());
    fs::create_directories(Box("d"));
    Put("d/one", "");
    WaitForUploads(served.Tool(), 1);
    fs::rename(Box("d"), m_local.GetPath("elsewhere/d"));
    m_local.WriteFile("elsewhere/d/two", "");
    fs::create_directories(Box("d"));
    Put("d/three", "");
    WaitForUploads(served.Tool(), 2);
    EXPECT_EQ(Arrived(served), (CNames{"d/one", "d/three"}));
    ExpectOrderlyEnd(*pTool, 2);
}

TEST_F(WatchTool, RefusedFileIsNamedOnceAndTriedAgain)
{
    CPeerScript peer;
    Put("f", "1");
    const auto pTool = Watch(peer.GetPeer());
    for (int i = 0; i < 2; ++i)
    {
        peer.Accept();
        const unsigned int dwID = Wire::GetU32(peer.Expect("UPFI"), 12);
        peer.Socket().Send(Wire::Upfr(dwID, 6, 0));
    }
    peer.Accept();
    peer.Connection().TakeFile(Wire::GetU32(peer.Expect("UPFI"), 12));
    ExpectOrderlyEnd(*pTool, 1);
    EXPECT_EQ(pTool->GetErrors(),
              "osprey: " + Box("f") +
                  ": the server refused the file, or could not create it; trying again\n");
}

TEST_F(WatchTool, NameThatCannotBeSentIsNamed)
{
    Put("a\\b\x1B", "");
    CServedFolder served;
    const auto pTool = Watch(served.GetPeer());
    pTool->WaitUntil("a complaint", [&] { return !pTool->GetErrors().empty(); });
    EXPECT_NE(pTool->GetErrors().find("a\\b\\x1B: a backslash in a name would arrive as a folder"),
              std::string::npos)
        << pTool->GetErrors();
    ExpectOrderlyEnd(*pTool, 0);
}

TEST_F(WatchTool, OnlyOneWatchesAFolderForAServer)
{
    CPeerScript peer;
    const auto pTool = Watch(peer.GetPeer());
    const CToolRun second({"watch", Box() + "/", peer.GetPeer()});
    EXPECT_EQ(second.m_nExitCode, 1);
    EXPECT_NE(second.m_strErrors.find("another watch of "), std::string::npos);
    ExpectOrderlyEnd(*pTool, 0);
}

TEST_F(WatchTool, FolderThatIsGoneGives1)
{
    CPeerScript peer;
    EXPECT_EQ(CToolRun({"watch", Box("missing"), peer.GetPeer()}).m_nExitCode, 1);
    const auto pTool = Watch(peer.GetPeer());
    fs::remove_all(Box());
    EXPECT_EQ(pTool->Wait(), 1);
    EXPECT_NE(pTool->GetErrors().find(" is gone"), std::string::npos);
}

TEST_F(WatchTool, SignalEndsItWhileAFileIsOnItsWay)
{
    Put("f", "1");
    CPeerScript peer;
    const auto pTool = Watch(peer.GetPeer());
    peer.Accept();
    peer.Socket().Send(Wire::Upfr(Wire::GetU32(peer.Expect("UPFI"), 12), 0, 0));
    peer.Expect("UPFB");
    ExpectOrderlyEnd(*pTool, 0);
}

// Its lines fill the pipe more than once.
TEST_F(WatchTool, ReaderThatStallsHoldsUpNoFile)
{
    CServedFolder served;
    const size_t nFiles = 700;
    for (size_t i = 0; i < nFiles; ++i)
    {
        Put(std::to_string(i) + std::string(150, 'n'), "x");
    }
    const std::unique_ptr<CToolProcess> pTool = Watch(served.GetPeer());
    WaitForUploads(served.Tool(), nFiles);
    ExpectOrderlyEnd(*pTool, nFiles);
}
