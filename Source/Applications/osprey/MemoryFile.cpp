#include "MemoryFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

CMemoryFile::CMemoryFile() : m_nFile(memfd_create("osprey", MFD_CLOEXEC)) {}

CMemoryFile::~CMemoryFile()
{
    if (m_nFile >= 0)
    {
        close(m_nFile);
    }
}

std::string CMemoryFile::Path() const
{
    return "/proc/self/fd/" + std::to_string(m_nFile);
}

Orb_U64 CMemoryFile::Size() const
{
    struct stat info
    {
    };
    return fstat(m_nFile, &info) == 0 ? static_cast<Orb_U64>(info.st_size) : 0;
}

void CMemoryFile::Forget(Orb_U64 ullBytes) const
{
    const off_t nPage = sysconf(_SC_PAGESIZE);
    const off_t nWhole = static_cast<off_t>(ullBytes) / nPage * nPage;
    // Best effort.
    static_cast<void>(nWhole > 0 && fallocate(m_nFile, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                                              0, nWhole) != 0);
}
