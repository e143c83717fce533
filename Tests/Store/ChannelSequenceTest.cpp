// Sequence numbers are 32 bits wide and wrap.

#include <gtest/gtest.h>

#include <string>

#include "OpenPacketStore.h"

namespace
{

class CSequenceTest : public ::testing::Test
{
protected:
    CSequenceTest()
    {
        m_buffer.Create(8);
    }
    void Put(int nFirst, int nCount)
    {
        for (int i = nFirst; i < nFirst + nCount; ++i)
        {
            const std::string strData = std::to_string(i);
            EXPECT_EQ(m_buffer.PutChannelPacket(strData.data(),
                                                static_cast<unsigned int>(strData.size())),
                      0U);
        }
    }
    std::string Get(long lTask)
    {
        return Take(m_buffer.GetPacket(lTask, 0));
    }
    // The buffer as it is after that many more packets, of which the newest eight are stored and
    // none was read.
    void SleepThrough(unsigned int dwPackets)
    {
        m_buffer.m_dwFirstSequence += dwPackets;
    }

    COpenPacketBuffer m_buffer{1};
};
using ChannelSequence = CSequenceTest;

TEST_F(ChannelSequence, ReadingGoesOnAcrossTheWrap)
{
    m_buffer.m_dwFirstSequence = 0xFFFFFFFC;
    EXPECT_EQ(Get(1), "(null)");
    for (int i = 0; i < 20; ++i)
    {
        Put(i, 1);
        EXPECT_EQ(Get(1), std::to_string(i));
        EXPECT_EQ(Get(1), "(null)");
    }
    EXPECT_EQ(m_buffer.m_mapTasks[1], 16U);
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 8U);
}

TEST_F(ChannelSequence, StoredPacketsStandOnBothSidesOfTheWrap)
{
    m_buffer.m_dwFirstSequence = 0xFFFFFFFC;
    Put(0, 8);
    unsigned int dwSequence = 0xFFFFFFFC;
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), std::to_string(i));
        EXPECT_EQ(dwSequence, 0xFFFFFFFCU + static_cast<unsigned int>(i) + 1);
    }
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "(null)");
    EXPECT_EQ(Get(1), "7") << "the newest, for a new task";
    EXPECT_EQ(m_buffer.m_mapTasks[1], 4U);
}

TEST_F(ChannelSequence, TaskBeforeTheWrapGoesOnWithTheOldestPacketBehindIt)
{
    m_buffer.m_dwFirstSequence = 0xFFFFFFF0;
    EXPECT_EQ(Get(1), "(null)");
    Put(0, 40);
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 0x10U);
    EXPECT_EQ(Get(1), "32");
    EXPECT_EQ(Get(1), "33");
}

TEST_F(ChannelSequence, UsageIsRightAcrossTheWrap)
{
    m_buffer.m_dwFirstSequence = 0xFFFFFFFC;
    EXPECT_EQ(Get(1), "(null)");
    Put(0, 8);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 100.0F);
    Get(1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 87.5F);
    for (int i = 0; i < 5; ++i)
    {
        Get(1);
    }
    EXPECT_EQ(m_buffer.GetBufferUsage(), 25.0F);
    Get(1);
    Get(1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 0.0F);
}

TEST_F(ChannelSequence, TaskBehindByAnyNumberOfPacketsReadsOn)
{
    for (const unsigned int dwPackets :
         {9U, 0x7FFFFFF0U, 0x7FFFFFF7U, 0x7FFFFFF8U, 0x7FFFFFFFU, 0x80000000U, 0x80000001U,
          0x80000009U, 0xC0000000U, 0xFFFFFFF0U, 0xFFFFFFF7U, 0xFFFFFFFFU})
    {
        m_buffer.RemoveTask(1);
        Put(0, 8);
        EXPECT_EQ(Get(1), "7");
        SleepThrough(dwPackets);
        for (int i = 0; i < 8; ++i)
        {
            EXPECT_EQ(Get(1), std::to_string(i)) << std::hex << dwPackets;
        }
        EXPECT_EQ(Get(1), "(null)") << std::hex << dwPackets;
        Put(8, 1);
        EXPECT_EQ(Get(1), "8") << std::hex << dwPackets;
    }
}

}  // namespace
