// What happens when one side goes away in the middle, in every phase.

#include <algorithm>
#include <chrono>
#include <thread>

#include "Hex.h"
#include "RawSocket.h"
#include "TransferTest.h"
#include "WireRecords.h"

namespace
{

typedef std::vector<std::string> CLines;

class CInterruption : public CTransferTest
{
protected:
    CInterruption()
    {
        m_host.m_bProgress = true;
        m_local.WriteFile("file", m_strData);
        m_served.WriteFile("root/served", m_strData);
    }
    ~CInterruption() override
    {
        EndServer();
    }

    // The client waits a second for the peer to remove a file, and a slow one does it later.
    static void ExpectToGo(const std::string& strPath, const char* pszPhase)
    {
        for (int nMs = 0; FileExists(strPath) && nMs < WAIT_MS; ++nMs)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_FALSE(FileExists(strPath)) << pszPhase;
    }

    const std::string m_strData = Pattern(20000000);
};
using Interruption = CInterruption;

// A stop while the phase's event is reported: asked from inside, then waited for from outside.
TEST_F(Interruption, StopInEveryPhaseOfAnUploadRemovesThePartAtThePeer)
{
    for (const char* pszPhase : {"progress 0", "progress 1", "progress 50", "progress 99"})
    {
        CSubmitRun run;
        run.m_host.m_entries = {{m_local.GetPath("file"), "root",
                                 static_cast<long long>(m_local.GetPath().size()) + 1}};
        run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
        {
            if (strEvent == pszPhase)
            {
                run.Stop();
            }
        };
        ASSERT_TRUE(run.Start(m_wPort));
        run.m_host.m_events.WaitFor(pszPhase);
        run.Stop();
        EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(), (CLines{"connected", "next"}))
            << pszPhase;
        ExpectToGo(ServerPath("file"), pszPhase);
    }
}

TEST_F(Interruption, StopInEveryPhaseOfADownloadRemovesThePartHere)
{
    for (const char* pszPhase : {"progress 0", "progress 1", "progress 50", "progress 99"})
    {
        CDownloadRun run;
        const std::string strPart = m_local.GetPath("part");
        run.m_host.m_entries = {{strPart, "root/served", 0}};
        run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
        {
            if (strEvent == pszPhase)
            {
                run.Stop();
            }
        };
        ASSERT_TRUE(run.Start(m_wPort));
        run.m_host.m_events.WaitFor(pszPhase);
        run.Stop();
        EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(), (CLines{"connected", "next"}))
            << pszPhase;
        EXPECT_FALSE(FileExists(strPart)) << pszPhase;
    }
}

TEST_F(Interruption, StopFromOutsideAtAnyMomentLeavesNothingHalf)
{
    for (int i = 0; i < 8; ++i)
    {
        CDownloadRun run;
        const std::string strPart = m_local.GetPath("part");
        run.m_host.m_entries = {{strPart, "root/served", 0}};
        ASSERT_TRUE(run.Start(m_wPort));
        if (i % 4 != 0)
        {
            run.m_host.m_events.WaitFor(i % 4 == 1 ? "connected" : "progress " + std::to_string(i));
        }
        run.Stop();
        const bool bWhole = run.m_host.m_events.Count("completed") > 0;
        EXPECT_EQ(FileExists(strPart), bWhole);
        EXPECT_TRUE(!bWhole || ReadFile(strPart) == m_strData);
        remove(strPart.c_str());
    }
}

TEST_F(Interruption, ServerThatEndsDuringAnUploadIsALostConnection)
{
    CSubmitRun run;
    const CFileEntry entry = {m_local.GetPath("file"), "root",
                              static_cast<long long>(m_local.GetPath().size()) + 1};
    run.m_host.m_entries = {entry, entry};
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "progress 10" && m_pServer != nullptr)
        {
            EndServer();
        }
    };
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    const CLines events = run.m_host.m_events.GetWithoutProgress();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[2].substr(0, 12), "disconnected");
    EXPECT_EQ(m_host.GetDisconnects(), CLines{"device"});
}

TEST_F(Interruption, ServerThatEndsDuringADownloadIsALostConnectionAndThePartGoes)
{
    CDownloadRun run;
    const std::string strPart = m_local.GetPath("part");
    run.m_host.m_entries = {{strPart, "root/served", 0}};
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "progress 10" && m_pServer != nullptr)
        {
            EndServer();
        }
    };
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    EXPECT_EQ(run.m_host.m_events.Count("completed"), 0);
    EXPECT_FALSE(FileExists(strPart));
}

TEST_F(Interruption, ServerThatEndsBeforeNamingFailsTheStart)
{
    m_host.m_fnOnRequest = [this](const CRecordingHost::CRequest& request)
    { m_pServer->TerminateTask(request.m_lTask); };
    CSubmitRun run;
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    const CLines events = run.m_host.m_events.Get();
    // The reply may still have left before the connection was taken down.
    ASSERT_FALSE(events.empty());
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(m_host.GetDisconnects(), CLines{"device"});
}

TEST_F(Interruption, ServerComesBackOnTheSamePortAndServesOn)
{
    EndServer();
    for (int i = 0; i < 3; ++i)
    {
        StartServer();
        m_local.WriteFile("again", Pattern(1000));
        Upload({"again"});
        EndServer();
    }
}

TEST_F(Interruption, ClientThatDiesDuringAnUploadIsReportedAndItsFileClosed)
{
    for (int i = 0; i < 5; ++i)
    {
        CRawSocket peer;
        ASSERT_TRUE(peer.Connect(m_wPort));
        peer.Send(Wire::Brow() + Wire::Namc(1, u"dying") +
                  Wire::Upfi(2, 1000000, 0, u"FILESUBMIT|root|dead") +
                  Wire::Upfb(2, 0, Pattern(30000)));
        peer.Receive(20 + 28 + 20);
        peer.Reset();
        m_host.WaitForDisconnects(static_cast<size_t>(i) + 1);
    }
    EXPECT_EQ(ReadFile(ServerPath("dead")).size(), 30000U);
}

TEST_F(Interruption, ManyClientsAtOnceDoNotDisturbEachOther)
{
    std::vector<std::unique_ptr<CSubmitRun>> ups;
    std::vector<std::unique_ptr<CDownloadRun>> downs;
    for (int i = 0; i < 4; ++i)
    {
        const std::string strName = "many" + std::to_string(i);
        m_local.WriteFile(strName, Pattern(3000000, static_cast<unsigned int>(i)));
        ups.push_back(std::make_unique<CSubmitRun>());
        ups.back()->m_host.m_entries = {{m_local.GetPath(strName), "root",
                                         static_cast<long long>(m_local.GetPath().size()) + 1}};
        downs.push_back(std::make_unique<CDownloadRun>());
        downs.back()->m_host.m_entries = {
            {m_local.GetPath("down" + std::to_string(i)), "root/served", 0}};
    }
    for (size_t i = 0; i < ups.size(); ++i)
    {
        ASSERT_TRUE(ups[i]->Start(m_wPort));
        ASSERT_TRUE(downs[i]->Start(m_wPort));
    }
    for (size_t i = 0; i < ups.size(); ++i)
    {
        ups[i]->m_host.m_events.WaitForEnd();
        downs[i]->m_host.m_events.WaitForEnd();
        EXPECT_TRUE(ReadFile(ServerPath("many" + std::to_string(i))) ==
                    Pattern(3000000, static_cast<unsigned int>(i)));
        EXPECT_TRUE(ReadFile(m_local.GetPath("down" + std::to_string(i))) == m_strData);
    }
}

}  // namespace
