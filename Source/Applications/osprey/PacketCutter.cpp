#include "PacketCutter.h"

void CPacketCutter::Add(const char* pData, size_t nSize)
{
    m_strBytes.erase(0, m_nTaken);
    m_nTaken = 0;
    m_strBytes.append(pData, nSize);
}

std::string_view CPacketCutter::Front() const
{
    const std::string_view rest = std::string_view(m_strBytes).substr(m_nTaken);
    const std::string_view most = rest.substr(0, m_nPacketSize);
    const size_t nFeed = m_bLines ? most.find('\n') : std::string_view::npos;
    if (nFeed != std::string_view::npos)
    {
        return most.substr(0, nFeed + 1);
    }
    return most.size() == m_nPacketSize || m_bEnded ? most : std::string_view();
}

void CPacketCutter::Drop()
{
    m_nTaken += Front().size();
}
