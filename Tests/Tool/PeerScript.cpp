#include "PeerScript.h"

#include <gtest/gtest.h>

#include "WireRecords.h"

std::string CPeerScript::GetPeer() const
{
    return "127.0.0.1:" + std::to_string(m_server.GetPort());
}

void CPeerScript::Accept()
{
    m_socket = m_server.Accept();
    const std::string strRequest = Expect("NAMC");
    m_socket.Send(Wire::Result("NAMR", Wire::GetU32(strRequest, 12), 0));
}

std::string CPeerScript::Expect(const char* pszCode)
{
    std::string strPacket = m_socket.ReceivePacket();
    while (Wire::GetCode(strPacket) == "BROW")
    {
        strPacket = m_socket.ReceivePacket();
    }
    EXPECT_EQ(Wire::GetCode(strPacket), pszCode);
    return strPacket;
}
