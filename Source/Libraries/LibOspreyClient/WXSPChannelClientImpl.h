#ifndef OSPREY_WXSPCHANNELCLIENTIMPL_H
#define OSPREY_WXSPCHANNELCLIENTIMPL_H

// Internal header.

#include <atomic>

#include "ClientTCPStream.h"
#include "FileTimerHandler.h"
#include "OspreyChannelClient.h"
#include "SendBufferOwner.h"
#include "WXSPFraming.h"
#include "WorkerThread.h"

// Reads numbered channels of a server, and connects again whenever it has to:
//
//   Reconnect --> connecting --OnConnectSuccessful--> connected: OCHS out, CPKTs in, KEEP every 5 s
//       ^             | OnConnectFailed                    | OnNetworkError
//       |             v  (refused, or the connect timer)   v
//       +--- 1 s --- ScheduleReconnect <-------------------+
//
// The first Reconnect runs on the host's thread while the worker exists already: the worker waits
// at a gate in front of its loop until that attempt has been set up.
//
// Ownership: owns engine, thread, stream, buffers and timers; borrows the host's callback.
// Thread:    Connect and Release on a host thread; everything else on the worker. Release also from
//            inside a callback.
class CWXSPChannelClientImpl final : public IWXSPChannelClient,
                                     public IFileTimerCallback,
                                     public CClientTCPStream::ICallback,
                                     public IWXSPPacketSink
{
public:
    CWXSPChannelClientImpl(IWXSPChannelClientCallback* pCallback, unsigned int dwUserParam);
    ~CWXSPChannelClientImpl() override;
    CWXSPChannelClientImpl(const CWXSPChannelClientImpl&) = delete;
    CWXSPChannelClientImpl& operator=(const CWXSPChannelClientImpl&) = delete;

    Orb_BOOL Connect(unsigned int dwReserved, unsigned int dwIPAddress, unsigned short wPort,
                     unsigned int dwConnectTimeoutMs, unsigned int dwNumChannels,
                     unsigned int* pdwChannels) override;
    void Release() override;

    void OnTimeout(unsigned int dwID) override;
    void OnConnectSuccessful() override;
    void OnConnectFailed(int nError) override;
    void OnDataReceived(CTCPStreamBuffer* pBuffer) override;
    void OnDataSent(CTCPStreamBuffer* pBuffer) override;
    void OnNetworkError(int nError) override;
    Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) override;

    // Drops the connection that there is and begins a new attempt. False when it cannot: after a
    // call of OnConnectFailed(0) the connect timer leads to the next one, without it nothing does.
    Orb_BOOL Reconnect();
    // Ends the worker and closes everything; harmless when nothing runs.
    void Destory();

private:
    static void* ThreadProc(void* pThis);

    bool StartWorker();
    bool CreateParts();
    bool CreateBuffers();
    void Disconnect();
    void CloseConnection();
    void DropTimers();
    void ScheduleReconnect();
    void SendOpenChannels();
    void SendKeepAlive();
    void ProcessChannelPacket(PWXS_PACKET pPacket);
    void ReleaseInsideCallback();

    IWXSPChannelClientCallback* m_pCallback;  // never null: a silent one stands in
    unsigned int m_dwUserParam;
    // Before the stream, whose destructor still needs it.
    CIOEngine m_engine;
    CClientTCPStream m_stream;
    CRingTCPStreamBuffer m_bufferPackets;
    CSimpleTCPStreamBuffer m_bufferReceive;
    unsigned int m_dwReserved = 0;
    unsigned int m_dwServerIP = 0;        // host byte order
    unsigned short m_wServerPort = 0;     // host byte order
    unsigned int m_dwConnectTimeout = 0;  // milliseconds
    const _WXS_PACKET m_keepAlivePacket;
    unsigned int m_dwNumChannels = 0;
    unsigned int m_dwChannels[OSPREY_MAX_CHANNELS] = {};
    CWorkerThread m_thread;
    CStopLoopPipe m_stopPipe;
    CFileTimerHandler* m_pReconnectTimer = nullptr;
    CFileTimerHandler* m_pConnectTimer = nullptr;
    CFileTimerHandler* m_pKeepAliveTimer = nullptr;

    CFileTimers m_timers;
    CSendBufferOwner m_buffersOut;
    CCompletion m_gate;                // in front of the worker's loop
    bool m_bConnecting = false;        // a host thread is inside Connect
    bool m_bReleaseRequested = false;  // from inside a callback
};

#endif
