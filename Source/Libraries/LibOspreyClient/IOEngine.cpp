#include "IOEngine.h"

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <new>

namespace
{

// A timer pass that lasts longer (a callback slower than its period) goes on in the next loop pass.
const long long TIMER_PASS_MS = 50;

// A difference between the wall clock's and the monotonic clock's advance that counts as a step.
const long long CLOCK_STEP_MS = 1000;

long long ToMS(const timeval& tv)
{
    return static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

long long GetWallMS()
{
    timeval tv{};
    gettimeofday(&tv, nullptr);
    return ToMS(tv);
}

long long GetMonotonicMS()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

}  // namespace

CIOEngine::~CIOEngine()
{
    Destroy();
}

bool CIOEngine::Create(int nMaxEvents)
{
    if (IsCreated() || nMaxEvents <= 0)
    {
        return false;
    }
    m_pEvents.reset(new (std::nothrow) epoll_event[static_cast<size_t>(nMaxEvents)]);
    if (m_pEvents == nullptr)
    {
        return false;
    }
    m_nMaxEvents = nMaxEvents;
    m_hEpoll = epoll_create1(EPOLL_CLOEXEC);
    m_llWallMS = GetWallMS();
    m_llMonotonicMS = GetMonotonicMS();
    return IsCreated();
}

void CIOEngine::Destroy()
{
    if (IsCreated())
    {
        close(m_hEpoll);
        m_hEpoll = -1;
    }
    m_nIOHandlers = 0;
    m_nFetched = m_nDispatched = 0;
    m_timerHeap.Clear();
    while (m_listDeferred.RemoveHead() != nullptr)
    {
    }
    while (m_listNextPass.RemoveHead() != nullptr)
    {
    }
}

bool CIOEngine::AddIOHandler(int fd, int nEvents, CIOHandler* pHandler)
{
    epoll_event event{};
    event.events = static_cast<uint32_t>(nEvents);
    event.data.ptr = pHandler;
    if (epoll_ctl(m_hEpoll, EPOLL_CTL_ADD, fd, &event) < 0)
    {
        return false;
    }
    ++m_nIOHandlers;
    return true;
}

bool CIOEngine::RemoveIOHandler(int fd, int /*nEvents*/, const CIOHandler* pHandler)
{
    if (pHandler != nullptr)
    {
        DropFetchedEvents(pHandler);
    }
    if (epoll_ctl(m_hEpoll, EPOLL_CTL_DEL, fd, nullptr) < 0)
    {
        return false;
    }
    --m_nIOHandlers;
    return true;
}

void CIOEngine::DropFetchedEvents(const CIOHandler* pHandler)
{
    for (int i = m_nDispatched; i < m_nFetched; ++i)
    {
        if (m_pEvents[i].data.ptr == pHandler)
        {
            m_pEvents[i].data.ptr = nullptr;
        }
    }
}

bool CIOEngine::AddDeferredHandler(CDeferredHandler* pHandler)
{
    if (pHandler->m_bQueued)
    {
        return false;
    }
    pHandler->m_bQueued = true;
    return m_listDeferred.AddTail(pHandler);
}

void CIOEngine::AddNextPassHandler(CDeferredHandler* pHandler)
{
    RemoveDeferredHandler(pHandler);
    pHandler->m_bQueued = true;
    m_listNextPass.AddTail(pHandler);
}

bool CIOEngine::RemoveDeferredHandler(CDeferredHandler* pHandler)
{
    if (!pHandler->m_bQueued)
    {
        return false;
    }
    if (pHandler->m_pList != nullptr)
    {
        pHandler->m_pList->Remove(pHandler);
    }
    pHandler->m_bQueued = false;
    return true;
}

unsigned int CIOEngine::GetSystemTimeMS()
{
    return static_cast<unsigned int>(GetWallMS());
}

// Deadlines are wall-clock times. When the wall clock is set (a device that gets its time after
// boot), all of them move with it, so that no timer fires early and none waits for hours.
unsigned int CIOEngine::ReadClock()
{
    const long long llWallMS = GetWallMS();
    const long long llMonotonicMS = GetMonotonicMS();
    const long long llStep = (llWallMS - m_llWallMS) - (llMonotonicMS - m_llMonotonicMS);
    if (llStep >= CLOCK_STEP_MS || llStep <= -CLOCK_STEP_MS)
    {
        m_timerHeap.ShiftDeadlines(static_cast<unsigned int>(llStep));
    }
    m_llWallMS = llWallMS;
    m_llMonotonicMS = llMonotonicMS;
    return static_cast<unsigned int>(llWallMS);
}

bool CIOEngine::AddTimerHandler(CTimerHandler* pTimer)
{
    if (pTimer->m_nHeapIndex != -1)
    {
        return false;
    }
    pTimer->m_dwDeadline = ReadClock() + pTimer->m_dwInterval;
    if (!m_timerHeap.Add(pTimer))
    {
        return false;
    }
    m_bFiringRearmed = m_bFiringRearmed || pTimer == m_pFiring;
    return true;
}

bool CIOEngine::RemoveTimerHandler(CTimerHandler* pTimer)
{
    return m_timerHeap.Remove(pTimer);
}

bool CIOEngine::RestartTimerHandler(CTimerHandler* pTimer)
{
    if (pTimer->m_nHeapIndex == -1)
    {
        return false;
    }
    pTimer->m_dwDeadline = ReadClock() + pTimer->m_dwInterval;
    m_bFiringRearmed = m_bFiringRearmed || pTimer == m_pFiring;
    return m_timerHeap.Reposition(pTimer);
}

int CIOEngine::CalcNextTimeout()
{
    const CBaseTimer* pTop = m_timerHeap.GetTop();
    if (pTop == nullptr)
    {
        return -1;
    }
    const unsigned int dwNow = ReadClock();
    const int nTimeout = static_cast<int>(pTop->m_dwDeadline - dwNow);
    return nTimeout > 0 ? nTimeout : 0;
}

void CIOEngine::ProcessTimer()
{
    bool bStarted = false;
    long long llStartedMS = 0;
    while (m_timerHeap.GetTop() != nullptr)
    {
        const unsigned int dwNow = ReadClock();
        if (!bStarted)
        {
            bStarted = true;
            llStartedMS = m_llMonotonicMS;
        }
        // Only timers enter the heap through AddTimerHandler, so the top is a CTimerHandler.
        CTimerHandler* pTimer = static_cast<CTimerHandler*>(m_timerHeap.GetTop());
        // A deadline equal to now is not yet due.
        if (static_cast<int>(pTimer->m_dwDeadline - dwNow) >= 0 ||
            m_llMonotonicMS - llStartedMS >= TIMER_PASS_MS)
        {
            return;
        }
        FireTimer(pTimer);
    }
}

void CIOEngine::FireTimer(CTimerHandler* pTimer)
{
    m_pFiring = pTimer;
    m_bFiringRearmed = false;
    pTimer->Process();
    const bool bRearmed = m_bFiringRearmed;
    m_pFiring = nullptr;
    m_bFiringRearmed = false;
    if (pTimer->m_nHeapIndex == -1)
    {
        return;
    }
    if (pTimer->m_bPeriodic)
    {
        // Counted from the old deadline: a late timer catches up. Interval 0 counts as 1, or the
        // pass would never end.
        pTimer->m_dwDeadline += pTimer->m_dwInterval != 0 ? pTimer->m_dwInterval : 1;
        m_timerHeap.Reposition(pTimer);
    }
    else if (!bRearmed)
    {
        // The top goes, whoever it is by now: the same timer unless its callback armed one with an
        // interval beyond the clock's horizon of 24.8 days.
        m_timerHeap.Remove(m_timerHeap.GetTop());
    }
}

void CIOEngine::StopLoop(int nResult)
{
    m_nLoopResult = nResult;
    m_bStopLoop = true;
}

int CIOEngine::ReRunLoop()
{
    ClearStop();
    return RunLoop();
}

int CIOEngine::RunLoop()
{
    m_bLoopExited = false;
    QueueNextPass();
    ProcessDeferredHandlers();
    int nTimeoutMs = CalcNextTimeout();
    while (!m_bStopLoop)
    {
        const int nCount = Wait(nTimeoutMs);
        const int nError = errno;
        if (m_bStopLoop)
        {
            break;
        }
        if (nCount < 0 && nError == EINTR)
        {
            continue;
        }
        if (nCount < 0)
        {
            ProcessError(nError);
        }
        else if (nCount > 0)
        {
            ProcessIOEvents(nCount, m_pEvents.get());
        }
        else if (nTimeoutMs == 0)
        {
            WaitOutMillisecond();
        }
        ProcessTimer();
        ProcessDeferredHandlers();
        nTimeoutMs = CalcNextTimeout();
    }
    m_bLoopExited = true;
    return m_nLoopResult;
}

int CIOEngine::Wait(int nTimeoutMs)
{
    if (m_nFetched == 0)
    {
        if (m_listNextPass.GetSize() > 0)
        {
            nTimeoutMs = 0;
        }
        const int nCount = epoll_wait(m_hEpoll, m_pEvents.get(), m_nMaxEvents, nTimeoutMs);
        if (nCount < 0)
        {
            return nCount;
        }
        m_nFetched = nCount;
    }
    QueueNextPass();
    return m_nFetched;
}

// What asked for the next pass before this wait belongs to this pass; what asks from now on waits.
void CIOEngine::QueueNextPass()
{
    while (CDLinkedListNode* pNode = m_listNextPass.RemoveHead())
    {
        m_listDeferred.AddTail(pNode);
    }
}

// A timer due in the running millisecond is not due until the next, so that every wait for it has a
// time-out of 0: sleep that out on the epoll descriptor itself, which any event still ends.
void CIOEngine::WaitOutMillisecond()
{
    const CBaseTimer* pTop = m_timerHeap.GetTop();
    if (pTop == nullptr || m_listDeferred.GetSize() > 0)
    {
        return;
    }
    timeval tv{};
    gettimeofday(&tv, nullptr);
    if (pTop->m_dwDeadline != static_cast<unsigned int>(ToMS(tv)))
    {
        return;
    }
    pollfd pfd = {m_hEpoll, POLLIN, 0};
    const timespec tsRest = {0, 1000L * (1000 - tv.tv_usec % 1000)};
    ppoll(&pfd, 1, &tsRest, nullptr);
}

void CIOEngine::ProcessIOEvents(int nCount, epoll_event* pEvents)
{
    for (m_nDispatched = 0; m_nDispatched < nCount;)
    {
        const epoll_event event = pEvents[m_nDispatched];
        ++m_nDispatched;
        if (event.data.ptr != nullptr)
        {
            static_cast<CIOHandler*>(event.data.ptr)->Process(event.events);
        }
    }
    m_nFetched = m_nDispatched = 0;
}

void CIOEngine::ProcessError(int nError)
{
    printf("IOEngine Process Error: %d", nError);
}

void CIOEngine::ProcessDeferredHandlers()
{
    while (CDLinkedListNode* pNode = m_listDeferred.RemoveHead())
    {
        CDeferredHandler* pHandler = static_cast<CDeferredHandler*>(pNode);
        pHandler->m_bQueued = false;
        pHandler->Process();
    }
}
