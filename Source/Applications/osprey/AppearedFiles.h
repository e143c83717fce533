#ifndef OSPREY_TOOL_APPEAREDFILES_H
#define OSPREY_TOOL_APPEAREDFILES_H

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Journal.h"

// Files that have appeared in a folder and are not sent yet.
//
//   Add --> settles --> Ready --+--> Sent: noted in the journal, and gone from here
//             ^                 |
//             +-- later --------+--> Failed, or neither: it stays, and is ready again later
//
// A file settles while its size or time changes, or somebody has it open for writing.
//
// Thread: one, but for Sent and Failed, which any thread may call.
class CAppearedFiles final
{
public:
    // Milliseconds of a clock that never goes back.
    using CTime = long long;

    // The journal must outlive it.
    CAppearedFiles(const std::string& strRoot, CJournal& journal)
        : m_strRoot(strRoot), m_journal(journal)
    {
    }

    void Add(const std::set<std::string>& setNames, CTime now);

    // The files that may be sent now. What is in the journal, or gone, is forgotten.
    std::vector<std::string> Ready(CTime now);
    // When Ready is to be asked next; -1: when something was added.
    CTime NextTime() const;

    void Sent(const std::string& strName, const CFileStamp* pStamp);
    // It is ready again after a pause that grows. True when it is the first time.
    bool Failed(const std::string& strName, CTime now);

private:
    struct CFile
    {
        CFileStamp m_stamp;
        CTime m_due = 0;
        unsigned int m_dwFailures = 0;
    };
    enum EState
    {
        STATE_READY,
        STATE_SETTLES,
        STATE_GONE,
    };

    EState Look(const std::string& strName, CFile& file, CTime now) const;

    const std::string m_strRoot;
    CJournal& m_journal;
    mutable std::mutex m_mutex;  // of the next one
    std::map<std::string, CFile> m_mapFiles;
};

// Seconds to wait after so many failures in a row: 1, 2, 4, ... 30.
unsigned int PauseSeconds(unsigned int dwFailures);

#endif
