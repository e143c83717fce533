#include "WXSPChannelHandler.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "DebugLog.h"
#include "OspreyServerCore.h"
#include "OspreyServerStream.h"
#include "WXSPFraming.h"

namespace
{

const unsigned int CHECK_PACKET_MS = 100;
const int BATCH_PACKETS = 32;
const size_t MAX_CHANNELS_LEFT = 64;

}  // namespace

CWXSPChannelHandler::CWXSPChannelHandler(COspreyServer* pServer, COspreyServerStream* pStream)
    : CWXSPProtocolHandler(pServer, pStream),
      m_pChannelPacketServer(pServer->GetChannelPacketServer()),
      m_timerCheckPacket(this, &CWXSPChannelHandler::ProcessCheckPacketTimeout)
{
    m_timerCheckPacket.m_bPeriodic = true;
    m_timerCheckPacket.m_dwInterval = CHECK_PACKET_MS;
}

CWXSPChannelHandler::~CWXSPChannelHandler()
{
    OnShutdown();
    for (CChannelSimpleBuffer* pBuffer : m_listSpare)
    {
        delete pBuffer;
    }
}

Orb_BOOL CWXSPChannelHandler::ProcessRequest(PWXS_PACKET pPacket)
{
    OSPREY_DEBUG_RECORD("handler = " << static_cast<const void*>(this)
                                     << ", dwMagic = " << pPacket->dwMagic);
    switch (pPacket->dwMagic)
    {
        case KEEP:
        case 0:
            return Orb_TRUE;
        case OCHS:
            return ProcessOpenChannelRequest(pPacket);
        default:
            return Orb_FALSE;
    }
}

// The list is read behind the count whatever size the header claims; peers depend on it. A packet
// starts inside the ring, and as much storage again follows the ring: there is always room for it.
Orb_BOOL CWXSPChannelHandler::ProcessOpenChannelRequest(PWXS_PACKET pPacket)
{
    const _WXS_OPEN_CHANNELS* pRecord = GetRecord<_WXS_OPEN_CHANNELS>(pPacket);
    // The count's address, not the count: what reads these records expects the line like this.
    OSPREY_DEBUG_RECORD("handler = " << static_cast<const void*>(this) << ", dwNumChannels = "
                                     << static_cast<const void*>(&pRecord->dwNumChannels));
    if (pRecord->dwNumChannels > WXSP_MAX_CHANNELS || !LeaveChannelsBehind())
    {
        return Orb_FALSE;
    }
    m_dwNumChannels = pRecord->dwNumChannels;
    memcpy(m_dwChannels, pRecord + 1, m_dwNumChannels * sizeof(m_dwChannels[0]));
    std::fill_n(m_bAdded, m_dwNumChannels, false);
    AddChannels();
    SendChannelPackets();
    return Orb_TRUE;
}

// Registers the channels that are not yet. For one there may be no room or no memory now; its peer,
// which nobody tells, would wait for ever.
void CWXSPChannelHandler::AddChannels()
{
    const int bLocal = IsPeerLocal();
    m_bMissing = false;
    m_dwAddTime = CIOEngine::GetSystemTimeMS();
    for (unsigned int i = 0; i < m_dwNumChannels; ++i)
    {
        if (!m_bAdded[i])
        {
            m_bAdded[i] =
                m_pChannelPacketServer->AddChannel(m_dwChannels[i], GetTask(), bLocal) != Orb_FALSE;
            m_bMissing = m_bMissing || !m_bAdded[i];
        }
    }
}

