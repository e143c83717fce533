#include "WXSPChannelClientImpl.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

static_assert(OSPREY_MAX_CHANNELS == WXSP_MAX_CHANNELS, "what a client asks for, a server takes");

namespace
{

const int MAX_EVENTS = 20;
const int TIMERS = 3;

const unsigned int RECONNECT_MS = 1000;
const unsigned int KEEP_ALIVE_MS = 5000;

// The numbers of the timers.
const unsigned int TIMER_CONNECT = 0;
const unsigned int TIMER_RECONNECT = 1;
const unsigned int TIMER_KEEP_ALIVE = 2;

// Stands in where the host gave no callback, or has released the client from inside one.
class CNoCallback final : public IWXSPChannelClientCallback
{
public:
    void OnConnected(unsigned int /*dwUserParam*/) override {}
    void OnConnectFailed(unsigned int /*dwUserParam*/) override {}
    void OnDisconnected(unsigned int /*dwUserParam*/) override {}
    void OnChannelPacket(unsigned int /*dwUserParam*/, unsigned int /*dwChannel*/, void* /*pData*/,
                         unsigned int /*dwSize*/) override
    {
    }
};

CNoCallback g_noCallback;

}  // namespace

CWXSPChannelClientImpl::CWXSPChannelClientImpl(IWXSPChannelClientCallback* pCallback,
                                               unsigned int dwUserParam)
    : m_pCallback(pCallback != nullptr ? pCallback : &g_noCallback),
      m_dwUserParam(dwUserParam),
      m_stream(&m_engine),
      m_keepAlivePacket{WXSP_VERSION, KEEP, 0},
      m_stopPipe(&m_engine),
      m_timers(&m_engine, this)
{
}

CWXSPChannelClientImpl::~CWXSPChannelClientImpl()
{
    Destory();
}

Orb_BOOL CWXSPChannelClientImpl::Connect(unsigned int dwReserved, unsigned int dwIPAddress,
                                         unsigned short wPort, unsigned int dwConnectTimeoutMs,
                                         unsigned int dwNumChannels, unsigned int* pdwChannels)
{
    if (m_thread.IsStarted() || dwNumChannels > OSPREY_MAX_CHANNELS ||
        (pdwChannels == nullptr && dwNumChannels > 0))
    {
        return Orb_FALSE;
    }
    m_dwReserved = dwReserved;
    m_dwServerIP = dwIPAddress;
    m_wServerPort = wPort;
    m_dwConnectTimeout = std::min(dwConnectTimeoutMs, static_cast<unsigned int>(INT_MAX));
    m_dwNumChannels = dwNumChannels;
    std::copy_n(pdwChannels, dwNumChannels, m_dwChannels);
    if (!StartWorker())
    {
        Destory();
        return Orb_FALSE;
    }
    puts("CWXSPChannelClientImpl::Connect");
    m_bConnecting = true;
    const Orb_BOOL bResult = Reconnect();
    m_bConnecting = false;
    if (m_bReleaseRequested)
    {
        m_bReleaseRequested = false;
        delete this;
        return Orb_FALSE;
    }
    m_gate.Signal();  // the last act: from now on a callback may release this
    return bResult;
}

bool CWXSPChannelClientImpl::StartWorker()
{
    m_gate.Reset();
    m_engine.ClearStop();
    return m_engine.Create(MAX_EVENTS) && m_stopPipe.Create() && m_timers.Reserve(TIMERS) &&
           m_thread.Start(&CWXSPChannelClientImpl::ThreadProc, this);
}

void* CWXSPChannelClientImpl::ThreadProc(void* pThis)
{
    CWXSPChannelClientImpl* pClient = static_cast<CWXSPChannelClientImpl*>(pThis);
    pClient->m_gate.Wait();
    pClient->m_engine.RunLoop();
    if (pClient->m_bReleaseRequested)
    {
        pClient->m_thread.Detach();
        delete pClient;
    }
    return nullptr;
}

void CWXSPChannelClientImpl::Release()
{
    if (m_bConnecting || m_thread.IsCurrent())
    {
        ReleaseInsideCallback();
        return;
    }
    delete this;
}

// Takes effect at the end of ThreadProc or of Connect; the host may be gone by then.
void CWXSPChannelClientImpl::ReleaseInsideCallback()
{
    m_bReleaseRequested = true;
    m_pCallback = &g_noCallback;
    m_engine.StopLoop(1);
}

void CWXSPChannelClientImpl::Destory()
{
    m_gate.Signal();
    m_thread.Stop(m_engine, m_stopPipe);
    CloseConnection();
    m_bufferReceive.Destroy();
    m_bufferPackets.Destroy();
    m_stopPipe.Destroy();
    m_engine.Destroy();
    DropTimers();
    m_timers.Clear();
}

Orb_BOOL CWXSPChannelClientImpl::Reconnect()
{
    Disconnect();
    if (!CreateParts())
    {
        return Orb_FALSE;
    }
    m_stream.m_pCallback = this;
    m_stream.m_bConnectSuccessful = Orb_FALSE;
    m_timers.Arm(m_pConnectTimer, TIMER_CONNECT, m_dwConnectTimeout, true);
    if (!m_stream.IsPendingDestroy() &&
        m_stream.Connect(CSocketAddress(m_dwServerIP, m_wServerPort)))
    {
        return Orb_TRUE;
    }
    // 0 instead of the host's parameter: hosts have come to tell by it an attempt that never began.
    m_pCallback->OnConnectFailed(0);
    return Orb_FALSE;
}

