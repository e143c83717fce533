#ifndef OSPREY_TOOL_FOLDERWATCH_H
#define OSPREY_TOOL_FOLDERWATCH_H

#include <map>
#include <set>
#include <string>

// Tells which files may have appeared in a folder and those below it: written and closed, moved in,
// or there when the folder itself came. The same file may be told several times; when the system
// has lost count, all are.
//
// Links are not followed. What begins with "." is left out, folders and all, and so is what a
// server keeps of an upload that broke off: names that files have while they are made.
//
// Thread: one.
class CFolderWatch final
{
public:
    explicit CFolderWatch(const std::string& strRoot) : m_strRoot(strRoot) {}
    ~CFolderWatch();
    CFolderWatch(const CFolderWatch&) = delete;
    CFolderWatch& operator=(const CFolderWatch&) = delete;

    // Begins anew: every file has appeared. False with a reason.
    bool Begin(std::string& strReason);

    // Readable when Read has something to do.
    int Descriptor() const
    {
        return m_nNotify;
    }
    // False with a reason when the folder is gone, or no more can be watched.
    bool Read(std::string& strReason);

    // Names below the folder, with "/"; each once.
    std::set<std::string> TakeFiles();

private:
    bool AddFolder(const std::string& strFolder, std::string& strReason);
    bool AddOne(const std::string& strFolder, std::set<std::string>& setInner,
                std::string& strReason);
    bool Take(const struct inotify_event& event, std::string& strReason);
    bool TakeFolder(unsigned int dwMask, const std::string& strName, std::string& strReason);
    std::string PathOf(const std::string& strName) const;

    const std::string m_strRoot;
    int m_nNotify = -1;
    bool m_bLost = false;  // what is known is not all any more
    std::map<int, std::string> m_mapFolders;
    std::set<std::string> m_setFiles;
};

#endif
