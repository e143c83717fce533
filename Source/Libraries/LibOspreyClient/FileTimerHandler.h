#ifndef OSPREY_FILETIMERHANDLER_H
#define OSPREY_FILETIMERHANDLER_H

// Internal header. The clients' timers, told apart by small numbers.

#include "IOEngine.h"
#include "MethodCallbackHandler.h"

class IFileTimerCallback
{
public:
    virtual void OnTimeout(unsigned int dwID) = 0;

protected:
    ~IFileTimerCallback() = default;
};

// A timer that reports its number.
//
// Ownership: borrows the callback; null drops the expiry.
class CFileTimerHandler final : public CTimerHandler, public CDLinkedListNode
{
public:
    CFileTimerHandler(IFileTimerCallback* pCallback, unsigned int dwID);

    void Process() override;
    void SetID(unsigned int dwID)
    {
        m_dwID = dwID;
    }

private:
    IFileTimerCallback* m_pCallback;
    unsigned int m_dwID;
};

// The timers of one client. A timer may be dropped or replaced inside its own expiry, while the
// engine still looks at it: what is dropped is deleted in the deferred pass, or by Clear.
//
// A client that must go on without memory reserves its timers: as many as are ever in use or
// dropped in one pass. They are used again instead of being deleted.
//
// Ownership: owns every timer from Arm until it is deleted; borrows engine and callback.
// Thread:    the engine's.
class CFileTimers
{
public:
    CFileTimers(CIOEngine* pEngine, IFileTimerCallback* pCallback);
    ~CFileTimers();
    CFileTimers(const CFileTimers&) = delete;
    CFileTimers& operator=(const CFileTimers&) = delete;

    // From now on this many timers can always be armed. False without memory.
    bool Reserve(int nTimers);
    // Makes a timer in the empty slot and arms it. False without memory; the slot is then null.
    bool Arm(CFileTimerHandler*& pSlot, unsigned int dwID, unsigned int dwIntervalMs,
             bool bPeriodic);
    // Counts a timer's interval anew from now.
    void Restart(CFileTimerHandler* pTimer);
    // Disarms and empties the slot; harmless when it is empty.
    void Drop(CFileTimerHandler*& pSlot);
    // Deletes what was dropped, but for those that are reserved. REQUIRES: no timer pass is under
    // way.
    void Clear();

private:
    CFileTimerHandler* Take();
    void ProcessDropped(void*);

    CIOEngine* m_pEngine;
    IFileTimerCallback* m_pCallback;
    CDLinkedList m_listDropped;
    CDLinkedList m_listSpare;  // reserved and not in use
    int m_nReserved = 0;
    CMethodCallbackHandler<CFileTimers, CDeferredHandler> m_handlerDropped;
};

#endif
