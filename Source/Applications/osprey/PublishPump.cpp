#include "PublishPump.h"

#include <poll.h>

#include <algorithm>
#include <chrono>

namespace
{

const long long NS_PER_SECOND = 1000000000;
const long long NS_PER_MS = 1000000;

long long NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

CPutPacket PutInto(IOspreyServer& server, bool bLive)
{
    return [&server, bLive](Orb_U32 dwChannel, const char* pData, size_t nSize)
    {
        // The interface does not say so, but what it is given is only read.
        const unsigned int dwResult = server.PutChannelPacket(dwChannel, const_cast<char*>(pData),
                                                              static_cast<unsigned int>(nSize));
        if (bLive)
        {
            server.FlushChannelPackets();
        }
        return dwResult;
    };
}

}  // namespace

int CPublishPump::Open(const COptions& options)
{
    m_bLive = options.m_stream.m_bLive;
    for (const CSourceSpec& spec : options.m_listSources)
    {
        std::string strReason;
        bool bBusy = false;
        CEntry entry;
        entry.m_pSource = OpenSource(spec, options.m_stream, strReason, bBusy);
        if (entry.m_pSource == nullptr)
        {
            m_log.Output().Error("cannot " + std::string(bBusy ? "listen on " : "read ") +
                                 spec.Shown() + ": " + strReason);
            return bBusy ? EXIT_NOT_CONNECTED : EXIT_USAGE;
        }
        m_listSources.push_back(std::move(entry));
    }
    return EXIT_DONE;
}

void CPublishPump::TellSources()
{
    for (const CEntry& entry : m_listSources)
    {
        m_log.Opened(entry.m_pSource->Spec());
    }
}

std::vector<Orb_U32> CPublishPump::Channels() const
{
    std::vector<Orb_U32> listChannels;
    listChannels.reserve(m_listSources.size());
    for (const CEntry& entry : m_listSources)
    {
        listChannels.push_back(entry.m_pSource->Spec().m_dwChannel);
    }
    return listChannels;
}

void CPublishPump::RunUntilSignal(IOspreyServer& server, const CSignals& signals)
{
    const CPutPacket fnPut = PutInto(server, m_bLive);
    while (Pass(signals, fnPut, IChannelSource::NEVER_DUE))
    {
    }
}

void CPublishPump::RunToEnd(IOspreyServer& server, const CSignals& signals,
                            unsigned int dwLingerSeconds)
{
    const CPutPacket fnPut = PutInto(server, m_bLive);
    while (!HasEnded())
    {
        if (!Pass(signals, fnPut, IChannelSource::NEVER_DUE))
        {
            return;
        }
    }
    const long long llUntil = NowNs() + dwLingerSeconds * NS_PER_SECOND;
    while (NowNs() < llUntil && Pass(signals, fnPut, llUntil))
    {
    }
}

// Waits for the first thing to do, and does what there is. False when a signal came.
bool CPublishPump::Pass(const CSignals& signals, const CPutPacket& fnPut, long long llUntil)
{
    std::vector<pollfd> listPolled = {{signals.Descriptor(), POLLIN, 0}};
    listPolled.reserve(m_listSources.size() + 1);
    for (const CEntry& entry : m_listSources)
    {
        const IChannelSource& source = *entry.m_pSource;
        listPolled.push_back({source.WantsData() ? source.Descriptor() : -1, POLLIN, 0});
    }
    const long long llWait = WaitNs(NowNs(), llUntil);
    const timespec wait{static_cast<time_t>(llWait / NS_PER_SECOND),
                        static_cast<long>(llWait % NS_PER_SECOND)};
    const int nReady = ppoll(listPolled.data(), listPolled.size(),
                             llWait == IChannelSource::NEVER_DUE ? nullptr : &wait, nullptr);
    if (nReady > 0 && listPolled.front().revents != 0)
    {
        signals.Wait();
        signals.ForceOnNext([] {});
        m_log.LeaveRows();
        return false;
    }
    for (size_t i = 0; i < m_listSources.size(); ++i)
    {
        CEntry& entry = m_listSources[i];
        if (nReady > 0 && listPolled[i + 1].revents != 0)
        {
            entry.m_pSource->Read(fnPut);
        }
        entry.m_pSource->Serve(NowNs(), fnPut);
        Tell(entry);
    }
    Draw();
    return true;
}

long long CPublishPump::WaitNs(long long llNow, long long llUntil) const
{
    long long llNext = llUntil;
    for (const CEntry& entry : m_listSources)
    {
        llNext = std::min(llNext, entry.m_pSource->DueAt(llNow));
    }
    const int nDraw = m_log.DrawInterval();
    if (nDraw >= 0)
    {
        llNext = std::min(llNext, llNow + nDraw * NS_PER_MS);
    }
    return llNext == IChannelSource::NEVER_DUE ? llNext : std::max(llNext - llNow, 0LL);
}

void CPublishPump::Tell(CEntry& entry)
{
    const IChannelSource& source = *entry.m_pSource;
    if (!entry.m_bTooLongTold && source.Counts().m_ullTooLong > 0)
    {
        entry.m_bTooLongTold = true;
        m_log.TooLong(source);
    }
    if (!entry.m_bEndTold && source.IsEnded())
    {
        entry.m_bEndTold = true;
        m_log.Ended(source);
    }
}

bool CPublishPump::HasEnded() const
{
    return std::all_of(m_listSources.begin(), m_listSources.end(),
                       [](const CEntry& entry) { return entry.m_bEndTold; });
}

void CPublishPump::Draw()
{
    if (m_log.DrawInterval() < 0)
    {
        return;
    }
    std::vector<const IChannelSource*> listSources;
    listSources.reserve(m_listSources.size());
    for (const CEntry& entry : m_listSources)
    {
        listSources.push_back(entry.m_pSource.get());
    }
    m_log.Draw(listSources);
}

void CPublishPump::Summarize()
{
    for (const CEntry& entry : m_listSources)
    {
        m_log.Summary(*entry.m_pSource);
    }
}

bool CPublishPump::HasFailed() const
{
    return std::any_of(m_listSources.begin(), m_listSources.end(),
                       [](const CEntry& entry) { return !entry.m_pSource->Failure().empty(); });
}
