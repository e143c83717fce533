#ifndef OSPREY_TOOL_PUBLISHPUMP_H
#define OSPREY_TOOL_PUBLISHPUMP_H

#include <memory>
#include <vector>

#include "ChannelSource.h"
#include "CommandLine.h"
#include "PublishLog.h"
#include "Signals.h"

// Moves packets from all sources into the server's channels, on the caller's thread.
class CPublishPump final
{
public:
    // log must outlive this object.
    explicit CPublishPump(CPublishLog& log) : m_log(log) {}

    // Opens every source. EXIT_DONE, or after having told why not the code to end with.
    int Open(const COptions& options);

    // Tells what was opened.
    void TellSources();

    // The channels in the order of the command line.
    std::vector<Orb_U32> Channels() const;

    // Until a signal comes; sources that end meanwhile are told.
    void RunUntilSignal(IOspreyServer& server, const CSignals& signals);

    // Until a signal comes, or every source has ended and dwLingerSeconds have passed since.
    void RunToEnd(IOspreyServer& server, const CSignals& signals, unsigned int dwLingerSeconds);

    void Summarize();

    // A source ended early.
    bool HasFailed() const;

private:
    struct CEntry
    {
        std::unique_ptr<IChannelSource> m_pSource;
        bool m_bEndTold = false;
        bool m_bTooLongTold = false;
    };

    bool Pass(const CSignals& signals, const CPutPacket& fnPut, long long llUntil);
    long long WaitNs(long long llNow, long long llUntil) const;
    void Tell(CEntry& entry);
    bool HasEnded() const;
    void Draw();

    CPublishLog& m_log;
    bool m_bLive = false;  // readers get each packet at once
    std::vector<CEntry> m_listSources;
};

#endif
