#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Hex.h"
#include "OpenPacketStore.h"
#include "WireRecords.h"

namespace
{

const unsigned int CHANNEL = 0x0A0B0C0D;

class CBufferTest : public ::testing::Test
{
protected:
    unsigned int Put(const std::string& strData)
    {
        return m_buffer.PutChannelPacket(strData.data(), static_cast<unsigned int>(strData.size()));
    }
    // "first", "first + 1", ... as data.
    void PutNumbers(int nFirst, int nCount)
    {
        for (int i = nFirst; i < nFirst + nCount; ++i)
        {
            ASSERT_EQ(Put(std::to_string(i)), 0U);
        }
    }
    std::string Get(long lTask, int bLocal = 0)
    {
        return Take(m_buffer.GetPacket(lTask, bLocal));
    }

    COpenPacketBuffer m_buffer{CHANNEL};
};
using ChannelPacketBuffer = CBufferTest;

TEST_F(ChannelPacketBuffer, CapacityIsAtMost2048)
{
    EXPECT_NE(m_buffer.Create(5000), 0);
    PutNumbers(0, 2049);
    EXPECT_EQ(m_buffer.m_dwCapacity, 2048U);
    EXPECT_EQ(m_buffer.m_dwCount, 2048U);
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 1U);
}

TEST_F(ChannelPacketBuffer, SecondCreateIsRefusedAndKeepsTheFirstSlots)
{
    EXPECT_NE(m_buffer.Create(2), 0);
    PutNumbers(0, 1);
    EXPECT_EQ(m_buffer.Create(4), 0);
    EXPECT_EQ(m_buffer.m_dwCapacity, 2U);
    EXPECT_EQ(Get(1), "0");
}

TEST_F(ChannelPacketBuffer, FullRingDropsExactlyTheOldestPacket)
{
    m_buffer.Create(3);
    PutNumbers(0, 3);
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 0U);
    for (int i = 3; i < 10; ++i)
    {
        PutNumbers(i, 1);
        EXPECT_EQ(m_buffer.m_dwFirstSequence, static_cast<unsigned int>(i) - 2);
        EXPECT_EQ(m_buffer.m_dwCount, 3U);
        EXPECT_EQ(m_buffer.m_dwHead, m_buffer.m_dwFirstSequence % 3);
    }
    unsigned int dwSequence = 0;
    for (const char* pszExpected : {"7", "8", "9"})
    {
        EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), pszExpected);
    }
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "(null)");
}

TEST_F(ChannelPacketBuffer, RingOfOnePacketHoldsTheNewest)
{
    m_buffer.Create(1);
    PutNumbers(0, 3);
    EXPECT_EQ(Get(1), "2");
    PutNumbers(3, 1);
    EXPECT_EQ(Get(1), "3");
    EXPECT_EQ(Get(1), "(null)");
}

TEST_F(ChannelPacketBuffer, NewTaskGetsTheNewestPacketAndThenOnlyLaterOnes)
{
    m_buffer.Create(10);
    m_buffer.m_dwFirstSequence = 10;
    PutNumbers(10, 10);
    EXPECT_EQ(Get(5), "19");
    EXPECT_EQ(m_buffer.m_mapTasks[5], 20U);
    EXPECT_EQ(Get(5), "(null)");
    PutNumbers(20, 1);
    EXPECT_EQ(Get(5), "20");
    EXPECT_EQ(Get(5), "(null)");
}

TEST_F(ChannelPacketBuffer, NewTaskOfAnEmptyBufferGetsEveryPacketFromThereOn)
{
    m_buffer.Create(10);
    m_buffer.m_dwFirstSequence = 77;
    EXPECT_EQ(Get(5), "(null)");
    EXPECT_EQ(m_buffer.m_mapTasks[5], 77U);
    PutNumbers(77, 3);
    EXPECT_EQ(Get(5), "77");
    EXPECT_EQ(Get(5), "78");
    EXPECT_EQ(Get(5), "79");
}

TEST_F(ChannelPacketBuffer, TaskThatFellBehindGoesOnWithTheOldestPacket)
{
    m_buffer.Create(8);
    m_buffer.m_dwFirstSequence = 4;
    PutNumbers(4, 1);
    EXPECT_EQ(Get(5), "4");
    EXPECT_EQ(m_buffer.m_mapTasks[5], 5U);
    PutNumbers(5, 15);
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 12U);
    EXPECT_EQ(Get(5), "12");
    EXPECT_EQ(Get(5), "13");
}

