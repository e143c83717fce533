// The ring of a channel against a plain queue with 64-bit sequence numbers: more than half a
// million random operations, most of them around the wrap of the 32-bit ones.

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "AllocationWatch.h"
#include "Hex.h"
#include "OpenPacketStore.h"

namespace
{

const int OPERATIONS = 20000;  // for each of 7 capacities and 4 seeds

typedef std::tuple<unsigned int, unsigned int> CRun;  // capacity, seed

struct CStored
{
    CChannelPacketItem* m_pItem;
    std::string m_strData;
};

class CStoreModel : public ::testing::TestWithParam<CRun>
{
protected:
    CStoreModel()
    {
        m_buffer.Create(std::get<0>(GetParam()));
        m_buffer.m_dwFirstSequence = static_cast<unsigned int>(m_ullFirst);
    }
    ~CStoreModel() override
    {
        for (const CStored& held : m_held)
        {
            held.m_pItem->Release();
        }
    }

    unsigned int Random(unsigned int dwBelow)
    {
        return static_cast<unsigned int>(m_random()) % dwBelow;
    }
    unsigned long long GetEnd() const
    {
        return m_ullFirst + m_stored.size();
    }
    void Step();
    void Put();
    void PutRefused();
    void CheckNewest();
    void GetForTask();
    void GetByNumber();
    void ReleaseOne();
    void RemoveTask();
    void CheckUsage();
    void CheckCounts();

    // What the reader of a packet does with it.
    void Receive(CChannelPacketItem* pItem, const CStored* pExpected);
    const CStored* Next(unsigned long long& ullPosition);
    static void ExpectHolds(const CStored& stored);
    void Unreference(CChannelPacketItem* pItem);
    float Backlog(unsigned long long ullPosition) const;

    std::mt19937 m_random{std::get<1>(GetParam())};
    const size_t m_nCapacity = std::get<0>(GetParam());
    COpenPacketBuffer m_buffer{9};

