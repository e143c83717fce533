#include "ChannelHost.h"

#include <utility>

#include "Hex.h"
#include "LibOsprey.h"

std::string PacketLine(unsigned int dwChannel, const std::string& strData)
{
    return "packet " + std::to_string(CHANNEL_USER) + " " + std::to_string(dwChannel) + " " +
           Hex(strData);
}

void CChannelHost::OnConnected(unsigned int dwUserParam)
{
    Tell("connected " + std::to_string(dwUserParam));
}

void CChannelHost::OnConnectFailed(unsigned int dwUserParam)
{
    Tell("connect failed " + std::to_string(dwUserParam));
}

void CChannelHost::OnDisconnected(unsigned int dwUserParam)
{
    Tell("disconnected " + std::to_string(dwUserParam));
}

void CChannelHost::OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                                   unsigned int dwSize)
{
    Tell("packet " + std::to_string(dwUserParam) + " " + std::to_string(dwChannel) + " " +
         Hex(std::string(static_cast<const char*>(pData), dwSize)));
}

void CChannelHost::Tell(const std::string& strEvent)
{
    if (m_fnOnEvent)
    {
        m_fnOnEvent(strEvent);
    }
    m_events.Add(strEvent);
}

CChannelRun::CChannelRun() : m_pClient(CreateWXSPChannelClient(&m_host, CHANNEL_USER)) {}

CChannelRun::~CChannelRun()
{
    Release();
}

bool CChannelRun::Start(unsigned short wPort, std::vector<unsigned int> channels,
                        unsigned int dwTimeoutMs)
{
    return m_pClient->Connect(0, LOOPBACK, wPort, dwTimeoutMs,
                              static_cast<unsigned int>(channels.size()), channels.data()) != 0;
}

void CChannelRun::Release()
{
    if (IWXSPChannelClient* pClient = std::exchange(m_pClient, nullptr))
    {
        pClient->Release();
    }
}
