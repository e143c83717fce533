#include "WXSPFraming.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Hex.h"
#include "RawSocket.h"
#include "WireRecords.h"

namespace
{

class CSink final : public IWXSPPacketSink
{
public:
    Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) override
    {
        m_packets.emplace_back(reinterpret_cast<const char*>(pPacket),
                               sizeof(_WXS_PACKET) + pPacket->dwDataSize);
        return Orb_FALSE;  // nobody looks at it
    }

    std::vector<std::string> m_packets;
};

class CFramingTest : public ::testing::Test
{
protected:
    CFramingTest()
    {
        EXPECT_TRUE(m_ring.Create(WXSP_RING_SIZE));
        EXPECT_TRUE(m_received.Create(WXSP_CLIENT_RECEIVE_SIZE));
    }
    void Put(const std::string& strBytes)
    {
        ASSERT_NE(m_ring.GetFree(static_cast<int>(strBytes.size())), nullptr);
        memcpy(m_ring.GetFree(0), strBytes.data(), strBytes.size());
        m_ring.AppendData(static_cast<int>(strBytes.size()));
    }
    // As a client does: receives of at most 1,024 bytes, or of nMost.
    bool Collect(const std::string& strBytes, size_t nMost = WXSP_CLIENT_RECEIVE_SIZE)
    {
        for (size_t nDone = 0; nDone < strBytes.size();)
        {
            const std::string strPart = strBytes.substr(nDone, nMost);
            memcpy(m_received.GetFree(0), strPart.data(), strPart.size());
            m_received.AppendData(static_cast<int>(strPart.size()));
            if (!CollectPackets(m_ring, m_received, m_sink))
            {
                return false;
            }
            EXPECT_EQ(m_received.GetDataSize(), 0);
            nDone += strPart.size();
        }
        return true;
    }

    CRingTCPStreamBuffer m_ring;
    CSimpleTCPStreamBuffer m_received;
    CSink m_sink;
};
using WXSPFraming = CFramingTest;

TEST_F(WXSPFraming, IncompleteHeaderHasNoSize)
{
    const std::string strPacket = Wire::Namc(1, u"x");
    Put(strPacket.substr(0, 11));
    EXPECT_EQ(GetPacketSize(m_ring), 0U);
    EXPECT_EQ(GetCompletePacket(m_ring), nullptr);
    Put(strPacket.substr(11, 1));
    EXPECT_EQ(GetPacketSize(m_ring), strPacket.size());
    EXPECT_EQ(GetCompletePacket(m_ring), nullptr);
}

TEST_F(WXSPFraming, PacketIsCompleteWithItsLastByte)
{
    const std::string strPacket = Wire::Namc(1, u"name");
    Put(strPacket.substr(0, strPacket.size() - 1));
    EXPECT_EQ(GetCompletePacket(m_ring), nullptr);
    Put(strPacket.substr(strPacket.size() - 1));
    const PWXS_PACKET pPacket = GetCompletePacket(m_ring);
    ASSERT_NE(pPacket, nullptr);
    EXPECT_EQ(memcmp(pPacket, strPacket.data(), strPacket.size()), 0);
}

TEST_F(WXSPFraming, LargestPacketFillsTheRingExactly)
{
    Put(Wire::Packet("UPFB", Pattern(131060)));
    EXPECT_EQ(m_ring.GetFreeSize(), 0);
    EXPECT_NE(GetCompletePacket(m_ring), nullptr);
}

// In 32 bits these totals wrap to small or negative ones.
TEST_F(WXSPFraming, HugeSizesNeverComplete)
{
    for (const uint32_t dwSize : {131061U, 0x7FFFFFF3U, 0x7FFFFFF4U, 0x7FFFFFFFU, 0x80000000U,
                                  0xFFFFFFF3U, 0xFFFFFFF4U, 0xFFFFFFF5U, 0xFFFFFFFFU})
    {
        m_ring.Clear();
        Put(Wire::PacketWithSize("UPFB", dwSize, Pattern(131060)));
        EXPECT_EQ(GetPacketSize(m_ring), 12ULL + dwSize);
        EXPECT_EQ(GetCompletePacket(m_ring), nullptr) << dwSize;
    }
}

TEST_F(WXSPFraming, RecordsMustLieInsideTheirPacket)
{
    for (uint32_t dwSize = 0; dwSize < 20; ++dwSize)
    {
        const _WXS_PACKET packet = {WXSP_VERSION, UPFB, dwSize};
        EXPECT_EQ(HoldsRecord(&packet, 8), dwSize >= 8) << dwSize;
    }
}

TEST_F(WXSPFraming, NamesMustEndInsideTheirPacket)
{
    // An exact allocation for each length, so that a look behind it is seen.
    const std::string strWhole = Wire::Dfil(1, 0, u"ab");
    for (size_t nSize = 12; nSize <= strWhole.size(); ++nSize)
    {
        std::vector<char> bytes(strWhole.begin(),
                                strWhole.begin() + static_cast<std::ptrdiff_t>(nSize));
        const uint32_t dwSize = static_cast<uint32_t>(nSize - 12);
        memcpy(bytes.data() + 8, &dwSize, sizeof dwSize);
        const auto* pPacket = reinterpret_cast<const _WXS_PACKET*>(bytes.data());
        EXPECT_EQ(HoldsNamedRecord(pPacket, sizeof(_WXS_DOWN_FILE)), nSize == strWhole.size())
            << nSize;
    }
}

