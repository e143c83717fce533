// What Connect needs before its first attempt, and how that attempt is kept off the worker.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "ChannelHost.h"
#include "Leftovers.h"
#include "ScriptedServer.h"
#include "StdoutCapture.h"
#include "SteppedLoops.h"
#include "SystemCalls.h"

namespace
{

typedef std::vector<std::string> CLines;

// Nothing shows from outside that the worker could have come this far: give it time.
void GiveTheWorkerTime()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// Connect returns false for want of something; afterwards nothing runs, and Release works.
void ExpectNothingStarted(CChannelRun& run)
{
    CScriptedServer server;
    const CStdoutCapture capture;
    const CLeftovers leftovers;
    EXPECT_FALSE(run.Start(server.GetPort()));
    EXPECT_TRUE(leftovers.IsNone());
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl"), 0);
    run.Release();
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{});
}

TEST(ChannelSetup, WithoutEpollStartsNothing)
{
    CChannelRun run;
    const CReplacedCall failing(g_callEpollCreate1,
                                [](int)
                                {
                                    errno = EMFILE;
                                    return -1;
                                });
    ExpectNothingStarted(run);
}

TEST(ChannelSetup, WithoutAPipeStartsNothing)
{
    CChannelRun run;
    const CReplacedCall failing(g_callPipe2,
                                [](int*, int)
                                {
                                    errno = EMFILE;
                                    return -1;
                                });
    ExpectNothingStarted(run);
}

TEST(ChannelSetup, WithoutAThreadStartsNothing)
{
    CChannelRun run;
    const CReplacedCall failing(g_callPthreadCreate,
                                [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
                                { return EAGAIN; });
    ExpectNothingStarted(run);
}

// A replaced socket call that fails for as long as the test wants.
class CChannelSocket : public ::testing::Test
{
protected:
    std::atomic<bool> m_bNone{false};
    std::atomic<int> m_nRefused{0};
    const CReplacedCall<int(int, int, int)> m_creating{
        g_callSocket, [this](int nDomain, int nType, int nProtocol)
        {
            if (!m_bNone)
            {
                return g_callSocket.Real(nDomain, nType, nProtocol);
            }
            ++m_nRefused;
            errno = EMFILE;
            return -1;
        }};
    CSteppedLoops m_loops;
    CScriptedServer m_server;
    CChannelRun m_run;
    const CLeftovers m_leftovers;
};
using ChannelSocket = CChannelSocket;

TEST_F(ChannelSocket, ThatIsMissingAtTheStartReportsAndTriesNothing)
{
    m_bNone = true;
    EXPECT_FALSE(m_run.Start(m_server.GetPort()));
    m_bNone = false;
    EXPECT_EQ(m_nRefused, 1);
    m_loops.WaitForSleep(-1);  // no timer runs
    EXPECT_FALSE(m_run.Start(m_server.GetPort()));
    m_run.Release();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{});
    EXPECT_TRUE(m_leftovers.IsNone());
}

TEST_F(ChannelSocket, ThatIsMissingAtALaterAttemptEndsTheAttempts)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    m_server.m_peer.Close();
    m_loops.WaitForSleep(1000);
    m_bNone = true;
    m_loops.Advance(1001);
    m_loops.WaitForSleep(-1);
    EXPECT_EQ(m_nRefused, 1);
    m_run.Release();
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected 7", "disconnected 7"}));
    EXPECT_TRUE(m_leftovers.IsNone());
}

// The worker exists before the first attempt is made, and that attempt is made on this thread: had
// the worker not to wait, it would meet the connection while it is still being set up.
TEST(ChannelSetup, WorkerCallsNobodyBeforeTheFirstAttemptHasBeenSetUp)
{
    CScriptedServer server;
    CChannelRun run;
    std::atomic<int> nWaits{0};
    const CReplacedCall waiting(g_callEpollWait,
                                [&](int hEpoll, epoll_event* pEvents, int nMax, int nTimeoutMs)
                                {
                                    ++nWaits;
                                    return g_callEpollWait.Real(hEpoll, pEvents, nMax, nTimeoutMs);
                                });
    const CReplacedCall connecting(g_callConnect,
                                   [&](int s, const sockaddr* pAddress, socklen_t nLength)
                                   {
                                       const int nThreads = CountThreads();
                                       const int nResult = g_callConnect.Real(s, pAddress, nLength);
                                       GiveTheWorkerTime();
                                       EXPECT_EQ(nWaits, 0);
                                       EXPECT_EQ(run.m_host.m_events.Get(), CLines{});
                                       EXPECT_EQ(CountThreads(),
                                                 nThreads);  // it is there, and waits
                                       return nResult;
                                   });
    const int nThreads = CountThreads();
    run.Start(server.GetPort());
    EXPECT_EQ(CountThreads(), nThreads + 1);
    server.AcceptSubscriber();
    run.m_host.m_events.WaitFor("connected 7");
    EXPECT_GT(nWaits, 0);
    run.Release();
}

// The same while the host is being told of an attempt that failed at once: the connect timer, long
// over, has to wait for it.
TEST(ChannelSetup, WorkerCallsNobodyWhileTheHostHearsOfTheFirstAttempt)
{
    CChannelRun run;
    std::atomic<int> nCalls{0};
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        ++nCalls;
        if (strEvent == "connect failed 0")
        {
            GiveTheWorkerTime();
            EXPECT_EQ(nCalls, 1);
        }
    };
    unsigned int dwChannel = 1;
    EXPECT_FALSE(run.m_pClient->Connect(0, 0xFFFFFFFF, 80, 1, 1, &dwChannel));
    run.m_host.m_events.WaitFor("connect failed 7");
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connect failed 0", "connect failed 7"}));
}

}  // namespace
