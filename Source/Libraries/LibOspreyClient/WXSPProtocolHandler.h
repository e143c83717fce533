#ifndef OSPREY_WXSPPROTOCOLHANDLER_H
#define OSPREY_WXSPPROTOCOLHANDLER_H

// Internal header.

#include "OspreyTypes.h"
#include "TCPStreamBuffer.h"
#include "WXSPProtocol.h"

class COspreyServer;
class COspreyServerStream;

// What a server connection speaks, once its first packet has chosen it.
//
// Ownership: owned by the stream; borrows server and stream, which outlive it.
// Thread:    the server's worker.
// Lifetime:  deleted when the transport has been torn down, so that no buffer is in a queue.
class CWXSPProtocolHandler
{
public:
    CWXSPProtocolHandler(COspreyServer* pServer, COspreyServerStream* pStream)
        : m_pServer(pServer), m_pStream(pStream)
    {
    }
    virtual ~CWXSPProtocolHandler() = default;
    CWXSPProtocolHandler(const CWXSPProtocolHandler&) = delete;
    CWXSPProtocolHandler& operator=(const CWXSPProtocolHandler&) = delete;

    // A buffer that this handler gave to the stream has been written out and is the handler's
    // again.
    virtual void OnSendComplete(CTCPStreamBuffer* pBuffer) = 0;
    // Part of the interface; nothing calls it.
    virtual void OnTimeout(unsigned int dwA, unsigned int dwB) = 0;
    // Stops all work and releases resources; each destructor calls its own.
    virtual void OnShutdown() = 0;
    // Handles one complete packet. False: the connection is to be abandoned.
    virtual Orb_BOOL ProcessRequest(PWXS_PACKET pPacket) = 0;

protected:
    COspreyServer* m_pServer;
    COspreyServerStream* m_pStream;
};

#endif
