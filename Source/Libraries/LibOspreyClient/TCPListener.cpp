#include "TCPListener.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "OspreyAssert.h"

CTCPListener::CTCPListener(CIOEngine* pEngine)
    : m_pEngine(pEngine), m_handlerDestroy(this, &CTCPListener::InternalProcessDestroied)
{
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
    if (nError == EMFILE || nError == ENFILE)
    {
        TurnAwayNewcomer();
    }
    ProcessError(nError);
}

void CTCPListener::TurnAwayNewcomer()
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
    m_hSpare = open("/dev/null", O_RDONLY | O_CLOEXEC);
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
