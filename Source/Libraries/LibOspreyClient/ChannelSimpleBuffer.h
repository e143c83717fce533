#ifndef OSPREY_CHANNELSIMPLEBUFFER_H
#define OSPREY_CHANNELSIMPLEBUFFER_H

// Internal header.

#include "ChannelPacketItem.h"

// A send buffer over the bytes of a channel packet: the packet is never copied. Like the simple
// buffer, it can stand in its owner's list of buffers that are out at a stream.
//
// Ownership: neither owns the item nor holds a reference by itself: whoever gave the item releases
//            it.
class CChannelSimpleBuffer final : public CLinearTCPStreamBuffer, public CDLinkedListNode
{
public:
    // Makes the whole packet readable, header included. pItem lives for as long as the buffer.
    void SetItem(CChannelPacketItem* pItem)
    {
        m_pItem = pItem;
        m_pBuffer = pItem->GetPacket();
        m_nBufferSize = static_cast<int>(pItem->GetPacketLength());
        m_nReadPos = m_nWritePos = 0;
        AppendData(m_nBufferSize);
    }

    CChannelPacketItem* m_pItem = nullptr;
};

#endif
