#include "TempFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace
{

const char TEMP_PREFIX[] = ".osprey-";
const char TEMP_SUFFIX[] = ".part";
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

// Has a name still.
bool IsLinked(int nFile)
{
    struct stat info
    {
    };
    return fstat(nFile, &info) == 0 && info.st_nlink > 0;
}

// Another run may take it for a dead one's before it is locked, and remove it.
bool LockNew(int nFile)
{
    return LockTemp(nFile) && IsLinked(nFile);
}

// strFront: of the path, relative to the folder. -1 with errno.
int CreateFile(int nFolder, const std::string& strFront, unsigned int nMode, std::string& strPath)
{
    for (int i = 0; i < ATTEMPTS; ++i)
    {
        std::string strName;
        if (!RandomName(strName))
        {
            return -1;
        }
        strPath = strFront + strName;
        CDescriptor file(openat(nFolder, strPath.c_str(),
                                O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (file.IsValid() && LockNew(file.Get()))
        {
            // Best effort: a file system without modes still takes the content.
            static_cast<void>(nMode != 0 && fchmod(file.Get(), nMode & 0777) != 0);
            return file.Release();
        }
        if (!file.IsValid() && errno != EEXIST)
        {
            return -1;
        }
    }
    errno = EBUSY;
    return -1;
}

// ".osprey-", 16 digits, ".part", as RandomName makes them.
bool IsFileUnderConstruction(const std::string& strName)
{
    const size_t nFront = sizeof TEMP_PREFIX - 1;
    const size_t nDigits = 16;
    return IsTempName(strName) && strName.size() == nFront + nDigits + sizeof TEMP_SUFFIX - 1 &&
           strName.find_first_not_of("0123456789abcdef", nFront) == nFront + nDigits &&
           strName.compare(nFront + nDigits, std::string::npos, TEMP_SUFFIX) == 0;
}

}  // namespace

int CreateTemp(const std::string& strFolder, unsigned int nMode, std::string& strPath)
{
    return CreateFile(AT_FDCWD, JoinPath(strFolder, ""), nMode, strPath);
}

bool CreateTempAt(const CDescriptor& folder, unsigned int nMode, std::string& strName,
                  CDescriptor& file)
{
    file = CDescriptor(CreateFile(folder.Get(), std::string(), nMode, strName));
    return file.IsValid();
}

bool LockTemp(int nFile)
{
    return flock(nFile, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

void RemoveDeadTemp(int nFolder, const std::string& strName)
{
    struct stat info
    {
    };
    if (!IsFileUnderConstruction(strName) ||
        fstatat(nFolder, strName.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(info.st_mode))
    {
        return;
    }
    // For writing: a network file system gives no lock otherwise.
    const CDescriptor file(
        openat(nFolder, strName.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    // One that has lost the name since gave it to another.
    if (file.IsValid() && flock(file.Get(), LOCK_EX | LOCK_NB) == 0 && IsLinked(file.Get()))
    {
        unlinkat(nFolder, strName.c_str(), 0);
    }
}

void RemoveDeadTemps(const std::string& strFolder)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> pFolder(opendir(strFolder.c_str()), closedir);
    while (const dirent* pEntry = pFolder ? readdir(pFolder.get()) : nullptr)
    {
        RemoveDeadTemp(dirfd(pFolder.get()), pEntry->d_name);
    }
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
    const bool bSynced = SyncDescriptor(nFile);
    const int nError = errno;
    close(nFile);
    errno = nError;
    return bSynced;
}

bool SyncDescriptor(int nFile)
{
    // A file system that cannot do it has no better way to offer.
    return fsync(nFile) == 0 || errno == EINVAL || errno == EROFS;
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

std::string RealPath(const std::string& strPath)
{
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strPath.c_str(), nullptr), free);
    return pReal ? pReal.get() : strPath;
}

EFileKind KindOf(const std::string& strPath, bool bFollow)
{
    struct stat info
    {
    };
    const int nResult = bFollow ? stat(strPath.c_str(), &info) : lstat(strPath.c_str(), &info);
    return nResult == 0 ? KindOfMode(info.st_mode) : KIND_MISSING;
}

EFileKind KindOfMode(unsigned int nMode)
{
    switch (nMode & S_IFMT)
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
