#ifndef OSPREY_SOCKET_H
#define OSPREY_SOCKET_H

// Internal header. Thin wrappers over the socket calls; sources: socket(7), ip(7), tcp(7).

#include <netinet/in.h>
#include <sys/socket.h>

typedef int SOCKET;

// An IPv4 or IPv6 socket address. This library only ever fills in IPv4.
class CSocketAddress
{
public:
    CSocketAddress();
    // IPv4; both in host byte order.
    CSocketAddress(unsigned int dwIPAddress, unsigned short wPort);
    virtual ~CSocketAddress() = default;
    CSocketAddress(const CSocketAddress&) = default;
    CSocketAddress& operator=(const CSocketAddress&) = default;

    // For system calls that fill it in: the room is sizeof(sockaddr_in6), 28 bytes.
    sockaddr* GetAddress();
    const sockaddr* GetAddress() const;
    // 16 for IPv4, 28 for IPv6, 0 for any other family.
    socklen_t GetLength() const;
    // True for this IPv4 address, in host byte order, whatever the port.
    bool IsIPAddress(unsigned int dwIPAddress) const;
    // True for two equal IPv4 addresses with equal ports.
    bool operator==(const CSocketAddress& other) const;
    // Writes the address as text, without the port. False for another family, or for a size that
    // does not hold it.
    bool GetIPAddressString(char* pText, unsigned int dwSize) const;

protected:
    union
    {
        sockaddr m_any;
        sockaddr_in m_in4;
        sockaddr_in6 m_in6;
    };
};

// A socket descriptor.
//
// Ownership: none: the destructor closes nothing, the object that holds the socket does.
// Errors:    false, with errno as the system call left it.
class CSocket
{
public:
    CSocket() = default;
    virtual ~CSocket() = default;
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;

    // A new IPv4 TCP socket, close-on-exec, SO_REUSEADDR on, bound to addrLocal. False, with
    // nothing left open, when a step fails.
    bool CreateBound(const CSocketAddress& addrLocal);
    void Close();

    bool IsValid() const
    {
        return m_hSocket >= 0;
    }
    bool SetNonBlocking();
    // Sends each buffer at once instead of waiting for the peer's acknowledgement (TCP_NODELAY).
    bool SetNoDelay();
    // How long what was sent may stay unacknowledged, or the peer's buffers full, before the
    // connection counts as broken, with ETIMEDOUT; the system by itself waits a quarter of an hour
    // for the first. Meanwhile it is repeated after nPauseMs at the latest, where the system can be
    // told so: by itself it doubles the pause each time, and would find a link that came back only
    // after as long again as that was gone. A peer whose buffers are full and that does not answer
    // is asked 15 times, whatever the limit: for 13 seconds with pauses of one, for 30 with pauses
    // of two and a half. What is set holds for what is unsent when the socket has been closed, too.
    // See tcp(7), TCP_USER_TIMEOUT and tcp_retries2.
    void LimitSilence(unsigned int dwTimeoutMs, int nPauseMs);
    // Takes the pending error (SO_ERROR); errno when even that fails.
    int GetSocketError();
    // True when the connection is established or under way.
    bool Connect(const CSocketAddress& addrRemote);
    bool GetPeerAddress(CSocketAddress& addrRemote) const;
    // True when TCP has joined the socket to itself: a connect to an own port that nobody listens
    // on can do that, when the system chooses the same port for this end (simultaneous open, RFC
    // 9293).
    bool IsConnectedToItself() const;
    // No more data will be sent; receiving goes on.
    void ShutdownSend();

    SOCKET m_hSocket = -1;
};

#endif
