#include "GapCounter.h"

#include <algorithm>

namespace
{

const size_t CELL_SIZE = 188;
const size_t CELL_HEADER = 4;
const unsigned char CELL_SYNC = 0x47;
const unsigned int NULL_PID = 0x1FFF;
const size_t RTP_HEADER = 12;
const int RTP_RUN = 4;  // packets in a row that make it RTP

bool IsTransportStream(const unsigned char* pData, size_t nSize)
{
    if (nSize == 0 || nSize % CELL_SIZE != 0)
    {
        return false;
    }
    for (size_t i = 0; i < nSize; i += CELL_SIZE)
    {
        if (pData[i] != CELL_SYNC)
        {
            return false;
        }
    }
    return true;
}

// Enough to tell a cell that comes twice from another one of the same number (FNV-1a).
Orb_U64 Hash(const unsigned char* pData, size_t nSize)
{
    Orb_U64 ullHash = 0xCBF29CE484222325ULL;
    for (size_t i = 0; i < nSize; ++i)
    {
        ullHash = (ullHash ^ pData[i]) * 0x100000001B3ULL;
    }
    return ullHash;
}

}  // namespace

void CGapCounter::Packet(const char* pData, size_t nSize)
{
    const unsigned char* pBytes = reinterpret_cast<const unsigned char*>(pData);
    if (IsTransportStream(pBytes, nSize))
    {
        m_eFormat = FORMAT_MPEG_TS;
        for (size_t i = 0; i < nSize; i += CELL_SIZE)
        {
            Cell(pBytes + i);
        }
    }
    else if (nSize >= RTP_HEADER && pBytes[0] >> 6 == 2)
    {
        Rtp(pBytes);
    }
    else if (m_eFormat != FORMAT_RTP)
    {
        m_nRtpRun = 0;
    }
}

void CGapCounter::Cell(const unsigned char* pCell)
{
    const unsigned int dwPid = (pCell[1] & 0x1FU) << 8 | pCell[2];
    const bool bDamaged = (pCell[1] & 0x80) != 0;
    const bool bAdaptation = (pCell[3] & 0x20) != 0;
    const bool bPayload = (pCell[3] & 0x10) != 0;
    if (dwPid == NULL_PID || bDamaged || (!bAdaptation && !bPayload))
    {
        return;
    }
    const size_t nAdaptation = bAdaptation ? 1U + pCell[4] : 0U;
    const bool bDiscontinuity = nAdaptation > 1 && (pCell[5] & 0x80) != 0;
    const size_t nStart = CELL_HEADER + nAdaptation;
    const Orb_U64 ullPayload =
        bPayload && nStart < CELL_SIZE ? Hash(pCell + nStart, CELL_SIZE - nStart) : 0;
    const unsigned char cCounter = pCell[3] & 0x0F;
    const auto [it, bNew] = m_mapPids.try_emplace(dwPid, CPid{cCounter, false, ullPayload});
    if (bNew)
    {
        return;
    }
    if (bDiscontinuity)
    {
        it->second = {cCounter, false, ullPayload};
        return;
    }
    Count(it->second, bPayload, cCounter, ullPayload);
}

void CGapCounter::Count(CPid& pid, bool bPayload, unsigned char cCounter, Orb_U64 ullPayload)
{
    const unsigned char cExpected = (pid.m_cCounter + (bPayload ? 1 : 0)) & 0x0F;
    if (cCounter == cExpected)
    {
        // A cell without payload leaves the last one with payload as it was.
        pid = bPayload ? CPid{cCounter, false, ullPayload} : pid;
        return;
    }
    const bool bAgain = bPayload && cCounter == pid.m_cCounter && ullPayload == pid.m_ullPayload;
    if (bAgain && !pid.m_bTwice)
    {
        pid.m_bTwice = true;
        return;
    }
    ++m_ullGaps;
    pid = {cCounter, false, ullPayload};
}

void CGapCounter::Rtp(const unsigned char* pPacket)
{
    const unsigned short wNumber = static_cast<unsigned short>(pPacket[2] << 8 | pPacket[3]);
    const Orb_U32 dwSource =
        static_cast<Orb_U32>(pPacket[8]) << 24 | pPacket[9] << 16 | pPacket[10] << 8 | pPacket[11];
    const bool bSame = m_nRtpRun > 0 && m_dwRtpSource == dwSource;
    const bool bNext = bSame && m_wRtpNext == wNumber;
    if (m_eFormat == FORMAT_RTP && bSame)
    {
        m_ullGaps += bNext ? 0 : 1;
    }
    // Other data may look like a few such packets, but not like many in a row.
    m_nRtpRun = bNext ? std::min(m_nRtpRun + 1, RTP_RUN) : 1;
    if (m_nRtpRun >= RTP_RUN)
    {
        m_eFormat = FORMAT_RTP;
    }
    m_dwRtpSource = dwSource;
    m_wRtpNext = static_cast<unsigned short>(wNumber + 1);
}

const char* FormatName(CGapCounter::EFormat eFormat)
{
    switch (eFormat)
    {
        case CGapCounter::FORMAT_MPEG_TS:
            return "mpeg-ts";
        case CGapCounter::FORMAT_RTP:
            return "rtp";
        default:
            return "unknown";
    }
}
