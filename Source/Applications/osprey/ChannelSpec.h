#ifndef OSPREY_TOOL_CHANNELSPEC_H
#define OSPREY_TOOL_CHANNELSPEC_H

#include <string>

#include "LibOsprey.h"

// Sources and sinks of channels, as the command line names them.

// One end of a UDP conversation: "ADDR:PORT" or "PORT", then "%INTERFACE", then "@FROM".
struct CUdpSpec
{
    std::string m_strHost = "127.0.0.1";  // a name or an IPv4 address
    unsigned short m_wPort = 0;           // 0, a source: a free one
    std::string m_strInterface;           // of a multicast group; empty: the system chooses
    std::string m_strFrom;                // a source: the only sender that counts; empty: anybody

    // "udp:127.0.0.1:5000".
    std::string ToString() const;
};

enum ESourceKind
{
    SOURCE_UDP,
    SOURCE_INPUT,  // standard input
    SOURCE_FILE,
};

struct CSourceSpec
{
    Orb_U32 m_dwChannel = 0;
    ESourceKind m_eKind = SOURCE_INPUT;
    CUdpSpec m_udp;
    std::string m_strPath;

    // What it is called in messages; safe for a terminal.
    std::string Shown() const;
};

const size_t DEFAULT_PACKET_SIZE = 1316;  // seven cells of MPEG-TS

// How a stream is cut and paced.
struct CStreamOptions
{
    size_t m_nPacketSize = 0;  // 0: DEFAULT_PACKET_SIZE
    bool m_bLines = false;
    unsigned int m_dwRate = 5000;  // packets a second; 0: as fast as they come
    bool m_bWait = false;          // hold packets while nobody has opened the channel
    bool m_bLive = false;          // readers get each packet at once
};

enum ESinkKind
{
    SINK_STATS,
    SINK_HEX,
    SINK_OUTPUT,  // standard output, as it comes
    SINK_FILE,
    SINK_UDP,
};

struct CSinkSpec
{
    Orb_U32 m_dwChannel = 0;
    ESinkKind m_eKind = SINK_STATS;
    CUdpSpec m_udp;
    std::string m_strPath;

    std::string Shown() const;
};

// A decimal number from 0 to 4294967295, digits only.
bool ParseChannel(const std::string& strText, Orb_U32& dwChannel);

// "N=udp:ADDR:PORT", "N=udp:PORT", "N=-" or "N=FILE". False with a plain reason.
bool ParseSource(const std::string& strText, CSourceSpec& spec, std::string& strReason);

// "N", "N=stats", "N=hex", "N=-", "N=udp:ADDR:PORT" or "N=FILE". False with a plain reason.
bool ParseSink(const std::string& strText, CSinkSpec& spec, std::string& strReason);

#endif