// The channels of the list at hand are about to be replaced. They stay registered, but this task's
// position in each has to be forgotten in the end. False when there are too many of them.
bool CWXSPChannelHandler::LeaveChannelsBehind()
{
    if (m_channelsLeft.size() + m_dwNumChannels > MAX_CHANNELS_LEFT)
    {
        return false;
    }
    try
    {
        m_channelsLeft.reserve(m_channelsLeft.size() + m_dwNumChannels);
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    for (unsigned int i = 0; i < m_dwNumChannels; ++i)
    {
        m_channelsLeft.push_back({m_dwChannels[i], m_bAdded[i]});
    }
    return true;
}

long CWXSPChannelHandler::GetTask() const
{
    return reinterpret_cast<long>(m_pStream);
}

int CWXSPChannelHandler::IsPeerLocal() const
{
    CSocketAddress addrRemote;
    return m_pStream->GetPeerAddress(addrRemote) && addrRemote.IsIPAddress(INADDR_LOOPBACK) ? 1 : 0;
}

void CWXSPChannelHandler::SendChannelPackets()
{
    const CAutoSectionLock lock(m_cs);
    if (!m_listPackets.empty())
    {
        return;
    }
    if (m_bMissing && CIOEngine::GetSystemTimeMS() - m_dwAddTime >= CHECK_PACKET_MS)
    {
        AddChannels();
    }
    GatherBatch(IsPeerLocal());
    if (!m_listPackets.empty())
    {
        m_pServer->GetWaitingHandlers().Remove(this);
        SendFirst();
    }
    else
    {
        WaitForPackets();
    }
}

// Pass after pass over the channels, one packet of each, until a pass finds nothing or the batch is
// full.
void CWXSPChannelHandler::GatherBatch(int bLocal)
{
    int nCount = 0;
    int nCountBefore = -1;
    while (nCount > nCountBefore && nCount < BATCH_PACKETS)
    {
        nCountBefore = nCount;
        for (unsigned int i = 0; i < m_dwNumChannels && nCount < BATCH_PACKETS; ++i)
        {
            if (GatherPacket(m_dwChannels[i], bLocal))
            {
                ++nCount;
            }
        }
    }
}

bool CWXSPChannelHandler::GatherPacket(unsigned int dwChannel, int bLocal)
{
    // First the memory, then the packet: a packet that was taken cannot be put back.
    if (!PrepareSpare())
    {
        return false;
    }
    CChannelPacketItem* pItem =
        m_pChannelPacketServer->GetChannelPacket(dwChannel, GetTask(), bLocal);
    if (pItem == nullptr)
    {
        return false;
    }
    m_listSpare.front()->SetItem(pItem);
    m_listPackets.splice(m_listPackets.end(), m_listSpare);
    return true;
}

bool CWXSPChannelHandler::PrepareSpare()
{
    if (!m_listSpare.empty())
    {
        return true;
    }
    CChannelSimpleBuffer* pBuffer = new (std::nothrow) CChannelSimpleBuffer;
    if (pBuffer == nullptr)
    {
        return false;
    }
    try
    {
        m_listSpare.push_back(pBuffer);
    }
    catch (const std::bad_alloc&)
    {
        delete pBuffer;
        return false;
    }
    return true;
}

// REQUIRES: a buffer in m_listPackets.
void CWXSPChannelHandler::SendFirst()
{
    CChannelSimpleBuffer* pBuffer = m_listPackets.front();
    m_listPackets.pop_front();
    pBuffer->m_bMoreFollows = !m_listPackets.empty();
    if (m_pStream->Send(pBuffer))
    {
        m_listOut.AddTail(pBuffer);
    }
    else
    {
        GiveBack(pBuffer);
    }
}

void CWXSPChannelHandler::GiveBack(CChannelSimpleBuffer* pBuffer)
{
    pBuffer->m_pItem->Release();
    delete pBuffer;
}

void CWXSPChannelHandler::WaitForPackets()
{
    m_pServer->GetWaitingHandlers().AddTail(this);
    if (m_timerCheckPacket.m_nHeapIndex < 0 &&
        !m_pServer->GetEngine()->AddTimerHandler(&m_timerCheckPacket))
    {
        // Nothing would ever wake this connection: better that its peer makes a new one.
        m_pStream->InitiateDetach();
    }
}

void CWXSPChannelHandler::Flush()
{
    SendChannelPackets();
    if (m_pList != nullptr)
    {
        return;
    }
    m_pServer->GetEngine()->RemoveTimerHandler(&m_timerCheckPacket);
    if (!m_bNoDelay)
    {
        m_bNoDelay = true;
        m_pStream->SetNoDelay();
    }
}

// Re-armed in here, the timer is armed and periodic when this returns, so that the engine adds one
// more interval: an idle connection looks every 200 ms.
void CWXSPChannelHandler::ProcessCheckPacketTimeout(void* /*pParam*/)
{
    m_pServer->GetEngine()->RemoveTimerHandler(&m_timerCheckPacket);
    SendChannelPackets();
}

void CWXSPChannelHandler::OnSendComplete(CTCPStreamBuffer* pBuffer)
{
    const CAutoSectionLock lock(m_cs);
    CChannelSimpleBuffer* pSent = static_cast<CChannelSimpleBuffer*>(pBuffer);
    m_listOut.Remove(pSent);
    GiveBack(pSent);
    if (m_listPackets.empty())
    {
        SendChannelPackets();
    }
    else
    {
        SendFirst();
    }
}

void CWXSPChannelHandler::ClearPacketPool()
{
    const CAutoSectionLock lock(m_cs);
    for (CChannelSimpleBuffer* pBuffer : m_listPackets)
    {
        GiveBack(pBuffer);
    }
    m_listPackets.clear();
}

// Every packet goes back before its channel may go.
void CWXSPChannelHandler::OnShutdown()
{
    m_pServer->GetEngine()->RemoveTimerHandler(&m_timerCheckPacket);
    m_pServer->GetWaitingHandlers().Remove(this);
    ClearPacketPool();
    while (CDLinkedListNode* pNode = m_listOut.RemoveHead())
    {
        GiveBack(static_cast<CChannelSimpleBuffer*>(pNode));
    }
    for (const CLeftChannel& channel : m_channelsLeft)
    {
        if (channel.m_bAdded)
        {
            m_pChannelPacketServer->LeaveChannel(channel.m_dwChannel, GetTask());
        }
        else
        {
            m_pChannelPacketServer->RemoveTask(channel.m_dwChannel, GetTask());
        }
    }
    m_channelsLeft.clear();
    for (unsigned int i = 0; i < m_dwNumChannels; ++i)
    {
        if (m_bAdded[i])
        {
            m_pChannelPacketServer->RemoveChannel(m_dwChannels[i], GetTask());
        }
        else
        {
            m_pChannelPacketServer->RemoveTask(m_dwChannels[i], GetTask());
        }
    }
    m_dwNumChannels = 0;
}
