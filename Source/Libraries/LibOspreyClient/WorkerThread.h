#ifndef OSPREY_WORKERTHREAD_H
#define OSPREY_WORKERTHREAD_H

// Internal header.

#include <pthread.h>

#include <atomic>

#include "StopLoopPipe.h"

// The one thread that runs an engine: start, stop and join.
//
// Ownership: owns the thread's handle.
// Thread:    Start, Stop and Detach from one host thread at a time; IsCurrent from any.
class CWorkerThread
{
public:
    typedef void* (*CThreadProc)(void*);

    CWorkerThread() = default;
    ~CWorkerThread();
    CWorkerThread(const CWorkerThread&) = delete;
    CWorkerThread& operator=(const CWorkerThread&) = delete;

    // Runs pfnProc(pParam) on a new thread. False when one is there already, or when no thread or
    // memory is to be had.
    bool Start(CThreadProc pfnProc, void* pParam);
    // Stops the engine's loop with result 1, wakes it and waits until the thread has ended.
    // Harmless without a thread. REQUIRES: not on the worker itself.
    void Stop(CIOEngine& engine, CStopLoopPipe& pipe);
    // On the worker itself, as its last act: nobody will join it.
    void Detach();

    // True from a successful Start until Stop or Detach, also when the procedure has returned.
    bool IsStarted() const
    {
        return m_pThread != nullptr;
    }
    // True on the worker thread.
    bool IsCurrent() const;

private:
    static void* Main(void* pThis);

    std::atomic<pthread_t*> m_pThread{nullptr};  // heap-allocated, null when no thread is there
    CThreadProc m_pfnProc = nullptr;
    void* m_pParam = nullptr;
};

#endif
