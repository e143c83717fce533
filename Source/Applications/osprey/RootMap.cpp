#include "RootMap.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "Text.h"

namespace
{

const char SUBMIT_PREFIX[] = "FILESUBMIT|";
const size_t LONGEST_PATH = PATH_MAX - 1 - 64;  // room for the name of a file under construction

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

bool HasControl(const std::string& strText)
{
    for (size_t i = 0; i < strText.size();)
    {
        char32_t c = 0;
        const size_t nLength = DecodeUTF8(strText, i, c);
        if (nLength == 0 || IsControl(c))
        {
            return true;
        }
        i += nLength;
    }
    return false;
}

const char* PartFault(const std::string& strPart)
{
    if (strPart.empty())
    {
        return "a part of the name is empty";
    }
    if (strPart == "." || strPart == "..")
    {
        return "the name has a part \".\" or \"..\"";
    }
    if (strPart.size() > NAME_MAX)
    {
        return "a part of the name is too long";
    }
    return IsTempName(strPart) ? "the name is kept for files under construction" : nullptr;
}

bool SplitParts(const std::string& strText, std::vector<std::string>& listParts,
                std::string& strReason)
{
    if (!strText.empty() && IsSeparator(strText.front()))
    {
        strReason = "the name is absolute";
        return false;
    }
    for (auto it = strText.begin(); it != strText.end();)
    {
        const auto itEnd = std::find_if(it, strText.end(), IsSeparator);
        const std::string strPart(it, itEnd);
        // A separator at the very end leaves an empty part behind it.
        const bool bOpenEnd = itEnd != strText.end() && itEnd + 1 == strText.end();
        const char* pszFault = PartFault(bOpenEnd ? std::string() : strPart);
        if (pszFault != nullptr)
        {
            strReason = pszFault;
            return false;
        }
        listParts.push_back(strPart);
        it = itEnd == strText.end() ? itEnd : itEnd + 1;
    }
    return true;
}

std::string Join(const std::vector<std::string>& listParts)
{
    std::string strResult;
    for (const std::string& strPart : listParts)
    {
        strResult += (strResult.empty() ? "" : "/") + strPart;
    }
    return strResult.empty() ? "." : strResult;
}

const char* KindFault(EFileKind eKind, CRootMap::EUse eUse)
{
    if (eUse == CRootMap::USE_CREATE_FOLDER)
    {
        return eKind == KIND_FOLDER || eKind == KIND_MISSING ? nullptr
                                                             : "a file of that name exists";
    }
    if (eKind == KIND_FOLDER)
    {
        return "it is a folder";
    }
    return eKind == KIND_OTHER ? "it is no regular file" : nullptr;
}

}  // namespace

bool CRootMap::Open(const std::string& strRoot, std::string& strReason)
{
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strRoot.c_str(), nullptr), free);
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
    m_strRoot = pReal.get();
    return true;
}

const std::string& CRootMap::Root() const
{
    return m_strRoot;
}

bool CRootMap::SplitName(const std::string& strName, std::vector<std::string>& listParts,
                         std::string& strReason)
{
    if (strName.empty())
    {
        strReason = "the name is empty";
        return false;
    }
    if (HasControl(strName))
    {
        strReason = "the name has a control character or is no UTF-8";
        return false;
    }
    const size_t nPrefix = sizeof SUBMIT_PREFIX - 1;
    if (strName.compare(0, nPrefix, SUBMIT_PREFIX) != 0)
    {
        return SplitParts(strName, listParts, strReason);
    }
    const size_t nBar = strName.find('|', nPrefix);
    if (nBar == std::string::npos)
    {
        strReason = "the name has no path";
        return false;
    }
    return SplitParts(strName.substr(nPrefix, nBar - nPrefix), listParts, strReason) &&
           SplitParts(strName.substr(nBar + 1), listParts, strReason);
}

CRootMap::CResult CRootMap::Map(const std::string& strName, EUse eUse) const
{
    CResult result;
    std::vector<std::string> listParts;
    if (!SplitName(strName, listParts, result.m_strReason))
    {
        return result;
    }
    if (listParts.empty() && eUse != USE_CREATE_FOLDER)
    {
        result.m_strReason = "it is the served folder itself";
        return result;
    }
    result.m_strShown = Join(listParts);
    if (m_strRoot.size() + 1 + result.m_strShown.size() > LONGEST_PATH)
    {
        result.m_strReason = "the name is too long";
        return result;
    }
    if (!Follow(listParts, eUse == USE_DELETE, result))
    {
        return result;
    }
    const char* pszFault = KindFault(result.m_eKind, eUse);
    result.m_bAllowed = pszFault == nullptr;
    result.m_strReason = pszFault == nullptr ? "" : pszFault;
    return result;
}

// Walks from the root down. As long as parts exist, the path is kept free of links; below the first
// part that is missing there can be none.
bool CRootMap::Follow(const std::vector<std::string>& listParts, bool bKeepLastLink,
                      CResult& result) const
{
    std::string strPath = m_strRoot;
    EFileKind eKind = KIND_FOLDER;
    for (size_t i = 0; i < listParts.size(); ++i)
    {
        if (eKind != KIND_FOLDER && eKind != KIND_MISSING)
        {
            result.m_strReason = "a part of the path is no folder";
            return false;
        }
        strPath = JoinPath(strPath, listParts[i]);
        struct stat info
        {
        };
        if (lstat(strPath.c_str(), &info) != 0 && errno != ENOENT)
        {
            result.m_strReason = strerror(errno);
            return false;
        }
        eKind = KindOf(strPath, false);
        if (eKind == KIND_LINK)
        {
            std::string strTarget = strPath;
            if (!FollowLink(strTarget, result.m_strReason))
            {
                return false;
            }
            const bool bLast = i + 1 == listParts.size();
            strPath = bLast && bKeepLastLink ? strPath : strTarget;
            eKind = bLast && bKeepLastLink ? KIND_LINK : KindOf(strTarget, false);
        }
    }
    result.m_strPath = strPath;
    result.m_eKind = eKind;
    return true;
}

bool CRootMap::FollowLink(std::string& strPath, std::string& strReason) const
{
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strPath.c_str(), nullptr), free);
    if (!pReal)
    {
        strReason = "a symbolic link leads nowhere";
        return false;
    }
    strPath = pReal.get();
    if (!IsInside(strPath))
    {
        strReason = "a symbolic link leads out of the served folder";
        return false;
    }
    return true;
}

bool CRootMap::IsInside(const std::string& strPath) const
{
    if (m_strRoot == "/" || strPath == m_strRoot)
    {
        return true;
    }
    return strPath.compare(0, m_strRoot.size() + 1, m_strRoot + "/") == 0;
}

bool CRootMap::CreateFolders(const std::string& strPath, std::vector<std::string>& listCreated)
{
    size_t nSlash = 0;
    while (nSlash != std::string::npos)
    {
        nSlash = strPath.find('/', nSlash + 1);
        const std::string strFolder = strPath.substr(0, nSlash);
        if (KindOf(strFolder, true) == KIND_FOLDER)
        {
            continue;
        }
        if (mkdir(strFolder.c_str(), 0777) == 0)
        {
            listCreated.push_back(strFolder);
        }
        else if (errno != EEXIST || KindOf(strFolder, true) != KIND_FOLDER)
        {
            return false;
        }
    }
    return true;
}