bool CWXSPChannelClientImpl::CreateParts()
{
    return CreateBuffers() && m_stream.Create(CSocketAddress(INADDR_ANY, 0));
}

// Those of an earlier connection are used again: there may be no memory for new ones.
bool CWXSPChannelClientImpl::CreateBuffers()
{
    if (m_bufferPackets.GetBufferSize() == 0 && !m_bufferPackets.Create(WXSP_RING_SIZE))
    {
        return false;
    }
    return m_bufferReceive.GetBufferSize() != 0 || m_bufferReceive.Create(WXSP_CLIENT_RECEIVE_SIZE);
}

void CWXSPChannelClientImpl::Disconnect()
{
    DropTimers();
    CloseConnection();
}

void CWXSPChannelClientImpl::CloseConnection()
{
    m_stream.ShutdownSend();
    m_stream.Destroy();
    m_buffersOut.FreeAll();
    m_bufferReceive.RemoveData(m_bufferReceive.GetDataSize());
    m_bufferPackets.Clear();
    if (m_bufferPackets.GetBufferSize() > WXSP_RING_SIZE)
    {
        m_bufferPackets.Grow(WXSP_RING_SIZE);  // of a packet that was larger; or it stays
    }
}

void CWXSPChannelClientImpl::DropTimers()
{
    m_timers.Drop(m_pReconnectTimer);
    m_timers.Drop(m_pConnectTimer);
    m_timers.Drop(m_pKeepAliveTimer);
}

// The socket of the failed connection stays open until Reconnect; nothing is heard of it any more.
void CWXSPChannelClientImpl::ScheduleReconnect()
{
    DropTimers();
    m_timers.Arm(m_pReconnectTimer, TIMER_RECONNECT, RECONNECT_MS, true);
}

void CWXSPChannelClientImpl::OnTimeout(unsigned int dwID)
{
    switch (dwID)
    {
        case TIMER_CONNECT:
            OnConnectFailed(0);
            break;
        case TIMER_RECONNECT:
            Reconnect();
            break;
        case TIMER_KEEP_ALIVE:
            SendKeepAlive();
            break;
        default:
            break;
    }
}

void CWXSPChannelClientImpl::OnConnectSuccessful()
{
    puts("CWXSPChannelClientImpl::OnConnectSuccessful");
    m_timers.Drop(m_pConnectTimer);
    m_pCallback->OnConnected(m_dwUserParam);
    m_stream.Receive(&m_bufferReceive);
    SendOpenChannels();
}

// A failed attempt can report itself more than once (writable, error); one report is enough.
void CWXSPChannelClientImpl::OnConnectFailed(int /*nError*/)
{
    puts("CWXSPChannelClientImpl::OnConnectFailed");
    m_stream.m_pCallback = nullptr;
    m_pCallback->OnConnectFailed(m_dwUserParam);
    ScheduleReconnect();
}

void CWXSPChannelClientImpl::OnNetworkError(int /*nError*/)
{
    m_stream.m_pCallback = nullptr;
    m_pCallback->OnDisconnected(m_dwUserParam);
    ScheduleReconnect();
}

void CWXSPChannelClientImpl::OnDataReceived(CTCPStreamBuffer* pBuffer)
{
    if (!CollectPackets(m_bufferPackets, *pBuffer, *this))
    {
        OnNetworkError(ENOMEM);
        return;
    }
    m_stream.Receive(pBuffer);
}

// A keep-alive goes out whenever 5 seconds have passed since the last completed send.
void CWXSPChannelClientImpl::OnDataSent(CTCPStreamBuffer* pBuffer)
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

void CWXSPChannelClientImpl::SendOpenChannels()
{
    const size_t nListSize = m_dwNumChannels * sizeof(m_dwChannels[0]);
    CRequestPtr pRequest = CreateRequest(OCHS, sizeof(_WXS_OPEN_CHANNELS) + nListSize);
    if (pRequest == nullptr)
    {
        return;
    }
    auto* pRecord = GetRecord<_WXS_OPEN_CHANNELS>(GetPacket(pRequest));
    pRecord->dwNumChannels = m_dwNumChannels;
    memcpy(pRecord + 1, m_dwChannels, nListSize);
    SendRequest(m_buffersOut, m_stream, std::move(pRequest));
}

void CWXSPChannelClientImpl::SendKeepAlive()
{
    CRequestPtr pRequest = CreateRequest(KEEP, 0);
    if (pRequest != nullptr)
    {
        *GetPacket(pRequest) = m_keepAlivePacket;
        SendRequest(m_buffersOut, m_stream, std::move(pRequest));
    }
}

Orb_BOOL CWXSPChannelClientImpl::ProcessWXSPacket(PWXS_PACKET pPacket)
{
    if (pPacket->dwMagic == CPKT && HoldsRecord(pPacket, sizeof(_WXS_CHANNEL_PACKET)))
    {
        ProcessChannelPacket(pPacket);
    }
    return Orb_TRUE;
}

void CWXSPChannelClientImpl::ProcessChannelPacket(PWXS_PACKET pPacket)
{
    auto* pRecord = GetRecord<_WXS_CHANNEL_PACKET>(pPacket);
    m_pCallback->OnChannelPacket(
        m_dwUserParam, pRecord->dwChannel, pRecord + 1,
        pPacket->dwDataSize - static_cast<unsigned int>(sizeof(_WXS_CHANNEL_PACKET)));
}
