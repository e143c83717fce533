#include "WXSPRequestHandler.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "WXSPBrowserHandler.h"

namespace
{

// The longest reply without file data: what a peer reads beyond the written fields is zero, never
// what the allocation held.
const int LONGEST_REPLY = WXSP_HEADER_SIZE + sizeof(_WXS_DOWN_FILE_RET);

}  // namespace

CWXSPRequestHandler::CWXSPRequestHandler(CWXSPBrowserHandler* pBrowser)
    : m_pBrowser(pBrowser), m_dwSerial(pBrowser->TakeSerial())
{
}

void CWXSPRequestHandler::ProcessReplySent(const CRequestIDSimpleTCPStreamBuffer& reply)
{
    if (reply.m_dwSerial == m_dwSerial)
    {
        --m_nRepliesOut;
    }
    OnSendComplete();
}

void CWXSPRequestHandler::Delete()
{
    m_pBrowser->RemoveHandler(m_dwRequestID);
    delete this;
}

CReplyPtr CWXSPRequestHandler::CreateReply(int nRoom, unsigned int dwMagic,
                                           unsigned int dwDataSize) const
{
    CReplyPtr pReply(new (std::nothrow) CRequestIDSimpleTCPStreamBuffer);
    if (pReply == nullptr || !pReply->Create(nRoom))
    {
        return nullptr;
    }
    pReply->m_dwRequestID = m_dwRequestID;
    pReply->m_dwSerial = m_dwSerial;
    memset(pReply->GetFree(0), 0, static_cast<size_t>(std::min(nRoom, LONGEST_REPLY)));
    const PWXS_PACKET pPacket = GetPacket(pReply);
    pPacket->dwMagic = dwMagic;
    pPacket->dwDataSize = dwDataSize;
    GetRecord<_WXS_DOWN_FILE_BLOCK>(pPacket)->dwRequestID = m_dwRequestID;
    return pReply;
}

PWXS_PACKET CWXSPRequestHandler::GetPacket(const CReplyPtr& pReply)
{
    return reinterpret_cast<PWXS_PACKET>(pReply->GetFree(0));
}

void CWXSPRequestHandler::SendReply(CReplyPtr pReply, int nSize)
{
    pReply->AppendData(nSize);
    ++m_nRepliesOut;
    m_pBrowser->Send(pReply.release());
}
