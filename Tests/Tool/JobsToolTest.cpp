// The real tool moves several files at a time, to and from the real server or a scripted one.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;
using CConnections = std::vector<CPeerConnection>;

const size_t JOBS = 8;

size_t CountEvents(const CToolProcess& tool, const std::string& strEvent)
{
    const std::vector<CEvent> listEvents = tool.GetEvents();
    return static_cast<size_t>(std::count_if(listEvents.begin(), listEvents.end(),
                                             [&](const CEvent& event)
                                             { return event["event"] == strEvent; }));
}

// Standard output of a command of the shell.
std::string RunCommand(const std::string& strCommand)
{
    std::string strOutput;
    FILE* pOutput = popen(strCommand.c_str(), "re");
    char szPart[4096];
    for (size_t n = 0; (n = fread(szPart, 1, sizeof szPart, pOutput)) > 0;)
    {
        strOutput.append(szPart, n);
    }
    EXPECT_EQ(pclose(pOutput), 0) << strOutput;
    return strOutput;
}

size_t CountText(const std::string& strText, const std::string& strPart)
{
    size_t nCount = 0;
    for (size_t nAt = strText.find(strPart); nAt != std::string::npos;
         nAt = strText.find(strPart, nAt + strPart.size()))
    {
        ++nCount;
    }
    return nCount;
}

class CJobsToolTest : public ::testing::Test
{
protected:
    // "f0", "f1", ...: each of another size, and other bytes.
    CNames WriteFiles(const std::string& strFolder, size_t nCount) const
    {
        CNames listNames;
        fs::create_directories(m_local.GetPath(strFolder));
        for (size_t i = 0; i < nCount; ++i)
        {
            listNames.push_back("f" + std::to_string(i));
            m_local.WriteFile(strFolder + "/" + listNames.back(),
                              Pattern(i * 331, static_cast<unsigned int>(i + 1)));
        }
        return listNames;
    }
    CNames LocalPaths(const CNames& listNames) const
    {
        CNames listPaths;
        for (const std::string& strName : listNames)
        {
            listPaths.push_back(m_local.GetPath(strName));
        }
        return listPaths;
    }
    static CNames Arguments(const char* pszCommand, const std::string& strPeer,
                            const CNames& listNames, const CNames& listOptions = {})
    {
        CNames listAll = {pszCommand, strPeer, "--jobs", std::to_string(JOBS)};
        listAll.insert(listAll.end(), listOptions.begin(), listOptions.end());
        listAll.insert(listAll.end(), listNames.begin(), listNames.end());
        return listAll;
    }
    // Files of equal names and bytes, and nothing else.
    static void ExpectSame(const std::string& strHere, const std::string& strThere)
    {
        const CNames listNames = ListVisible(strHere);
        ASSERT_EQ(ListVisible(strThere), listNames);
        for (const std::string& strName : listNames)
        {
            const fs::path here = fs::path(strHere) / strName;
            if (!fs::is_directory(here))
            {
                // Compared as a whole: the bytes would fill the screen.
                const bool bSame = ReadFile(here) == ReadFile(fs::path(strThere) / strName);
                EXPECT_TRUE(bSame) << strName;
            }
        }
    }
    // Connections that have all begun with a file, none of which is answered.
    static CConnections AcceptRequests(CPeerScript& peer, size_t nCount, const char* pszCode,
                                       std::vector<unsigned int>& listIDs)
    {
        CConnections listConnections;
        for (size_t i = 0; i < nCount; ++i)
        {
            listConnections.push_back(peer.AcceptOne());
            listIDs.push_back(Wire::GetU32(listConnections.back().Expect(pszCode), 12));
        }
        return listConnections;
    }
    // Downloads into the local folder come one after the other over a single connection.
    void ExpectOneConnectionFor(const CNames& listNames) const
    {
        CPeerScript peer;
        CToolProcess tool(
            Arguments("download", peer.GetPeer(), listNames, {"-o", m_local.GetPath()}));
        CPeerConnection only = peer.AcceptOne();
        for (size_t i = 0; i < listNames.size(); ++i)
        {
            const unsigned int dwID = Wire::GetU32(only.Expect("DFIL"), 12);
            only.GiveFile("1234", dwID);
        }
        EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
        EXPECT_FALSE(peer.HasCaller());
    }

