#include "ServeTransfers.h"

#include <dirent.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "TempFile.h"

namespace
{

const char PARTIAL_SUFFIX[] = ".osprey-partial";
const Orb_U64 CONTINUE = ~0ULL;

// A peer can begin transfers without end and give them up untold; the oldest make room. A
// connection has at most 256 alive, so a few connections never come near.
const size_t MOST_TRANSFERS = 4096;

using CFileId = std::pair<dev_t, ino_t>;

bool FileId(const std::string& strPath, CFileId& id, Orb_U64* pSize)
{
    struct stat info
    {
    };
    if (stat(strPath.c_str(), &info) != 0)
    {
        return false;
    }
    id = CFileId(info.st_dev, info.st_ino);
    if (pSize != nullptr)
    {
        *pSize = static_cast<Orb_U64>(info.st_size);
    }
    return true;
}

// The files that this process has open. False when the system does not tell.
bool OpenFiles(std::set<CFileId>& setFiles)
{
    DIR* pFolder = opendir("/proc/self/fd");
    if (pFolder == nullptr)
    {
        return false;
    }
    while (const dirent* pEntry = readdir(pFolder))
    {
        CFileId id;
        if (FileId(std::string("/proc/self/fd/") + pEntry->d_name, id, nullptr))
        {
            setFiles.insert(id);
        }
    }
    closedir(pFolder);
    return true;
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

CServeTransfers::CServeTransfers(CServeEvents& events, const std::string& strRoot)
    : m_events(events), m_strRoot(strRoot)
{
}

std::string CServeTransfers::PartialPath(const std::string& strTarget)
{
    const size_t nLength = NameOf(strTarget).size() + sizeof PARTIAL_SUFFIX - 1;
    return nLength > NAME_MAX ? std::string() : strTarget + PARTIAL_SUFFIX;
}

bool CServeTransfers::IsPartialName(const std::string& strName)
{
    const size_t nSuffix = sizeof PARTIAL_SUFFIX - 1;
    return strName.size() >= nSuffix &&
           strName.compare(strName.size() - nSuffix, nSuffix, PARTIAL_SUFFIX) == 0;
}

Orb_U64 CServeTransfers::BeginUpload(const CConnectionName& connection,
                                     const std::string& strTarget, const std::string& strShown,
                                     Orb_U64 ullSize, Orb_U64 ullOffset, std::string& strPath)
{
    SweepUploads();
    CTransfer transfer;
    transfer.m_bUpload = true;
    transfer.m_connection = connection;
    transfer.m_strShown = strShown;
    transfer.m_strTarget = strTarget;
    transfer.m_ullTotal = ullSize;
    // A file that is replaced hands its mode on.
    struct stat old
    {
    };
    const bool bReplaces = stat(strTarget.c_str(), &old) == 0;
    if (bReplaces && access(strTarget.c_str(), W_OK) != 0)
    {
        return 0;
    }
    if (!CreateTempFile(FolderOf(strTarget), bReplaces ? old.st_mode : 0, transfer.m_strTemp))
    {
        return 0;
    }
    transfer.m_ullDone = ContinuePartial(transfer, ullOffset);
    strPath = transfer.m_strTemp;
    return Add(std::move(transfer));
}

// Where the first block will be written. The library examines the file itself, by the same rule.
Orb_U64 CServeTransfers::ContinuePartial(const CTransfer& transfer, Orb_U64 ullOffset) const
{
    if (ullOffset != CONTINUE)
    {
        return ullOffset;
    }
    const std::string strPartial = PartialPath(transfer.m_strTarget);
    CFileId id;
    Orb_U64 ullLength = 0;
    const bool bUsable = !strPartial.empty() && KindOf(strPartial, false) == KIND_FILE &&
                         FileId(strPartial, id, &ullLength) && ullLength <= transfer.m_ullTotal &&
                         rename(strPartial.c_str(), transfer.m_strTemp.c_str()) == 0;
    return bUsable ? ullLength : 0;
}

Orb_U64 CServeTransfers::BeginDownload(const CConnectionName& connection,
                                       const std::string& strShown, Orb_U64 ullSize)
{
    CTransfer transfer;
    transfer.m_connection = connection;
    transfer.m_strShown = strShown;
    transfer.m_ullTotal = ullSize;
    return Add(std::move(transfer));
}

Orb_U64 CServeTransfers::Add(CTransfer&& transfer)
{
    if (m_mapTransfers.size() >= MOST_TRANSFERS)
    {
        Abandon(m_mapTransfers.begin()->second);
        m_mapTransfers.erase(m_mapTransfers.begin());
    }
    transfer.m_start = std::chrono::steady_clock::now();
    m_mapTransfers.emplace(++m_ullLastId, std::move(transfer));
    return m_ullLastId;
}

void CServeTransfers::OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext)
{
    const auto it = m_mapTransfers.find(ullContext);
    if (it == m_mapTransfers.end())
    {
        return;
    }
    CTransfer& transfer = it->second;
    // An upload's block that moves nothing is an empty one, and that is always the last: a file
    // that shrank on its way ends so.
    const bool bEmptyBlock = transfer.m_bUpload && ullDone == transfer.m_ullDone;
    transfer.m_ullDone = ullDone;
    transfer.m_ullTotal = ullTotal;
    if (ullDone < ullTotal && !bEmptyBlock)
    {
        return;
    }
    if (transfer.m_bUpload)
    {
        FinishUpload(transfer);
    }
    else
    {
        m_events.Finished(false, transfer.m_connection, transfer.m_strShown, ullDone,
                          SecondsSince(transfer.m_start));
    }
    m_mapTransfers.erase(it);
}

void CServeTransfers::FinishUpload(CTransfer& transfer)
{
    if (rename(transfer.m_strTemp.c_str(), transfer.m_strTarget.c_str()) != 0)
    {
        m_events.Failed("upload", transfer.m_connection, transfer.m_strShown,
                        std::string(strerror(errno)) + ", kept as " + Shown(transfer.m_strTemp));
        return;
    }
    const std::string strPartial = PartialPath(transfer.m_strTarget);
    if (!strPartial.empty() && KindOf(strPartial, false) == KIND_FILE)
    {
        unlink(strPartial.c_str());
    }
    m_events.Finished(true, transfer.m_connection, transfer.m_strShown, transfer.m_ullDone,
                      SecondsSince(transfer.m_start));
}

bool CServeTransfers::Discard(const CConnectionName& connection, const std::string& strTarget)
{
    std::set<CFileId> setOpen;
    const bool bKnown = OpenFiles(setOpen);
    for (auto it = m_mapTransfers.begin(); it != m_mapTransfers.end(); ++it)
    {
        CTransfer& transfer = it->second;
        CFileId id;
        const bool bOpen =
            bKnown && FileId(transfer.m_strTemp, id, nullptr) && setOpen.count(id) != 0;
        if (transfer.m_bUpload && !bOpen && transfer.m_strTarget == strTarget &&
            transfer.m_connection == connection)
        {
            unlink(transfer.m_strTemp.c_str());
            m_events.Incomplete(true, connection, transfer.m_strShown, transfer.m_ullDone,
                                transfer.m_ullTotal, std::string());
            m_mapTransfers.erase(it);
            return true;
        }
    }
    return false;
}

void CServeTransfers::ConnectionEnded(const std::string& strConnection, bool bLast)
{
    SweepUploads();
    // Which of several connections of one name a download belonged to is not known; it is told with
    // the last of them.
    for (auto it = m_mapTransfers.begin(); bLast && it != m_mapTransfers.end();)
    {
        const bool bTheirs = !it->second.m_bUpload && it->second.m_connection == strConnection;
        if (bTheirs)
        {
            Abandon(it->second);
        }
        it = bTheirs ? m_mapTransfers.erase(it) : std::next(it);
    }
}

void CServeTransfers::SweepUploads()
{
    bool bUploads = false;
    for (const auto& entry : m_mapTransfers)
    {
        bUploads = bUploads || entry.second.m_bUpload;
    }
    std::set<CFileId> setOpen;
    if (!bUploads || !OpenFiles(setOpen))
    {
        return;
    }
    for (auto it = m_mapTransfers.begin(); it != m_mapTransfers.end();)
    {
        CFileId id;
        const bool bOver = it->second.m_bUpload &&
                           (!FileId(it->second.m_strTemp, id, nullptr) || setOpen.count(id) == 0);
        if (bOver)
        {
            Abandon(it->second);
        }
        it = bOver ? m_mapTransfers.erase(it) : std::next(it);
    }
}

void CServeTransfers::EndAll()
{
    for (auto& entry : m_mapTransfers)
    {
        Abandon(entry.second);
    }
    m_mapTransfers.clear();
}

// Keeps what arrived of an upload, unless that is nothing.
void CServeTransfers::Abandon(CTransfer& transfer)
{
    std::string strKept;
    CFileId id;
    Orb_U64 ullLength = 0;
    if (transfer.m_bUpload && FileId(transfer.m_strTemp, id, &ullLength))
    {
        const std::string strPartial = PartialPath(transfer.m_strTarget);
        const bool bKeep = ullLength > 0 && !strPartial.empty() &&
                           KindOf(strPartial, false) != KIND_FOLDER &&
                           rename(transfer.m_strTemp.c_str(), strPartial.c_str()) == 0;
        if (bKeep)
        {
            strKept = Shown(strPartial);
        }
        else
        {
            unlink(transfer.m_strTemp.c_str());
        }
    }
    m_events.Incomplete(transfer.m_bUpload, transfer.m_connection, transfer.m_strShown,
                        transfer.m_ullDone, transfer.m_ullTotal, strKept);
}

std::string CServeTransfers::Shown(const std::string& strPath) const
{
    const size_t nRoot = m_strRoot == "/" ? 1 : m_strRoot.size() + 1;
    return strPath.size() > nRoot ? strPath.substr(nRoot) : strPath;
}
