#include "RootMap.h"

#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

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
    if (eKind == KIND_LINK)
    {
        return "it is a symbolic link";
    }
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
    if (m_root.Path().size() + 1 + result.m_strShown.size() > LONGEST_PATH)
    {
        result.m_strReason = "the name is too long";
        return result;
    }
    if (!Find(result))
    {
        return result;
    }
    const char* pszFault = KindFault(result.m_eKind, eUse);
    result.m_bAllowed = pszFault == nullptr;
    result.m_strReason = pszFault == nullptr ? "" : pszFault;
    return result;
}

// False with a reason when something on the way stands in it.
bool CRootMap::Find(CResult& result) const
{
    struct stat info
    {
    };
    result.m_entry = m_root.Find(result.m_strShown);
    if (result.m_entry.IsValid() && fstat(result.m_entry.Get(), &info) == 0)
    {
        result.m_eKind = KindOfMode(info.st_mode);
        return true;
    }
    const int nError = errno;
    if (nError != ENOENT)
    {
        const char* pszLink = nError == ELOOP ? "a part of the path is a symbolic link" : nullptr;
        const char* pszFile = nError == ENOTDIR ? "a part of the path is no folder" : pszLink;
        result.m_strReason = pszFile == nullptr ? strerror(nError) : pszFile;
    }
    return nError == ENOENT;
}
