#include "LocalFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>

namespace
{

// After a short read or write. Clears the error of an interruption.
bool WasInterrupted(FILE* pFile)
{
    const bool bInterrupted = ferror(pFile) != 0 && errno == EINTR;
    if (bInterrupted)
    {
        clearerr(pFile);
    }
    return bInterrupted;
}

}  // namespace

FILE* OpenLocalFile(const char* pszPath, const char* pszMode)
{
    struct stat info = {};
    if (stat(pszPath, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode)))
    {
        errno = ENXIO;
        return nullptr;
    }
    char szMode[8];
    snprintf(szMode, sizeof szMode, "%se", pszMode);
    FILE* pFile = nullptr;
    do
    {
        pFile = fopen(pszPath, szMode);
    } while (pFile == nullptr && errno == EINTR);
    if (pFile != nullptr)
    {
        setvbuf(pFile, nullptr, _IONBF, 0);
    }
    return pFile;
}

bool CloseLocalFile(FILE*& pFile)
{
    FILE* pClosing = pFile;
    pFile = nullptr;
    return pClosing == nullptr || fclose(pClosing) == 0;
}

size_t ReadLocalFile(FILE* pFile, void* pData, size_t nSize)
{
    char* pNext = static_cast<char*>(pData);
    size_t nDone = 0;
    do
    {
        nDone += fread(pNext + nDone, 1, nSize - nDone, pFile);
    } while (nDone < nSize && WasInterrupted(pFile));
    return nDone;
}

size_t WriteLocalFile(FILE* pFile, const void* pData, size_t nSize)
{
    const char* pNext = static_cast<const char*>(pData);
    size_t nDone = 0;
    do
    {
        nDone += fwrite(pNext + nDone, 1, nSize - nDone, pFile);
    } while (nDone < nSize && WasInterrupted(pFile));
    return nDone;
}

bool SeekLocalFile(FILE* pFile, unsigned long long ullOffset)
{
    return ullOffset <= LLONG_MAX && fseeko(pFile, static_cast<off_t>(ullOffset), SEEK_SET) == 0;
}

void RemoveLocalFile(const char* pszPath)
{
    struct stat info = {};
    if (lstat(pszPath, &info) == 0 && (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode)))
    {
        remove(pszPath);
    }
}