    CTempFolder m_local;
};

using JobsTool = CJobsToolTest;

// A run of eight downloads, "0" to "7", of each of which the first half has arrived; an older file
// stands at every target.
class CHalfDownloads
{
public:
    explicit CHalfDownloads(const CTempFolder& folder) : m_strFolder(folder.GetPath())
    {
        for (size_t i = 0; i < JOBS; ++i)
        {
            m_listNames.push_back(std::to_string(i));
            folder.WriteFile(m_listNames.back(), "old");
        }
        CNames listArguments = {"download", m_peer.GetPeer(), "-j", std::to_string(JOBS),
                                "-o",       m_strFolder};
        listArguments.insert(listArguments.end(), m_listNames.begin(), m_listNames.end());
        m_pTool = std::make_unique<CToolProcess>(listArguments);
        for (size_t i = 0; i < JOBS; ++i)
        {
            m_listConnections.push_back(m_peer.AcceptOne());
            const unsigned int dwID = Wire::GetU32(m_listConnections.back().Expect("DFIL"), 12);
            m_listConnections.back().Socket().Send(Wire::Dfrt(dwID, 0, 8, 0) +
                                                   Wire::Dfrb(dwID, "half"));
        }
        m_pTool->WaitUntil("eight halves", [this] { return CountHalves() == JOBS; });
    }
    void Interrupt()
    {
        m_pTool->Signal(SIGINT);
        for (CPeerConnection& connection : m_listConnections)
        {
            connection.Expect("CAOP");
        }
    }
    void ExpectOldFilesAlone() const
    {
        EXPECT_EQ(ListFolder(m_strFolder), m_listNames);
        for (const std::string& strName : m_listNames)
        {
            EXPECT_EQ(ReadFile(m_strFolder + "/" + strName), "old");
        }
    }
    CToolProcess& Tool()
    {
        return *m_pTool;
    }

private:
    size_t CountHalves() const
    {
        size_t nCount = 0;
        for (const std::string& strName : ListFolder(m_strFolder))
        {
            nCount += fs::file_size(m_strFolder + "/" + strName) == 4 ? 1 : 0;
        }
        return nCount;
    }

    std::string m_strFolder;
    CNames m_listNames;
    CPeerScript m_peer;
    std::unique_ptr<CToolProcess> m_pTool;
    CConnections m_listConnections;
};

}  // namespace

TEST_F(JobsTool, ManyFilesArriveWholeBothWays)
{
    const CNames listNames = WriteFiles("tree/a", 120);
    WriteFiles("tree/b/c", 60);
    fs::create_directory(m_local.GetPath("tree/empty"));
    CServedFolder served;
    const CToolRun up(Arguments("submit", served.GetPeer(), {m_local.GetPath("tree")}));
    EXPECT_EQ(up.m_nExitCode, 0) << up.m_strErrors;
    EXPECT_EQ(up.m_strErrors, "");
    ExpectSame(m_local.GetPath("tree"), served.GetPath("tree"));
    // Reads what the server has told: it waits when its output is full.
    served.Tool().WaitForEvent("disconnected");
    CNames listRemote;
    for (const std::string& strName : listNames)
    {
        listRemote.push_back("tree/a/" + strName);
    }
    const CToolRun down(
        Arguments("download", served.GetPeer(), listRemote, {"-o", m_local.GetPath("back")}));
    EXPECT_EQ(down.m_nExitCode, 0) << down.m_strErrors;
    EXPECT_EQ(down.m_strErrors, "");
    ExpectSame(m_local.GetPath("tree/a"), m_local.GetPath("back"));
    EXPECT_EQ(served.Stop(), 0);
    EXPECT_LE(CountEvents(served.Tool(), "connected"), 2 * JOBS);
}

TEST_F(JobsTool, FoldersOfAllPathsAreMadeBeforeAnyFileIsSent)
{
    WriteFiles("one/sub", 20);
    WriteFiles("two/sub", 20);
    CServedFolder served;
    const CToolRun run(
        Arguments("submit", served.GetPeer(), {m_local.GetPath("one"), m_local.GetPath("two")}));
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(served.Stop(), 0);
    std::string strOrder;
    for (const CEvent& event : served.Tool().GetEvents())
    {
        const std::string strEvent = event["event"].As<std::string>();
        strOrder += strEvent == "folder" ? "d" : strEvent == "upload" ? "f" : "";
    }
    EXPECT_EQ(strOrder, "dddd" + std::string(40, 'f'));
}

