#ifndef OSPREY_CHANNELPACKETITEM_H
#define OSPREY_CHANNELPACKETITEM_H

// Internal header.

#include <list>

#include "CriticalSection.h"
#include "TCPStreamBuffer.h"
#include "WXSPProtocol.h"

class CChannelPacketBuffer;

// One packet as it goes over the wire. The buffer that holds it and every reader who sends it have
// a reference each; without any it goes back to its buffer, to be used again.
//
// Ownership: the buffer that made it owns it. When that buffer dies first, the last Release deletes
//            the item.
// Thread:    AddRef and Release from any.
class CChannelPacketItem
{
public:
    explicit CChannelPacketItem(CChannelPacketBuffer* pOwner);
    virtual ~CChannelPacketItem() = default;
    CChannelPacketItem(const CChannelPacketItem&) = delete;
    CChannelPacketItem& operator=(const CChannelPacketItem&) = delete;

    // Both return the new count.
    long long AddRef();
    long long Release();

    // REQUIRES: nobody else has a reference; dwSize is at most WXSP_CHANNEL_DATA_SIZE.
    void Write(unsigned int dwChannel, const void* pData, unsigned int dwSize);

    // The whole packet, header included, and its length in bytes.
    byte* GetPacket()
    {
        return m_packet;
    }
    unsigned int GetPacketLength() const
    {
        return m_dwPacketLength;
    }

protected:
    friend class CChannelPacketBuffer;

    // Its owner is gone.
    void Orphan();

    CCriticalSection m_cs;  // guards the two below
    long long m_llRefCount = 0;
    CChannelPacketBuffer* m_pOwner;
    unsigned int m_dwPacketLength = 0;
    byte m_packet[sizeof(_WXS_PACKET) + sizeof(_WXS_CHANNEL_PACKET) + WXSP_CHANNEL_DATA_SIZE];

    std::list<CChannelPacketItem*>::iterator m_position;  // in the owner's free or live list
};

#endif
