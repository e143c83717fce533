#include "ClientRun.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include "DescriptorLimit.h"
#include "Units.h"

namespace
{

// The server of the library, like many, keeps ten callers that it has not accepted.
const size_t MOST_CONNECTING = 8;

const size_t DESCRIPTORS_OF_LANE = 9;  // those of its file included
const size_t OTHER_DESCRIPTORS = 32;

}  // namespace

CClientRun::CClientRun(const COptions& options, const CDeadline& deadline, COutput& output,
                       CProgress& progress, CTransferWork& work, size_t nLanes)
    : m_options(options),
      m_deadline(deadline),
      m_output(output),
      m_progress(progress),
      m_work(work),
      m_nLanes(nLanes),
      m_nWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

CClientRun::~CClientRun()
{
    m_listLanes.clear();
    if (m_nWake >= 0)
    {
        close(m_nWake);
    }
}

int CClientRun::Execute()
{
    Run();
    const int nCode = Report();
    if (IsConnected() && !(m_bInterrupted && nCode == EXIT_INTERRUPTED))
    {
        m_progress.Finish();
    }
    return nCode;
}

void CClientRun::Run()
{
    if (!FindPeer())
    {
        return;
    }
    const CSignals signals;
    m_output.EndWithReader();
    for (const unsigned int dwAddress : m_listAddresses)
    {
        RunAt(dwAddress, signals);
        if (IsConnected() || m_bInterrupted || m_bTimedOut)
        {
            break;
        }
    }
    CleanUp();
}

// The resolver cannot be asked to stop: it is left alone when the time is over.
bool CClientRun::FindPeer()
{
    if (m_deadline.Seconds() == 0)
    {
        m_listAddresses = ResolvePeer(m_options.m_peer, m_strNotFound);
        return !m_listAddresses.empty();
    }
    struct CAnswer
    {
        std::vector<unsigned int> m_listAddresses;
        std::string m_strReason;
    };
    std::promise<CAnswer> promise;
    std::future<CAnswer> future = promise.get_future();
    std::thread(
        [peer = m_options.m_peer, promise = std::move(promise)]() mutable
        {
            CAnswer answer;
            answer.m_listAddresses = ResolvePeer(peer, answer.m_strReason);
            promise.set_value(std::move(answer));
        })
        .detach();
    if (future.wait_for(std::chrono::milliseconds(m_deadline.MsLeft(INT_MAX))) !=
        std::future_status::ready)
    {
        m_bTimedOut = true;
        return false;
    }
    CAnswer answer = future.get();
    m_listAddresses.swap(answer.m_listAddresses);
    m_strNotFound.swap(answer.m_strReason);
    return !m_listAddresses.empty();
}

void CClientRun::RunAt(unsigned int dwAddress, const CSignals& signals)
{
    m_listLanes.clear();
    AddLane(dwAddress);
    WaitForEnd(dwAddress, signals);
}

void CClientRun::AddLane(unsigned int dwAddress)
{
    // Only others wait for it.
    const auto fnAdvanced = [this]
    {
        if (m_nLanes > 1)
        {
            Wake();
        }
    };
    m_listLanes.push_back(std::make_unique<CClientLane>(
        m_options, m_work, m_progress, [this] { Wake(); }, fnAdvanced));
    m_listLanes.back()->Start(dwAddress);
}

void CClientRun::AddOtherLanes(unsigned int dwAddress)
{
    const CClientLane& first = *m_listLanes.front();
    if (m_nLanes == 1 || !first.IsOpen() || !first.HasBegunFile())
    {
        return;
    }
    const auto IsConnecting = [](const CClientLane& lane) { return lane.IsConnecting(); };
    const auto IsIdle = [](const CClientLane& lane)
    { return lane.IsOpen() && !lane.IsOver() && !lane.HasBegunFile(); };
    while (m_listLanes.size() < m_nLanes && Find(IsConnecting).size() < MOST_CONNECTING &&
           m_work.FilesLeft() > Find(IsIdle).size())
    {
        AddLane(dwAddress);
    }
}

