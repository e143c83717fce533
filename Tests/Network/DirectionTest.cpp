// The cable of the network simulator, without a network.

#include "Direction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace
{

using std::chrono::milliseconds;
typedef CDirection::CTime CTime;

// A packet of an IPv4 header and a number.
std::string Packet(int nNumber, size_t nSize = 100)
{
    std::string strPacket(nSize, '\0');
    strPacket[0] = 0x45;
    strPacket.replace(20, 6, std::to_string(100000 + nNumber));
    return strPacket;
}

class CDirectionTest : public ::testing::Test
{
protected:
    // Puts numbered packets in, one a millisecond, and takes out all that comes in a minute.
    std::vector<std::string> Carry(CDirection& direction, int nPackets)
    {
        std::vector<std::string> packets;
        std::string strPacket;
        for (int i = 0; i < nPackets + 60000; ++i)
        {
            if (i < nPackets)
            {
                direction.Take(m_start + milliseconds(i), Packet(i));
            }
            while (direction.Give(m_start + milliseconds(i), strPacket))
            {
                packets.push_back(strPacket);
            }
        }
        return packets;
    }

    static std::vector<std::string> Packets(int nPackets)
    {
        std::vector<std::string> packets;
        packets.reserve(static_cast<size_t>(nPackets));
        for (int i = 0; i < nPackets; ++i)
        {
            packets.push_back(Packet(i));
        }
        return packets;
    }

    CLinkSettings m_settings;
    CTime m_start{std::chrono::hours(1)};
};
using Direction = CDirectionTest;

TEST_F(Direction, WithoutFaultsGivesEveryPacketAtOnceAndInOrder)
{
    CDirection direction(m_settings, 1);
    std::string strPacket;
    direction.Take(m_start, Packet(1));
    direction.Take(m_start, Packet(2));
    ASSERT_TRUE(direction.Give(m_start, strPacket));
    EXPECT_EQ(strPacket, Packet(1));
    ASSERT_TRUE(direction.Give(m_start, strPacket));
    EXPECT_EQ(strPacket, Packet(2));
    EXPECT_FALSE(direction.Give(m_start, strPacket));
    EXPECT_EQ(direction.GetNext(), CTime::max());
}

TEST_F(Direction, DelayHoldsAPacketToTheMoment)
{
    m_settings.m_dDelayMs = 100;
    CDirection direction(m_settings, 1);
    std::string strPacket;
    direction.Take(m_start, Packet(1));
    EXPECT_EQ(direction.GetNext(), m_start + milliseconds(100));
    EXPECT_FALSE(direction.Give(m_start + milliseconds(99), strPacket));
    EXPECT_TRUE(direction.Give(m_start + milliseconds(100), strPacket));
}

TEST_F(Direction, JitterKeepsTheOrder)
{
    m_settings.m_dJitterMs = 50;
    CDirection direction(m_settings, 1);
    EXPECT_EQ(Carry(direction, 1000), Packets(1000));
}

TEST_F(Direction, LossTakesItsShare)
{
    m_settings.m_dLoss = 5;
    CDirection direction(m_settings, 1);
    const size_t nCame = Carry(direction, 10000).size();
    EXPECT_NEAR(static_cast<double>(nCame), 9500, 200);
    EXPECT_EQ(direction.GetCounters().m_ullLost, 10000 - nCame);
}

TEST_F(Direction, ReorderingLetsLaterPacketsPass)
{
    m_settings.m_dReorder = 10;
    CDirection direction(m_settings, 1);
    std::vector<std::string> packets = Carry(direction, 1000);
    EXPECT_NE(packets, Packets(1000));
    std::sort(packets.begin(), packets.end());
    EXPECT_EQ(packets, Packets(1000));
    EXPECT_NEAR(static_cast<double>(direction.GetCounters().m_ullReordered), 100, 40);
}

TEST_F(Direction, DuplicationGivesSomePacketsTwice)
{
    m_settings.m_dDuplicate = 10;
    CDirection direction(m_settings, 1);
    const size_t nCame = Carry(direction, 1000).size();
    EXPECT_EQ(nCame, 1000 + direction.GetCounters().m_ullDuplicated);
    EXPECT_NEAR(static_cast<double>(nCame), 1100, 40);
}

TEST_F(Direction, CorruptionFlipsOneBitBehindTheHeader)
{
    m_settings.m_dCorrupt = 100;
    CDirection direction(m_settings, 1);
    const std::vector<std::string> packets = Carry(direction, 1000);
    ASSERT_EQ(packets.size(), 1000U);
    for (int i = 0; i < 1000; ++i)
    {
        const std::string strSent = Packet(i);
        const std::string& strCame = packets[static_cast<size_t>(i)];
        int nBits = 0;
        for (size_t j = 0; j < strSent.size(); ++j)
        {
            nBits += __builtin_popcount(static_cast<unsigned char>(strSent[j] ^ strCame[j]));
        }
        EXPECT_EQ(nBits, 1);
        EXPECT_EQ(strSent.substr(0, 20), strCame.substr(0, 20));
    }
}

TEST_F(Direction, RateLetsPacketsPassOneAfterTheOther)
{
    m_settings.m_dRateKbit = 800;  // 100 bytes a millisecond
    CDirection direction(m_settings, 1);
    std::string strPacket;
    for (int i = 0; i < 3; ++i)
    {
        direction.Take(m_start, Packet(i, 1000));
    }
    for (int i = 1; i <= 3; ++i)
    {
        EXPECT_EQ(direction.GetNext(), m_start + milliseconds(10 * i));
        EXPECT_TRUE(direction.Give(m_start + milliseconds(10 * i), strPacket));
    }
}

TEST_F(Direction, RateDropsWhatWouldWaitTooLong)
{
    m_settings.m_dRateKbit = 800;
    m_settings.m_dQueueMs = 25;
    CDirection direction(m_settings, 1);
    for (int i = 0; i < 10; ++i)
    {
        direction.Take(m_start, Packet(i, 1000));  // the fourth would wait 30 ms
    }
    EXPECT_EQ(direction.GetCounters().m_ullOverflowed, 7U);
}

TEST_F(Direction, CutLosesWhatIsUnderWayAndWhatComes)
{
    m_settings.m_dDelayMs = 10;
    CDirection direction(m_settings, 1);
    std::string strPacket;
    direction.Take(m_start, Packet(1));
    direction.SetCut(true);
    direction.Take(m_start, Packet(2));
    direction.SetCut(false);
    direction.Take(m_start, Packet(3));
    ASSERT_TRUE(direction.Give(m_start + milliseconds(10), strPacket));
    EXPECT_EQ(strPacket, Packet(3));
    EXPECT_FALSE(direction.Give(m_start + milliseconds(1000), strPacket));
    EXPECT_EQ(direction.GetCounters().m_ullCut, 2U);
}

TEST_F(Direction, OneSeedGivesOneFateAndAnotherAnother)
{
    m_settings = {10, 20, 5, 10, 20, 10, 5, 0, 200};
    CDirection first(m_settings, 7);
    CDirection second(m_settings, 7);
    CDirection third(m_settings, 8);
    const std::vector<std::string> packets = Carry(first, 1000);
    EXPECT_EQ(packets, Carry(second, 1000));
    EXPECT_NE(packets, Carry(third, 1000));
}

TEST_F(Direction, FateOfAPacketDoesNotHangOnACutBeforeIt)
{
    m_settings.m_dLoss = 20;
    CDirection cut(m_settings, 1);
    CDirection whole(m_settings, 1);
    const auto fnCarry = [&](CDirection& direction, bool bCut)
    {
        std::vector<std::string> packets;
        std::string strPacket;
        direction.SetCut(bCut);
        for (int i = 0; i < 200; ++i)
        {
            if (i == 100)
            {
                direction.SetCut(false);
                packets.clear();
            }
            direction.Take(m_start, Packet(i));
            while (direction.Give(m_start, strPacket))
            {
                packets.push_back(strPacket);
            }
        }
        return packets;
    };
    EXPECT_EQ(fnCarry(cut, true), fnCarry(whole, false));
}

}  // namespace
