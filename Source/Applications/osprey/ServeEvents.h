#ifndef OSPREY_TOOL_SERVEEVENTS_H
#define OSPREY_TOOL_SERVEEVENTS_H

#include <optional>
#include <string>

#include "JsonLine.h"
#include "LibOsprey.h"
#include "Output.h"

// The name that a peer gave to its connection, if it gave one. Peers choose it; two may be the
// same.
using CConnectionName = std::optional<std::string>;

// One line an event of the server: text for people, or JSON. Names are quoted, so that whatever a
// peer sends stays on its line.
//
// Thread: any.
class CServeEvents final
{
public:
    enum EStyle
    {
        STYLE_TEXT,
        STYLE_JSON,
        STYLE_QUIET,
    };

    CServeEvents(COutput& output, EStyle eStyle);

    void Listening(unsigned short wPort, const std::string& strRoot, bool bReadOnly);
    void Stopped();

    void Connected(const std::string& strConnection);
    void Disconnected(const std::string& strConnection);

    // A file has arrived or left, whole.
    void Finished(bool bUpload, const CConnectionName& connection, const std::string& strShown,
                  Orb_U64 ullBytes, double dSeconds);

    // A transfer ended before its end; strKept names the file that keeps what arrived, if any.
    void Incomplete(bool bUpload, const CConnectionName& connection, const std::string& strShown,
                    Orb_U64 ullBytes, Orb_U64 ullTotal, const std::string& strKept);

    void FolderCreated(const CConnectionName& connection, const std::string& strShown);
    void Deleted(const CConnectionName& connection, const std::string& strShown);

    // Not allowed: pszRequest is what the peer asked for ("upload"), strName its own words.
    void Refused(const char* pszRequest, const CConnectionName& connection,
                 const std::string& strName, const std::string& strReason);

    // Allowed, but the system did not let it happen.
    void Failed(const char* pszRequest, const CConnectionName& connection,
                const std::string& strShown, const std::string& strReason);

private:
    void Write(const CJsonLine& json, const char* pszEvent, const std::string& strText);
    void WriteFault(const char* pszEvent, const char* pszRequest, const CConnectionName& connection,
                    const std::string& strName, const std::string& strReason);

    COutput& m_output;
    EStyle m_eStyle;
};

#endif
