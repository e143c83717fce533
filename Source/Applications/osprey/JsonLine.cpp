#include "JsonLine.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Text.h"

namespace
{

std::string TimeText()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char szDay[32];
    strftime(szDay, sizeof szDay, "%Y-%m-%dT%H:%M:%S", &parts);
    char szText[48];
    snprintf(szText, sizeof szText, "%s.%03dZ", szDay, static_cast<int>(now.tv_nsec / 1000000));
    return szText;
}

// What moves or reorders what a terminal shows, and what readers may take for the end of a line,
// stands in strings only, where JSON has an escape for it.
std::string EscapeMisleading(const std::string& strLine)
{
    std::string strResult;
    strResult.reserve(strLine.size());
    for (size_t i = 0; i < strLine.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strLine, i, c);
        if (IsControl(c) || IsMisleading(c))
        {
            char szEscape[16];
            snprintf(szEscape, sizeof szEscape, "\\u%04x", static_cast<unsigned int>(c));
            strResult += szEscape;
        }
        else
        {
            strResult.append(strLine, i, nLength);
        }
        i += std::max<size_t>(nLength, 1);
    }
    return strResult;
}

}  // namespace

struct CJsonLine::CFields
{
    CFields() : m_json(nlohmann::ordered_json::object()) {}

    nlohmann::ordered_json m_json;
};

CJsonLine::CJsonLine(const char* pszEvent) : m_pFields(std::make_unique<CFields>())
{
    Text("time", TimeText());
    Text("event", pszEvent);
}

CJsonLine::~CJsonLine() = default;
CJsonLine::CJsonLine(CJsonLine&& other) noexcept = default;
CJsonLine& CJsonLine::operator=(CJsonLine&& other) noexcept = default;

CJsonLine& CJsonLine::Text(const char* pszKey, const std::string& strValue)
{
    m_pFields->m_json[pszKey] = strValue;
    return *this;
}

CJsonLine& CJsonLine::Number(const char* pszKey, Orb_U64 ullValue)
{
    m_pFields->m_json[pszKey] = ullValue;
    return *this;
}

CJsonLine& CJsonLine::Numbers(const char* pszKey, const std::vector<Orb_U32>& listValues)
{
    m_pFields->m_json[pszKey] = listValues;
    return *this;
}

CJsonLine& CJsonLine::Real(const char* pszKey, double dValue)
{
    m_pFields->m_json[pszKey] = std::isfinite(dValue) ? dValue : 0.0;
    return *this;
}

CJsonLine& CJsonLine::Flag(const char* pszKey, bool bValue)
{
    m_pFields->m_json[pszKey] = bValue;
    return *this;
}

CJsonLine& CJsonLine::Moved(Orb_U64 ullBytes, double dSeconds)
{
    const double dRate = dSeconds > 0.0 ? static_cast<double>(ullBytes) / dSeconds : 0.0;
    return Number("bytes", ullBytes).Real("seconds", dSeconds).Real("bytes_per_second", dRate);
}

std::string CJsonLine::ToString() const
{
    return EscapeMisleading(
        m_pFields->m_json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}
