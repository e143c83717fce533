#include "UdpEnd.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "RawSocket.h"

namespace
{

sockaddr_in AddressOf(const char* pszAddress, unsigned short wPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wPort);
    inet_pton(AF_INET, pszAddress, &address.sin_addr);
    return address;
}

}  // namespace

CUdpEnd::CUdpEnd(const char* pszAddress) : m_hSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = AddressOf(pszAddress, 0);
    EXPECT_EQ(bind(m_hSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    m_wPort = GetLocalPort(m_hSocket);
    // What is sent to a group stays on this machine.
    const in_addr loopback = {htonl(INADDR_LOOPBACK)};
    setsockopt(m_hSocket, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
}

CUdpEnd::~CUdpEnd()
{
    close(m_hSocket);
}

std::string CUdpEnd::GetName() const
{
    return "udp:127.0.0.1:" + std::to_string(m_wPort);
}

void CUdpEnd::Send(unsigned short wPort, const std::string& strData, const char* pszAddress)
{
    sockaddr_in address = AddressOf(pszAddress, wPort);
    EXPECT_EQ(sendto(m_hSocket, strData.data(), strData.size(), 0,
                     reinterpret_cast<sockaddr*>(&address), sizeof address),
              static_cast<ssize_t>(strData.size()))
        << strerror(errno);
}

bool CUdpEnd::Receive(std::string& strData, int nTimeoutMs)
{
    pollfd polled{m_hSocket, POLLIN, 0};
    if (poll(&polled, 1, nTimeoutMs) <= 0)
    {
        return false;
    }
    char pBuffer[65536];
    const ssize_t n = recv(m_hSocket, pBuffer, sizeof pBuffer, 0);
    strData.assign(pBuffer, n > 0 ? static_cast<size_t>(n) : 0);
    return n >= 0;
}

std::string CUdpEnd::Receive()
{
    std::string strData;
    EXPECT_TRUE(Receive(strData, WAIT_MS)) << "waited for a datagram";
    return strData;
}
