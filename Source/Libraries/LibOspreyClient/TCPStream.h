#ifndef OSPREY_TCPSTREAM_H
#define OSPREY_TCPSTREAM_H

// Internal header.

#include "IOEngine.h"
#include "MethodCallbackHandler.h"
#include "Socket.h"
#include "TCPStreamBuffer.h"

// One non-blocking TCP connection driven by a CIOEngine.
//
//   owner --Send(b)-----> m_listSend -----send()--> peer     b returns in ProcessDataSent
//   owner --Receive(b)--> m_listReceive <--recv()-- peer     b returns in ProcessDataReceived
//
// Each Receive gives one recv: a buffer comes back with whatever arrived, full or not. A pass moves
// at most 256 buffers or 256 KiB each way, then everybody else has a turn.
//
// Ownership: borrows the engine and every queued buffer; owns only the descriptor.
// Thread:    engine thread only.
// Lifetime:  two-phase from inside callbacks: InitiateDestroy(), then delete in ProcessDestroied(),
//            never earlier. A callback may Destroy() or Create() its own stream again.
// Errors:    bool results; errno values through ProcessNetworkError(int). Never raises SIGPIPE.
class CTCPStream : public CIOHandler
{
public:
    explicit CTCPStream(CIOEngine* pEngine);
    ~CTCPStream() override;

    // Makes and registers a socket for an outgoing connection, bound to addrLocal; the caller then
    // calls Connect. Aborts when a socket exists. False, with nothing left open, when a step fails.
    bool Create(const CSocketAddress& addrLocal);
    // Starts the connection. The outcome arrives as ProcessConnected or ProcessNetworkError. False
    // when it failed at once.
    bool Connect(const CSocketAddress& addrRemote);
    // Adopts an accepted socket. Aborts when a socket exists. On false s is still the caller's.
    bool Attach(SOCKET s, bool bConnected);

    // Queues a buffer to be sent; nothing is sent inside the call. False for an empty buffer or a
    // stream that is pending destroy. A buffer queued already is not queued twice.
    bool Send(CTCPStreamBuffer* pBuffer);
    // Queues a buffer to be filled. False for a full buffer or a stream that is pending destroy.
    bool Receive(CTCPStreamBuffer* pBuffer);

    // Tears down in the next deferred pass and calls ProcessDestroied then; until then no event and
    // no call does anything. False when that is under way, or when there is no socket.
    bool InitiateDestroy();
    // Tears down now: closes, and unlinks the queued buffers without reporting them. Aborts while
    // a deferred destroy is pending.
    void Destroy();

    // Runs a pending destroy now, for an owner whose engine runs no more. The stream may be deleted
    // by it; harmless when none is pending.
    void CompleteDestroy();
    // False when there is no connection.
    bool GetPeerAddress(CSocketAddress& addrRemote) const
    {
        return m_sock.GetPeerAddress(addrRemote);
    }
    bool IsPendingDestroy() const
    {
        return m_bPendingDestroy;
    }

    void ProcessInput() override;
    void ProcessOutput() override;
    void ProcessError() override;
    // A hang-up shows as recv returning 0 or a failing call.
    void ProcessHangUp() override {}

    virtual void ProcessConnected() {}
    virtual void ProcessDataReceived(CTCPStreamBuffer* /*pBuffer*/) {}
    virtual void ProcessDataSent(CTCPStreamBuffer* /*pBuffer*/) {}
    // The peer closed.
    virtual void ProcessDisconnected() {}
    virtual void ProcessNetworkError(int /*nError*/) {}
    virtual void ProcessDestroied() {}

protected:
    // Unregisters and forgets the descriptor without closing it.
    void Abandon();

    CIOEngine* m_pEngine;
    CSocket m_sock;
    bool m_bPendingDestroy = false;
    bool m_bConnected = false;
    bool m_bCanSend = true;     // presumed writable: cleared by EAGAIN, set by EPOLLOUT
    bool m_bCanReceive = true;  // presumed readable: cleared by EAGAIN, set by EPOLLIN
    CSLinkedList m_listSend;
    CSLinkedList m_listReceive;
    CMethodCallbackHandler<CTCPStream, CDeferredHandler> m_handlerDeferredIO;
    CMethodCallbackHandler<CTCPStream, CDeferredHandler> m_handlerDestroy;

private:
    void Reset();
    bool IsIdle() const;
    bool MayGoOn(unsigned int dwIncarnation) const;
    void ContinueLater(unsigned int dwIncarnation, const CSLinkedList& listWaiting);
    bool FinishConnect();
    void DoSend();
    void DoReceive();
    bool SendHead();
    bool ReceiveIntoHead(int& nReceived);
    void ProcessDeferredIO(void*);
    void InternalProcessDestroied(void*);
    void InternalProcessDisconnected();
    void InternalProcessNetworkError(int nError);

    bool m_bPeerClosed = false;        // recv has returned 0
    unsigned int m_dwIncarnation = 0;  // counts the sockets: tells a callback that replaced its own
};

#endif
