// A stop that comes when GetNextFile has returned and the file's first look at the disk is under
// way: neither inside a callback nor inside a loop run.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "FileHost.h"
#include "ScriptedServer.h"
#include "StopUnderWay.h"
#include "TempFolder.h"

namespace
{

std::atomic<const std::function<void()>*> g_pOnStat{nullptr};

void MeetStat()
{
    // Once: what it does may ask for files itself.
    const std::function<void()>* pOnStat = g_pOnStat.exchange(nullptr);
    if (pOnStat != nullptr)
    {
        (*pOnStat)();
    }
}

}  // namespace

// The system's stat under the names that a C library may give it; see CMakeLists.txt.
extern "C"
{
    int __real_stat(const char* pszPath, void* pInfo);
    int __real_stat64(const char* pszPath, void* pInfo);

    int __wrap_stat(const char* pszPath, void* pInfo)
    {
        MeetStat();
        return __real_stat(pszPath, pInfo);
    }

    int __wrap_stat64(const char* pszPath, void* pInfo)
    {
        MeetStat();
        return __real_stat64(pszPath, pInfo);
    }
}

namespace
{

TEST(ClientRun, StopBetweenGetNextFileAndTheFileIsNotLost)
{
    CScriptedServer server;
    const CTempFolder folder;
    CSubmitRun run;
    run.m_host.m_entries = {{folder.WriteFile("a", "data"), "", 0}};
    const CStopUnderWay stop;
    std::thread stopper;
    const std::function<void()> fnStop = [&]
    {
        stopper = std::thread([&run] { run.Stop(); });
        stop.Wait();
    };
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "next")
        {
            g_pOnStat = &fnStop;
        }
    };
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    // Not answered: had the stop been lost, this would be the last word of both.
    EXPECT_EQ(Wire::GetCode(server.Take()), "UPFI");
    server.Expect(Wire::Caop(2));
    EXPECT_EQ(Wire::GetCode(server.Take()), "DELT");
    server.m_peer.Close();
    stopper.join();
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(),
              (std::vector<std::string>{"connected", "next", "disconnected 0"}));
}

}  // namespace
