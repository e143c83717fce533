// The ring of a channel against a plain queue with 64-bit numbers.
//
// Input: the capacity; how far the numbers are from their wrap; then an operation a byte, most with
// a number behind it.

#include <array>
#include <cmath>
#include <cstring>
#include <deque>
#include <map>
#include <vector>

#include "FuzzInput.h"
#include "OpenPacketStore.h"

namespace
{

const long TASKS = 4;
const size_t MOST_HELD = 8;
const unsigned int CHANNEL = 9;
const size_t HEADER_SIZE = 16;

// Every packet's data is a part of this, from a place of its own.
typedef std::array<byte, WXSP_CHANNEL_DATA_SIZE + 1 + 256> CPattern;

const CPattern& GetPattern()
{
    static const CPattern pattern = []
    {
        CPattern bytes{};
        for (size_t i = 0; i < bytes.size(); ++i)
        {
            bytes[i] = static_cast<byte>(i * 7 + i / 256);
        }
        return bytes;
    }();
    return pattern;
}

struct CStored
{
    const byte* GetData() const
    {
        return &GetPattern()[m_ullNumber % 256];
    }

    uint64_t m_ullNumber;  // of the packet, from the first one put
    unsigned int m_dwSize;
};

struct CHeld
{
    CChannelPacketItem* m_pItem;
    CStored m_stored;
};

class CChannelFuzz
{
public:
    explicit CChannelFuzz(CFuzzInput& input);
    ~CChannelFuzz();
    CChannelFuzz(const CChannelFuzz&) = delete;
    CChannelFuzz& operator=(const CChannelFuzz&) = delete;

    void Step();

private:
    uint64_t GetEnd() const
    {
        return m_ullFirst + m_stored.size();
    }
    void Put();
    void GetForTask();
    void GetByNumber();
    void AddTask();
    void RemoveTask();
    void ReleaseOne();
    void CheckUsage();
    void Check();
    const CStored* Next(uint64_t& ullPosition) const;
    void Receive(CChannelPacketItem* pItem, const CStored* pExpected);
    static void RequireHolds(const CHeld& held);
    float GetBacklog(uint64_t ullPosition) const;