TEST_F(ChannelPacketBuffer, TasksReadIndependently)
{
    m_buffer.Create(8);
    Get(1);
    Get(2);
    PutNumbers(0, 2);
    EXPECT_EQ(Get(1), "0");
    EXPECT_EQ(Get(1), "1");
    EXPECT_EQ(Get(2), "0");
    EXPECT_EQ(Get(1), "(null)");
    EXPECT_EQ(Get(2), "1");
}

TEST_F(ChannelPacketBuffer, RemovedTaskIsNewAgain)
{
    m_buffer.Create(8);
    Get(1, 1);
    PutNumbers(0, 3);
    m_buffer.RemoveTask(99);
    EXPECT_EQ(m_buffer.m_lLocalTask, 1);
    m_buffer.RemoveTask(1);
    EXPECT_EQ(m_buffer.m_lLocalTask, -1);
    EXPECT_TRUE(m_buffer.m_mapTasks.empty());
    EXPECT_EQ(Get(1), "2");
}

TEST_F(ChannelPacketBuffer, PositionOfTheCallerNamesThePacket)
{
    m_buffer.Create(4);
    unsigned int dwSequence = 9;
    EXPECT_EQ(Take(m_buffer.GetPacket(&dwSequence)), "(null)");
    EXPECT_EQ(dwSequence, 0U) << "empty: that of the packet to come";
    dwSequence = 9;
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "(null)");
    EXPECT_EQ(dwSequence, 0U);
    PutNumbers(0, 3);
    dwSequence = 1;
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "1");
    EXPECT_EQ(dwSequence, 2U);
    EXPECT_EQ(Take(m_buffer.GetPacket(&dwSequence)), "2");
    EXPECT_EQ(dwSequence, 3U);
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "(null)");
    dwSequence = 100;
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "(null)");
    EXPECT_EQ(dwSequence, 100U) << "beyond the end: left alone";
}

TEST_F(ChannelPacketBuffer, UsageIsTheAverageBacklogOfTheTasks)
{
    m_buffer.Create(10);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 0.0F) << "nothing stored";
    Get(1);
    Get(2);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 0.0F);
    PutNumbers(0, 4);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 100.0F) << "both at the oldest";
    Get(1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 87.5F);
    for (int i = 0; i < 3; ++i)
    {
        Get(1);
    }
    EXPECT_EQ(m_buffer.GetBufferUsage(), 50.0F) << "one up to date, one at the oldest";
    PutNumbers(4, 16);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 100.0F) << "both behind the oldest";
}

TEST_F(ChannelPacketBuffer, UsageLeavesTheLocalTaskOut)
{
    m_buffer.Create(10);
    Get(1);
    Get(2);
    PutNumbers(0, 1);
    Get(1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 50.0F);
    Get(2, 1);
    PutNumbers(1, 1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 50.0F) << "only the first: one of two packets";
    Get(1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 0.0F) << "only the second is behind";
    Get(1, 1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 50.0F) << "the newest local task replaces the other";
    m_buffer.RemoveTask(2);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 0.0F) << "no task left that counts";
}

TEST_F(ChannelPacketBuffer, LocalTaskStaysLocalWhenItAsksAgainWithoutSayingSo)
{
    m_buffer.Create(10);
    Get(1, 1);
    PutNumbers(0, 2);
    Get(1, 0);
    EXPECT_EQ(m_buffer.m_lLocalTask, 1);
    EXPECT_EQ(m_buffer.GetBufferUsage(), 0.0F);
}

TEST_F(ChannelPacketBuffer, PacketIsTheWholeRecordAsItTravels)
{
    m_buffer.Create(4);
    for (const size_t nSize : {size_t{0}, size_t{1}, size_t{1316}, size_t{1500}})
    {
        const std::string strData = Pattern(nSize);
        ASSERT_EQ(Put(strData), 0U);
        CChannelPacketItem* pItem = m_buffer.GetPacket(1, 0);
        ASSERT_NE(pItem, nullptr);
        EXPECT_EQ(pItem->GetPacketLength(), nSize + 16);
        EXPECT_EQ(Hex(std::string(pItem->GetPacket(), pItem->GetPacket() + nSize + 16)),
                  Hex(Wire::Packet("CPKT", Wire::U32(CHANNEL) + strData)));
        pItem->Release();
    }
}

