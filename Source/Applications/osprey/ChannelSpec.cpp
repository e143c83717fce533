#include "ChannelSpec.h"

#include "Address.h"
#include "Text.h"

namespace
{

const char UDP_PREFIX[] = "udp:";
const size_t UDP_PREFIX_SIZE = sizeof UDP_PREFIX - 1;
const size_t LONGEST_CHANNEL = 10;  // digits

// Takes what follows the last cMark off the text. False when nothing follows it.
bool TakeSuffix(std::string& strText, char cMark, std::string& strSuffix)
{
    const size_t nAt = strText.rfind(cMark);
    if (nAt == std::string::npos)
    {
        return true;
    }
    strSuffix = strText.substr(nAt + 1);
    strText.resize(nAt);
    return !strSuffix.empty();
}

bool ParseUdp(std::string strText, bool bSource, CUdpSpec& udp, std::string& strReason)
{
    const unsigned short wLowest = bSource ? 0 : 1;
    if (bSource && !TakeSuffix(strText, '@', udp.m_strFrom))
    {
        strReason = "no address follows \"@\"";
        return false;
    }
    if (!TakeSuffix(strText, '%', udp.m_strInterface))
    {
        strReason = "no interface follows \"%\"";
        return false;
    }
    const size_t nColon = strText.rfind(':');
    if (nColon != std::string::npos)
    {
        udp.m_strHost = strText.substr(0, nColon);
        strText.erase(0, nColon + 1);
    }
    if (udp.m_strHost.empty() || udp.m_strHost.find(':') != std::string::npos)
    {
        strReason = "a name or an IPv4 address is needed before the port";
        return false;
    }
    if (!ParsePort(strText, wLowest, udp.m_wPort))
    {
        strReason = "the port is not a number from " + std::to_string(wLowest) + " to 65535";
        return false;
    }
    return true;
}

// Splits "N=REST"; strRest stays empty when there is no "=".
bool SplitChannel(const std::string& strText, Orb_U32& dwChannel, std::string& strRest,
                  std::string& strReason)
{
    const size_t nEqual = strText.find('=');
    if (!ParseChannel(strText.substr(0, nEqual), dwChannel))
    {
        strReason = "the channel is not a number from 0 to 4294967295";
        return false;
    }
    if (nEqual == std::string::npos)
    {
        return true;
    }
    strRest = strText.substr(nEqual + 1);
    if (strRest.empty())
    {
        strReason = "nothing follows \"=\"";
        return false;
    }
    return true;
}

bool IsUdp(const std::string& strText)
{
    return strText.compare(0, UDP_PREFIX_SIZE, UDP_PREFIX) == 0;
}

}  // namespace

std::string CUdpSpec::ToString() const
{
    return UDP_PREFIX + m_strHost + ":" + std::to_string(m_wPort) +
           (m_strInterface.empty() ? "" : "%" + m_strInterface) +
           (m_strFrom.empty() ? "" : "@" + m_strFrom);
}

std::string CSourceSpec::Shown() const
{
    switch (m_eKind)
    {
        case SOURCE_UDP:
            return PlainText(m_udp.ToString());
        case SOURCE_FILE:
            return QuoteText(m_strPath);
        default:
            return "standard input";
    }
}

std::string CSinkSpec::Shown() const
{
    switch (m_eKind)
    {
        case SINK_STATS:
            return "stats";
        case SINK_HEX:
            return "hex";
        case SINK_UDP:
            return PlainText(m_udp.ToString());
        case SINK_FILE:
            return QuoteText(m_strPath);
        default:
            return "standard output";
    }
}

bool ParseChannel(const std::string& strText, Orb_U32& dwChannel)
{
    if (strText.empty() || strText.size() > LONGEST_CHANNEL ||
        strText.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    const Orb_U64 ullValue = std::stoull(strText);
    if (ullValue > 0xFFFFFFFFULL)
    {
        return false;
    }
    dwChannel = static_cast<Orb_U32>(ullValue);
    return true;
}

bool ParseSource(const std::string& strText, CSourceSpec& spec, std::string& strReason)
{
    std::string strRest;
    if (!SplitChannel(strText, spec.m_dwChannel, strRest, strReason))
    {
        return false;
    }
    if (strRest.empty())
    {
        strReason = "a source is needed, as in 1=udp:5000";
        return false;
    }
    if (IsUdp(strRest))
    {
        spec.m_eKind = SOURCE_UDP;
        return ParseUdp(strRest.substr(UDP_PREFIX_SIZE), true, spec.m_udp, strReason);
    }
    spec.m_eKind = strRest == "-" ? SOURCE_INPUT : SOURCE_FILE;
    spec.m_strPath = strRest;
    return true;
}

bool ParseSink(const std::string& strText, CSinkSpec& spec, std::string& strReason)
{
    std::string strRest;
    if (!SplitChannel(strText, spec.m_dwChannel, strRest, strReason))
    {
        return false;
    }
    if (IsUdp(strRest))
    {
        spec.m_eKind = SINK_UDP;
        return ParseUdp(strRest.substr(UDP_PREFIX_SIZE), false, spec.m_udp, strReason);
    }
    if (strRest.empty() || strRest == "stats")
    {
        spec.m_eKind = SINK_STATS;
        return true;
    }
    spec.m_eKind = strRest == "hex" ? SINK_HEX : strRest == "-" ? SINK_OUTPUT : SINK_FILE;
    spec.m_strPath = strRest;
    return true;
}
