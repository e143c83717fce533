#include "ClientRun.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

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
class CClientRun::CBusy final
{
public:
    explicit CBusy(CClientRun& run) : m_run(run)
    {
        m_run.m_bInside = true;
    }
    ~CBusy()
    {
        m_run.Touch();
        m_run.m_bInside = false;
    }
    CBusy(const CBusy&) = delete;
    CBusy& operator=(const CBusy&) = delete;

private:
    CClientRun& m_run;
};

CClientRun::CClientRun(const COptions& options, COutput& output, CProgress& progress)
    : m_progress(progress),
      m_options(options),
      m_output(output),
      m_nWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    ToUTF16(options.m_strConnection, m_listName);
}

CClientRun::~CClientRun()
{
    if (m_nWake >= 0)
    {
        close(m_nWake);
    }
}

int CClientRun::Execute()
{
    std::string strReason;
    const std::vector<unsigned int> listAddresses = ResolvePeer(m_options.m_peer, strReason);
    if (listAddresses.empty())
    {
        m_output.Error("cannot find " + m_options.m_peer.m_strHost + ": " + strReason);
        return EXIT_NOT_CONNECTED;
    }
    const CSignals signals;
    m_output.EndWithReader();
    for (const unsigned int dwAddress : listAddresses)
    {
        RunOnce(dwAddress, signals);
        if (m_bConnected || m_bInterrupted)
        {
            break;
        }
    }
    CleanUp();
    return Report();
}

void CClientRun::RunOnce(unsigned int dwAddress, const CSignals& signals)
{
    m_nEnd = END_NOT_YET;
    m_bStalled = false;
    m_llEnding = 0;
    m_nLostError = 0;
    m_llStarted = SteadyMs();
    Touch();
    m_bStartRefused = !StartClient(m_listName.data(), dwAddress, m_options.m_peer.m_wPort,
                                   m_options.m_dwConnectSeconds * 1000);
    if (m_bStartRefused)
    {
        return;
    }
    WaitForEnd(signals);
    StopClient();
}

void CClientRun::BeginEnd()
{
    m_llEnding = SteadyMs();
}

bool CClientRun::IsEnding() const
{
    return m_llEnding != 0;
}

bool CClientRun::IsStopLost() const
{
    return IsEnding() && SteadyMs() - m_llEnding > STOP_MS;
}

void CClientRun::WaitForEnd(const CSignals& signals)
{
    while (m_nEnd == END_NOT_YET)
    {
        pollfd sources[] = {{signals.Descriptor(), POLLIN, 0}, {m_nWake, POLLIN, 0}};
        const int nReady = poll(sources, 2, WaitMs());
        if (nReady > 0 && (sources[0].revents & POLLIN) != 0)
        {
            signals.Wait();
            Interrupt(signals);
            return;
        }
        if (IsStalled())
        {
            m_bStalled = true;
            BeginEnd();
            return;
        }
        m_progress.Draw();
    }
}

void CClientRun::Interrupt(const CSignals& signals)
{
    m_bInterrupted = true;
    m_progress.Interrupted();
    signals.ForceOnNext([this] { CleanUp(); });
    BeginEnd();
}

int CClientRun::WaitMs() const
{
    const int nDraw = m_progress.DrawInterval();
    return nDraw < 0 ? 1000 : nDraw;
}

bool CClientRun::IsStalled() const
{
    if (m_bInside || m_nEnd != END_NOT_YET)
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

void CClientRun::Touch()
{
    m_llTouched = SteadyMs();
}

void CClientRun::End(EEnd eEnd)
{
    int nExpected = END_NOT_YET;
    m_nEnd.compare_exchange_strong(nExpected, eEnd);
    const unsigned long long ullOne = 1;
    // A full counter wakes as well.
    static_cast<void>(write(m_nWake, &ullOne, sizeof ullOne) < 0);
}

void CClientRun::Connected()
{
    const CBusy busy(*this);
    m_bConnected = true;
    m_progress.Connected(m_options.m_peer.ToString());
}

void CClientRun::StartFailed()
{
    End(END_START_FAILED);
}

void CClientRun::Disconnected(int nError)
{
    m_nLostError = nError;
    End(m_bConnected ? END_LOST : END_START_FAILED);
}

bool CClientRun::GetNext(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    const CBusy busy(*this);
    if (IsEnding())
    {
        return false;
    }
    try
    {
        if (NextFile(strLocal, strRemote, llNumber))
        {
            // Finding the file may have taken its time.
            m_bUnderWay = !IsEnding();
            return m_bUnderWay;
        }
    }
    catch (const std::exception& error)
    {
        m_progress.Message(std::string("cannot go on: ") + error.what());
        End(END_LOST);
        return false;
    }
    End(END_DONE);
    return false;
}

void CClientRun::Progress(unsigned int dwPercent)
{
    const CBusy busy(*this);
    if (IsStopLost())
    {
        StopClient();
        return;
    }
    FileMoves(dwPercent);
}

void CClientRun::Completed()
{
    const CBusy busy(*this);
    m_bUnderWay = false;
    FileEnds();
}

void CClientRun::Failed(int nCode)
{
    const CBusy busy(*this);
    m_bUnderWay = false;
    FileFails(ReasonOf(nCode));
}

int CClientRun::Report()
{
    if (m_nEnd != END_DONE && m_bInterrupted)
    {
        if (!m_output.IsBroken())
        {
            m_progress.Message("interrupted");
        }
        return EXIT_INTERRUPTED;
    }
    if (!m_bConnected)
    {
        m_progress.Message("cannot connect to " + m_options.m_peer.ToString() + ": " +
                           WhyNotConnected());
        return EXIT_NOT_CONNECTED;
    }
    if (m_nEnd != END_DONE)
    {
        return ReportLost();
    }
    m_progress.Finish();
    return m_progress.Failures() > 0 ? EXIT_FILE_FAILED : EXIT_DONE;
}

int CClientRun::ReportLost()
{
    std::string strWhy = "closed by the server";
    if (m_bStalled)
    {
        strWhy = "nothing moved for " + FormatCount(m_options.m_dwStallSeconds, "second");
    }
    else if (m_nLostError != 0)
    {
        strWhy = strerror(m_nLostError);
    }
    if (m_bUnderWay)
    {
        FileFails("the connection was lost on the way");
    }
    const size_t nLeft = FilesLeft();
    m_progress.Message("connection to " + m_options.m_peer.ToString() + " lost: " + strWhy +
                       (nLeft == 0 ? "" : "; not tried: " + FormatCount(nLeft, "file")));
    m_progress.Finish();
    return EXIT_CONNECTION_LOST;
}

std::string CClientRun::WhyNotConnected() const
{
    if (m_bStartRefused)
    {
        return "no socket, memory or thread to be had";
    }
    if (m_bStalled)
    {
        return "no answer, perhaps no osprey server";
    }
    if (SteadyMs() - m_llStarted >= m_options.m_dwConnectSeconds * 1000LL)
    {
        return "timed out";
    }
    return m_nLostError != 0 ? strerror(m_nLostError) : "refused, or not to be reached";
}

CProgress::EStyle ProgressStyle(const COptions& options, const COutput& output)
{
    if (options.m_bQuiet)
    {
        return CProgress::STYLE_QUIET;
    }
    if (options.m_bJson)
    {
        return CProgress::STYLE_JSON;
    }
    return output.IsTerminal() ? CProgress::STYLE_BAR : CProgress::STYLE_LINES;
}
