#ifndef OSPREY_TIMERHEAP_H
#define OSPREY_TIMERHEAP_H

// Internal header. Millisecond timers in a binary min-heap; used through CIOEngine.

// What the heap orders. A timer knows its own slot, so removal and repositioning need no search.
class CBaseTimer
{
public:
    CBaseTimer() = default;
    virtual ~CBaseTimer() = default;
    CBaseTimer(const CBaseTimer&) = delete;
    CBaseTimer& operator=(const CBaseTimer&) = delete;

    // Deadlines wrap with the 32-bit millisecond clock: the order is that of their signed
    // difference, right as long as all lie within 24.8 days.
    bool IsEarlierThan(const CBaseTimer& other) const
    {
        return static_cast<int>(m_dwDeadline - other.m_dwDeadline) < 0;
    }

    unsigned int m_dwDeadline = 0;  // milliseconds, in CIOEngine::GetSystemTimeMS() units
    int m_nHeapIndex = -1;          // slot in the heap; -1 while not armed
    bool m_bPeriodic = false;       // re-armed after firing
    unsigned int m_dwInterval = 0;  // milliseconds from arming to firing, and between firings
};

// A timer that does something.
//
// Ownership: its owner's; the engine never frees a timer. Disarm before deletion.
class CTimerHandler : public CBaseTimer
{
public:
    virtual void Process() {}
};

// 0-based binary heap, earliest deadline in slot 0. For every armed timer t, slot t.m_nHeapIndex
// holds t; slots from the count on are null.
//
// Ownership: owns the array, never a timer.
// Thread:    the engine's.
class CTimerHeap
{
public:
    CTimerHeap() = default;
    virtual ~CTimerHeap();
    CTimerHeap(const CTimerHeap&) = delete;
    CTimerHeap& operator=(const CTimerHeap&) = delete;

    // Appends a timer that is in no heap, with its deadline set. False when the array cannot grow.
    bool Add(CBaseTimer* pTimer);
    // False when the timer is not in the heap.
    bool Remove(CBaseTimer* pTimer);
    // Restores the order after the timer's deadline changed. False when it is not in the heap.
    bool Reposition(CBaseTimer* pTimer);
    // Disarms every timer; keeps the array.
    void Clear();
    // Moves every deadline by the same number of milliseconds (may be "negative", modulo 2^32).
    void ShiftDeadlines(unsigned int dwMilliseconds);

    // The earliest timer, or null.
    CBaseTimer* GetTop() const
    {
        return m_nCount > 0 ? m_ppTimers[0] : nullptr;
    }
    int GetCount() const
    {
        return m_nCount;
    }

protected:
    // Place the timer at or above, at or below the slot, moving others out of its way.
    void ShiftUp(int nIndex, CBaseTimer* pTimer);
    void ShiftDown(int nIndex, CBaseTimer* pTimer);

    CBaseTimer** m_ppTimers = nullptr;  // malloc'ed
    int m_nCapacity = 0;                // slots allocated, a multiple of 8
    int m_nCount = 0;                   // slots in use

private:
    bool Grow();
    bool Holds(const CBaseTimer* pTimer) const;
    void Place(int nIndex, CBaseTimer* pTimer);
};

#endif
