#include "ServeTransfers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>

#include "TempFile.h"

namespace
{

// A peer can begin transfers without end and give them up untold. A connection has at most 256
// alive, so a few connections never come near.
const size_t MOST_TRANSFERS = 4096;
const int PAUSES = 20;

}  // namespace

double CServeTransfers::CTransfer::Seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

CServeTransfers::CServeTransfers(CServeEvents& events, CServeQuota& quota)
    : m_events(events), m_quota(quota), m_pOpenFiles(opendir("/proc/self/fd"), closedir)
{
}

bool CServeTransfers::FileId(const CDescriptor& file, CFileId& id, Orb_U64* pSize)
{
    struct stat info
    {
    };
    if (fstat(file.Get(), &info) != 0)
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

// False when the system does not tell.
bool CServeTransfers::CountOpen(COpenFiles& mapOpen) const
{
    if (m_pOpenFiles == nullptr)
    {
        return false;
    }
    rewinddir(m_pOpenFiles.get());
    while (const dirent* pEntry = readdir(m_pOpenFiles.get()))
    {
        struct stat info
        {
        };
        if (fstatat(dirfd(m_pOpenFiles.get()), pEntry->d_name, &info, 0) == 0)
        {
            ++mapOpen[CFileId(info.st_dev, info.st_ino)];
        }
    }
    return true;
}

// An upload that only the transfer itself has open.
bool CServeTransfers::IsOver(const CTransfer& transfer, const COpenFiles& mapOpen)
{
    const auto it = mapOpen.find(transfer.m_idFile);
    return transfer.m_bUpload && (it == mapOpen.end() || it->second < 2);
}

std::string CServeTransfers::Hold(CDescriptor&& descriptor)
{
    m_held = std::move(descriptor);
    return m_held.Path();
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
        // What is over must not stand for a connection that came later, at the same address.
        SweepUploads();
    }
    if (m_mapTransfers.size() >= MOST_TRANSFERS)
    {
        const auto itLeaves = OneTooMany();
        Abandon(itLeaves->second);
        if (itLeaves->second.m_bUpload)
        {
            m_pServer->TerminateTask(itLeaves->second.m_lTask);  // nobody takes care of it any more
        }
        EndTransfer(itLeaves);
    }
    transfer.m_lTask = m_pServer->GetCallbackTask();
    transfer.m_start = std::chrono::steady_clock::now();
    m_mapTransfers.emplace(++m_ullLastId, std::move(transfer));
    return m_ullLastId;
}

// The oldest of the connection that has the most: nobody makes room for others' excess.
CServeTransfers::CMap::iterator CServeTransfers::OneTooMany()
{
    std::map<long, size_t> mapCounts;
    for (const auto& entry : m_mapTransfers)
    {
        ++mapCounts[entry.second.m_lTask];
    }
    const auto itMost =
        std::max_element(mapCounts.begin(), mapCounts.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    return std::find_if(m_mapTransfers.begin(), m_mapTransfers.end(),
                        [itMost](const auto& entry)
                        { return entry.second.m_lTask == itMost->first; });
}

void CServeTransfers::OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext)
{
    ReleaseHeld();
    try
    {
        Advance(ullDone, ullTotal, ullContext);
    }
    catch (const std::exception&)
    {
        // No memory: its peer must not take for stored what may not be.
        const auto it = m_mapTransfers.find(ullContext);
        if (it != m_mapTransfers.end())
        {
            m_pServer->TerminateTask(it->second.m_lTask);
        }
    }
}

void CServeTransfers::Advance(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext)
{
    const auto it = m_mapTransfers.find(ullContext);
    if (it == m_mapTransfers.end())
    {
        return;
    }
    CTransfer& transfer = it->second;
    if (transfer.m_bUpload && !CountArrived(transfer, ullDone))
    {
        EndTransfer(it);
        return;
    }
    // An upload's block that moves nothing is an empty one, and that is always the last: a file
    // that shrank on its way ends so.
    const bool bEmptyBlock = transfer.m_bUpload && ullDone == transfer.m_ullDone;
    transfer.m_ullDone = ullDone;
    transfer.m_ullTotal = ullTotal;
    if (ullDone < ullTotal && !bEmptyBlock)
    {
        return;
    }
    if (!transfer.m_bUpload)
    {
        m_events.Finished(false, transfer.m_connection, transfer.m_strShown, ullDone,
                          transfer.Seconds());
    }
    else if (!transfer.m_bWhole)
    {
        transfer.m_bWhole = FinishUpload(transfer);
    }
    // Only after an empty block is the file sure to be closed.
    if (!transfer.m_bWhole || bEmptyBlock || !m_quota.IsLimited())
    {
        EndTransfer(it);
    }
}

