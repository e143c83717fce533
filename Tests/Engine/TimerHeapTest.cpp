#include <gtest/gtest.h>

#include "OpenTimerHeap.h"

namespace
{

class CHeapOfTen : public ::testing::Test
{
protected:
    CHeapOfTen()
    {
        for (unsigned int i = 0; i < 10; ++i)
        {
            m_timers[i].m_dwDeadline = 100 + 10 * i;
        }
    }
    void AddFirst(int nCount)
    {
        for (int i = 0; i < nCount; ++i)
        {
            EXPECT_TRUE(m_heap.Add(&m_timers[i]));
        }
    }

    CBaseTimer m_timers[10];
    COpenTimerHeap m_heap;
};
using TimerHeap = CHeapOfTen;

TEST_F(TimerHeap, StartsEmptyWithoutAnArray)
{
    EXPECT_EQ(m_heap.GetTop(), nullptr);
    EXPECT_EQ(m_heap.GetCount(), 0);
    EXPECT_EQ(m_heap.m_ppTimers, nullptr);
    EXPECT_EQ(m_heap.m_nCapacity, 0);
}

TEST_F(TimerHeap, NewTimerIsDisarmedAndOneShot)
{
    const CTimerHandler timer;
    EXPECT_EQ(timer.m_dwDeadline, 0U);
    EXPECT_EQ(timer.m_nHeapIndex, -1);
    EXPECT_FALSE(timer.m_bPeriodic);
    EXPECT_EQ(timer.m_dwInterval, 0U);
}

TEST_F(TimerHeap, FirstTimerAllocatesEightSlots)
{
    AddFirst(1);
    EXPECT_EQ(m_heap.m_nCapacity, 8);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, EighthTimerStillFits)
{
    AddFirst(8);
    EXPECT_EQ(m_heap.m_nCapacity, 8);
}

TEST_F(TimerHeap, NinthTimerGrowsTheArrayTo16)
{
    AddFirst(9);
    EXPECT_EQ(m_heap.m_nCapacity, 16);
    EXPECT_EQ(m_heap.m_nCount, 9);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, ArrayNeverShrinks)
{
    AddFirst(10);
    while (m_heap.GetTop() != nullptr)
    {
        m_heap.Remove(m_heap.GetTop());
    }
    EXPECT_EQ(m_heap.m_nCapacity, 16);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, EarliestDeadlineComesToTheTop)
{
    for (int i = 9; i >= 0; --i)
    {
        m_heap.Add(&m_timers[i]);
        EXPECT_EQ(m_heap.GetTop(), &m_timers[i]);
    }
    for (CBaseTimer& timer : m_timers)
    {
        EXPECT_EQ(m_heap.GetTop(), &timer);
        m_heap.Remove(&timer);
    }
}

TEST_F(TimerHeap, EqualDeadlineStaysBelowItsParent)
{
    m_timers[1].m_dwDeadline = m_timers[0].m_dwDeadline;
    AddFirst(2);
    EXPECT_EQ(m_heap.GetTop(), &m_timers[0]);
}

TEST_F(TimerHeap, OfEqualChildrenTheRightOneRises)
{
    m_timers[2].m_dwDeadline = m_timers[1].m_dwDeadline;
    AddFirst(4);
    EXPECT_TRUE(m_heap.Remove(&m_timers[0]));
    EXPECT_EQ(m_heap.GetTop(), &m_timers[2]);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, DeadlinesOnBothSidesOfTheClocksWrapAreInOrder)
{
    m_timers[0].m_dwDeadline = 0x00000010;
    m_timers[1].m_dwDeadline = 0xFFFFFFF0;
    m_timers[2].m_dwDeadline = 0x00000000;
    m_timers[3].m_dwDeadline = 0xFFFFFFFF;
    AddFirst(4);
    for (const int nNext : {1, 3, 2, 0})
    {
        EXPECT_EQ(m_heap.GetTop(), &m_timers[nNext]);
        m_heap.Remove(m_heap.GetTop());
    }
}

TEST_F(TimerHeap, RemoveOfADisarmedTimerIsRefused)
{
    EXPECT_FALSE(m_heap.Remove(&m_timers[0]));
    AddFirst(3);
    EXPECT_FALSE(m_heap.Remove(&m_timers[5]));
    EXPECT_TRUE(m_heap.Remove(&m_timers[1]));
    EXPECT_FALSE(m_heap.Remove(&m_timers[1]));
    EXPECT_EQ(m_heap.GetCount(), 2);
}

TEST_F(TimerHeap, RemoveOfAnIndexOutOfRangeIsRefused)
{
    AddFirst(3);
    m_timers[5].m_nHeapIndex = 3;
    EXPECT_FALSE(m_heap.Remove(&m_timers[5]));
    m_timers[5].m_nHeapIndex = -2;
    EXPECT_FALSE(m_heap.Remove(&m_timers[5]));
    EXPECT_EQ(m_heap.GetCount(), 3);
}

TEST_F(TimerHeap, RemoveOfTheLastSlotMovesNobody)
{
    AddFirst(4);
    EXPECT_TRUE(m_heap.Remove(&m_timers[3]));
    EXPECT_EQ(m_timers[3].m_nHeapIndex, -1);
    EXPECT_EQ(m_heap.GetCount(), 3);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, RemoveOfTheOnlyTimerLeavesNothing)
{
    AddFirst(1);
    EXPECT_TRUE(m_heap.Remove(&m_timers[0]));
    EXPECT_EQ(m_timers[0].m_nHeapIndex, -1);
    EXPECT_EQ(m_heap.GetTop(), nullptr);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, RemoveLetsTheLastTimerRiseWhenItIsEarlierThanTheParentThere)
{
    // 100 / 500 110 / 510 520 120 130: the last, 130, takes the slot of 510 under 500.
    const unsigned int deadlines[] = {100, 500, 110, 510, 520, 120, 130};
    for (int i = 0; i < 7; ++i)
    {
        m_timers[i].m_dwDeadline = deadlines[i];
    }
    AddFirst(7);
    EXPECT_TRUE(m_heap.Remove(&m_timers[3]));
    EXPECT_EQ(m_timers[6].m_nHeapIndex, 1);
    EXPECT_EQ(m_timers[1].m_nHeapIndex, 3);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, RepositionMovesEitherWay)
{
    AddFirst(10);
    m_timers[9].m_dwDeadline = 1;
    EXPECT_TRUE(m_heap.Reposition(&m_timers[9]));
    EXPECT_EQ(m_heap.GetTop(), &m_timers[9]);
    m_timers[9].m_dwDeadline = 1000;
    EXPECT_TRUE(m_heap.Reposition(&m_timers[9]));
    EXPECT_EQ(m_heap.GetTop(), &m_timers[0]);
    EXPECT_TRUE(m_heap.IsSound());
}

TEST_F(TimerHeap, RepositionOfADisarmedTimerIsRefused)
{
    EXPECT_FALSE(m_heap.Reposition(&m_timers[0]));
    AddFirst(1);
    EXPECT_FALSE(m_heap.Reposition(&m_timers[1]));
}

TEST_F(TimerHeap, ClearDisarmsEveryTimerAndKeepsTheArray)
{
    AddFirst(10);
    m_heap.Clear();
    EXPECT_EQ(m_heap.GetTop(), nullptr);
    EXPECT_EQ(m_heap.m_nCapacity, 16);
    for (const CBaseTimer& timer : m_timers)
    {
        EXPECT_EQ(timer.m_nHeapIndex, -1);
    }
    EXPECT_TRUE(m_heap.IsSound());
}

}  // namespace
