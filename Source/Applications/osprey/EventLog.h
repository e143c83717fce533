#ifndef OSPREY_TOOL_EVENTLOG_H
#define OSPREY_TOOL_EVENTLOG_H

#include <string>

#include "CommandLine.h"
#include "JsonLine.h"
#include "Output.h"

// One line an event: text for people, with the local time before it, or JSON.
//
// Thread: any.
class CEventLog final
{
public:
    enum EStyle
    {
        STYLE_TEXT,
        STYLE_JSON,
        STYLE_QUIET,
    };

    CEventLog(COutput& output, EStyle eStyle) : m_output(output), m_eStyle(eStyle) {}

    // Writes "12:34:56 EVENT        TEXT", or the object.
    void Write(const CJsonLine& json, const char* pszEvent, const std::string& strText);

    EStyle Style() const
    {
        return m_eStyle;
    }

    // How lines that were left out are told, for COutputQueue.
    std::string GapLine(Orb_U64 ullLines) const;

private:
    COutput& m_output;
    const EStyle m_eStyle;
};

// The style that the command line asks for.
CEventLog::EStyle EventStyle(const COptions& options);

#endif
