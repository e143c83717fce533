// The file clients, with each of their calls failing in turn. Whatever fails, the run ends by
// itself with a report, no file is reported complete that is not, nothing is left behind, and the
// same client's next run works.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ClientRuns.h"
#include "FaultSweep.h"
#include "Hex.h"
#include "LibraryLoops.h"
#include "PeerServer.h"
#include "TempFolder.h"

namespace
{

const size_t FILE_SIZE = 200UL * 1024;

bool StartsWith(const std::string& strText, const std::string& strBeginning)
{
    return strText.compare(0, strBeginning.size(), strBeginning) == 0;
}

bool IsEnd(const std::string& strEvent)
{
    return strEvent == "no more" || strEvent == "start failed 0";
}

// The events as words that ExpectDegraded understands: what a host is told instead of a completed
// file, or of the rest of the run.
std::string ToWords(bool bStarted, const std::vector<std::string>& events)
{
    std::string strWords = bStarted ? "start:0" : "start:1";
    for (const std::string& strEvent : events)
    {
        if (strEvent == "completed")
        {
            strWords += " file:0";
        }
        else if (StartsWith(strEvent, "failed "))
        {
            strWords += " file:" + strEvent.substr(7);
        }
        else if (StartsWith(strEvent, "disconnected") || strEvent == "start failed 0")
        {
            strWords += " end";
        }
        else
        {
            strWords += strEvent == "no more" ? " no_more" : " " + strEvent;
        }
    }
    return strWords;
}

// A run of three files, or two files and a folder, against a peer; afterwards another one of the
// same client, that nothing disturbs.
template <class Kind>
class CFileScenario
{
public:
    explicit CFileScenario(bool bSubmits) : m_bSubmits(bSubmits)
    {
        AddFile("large", Pattern(FILE_SIZE));
        AddFile("small", "small");
        AddFile("empty", "");
    }

    std::string Play(const CFault* pFault)
    {
        Prepare(m_host);
        const CFaultPlan plan(pFault);
        const bool bStarted = m_client.Start(m_host, m_peer.GetPort());
        if (bStarted)
        {
            ServeToEnd();
        }
        Stop();
        return ToWords(bStarted, m_host.m_host.m_events.GetWithoutProgress());
    }
    // The host stops the first file half-way, while calls may fail.
    std::string PlayStop(const CFault* pFault)
    {
        Prepare(m_host);
        m_peer.m_bHoldsFiles = true;
        EXPECT_TRUE(m_client.Start(m_host, m_peer.GetPort()));
        m_peer.ServeUntil("the first progress",
                          [this] { return m_host.m_host.m_events.Get().size() > 2; });
        {
            const CFaultPlan plan(pFault);
            Stop();
        }
        m_peer.ServeUntil("the connection's end", [this] { return !m_peer.IsConnected(); });
        m_peer.m_bHoldsFiles = false;
        EXPECT_EQ(m_host.m_host.m_events.Count("completed"), 0);
        const bool bMayStay =
            pFault != nullptr && (pFault->eCall == CALL_LSTAT || pFault->eCall == CALL_REMOVE);
        EXPECT_TRUE(m_bSubmits || bMayStay || !FileExists(GetLocal(0)))
            << "what is stopped is removed";
        const std::string strLast = m_peer.m_codes.back();
        return strLast == (m_bSubmits ? "DELT" : "CAOP") ? "stop:0" : "stop:1";
    }
    void Check()
    {
        int nFile = 0;
        const int nCompleted = m_host.m_host.m_events.Count("completed");
        EXPECT_FALSE(!m_bSubmits && nCompleted == 3 && CFaultPlan::IsInjected(CALL_FCLOSE))
            << "what could not be closed may not be there";
        for (const std::string& strEvent : m_host.m_host.m_events.Get())
        {
            if (strEvent == "next")
            {
                ++nFile;
            }
            if (strEvent == "completed")
            {
                EXPECT_TRUE(IsThere(nFile - 1)) << "file " << nFile << " is complete";
            }
            if (StartsWith(strEvent, "failed") && !m_bSubmits)
            {
                EXPECT_FALSE(FileExists(GetLocal(nFile - 1))) << "what failed is removed";
            }
        }
    }
    void ExpectRunsAgain()
    {
        m_peer.m_uploads.clear();
        m_host.m_host.m_nNext = 0;
        const size_t nBefore = m_host.m_host.m_events.Get().size();
        ASSERT_TRUE(m_client.Start(m_host, m_peer.GetPort()));
        ServeToEnd(nBefore);
        Stop();
        for (size_t i = 0; i < m_names.size(); ++i)
        {
            EXPECT_TRUE(IsThere(i)) << m_names[i];
        }
    }

private:
    // Time passes meanwhile: a stop may come before the worker has ended its run, and then has the
    // peer clean up.
    void Stop()
    {
        std::atomic<bool> bStopped{false};
        std::thread host([&] { bStopped = m_client.Stop(); });
        m_loop.RunUntil(
            [&]
            {
                m_peer.Serve(0);
                return bStopped.load();
            });
        host.join();
        EXPECT_TRUE(bStopped);
    }
    void AddFile(const std::string& strName, const std::string& strData)
    {
        m_names.push_back(strName);
        m_contents.push_back(strData);
    }
    std::string GetLocal(size_t nFile) const
    {
        return m_folder.GetPath(m_names[nFile]);
    }
    std::string GetRemote(size_t nFile) const
    {
        return "FILESUBMIT|inbox|" + m_names[nFile];
    }
    void Prepare(COutsideFileHost<typename Kind::CCallback>& host)
    {
        for (size_t i = 0; i < m_names.size(); ++i)
        {
            if (m_bSubmits)
            {
                m_folder.WriteFile(m_names[i], m_contents[i]);
                const long long llBase = static_cast<long long>(m_folder.GetPath().size()) + 1;
                host.m_host.m_entries.push_back({GetLocal(i), "inbox", llBase});
            }
            else
            {
                m_peer.m_files[m_names[i]] = m_contents[i];
                host.m_host.m_entries.push_back({GetLocal(i), m_names[i], 0});
            }
        }
    }
    bool IsThere(size_t nFile)
    {
        if (!m_bSubmits)
        {
            return FileExists(GetLocal(nFile)) && ReadFile(GetLocal(nFile)) == m_contents[nFile];
        }
        const CPeerServer::CUpload& upload = m_peer.m_uploads[GetRemote(nFile)];
        return upload.m_bComplete && upload.m_strData == m_contents[nFile];
    }
    bool HasEnded(size_t nBefore) const
    {
        const std::vector<std::string> events = m_host.m_host.m_events.Get();
        const bool bNext = m_host.m_host.m_events.Count("next") > 0;
        return events.size() > nBefore &&
               (IsEnd(events.back()) || (bNext && StartsWith(events.back(), "disconnected")));
    }
    void ServeToEnd(size_t nBefore = 0)
    {
        m_peer.ServeUntil("the end of the run", [&] { return HasEnded(nBefore); });
    }