TEST_F(JobsTool, OneConnectionMakesTheFoldersBeforeTheOthersCome)
{
    WriteFiles("src/sub", 2);
    CPeerScript peer;
    CToolProcess tool(Arguments("submit", peer.GetPeer(), {m_local.GetPath("src")}), 80);
    CPeerConnection first = peer.AcceptOne();
    for (int i = 0; i < 2; ++i)
    {
        const unsigned int dwID = Wire::GetU32(first.Expect("CDIR"), 12);
        // What is drawn twice comes from a main thread that has had its chance to open more.
        EXPECT_TRUE(tool.WaitUntil("two bars for each folder",
                                   [&] {
                                       return CountText(tool.GetOutput(), "total 1/2") >=
                                              static_cast<size_t>(2 * i + 2);
                                   }));
        EXPECT_FALSE(peer.HasCaller());
        first.Socket().Send(Wire::Result("CDRT", dwID, 0));
    }
    const unsigned int dwFirst = Wire::GetU32(first.Expect("UPFI"), 12);
    CPeerConnection second = peer.AcceptOne();
    const unsigned int dwSecond = Wire::GetU32(second.Expect("UPFI"), 12);
    // Both wait for the test at the same time.
    second.TakeFile(dwSecond);
    first.TakeFile(dwFirst);
    EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
    EXPECT_FALSE(peer.HasCaller());
}

TEST_F(JobsTool, NoMoreConnectionsAreOpenedThanThereAreFiles)
{
    for (const char* pszCommand : {"submit", "download"})
    {
        const bool bSubmit = std::string(pszCommand) == "submit";
        const CNames listNames = WriteFiles("few", 3);
        const CNames listPaths = LocalPaths({"few/f0", "few/f1", "few/f2"});
        CPeerScript peer;
        CToolProcess tool(bSubmit ? Arguments(pszCommand, peer.GetPeer(), listPaths)
                                  : Arguments(pszCommand, peer.GetPeer(), listNames,
                                              {"-o", m_local.GetPath("few")}));
        std::vector<unsigned int> listIDs;
        CConnections listConnections = AcceptRequests(peer, 3, bSubmit ? "UPFI" : "DFIL", listIDs);
        for (size_t i = 0; i < 3; ++i)
        {
            bSubmit ? listConnections[i].TakeFile(listIDs[i])
                    : listConnections[i].GiveFile("1234", listIDs[i]);
        }
        EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
        EXPECT_FALSE(peer.HasCaller());
    }
}

TEST_F(JobsTool, TargetsThatAreOneFileAreWrittenOneAfterTheOther)
{
    m_local.WriteFile("real", "old");
    fs::create_symlink("real", m_local.GetPath("link"));
    ExpectOneConnectionFor({"link", "real"});
    EXPECT_EQ(ReadFile(m_local.GetPath("real")), "1234");
}

TEST_F(JobsTool, LinkThatLeadsToATargetStillToComeIsWrittenInTurn)
{
    fs::create_symlink("later", m_local.GetPath("link"));
    ExpectOneConnectionFor({"later", "link"});
    EXPECT_TRUE(fs::is_symlink(m_local.GetPath("link")));
    EXPECT_EQ(ReadFile(m_local.GetPath("later")), "1234");
}

TEST_F(JobsTool, MostJobsDoNotOverrunTheServer)
{
    WriteFiles("src", 300);
    CServedFolder served;
    CToolProcess tool(
        {"submit", served.GetPeer(), "--jobs", "64", "--quiet", m_local.GetPath("src")});
    // Reads what the server has told: it waits when its output is full.
    served.Tool().WaitUntil(
        "300 files", [&] { return CountText(served.Tool().GetOutput(), "\"upload\"") >= 300; });
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(tool.GetErrors(), "");
    ExpectSame(m_local.GetPath("src"), served.GetPath("src"));
}

