// The end of a channel client, from outside and from inside each of its callbacks: no callback
// comes afterwards, and nothing is left behind.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

#include "ChannelHost.h"
#include "DeafServer.h"
#include "Leftovers.h"
#include "ScriptedServer.h"
#include "SteppedLoops.h"
#include "SystemCalls.h"

namespace
{

typedef std::vector<std::string> CLines;

const unsigned int NOBODY = 0xFFFFFFFF;  // an address that the system refuses to connect to

class CChannelRelease : public ::testing::Test
{
protected:
    // Releases the client inside this event, the first time it comes.
    void ReleaseInside(const std::string& strEvent)
    {
        m_run.m_host.m_fnOnEvent = [this, strEvent](const std::string& strNow)
        {
            if (strNow == strEvent)
            {
                m_run.Release();
            }
        };
    }
    // Connect to an address that fails at once.
    bool StartNowhere(unsigned int dwTimeoutMs)
    {
        unsigned int dwChannel = 1;
        return m_run.m_pClient->Connect(0, NOBODY, 80, dwTimeoutMs, 1, &dwChannel) != 0;
    }

    CSteppedLoops m_loops;
    CScriptedServer m_server;
    CChannelRun m_run;
    const CLeftovers m_leftovers;
};
using ChannelRelease = CChannelRelease;

TEST_F(ChannelRelease, WithoutAConnect)
{
    m_run.Release();
    EXPECT_TRUE(m_leftovers.IsNone());
}

TEST_F(ChannelRelease, WhileConnecting)
{
    const CDeafServer deaf;
    const CLeftovers leftovers;
    ASSERT_TRUE(m_run.Start(deaf.GetPort()));
    m_loops.WaitForSleep(20000);
    m_run.Release();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{});
    EXPECT_TRUE(leftovers.IsNone());
}

TEST_F(ChannelRelease, WhileConnected)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    m_loops.WaitForSleep(5000);
    m_run.Release();
    EXPECT_TRUE(m_server.m_peer.IsClosedByPeer());
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connected 7"});
    m_server.m_peer.Close();
    EXPECT_TRUE(m_leftovers.IsNone());
}

TEST_F(ChannelRelease, WhileItWaitsAfterALoss)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    m_server.m_peer.Close();
    m_loops.WaitForSleep(1000);
    m_run.Release();
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected 7", "disconnected 7"}));
    EXPECT_TRUE(m_leftovers.IsNone());
}

TEST_F(ChannelRelease, WhileItWaitsAfterAFailedAttempt)
{
    m_server.m_server.Close();
    m_run.Start(m_server.GetPort());
    m_loops.WaitForSleep(1000);
    m_run.Release();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 7"});
    EXPECT_TRUE(m_leftovers.IsNone());
}

TEST_F(ChannelRelease, WhileAnAttemptThatFailedAtOnceRunsOut)
{
    EXPECT_FALSE(StartNowhere(400));
    m_loops.WaitForSleep(400);
    m_run.Release();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 0"});
    EXPECT_TRUE(m_leftovers.IsNone());
}

TEST_F(ChannelRelease, WithHalfAPacketReceived)
{
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    m_server.Send(Wire::Cpkt(1, "first") +
                  Wire::Cpkt(1, std::string(200000, 'x')).substr(0, 150000));
    m_run.m_host.m_events.WaitFor(PacketLine(1, "first"));
    m_run.Release();
    m_server.m_peer.Close();
    EXPECT_TRUE(m_leftovers.IsNone());
}

// On real time: the release meets the worker wherever it is just then.
TEST(ChannelReleaseAnywhere, LeavesNothingBehind)
{
    CRawServer server;
    const CLeftovers leftovers;
    for (int i = 0; i < 200; ++i)
    {
        CRawSocket peer;
        CChannelRun run;
        ASSERT_TRUE(run.Start(server.GetPort()));
        if (i % 4 != 0)
        {
            peer = server.Accept();
        }
        if (i % 4 == 2)
        {
            peer.Reset();
        }
        if (i % 4 == 3)
        {
            peer.Send(Wire::Cpkt(1, "data") + Wire::Cpkt(2, "more"));
        }
        run.Release();
        const size_t nEvents = run.m_host.m_events.Get().size();
        EXPECT_LE(nEvents, 3U);
        if (i % 4 == 0)
        {
            server.Accept();
        }
    }
    leftovers.ExpectNone();
}

