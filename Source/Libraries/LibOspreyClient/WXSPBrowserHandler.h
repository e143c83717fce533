#ifndef OSPREY_WXSPBROWSERHANDLER_H
#define OSPREY_WXSPBROWSERHANDLER_H

// Internal header.

#include <map>

#include "OspreyServer.h"
#include "SendBufferOwner.h"
#include "WXSPFraming.h"
#include "WXSPProtocolHandler.h"
#include "WXSPRequestHandler.h"

// Speaks the file protocol on one connection: dispatches each request by its code, routes every
// sent reply back to the request that produced it, and remembers the connection's name.
//
// A record that does not hold its fixed fields, or a name without a terminator inside its packet,
// is refused; nothing of it is used.
//
// Ownership: owns the request handlers, the name, and every buffer that is out at the stream.
// Otherwise as CWXSPProtocolHandler.
class CWXSPBrowserHandler final : public CWXSPProtocolHandler
{
public:
    CWXSPBrowserHandler(COspreyServer* pServer, COspreyServerStream* pStream);
    ~CWXSPBrowserHandler() override;

    void OnSendComplete(CTCPStreamBuffer* pBuffer) override;
    void OnTimeout(unsigned int /*dwA*/, unsigned int /*dwB*/) override {}
    void OnShutdown() override;
    Orb_BOOL ProcessRequest(PWXS_PACKET pPacket) override;

    // Requests that no code reaches; each returns 0.
    int ProcessEnumFileRequest(PWXS_PACKET pPacket);
    int ProcessRemoteProcessCallRequest(PWXS_PACKET pPacket);
    int ProcessCustomData(PWXS_PACKET pPacket);

    // The handler under the id, or null.
    CWXSPRequestHandler* FindRequestHandler(unsigned int dwRequestID);
    // Forgets the handler under the id; does not destroy it.
    void RemoveHandler(unsigned int dwRequestID);
    // Forwards to the host. Always 0: a host refuses through the resolved path.
    unsigned int OnRequest(KS_REQUEST eRequest, void* pRecord);
    // Likewise.
    void OnTransferEnded(OSPREY_TRANSFER_END eEnd, unsigned long long ullContext);
    // Takes over a heap-allocated buffer and queues it on the stream.
    void Send(CRequestIDSimpleTCPStreamBuffer* pBuffer);

    // False when so many requests are alive already that no further file may be opened. Cancelled
    // ones, which wait for nothing but the connection's end, make room.
    bool MayOpenFile();
    unsigned int TakeSerial()
    {
        return ++m_dwLastSerial;
    }
    // The connection is over: so is what the requests did, which was not cancelled.
    bool IsEnding() const
    {
        return m_bEnding;
    }
    COspreyServerStream* GetStream() const
    {
        return m_pStream;
    }
    // Null until the connection is named.
    const char* GetConnectionName() const
    {
        return m_pszConnectionName;
    }
    // Replaces the name; without memory the connection stays unnamed, and false.
    bool SetConnectionName(const std::string& strName);

private:
    int Dispatch(PWXS_PACKET pPacket);
    template <class CHandler, class CRecord>
    int StartRequest(PWXS_PACKET pPacket);
    bool ReserveEntry(unsigned int dwRequestID);
    int StoreHandler(unsigned int dwRequestID, CWXSPRequestHandler* pHandler, bool bStarted);
    int ProcessUploadFileBlockRequest(PWXS_PACKET pPacket);
    int ProcessCancelRequest(PWXS_PACKET pPacket);

    std::map<unsigned int, CWXSPRequestHandler*> m_mapHandlers;  // owned; null while starting
    char* m_pszConnectionName = nullptr;                         // owned, UTF-8
    CSendBufferOwner m_buffersOut;
    unsigned int m_dwLastSerial = 0;
    bool m_bEnding = false;
};

#endif
