#include "Journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <utility>

#include "TempFile.h"
#include "Text.h"

namespace
{

const char HEADER[] = "osprey journal 1\n";
const double SYNC_SECONDS = 1.0;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string LineOf(const std::string& strName, const CFileStamp& stamp)
{
    return std::to_string(stamp.m_ullSize) + " " + std::to_string(stamp.m_llChanged) + " " +
           std::to_string(stamp.m_ullInode) + " " + EscapeName(strName) + "\n";
}

// False with errno.
bool WriteAll(int nFile, const std::string& strText)
{
    size_t nDone = 0;
    while (nDone < strText.size())
    {
        const ssize_t n = write(nFile, strText.data() + nDone, strText.size() - nDone);
        if (n < 0 && errno != EINTR)
        {
            return false;
        }
        nDone += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return true;
}

std::string ReadAll(int nFile)
{
    std::string strText;
    char pBuffer[65536];
    off_t nAt = 0;
    for (ssize_t n = 0; (n = pread(nFile, pBuffer, sizeof pBuffer, nAt)) != 0;)
    {
        if (n < 0 && errno != EINTR)
        {
            break;
        }
        strText.append(pBuffer, n > 0 ? static_cast<size_t>(n) : 0);
        nAt += n > 0 ? n : 0;
    }
    return strText;
}

}  // namespace

CFileStamp::CFileStamp(const struct stat& info)
    : m_ullSize(static_cast<Orb_U64>(info.st_size)),
      m_llChanged(info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec),
      m_ullInode(static_cast<Orb_U64>(info.st_ino))
{
}

bool CFileStamp::operator==(const CFileStamp& other) const
{
    return m_ullSize == other.m_ullSize && m_llChanged == other.m_llChanged &&
           m_ullInode == other.m_ullInode;
}

bool StampOf(const std::string& strPath, CFileStamp& stamp)
{
    struct stat info
    {
    };
    if (stat(strPath.c_str(), &info) != 0)
    {
        return false;
    }
    stamp = CFileStamp(info);
    return true;
}

CJournal::CJournal(std::string strPath, ESync eSync, std::function<void(const std::string&)> fnWarn)
    : m_strPath(std::move(strPath)), m_eSync(eSync), m_fnWarn(std::move(fnWarn))
{
}

CJournal::~CJournal()
{
    Release();
}

void CJournal::Release()
{
    if (m_nFile >= 0)
    {
        static_cast<void>(SyncDescriptor(m_nFile));
        close(m_nFile);
        m_nFile = -1;
    }
}

CJournal::EOpen CJournal::Open(bool bCreate)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const EOpen eOpen = Take(bCreate);
    m_bOff = eOpen != OPEN_DONE;
    if (m_nFile >= 0)
    {
        Load();
    }
    return eOpen;
}

// The file at the path, locked. Its last owner may remove or replace it between the two steps.
CJournal::EOpen CJournal::Take(bool bCreate)
{
    do
    {
        Release();
        const int nFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC | (bCreate ? O_CREAT : 0);
        m_nFile = open(m_strPath.c_str(), nFlags, 0600);
        if (m_nFile < 0)
        {
            return errno == ENOENT && !bCreate ? OPEN_DONE : OPEN_FAILED;
        }
        if (flock(m_nFile, LOCK_EX | LOCK_NB) != 0)
        {
            const int nError = errno;
            Release();
            errno = nError;
            return nError == EWOULDBLOCK ? OPEN_BUSY : OPEN_FAILED;
        }
    } while (!IsInPlace());
    return OPEN_DONE;
}

bool CJournal::IsInPlace() const
{
    struct stat here
    {
    };
    struct stat there
    {
    };
    return fstat(m_nFile, &here) == 0 && stat(m_strPath.c_str(), &there) == 0 &&
           here.st_ino == there.st_ino && here.st_dev == there.st_dev;
}

void CJournal::Load()
{
    const std::string strText = ReadAll(m_nFile);
    const size_t nWhole = strText.rfind('\n') + 1;
    // A torn line would spoil the one that comes behind it.
    static_cast<void>(nWhole < strText.size() &&
                      ftruncate(m_nFile, static_cast<off_t>(nWhole)) != 0);
    std::istringstream text(strText.substr(0, nWhole));
    std::string strLine;
    std::getline(text, strLine);
    if (strLine + "\n" != HEADER)
    {
        // Of no version that this one knows.
        static_cast<void>(ftruncate(m_nFile, 0) != 0 || !WriteAll(m_nFile, HEADER));
        return;
    }
    while (std::getline(text, strLine))
    {
        ++m_nLines;
        Parse(strLine);
    }
}

