#ifndef OSPREY_TOOLS_DIRECTION_H
#define OSPREY_TOOLS_DIRECTION_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include "Dice.h"
#include "LinkSettings.h"

// What became of the packets of one direction.
struct CCounters
{
    std::uint64_t m_ullTaken = 0;
    std::uint64_t m_ullGiven = 0;
    std::uint64_t m_ullLost = 0;
    std::uint64_t m_ullReordered = 0;
    std::uint64_t m_ullDuplicated = 0;
    std::uint64_t m_ullCorrupted = 0;
    std::uint64_t m_ullOverflowed = 0;  // found the queue of a limited rate full
    std::uint64_t m_ullCut = 0;         // met a cut, at its beginning or inside it
};

// One direction of a link: packets go in at one end and come out at the other, later, or never.
//
//   Take --> loss --> rate --> corruption --> delay, jitter, reordering, duplication --> Give
//
// Every packet throws the same dice whatever is switched on, so that with one seed the fate of the
// n-th packet depends on nothing but the settings.
//
// Lifetime: borrows the settings, which may change at any time and count for the packets after it.
// Thread:   one.
class CDirection
{
public:
    typedef std::chrono::steady_clock::time_point CTime;

    CDirection(const CLinkSettings& settings, std::uint64_t ullSeed);

    // A packet enters. Times never go back from call to call.
    void Take(CTime now, std::string strPacket);
    // The packet whose time has come longest; false when there is none yet.
    bool Give(CTime now, std::string& strPacket);
    // When Give will have one; CTime::max() when nothing is under way.
    CTime GetNext() const;
    // While the link is cut nothing enters, and what was under way is gone.
    void SetCut(bool bCut);

    const CCounters& GetCounters() const
    {
        return m_counters;
    }

private:
    CTime LeaveSender(CTime now, size_t nSize);

    const CLinkSettings& m_settings;
    CDice m_dice;
    CCounters m_counters;
    std::multimap<CTime, std::string> m_underWay;  // by the time of arrival; equal ones in order
    CTime m_timeSenderFree;                        // when the last packet has left at the rate
    CTime m_timeLast;                              // arrival of the last one that keeps its place
    bool m_bCut = false;
};

#endif
