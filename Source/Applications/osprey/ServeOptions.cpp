#include "ServeOptions.h"

#include "Text.h"
#include "Units.h"

namespace
{

const unsigned int MOST_CONNECTIONS = 1000000;

bool CheckSize(const char* pszOption, const std::string& strText, Orb_U64& ullSize,
               std::string& strReason)
{
    if (strText.empty() || (ParseSize(strText, ullSize) && ullSize > 0))
    {
        return true;
    }
    strReason = std::string(pszOption) +
                ": not a size, as 500K, 10M or 2G with units of 1024: " + QuoteText(strText);
    return false;
}

}  // namespace

void AddQuotas(CLI::App& command, CRaw& raw)
{
    command.add_option("--max-file", raw.m_strMaxFile, "Largest file to take, as 10M [no limit]")
        ->type_name("SIZE");
    command
        .add_option("--max-total", raw.m_strMaxTotal,
                    "Bytes that uploads may fill DIR up to [no limit]")
        ->type_name("SIZE");
}

void AddAdmission(CLI::App& command, COptions& options, CRaw& raw)
{
    command
        .add_option("--max-connections", options.m_admission.m_dwMostConnections,
                    "Close further connections at once [no limit]")
        ->type_name("N")
        ->check(CLI::Range(1U, MOST_CONNECTIONS).description(""));
    command.add_option("--allow", raw.m_listAllow, "Take connections from these only; repeatable")
        ->type_name("ADDR[/BITS]")
        ->allow_extra_args(false);
}

bool CheckLimits(COptions& options, const CRaw& raw, std::string& strReason)
{
    for (const std::string& strText : raw.m_listAllow)
    {
        CAddressRange range;
        if (!ParseRange(strText, range))
        {
            strReason =
                "--allow: not an IPv4 address, as 10.0.0.7 or 10.0.0.0/8: " + QuoteText(strText);
            return false;
        }
        options.m_admission.m_listAllowed.push_back(range);
    }
    return CheckSize("--max-file", raw.m_strMaxFile, options.m_ullMaxFile, strReason) &&
           CheckSize("--max-total", raw.m_strMaxTotal, options.m_ullMaxTotal, strReason);
}
