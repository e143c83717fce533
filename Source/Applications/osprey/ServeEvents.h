#ifndef OSPREY_TOOL_SERVEEVENTS_H
#define OSPREY_TOOL_SERVEEVENTS_H

#include <optional>
#include <string>
#include <vector>

#include "EventLog.h"
#include "LibOsprey.h"

// The name that a peer gave to its connection, if it gave one. Peers choose it; two may be the
// same.
using CConnectionName = std::optional<std::string>;

// One line an event of the server: text for people, or JSON. Names are quoted, so that whatever a
// peer sends stays on its line; of those that may be of any length, a kibibyte is told.
//
// Thread: any.
class CServeEvents final
{
public:
    // The log must outlive this object.
    explicit CServeEvents(CEventLog& log) : m_log(log) {}

    // The folder that is served, and how.
    struct CServed
    {
        std::string m_strRoot;
        bool m_bReadOnly = false;
        bool m_bSandbox = false;  // the kernel confines the server to it
    };

    // pServed: null when no folder is served. listChannels: the channels that are published.
    void Listening(unsigned short wPort, const CServed* pServed,
                   const std::vector<Orb_U32>& listChannels);
    void Stopped();

    void Connected(const std::string& strConnection);
    void Disconnected(const std::string& strConnection);

    // Connections that were closed at once: how many, and the last one's address and fault.
    void TurnedAway(const std::string& strAddress, const std::string& strReason, Orb_U64 ullCount);

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
    void WriteFault(const char* pszEvent, const char* pszRequest, const CConnectionName& connection,
                    const std::string& strName, const std::string& strReason);

    CEventLog& m_log;
};

#endif
