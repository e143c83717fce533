// The files of uploads: where they stand, what they are called, how they count.

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ServeTransfers.h"
#include "TempFile.h"

namespace
{

const char PARTIAL_SUFFIX[] = ".osprey-partial";
const Orb_U64 CONTINUE = ~0ULL;

// A regular file under a name in an open folder.
bool RegularAt(const CDescriptor& folder, const std::string& strName, struct stat& info)
{
    return !strName.empty() &&
           fstatat(folder.Get(), strName.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(info.st_mode);
}

}  // namespace

std::string CServeTransfers::PartialName(const std::string& strName)
{
    const std::string strPartial = strName + PARTIAL_SUFFIX;
    return strPartial.size() > NAME_MAX ? std::string() : strPartial;
}

bool CServeTransfers::IsPartialName(const std::string& strName)
{
    const size_t nSuffix = sizeof PARTIAL_SUFFIX - 1;
    return strName.size() >= nSuffix &&
           strName.compare(strName.size() - nSuffix, nSuffix, PARTIAL_SUFFIX) == 0;
}

CServeTransfers::CFileId CServeTransfers::FileId(const CDescriptor& file)
{
    struct stat info
    {
    };
    return fstat(file.Get(), &info) == 0 ? CFileId(info.st_dev, info.st_ino) : CFileId();
}

const char* CServeTransfers::Fault(const CRootFolder& root, const CUpload& upload) const
{
    if (!m_quota.IsLimited())
    {
        return nullptr;
    }
    // What is kept goes on counting with the upload that continues it, or makes room for it.
    struct stat info
    {
    };
    const CDescriptor kept = root.Find(upload.m_target.m_strShown + PARTIAL_SUFFIX);
    const bool bKept = fstat(kept.Get(), &info) == 0 && S_ISREG(info.st_mode);
    const Orb_U64 ullStart = upload.m_ullOffset == CONTINUE ? 0 : upload.m_ullOffset;
    return m_quota.Fault(bKept ? static_cast<Orb_U64>(info.st_size) : 0,
                         std::max(upload.m_ullSize, ullStart));
}

Orb_U64 CServeTransfers::BeginUpload(const CUpload& upload, CDescriptor&& folder,
                                     std::string& strPath)
{
    CTransfer transfer;
    transfer.m_bUpload = true;
    transfer.m_connection = upload.m_connection;
    transfer.m_strShown = upload.m_target.m_strShown;
    transfer.m_strName = NameOf(transfer.m_strShown);
    transfer.m_ullTotal = upload.m_ullSize;
    // A file that is replaced hands its mode on.
    struct stat old
    {
    };
    const CDescriptor& replaced = upload.m_target.m_entry;
    const bool bReplaces = replaced.IsValid() && fstat(replaced.Get(), &old) == 0;
    if (bReplaces && access(replaced.Path().c_str(), W_OK) != 0)
    {
        return 0;
    }
    const unsigned int nMode = bReplaces ? old.st_mode : 0;
    ShareFolder(transfer, std::move(folder));
    if (!CreateTempAt(*transfer.m_pFolder, nMode, transfer.m_strTemp, transfer.m_file))
    {
        return 0;
    }
    const bool bContinue = upload.m_ullOffset == CONTINUE;
    if (!bContinue || !TakePartial(transfer, nMode))
    {
        RemovePartial(transfer);
        transfer.m_ullDone = bContinue ? 0 : upload.m_ullOffset;
    }
    else
    {
        m_quota.Subtract(transfer.m_ullDone);
    }
    transfer.m_ullCounted = std::max(transfer.m_ullTotal, transfer.m_ullDone);
    m_quota.Add(transfer.m_ullCounted);
    strPath = transfer.m_file.Path();
    return Add(std::move(transfer));
}

void CServeTransfers::ShareFolder(CTransfer& transfer, CDescriptor&& folder) const
{
    transfer.m_idFolder = FileId(folder);
    for (const auto& entry : m_mapTransfers)
    {
        if (entry.second.m_bUpload && entry.second.m_idFolder == transfer.m_idFolder)
        {
            transfer.m_pFolder = entry.second.m_pFolder;
            return;
        }
    }
    transfer.m_pFolder = std::make_shared<const CDescriptor>(std::move(folder));
}

// Goes on with what was kept. False when there is nothing of use. The library finds by itself how
// much there is.
bool CServeTransfers::TakePartial(CTransfer& transfer, unsigned int nMode)
{
    const std::string strPartial = PartialName(transfer.m_strName);
    const int nFolder = transfer.m_pFolder->Get();
    struct stat info
    {
    };
    if (!RegularAt(*transfer.m_pFolder, strPartial, info) ||
        static_cast<Orb_U64>(info.st_size) > transfer.m_ullTotal)
    {
        return false;
    }
    // Locked before it has the name that another server may look for.
    CDescriptor partial(
        openat(nFolder, strPartial.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!partial.IsValid() || !LockTemp(partial.Get()) ||
        renameat(nFolder, strPartial.c_str(), nFolder, transfer.m_strTemp.c_str()) != 0)
    {
        return false;
    }
    // Best effort, as for a new one.
    static_cast<void>(nMode != 0 && fchmod(partial.Get(), nMode & 0777) != 0);
    transfer.m_ullDone = static_cast<Orb_U64>(info.st_size);
    transfer.m_file = std::move(partial);
    return true;
}

void CServeTransfers::RemovePartial(const CTransfer& transfer)
{
    const std::string strPartial = PartialName(transfer.m_strName);
    struct stat info
    {
    };
    if (RegularAt(*transfer.m_pFolder, strPartial, info) &&
        unlinkat(transfer.m_pFolder->Get(), strPartial.c_str(), 0) == 0)
    {
        m_quota.Subtract(static_cast<Orb_U64>(info.st_size));
    }
}

// False when more has arrived than may: the upload is then over.
bool CServeTransfers::CountArrived(CTransfer& transfer, Orb_U64 ullDone)
{
    if (!m_quota.IsLimited() || ullDone <= transfer.m_ullCounted)
    {
        return true;
    }
    const char* pszFault = m_quota.Fault(transfer.m_ullCounted, ullDone);
    if (pszFault != nullptr)
    {
        CutOff(transfer, pszFault);
        return false;
    }
    m_quota.Add(ullDone - transfer.m_ullCounted);
    transfer.m_ullCounted = ullDone;
    return true;
}

// What else its peer sends before the connection ends goes into a file without a name.
void CServeTransfers::CutOff(CTransfer& transfer, const char* pszFault)
{
    unlinkat(transfer.m_pFolder->Get(), transfer.m_strTemp.c_str(), 0);
    m_quota.Subtract(transfer.m_ullCounted);
    transfer.m_ullCounted = 0;
    m_pServer->TerminateTask(transfer.m_lTask);
    m_events.Refused("upload", transfer.m_connection, transfer.m_strShown, pszFault);
}

void CServeTransfers::Deleted(const CDescriptor& file)
{
    struct stat info
    {
    };
    if (fstat(file.Get(), &info) == 0)
    {
        m_quota.Subtract(static_cast<Orb_U64>(info.st_size));
    }
}

bool CServeTransfers::Discard(const CRootFolder& root, const CConnectionName& connection,
                              const std::string& strShown)
{
    if (m_givenUp.m_strShown.empty() || m_givenUp.m_strShown != strShown)
    {
        return false;
    }
    const std::string& strKept = m_givenUp.m_strKept;
    const CDescriptor folder = root.Find(FolderOf(strKept));
    struct stat info
    {
    };
    if (RegularAt(folder, NameOf(strKept), info) &&
        CFileId(info.st_dev, info.st_ino) == m_givenUp.m_idFile &&
        unlinkat(folder.Get(), NameOf(strKept).c_str(), 0) == 0)
    {
        m_quota.Subtract(static_cast<Orb_U64>(info.st_size));
        m_events.Deleted(connection, strKept);
    }
    return true;
}

void CServeTransfers::FinishUpload(CTransfer& transfer)
{
    const int nFolder = transfer.m_pFolder->Get();
    struct stat old
    {
    };
    const bool bReplaces = RegularAt(*transfer.m_pFolder, transfer.m_strName, old);
    if (renameat(nFolder, transfer.m_strTemp.c_str(), nFolder, transfer.m_strName.c_str()) != 0)
    {
        const std::string strReason = strerror(errno);
        m_pServer->TerminateTask(transfer.m_lTask);  // its peer must not take it for stored
        const std::string strKept = Keep(transfer);
        m_events.Failed("upload", transfer.m_connection, transfer.m_strShown,
                        strReason + (strKept.empty() ? "" : ", kept as " + strKept));
        return;
    }
    m_quota.Subtract(bReplaces ? static_cast<Orb_U64>(old.st_size) : 0);
    RemovePartial(transfer);
    // One that shrank on its way announced more; one that began behind its start may hold less than
    // it has counted.
    m_quota.Subtract(transfer.m_ullCounted);
    struct stat info
    {
    };
    m_quota.Add(fstat(transfer.m_file.Get(), &info) == 0 ? static_cast<Orb_U64>(info.st_size) : 0);
    m_events.Finished(true, transfer.m_connection, transfer.m_strShown, transfer.m_ullDone,
                      transfer.Seconds());
}

// Keeps what arrived of an upload, unless that is nothing. Returns the path that it is kept under,
// or nothing.
std::string CServeTransfers::Keep(const CTransfer& transfer)
{
    const int nFolder = transfer.m_pFolder->Get();
    const std::string strPartial = PartialName(transfer.m_strName);
    m_quota.Subtract(transfer.m_ullCounted);
    struct stat info
    {
    };
    if (fstatat(nFolder, transfer.m_strTemp.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
    {
        return std::string();
    }
    struct stat older
    {
    };
    const bool bOlder = RegularAt(*transfer.m_pFolder, strPartial, older);
    const bool bKeep =
        info.st_size > 0 && !strPartial.empty() &&
        KindAt(*transfer.m_pFolder, strPartial) != KIND_FOLDER &&
        renameat(nFolder, transfer.m_strTemp.c_str(), nFolder, strPartial.c_str()) == 0;
    if (!bKeep)
    {
        unlinkat(nFolder, transfer.m_strTemp.c_str(), 0);
        return std::string();
    }
    m_quota.Subtract(bOlder ? static_cast<Orb_U64>(older.st_size) : 0);
    m_quota.Add(static_cast<Orb_U64>(info.st_size));
    return JoinInside(FolderOf(transfer.m_strShown), strPartial);
}