TEST_F(JobsTool, NoMoreThanEightConnectAtATime)
{
    WriteFiles("src", 64);
    CPeerScript peer;
    CToolProcess tool({"submit", peer.GetPeer(), "--jobs", "64", m_local.GetPath("src")});
    CPeerConnection first = peer.AcceptOne();
    first.Socket().Send(Wire::Result("CDRT", Wire::GetU32(first.Expect("CDIR"), 12), 0));
    first.Expect("UPFI");
    std::vector<CRawSocket> listCallers;
    for (size_t i = 0; i < 8; ++i)
    {
        listCallers.push_back(peer.AcceptUnnamed());
    }
    EXPECT_FALSE(peer.HasCallerWithin(300));
    // The next one comes when one of them is connected, or is over.
    CPeerConnection second(std::move(listCallers.back()));
    second.TakeName();
    second.Expect("UPFI");
    listCallers.back() = peer.AcceptUnnamed();
    listCallers.front().Reset();
    listCallers.front() = peer.AcceptUnnamed();
    EXPECT_FALSE(peer.HasCallerWithin(300));
}

TEST_F(JobsTool, ConnectionsThatWereNotAnsweredAreNotWaitedForWhenAllIsDone)
{
    WriteFiles("src", 2);
    CPeerScript peer;
    CToolProcess tool(Arguments("submit", peer.GetPeer(), LocalPaths({"src/f0", "src/f1"})));
    CPeerConnection first = peer.AcceptOne();
    const unsigned int dwID = Wire::GetU32(first.Expect("UPFI"), 12);
    const CRawSocket unanswered = peer.AcceptUnnamed();
    first.TakeFile(dwID);
    first.TakeFile(Wire::GetU32(first.Expect("UPFI"), 12));
    EXPECT_EQ(tool.Wait(), 0);
    // Waited for in vain, it would be told.
    EXPECT_EQ(tool.GetErrors(), "");
}

TEST_F(JobsTool, FewDescriptorsGiveFewConnections)
{
    WriteFiles("src", 100);
    CServedFolder served;
    const std::string strCommand = "ulimit -n 60; exec '" OSPREY_TOOL "' submit " +
                                   served.GetPeer() + " --jobs 64 --quiet '" +
                                   m_local.GetPath("src") + "' 2>&1";
    EXPECT_EQ(RunCommand(strCommand), "");
    ExpectSame(m_local.GetPath("src"), served.GetPath("src"));
}

