#include "ChannelPacketServer.h"

#include <algorithm>
#include <memory>
#include <new>

#include "DebugLog.h"

namespace
{

const unsigned int CAPACITY = 2048;  // packets in a channel
const size_t MAX_CHANNELS = 4096;

const unsigned int PUT_NO_USER = 5;

}  // namespace

CChannelPacketServer::~CChannelPacketServer()
{
    RemoveAll();
}

// One name for every kind of adding: what reads these records expects it.
void CChannelPacketServer::WriteAddRecord(unsigned int dwChannel)
{
    OSPREY_DEBUG_RECORD_OF("Orb_BOOL CChannelPacketServer::AddChannel(Orb_U32)",
                           "AddChannel = " << dwChannel);
}

Orb_BOOL CChannelPacketServer::AddChannel(Orb_U32 channel)
{
    WriteAddRecord(channel);
    const CAutoSectionLock lock(m_cs);
    return AddUser(channel) != nullptr ? Orb_TRUE : Orb_FALSE;
}

Orb_BOOL CChannelPacketServer::AddChannel(Orb_U32 channel, long lTask, int bLocal)
{
    WriteAddRecord(channel);
    const CAutoSectionLock lock(m_cs);
    CChannelPacketBuffer* pBuffer = AddUser(channel);
    if (pBuffer == nullptr)
    {
        return Orb_FALSE;
    }
    pBuffer->AddTask(lTask, bLocal);
    return Orb_TRUE;
}

CChannelPacketBuffer* CChannelPacketServer::AddUser(unsigned int dwChannel)
{
    CChannelPacketBuffer* pBuffer = FindBuffer(dwChannel);
    if (pBuffer == nullptr)
    {
        pBuffer = MakeBuffer(dwChannel);
    }
    if (pBuffer != nullptr)
    {
        pBuffer->AddRef();
        ListIfLeft(pBuffer);
    }
    return pBuffer;
}

void CChannelPacketServer::ListIfLeft(CChannelPacketBuffer* pBuffer)
{
    if (pBuffer->IsLeft())
    {
        m_listLeft.AddTail(pBuffer);
    }
    else
    {
        m_listLeft.Remove(pBuffer);
    }
}

void CChannelPacketServer::RemoveBuffer(CChannelPacketBuffer* pBuffer)
{
    m_listLeft.Remove(pBuffer);
    m_mapChannels.erase(pBuffer->GetChannel());
    delete pBuffer;
}

CChannelPacketBuffer* CChannelPacketServer::FindBuffer(unsigned int dwChannel) const
{
    const auto it = m_mapChannels.find(dwChannel);
    return it != m_mapChannels.end() ? it->second : nullptr;
}

CChannelPacketBuffer* CChannelPacketServer::MakeBuffer(unsigned int dwChannel)
{
    if (m_mapChannels.size() >= MAX_CHANNELS && !MakeRoom())
    {
        return nullptr;
    }
    std::unique_ptr<CChannelPacketBuffer> pBuffer(new (std::nothrow)
                                                      CChannelPacketBuffer(dwChannel));
    if (pBuffer == nullptr)
    {
        return nullptr;
    }
    pBuffer->CreateAtFirstPut(CAPACITY);
    try
    {
        m_mapChannels[dwChannel] = pBuffer.get();
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
    return pBuffer.release();
}

// Peers leave channels behind that nobody ever removes; a full store would serve nobody new.
bool CChannelPacketServer::MakeRoom()
{
    CDLinkedListNode* pOldest = m_listLeft.GetHead();
    if (pOldest == nullptr)
    {
        return false;
    }
    RemoveBuffer(static_cast<CChannelPacketBuffer*>(pOldest));
    return true;
}

void CChannelPacketServer::RemoveChannel(unsigned int dwChannel, long lTask)
{
    const CAutoSectionLock lock(m_cs);
    CChannelPacketBuffer* pBuffer = FindBuffer(dwChannel);
    if (pBuffer == nullptr)
    {
        return;
    }
    pBuffer->RemoveTask(lTask);
    if (pBuffer->RemoveRef() < 1)
    {
        RemoveBuffer(pBuffer);
        return;
    }
    ListIfLeft(pBuffer);
}

void CChannelPacketServer::RemoveTask(unsigned int dwChannel, long lTask)
{
    const CAutoSectionLock lock(m_cs);
    if (CChannelPacketBuffer* pBuffer = FindBuffer(dwChannel))
    {
        pBuffer->RemoveTask(lTask);
    }
}

void CChannelPacketServer::LeaveChannel(unsigned int dwChannel, long lTask)
{
    const CAutoSectionLock lock(m_cs);
    if (CChannelPacketBuffer* pBuffer = FindBuffer(dwChannel))
    {
        pBuffer->RemoveTask(lTask);
        pBuffer->Leave();
        ListIfLeft(pBuffer);
    }
}

void CChannelPacketServer::RemoveAll()
{
    const CAutoSectionLock lock(m_cs);
    while (!m_mapChannels.empty())
    {
        RemoveBuffer(m_mapChannels.begin()->second);
    }
}

unsigned int CChannelPacketServer::PutChannelPacket(unsigned int dwChannel, void* pData,
                                                    unsigned int dwSize)
{
    const CAutoSectionLock lock(m_cs);
    CChannelPacketBuffer* pBuffer = FindBuffer(dwChannel);
    return pBuffer != nullptr ? pBuffer->PutChannelPacket(pData, dwSize) : PUT_NO_USER;
}

CChannelPacketItem* CChannelPacketServer::GetChannelPacket(unsigned int dwChannel, long lTask,
                                                           int bLocal)
{
    const CAutoSectionLock lock(m_cs);
    CChannelPacketBuffer* pBuffer = FindBuffer(dwChannel);
    return pBuffer != nullptr ? pBuffer->GetPacket(lTask, bLocal) : nullptr;
}

float CChannelPacketServer::GetMaxBufferUsage()
{
    const CAutoSectionLock lock(m_cs);
    float fMax = 0.0F;
    for (const auto& channel : m_mapChannels)
    {
        fMax = std::max(fMax, channel.second->GetBufferUsage());
    }
    return fMax;
}
