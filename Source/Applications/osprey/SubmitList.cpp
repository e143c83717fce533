#include "SubmitList.h"

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "TempFile.h"
#include "Text.h"

namespace
{

// The names in a folder, sorted. False with errno.
bool ReadFolder(const std::string& strPath, std::vector<std::string>& listNames)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> pFolder(opendir(strPath.c_str()), closedir);
    if (!pFolder)
    {
        return false;
    }
    errno = 0;
    while (const dirent* pEntry = readdir(pFolder.get()))
    {
        const std::string strName = pEntry->d_name;
        if (strName != "." && strName != "..")
        {
            listNames.push_back(strName);
        }
    }
    std::sort(listNames.begin(), listNames.end());
    return errno == 0;
}

}  // namespace

const char* SendFault(const std::string& strName)
{
    if (strName.find('\\') != std::string::npos)
    {
        return "a backslash in a name would arrive as a folder";
    }
    return IsValidUTF8(strName) ? nullptr : "the name is no UTF-8";
}

std::string CSubmitEntry::Shown() const
{
    return m_strPath.substr(m_nBase);
}

CSubmitList::CSubmitList(CReport fnWarn, CReport fnFail)
    : m_fnWarn(std::move(fnWarn)), m_fnFail(std::move(fnFail))
{
}

bool CSubmitList::Add(const std::vector<std::string>& listPaths, std::string& strReason)
{
    std::vector<CRoot> listRoots;
    std::map<std::string, std::string> mapNames;
    for (const std::string& strPath : listPaths)
    {
        CRoot root;
        if (!RootOf(strPath, root))
        {
            m_fnFail(strPath, strerror(errno));
            continue;
        }
        const auto inserted = mapNames.emplace(root.m_strPath.substr(root.m_nBase), strPath);
        if (!inserted.second)
        {
            strReason = QuoteText(inserted.first->second) + " and " + QuoteText(strPath) +
                        " would arrive under one name; send them one by one, with --to";
            return false;
        }
        listRoots.push_back(root);
    }
    m_bMayHaveTwins = mapNames.size() > 1 && mapNames.count("") > 0;
    for (const CRoot& root : listRoots)
    {
        AddRoot(root);
    }
    return true;
}

// What is sent of a path is its last part; "." and ".." stand for a folder that has a name of its
// own. The topmost folder has none: what is in it is sent.
bool CSubmitList::RootOf(const std::string& strPath, CRoot& root)
{
    std::string strTrimmed = strPath;
    while (strTrimmed.size() > 1 && strTrimmed.back() == '/')
    {
        strTrimmed.pop_back();
    }
    const std::string strName = NameOf(strTrimmed);
    if (strName.empty() || strName == "." || strName == "..")
    {
        const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strPath.c_str(), nullptr),
                                                           free);
        if (!pReal)
        {
            return false;
        }
        strTrimmed = pReal.get();
    }
    root.m_strPath = strTrimmed;
    root.m_nBase = strTrimmed.size() - NameOf(strTrimmed).size();
    return true;
}

void CSubmitList::AddRoot(const CRoot& root)
{
    std::vector<CSubmitEntry> listFiles;
    std::vector<std::string> listFolders;
    AddEntry(root.m_strPath, root.m_nBase, true, listFiles, listFolders);
    // Folders are walked without recursion: a tree may be deeper than the stack.
    while (!listFolders.empty())
    {
        const std::string strFolder = listFolders.back();
        listFolders.pop_back();
        std::vector<std::string> listNames;
        if (!ReadFolder(strFolder, listNames))
        {
            m_fnFail(strFolder, strerror(errno));
        }
        std::vector<std::string> listInner;
        for (const std::string& strName : listNames)
        {
            AddEntry(JoinPath(strFolder, strName), root.m_nBase, false, listFiles, listInner);
        }
        listFolders.insert(listFolders.end(), listInner.rbegin(), listInner.rend());
    }
    std::sort(listFiles.begin(), listFiles.end(),
              [](const auto& a, const auto& b) { return a.m_strPath < b.m_strPath; });
    for (CSubmitEntry& entry : listFiles)
    {
        ++m_nFiles;
        m_ullBytes += entry.m_ullSize;
        m_listEntries.push_back(std::move(entry));
    }
}

bool CSubmitList::CheckName(const std::string& strPath, size_t nBase)
{
    const char* pszFault = strPath.size() > nBase ? SendFault(NameOf(strPath)) : nullptr;
    if (pszFault != nullptr)
    {
        m_fnFail(strPath, pszFault);
    }
    return pszFault == nullptr;
}

void CSubmitList::AddEntry(const std::string& strPath, size_t nBase, bool bNamed,
                           std::vector<CSubmitEntry>& listFiles,
                           std::vector<std::string>& listFolders)
{
    struct stat info
    {
    };
    if (stat(strPath.c_str(), &info) != 0)
    {
        const bool bDangling = KindOf(strPath, false) == KIND_LINK;
        m_fnFail(strPath, bDangling ? "the link leads nowhere" : strerror(errno));
        return;
    }
    const bool bFolder = S_ISDIR(info.st_mode);
    if (bFolder && !bNamed && KindOf(strPath, false) == KIND_LINK)
    {
        m_fnWarn(strPath, "left out, it is a link to a folder");
        return;
    }
    if (!bFolder && !S_ISREG(info.st_mode))
    {
        const CReport& fnReport = bNamed ? m_fnFail : m_fnWarn;
        fnReport(strPath, std::string(bNamed ? "" : "left out, ") + "it is no regular file");
        return;
    }
    if (!CheckName(strPath, nBase))
    {
        return;
    }
    CSubmitEntry entry{strPath, nBase, bFolder, 0};
    if (!bFolder)
    {
        entry.m_ullSize = static_cast<Orb_U64>(info.st_size);
        listFiles.push_back(std::move(entry));
        return;
    }
    listFolders.push_back(strPath);
    if (strPath.size() > nBase)
    {
        m_listEntries.push_back(std::move(entry));
    }
}

void CSubmitList::PutFoldersFirst()
{
    std::stable_partition(m_listEntries.begin(), m_listEntries.end(),
                          [](const auto& entry) { return entry.m_bFolder; });
}

void CSubmitList::DropFiles(const std::function<bool(const CSubmitEntry&)>& fnIs)
{
    const auto IsDropped = [&](const CSubmitEntry& entry)
    {
        const bool bDropped = !entry.m_bFolder && fnIs(entry);
        m_nFiles -= bDropped ? 1 : 0;
        m_ullBytes -= bDropped ? entry.m_ullSize : 0;
        return bDropped;
    };
    m_listEntries.erase(std::remove_if(m_listEntries.begin(), m_listEntries.end(), IsDropped),
                        m_listEntries.end());
}

bool CSubmitList::MayHaveTwins() const
{
    return m_bMayHaveTwins;
}

const std::vector<CSubmitEntry>& CSubmitList::Entries() const
{
    return m_listEntries;
}

size_t CSubmitList::Files() const
{
    return m_nFiles;
}

Orb_U64 CSubmitList::Bytes() const
{
    return m_ullBytes;
}