TEST_F(JobsTool, LimitOfDescriptorsIsRaised)
{
    const CNames listPaths = LocalPaths(WriteFiles(".", JOBS));
    CPeerScript peer;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit low{24, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    CToolProcess tool(Arguments("submit", peer.GetPeer(), listPaths));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    std::vector<unsigned int> listIDs;
    CConnections listConnections = AcceptRequests(peer, JOBS, "UPFI", listIDs);
    for (size_t i = 0; i < JOBS; ++i)
    {
        listConnections[i].TakeFile(listIDs[i]);
    }
    EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
    EXPECT_EQ(tool.GetErrors(), "");
}

TEST_F(JobsTool, OneMissingAmongManyGives1AndTheOthersArrive)
{
    CNames listNames = WriteFiles("all", 60);
    CServedFolder served;
    fs::copy(m_local.GetPath("all"), served.GetRoot());
    listNames.insert(listNames.begin() + 17, "missing");
    CToolProcess tool(Arguments("download", served.GetPeer(), listNames,
                                {"--json", "-o", m_local.GetPath("back")}));
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_EQ(tool.GetErrors(), "osprey: missing: not found at the server, or refused\n");
    ExpectSame(m_local.GetPath("all"), m_local.GetPath("back"));
    const CEvent summary = tool.WaitForEvent("summary");
    EXPECT_EQ(summary["files"], 60);
    EXPECT_EQ(summary["failed"], 1);
}

TEST_F(JobsTool, JsonTellsOneConnectionAndTheSumOfAll)
{
    WriteFiles("src/sub", 50);
    CServedFolder served;
    CToolProcess tool(Arguments("submit", served.GetPeer(), {m_local.GetPath("src")}, {"--json"}));
    EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
    EXPECT_EQ(CountEvents(tool, "connected"), 1U);
    EXPECT_EQ(CountEvents(tool, "folder"), 2U);
    EXPECT_EQ(CountEvents(tool, "sent"), 50U);
    unsigned long long ullSum = 0;
    for (const CEvent& event : tool.GetEvents())
    {
        ullSum += event["event"] == "sent" ? event["bytes"].As<unsigned long long>() : 0;
    }
    EXPECT_EQ(ullSum, 331ULL * 50 * 49 / 2);
    const CEvent summary = tool.WaitForEvent("summary");
    EXPECT_EQ(summary["files"], 50);
    EXPECT_EQ(summary["folders"], 2);
    EXPECT_EQ(summary["failed"], 0);
    EXPECT_EQ(summary["bytes"], ullSum);
}

TEST_F(JobsTool, JsonTellsTheRateOfEachFile)
{
    CPeerScript peer;
    CToolProcess tool(
        Arguments("download", peer.GetPeer(), {"a", "b"}, {"--json", "-o", m_local.GetPath()}));
    std::vector<unsigned int> listIDs;
    CConnections listConnections = AcceptRequests(peer, 2, "DFIL", listIDs);
    listConnections[0].Socket().Send(Wire::Dfrt(listIDs[0], 0, 4, 0) +
                                     Wire::Dfrb(listIDs[0], "12"));
    CEvent event = tool.WaitForEvent("progress");
    while (!event.IsNull() && event["bytes"] == 0)
    {
        event = tool.WaitForEvent("progress");
    }
    EXPECT_GT(event["bytes_per_second"].As<double>(), 0.0);
    event = tool.WaitForEvent("progress");
    EXPECT_EQ(event["bytes"], 0);
    EXPECT_EQ(event["bytes_per_second"], 0.0);
}

TEST_F(JobsTool, OneJobTellsProgressOnceASecondAndNotWhenAFileBegins)
{
    m_local.WriteFile("file", "1234");
    CPeerScript peer;
    const auto start = std::chrono::steady_clock::now();
    CToolProcess tool({"submit", peer.GetPeer(), "--json", m_local.GetPath("file")});
    CPeerConnection only = peer.AcceptOne();
    const unsigned int dwID = Wire::GetU32(only.Expect("UPFI"), 12);
    // Long enough for a main thread that was woken.
    EXPECT_FALSE(peer.HasCallerWithin(100));
    only.TakeFile(dwID);
    EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
    const auto taken = std::chrono::steady_clock::now() - start;
    const auto nIntervals = static_cast<size_t>(taken / std::chrono::milliseconds(950));
    EXPECT_LE(CountEvents(tool, "progress"), nIntervals) << tool.GetOutput();
}

TEST_F(JobsTool, RefusedConnectionGives3AndIsToldOnce)
{
    WriteFiles("src", 20);
    const std::string strPeer = "127.0.0.1:" + std::to_string(FreePort());
    const CToolRun run(Arguments("submit", strPeer, {m_local.GetPath("src")}));
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strErrors,
              "osprey: cannot connect to " + strPeer + ": refused, or not to be reached\n");
    EXPECT_EQ(run.m_strOutput, "");
}

TEST_F(JobsTool, FurtherConnectionsThatAreRefusedLeaveTheWorkToTheFirst)
{
    const size_t nFiles = 12;
    CNames listArguments = {"submit", "", "--jobs", "10"};
    for (const std::string& strPath : LocalPaths(WriteFiles(".", nFiles)))
    {
        listArguments.push_back(strPath);
    }
    CPeerScript peer;
    listArguments[1] = peer.GetPeer();
    CToolProcess tool(listArguments);
    CPeerConnection first = peer.AcceptOne();
    unsigned int dwID = Wire::GetU32(first.Expect("UPFI"), 12);
    // The ninth comes once the tool knows of one that was refused; of the others it need not.
    for (int i = 0; i < 9; ++i)
    {
        peer.RefuseOne();
    }
    first.TakeFile(dwID);
    for (size_t i = 1; i < nFiles; ++i)
    {
        dwID = Wire::GetU32(first.Expect("UPFI"), 12);
        first.TakeFile(dwID);
    }
    EXPECT_EQ(tool.Wait(), 0);
    const std::string strTold =
        " of 10 connections to " + peer.GetPeer() + " could not be opened: ";
    EXPECT_EQ(tool.GetErrors().find(strTold), std::string("osprey: 1").size()) << tool.GetErrors();
    EXPECT_NE(tool.GetOutput().find("12 files sent, "), std::string::npos);
}

