// How the channel client comes to a connection, and to the next one: failed attempts, losses, and
// what lies between two attempts.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <future>
#include <mutex>
#include <thread>

#include "ChannelHost.h"
#include "DeafServer.h"
#include "ScriptedServer.h"
#include "StdoutCapture.h"
#include "SteppedLoops.h"
#include "SystemCalls.h"

namespace
{

typedef std::vector<std::string> CLines;

const int RECONNECT_MS = 1000;
const unsigned int NOBODY = 0xFFFFFFFF;  // an address that the system refuses to connect to

class CChannelConnect : public ::testing::Test
{
protected:
    // Makes the clock pass the timer that the client sleeps for, and not a millisecond more.
    void PassTimer(int nMs)
    {
        ASSERT_TRUE(m_loops.WaitForSleep(nMs));
        m_loops.Advance(nMs - 1);
        ASSERT_TRUE(m_loops.WaitForSleep(1));
        ASSERT_EQ(m_run.m_host.m_events.Get(), m_expected) << "before " << nMs << " ms are over";
        m_loops.Advance(2);
    }
    // The client sleeps for that long, and these events have come besides the ones before.
    void ExpectThenSleep(const CLines& events, int nMs)
    {
        m_expected.insert(m_expected.end(), events.begin(), events.end());
        ASSERT_TRUE(m_loops.WaitForSleep(nMs));
        ASSERT_EQ(m_run.m_host.m_events.Get(), m_expected);
    }

    CSteppedLoops m_loops;
    CScriptedServer m_server;
    CChannelRun m_run;
    CLines m_expected;
};
using ChannelConnect = CChannelConnect;

TEST_F(ChannelConnect, RefusedIsReportedOnceAnAttemptAndTriedAgainAfterOneSecond)
{
    m_server.m_server.Close();
    m_run.Start(m_server.GetPort());
    for (int i = 0; i < 5; ++i)
    {
        ExpectThenSleep({"connect failed 7"}, RECONNECT_MS);
        PassTimer(RECONNECT_MS);
    }
}

TEST_F(ChannelConnect, UnansweredFailsAfterTheConnectTimeoutAndIsTriedAgainAfterOneSecond)
{
    const CDeafServer deaf;
    ASSERT_TRUE(m_run.Start(deaf.GetPort(), {1}, 300));
    for (int i = 0; i < 3; ++i)
    {
        PassTimer(300);
        ExpectThenSleep({"connect failed 7"}, RECONNECT_MS);
        PassTimer(RECONNECT_MS);
    }
}

TEST_F(ChannelConnect, TimeoutOfZeroIsOver)
{
    const CDeafServer deaf;
    m_run.Start(deaf.GetPort(), {1}, 0);
    m_loops.WaitForSleep(0);
    m_loops.Advance(1);
    ExpectThenSleep({"connect failed 7"}, RECONNECT_MS);
}

TEST_F(ChannelConnect, LongestTimeoutsAreLong)
{
    const CDeafServer deaf;
    for (const unsigned int dwTimeoutMs : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    {
        CChannelRun run;
        ASSERT_TRUE(run.Start(deaf.GetPort(), {1}, dwTimeoutMs));
        EXPECT_TRUE(m_loops.WaitForSleep(INT_MAX)) << dwTimeoutMs;
        m_loops.Advance(1000);
        EXPECT_TRUE(m_loops.WaitForSleep(INT_MAX - 1000)) << dwTimeoutMs;
        EXPECT_EQ(run.m_host.m_events.Get(), CLines{}) << dwTimeoutMs;
    }
}

TEST_F(ChannelConnect, TimeoutDoesNotEndAnEstablishedConnection)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort(), {1}, 300));
    m_server.AcceptSubscriber();
    ExpectThenSleep({"connected 7"}, 5000);
    m_loops.Advance(4000);
    ExpectThenSleep({}, 1000);
    EXPECT_TRUE(m_server.m_peer.IsSilent());
}

TEST_F(ChannelConnect, LossIsReportedOnceAndTheRequestComesAgainAfterOneSecond)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort(), {5, 6}));
    for (int i = 0; i < 4; ++i)
    {
        m_server.AcceptSubscriber({5, 6});
        ExpectThenSleep({"connected 7"}, 5000);
        i % 2 == 0 ? m_server.m_peer.Close() : m_server.m_peer.Reset();
        ExpectThenSleep({"disconnected 7"}, RECONNECT_MS);
        PassTimer(RECONNECT_MS);
    }
}

// The request meets a connection that is gone already.
TEST_F(ChannelConnect, LossInsideOnConnectedIsReportedOnceAndAfterwards)
{
    std::promise<void> told;
    std::promise<void> lost;
    m_run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "connected 7")
        {
            told.set_value();
            lost.get_future().wait();
        }
    };
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.m_peer = m_server.m_server.Accept();
    told.get_future().wait();
    m_server.m_peer.Reset();
    lost.set_value();
    ExpectThenSleep({"connected 7", "disconnected 7"}, RECONNECT_MS);
}

TEST_F(ChannelConnect, RefusedAfterALossIsAFailedAttempt)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    ExpectThenSleep({"connected 7"}, 5000);
    m_server.m_server.Close();
    m_server.m_peer.Close();
    ExpectThenSleep({"disconnected 7"}, RECONNECT_MS);
    for (int i = 0; i < 3; ++i)
    {
        PassTimer(RECONNECT_MS);
        ExpectThenSleep({"connect failed 7"}, RECONNECT_MS);
    }
}

