#include "OspreyServerStream.h"

#include <chrono>
#include <cstdio>
#include <new>

#include "DebugLog.h"
#include "OspreyAssert.h"
#include "OspreyServerCore.h"
#include "WXSPBrowserHandler.h"
#include "WXSPChannelHandler.h"
#include "WXSPFraming.h"

namespace
{

const unsigned int KEEP_ALIVE_MS = 30000;
const unsigned int DAY_MS = 24 * 60 * 60 * 1000;
const unsigned int UNSENT_MS = 60000;  // how long the system keeps what is unsent at the end
const int PAUSE_MS = 2500;             // a download whose peer pauses outlives 30 s without a link
const int CHANNEL_PAUSE_MS = 1000;     // a channel is back soon after the link
const int HOLD_OFF_ABOVE = 1024;       // buffers queued to be sent
const int GO_ON_BELOW = 512;
const std::chrono::milliseconds TURN(5);  // of handling packets, before everybody else has one

}  // namespace

COspreyServerStream::COspreyServerStream(COspreyServer* pServer)
    : CTCPStream(pServer->GetEngine()),
      m_pServer(pServer),
      m_timerKeepAlive(this, &COspreyServerStream::ProcessKeepAliveTimeout),
      m_handlerMorePackets(this, &COspreyServerStream::ProcessMorePackets)
{
}

COspreyServerStream::~COspreyServerStream()
{
    Destroy();
}

Orb_BOOL COspreyServerStream::Create()
{
    if (!m_bufferRequest.Create(WXSP_RING_SIZE))
    {
        Destroy();
        return Orb_FALSE;
    }
    return Orb_TRUE;
}

Orb_BOOL COspreyServerStream::Attach(int s)
{
    if (m_state != STATE_IDLE)
    {
        return Orb_FALSE;
    }
    m_timerKeepAlive.m_dwInterval = KEEP_ALIVE_MS;
    m_timerKeepAlive.m_bPeriodic = false;
    if (!m_pEngine->AddTimerHandler(&m_timerKeepAlive) || !AttachTransport(s))
    {
        printf("COspreyServerStream, Attach() Orb_FALSE %p\n", static_cast<void*>(this));
        m_state = STATE_IDLE;
        m_pEngine->RemoveTimerHandler(&m_timerKeepAlive);
        Abandon();
        CTCPStream::Destroy();
        return Orb_FALSE;
    }
    printf("COspreyServerStream, Attach() Orb_TRUE %p\n", static_cast<void*>(this));
    return Orb_TRUE;
}

bool COspreyServerStream::AttachTransport(int s)
{
    if (!CTCPStream::Attach(s, true))
    {
        return false;
    }
    // Not to end a connection, which is the keep-alive's to do: a peer may stop reading for long.
    m_sock.LimitSilence(DAY_MS, PAUSE_MS);
    m_state = STATE_ATTACHED;
    return Receive(&m_bufferRequest);
}

void COspreyServerStream::ProcessDataReceived(CTCPStreamBuffer* pBuffer)
{
    // clang-format off
    OSPREY_ASSERT(pBuffer == (CTCPStreamBuffer *) &m_bufferRequest);
    // clang-format on
    m_pEngine->RestartTimerHandler(&m_timerKeepAlive);
    if (m_state != STATE_ATTACHED)
    {
        m_bNewRequestPending = Orb_TRUE;
        return;
    }
    CutPackets();
}

void COspreyServerStream::ProcessMorePackets(void* /*pParam*/)
{
    if (m_state == STATE_ATTACHED)
    {
        CutPackets();
    }
}

void COspreyServerStream::CutPackets()
{
    const auto deadline = std::chrono::steady_clock::now() + TURN;
    // What a host has asked to end is detached in the next pass; nothing is taken from it any more.
    while (!m_bTerminateRequested)
    {
        if (m_listSend.GetSize() > HOLD_OFF_ABOVE)
        {
            m_bHeldOff = true;
            return;
        }
        const PWXS_PACKET pPacket = GetCompletePacket(m_bufferRequest);
        if (pPacket == nullptr)
        {
            Receive(&m_bufferRequest);
            return;
        }
        // The size on arrival counts, whatever ProcessRequest makes of the field.
        const int nSize = static_cast<int>(GetPacketSize(m_bufferRequest));
        if (!ProcessRequest(pPacket))
        {
            AbandonRequest();
            return;
        }
        m_bufferRequest.RemoveData(nSize);
        if (std::chrono::steady_clock::now() >= deadline)
        {
            // What is left came in time, however long it takes.
            m_pEngine->RestartTimerHandler(&m_timerKeepAlive);
            m_pEngine->AddNextPassHandler(&m_handlerMorePackets);
            return;
        }
    }
}

