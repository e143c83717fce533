#include "ChannelPacketBuffer.h"

#include <algorithm>
#include <new>

namespace
{

const unsigned int MAX_CAPACITY = 2048;

const unsigned int PUT_STORED = 0;
const unsigned int PUT_NO_ITEM = 4;

// Numbers wrap: their order is that of their signed difference.
int Difference(unsigned int dwA, unsigned int dwB)
{
    return static_cast<int>(dwA - dwB);
}

}  // namespace

CChannelPacketBuffer::CChannelPacketBuffer(unsigned int dwChannel) : m_dwChannel(dwChannel) {}

CChannelPacketBuffer::~CChannelPacketBuffer()
{
    Destroy();
    const CAutoSectionLock lock(m_csData);
    for (CChannelPacketItem* pItem : m_listFree)
    {
        delete pItem;
    }
    for (CChannelPacketItem* pItem : m_listLive)
    {
        pItem->Orphan();
    }
}

int CChannelPacketBuffer::Create(unsigned int dwCapacity)
{
    const CAutoSectionLock lock(m_csData);
    if (m_ppSlots != nullptr)
    {
        return 0;
    }
    const unsigned int dwSlots = std::min(dwCapacity, MAX_CAPACITY);
    m_ppSlots = new (std::nothrow) CChannelPacketItem*[dwSlots]();
    if (m_ppSlots == nullptr)
    {
        Destroy();
        return 0;
    }
    m_dwCapacity = dwSlots;
    return 1;
}

void CChannelPacketBuffer::CreateAtFirstPut(unsigned int dwCapacity)
{
    const CAutoSectionLock lock(m_csData);
    m_dwLaterCapacity = dwCapacity;
}

// Count, head and first sequence keep their values.
void CChannelPacketBuffer::Destroy()
{
    const CAutoSectionLock lock(m_csData);
    for (unsigned int i = 0; m_ppSlots != nullptr && i < m_dwCapacity; ++i)
    {
        if (m_ppSlots[i] != nullptr)
        {
            m_ppSlots[i]->Release();
        }
    }
    delete[] m_ppSlots;
    m_ppSlots = nullptr;
    m_dwCapacity = 0;
    m_mapTasks.clear();
}

unsigned int CChannelPacketBuffer::PutChannelPacket(const void* pData, unsigned int dwSize)
{
    const CAutoSectionLock lock(m_csData);
    if (m_ppSlots == nullptr && m_dwLaterCapacity > 0)
    {
        Create(m_dwLaterCapacity);
    }
    if (m_ppSlots == nullptr || m_dwCapacity == 0 || dwSize > WXSP_CHANNEL_DATA_SIZE ||
        (pData == nullptr && dwSize > 0))
    {
        return PUT_NO_ITEM;
    }
    if (m_dwCount >= m_dwCapacity)
    {
        m_dwHead = (m_dwHead + 1) % m_dwCapacity;
        ++m_dwFirstSequence;
        m_dwCount = m_dwCapacity - 1;
    }
    CChannelPacketItem*& pSlot = m_ppSlots[(m_dwHead + m_dwCount) % m_dwCapacity];
    if (pSlot != nullptr)
    {
        pSlot->Release();
        pSlot = nullptr;
    }
    CChannelPacketItem* pItem = AllocChannelPacket();
    if (pItem == nullptr)
    {
        return PUT_NO_ITEM;
    }
    pItem->AddRef();
    pItem->Write(m_dwChannel, pData, dwSize);
    pSlot = pItem;
    ++m_dwCount;
    return PUT_STORED;
}

CChannelPacketItem* CChannelPacketBuffer::TakeFromSlot(unsigned int dwSlot)
{
    if (m_dwCapacity == 0)
    {
        return nullptr;
    }
    CChannelPacketItem* pItem = m_ppSlots[dwSlot % m_dwCapacity];
    if (pItem != nullptr)
    {
        pItem->AddRef();
    }
    return pItem;
}

CChannelPacketItem* CChannelPacketBuffer::GetPacket(unsigned int* pdwSequence)
{
    const CAutoSectionLock lock(m_csData);
    if (m_dwCount == 0)
    {
        *pdwSequence = m_dwFirstSequence;
        return nullptr;
    }
    CChannelPacketItem* pItem = TakeFromSlot(m_dwHead + m_dwCount - 1);
    if (pItem != nullptr)
    {
        *pdwSequence = m_dwFirstSequence + m_dwCount;
    }
    return pItem;
}

CChannelPacketItem* CChannelPacketBuffer::GetNextPacket(unsigned int* pdwSequence)
{
    const CAutoSectionLock lock(m_csData);
    if (m_dwCount == 0)
    {
        *pdwSequence = m_dwFirstSequence;
        return nullptr;
    }
    if (Difference(*pdwSequence, m_dwFirstSequence + m_dwCount) >= 0)
    {
        return nullptr;
    }
    if (Difference(*pdwSequence, m_dwFirstSequence) < 0)
    {
        *pdwSequence = m_dwFirstSequence;
    }
    CChannelPacketItem* pItem = TakeFromSlot(m_dwHead + (*pdwSequence - m_dwFirstSequence));
    if (pItem != nullptr)
    {
        ++*pdwSequence;
    }
    return pItem;
}

