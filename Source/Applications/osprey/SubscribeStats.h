#ifndef OSPREY_TOOL_SUBSCRIBESTATS_H
#define OSPREY_TOOL_SUBSCRIBESTATS_H

#include <map>
#include <mutex>
#include <vector>

#include "GapCounter.h"
#include "LibOsprey.h"

// What has come of one channel.
struct CChannelFigures
{
    Orb_U32 m_dwChannel = 0;
    Orb_U64 m_ullPackets = 0;
    Orb_U64 m_ullBytes = 0;
    CGapCounter::EFormat m_eFormat = CGapCounter::FORMAT_UNKNOWN;
    Orb_U64 m_ullGaps = 0;
};

// Counts the packets of channels.
//
// Thread: any.
class CSubscribeStats final
{
public:
    // A channel that is to be counted, once each, before the first packet.
    void Add(Orb_U32 dwChannel);

    // A packet of such a channel; others are not counted.
    void Packet(Orb_U32 dwChannel, const char* pData, size_t nSize);

    // In the order in which they were added.
    std::vector<CChannelFigures> Figures() const;

private:
    struct CChannel
    {
        Orb_U64 m_ullPackets = 0;
        Orb_U64 m_ullBytes = 0;
        CGapCounter m_gaps;
    };

    mutable std::mutex m_mutex;  // everything below
    std::map<Orb_U32, CChannel> m_mapChannels;
    std::vector<Orb_U32> m_listOrder;
};

#endif
