#include "Setting.h"

#include <cstdlib>

namespace
{

struct CField
{
    const char* m_pszName;
    int CSetting::*m_pnValue;
};

const CField FIELDS[] = {
    {"delay", &CSetting::m_nDelayMs},       {"jitter", &CSetting::m_nJitterMs},
    {"loss", &CSetting::m_nLoss},           {"reorder", &CSetting::m_nReorder},
    {"duplicate", &CSetting::m_nDuplicate}, {"corrupt", &CSetting::m_nCorrupt},
    {"cut", &CSetting::m_nCutSeconds},      {"rate", &CSetting::m_nRateKbit},
    {"bytes", &CSetting::m_nBytes},         {"files", &CSetting::m_nFiles},
    {"seed", &CSetting::m_nSeed},           {"slack", &CSetting::m_nSlackSeconds},
};

bool TakeField(CSetting& setting, const std::string& strWord)
{
    const size_t nEquals = strWord.find('=');
    if (nEquals == std::string::npos || nEquals + 1 == strWord.size())
    {
        return false;
    }
    const std::string strValue = strWord.substr(nEquals + 1);
    for (const CField& field : FIELDS)
    {
        if (strWord.substr(0, nEquals) == field.m_pszName)
        {
            char* pszEnd = nullptr;
            const long nValue = strtol(strValue.c_str(), &pszEnd, 10);
            setting.*field.m_pnValue = strValue == "ever" ? -1 : static_cast<int>(nValue);
            return strValue == "ever" || (*pszEnd == '\0' && nValue >= 0);
        }
    }
    return false;
}

}  // namespace

bool CSetting::Parse(const std::vector<std::string>& words)
{
    if (words.empty())
    {
        return false;
    }
    m_strKind = words.front();
    for (size_t i = 1; i < words.size(); ++i)
    {
        if (!TakeField(*this, words[i]))
        {
            return false;
        }
    }
    return m_strKind == "upload" || m_strKind == "download" || m_strKind == "channel" ||
           m_strKind == "uploads" || m_strKind == "downloads";
}

std::string CSetting::GetOthers() const
{
    std::string strOthers;
    const auto fnAdd = [&](const char* pszName, int nValue)
    {
        if (nValue != 0)
        {
            strOthers += (strOthers.empty() ? "" : ",") + (pszName + std::to_string(nValue));
        }
    };
    fnAdd("jitter=", m_nJitterMs);
    fnAdd("reorder=", m_nReorder);
    fnAdd("duplicate=", m_nDuplicate);
    fnAdd("corrupt=", m_nCorrupt);
    return strOthers.empty() ? "-" : strOthers;
}