void CJournal::Parse(const std::string& strLine)
{
    CFileStamp stamp;
    int nName = 0;
    std::string strName;
    unsigned long long ullSize = 0;
    unsigned long long ullInode = 0;
    if (sscanf(strLine.c_str(), "%llu %lld %llu%n", &ullSize, &stamp.m_llChanged, &ullInode,
               &nName) == 3 &&
        strLine[static_cast<size_t>(nName)] == ' ' &&
        UnescapeName(strLine.substr(static_cast<size_t>(nName) + 1), strName))
    {
        stamp.m_ullSize = ullSize;
        stamp.m_ullInode = ullInode;
        m_mapDone[strName] = stamp;
    }
}

void CJournal::Restart()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_mapDone.clear();
    if (m_nFile >= 0)
    {
        Rewrite();
    }
}

bool CJournal::Has(const std::string& strName, const CFileStamp& stamp) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_mapDone.find(strName);
    return it != m_mapDone.end() && it->second == stamp;
}

void CJournal::Add(const std::string& strName, int nFile)
{
    struct stat info
    {
    };
    if (fstat(nFile, &info) == 0)
    {
        Add(strName, CFileStamp(info));
    }
}

void CJournal::Add(const std::string& strName, const CFileStamp& stamp)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_mapDone[strName] = stamp;
    if (m_bOff || Append(LineOf(strName, stamp)))
    {
        return;
    }
    m_bOff = true;
    m_fnWarn("what is finished cannot be noted in " + PlainText(m_strPath) + ": " +
             strerror(errno));
}

// False with errno.
bool CJournal::Append(const std::string& strLine)
{
    if (m_nFile < 0)
    {
        const EOpen eOpen = Take(true);
        if (eOpen != OPEN_DONE)
        {
            m_bOff = true;
            return eOpen == OPEN_BUSY;
        }
        struct stat info
        {
        };
        if (fstat(m_nFile, &info) == 0 && info.st_size == 0 && !WriteAll(m_nFile, HEADER))
        {
            return false;
        }
    }
    ++m_nLines;
    if (!WriteAll(m_nFile, strLine))
    {
        return false;
    }
    if (m_eSync == SYNC_ALWAYS || Now() - m_dSynced >= SYNC_SECONDS)
    {
        m_dSynced = Now();
        return SyncDescriptor(m_nFile);
    }
    return true;
}

void CJournal::Compact(const std::function<bool(const std::string&)>& fnKeep)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_mapDone.begin(); it != m_mapDone.end();)
    {
        it = fnKeep(it->first) ? std::next(it) : m_mapDone.erase(it);
    }
    if (m_nFile >= 0)
    {
        Rewrite();
    }
}

size_t CJournal::Lines() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nLines;
}

// A failure leaves the old file, which says the same and more.
bool CJournal::Rewrite()
{
    std::string strTemp;
    const int nNew = CreateTemp(FolderOf(m_strPath), 0600, strTemp);
    if (nNew < 0)
    {
        return false;
    }
    std::string strText = HEADER;
    for (const auto& entry : m_mapDone)
    {
        strText += LineOf(entry.first, entry.second);
    }
    if (fcntl(nNew, F_SETFL, O_APPEND) != 0 || !WriteAll(nNew, strText) || !SyncDescriptor(nNew) ||
        rename(strTemp.c_str(), m_strPath.c_str()) != 0)
    {
        unlink(strTemp.c_str());
        close(nNew);
        return false;
    }
    static_cast<void>(SyncFile(FolderOf(m_strPath)));
    Release();
    m_nFile = nNew;
    m_nLines = m_mapDone.size();
    return true;
}

void CJournal::Remove()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bOff = true;
    if (m_nFile >= 0)
    {
        unlink(m_strPath.c_str());
        close(m_nFile);
        m_nFile = -1;
    }
}

std::string StateFolder()
{
    const char* pszState = getenv("XDG_STATE_HOME");
    const char* pszHome = getenv("HOME");
    std::string strFolder;
    if (pszState != nullptr && *pszState == '/')
    {
        strFolder = pszState;
    }
    else if (pszHome != nullptr && *pszHome == '/')
    {
        strFolder = JoinPath(pszHome, ".local/state");
    }
    if (strFolder.empty())
    {
        return strFolder;
    }
    strFolder = JoinPath(strFolder, "osprey");
    std::error_code error;
    std::filesystem::create_directories(strFolder, error);
    return KindOf(strFolder, true) == KIND_FOLDER ? strFolder : std::string();
}
