#include "BackCheck.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

CBackCheck::~CBackCheck()
{
    if (m_nLocal >= 0)
    {
        close(m_nLocal);
    }
}

bool CBackCheck::Begin(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    m_nLocal = open(m_file.m_strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_nLocal < 0 || m_back.Descriptor() < 0)
    {
        NotVerified(strerror(errno));
        return false;
    }
    std::string strPath = m_file.m_strShown;
    std::replace(strPath.begin(), strPath.end(), '/', '\\');
    m_shown.emplace(m_progress, m_file.m_strShown, true);
    strLocal = m_back.Path();
    // The name that it was sent under.
    strRemote = "FILESUBMIT|" + m_strTo + "|" + strPath;
    llNumber = 0;
    return true;
}

bool CBackCheck::ReadOn()
{
    const bool bRead = m_digestBack.AddFile(m_back.Descriptor(), WHOLE_FILE);
    m_back.Forget(m_digestBack.Position());
    return bRead;
}

void CBackCheck::Move(unsigned int dwPercent, Orb_U64 ullAnnounced)
{
    static_cast<void>(ReadOn());
    static_cast<void>(m_digestLocal.AddFile(m_nLocal, m_digestBack.Position()));
    m_shown->Moves(dwPercent, m_digestBack.Position(), ullAnnounced);
}

void CBackCheck::Complete(Orb_U64 ullAnnounced)
{
    m_shown.reset();
    if (!ReadOn() || !m_digestLocal.AddFile(m_nLocal, WHOLE_FILE))
    {
        NotVerified(std::string("sent, but not verified: ") + strerror(errno));
        return;
    }
    m_file.m_strDigest = m_digestLocal.Finish();
    // An empty one says nothing: it could not be computed.
    m_file.m_bSame = m_back.Size() == ullAnnounced && !m_file.m_strDigest.empty() &&
                     m_digestBack.Finish() == m_file.m_strDigest;
    if (!m_file.m_bSame)
    {
        NotVerified("SHA-256 differs");
    }
}

void CBackCheck::NotVerified(const std::string& strReason)
{
    m_progress.CountNotVerified();
    m_progress.Fails(m_file.m_strShown, strReason, false);
}

// A connection that is lost says nothing about the file.
void CBackCheck::Fail(const std::string& strReason, int nCode)
{
    m_shown.reset();
    if (nCode != 0)
    {
        m_progress.CountNotVerified();
    }
    m_progress.Fails(m_file.m_strShown, "sent, but not verified: " + strReason, false);
}
