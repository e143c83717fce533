#include "SoakReaders.h"

#include <gtest/gtest.h>

#include "FileHost.h"
#include "LibOsprey.h"
#include "SoakPeer.h"
#include "WireRecords.h"

namespace
{

const unsigned int CONNECT_MS = 2000;

}  // namespace

CSoakSubscriber::CSoakSubscriber(CSoak& soak, const std::vector<unsigned int>& channels)
    : m_soak(soak), m_check(channels), m_pClient(CreateWXSPChannelClient(this, 1))
{
}

CSoakSubscriber::~CSoakSubscriber()
{
    m_pClient->Release();
    EXPECT_EQ(m_check.m_strFault, "");
    m_soak.m_counts.m_packets += m_check.m_ullPackets;
}

void CSoakSubscriber::Read(std::vector<unsigned int> channels, unsigned int dwPackets)
{
    m_dwMark = m_soak.m_restarts.WaitForServer();
    m_pClient->Connect(0, LOOPBACK, m_soak.m_wPort, CONNECT_MS,
                       static_cast<unsigned int>(channels.size()), channels.data());
    WaitFor("packets of every channel", [&] { return m_check.IsOver(dwPackets); });
}

void CSoakSubscriber::OnConnected(unsigned int /*dwUserParam*/)
{
    Change([this] { m_check.BeginConnection(); });
}

void CSoakSubscriber::OnConnectFailed(unsigned int /*dwUserParam*/)
{
    TakeLoss("a failed attempt");
}

void CSoakSubscriber::OnDisconnected(unsigned int /*dwUserParam*/)
{
    TakeLoss("a lost connection");
}

void CSoakSubscriber::TakeLoss(const char* pszWhat)
{
    Change(
        [&]
        {
            if (!m_soak.m_restarts.HasComeSince(m_dwMark) && m_check.m_strFault.empty())
            {
                m_check.m_strFault = std::string(pszWhat) + " though the server did not end";
            }
            m_dwMark = m_soak.m_restarts.GetMark();
        });
    ++m_soak.m_counts.m_reconnections;
}

void CSoakSubscriber::OnChannelPacket(unsigned int /*dwUserParam*/, unsigned int dwChannel,
                                      void* pData, unsigned int dwSize)
{
    const std::string strData(static_cast<const char*>(pData), dwSize);
    Change([&] { m_check.Take(dwChannel, strData); });
}

CSoakReader::CSoakReader(CSoak& soak, bool bRaw, unsigned int dwSeed)
    : m_soak(soak), m_bRaw(bRaw), m_dice(dwSeed)
{
}

void CSoakReader::Run()
{
    while (!m_soak.m_bStop)
    {
        std::vector<unsigned int> channels;
        for (unsigned int dwChannel = 1; dwChannel <= SOAK_CHANNELS; ++dwChannel)
        {
            if (m_dice.Roll(0, 1) == 1)
            {
                channels.push_back(dwChannel);
            }
        }
        if (!channels.empty())
        {
            const unsigned int dwPackets = m_dice.Roll(1, 300);
            m_bRaw ? ReadRaw(channels, dwPackets) : ReadAsClient(channels, dwPackets);
            ++m_soak.m_counts.m_subscriptions;
        }
    }
}

void CSoakReader::ReadAsClient(const std::vector<unsigned int>& channels, unsigned int dwPackets)
{
    CSoakSubscriber subscriber(m_soak, channels);
    subscriber.Read(channels, dwPackets);
}

void CSoakReader::ReadRaw(const std::vector<unsigned int>& channels, unsigned int dwPackets)
{
    CStreamCheck check(channels);
    m_soak.Repeat("a raw subscription", [&] { return TryReadRaw(channels, dwPackets, check); });
    EXPECT_EQ(check.m_strFault, "");
    m_soak.m_counts.m_packets += check.m_ullPackets;
}

bool CSoakReader::TryReadRaw(const std::vector<unsigned int>& channels, unsigned int dwPackets,
                             CStreamCheck& check)
{
    CSoakPeer peer;
    check.BeginConnection();
    if (!peer.Begin(m_soak.m_wPort, Wire::Ochs(channels)))
    {
        return false;
    }
    while (!check.IsOver(dwPackets))
    {
        const std::string strPacket = peer.ReceivePacket();
        if (strPacket.size() < 16)
        {
            return false;
        }
        EXPECT_EQ(Wire::GetCode(strPacket), "CPKT");
        check.Take(Wire::GetU32(strPacket, 12), strPacket.substr(16));
    }
    return true;
}
