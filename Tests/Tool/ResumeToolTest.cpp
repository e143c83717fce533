// The real tool dies in the middle of many files, and the same command finishes what is left.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>

#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

const size_t FILES = 50;
const size_t BEFORE_DEATH = 20;

class CResumeToolTest : public ::testing::Test
{
protected:
    CResumeToolTest()
    {
        setenv("XDG_STATE_HOME", m_local.GetPath("state").c_str(), 1);
        fs::create_directories(m_local.GetPath("src"));
        for (size_t i = 0; i < FILES; ++i)
        {
            const std::string strNumber = std::to_string(100 + i);
            m_listNames.push_back("f" + strNumber);
            m_local.WriteFile("src/" + m_listNames.back(), Contents(m_listNames.back()));
        }
    }
    ~CResumeToolTest() override
    {
        setenv("XDG_STATE_HOME", m_strStateBefore.c_str(), 1);
    }
    CResumeToolTest(const CResumeToolTest&) = delete;
    CResumeToolTest& operator=(const CResumeToolTest&) = delete;

    static std::string Contents(const std::string& strName)
    {
        return "contents of " + strName;
    }
    CNames Download(const std::string& strPeer, const CNames& listOptions = {}) const
    {
        CNames listArguments = {"download", strPeer, "--json", "-o", m_local.GetPath("out")};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        listArguments.insert(listArguments.end(), m_listNames.begin(), m_listNames.end());
        return listArguments;
    }
    CNames Submit(const std::string& strPeer, const CNames& listOptions = {}) const
    {
        CNames listArguments = {"submit", strPeer, "--json", m_local.GetPath("src")};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        return listArguments;
    }
    // Gives the tool files until so many were given or it asks no more; returns their names.
    CNames Give(CPeerScript& peer, size_t nFiles) const
    {
        CNames listGiven;
        for (size_t i = 0; i < nFiles; ++i)
        {
            const std::string strRequest = peer.Expect("DFIL");
            listGiven.push_back(NameIn(strRequest, 24));
            peer.Connection().GiveFile(Contents(listGiven.back()), Wire::GetU32(strRequest, 12));
        }
        return listGiven;
    }
    // Takes files, after the folder; returns their names.
    static CNames Take(CPeerScript& peer, size_t nFiles)
    {
        const std::string strFolder = peer.Expect("CDIR");
        peer.Socket().Send(Wire::Result("CDRT", Wire::GetU32(strFolder, 12), 0));
        CNames listTaken;
        for (size_t i = 0; i < nFiles; ++i)
        {
            const std::string strRequest = peer.Expect("UPFI");
            const std::string strName = NameIn(strRequest, 36);
            listTaken.push_back(strName.substr(strName.rfind('\\') + 1));
            peer.Connection().TakeFile(Wire::GetU32(strRequest, 12));
        }
        return listTaken;
    }
    // An ASCII name behind the fixed fields of a request.
    static std::string NameIn(const std::string& strRequest, size_t nOffset)
    {
        std::string strName;
        for (size_t i = nOffset; i + 2 < strRequest.size(); i += 2)
        {
            strName += strRequest[i];
        }
        return strName;
    }
    CNames Names(size_t nFrom, size_t nTo) const
    {
        return CNames(m_listNames.begin() + static_cast<std::ptrdiff_t>(nFrom),
                      m_listNames.begin() + static_cast<std::ptrdiff_t>(nTo));
    }
    void ExpectAllHere() const
    {
        EXPECT_EQ(ListFolder(m_local.GetPath("out")), m_listNames);
        for (const std::string& strName : m_listNames)
        {
            EXPECT_EQ(ReadFile(m_local.GetPath("out/" + strName)), Contents(strName));
        }
    }
    // A download that dies with BEFORE_DEATH files here and half of the next.
    void DieDownloading(CPeerScript& peer) const
    {
        CToolProcess tool(Download(peer.GetPeer()));
        peer.Accept();
        EXPECT_EQ(Give(peer, BEFORE_DEATH), Names(0, BEFORE_DEATH));
        const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
        peer.Socket().Send(Wire::Dfrt(dwID, 0, 6, 0) + Wire::Dfrb(dwID, "hal"));
        tool.Signal(SIGKILL);
        EXPECT_EQ(tool.Wait(), -SIGKILL);
    }
    static void ExpectSummary(CToolProcess& tool, size_t nMoved, size_t nBefore)
    {
        EXPECT_EQ(tool.Wait(), 0) << tool.GetErrors();
        const CEvent summary = tool.WaitForEvent("summary");
        EXPECT_EQ(summary["files"], nMoved);
        EXPECT_EQ(summary["finished_before"], nBefore);
    }
    static CNames Notes()
    {
        const std::string strFolder = std::string(getenv("XDG_STATE_HOME")) + "/osprey";
        return fs::exists(strFolder) ? ListFolder(strFolder) : CNames();
    }

