#include "PeerScript.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "WireRecords.h"

void CPeerConnection::TakeName()
{
    const std::string strRequest = Expect("NAMC");
    m_socket.Send(Wire::Result("NAMR", Wire::GetU32(strRequest, 12), 0));
}

std::string CPeerConnection::Expect(const char* pszCode)
{
    std::string strPacket = m_socket.ReceivePacket();
    while (Wire::GetCode(strPacket) == "BROW")
    {
        strPacket = m_socket.ReceivePacket();
    }
    EXPECT_EQ(Wire::GetCode(strPacket), pszCode);
    return strPacket;
}

void CPeerConnection::TakeFile(unsigned int dwID)
{
    m_socket.Send(Wire::Upfr(dwID, 0, 0));
    for (bool bLast = false; !bLast;)
    {
        const std::string strBlock = Expect("UPFB");
        bLast = strBlock.empty() || Wire::GetU32(strBlock, 16) != 0;
        m_socket.Send(Wire::Result("UPBR", dwID, 0));
    }
}

void CPeerConnection::GiveFile(const std::string& strBytes, unsigned int dwID)
{
    m_socket.Send(Wire::Dfrt(dwID, 0, strBytes.size(), 0) + Wire::Dfrb(dwID, strBytes));
}

std::string CPeerScript::GetPeer() const
{
    return "127.0.0.1:" + std::to_string(m_server.GetPort());
}

CPeerConnection CPeerScript::AcceptOne()
{
    CPeerConnection connection(m_server.Accept());
    connection.TakeName();
    return connection;
}

void CPeerScript::RefuseOne()
{
    m_server.Accept().Reset();
}

bool CPeerScript::HasCallerWithin(int nMilliseconds) const
{
    pollfd pfd = {m_server.GetHandle(), POLLIN, 0};
    return poll(&pfd, 1, nMilliseconds) == 1;
}