    CFuzzInput& m_input;
    const size_t m_nCapacity;
    COpenPacketBuffer m_buffer{CHANNEL};
    uint64_t m_ullFirst;
    std::deque<CStored> m_stored;
    std::map<long, uint64_t> m_tasks;
    long m_lLocalTask = -1;
    std::vector<CHeld> m_held;
};

CChannelFuzz::CChannelFuzz(CFuzzInput& input)
    : m_input(input),
      m_nCapacity(1 + input.TakeBelow(8)),
      m_ullFirst((uint64_t{2} << 32) - input.TakeBelow(64))
{
    Require(m_buffer.Create(static_cast<unsigned int>(m_nCapacity)) != 0, "there is memory");
    m_buffer.m_dwFirstSequence = static_cast<unsigned int>(m_ullFirst);
}

CChannelFuzz::~CChannelFuzz()
{
    for (const CHeld& held : m_held)
    {
        RequireHolds(held);
        held.m_pItem->Release();
    }
    Require(COpenPacketBuffer::CountReferences(m_buffer) == 0, "every packet was given back");
}

void CChannelFuzz::RequireHolds(const CHeld& held)
{
    Require(held.m_pItem->GetPacketLength() == HEADER_SIZE + held.m_stored.m_dwSize,
            "a packet keeps its size");
    Require(memcmp(held.m_pItem->GetPacket() + HEADER_SIZE, held.m_stored.GetData(),
                   held.m_stored.m_dwSize) == 0,
            "a packet keeps its data");
}

void CChannelFuzz::Put()
{
    const unsigned int dwByte = m_input.TakeByte();
    const unsigned int dwSize =
        dwByte < 0xF0 ? dwByte % 32 : WXSP_CHANNEL_DATA_SIZE - 4 + dwByte % 8;
    const CStored stored = {GetEnd(), dwSize};
    const unsigned int dwResult = m_buffer.PutChannelPacket(stored.GetData(), dwSize);
    if (dwSize > WXSP_CHANNEL_DATA_SIZE)
    {
        Require(dwResult == 4, "too large a packet is refused");
        return;
    }
    Require(dwResult == 0, "a packet is stored");
    if (m_stored.size() == m_nCapacity)
    {
        m_stored.pop_front();
        ++m_ullFirst;
    }
    m_stored.push_back(stored);
}

// The packet at a position, which it moves on; null when there is none yet.
const CStored* CChannelFuzz::Next(uint64_t& ullPosition) const
{
    if (m_stored.empty())
    {
        ullPosition = m_ullFirst;
        return nullptr;
    }
    if (ullPosition >= GetEnd())
    {
        return nullptr;
    }
    ullPosition = ullPosition < m_ullFirst ? m_ullFirst : ullPosition;
    return &m_stored[static_cast<size_t>(ullPosition++ - m_ullFirst)];
}

void CChannelFuzz::Receive(CChannelPacketItem* pItem, const CStored* pExpected)
{
    Require((pItem != nullptr) == (pExpected != nullptr), "there is a packet when there should be");
    if (pItem == nullptr)
    {
        return;
    }
    const CHeld held = {pItem, *pExpected};
    RequireHolds(held);
    if (m_held.size() < MOST_HELD)
    {
        m_held.push_back(held);
    }
    else
    {
        pItem->Release();
    }
}

void CChannelFuzz::GetForTask()
{
    const unsigned char cByte = m_input.TakeByte();
    const long lTask = cByte % TASKS;
    const int bLocal = cByte / 64 == 3 ? 1 : 0;
    const CStored* pExpected = nullptr;
    const auto it = m_tasks.find(lTask);
    if (it != m_tasks.end())
    {
        pExpected = Next(it->second);
    }
    else
    {
        pExpected = m_stored.empty() ? nullptr : &m_stored.back();
        m_tasks[lTask] = GetEnd();
    }
    m_lLocalTask = bLocal != 0 ? lTask : m_lLocalTask;
    Receive(m_buffer.GetPacket(lTask, bLocal), pExpected);
}

void CChannelFuzz::GetByNumber()
{
    uint64_t ullPosition = m_ullFirst - 8 + m_input.TakeBelow(32);
    unsigned int dwPosition = static_cast<unsigned int>(ullPosition);
    const CStored* pExpected = Next(ullPosition);
    Receive(m_buffer.GetNextPacket(&dwPosition), pExpected);
    Require(dwPosition == static_cast<unsigned int>(ullPosition), "the number moves on");
}

void CChannelFuzz::AddTask()
{
    const unsigned char cByte = m_input.TakeByte();
    const long lTask = cByte % TASKS;
    const int bLocal = cByte / 64 == 3 ? 1 : 0;
    const uint64_t ullPosition = m_stored.empty() ? m_ullFirst : GetEnd() - 1;
    if (m_tasks.emplace(lTask, ullPosition).second && bLocal != 0)
    {
        m_lLocalTask = lTask;
    }
    m_buffer.AddTask(lTask, bLocal);
}

void CChannelFuzz::RemoveTask()
{
    const long lTask = m_input.TakeByte() % TASKS;
    m_tasks.erase(lTask);
    m_lLocalTask = m_lLocalTask == lTask ? -1 : m_lLocalTask;
    m_buffer.RemoveTask(lTask);
}

void CChannelFuzz::ReleaseOne()
{
    if (m_held.empty())
    {
        return;
    }
    const size_t nIndex = m_input.TakeByte() % m_held.size();
    const CHeld held = m_held[nIndex];
    RequireHolds(held);
    m_held[nIndex] = m_held.back();
    m_held.pop_back();
    held.m_pItem->Release();
}

float CChannelFuzz::GetBacklog(uint64_t ullPosition) const
{
    if (ullPosition >= GetEnd())
    {
        return 0.0F;
    }
    return ullPosition <= m_ullFirst ? 100.0F
                                     : static_cast<float>(GetEnd() - ullPosition) * 100.0F /
                                           static_cast<float>(m_stored.size());
}

void CChannelFuzz::CheckUsage()
{
    float fSum = 0.0F;
    int nTasks = 0;
    for (const auto& task : m_tasks)
    {
        if (task.first != m_lLocalTask)
        {
            fSum += GetBacklog(task.second);
            ++nTasks;
        }
    }
    const float fExpected =
        nTasks > 0 && !m_stored.empty() ? fSum / static_cast<float>(nTasks) : 0.0F;
    Require(std::fabs(m_buffer.GetBufferUsage() - fExpected) < 0.01F, "the usage is the average");
}

void CChannelFuzz::Check()
{
    Require(m_buffer.m_dwCount == m_stored.size(), "the counts agree");
    Require(m_buffer.m_dwFirstSequence == static_cast<unsigned int>(m_ullFirst),
            "the numbers agree");
    Require(m_buffer.m_mapTasks.size() == m_tasks.size(), "the tasks agree");
    Require(m_buffer.m_lLocalTask == m_lLocalTask, "the local task is the same");
    Require(m_buffer.m_dwItemsCreated <= m_nCapacity + MOST_HELD + 1, "items are used again");
}

void CChannelFuzz::Step()
{
    switch (m_input.TakeByte() % 10)
    {
        case 0:
            RemoveTask();
            break;
        case 1:
            AddTask();
            break;
        case 2:
            GetByNumber();
            break;
        case 3:
            CheckUsage();
            break;
        case 4:
            ReleaseOne();
            break;
        case 5:
        case 6:
            GetForTask();
            break;
        default:
            Put();
            break;
    }
    Check();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    CChannelFuzz channel(input);
    while (!input.IsEmpty())
    {
        channel.Step();
    }
    return 0;
}
