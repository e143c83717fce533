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

private:
    IFileTimerCallback* m_pCallback;
    unsigned int m_dwID;
};

// The timers of one client. A timer may be dropped or replaced inside its own expiry, while the
// engine still looks at it: what is dropped is deleted in the deferred pass, or by Clear.
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

    // Makes a timer in the empty slot and arms it. False without memory; the slot is then null.
    bool Arm(CFileTimerHandler*& pSlot, unsigned int dwID, unsigned int dwIntervalMs,
             bool bPeriodic);
    // Counts a timer's interval anew from now.
    void Restart(CFileTimerHandler* pTimer);
    // Disarms and empties the slot; harmless when it is empty.
    void Drop(CFileTimerHandler*& pSlot);
    // Deletes what was dropped. REQUIRES: no timer pass is under way.
    void Clear();

private:
    void ProcessDropped(void*);

    CIOEngine* m_pEngine;
    IFileTimerCallback* m_pCallback;
    CDLinkedList m_listDropped;
    CMethodCallbackHandler<CFileTimers, CDeferredHandler> m_handlerDropped;
};

#endif
