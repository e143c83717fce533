#ifndef OSPREY_TOOL_GAPCOUNTER_H
#define OSPREY_TOOL_GAPCOUNTER_H

#include <unordered_map>

#include "LibOsprey.h"

// Finds what is missing from a stream by the numbers that its packets carry:
//
//   MPEG-TS   packets of whole 188-byte cells: the continuity counter of each PID, as ISO/IEC
//             13818-1, 2.4.3.3 has it. It counts cells with payload, modulo 16; a cell may be sent
//             twice, and may announce a discontinuity, which is no gap
//   RTP       version 2, once a few packets of one source came in a row: the sequence number
//
// Other packets carry none that it knows.
class CGapCounter final
{
public:
    enum EFormat
    {
        FORMAT_UNKNOWN,
        FORMAT_MPEG_TS,
        FORMAT_RTP,
    };

    void Packet(const char* pData, size_t nSize);

    // What the packets were so far.
    EFormat Format() const
    {
        return m_eFormat;
    }
    // Places where something is missing.
    Orb_U64 Gaps() const
    {
        return m_ullGaps;
    }

private:
    struct CPid
    {
        unsigned char m_cCounter;  // of the last cell
        bool m_bTwice;             // the last cell came twice
        Orb_U64 m_ullPayload;      // hash of the last payload
    };

    void Cell(const unsigned char* pCell);
    void Count(CPid& pid, bool bPayload, unsigned char cCounter, Orb_U64 ullPayload);
    void Rtp(const unsigned char* pPacket);

    EFormat m_eFormat = FORMAT_UNKNOWN;
    Orb_U64 m_ullGaps = 0;
    std::unordered_map<unsigned int, CPid> m_mapPids;
    int m_nRtpRun = 0;  // packets in a row that looked like RTP of one source, without a gap
    Orb_U32 m_dwRtpSource = 0;
    unsigned short m_wRtpNext = 0;
};

// "mpeg-ts", "rtp" or "unknown".
const char* FormatName(CGapCounter::EFormat eFormat);

#endif
