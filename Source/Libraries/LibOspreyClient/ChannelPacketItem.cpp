#include "ChannelPacketItem.h"

#include <cstring>

#include "ChannelPacketBuffer.h"

CChannelPacketItem::CChannelPacketItem(CChannelPacketBuffer* pOwner) : m_pOwner(pOwner)
{
    const PWXS_PACKET pPacket = reinterpret_cast<PWXS_PACKET>(m_packet);
    pPacket->dwVersion = WXSP_VERSION;
    pPacket->dwMagic = CPKT;
}

void CChannelPacketItem::Write(unsigned int dwChannel, const void* pData, unsigned int dwSize)
{
    const PWXS_PACKET pPacket = reinterpret_cast<PWXS_PACKET>(m_packet);
    _WXS_CHANNEL_PACKET* pRecord = reinterpret_cast<_WXS_CHANNEL_PACKET*>(pPacket + 1);
    m_dwPacketLength = static_cast<unsigned int>(sizeof *pPacket + sizeof *pRecord) + dwSize;
    pPacket->dwDataSize = static_cast<unsigned int>(sizeof *pRecord) + dwSize;
    pRecord->dwChannel = dwChannel;
    if (dwSize > 0)
    {
        memcpy(pRecord + 1, pData, dwSize);
    }
}

long long CChannelPacketItem::AddRef()
{
    const CAutoSectionLock lock(m_cs);
    return ++m_llRefCount;
}

long long CChannelPacketItem::Release()
{
    long long llRefCount = 0;
    CChannelPacketBuffer* pOwner = nullptr;
    {
        const CAutoSectionLock lock(m_cs);
        llRefCount = --m_llRefCount;
        pOwner = m_pOwner;
    }
    if (llRefCount >= 1)
    {
        return llRefCount;
    }
    if (pOwner != nullptr)
    {
        pOwner->FreeChannelPacket(this);
    }
    else
    {
        delete this;
    }
    return llRefCount;
}

void CChannelPacketItem::Orphan()
{
    const CAutoSectionLock lock(m_cs);
    m_pOwner = nullptr;
}
