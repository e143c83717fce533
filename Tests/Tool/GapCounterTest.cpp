#include "GapCounter.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Hex.h"
#include "TransportCells.h"

namespace
{

const unsigned int PID = 0x100;
const unsigned char DISCONTINUITY = 0x80;

class CGapCounterTest : public ::testing::Test
{
protected:
    void Packet(const std::string& strPacket)
    {
        m_counter.Packet(strPacket.data(), strPacket.size());
    }
    void Rtp(unsigned int dwNumber, unsigned char cSource)
    {
        std::string strPacket = "\x80\x21";
        strPacket += static_cast<char>(dwNumber >> 8);
        strPacket += static_cast<char>(dwNumber);
        strPacket += std::string("time") + "src" + static_cast<char>(cSource);
        Packet(strPacket + Pattern(100));
    }

    CGapCounter m_counter;
};

using GapCounter = CGapCounterTest;

}  // namespace

TEST_F(GapCounter, WholeStreamHasNoGaps)
{
    const std::string strStream = TransportStream(PID, 70);
    for (size_t i = 0; i < strStream.size(); i += 1316)
    {
        Packet(strStream.substr(i, 1316));
    }
    EXPECT_EQ(m_counter.Format(), CGapCounter::FORMAT_MPEG_TS);
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

TEST_F(GapCounter, MissingPacketIsOneGapForEachPid)
{
    for (const unsigned int dwCounter : {0U, 1U, 3U, 4U})
    {
        Packet(TransportCell(PID, dwCounter) + TransportCell(PID + 1, dwCounter + 9));
    }
    EXPECT_EQ(m_counter.Gaps(), 2U);
}

TEST_F(GapCounter, SixteenMissingCellsAreAGapThoughTheCounterIsTheSame)
{
    Packet(TransportCell(PID, 5, 1));
    Packet(TransportCell(PID, 5, 2));
    EXPECT_EQ(m_counter.Gaps(), 1U);
}

TEST_F(GapCounter, CellThatComesTwiceIsNoGapButAThirdOneIs)
{
    Packet(TransportCell(PID, 5) + TransportCell(PID, 5));
    EXPECT_EQ(m_counter.Gaps(), 0U);
    Packet(TransportCell(PID, 5));
    EXPECT_EQ(m_counter.Gaps(), 1U);
}

TEST_F(GapCounter, StreamGoesOnAfterACellThatCameTwice)
{
    Packet(TransportCell(PID, 5) + TransportCell(PID, 5) + TransportCell(PID, 6) +
           TransportCell(PID, 6) + TransportCell(PID, 7));
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

TEST_F(GapCounter, CellsWithoutPayloadDoNotCount)
{
    Packet(TransportCell(PID, 5) + TransportCell(PID, 5, 0, false) +
           TransportCell(PID, 5, 0, false) + TransportCell(PID, 6));
    EXPECT_EQ(m_counter.Gaps(), 0U);
    Packet(TransportCell(PID, 9, 0, false));
    EXPECT_EQ(m_counter.Gaps(), 1U);
}

TEST_F(GapCounter, AnnouncedDiscontinuityIsNoGap)
{
    Packet(TransportCell(PID, 5) + TransportCell(PID, 11, DISCONTINUITY, true) +
           TransportCell(PID, 12));
    EXPECT_EQ(m_counter.Gaps(), 0U);
    Packet(TransportCell(PID, 2, DISCONTINUITY, false) + TransportCell(PID, 3));
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

TEST_F(GapCounter, AdaptationFieldWithoutFlagsAnnouncesNothing)
{
    std::string strCell = TransportCell(PID, 9, DISCONTINUITY, true);
    strCell[4] = '\0';
    Packet(TransportCell(PID, 5) + strCell);
    EXPECT_EQ(m_counter.Gaps(), 1U);
}

TEST_F(GapCounter, NullCellsDamagedOnesAndReservedOnesAreLeftOut)
{
    std::string strDamaged = TransportCell(PID, 9);
    strDamaged[1] = static_cast<char>(strDamaged[1] | 0x80);
    std::string strReserved = TransportCell(PID, 9);
    strReserved[3] = '\x09';
    Packet(TransportCell(PID, 5) + TransportCell(0x1FFF, 1) + TransportCell(0x1FFF, 7) +
           strDamaged + strReserved + TransportCell(PID, 6));
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

TEST_F(GapCounter, AdaptationFieldThatPassesTheCellIsHarmless)
{
    std::string strCell = TransportCell(PID, 6, 0, true);
    strCell[4] = '\xFF';
    Packet(TransportCell(PID, 5) + strCell);
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

TEST_F(GapCounter, PartsOfCellsAreNoTransportStream)
{
    Packet(TransportCell(PID, 5).substr(0, 187));
    Packet(TransportCell(PID, 5) + Pattern(188));
    Packet("");
    EXPECT_EQ(m_counter.Format(), CGapCounter::FORMAT_UNKNOWN);
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

TEST_F(GapCounter, RtpNumbersAreFollowedAcrossTheirWrap)
{
    for (const unsigned int dwNumber : {65534U, 65535U, 0U, 1U, 4U})
    {
        Rtp(dwNumber, 'a');
    }
    EXPECT_EQ(m_counter.Format(), CGapCounter::FORMAT_RTP);
    EXPECT_EQ(m_counter.Gaps(), 1U);
}

TEST_F(GapCounter, PacketsOfEverOtherSourcesAreNoRtp)
{
    for (unsigned char cSource = 0; cSource < 100; ++cSource)
    {
        Rtp(7, cSource);
    }
    EXPECT_EQ(m_counter.Format(), CGapCounter::FORMAT_UNKNOWN);
    EXPECT_EQ(m_counter.Gaps(), 0U);
}

// A number that counts from 0 and constant data: every fourth packet has the first bits of RTP.
TEST_F(GapCounter, NumberedPacketsThatNowAndThenLookLikeRtpAreNone)
{
    for (unsigned int i = 0; i < 2048; ++i)
    {
        std::string strPacket(1316, 'x');
        memcpy(&strPacket[0], &i, sizeof i);
        Packet(strPacket);
    }
    EXPECT_EQ(m_counter.Format(), CGapCounter::FORMAT_UNKNOWN);
    EXPECT_EQ(m_counter.Gaps(), 0U);
}
