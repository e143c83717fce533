#ifndef OSPREY_TOOL_SUMLIST_H
#define OSPREY_TOOL_SUMLIST_H

#include <functional>
#include <map>
#include <string>
#include <vector>

// The list of digests that sha256sum writes and checks: a line "HEX  NAME" a file, with a backslash
// before it when EscapeName changes the name. Names are relative to the folder of the list.
//
// What is read comes from a peer: nothing of it is to be trusted.
class CSumList final
{
public:
    using CReport = std::function<void(const std::string& strShown, const std::string& strReason)>;

    void Add(const std::string& strName, const std::string& strDigest);
    std::string ToString() const;

    // Reads a list. What is no line of one, what names no file below the list's folder, and a name
    // with two digests are told to fnFail, and count for nothing. strShown: the list's name.
    void Parse(const std::string& strText, const std::string& strShown, const CReport& fnFail);

    // Null when the name is not listed.
    const std::string* Find(const std::string& strName) const;

    // Name and digest, sorted by name.
    const std::map<std::string, std::string>& Entries() const
    {
        return m_mapDigests;
    }

private:
    std::map<std::string, std::string> m_mapDigests;
};

// Why a name of a peer is no file below a folder; null when it is one: relative, without a part
// that is empty, ".", ".." or kept for files under construction, without control characters, valid
// UTF-8.
// "/" and "\\" both separate.
const char* NameFault(const std::string& strName);

// A name at the server with "/" alone between its parts: "FILESUBMIT|a|b\\c" is "a/b/c".
std::string PlainRemoteName(const std::string& strName);

// What the list is called unless somebody says otherwise.
const char SUM_LIST[] = "SHA256SUMS";

#endif
