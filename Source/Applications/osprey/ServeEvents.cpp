#include "ServeEvents.h"

#include "Text.h"
#include "Units.h"

namespace
{

const size_t LONGEST_NAME = 1024;  // bytes; as long as a connection's name of 259 units may get

// A peer's own words: nobody's log is filled with them.
std::string CutName(const std::string& strName)
{
    if (strName.size() <= LONGEST_NAME)
    {
        return strName;
    }
    size_t nEnd = LONGEST_NAME;
    while (nEnd > 0 && (static_cast<unsigned char>(strName[nEnd]) & 0xC0U) == 0x80)
    {
        --nEnd;
    }
    return strName.substr(0, nEnd) + "...";
}

std::string Who(const CConnectionName& connection)
{
    return connection ? QuoteText(CutName(*connection)) : "an unnamed connection";
}

std::string FromWhom(bool bUpload, const CConnectionName& connection)
{
    return (bUpload ? " from " : " to ") + Who(connection);
}

CJsonLine JsonOf(const char* pszEvent, const CConnectionName& connection)
{
    CJsonLine json(pszEvent);
    if (connection)
    {
        json.Text("connection", CutName(*connection));
    }
    return json;
}

const char* Direction(bool bUpload)
{
    return bUpload ? "upload" : "download";
}

}  // namespace

void CServeEvents::Listening(unsigned short wPort, const CServed* pServed,
                             const std::vector<Orb_U32>& listChannels)
{
    CJsonLine json("listening");
    json.Number("port", wPort);
    std::string strText = "on port " + std::to_string(wPort);
    if (pServed != nullptr)
    {
        json.Text("root", pServed->m_strRoot).Flag("read_only", pServed->m_bReadOnly);
        json.Text("sandbox", pServed->m_bSandbox ? "landlock" : "none");
        strText += ", serving " + QuoteText(pServed->m_strRoot) +
                   (pServed->m_bReadOnly ? " read-only" : "");
    }
    if (!listChannels.empty())
    {
        json.Numbers("channels", listChannels);
        strText += ", " + FormatChannels(listChannels);
    }
    m_log.Write(json, "listening", strText);
}

void CServeEvents::Stopped()
{
    m_log.Write(CJsonLine("stopped"), "stopped", "no connection is left");
}

void CServeEvents::Connected(const std::string& strConnection)
{
    m_log.Write(JsonOf("connected", strConnection), "connected", Who(strConnection));
}

void CServeEvents::Disconnected(const std::string& strConnection)
{
    m_log.Write(JsonOf("disconnected", strConnection), "disconnected", Who(strConnection));
}

void CServeEvents::TurnedAway(const std::string& strAddress, const std::string& strReason,
                              Orb_U64 ullCount)
{
    CJsonLine json("turned_away");
    json.Text("address", strAddress).Text("reason", strReason).Number("connections", ullCount);
    m_log.Write(json, "turned_away",
                (ullCount == 1 ? "" : FormatCount(ullCount, "connection") + ", the last from ") +
                    strAddress + ": " + strReason);
}

void CServeEvents::Finished(bool bUpload, const CConnectionName& connection,
                            const std::string& strShown, Orb_U64 ullBytes, double dSeconds)
{
    CJsonLine json = JsonOf(Direction(bUpload), connection);
    json.Text("path", strShown).Moved(ullBytes, dSeconds);
    const std::string strRate = FormatRate(ullBytes, dSeconds);
    m_log.Write(json, Direction(bUpload),
                QuoteText(strShown) + FromWhom(bUpload, connection) + ": " + FormatBytes(ullBytes) +
                    " in " + FormatTaken(dSeconds) + (strRate.empty() ? "" : ", " + strRate));
}

void CServeEvents::Incomplete(bool bUpload, const CConnectionName& connection,
                              const std::string& strShown, Orb_U64 ullBytes, Orb_U64 ullTotal,
                              const std::string& strKept)
{
    CJsonLine json = JsonOf("incomplete", connection);
    json.Text("request", Direction(bUpload)).Text("path", strShown);
    json.Number("bytes", ullBytes).Number("total", ullTotal);
    std::string strText = std::string(Direction(bUpload)) + " of " + QuoteText(strShown) +
                          FromWhom(bUpload, connection) + ": ended at " + FormatBytes(ullBytes) +
                          " of " + FormatBytes(ullTotal);
    if (!strKept.empty())
    {
        json.Text("kept", strKept);
        strText += ", kept as " + QuoteText(strKept);
    }
    m_log.Write(json, "incomplete", strText);
}

void CServeEvents::FolderCreated(const CConnectionName& connection, const std::string& strShown)
{
    CJsonLine json = JsonOf("folder", connection);
    m_log.Write(json.Text("path", strShown), "folder",
                QuoteText(strShown) + " created for " + Who(connection));
}

void CServeEvents::Deleted(const CConnectionName& connection, const std::string& strShown)
{
    CJsonLine json = JsonOf("deleted", connection);
    m_log.Write(json.Text("path", strShown), "deleted",
                QuoteText(strShown) + " for " + Who(connection));
}

void CServeEvents::Refused(const char* pszRequest, const CConnectionName& connection,
                           const std::string& strName, const std::string& strReason)
{
    WriteFault("refused", pszRequest, connection, strName, strReason);
}

void CServeEvents::Failed(const char* pszRequest, const CConnectionName& connection,
                          const std::string& strShown, const std::string& strReason)
{
    WriteFault("failed", pszRequest, connection, strShown, strReason);
}

void CServeEvents::WriteFault(const char* pszEvent, const char* pszRequest,
                              const CConnectionName& connection, const std::string& strName,
                              const std::string& strReason)
{
    CJsonLine json = JsonOf(pszEvent, connection);
    const std::string strCut = CutName(strName);
    json.Text("request", pszRequest).Text("name", strCut).Text("reason", strReason);
    m_log.Write(json, pszEvent,
                std::string(pszRequest) + " of " + QuoteText(strCut) + " by " + Who(connection) +
                    ": " + strReason);
}
