#include "AppearedFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "TempFile.h"

namespace
{

const long long SETTLE_MS = 200;
const long long WRITER_MS = 1000;  // when its closing is told, it is sooner
const unsigned int LONGEST_PAUSE = 30;

// The system grants no read lease on a file that anybody has open for writing. Where it grants
// none at all, the closing that was told must do.
bool HasWriter(const std::string& strPath)
{
    const int nFile = open(strPath.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (nFile < 0)
    {
        return false;
    }
    const bool bWriter = fcntl(nFile, F_SETLEASE, F_RDLCK) != 0 && errno == EAGAIN;
    close(nFile);
    return bWriter;
}

}  // namespace

unsigned int PauseSeconds(unsigned int dwFailures)
{
    return dwFailures > 5 ? LONGEST_PAUSE
                          : std::min(1U << (std::max(dwFailures, 1U) - 1), LONGEST_PAUSE);
}

void CAppearedFiles::Add(const std::set<std::string>& setNames, CTime now)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const std::string& strName : setNames)
    {
        CFile& file = m_mapFiles[strName];
        // One that failed waits on, unless it is another one now.
        const CFileStamp before = file.m_stamp;
        StampOf(JoinPath(m_strRoot, strName), file.m_stamp);
        if (file.m_dwFailures == 0 || file.m_stamp != before)
        {
            file.m_due = now + SETTLE_MS;
            file.m_dwFailures = 0;
        }
    }
}

CAppearedFiles::EState CAppearedFiles::Look(const std::string& strName, CFile& file,
                                            CTime now) const
{
    const std::string strPath = JoinPath(m_strRoot, strName);
    CFileStamp stamp;
    if (KindOf(strPath, false) != KIND_FILE || !StampOf(strPath, stamp) ||
        m_journal.Has(strName, stamp))
    {
        return STATE_GONE;
    }
    if (stamp != file.m_stamp)
    {
        file.m_stamp = stamp;
        file.m_dwFailures = 0;
        file.m_due = now + SETTLE_MS;
        return STATE_SETTLES;
    }
    if (HasWriter(strPath))
    {
        file.m_due = now + WRITER_MS;
        return STATE_SETTLES;
    }
    return STATE_READY;
}

std::vector<std::string> CAppearedFiles::Ready(CTime now)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> listReady;
    for (auto it = m_mapFiles.begin(); it != m_mapFiles.end();)
    {
        const EState eState =
            it->second.m_due > now ? STATE_SETTLES : Look(it->first, it->second, now);
        if (eState == STATE_READY)
        {
            listReady.push_back(it->first);
        }
        it = eState == STATE_GONE ? m_mapFiles.erase(it) : std::next(it);
    }
    return listReady;
}

CAppearedFiles::CTime CAppearedFiles::NextTime() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    CTime next = -1;
    for (const auto& entry : m_mapFiles)
    {
        next = next < 0 ? entry.second.m_due : std::min(next, entry.second.m_due);
    }
    return next;
}

void CAppearedFiles::Sent(const std::string& strName, const CFileStamp* pStamp)
{
    // One that changed on its way is sent once more.
    if (pStamp != nullptr)
    {
        m_journal.Add(strName, *pStamp);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_mapFiles.erase(strName);
    }
}

bool CAppearedFiles::Failed(const std::string& strName, CTime now)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_mapFiles.find(strName);
    if (it == m_mapFiles.end())
    {
        return false;
    }
    it->second.m_due = now + PauseSeconds(++it->second.m_dwFailures) * 1000LL;
    return it->second.m_dwFailures == 1;
}
