#include "Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace
{

// TCP_RTO_MAX_MS of Linux 6.15, which older headers do not name and older systems refuse.
const int RTO_MAX_MS = 44;

}  // namespace

CSocketAddress::CSocketAddress()
{
    memset(&m_in6, 0, sizeof m_in6);
}

CSocketAddress::CSocketAddress(unsigned int dwIPAddress, unsigned short wPort) : CSocketAddress()
{
    m_in4.sin_family = AF_INET;
    m_in4.sin_port = htons(wPort);
    m_in4.sin_addr.s_addr = htonl(dwIPAddress);
}

sockaddr* CSocketAddress::GetAddress()
{
    return &m_any;
}

const sockaddr* CSocketAddress::GetAddress() const
{
    return &m_any;
}

socklen_t CSocketAddress::GetLength() const
{
    switch (m_any.sa_family)
    {
        case AF_INET:
            return sizeof m_in4;
        case AF_INET6:
            return sizeof m_in6;
        default:
            return 0;
    }
}

bool CSocketAddress::IsIPAddress(unsigned int dwIPAddress) const
{
    return m_any.sa_family == AF_INET && m_in4.sin_addr.s_addr == htonl(dwIPAddress);
}

bool CSocketAddress::operator==(const CSocketAddress& other) const
{
    return m_any.sa_family == AF_INET && other.m_any.sa_family == AF_INET &&
           m_in4.sin_addr.s_addr == other.m_in4.sin_addr.s_addr &&
           m_in4.sin_port == other.m_in4.sin_port;
}

bool CSocketAddress::GetIPAddressString(char* pText, unsigned int dwSize) const
{
    switch (m_any.sa_family)
    {
        case AF_INET:
            return inet_ntop(AF_INET, &m_in4.sin_addr, pText, dwSize) != nullptr;
        case AF_INET6:
            return inet_ntop(AF_INET6, &m_in6.sin6_addr, pText, dwSize) != nullptr;
        default:
            return false;
    }
}

bool CSocket::CreateBound(const CSocketAddress& addrLocal)
{
    m_hSocket = socket(AF_INET, SOCK_STREAM, 0);
    if (!IsValid())
    {
        return false;
    }
    const int nOn = 1;
    const bool bReuse = setsockopt(m_hSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn) == 0;
    fcntl(m_hSocket, F_SETFD, FD_CLOEXEC);
    if (!bReuse || bind(m_hSocket, addrLocal.GetAddress(), addrLocal.GetLength()) != 0)
    {
        Close();
        return false;
    }
    return true;
}

void CSocket::Close()
{
    if (IsValid())
    {
        close(m_hSocket);
        m_hSocket = -1;
    }
}

bool CSocket::SetNonBlocking()
{
    const int nFlags = fcntl(m_hSocket, F_GETFL);
    return nFlags >= 0 && fcntl(m_hSocket, F_SETFL, nFlags | O_NONBLOCK) >= 0;
}

bool CSocket::SetNoDelay()
{
    const int nOn = 1;
    return setsockopt(m_hSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn) == 0;
}

void CSocket::LimitSilence(unsigned int dwTimeoutMs, int nPauseMs)
{
    // Alone, the shorter pauses would use up the system's number of attempts within 15 seconds.
    if (setsockopt(m_hSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, &dwTimeoutMs, sizeof dwTimeoutMs) == 0)
    {
        setsockopt(m_hSocket, IPPROTO_TCP, RTO_MAX_MS, &nPauseMs, sizeof nPauseMs);
    }
}

int CSocket::GetSocketError()
{
    int nError = 0;
    socklen_t nLength = sizeof nError;
    return getsockopt(m_hSocket, SOL_SOCKET, SO_ERROR, &nError, &nLength) == 0 ? nError : errno;
}

bool CSocket::Connect(const CSocketAddress& addrRemote)
{
    // An attempt that a signal interrupts goes on by itself, see connect(2).
    return connect(m_hSocket, addrRemote.GetAddress(), addrRemote.GetLength()) == 0 ||
           errno == EINPROGRESS || errno == EINTR;
}

bool CSocket::GetPeerAddress(CSocketAddress& addrRemote) const
{
    socklen_t nLength = sizeof(sockaddr_in6);
    return getpeername(m_hSocket, addrRemote.GetAddress(), &nLength) == 0;
}

bool CSocket::IsConnectedToItself() const
{
    CSocketAddress addrLocal;
    CSocketAddress addrRemote;
    socklen_t nLength = sizeof(sockaddr_in6);
    return getsockname(m_hSocket, addrLocal.GetAddress(), &nLength) == 0 &&
           GetPeerAddress(addrRemote) && addrLocal == addrRemote;
}

void CSocket::ShutdownSend()
{
    shutdown(m_hSocket, SHUT_WR);
}
