#include "Reception.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Journal.h"
#include "TempFile.h"
#include "Text.h"

namespace
{

Orb_U64 SizeOf(int nFile)
{
    struct stat info
    {
    };
    return fstat(nFile, &info) == 0 ? static_cast<Orb_U64>(info.st_size) : 0;
}

// A link to a file stays, and the file that it leads to is replaced. One that leads nowhere is
// replaced itself.
std::string BehindLink(const std::string& strTarget)
{
    const bool bLink =
        KindOf(strTarget, false) == KIND_LINK && KindOf(strTarget, true) == KIND_FILE;
    return bLink ? RealPath(strTarget) : strTarget;
}

}  // namespace

CReception::CReception(const CDownloadEntry& entry, CProgress& progress, CJournal* pJournal)
    : m_entry(entry), m_progress(progress), m_pJournal(pJournal)
{
}

CReception::~CReception()
{
    CReception::CleanUp();
    if (m_nTemp >= 0)
    {
        close(m_nTemp);
    }
}

bool CReception::Begin(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    if (!Prepare())
    {
        return false;
    }
    if (!m_entry.m_strDigest.empty())
    {
        m_digest.emplace();
    }
    strLocal = Temp();
    strRemote = m_entry.m_strName;
    llNumber = 0;
    m_shown.emplace(m_progress, m_entry.m_strName);
    return true;
}

bool CReception::CheckTarget()
{
    const EFileKind eKind = KindOf(m_entry.m_strTarget, true);
    std::string strFault;
    if (eKind == KIND_FOLDER || eKind == KIND_OTHER)
    {
        strFault = " exists and is no regular file";
    }
    m_strTarget = BehindLink(m_entry.m_strTarget);
    struct stat old
    {
    };
    // Whoever may write everything means what the mode says all the same.
    if (eKind == KIND_FILE && stat(m_strTarget.c_str(), &old) == 0 &&
        ((old.st_mode & 0222U) == 0 ||
         faccessat(AT_FDCWD, m_strTarget.c_str(), W_OK, AT_EACCESS) != 0))
    {
        strFault = " exists and is read-only";
    }
    if (!strFault.empty())
    {
        m_progress.Fails(m_entry.m_strName, PlainText(m_entry.m_strTarget) + strFault, true);
    }
    return strFault.empty();
}

bool CReception::Prepare()
{
    if (!CheckTarget())
    {
        return false;
    }
    struct stat old
    {
    };
    const bool bReplaces = stat(m_strTarget.c_str(), &old) == 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bCleanedUp)
    {
        return false;
    }
    m_nTemp = CreateTemp(FolderOf(m_strTarget), bReplaces ? old.st_mode : 0, m_strTemp);
    if (m_nTemp < 0)
    {
        const int nError = errno;
        m_strTemp.clear();
        m_progress.Fails(
            m_entry.m_strName,
            "no file can be made in " + PlainText(FolderOf(m_strTarget)) + ": " + strerror(nError),
            true);
        return false;
    }
    return true;
}

std::string CReception::Temp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_strTemp;
}

void CReception::Move(unsigned int dwPercent, Orb_U64 ullAnnounced)
{
    // Little by little: all of a large file at its end would keep the peer waiting too long.
    if (m_digest)
    {
        static_cast<void>(m_digest->AddFile(m_nTemp, WHOLE_FILE));
    }
    m_shown->Moves(dwPercent, SizeOf(m_nTemp), ullAnnounced);
}

void CReception::Complete(Orb_U64 ullAnnounced)
{
    const Orb_U64 ullBytes = SizeOf(m_nTemp);
    if (ullBytes != ullAnnounced)
    {
        Fail("the server announced " + std::to_string(ullAnnounced) + " bytes and sent " +
                 std::to_string(ullBytes),
             0);
        return;
    }
    if (!CheckDigest() || !Store())
    {
        return;
    }
    if (m_pJournal != nullptr)
    {
        m_pJournal->Add(m_entry.m_strName, m_nTemp);
    }
    m_shown->Ends(ullBytes);
}

bool CReception::CheckDigest()
{
    if (!m_digest)
    {
        return true;
    }
    if (!m_digest->AddFile(m_nTemp, WHOLE_FILE))
    {
        Fail("it arrived, but cannot be read: " + std::string(strerror(errno)), 0);
        return false;
    }
    if (m_digest->Finish() == m_entry.m_strDigest)
    {
        return true;
    }
    m_progress.CountNotVerified();
    Fail("SHA-256 differs", 0);
    return false;
}

bool CReception::Store()
{
    const std::string strTemp = Temp();
    if (!SyncDescriptor(m_nTemp) || rename(strTemp.c_str(), m_strTarget.c_str()) != 0)
    {
        Fail("it arrived, but cannot be stored: " + std::string(strerror(errno)), 0);
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_strTemp.clear();
    }
    // The name is on the disk once its folder is; a failure leaves nothing to undo.
    static_cast<void>(SyncFile(FolderOf(m_strTarget)));
    return true;
}

void CReception::Fail(const std::string& strReason, int nCode)
{
    if (m_entry.m_bListed && nCode == OSPREY_FILE_NOT_FOUND)
    {
        m_progress.CountNotVerified();
    }
    CleanUp();
    if (m_shown)
    {
        m_shown->Fails(m_entry.m_strName, strReason, true);
        return;
    }
    m_progress.Fails(m_entry.m_strName, strReason, true);
}

void CReception::CleanUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bCleanedUp = true;
    if (!m_strTemp.empty())
    {
        unlink(m_strTemp.c_str());
        m_strTemp.clear();
    }
}