TEST_F(JobsTool, LostConnectionTakesItsFileAloneAndGives4)
{
    WriteFiles("src", 4);
    CPeerScript peer;
    CToolProcess tool({"submit", peer.GetPeer(), "--jobs", "2", m_local.GetPath("src/f0"),
                       m_local.GetPath("src/f1"), m_local.GetPath("src/f2"),
                       m_local.GetPath("src/f3")});
    std::vector<unsigned int> listIDs;
    CConnections listConnections = AcceptRequests(peer, 2, "UPFI", listIDs);
    listConnections[0].Socket().Reset();
    ASSERT_TRUE(tool.WaitUntil("the loss", [&] { return !tool.GetErrors().empty(); }));
    EXPECT_EQ(tool.GetErrors(),
              "osprey: " + m_local.GetPath("src/f0") + ": the connection was lost on the way\n");
    listConnections[1].TakeFile(listIDs[1]);
    for (int i = 0; i < 2; ++i)
    {
        listConnections[1].TakeFile(Wire::GetU32(listConnections[1].Expect("UPFI"), 12));
    }
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_NE(tool.GetErrors().find("osprey: 1 of 2 connections to " + peer.GetPeer() + " lost: "),
              std::string::npos)
        << tool.GetErrors();
    EXPECT_EQ(tool.GetErrors().find("not tried"), std::string::npos);
    EXPECT_NE(tool.GetOutput().find("3 files sent, "), std::string::npos);
    EXPECT_NE(tool.GetOutput().find("; 1 failed\n"), std::string::npos);
}

TEST_F(JobsTool, SilentConnectionTakesItsFileAloneAndGives4)
{
    WriteFiles("src", 2);
    CPeerScript peer;
    CToolProcess tool(Arguments("submit", peer.GetPeer(), LocalPaths({"src/f0", "src/f1"}),
                                {"--stall-timeout", "5"}));
    std::vector<unsigned int> listIDs;
    CConnections listConnections = AcceptRequests(peer, 2, "UPFI", listIDs);
    listConnections[1].TakeFile(listIDs[1]);
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_NE(tool.GetErrors().find("osprey: " + m_local.GetPath("src/f0") +
                                    ": the connection was lost on the way\n"),
              std::string::npos);
    EXPECT_NE(tool.GetErrors().find("osprey: 1 of 2 connections to " + peer.GetPeer() +
                                    " lost: nothing moved for 5 seconds\n"),
              std::string::npos)
        << tool.GetErrors();
}

TEST_F(JobsTool, ServerThatEndsInTheMiddleGives4AndTellsWhatWasNotTried)
{
    WriteFiles("src", JOBS + 3);
    CNames listPaths = LocalPaths(WriteFiles(".", JOBS + 3));
    CPeerScript peer;
    CToolProcess tool(Arguments("submit", peer.GetPeer(), listPaths));
    {
        std::vector<unsigned int> listIDs;
        CConnections listConnections = AcceptRequests(peer, JOBS, "UPFI", listIDs);
    }
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_EQ(CountText(tool.GetErrors(), ": the connection was lost on the way\n"), JOBS);
    EXPECT_NE(tool.GetErrors().find("osprey: 8 of 8 connections to " + peer.GetPeer() + " lost: "),
              std::string::npos)
        << tool.GetErrors();
    EXPECT_NE(tool.GetErrors().find("; not tried: 3 files\n"), std::string::npos)
        << tool.GetErrors();
    EXPECT_NE(tool.GetOutput().find("0 files sent, 0 B in "), std::string::npos);
    EXPECT_NE(tool.GetOutput().find("; 8 failed\n"), std::string::npos);
}

