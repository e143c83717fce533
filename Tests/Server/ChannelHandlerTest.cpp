// How channel packets are gathered and sent: order, batches, times.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ChannelFixture.h"
#include "DebugRecords.h"
#include "Hex.h"

namespace
{

const unsigned int OTHER_ADDRESS = INADDR_LOOPBACK + 1;  // 127.0.0.2

using ChannelHandler = CChannelTest;

// "1.0 2.0 1.1 2.1": what PutNumbers puts, in the channels' turns.
std::string Turns(std::initializer_list<int> channels, int nFirst, int nTurns)
{
    std::string strAll;
    for (int i = nFirst; i < nFirst + nTurns; ++i)
    {
        for (const int nChannel : channels)
        {
            strAll +=
                (strAll.empty() ? "" : " ") + std::to_string(nChannel) + "." + std::to_string(i);
        }
    }
    return strAll;
}

TEST_F(ChannelHandler, RequestFor0ChannelsIsAcceptedAndLooksForNothing)
{
    CPeer peer = Connect();
    Deliver(peer, Wire::Packet("OCHS", Wire::U32(0)));
    EXPECT_TRUE(GetStore().m_mapChannels.empty());
    EXPECT_EQ(m_engine.CalcNextTimeout(), 100) << "the next look";
    Pass(101);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 200);
    ExpectAlive(peer);
}

