#include "Commands.h"

#include <cmath>
#include <sstream>

namespace
{

struct CValue
{
    const char* m_pszName;
    double CLinkSettings::*m_pdValue;
    double m_dMost;
};

const double DAY_MS = 86400000;

const CValue VALUES[] = {
    {"delay", &CLinkSettings::m_dDelayMs, DAY_MS},
    {"jitter", &CLinkSettings::m_dJitterMs, DAY_MS},
    {"loss", &CLinkSettings::m_dLoss, 100},
    {"reorder", &CLinkSettings::m_dReorder, 100},
    {"reorder-by", &CLinkSettings::m_dReorderMs, DAY_MS},
    {"duplicate", &CLinkSettings::m_dDuplicate, 100},
    {"corrupt", &CLinkSettings::m_dCorrupt, 100},
    {"rate", &CLinkSettings::m_dRateKbit, 1e8},
    {"queue", &CLinkSettings::m_dQueueMs, DAY_MS},
};

// A number from 0 to dMost and nothing behind it.
bool ReadNumber(std::istream& text, double dMost, double& dNumber)
{
    double dRead = 0;
    std::string strRest;
    if (!(text >> dRead) || !std::isfinite(dRead) || dRead < 0 || dRead > dMost ||
        (text >> strRest))
    {
        return false;
    }
    dNumber = dRead;
    return true;
}

std::chrono::milliseconds Seconds(double dSeconds)
{
    return std::chrono::milliseconds(static_cast<long long>(dSeconds * 1000));
}

}  // namespace

bool Obey(const std::string& strLine, CCuts::CTime now, CLinkSettings& settings, CCuts& cuts)
{
    std::istringstream text(strLine);
    std::string strCommand;
    text >> strCommand;
    for (const CValue& value : VALUES)
    {
        if (strCommand == value.m_pszName)
        {
            return ReadNumber(text, value.m_dMost, settings.*value.m_pdValue);
        }
    }
    const bool bAlone = (text >> std::ws).eof();
    if (strCommand == "join" && bAlone)
    {
        cuts.Join(now);
        return true;
    }
    double dSeconds = 0;
    if (strCommand != "cut" || (!bAlone && !ReadNumber(text, DAY_MS / 1000, dSeconds)))
    {
        return false;
    }
    cuts.Add(now, bAlone ? CCuts::CTime::max() : now + Seconds(dSeconds));
    return true;
}

bool AddCut(const std::string& strText, CCuts::CTime timeStart, CCuts& cuts)
{
    const size_t nColon = strText.find(':');
    std::istringstream from(strText.substr(0, nColon));
    double dFrom = 0;
    double dFor = 0;
    if (!ReadNumber(from, DAY_MS / 1000, dFrom))
    {
        return false;
    }
    CCuts::CTime timeTo = CCuts::CTime::max();
    if (nColon != std::string::npos)
    {
        std::istringstream length(strText.substr(nColon + 1));
        if (!ReadNumber(length, DAY_MS / 1000, dFor))
        {
            return false;
        }
        timeTo = timeStart + Seconds(dFrom) + Seconds(dFor);
    }
    cuts.Add(timeStart + Seconds(dFrom), timeTo);
    return true;
}

bool IsCutText(const std::string& strText)
{
    CCuts cuts;
    return AddCut(strText, CCuts::CTime(), cuts);
}

std::string CountersLine(const std::string& strName, const CCounters& counters)
{
    std::ostringstream line;
    line << strName << ": taken " << counters.m_ullTaken << ", given " << counters.m_ullGiven
         << ", lost " << counters.m_ullLost << ", reordered " << counters.m_ullReordered
         << ", duplicated " << counters.m_ullDuplicated << ", corrupted " << counters.m_ullCorrupted
         << ", overflowed " << counters.m_ullOverflowed << ", cut " << counters.m_ullCut;
    return line.str();
}
