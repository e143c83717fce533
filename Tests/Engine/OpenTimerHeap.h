#ifndef OSPREY_TESTS_OPENTIMERHEAP_H
#define OSPREY_TESTS_OPENTIMERHEAP_H

#include <gtest/gtest.h>

#include "TimerHeap.h"

// The heap with its fields open to the tests.
class COpenTimerHeap final : public CTimerHeap
{
public:
    using CTimerHeap::m_nCapacity;
    using CTimerHeap::m_nCount;
    using CTimerHeap::m_ppTimers;

    // Every timer knows its slot, no child is earlier than its parent, vacated slots are null.
    ::testing::AssertionResult IsSound() const
    {
        for (int i = 0; i < m_nCount; ++i)
        {
            if (m_ppTimers[i]->m_nHeapIndex != i)
            {
                return ::testing::AssertionFailure() << "slot " << i << " is not its timer's";
            }
            if (i > 0 && m_ppTimers[i]->IsEarlierThan(*m_ppTimers[(i - 1) / 2]))
            {
                return ::testing::AssertionFailure() << "slot " << i << " precedes its parent";
            }
        }
        for (int i = m_nCount; i < m_nCapacity; ++i)
        {
            if (m_ppTimers[i] != nullptr)
            {
                return ::testing::AssertionFailure() << "vacated slot " << i << " is not null";
            }
        }
        return ::testing::AssertionSuccess();
    }
};

#endif
