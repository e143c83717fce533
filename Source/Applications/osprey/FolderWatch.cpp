#include "FolderWatch.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "ServeTransfers.h"
#include "TempFile.h"
#include "Text.h"

namespace
{

const unsigned int EVENTS = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE |
                            IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

bool IsLeftOut(const std::string& strName)
{
    return strName.empty() || strName[0] == '.' || CServeTransfers::IsPartialName(strName);
}

std::string Below(const std::string& strFolder, const std::string& strName)
{
    return strFolder.empty() ? strName : JoinPath(strFolder, strName);
}

// A second name of a file that is there: no closing follows.
bool IsHardLink(const std::string& strPath)
{
    struct stat info
    {
    };
    return lstat(strPath.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink > 1;
}

// The name in a folder of a file that had none while it was written (O_TMPFILE): the system tells
// its closing under the number of its inode. Empty when there is none.
std::string LinkedName(const std::string& strFolder, const std::string& strClosed)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> pFolder(
        strClosed[0] == '#' ? opendir(strFolder.c_str()) : nullptr, closedir);
    while (const dirent* pEntry = pFolder ? readdir(pFolder.get()) : nullptr)
    {
        if (strClosed == "#" + std::to_string(pEntry->d_ino))
        {
            return pEntry->d_name;
        }
    }
    return std::string();
}

}  // namespace

CFolderWatch::~CFolderWatch()
{
    if (m_nNotify >= 0)
    {
        close(m_nNotify);
    }
}

std::string CFolderWatch::PathOf(const std::string& strName) const
{
    return strName.empty() ? m_strRoot : JoinPath(m_strRoot, strName);
}

bool CFolderWatch::Begin(std::string& strReason)
{
    if (m_nNotify >= 0)
    {
        close(m_nNotify);
    }
    m_bLost = false;
    m_mapFolders.clear();
    m_nNotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_nNotify < 0)
    {
        strReason = strerror(errno);
        return false;
    }
    return AddFolder("", strReason);
}

// Without recursion: a tree may be deeper than the stack.
bool CFolderWatch::AddFolder(const std::string& strFolder, std::string& strReason)
{
    std::set<std::string> setLeft = {strFolder};
    while (!setLeft.empty())
    {
        const std::string strNext = *setLeft.begin();
        setLeft.erase(setLeft.begin());
        if (!AddOne(strNext, setLeft, strReason))
        {
            return false;
        }
    }
    return true;
}

// It is watched before it is read, so that nothing comes unseen between the two.
bool CFolderWatch::AddOne(const std::string& strFolder, std::set<std::string>& setInner,
                          std::string& strReason)
{
    const std::string strPath = PathOf(strFolder);
    const unsigned int dwFollow =
        strFolder.empty() ? 0U : static_cast<unsigned int>(IN_DONT_FOLLOW);
    const int nWatch = inotify_add_watch(m_nNotify, strPath.c_str(), EVENTS | dwFollow);
    const std::unique_ptr<DIR, int (*)(DIR*)> pFolder(
        nWatch < 0 ? nullptr : opendir(strPath.c_str()), closedir);
    if (!pFolder)
    {
        // One that is gone again is not missed; one that nobody may read is left out.
        const int nError = errno;
        strReason = QuoteText(strPath) + ": " +
                    (nError == ENOSPC ? "the system watches no more folders" : strerror(nError));
        return !strFolder.empty() && nError != ENOSPC;
    }
    m_mapFolders[nWatch] = strFolder;
    while (const dirent* pEntry = readdir(pFolder.get()))
    {
        const std::string strName = Below(strFolder, pEntry->d_name);
        const EFileKind eKind =
            IsLeftOut(pEntry->d_name) ? KIND_MISSING : KindOf(PathOf(strName), false);
        if (eKind == KIND_FOLDER)
        {
            setInner.insert(strName);
        }
        else if (eKind == KIND_FILE)
        {
            m_setFiles.insert(strName);
        }
    }
    return true;
}

bool CFolderWatch::Read(std::string& strReason)
{
    alignas(inotify_event) char pBuffer[65536];
    ssize_t n = 0;
    while ((n = read(m_nNotify, pBuffer, sizeof pBuffer)) > 0)
    {
        for (ssize_t nAt = 0; nAt < n;)
        {
            const auto* pEvent = reinterpret_cast<const inotify_event*>(pBuffer + nAt);
            if (!Take(*pEvent, strReason))
            {
                return false;
            }
            nAt += static_cast<ssize_t>(sizeof *pEvent + pEvent->len);
        }
    }
    return !m_bLost || Begin(strReason);
}

bool CFolderWatch::Take(const inotify_event& event, std::string& strReason)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0)
    {
        m_bLost = true;
        return true;
    }
    const auto it = m_mapFolders.find(event.wd);
    if (it == m_mapFolders.end())
    {
        return true;
    }
    const std::string strFolder = it->second;
    if ((event.mask & IN_IGNORED) != 0)
    {
        m_mapFolders.erase(it);
    }
    if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0)
    {
        strReason = QuoteText(m_strRoot) + " is gone";
        return !strFolder.empty();
    }
    if (event.len == 0 || IsLeftOut(event.name))
    {
        return true;
    }
    const std::string strName = Below(strFolder, event.name);
    if ((event.mask & IN_ISDIR) != 0)
    {
        return TakeFolder(event.mask, strName, strReason);
    }
    if ((event.mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) != 0 ||
        ((event.mask & IN_CREATE) != 0 && IsHardLink(PathOf(strName))))
    {
        m_setFiles.insert(strName);
    }
    const std::string strLinked = (event.mask & IN_CLOSE_WRITE) == 0
                                      ? std::string()
                                      : LinkedName(PathOf(strFolder), event.name);
    if (!IsLeftOut(strLinked))
    {
        m_setFiles.insert(Below(strFolder, strLinked));
    }
    return true;
}

bool CFolderWatch::TakeFolder(unsigned int dwMask, const std::string& strName,
                              std::string& strReason)
{
    if ((dwMask & IN_MOVED_FROM) != 0)
    {
        // What is watched in it goes on under names that are not known: everything begins anew.
        m_bLost = true;
        return true;
    }
    return (dwMask & (IN_CREATE | IN_MOVED_TO)) == 0 || AddFolder(strName, strReason);
}

std::set<std::string> CFolderWatch::TakeFiles()
{
    std::set<std::string> setFiles;
    setFiles.swap(m_setFiles);
    return setFiles;
}
