#ifndef OSPREY_TOOL_MEMORYFILE_H
#define OSPREY_TOOL_MEMORYFILE_H

#include <string>

#include "LibOsprey.h"

// A file in memory alone, which a client can write to: it vanishes with this object, or with the
// process, however that ends.
class CMemoryFile final
{
public:
    CMemoryFile();
    ~CMemoryFile();
    CMemoryFile(const CMemoryFile&) = delete;
    CMemoryFile& operator=(const CMemoryFile&) = delete;

    // -1 with errno when there is none to be had.
    int Descriptor() const
    {
        return m_nFile;
    }
    // A path that opens it.
    std::string Path() const;
    Orb_U64 Size() const;

    // Gives the memory of the first so many bytes back; they read as zeros from then on.
    void Forget(Orb_U64 ullBytes) const;

private:
    int m_nFile;
};

#endif
