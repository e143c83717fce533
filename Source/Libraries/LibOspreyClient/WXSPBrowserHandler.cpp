#include "WXSPBrowserHandler.h"

#include <cstring>
#include <new>

#include "OspreyServerCore.h"
#include "OspreyServerStream.h"
#include "WXSPDirectoryRequests.h"
#include "WXSPDownloadRequest.h"
#include "WXSPUploadRequest.h"

namespace
{

const size_t MOST_LIVE_HANDLERS = 256;

}  // namespace

CWXSPBrowserHandler::CWXSPBrowserHandler(COspreyServer* pServer, COspreyServerStream* pStream)
    : CWXSPProtocolHandler(pServer, pStream)
{
}

CWXSPBrowserHandler::~CWXSPBrowserHandler()
{
    CWXSPBrowserHandler::OnShutdown();
    if (m_pszConnectionName != nullptr)
    {
        m_pServer->OnDisconnect(m_pStream, m_pszConnectionName);
        delete[] m_pszConnectionName;
    }
    for (const auto& entry : m_mapHandlers)
    {
        delete entry.second;
    }
}

Orb_BOOL CWXSPBrowserHandler::ProcessRequest(PWXS_PACKET pPacket)
{
    return Dispatch(pPacket) != 0 ? Orb_TRUE : Orb_FALSE;
}

int CWXSPBrowserHandler::Dispatch(PWXS_PACKET pPacket)
{
    switch (pPacket->dwMagic)
    {
        case DELT:
            return StartRequest<CDeleteTreeRequestHandler, _WXS_DELETE_TREE>(pPacket);
        case CAOP:
            return ProcessCancelRequest(pPacket);
        case CDIR:
            return StartRequest<CCreateDirRequestHandler, _WXS_CREATE_DIR>(pPacket);
        case BROW:
            return 1;
        case NAMC:
            return StartRequest<CNameConnectionRequestHandler, _WXS_NAME_CONNECTION>(pPacket);
        case DFIL:
            return StartRequest<CDownloadFileRequestHandler, _WXS_DOWN_FILE>(pPacket);
        case UPFB:
            return ProcessUploadFileBlockRequest(pPacket);
        case UPFI:
            return StartRequest<CUploadFileRequestHandler, _WXS_UPLOAD_FILE>(pPacket);
        default:
            return 0;
    }
}

// The five requests that get a handler of their own.
template <class CHandler, class CRecord>
int CWXSPBrowserHandler::StartRequest(PWXS_PACKET pPacket)
{
    CRecord* pRecord = GetRecord<CRecord>(pPacket);
    if (!HoldsNamedRecord(pPacket, sizeof(CRecord)) || !ReserveEntry(pRecord->dwRequestID))
    {
        return 0;
    }
    CHandler* pHandler = new (std::nothrow) CHandler(this);
    bool bStarted = false;
    try
    {
        bStarted = pHandler != nullptr && pHandler->Startup(pRecord) != 0;
    }
    catch (const std::bad_alloc&)
    {
        bStarted = false;
    }
    return StoreHandler(pRecord->dwRequestID, pHandler, bStarted);
}

