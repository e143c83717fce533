#include "Outcome.h"

#include <cstdio>

namespace
{

const char FORMAT[] = "%-9s %5s %4s %4s %-45s  %-14s %7s %7s %7s %7s  %s\n";

std::string Line(const std::vector<std::string>& cells)
{
    char szLine[256];
    snprintf(szLine, sizeof szLine, FORMAT, cells[0].c_str(), cells[1].c_str(), cells[2].c_str(),
             cells[3].c_str(), cells[4].c_str(), cells[5].c_str(), cells[6].c_str(),
             cells[7].c_str(), cells[8].c_str(), cells[9].c_str(), cells[10].c_str());
    return szLine;
}

std::string Seconds(double dSeconds)
{
    char szNumber[32];
    snprintf(szNumber, sizeof szNumber, "%.2f", dSeconds);
    return dSeconds < 0 ? "-" : szNumber;
}

}  // namespace

void COutcome::Forbid(bool bIs, const std::string& strWhat)
{
    if (bIs)
    {
        m_violations.push_back(strWhat);
    }
}

std::string COutcome::GetText(const CSetting& setting) const
{
    std::string strText = Line(
        {setting.m_strKind, std::to_string(setting.m_nDelayMs), std::to_string(setting.m_nLoss),
         setting.IsForGood() ? "ever" : std::to_string(setting.m_nCutSeconds), setting.GetOthers(),
         m_strEnd, Seconds(m_dSeconds), Seconds(m_dClientKnew), Seconds(m_dServerKnew),
         Seconds(m_dBack), m_violations.empty() ? "ok" : "VIOLATED"});
    for (const std::string& strViolation : m_violations)
    {
        strText += "    " + strViolation + "\n";
    }
    return strText;
}

std::string GetTableHead()
{
    return Line({"", "delay", "loss", "cut", "other", "", "", "client", "server", "back", ""}) +
           Line({"what", "ms", "%", "s", "faults", "end", "after s", "knew s", "knew s", "s", ""});
}
