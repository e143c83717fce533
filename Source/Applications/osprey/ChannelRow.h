#ifndef OSPREY_TOOL_CHANNELROW_H
#define OSPREY_TOOL_CHANNELROW_H

#include <string>

#include "LibOsprey.h"
#include "RateMeter.h"

// How a channel comes along: one row of a terminal.
//
//   channel 1     1000 packets/s    1.3 MiB/s     123456 packets    no gaps
//
// Where room is short, figures go from the right; the rates stay to the last.
struct CChannelRow
{
    Orb_U32 m_dwChannel = 0;
    double m_dPacketRate = -1.0;  // packets a second; negative: too early to tell
    double m_dByteRate = -1.0;
    Orb_U64 m_ullPackets = 0;
    std::string m_strNote;  // may be empty
};

// At most nColumns columns.
std::string RenderChannelRow(const CChannelRow& row, int nColumns);

// "1000 packets/s", "2.5 packets/s"; "- packets/s" when negative.
std::string FormatPacketRate(double dRate);

// "1.3 MiB/s", "0 B/s"; "- B/s" when negative.
std::string FormatByteRate(double dRate);

// The rates of one channel, from samples of its counts.
class CChannelMeter final
{
public:
    void Add(double dNow, Orb_U64 ullPackets, Orb_U64 ullBytes)
    {
        m_packets.Add(dNow, ullPackets);
        m_bytes.Add(dNow, ullBytes);
    }
    double PacketRate() const
    {
        return m_packets.Rate();
    }
    double ByteRate() const
    {
        return m_bytes.Rate();
    }

private:
    CRateMeter m_packets;
    CRateMeter m_bytes;
};

#endif
