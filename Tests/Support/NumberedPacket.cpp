#include "NumberedPacket.h"

#include "WireRecords.h"

std::string NumberedPacket(unsigned int dwChannel, unsigned int dwNumber, size_t nSize)
{
    std::string strPacket = Wire::U32(dwChannel) + Wire::U32(dwNumber);
    strPacket.resize(nSize, static_cast<char>(static_cast<unsigned char>(dwChannel + dwNumber)));
    return strPacket;
}

std::string VariedPacket(unsigned int dwChannel, unsigned int dwNumber)
{
    return NumberedPacket(dwChannel, dwNumber, 8 + dwNumber * 97U % 1493U);
}
