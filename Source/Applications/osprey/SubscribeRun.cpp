#include "SubscribeRun.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "Text.h"

namespace
{

const long long LONGEST_WAIT_MS = 1000;

long long SteadyMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

CSubscribeRun::CSubscribeRun(const COptions& options, COutput& output)
    : m_options(options),
      m_output(output),
      m_log(output, EventStyle(options)),
      m_nWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_llBegan(SteadyMs())
{
}

CSubscribeRun::~CSubscribeRun()
{
    m_listSinks.clear();
    if (m_nWake >= 0)
    {
        close(m_nWake);
    }
}

int CSubscribeRun::Execute()
{
    std::string strReason;
    m_listAddresses = ResolvePeer(m_options.m_peer, strReason);
    if (m_listAddresses.empty())
    {
        m_output.Error("cannot find " + PlainText(m_options.m_peer.m_strHost) + ": " + strReason);
        return EXIT_NOT_CONNECTED;
    }
    // Before signals are kept for later: to open a FIFO waits for its reader.
    const int nOpened = OpenSinks();
    if (nOpened != EXIT_DONE)
    {
        return nOpened;
    }
    const CSignals signals;
    signals.ForceWhenStuck();
    for (const auto& pSink : m_listSinks)
    {
        pSink->Start();
    }
    CSubscribeLog log(m_log, m_output, m_options.m_peer.ToString());
    Connect();
    WaitForEnd(signals, log);
    signals.ForceOnNext([] {});
    if (m_pClient != nullptr)
    {
        EndClient();
    }
    return Finish(log);
}

int CSubscribeRun::OpenSinks()
{
    const CSinkContext context{m_output, m_log.Style(), [this] { Wake(); }};
    for (const CSinkSpec& spec : m_options.m_listSinks)
    {
        if (m_mapSinks.try_emplace(spec.m_dwChannel).second)
        {
            m_listChannels.push_back(spec.m_dwChannel);
            m_stats.Add(spec.m_dwChannel);
        }
        if (spec.m_eKind == SINK_STATS)
        {
            m_setLines.insert(spec.m_dwChannel);
            continue;
        }
        std::string strReason;
        int nCode = EXIT_DONE;
        std::unique_ptr<IChannelSink> pSink = OpenSink(spec, context, strReason, nCode);
        if (pSink == nullptr)
        {
            m_output.Error("cannot write " + spec.Shown() + ": " + strReason);
            return nCode;
        }
        m_mapSinks[spec.m_dwChannel].push_back(pSink.get());
        m_listSinks.push_back(std::move(pSink));
    }
    return EXIT_DONE;
}

// Without a client afterwards when nothing would come of it.
void CSubscribeRun::Connect()
{
    m_pClient = CreateWXSPChannelClient(this, 0);
    const Orb_BOOL bBegun =
        m_pClient->Connect(0, m_listAddresses[m_nAddress], m_options.m_peer.m_wPort,
                           m_options.m_dwConnectSeconds * 1000,
                           static_cast<unsigned int>(m_listChannels.size()), m_listChannels.data());
    if (bBegun == Orb_FALSE && !HasEvents())
    {
        m_output.Error("no socket, memory or thread to be had");
        m_bNoClient = true;
        EndClient();
    }
}

bool CSubscribeRun::HasEvents()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_listEvents.empty();
}

void CSubscribeRun::EndClient()
{
    m_pClient->Release();
    m_pClient = nullptr;
}

void CSubscribeRun::WaitForEnd(const CSignals& signals, CSubscribeLog& log)
{
    while (!m_bCounted && !HasFailed() && m_pClient != nullptr)
    {
        pollfd sources[] = {{signals.Descriptor(), POLLIN, 0}, {m_nWake, POLLIN, 0}};
        const int nReady = poll(sources, 2, WaitMs(log));
        if (nReady > 0 && sources[0].revents != 0)
        {
            signals.Wait();
            signals.ForceOnNext([] {});
            log.LeaveRows();
            return;
        }
        Orb_U64 ullWakes = 0;
        static_cast<void>(read(m_nWake, &ullWakes, sizeof ullWakes) < 0);
        TellEvents(log);
        m_bTimeOver = IsTimeOver();
        if (m_bTimeOver)
        {
            return;
        }
        TellDrops(log);
        log.Tick(m_stats, m_setLines);
    }
}

int CSubscribeRun::WaitMs(const CSubscribeLog& log) const
{
    long long llWait = LONGEST_WAIT_MS;
    const int nLog = log.WaitMs();
    if (nLog >= 0)
    {
        llWait = std::min<long long>(llWait, nLog);
    }
    if (m_options.m_dwForSeconds != 0)
    {
        const long long llEnd = m_llBegan + m_options.m_dwForSeconds * 1000LL;
        llWait = std::min(llWait, std::max(llEnd - SteadyMs(), 0LL));
    }
    return static_cast<int>(llWait);
}