TEST_F(WXSPFraming, ZeroBytesOfTwoNeighbouringUnitsAreNoTerminator)
{
    const std::string strPacket = Wire::Packet("NAMC", Wire::U32(1) + std::string("\1\0\0\1", 4));
    std::vector<char> bytes(strPacket.begin(), strPacket.end());
    EXPECT_FALSE(HoldsNamedRecord(reinterpret_cast<_WXS_PACKET*>(bytes.data()), 4));
}

TEST_F(WXSPFraming, NamesAreReadAndWrittenAtOddAddresses)
{
    const std::string strName = Wire::Name(u"\u00C4\U0001F600");
    std::vector<char> bytes(1 + strName.size());
    memcpy(bytes.data() + 1, strName.data(), strName.size());
    EXPECT_EQ(ReadName(bytes.data() + 1), "\xC3\x84\xF0\x9F\x98\x80");
    std::vector<char> copy(1 + strName.size());
    const unsigned short units[] = {0xC4, 0xD83D, 0xDE00, 0};
    WriteName(copy.data() + 1, CUTF16String(units));
    EXPECT_EQ(Hex(std::string(copy.begin() + 1, copy.end())), Hex(strName));
}

TEST_F(WXSPFraming, ClientCutsPacketsAtEverySplit)
{
    const std::string strFirst = Wire::Result("NAMR", 1, 0);
    const std::string strSecond = Wire::Dfrb(2, "data");
    const std::string strBoth = strFirst + strSecond;
    for (size_t nSplit = 0; nSplit <= strBoth.size(); ++nSplit)
    {
        m_sink.m_packets.clear();
        EXPECT_TRUE(Collect(strBoth.substr(0, nSplit)));
        EXPECT_TRUE(Collect(strBoth.substr(nSplit)));
        EXPECT_EQ(m_sink.m_packets, (std::vector<std::string>{strFirst, strSecond})) << nSplit;
        EXPECT_EQ(m_ring.GetDataSize(), 0);
    }
}

TEST_F(WXSPFraming, ClientCutsPacketsByteByByte)
{
    const std::string strPacket = Wire::Dfrb(2, Pattern(3000));
    EXPECT_TRUE(Collect(strPacket + strPacket, 1));
    EXPECT_EQ(m_sink.m_packets, (std::vector<std::string>{strPacket, strPacket}));
}

TEST_F(WXSPFraming, ClientGrowsItsRingForAPacketOf300000Bytes)
{
    const std::string strPacket = Wire::Packet("DFRB", Pattern(300000));
    EXPECT_TRUE(Collect(strPacket + Wire::Brow()));
    EXPECT_EQ(m_ring.GetBufferSize(), 301036);
    ASSERT_EQ(m_sink.m_packets.size(), 2U);
    EXPECT_EQ(Hex(m_sink.m_packets[0]), Hex(strPacket));
    EXPECT_EQ(Hex(m_sink.m_packets[1]), Hex(Wire::Brow()));
}

// Such a packet leaves too little room in the ring for a whole receive.
TEST_F(WXSPFraming, ClientTakesPacketsThatAlmostFillTheRing)
{
    for (const size_t nSize : {130036U, 130037U, 130500U, 131059U, 131060U, 131061U})
    {
        m_sink.m_packets.clear();
        const std::string strPacket = Wire::Packet("DFRB", Pattern(nSize));
        EXPECT_TRUE(Collect(Wire::Brow() + strPacket + Wire::Brow())) << nSize;
        ASSERT_EQ(m_sink.m_packets.size(), 3U) << nSize;
        EXPECT_EQ(Hex(m_sink.m_packets[1]), Hex(strPacket));
    }
}

TEST_F(WXSPFraming, RequestBeyondAllSizesIsRefused)
{
    EXPECT_EQ(CreateRequest(UPFB, static_cast<size_t>(INT_MAX) - WXSP_HEADER_SIZE + 1), nullptr);
    EXPECT_EQ(CreateRequest(UPFB, SIZE_MAX), nullptr);
}

// A size that was raised after the request was made would send what lies behind it.
TEST_F(WXSPFraming, RequestThatClaimsMoreThanItHoldsIsNotSent)
{
    CIOEngine engine;
    ASSERT_TRUE(engine.Create(1));
    CSocketPair pair;
    CTCPStream stream(&engine);
    ASSERT_TRUE(stream.Attach(pair.m_near.Release(), true));
    CSendBufferOwner buffersOut;
    CRequestPtr pRequest = CreateRequest(UPFB, 8);
    ++GetPacket(pRequest)->dwDataSize;
    EXPECT_FALSE(SendRequest(buffersOut, stream, std::move(pRequest)));
    EXPECT_TRUE(SendRequest(buffersOut, stream, CreateRequest(UPFB, 8)));
    stream.InitiateDestroy();
    EXPECT_FALSE(SendRequest(buffersOut, stream, CreateRequest(UPFB, 8))) << "on its way out";
    stream.CompleteDestroy();
}

TEST_F(WXSPFraming, ClientGivesUpOnAPacketThatNoRingCanHold)
{
    EXPECT_FALSE(Collect(Wire::PacketWithSize("DFRB", 0xFFFFFFF4, Pattern(140000))));
    EXPECT_TRUE(m_sink.m_packets.empty());
    EXPECT_EQ(m_ring.GetBufferSize(), WXSP_RING_SIZE);
}

}  // namespace
