#include "ClientRuns.h"

#include <utility>

CChannelClient::~CChannelClient()
{
    Release();
}

bool CChannelClient::Connect(unsigned short wPort)
{
    unsigned int dwChannel = 1;
    const CInside inside;
    try
    {
        m_pClient = CreateWXSPChannelClient(&m_host, CHANNEL_USER);
    }
    catch (const std::bad_alloc&)
    {
        return false;  // as the factory says
    }
    return m_pClient->Connect(0, LOOPBACK, wPort, 20000, 1, &dwChannel) != 0;
}

void CChannelClient::Release()
{
    const CInside inside;
    if (IWXSPChannelClient* pClient = std::exchange(m_pClient, nullptr))
    {
        pClient->Release();
    }
}
