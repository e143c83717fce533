// The heap against a plain array that is searched: more than a million random operations.

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "OpenTimerHeap.h"

namespace
{

const int TIMERS = 40;
const int OPERATIONS = 300000;  // for each of four seeds

class CTimerHeapModel : public ::testing::TestWithParam<unsigned int>
{
protected:
    unsigned int Random(unsigned int dwBound)
    {
        return static_cast<unsigned int>(m_random()) % dwBound;
    }
    // Crowded, so that equal ones are frequent, and on both sides of the clock's wrap.
    unsigned int RandomDeadline()
    {
        return 0xFFFFFFC0U + m_dwShift + Random(128);
    }
    void Step();
    void Add(int i);
    void Remove(int i);
    void Reposition(int i);
    void ForAll();
    ::testing::AssertionResult TopIsEarliest() const;

    std::mt19937 m_random{GetParam()};
    unsigned int m_dwShift = 0;
    std::array<CBaseTimer, TIMERS> m_timers;
    std::array<bool, TIMERS> m_armed{};
    COpenTimerHeap m_heap;
};
using TimerHeapModel = CTimerHeapModel;

void CTimerHeapModel::Add(int i)
{
    if (!m_armed[i])
    {
        m_timers[i].m_dwDeadline = RandomDeadline();
        ASSERT_TRUE(m_heap.Add(&m_timers[i]));
        m_armed[i] = true;
    }
}

void CTimerHeapModel::Remove(int i)
{
    ASSERT_EQ(m_heap.Remove(&m_timers[i]), m_armed[i]);
    m_armed[i] = false;
}

void CTimerHeapModel::Reposition(int i)
{
    const unsigned int dwDeadline = RandomDeadline();
    if (m_armed[i])
    {
        m_timers[i].m_dwDeadline = dwDeadline;
    }
    ASSERT_EQ(m_heap.Reposition(&m_timers[i]), m_armed[i]);
}

void CTimerHeapModel::ForAll()
{
    if (Random(50) == 0)
    {
        m_heap.Clear();
        m_armed.fill(false);
        return;
    }
    const unsigned int dwBefore = m_timers[0].m_dwDeadline;
    const unsigned int dwMove = static_cast<unsigned int>(m_random());
    m_heap.ShiftDeadlines(dwMove);
    m_dwShift += dwMove;
    ASSERT_EQ(m_timers[0].m_dwDeadline, m_armed[0] ? dwBefore + dwMove : dwBefore);
}

void CTimerHeapModel::Step()
{
    const int i = static_cast<int>(Random(TIMERS));
    switch (Random(40))
    {
        case 0:
            ForAll();
            break;
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
        case 6:
        case 7:
        case 8:
            Reposition(i);
            break;
        case 9:
        case 10:
        case 11:
            if (m_heap.GetTop() != nullptr)
            {
                Remove(static_cast<int>(m_heap.GetTop() - m_timers.data()));
            }
            break;
        default:
            Random(2) == 0 ? Add(i) : Remove(i);
            break;
    }
}

::testing::AssertionResult CTimerHeapModel::TopIsEarliest() const
{
    const CBaseTimer* pEarliest = nullptr;
    int nArmed = 0;
    for (size_t i = 0; i < TIMERS; ++i)
    {
        if (!m_armed[i])
        {
            if (m_timers[i].m_nHeapIndex != -1)
            {
                return ::testing::AssertionFailure() << "timer " << i << " thinks it is armed";
            }
            continue;
        }
        ++nArmed;
        if (pEarliest == nullptr || m_timers[i].IsEarlierThan(*pEarliest))
        {
            pEarliest = &m_timers[i];
        }
    }
    if (m_heap.GetCount() != nArmed)
    {
        return ::testing::AssertionFailure() << m_heap.GetCount() << " of " << nArmed;
    }
    const CBaseTimer* pTop = m_heap.GetTop();
    if ((pTop == nullptr) != (pEarliest == nullptr) ||
        (pTop != nullptr && pTop->m_dwDeadline != pEarliest->m_dwDeadline))
    {
        return ::testing::AssertionFailure() << "another timer is earlier than the top";
    }
    return ::testing::AssertionSuccess();
}

TEST_P(TimerHeapModel, AgreesAfterEveryRandomOperation)
{
    for (int i = 0; i < OPERATIONS; ++i)
    {
        ASSERT_NO_FATAL_FAILURE(Step()) << "operation " << i;
        ASSERT_TRUE(TopIsEarliest()) << "operation " << i;
        ASSERT_TRUE(m_heap.IsSound()) << "operation " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, TimerHeapModel, ::testing::Values(1U, 2U, 3U, 4U),
                         [](const auto& test) { return std::to_string(test.param); });

}  // namespace
