#include "ScriptedServer.h"

#include <gtest/gtest.h>

#include "Hex.h"

void CScriptedServer::AcceptClient(uint32_t dwNamcID, const std::u16string& strName)
{
    m_peer = m_server.Accept();
    ASSERT_TRUE(m_peer.IsOpen());
    Expect(Wire::Brow());
    Expect(Wire::Namc(dwNamcID, strName));
}

void CScriptedServer::WelcomeClient(uint32_t dwNamcID)
{
    AcceptClient(dwNamcID);
    Send(Wire::Result("NAMR", dwNamcID, 0));
}

void CScriptedServer::AcceptSubscriber(const std::vector<uint32_t>& channels)
{
    m_peer = m_server.Accept();
    ASSERT_TRUE(m_peer.IsOpen());
    Expect(Wire::Ochs(channels));
}

void CScriptedServer::Expect(const std::string& strPacket)
{
    EXPECT_EQ(Hex(Take()), Hex(strPacket));
}

void CScriptedServer::Send(const std::string& strBytes)
{
    EXPECT_TRUE(m_peer.Send(strBytes));
}

std::string CScriptedServer::Take()
{
    return m_peer.ReceivePacket();
}

void CScriptedServer::TakeUpload(uint32_t dwID, uint64_t ullSize, const std::u16string& strPath,
                                 uint64_t ullOffset)
{
    const std::string strPacket = Take();
    const uint64_t ullTime = Wire::GetU64(strPacket, 28);
    EXPECT_EQ(Hex(strPacket), Hex(Wire::Upfi(dwID, ullSize, 0, strPath, 0x80, ullTime)));
    EXPECT_LT(ullTime, 1ULL << 32);
    Send(Wire::Upfr(dwID, 0, ullOffset));
}