// Makes the map's entry before anything is sent that would need it. A handler that stands there
// already is destroyed first, so that its file is closed before the new one opens it.
bool CWXSPBrowserHandler::ReserveEntry(unsigned int dwRequestID)
{
    try
    {
        CWXSPRequestHandler*& pEntry = m_mapHandlers[dwRequestID];
        delete pEntry;
        pEntry = nullptr;
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
}

int CWXSPBrowserHandler::StoreHandler(unsigned int dwRequestID, CWXSPRequestHandler* pHandler,
                                      bool bStarted)
{
    if (!bStarted)
    {
        delete pHandler;
        RemoveHandler(dwRequestID);
        return 0;
    }
    m_mapHandlers[dwRequestID] = pHandler;
    return 1;
}

int CWXSPBrowserHandler::ProcessUploadFileBlockRequest(PWXS_PACKET pPacket)
{
    if (!HoldsRecord(pPacket, sizeof(_WXS_UPLOAD_FILE_BLOCK)))
    {
        return 0;
    }
    const auto* pBlock = GetRecord<_WXS_UPLOAD_FILE_BLOCK>(pPacket);
    // A block for a request of another kind is as good as one for no request.
    auto* pUpload =
        dynamic_cast<CUploadFileRequestHandler*>(FindRequestHandler(pBlock->dwRequestID));
    return pUpload != nullptr ? pUpload->ProcessBlockRequest(pPacket) : 1;
}

int CWXSPBrowserHandler::ProcessCancelRequest(PWXS_PACKET pPacket)
{
    if (HoldsRecord(pPacket, sizeof(_WXS_CANCEL)))
    {
        const auto* pCancel = GetRecord<_WXS_CANCEL>(pPacket);
        if (CWXSPRequestHandler* pHandler = FindRequestHandler(pCancel->dwRequestID))
        {
            pHandler->OnShutdown();
        }
    }
    return 1;
}

int CWXSPBrowserHandler::ProcessEnumFileRequest(PWXS_PACKET /*pPacket*/)
{
    return 0;
}

int CWXSPBrowserHandler::ProcessRemoteProcessCallRequest(PWXS_PACKET /*pPacket*/)
{
    return 0;
}

int CWXSPBrowserHandler::ProcessCustomData(PWXS_PACKET /*pPacket*/)
{
    return 0;
}

void CWXSPBrowserHandler::OnSendComplete(CTCPStreamBuffer* pBuffer)
{
    const auto* pReply = static_cast<CRequestIDSimpleTCPStreamBuffer*>(pBuffer);
    if (CWXSPRequestHandler* pHandler = FindRequestHandler(pReply->m_dwRequestID))
    {
        pHandler->ProcessReplySent(*pReply);
    }
    m_buffersOut.Free(pBuffer);
}

void CWXSPBrowserHandler::OnShutdown()
{
    m_bEnding = true;
    for (const auto& entry : m_mapHandlers)
    {
        if (entry.second != nullptr)
        {
            entry.second->OnShutdown();
        }
    }
}

CWXSPRequestHandler* CWXSPBrowserHandler::FindRequestHandler(unsigned int dwRequestID)
{
    const auto it = m_mapHandlers.find(dwRequestID);
    return it != m_mapHandlers.end() ? it->second : nullptr;
}

void CWXSPBrowserHandler::RemoveHandler(unsigned int dwRequestID)
{
    m_mapHandlers.erase(dwRequestID);
}

unsigned int CWXSPBrowserHandler::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    return m_pServer->OnRequest(m_pStream, eRequest, pRecord);
}

void CWXSPBrowserHandler::OnTransferEnded(OSPREY_TRANSFER_END eEnd, unsigned long long ullContext)
{
    m_pServer->OnTransferEnded(m_pStream, eEnd, ullContext);
}

void CWXSPBrowserHandler::Send(CRequestIDSimpleTCPStreamBuffer* pBuffer)
{
    // A host that ends the connection from a callback means what the callback was about, too: its
    // peer must not take for done what the host has given up.
    if (m_pStream->IsTerminateRequested())
    {
        delete pBuffer;
        return;
    }
    m_buffersOut.Send(*m_pStream, pBuffer);
}

// The request that asks has its entry already, still null.
bool CWXSPBrowserHandler::MayOpenFile()
{
    for (auto it = m_mapHandlers.begin();
         it != m_mapHandlers.end() && m_mapHandlers.size() > MOST_LIVE_HANDLERS;)
    {
        if (it->second != nullptr && it->second->IsIdleForGood())
        {
            delete it->second;
            it = m_mapHandlers.erase(it);
        }
        else
        {
            ++it;
        }
    }
    return m_mapHandlers.size() <= MOST_LIVE_HANDLERS;
}

bool CWXSPBrowserHandler::SetConnectionName(const std::string& strName)
{
    delete[] m_pszConnectionName;
    m_pszConnectionName = new (std::nothrow) char[strName.size() + 1];
    if (m_pszConnectionName == nullptr)
    {
        return false;
    }
    memcpy(m_pszConnectionName, strName.c_str(), strName.size() + 1);
    return true;
}
