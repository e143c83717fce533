#include "ClientLane.h"

#include <chrono>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

#include "Text.h"
#include "Units.h"

namespace
{

const long long NAMING_MS = 10000;  // time to answer once connected
const long long STOP_MS = 500;      // a stop that has done nothing by then is lost

long long SteadyMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

// Marks the time that the worker spends in the host: it may be long (a slow disk) and is no stall.
class CClientLane::CBusy final
{
public:
    explicit CBusy(CClientLane& lane) : m_lane(lane)
    {
        m_lane.m_bInside = true;
    }
    ~CBusy()
    {
        m_lane.Touch();
        m_lane.m_bInside = false;
    }
    CBusy(const CBusy&) = delete;
    CBusy& operator=(const CBusy&) = delete;

private:
    CClientLane& m_lane;
};

CClientLane::CClientLane(const COptions& options, CTransferWork& work, CProgress& progress,
                         std::function<void()> fnWake, std::function<void()> fnAdvanced)
    : m_options(options),
      m_work(work),
      m_progress(progress),
      m_fnWake(std::move(fnWake)),
      m_fnAdvanced(std::move(fnAdvanced)),
      m_pClient(work.MakeClient(*this))
{
    ToUTF16(options.m_strConnection, m_listName);
}

CClientLane::~CClientLane()
{
    if (m_bOpen)
    {
        Stop(STOP_INTERRUPTED);
        Close();
    }
}

void CClientLane::Start(unsigned int dwAddress)
{
    m_llStarted = SteadyMs();
    Touch();
    m_bOpen = m_pClient->Start(m_listName.data(), dwAddress, m_options.m_peer.m_wPort,
                               m_options.m_dwConnectSeconds * 1000);
    m_bStartRefused = !m_bOpen;
}

bool CClientLane::IsOver() const
{
    return IsEnding() ? m_bStopped.load() : m_nEnd != END_NOT_YET;
}

bool CClientLane::IsStalled() const
{
    if (m_bInside || IsEnding() || m_nEnd != END_NOT_YET)
    {
        return false;
    }
    const long long llNow = SteadyMs();
    if (!m_bConnected)
    {
        return llNow - m_llStarted > m_options.m_dwConnectSeconds * 1000LL + NAMING_MS;
    }
    return m_options.m_dwStallSeconds != 0 &&
           llNow - m_llTouched > m_options.m_dwStallSeconds * 1000LL;
}

void CClientLane::Stop(EStop eStop)
{
    if (IsEnding())
    {
        return;
    }
    m_eStop = eStop;
    m_llEnding = SteadyMs();
    const auto StopClient = [this]
    {
        m_pClient->Stop();
        m_bStopped = true;
        m_fnWake();
    };
    try
    {
        m_stopper = std::thread(StopClient);
    }
    catch (const std::system_error&)
    {
        StopClient();
    }
}

void CClientLane::Close()
{
    if (m_stopper.joinable())
    {
        m_stopper.join();
    }
    else
    {
        m_pClient->Stop();
    }
    m_bOpen = false;
}

bool CClientLane::IsEnding() const
{
    return m_llEnding != 0;
}

bool CClientLane::IsStopLost() const
{
    return IsEnding() && SteadyMs() - m_llEnding > STOP_MS;
}

void CClientLane::Touch()
{
    m_llTouched = SteadyMs();
}

void CClientLane::End(EEnd eEnd)
{
    int nExpected = END_NOT_YET;
    if (m_nEnd.compare_exchange_strong(nExpected, eEnd))
    {
        m_llEnded = SteadyMs();
    }
    m_fnWake();
}

bool CClientLane::IsCleanedUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_bCleanedUp;
}

// False when CleanUp came first, which would never see it.
bool CClientLane::SetTransfer(std::shared_ptr<ITransfer> pTransfer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (pTransfer && m_bCleanedUp)
    {
        return false;
    }
    m_pTransfer.swap(pTransfer);
    return true;
}

