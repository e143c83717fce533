#include "StreamCheck.h"

#include <algorithm>

#include "NumberedPacket.h"
#include "WireRecords.h"

CStreamCheck::CStreamCheck(const std::vector<unsigned int>& channels)
{
    for (const unsigned int dwChannel : channels)
    {
        m_channels[dwChannel];
    }
}

void CStreamCheck::BeginConnection()
{
    for (auto& channel : m_channels)
    {
        channel.second.m_bFirst = true;
    }
}

void CStreamCheck::Take(unsigned int dwChannel, const std::string& strData)
{
    ++m_ullPackets;
    const auto it = m_channels.find(dwChannel);
    const unsigned int dwNumber = Wire::GetU32(strData, 4);
    std::string strFault;
    if (it == m_channels.end() || strData != VariedPacket(dwChannel, dwNumber))
    {
        strFault = "a damaged packet of channel " + std::to_string(dwChannel);
    }
    else
    {
        CChannel& channel = it->second;
        // The newest that is stored may be the last one of the connection before.
        const bool bRight =
            channel.m_bFirst ? dwNumber + 1 >= channel.m_dwNext : dwNumber == channel.m_dwNext;
        strFault = bRight ? ""
                          : "packet " + std::to_string(dwNumber) + " instead of " +
                                std::to_string(channel.m_dwNext);
        channel.m_dwNext = dwNumber + 1;
        channel.m_bFirst = false;
        ++channel.m_dwPackets;
    }
    m_strFault = m_strFault.empty() ? strFault : m_strFault;
}

bool CStreamCheck::IsOver(unsigned int dwPackets) const
{
    return !m_strFault.empty() || std::all_of(m_channels.begin(), m_channels.end(),
                                              [&](const auto& channel)
                                              { return channel.second.m_dwPackets >= dwPackets; });
}
