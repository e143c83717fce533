#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "AllocationWatch.h"
#include "DebugRecords.h"
#include "OpenPacketStore.h"
#include "RawSocket.h"

namespace
{

const size_t MAX_CHANNELS = 4096;

class CStoreTest : public ::testing::Test
{
protected:
    // The logger allocates at its first use: that is none of what the tests count.
    CStoreTest()
    {
        m_store.AddChannel(1);
        m_store.RemoveChannel(1, 0);
    }
    unsigned int Put(unsigned int dwChannel, const std::string& strData)
    {
        std::string strCopy = strData;
        return m_store.PutChannelPacket(dwChannel, strCopy.data(),
                                        static_cast<unsigned int>(strCopy.size()));
    }
    std::string Get(unsigned int dwChannel, long lTask, int bLocal = 0)
    {
        return Take(m_store.GetChannelPacket(dwChannel, lTask, bLocal));
    }
    // The next packets of a task, one behind the other.
    std::string GetAll(unsigned int dwChannel, long lTask)
    {
        std::string strAll;
        while (CChannelPacketItem* pItem = m_store.GetChannelPacket(dwChannel, lTask, 0))
        {
            strAll += Take(pItem);
        }
        return strAll;
    }
    long long GetUsers(unsigned int dwChannel) const
    {
        const CChannelPacketBuffer* pBuffer = m_store.FindBuffer(dwChannel);
        return pBuffer != nullptr ? COpenPacketBuffer::GetUsers(*pBuffer) : 0;
    }
    void Fill(unsigned int dwFirst)
    {
        for (unsigned int i = 0; i < MAX_CHANNELS; ++i)
        {
            ASSERT_TRUE(m_store.AddChannel(dwFirst + i)) << i;
        }
    }

