#include "Direction.h"

#include <algorithm>
#include <utility>

namespace
{

std::chrono::nanoseconds Milliseconds(double dMs)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(dMs * 1e6));
}

// One flipped bit changes any sum of ones' complement, so TCP and UDP notice it.
void FlipBit(std::string& strPacket, double dWhere)
{
    const size_t nHeader = (static_cast<unsigned char>(strPacket[0]) & 0x0FU) * size_t{4};
    if (strPacket.size() > nHeader)
    {
        const double dBits = static_cast<double>((strPacket.size() - nHeader) * 8);
        const auto nBit = static_cast<size_t>(dWhere * dBits);
        char& c = strPacket[nHeader + nBit / 8];
        c = static_cast<char>(static_cast<unsigned char>(c) ^ (1U << (nBit % 8)));
    }
}

}  // namespace

CDirection::CDirection(const CLinkSettings& settings, std::uint64_t ullSeed)
    : m_settings(settings), m_dice(ullSeed)
{
}

void CDirection::Take(CTime now, std::string strPacket)
{
    const auto fnMeets = [this](double dPercent) { return m_dice.Throw() * 100 < dPercent; };
    const bool bLost = fnMeets(m_settings.m_dLoss);
    const bool bReordered = fnMeets(m_settings.m_dReorder);
    const bool bDuplicated = fnMeets(m_settings.m_dDuplicate);
    const bool bCorrupted = fnMeets(m_settings.m_dCorrupt);
    const double dWhere = m_dice.Throw();
    const double dJitter = m_dice.Throw();
    ++m_counters.m_ullTaken;
    if (m_bCut || strPacket.empty())
    {
        ++m_counters.m_ullCut;
        return;
    }
    if (bLost)
    {
        ++m_counters.m_ullLost;
        return;
    }
    const CTime timeLeft = LeaveSender(now, strPacket.size());
    if (timeLeft == CTime::max())
    {
        ++m_counters.m_ullOverflowed;
        return;
    }
    if (bCorrupted)
    {
        ++m_counters.m_ullCorrupted;
        FlipBit(strPacket, dWhere);
    }
    CTime time = std::max(m_timeLast, timeLeft + Milliseconds(m_settings.m_dDelayMs +
                                                              dJitter * m_settings.m_dJitterMs));
    if (bReordered)
    {
        ++m_counters.m_ullReordered;
        time += Milliseconds(m_settings.m_dReorderMs);
    }
    else
    {
        m_timeLast = time;
    }
    if (bDuplicated)
    {
        ++m_counters.m_ullDuplicated;
        m_underWay.emplace(time, strPacket);
    }
    m_underWay.emplace(time, std::move(strPacket));
}

// When the packet has passed the bottleneck; CTime::max() when it found no place before it.
CDirection::CTime CDirection::LeaveSender(CTime now, size_t nSize)
{
    if (m_settings.m_dRateKbit <= 0)
    {
        return now;
    }
    const CTime timeStart = std::max(now, m_timeSenderFree);
    if (timeStart - now > Milliseconds(m_settings.m_dQueueMs))
    {
        return CTime::max();
    }
    const double dBits = static_cast<double>(nSize) * 8;
    m_timeSenderFree = timeStart + Milliseconds(dBits / m_settings.m_dRateKbit);
    return m_timeSenderFree;
}

bool CDirection::Give(CTime now, std::string& strPacket)
{
    if (GetNext() > now)
    {
        return false;
    }
    strPacket = std::move(m_underWay.begin()->second);
    m_underWay.erase(m_underWay.begin());
    ++m_counters.m_ullGiven;
    return true;
}

CDirection::CTime CDirection::GetNext() const
{
    return m_underWay.empty() ? CTime::max() : m_underWay.begin()->first;
}

void CDirection::SetCut(bool bCut)
{
    if (bCut)
    {
        m_counters.m_ullCut += m_underWay.size();
        m_underWay.clear();
    }
    m_bCut = bCut;
}
