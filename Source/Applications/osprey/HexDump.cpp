#include "HexDump.h"

#include <algorithm>
#include <cstdio>

#include "Units.h"

namespace
{

const size_t ROW_BYTES = 16;
const char DIGITS[] = "0123456789abcdef";

void AddByte(std::string& strText, char c)
{
    const unsigned char cByte = static_cast<unsigned char>(c);
    strText += DIGITS[cByte >> 4];
    strText += DIGITS[cByte & 0x0F];
}

void AddRow(std::string& strText, const char* pData, size_t nOffset, size_t nSize)
{
    char szOffset[32];
    snprintf(szOffset, sizeof szOffset, "  %04zx ", nOffset);
    strText += szOffset;
    for (size_t i = 0; i < ROW_BYTES; ++i)
    {
        strText += i == ROW_BYTES / 2 ? "  " : " ";
        i < nSize ? AddByte(strText, pData[nOffset + i]) : void(strText += "  ");
    }
    strText += "  |";
    for (size_t i = 0; i < nSize; ++i)
    {
        const char c = pData[nOffset + i];
        strText += c >= 0x20 && c < 0x7F ? c : '.';
    }
    strText += "|\n";
}

}  // namespace

std::string HexDump(Orb_U32 dwChannel, const char* pData, size_t nSize)
{
    std::string strText =
        "channel " + std::to_string(dwChannel) + ", " + FormatCount(nSize, "byte") + "\n";
    for (size_t i = 0; i < nSize; i += ROW_BYTES)
    {
        AddRow(strText, pData, i, std::min(ROW_BYTES, nSize - i));
    }
    return strText;
}

std::string HexDigits(const char* pData, size_t nSize)
{
    std::string strText;
    strText.reserve(nSize * 2);
    for (size_t i = 0; i < nSize; ++i)
    {
        AddByte(strText, pData[i]);
    }
    return strText;
}