    const bool m_bSubmits;
    CSteppedLoop m_loop;
    CTempFolder m_folder;
    std::vector<std::string> m_names;
    std::vector<std::string> m_contents;
    CPeerServer m_peer;
    COutsideFileHost<typename Kind::CCallback> m_host;
    CFileClient<Kind> m_client;
};

template <class Kind>
std::string RunScenario(const CFault* pFault, bool bSubmits, bool bStops)
{
    const CNothingLeft nothing;
    std::string strOutcome;
    {
        CFileScenario<Kind> scenario(bSubmits);
        strOutcome = bStops ? scenario.PlayStop(pFault) : scenario.Play(pFault);
        scenario.Check();
        scenario.ExpectRunsAgain();
    }
    nothing.Expect();
    return strOutcome;
}

struct CFileScenarioType
{
    const char* pszName;
    CScenarioRun run;
};

class CClientFaults : public ::testing::TestWithParam<CFileScenarioType>
{
};
using ClientFaults = CClientFaults;

TEST_P(ClientFaults, AnyAllocationMayFail)
{
    EXPECT_GT(ShowFaults(SweepAllocations(GetParam().run)), 0);
}

TEST_P(ClientFaults, AnySystemCallMayFail)
{
    EXPECT_GT(ShowFaults(SweepCalls(GetParam().run)), 0);
}

template <class Kind>
CScenarioRun Scenario(bool bSubmits, bool bStops)
{
    return [=](const CFault* pFault) { return RunScenario<Kind>(pFault, bSubmits, bStops); };
}

INSTANTIATE_TEST_SUITE_P(
    Scenarios, ClientFaults,
    ::testing::Values(CFileScenarioType{"Submit", Scenario<CSubmitKind>(true, false)},
                      CFileScenarioType{"Download", Scenario<CDownloadKind>(false, false)},
                      CFileScenarioType{"StopSubmit", Scenario<CSubmitKind>(true, true)},
                      CFileScenarioType{"StopDownload", Scenario<CDownloadKind>(false, true)}),
    [](const auto& scenario) { return std::string(scenario.param.pszName); });

}  // namespace
