#ifndef OSPREY_WXSPREQUESTHANDLER_H
#define OSPREY_WXSPREQUESTHANDLER_H

// Internal header.

#include <memory>

#include "OspreyServer.h"
#include "WXSPFraming.h"

class CWXSPBrowserHandler;

typedef std::unique_ptr<CRequestIDSimpleTCPStreamBuffer> CReplyPtr;

// One request of a file connection, from its packet until its last reply has left.
//
//   Startup --> reply queued --OnSendComplete--> the next, or Delete()
//
// Every derived class has a Startup(record) that returns 1 when it queued its reply, and 0 when
// there is no memory for one; it may throw std::bad_alloc, which its caller takes for 0.
//
// Ownership: owned by the browser handler's map, under its request id.
// Thread:    the server's worker.
// Lifetime:  deletes itself through Delete(); cancelled or not, until then it stays in the map.
class CWXSPRequestHandler
{
public:
    explicit CWXSPRequestHandler(CWXSPBrowserHandler* pBrowser);
    virtual ~CWXSPRequestHandler() = default;
    CWXSPRequestHandler(const CWXSPRequestHandler&) = delete;
    CWXSPRequestHandler& operator=(const CWXSPRequestHandler&) = delete;

    // A buffer of this request has been sent, or one of a request that had the id before. May
    // delete the handler.
    virtual void OnSendComplete() = 0;
    // Closes the file, if there is one.
    virtual void OnShutdown() = 0;
    // True when nothing is left that would end the handler but the connection's end.
    virtual bool IsIdleForGood() const
    {
        return false;
    }

    // Counts a sent buffer, then OnSendComplete.
    void ProcessReplySent(const CRequestIDSimpleTCPStreamBuffer& reply);

    // Takes the handler out of the map and destroys it.
    void Delete();

protected:
    // A buffer with room for nRoom bytes that begins with a packet header (without version) and the
    // request id; what follows is zero as far as a reply without data goes. Null without memory.
    CReplyPtr CreateReply(int nRoom, unsigned int dwMagic, unsigned int dwDataSize) const;
    // The packet in a buffer that CreateReply made and nobody filled yet.
    static PWXS_PACKET GetPacket(const CReplyPtr& pReply);
    // Marks the packet as filled, nSize bytes in all, and queues it.
    void SendReply(CReplyPtr pReply, int nSize);

    CWXSPBrowserHandler* m_pBrowser;
    unsigned int m_dwRequestID = 0;
    const unsigned int m_dwSerial;  // tells the handlers of one id apart
    int m_nRepliesOut = 0;          // own buffers at the stream
};

#endif