TEST_F(ChannelRelease, InsideOnConnected)
{
    ReleaseInside("connected 7");
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.m_peer = m_server.m_server.Accept();
    m_server.m_peer.ReceiveToEnd();
    m_server.m_peer.Close();
    m_leftovers.ExpectNone();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connected 7"});
}

TEST_F(ChannelRelease, InsideOnChannelPacketWithMorePacketsBehindIt)
{
    ReleaseInside(PacketLine(2, "b"));
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    m_server.Send(Wire::Cpkt(1, "a") + Wire::Cpkt(2, "b") + Wire::Cpkt(3, "c") +
                  Wire::Cpkt(2, "b") + Wire::Cpkt(4, std::string(5000, 'd')));
    EXPECT_EQ(m_server.m_peer.ReceiveToEnd(), "");
    m_server.m_peer.Close();
    m_leftovers.ExpectNone();
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connected 7", PacketLine(1, "a"), PacketLine(2, "b")}));
}

TEST_F(ChannelRelease, InsideOnDisconnected)
{
    ReleaseInside("disconnected 7");
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    m_server.Send(Wire::Cpkt(1, "a"));
    m_server.m_peer.Close();
    m_leftovers.ExpectNone();
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connected 7", PacketLine(1, "a"), "disconnected 7"}));
}

TEST_F(ChannelRelease, InsideOnConnectFailedOfARefusal)
{
    ReleaseInside("connect failed 7");
    m_server.m_server.Close();
    m_run.Start(m_server.GetPort());
    m_leftovers.ExpectNone();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 7"});
}

TEST_F(ChannelRelease, InsideOnConnectFailedOfATimeout)
{
    const CDeafServer deaf;
    const CLeftovers leftovers;
    ReleaseInside("connect failed 7");
    ASSERT_TRUE(m_run.Start(deaf.GetPort(), {1}, 300));
    m_loops.WaitForSleep(300);
    m_loops.Advance(301);
    leftovers.ExpectNone();
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 7"});
}

TEST_F(ChannelRelease, InsideOnConnectFailedOnTheHostsThread)
{
    ReleaseInside("connect failed 0");
    EXPECT_FALSE(StartNowhere(0));
    EXPECT_TRUE(m_leftovers.IsNone());
    EXPECT_EQ(m_run.m_host.m_events.Get(), CLines{"connect failed 0"});
}

TEST_F(ChannelRelease, InsideOnConnectFailedOfALaterAttemptThatFailsAtOnce)
{
    int nFailed = 0;
    m_run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        nFailed += strEvent == "connect failed 0" ? 1 : 0;
        if (nFailed == 2)
        {
            m_run.Release();
        }
    };
    EXPECT_FALSE(StartNowhere(400));
    m_loops.WaitForSleep(400);
    m_loops.Advance(401);
    m_loops.WaitForSleep(1000);
    m_loops.Advance(1001);
    m_leftovers.ExpectNone();
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connect failed 0", "connect failed 7", "connect failed 0"}));
}

// On real time, again and again, so that the two threads meet in every order.
TEST(ChannelReleaseAnywhere, InsideTheFirstCallback)
{
    CRawServer server;
    const CLeftovers leftovers;
    for (int i = 0; i < 100; ++i)
    {
        CChannelRun run;
        run.m_host.m_fnOnEvent = [&](const std::string&) { run.Release(); };
        unsigned int dwChannel = 1;
        const unsigned int dwAddress = i % 2 == 0 ? LOOPBACK : NOBODY;
        run.m_pClient->Connect(0, dwAddress, server.GetPort(), 1, 1, &dwChannel);
        if (i % 2 == 0)
        {
            // Keeps the host alive until the client has closed its socket.
            server.Accept().ReceiveToEnd();
            leftovers.ExpectNone();
        }
        EXPECT_EQ(run.m_host.m_events.Get().size(), 1U);
    }
}

}  // namespace
