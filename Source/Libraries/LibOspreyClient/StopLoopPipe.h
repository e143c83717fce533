#ifndef OSPREY_STOPLOOPPIPE_H
#define OSPREY_STOPLOOPPIPE_H

// Internal header. What wakes an engine's loop from another thread.

#include "CriticalSection.h"
#include "IOEngine.h"

// Wakes a blocked loop so that it sees a stop request; used for nothing else. The bytes are never
// read: the registration is edge-triggered, so that each write gives one wake-up.
//
// Ownership: owns both descriptors; borrows the engine.
// Thread:    WriteStopLoop from any thread between Create and Destroy; the rest as the engine.
class CStopLoopPipe final : public CIOHandler
{
public:
    explicit CStopLoopPipe(CIOEngine* pEngine);
    ~CStopLoopPipe() override;

    // False, with nothing left open, when the pipe cannot be made or registered.
    bool Create();
    void Destroy();
    void WriteStopLoop();

private:
    CIOEngine* m_pEngine;
    int m_hRead = -1;
    int m_hWrite = -1;
};

// Asks the loop from any thread to run a deferred handler; many requests may end in one run.
//
// Ownership: owns its event descriptor (eventfd(2)); borrows the engine and the handler.
// Thread:    Wake from any thread at any time; the rest as the engine.
class CWakeEvent final : public CIOHandler
{
public:
    CWakeEvent(CIOEngine* pEngine, CDeferredHandler* pHandler);
    ~CWakeEvent() override;

    // False, with nothing left open, when the descriptor cannot be made or registered.
    bool Create();
    void Destroy();
    void Wake();

    void ProcessInput() override;

private:
    CIOEngine* m_pEngine;
    CDeferredHandler* m_pHandler;
    CCriticalSection m_cs;  // keeps Wake off a descriptor that is being closed
    int m_hEvent = -1;
};

#endif
