// No packet is lost and none is used too long, however a connection ends.

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "ChannelFixture.h"
#include "OspreyServerStream.h"

namespace
{

class CLifetimeTest : public CChannelTest
{
protected:
    CLifetimeTest()
    {
        // One more user, so that the channel outlives its readers.
        GetStore().AddChannel(7);
    }
    // A connection with this many packets taken and none of them written.
    CPeer Stuck(int nPackets)
    {
        CPeer peer = Open({7});
        m_pGate = std::make_unique<CSendGate>(peer);
        PutNumbers({7}, nPackets);
        Pass(101);
        EXPECT_EQ(CountReferences(), nPackets < 32 ? nPackets : 32);
        return peer;
    }
    void ExpectEverythingGivenBack()
    {
        EXPECT_EQ(CountReferences(), 0);
        EXPECT_EQ(GetUsers(7), 1);
    }

    std::unique_ptr<CSendGate> m_pGate;
};
using ChannelLifetime = CLifetimeTest;

TEST_F(ChannelLifetime, ConnectionThatEndsGivesBackWhatIsGatheredAndWhatIsInFlight)
{
    CPeer peer = Stuck(50);
    End(peer);
    ExpectEverythingGivenBack();
}

TEST_F(ChannelLifetime, PacketInFlightAloneIsGivenBackToo)
{
    CPeer peer = Stuck(1);
    End(peer);
    ExpectEverythingGivenBack();
}

TEST_F(ChannelLifetime, PacketThatIsHalfWrittenIsGivenBackToo)
{
    CPeer peer = Open({7});
    Put(7, std::string(1500, 'x'));
    int nSends = 0;
    CReplacedCall half(g_callSend,
                       [&](int s, const void* pData, size_t nSize, int nFlags) -> ssize_t
                       {
                           if (s != peer.m_hServer || ++nSends == 1)
                           {
                               return g_callSend.Real(s, pData, nSize / 2, nFlags);
                           }
                           errno = EAGAIN;
                           return -1;
                       });
    Pass(101);
    EXPECT_EQ(nSends, 2);
    EXPECT_EQ(CountReferences(), 1);
    End(peer);
    ExpectEverythingGivenBack();
}

TEST_F(ChannelLifetime, ChannelGoesWithItsOnlyReaderWhilePacketsAreInFlight)
{
    CPeer peer = Stuck(50);
    GetStore().RemoveChannel(7, 0);
    EXPECT_EQ(GetUsers(7), 1);
    End(peer);
    EXPECT_TRUE(GetStore().m_mapChannels.empty());
}

TEST_F(ChannelLifetime, SecondRequestDuringABatchGoesOnWithTheBatch)
{
    CPeer peer = Stuck(3);
    Deliver(peer, Wire::Ochs({8}));
    Put(8, "new");
    EXPECT_EQ(CountReferences(), 3);
    m_pGate->m_nAllowed = 100;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(Receive(peer, 4), "7.0 7.1 7.2 new");
    EXPECT_EQ(CountReferences(), 0);
}

// The last packet of a batch is in flight, nothing is gathered: the request starts a second chain.
TEST_F(ChannelLifetime, SecondRequestDuringTheLastPacketStartsAChainOfItsOwn)
{
    CPeer peer = Stuck(1);
    GetStore().AddChannel(8);
    PutNumbers({8}, 1);
    Deliver(peer, Wire::Ochs({8, 7}));
    EXPECT_EQ(CountReferences(), 2);
    PutNumbers({8, 7}, 40, 1);
    m_pGate->m_nAllowed = 1000;
    Deliver(peer, Wire::Keep());
    std::string strExpected = "7.0 8.0";
    for (int i = 1; i <= 40; ++i)
    {
        strExpected += " 8." + std::to_string(i) + " 7." + std::to_string(i);
    }
    RunUntil("all packets", [&] { return CountReferences() == 0 && m_pGate->m_nSent == 82; });
    EXPECT_EQ(Receive(peer, 82), strExpected);
}

TEST_F(ChannelLifetime, ConnectionThatEndsWithSeveralChainsGivesEverythingBack)
{
    CPeer peer = Stuck(1);
    for (int i = 1; i <= 10; ++i)
    {
        PutNumbers({7}, 1, i);
        Deliver(peer, Wire::Ochs({7}));
        EXPECT_EQ(CountReferences(), i + 1);
    }
    End(peer);
    EXPECT_EQ(CountReferences(), 0);
    EXPECT_EQ(GetUsers(7), 11) << "ten left behind, one of the test";
}

TEST_F(ChannelLifetime, EndOfTheServerGivesEverythingBack)
{
    CPeer peer = Stuck(50);
    m_core.EndAllNow();
    EXPECT_EQ(m_core.GetStreamCount(), 0);
    ExpectEverythingGivenBack();
}

// The end comes in the pass in which a look is due, and before it: what the look takes, the stream
// refuses.
TEST_F(ChannelLifetime, PacketThatTheStreamRefusesIsGivenBack)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 5);
    CSendGate gate(peer, 100);
    COspreyServerStream* pStream = m_core.GetNewestStream();
    EXPECT_TRUE(pStream->InitiateDetach());
    m_clock.Advance(101);
    m_engine.ProcessTimer();
    EXPECT_EQ(GetPosition(7, peer), 5U) << "the look took them all";
    EXPECT_EQ(CountReferences(), 4) << "the first was refused, the others are gathered";
    RunUntil("the connection's end", [&] { return m_core.GetStreamCount() == 0; });
    EXPECT_EQ(gate.m_nSent, 0);
    ExpectEverythingGivenBack();
}

TEST_F(ChannelLifetime, ConnectionThatFailsWhileItSendsGivesEverythingBack)
{
    for (const int nAfter : {0, 1, 31, 32, 33})
    {
        CPeer peer = Open({7});
        PutNumbers({7}, 40);
        int nSends = 0;
        CReplacedCall reset(g_callSend,
                            [&](int s, const void* pData, size_t nSize, int nFlags) -> ssize_t
                            {
                                if (s != peer.m_hServer || nSends++ < nAfter)
                                {
                                    return g_callSend.Real(s, pData, nSize, nFlags);
                                }
                                errno = EPIPE;
                                return -1;
                            });
        m_clock.Advance(101);
        RunUntil("the connection's end", [&] { return m_core.GetStreamCount() == 0; });
        EXPECT_EQ(nSends, nAfter + 1);
        ExpectEverythingGivenBack();
    }
}

TEST_F(ChannelLifetime, PeerThatReadsNothingCostsNobodyAnything)
{
    CPeer silent = Open({7});
    CPeer reader = Open({7});
    for (int nRound = 0; nRound < 100; ++nRound)
    {
        std::string strExpected;
        for (int i = 0; i < 1000; ++i)
        {
            const std::string strData = std::to_string(1000 * nRound + i) + std::string(1000, '.');
            ASSERT_EQ(Put(7, strData), 0U);
            strExpected += Wire::Cpkt(7, strData);
        }
        m_clock.Advance(101);
        ASSERT_TRUE(ReceiveWhileRunning(reader, strExpected.size()) == strExpected) << nRound;
    }
    EXPECT_LT(GetPosition(7, silent), 50000U) << "nothing was ever held up";
    EXPECT_LE(CountReferences(), 32 + 1);
    EXPECT_LE(COpenPacketBuffer::GetItemsCreated(*GetStore().FindBuffer(7)), 2048U + 64 + 1);
    EXPECT_EQ(m_core.GetStreamCount(), 2);
    End(silent);
    ExpectAlive(reader);
}

}  // namespace
