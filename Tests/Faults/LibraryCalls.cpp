// Stands in for every system call that the library makes: it fails as the fault plan says, and goes
// on to the system otherwise. What the library prints meanwhile goes nowhere.

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "FaultPlan.h"
#include "LibraryCalls.h"
#include "RawSocket.h"

namespace
{

// The result of a call that fails as planned.
int Fail(const CFault& fault)
{
    errno = fault.nError;
    return -1;
}

template <class Real, class... Args>
int Call(FAULT_CALL eCall, Real pfnReal, Args... args)
{
    const CFault* pFault = MeetFault(eCall);
    return pFault != nullptr ? Fail(*pFault) : pfnReal(args...);
}

std::atomic<unsigned short> g_wListeningPort{0};

}  // namespace

unsigned short GetListeningPort()
{
    return g_wListeningPort;
}

extern "C"
{
    int __real_access(const char* pszPath, int nMode);
    int __real_bind(int s, const sockaddr* pAddress, socklen_t nLength);
    int __real_chmod(const char* pszPath, mode_t nMode);
    int __real_close(int h);
    int __real_eventfd(unsigned int dwValue, int nFlags);
    int __real_fcntl64(int h, int nCommand, ...);
    int __real_getpeername(int s, sockaddr* pAddress, socklen_t* pLength);
    int __real_getsockname(int s, sockaddr* pAddress, socklen_t* pLength);
    int __real_getsockopt(int s, int nLevel, int nName, void* pValue, socklen_t* pLength);
    int __real_listen(int s, int nBacklog);
    int __real_lstat64(const char* pszPath, struct stat* pInfo);
    int __real_mkdir(const char* pszPath, mode_t nMode);
    int __real_open64(const char* pszPath, int nFlags, ...);
    int __real_remove(const char* pszPath);
    int __real_setsockopt(int s, int nLevel, int nName, const void* pValue, socklen_t nLength);
    int __real_shutdown(int s, int nHow);
    int __real_stat64(const char* pszPath, struct stat* pInfo);
    ssize_t __real_write(int h, const void* pData, size_t nSize);
    int __real_puts(const char* pszText);

    int __wrap_access(const char* pszPath, int nMode)
    {
        return Call(CALL_ACCESS, &__real_access, pszPath, nMode);
    }

    int __wrap_bind(int s, const sockaddr* pAddress, socklen_t nLength)
    {
        return Call(CALL_BIND, &__real_bind, s, pAddress, nLength);
    }

    int __wrap_chmod(const char* pszPath, mode_t nMode)
    {
        return Call(CALL_CHMOD, &__real_chmod, pszPath, nMode);
    }

    // The descriptor is gone also when closing it reports an error.
    int __wrap_close(int h)
    {
        const CFault* pFault = MeetFault(CALL_CLOSE);
        const int nResult = __real_close(h);
        return pFault != nullptr ? Fail(*pFault) : nResult;
    }

    int __wrap_eventfd(unsigned int dwValue, int nFlags)
    {
        return Call(CALL_EVENTFD, &__real_eventfd, dwValue, nFlags);
    }

    int __wrap_fcntl64(int h, int nCommand, ...)
    {
        va_list args;
        va_start(args, nCommand);
        const int nArg = va_arg(args, int);
        va_end(args);
        return Call(CALL_FCNTL, &__real_fcntl64, h, nCommand, nArg);
    }

    int __wrap_getpeername(int s, sockaddr* pAddress, socklen_t* pLength)
    {
        return Call(CALL_GETPEERNAME, &__real_getpeername, s, pAddress, pLength);
    }

    int __wrap_getsockname(int s, sockaddr* pAddress, socklen_t* pLength)
    {
        return Call(CALL_GETSOCKNAME, &__real_getsockname, s, pAddress, pLength);
    }

    int __wrap_getsockopt(int s, int nLevel, int nName, void* pValue, socklen_t* pLength)
    {
        const CFault* pFault = MeetFault(CALL_SOCKET_ERROR);
        const int nResult = __real_getsockopt(s, nLevel, nName, pValue, pLength);
        if (pFault != nullptr)
        {
            *static_cast<int*>(pValue) = pFault->nError;
        }
        return nResult;
    }

    int __wrap_listen(int s, int nBacklog)
    {
        const int nResult = Call(CALL_LISTEN, &__real_listen, s, nBacklog);
        if (nResult == 0 && IsInside())
        {
            const COutside outside;
            g_wListeningPort = GetLocalPort(s);
        }
        return nResult;
    }

    int __wrap_lstat64(const char* pszPath, struct stat* pInfo)
    {
        return Call(CALL_LSTAT, &__real_lstat64, pszPath, pInfo);
    }

    int __wrap_mkdir(const char* pszPath, mode_t nMode)
    {
        return Call(CALL_MKDIR, &__real_mkdir, pszPath, nMode);
    }

    int __wrap_open64(const char* pszPath, int nFlags, ...)
    {
        va_list args;
        va_start(args, nFlags);
        const mode_t nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
        va_end(args);
        return Call(CALL_OPEN, &__real_open64, pszPath, nFlags, nMode);
    }

    int __wrap_remove(const char* pszPath)
    {
        return Call(CALL_REMOVE, &__real_remove, pszPath);
    }

    int __wrap_setsockopt(int s, int nLevel, int nName, const void* pValue, socklen_t nLength)
    {
        return Call(CALL_SETSOCKOPT, &__real_setsockopt, s, nLevel, nName, pValue, nLength);
    }

    int __wrap_shutdown(int s, int nHow)
    {
        return Call(CALL_SHUTDOWN, &__real_shutdown, s, nHow);
    }

    int __wrap_stat64(const char* pszPath, struct stat* pInfo)
    {
        return Call(CALL_STAT, &__real_stat64, pszPath, pInfo);
    }

    ssize_t __wrap_write(int h, const void* pData, size_t nSize)
    {
        const CFault* pFault = MeetFault(CALL_WRITE);
        return pFault != nullptr ? Fail(*pFault) : __real_write(h, pData, nSize);
    }

    int __wrap_puts(const char* pszText)
    {
        return IsInside() ? 0 : __real_puts(pszText);
    }

    int __wrap_printf(const char* pszFormat, ...)
    {
        va_list args;
        va_start(args, pszFormat);
        const int nResult = IsInside() ? 0 : vprintf(pszFormat, args);
        va_end(args);
        return nResult;
    }
}
