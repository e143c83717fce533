#include "WireRecords.h"

namespace
{

std::string LittleEndian(uint64_t ullValue, int nBytes)
{
    std::string strBytes;
    for (int i = 0; i < nBytes; ++i)
    {
        strBytes += static_cast<char>(static_cast<unsigned char>(ullValue >> (8 * i)));
    }
    return strBytes;
}

uint64_t GetLittleEndian(const std::string& strBytes, size_t nOffset, size_t nBytes)
{
    uint64_t ullValue = 0;
    for (size_t i = 0; i < nBytes && nOffset + i < strBytes.size(); ++i)
    {
        ullValue |= static_cast<uint64_t>(static_cast<unsigned char>(strBytes[nOffset + i]))
                    << (8 * i);
    }
    return ullValue;
}

}  // namespace

uint32_t Wire::Code(const char* pszLetters)
{
    uint32_t dwCode = 0;
    for (int i = 0; i < 4; ++i)
    {
        dwCode = dwCode << 8 | static_cast<unsigned char>(pszLetters[i]);
    }
    return dwCode;
}

std::string Wire::U32(uint32_t dwValue)
{
    return LittleEndian(dwValue, 4);
}

std::string Wire::U64(uint64_t ullValue)
{
    return LittleEndian(ullValue, 8);
}

std::string Wire::HighLow(uint64_t ullValue)
{
    return LittleEndian(ullValue >> 32, 4) + LittleEndian(ullValue, 4);
}

std::string Wire::Name(const std::u16string& strName)
{
    std::string strBytes;
    for (const char16_t unit : strName)
    {
        strBytes += LittleEndian(unit, 2);
    }
    return strBytes + LittleEndian(0, 2);
}

std::string Wire::PacketWithSize(const char* pszCode, uint32_t dwDataSize,
                                 const std::string& strPayload)
{
    return U32(VERSION) + U32(Code(pszCode)) + U32(dwDataSize) + strPayload;
}

std::string Wire::Packet(const char* pszCode, const std::string& strPayload)
{
    return PacketWithSize(pszCode, static_cast<uint32_t>(strPayload.size()), strPayload);
}

std::string Wire::Brow()
{
    return Packet("BROW", "");
}

std::string Wire::Keep()
{
    return Packet("KEEP", "");
}

std::string Wire::Namc(uint32_t dwID, const std::u16string& strName)
{
    return Packet("NAMC", U32(dwID) + Name(strName));
}

std::string Wire::Cdir(uint32_t dwID, const std::u16string& strPath)
{
    return Packet("CDIR", U32(dwID) + Name(strPath));
}

std::string Wire::Delt(uint32_t dwID, const std::u16string& strPath)
{
    return Packet("DELT", U32(dwID) + Name(strPath));
}

std::string Wire::Dfil(uint32_t dwID, uint64_t ullOffset, const std::u16string& strName)
{
    return Packet("DFIL", U32(dwID) + U64(ullOffset) + Name(strName));
}

std::string Wire::Upfi(uint32_t dwID, uint64_t ullSize, uint64_t ullOffset,
                       const std::u16string& strName, uint32_t dwAttributes, uint64_t ullTime)
{
    return Packet("UPFI", U32(dwID) + HighLow(ullSize) + U32(dwAttributes) + U64(ullTime) +
                              U64(ullOffset) + Name(strName));
}

std::string Wire::Upfb(uint32_t dwID, uint32_t dwLast, const std::string& strData)
{
    return Packet("UPFB", U32(dwID) + U32(dwLast) + strData);
}

std::string Wire::Caop(uint32_t dwID)
{
    return Packet("CAOP", U32(dwID));
}

std::string Wire::Ochs(const std::vector<uint32_t>& channels)
{
    std::string strPayload = U32(static_cast<uint32_t>(channels.size()));
    for (const uint32_t dwChannel : channels)
    {
        strPayload += U32(dwChannel);
    }
    return Packet("OCHS", strPayload);
}

std::string Wire::Result(const char* pszCode, uint32_t dwID, uint32_t dwResult)
{
    return Packet(pszCode, U32(dwID) + U32(dwResult));
}

std::string Wire::Dfrt(uint32_t dwID, uint32_t dwResult, uint64_t ullSize, uint32_t dwTime)
{
    return Packet("DFRT",
                  U32(dwID) + U32(dwResult) + HighLow(ullSize) + U32(0x80) + U32(dwTime) + U32(0));
}

std::string Wire::Dfrb(uint32_t dwID, const std::string& strData)
{
    return Packet("DFRB", U32(dwID) + strData);
}

std::string Wire::Upfr(uint32_t dwID, uint32_t dwResult, uint64_t ullOffset)
{
    return Packet("UPFR", U32(dwID) + U32(dwResult) + U64(ullOffset));
}

std::string Wire::Cpkt(uint32_t dwChannel, const std::string& strData)
{
    return Packet("CPKT", U32(dwChannel) + strData);
}

uint32_t Wire::GetU32(const std::string& strPacket, size_t nOffset)
{
    return static_cast<uint32_t>(GetLittleEndian(strPacket, nOffset, 4));
}

uint64_t Wire::GetU64(const std::string& strPacket, size_t nOffset)
{
    return GetLittleEndian(strPacket, nOffset, 8);
}

std::string Wire::GetCode(const std::string& strPacket)
{
    if (strPacket.size() < 12)
    {
        return "????";
    }
    // The letters travel in reverse order.
    return std::string() + strPacket[7] + strPacket[6] + strPacket[5] + strPacket[4];
}

std::string Wire::WithoutVersion(const std::string& strPacket)
{
    return strPacket.size() < 4 ? std::string() : strPacket.substr(4);
}