TEST_F(ChannelHandler, RequestFor10ChannelsIsAccepted)
{
    CPeer peer = Open({10, 9, 8, 7, 6, 5, 4, 3, 2, 1});
    PutNumbers({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, 2);
    Pass(101);
    EXPECT_EQ(Receive(peer, 20), Turns({10, 9, 8, 7, 6, 5, 4, 3, 2, 1}, 0, 2));
}

TEST_F(ChannelHandler, RequestFor11ChannelsIsRefused)
{
    CPeer peer = Open({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    ExpectRefused(peer);
    EXPECT_TRUE(GetStore().m_mapChannels.empty());
}

TEST_F(ChannelHandler, NumberThatComesTwiceIsRegisteredTwiceAndServedOnce)
{
    CPeer peer = Open({5, 6, 5});
    EXPECT_EQ(GetUsers(5), 2);
    EXPECT_EQ(GetUsers(6), 1);
    PutNumbers({5, 6}, 3);
    Pass(101);
    EXPECT_EQ(Receive(peer, 6), "5.0 6.0 5.1 5.2 6.1 6.2");
    End(peer);
    EXPECT_TRUE(GetStore().m_mapChannels.empty());
}

TEST_F(ChannelHandler, PacketOf0BytesTravelsAs16)
{
    CPeer peer = Open({7});
    EXPECT_EQ(GetStore().PutChannelPacket(7, nullptr, 0), 0U);
    Pass(101);
    EXPECT_EQ(Hex(peer.m_socket.ReceivePacket()),
              "00 00 01 00 54 4b 50 43 04 00 00 00 07 00 00 00");
}

TEST_F(ChannelHandler, PacketOf1500BytesTravelsAs1516)
{
    CPeer peer = Open({0xFFFFFFFF});
    const std::string strData = Pattern(1500);
    EXPECT_EQ(Put(0xFFFFFFFF, strData), 0U);
    Pass(101);
    const std::string strPacket = peer.m_socket.ReceivePacket();
    EXPECT_EQ(strPacket.size(), 1516U);
    EXPECT_EQ(Hex(strPacket), Hex(Wire::Cpkt(0xFFFFFFFF, strData)));
    EXPECT_EQ(Wire::GetU32(strPacket, 8), 1504U);
}

TEST_F(ChannelHandler, NothingButPacketsIsSent)
{
    CPeer peer = Open({7});
    Pass(500);
    Put(7, "x");
    Pass(202);
    Deliver(peer, Wire::Keep());
    peer.m_socket.ShutdownSend();
    RunUntil("the connection's end", [&] { return m_core.GetStreamCount() == 0; });
    EXPECT_EQ(Hex(peer.m_socket.ReceiveToEnd()), Hex(Wire::Cpkt(7, "x")));
}

TEST_F(ChannelHandler, ThreeChannelsWith20PacketsEachTakeTurnsInABatchOf11And11And10)
{
    CPeer peer = Open({1, 2, 3});
    PutNumbers({3, 1, 2}, 20);
    CSendGate gate(peer);
    Pass(101);
    EXPECT_EQ(GetPosition(1, peer), 11U);
    EXPECT_EQ(GetPosition(2, peer), 11U);
    EXPECT_EQ(GetPosition(3, peer), 10U);
    EXPECT_EQ(CountReferences(), 32);
    gate.m_nAllowed = 100;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(Receive(peer, 32), Turns({1, 2, 3}, 0, 10) + " 1.10 2.10");
    // The next batch begins with the first channel again.
    EXPECT_EQ(Receive(peer, 2), "1.11 2.11");
    EXPECT_EQ(Receive(peer, 26),
              "3.10 1.12 2.12 3.11 1.13 2.13 3.12 1.14 2.14 3.13 1.15 2.15 3.14 1.16 2.16 3.15 "
              "1.17 2.17 3.16 1.18 2.18 3.17 1.19 2.19 3.18 3.19");
    EXPECT_EQ(CountReferences(), 0);
}

TEST_F(ChannelHandler, OneChannelWith100PacketsIsSentInBatchesOf32And32And32And4)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 100);
    CSendGate gate(peer, 1000);
    std::vector<unsigned int> positions;
    std::vector<long long> references;
    gate.m_fnOnSend = [&]
    {
        positions.push_back(GetPosition(7, peer));
        references.push_back(CountReferences());
    };
    Pass(101);
    std::vector<unsigned int> expectedPositions;
    std::vector<long long> expectedReferences;
    for (const unsigned int dwBatch : {32U, 32U, 32U, 4U})
    {
        const unsigned int dwEnd =
            dwBatch + (expectedPositions.empty() ? 0 : expectedPositions.back());
        for (unsigned int i = dwBatch; i > 0; --i)
        {
            expectedPositions.push_back(dwEnd);
            expectedReferences.push_back(i);  // given back one by one, as each is written
        }
    }
    EXPECT_EQ(positions, expectedPositions);
    EXPECT_EQ(references, expectedReferences);
    EXPECT_EQ(Receive(peer, 100), Turns({7}, 0, 100));
}

// A subscriber is woken once a batch, not by each of its packets.
TEST_F(ChannelHandler, LastPacketOfABatchAloneIsPushed)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 40);
    std::vector<size_t> pushed;
    size_t nSent = 0;
    const CReplacedCall sending(g_callSend,
                                [&](int s, const void* pData, size_t nSize, int nFlags)
                                {
                                    ++nSent;
                                    if ((nFlags & MSG_MORE) == 0)
                                    {
                                        pushed.push_back(nSent);
                                    }
                                    return g_callSend.Real(s, pData, nSize, nFlags);
                                });
    Pass(101);
    EXPECT_EQ(pushed, (std::vector<size_t>{32, 40}));
    EXPECT_EQ(Receive(peer, 40), Turns({7}, 0, 40));
}

TEST_F(ChannelHandler, NextBatchIsGatheredOnlyWhenTheLastIsFullyWritten)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 40);
    CSendGate gate(peer, 31);
    Pass(101);
    EXPECT_EQ(GetPosition(7, peer), 32U);
    EXPECT_EQ(CountReferences(), 1);
    Deliver(peer, Wire::Keep());
    Pass(1000);
    EXPECT_EQ(GetPosition(7, peer), 32U) << "the last packet of the batch is not written yet";
    gate.m_nAllowed = 32;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(GetPosition(7, peer), 40U);
    EXPECT_EQ(CountReferences(), 8);
}

