#include "SumList.h"

#include <limits.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "TempFile.h"
#include "Text.h"

namespace
{

const size_t DIGEST_SIZE = 64;
const char LONG_PREFIX[] = "FILESUBMIT|";

// All of one case: a bit that flipped in a letter would otherwise change nothing.
bool IsDigest(const std::string& strText)
{
    return strText.size() == DIGEST_SIZE &&
           (strText.find_first_not_of("0123456789abcdef") == std::string::npos ||
            strText.find_first_not_of("0123456789ABCDEF") == std::string::npos);
}

std::string LowerCase(std::string strText)
{
    std::transform(strText.begin(), strText.end(), strText.begin(),
                   [](char c) { return static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : c); });
    return strText;
}

// "HEX  NAME", "HEX *NAME", or either behind a backslash.
bool ParseLine(const std::string& strLine, std::string& strName, std::string& strDigest)
{
    const size_t nHex = !strLine.empty() && strLine[0] == '\\' ? 1 : 0;
    const size_t nName = nHex + DIGEST_SIZE + 2;
    if (strLine.size() <= nName || strLine[nName - 2] != ' ' ||
        (strLine[nName - 1] != ' ' && strLine[nName - 1] != '*') ||
        !IsDigest(strLine.substr(nHex, DIGEST_SIZE)))
    {
        return false;
    }
    strDigest = LowerCase(strLine.substr(nHex, DIGEST_SIZE));
    strName = strLine.substr(nName);
    if (nHex != 0 && !UnescapeName(std::string(strName), strName))
    {
        return false;
    }
    // As "find . -type f" names them.
    while (strName.compare(0, 2, "./") == 0)
    {
        strName.erase(0, 2);
    }
    // The server takes both for separators.
    std::replace(strName.begin(), strName.end(), '\\', '/');
    return true;
}

}  // namespace

const char* NameFault(const std::string& strName)
{
    if (!IsCleanText(strName))
    {
        return "the name has a control character or is no UTF-8";
    }
    for (size_t nBegin = 0; nBegin <= strName.size();)
    {
        const size_t nEnd = std::min(strName.find_first_of("/\\", nBegin), strName.size());
        const std::string strPart = strName.substr(nBegin, nEnd - nBegin);
        if (strPart.empty() || strPart == "." || strPart == "..")
        {
            return "the name leads out of its folder, or nowhere";
        }
        if (strPart.size() > NAME_MAX)
        {
            return "a part of the name is too long";
        }
        if (IsTempName(strPart))
        {
            return "the name is kept for files under construction";
        }
        nBegin = nEnd + 1;
    }
    return nullptr;
}

std::string PlainRemoteName(const std::string& strName)
{
    std::string strPlain = strName;
    const size_t nPrefix = sizeof LONG_PREFIX - 1;
    if (strPlain.compare(0, nPrefix, LONG_PREFIX) == 0)
    {
        strPlain.erase(0, nPrefix);
        const size_t nBar = strPlain.find('|');
        strPlain.replace(std::min(nBar, strPlain.size()), nBar == std::string::npos ? 0 : 1,
                         nBar == 0 || nBar == std::string::npos ? "" : "/");
    }
    std::replace(strPlain.begin(), strPlain.end(), '\\', '/');
    return strPlain;
}

void CSumList::Add(const std::string& strName, const std::string& strDigest)
{
    m_mapDigests[strName] = strDigest;
}

std::string CSumList::ToString() const
{
    std::string strText;
    for (const auto& entry : m_mapDigests)
    {
        const std::string strEscaped = EscapeName(entry.first);
        strText +=
            (strEscaped == entry.first ? "" : "\\") + entry.second + "  " + strEscaped + "\n";
    }
    return strText;
}

void CSumList::Parse(const std::string& strText, const std::string& strShown, const CReport& fnFail)
{
    std::set<std::string> setTwice;
    std::istringstream text(strText);
    size_t nLine = 0;
    for (std::string strLine; std::getline(text, strLine);)
    {
        ++nLine;
        std::string strName;
        std::string strDigest;
        if (!ParseLine(strLine, strName, strDigest))
        {
            fnFail(strShown,
                   "line " + std::to_string(nLine) + " is none of a list of SHA-256 sums");
            continue;
        }
        const char* pszFault = NameFault(strName);
        if (pszFault != nullptr)
        {
            fnFail(strShown,
                   "line " + std::to_string(nLine) + ", " + QuoteText(strName) + ": " + pszFault);
            continue;
        }
        const auto inserted = m_mapDigests.emplace(strName, strDigest);
        if (!inserted.second && inserted.first->second != strDigest)
        {
            fnFail(strShown, QuoteText(strName) + " has two different sums");
            setTwice.insert(strName);
        }
    }
    for (const std::string& strName : setTwice)
    {
        m_mapDigests.erase(strName);
    }
}

const std::string* CSumList::Find(const std::string& strName) const
{
    const auto it = m_mapDigests.find(strName);
    return it == m_mapDigests.end() ? nullptr : &it->second;
}
