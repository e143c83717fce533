#ifndef OSPREY_TOOL_JOURNAL_H
#define OSPREY_TOOL_JOURNAL_H

#include <sys/stat.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "LibOsprey.h"

// How a file is told from another one that had its path.
struct CFileStamp
{
    Orb_U64 m_ullSize = 0;
    long long m_llChanged = 0;  // nanoseconds since 1970
    Orb_U64 m_ullInode = 0;

    CFileStamp() = default;
    explicit CFileStamp(const struct stat& info);

    bool operator==(const CFileStamp& other) const;
    bool operator!=(const CFileStamp& other) const
    {
        return !(*this == other);
    }
};

// The stamp of what stands at a path, links followed. False when nothing does.
bool StampOf(const std::string& strPath, CFileStamp& stamp);

// What a run has finished, in a file, so that a later run of the same kind need not do it again.
//
//   osprey journal 1
//   SIZE CHANGED INODE NAME            a line a file; in NAME "\n" and "\\" stand for a line feed
//   ...                                and a backslash; the last line of a name counts
//
// Lines are added at the end, so that death at any moment leaves whole lines and at most one torn
// one; that, and any line that makes no sense, is passed over. The file is made with the first line
// and locked from then on: of several runs at once one notes, and the others go without.
//
// Thread: any.
class CJournal final
{
public:
    enum EOpen
    {
        OPEN_DONE,    // also when there was no file
        OPEN_BUSY,    // another run has it: nothing is read or noted
        OPEN_FAILED,  // with errno: nothing is noted
    };
    enum ESync
    {
        SYNC_NOW_AND_THEN,  // at most once a second: what is lost with the power is done again
        SYNC_ALWAYS,
    };

    // fnWarn is told, once, why nothing can be noted any more.
    CJournal(std::string strPath, ESync eSync, std::function<void(const std::string&)> fnWarn);
    ~CJournal();
    CJournal(const CJournal&) = delete;
    CJournal& operator=(const CJournal&) = delete;

    // Reads what is there. bCreate: makes and locks the file at once.
    EOpen Open(bool bCreate);
    // Forgets all that was read.
    void Restart();

    bool Has(const std::string& strName, const CFileStamp& stamp) const;
    void Add(const std::string& strName, const CFileStamp& stamp);
    // Of an open file.
    void Add(const std::string& strName, int nFile);

    // Writes it anew, without the names that fnKeep does not want.
    void Compact(const std::function<bool(const std::string& strName)>& fnKeep);
    // Lines in the file.
    size_t Lines() const;

    // All is finished: nothing is to be noted any more.
    void Remove();

private:
    EOpen Take(bool bCreate);
    void Load();
    void Parse(const std::string& strLine);
    bool Append(const std::string& strLine);
    bool Rewrite();
    bool IsInPlace() const;
    void Release();

    const std::string m_strPath;
    const ESync m_eSync;
    const std::function<void(const std::string&)> m_fnWarn;
    mutable std::mutex m_mutex;  // everything below
    int m_nFile = -1;            // locked
    bool m_bOff = false;         // nothing is noted any more
    size_t m_nLines = 0;
    double m_dSynced = 0.0;
    std::map<std::string, CFileStamp> m_mapDone;
};

// Where the tool keeps such files: $XDG_STATE_HOME/osprey, or ~/.local/state/osprey; made when it
// is missing. Empty when there is none to be had.
std::string StateFolder();

#endif
