#include "SystemCalls.h"

extern "C"
{
    int __real_accept4(int s, sockaddr* pAddress, socklen_t* pLength, int nFlags);
    int __real_connect(int s, const sockaddr* pAddress, socklen_t nLength);
    int __real_epoll_create1(int nFlags);
    int __real_epoll_wait(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs);
    void* __real_mmap64(void* p, size_t nSize, int nProtection, int nFlags, int h, off_t nOffset);
    int __real_pipe2(int* pnEnds, int nFlags);
    int __real_ppoll(pollfd* pFds, nfds_t nFds, const timespec* pTimeout, const sigset_t* pMask);
    int __real_pthread_create(pthread_t* pThread, const pthread_attr_t* pAttr,
                              void* (*pfnMain)(void*), void* pParam);
    int __real_pthread_join(pthread_t thread, void** ppResult);
    ssize_t __real_recv(int s, void* pData, size_t nSize, int nFlags);
    ssize_t __real_send(int s, const void* pData, size_t nSize, int nFlags);
    int __real_socket(int nDomain, int nType, int nProtocol);
}

CSystemCall<int(int, sockaddr*, socklen_t*, int)> g_callAccept4(&__real_accept4);
CSystemCall<int(int, const sockaddr*, socklen_t)> g_callConnect(&__real_connect);
CSystemCall<int(int)> g_callEpollCreate1(&__real_epoll_create1);
CSystemCall<int(int, epoll_event*, int, int)> g_callEpollWait(&__real_epoll_wait);
CSystemCall<void*(void*, size_t, int, int, int, off_t)> g_callMmap64(&__real_mmap64);
CSystemCall<int(int*, int)> g_callPipe2(&__real_pipe2);
CSystemCall<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> g_callPpoll(&__real_ppoll);
CSystemCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> g_callPthreadCreate(
    &__real_pthread_create);
CSystemCall<int(pthread_t, void**)> g_callPthreadJoin(&__real_pthread_join);
CSystemCall<ssize_t(int, void*, size_t, int)> g_callRecv(&__real_recv);
CSystemCall<ssize_t(int, const void*, size_t, int)> g_callSend(&__real_send);
CSystemCall<int(int, int, int)> g_callSocket(&__real_socket);

extern "C"
{
    int __wrap_accept4(int s, sockaddr* pAddress, socklen_t* pLength, int nFlags)
    {
        return g_callAccept4.Call(s, pAddress, pLength, nFlags);
    }

    int __wrap_connect(int s, const sockaddr* pAddress, socklen_t nLength)
    {
        return g_callConnect.Call(s, pAddress, nLength);
    }

    int __wrap_epoll_create1(int nFlags)
    {
        return g_callEpollCreate1.Call(nFlags);
    }

    int __wrap_epoll_wait(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs)
    {
        return g_callEpollWait.Call(hEpoll, pEvents, nMaxEvents, nTimeoutMs);
    }

    void* __wrap_mmap64(void* p, size_t nSize, int nProtection, int nFlags, int h, off_t nOffset)
    {
        return g_callMmap64.Call(p, nSize, nProtection, nFlags, h, nOffset);
    }

    int __wrap_pipe2(int* pnEnds, int nFlags)
    {
        return g_callPipe2.Call(pnEnds, nFlags);
    }

    int __wrap_ppoll(pollfd* pFds, nfds_t nFds, const timespec* pTimeout, const sigset_t* pMask)
    {
        return g_callPpoll.Call(pFds, nFds, pTimeout, pMask);
    }

    int __wrap_pthread_create(pthread_t* pThread, const pthread_attr_t* pAttr,
                              void* (*pfnMain)(void*), void* pParam)
    {
        return g_callPthreadCreate.Call(pThread, pAttr, pfnMain, pParam);
    }

    int __wrap_pthread_join(pthread_t thread, void** ppResult)
    {
        return g_callPthreadJoin.Call(thread, ppResult);
    }

    ssize_t __wrap_recv(int s, void* pData, size_t nSize, int nFlags)
    {
        return g_callRecv.Call(s, pData, nSize, nFlags);
    }

    ssize_t __wrap_send(int s, const void* pData, size_t nSize, int nFlags)
    {
        return g_callSend.Call(s, pData, nSize, nFlags);
    }

    int __wrap_socket(int nDomain, int nType, int nProtocol)
    {
        return g_callSocket.Call(nDomain, nType, nProtocol);
    }
}
