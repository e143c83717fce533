#include "SoakPeer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "WireRecords.h"

bool CSoakPeer::Begin(unsigned short wPort, const std::string& strBytes)
{
    return m_socket.Connect(wPort) && m_socket.SendWithoutWaiting(strBytes) == strBytes.size();
}

std::string CSoakPeer::Receive(size_t nSize)
{
    std::string strBytes(nSize, '\0');
    size_t nDone = 0;
    while (nDone < nSize)
    {
        pollfd pfd = {m_socket.GetHandle(), POLLIN, 0};
        if (poll(&pfd, 1, WAIT_MS) == 0)
        {
            ADD_FAILURE() << "waited in vain for " << nSize - nDone << " bytes of the server";
            break;
        }
        const ssize_t n =
            recv(m_socket.GetHandle(), strBytes.data() + nDone, nSize - nDone, MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
        {
            break;
        }
        nDone += n > 0 ? static_cast<size_t>(n) : 0;
    }
    strBytes.resize(nDone);
    return strBytes;
}

std::string CSoakPeer::ReceivePacket()
{
    const std::string strHeader = Receive(12);
    if (strHeader.size() < 12)
    {
        return std::string();
    }
    const size_t nSize = Wire::GetU32(strHeader, 8);
    EXPECT_LE(nSize, 1U << 20);
    const std::string strPayload = Receive(nSize);
    return strPayload.size() == nSize ? strHeader + strPayload : std::string();
}
