#include "SubscribeStats.h"

void CSubscribeStats::Add(Orb_U32 dwChannel)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_mapChannels.try_emplace(dwChannel);
    m_listOrder.push_back(dwChannel);
}

void CSubscribeStats::Packet(Orb_U32 dwChannel, const char* pData, size_t nSize)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_mapChannels.find(dwChannel);
    if (it == m_mapChannels.end())
    {
        return;
    }
    ++it->second.m_ullPackets;
    it->second.m_ullBytes += nSize;
    it->second.m_gaps.Packet(pData, nSize);
}

std::vector<CChannelFigures> CSubscribeStats::Figures() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<CChannelFigures> listFigures;
    listFigures.reserve(m_listOrder.size());
    for (const Orb_U32 dwChannel : m_listOrder)
    {
        const CChannel& channel = m_mapChannels.at(dwChannel);
        listFigures.push_back({dwChannel, channel.m_ullPackets, channel.m_ullBytes,
                               channel.m_gaps.Format(), channel.m_gaps.Gaps()});
    }
    return listFigures;
}
