#ifndef OSPREY_TOOL_ROOTMAP_H
#define OSPREY_TOOL_ROOTMAP_H

#include <string>
#include <vector>

#include "TempFile.h"

// Where a peer's name leads inside the folder that is served, and nowhere else.
//
//   "FILESUBMIT|to|a\b\c"  ->  ROOT/to/a/b/c       ("to" may be empty, or have parts of its own)
//   "a\b\c", "a/b/c"       ->  ROOT/a/b/c
//
// Refused: an empty name, an absolute one, an empty part, "." and "..", control characters, bytes
// that are no UTF-8, parts over 255 bytes, paths over the system's limit, names of files under
// construction, a symbolic link that leads out of the folder or nowhere, and a part below something
// that is no folder. A link that stays inside is followed, but not by a deletion, which takes the
// link itself.
//
// Peers have no way to make links. A local user who may write into the folder and swaps a folder
// for a link between the check and the use is not guarded against.
//
// Thread: one at a time; no state but the root.
class CRootMap final
{
public:
    enum EUse
    {
        USE_UPLOAD,         // a regular file, or nothing yet
        USE_DOWNLOAD,       // a regular file, or missing, which the library reports
        USE_CREATE_FOLDER,  // a folder, or nothing yet
        USE_DELETE,         // a regular file or a link, or missing
    };

    struct CResult
    {
        bool m_bAllowed = false;
        std::string
            m_strPath;  // allowed: the local path, absolute, without links but a deleted one
        std::string m_strShown;   // allowed: the path from the root on, with "/"; "." for the root
        std::string m_strReason;  // refused: why, as in "the name is empty"
        EFileKind m_eKind = KIND_MISSING;  // allowed: what stands at the path
    };

    // The folder to serve. False with a plain reason when it cannot be.
    bool Open(const std::string& strRoot, std::string& strReason);

    const std::string& Root() const;

    CResult Map(const std::string& strName, EUse eUse) const;

    // Creates the missing folders of a path that Map allowed, down to and with the path itself.
    // Adds what it created, from the top down. False with errno; what was created stays.
    static bool CreateFolders(const std::string& strPath, std::vector<std::string>& listCreated);

    // The name parts of a peer's name, without a look at the disk. False with a reason.
    static bool SplitName(const std::string& strName, std::vector<std::string>& listParts,
                          std::string& strReason);

private:
    bool Follow(const std::vector<std::string>& listParts, bool bKeepLastLink,
                CResult& result) const;
    bool FollowLink(std::string& strPath, std::string& strReason) const;
    bool IsInside(const std::string& strPath) const;

    std::string m_strRoot;
};

#endif
