// Names from the wire to UTF-8 and back, against a conversion written out here.
//
// Input: the size of the record in front of the name; whether the bytes are UTF-16 in a packet or
// UTF-8 from a host; the bytes.

#include <cstring>
#include <string>
#include <vector>

#include "ConvertUTF.h"
#include "FuzzInput.h"
#include "WXSPFraming.h"

namespace
{

const uint32_t REPLACEMENT = 0xFFFD;
const byte CANARY = 0xA5;

bool IsLead(uint32_t dwUnit)
{
    return dwUnit >= 0xD800 && dwUnit < 0xDC00;
}

bool IsTrail(uint32_t dwUnit)
{
    return dwUnit >= 0xDC00 && dwUnit < 0xE000;
}

void AppendUTF8(std::string& strText, uint32_t dwPoint)
{
    const int nMore = dwPoint < 0x80 ? 0 : dwPoint < 0x800 ? 1 : dwPoint < 0x10000 ? 2 : 3;
    const uint32_t dwMark = nMore == 0 ? 0 : 0xF00U >> (nMore + 1) & 0xFF;
    strText += static_cast<char>(dwMark | dwPoint >> (6 * nMore));
    for (int i = nMore; i-- > 0;)
    {
        strText += static_cast<char>(0x80 | (dwPoint >> (6 * i) & 0x3F));
    }
}

// What unpaired surrogates become is the only freedom in this direction.
std::string ToUTF8(const std::vector<uint32_t>& units)
{
    std::string strText;
    for (size_t i = 0; i < units.size(); ++i)
    {
        uint32_t dwPoint = units[i];
        if (IsLead(dwPoint) && i + 1 < units.size() && IsTrail(units[i + 1]))
        {
            dwPoint = 0x10000 + ((dwPoint - 0xD800) << 10) + (units[++i] - 0xDC00);
        }
        else if (IsLead(dwPoint) || IsTrail(dwPoint))
        {
            dwPoint = REPLACEMENT;
        }
        AppendUTF8(strText, dwPoint);
    }
    return strText;
}

CUTF16String ToUTF16(const std::string& strText)
{
    return CConvertUTF::UTF8SToUTF16S(strText.c_str(), static_cast<int>(strText.size()) + 1);
}

std::string ToUTF8(const CUTF16String& strUnits)
{
    return CConvertUTF::UTF16SToUTF8S(strUnits.c_str(), static_cast<int>(strUnits.size()) + 1);
}

std::vector<uint32_t> GetUnits(const CUTF16String& strUnits)
{
    return std::vector<uint32_t>(strUnits.begin(), strUnits.end());
}

// The units behind the record up to the first zero; false without one.
bool FindName(std::string_view payload, size_t nRecordSize, std::vector<uint32_t>& units)
{
    for (size_t i = nRecordSize; i + 2 <= payload.size(); i += 2)
    {
        const uint32_t dwUnit =
            static_cast<unsigned char>(payload[i]) |
            static_cast<unsigned int>(static_cast<unsigned char>(payload[i + 1])) << 8;
        if (dwUnit == 0)
        {
            return true;
        }
        units.push_back(dwUnit);
    }
    return false;
}

// The name goes onto the wire, at an odd address too, and comes back as the same text.
void RequireRoundTrip(const std::string& strText, size_t nShift)
{
    const CUTF16String strUnits = ToUTF16(strText);
    Require(ToUTF8(GetUnits(strUnits)) == ToUTF8(strUnits), "UTF-8 says what the units say");
    const size_t nSize = (strUnits.size() + 1) * 2;
    std::vector<byte> wire(nShift + nSize + 1, CANARY);
    WriteName(&wire[nShift], strUnits);
    Require(wire.back() == CANARY, "WriteName ends with the terminator");
    const std::string strBack = ReadName(&wire[nShift]);
    const std::string strWhole = ToUTF8(strUnits);
    Require(strBack == strWhole.substr(0, strWhole.find('\0')), "what was written is read");
}

void TryPacket(size_t nRecordSize, size_t nShift, std::string_view payload)
{
    std::vector<byte> storage(nShift + WXSP_HEADER_SIZE + payload.size());
    const PWXS_PACKET pPacket = reinterpret_cast<PWXS_PACKET>(&storage[nShift]);
    pPacket->dwDataSize = static_cast<uint32_t>(payload.size());
    if (!payload.empty())
    {
        memcpy(pPacket + 1, payload.data(), payload.size());
    }
    Require(HoldsRecord(pPacket, nRecordSize) == (nRecordSize <= payload.size()),
            "a record is held when all of it is there");
    std::vector<uint32_t> units;
    const bool bNamed = FindName(payload, nRecordSize, units);
    Require(HoldsNamedRecord(pPacket, nRecordSize) == bNamed, "a name ends inside its packet");
    if (bNamed)
    {
        const std::string strName = ReadName(GetRecord<byte>(pPacket) + nRecordSize);
        Require(strName == ToUTF8(units), "the name is what the units say");
        RequireRoundTrip(strName, nShift);
        Require(ToUTF8(ToUTF16(strName)) == strName, "valid text comes back unchanged");
    }
}

// Whatever a host calls a file becomes a name without an unpaired surrogate, the same every time.
void TryText(size_t nShift, std::string_view text)
{
    const std::string strText(text);
    const CUTF16String strUnits = ToUTF16(strText);
    const std::string strValid = ToUTF8(strUnits);
    Require(ToUTF16(strValid) == strUnits, "a second conversion changes nothing");
    for (size_t i = 0; i < strUnits.size(); ++i)
    {
        const bool bPair =
            IsLead(strUnits[i]) && i + 1 < strUnits.size() && IsTrail(strUnits[i + 1]);
        Require(bPair || !(IsLead(strUnits[i]) || IsTrail(strUnits[i])), "surrogates are paired");
        i += bPair ? 1 : 0;
    }
    Require(strUnits.find(static_cast<unsigned short>(REPLACEMENT)) != CUTF16String::npos ||
                strValid == strText,
            "text without a replacement was valid");
    RequireRoundTrip(strText, nShift);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static const size_t RECORD_SIZES[] = {0, sizeof(_WXS_CREATE_DIR), sizeof(_WXS_DOWN_FILE),
                                          sizeof(_WXS_UPLOAD_FILE)};
    CFuzzInput input(pData, nSize);
    const unsigned char cMode = input.TakeByte();
    const size_t nShift = cMode / 4 % 2;
    if (cMode / 8 % 2 == 0)
    {
        TryPacket(RECORD_SIZES[cMode % 4], nShift, input.TakeRest());
    }
    else
    {
        TryText(nShift, input.TakeRest());
    }
    return 0;
}
