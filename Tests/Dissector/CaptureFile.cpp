#include "CaptureFile.h"

#include <algorithm>

#include "WireRecords.h"

namespace
{

const size_t SEGMENT_SIZE = 1448;
const unsigned char FIN = 0x01;
const unsigned char SYN = 0x02;
const unsigned char PUSH = 0x08;
const unsigned char ACK = 0x10;

std::string Big16(unsigned int dwValue)
{
    return {static_cast<char>(dwValue >> 8), static_cast<char>(dwValue)};
}

std::string Big32(uint32_t dwValue)
{
    return Big16(dwValue >> 16) + Big16(dwValue);
}

// The sum that IP has over its header: of its 16-bit words, with the carries added.
std::string HeaderSum(const std::string& strHeader)
{
    uint32_t dwSum = 0;
    for (size_t n = 0; n + 1 < strHeader.size(); n += 2)
    {
        dwSum += static_cast<uint32_t>(static_cast<unsigned char>(strHeader[n]) << 8 |
                                       static_cast<unsigned char>(strHeader[n + 1]));
    }
    while (dwSum > 0xFFFF)
    {
        dwSum = (dwSum & 0xFFFF) + (dwSum >> 16);
    }
    return Big16(~dwSum);
}

std::string IPHeader(uint32_t dwFrom, uint32_t dwTo, size_t nTcpSize)
{
    const std::string strBegin = Big16(0x4500) + Big16(static_cast<unsigned int>(20 + nTcpSize)) +
                                 Big32(0x4000) + Big16(0x4006);
    const std::string strAddresses = Big32(dwFrom) + Big32(dwTo);
    return strBegin + HeaderSum(strBegin + strAddresses) + strAddresses;
}

}  // namespace

CCaptureFile::CCaptureFile(unsigned short wServerPort, size_t nLongest)
    : m_wServerPort(wServerPort), m_nLongest(nLongest)
{
    // Magic, version 2.4, zone, accuracy, longest packet, and packets that begin with IP.
    m_strBytes = Wire::U32(0xA1B2C3D4) + Wire::U32(0x00040002) + Wire::U32(0) + Wire::U32(0) +
                 Wire::U32(65535) + Wire::U32(101);
}

void CCaptureFile::Add(const CConversation& conversation)
{
    CSide client{0x0A000001, m_wClientPort++, 1000};
    CSide server{0x0A000002, m_wServerPort, 5000};
    AddSegment(client, server, SYN, "");
    client.m_dwNext += 1;
    AddSegment(server, client, SYN | ACK, "");
    server.m_dwNext += 1;
    AddSegment(client, server, ACK, "");
    for (size_t n = 0; n < conversation.size();)
    {
        const bool bFromClient = conversation[n].m_bFromClient;
        std::string strRun;
        for (; n < conversation.size() && conversation[n].m_bFromClient == bFromClient; ++n)
        {
            strRun += conversation[n].m_strBytes;
        }
        AddRun(bFromClient ? client : server, bFromClient ? server : client, strRun);
    }
    AddSegment(client, server, FIN | ACK, "");
    client.m_dwNext += 1;
    AddSegment(server, client, FIN | ACK, "");
    server.m_dwNext += 1;
    AddSegment(client, server, ACK, "");
}

void CCaptureFile::AddRun(CSide& from, CSide& to, const std::string& strBytes)
{
    for (size_t n = 0; n < strBytes.size(); n += SEGMENT_SIZE)
    {
        const std::string strPart = strBytes.substr(n, SEGMENT_SIZE);
        AddSegment(from, to, PUSH | ACK, strPart);
        from.m_dwNext += static_cast<uint32_t>(strPart.size());
    }
}

void CCaptureFile::AddSegment(CSide& from, const CSide& to, unsigned char cFlags,
                              const std::string& strBytes)
{
    const uint32_t dwAcknowledged = (cFlags & ACK) != 0 ? to.m_dwNext : 0;
    // Ports, numbers, 20 bytes of header, flags, window; a sum of 0, which nobody looks at.
    const std::string strTcp = Big16(from.m_wPort) + Big16(to.m_wPort) + Big32(from.m_dwNext) +
                               Big32(dwAcknowledged) + Big16(0x5000U | cFlags) + Big16(65535) +
                               Big32(0) + strBytes;
    const std::string strPacket =
        IPHeader(from.m_dwAddress, to.m_dwAddress, strTcp.size()) + strTcp;
    const std::string strCaptured = strPacket.substr(0, m_nLongest);
    m_strBytes += Wire::U32(1623006586 + m_dwSegments / 1000) +
                  Wire::U32(m_dwSegments % 1000 * 1000) +
                  Wire::U32(static_cast<uint32_t>(strCaptured.size())) +
                  Wire::U32(static_cast<uint32_t>(strPacket.size())) + strCaptured;
    ++m_dwSegments;
}
