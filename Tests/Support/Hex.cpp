#include "Hex.h"

#include <cstdio>
#include <functional>

std::string Hex(const std::string& strBytes)
{
    const size_t nShown = strBytes.size() < 512 ? strBytes.size() : 512;
    std::string strText;
    char szByte[8];
    for (size_t i = 0; i < nShown; ++i)
    {
        snprintf(szByte, sizeof szByte, i == 0 ? "%02x" : " %02x",
                 static_cast<unsigned int>(static_cast<unsigned char>(strBytes[i])));
        strText += szByte;
    }
    if (nShown < strBytes.size())
    {
        strText += " ... " + std::to_string(strBytes.size()) + " bytes, hash " +
                   std::to_string(std::hash<std::string>()(strBytes));
    }
    return strText;
}

std::string Pattern(size_t nSize, unsigned int dwSeed)
{
    std::string strBytes(nSize, '\0');
    unsigned int dwState = dwSeed * 2654435761U + 12345;
    for (char& c : strBytes)
    {
        dwState = dwState * 1664525U + 1013904223U;
        c = static_cast<char>(dwState >> 24);
    }
    return strBytes;
}
