// What a broken or hostile peer may send on a channel connection.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "ChannelFixture.h"
#include "DebugRecords.h"
#include "Hex.h"

namespace
{

class CHostileTest : public CChannelTest
{
protected:
    CHostileTest()
    {
        m_other = Open({77});
    }
    // The other connection is served as before.
    void ExpectOtherServed()
    {
        PutNumbers({77}, 1, m_nNext);
        Pass(202);
        EXPECT_EQ(Receive(m_other, 1), "77." + std::to_string(m_nNext));
        ++m_nNext;
    }

    CPeer m_other;
    int m_nNext = 0;
};
using ChannelHostile = CHostileTest;

TEST_F(ChannelHostile, CountsAbove10AreRefusedWhateverTheirSize)
{
    for (const uint32_t dwCount :
         {11U, 12U, 0x100U, 0x3FFFFFFFU, 0x40000000U, 0x40000001U, 0x7FFFFFFFU, 0x80000000U,
          0x80000001U, 0xC0000000U, 0xFFFFFFF0U, 0xFFFFFFFEU, 0xFFFFFFFFU})
    {
        CPeer peer = Connect();
        Deliver(peer, Wire::Packet("OCHS", Wire::U32(dwCount) + Pattern(40)));
        ExpectRefused(peer);
        EXPECT_EQ(GetStore().m_mapChannels.size(), 1U) << dwCount;
        End(peer);
    }
    ExpectOtherServed();
}

TEST_F(ChannelHostile, RefusedListLeavesTheEarlierOneAsItWas)
{
    CPeer peer = Open({1, 2});
    Deliver(peer, Wire::Packet("OCHS", Wire::U32(0xFFFFFFFF)));
    ExpectRefused(peer);
    EXPECT_EQ(GetUsers(1), 1);
    End(peer);
    EXPECT_EQ(GetStore().m_mapChannels.size(), 1U);
    ExpectOtherServed();
}

// Peers depend on it: the list is read behind the count whatever size the header claims.
TEST_F(ChannelHostile, ListLongerThanThePacketIsReadFromWhatFollows)
{
    CPeer peer = Connect();
    Deliver(peer, Wire::Packet("OCHS", Wire::U32(3) + Wire::U32(5)) + Wire::Keep());
    EXPECT_EQ(GetUsers(5), 1);
    EXPECT_EQ(GetUsers(Wire::VERSION), 1) << "the first word of what follows";
    EXPECT_EQ(GetUsers(Wire::Code("KEEP")), 1) << "the second";
    EXPECT_EQ(GetStore().m_mapChannels.size(), 4U);
    ExpectAlive(peer);
}

TEST_F(ChannelHostile, BytesBehindTheListAreSkipped)
{
    CPeer peer = Connect();
    Deliver(peer,
            Wire::Packet("OCHS", Wire::U32(1) + Wire::U32(5) + Pattern(100000)) + Wire::Ochs({6}));
    RunUntil("the second request", [&] { return GetUsers(6) == 1; });
    EXPECT_EQ(GetUsers(5), 1);
    EXPECT_EQ(GetStore().m_mapChannels.size(), 3U);
    ExpectAlive(peer);
}

// The count is read from what follows: the version word of a KEEP, more or less of it.
TEST_F(ChannelHostile, PacketThatEndsBeforeItsCountIsRefused)
{
    for (size_t nSize = 0; nSize < 4; ++nSize)
    {
        CPeer peer = Connect();
        Deliver(peer, Wire::Packet("OCHS", std::string(nSize, '\x7F')) + Wire::Keep());
        ExpectRefused(peer);
        EXPECT_EQ(GetStore().m_mapChannels.size(), 1U);
        End(peer);
    }
    ExpectOtherServed();
}

TEST_F(ChannelHostile, RequestInPiecesIsServedOnceItIsComplete)
{
    const std::string strRequest = Wire::Ochs({7, 8});
    for (size_t nSplit = 1; nSplit < strRequest.size(); ++nSplit)
    {
        CPeer peer = Connect();
        Deliver(peer, strRequest.substr(0, nSplit));
        EXPECT_EQ(GetUsers(7), 0) << nSplit;
        Deliver(peer, strRequest.substr(nSplit));
        EXPECT_EQ(GetUsers(7), 1) << nSplit;
        EXPECT_EQ(GetUsers(8), 1) << nSplit;
        End(peer);
    }
}

// Where the counts of the requests stood, by the debug records.
std::vector<unsigned long long> GetCountAddresses(const CDebugRecords& records)
{
    std::vector<unsigned long long> addresses;
    const std::string strBefore = "dwNumChannels = ";
    for (const std::string& strText : records.GetTexts())
    {
        const size_t nPos = strText.find(strBefore);
        if (nPos != std::string::npos)
        {
            addresses.push_back(std::stoull(strText.substr(nPos + strBefore.size()), nullptr, 16));
        }
    }
    return addresses;
}

// The list is read up to 40 bytes behind the count, wherever in the ring the packet stands.
TEST_F(ChannelHostile, RequestAtTheEndOfTheRingIsReadWithoutLeavingIt)
{
    const size_t nRing = 131072;
    for (size_t nBehind = 1; nBehind <= 72; ++nBehind)
    {
        const CDebugRecords records;
        CPeer peer = Open({});  // stands at the ring's start
        // The KEEP fills the ring but for nBehind bytes, in which the request begins.
        const std::string strKeep = Wire::Packet("KEEP", Pattern(nRing - nBehind - 12));
        const size_t nFirst = strKeep.size() - 1;
        Deliver(peer, strKeep.substr(0, nFirst));
        RunUntil("the ring to fill", [&] { return IsEmpty(peer); });
        Deliver(peer, strKeep.substr(nFirst) + Wire::Packet("OCHS", Wire::U32(10)));
        RunUntil("the request", [&] { return GetCountAddresses(records).size() == 2; });
        const std::vector<unsigned long long> addresses = GetCountAddresses(records);
        ASSERT_EQ(addresses.size(), 2U);
        EXPECT_EQ(addresses[1] - addresses[0], nRing - nBehind);
        EXPECT_EQ(m_core.GetStreamCount(), 2) << "ten numbers are accepted, whichever they are";
        End(peer);
        EXPECT_EQ(m_core.GetStreamCount(), 1);
    }
    ExpectOtherServed();
}

TEST_F(ChannelHostile, AThousandRequestsWithOtherListsAreEndedAtTheLimit)
{
    CPeer peer = Connect();
    std::string strAll;
    for (uint32_t i = 0; i < 1000; ++i)
    {
        strAll += Wire::Ochs({1000 + i * 4, 1001 + i * 4, 1002 + i * 4});
    }
    Deliver(peer, strAll);
    ExpectRefused(peer);
    // 21 lists of three are behind, the 22nd is at hand, the 23rd is refused.
    EXPECT_EQ(GetStore().m_mapChannels.size(), 1U + 22 * 3);
    End(peer);
    EXPECT_EQ(GetStore().m_mapChannels.size(), 1U + 21 * 3);
    ExpectOtherServed();
}

TEST_F(ChannelHostile, ManyConnectionsCannotFillMoreThanTheStoreHolds)
{
    uint32_t dwNext = 1000;
    for (int nConnection = 0; nConnection < 80; ++nConnection)
    {
        CPeer peer = Connect();
        for (int i = 0; i < 8; ++i, dwNext += 8)
        {
            Deliver(peer, Wire::Ochs({dwNext, dwNext + 1, dwNext + 2, dwNext + 3, dwNext + 4,
                                      dwNext + 5, dwNext + 6, dwNext + 7}));
        }
        End(peer);
    }
    EXPECT_EQ(GetStore().m_mapChannels.size(), 4096U - 8) << "the last list went with its peer";
    ExpectOtherServed();
}

TEST_F(ChannelHostile, HugeSizesStallTheirOwnConnectionOnly)
{
    for (const uint32_t dwSize : {131061U, 0x7FFFFFF4U, 0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU})
    {
        CPeer peer = Open({7});
        peer.m_socket.SendWithoutWaiting(Wire::PacketWithSize("OCHS", dwSize, Pattern(140000)));
        RunPasses(5);
        EXPECT_EQ(m_core.GetStreamCount(), 2);
        PutNumbers({7}, 1);
        Pass(202);
        EXPECT_EQ(Receive(peer, 1), "7.0") << "what was opened before goes on";
        ExpectOtherServed();
        End(peer);
    }
}

TEST_F(ChannelHostile, RandomPacketsHarmNobody)
{
    std::mt19937 random(11);
    const std::vector<std::string> codes = {"OCHS", "KEEP", "OCHS", "CPKT", "BROW", "????"};
    for (int nConnection = 0; nConnection < 200; ++nConnection)
    {
        CPeer peer = Open({1, 77});
        for (int i = 0; i < 5; ++i)
        {
            const std::string& strCode = codes[random() % codes.size()];
            const std::string strPayload =
                Wire::U32(static_cast<uint32_t>(random() % 14)) +
                Pattern(random() % 60, static_cast<unsigned int>(random()));
            peer.m_socket.SendWithoutWaiting(Wire::Packet(strCode.c_str(), strPayload));
            RunPasses(2);
        }
        End(peer);
        if (nConnection % 20 == 0)
        {
            ExpectOtherServed();
        }
    }
    ExpectOtherServed();
}

}  // namespace
