#include "EventLog.h"

#include <time.h>

#include <cstdio>

#include "Text.h"
#include "Units.h"

namespace
{

std::string EventLine(const char* pszEvent, const std::string& strText)
{
    const time_t now = time(nullptr);
    tm parts{};
    localtime_r(&now, &parts);
    char szHead[48];
    snprintf(szHead, sizeof szHead, "%02d:%02d:%02d %-12s ", parts.tm_hour, parts.tm_min,
             parts.tm_sec, pszEvent);
    return szHead + PlainText(strText);
}

}  // namespace

void CEventLog::Write(const CJsonLine& json, const char* pszEvent, const std::string& strText)
{
    if (m_eStyle == STYLE_JSON)
    {
        m_output.Line(json.ToString());
    }
    else if (m_eStyle == STYLE_TEXT)
    {
        m_output.Line(EventLine(pszEvent, strText));
    }
}

std::string CEventLog::GapLine(Orb_U64 ullLines) const
{
    if (m_eStyle == STYLE_JSON)
    {
        return CJsonLine("left_out").Number("lines", ullLines).ToString();
    }
    return m_eStyle == STYLE_QUIET
               ? std::string()
               : EventLine("left out", FormatCount(ullLines, "line") + " that nobody read in time");
}

CEventLog::EStyle EventStyle(const COptions& options)
{
    if (options.m_bQuiet)
    {
        return CEventLog::STYLE_QUIET;
    }
    return options.m_bJson ? CEventLog::STYLE_JSON : CEventLog::STYLE_TEXT;
}
