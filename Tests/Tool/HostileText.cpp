#include "HostileText.h"

#include <algorithm>

#include "Text.h"

namespace
{

const size_t LONGEST = 255;

const char* const PIECES[] = {
    "\n",
    "\r\n",
    "\x1B[2J",
    "\x1B]0;title\x07",
    "\"",
    "\\",
    "\\n",
    "\x7F",
    "\xC2\x85",          // next line
    "\xC2\x9B",          // the one-character beginning of an escape sequence
    "\xE2\x80\xA8",      // line separator
    "\xE2\x80\xA9",      // paragraph separator
    "\xE2\x80\xAE",      // right-to-left override
    "\xE2\x81\xA6",      // left-to-right isolate
    "\xEF\xBB\xBF",      // byte order mark
    "\xEF\xBF\xBF",      // no character
    "\xC0\xAF",          // "/", overlong
    "\xED\xA0\x80",      // half a pair
    "\xF4\x90\x80\x80",  // past the end
    "\xE2\x82",          // cut short
    "a",
    "\xC3\xBC",
    "\xE6\x97\xA5",
    "\xF0\x9F\x98\x80",
    "\",\"event\":\"x",
    "},\n{",
};

}  // namespace

std::string CHostileText::Piece()
{
    switch (Below(4))
    {
        case 0:
            return std::string(1, static_cast<char>(Below(256)));
        case 1:
            return std::string(1, static_cast<char>(Below(32)));
        default:
            return PIECES[Below(std::size(PIECES))];
    }
}

std::string CHostileText::Next()
{
    // Every eighth is as long as a name can be.
    const size_t nSize = Below(8) == 0 ? LONGEST : 1 + Below(LONGEST);
    std::string strText;
    while (strText.size() < nSize)
    {
        strText += Piece();
    }
    return strText.substr(0, nSize);
}

std::string CHostileText::NextFileName()
{
    std::string strText = Next();
    std::replace(strText.begin(), strText.end(), '/', '_');
    std::replace(strText.begin(), strText.end(), '\0', '_');
    return strText == "." || strText == ".." ? "_" : strText;
}

bool IsHarmlessLine(const std::string& strLine)
{
    for (size_t i = 0; i < strLine.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strLine, i, c);
        if (nLength == 0 || IsControl(c) || IsMisleading(c))
        {
            return false;
        }
        i += nLength;
    }
    return true;
}