void CClientRun::WaitForEnd(unsigned int dwAddress, const CSignals& signals)
{
    while (IsOpen())
    {
        pollfd sources[] = {{signals.Descriptor(), POLLIN, 0}, {m_nWake, POLLIN, 0}};
        const int nReady = poll(sources, 2, WaitMs());
        if (nReady > 0 && (sources[0].revents & POLLIN) != 0)
        {
            signals.Wait();
            Interrupt(signals);
            return;
        }
        if (m_deadline.IsOver())
        {
            m_bTimedOut = true;
            StopAll(signals);
            return;
        }
        TakeWakes();
        TendLanes();
        AddOtherLanes(dwAddress);
        m_progress.Draw();
    }
}

void CClientRun::TendLanes()
{
    for (const auto& pLane : m_listLanes)
    {
        if (pLane->IsOpen())
        {
            TendLane(*pLane);
        }
    }
    StopNeedless();
}

void CClientRun::TendLane(CClientLane& lane)
{
    if (lane.IsOver())
    {
        EndLane(lane);
    }
    else if (lane.IsStalled())
    {
        lane.Stop(CClientLane::STOP_STALLED);
        // Nothing else is to be seen to meanwhile.
        if (m_nLanes == 1)
        {
            EndLane(lane);
        }
    }
}

void CClientRun::EndLane(CClientLane& lane)
{
    lane.Close();
    lane.FailLost();
}

// Lanes that still connect when all others are over and nothing is left for them.
void CClientRun::StopNeedless()
{
    const auto IsBusy = [](const CClientLane& lane) { return lane.IsOpen() && lane.IsConnected(); };
    if (m_listLanes.size() == 1 || !Find(IsBusy).empty() || m_work.FilesLeft() > 0)
    {
        return;
    }
    for (const auto& pLane : m_listLanes)
    {
        if (pLane->IsConnecting())
        {
            pLane->Stop(CClientLane::STOP_NOT_NEEDED);
        }
    }
}

void CClientRun::Interrupt(const CSignals& signals)
{
    m_bInterrupted = true;
    m_progress.Interrupted();
    StopAll(signals);
}

void CClientRun::StopAll(const CSignals& signals)
{
    signals.ForceOnNext([this] { CleanUp(); });
    // Each may take a while to say goodbye: all at once.
    for (const auto& pLane : m_listLanes)
    {
        if (pLane->IsOpen())
        {
            pLane->Stop(CClientLane::STOP_INTERRUPTED);
        }
    }
    for (const auto& pLane : m_listLanes)
    {
        if (pLane->IsOpen())
        {
            pLane->Close();
        }
    }
}

// Any thread once the run is interrupted.
void CClientRun::CleanUp()
{
    for (const auto& pLane : m_listLanes)
    {
        pLane->CleanUp();
    }
}

// Any thread.
void CClientRun::Wake() const
{
    const unsigned long long ullOne = 1;
    // A full counter wakes as well.
    static_cast<void>(write(m_nWake, &ullOne, sizeof ullOne) < 0);
}

void CClientRun::TakeWakes() const
{
    unsigned long long ullCount = 0;
    // There may be none.
    static_cast<void>(read(m_nWake, &ullCount, sizeof ullCount) < 0);
}

int CClientRun::WaitMs() const
{
    const int nDraw = m_progress.DrawInterval();
    return m_deadline.MsLeft(nDraw < 0 ? 1000 : nDraw);
}

CClientRun::CLanes CClientRun::Find(bool (*fnIs)(const CClientLane&)) const
{
    CLanes listFound;
    for (const auto& pLane : m_listLanes)
    {
        if (fnIs(*pLane))
        {
            listFound.push_back(pLane.get());
        }
    }
    return listFound;
}

bool CClientRun::IsOpen() const
{
    return !Find([](const CClientLane& lane) { return lane.IsOpen(); }).empty();
}

