// Packets that go out when the host says so, ahead of every timer.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ChannelFixture.h"
#include "ServerFixture.h"
#include "SteppedLoops.h"

namespace
{

bool IsNoDelay(const CPeer& peer)
{
    int nNoDelay = 0;
    socklen_t nSize = sizeof nNoDelay;
    EXPECT_EQ(getsockopt(peer.m_hServer, IPPROTO_TCP, TCP_NODELAY, &nNoDelay, &nSize), 0);
    return nNoDelay != 0;
}

class CChannelFlushTest : public CChannelTest
{
protected:
    void Flush()
    {
        m_core.FlushChannelPackets();
        RunPasses(3);
    }
};
using ChannelFlush = CChannelFlushTest;

TEST_F(ChannelFlush, SendsWhatWaitsWithoutAnyTimePassing)
{
    CPeer peer = Open({1, 2});
    PutNumbers({2, 1}, 2);
    Flush();
    EXPECT_EQ(Receive(peer, 4), "1.0 2.0 1.1 2.1");
    PutNumbers({1}, 1, 2);
    Flush();
    EXPECT_EQ(Receive(peer, 1), "1.2");
    EXPECT_EQ(CountReferences(), 0);
}

TEST_F(ChannelFlush, ReachesEveryConnectionThatWaits)
{
    CPeer peers[] = {Open({1}), Open({2}), Open({1, 2})};
    PutNumbers({1, 2}, 1);
    Flush();
    EXPECT_EQ(Receive(peers[0], 1), "1.0");
    EXPECT_EQ(Receive(peers[1], 1), "2.0");
    EXPECT_EQ(Receive(peers[2], 2), "1.0 2.0");
}

TEST_F(ChannelFlush, WithoutPacketsLeavesEveryTimeAsItWas)
{
    CPeer peer = Open({1});
    m_clock.Advance(40);
    Flush();
    EXPECT_EQ(m_engine.CalcNextTimeout(), 60) << "the first look, 100 ms after the request";
    EXPECT_FALSE(IsNoDelay(peer));
    Pass(61);
    m_clock.Advance(150);
    Flush();
    EXPECT_EQ(m_engine.CalcNextTimeout(), 50) << "the next, 200 ms after the first";
    PutNumbers({1}, 1);
    Pass(51);
    EXPECT_EQ(Receive(peer, 1), "1.0");
    EXPECT_FALSE(IsNoDelay(peer));
}

TEST_F(ChannelFlush, ThatSentIsFollowedByTheNextLookIn100Ms)
{
    CPeer peer = Open({1});
    m_clock.Advance(40);
    PutNumbers({1}, 1);
    Flush();
    EXPECT_EQ(Receive(peer, 1), "1.0");
    EXPECT_EQ(m_engine.CalcNextTimeout(), 100);
    PutNumbers({1}, 1, 1);
    Pass(101);
    EXPECT_EQ(Receive(peer, 1), "1.1");
}

// The next batch comes when this one is written, as ever.
TEST_F(ChannelFlush, AddsNothingToABatchThatIsUnderWay)
{
    CPeer peer = Open({1});
    PutNumbers({1}, 40);
    CSendGate gate(peer);
    Flush();
    EXPECT_EQ(GetPosition(1, peer), 32U);
    Flush();
    EXPECT_EQ(GetPosition(1, peer), 32U);
    EXPECT_EQ(CountReferences(), 32);
    gate.m_nAllowed = 100;
    Deliver(peer, Wire::Keep());
    for (int i = 0; i < 40; ++i)
    {
        EXPECT_EQ(Receive(peer, 1), "1." + std::to_string(i));
    }
}

// TCP would hold a small packet back until the one before is acknowledged: too long for a host that
// flushes, right for one that does not.
TEST_F(ChannelFlush, HasTheConnectionsThatItServedSendSmallPacketsAtOnce)
{
    CPeer flushed = Open({1});
    CPeer other = Open({2});
    EXPECT_FALSE(IsNoDelay(flushed));
    PutNumbers({1}, 1);
    Flush();
    EXPECT_TRUE(IsNoDelay(flushed));
    EXPECT_FALSE(IsNoDelay(other));
}

TEST_F(ChannelFlush, PassesByAConnectionThatIsEnding)
{
    CPeer ending = Open({1});
    CPeer peer = Open({1});
    EXPECT_TRUE(m_core.TerminateTask(ending.m_lTask));
    PutNumbers({1}, 1);
    Flush();
    EXPECT_EQ(m_core.GetStreamCount(), 1);
    EXPECT_EQ(Receive(peer, 1), "1.0");
    EXPECT_EQ(CountReferences(), 0);
}

TEST_F(ChannelFlush, WithoutAnybodyWhoWaitsDoesNothing)
{
    Flush();
    CPeer peer = Connect();
    Flush();
    Deliver(peer, Wire::Ochs({1}));
    End(peer);
    Flush();
    EXPECT_EQ(m_core.GetStreamCount(), 0);
}

// The exported server, whose clock stands still: nothing but a flush makes it look.
class CFlushedServerTest : public CServerTest
{
protected:
    ~CFlushedServerTest() override
    {
        Stop();  // before its clock goes
    }
    CRawSocket Subscribe()
    {
        CRawSocket peer = Connect();
        peer.Send(Wire::Ochs({1}));
        while (Put("first") != 0)
        {
            std::this_thread::yield();
        }
        m_pServer->FlushChannelPackets();
        EXPECT_EQ(peer.ReceivePacket(), Wire::Cpkt(1, "first"));
        return peer;
    }
    unsigned int Put(std::string strData)
    {
        return m_pServer->PutChannelPacket(1, strData.data(),
                                           static_cast<unsigned int>(strData.size()));
    }