    unsigned long long m_ullFirst = 0x1FFFFFF00ULL;
    std::deque<CStored> m_stored;
    std::map<long, unsigned long long> m_tasks;
    long m_lLocalTask = -1;
    std::map<CChannelPacketItem*, int> m_references;  // of the items in use
    std::deque<CChannelPacketItem*> m_free;
    std::vector<CStored> m_held;
    unsigned int m_dwPuts = 0;
};
using ChannelPacketModel = CStoreModel;

void CStoreModel::Unreference(CChannelPacketItem* pItem)
{
    if (--m_references[pItem] == 0)
    {
        m_references.erase(pItem);
        m_free.push_back(pItem);
    }
}

void CStoreModel::Put()
{
    const std::string strData = Pattern(Random(4) == 0 ? Random(1501) : Random(20), ++m_dwPuts);
    const bool bNoMemory = Random(8) == 0;
    if (m_stored.size() == m_nCapacity)
    {
        Unreference(m_stored.front().m_pItem);
        m_stored.pop_front();
        ++m_ullFirst;
    }
    unsigned int dwResult = 0;
    {
        const CNoMemory noMemory(bNoMemory ? static_cast<int>(m_dwPuts % 2) : -1);
        dwResult =
            m_buffer.PutChannelPacket(strData.data(), static_cast<unsigned int>(strData.size()));
    }
    if (bNoMemory && m_free.empty())
    {
        EXPECT_EQ(dwResult, 4U);
        return;
    }
    ASSERT_EQ(dwResult, 0U);
    unsigned int dwSequence = 0;
    CChannelPacketItem* pItem = m_buffer.GetPacket(&dwSequence);
    ASSERT_NE(pItem, nullptr);
    EXPECT_EQ(pItem->Release(), 1);
    if (!m_free.empty())
    {
        EXPECT_EQ(pItem, m_free.front()) << "not the item that has been free the longest";
        m_free.pop_front();
    }
    EXPECT_EQ(m_references.count(pItem), 0U) << "still in use";
    m_references[pItem] = 1;
    m_stored.push_back({pItem, strData});
}

void CStoreModel::PutRefused()
{
    const std::string strLarge(1501, 'x');
    EXPECT_EQ(m_buffer.PutChannelPacket(strLarge.data(), 1501 + Random(10) * 100000), 4U);
    EXPECT_EQ(m_buffer.PutChannelPacket(nullptr, 1 + Random(1500)), 4U);
}

void CStoreModel::ExpectHolds(const CStored& stored)
{
    EXPECT_TRUE(GetData(stored.m_pItem) == stored.m_strData)
        << Hex(GetData(stored.m_pItem)) << "\ninstead of\n"
        << Hex(stored.m_strData);
}

void CStoreModel::Receive(CChannelPacketItem* pItem, const CStored* pExpected)
{
    if (pExpected == nullptr)
    {
        ASSERT_EQ(pItem, nullptr);
        return;
    }
    ASSERT_EQ(pItem, pExpected->m_pItem);
    ExpectHolds(*pExpected);
    if (Random(3) == 0)
    {
        ++m_references[pItem];
        m_held.push_back(*pExpected);
        return;
    }
    EXPECT_EQ(pItem->Release(), m_references[pItem]);
}

// The packet at a position, which it moves on; null when there is none yet.
const CStored* CStoreModel::Next(unsigned long long& ullPosition)
{
    if (m_stored.empty())
    {
        ullPosition = m_ullFirst;
        return nullptr;
    }
    if (ullPosition >= GetEnd())
    {
        return nullptr;
    }
    ullPosition = ullPosition < m_ullFirst ? m_ullFirst : ullPosition;
    return &m_stored[static_cast<size_t>(ullPosition++ - m_ullFirst)];
}

void CStoreModel::GetForTask()
{
    const long lTask = static_cast<long>(Random(6));
    const int bLocal = Random(10) == 0 ? 1 : 0;
    const CStored* pExpected = nullptr;
    if (m_tasks.count(lTask) != 0)
    {
        pExpected = Next(m_tasks[lTask]);
    }
    else
    {
        pExpected = m_stored.empty() ? nullptr : &m_stored.back();
        m_tasks[lTask] = GetEnd();
    }
    m_lLocalTask = bLocal != 0 ? lTask : m_lLocalTask;
    Receive(m_buffer.GetPacket(lTask, bLocal), pExpected);
    EXPECT_EQ(m_buffer.m_mapTasks[lTask], static_cast<unsigned int>(m_tasks[lTask]));
}

void CStoreModel::GetByNumber()
{
    unsigned long long ullPosition = m_ullFirst - 20 + Random(60);
    unsigned int dwPosition = static_cast<unsigned int>(ullPosition);
    const CStored* pExpected = Next(ullPosition);
    Receive(m_buffer.GetNextPacket(&dwPosition), pExpected);
    EXPECT_EQ(dwPosition, static_cast<unsigned int>(ullPosition));
}

void CStoreModel::ReleaseOne()
{
    if (m_held.empty())
    {
        return;
    }
    const size_t nIndex = Random(static_cast<unsigned int>(m_held.size()));
    const CStored held = m_held[nIndex];
    ExpectHolds(held);
    m_held.erase(m_held.begin() + static_cast<std::ptrdiff_t>(nIndex));
    const int nLeft = m_references[held.m_pItem] - 1;
    Unreference(held.m_pItem);
    EXPECT_EQ(held.m_pItem->Release(), nLeft);
}

void CStoreModel::RemoveTask()
{
    const long lTask = static_cast<long>(Random(6));
    m_tasks.erase(lTask);
    m_lLocalTask = m_lLocalTask == lTask ? -1 : m_lLocalTask;
    m_buffer.RemoveTask(lTask);
}

float CStoreModel::Backlog(unsigned long long ullPosition) const
{
    if (ullPosition >= GetEnd())
    {
        return 0.0F;
    }
    return ullPosition <= m_ullFirst ? 100.0F
                                     : static_cast<float>(GetEnd() - ullPosition) * 100.0F /
                                           static_cast<float>(m_stored.size());
}

void CStoreModel::CheckUsage()
{
    float fSum = 0.0F;
    int nTasks = 0;
    for (const auto& task : m_tasks)
    {
        if (task.first != m_lLocalTask)
        {
            fSum += Backlog(task.second);
            ++nTasks;
        }
    }
    const bool bCounts = nTasks > 0 && !m_stored.empty();
    EXPECT_FLOAT_EQ(m_buffer.GetBufferUsage(), bCounts ? fSum / static_cast<float>(nTasks) : 0.0F);
}

void CStoreModel::CheckCounts()
{
    ASSERT_EQ(m_buffer.m_dwCount, m_stored.size());
    ASSERT_EQ(m_buffer.m_dwFirstSequence, static_cast<unsigned int>(m_ullFirst));
    ASSERT_EQ(m_buffer.m_listFree.size(), m_free.size());
    ASSERT_EQ(m_buffer.m_listLive.size(), m_references.size());
    ASSERT_EQ(m_buffer.m_dwItemsCreated, m_free.size() + m_references.size());
    ASSERT_EQ(m_buffer.m_lLocalTask, m_lLocalTask);
}

void CStoreModel::Step()
{
    switch (Random(16))
    {
        case 0:
            return PutRefused();
        case 1:
            return RemoveTask();
        case 2:
            return CheckUsage();
        case 3:
            return GetByNumber();
        case 4:
        case 5:
            return ReleaseOne();
        case 6:
        case 7:
        case 8:
        case 9:
            return Put();
        default:
            return m_held.size() < 24 ? GetForTask() : ReleaseOne();
    }
}

TEST_P(ChannelPacketModel, RandomOperationsDoWhatTheModelDoes)
{
    for (int i = 0; i < OPERATIONS && !HasFailure(); ++i)
    {
        Step();
        CheckCounts();
    }
    EXPECT_GT(m_ullFirst, 0x200000000ULL) << "came across the wrap";
}

INSTANTIATE_TEST_SUITE_P(Capacities, ChannelPacketModel,
                         ::testing::Combine(::testing::Values(1U, 2U, 3U, 7U, 16U, 100U, 2048U),
                                            ::testing::Values(1U, 2U, 3U, 4U)));

}  // namespace
