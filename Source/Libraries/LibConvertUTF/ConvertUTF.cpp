#include "ConvertUTF.h"

#include <utf8.h>

#include <iterator>

namespace
{

const char32_t REPLACEMENT = 0xFFFD;

bool IsLeadSurrogate(unsigned short wUnit)
{
    return wUnit >= 0xD800 && wUnit <= 0xDBFF;
}

bool IsTrailSurrogate(unsigned short wUnit)
{
    return wUnit >= 0xDC00 && wUnit <= 0xDFFF;
}

// The library's own UTF-16 conversion stops at the first unpaired surrogate, so they go first.
CUTF16String ReplaceUnpairedSurrogates(const unsigned short* pText, size_t nUnits)
{
    CUTF16String strUnits(pText, nUnits);
    for (size_t i = 0; i < nUnits; ++i)
    {
        if (IsLeadSurrogate(strUnits[i]) && i + 1 < nUnits && IsTrailSurrogate(strUnits[i + 1]))
        {
            ++i;
        }
        else if (IsLeadSurrogate(strUnits[i]) || IsTrailSurrogate(strUnits[i]))
        {
            strUnits[i] = static_cast<unsigned short>(REPLACEMENT);
        }
    }
    return strUnits;
}

}  // namespace

std::string CConvertUTF::UTF16SToUTF8S(const unsigned short* pText, int nLength)
{
    std::string strResult;
    if (nLength > 1)
    {
        const CUTF16String strUnits =
            ReplaceUnpairedSurrogates(pText, static_cast<size_t>(nLength) - 1);
        utf8::utf16to8(strUnits.begin(), strUnits.end(), std::back_inserter(strResult));
    }
    return strResult;
}

CUTF16String CConvertUTF::UTF8SToUTF16S(const char* pText, int nLength)
{
    CUTF16String strResult;
    if (nLength > 1)
    {
        std::string strValid;
        utf8::replace_invalid(pText, pText + nLength - 1, std::back_inserter(strValid),
                              REPLACEMENT);
        utf8::utf8to16(strValid.begin(), strValid.end(), std::back_inserter(strResult));
    }
    return strResult;
}
