#ifndef OSPREY_CHANNELPACKETBUFFER_H
#define OSPREY_CHANNELPACKETBUFFER_H

// Internal header. The newest packets of one channel, for any number of readers.

#include <list>
#include <map>

#include "ChannelPacketItem.h"
#include "LinkedList.h"

// A ring of packets that drops the oldest when it is full: a slow reader loses packets, it never
// holds up the writer or other readers. Packets have sequence numbers, which wrap; a reader (a
// task) has the number of the packet that it gets next.
//
//   first sequence s                  s + count - 1
//        |                                 |
//   [ . oldest ........................ newest . . free . . ]     slot (head + i) % capacity
//             ^ position of a task                                holds number s + i
//
// Spent items are used again in the order in which they came free; once as many exist as are ever
// out at once, putting allocates nothing.
//
// Ownership: owns every item that it made, wherever the item is.
// Thread:    any; every operation locks, the data lock before an item's lock.
class CChannelPacketBuffer : public CDLinkedListNode
{
public:
    explicit CChannelPacketBuffer(unsigned int dwChannel);
    virtual ~CChannelPacketBuffer();
    CChannelPacketBuffer(const CChannelPacketBuffer&) = delete;
    CChannelPacketBuffer& operator=(const CChannelPacketBuffer&) = delete;

    // Makes room for dwCapacity packets, 2,048 at most. Zero when there is room already, or memory
    // is out.
    int Create(unsigned int dwCapacity);
    // Has the first packet that is put make the room: a channel that nobody puts into needs none.
    void CreateAtFirstPut(unsigned int dwCapacity);
    // Gives up every stored packet, the slots and the tasks' positions.
    void Destroy();

    // Copies the data, dwSize bytes, into a packet and stores it. 0; 4 when the data is too large
    // or missing or there is no room (nothing changes), or no item is to be had (a full ring has
    // then dropped its oldest packet).
    unsigned int PutChannelPacket(const void* pData, unsigned int dwSize);

    // Each returns a packet with a reference for the caller, who calls Release when done with it,
    // or null.
    //
    // The newest packet; *pdwSequence becomes the number after it.
    CChannelPacketItem* GetPacket(unsigned int* pdwSequence);
    // The packet numbered *pdwSequence, or the oldest if that one was dropped; *pdwSequence becomes
    // the number after it. Null when the number is that of a packet to come.
    CChannelPacketItem* GetNextPacket(unsigned int* pdwSequence);
    // The next packet of a task; the newest for a task that is new here. A task with bLocal is from
    // then on the one that the usage leaves out.
    CChannelPacketItem* GetPacket(long lTask, int bLocal);

    // Makes a task known before it asks for its first packet: it begins with the packet that is the
    // newest now, and misses none that is put from now on. Nothing for a known task, or without
    // memory.
    void AddTask(long lTask, int bLocal);
    // Forgets the position of a task.
    void RemoveTask(long lTask);

    // How far behind the tasks are on average, in percent of what is stored: 0 is up to date. The
    // local task does not count.
    float GetBufferUsage();

    unsigned int GetChannel() const
    {
        return m_dwChannel;
    }

    // Users of the channel; both return the new number. They take a lock of their own.
    long long AddRef();
    long long RemoveRef();
    // One of the users has gone and stays counted. IsLeft: all of them have.
    void Leave();
    bool IsLeft();

    // The pool. An item is handed out without a reference; null without memory.
    CChannelPacketItem* AllocChannelPacket();
    void FreeChannelPacket(CChannelPacketItem* pItem);

protected:
    typedef std::list<CChannelPacketItem*> CItems;

    CChannelPacketItem* TakeFromSlot(unsigned int dwSlot);
    float GetBacklog(unsigned int dwPosition) const;
    unsigned int* FindPosition(long lTask, bool& bNew);

    CCriticalSection m_csData;   // guards everything but the users
    CCriticalSection m_csUsers;  // guards the users
    std::map<long, unsigned int> m_mapTasks;
    CItems m_listFree;
    CChannelPacketItem** m_ppSlots = nullptr;  // null where empty
    unsigned int m_dwCapacity = 0;
    unsigned int m_dwLaterCapacity = 0;  // of the slots that the first packet makes; 0: none
    unsigned int m_dwCount = 0;          // packets stored
    unsigned int m_dwHead = 0;           // slot of the oldest
    unsigned int m_dwFirstSequence = 0;  // of the oldest
    const unsigned int m_dwChannel;
    long long m_llUsers = 0;
    long m_lLocalTask = -1;             // -1: none
    unsigned int m_dwItemsCreated = 0;  // ever

    long long m_llLeft = 0;  // users who have gone; guarded as they are
    CItems m_listLive;       // items that are stored or out: nodes move between the lists
};

#endif
