#ifndef OSPREY_OSPREYSERVERCORE_H
#define OSPREY_OSPREYSERVERCORE_H

// Internal header.

#include <atomic>
#include <chrono>

#include "ChannelPacketServer.h"
#include "CriticalSection.h"
#include "OspreyServer.h"
#include "StopLoopPipe.h"
#include "TCPListener.h"

class COspreyServer;

// The listening socket: forwards its events to the core.
class COspreyServerListener final : public CTCPListener
{
public:
    explicit COspreyServerListener(CIOEngine* pEngine);

    void SetOspreyServer(COspreyServer* pServer);

    void ProcessClientConnect(int s, const CSocketAddress& addrRemote) override;
    void ProcessError(int nError) override;
    void ProcessDestroied() override;

private:
    COspreyServer* m_pServer = nullptr;
};

// The server's core: accepts connections, keeps the list of their streams, and stands between them
// and the host.
//
// Ownership: owns the listener, every listed stream and the packet store; borrows the engine and
//            the host's callback.
// Thread:    the worker; before the worker runs and after it was joined, the host's. Any thread:
//            TerminateTask, FlushChannelPackets, EndAllAndWait, GetStreamCount and
//            GetChannelPacketServer.
// Lifetime:  Create, then Destroy when no stream is listed; then Create again.
class COspreyServer
{
public:
    COspreyServer(CIOEngine* pEngine, IOspreyServerCallback* pCallback);
    virtual ~COspreyServer();
    COspreyServer(const COspreyServer&) = delete;
    COspreyServer& operator=(const COspreyServer&) = delete;

    // Everybody has detached, or nobody was there.
    virtual void ProcessDestroied();
    virtual void ProcessClientConnect(int s, const CSocketAddress& addrRemote);
    virtual void ProcessListenerError(int nError);
    // The listener has finished its deferred destruction: detaches every stream.
    virtual void ProcessListenerDestroy();
    // The last word of a stream: deletes it.
    virtual void ProcessStreamDetached(COspreyServerStream* pStream);

    // Starts listening and taking requests of other threads. False when a step fails; the listener
    // is then closed.
    Orb_BOOL Create(const CSocketAddress& addrLocal, int nBacklog);
    // Closes the listener. Aborts while a stream is listed.
    void Destroy();
    // Takes no more requests of other threads. REQUIRES: the worker does not run.
    void CloseHostRequests();
    // Starts the listener's deferred destruction, which ends every connection. False when the
    // listener is closed or closing already.
    bool InitiateDestroy();

    // Any thread; the detach itself runs on the worker. True when the stream was found alive, and
    // for an unknown task; false when it is detaching already.
    Orb_BOOL TerminateTask(long lTask);
    // Any thread; the worker has the waiting channel handlers look for packets.
    void FlushChannelPackets();
    // What FlushChannelPackets asks: a channel handler stands here while it waits for packets.
    CDLinkedList& GetWaitingHandlers()
    {
        return m_listWaitingHandlers;
    }
    // On the worker: ends every connection, without waiting.
    void EndAll();
    // Any other thread: has the worker do it and waits. False when the time was over first; true,
    // with connections left, when the worker has ended meanwhile.
    bool EndAllAndWait(unsigned int dwTimeoutMs);
    // The worker's last word: nobody needs to wait for it any more.
    void ProcessWorkerEnded();
    // Ends every connection at once. REQUIRES: the worker does not run.
    void EndAllNow();
    // EndAllNow runs, perhaps inside an OnDisconnect that it makes. Its own thread.
    bool IsEndingNow() const
    {
        return m_bEndingNow;
    }
    int GetStreamCount();

    // Null: every connection is taken. REQUIRES: the worker does not run.
    void SetConnectionFilter(IOspreyConnectionFilter* pFilter)
    {
        m_pFilter = pFilter;
    }
    // Null: nobody is told. REQUIRES: the worker does not run.
    void SetTransferObserver(IOspreyTransferObserver* pObserver)
    {
        m_pObserver = pObserver;
    }
    // The task of the connection that the host is being called about, or 0. Inside a call only.
    long GetCallbackTask() const
    {
        return reinterpret_cast<long>(m_pCalledAbout);
    }

    // Asks the host, for a connection. 0 in every case: a request handler never learns what the
    // host answered.
    unsigned int OnRequest(COspreyServerStream* pStream, KS_REQUEST eRequest, void* pRecord);
    void OnDisconnect(COspreyServerStream* pStream, const char* pszName);
    void OnTransferEnded(COspreyServerStream* pStream, OSPREY_TRANSFER_END eEnd,
                         unsigned long long ullContext);

    CIOEngine* GetEngine() const
    {
        return m_listener.GetEngine();
    }
    // The store of the channels' packets; null before the first Create, then the same for good. Any
    // thread.
    CChannelPacketServer* GetChannelPacketServer() const
    {
        return m_pChannelPacketServer;
    }

protected:
    Orb_BOOL m_bDestroying = Orb_FALSE;  // waiting for the streams after the listener has gone
    COspreyServerListener m_listener;
    CDLinkedList m_listStreams;
    CDLinkedList m_listFreeStreams;  // spare streams; nothing ever adds one
    IOspreyServerCallback* m_pCallback;
    std::atomic<CChannelPacketServer*> m_pChannelPacketServer{nullptr};  // owned

private:
    bool CreateStore();
    void ProcessHostRequests(void*);
    void DetachTerminated();
    void FlushWaitingHandlers();
    bool IsWelcome(const CSocketAddress& addrRemote);
    COspreyServerStream* MakeStream();
    void ListStream(COspreyServerStream* pStream);
    void UnlistStream(COspreyServerStream* pStream);
    void GiveBackHeapOfCrowd();
    void DeleteStreams(CDLinkedList& list);

    CCriticalSection m_csStreams;  // guards m_listStreams: written by the worker, read by all
    int m_nMostStreams = 0;        // listed at once since the heap was given back
    std::chrono::steady_clock::time_point m_timeHeapGivenBack;
    std::atomic<bool> m_bTerminateRequested{false};  // of some stream
    std::atomic<bool> m_bFlushRequested{false};
    std::atomic<bool> m_bEndRequested{false};
    std::atomic<bool> m_bEndingNow{false};         // EndAllNow runs
    IOspreyConnectionFilter* m_pFilter = nullptr;  // the host's, as the next one
    IOspreyTransferObserver* m_pObserver = nullptr;
    COspreyServerStream* m_pCalledAbout = nullptr;
    CDLinkedList m_listWaitingHandlers;
    CCompletion m_ended;
    CMethodCallbackHandler<COspreyServer, CDeferredHandler> m_handlerHostRequests;
    CWakeEvent m_wake;
};

#endif
