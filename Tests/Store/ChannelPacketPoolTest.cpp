// The items of a channel's packets: references, recycling, and memory.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "AllocationWatch.h"
#include "OpenPacketStore.h"

namespace
{

class CPoolTest : public ::testing::Test
{
protected:
    CPoolTest() : m_pBuffer(std::make_unique<COpenPacketBuffer>(7))
    {
        m_pBuffer->Create(4);
    }
    unsigned int Put(const char* pszData)
    {
        return m_pBuffer->PutChannelPacket(pszData, 1);
    }
    void PutAll(const std::string& strData)
    {
        for (const char c : strData)
        {
            EXPECT_EQ(m_pBuffer->PutChannelPacket(&c, 1), 0U);
        }
    }
    CChannelPacketItem* GetNewest()
    {
        unsigned int dwSequence = 0;
        return m_pBuffer->GetPacket(&dwSequence);
    }
    std::vector<CChannelPacketItem*> GetFree() const
    {
        return {m_pBuffer->m_listFree.begin(), m_pBuffer->m_listFree.end()};
    }

    std::unique_ptr<COpenPacketBuffer> m_pBuffer;
};
using ChannelPacketPool = CPoolTest;

TEST_F(ChannelPacketPool, ReferencesAreCounted)
{
    Put("a");
    CChannelPacketItem* pItem = GetNewest();
    EXPECT_EQ(COpenPacketItem::GetRefCount(*pItem), 2) << "the ring's and the caller's";
    EXPECT_EQ(pItem->AddRef(), 3);
    EXPECT_EQ(pItem->Release(), 2);
    EXPECT_EQ(pItem->Release(), 1);
    EXPECT_EQ(COpenPacketBuffer::CountReferences(*m_pBuffer), 0);
    EXPECT_TRUE(GetFree().empty());
}

TEST_F(ChannelPacketPool, DroppedPacketStaysAsItIsWhileSomebodyHasAReference)
{
    PutAll("abcd");
    unsigned int dwSequence = 0;
    CChannelPacketItem* pOldest = m_pBuffer->GetNextPacket(&dwSequence);
    PutAll("efghijkl");
    EXPECT_EQ(GetData(pOldest), "a");
    EXPECT_EQ(COpenPacketBuffer::CountReferences(*m_pBuffer), 1);
    EXPECT_EQ(pOldest->Release(), 0);
    EXPECT_EQ(GetFree(), std::vector<CChannelPacketItem*>{pOldest});
    PutAll("m");
    EXPECT_EQ(GetNewest(), pOldest) << "used again";
    EXPECT_EQ(Take(pOldest), "m");
}

TEST_F(ChannelPacketPool, ItemsAreUsedAgainInTheOrderInWhichTheyCameFree)
{
    std::vector<CChannelPacketItem*> items(4);
    for (CChannelPacketItem*& pItem : items)
    {
        pItem = m_pBuffer->AllocChannelPacket();
    }
    for (const size_t i : {2U, 0U, 3U, 1U})
    {
        m_pBuffer->FreeChannelPacket(items[i]);
    }
    EXPECT_EQ(m_pBuffer->AllocChannelPacket(), items[2]);
    m_pBuffer->FreeChannelPacket(items[2]);
    for (const size_t i : {0U, 3U, 1U, 2U})
    {
        EXPECT_EQ(m_pBuffer->AllocChannelPacket(), items[i]);
    }
    EXPECT_EQ(m_pBuffer->m_dwItemsCreated, 4U);
    for (CChannelPacketItem* pItem : items)
    {
        m_pBuffer->FreeChannelPacket(pItem);
    }
}

TEST_F(ChannelPacketPool, ReusedItemKeepsNothingOfItsFormerPacket)
{
    const std::string strLong(1500, 'x');
    m_pBuffer->Destroy();
    m_pBuffer->Create(1);
    m_pBuffer->PutChannelPacket(strLong.data(), 1500);
    PutAll("y");
    EXPECT_EQ(m_pBuffer->m_dwItemsCreated, 1U);
    CChannelPacketItem* pItem = GetNewest();
    EXPECT_EQ(pItem->GetPacketLength(), 17U);
    EXPECT_EQ(Take(pItem), "y");
}

TEST_F(ChannelPacketPool, FullRingMakesNoMoreItems)
{
    for (int i = 0; i < 1000; ++i)
    {
        Put("x");
    }
    EXPECT_EQ(m_pBuffer->m_dwItemsCreated, 4U);
}

TEST_F(ChannelPacketPool, PuttingAndReadingAllocateNothingAfterWarmUp)
{
    std::vector<CChannelPacketItem*> held;
    held.reserve(3);
    const std::string strData(1500, 'x');
    long long llBefore = 0;
    for (int i = 0; i < 10000; ++i)
    {
        if (i == 100)
        {
            llBefore = GetAllocations();
        }
        m_pBuffer->PutChannelPacket(strData.data(), static_cast<unsigned int>(i % 1501));
        if (CChannelPacketItem* pItem = m_pBuffer->GetPacket(i % 2, 0))
        {
            held.push_back(pItem);
        }
        if (held.size() == 3)
        {
            held[1]->Release();
            held.erase(held.begin() + 1);
        }
    }
    EXPECT_EQ(GetAllocations(), llBefore);
    for (CChannelPacketItem* pItem : held)
    {
        pItem->Release();
    }
    EXPECT_GT(llBefore, 0);
}

TEST_F(ChannelPacketPool, NoMemoryForAnItemGives4AndStoresNothing)
{
    PutAll("ab");
    // Neither the item, nor its place in the list.
    for (int nSpared = 0; nSpared < 2; ++nSpared)
    {
        unsigned int dwResult = 0;
        {
            const CNoMemory noMemory(nSpared);
            dwResult = Put("c");
        }
        EXPECT_EQ(dwResult, 4U);
        EXPECT_EQ(m_pBuffer->m_dwCount, 2U);
        EXPECT_EQ(m_pBuffer->m_dwFirstSequence, 0U);
        EXPECT_EQ(m_pBuffer->m_dwItemsCreated, 2U);
    }
    EXPECT_EQ(Take(GetNewest()), "b");
    PutAll("c");
    EXPECT_EQ(Take(GetNewest()), "c");
}

TEST_F(ChannelPacketPool, FullRingHasDroppedItsOldestPacketWhenThereIsNoMemory)
{
    PutAll("abcd");
    // The item of the packet that is dropped stays in use, so that a new one is needed.
    unsigned int dwSequence = 0;
    CChannelPacketItem* pHeld = m_pBuffer->GetNextPacket(&dwSequence);
    unsigned int dwResult = 0;
    {
        const CNoMemory noMemory;
        dwResult = Put("e");
    }
    EXPECT_EQ(dwResult, 4U);
    EXPECT_EQ(m_pBuffer->m_dwCount, 3U);
    EXPECT_EQ(m_pBuffer->m_dwFirstSequence, 1U);
    EXPECT_EQ(m_pBuffer->m_ppSlots[0], nullptr);
    EXPECT_EQ(Take(GetNewest()), "d");
    dwSequence = 0;
    EXPECT_EQ(Take(m_pBuffer->GetNextPacket(&dwSequence)), "b");
    EXPECT_EQ(Take(pHeld), "a");
    PutAll("f");
    EXPECT_EQ(m_pBuffer->m_dwCount, 4U);
    EXPECT_EQ(Take(GetNewest()), "f");
    EXPECT_EQ(m_pBuffer->m_dwItemsCreated, 4U);
}

TEST_F(ChannelPacketPool, FullRingNeedsNoMemoryForTheItemThatItDrops)
{
    PutAll("abcd");
    unsigned int dwResult = 1;
    {
        const CNoMemory noMemory;
        dwResult = Put("e");
    }
    EXPECT_EQ(dwResult, 0U);
    EXPECT_EQ(Take(GetNewest()), "e");
}

TEST_F(ChannelPacketPool, NewTaskWithoutMemoryGetsNothingAndAsksAgain)
{
    PutAll("ab");
    CChannelPacketItem* pItem = nullptr;
    {
        const CNoMemory noMemory;
        pItem = m_pBuffer->GetPacket(1, 1);
    }
    EXPECT_EQ(pItem, nullptr);
    EXPECT_TRUE(m_pBuffer->m_mapTasks.empty());
    EXPECT_EQ(COpenPacketBuffer::CountReferences(*m_pBuffer), 0);
    EXPECT_EQ(Take(m_pBuffer->GetPacket(1, 0)), "b");
}

TEST_F(ChannelPacketPool, NoMemoryForTheSlotsRefusesCreate)
{
    COpenPacketBuffer buffer(1);
    int nResult = 1;
    {
        const CNoMemory noMemory;
        nResult = buffer.Create(8);
    }
    EXPECT_EQ(nResult, 0);
    EXPECT_EQ(buffer.PutChannelPacket("x", 1), 4U);
    EXPECT_NE(buffer.Create(8), 0);
    EXPECT_EQ(buffer.PutChannelPacket("x", 1), 0U);
}

TEST_F(ChannelPacketPool, BufferTakesItsStoredAndItsFreeItemsWithIt)
{
    const long long llBefore = GetAllocations() - GetDeallocations();
    {
        COpenPacketBuffer buffer(1);
        buffer.Create(4);
        for (int i = 0; i < 6; ++i)
        {
            buffer.PutChannelPacket("x", 1);
        }
        CChannelPacketItem* pSpare = buffer.AllocChannelPacket();
        buffer.FreeChannelPacket(pSpare);
    }
    EXPECT_EQ(GetAllocations() - GetDeallocations(), llBefore);
}

TEST_F(ChannelPacketPool, ItemThatOutlivesItsBufferIsDeletedByItsLastRelease)
{
    PutAll("abcdef");
    unsigned int dwSequence = 2;
    CChannelPacketItem* pOldest = m_pBuffer->GetNextPacket(&dwSequence);
    PutAll("g");  // drops it from the ring
    CChannelPacketItem* pNewest = GetNewest();
    pNewest->AddRef();
    m_pBuffer.reset();
    EXPECT_EQ(GetData(pOldest), "c");
    EXPECT_EQ(GetData(pNewest), "g");
    const long long llBefore = GetDeallocations();
    EXPECT_EQ(pNewest->Release(), 1);
    EXPECT_EQ(GetDeallocations(), llBefore);
    EXPECT_EQ(GetData(pNewest), "g");
    EXPECT_EQ(pNewest->Release(), 0);
    EXPECT_EQ(GetDeallocations(), llBefore + 1);
    EXPECT_EQ(pOldest->Release(), 0);
    EXPECT_EQ(GetDeallocations(), llBefore + 2);
}

TEST_F(ChannelPacketPool, ItemOutlivesADestroyAndComesBackToItsBuffer)
{
    PutAll("ab");
    CChannelPacketItem* pItem = GetNewest();
    m_pBuffer->Destroy();
    EXPECT_EQ(m_pBuffer->m_listFree.size(), 1U);
    EXPECT_EQ(GetData(pItem), "b");
    EXPECT_EQ(pItem->Release(), 0);
    EXPECT_EQ(m_pBuffer->m_listFree.size(), 2U);
    EXPECT_TRUE(m_pBuffer->m_listLive.empty());
    m_pBuffer->Create(4);
    EXPECT_EQ(Put("c"), 0U);
    EXPECT_EQ(m_pBuffer->m_dwItemsCreated, 2U);
}

}  // namespace