// The position of a task, made when it is new. Null without memory.
unsigned int* CChannelPacketBuffer::FindPosition(long lTask, bool& bNew)
{
    try
    {
        const auto result = m_mapTasks.emplace(lTask, 0);
        bNew = result.second;
        return &result.first->second;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

CChannelPacketItem* CChannelPacketBuffer::GetPacket(long lTask, int bLocal)
{
    const CAutoSectionLock lock(m_csData);
    bool bNew = false;
    unsigned int* pdwPosition = FindPosition(lTask, bNew);
    if (pdwPosition == nullptr)
    {
        return nullptr;
    }
    if (bLocal != 0)
    {
        m_lLocalTask = lTask;
    }
    if (bNew)
    {
        return GetPacket(pdwPosition);
    }
    // A task is never ahead: one that seems to be has slept through half of all numbers.
    if (Difference(*pdwPosition, m_dwFirstSequence + m_dwCount) > 0)
    {
        *pdwPosition = m_dwFirstSequence;
    }
    return GetNextPacket(pdwPosition);
}

void CChannelPacketBuffer::AddTask(long lTask, int bLocal)
{
    const CAutoSectionLock lock(m_csData);
    bool bNew = false;
    unsigned int* pdwPosition = FindPosition(lTask, bNew);
    if (pdwPosition == nullptr || !bNew)
    {
        return;
    }
    *pdwPosition = m_dwCount == 0 ? m_dwFirstSequence : m_dwFirstSequence + m_dwCount - 1;
    if (bLocal != 0)
    {
        m_lLocalTask = lTask;
    }
}

void CChannelPacketBuffer::RemoveTask(long lTask)
{
    const CAutoSectionLock lock(m_csData);
    m_mapTasks.erase(lTask);
    if (m_lLocalTask == lTask)
    {
        m_lLocalTask = -1;
    }
}

// Percent of the stored packets that a task at the position still has to get.
float CChannelPacketBuffer::GetBacklog(unsigned int dwPosition) const
{
    const int nLeft = Difference(m_dwFirstSequence + m_dwCount, dwPosition);
    if (nLeft <= 0)
    {
        return 0.0F;
    }
    if (Difference(dwPosition, m_dwFirstSequence) <= 0)
    {
        return 100.0F;
    }
    return static_cast<float>(nLeft) * 100.0F / static_cast<float>(m_dwCount);
}

float CChannelPacketBuffer::GetBufferUsage()
{
    const CAutoSectionLock lock(m_csData);
    if (m_dwCount == 0)
    {
        return 0.0F;
    }
    float fSum = 0.0F;
    int nTasks = 0;
    for (const auto& task : m_mapTasks)
    {
        if (task.first != m_lLocalTask)
        {
            fSum += GetBacklog(task.second);
            ++nTasks;
        }
    }
    return nTasks > 0 ? fSum / static_cast<float>(nTasks) : 0.0F;
}

long long CChannelPacketBuffer::AddRef()
{
    const CAutoSectionLock lock(m_csUsers);
    return ++m_llUsers;
}

long long CChannelPacketBuffer::RemoveRef()
{
    const CAutoSectionLock lock(m_csUsers);
    return --m_llUsers;
}

void CChannelPacketBuffer::Leave()
{
    const CAutoSectionLock lock(m_csUsers);
    ++m_llLeft;
}

bool CChannelPacketBuffer::IsLeft()
{
    const CAutoSectionLock lock(m_csUsers);
    return m_llLeft >= m_llUsers;
}

CChannelPacketItem* CChannelPacketBuffer::AllocChannelPacket()
{
    const CAutoSectionLock lock(m_csData);
    if (!m_listFree.empty())
    {
        CChannelPacketItem* pItem = m_listFree.front();
        m_listLive.splice(m_listLive.end(), m_listFree, m_listFree.begin());
        return pItem;
    }
    CChannelPacketItem* pItem = new (std::nothrow) CChannelPacketItem(this);
    if (pItem == nullptr)
    {
        return nullptr;
    }
    try
    {
        pItem->m_position = m_listLive.insert(m_listLive.end(), pItem);
    }
    catch (const std::bad_alloc&)
    {
        delete pItem;
        return nullptr;
    }
    ++m_dwItemsCreated;
    return pItem;
}

void CChannelPacketBuffer::FreeChannelPacket(CChannelPacketItem* pItem)
{
    const CAutoSectionLock lock(m_csData);
    m_listFree.splice(m_listFree.end(), m_listLive, pItem->m_position);
}
