#include "ConnectionGate.h"

#include <algorithm>
#include <exception>

namespace
{

const std::chrono::seconds PAUSE(1);

}  // namespace

void CConnectionGate::Guard(IOspreyServer& server)
{
    if (m_admission.m_dwMostConnections != 0 || !m_admission.m_listAllowed.empty())
    {
        server.SetConnectionFilter(this);
    }
}

// Why a connection is turned away, or null.
const char* CConnectionGate::Fault(unsigned int dwAddress, unsigned int dwConnections) const
{
    const auto& listAllowed = m_admission.m_listAllowed;
    const bool bAllowed = listAllowed.empty() || std::any_of(listAllowed.begin(), listAllowed.end(),
                                                             [dwAddress](const CAddressRange& range)
                                                             { return range.Holds(dwAddress); });
    if (!bAllowed)
    {
        return "the address is not allowed";
    }
    const unsigned int dwMost = m_admission.m_dwMostConnections;
    return dwMost != 0 && dwConnections >= dwMost ? "too many connections" : nullptr;
}

Orb_BOOL CConnectionGate::OnAccept(unsigned int dwAddress, unsigned short /*wPort*/,
                                   unsigned int dwConnections)
{
    const char* pszFault = Fault(dwAddress, dwConnections);
    if (pszFault == nullptr)
    {
        return Orb_TRUE;
    }
    m_dwLastAddress = dwAddress;
    m_pszLastReason = pszFault;
    ++m_ullUntold;
    const auto now = std::chrono::steady_clock::now();
    if (!m_bTold || now >= m_timeTold + PAUSE)
    {
        m_bTold = true;
        m_timeTold = now;
        Summarize();
    }
    return Orb_FALSE;
}

void CConnectionGate::Summarize()
{
    if (m_ullUntold == 0)
    {
        return;
    }
    try
    {
        m_events.TurnedAway(FormatAddress(m_dwLastAddress), m_pszLastReason, m_ullUntold);
        m_ullUntold = 0;
    }
    catch (const std::exception&)
    {
        // No memory for a line of the log: told with the next one.
        return;
    }
}
