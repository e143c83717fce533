#ifndef OSPREY_TOOL_PACKETQUEUE_H
#define OSPREY_TOOL_PACKETQUEUE_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "LibOsprey.h"

// Packets in order, their bytes one after the other.
struct CPacketBatch
{
    struct CPart
    {
        Orb_U32 m_dwChannel;
        size_t m_nSize;
    };

    std::string m_strBytes;
    std::vector<CPart> m_listParts;

    void Clear();
};

// Takes packets from a thread that must not wait to one that may. It holds a limited number of
// bytes; packets that come when it is full are dropped and counted.
//
// Thread: Put on one, Take on another, the rest on any.
class CPacketQueue final
{
public:
    explicit CPacketQueue(size_t nMostBytes) : m_nMostBytes(nMostBytes) {}
    CPacketQueue(const CPacketQueue&) = delete;
    CPacketQueue& operator=(const CPacketQueue&) = delete;

    // Never waits for a Take.
    void Put(Orb_U32 dwChannel, const char* pData, size_t nSize);

    // Waits for packets and takes all there are; what the batch held before goes. False when there
    // is none and the queue was ended.
    bool Take(CPacketBatch& batch);

    // Nothing more will come: what is held can still be taken.
    void End();

    Orb_U64 Dropped() const;

private:
    const size_t m_nMostBytes;
    mutable std::mutex m_mutex;  // everything below
    std::condition_variable m_changed;
    CPacketBatch m_batch;
    bool m_bEnded = false;
    Orb_U64 m_ullDropped = 0;
};

#endif
