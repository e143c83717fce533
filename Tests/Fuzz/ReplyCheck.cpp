#include "ReplyCheck.h"

#include <algorithm>

#include "FuzzInput.h"
#include "WireRecords.h"

namespace
{

struct CKind
{
    const char* m_pszCode;
    size_t m_nLeast;  // of the payload, in bytes
    size_t m_nMost;
};

const size_t HEADER_SIZE = 12;
const size_t LONG_NAME = 2048;

const CKind REPLIES[] = {
    {"NAMR", 8, 8},   {"CDRT", 8, 8},   {"DTRT", 8, 8},         {"UPBR", 8, 8},
    {"DFRT", 28, 28}, {"UPFR", 16, 16}, {"DFRB", 4, 4 + 65536}, {"CPKT", 4, 4 + 1500},
};

const CKind REQUESTS[] = {
    {"BROW", 0, 0},
    {"KEEP", 0, 0},
    {"CAOP", 4, 4},
    {"NAMC", 6, 4 + LONG_NAME},
    {"CDIR", 6, 4 + LONG_NAME},
    {"DELT", 6, 4 + LONG_NAME},
    {"DFIL", 14, 12 + LONG_NAME},
    {"UPFI", 34, 32 + LONG_NAME},
    {"UPFB", 8, 8 + 32768},
    {"OCHS", 4, 44},
};

const CKind* FindKind(const CKind* pBegin, const CKind* pEnd, const std::string& strHeader)
{
    const std::string strCode = Wire::GetCode(strHeader);
    const CKind* pKind =
        std::find_if(pBegin, pEnd, [&](const CKind& kind) { return strCode == kind.m_pszCode; });
    Require(pKind != pEnd, "only known packets are sent");
    return pKind;
}

void RequireChannelPacket(std::string_view payload)
{
    const unsigned int dwChannel = Wire::GetU32(std::string(payload.substr(0, 4)), 0);
    const std::string_view data = payload.substr(4);
    Require(data.find_first_not_of(GetChannelByte(dwChannel)) == std::string_view::npos,
            "a channel carries its own packets");
}

void RequirePackets(std::string_view bytes, const CKind* pBegin, const CKind* pEnd)
{
    while (bytes.size() >= HEADER_SIZE)
    {
        const CKind* pKind = FindKind(pBegin, pEnd, std::string(bytes.substr(0, HEADER_SIZE)));
        const uint64_t ullSize = GetClaimedSize(bytes) - HEADER_SIZE;
        Require(ullSize >= pKind->m_nLeast && ullSize <= pKind->m_nMost, "a packet has its size");
        bytes.remove_prefix(HEADER_SIZE);
        const std::string_view payload = bytes.substr(0, static_cast<size_t>(ullSize));
        if (pKind->m_pszCode[0] == 'C' && pKind->m_pszCode[1] == 'P' && payload.size() == ullSize)
        {
            RequireChannelPacket(payload);
        }
        bytes.remove_prefix(payload.size());
    }
}

}  // namespace

char GetChannelByte(unsigned int dwChannel)
{
    return static_cast<char>('0' + dwChannel % 64);
}

void RequireReplies(std::string_view bytes)
{
    RequirePackets(bytes, std::begin(REPLIES), std::end(REPLIES));
}

void RequireRequests(std::string_view bytes)
{
    RequirePackets(bytes, std::begin(REQUESTS), std::end(REQUESTS));
}
