// What the loop of a file client reports while a step of its run goes on, and the requests that
// both clients send.

#include <cerrno>

#include "OspreyClientImpl.h"

namespace
{

const unsigned int KEEP_ALIVE_MS = 5000;

}  // namespace

void COspreyClientImpl::OnTimeout(unsigned int dwID)
{
    switch (dwID)
    {
        case TIMER_CONNECT:
            OnConnectFailed(0);
            break;
        case TIMER_KEEP_ALIVE:
            SendKeepAlive();
            break;
        case TIMER_CANCEL:
            StopLoop(CODE_STOPPED);
            break;
        default:
            break;
    }
}

void COspreyClientImpl::OnConnectSuccessful()
{
    m_timers.Drop(m_pConnectTimer);
    m_stream.SetNoDelay();
    SendKeepAlive();
    StopLoop(CODE_SUCCESS);
}

// A failed attempt can report itself more than once (writable, error); one report is enough.
void COspreyClientImpl::OnConnectFailed(int /*nError*/)
{
    m_stream.m_pCallback = nullptr;
    m_timers.Drop(m_pConnectTimer);
    StopLoop(CODE_NOT_CONNECTED);
}

void COspreyClientImpl::OnNetworkError(int nError)
{
    ProcessDisconnect(nError);
}

void COspreyClientImpl::ProcessDisconnect(int nError)
{
    m_stream.m_pCallback = nullptr;
    m_pCallback->OnDisconnected(nError);
    StopLoop(CODE_CONNECTION_LOST);
}

void COspreyClientImpl::OnDataReceived(CTCPStreamBuffer* pBuffer)
{
    if (!CollectPackets(m_bufferRing, *pBuffer, *this))
    {
        OnNetworkError(ENOMEM);
        return;
    }
    m_stream.Receive(pBuffer);
}

// A keep-alive goes out whenever 5 seconds have passed since the last completed send.
void COspreyClientImpl::OnDataSent(CTCPStreamBuffer* pBuffer)
{
    m_buffersOut.Free(pBuffer);
    if (m_pKeepAliveTimer != nullptr)
    {
        m_timers.Restart(m_pKeepAliveTimer);
    }
    else
    {
        m_timers.Arm(m_pKeepAliveTimer, TIMER_KEEP_ALIVE, KEEP_ALIVE_MS, true);
    }
}

Orb_BOOL COspreyClientImpl::ProcessWXSPacket(PWXS_PACKET pPacket)
{
    if (pPacket->dwMagic == NAMR)
    {
        ProcessNameConnectionRet(pPacket);
    }
    return Orb_TRUE;
}

Orb_BOOL COspreyClientImpl::ProcessNameConnectionRet(PWXS_PACKET pPacket)
{
    if (IsReply(pPacket, sizeof(_WXS_RESULT), PHASE_NAMING))
    {
        const unsigned int dwResult = GetRecord<_WXS_RESULT>(pPacket)->dwResult;
        StopLoop(dwResult != 0 ? CODE_NOT_CONNECTED : CODE_SUCCESS);
    }
    return Orb_TRUE;
}

bool COspreyClientImpl::SendRequest(CRequestPtr pRequest)
{
    return ::SendRequest(m_buffersOut, m_stream, std::move(pRequest));
}

void COspreyClientImpl::SendKeepAlive()
{
    CRequestPtr pRequest = CreateRequest(BROW, 0);
    if (pRequest != nullptr)
    {
        *GetPacket(pRequest) = m_keepAliveHeader;
        SendRequest(std::move(pRequest));
    }
}

bool COspreyClientImpl::SendNameConnection()
{
    const size_t nNameSize = (m_strConnectionName.size() + 1) * sizeof(unsigned short);
    CRequestPtr pRequest = CreateRequest(NAMC, sizeof(_WXS_NAME_CONNECTION) + nNameSize);
    if (pRequest == nullptr)
    {
        return false;
    }
    auto* pRecord = GetRecord<_WXS_NAME_CONNECTION>(GetPacket(pRequest));
    pRecord->dwRequestID = NextRequestID();
    WriteName(pRecord + 1, m_strConnectionName);
    return SendRequest(std::move(pRequest));
}

bool COspreyClientImpl::SendCancel()
{
    CRequestPtr pRequest = CreateRequest(CAOP, sizeof(_WXS_CANCEL));
    if (pRequest == nullptr)
    {
        return false;
    }
    GetRecord<_WXS_CANCEL>(GetPacket(pRequest))->dwRequestID = m_dwRequestID++;
    return SendRequest(std::move(pRequest));
}

unsigned int COspreyClientImpl::NextRequestID()
{
    return ++m_dwRequestID;
}

bool COspreyClientImpl::IsReply(PWXS_PACKET pPacket, size_t nRecordSize, CLIENT_PHASE ePhase) const
{
    return m_ePhase == ePhase && HoldsRecord(pPacket, nRecordSize) &&
           GetRecord<_WXS_RESULT>(pPacket)->dwRequestID == m_dwRequestID;
}