    COpenPacketServer m_store;
};
using ChannelPacketServer = CStoreTest;

TEST_F(ChannelPacketServer, ChannelLivesUntilItsLastUserIsRemoved)
{
    EXPECT_TRUE(m_store.AddChannel(7));
    EXPECT_TRUE(m_store.AddChannel(7));
    EXPECT_EQ(GetUsers(7), 2);
    EXPECT_EQ(Put(7, "a"), 0U);
    m_store.RemoveChannel(7, 1);
    EXPECT_EQ(GetUsers(7), 1);
    EXPECT_EQ(Get(7, 1), "a");
    m_store.RemoveChannel(7, 1);
    EXPECT_EQ(m_store.FindBuffer(7), nullptr);
    EXPECT_EQ(Put(7, "b"), 5U);
}

TEST_F(ChannelPacketServer, TaskThatIsAddedGetsEveryPacketPutSince)
{
    EXPECT_TRUE(m_store.AddChannel(7, 1, 0));
    EXPECT_EQ(Put(7, "a"), 0U);
    EXPECT_EQ(Put(7, "b"), 0U);
    EXPECT_TRUE(m_store.AddChannel(7, 2, 0));
    EXPECT_EQ(Put(7, "c"), 0U);
    EXPECT_EQ(GetAll(7, 1), "abc");
    EXPECT_EQ(GetAll(7, 2), "bc") << "the newest of its time first";
    EXPECT_EQ(GetUsers(7), 2);
}

TEST_F(ChannelPacketServer, TaskThatIsAddedAgainKeepsItsPosition)
{
    m_store.AddChannel(7, 1, 0);
    Put(7, "a");
    Put(7, "b");
    EXPECT_EQ(Get(7, 1), "a");
    EXPECT_TRUE(m_store.AddChannel(7, 1, 0));
    Put(7, "c");
    EXPECT_EQ(GetAll(7, 1), "bc");
}

TEST_F(ChannelPacketServer, LocalTaskIsLeftOutOfTheUsageBeforeItsFirstPacket)
{
    m_store.AddChannel(7, 1, 1);
    Put(7, "a");
    EXPECT_EQ(m_store.GetMaxBufferUsage(), 0.0F);
    m_store.AddChannel(7, 2, 0);
    EXPECT_EQ(m_store.GetMaxBufferUsage(), 100.0F);
}

TEST_F(ChannelPacketServer, PutOnAChannelThatNobodyAddedGives5)
{
    EXPECT_EQ(Put(7, "a"), 5U);
    EXPECT_EQ(Put(7, std::string(1501, 'x')), 5U) << "whatever the size";
    EXPECT_EQ(m_store.PutChannelPacket(7, nullptr, 1), 5U);
    EXPECT_TRUE(m_store.m_mapChannels.empty());
    m_store.AddChannel(8);
    EXPECT_EQ(Put(7, "a"), 5U);
    EXPECT_EQ(Put(8, "a"), 0U);
}

TEST_F(ChannelPacketServer, PutPassesTheRefusalOfTheChannelOn)
{
    m_store.AddChannel(7);
    EXPECT_EQ(Put(7, std::string(1500, 'x')), 0U);
    EXPECT_EQ(Put(7, std::string(1501, 'x')), 4U);
    EXPECT_EQ(m_store.PutChannelPacket(7, nullptr, 1), 4U);
    EXPECT_EQ(m_store.PutChannelPacket(7, nullptr, 0), 0U);
}

TEST_F(ChannelPacketServer, GetFromAnUnknownChannelIsNull)
{
    EXPECT_EQ(m_store.GetChannelPacket(7, 1, 0), nullptr);
    m_store.AddChannel(7);
    EXPECT_EQ(m_store.GetChannelPacket(7, 1, 0), nullptr) << "nothing new";
    EXPECT_EQ(m_store.GetChannelPacket(8, 1, 0), nullptr);
}

TEST_F(ChannelPacketServer, ChannelsAreKeptApart)
{
    for (const unsigned int dwChannel : {0U, 1U, 0x80000000U, 0xFFFFFFFFU})
    {
        EXPECT_TRUE(m_store.AddChannel(dwChannel));
        EXPECT_EQ(Put(dwChannel, std::to_string(dwChannel)), 0U);
    }
    for (const unsigned int dwChannel : {0U, 1U, 0x80000000U, 0xFFFFFFFFU})
    {
        EXPECT_EQ(Get(dwChannel, 1), std::to_string(dwChannel));
    }
}

TEST_F(ChannelPacketServer, ChannelHolds2048Packets)
{
    m_store.AddChannel(7);
    Get(7, 1);
    for (int i = 0; i < 3000; ++i)
    {
        ASSERT_EQ(Put(7, std::to_string(i)), 0U);
    }
    EXPECT_EQ(COpenPacketBuffer::GetCount(*m_store.FindBuffer(7)), 2048U);
    EXPECT_EQ(Get(7, 1), "952");
}

TEST_F(ChannelPacketServer, RemoveForgetsTheTasksPositionThere)
{
    m_store.AddChannel(7);
    m_store.AddChannel(7);
    m_store.AddChannel(8);
    Get(7, 1);
    Get(7, 2);
    Get(8, 1);
    for (const char* pszData : {"a", "b"})
    {
        Put(7, pszData);
        Put(8, pszData);
    }
    m_store.RemoveChannel(7, 1);
    EXPECT_EQ(Get(7, 1), "b") << "new again";
    EXPECT_EQ(Get(7, 2), "a");
    EXPECT_EQ(Get(8, 1), "a");
}

TEST_F(ChannelPacketServer, RemoveNeedsNoTaskThatEverRead)
{
    m_store.AddChannel(7);
    m_store.RemoveChannel(7, 12345);
    EXPECT_EQ(m_store.FindBuffer(7), nullptr);
}

TEST_F(ChannelPacketServer, RemoveOfAnUnknownChannelChangesNothing)
{
    m_store.RemoveChannel(7, 1);
    m_store.AddChannel(8);
    Get(8, 1);
    m_store.RemoveChannel(7, 1);
    m_store.RemoveTask(7, 1);
    EXPECT_EQ(GetUsers(8), 1);
    Put(8, "a");
    Put(8, "b");
    EXPECT_EQ(Get(8, 1), "a");
}

TEST_F(ChannelPacketServer, RemoveTaskLeavesTheUserThere)
{
    m_store.AddChannel(7);
    Get(7, 1);
    Put(7, "a");
    Put(7, "b");
    m_store.RemoveTask(7, 1);
    EXPECT_EQ(GetUsers(7), 1);
    EXPECT_EQ(Get(7, 1), "b");
}

TEST_F(ChannelPacketServer, RemoveAllRemovesChannelsWhateverTheirUsers)
{
    m_store.AddChannel(7);
    m_store.AddChannel(7);
    m_store.AddChannel(8);
    Put(7, "a");
    m_store.RemoveAll();
    EXPECT_TRUE(m_store.m_mapChannels.empty());
    EXPECT_EQ(Put(7, "a"), 5U);
    EXPECT_TRUE(m_store.AddChannel(7));
    EXPECT_EQ(GetUsers(7), 1);
    EXPECT_EQ(Get(7, 1), "(null)") << "nothing of before";
}

TEST_F(ChannelPacketServer, StoreTakesEverythingWithItWhateverTheUsers)
{
    const long long llBefore = GetAllocations() - GetDeallocations();
    CChannelPacketItem* pHeld = nullptr;
    {
        CChannelPacketServer store;
        for (const unsigned int dwChannel : {1U, 2U, 2U, 3U})
        {
            store.AddChannel(dwChannel);
        }
        char cData = 'x';
        store.PutChannelPacket(2, &cData, 1);
        pHeld = store.GetChannelPacket(2, 1, 0);
    }
    EXPECT_EQ(Take(pHeld), "x") << "outlives the store";
    EXPECT_EQ(GetAllocations() - GetDeallocations(), llBefore);
}

TEST_F(ChannelPacketServer, UsageIsThatOfTheChannelWhichIsFurthestBehind)
{
    EXPECT_EQ(m_store.GetMaxBufferUsage(), 0.0F) << "no channels";
    for (const unsigned int dwChannel : {1U, 2U, 3U})
    {
        m_store.AddChannel(dwChannel);
        Get(dwChannel, 1);
    }
    EXPECT_EQ(m_store.GetMaxBufferUsage(), 0.0F) << "nothing stored";
    for (const char* pszData : {"a", "b", "c", "d"})
    {
        Put(2, pszData);
        Put(3, pszData);
    }
    Get(2, 1);
    Get(3, 1);
    Get(3, 1);
    EXPECT_EQ(m_store.GetMaxBufferUsage(), 75.0F);
    Get(2, 1, 1);
    EXPECT_EQ(m_store.GetMaxBufferUsage(), 50.0F) << "the local task does not count";
}

TEST_F(ChannelPacketServer, Channel4097IsRefused)
{
    Fill(100);
    EXPECT_FALSE(m_store.AddChannel(7));
    EXPECT_EQ(m_store.FindBuffer(7), nullptr);
    EXPECT_EQ(Put(7, "a"), 5U);
    EXPECT_TRUE(m_store.AddChannel(100)) << "one more user of a channel that is there";
    EXPECT_EQ(GetUsers(100), 2);
    m_store.RemoveChannel(101, 1);
    EXPECT_TRUE(m_store.AddChannel(7));
    EXPECT_FALSE(m_store.AddChannel(101));
    EXPECT_EQ(m_store.m_mapChannels.size(), MAX_CHANNELS);
}

TEST_F(ChannelPacketServer, FullStoreGivesTheRoomOfAChannelThatEverybodyHasLeft)
{
    Fill(100);
    m_store.AddChannel(105);
    m_store.LeaveChannel(105, 1);
    EXPECT_FALSE(m_store.AddChannel(7)) << "somebody is left there";
    m_store.LeaveChannel(105, 2);
    EXPECT_EQ(Put(105, "a"), 0U) << "it stays until it is needed";
    EXPECT_TRUE(m_store.AddChannel(7));
    EXPECT_EQ(Put(105, "b"), 5U);
    EXPECT_EQ(m_store.m_mapChannels.size(), MAX_CHANNELS);
    EXPECT_FALSE(m_store.AddChannel(8));
}

TEST_F(ChannelPacketServer, ThoseLeftFirstGiveWayFirst)
{
    Fill(100);
    for (const unsigned int dwChannel : {300U, 200U, 100U, 400U})
    {
        m_store.LeaveChannel(dwChannel, 1);
    }
    m_store.AddChannel(200);  // somebody is back
    m_store.AddChannel(400);
    m_store.RemoveChannel(400, 2);  // and has gone again
    for (const unsigned int dwGone : {300U, 100U, 400U})
    {
        EXPECT_TRUE(m_store.AddChannel(dwGone + 10000));
        EXPECT_EQ(Put(dwGone, "a"), 5U);
    }
    EXPECT_FALSE(m_store.AddChannel(7));
    EXPECT_EQ(Put(200, "a"), 0U);
}

TEST_F(ChannelPacketServer, LeaveForgetsThePositionAndKeepsTheUser)
{
    m_store.AddChannel(7, 1, 0);
    Put(7, "a");
    m_store.LeaveChannel(7, 1);
    EXPECT_EQ(GetUsers(7), 1);
    EXPECT_EQ(COpenPacketBuffer::GetPosition(*m_store.FindBuffer(7), 1),
              COpenPacketBuffer::UNKNOWN_TASK);
    m_store.LeaveChannel(8, 1);
    EXPECT_EQ(m_store.m_mapChannels.size(), 1U);
    m_store.AddChannel(7);
    m_store.RemoveChannel(7, 2);
    EXPECT_EQ(GetUsers(7), 1);
}

TEST_F(ChannelPacketServer, NoMemoryRegistersNothing)
{
    int nSpared = -1;
    Orb_BOOL bAdded = Orb_FALSE;
    while (!bAdded && nSpared < 20)
    {
        EXPECT_EQ(Put(7, "a"), 5U);
        EXPECT_TRUE(m_store.m_mapChannels.empty());
        const long long llBefore = GetAllocations() - GetDeallocations();
        {
            const CNoMemory noMemory(++nSpared);
            bAdded = m_store.AddChannel(7);
        }
        EXPECT_TRUE(bAdded || GetAllocations() - GetDeallocations() == llBefore) << nSpared;
    }
    EXPECT_TRUE(bAdded);
    EXPECT_GE(nSpared, 2) << "for the buffer and its entry in the directory";
    EXPECT_EQ(GetUsers(7), 1);
    EXPECT_EQ(Put(7, "a"), 0U);
}

// Peers open channels; only the host puts into them.
TEST_F(ChannelPacketServer, ChannelThatNobodyPutsIntoHasNoRoomForPackets)
{
    m_store.AddChannel(7, 1, 0);
    EXPECT_EQ(m_store.GetChannelPacket(7, 1, 0), nullptr);
    EXPECT_EQ(COpenPacketBuffer::GetCapacity(*m_store.FindBuffer(7)), 0U);
    EXPECT_EQ(Put(7, "a"), 0U);
    EXPECT_EQ(COpenPacketBuffer::GetCapacity(*m_store.FindBuffer(7)), 2048U);
}

TEST_F(ChannelPacketServer, FirstPutWithoutMemoryForThePacketsGives4AndTheNextStores)
{
    m_store.AddChannel(7, 1, 0);
    char c = 'a';
    unsigned int dwResult = 0;
    {
        const CNoMemory noMemory;
        dwResult = m_store.PutChannelPacket(7, &c, 1);
    }
    EXPECT_EQ(dwResult, 4U);
    EXPECT_EQ(Put(7, "b"), 0U);
    EXPECT_EQ(Get(7, 1), "b");
}

TEST_F(ChannelPacketServer, AddingWritesADebugRecord)
{
    const CDebugRecords records;
    m_store.AddChannel(7);
    m_store.AddChannel(4294967295U, 1, 0);
    EXPECT_EQ(records.GetTexts(),
              (std::vector<std::string>{"AddChannel = 7", "AddChannel = 4294967295"}));
    for (const CDebugRecords::CRecord& record : records.Get())
    {
        EXPECT_EQ(record.m_strFunction, "Orb_BOOL CChannelPacketServer::AddChannel(Orb_U32)");
        EXPECT_EQ(record.m_strFile, "Source/Libraries/LibOspreyClient/ChannelPacketServer.cpp");
    }
}

TEST_F(ChannelPacketServer, RefusedAddWritesItsRecordToo)
{
    Fill(100);
    const CDebugRecords records;
    m_store.AddChannel(7);
    EXPECT_EQ(records.GetTexts(), std::vector<std::string>{"AddChannel = 7"});
}

// An appender may take long: other threads use the store meanwhile.
TEST_F(ChannelPacketServer, DebugRecordIsWrittenOutsideTheLock)
{
    m_store.AddChannel(7);
    CDebugRecords records;
    std::future<unsigned int> put;
    std::future_status status = std::future_status::deferred;
    records.m_fnOnRecord = [&]
    {
        put = std::async(std::launch::async, [&] { return Put(7, "a"); });
        status = put.wait_for(std::chrono::milliseconds(WAIT_MS));
    };
    m_store.AddChannel(7, 1, 0);
    EXPECT_EQ(status, std::future_status::ready) << "another thread's put waits for the record";
    EXPECT_EQ(put.get(), 0U);
}

}  // namespace
