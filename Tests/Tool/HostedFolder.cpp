#include "HostedFolder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "WireRecords.h"

namespace
{

const unsigned int ID = 7;
const size_t RESULT_AT = 16;
const size_t EMPTY_BLOCK = 16;  // bytes of a block without data

}  // namespace

CHostedFolder::CHostedFolder(CRootFolder::EMethod eMethod)
    : m_log(m_output, CEventLog::STYLE_QUIET),
      m_events(m_log),
      m_root(eMethod),
      m_quota(0, 0),
      m_transfers(m_events, m_quota),
      m_host(m_root, m_events, m_transfers, false),
      m_server(m_host, m_output)
{
    std::filesystem::create_directory(m_folder.GetPath("root"));
    std::string strReason;
    EXPECT_TRUE(m_root.Open(m_folder.GetPath("root"), strReason)) << strReason;
    m_transfers.SetServer(m_server.Server());
    EXPECT_TRUE(m_server.Start(0));
}

CHostedFolder::~CHostedFolder()
{
    m_server.End();
    m_transfers.EndAll();
}

CRawSocket CHostedFolder::Connect() const
{
    CRawSocket peer;
    EXPECT_TRUE(peer.Connect(m_server.Port()));
    peer.Send(Wire::Brow() + Wire::Namc(1, u"peer"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), RESULT_AT), 0U);
    return peer;
}

unsigned int Upload(CRawSocket& peer, const std::u16string& strName, const std::string& strData,
                    unsigned long long ullOffset)
{
    peer.Send(Wire::Upfi(ID, strData.size(), ullOffset, strName));
    const unsigned int dwResult = Wire::GetU32(peer.ReceivePacket(), RESULT_AT);
    if (dwResult != 0)
    {
        return dwResult;
    }
    peer.Send(Wire::Upfb(ID, 1, strData));
    return Wire::GetU32(peer.ReceivePacket(), RESULT_AT);
}

bool Download(CRawSocket& peer, const std::u16string& strName, std::string& strContents)
{
    strContents.clear();
    peer.Send(Wire::Dfil(ID, 0, strName));
    if (Wire::GetU32(peer.ReceivePacket(), RESULT_AT) != 0)
    {
        return false;
    }
    for (std::string strBlock = peer.ReceivePacket(); strBlock.size() > EMPTY_BLOCK;
         strBlock = peer.ReceivePacket())
    {
        strContents += strBlock.substr(EMPTY_BLOCK);
    }
    return true;
}

unsigned int MakeFolder(CRawSocket& peer, const std::u16string& strName)
{
    peer.Send(Wire::Cdir(ID, strName));
    return Wire::GetU32(peer.ReceivePacket(), RESULT_AT);
}

unsigned int Delete(CRawSocket& peer, const std::u16string& strName)
{
    peer.Send(Wire::Delt(ID, strName));
    return Wire::GetU32(peer.ReceivePacket(), RESULT_AT);
}
