#ifndef OSPREY_TOOL_SUBMITLIST_H
#define OSPREY_TOOL_SUBMITLIST_H

#include <functional>
#include <string>
#include <vector>

#include "LibOsprey.h"

// One thing to send.
struct CSubmitEntry
{
    std::string m_strPath;  // local
    size_t m_nBase = 0;     // leading bytes of the path that are not sent
    bool m_bFolder = false;
    Orb_U64 m_ullSize = 0;  // of a file

    // What is sent of the path, with "/".
    std::string Shown() const;
};

// Why a name cannot be sent; null when it can.
const char* SendFault(const std::string& strName);

// Finds what a list of paths holds: for each path its folders first, a folder before those in it,
// then the files; each sorted by name. Links to files count as files. Links to folders are left
// out, but for a path that was named itself; devices, FIFOs and sockets are left out.
//
// A name with a backslash would arrive as a folder and a name in it, one that is no UTF-8 under
// another name: both fail.
class CSubmitList final
{
public:
    using CReport = std::function<void(const std::string& strPath, const std::string& strReason)>;

    // fnWarn is told what is left out, fnFail what cannot be sent.
    CSubmitList(CReport fnWarn, CReport fnFail);

    // Two paths that would arrive under one name are refused, with a reason, before anything is
    // looked for.
    bool Add(const std::vector<std::string>& listPaths, std::string& strReason);

    // From now on all folders stand before all files.
    void PutFoldersFirst();

    // Takes out the files that fnIs names.
    void DropFiles(const std::function<bool(const CSubmitEntry&)>& fnIs);

    // Two files may arrive under one name: the topmost folder, which has none of its own, was added
    // beside another path.
    bool MayHaveTwins() const;

    const std::vector<CSubmitEntry>& Entries() const;
    size_t Files() const;
    Orb_U64 Bytes() const;

private:
    struct CRoot
    {
        std::string m_strPath;
        size_t m_nBase = 0;
    };

    static bool RootOf(const std::string& strPath, CRoot& root);
    void AddRoot(const CRoot& root);
    void AddEntry(const std::string& strPath, size_t nBase, bool bNamed,
                  std::vector<CSubmitEntry>& listFiles, std::vector<std::string>& listFolders);
    bool CheckName(const std::string& strPath, size_t nBase);

    CReport m_fnWarn;
    CReport m_fnFail;
    std::vector<CSubmitEntry> m_listEntries;
    bool m_bMayHaveTwins = false;
    size_t m_nFiles = 0;
    Orb_U64 m_ullBytes = 0;
};

#endif
