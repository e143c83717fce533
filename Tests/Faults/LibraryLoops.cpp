#include "LibraryLoops.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "FaultPlan.h"
#include "RawSocket.h"
#include "SystemCalls.h"

extern "C"
{
    int __real_epoll_ctl(int hEpoll, int nOperation, int h, epoll_event* pEvent);
}

namespace
{

const int LOOKS = 3;                        // in vain: whatever the loop had to do is done
const std::chrono::microseconds REST(150);  // between two of them

std::atomic<bool> g_bStepped{false};
std::atomic<long long> g_llLooks{0};  // in vain
std::atomic<long long> g_llFinds{0};  // looks that found something, and passes without a wait
std::atomic<int> g_nSleep{0};

// What each descriptor is registered for, so that readiness can be reported anew.
struct CRegistration
{
    int m_hEpoll;
    epoll_event m_event;
};
std::mutex g_mutex;
std::map<int, CRegistration> g_registrations;

int Fail(const CFault& fault)
{
    errno = fault.nError;
    return -1;
}

// A call that would have to wait although the system is ready: the system reports that once more,
// as it does when the reason for waiting is over.
ssize_t FailToMove(int s, const CFault& fault)
{
    if (fault.nError == EAGAIN)
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        const auto it = g_registrations.find(s);
        if (it != g_registrations.end())
        {
            __real_epoll_ctl(it->second.m_hEpoll, EPOLL_CTL_MOD, s, &it->second.m_event);
        }
    }
    return Fail(fault);
}

int Wait(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs)
{
    if (const CFault* pFault = MeetFault(CALL_EPOLL_WAIT))
    {
        return Fail(*pFault);
    }
    if (!g_bStepped)
    {
        return g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, nTimeoutMs);
    }
    int nReady = g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, 0);
    if (nReady == 0 && nTimeoutMs != 0)
    {
        g_nSleep = nTimeoutMs;
        ++g_llLooks;
        std::this_thread::sleep_for(REST);
        nReady = g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, 0);
    }
    g_llFinds += nReady != 0 || nTimeoutMs == 0 ? 1 : 0;
    return nReady;
}

template <class... Args>
struct CStandIn
{
    template <class Result>
    static void Put(CSystemCall<Result(Args...)>& call, FAULT_CALL eCall)
    {
        static const std::function<Result(Args...)> standIn = [&call, eCall](Args... args) -> Result
        {
            const CFault* pFault = MeetFault(eCall);
            return pFault != nullptr ? Fail(*pFault) : call.Real(args...);
        };
        call.Replace(&standIn);
    }
};

ssize_t Receive(int s, void* pData, size_t nSize, int nFlags)
{
    const CFault* pFault = MeetFault(CALL_RECV);
    if (pFault != nullptr && pFault->nError != SHORT_TRANSFER)
    {
        return FailToMove(s, *pFault);
    }
    return g_callRecv.Real(s, pData, pFault != nullptr ? 1 : nSize, nFlags);
}

ssize_t Send(int s, const void* pData, size_t nSize, int nFlags)
{
    const CFault* pFault = MeetFault(CALL_SEND);
    if (pFault != nullptr && pFault->nError != SHORT_TRANSFER)
    {
        return FailToMove(s, *pFault);
    }
    return g_callSend.Real(s, pData, pFault != nullptr ? 1 : nSize, nFlags);
}

// A thread that the library starts is inside it.
struct CThreadStart
{
    void* (*m_pfnMain)(void*);
    void* m_pParam;
};

void* RunInside(void* pStart)
{
    const CThreadStart start = *static_cast<CThreadStart*>(pStart);
    delete static_cast<CThreadStart*>(pStart);
    const CInside inside;
    return start.m_pfnMain(start.m_pParam);
}

int StartThread(pthread_t* pThread, const pthread_attr_t* pAttr, void* (*pfnMain)(void*),
                void* pParam)
{
    if (!IsInside())
    {
        return g_callPthreadCreate.Real(pThread, pAttr, pfnMain, pParam);
    }
    if (const CFault* pFault = MeetFault(CALL_PTHREAD_CREATE))
    {
        return pFault->nError;
    }
    const COutside outside;
    return g_callPthreadCreate.Real(pThread, pAttr, &RunInside, new CThreadStart{pfnMain, pParam});
}

// An attempt that is interrupted goes on by itself.
int Connect(int s, const sockaddr* pAddress, socklen_t nLength)
{
    const CFault* pFault = MeetFault(CALL_CONNECT);
    if (pFault == nullptr || pFault->nError == EINTR)
    {
        const int nResult = g_callConnect.Real(s, pAddress, nLength);
        return pFault == nullptr ? nResult : Fail(*pFault);
    }
    return Fail(*pFault);
}