bool CSubscribeRun::IsTimeOver() const
{
    return m_options.m_dwForSeconds != 0 &&
           SteadyMs() - m_llBegan >= m_options.m_dwForSeconds * 1000LL;
}

void CSubscribeRun::TellEvents(CSubscribeLog& log)
{
    std::vector<EEvent> listEvents;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        listEvents.swap(m_listEvents);
    }
    for (const EEvent eEvent : listEvents)
    {
        switch (eEvent)
        {
            case EVENT_CONNECTED:
                m_bEverConnected = true;
                log.Connected(m_listChannels);
                break;
            case EVENT_REFUSED:
                log.ConnectFailed();
                if (TryNextAddress())
                {
                    return;
                }
                break;
            case EVENT_LOST:
                log.Lost();
                break;
        }
    }
}

// A host may have several addresses of which only some answer: each is tried once, then the client
// stays with the last. True when it was replaced, and what it had told is to be forgotten.
bool CSubscribeRun::TryNextAddress()
{
    if (m_pClient == nullptr || m_bEverConnected || m_nAddress + 1 >= m_listAddresses.size())
    {
        return false;
    }
    ++m_nAddress;
    EndClient();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_listEvents.clear();
    }
    Connect();
    return true;
}

void CSubscribeRun::TellDrops(CSubscribeLog& log) const
{
    for (const auto& pSink : m_listSinks)
    {
        if (pSink->Dropped() > 0)
        {
            log.Drops(*pSink);
        }
    }
}

bool CSubscribeRun::HasFailed() const
{
    return m_output.IsBroken() || m_output.HasFailed() ||
           std::any_of(m_listSinks.begin(), m_listSinks.end(),
                       [](const auto& pSink) { return !pSink->Failure().empty(); });
}

int CSubscribeRun::Finish(CSubscribeLog& log)
{
    for (const auto& pSink : m_listSinks)
    {
        pSink->Finish();
    }
    TellEvents(log);
    TellDrops(log);
    for (const CChannelFigures& figures : m_stats.Figures())
    {
        const std::vector<IChannelSink*>& listSinks = m_mapSinks[figures.m_dwChannel];
        log.Summary(figures, {listSinks.begin(), listSinks.end()});
    }
    if (TellFailures())
    {
        return EXIT_FILE_FAILED;
    }
    if (m_bNoClient || (m_bTimeOver && !m_bEverConnected))
    {
        m_output.Error("could not connect to " + PlainText(m_options.m_peer.ToString()));
        return EXIT_NOT_CONNECTED;
    }
    return EXIT_DONE;
}

// True when something has failed.
bool CSubscribeRun::TellFailures()
{
    if (m_output.IsBroken())
    {
        m_output.Error(std::string("cannot write the output: ") + strerror(EPIPE));
        return true;
    }
    bool bFailed = m_output.HasFailed();
    for (const auto& pSink : m_listSinks)
    {
        const std::string strReason = pSink->Failure();
        if (!strReason.empty() && !bFailed)
        {
            m_output.Error("cannot write " + pSink->Spec().Shown() + ": " + strReason);
        }
        bFailed = bFailed || !strReason.empty();
    }
    return bFailed;
}

void CSubscribeRun::OnConnected(unsigned int)
{
    Tell(EVENT_CONNECTED);
}

void CSubscribeRun::OnConnectFailed(unsigned int)
{
    Tell(EVENT_REFUSED);
}

void CSubscribeRun::OnDisconnected(unsigned int)
{
    Tell(EVENT_LOST);
}

void CSubscribeRun::OnChannelPacket(unsigned int, unsigned int dwChannel, void* pData,
                                    unsigned int dwSize)
{
    const auto it = m_mapSinks.find(dwChannel);
    if (it == m_mapSinks.end() || m_bCounted)
    {
        return;
    }
    const char* pBytes = static_cast<const char*>(pData);
    m_stats.Packet(dwChannel, pBytes, dwSize);
    for (IChannelSink* pSink : it->second)
    {
        pSink->Put(pBytes, dwSize);
    }
    if (++m_ullPackets == m_options.m_ullCount)
    {
        m_bCounted = true;
        Wake();
    }
}

void CSubscribeRun::Tell(EEvent eEvent)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_listEvents.push_back(eEvent);
    }
    Wake();
}

void CSubscribeRun::Wake() const
{
    const Orb_U64 ullOne = 1;
    // A full counter wakes as well.
    static_cast<void>(write(m_nWake, &ullOne, sizeof ullOne) < 0);
}