// Begin has thrown, and there may be no memory even to tell it: then the exit code does alone.
void CClientLane::FailBegin(const char* pszReason) noexcept
{
    if (m_pTransfer)
    {
        m_pTransfer->CleanUp();
    }
    try
    {
        m_progress.Message(std::string("cannot go on: ") + pszReason);
        if (m_pTransfer)
        {
            m_pTransfer->Fail(pszReason, 0);
        }
    }
    catch (const std::exception&)
    {
        // What it counted it has counted.
    }
    SetTransfer(nullptr);
}

void CClientLane::FailLost()
{
    if (m_pTransfer)
    {
        m_pTransfer->Fail("the connection was lost on the way", 0);
        SetTransfer(nullptr);
    }
}

void CClientLane::CleanUp()
{
    std::shared_ptr<ITransfer> pTransfer;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bCleanedUp = true;
        pTransfer = m_pTransfer;
    }
    if (pTransfer)
    {
        pTransfer->CleanUp();
    }
}

std::string CClientLane::WhyLost() const
{
    if (m_eStop == STOP_STALLED)
    {
        return "nothing moved for " + FormatCount(m_options.m_dwStallSeconds, "second");
    }
    return m_nLostError != 0 ? strerror(m_nLostError) : "closed by the server";
}

std::string CClientLane::WhyNotConnected() const
{
    if (m_bStartRefused)
    {
        return "no socket, memory or thread to be had";
    }
    if (m_eStop == STOP_STALLED)
    {
        return "no answer, perhaps no osprey server";
    }
    if (m_llEnded - m_llStarted >= m_options.m_dwConnectSeconds * 1000LL)
    {
        return "timed out";
    }
    return m_nLostError != 0 ? strerror(m_nLostError) : "refused, or not to be reached";
}

void CClientLane::OnConnected()
{
    const CBusy busy(*this);
    m_bConnected = true;
    m_progress.Connected(m_options.m_peer.ToString());
    m_fnAdvanced();
}

void CClientLane::OnStartFailed(int)
{
    End(END_START_FAILED);
}

void CClientLane::OnDisconnected(int nError)
{
    m_nLostError = nError;
    End(m_bConnected ? END_LOST : END_START_FAILED);
}

bool CClientLane::GetNextFile(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    const CBusy busy(*this);
    if (IsEnding())
    {
        return false;
    }
    try
    {
        if (BeginNext(strLocal, strRemote, llNumber))
        {
            // Finding the file may have taken its time.
            return !IsEnding() && !IsCleanedUp();
        }
    }
    catch (const std::exception& error)
    {
        FailBegin(error.what());
        End(END_LOST);
        return false;
    }
    if (!IsCleanedUp())
    {
        End(END_DONE);
    }
    return false;
}

bool CClientLane::BeginNext(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    while (std::shared_ptr<ITransfer> pTransfer = m_work.Take())
    {
        if (!SetTransfer(pTransfer))
        {
            return false;
        }
        if (!pTransfer->Begin(strLocal, strRemote, llNumber))
        {
            SetTransfer(nullptr);
            continue;
        }
        if (!pTransfer->IsFolder() && !m_bBegunFile.exchange(true))
        {
            m_fnAdvanced();
        }
        return true;
    }
    return false;
}

void CClientLane::OnProgress(unsigned int dwPercent)
{
    const CBusy busy(*this);
    if (IsStopLost())
    {
        m_pClient->Stop();
        return;
    }
    m_pTransfer->Move(dwPercent, m_pClient->Announced());
}

void CClientLane::OnFileCompleted()
{
    const CBusy busy(*this);
    m_pTransfer->Complete(m_pClient->Announced());
    SetTransfer(nullptr);
}

void CClientLane::OnFileFailed(int nCode)
{
    const CBusy busy(*this);
    m_pTransfer->Fail(m_work.ReasonOf(nCode), nCode);
    SetTransfer(nullptr);
}
