#include "LocalFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>

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
    FILE* pFile = fopen(pszPath, szMode);
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
