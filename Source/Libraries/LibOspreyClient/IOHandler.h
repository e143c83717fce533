#ifndef OSPREY_IOHANDLER_H
#define OSPREY_IOHANDLER_H

// Internal header. What an engine calls.

#include "LinkedList.h"

// Receives the events of one descriptor.
//
// Lifetime: may be deleted inside its own calls; the dispatch then makes no further call on it.
class CIOHandler
{
public:
    CIOHandler() = default;
    virtual ~CIOHandler();
    CIOHandler(const CIOHandler&) = delete;
    CIOHandler& operator=(const CIOHandler&) = delete;

    virtual void ProcessInput() {}
    virtual void ProcessOutput() {}
    virtual void ProcessError() {}
    virtual void ProcessHangUp() {}
    // Calls, in this order, what the epoll mask names: input, output, error, hang-up. One event can
    // call several, even after an earlier one reported an error.
    virtual void Process(unsigned int dwEvents);
};

// Work queued to run after the I/O and the timers of a pass. Withdraws itself on destruction.
class CDeferredHandler : public CDLinkedListNode
{
public:
    CDeferredHandler() = default;
    virtual ~CDeferredHandler();
    CDeferredHandler(const CDeferredHandler&) = delete;
    CDeferredHandler& operator=(const CDeferredHandler&) = delete;

    virtual void Process() {}

    bool m_bQueued = false;  // in an engine's list, or left there when the engine was destroyed
};

#endif