void* Map(void* p, size_t nSize, int nProtection, int nFlags, int h, off_t nOffset)
{
    if (const CFault* pFault = MeetFault(CALL_MMAP))
    {
        errno = pFault->nError;
        return MAP_FAILED;
    }
    return g_callMmap64.Real(p, nSize, nProtection, nFlags, h, nOffset);
}

template <class Signature>
void Stand(CSystemCall<Signature>& call, const std::function<Signature>& standIn)
{
    call.Replace(new std::function<Signature>(standIn));  // for the rest of the process
}

const bool g_bInstalled = []
{
    Stand(g_callEpollWait, std::function<int(int, epoll_event*, int, int)>(&Wait));
    Stand(g_callRecv, std::function<ssize_t(int, void*, size_t, int)>(&Receive));
    Stand(g_callSend, std::function<ssize_t(int, const void*, size_t, int)>(&Send));
    Stand(g_callPthreadCreate,
          std::function<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
              &StartThread));
    Stand(g_callMmap64, std::function<void*(void*, size_t, int, int, int, off_t)>(&Map));
    CStandIn<int, sockaddr*, socklen_t*, int>::Put(g_callAccept4, CALL_ACCEPT);
    Stand(g_callConnect, std::function<int(int, const sockaddr*, socklen_t)>(&Connect));
    CStandIn<int>::Put(g_callEpollCreate1, CALL_EPOLL_CREATE);
    CStandIn<int*, int>::Put(g_callPipe2, CALL_PIPE);
    CStandIn<int, int, int>::Put(g_callSocket, CALL_SOCKET);
    return true;
}();

}  // namespace

extern "C"
{
    int __wrap_epoll_ctl(int hEpoll, int nOperation, int h, epoll_event* pEvent)
    {
        const CFault* pFault = nOperation == EPOLL_CTL_ADD ? MeetFault(CALL_EPOLL_ADD) : nullptr;
        if (pFault != nullptr)
        {
            return Fail(*pFault);
        }
        const COutside outside;
        const std::lock_guard<std::mutex> lock(g_mutex);
        const int nResult = __real_epoll_ctl(hEpoll, nOperation, h, pEvent);
        const int nError = errno;
        if (nOperation == EPOLL_CTL_ADD && nResult == 0)
        {
            g_registrations[h] = {hEpoll, *pEvent};
        }
        else if (nOperation == EPOLL_CTL_DEL)
        {
            g_registrations.erase(h);
        }
        errno = nError;
        return nResult;
    }
}

CSteppedLoop::CSteppedLoop()
{
    g_bStepped = true;
}

CSteppedLoop::~CSteppedLoop()
{
    g_bStepped = false;
}

namespace
{

// Asks the condition again and again, until it holds or the loop is idle: it has looked in vain,
// the condition, in which a peer may be served, has been asked after that, and the loop has looked
// in vain again and found nothing all the while. True when it holds.
bool WaitForLooks(const std::function<bool()>& fnCondition, bool& bIdle)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(WAIT_MS);
    long long llFinds = g_llFinds;
    bIdle = false;
    for (int nInVain = 0; nInVain < 2; ++nInVain)
    {
        const long long llUntil = g_llLooks + LOOKS;
        do
        {
            if (fnCondition())
            {
                return true;
            }
            if (std::chrono::steady_clock::now() >= deadline)
            {
                ADD_FAILURE() << "waited in vain for the loop to have nothing left to do";
                return false;
            }
            std::this_thread::sleep_for(REST);
        } while (g_llLooks < llUntil);
        const long long llFindsNow = g_llFinds;
        nInVain = llFindsNow == llFinds ? nInVain : -1;
        llFinds = llFindsNow;
    }
    bIdle = true;
    return false;
}

}  // namespace

bool CSteppedLoop::WaitForIdle(const std::function<bool()>& fnCondition)
{
    bool bIdle = false;
    return WaitForLooks(fnCondition, bIdle);
}

bool CSteppedLoop::RunUntil(const std::function<bool()>& fnCondition,
                            const std::function<bool()>& fnForever, int nSleeps)
{
    for (int i = 0; i < nSleeps; ++i)
    {
        bool bIdle = false;
        if (WaitForLooks(fnCondition, bIdle) || !bIdle)
        {
            return !bIdle && fnCondition();
        }
        const int nSleep = g_nSleep;
        if (nSleep >= 0)
        {
            m_clock.Advance(nSleep + 1);
        }
        else if (fnForever == nullptr || !fnForever())
        {
            return fnCondition();
        }
    }
    return false;
}
