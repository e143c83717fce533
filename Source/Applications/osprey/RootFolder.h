#ifndef OSPREY_TOOL_ROOTFOLDER_H
#define OSPREY_TOOL_ROOTFOLDER_H

#include <functional>
#include <string>
#include <vector>

#include "Descriptor.h"
#include "TempFile.h"

// The folder that is served, and the only way into it. Everything is found relative to its
// descriptor, and no symbolic link is followed on the way: however somebody renames and replaces
// what stands in the folder meanwhile, nothing leads out of it.
//
//   openat2(2) with RESOLVE_BENEATH    one call for the whole path, where the kernel has it
//   openat(2), part for part           each with O_NOFOLLOW, the folders with O_DIRECTORY
//
// What is found is a descriptor that only points (O_PATH): no FIFO blocks, no device notices.
//
// Paths are relative, as in "a/b", or "." for the folder itself; a part "." or ".." is refused with
// EINVAL.
//
// Thread: any, once open.
class CRootFolder final
{
public:
    enum EMethod
    {
        METHOD_BEST,  // openat2, if the kernel lets the process have it
        METHOD_WALK,
    };

    explicit CRootFolder(EMethod eMethod = METHOD_BEST) : m_eMethod(eMethod) {}

    // The folder to serve. False with a plain reason when it cannot be.
    bool Open(const std::string& strPath, std::string& strReason);

    // Absolute, for people.
    const std::string& Path() const
    {
        return m_strPath;
    }
    const CDescriptor& Root() const
    {
        return m_root;
    }
    // What Open settled on.
    EMethod Method() const
    {
        return m_eMethod;
    }

    // What stands at a path, also a link; invalid with errno: ENOENT, ENOTDIR below what is no
    // folder, ELOOP below a link.
    CDescriptor Find(const std::string& strPath) const;

    // The folder at a path, with those missing on the way created. Adds the paths of what it
    // created, from the top down. Invalid with errno; what was created stays.
    CDescriptor MakeFolder(const std::string& strPath, std::vector<std::string>& listCreated) const;

    // Calls fn for each name in the folder and below it that is no folder, with the folder that it
    // stands in, in no order. What vanishes meanwhile or may not be read is passed over. fn may
    // remove what it is called for.
    using CVisit = std::function<void(const CDescriptor& folder, const std::string& strName)>;
    void ForEachFile(const CVisit& fn) const;

private:
    CDescriptor FindBeneath(const std::string& strPath) const;
    CDescriptor Walk(const std::string& strPath) const;

    EMethod m_eMethod;
    CDescriptor m_root;
    std::string m_strPath;
};

// The folder (as in "a" or ".") and the name join to a path for CRootFolder.
std::string JoinInside(const std::string& strFolder, const std::string& strName);

// What stands in an open folder under a name, links not followed.
EFileKind KindAt(const CDescriptor& folder, const std::string& strName);

#endif
