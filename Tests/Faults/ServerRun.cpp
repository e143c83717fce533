#include "ServerRun.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "LibraryCalls.h"
#include "WireRecords.h"

namespace
{

const size_t BLOCK_SIZE = 32768;
const unsigned int FIRST_PROBE = 0xA0000000;

std::u16string Widen(const std::string& strASCII)
{
    return std::u16string(strASCII.begin(), strASCII.end());
}

}  // namespace

int COutsideHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    const COutside outside;
    const int nResult = m_host.OnRequest(eRequest, pRecord);
    if (eRequest == KS_REQUEST_UPLOAD_FILE)
    {
        static_cast<KS_UPLOAD_FILE*>(pRecord)->pProgress = this;
    }
    if (eRequest == KS_REQUEST_DOWNLOAD_FILE)
    {
        static_cast<KS_DOWNLOAD_FILE*>(pRecord)->pProgress = this;
    }
    return nResult;
}

void COutsideHost::OnDisconnect(const char* pszName)
{
    const COutside outside;
    m_host.OnDisconnect(pszName);
}

void COutsideHost::OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext)
{
    const COutside outside;
    m_host.OnProgress(ullDone, ullTotal, ullContext);
}

CServerRun::~CServerRun()
{
    End();
}

bool CServerRun::Create()
{
    const CInside inside;
    try
    {
        m_pServer = CreateOspreyServer(&m_host);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;  // as the factories say
    }
}

bool CServerRun::Start()
{
    if (m_pServer == nullptr && !Create())
    {
        return false;
    }
    const CInside inside;
    const bool bStarted = m_pServer->Startup(0, 0) != 0;
    m_wPort = GetListeningPort();
    return bStarted;
}

void CServerRun::End()
{
    if (m_pServer != nullptr)
    {
        const CInside inside;
        const bool bEnded = m_pServer->EndAllConnections(WAIT_MS) != 0;
        const bool bShut = m_pServer->Shutdown() != 0;
        m_pServer->Release();
        m_pServer = nullptr;
        const COutside outside;
        EXPECT_TRUE(bEnded) << "waited in vain for the end of all connections";
        EXPECT_TRUE(bShut);
    }
}

unsigned int CServerRun::Put(unsigned int dwChannel, const std::string& strData)
{
    std::string strCopy = strData;
    const CInside inside;
    return m_pServer->PutChannelPacket(dwChannel, strCopy.data(),
                                       static_cast<unsigned int>(strCopy.size()));
}

std::u16string CServerRun::GetWidePath(const std::string& strName) const
{
    return Widen(m_folder.GetPath(strName));
}

void CTalk::Note(const std::string& strWord)
{
    m_strTranscript += (m_strTranscript.empty() ? "" : " ") + strWord;
}

void CTalk::Open()
{
    EXPECT_TRUE(m_peer.Connect(m_run.GetPort()));
}

bool CTalk::Browse()
{
    Open();
    return !Ask(Wire::Brow() + Probe(0)).empty();
}

void CTalk::Close()
{
    m_peer.Reset();
}

void CTalk::Send(const std::string& strBytes)
{
    // Whether the server still takes it shows in what it answers.
    for (size_t nDone = 0; nDone < strBytes.size();)
    {
        pollfd pfd = {m_peer.GetHandle(), POLLOUT, 0};
        const int nReady = poll(&pfd, 1, WAIT_MS);
        const size_t nSent = nReady == 1 ? m_peer.SendWithoutWaiting(strBytes.substr(nDone)) : 0;
        if (nSent == 0)
        {
            EXPECT_EQ(nReady, 1) << "waited in vain for the server to take what is sent";
            return;
        }
        nDone += nSent;
    }
}

bool CTalk::TakeBytes(std::string& strBytes, size_t nSize)
{
    strBytes.assign(nSize, '\0');
    for (size_t nDone = 0; nDone < nSize;)
    {
        pollfd pfd = {m_peer.GetHandle(), POLLIN, 0};
        if (poll(&pfd, 1, WAIT_MS) != 1)
        {
            ADD_FAILURE() << "waited in vain for an answer, or for the connection to end, after: "
                          << m_strTranscript;
            return false;
        }
        const ssize_t nReceived = recv(m_peer.GetHandle(), &strBytes[nDone], nSize - nDone, 0);
        if (nReceived <= 0)
        {
            return false;
        }
        nDone += static_cast<size_t>(nReceived);
    }
    return true;
}

std::string CTalk::Take()
{
    std::string strHeader;
    std::string strPayload;
    if (m_bEnded || !TakeBytes(strHeader, 12) || !TakeBytes(strPayload, Wire::GetU32(strHeader, 8)))
    {
        if (!m_bEnded)
        {
            Note("end");
        }
        m_bEnded = true;
        return "";
    }
    return strHeader + strPayload;
}

std::string CTalk::Ask(const std::string& strRequest)
{
    Send(strRequest);
    std::string strReply = Take();
    if (!strReply.empty())
    {
        const std::string strCode = Wire::GetCode(strReply);
        Note(strCode + ":" + std::to_string(Wire::GetU32(strReply, 16)));
    }
    return strReply;
}

// A request that changes nothing and is answered with 0.
std::string CTalk::Probe(unsigned int dwID) const
{
    return Wire::Delt(FIRST_PROBE + dwID, m_run.GetWidePath("nothing/there"));
}

bool CTalk::Upload(unsigned int dwID, const std::string& strName, const std::string& strData)
{
    std::string strReply = Ask(Wire::Upfi(dwID, strData.size(), 0, m_run.GetWidePath(strName)));
    bool bGood = Wire::GetCode(strReply) == "UPFR" && Wire::GetU32(strReply, 16) == 0;
    for (size_t nDone = 0; bGood; nDone += BLOCK_SIZE)
    {
        const bool bLast = nDone >= strData.size();
        strReply =
            Ask(Wire::Upfb(dwID, bLast ? 1 : 0, bLast ? "" : strData.substr(nDone, BLOCK_SIZE)));
        bGood = Wire::GetCode(strReply) == "UPBR" && Wire::GetU32(strReply, 16) == 0;
        if (bLast)
        {
            break;
        }
    }
    return bGood;
}

// Behind each block the peer asks something else: a stream that goes on has queued its next block
// before that is answered, so that a stream that has stopped shows without waiting.
bool CTalk::Download(unsigned int dwID, const std::string& strName, std::string& strData)
{
    Send(Wire::Dfil(dwID, 0, m_run.GetWidePath(strName)));
    unsigned int dwProbes = 0;
    for (;;)
    {
        const std::string strPacket = Take();
        const std::string strCode = Wire::GetCode(strPacket);
        if (strPacket.empty() ||
            (strCode == "DTRT" && Wire::GetU32(strPacket, 12) == FIRST_PROBE + dwProbes))
        {
            Note("stopped");
            return false;
        }
        if (strCode == "DTRT")
        {
            continue;
        }
        const bool bReply = strCode == "DFRT";
        Note(strCode + ":" +
             std::to_string(bReply ? Wire::GetU32(strPacket, 16) : strPacket.size() - 16));
        if (bReply && Wire::GetU32(strPacket, 16) != 0)
        {
            return false;
        }
        strData += bReply ? "" : strPacket.substr(16);
        if (!bReply && strPacket.size() == 16)
        {
            break;
        }
        Send(Probe(++dwProbes));
    }
    return true;
}
