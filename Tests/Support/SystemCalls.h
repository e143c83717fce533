#ifndef OSPREY_TESTS_SYSTEMCALLS_H
#define OSPREY_TESTS_SYSTEMCALLS_H

// System calls that a test can watch or replace for a while. The linker routes every call made
// inside a test binary here (--wrap); without a replacement it goes on to the system.

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <utility>

template <class Signature>
class CSystemCall;

template <class Result, class... Args>
class CSystemCall<Result(Args...)>
{
public:
    typedef Result (*CReal)(Args...);
    typedef std::function<Result(Args...)> CReplacement;

    constexpr explicit CSystemCall(CReal pfnReal) : m_pfnReal(pfnReal) {}
    CSystemCall(const CSystemCall&) = delete;
    CSystemCall& operator=(const CSystemCall&) = delete;

    Result Real(Args... args) const
    {
        return m_pfnReal(args...);
    }
    Result Call(Args... args) const
    {
        const CReplacement* pReplacement = m_pReplacement.load();
        return pReplacement != nullptr ? (*pReplacement)(args...) : m_pfnReal(args...);
    }
    void Replace(const CReplacement* pReplacement)
    {
        m_pReplacement = pReplacement;
    }

private:
    CReal m_pfnReal;
    std::atomic<const CReplacement*> m_pReplacement{nullptr};
};

extern CSystemCall<int(int, sockaddr*, socklen_t*, int)> g_callAccept4;
extern CSystemCall<int(int, const sockaddr*, socklen_t)> g_callConnect;
extern CSystemCall<int(int)> g_callEpollCreate1;
extern CSystemCall<int(int, epoll_event*, int, int)> g_callEpollWait;
extern CSystemCall<void*(void*, size_t, int, int, int, off_t)> g_callMmap64;
extern CSystemCall<int(int*, int)> g_callPipe2;
extern CSystemCall<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> g_callPpoll;
extern CSystemCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>
    g_callPthreadCreate;
extern CSystemCall<int(pthread_t, void**)> g_callPthreadJoin;
extern CSystemCall<ssize_t(int, void*, size_t, int)> g_callRecv;
extern CSystemCall<ssize_t(int, const void*, size_t, int)> g_callSend;
extern CSystemCall<int(int, int, int)> g_callSocket;

// Replaces a call for the length of a block. The replacement reaches the system through Real(). One
// a call at a time; no other thread may be inside the call when the block ends.
template <class Signature>
class CReplacedCall
{
public:
    CReplacedCall(CSystemCall<Signature>& call, std::function<Signature> replacement)
        : m_call(call), m_replacement(std::move(replacement))
    {
        m_call.Replace(&m_replacement);
    }
    ~CReplacedCall()
    {
        m_call.Replace(nullptr);
    }
    CReplacedCall(const CReplacedCall&) = delete;
    CReplacedCall& operator=(const CReplacedCall&) = delete;

private:
    CSystemCall<Signature>& m_call;
    const std::function<Signature> m_replacement;
};

template <class Signature, class Function>
CReplacedCall(CSystemCall<Signature>&, Function) -> CReplacedCall<Signature>;

#endif
