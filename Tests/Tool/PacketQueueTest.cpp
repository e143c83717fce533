#include "PacketQueue.h"

#include <gtest/gtest.h>

#include <thread>

namespace
{

void Put(CPacketQueue& queue, Orb_U32 dwChannel, const std::string& strData)
{
    queue.Put(dwChannel, strData.data(), strData.size());
}

}  // namespace

TEST(PacketQueue, PacketsComeOutInOrderAllAtOnce)
{
    CPacketQueue queue(1000);
    Put(queue, 1, "ab");
    Put(queue, 2, "");
    Put(queue, 1, "cde");
    CPacketBatch batch;
    ASSERT_TRUE(queue.Take(batch));
    EXPECT_EQ(batch.m_strBytes, "abcde");
    ASSERT_EQ(batch.m_listParts.size(), 3U);
    EXPECT_EQ(batch.m_listParts[1].m_dwChannel, 2U);
    EXPECT_EQ(batch.m_listParts[1].m_nSize, 0U);
    EXPECT_EQ(batch.m_listParts[2].m_nSize, 3U);
}

TEST(PacketQueue, FullQueueDropsAndCounts)
{
    CPacketQueue queue(100 + sizeof(CPacketBatch::CPart));
    Put(queue, 1, std::string(101, 'x'));
    EXPECT_EQ(queue.Dropped(), 1U);
    Put(queue, 1, std::string(100, 'x'));
    EXPECT_EQ(queue.Dropped(), 1U);
    Put(queue, 1, "");
    EXPECT_EQ(queue.Dropped(), 2U);
    CPacketBatch batch;
    ASSERT_TRUE(queue.Take(batch));
    Put(queue, 1, "again");
    ASSERT_TRUE(queue.Take(batch));
    EXPECT_EQ(batch.m_strBytes, "again");
    EXPECT_EQ(queue.Dropped(), 2U);
}

TEST(PacketQueue, WhatIsHeldCanBeTakenAfterTheEnd)
{
    CPacketQueue queue(1000);
    Put(queue, 1, "last");
    queue.End();
    Put(queue, 1, "later");
    CPacketBatch batch;
    ASSERT_TRUE(queue.Take(batch));
    EXPECT_EQ(batch.m_strBytes, "last");
    EXPECT_FALSE(queue.Take(batch));
    EXPECT_TRUE(batch.m_strBytes.empty());
}

TEST(PacketQueue, TakeWaitsForThePacketsOfAnotherThread)
{
    const int nPackets = 20000;
    CPacketQueue queue(1U << 24);
    std::thread putter(
        [&queue]
        {
            for (int i = 0; i < nPackets; ++i)
            {
                Put(queue, static_cast<Orb_U32>(i), "0123456789");
            }
            queue.End();
        });
    Orb_U32 dwNext = 0;
    size_t nBytes = 0;
    bool bInOrder = true;
    for (CPacketBatch batch; queue.Take(batch);)
    {
        nBytes += batch.m_strBytes.size();
        for (const CPacketBatch::CPart& part : batch.m_listParts)
        {
            bInOrder = bInOrder && part.m_dwChannel == dwNext;
            ++dwNext;
        }
    }
    putter.join();
    EXPECT_TRUE(bInOrder);
    EXPECT_EQ(dwNext, static_cast<Orb_U32>(nPackets));
    EXPECT_EQ(nBytes, nPackets * 10U);
}