    CSteppedLoops m_loops;
};
using FlushedServer = CFlushedServerTest;

TEST_F(FlushedServer, SendsEachPacketAtOnce)
{
    Start();
    CRawSocket peer = Subscribe();
    for (int i = 0; i < 100; ++i)
    {
        const std::string strData = std::to_string(i);
        EXPECT_EQ(Put(strData), 0U);
        m_pServer->FlushChannelPackets();
        ASSERT_EQ(peer.ReceivePacket(), Wire::Cpkt(1, strData));
    }
}

TEST_F(FlushedServer, TakesItFromAnyThreadAndLosesNone)
{
    Start();
    CRawSocket peer = Subscribe();
    const int nThreads = 4;
    const int nPackets = 200;
    std::vector<std::thread> threads;
    threads.reserve(nThreads);
    for (int i = 0; i < nThreads; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < nPackets; ++n)
                {
                    EXPECT_EQ(Put("x"), 0U);
                    m_pServer->FlushChannelPackets();
                }
            });
    }
    for (int i = 0; i < nThreads * nPackets; ++i)
    {
        ASSERT_EQ(peer.ReceivePacket(), Wire::Cpkt(1, "x"));
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

TEST_F(FlushedServer, IsHarmlessWheneverNothingRuns)
{
    m_pServer->FlushChannelPackets();
    for (int i = 0; i < 3; ++i)
    {
        Start();
        const CRawSocket peer = Subscribe();
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        m_pServer->FlushChannelPackets();
        EXPECT_TRUE(m_pServer->Shutdown());
        m_pServer->FlushChannelPackets();
    }
}

TEST_F(FlushedServer, TakesItWhileItEndsAndStartsAgain)
{
    std::atomic<bool> bOver{false};
    std::thread host(
        [&]
        {
            while (!bOver)
            {
                Put("host");
                m_pServer->FlushChannelPackets();
                std::this_thread::yield();
            }
        });
    for (int i = 0; i < 5; ++i)
    {
        Start();
        CRawSocket peer = Connect();
        peer.Send(Wire::Ochs({1}));
        EXPECT_EQ(peer.ReceivePacket(), Wire::Cpkt(1, "host"));
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_TRUE(m_pServer->Shutdown());
    }
    bOver = true;
    host.join();
}

TEST_F(FlushedServer, TakesItInsideACallback)
{
    m_host.m_fnOnRequest = [this](const CRecordingHost::CRequest& /*request*/)
    {
        Put("named");
        m_pServer->FlushChannelPackets();
    };
    Start();
    CRawSocket reader = Subscribe();
    const CRawSocket browser = Named(u"somebody");
    EXPECT_EQ(reader.ReceivePacket(), Wire::Cpkt(1, "named"));
}

}  // namespace