    const std::string m_strStateBefore = getenv("XDG_STATE_HOME");
    CTempFolder m_local;
    CNames m_listNames;
};

using ResumeTool = CResumeToolTest;

}  // namespace

TEST_F(ResumeTool, DownloadGoesOnWhereItDied)
{
    CPeerScript peer;
    DieDownloading(peer);
    CToolProcess second(Download(peer.GetPeer()));
    peer.Accept();
    EXPECT_EQ(Give(peer, FILES - BEFORE_DEATH), Names(BEFORE_DEATH, FILES));
    ExpectSummary(second, FILES - BEFORE_DEATH, BEFORE_DEATH);
    ExpectAllHere();
    // Once all was finished the same command means all again.
    CToolProcess third(Download(peer.GetPeer()));
    peer.Accept();
    EXPECT_EQ(Give(peer, FILES), m_listNames);
    ExpectSummary(third, FILES, 0);
}

TEST_F(ResumeTool, ChangedAndMissingFilesAreFetchedAgain)
{
    CPeerScript peer;
    DieDownloading(peer);
    m_local.WriteFile("out/f103", "changed");
    fs::remove(m_local.GetPath("out/f107"));
    fs::last_write_time(m_local.GetPath("out/f111"),
                        fs::last_write_time(m_local.GetPath("out/f111")) + std::chrono::hours(1));
    CToolProcess second(Download(peer.GetPeer()));
    peer.Accept();
    CNames listExpected = Names(BEFORE_DEATH, FILES);
    listExpected.insert(listExpected.begin(), {"f103", "f107", "f111"});
    EXPECT_EQ(Give(peer, listExpected.size()), listExpected);
    ExpectSummary(second, listExpected.size(), FILES - listExpected.size());
    ExpectAllHere();
}

TEST_F(ResumeTool, RestartFetchesEverything)
{
    CPeerScript peer;
    DieDownloading(peer);
    CToolProcess second(Download(peer.GetPeer(), {"--restart"}));
    peer.Accept();
    EXPECT_EQ(Give(peer, FILES), m_listNames);
    ExpectSummary(second, FILES, 0);
    ExpectAllHere();
}

TEST_F(ResumeTool, AnotherCommandKnowsNothingOfIt)
{
    CPeerScript peer;
    DieDownloading(peer);
    m_listNames.pop_back();
    CToolProcess second(Download(peer.GetPeer()));
    peer.Accept();
    EXPECT_EQ(Give(peer, FILES - 1), m_listNames);
    ExpectSummary(second, FILES - 1, 0);
}

TEST_F(ResumeTool, SecondRunAtTheSameTimeFetchesAllAndNotesNothing)
{
    CPeerScript peer;
    CToolProcess first(Download(peer.GetPeer()));
    CPeerConnection one = peer.AcceptOne();
    one.GiveFile(Contents("f100"), Wire::GetU32(one.Expect("DFIL"), 12));
    const unsigned int dwID = Wire::GetU32(one.Expect("DFIL"), 12);
    CToolProcess second(Download(peer.GetPeer()));
    peer.Accept();
    EXPECT_EQ(Give(peer, FILES), m_listNames);
    ExpectSummary(second, FILES, 0);
    one.GiveFile(Contents("f101"), dwID);
    for (size_t i = 2; i < FILES; ++i)
    {
        one.GiveFile(Contents(m_listNames[i]), Wire::GetU32(one.Expect("DFIL"), 12));
    }
    ExpectSummary(first, FILES, 0);
    ExpectAllHere();
}