// The socket of the lost connection stays until the next attempt; nothing is heard of it any more.
TEST_F(ChannelConnect, NothingIsHandedOverBetweenTwoConnections)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    ExpectThenSleep({"connected 7"}, 5000);
    m_server.Send(Wire::PacketWithSize("CPKT", 0x80000000U, std::string(131072, 'x')) +
                  Wire::Cpkt(1, "late"));
    ExpectThenSleep({"disconnected 7"}, RECONNECT_MS);
    m_server.m_peer.SendWithoutWaiting(Wire::Cpkt(1, "later"));
    m_server.m_peer.Reset();
    PassTimer(RECONNECT_MS);
    m_server.AcceptSubscriber();
    ExpectThenSleep({"connected 7"}, 5000);
}

// What the address stands for: the system refuses before anything is sent.
TEST_F(ChannelConnect, AddressThatCannotBeReachedFailsInsideConnectAndOnceMoreAfterTheTimeout)
{
    std::mutex mutex;
    std::vector<std::thread::id> threads;
    m_run.m_host.m_fnOnEvent = [&](const std::string&)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        threads.push_back(std::this_thread::get_id());
    };
    unsigned int dwChannel = 1;
    EXPECT_FALSE(m_run.m_pClient->Connect(0, NOBODY, 80, 400, 1, &dwChannel));
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 0"});
    ExpectThenSleep({"connect failed 0"}, 400);
    for (int i = 0; i < 2; ++i)
    {
        PassTimer(400);
        ExpectThenSleep({"connect failed 7"}, RECONNECT_MS);
        PassTimer(RECONNECT_MS);
        ExpectThenSleep({"connect failed 0"}, 400);
    }
    EXPECT_FALSE(m_run.Start(m_server.GetPort()));  // it has been started
    m_run.Release();
    ASSERT_EQ(threads.size(), 5U);
    EXPECT_EQ(threads[0], std::this_thread::get_id());
    EXPECT_NE(threads[1], std::this_thread::get_id());
    EXPECT_NE(threads[2], std::this_thread::get_id());
}

TEST_F(ChannelConnect, AttemptThatFailedAtOncePrintsOnlyWhenItsTimeoutHasPassed)
{
    const CStdoutCapture capture;
    unsigned int dwChannel = 1;
    EXPECT_FALSE(m_run.m_pClient->Connect(0, NOBODY, 80, 400, 1, &dwChannel));
    ExpectThenSleep({"connect failed 0"}, 400);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl::Connect\n"), 1);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl"), 1);
    PassTimer(400);
    ExpectThenSleep({"connect failed 7"}, RECONNECT_MS);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl::OnConnectFailed\n"), 1);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl"), 2);
}

// As ChannelConnect, with a network that the test takes away: connecting fails at once meanwhile.
class CChannelNetwork : public ::testing::Test
{
protected:
    std::atomic<bool> m_bAway{false};
    std::atomic<int> m_nAttempts{0};
    const CReplacedCall<int(int, const sockaddr*, socklen_t)> m_connecting{
        g_callConnect, [this](int s, const sockaddr* pAddress, socklen_t nLength)
        {
            ++m_nAttempts;
            if (!m_bAway)
            {
                return g_callConnect.Real(s, pAddress, nLength);
            }
            errno = ENETUNREACH;
            return -1;
        }};
    CSteppedLoops m_loops;
    CScriptedServer m_server;
    CChannelRun m_run;
};
using ChannelNetwork = CChannelNetwork;

TEST_F(ChannelNetwork, ThatComesUpLaterIsFoundByItself)
{
    m_bAway = true;
    EXPECT_FALSE(m_run.Start(m_server.GetPort(), {1}, 400));
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 0"});
    m_loops.WaitForSleep(400);
    m_bAway = false;
    m_loops.Advance(401);
    m_loops.WaitForSleep(RECONNECT_MS);
    EXPECT_EQ(m_nAttempts, 1);  // the attempt that failed is not taken up again
    m_loops.Advance(1001);
    m_server.AcceptSubscriber();
    m_loops.WaitForSleep(5000);
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connect failed 0", "connect failed 7", "connected 7"}));
}

TEST_F(ChannelNetwork, ThatGoesAwayWithTheConnectionIsReportedTwiceAnAttempt)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort(), {1}, 400));
    m_server.AcceptSubscriber();
    m_loops.WaitForSleep(5000);
    m_bAway = true;
    m_server.m_peer.Close();
    for (int i = 0; i < 2; ++i)
    {
        m_loops.WaitForSleep(RECONNECT_MS);
        m_loops.Advance(1001);
        m_loops.WaitForSleep(400);
        m_loops.Advance(401);
    }
    m_loops.WaitForSleep(RECONNECT_MS);
    m_bAway = false;
    m_loops.Advance(1001);
    m_server.AcceptSubscriber();
    m_loops.WaitForSleep(5000);
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connected 7", "disconnected 7", "connect failed 0", "connect failed 7",
                      "connect failed 0", "connect failed 7", "connected 7"}));
}

}  // namespace
