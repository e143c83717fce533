#include "OspreyClientImpl.h"

#include <algorithm>
#include <climits>
#include <new>

namespace
{

const int MAX_EVENTS = 20;
const int MAX_NAME_UNITS = 259;

const unsigned int CANCEL_MS = 1000;

// Stands in for the host's callback once the host has released the client from inside one.
class CNoCallback final : public IFileClientCallback
{
public:
    void OnConnected() override {}
    void OnStartFailed(int /*nReason*/) override {}
    void OnDisconnected(int /*nError*/) override {}
    bool GetNextFile(std::string& /*strLocalPath*/, std::string& /*strRemote*/,
                     long long& /*llNumber*/) override
    {
        return false;
    }
    void OnProgress(unsigned int /*dwPercent*/) override {}
    void OnFileCompleted() override {}
    void OnFileFailed(int /*nCode*/) override {}
};

CNoCallback g_noCallback;

}  // namespace

COspreyClientImpl::COspreyClientImpl(IFileClientCallback* pCallback)
    : m_pCallback(pCallback),
      m_stream(&m_engine),
      m_keepAliveHeader{WXSP_VERSION, BROW, 0},
      m_stopPipe(&m_engine),
      m_timers(&m_engine, this)
{
}

Orb_BOOL COspreyClientImpl::Start(const unsigned short* pName, unsigned int dwReserved,
                                  unsigned int dwIPAddress, unsigned short wPort,
                                  unsigned int dwConnectTimeoutMs)
{
    if (m_thread.IsStarted() || m_pCallback == nullptr || pName == nullptr ||
        UTF16StrLen(pName) > MAX_NAME_UNITS)
    {
        return Orb_FALSE;
    }
    try
    {
        m_strConnectionName = pName;
    }
    catch (const std::bad_alloc&)
    {
        return Orb_FALSE;
    }
    m_dwReserved = dwReserved;
    m_dwIPAddress = dwIPAddress;
    m_wPort = wPort;
    m_dwConnectTimeout = std::min(dwConnectTimeoutMs, static_cast<unsigned int>(INT_MAX));
    m_bStopRequested = false;
    m_stream.m_bConnectSuccessful = Orb_FALSE;
    if (m_engine.Create(MAX_EVENTS) && m_stopPipe.Create() &&
        m_stream.Create(CSocketAddress(INADDR_ANY, 0)) && m_bufferRing.Create(WXSP_RING_SIZE) &&
        m_bufferReceive.Create(WXSP_CLIENT_RECEIVE_SIZE) &&
        m_thread.Start(&COspreyClientImpl::ThreadProc, this))
    {
        return Orb_TRUE;
    }
    Stop();
    return Orb_FALSE;
}

Orb_BOOL COspreyClientImpl::Stop()
{
    if (m_thread.IsCurrent())
    {
        m_engine.StopLoop(CODE_STOPPED);
        return Orb_FALSE;
    }
    // Before the loop's own flag, which the worker clears: see RunStep.
    m_bStopRequested = true;
    m_thread.Stop(m_engine, m_stopPipe);
    TearDown();
    return Orb_TRUE;
}

void COspreyClientImpl::TearDown()
{
    m_timers.Drop(m_pConnectTimer);
    m_timers.Drop(m_pKeepAliveTimer);
    m_timers.Drop(m_pCancelTimer);
    m_timers.Clear();
    ReleaseParts();
    m_buffersOut.FreeAll();
}

void COspreyClientImpl::ReleaseClient()
{
    if (m_thread.IsCurrent())
    {
        // Takes effect at the end of ThreadProc; the host may be gone by then.
        m_bReleaseRequested = true;
        m_pCallback = &g_noCallback;
        m_engine.StopLoop(CODE_STOPPED);
        return;
    }
    Stop();
    delete this;
}

void* COspreyClientImpl::ThreadProc(void* pThis)
{
    COspreyClientImpl* pClient = static_cast<COspreyClientImpl*>(pThis);
    pClient->InitialThreadProc();
    if (pClient->m_bReleaseRequested)
    {
        pClient->m_thread.Detach();
        pClient->TearDown();
        delete pClient;
    }
    return nullptr;
}

