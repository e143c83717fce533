#include "TempFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace
{

const char TEMP_PREFIX[] = ".osprey-";
const char TEMP_SUFFIX[] = ".tmp";
const int ATTEMPTS = 100;

bool RandomName(std::string& strName)
{
    unsigned long long ullRandom = 0;
    if (getrandom(&ullRandom, sizeof ullRandom, 0) != static_cast<ssize_t>(sizeof ullRandom))
    {
        return false;
    }
    char szHex[24];
    snprintf(szHex, sizeof szHex, "%016llx", ullRandom);
    strName = TEMP_PREFIX + std::string(szHex) + TEMP_SUFFIX;
    return true;
}

}  // namespace

bool CreateTempFile(const std::string& strFolder, unsigned int nMode, std::string& strPath)
{
    for (int i = 0; i < ATTEMPTS; ++i)
    {
        std::string strName;
        if (!RandomName(strName))
        {
            return false;
        }
        strPath = JoinPath(strFolder, strName);
        const int nFile =
            open(strPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (nFile >= 0)
        {
            // Best effort: a file system without modes still takes the content.
            static_cast<void>(nMode != 0 && fchmod(nFile, nMode & 0777) != 0);
            close(nFile);
            return true;
        }
        if (errno != EEXIST)
        {
            return false;
        }
    }
    return false;
}

bool IsTempName(const std::string& strName)
{
    return strName.compare(0, sizeof TEMP_PREFIX - 1, TEMP_PREFIX) == 0;
}

bool SyncFile(const std::string& strPath)
{
    const int nFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (nFile < 0)
    {
        return false;
    }
    const int nError = fsync(nFile) == 0 ? 0 : errno;
    close(nFile);
    errno = nError;
    // A file system that cannot do it has no better way to offer.
    return nError == 0 || nError == EINVAL || nError == EROFS;
}

std::string FolderOf(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    if (nSlash == std::string::npos)
    {
        return ".";
    }
    return nSlash == 0 ? "/" : strPath.substr(0, nSlash);
}

std::string NameOf(const std::string& strPath)
{
    return strPath.substr(strPath.rfind('/') + 1);
}

std::string JoinPath(const std::string& strFolder, const std::string& strName)
{
    const bool bSlash = !strFolder.empty() && strFolder.back() == '/';
    return strFolder + (bSlash ? "" : "/") + strName;
}

EFileKind KindOf(const std::string& strPath, bool bFollow)
{
    struct stat info
    {
    };
    const int nResult = bFollow ? stat(strPath.c_str(), &info) : lstat(strPath.c_str(), &info);
    if (nResult != 0)
    {
        return KIND_MISSING;
    }
    switch (info.st_mode & S_IFMT)
    {
        case S_IFREG:
            return KIND_FILE;
        case S_IFDIR:
            return KIND_FOLDER;
        case S_IFLNK:
            return KIND_LINK;
        default:
            return KIND_OTHER;
    }
}
