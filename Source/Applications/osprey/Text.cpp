#include "Text.h"

#include <clocale>
#include <cstdio>
#include <cwchar>

namespace
{

const char ELLIPSIS[] = "\xE2\x80\xA6";

struct CLead
{
    unsigned char cMask;
    unsigned char cBits;
    size_t nLength;
    char32_t cLowest;  // anything below would have fitted a shorter sequence
};

const CLead LEADS[] = {
    {0x80, 0x00, 1, 0x0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

bool IsContinuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

std::string EscapePoint(char32_t c)
{
    char szText[16];
    switch (c)
    {
        case U'\n':
            return "\\n";
        case U'\r':
            return "\\r";
        case U'\t':
            return "\\t";
        default:
            snprintf(szText, sizeof szText, c < 0x80 ? "\\x%02X" : "\\u{%04X}",
                     static_cast<unsigned int>(c));
            return szText;
    }
}

std::string Escape(const std::string& strText, bool bQuoted)
{
    std::string strResult;
    for (size_t i = 0; i < strText.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        if (nLength == 0)
        {
            char szText[8];
            snprintf(szText, sizeof szText, "\\x%02X", static_cast<unsigned char>(strText[i]));
            strResult += szText;
            ++i;
            continue;
        }
        if (IsControl(c) || IsMisleading(c))
        {
            strResult += EscapePoint(c);
        }
        else
        {
            if (bQuoted && (c == U'"' || c == U'\\'))
            {
                strResult += '\\';
            }
            strResult.append(strText, i, nLength);
        }
        i += nLength;
    }
    return strResult;
}

// Widths come from the C library's tables, which need a UTF-8 locale to be of use.
int PointColumns(char32_t c)
{
    static const bool bLocale = setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    const int nColumns = bLocale ? wcwidth(static_cast<wchar_t>(c)) : 1;
    return nColumns < 0 ? 1 : nColumns;
}

}  // namespace

size_t DecodeUTF8(const std::string& strText, size_t nAt, char32_t& cPoint)
{
    if (nAt >= strText.size())
    {
        return 0;
    }
    const unsigned char cFirst = static_cast<unsigned char>(strText[nAt]);
    for (const CLead& lead : LEADS)
    {
        if ((cFirst & lead.cMask) != lead.cBits)
        {
            continue;
        }
        if (strText.size() - nAt < lead.nLength)
        {
            return 0;
        }
        char32_t c = cFirst & static_cast<unsigned char>(~lead.cMask);
        for (size_t i = 1; i < lead.nLength; ++i)
        {
            const unsigned char cNext = static_cast<unsigned char>(strText[nAt + i]);
            if (!IsContinuation(cNext))
            {
                return 0;
            }
            c = (c << 6) | (cNext & 0x3FU);
        }
        cPoint = c;
        const bool bSurrogate = c >= 0xD800 && c <= 0xDFFF;
        return c < lead.cLowest || c > 0x10FFFF || bSurrogate ? 0 : lead.nLength;
    }
    return 0;
}

bool IsValidUTF8(const std::string& strText)
{
    for (size_t i = 0; i < strText.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        if (nLength == 0)
        {
            return false;
        }
        i += nLength;
    }
    return true;
}

bool IsCleanText(const std::string& strText)
{
    for (size_t i = 0; i < strText.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        if (nLength == 0 || IsControl(c))
        {
            return false;
        }
        i += nLength;
    }
    return true;
}

bool IsControl(char32_t cPoint)
{
    return cPoint < 0x20 || (cPoint >= 0x7F && cPoint <= 0x9F);
}

bool IsMisleading(char32_t cPoint)
{
    return cPoint == 0x61C || (cPoint >= 0x200B && cPoint <= 0x200F) ||
           (cPoint >= 0x2028 && cPoint <= 0x202E) || (cPoint >= 0x2066 && cPoint <= 0x2069) ||
           cPoint == 0xFEFF;
}

std::string QuoteText(const std::string& strText)
{
    return '"' + Escape(strText, true) + '"';
}

std::string PlainText(const std::string& strText)
{
    return Escape(strText, false);
}

std::string EscapeName(const std::string& strName)
{
    std::string strResult;
    for (const char c : strName)
    {
        const bool bPlain = c != '\\' && c != '\n' && c != '\r';
        strResult += bPlain ? "" : "\\";
        strResult += c == '\n' ? 'n' : c == '\r' ? 'r' : c;
    }
    return strResult;
}

bool UnescapeName(const std::string& strText, std::string& strName)
{
    strName.clear();
    for (size_t i = 0; i < strText.size(); ++i)
    {
        if (strText[i] != '\\')
        {
            strName += strText[i];
            continue;
        }
        const char c = ++i < strText.size() ? strText[i] : '\0';
        if (c != '\\' && c != 'n' && c != 'r')
        {
            return false;
        }
        strName += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
    }
    return true;
}

int TextColumns(const std::string& strText)
{
    int nColumns = 0;
    for (size_t i = 0; i < strText.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        nColumns += nLength == 0 ? 1 : PointColumns(c);
        i += nLength == 0 ? 1 : nLength;
    }
    return nColumns;
}

std::string ShortenText(const std::string& strText, int nColumns)
{
    int nLeft = TextColumns(strText);
    if (nLeft <= nColumns)
    {
        return strText;
    }
    if (nColumns <= 0)
    {
        return std::string();
    }
    size_t i = 0;
    // A mark of no width belongs to the character before it and goes with it.
    while (i < strText.size())
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        const int nWidth = nLength == 0 ? 1 : PointColumns(c);
        if (nLeft <= nColumns - 1 && nWidth > 0)
        {
            break;
        }
        nLeft -= nWidth;
        i += nLength == 0 ? 1 : nLength;
    }
    return ELLIPSIS + strText.substr(i);
}

bool ToUTF16(const std::string& strText, std::vector<unsigned short>& listUnits)
{
    listUnits.clear();
    for (size_t i = 0; i < strText.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        if (nLength == 0)
        {
            return false;
        }
        if (c >= 0x10000)
        {
            listUnits.push_back(static_cast<unsigned short>(0xD800 + ((c - 0x10000) >> 10)));
            c = 0xDC00 + ((c - 0x10000) & 0x3FF);
        }
        listUnits.push_back(static_cast<unsigned short>(c));
        i += nLength;
    }
    listUnits.push_back(0);
    return true;
}
