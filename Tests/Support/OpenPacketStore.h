#ifndef OSPREY_TESTS_OPENPACKETSTORE_H
#define OSPREY_TESTS_OPENPACKETSTORE_H

// The packet store with its fields open to the tests, those of objects that the store itself makes
// included.

#include <string>

#include "ChannelPacketServer.h"

class COpenPacketItem : public CChannelPacketItem
{
public:
    static long long GetRefCount(const CChannelPacketItem& item)
    {
        return item.*(&COpenPacketItem::m_llRefCount);
    }
};

class COpenPacketBuffer : public CChannelPacketBuffer
{
public:
    using CChannelPacketBuffer::CChannelPacketBuffer;
    using CChannelPacketBuffer::m_dwCapacity;
    using CChannelPacketBuffer::m_dwCount;
    using CChannelPacketBuffer::m_dwFirstSequence;
    using CChannelPacketBuffer::m_dwHead;
    using CChannelPacketBuffer::m_dwItemsCreated;
    using CChannelPacketBuffer::m_listFree;
    using CChannelPacketBuffer::m_listLive;
    using CChannelPacketBuffer::m_lLocalTask;
    using CChannelPacketBuffer::m_llUsers;
    using CChannelPacketBuffer::m_mapTasks;
    using CChannelPacketBuffer::m_ppSlots;

    static constexpr unsigned int UNKNOWN_TASK = 0xFFFFFFFF;

    static unsigned int GetCapacity(const CChannelPacketBuffer& buffer)
    {
        return buffer.*(&COpenPacketBuffer::m_dwCapacity);
    }
    static unsigned int GetCount(const CChannelPacketBuffer& buffer)
    {
        return buffer.*(&COpenPacketBuffer::m_dwCount);
    }
    static unsigned int GetItemsCreated(const CChannelPacketBuffer& buffer)
    {
        return buffer.*(&COpenPacketBuffer::m_dwItemsCreated);
    }
    // A task's position; UNKNOWN_TASK without one.
    static unsigned int GetPosition(const CChannelPacketBuffer& buffer, long lTask)
    {
        const std::map<long, unsigned int>& tasks = buffer.*(&COpenPacketBuffer::m_mapTasks);
        const auto it = tasks.find(lTask);
        return it != tasks.end() ? it->second : UNKNOWN_TASK;
    }
    static long long GetUsers(const CChannelPacketBuffer& buffer)
    {
        return buffer.*(&COpenPacketBuffer::m_llUsers);
    }
    // References to its packets beside those of the ring itself.
    static long long CountReferences(const CChannelPacketBuffer& buffer)
    {
        long long llCount = -static_cast<long long>(GetCount(buffer));
        for (const CChannelPacketItem* pItem : buffer.*(&COpenPacketBuffer::m_listLive))
        {
            llCount += COpenPacketItem::GetRefCount(*pItem);
        }
        return llCount;
    }
};

class COpenPacketServer final : public CChannelPacketServer
{
public:
    using CChannelPacketServer::FindBuffer;
    using CChannelPacketServer::m_mapChannels;
};

// The host's bytes in a packet.
inline std::string GetData(CChannelPacketItem* pItem)
{
    const byte* pPacket = pItem->GetPacket();
    return std::string(pPacket + 16, pPacket + pItem->GetPacketLength());
}

// The packet's data, and the reference given back; "(null)" without a packet.
inline std::string Take(CChannelPacketItem* pItem)
{
    if (pItem == nullptr)
    {
        return "(null)";
    }
    std::string strData = GetData(pItem);
    pItem->Release();
    return strData;
}

#endif
