#ifndef OSPREY_TESTS_CROWD_H
#define OSPREY_TESTS_CROWD_H

#include <string>
#include <vector>

#include "RawSocket.h"

// Raises the test's own limit of descriptors as far as the system lets it; returns the limit.
size_t AllowManyDescriptors();

// Very many connections of one thread. They are read only inside Drain.
class CCrowd
{
public:
    CCrowd();
    ~CCrowd();
    CCrowd(const CCrowd&) = delete;
    CCrowd& operator=(const CCrowd&) = delete;

    // Adds connections, each of which sends the bytes at once. The addresses of the loopback
    // network are used in turn, so that ports do not run out.
    void Connect(size_t nCount, unsigned short wPort, const std::string& strBytes);
    // Every connection sends the bytes; false when one of them could not.
    bool Send(const std::string& strBytes);
    // Reads and counts what is there, waits for more up to the time.
    void Drain(int nMilliseconds);
    // Drains until the received bytes, or the connections that the server has closed, are as many;
    // fails the test at the deadline.
    bool WaitForBytes(unsigned long long ullBytes, int nMilliseconds = WAIT_MS);
    bool WaitForClosed(size_t nClosed, int nMilliseconds = WAIT_MS);
    // Closes all connections.
    void Close();

    size_t GetSize() const
    {
        return m_sockets.size();
    }
    size_t GetClosed() const
    {
        return m_nClosed;
    }
    unsigned long long GetBytes() const
    {
        return m_ullBytes;
    }

private:
    void Read(size_t nIndex);

    int m_hEpoll;
    std::vector<CRawSocket> m_sockets;  // not open: closed by the server
    size_t m_nEver = 0;                 // connections that were ever made
    size_t m_nClosed = 0;
    unsigned long long m_ullBytes = 0;
};

#endif
