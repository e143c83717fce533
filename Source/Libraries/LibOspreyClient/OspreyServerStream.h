#ifndef OSPREY_OSPREYSERVERSTREAM_H
#define OSPREY_OSPREYSERVERSTREAM_H

// Internal header.

#include <atomic>

#include "OspreyTypes.h"
#include "RingTCPStreamBuffer.h"
#include "TCPStream.h"
#include "WXSPProtocolHandler.h"

class COspreyServer;

// One accepted connection of the server.
//
//   Attach --> ATTACHED --InitiateDetach--> IDLE, destroy pending --deferred--> ProcessDestroied
//                 |                                                               (deleted there)
//      ring -> packets -> m_pHandler
//
// Packets are handled for 5 ms at a time, then everybody else has a turn. A peer that never reads
// its replies is held off: above 1,024 queued buffers the stream stops cutting packets and
// receiving, and goes on below 512.
//
// Ownership: owned by the server, which deletes it in ProcessStreamDetached; owns handler and ring.
// Thread:    the server's worker; RequestTerminate and IsTerminateRequested from any.
class COspreyServerStream final : public CTCPStream, public CDLinkedListNode
{
public:
    explicit COspreyServerStream(COspreyServer* pServer);
    ~COspreyServerStream() override;

    // Allocates the ring. False when that fails, or when it was done before.
    Orb_BOOL Create();
    // Adopts an accepted socket. On false it is still the caller's.
    Orb_BOOL Attach(int s);
    // Begins the end of the connection. False when it has begun already.
    Orb_BOOL InitiateDetach();
    // Aborts unless the stream is idle and without a socket.
    void Destroy();
    Orb_BOOL ProcessRequest(PWXS_PACKET pPacket);
    void ProcessKeepAliveTimeout(void*);

    // Sends what is small at once from now on, instead of waiting for the peer's acknowledgement.
    void SetNoDelay();

    // Marks the stream for the worker to detach. False when it is marked or detaching already.
    bool RequestTerminate();
    bool IsTerminateRequested() const
    {
        return m_bTerminateRequested;
    }

    void ProcessDataReceived(CTCPStreamBuffer* pBuffer) override;
    void ProcessDataSent(CTCPStreamBuffer* pBuffer) override;
    void ProcessDisconnected() override;
    void ProcessNetworkError(int nError) override;
    void ProcessDestroied() override;

private:
    enum
    {
        STATE_IDLE = 0,
        STATE_ATTACHED = 1
    };

    bool AttachTransport(int s);
    void CutPackets();
    void ProcessMorePackets(void*);
    void AbandonRequest();
    CWXSPProtocolHandler* CreateHandler(unsigned int dwMagic);

    int m_state = STATE_IDLE;
    COspreyServer* m_pServer;
    Orb_BOOL m_bNewRequestPending = Orb_FALSE;  // bytes arrived while not attached
    CRingTCPStreamBuffer m_bufferRequest;
    CMethodCallbackHandler<COspreyServerStream, CTimerHandler> m_timerKeepAlive;
    CWXSPProtocolHandler* m_pHandler = nullptr;  // owned

    bool m_bHeldOff = false;  // too many replies queued
    CMethodCallbackHandler<COspreyServerStream, CDeferredHandler> m_handlerMorePackets;
    std::atomic<bool> m_bTerminateRequested{false};
};

#endif
