#include "RawSocket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

namespace
{

sockaddr_in LoopbackAddress(unsigned short wPort, unsigned int dwAddress = INADDR_LOOPBACK)
{
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(wPort);
    addr.sin_addr.s_addr = htonl(dwAddress);
    return addr;
}

const sockaddr* Generic(const sockaddr_in& addr)
{
    return reinterpret_cast<const sockaddr*>(&addr);
}

}  // namespace

CRawSocket::~CRawSocket()
{
    Close();
}

CRawSocket::CRawSocket(CRawSocket&& other) noexcept : m_hSocket(other.Release()) {}

CRawSocket& CRawSocket::operator=(CRawSocket&& other) noexcept
{
    if (this != &other)
    {
        Close();
        m_hSocket = other.Release();
    }
    return *this;
}

bool CRawSocket::Connect(unsigned short wPort)
{
    return ConnectFrom(INADDR_LOOPBACK, wPort);
}

bool CRawSocket::ConnectFrom(unsigned int dwFrom, unsigned short wPort)
{
    Close();
    m_hSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in addrFrom = LoopbackAddress(0, dwFrom);
    const sockaddr_in addr = LoopbackAddress(wPort);
    if ((dwFrom != INADDR_LOOPBACK && bind(m_hSocket, Generic(addrFrom), sizeof addrFrom) != 0) ||
        connect(m_hSocket, Generic(addr), sizeof addr) != 0)
    {
        Close();
        return false;
    }
    const int nOn = 1;
    setsockopt(m_hSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
    return true;
}

bool CRawSocket::ConnectToItself()
{
    Close();
    m_hSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr = LoopbackAddress(0);
    socklen_t nSize = sizeof addr;
    return bind(m_hSocket, Generic(addr), nSize) == 0 &&
           getsockname(m_hSocket, reinterpret_cast<sockaddr*>(&addr), &nSize) == 0 &&
           connect(m_hSocket, Generic(addr), nSize) == 0;
}

int CRawSocket::Release()
{
    return std::exchange(m_hSocket, -1);
}

void CRawSocket::Close()
{
    if (m_hSocket >= 0)
    {
        close(Release());
    }
}

void CRawSocket::Reset()
{
    const linger now = {1, 0};
    setsockopt(m_hSocket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    Close();
}

void CRawSocket::ShutdownSend()
{
    shutdown(m_hSocket, SHUT_WR);
}

bool CRawSocket::Wait(short nEvents, const char* pszFor) const
{
    pollfd pfd = {m_hSocket, nEvents, 0};
    int nReady = 0;
    do
    {
        nReady = poll(&pfd, 1, WAIT_MS);
    } while (nReady < 0 && errno == EINTR);
    if (nReady <= 0)
    {
        ADD_FAILURE() << "waited in vain for " << pszFor;
    }
    return nReady > 0;
}

bool CRawSocket::Send(const std::string& strBytes)
{
    for (size_t nDone = 0; nDone < strBytes.size();)
    {
        if (!Wait(POLLOUT, "the peer to take what is sent"))
        {
            return false;
        }
        const ssize_t nSent = send(m_hSocket, strBytes.data() + nDone, strBytes.size() - nDone,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (nSent < 0 && errno != EAGAIN && errno != EINTR)
        {
            ADD_FAILURE() << "send: " << strerror(errno);
            return false;
        }
        nDone += nSent > 0 ? static_cast<size_t>(nSent) : 0;
    }
    return true;
}

size_t CRawSocket::SendWithoutWaiting(const std::string& strBytes)
{
    size_t nDone = 0;
    while (nDone < strBytes.size())
    {
        const ssize_t nSent = send(m_hSocket, strBytes.data() + nDone, strBytes.size() - nDone,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (nSent <= 0)
        {
            break;
        }
        nDone += static_cast<size_t>(nSent);
    }
    return nDone;
}

std::string CRawSocket::Receive(size_t nSize)
{
    std::string strBytes(nSize, '\0');
    size_t nDone = 0;
    while (nDone < nSize && Wait(POLLIN, "bytes of the peer"))
    {
        const ssize_t nReceived =
            recv(m_hSocket, strBytes.data() + nDone, nSize - nDone, MSG_DONTWAIT);
        if (nReceived == 0 || (nReceived < 0 && errno != EAGAIN && errno != EINTR))
        {
            ADD_FAILURE() << "the peer ended after " << nDone << " of " << nSize << " bytes";
            break;
        }
        nDone += nReceived > 0 ? static_cast<size_t>(nReceived) : 0;
    }
    strBytes.resize(nDone);
    return strBytes;
}

std::string CRawSocket::ReceivePacket()
{
    std::string strPacket = Receive(12);
    if (strPacket.size() == 12)
    {
        unsigned int dwSize = 0;
        memcpy(&dwSize, strPacket.data() + 8, sizeof dwSize);
        strPacket += Receive(dwSize);
    }
    return strPacket;
}

std::string CRawSocket::ReceiveToEnd()
{
    std::string strBytes;
    char szPart[65536];
    while (Wait(POLLIN, "the peer to close"))
    {
        const ssize_t nReceived = recv(m_hSocket, szPart, sizeof szPart, MSG_DONTWAIT);
        if (nReceived == 0 || (nReceived < 0 && errno != EAGAIN && errno != EINTR))
        {
            break;
        }
        strBytes.append(szPart, nReceived > 0 ? static_cast<size_t>(nReceived) : 0);
    }
    return strBytes;
}

bool CRawSocket::IsClosedByPeer()
{
    char c = 0;
    if (!Wait(POLLIN, "the peer to close"))
    {
        return false;
    }
    const ssize_t nReceived = recv(m_hSocket, &c, 1, MSG_DONTWAIT);
    return nReceived == 0 || (nReceived < 0 && errno == ECONNRESET);
}

bool CRawSocket::IsSilent() const
{
    pollfd pfd = {m_hSocket, POLLIN, 0};
    return poll(&pfd, 1, 0) == 0;
}

CRawServer::CRawServer()
{
    Open(0);
    EXPECT_EQ(listen(m_hSocket, 16), 0) << strerror(errno);
    m_wPort = GetLocalPort(m_hSocket);
}

CRawServer::~CRawServer()
{
    close(m_hSocket);
}

void CRawServer::Open(unsigned short wPort)
{
    m_hSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int nOn = 1;  // connections of the port may still be there when it is opened again
    EXPECT_EQ(setsockopt(m_hSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn), 0);
    const sockaddr_in addr = LoopbackAddress(wPort);
    EXPECT_EQ(bind(m_hSocket, Generic(addr), sizeof addr), 0) << strerror(errno);
}

CRawSocket CRawServer::Accept()
{
    pollfd pfd = {m_hSocket, POLLIN, 0};
    if (poll(&pfd, 1, WAIT_MS) != 1)
    {
        ADD_FAILURE() << "waited in vain for a connection";
        return CRawSocket();
    }
    return CRawSocket(accept4(m_hSocket, nullptr, nullptr, SOCK_CLOEXEC));
}

void CRawServer::Close()
{
    close(m_hSocket);
    Open(m_wPort);
}

CSocketPair::CSocketPair()
{
    CRawServer server;
    EXPECT_TRUE(m_far.Connect(server.GetPort()));
    m_near = server.Accept();
}

namespace
{

// Not those that the system gives to whoever connects: such a port could be taken again before
// anybody listens on it.
const unsigned int FIRST_PORT = 20000;
const unsigned int BLOCK_PORTS = 100;
const unsigned int BLOCKS = 120;

// Blocks of ports that no other test process uses meanwhile, nor looks at: each is of whoever has
// bound its name, which is no file and goes with the process.
class COwnPorts
{
public:
    unsigned short GetNext()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_dwUsed % BLOCK_PORTS == 0)
        {
            TakeBlock();
        }
        return static_cast<unsigned short>(FIRST_PORT + m_dwBlock * BLOCK_PORTS +
                                           m_dwUsed++ % BLOCK_PORTS);
    }

private:
    // Without a further one, those of the last one come again.
    void TakeBlock()
    {
        for (unsigned int i = 0; i < BLOCKS; ++i)
        {
            const unsigned int dwBlock = (static_cast<unsigned int>(getpid()) + i) % BLOCKS;
            CRawSocket name(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            const std::string strName = "osprey-test-ports-" + std::to_string(dwBlock);
            strName.copy(address.sun_path + 1, strName.size());  // behind a 0: no file
            const size_t nSize = offsetof(sockaddr_un, sun_path) + 1 + strName.size();
            if (bind(name.GetHandle(), reinterpret_cast<sockaddr*>(&address),
                     static_cast<socklen_t>(nSize)) == 0)
            {
                m_dwBlock = dwBlock;
                m_names.push_back(std::move(name));
                return;
            }
        }
        EXPECT_FALSE(m_names.empty()) << "no ports for this process";
    }

    std::mutex m_mutex;
    std::vector<CRawSocket> m_names;
    unsigned int m_dwBlock = 0;
    unsigned int m_dwUsed = 0;
};

}  // namespace

unsigned short FreePort()
{
    static COwnPorts ports;
    for (unsigned int i = 0; i < BLOCKS * BLOCK_PORTS; ++i)
    {
        const unsigned short wPort = ports.GetNext();
        const CRawSocket probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_in addr = LoopbackAddress(wPort, INADDR_ANY);
        if (bind(probe.GetHandle(), Generic(addr), sizeof addr) == 0)
        {
            return wPort;
        }
    }
    ADD_FAILURE() << "no port is free";
    return 0;
}

unsigned short GetLocalPort(int hSocket)
{
    sockaddr_in addr{};
    socklen_t nLength = sizeof addr;
    EXPECT_EQ(getsockname(hSocket, reinterpret_cast<sockaddr*>(&addr), &nLength), 0);
    return ntohs(addr.sin_port);
}