// No further receive is posted, so that an orderly close of the peer is not seen: a reset or the
// keep-alive timer ends the connection.
void COspreyServerStream::AbandonRequest()
{
    puts("COspreyServerStream, ProcessDataReceived() ProcessRequest error");
    if (!m_bPendingDestroy)
    {
        m_sock.ShutdownSend();
    }
}

Orb_BOOL COspreyServerStream::ProcessRequest(PWXS_PACKET pPacket)
{
    if (pPacket->dwMagic == 0 || pPacket->dwMagic == KEEP)
    {
        pPacket->dwDataSize = 0;
    }
    if (m_pHandler != nullptr)
    {
        return m_pHandler->ProcessRequest(pPacket);
    }
    OSPREY_DEBUG_RECORD("handler = " << static_cast<const void*>(this)
                                     << ", dwMagic = " << pPacket->dwMagic);
    if (pPacket->dwMagic == KEEP)
    {
        return Orb_TRUE;
    }
    m_pHandler = CreateHandler(pPacket->dwMagic);
    return m_pHandler != nullptr && m_pHandler->ProcessRequest(pPacket) ? Orb_TRUE : Orb_FALSE;
}

CWXSPProtocolHandler* COspreyServerStream::CreateHandler(unsigned int dwMagic)
{
    switch (dwMagic)
    {
        case BROW:
            // Without this, the end of each small download waits for a delayed acknowledgement.
            SetNoDelay();
            return new (std::nothrow) CWXSPBrowserHandler(m_pServer, this);
        case OCHS:
            m_sock.LimitSilence(DAY_MS, CHANNEL_PAUSE_MS);
            return new (std::nothrow) CWXSPChannelHandler(m_pServer, this);
        default:
            return nullptr;
    }
}

void COspreyServerStream::ProcessDataSent(CTCPStreamBuffer* pBuffer)
{
    if (m_pHandler != nullptr)
    {
        m_pHandler->OnSendComplete(pBuffer);
    }
    if (m_bHeldOff && m_listSend.GetSize() < GO_ON_BELOW && m_state == STATE_ATTACHED)
    {
        m_bHeldOff = false;
        CutPackets();
    }
}

void COspreyServerStream::SetNoDelay()
{
    m_sock.SetNoDelay();
}

bool COspreyServerStream::RequestTerminate()
{
    return !m_bTerminateRequested.exchange(true);
}

Orb_BOOL COspreyServerStream::InitiateDetach()
{
    printf("COspreyServerStream %p InitiateDetach\n", static_cast<void*>(this));
    if (m_state == STATE_IDLE)
    {
        return Orb_FALSE;
    }
    m_bTerminateRequested = true;
    m_state = STATE_IDLE;
    m_bufferRequest.Clear();
    m_pEngine->RemoveTimerHandler(&m_timerKeepAlive);
    m_sock.LimitSilence(UNSENT_MS, PAUSE_MS);
    return InitiateDestroy() ? Orb_TRUE : Orb_FALSE;
}

void COspreyServerStream::ProcessDisconnected()
{
    printf("COspreyServerStream %p ProcessDisconnected\n", static_cast<void*>(this));
    InitiateDetach();
}

void COspreyServerStream::ProcessNetworkError(int /*nError*/)
{
    printf("COspreyServerStream %p ProcessNetworkError\n", static_cast<void*>(this));
    InitiateDetach();
}

void COspreyServerStream::ProcessKeepAliveTimeout(void* /*pParam*/)
{
    printf("COspreyServerStream %p ProcessKeepAliveTimeout\n", static_cast<void*>(this));
    CSocketAddress addrRemote;
    char szAddress[100] = {};
    if (m_sock.GetPeerAddress(addrRemote) &&
        addrRemote.GetIPAddressString(szAddress, sizeof szAddress))
    {
        printf("COspreyServerStream %p ProcessKeepAliveTimeout addrRemote:%s\n",
               static_cast<void*>(this), szAddress);
    }
    InitiateDetach();
}

void COspreyServerStream::ProcessDestroied()
{
    printf("COspreyServerStream %p ProcessDestroied\n", static_cast<void*>(this));
    delete m_pHandler;
    m_pHandler = nullptr;
    m_bufferRequest.Clear();
    m_bNewRequestPending = Orb_FALSE;
    m_pServer->ProcessStreamDetached(this);  // deletes this
}

void COspreyServerStream::Destroy()
{
    OSPREY_ASSERT(m_state == STATE_IDLE);
    OSPREY_ASSERT(!m_sock.IsValid());
    OSPREY_ASSERT(!m_bNewRequestPending);
    CTCPStream::Destroy();
    m_bufferRequest.Destroy();
    delete m_pHandler;
    m_pHandler = nullptr;
}
