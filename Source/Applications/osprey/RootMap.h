#ifndef OSPREY_TOOL_ROOTMAP_H
#define OSPREY_TOOL_ROOTMAP_H

#include <string>
#include <vector>

#include "RootFolder.h"

// Where a peer's name leads inside the folder that is served, and nowhere else.
//
//   "FILESUBMIT|to|a\b\c"  ->  ROOT/to/a/b/c       ("to" may be empty, or have parts of its own)
//   "a\b\c", "a/b/c"       ->  ROOT/a/b/c
//
// Refused: an empty name, an absolute one, an empty part, "." and "..", control characters, bytes
// that are no UTF-8, parts over 255 bytes, paths over the system's limit, names of files under
// construction, symbolic links, wherever they lead, and a part below something that is no folder.
//
// What was found stays found: the descriptor in the result is the file that was judged, whatever
// stands under its name later.
//
// Thread: any, once open.
class CRootMap final
{
public:
    enum EUse
    {
        USE_UPLOAD,         // a regular file, or nothing yet
        USE_DOWNLOAD,       // a regular file, or missing, which the library reports
        USE_CREATE_FOLDER,  // a folder, or nothing yet
        USE_DELETE,         // a regular file, or missing
    };

    struct CResult
    {
        bool m_bAllowed = false;
        std::string m_strShown;   // allowed: the path from the root on, with "/"; "." for the root
        std::string m_strReason;  // refused: why, as in "the name is empty"
        EFileKind m_eKind = KIND_MISSING;  // allowed: what stands at the path
        CDescriptor m_entry;               // allowed, and not missing: that
    };

    // root must outlive this object.
    explicit CRootMap(const CRootFolder& root) : m_root(root) {}

    CResult Map(const std::string& strName, EUse eUse) const;

    // The name parts of a peer's name, without a look at the disk. False with a reason.
    static bool SplitName(const std::string& strName, std::vector<std::string>& listParts,
                          std::string& strReason);

private:
    bool Find(CResult& result) const;

    const CRootFolder& m_root;
};

#endif
