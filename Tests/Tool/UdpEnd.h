#ifndef OSPREY_TESTS_UDPEND_H
#define OSPREY_TESTS_UDPEND_H

#include <string>

// A UDP socket of the test, bound to a port of 127.0.0.0/8 that the system chose.
class CUdpEnd
{
public:
    explicit CUdpEnd(const char* pszAddress = "127.0.0.1");
    ~CUdpEnd();
    CUdpEnd(const CUdpEnd&) = delete;
    CUdpEnd& operator=(const CUdpEnd&) = delete;

    unsigned short GetPort() const
    {
        return m_wPort;
    }
    // "udp:127.0.0.1:PORT".
    std::string GetName() const;

    // One datagram; fails the test when it does not go.
    void Send(unsigned short wPort, const std::string& strData,
              const char* pszAddress = "127.0.0.1");

    // The next datagram. False when none comes within the time.
    bool Receive(std::string& strData, int nTimeoutMs);
    // The next datagram; fails the test when none comes in time.
    std::string Receive();

private:
    int m_hSocket = -1;
    unsigned short m_wPort = 0;
};

#endif
