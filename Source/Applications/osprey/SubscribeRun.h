#ifndef OSPREY_TOOL_SUBSCRIBERUN_H
#define OSPREY_TOOL_SUBSCRIBERUN_H

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "ChannelSink.h"
#include "CommandLine.h"
#include "EventLog.h"
#include "LibOsprey.h"
#include "Output.h"
#include "Signals.h"
#include "SubscribeLog.h"
#include "SubscribeStats.h"

// One run of subscribe.
//
//   main thread                                      worker thread of the client
//   -----------                                      ---------------------------
//   Execute: resolve, open sinks, connect            packets --> figures, sinks
//   wait: a signal, an end, time to tell  <--wake--  connected, refused, lost
//   release the client (joins), finish sinks
//
// The worker never waits for a sink: what may block has a queue and a thread of its own.
//
// Thread: Execute in the main thread; the callbacks on the worker, and OnConnectFailed also in
// Execute.
class CSubscribeRun final : public IWXSPChannelClientCallback
{
public:
    CSubscribeRun(const COptions& options, COutput& output);
    ~CSubscribeRun();
    CSubscribeRun(const CSubscribeRun&) = delete;
    CSubscribeRun& operator=(const CSubscribeRun&) = delete;

    // Does it all. Returns the exit code.
    int Execute();

    void OnConnected(unsigned int dwUserParam) override;
    void OnConnectFailed(unsigned int dwUserParam) override;
    void OnDisconnected(unsigned int dwUserParam) override;
    void OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                         unsigned int dwSize) override;

private:
    enum EEvent
    {
        EVENT_CONNECTED,
        EVENT_REFUSED,
        EVENT_LOST,
    };

    int OpenSinks();
    void Connect();
    bool HasEvents();
    void EndClient();
    void WaitForEnd(const CSignals& signals, CSubscribeLog& log);
    int WaitMs(const CSubscribeLog& log) const;
    bool IsTimeOver() const;
    void TellEvents(CSubscribeLog& log);
    void TellDrops(CSubscribeLog& log) const;
    bool TryNextAddress();
    bool HasFailed() const;
    int Finish(CSubscribeLog& log);
    bool TellFailures();
    void Tell(EEvent eEvent);
    void Wake() const;

    const COptions& m_options;
    COutput& m_output;
    CEventLog m_log;
    int m_nWake = -1;           // event descriptor
    const long long m_llBegan;  // ms of the steady clock
    std::vector<unsigned int> m_listAddresses;
    size_t m_nAddress = 0;
    std::vector<Orb_U32> m_listChannels;  // each once
    std::set<Orb_U32> m_setLines;         // those with a stats sink
    CSubscribeStats m_stats;
    std::vector<std::unique_ptr<IChannelSink>> m_listSinks;
    std::map<Orb_U32, std::vector<IChannelSink*>> m_mapSinks;
    IWXSPChannelClient* m_pClient = nullptr;
    bool m_bEverConnected = false;
    bool m_bTimeOver = false;
    bool m_bNoClient = false;
    Orb_U64 m_ullPackets = 0;  // on the worker
    std::atomic<bool> m_bCounted{false};
    std::mutex m_mutex;
    std::vector<EEvent> m_listEvents;  // under m_mutex
};

#endif
