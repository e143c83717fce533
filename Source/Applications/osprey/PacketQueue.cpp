#include "PacketQueue.h"

#include <new>

namespace
{

// What a packet costs besides its bytes, so that empty ones do not come for nothing.
const size_t PART_BYTES = sizeof(CPacketBatch::CPart);

}  // namespace

void CPacketBatch::Clear()
{
    m_strBytes.clear();
    m_listParts.clear();
}

void CPacketQueue::Put(Orb_U32 dwChannel, const char* pData, size_t nSize)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const size_t nParts = m_batch.m_listParts.size();
        const size_t nHeld = m_batch.m_strBytes.size() + nParts * PART_BYTES;
        if (m_bEnded || nHeld + nSize + PART_BYTES > m_nMostBytes)
        {
            m_ullDropped += m_bEnded ? 0 : 1;
            return;
        }
        try
        {
            m_batch.m_listParts.push_back({dwChannel, nSize});
            m_batch.m_strBytes.append(pData, nSize);
        }
        catch (const std::bad_alloc&)
        {
            m_batch.m_listParts.resize(nParts);
            ++m_ullDropped;
            return;
        }
    }
    m_changed.notify_one();
}

bool CPacketQueue::Take(CPacketBatch& batch)
{
    batch.Clear();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_bEnded || !m_batch.m_listParts.empty(); });
    std::swap(batch, m_batch);
    return !batch.m_listParts.empty();
}

void CPacketQueue::End()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bEnded = true;
    }
    m_changed.notify_one();
}

Orb_U64 CPacketQueue::Dropped() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_ullDropped;
}
