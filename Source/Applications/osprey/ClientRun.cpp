#include "ClientRun.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "Units.h"

CClientRun::CClientRun(const COptions& options, COutput& output, CProgress& progress,
                       CTransferWork& work, size_t nLanes)
    : m_options(options),
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
        RunAt(dwAddress, signals);
        if (IsConnected() || m_bInterrupted)
        {
            break;
        }
    }
    CleanUp();
    return Report();
}

void CClientRun::RunAt(unsigned int dwAddress, const CSignals& signals)
{
    m_listLanes.clear();
    AddLane(dwAddress);
    WaitForEnd(dwAddress, signals);
}

void CClientRun::AddLane(unsigned int dwAddress)
{
    m_listLanes.push_back(
        std::make_unique<CClientLane>(m_options, m_work, m_progress, [this] { Wake(); }));
    m_listLanes.back()->Start(dwAddress);
}

void CClientRun::AddOtherLanes(unsigned int dwAddress)
{
    const CClientLane& first = *m_listLanes.front();
    if (m_listLanes.size() > 1 || !first.IsOpen() || !first.HasBegunFile())
    {
        return;
    }
    const size_t nUseful = std::min(m_nLanes, m_work.FilesLeft() + 1);
    while (m_listLanes.size() < nUseful)
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
        if (!pLane->IsOpen())
        {
            continue;
        }
        if (pLane->IsOver())
        {
            pLane->Close();
            pLane->FailLost();
        }
        else if (pLane->IsStalled())
        {
            pLane->Stop(true);
        }
    }
}

void CClientRun::Interrupt(const CSignals& signals)
{
    m_bInterrupted = true;
    m_progress.Interrupted();
    signals.ForceOnNext([this] { CleanUp(); });
    // Each may take a while to say goodbye: all at once.
    for (const auto& pLane : m_listLanes)
    {
        if (pLane->IsOpen())
        {
            pLane->Stop(false);
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
    return nDraw < 0 ? 1000 : nDraw;
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

int CClientRun::Report()
{
    if (m_bInterrupted && !IsDone())
    {
        if (!m_output.IsBroken())
        {
            m_progress.Message("interrupted");
        }
        return EXIT_INTERRUPTED;
    }
    if (!IsConnected())
    {
        m_progress.Message("cannot connect to " + m_options.m_peer.ToString() + ": " +
                           m_listLanes.back()->WhyNotConnected());
        return EXIT_NOT_CONNECTED;
    }
    ReportMissing();
    if (!IsDone())
    {
        ReportLost();
    }
    m_progress.Finish();
    if (!IsDone())
    {
        return EXIT_CONNECTION_LOST;
    }
    return m_progress.Failures() > 0 ? EXIT_FILE_FAILED : EXIT_DONE;
}

void CClientRun::ReportMissing()
{
    const CLanes listMissing = Find([](const CClientLane& lane) { return !lane.IsConnected(); });
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