TEST_F(ChannelPacketBuffer, EmptyPacketNeedsNoData)
{
    m_buffer.Create(4);
    EXPECT_EQ(m_buffer.PutChannelPacket(nullptr, 0), 0U);
    EXPECT_EQ(Get(1), "");
}

TEST_F(ChannelPacketBuffer, TooMuchDataOrNoneIsRefusedBeforeAnythingIsDropped)
{
    m_buffer.Create(2);
    PutNumbers(0, 2);
    const std::string strLarge(1501, 'x');
    EXPECT_EQ(Put(strLarge), 4U);
    EXPECT_EQ(m_buffer.PutChannelPacket(strLarge.data(), 0xFFFFFFFF), 4U);
    EXPECT_EQ(m_buffer.PutChannelPacket(strLarge.data(), 0xFFFFFFF0), 4U);
    EXPECT_EQ(m_buffer.PutChannelPacket(nullptr, 1), 4U);
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 0U);
    EXPECT_EQ(m_buffer.m_dwCount, 2U);
    EXPECT_EQ(m_buffer.m_dwItemsCreated, 2U);
    unsigned int dwSequence = 0;
    EXPECT_EQ(Take(m_buffer.GetNextPacket(&dwSequence)), "0");
}

// What every operation does in a buffer without room.
void ExpectWithoutRoom(COpenPacketBuffer& buffer)
{
    unsigned int dwSequence = 0;
    EXPECT_EQ(buffer.PutChannelPacket("x", 1), 4U);
    EXPECT_EQ(buffer.PutChannelPacket(nullptr, 0), 4U);
    EXPECT_EQ(buffer.GetPacket(&dwSequence), nullptr);
    EXPECT_EQ(buffer.GetNextPacket(&dwSequence), nullptr);
    EXPECT_EQ(buffer.GetPacket(1, 0), nullptr) << "a new task";
    EXPECT_EQ(buffer.GetPacket(1, 1), nullptr) << "a known one";
    buffer.RemoveTask(1);
    EXPECT_EQ(buffer.GetBufferUsage(), 0.0F);
}

TEST_F(ChannelPacketBuffer, BeforeCreateNothingIsStored)
{
    ExpectWithoutRoom(m_buffer);
    EXPECT_EQ(m_buffer.m_dwItemsCreated, 0U);
}

TEST_F(ChannelPacketBuffer, Capacity0StoresNothing)
{
    EXPECT_NE(m_buffer.Create(0), 0);
    EXPECT_EQ(m_buffer.Create(4), 0) << "there are slots, none of them";
    ExpectWithoutRoom(m_buffer);
}

TEST_F(ChannelPacketBuffer, AfterDestroyNothingIsStoredAndTheTasksAreForgotten)
{
    m_buffer.Create(4);
    Get(1);
    PutNumbers(0, 6);
    m_buffer.Destroy();
    EXPECT_TRUE(m_buffer.m_mapTasks.empty());
    EXPECT_EQ(m_buffer.m_listFree.size(), 4U) << "every packet came back";
    EXPECT_EQ(m_buffer.m_dwCount, 4U) << "keeps its value";
    EXPECT_EQ(m_buffer.m_dwFirstSequence, 2U);
    EXPECT_EQ(m_buffer.m_dwHead, 2U);
    ExpectWithoutRoom(m_buffer);
    m_buffer.Destroy();
}

TEST_F(ChannelPacketBuffer, DestroyedBufferCanBeMadeAgainSmaller)
{
    m_buffer.Create(8);
    PutNumbers(0, 8);
    m_buffer.Destroy();
    EXPECT_NE(m_buffer.Create(3), 0);
    EXPECT_EQ(Get(1), "(null)");
    PutNumbers(8, 5);
    EXPECT_EQ(Get(2), "12");
    EXPECT_LE(m_buffer.m_dwCount, 3U);
}

TEST_F(ChannelPacketBuffer, UsersAreCounted)
{
    EXPECT_EQ(m_buffer.AddRef(), 1);
    EXPECT_EQ(m_buffer.AddRef(), 2);
    EXPECT_EQ(m_buffer.RemoveRef(), 1);
    EXPECT_EQ(m_buffer.RemoveRef(), 0);
}

}  // namespace