void CServeTransfers::EndTransfer(CMap::iterator it)
{
    if (it->second.m_bGone)
    {
        m_quota.Subtract(it->second.m_ullCounted);
    }
    m_mapTransfers.erase(it);
}

// The same, for one.
bool CServeTransfers::IsOver(const CTransfer& transfer) const
{
    COpenFiles mapOpen;
    static_cast<void>(CountOpen(mapOpen));
    return IsOver(transfer, mapOpen);
}

bool CServeTransfers::Discard(const CConnectionName& connection, const std::string& strShown)
{
    for (auto it = m_mapTransfers.begin(); it != m_mapTransfers.end(); ++it)
    {
        CTransfer& transfer = it->second;
        if (transfer.m_bUpload && !transfer.m_bWhole && transfer.m_strShown == strShown &&
            transfer.m_connection == connection && IsOver(transfer))
        {
            unlinkat(transfer.m_pFolder->Get(), transfer.m_strTemp.c_str(), 0);
            m_quota.Subtract(transfer.m_ullCounted);
            m_events.Incomplete(true, connection, transfer.m_strShown, transfer.m_ullDone,
                                transfer.m_ullTotal, std::string());
            m_mapTransfers.erase(it);
            return true;
        }
    }
    return false;
}

void CServeTransfers::ConnectionEnded()
{
    ReleaseHeld();
    // The end of a connection without a name is not told: what it uploaded shows in the files.
    bool bUnnamed = false;
    const long lTask = m_pServer->GetCallbackTask();
    for (auto it = m_mapTransfers.begin(); it != m_mapTransfers.end();)
    {
        const auto itThis = it++;
        if (itThis->second.m_lTask == lTask)
        {
            Abandon(itThis->second);
            EndTransfer(itThis);
            continue;
        }
        bUnnamed = bUnnamed || (itThis->second.m_bUpload && !itThis->second.m_connection);
    }
    if (bUnnamed)
    {
        SweepUploads();
    }
}

void CServeTransfers::SweepUploads()
{
    bool bUploads = false;
    for (const auto& entry : m_mapTransfers)
    {
        bUploads = bUploads || entry.second.m_bUpload;
    }
    COpenFiles mapOpen;
    if (!bUploads || !CountOpen(mapOpen))
    {
        return;
    }
    for (auto it = m_mapTransfers.begin(); it != m_mapTransfers.end();)
    {
        const auto itThis = it++;
        if (IsOver(itThis->second, mapOpen))
        {
            Abandon(itThis->second);
            EndTransfer(itThis);
        }
    }
}

// Finds uploads that were given up. A look at every open file, for which all the others wait: it
// takes a small part of the time, unless an earlier upload to the same file may be among them.
void CServeTransfers::SweepBefore(const std::string& strShown)
{
    const bool bSame = std::any_of(m_mapTransfers.begin(), m_mapTransfers.end(),
                                   [&strShown](const auto& entry)
                                   {
                                       return entry.second.m_bUpload && !entry.second.m_bWhole &&
                                              entry.second.m_strShown == strShown;
                                   });
    const CTime begun = std::chrono::steady_clock::now();
    if (bSame || begun >= m_timeSweepDue)
    {
        SweepUploads();
        const CTime ended = std::chrono::steady_clock::now();
        m_timeSweepDue = ended + PAUSES * (ended - begun);
    }
}

void CServeTransfers::EndAll()
{
    ReleaseHeld();
    for (auto& entry : m_mapTransfers)
    {
        Abandon(entry.second);
    }
    m_mapTransfers.clear();
}

void CServeTransfers::Abandon(CTransfer& transfer)
{
    if (!transfer.m_bWhole)
    {
        m_events.Incomplete(transfer.m_bUpload, transfer.m_connection, transfer.m_strShown,
                            transfer.m_ullDone, transfer.m_ullTotal,
                            transfer.m_bUpload ? Keep(transfer) : std::string());
    }
}
