#include "RootFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace
{

const int POINT = O_PATH | O_NOFOLLOW | O_CLOEXEC;

// The C library has no function for it.
CDescriptor OpenBeneath(const CDescriptor& root, const std::string& strPath)
{
    open_how how{};
    how.flags = POINT;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return CDescriptor(
        static_cast<int>(syscall(SYS_openat2, root.Get(), strPath.c_str(), &how, sizeof how)));
}

CDescriptor Copy(const CDescriptor& descriptor)
{
    return CDescriptor(fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, 3));
}

// A part of a path that is entered. Says ELOOP of a link, as openat2 does.
CDescriptor OpenPart(const CDescriptor& folder, const std::string& strName)
{
    CDescriptor part(openat(folder.Get(), strName.c_str(), POINT | O_DIRECTORY));
    if (!part.IsValid() && errno == ENOTDIR)
    {
        errno = KindAt(folder, strName) == KIND_LINK ? ELOOP : ENOTDIR;
    }
    return part;
}

bool SplitPath(const std::string& strPath, std::vector<std::string>& listParts)
{
    for (size_t nStart = 0; strPath != "." && nStart <= strPath.size();)
    {
        const size_t nEnd = std::min(strPath.find('/', nStart), strPath.size());
        listParts.push_back(strPath.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
        if (listParts.back().empty() || listParts.back() == "." || listParts.back() == "..")
        {
            errno = EINVAL;
            return false;
        }
    }
    return true;
}

}  // namespace

bool CRootFolder::Open(const std::string& strPath, std::string& strReason)
{
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strPath.c_str(), nullptr), free);
    if (!pReal)
    {
        strReason = strerror(errno);
        return false;
    }
    if (KindOf(pReal.get(), true) != KIND_FOLDER)
    {
        strReason = "it is not a folder";
        return false;
    }
    m_strPath = pReal.get();
    m_root = CDescriptor(open(m_strPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_root.IsValid())
    {
        strReason = strerror(errno);
        return false;
    }
    if (KindOf(m_root.Path(), true) != KIND_FOLDER)
    {
        strReason = "/proc is not there, which leads to open files";
        return false;
    }
    // An older kernel does not know the call, an emulator or a filter may refuse it.
    if (m_eMethod == METHOD_BEST && !OpenBeneath(m_root, ".").IsValid())
    {
        m_eMethod = METHOD_WALK;
    }
    return true;
}

CDescriptor CRootFolder::Find(const std::string& strPath) const
{
    return m_eMethod == METHOD_WALK ? Walk(strPath) : FindBeneath(strPath);
}

CDescriptor CRootFolder::FindBeneath(const std::string& strPath) const
{
    std::vector<std::string> listParts;
    if (!SplitPath(strPath, listParts))
    {
        return CDescriptor();
    }
    CDescriptor found = OpenBeneath(m_root, strPath);
    // The kernel gives up, for once, when somebody renames at the same time.
    return found.IsValid() || errno != EAGAIN ? std::move(found) : Walk(strPath);
}

CDescriptor CRootFolder::Walk(const std::string& strPath) const
{
    std::vector<std::string> listParts;
    CDescriptor folder = Copy(m_root);
    if (!SplitPath(strPath, listParts) || !folder.IsValid() || listParts.empty())
    {
        return listParts.empty() ? std::move(folder) : CDescriptor();
    }
    for (auto it = listParts.begin(); it + 1 != listParts.end() && folder.IsValid(); ++it)
    {
        folder = OpenPart(folder, *it);
    }
    return folder.IsValid() ? CDescriptor(openat(folder.Get(), listParts.back().c_str(), POINT))
                            : CDescriptor();
}

CDescriptor CRootFolder::MakeFolder(const std::string& strPath,
                                    std::vector<std::string>& listCreated) const
{
    std::vector<std::string> listParts;
    CDescriptor folder = Copy(m_root);
    if (!SplitPath(strPath, listParts))
    {
        return CDescriptor();
    }
    std::string strReached = ".";
    for (auto it = listParts.begin(); it != listParts.end() && folder.IsValid(); ++it)
    {
        strReached = JoinInside(strReached, *it);
        CDescriptor next = OpenPart(folder, *it);
        if (!next.IsValid() && errno == ENOENT)
        {
            const bool bMade = mkdirat(folder.Get(), it->c_str(), 0777) == 0;
            if (bMade)
            {
                listCreated.push_back(strReached);
            }
            if (bMade || errno == EEXIST)
            {
                next = OpenPart(folder, *it);
            }
        }
        folder = std::move(next);
    }
    return folder;
}

void CRootFolder::ForEachFile(const CVisit& fn) const
{
    std::vector<std::string> listFolders = {"."};
    while (!listFolders.empty())
    {
        const std::string strFolder = std::move(listFolders.back());
        listFolders.pop_back();
        const CDescriptor folder = Find(strFolder);
        const std::unique_ptr<DIR, int (*)(DIR*)> pEntries(opendir(folder.Path().c_str()),
                                                           closedir);
        while (const dirent* pEntry = pEntries ? readdir(pEntries.get()) : nullptr)
        {
            const std::string strName = pEntry->d_name;
            if (KindAt(folder, strName) != KIND_FOLDER)
            {
                fn(folder, strName);
            }
            else if (strName != "." && strName != "..")
            {
                listFolders.push_back(JoinInside(strFolder, strName));
            }
        }
    }
}

std::string JoinInside(const std::string& strFolder, const std::string& strName)
{
    return strFolder == "." ? strName : strFolder + "/" + strName;
}

EFileKind KindAt(const CDescriptor& folder, const std::string& strName)
{
    struct stat info
    {
    };
    return fstatat(folder.Get(), strName.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0
               ? KindOfMode(info.st_mode)
               : KIND_MISSING;
}