void COspreyClientImpl::InitialThreadProc()
{
    m_stream.m_pCallback = this;
    if (!SetUp())
    {
        return;
    }
    m_pCallback->OnConnected();
    while (TransferFile())
    {
    }
}

bool COspreyClientImpl::SetUp()
{
    if (m_stream.IsPendingDestroy() || !m_stream.Connect(CSocketAddress(m_dwIPAddress, m_wPort)) ||
        !m_timers.Arm(m_pConnectTimer, TIMER_CONNECT, m_dwConnectTimeout, false))
    {
        return FailStart();
    }
    if (!RunSetUpStep(PHASE_NONE))
    {
        return false;
    }
    m_stream.Receive(&m_bufferReceive);
    if (!SendNameConnection())
    {
        return FailStart();
    }
    return RunSetUpStep(PHASE_NAMING);
}

bool COspreyClientImpl::FailStart()
{
    m_pCallback->OnStartFailed(0);
    return false;
}

bool COspreyClientImpl::RunSetUpStep(CLIENT_PHASE ePhase)
{
    const unsigned int dwCode = RunStep(ePhase);
    return dwCode == CODE_SUCCESS || (dwCode != CODE_STOPPED && FailStart());
}

// One loop run that no stop can slip past: a stop sets m_bStopRequested and then the loop's flag,
// this clears the loop's flag and then looks at m_bStopRequested. The clean-up is what a stop asks
// for, so none counts there. The result is set first: a run that somebody else ends is never a
// success.
unsigned int COspreyClientImpl::RunStep(CLIENT_PHASE ePhase)
{
    m_engine.SetLoopResult(CODE_STOPPED);
    m_engine.ClearStop();
    if (m_bStopRequested && ePhase != PHASE_CLEAN_UP)
    {
        return CODE_STOPPED;
    }
    m_ePhase = ePhase;
    const int nCode = m_engine.RunLoop();
    m_ePhase = PHASE_NONE;
    return static_cast<unsigned int>(nCode);
}

unsigned int COspreyClientImpl::TryStartTransfer()
{
    try
    {
        return StartTransfer();
    }
    catch (const std::bad_alloc&)
    {
        return CODE_NO_MEMORY;
    }
}

// One file from GetNextFile to its result. False when the run is over.
bool COspreyClientImpl::TransferFile()
{
    m_strLocalPath.clear();
    m_strRemote.clear();
    m_strRemotePath.clear();
    m_llNumber = 0;
    if (!m_pCallback->GetNextFile(m_strLocalPath, m_strRemote, m_llNumber) || m_bReleaseRequested)
    {
        return false;
    }
    // A stop that came while the host was called back is lost, as hosts are told; from here on,
    // none is.
    m_bStopRequested = false;
    unsigned int dwCode = TryStartTransfer();
    if (dwCode == CODE_SUCCESS)
    {
        dwCode = EndTransfer(RunStep(PHASE_FILE));
        if (dwCode == CODE_STOPPED)
        {
            CleanUp();
            return false;
        }
        if (dwCode == CODE_CONNECTION_LOST)
        {
            return false;
        }
    }
    if (dwCode == CODE_SUCCESS)
    {
        m_pCallback->OnFileCompleted();
    }
    else
    {
        m_pCallback->OnFileFailed(static_cast<int>(dwCode));
    }
    return true;
}

// Gives the requests that end the file at the peer a second to leave. A further stop does not cut
// that short: stopped while the timer is still armed means go on.
void COspreyClientImpl::CleanUp()
{
    if (!SendCleanUp() || !m_timers.Arm(m_pCancelTimer, TIMER_CANCEL, CANCEL_MS, false))
    {
        return;
    }
    unsigned int dwCode = RunStep(PHASE_CLEAN_UP);
    while (dwCode == CODE_STOPPED && m_pCancelTimer->m_nHeapIndex >= 0)
    {
        dwCode = RunStep(PHASE_CLEAN_UP);
    }
    m_timers.Drop(m_pCancelTimer);
}

void COspreyClientImpl::StopLoop(unsigned int dwCode)
{
    m_ePhase = PHASE_NONE;
    m_engine.StopLoop(static_cast<int>(dwCode));
}