TEST_F(JobsTool, InterruptGives130AndCancelsEveryFileAtTheServer)
{
    WriteFiles("src", JOBS);
    CPeerScript peer;
    CToolProcess tool(Arguments("submit", peer.GetPeer(), {m_local.GetPath("src")}));
    CPeerConnection first = peer.AcceptOne();
    first.Socket().Send(Wire::Result("CDRT", Wire::GetU32(first.Expect("CDIR"), 12), 0));
    std::vector<unsigned int> listIDs = {Wire::GetU32(first.Expect("UPFI"), 12)};
    CConnections listConnections = AcceptRequests(peer, JOBS - 1, "UPFI", listIDs);
    listConnections.insert(listConnections.begin(), std::move(first));
    for (size_t i = 0; i < JOBS; ++i)
    {
        listConnections[i].Socket().Send(Wire::Upfr(listIDs[i], 0, 0));
        listConnections[i].Expect("UPFB");
    }
    tool.Signal(SIGINT);
    for (CPeerConnection& connection : listConnections)
    {
        connection.Expect("CAOP");
        const std::string strRequest = connection.Expect("DELT");
        connection.Socket().Send(Wire::Result("DTRT", Wire::GetU32(strRequest, 12), 0));
    }
    EXPECT_EQ(tool.Wait(), 130);
    EXPECT_EQ(tool.GetErrors(), "osprey: interrupted\n");
    EXPECT_EQ(tool.GetOutput(), "");
}

TEST_F(JobsTool, InterruptedUploadsLeaveNothingAtTheServer)
{
    // Sparse files large enough that the signal comes first.
    CNames listPaths;
    for (size_t i = 0; i < JOBS; ++i)
    {
        listPaths.push_back(m_local.WriteFile("huge" + std::to_string(i), ""));
        fs::resize_file(listPaths.back(), 64ULL << 30);
    }
    CServedFolder served;
    CToolProcess tool(Arguments("submit", served.GetPeer(), listPaths));
    ASSERT_TRUE(tool.WaitUntil(
        "eight files under construction",
        [&]
        {
            const CNames listNames = served.List();
            return listNames.size() == JOBS &&
                   std::all_of(listNames.begin(), listNames.end(),
                               [&](const std::string& strName)
                               { return fs::file_size(served.GetPath(strName)) > 0; });
        }));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 130);
    for (size_t i = 0; i < JOBS; ++i)
    {
        served.Tool().WaitForEvent("disconnected");
    }
    EXPECT_EQ(served.List(), CNames()) << served.Tool().GetOutput();
}

TEST_F(JobsTool, InterruptLeavesOldFilesAlone)
{
    CHalfDownloads downloads(m_local);
    downloads.Interrupt();
    EXPECT_EQ(downloads.Tool().Wait(), 130);
    EXPECT_EQ(downloads.Tool().GetErrors(), "osprey: interrupted\n");
    downloads.ExpectOldFilesAlone();
}

TEST_F(JobsTool, SecondInterruptEndsAtOnceAndLeavesOldFilesAlone)
{
    const CEndWithoutJoin unjoined;
    CHalfDownloads downloads(m_local);
    downloads.Interrupt();
    EXPECT_EQ(downloads.Tool().SignalUntilEnd(SIGINT), 130);
    downloads.ExpectOldFilesAlone();
}

TEST_F(JobsTool, TerminalShowsOneBarForAll)
{
    CPeerScript peer;
    CToolProcess tool(Arguments("download", peer.GetPeer(), {"a", "b"}, {"-o", m_local.GetPath()}),
                      80);
    std::vector<unsigned int> listIDs;
    CConnections listConnections = AcceptRequests(peer, 2, "DFIL", listIDs);
    for (size_t i = 0; i < 2; ++i)
    {
        listConnections[i].Socket().Send(Wire::Dfrt(listIDs[i], 0, 4, 0) +
                                         Wire::Dfrb(listIDs[i], "12"));
    }
    EXPECT_TRUE(tool.WaitForOutput("total 2/2, 4 B"));
    EXPECT_TRUE(tool.WaitForOutput(" 50%"));
    for (size_t i = 0; i < 2; ++i)
    {
        listConnections[i].Socket().Send(Wire::Dfrb(listIDs[i], "34"));
    }
    EXPECT_EQ(tool.Wait(), 0);
    // One row: nothing above it is ever taken off.
    EXPECT_EQ(tool.GetOutput().find("\x1B[1A"), std::string::npos);
    EXPECT_NE(tool.GetOutput().find("2 files received, 8 B in "), std::string::npos);
}
