#ifndef OSPREY_TCPLISTENER_H
#define OSPREY_TCPLISTENER_H

// Internal header.

#include "IOEngine.h"
#include "MethodCallbackHandler.h"
#include "Socket.h"

// A listening TCP socket that accepts one connection an event: it is registered level-triggered, so
// that further ones raise the next event. When the system has no descriptor or memory for a
// newcomer, and none could be turned away either, it looks again 100 ms later: the newcomer stays
// in the queue, and its event would come at once, again and again.
//
// Ownership: owns its socket and one spare descriptor, kept so that a process without descriptors
//            can still take a newcomer off the queue and close it instead of spinning on it.
// Thread:    engine thread only.
// Lifetime:  as CTCPStream; Destroy may also be called while a destroy is pending.
class CTCPListener : public CIOHandler
{
public:
    explicit CTCPListener(CIOEngine* pEngine);
    ~CTCPListener() override;

    // Aborts when a socket exists. False, with nothing left open, when a step fails.
    bool Create(const CSocketAddress& addrLocal, int nBacklog);
    // False when that is under way, or when there is no socket.
    bool InitiateDestroy();
    void Destroy();

    CIOEngine* GetEngine() const
    {
        return m_pEngine;
    }

    void ProcessInput() override;

    // A connection was accepted; s (blocking, close-on-exec) is the callee's.
    virtual void ProcessClientConnect(int s, const CSocketAddress& addrRemote);
    // accept failed with this errno value; the listener goes on.
    virtual void ProcessError(int /*nError*/) {}
    // The deferred destroy has finished.
    virtual void ProcessDestroied() {}

protected:
    using CIOHandler::ProcessError;

    CSocket m_sock;
    CIOEngine* m_pEngine;
    bool m_bPendingDestroy = false;
    CMethodCallbackHandler<CTCPListener, CDeferredHandler> m_handlerDestroy;

private:
    void InternalProcessDestroied(void*);
    bool TurnAwayNewcomer();
    void Pause();
    void ProcessPauseTimeout(void*);

    int m_hSpare = -1;
    CMethodCallbackHandler<CTCPListener, CTimerHandler> m_timerPause;  // armed: not registered
};

#endif