TEST_F(ResumeTool, SubmitGoesOnWhereItDied)
{
    CPeerScript peer;
    {
        CToolProcess tool(Submit(peer.GetPeer()));
        peer.Accept();
        EXPECT_EQ(Take(peer, BEFORE_DEATH), Names(0, BEFORE_DEATH));
        peer.Expect("UPFI");
        tool.Signal(SIGKILL);
        EXPECT_EQ(tool.Wait(), -SIGKILL);
    }
    EXPECT_EQ(Notes().size(), 1U);
    m_local.WriteFile("src/f105", "changed");
    CNames listExpected = Names(BEFORE_DEATH, FILES);
    listExpected.insert(listExpected.begin(), "f105");
    CToolProcess second(Submit(peer.GetPeer()));
    peer.Accept();
    EXPECT_EQ(Take(peer, listExpected.size()), listExpected);
    ExpectSummary(second, listExpected.size(), FILES - listExpected.size());
    EXPECT_EQ(Notes(), CNames());
    CToolProcess third(Submit(peer.GetPeer()));
    peer.Accept();
    EXPECT_EQ(Take(peer, FILES), m_listNames);
    ExpectSummary(third, FILES, 0);
}

TEST_F(ResumeTool, SubmitToARealServerArrivesWholeThroughDeaths)
{
    CServedFolder served;
    fs::resize_file(m_local.WriteFile("src/f125", ""), 64ULL << 30);
    {
        CToolProcess tool(Submit(served.GetPeer(), {"--jobs", "4"}));
        tool.WaitUntil("half of the files sent",
                       [&]
                       {
                           const CNames listLines = tool.GetLines();
                           return std::count_if(listLines.begin(), listLines.end(),
                                                [](const std::string& strLine) {
                                                    return strLine.find("\"sent\"") !=
                                                           std::string::npos;
                                                }) >= static_cast<long>(FILES / 2);
                       });
        tool.Signal(SIGKILL);
        tool.Wait();
    }
    m_local.WriteFile("src/f125", Contents("f125"));
    CToolProcess second(Submit(served.GetPeer(), {"--jobs", "4"}));
    EXPECT_EQ(second.Wait(), 0) << second.GetErrors();
    const CEvent summary = second.WaitForEvent("summary");
    EXPECT_GE(summary["finished_before"].As<size_t>(), FILES / 2);
    EXPECT_EQ(summary["finished_before"].As<size_t>() + summary["files"].As<size_t>(), FILES);
    for (const std::string& strName : m_listNames)
    {
        EXPECT_EQ(ReadFile(served.GetPath("src/" + strName)), Contents(strName));
    }
    EXPECT_EQ(Notes(), CNames());
}

TEST_F(ResumeTool, FolderForNotesThatCannotBeMadeIsNoFailure)
{
    m_local.WriteFile("state", "");
    CServedFolder served;
    const CToolRun run(Submit(served.GetPeer()));
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(run.m_strErrors, "");
}

// One that came to its end, that is: what it noted would hide what changed at the server since.
TEST_F(ResumeTool, DownloadAfterARunWithAFailedFileAsksForEveryFile)
{
    CServedFolder served;
    served.Around().WriteFile("root/a", "old");
    served.Around().WriteFile("root/b", "same");
    const CNames listArguments = {"download", served.GetPeer(),      "a", "b", "missing",
                                  "-o",       m_local.GetPath("out")};
    EXPECT_EQ(CToolRun(listArguments).m_nExitCode, 1);
    served.Around().WriteFile("root/a", "new");
    EXPECT_EQ(CToolRun(listArguments).m_nExitCode, 1);
    EXPECT_EQ(ReadFile(m_local.GetPath("out/a")), "new");
}