TEST_F(ChannelHandler, PacketThatIsWrittenInPiecesIsGivenBackAfterItsLastByte)
{
    CPeer peer = Open({7});
    const std::string strData = Pattern(1500);
    Put(7, strData);
    {
        CReplacedCall pieces(g_callSend, [&](int s, const void* pData, size_t nSize, int nFlags)
                             { return g_callSend.Real(s, pData, nSize < 7 ? nSize : 7, nFlags); });
        Pass(101);
    }
    EXPECT_EQ(Hex(Receive(peer, 1)), Hex(strData));
    EXPECT_EQ(CountReferences(), 0);
}

TEST_F(ChannelHandler, FirstBatchOfANewConnectionHoldsOnePacketAChannelAtMost)
{
    for (const unsigned int dwChannel : {1U, 2U, 3U})
    {
        GetStore().AddChannel(dwChannel);
    }
    PutNumbers({1, 3}, 5);
    CPeer peer = Connect();
    CSendGate gate(peer);
    Deliver(peer, Wire::Ochs({1, 2, 3}));
    EXPECT_EQ(CountReferences(), 2) << "at once, not with the first look";
    PutNumbers({1, 2, 3}, 2, 5);
    gate.m_nAllowed = 100;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(Receive(peer, 2), "1.4 3.4") << "the newest of each";
    EXPECT_EQ(Receive(peer, 6), Turns({1, 2, 3}, 5, 2)) << "then only what came later";
}

TEST_F(ChannelHandler, ConnectionsAreServedEachAtItsOwnPace)
{
    CPeer slow = Open({7});
    CPeer fast = Open({7});
    CSendGate gate(slow);
    for (unsigned int i = 0; i < 5; ++i)
    {
        PutNumbers({7}, 1000, static_cast<int>(1000 * i));
        m_clock.Advance(101);
        RunUntil("the fast one's packets", [&]
                 { return GetPosition(7, fast) == 1000U * (i + 1) && CountReferences() == 32; });
        EXPECT_EQ(Receive(fast, 1000), Turns({7}, static_cast<int>(1000 * i), 1000));
    }
    EXPECT_EQ(GetPosition(7, slow), 32U);
    gate.m_nAllowed = 10000;
    Deliver(slow, Wire::Keep());
    RunUntil("the slow one's packets",
             [&] { return GetPosition(7, slow) == 5000 && CountReferences() == 0; });
    EXPECT_EQ(Receive(slow, 32), Turns({7}, 0, 32)) << "what it had taken before";
    EXPECT_EQ(Receive(slow, 2048), Turns({7}, 2952, 2048)) << "then what is still stored";
}

TEST_F(ChannelHandler, FirstLookComesAfter100MillisecondsAndLaterOnesEvery200)
{
    CPeer peer = Open({7});
    EXPECT_EQ(m_engine.CalcNextTimeout(), 100);
    Pass(100);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 0) << "a timer is due when its millisecond is over";
    Pass(1);
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(m_engine.CalcNextTimeout(), 200);
        Pass(200);
        EXPECT_EQ(m_engine.CalcNextTimeout(), 0);
        Pass(1);
    }
}

TEST_F(ChannelHandler, PacketIsTakenByTheLookThatFollowsIt)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 1);
    Pass(100);
    EXPECT_EQ(GetPosition(7, peer), 0U);
    Pass(1);
    EXPECT_EQ(GetPosition(7, peer), 1U);
    EXPECT_EQ(Receive(peer, 1), "7.0");
    // What is sent is followed by a look 100 ms later, with nothing to send by one every 200 ms.
    PutNumbers({7}, 1, 1);
    Pass(100);
    EXPECT_EQ(GetPosition(7, peer), 1U);
    Pass(1);
    EXPECT_EQ(GetPosition(7, peer), 2U);
    Pass(101);
    PutNumbers({7}, 1, 2);
    Pass(200);
    EXPECT_EQ(GetPosition(7, peer), 2U);
    Pass(1);
    EXPECT_EQ(GetPosition(7, peer), 3U);
    EXPECT_EQ(Receive(peer, 2), "7.1 7.2");
}

