#ifndef OSPREY_CHANNELPACKETSERVER_H
#define OSPREY_CHANNELPACKETSERVER_H

// Internal header.

#include <map>

#include "ChannelPacketBuffer.h"
#include "OspreyTypes.h"

// The directory of channels: one buffer a number, there from the first AddChannel to the
// RemoveChannel that matches the last one. A store holds 4,096 channels at most. When it is full, a
// channel whose users have all left it without that gives way to a new one.
//
// A task is any value that names one reader for its lifetime; -1 is not one.
//
// Ownership: owns every buffer. A reader releases its packets before its last RemoveChannel.
// Thread:    any; one lock over everything, taken before any lock of a buffer.
class CChannelPacketServer
{
public:
    CChannelPacketServer() = default;
    virtual ~CChannelPacketServer();
    CChannelPacketServer(const CChannelPacketServer&) = delete;
    CChannelPacketServer& operator=(const CChannelPacketServer&) = delete;

    // One more user of the channel. False, and nothing is registered, without memory, or when the
    // store is full.
    Orb_BOOL AddChannel(Orb_U32 channel);
    // The same for a task that has yet to ask for its first packet. It gets every packet that is
    // put from now on: a put that this user lets succeed is not lost on it.
    Orb_BOOL AddChannel(Orb_U32 channel, long lTask, int bLocal);
    // One user less; also forgets the task's position. The buffer goes with its last user. Unknown
    // channels are ignored.
    void RemoveChannel(unsigned int dwChannel, long lTask);
    // Forgets the task's position and nothing else.
    void RemoveTask(unsigned int dwChannel, long lTask);
    // The same for a user who has gone for good, and whose registration stays.
    void LeaveChannel(unsigned int dwChannel, long lTask);
    // Removes every channel, whoever uses it.
    void RemoveAll();

    // 0; 4 as CChannelPacketBuffer; 5 when nobody uses the channel.
    unsigned int PutChannelPacket(unsigned int dwChannel, void* pData, unsigned int dwSize);
    // The task's next packet, with a reference for the caller; null when nothing is new or nobody
    // uses the channel.
    CChannelPacketItem* GetChannelPacket(unsigned int dwChannel, long lTask, int bLocal);
    // The largest usage of any channel, in percent; 0 without channels.
    float GetMaxBufferUsage();

protected:
    static void WriteAddRecord(unsigned int dwChannel);
    CChannelPacketBuffer* AddUser(unsigned int dwChannel);
    CChannelPacketBuffer* FindBuffer(unsigned int dwChannel) const;
    CChannelPacketBuffer* MakeBuffer(unsigned int dwChannel);
    bool MakeRoom();
    void ListIfLeft(CChannelPacketBuffer* pBuffer);
    void RemoveBuffer(CChannelPacketBuffer* pBuffer);

    std::map<unsigned int, CChannelPacketBuffer*> m_mapChannels;
    CDLinkedList m_listLeft;  // those whose users have all gone, the first to give way first
    CCriticalSection m_cs;
};

#endif
