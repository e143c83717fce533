// What a channel connection accepts, and what a further request does to the channels of the first.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChannelFixture.h"
#include "Hex.h"

namespace
{

const unsigned int UNKNOWN_TASK = COpenPacketBuffer::UNKNOWN_TASK;

using ChannelRequests = CChannelTest;

std::string Code0(const std::string& strPayload)
{
    return Wire::U32(Wire::VERSION) + Wire::U32(0) +
           Wire::U32(static_cast<uint32_t>(strPayload.size())) + strPayload;
}

TEST_F(ChannelRequests, KeepAndCode0AreAcceptedWhateverTheyCarry)
{
    CPeer peer = Open({7});
    for (const std::string& strPacket :
         {Wire::Keep(), Code0(""), Wire::Packet("KEEP", Pattern(1000)), Code0(Pattern(1000)),
          Wire::Keep() + Code0("x") + Wire::Keep()})
    {
        Deliver(peer, strPacket);
    }
    EXPECT_EQ(m_core.GetStreamCount(), 1);
    EXPECT_EQ(GetUsers(7), 1);
    ExpectAlive(peer);
}

TEST_F(ChannelRequests, KeepBeforeTheRequestIsAccepted)
{
    CPeer peer = Connect();
    Deliver(peer, Wire::Keep() + Wire::Keep());
    EXPECT_TRUE(GetStore().m_mapChannels.empty());
    Deliver(peer, Wire::Keep() + Wire::Ochs({7}));
    PutNumbers({7}, 1);
    Pass(101);
    EXPECT_EQ(Receive(peer, 1), "7.0");
}

TEST_F(ChannelRequests, EveryOtherCodeIsRefused)
{
    for (const std::string& strPacket :
         {Wire::Brow(), Wire::Namc(1, u"x"), Wire::Delt(1, u"/x"), Wire::Cdir(1, u"/dev/null/x"),
          Wire::Dfil(1, 0, u"/x"), Wire::Upfi(1, 1, 0, u"/dev/null/x"), Wire::Upfb(1, 1, ""),
          Wire::Caop(1), Wire::Cpkt(7, "x"), Wire::Packet("????", "")})
    {
        CPeer peer = Open({7});
        Deliver(peer, strPacket + Wire::Ochs({8}));
        ExpectRefused(peer);
        EXPECT_EQ(GetUsers(8), 0) << "nothing is read behind it";
        End(peer);
        EXPECT_EQ(GetUsers(7), 0);
    }
}

TEST_F(ChannelRequests, RequestOnABrowsingConnectionIsRefused)
{
    CPeer peer = Connect();
    Deliver(peer, Wire::Brow());
    EXPECT_EQ(m_core.GetStreamCount(), 1);
    Deliver(peer, Wire::Ochs({7}));
    ExpectRefused(peer);
    EXPECT_TRUE(GetStore().m_mapChannels.empty());
}

TEST_F(ChannelRequests, EndOfAConnectionRemovesItsChannels)
{
    CPeer first = Open({7, 8});
    CPeer second = Open({8});
    End(first);
    EXPECT_EQ(Put(7, "x"), 5U);
    EXPECT_EQ(Put(8, "x"), 0U);
    End(second);
    EXPECT_EQ(Put(8, "x"), 5U);
}

TEST_F(ChannelRequests, RefusedConnectionKeepsItsChannelsUntilItEnds)
{
    CPeer peer = Open({7});
    Deliver(peer, Wire::Brow());
    ExpectRefused(peer);
    EXPECT_EQ(Put(7, "x"), 0U);
    m_clock.Advance(30001);
    RunUntil("the keep-alive time", [&] { return m_core.GetStreamCount() == 0; });
    EXPECT_EQ(Put(7, "x"), 5U);
}

TEST_F(ChannelRequests, SecondRequestServesItsOwnListAtOnce)
{
    CPeer peer = Open({1, 2});
    PutNumbers({1, 2}, 1);
    GetStore().AddChannel(3);
    PutNumbers({3}, 4);
    Deliver(peer, Wire::Ochs({3}));
    EXPECT_EQ(Receive(peer, 1), "3.3");
    Pass(1000);
    EXPECT_TRUE(peer.m_socket.IsSilent());
    EXPECT_EQ(GetPosition(1, peer), 0U) << "not read any more";
}

// Whoever puts has been told that there is a reader: what was put is the reader's, even while the
// connection is still busy with an earlier batch.
TEST_F(ChannelRequests, EveryPacketSinceTheRequestIsSentThoughTheConnectionIsBusy)
{
    CPeer peer = Open({1});
    PutNumbers({1}, 2);
    CSendGate gate(peer);
    Pass(101);
    Deliver(peer, Wire::Ochs({2}));
    PutNumbers({2}, 3);
    gate.m_nAllowed = 100;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(Receive(peer, 5), "1.0 1.1 2.0 2.1 2.2");
}

TEST_F(ChannelRequests, OnlyTheChannelsOfTheSecondRequestAreRemovedAtTheEnd)
{
    CPeer peer = Open({1, 2});
    Deliver(peer, Wire::Ochs({3}));
    End(peer);
    EXPECT_EQ(Put(1, "x"), 0U);
    EXPECT_EQ(Put(2, "x"), 0U);
    EXPECT_EQ(Put(3, "x"), 5U);
    EXPECT_EQ(GetUsers(1), 1);
}

TEST_F(ChannelRequests, ChannelOfBothRequestsKeepsOneUser)
{
    CPeer peer = Open({1});
    Deliver(peer, Wire::Ochs({1}));
    EXPECT_EQ(GetUsers(1), 2);
    End(peer);
    EXPECT_EQ(GetUsers(1), 1);
}

TEST_F(ChannelRequests, EmptySecondRequestLeavesEverythingBehind)
{
    CPeer peer = Open({1});
    Deliver(peer, Wire::Ochs({}));
    PutNumbers({1}, 1);
    Pass(202);
    EXPECT_TRUE(peer.m_socket.IsSilent());
    End(peer);
    EXPECT_EQ(GetUsers(1), 1);
    EXPECT_EQ(m_engine.CalcNextTimeout(), -1) << "no timer is left";
}

TEST_F(ChannelRequests, PositionIsForgottenInEveryChannelEverOpened)
{
    CPeer peer = Open({1, 2}, INADDR_LOOPBACK + 1);
    Deliver(peer, Wire::Ochs({3}));
    Deliver(peer, Wire::Ochs({4, 5}));
    for (const unsigned int dwChannel : {1U, 2U, 3U, 4U, 5U})
    {
        GetStore().AddChannel(dwChannel);
        EXPECT_EQ(GetPosition(dwChannel, peer), 0U);
    }
    End(peer);
    for (const unsigned int dwChannel : {1U, 2U, 3U, 4U, 5U})
    {
        EXPECT_EQ(GetPosition(dwChannel, peer), UNKNOWN_TASK);
    }
    PutNumbers({1, 2, 3, 4, 5}, 3);
    EXPECT_EQ(GetStore().GetMaxBufferUsage(), 0.0F) << "nobody is behind";
}

// Streams are known by their address, which the next connection may get.
TEST_F(ChannelRequests, NextConnectionAtTheSameAddressIsNewInEveryChannel)
{
    bool bSameAddress = false;
    for (int i = 0; i < 200 && !bSameAddress; ++i)
    {
        CPeer first = Open({1, 2});
        Deliver(first, Wire::Ochs({2}));
        GetStore().AddChannel(2);
        PutNumbers({1, 2}, 3);
        End(first);
        CPeer second = Open({1, 2});
        bSameAddress = second.m_lTask == first.m_lTask;
        EXPECT_EQ(Receive(second, 2), "1.2 2.2") << "the newest, not what the first had left";
        End(second);
        GetStore().RemoveAll();
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_TRUE(bSameAddress) << "no two streams had the same address";
#endif
}

TEST_F(ChannelRequests, ChannelThatCouldNotBeAddedIsNotRemovedForSomebodyElse)
{
    for (unsigned int i = 0; i < 4096; ++i)
    {
        ASSERT_TRUE(GetStore().AddChannel(1000 + i));
    }
    CPeer first = Open({7, 1000});
    EXPECT_EQ(Put(7, "x"), 5U);
    EXPECT_EQ(GetUsers(1000), 2);
    GetStore().RemoveChannel(2000, 1);
    CPeer second = Open({7});
    EXPECT_EQ(GetUsers(7), 1);
    PutNumbers({7}, 1);
    Pass(302);
    EXPECT_EQ(GetPosition(7, first), 1U) << "served, now that the channel is there";
    End(first);
    EXPECT_EQ(GetUsers(7), 1) << "the second one's";
    EXPECT_EQ(GetPosition(7, first), UNKNOWN_TASK);
    EXPECT_EQ(GetUsers(1000), 1);
    EXPECT_EQ(Receive(second, 1), "7.0");
    End(second);
    EXPECT_EQ(GetUsers(7), 0);
}

TEST_F(ChannelRequests, StoreThatIsFullRefusesNoConnection)
{
    for (unsigned int i = 0; i < 4096; ++i)
    {
        ASSERT_TRUE(GetStore().AddChannel(1000 + i));
    }
    CPeer peer = Open({1, 2, 5095});
    EXPECT_EQ(GetStore().m_mapChannels.size(), 4096U);
    PutNumbers({5095}, 1);
    Pass(101);
    EXPECT_EQ(Receive(peer, 1), "5095.0");
    EXPECT_EQ(Put(1, "x"), 5U);
    GetStore().RemoveChannel(1000, 1);
    GetStore().RemoveChannel(1001, 1);
    ExpectAlive(peer);
}

TEST_F(ChannelRequests, The65thChannelLeftBehindIsRefused)
{
    CPeer peer = Connect();
    for (unsigned int i = 0; i < 65; ++i)
    {
        Deliver(peer, Wire::Ochs({i}));
        EXPECT_EQ(GetUsers(i), 1);
    }
    EXPECT_EQ(m_core.GetStreamCount(), 1);
    Deliver(peer, Wire::Ochs({65}));
    ExpectRefused(peer);
    EXPECT_EQ(GetUsers(65), 0);
    EXPECT_EQ(GetStore().m_mapChannels.size(), 65U);
    End(peer);
    EXPECT_EQ(GetUsers(63), 1);
    EXPECT_EQ(GetUsers(64), 0) << "the last list that was accepted";
    for (unsigned int i = 0; i < 64; ++i)
    {
        EXPECT_EQ(GetPosition(i, peer), UNKNOWN_TASK);
    }
}

TEST_F(ChannelRequests, ChannelsLeftBehindByThoseWhoHaveGoneDoNotKeepNewOnesOut)
{
    for (unsigned int i = 0; i < 4096; i += 64)
    {
        CPeer peer = Connect();
        for (unsigned int j = i; j < i + 64; ++j)
        {
            Deliver(peer, Wire::Ochs({j}));
        }
        Deliver(peer, Wire::Ochs({}));
        End(peer);
    }
    EXPECT_EQ(GetStore().m_mapChannels.size(), 4096U);
    CPeer peer = Open({5000, 5001});
    PutNumbers({5000, 5001}, 1);
    Pass(101);
    EXPECT_EQ(Receive(peer, 2), "5000.0 5001.0");
    EXPECT_EQ(GetStore().m_mapChannels.size(), 4096U);
}

// The peer is told nothing, and keeps its connection alive: it would wait for ever.
TEST_F(ChannelRequests, ChannelThatFoundNoRoomIsOpenedOnceThereIsSome)
{
    for (unsigned int i = 0; i < 4096; ++i)
    {
        EXPECT_TRUE(GetStore().AddChannel(100 + i));
    }
    CPeer peer = Open({7});
    EXPECT_EQ(Put(7, "7.0"), 5U);
    GetStore().RemoveChannel(100, 1);
    Pass(202);
    ASSERT_EQ(Put(7, "7.1"), 0U);
    Pass(202);
    EXPECT_EQ(Receive(peer, 1), "7.1");
}

TEST_F(ChannelRequests, ListThatWouldLeaveMoreThan64BehindIsRefusedAsAWhole)
{
    CPeer peer = Connect();
    for (unsigned int i = 0; i < 7; ++i)
    {
        Deliver(peer, Wire::Ochs({i, 100, 101, 102, 103, 104, 105, 106, 107, 108}));
    }
    EXPECT_EQ(GetUsers(100), 7);
    Deliver(peer, Wire::Ochs({7}));  // 60 are behind, 10 would follow
    ExpectRefused(peer);
    EXPECT_EQ(GetUsers(7), 0);
    EXPECT_EQ(GetUsers(100), 7);
    End(peer);
    EXPECT_EQ(GetUsers(100), 6);
}

TEST_F(ChannelRequests, LimitIsEachConnectionsOwn)
{
    for (int nConnection = 0; nConnection < 3; ++nConnection)
    {
        CPeer peer = Connect();
        for (unsigned int i = 0; i < 65; ++i)
        {
            Deliver(peer, Wire::Ochs({i}));
        }
        EXPECT_EQ(m_core.GetStreamCount(), 1);
        End(peer);
    }
}

TEST_F(ChannelRequests, EmptyListsLeaveNothingBehindHoweverMany)
{
    CPeer peer = Connect();
    std::string strAll;
    for (int i = 0; i < 1000; ++i)
    {
        strAll += Wire::Ochs({});
    }
    Deliver(peer, strAll);
    ExpectAlive(peer);
}

}  // namespace
