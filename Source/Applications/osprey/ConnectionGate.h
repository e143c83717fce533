#ifndef OSPREY_TOOL_CONNECTIONGATE_H
#define OSPREY_TOOL_CONNECTIONGATE_H

#include <chrono>

#include "CommandLine.h"
#include "LibOsprey.h"
#include "ServeEvents.h"

// Takes connections, or turns them away and tells so: at once, but once a second at most, with the
// number of those that were not told since, so that a flood of connections is none of lines.
//
// Thread: worker of the server; Summarize after it has ended.
class CConnectionGate final : public IOspreyConnectionFilter
{
public:
    // Both must outlive this object.
    CConnectionGate(const CAdmission& admission, CServeEvents& events)
        : m_admission(admission), m_events(events)
    {
    }
    CConnectionGate(const CConnectionGate&) = delete;
    CConnectionGate& operator=(const CConnectionGate&) = delete;

    // Has the server ask, if there is anything to ask.
    void Guard(IOspreyServer& server);

    Orb_BOOL OnAccept(unsigned int dwAddress, unsigned short wPort,
                      unsigned int dwConnections) override;

    // Tells of those that were not told.
    void Summarize();

private:
    const char* Fault(unsigned int dwAddress, unsigned int dwConnections) const;

    const CAdmission& m_admission;
    CServeEvents& m_events;
    Orb_U64 m_ullUntold = 0;
    std::chrono::steady_clock::time_point m_timeTold;
    bool m_bTold = false;
    unsigned int m_dwLastAddress = 0;
    const char* m_pszLastReason = "";
};

#endif
