#ifndef OSPREY_IOENGINE_H
#define OSPREY_IOENGINE_H

// Internal header. The single-threaded reactor that drives everything else.
//
//   RunLoop:  deferred pass
//             +-> wait (epoll) -> I/O events -> due timers -> deferred pass -+
//             +--------------------------------------------------------------+
//
// A handler that wants to go on in the next pass, after everybody else had a turn, queues itself
// for the next pass; the wait then does not block.
//
// Sources: epoll(7), epoll_wait(2), ppoll(2).

#include <sys/epoll.h>

#include <atomic>
#include <memory>

#include "IOHandler.h"
#include "TimerHeap.h"

// One reactor over one epoll instance.
//
// Ownership: owns the epoll descriptor; borrows every handler and timer.
// Thread:    all operations on the loop's thread, or while no loop runs; StopLoop from any thread.
// Lifetime:  Create, RunLoop or ReRunLoop any number of times, Destroy; then Create again.
class CIOEngine
{
public:
    CIOEngine() = default;
    virtual ~CIOEngine();
    CIOEngine(const CIOEngine&) = delete;
    CIOEngine& operator=(const CIOEngine&) = delete;

    // nMaxEvents: most events taken by one wait. False when epoll or memory is not to be had.
    bool Create(int nMaxEvents);
    // Closes epoll, disarms every timer, unlinks every deferred handler without running it. A
    // handler unlinked so keeps m_bQueued: it is refused until RemoveDeferredHandler clears it.
    void Destroy();
    bool IsCreated() const
    {
        return m_hEpoll >= 0;
    }

    // nEvents is fixed for as long as the descriptor is registered. False when epoll refuses.
    bool AddIOHandler(int fd, int nEvents, CIOHandler* pHandler);
    // nEvents is ignored. Events already fetched for pHandler, if given, are dropped.
    bool RemoveIOHandler(int fd, int nEvents, const CIOHandler* pHandler = nullptr);

    // Runs in this pass, or in the one under way. False when queued already.
    bool AddDeferredHandler(CDeferredHandler* pHandler);
    // Runs in the next pass, whatever becomes ready meanwhile; also withdraws it from this pass.
    void AddNextPassHandler(CDeferredHandler* pHandler);
    // False when not queued.
    bool RemoveDeferredHandler(CDeferredHandler* pHandler);

    // Arms the timer to fire m_dwInterval milliseconds from now. False, and nothing changes, when
    // it is armed already or memory is out.
    bool AddTimerHandler(CTimerHandler* pTimer);
    // False when it is not armed.
    bool RemoveTimerHandler(CTimerHandler* pTimer);
    // Pushes an armed timer back to m_dwInterval from now. False when it is not armed.
    bool RestartTimerHandler(CTimerHandler* pTimer);
    // Milliseconds to the earliest deadline, 0 when it has passed, -1 without timers.
    int CalcNextTimeout();

    // Runs until StopLoop; returns its result. Events that a wait had fetched when the stop was
    // seen are kept for the next run: edges do not come twice.
    int RunLoop();
    // Clears the stop flag, then runs.
    int ReRunLoop();
    void ClearStop()
    {
        m_bStopLoop = false;
    }
    // The loop ends after the pass under way and returns nResult. From another thread, wake it
    // with CStopLoopPipe::WriteStopLoop afterwards. The result is stored before the flag.
    void StopLoop(int nResult);
    // What the next RunLoop returns if nobody names another result.
    void SetLoopResult(int nResult)
    {
        m_nLoopResult = nResult;
    }
    bool IsStopping() const
    {
        return m_bStopLoop;
    }

    // Wall-clock milliseconds, wrapping after 49.7 days. Compare by signed 32-bit difference.
    static unsigned int GetSystemTimeMS();

    // Virtual so that the loop calls them through the table; no class overrides them.
    virtual void ProcessIOEvents(int nCount, epoll_event* pEvents);
    virtual void ProcessTimer();
    virtual void ProcessError(int nError);
    virtual void ProcessDeferredHandlers();

protected:
    int m_hEpoll = -1;
    int m_nMaxEvents = 0;
    std::atomic<bool> m_bStopLoop{false};
    std::atomic<bool> m_bLoopExited{true};
    std::atomic<int> m_nLoopResult{0};
    CTimerHeap m_timerHeap;
    CDLinkedList m_listDeferred;
    int m_nIOHandlers = 0;  // descriptors registered

private:
    int Wait(int nTimeoutMs);
    void QueueNextPass();
    void WaitOutMillisecond();
    void DropFetchedEvents(const CIOHandler* pHandler);
    void FireTimer(CTimerHandler* pTimer);
    unsigned int ReadClock();

    CDLinkedList m_listNextPass;
    std::unique_ptr<epoll_event[]> m_pEvents;  // m_nMaxEvents of them
    int m_nFetched = 0;                        // events in m_pEvents not fully dispatched
    int m_nDispatched = 0;                     // of those, how many are done
    CTimerHandler* m_pFiring = nullptr;        // the timer whose Process runs
    bool m_bFiringRearmed = false;
    long long m_llWallMS = 0;  // both clocks at the last look; see ReadClock
    long long m_llMonotonicMS = 0;
};

#endif
