#ifndef OSPREY_TESTS_RAWSOCKET_H
#define OSPREY_TESTS_RAWSOCKET_H

// The other end of a connection, driven by the test itself: a plain blocking socket on 127.0.0.1
// whose every wait has a deadline and fails the test with what it waited for.

#include <string>

// How long anything that must happen may take, sanitizers and a busy machine included.
const int WAIT_MS = 180000;

class CRawSocket
{
public:
    CRawSocket() = default;
    // Adopts a descriptor.
    explicit CRawSocket(int hSocket) : m_hSocket(hSocket) {}
    ~CRawSocket();
    CRawSocket(CRawSocket&& other) noexcept;
    CRawSocket& operator=(CRawSocket&& other) noexcept;
    CRawSocket(const CRawSocket&) = delete;
    CRawSocket& operator=(const CRawSocket&) = delete;

    bool Connect(unsigned short wPort);
    // From another address of the loopback network, 127.0.0.2 say; in host byte order.
    bool ConnectFrom(unsigned int dwFrom, unsigned short wPort);
    // One descriptor is both ends: what it sends it receives.
    bool ConnectToItself();
    bool IsOpen() const
    {
        return m_hSocket >= 0;
    }
    int GetHandle() const
    {
        return m_hSocket;
    }
    // Gives the descriptor away.
    int Release();
    void Close();
    // Closes with a reset instead of an orderly end.
    void Reset();
    void ShutdownSend();

    // Everything; fails the test when the peer does not take it in time or is gone.
    bool Send(const std::string& strBytes);
    // As much as goes without waiting; returns its size.
    size_t SendWithoutWaiting(const std::string& strBytes);

    // Exactly nSize bytes. Short, and the test failed, at the deadline or when the peer ends first.
    std::string Receive(size_t nSize);
    // One packet, header and payload.
    std::string ReceivePacket();
    // What comes until the peer closes; fails the test at the deadline. A reset counts as the end.
    std::string ReceiveToEnd();
    // True when the peer closes in time without sending anything more.
    bool IsClosedByPeer();
    // True when nothing can be read right now and the peer has not closed.
    bool IsSilent() const;

private:
    bool Wait(short nEvents, const char* pszFor) const;

    int m_hSocket = -1;
};

// A listening socket on a port that the system chose.
class CRawServer
{
public:
    CRawServer();
    ~CRawServer();
    CRawServer(const CRawServer&) = delete;
    CRawServer& operator=(const CRawServer&) = delete;

    unsigned short GetPort() const
    {
        return m_wPort;
    }
    int GetHandle() const
    {
        return m_hSocket;
    }
    // The next connection; not open, and the test failed, at the deadline.
    CRawSocket Accept();
    // From now on connecting to the port is refused. Nobody else gets it: it stays bound.
    void Close();

private:
    void Open(unsigned short wPort);

    int m_hSocket = -1;
    unsigned short m_wPort = 0;
};

// Two ends of one connection over 127.0.0.1.
struct CSocketPair
{
    CSocketPair();

    CRawSocket m_near;
    CRawSocket m_far;
};

// A port on 127.0.0.1 where nobody listens, and nobody will but this process and those that it
// tells of it.
unsigned short FreePort();

// The port that a listening or connected descriptor is bound to.
unsigned short GetLocalPort(int hSocket);

#endif
