#include "TCPListener.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "OspreyAssert.h"

namespace
{

const unsigned int PAUSE_MS = 100;

bool IsWithoutDescriptor(int nError)
{
    return nError == EMFILE || nError == ENFILE;
}

// The errors after which the newcomer is still in the queue, see accept(2).
bool IsShortage(int nError)
{
    return IsWithoutDescriptor(nError) || nError == ENOBUFS || nError == ENOMEM;
}

}  // namespace

CTCPListener::CTCPListener(CIOEngine* pEngine)
    : m_pEngine(pEngine),
      m_handlerDestroy(this, &CTCPListener::InternalProcessDestroied),
      m_timerPause(this, &CTCPListener::ProcessPauseTimeout)
{
    m_timerPause.m_bPeriodic = true;
    m_timerPause.m_dwInterval = PAUSE_MS;
}

CTCPListener::~CTCPListener()
{
    Destroy();
}

bool CTCPListener::Create(const CSocketAddress& addrLocal, int nBacklog)
{
    OSPREY_ASSERT(!m_sock.IsValid());
    m_pEngine->RemoveDeferredHandler(&m_handlerDestroy);
    m_bPendingDestroy = false;
    if (!m_sock.CreateBound(addrLocal))
    {
        return false;
    }
    // Non-blocking, or accept would wait for a connection that went away again.
    if (listen(m_sock.m_hSocket, nBacklog) != 0 || !m_sock.SetNonBlocking() ||
        !m_pEngine->AddIOHandler(m_sock.m_hSocket, EPOLLIN, this))
    {
        Destroy();
        return false;
    }
    m_hSpare = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return true;
}

bool CTCPListener::InitiateDestroy()
{
    if (m_bPendingDestroy || !m_sock.IsValid())
    {
        return false;
    }
    m_bPendingDestroy = true;
    m_pEngine->AddDeferredHandler(&m_handlerDestroy);
    return true;
}

void CTCPListener::Destroy()
{
    m_pEngine->RemoveTimerHandler(&m_timerPause);
    if (m_sock.IsValid())
    {
        m_pEngine->RemoveIOHandler(m_sock.m_hSocket, EPOLLIN, this);
        m_sock.Close();
    }
    if (m_hSpare >= 0)
    {
        close(m_hSpare);
        m_hSpare = -1;
    }
}

void CTCPListener::ProcessInput()
{
    if (m_bPendingDestroy)
    {
        return;
    }
    CSocketAddress addrRemote;
    socklen_t nLength = sizeof(sockaddr_in6);
    const int s = accept4(m_sock.m_hSocket, addrRemote.GetAddress(), &nLength, SOCK_CLOEXEC);
    if (s != -1)
    {
        ProcessClientConnect(s, addrRemote);
        return;
    }
    const int nError = errno;
    if (IsShortage(nError) && !(IsWithoutDescriptor(nError) && TurnAwayNewcomer()))
    {
        Pause();
    }
    ProcessError(nError);
}

// False when the newcomer is still there.
bool CTCPListener::TurnAwayNewcomer()
{
    if (m_hSpare >= 0)
    {
        close(m_hSpare);
    }
    const int s = accept4(m_sock.m_hSocket, nullptr, nullptr, SOCK_CLOEXEC);
    if (s >= 0)
    {
        close(s);
    }
    const bool bStillThere = s < 0 && IsShortage(errno);
    m_hSpare = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return !bStillThere;
}

void CTCPListener::Pause()
{
    if (m_pEngine->AddTimerHandler(&m_timerPause))
    {
        m_pEngine->RemoveIOHandler(m_sock.m_hSocket, EPOLLIN, this);
    }
}

void CTCPListener::ProcessPauseTimeout(void* /*pParam*/)
{
    if (m_bPendingDestroy || m_pEngine->AddIOHandler(m_sock.m_hSocket, EPOLLIN, this))
    {
        m_pEngine->RemoveTimerHandler(&m_timerPause);
    }
}

void CTCPListener::ProcessClientConnect(int s, const CSocketAddress& /*addrRemote*/)
{
    close(s);
}

void CTCPListener::InternalProcessDestroied(void* /*pParam*/)
{
    m_bPendingDestroy = false;
    Destroy();
    ProcessDestroied();
}