bool CClientRun::IsConnected() const
{
    return !Find([](const CClientLane& lane) { return lane.IsConnected(); }).empty();
}

// A lane that did not connect has taken nothing.
bool CClientRun::IsDone() const
{
    return IsConnected() &&
           Find([](const CClientLane& lane) { return lane.IsConnected() && !lane.IsDone(); })
               .empty();
}

int CClientRun::ExitCode() const
{
    const bool bOver = IsDone() && !m_bMoreFollows;
    if (m_bInterrupted && !bOver)
    {
        return EXIT_INTERRUPTED;
    }
    if (m_bTimedOut && !bOver)
    {
        return EXIT_TIMED_OUT;
    }
    if (!IsConnected())
    {
        return EXIT_NOT_CONNECTED;
    }
    if (m_progress.NotVerified() > 0)
    {
        return EXIT_NOT_VERIFIED;
    }
    if (!IsDone())
    {
        return EXIT_CONNECTION_LOST;
    }
    return m_progress.Failures() > 0 ? EXIT_FILE_FAILED : EXIT_DONE;
}

std::string CClientRun::WhyNotConnected() const
{
    return m_listAddresses.empty()
               ? "cannot find " + m_options.m_peer.m_strHost + ": " + m_strNotFound
               : "cannot connect to " + m_options.m_peer.ToString() + ": " +
                     m_listLanes.back()->WhyNotConnected();
}

int CClientRun::Report()
{
    const int nCode = ExitCode();
    switch (nCode)
    {
        case EXIT_INTERRUPTED:
            if (!m_output.IsBroken())
            {
                m_progress.Message("interrupted");
            }
            return nCode;
        case EXIT_TIMED_OUT:
            m_progress.Message("not done within " + FormatCount(m_deadline.Seconds(), "second"));
            return nCode;
        case EXIT_NOT_CONNECTED:
            m_progress.Message(WhyNotConnected());
            return nCode;
        default:
            ReportMissing();
            if (!IsDone())
            {
                ReportLost();
            }
            return nCode;
    }
}

void CClientRun::ReportMissing()
{
    const CLanes listMissing =
        Find([](const CClientLane& lane) { return !lane.IsConnected() && !lane.IsNotNeeded(); });
    if (!listMissing.empty() && !m_bInterrupted)
    {
        m_progress.Message(Connections(listMissing.size(), m_listLanes.size()) +
                           " could not be opened: " + listMissing.front()->WhyNotConnected());
    }
}

void CClientRun::ReportLost()
{
    const CLanes listConnected = Find([](const CClientLane& lane) { return lane.IsConnected(); });
    const CLanes listLost =
        Find([](const CClientLane& lane) { return lane.IsConnected() && !lane.IsDone(); });
    const size_t nLeft = m_work.FilesLeft();
    m_progress.Message(Connections(listLost.size(), listConnected.size()) +
                       " lost: " + listLost.front()->WhyLost() +
                       (nLeft == 0 ? "" : "; not tried: " + FormatCount(nLeft, "file")));
}

std::string CClientRun::Connections(size_t nThese, size_t nAll) const
{
    const std::string strWhich =
        nAll == 1 ? "connection"
                  : std::to_string(nThese) + " of " + std::to_string(nAll) + " connections";
    return strWhich + " to " + m_options.m_peer.ToString();
}

size_t CountLanes(const COptions& options, size_t nFiles)
{
    const size_t nWanted = std::min<size_t>(options.m_dwJobs, nFiles);
    if (nWanted <= 1)
    {
        return 1;
    }
    const size_t nLimit = RaiseDescriptorLimit();
    const size_t nPossible =
        nLimit > OTHER_DESCRIPTORS ? (nLimit - OTHER_DESCRIPTORS) / DESCRIPTORS_OF_LANE : 0;
    return std::max<size_t>(std::min(nWanted, nPossible), 1);
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
