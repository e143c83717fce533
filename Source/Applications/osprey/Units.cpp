#include "Units.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

const double SHORTEST_RATED = 1e-6;  // seconds
const double LONGEST_SHOWN = 99.0 * 86400.0;

}  // namespace

std::string FormatBytes(Orb_U64 ullBytes)
{
    static const char* const UNITS[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    char szText[32];
    if (ullBytes < 1024)
    {
        snprintf(szText, sizeof szText, "%llu B", ullBytes);
        return szText;
    }
    double dValue = static_cast<double>(ullBytes) / 1024.0;
    size_t nUnit = 0;
    // 1023.95 would be printed as 1024.0 of the smaller unit.
    while (dValue >= 1023.95 && nUnit + 1 < sizeof UNITS / sizeof UNITS[0])
    {
        dValue /= 1024.0;
        ++nUnit;
    }
    snprintf(szText, sizeof szText, "%.1f %s", dValue, UNITS[nUnit]);
    return szText;
}

bool ParseSize(const std::string& strText, Orb_U64& ullBytes)
{
    static const char UNITS[] = "KMGTPE";
    const size_t nDigits = std::min(strText.find_first_not_of("0123456789"), strText.size());
    std::string strUnit = strText.substr(nDigits);
    if (nDigits == 0 || nDigits > 20 || (strUnit.size() != 1 && strUnit.size() % 3 != 0))
    {
        return false;
    }
    unsigned int dwShift = 0;
    if (!strUnit.empty())
    {
        const int nUnit = toupper(static_cast<unsigned char>(strUnit[0]));
        const char* pUnit = strchr(UNITS, nUnit);
        if (nUnit == 0 || pUnit == nullptr || (strUnit.size() > 1 && strUnit.substr(1) != "iB"))
        {
            return false;
        }
        dwShift = 10 * static_cast<unsigned int>(pUnit - UNITS + 1);
    }
    errno = 0;
    const Orb_U64 ullNumber = strtoull(strText.substr(0, nDigits).c_str(), nullptr, 10);
    ullBytes = ullNumber << dwShift;
    return errno == 0 && ullBytes >> dwShift == ullNumber;
}

std::string FormatRate(Orb_U64 ullBytes, double dSeconds)
{
    if (ullBytes == 0 || !(dSeconds > SHORTEST_RATED))
    {
        return std::string();
    }
    const double dRate = static_cast<double>(ullBytes) / dSeconds;
    return FormatBytes(dRate < 1e18 ? static_cast<Orb_U64>(dRate) : 0) + "/s";
}

std::string FormatDuration(double dSeconds)
{
    if (!(dSeconds >= 0.0) || dSeconds > LONGEST_SHOWN)
    {
        return "--:--";
    }
    const unsigned int dwAll = static_cast<unsigned int>(std::lround(dSeconds));
    const unsigned int dwHours = dwAll / 3600;
    char szText[32];
    if (dwHours >= 100)
    {
        snprintf(szText, sizeof szText, "%ud %02uh", dwHours / 24, dwHours % 24);
    }
    else if (dwHours > 0)
    {
        snprintf(szText, sizeof szText, "%u:%02u:%02u", dwHours, dwAll / 60 % 60, dwAll % 60);
    }
    else
    {
        snprintf(szText, sizeof szText, "%u:%02u", dwAll / 60, dwAll % 60);
    }
    return szText;
}

std::string FormatTaken(double dSeconds)
{
    if (!(dSeconds < 60.0))
    {
        return FormatDuration(dSeconds);
    }
    char szText[32];
    if (dSeconds >= 1.0)
    {
        snprintf(szText, sizeof szText, "%.1f s", dSeconds);
        return szText;
    }
    const double dMilliseconds = dSeconds * 1000.0;
    snprintf(szText, sizeof szText, dMilliseconds < 10.0 ? "%.1f ms" : "%.0f ms", dMilliseconds);
    return szText;
}

std::string FormatCount(Orb_U64 ullCount, const char* pszThing)
{
    return std::to_string(ullCount) + " " + pszThing + (ullCount == 1 ? "" : "s");
}

std::string FormatChannels(const std::vector<Orb_U32>& listChannels)
{
    std::string strResult = listChannels.size() == 1 ? "channel " : "channels ";
    for (size_t i = 0; i < listChannels.size(); ++i)
    {
        strResult += (i == 0 ? "" : ", ") + std::to_string(listChannels[i]);
    }
    return strResult;
}