TEST_F(ChannelHandler, LookFindsNothingToDoWhileABatchIsLeft)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 40);
    CSendGate gate(peer);
    Deliver(peer, Wire::Ochs({7}));
    EXPECT_EQ(CountReferences(), 32) << "a further request looks at once";
    Pass(101);
    EXPECT_EQ(CountReferences(), 32);
    EXPECT_GT(m_engine.CalcNextTimeout(), 1000) << "no look is due: the batch ends in one";
    gate.m_nAllowed = 100;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(Receive(peer, 40), Turns({7}, 0, 40));
}

TEST_F(ChannelHandler, KeepDoesNotMoveTheLook)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 1);
    for (int i = 0; i < 4; ++i)
    {
        m_clock.Advance(25);
        Deliver(peer, Wire::Keep());
    }
    EXPECT_EQ(GetPosition(7, peer), 0U);
    Pass(1);
    EXPECT_EQ(GetPosition(7, peer), 1U);
}

TEST_F(ChannelHandler, PeerAt127001IsLocalAndLeftOutOfTheUsage)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 4);
    EXPECT_EQ(GetStore().GetMaxBufferUsage(), 0.0F);
}

TEST_F(ChannelHandler, PeerAtAnyOtherAddressCountsInTheUsage)
{
    CPeer other = Open({7}, OTHER_ADDRESS);
    PutNumbers({7}, 4);
    EXPECT_EQ(GetStore().GetMaxBufferUsage(), 100.0F);
    CPeer local = Open({7});
    PutNumbers({7}, 4, 4);
    EXPECT_EQ(GetStore().GetMaxBufferUsage(), 100.0F) << "the other one's only";
    Pass(101);
    EXPECT_EQ(GetStore().GetMaxBufferUsage(), 0.0F);
    EXPECT_EQ(Receive(other, 8), Turns({7}, 0, 8));
    PutNumbers({7}, 8, 8);
    EXPECT_EQ(GetStore().GetMaxBufferUsage(), 50.0F) << "8 of 16";
}

TEST_F(ChannelHandler, DebugRecordsNameTheHandlerTheCodeAndTheAddressOfTheCount)
{
    const std::string strCode = ", dwMagic = " + std::to_string(Wire::Code("OCHS"));
    CPeer peer = Connect();
    const CDebugRecords records;
    Deliver(peer, Wire::Ochs({7}) + Wire::Ochs({8}) + Wire::Keep());
    std::vector<std::string> texts = records.GetTexts();
    ASSERT_EQ(texts.size(), 8U);
    char szStream[64];
    const void* pStream = m_core.GetNewestStream();
    snprintf(szStream, sizeof szStream, "handler = %p", pStream);
    EXPECT_EQ(texts[0], szStream + strCode) << "the stream chooses the handler";
    const std::string strHandler = texts[1].substr(0, texts[1].find(','));
    EXPECT_NE(strHandler, szStream);
    EXPECT_EQ(strHandler.substr(0, 12), "handler = 0x");
    EXPECT_EQ(texts[1], strHandler + strCode);
    EXPECT_EQ(texts[3], "AddChannel = 7");
    EXPECT_EQ(texts[4], strHandler + strCode);
    EXPECT_EQ(texts[6], "AddChannel = 8");
    EXPECT_EQ(texts[7], strHandler + ", dwMagic = " + std::to_string(Wire::Code("KEEP")));
    // The second request stands 20 bytes behind the first.
    const std::string strCount = strHandler + ", dwNumChannels = 0x";
    ASSERT_EQ(texts[2].substr(0, strCount.size()), strCount);
    ASSERT_EQ(texts[5].substr(0, strCount.size()), strCount);
    EXPECT_EQ(std::stoull(texts[5].substr(strCount.size()), nullptr, 16),
              std::stoull(texts[2].substr(strCount.size()), nullptr, 16) + 20);
}

}  // namespace
