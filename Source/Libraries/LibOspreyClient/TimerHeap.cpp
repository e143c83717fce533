#include "TimerHeap.h"

#include <cstdlib>

CTimerHeap::~CTimerHeap()
{
    free(m_ppTimers);
}

void CTimerHeap::Place(int nIndex, CBaseTimer* pTimer)
{
    m_ppTimers[nIndex] = pTimer;
    pTimer->m_nHeapIndex = nIndex;
}

void CTimerHeap::ShiftUp(int nIndex, CBaseTimer* pTimer)
{
    while (nIndex != 0)
    {
        const int nParent = (nIndex - 1) / 2;
        if (!pTimer->IsEarlierThan(*m_ppTimers[nParent]))
        {
            break;
        }
        Place(nIndex, m_ppTimers[nParent]);
        nIndex = nParent;
    }
    Place(nIndex, pTimer);
}

void CTimerHeap::ShiftDown(int nIndex, CBaseTimer* pTimer)
{
    for (int nChild = 2 * nIndex + 2; nChild <= m_nCount; nChild = 2 * nIndex + 2)
    {
        if (nChild == m_nCount || m_ppTimers[nChild - 1]->IsEarlierThan(*m_ppTimers[nChild]))
        {
            --nChild;
        }
        if (!m_ppTimers[nChild]->IsEarlierThan(*pTimer))
        {
            break;
        }
        Place(nIndex, m_ppTimers[nChild]);
        nIndex = nChild;
    }
    Place(nIndex, pTimer);
}

bool CTimerHeap::Grow()
{
    const int nCapacity = (m_nCount + 8) / 8 * 8;
    const size_t nSize = static_cast<size_t>(nCapacity) * sizeof(void*);
    void* pGrown = realloc(m_ppTimers, nSize);
    if (pGrown == nullptr)
    {
        return false;
    }
    m_ppTimers = static_cast<CBaseTimer**>(pGrown);
    for (int i = m_nCapacity; i < nCapacity; ++i)
    {
        m_ppTimers[i] = nullptr;
    }
    m_nCapacity = nCapacity;
    return true;
}

bool CTimerHeap::Holds(const CBaseTimer* pTimer) const
{
    return pTimer->m_nHeapIndex >= 0 && pTimer->m_nHeapIndex < m_nCount;
}

bool CTimerHeap::Add(CBaseTimer* pTimer)
{
    if (m_nCount >= m_nCapacity && !Grow())
    {
        return false;
    }
    ++m_nCount;
    ShiftUp(m_nCount - 1, pTimer);
    return true;
}

bool CTimerHeap::Remove(CBaseTimer* pTimer)
{
    if (!Holds(pTimer))
    {
        return false;
    }
    const int nSlot = pTimer->m_nHeapIndex;
    --m_nCount;
    CBaseTimer* pLast = m_ppTimers[m_nCount];
    m_ppTimers[m_nCount] = nullptr;
    if (nSlot != m_nCount)
    {
        if (nSlot != 0 && pLast->IsEarlierThan(*m_ppTimers[(nSlot - 1) / 2]))
        {
            ShiftUp(nSlot, pLast);
        }
        else
        {
            ShiftDown(nSlot, pLast);
        }
    }
    pTimer->m_nHeapIndex = -1;
    return true;
}

bool CTimerHeap::Reposition(CBaseTimer* pTimer)
{
    if (!Holds(pTimer))
    {
        return false;
    }
    const int nSlot = pTimer->m_nHeapIndex;
    if (nSlot != 0 && pTimer->IsEarlierThan(*m_ppTimers[(nSlot - 1) / 2]))
    {
        ShiftUp(nSlot, pTimer);
    }
    else
    {
        ShiftDown(nSlot, pTimer);
    }
    return true;
}

void CTimerHeap::Clear()
{
    for (int i = 0; i < m_nCount; ++i)
    {
        m_ppTimers[i]->m_nHeapIndex = -1;
        m_ppTimers[i] = nullptr;
    }
    m_nCount = 0;
}

void CTimerHeap::ShiftDeadlines(unsigned int dwMilliseconds)
{
    for (int i = 0; i < m_nCount; ++i)
    {
        m_ppTimers[i]->m_dwDeadline += dwMilliseconds;
    }
}
