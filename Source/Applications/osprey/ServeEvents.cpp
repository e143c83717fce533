#include "ServeEvents.h"

#include <time.h>

#include <cstdio>

#include "Text.h"
#include "Units.h"

namespace
{

// "12:34:56 upload        TEXT", local time.
std::string EventLine(const char* pszEvent, const std::string& strText)
{
    const time_t now = time(nullptr);
    tm parts{};
    localtime_r(&now, &parts);
    char szHead[48];
    snprintf(szHead, sizeof szHead, "%02d:%02d:%02d %-12s ", parts.tm_hour, parts.tm_min,
             parts.tm_sec, pszEvent);
    return szHead + strText;
}

std::string Who(const CConnectionName& connection)
{
    return connection ? QuoteText(*connection) : "an unnamed connection";
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
        json.Text("connection", *connection);
    }
    return json;
}

const char* Direction(bool bUpload)
{
    return bUpload ? "upload" : "download";
}

}  // namespace

CServeEvents::CServeEvents(COutput& output, EStyle eStyle) : m_output(output), m_eStyle(eStyle) {}

void CServeEvents::Listening(unsigned short wPort, const std::string& strRoot, bool bReadOnly)
{
    CJsonLine json("listening");
    json.Number("port", wPort).Text("root", strRoot).Flag("read_only", bReadOnly);
    Write(json, "listening",
          "on port " + std::to_string(wPort) + ", serving " + QuoteText(strRoot) +
              (bReadOnly ? " read-only" : ""));
}

void CServeEvents::Stopped()
{
    Write(CJsonLine("stopped"), "stopped", "no connection is left");
}

void CServeEvents::Connected(const std::string& strConnection)
{
    Write(JsonOf("connected", strConnection), "connected", QuoteText(strConnection));
}

void CServeEvents::Disconnected(const std::string& strConnection)
{
    Write(JsonOf("disconnected", strConnection), "disconnected", QuoteText(strConnection));
}

void CServeEvents::Finished(bool bUpload, const CConnectionName& connection,
                            const std::string& strShown, Orb_U64 ullBytes, double dSeconds)
{
    CJsonLine json = JsonOf(Direction(bUpload), connection);
    json.Text("path", strShown).Moved(ullBytes, dSeconds);
    const std::string strRate = FormatRate(ullBytes, dSeconds);
    Write(json, Direction(bUpload),
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
    Write(json, "incomplete", strText);
}

void CServeEvents::FolderCreated(const CConnectionName& connection, const std::string& strShown)
{
    CJsonLine json = JsonOf("folder", connection);
    Write(json.Text("path", strShown), "folder",
          QuoteText(strShown) + " created for " + Who(connection));
}

void CServeEvents::Deleted(const CConnectionName& connection, const std::string& strShown)
{
    CJsonLine json = JsonOf("deleted", connection);
    Write(json.Text("path", strShown), "deleted", QuoteText(strShown) + " for " + Who(connection));
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
    json.Text("request", pszRequest).Text("name", strName).Text("reason", strReason);
    Write(json, pszEvent,
          std::string(pszRequest) + " of " + QuoteText(strName) + " by " + Who(connection) + ": " +
              strReason);
}

void CServeEvents::Write(const CJsonLine& json, const char* pszEvent, const std::string& strText)
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
