// The ring against a plain string, by a stream of operations.
//
// Input: the size of the ring; then an operation a byte, most with a size behind it.

#include <cstring>
#include <string>

#include "FuzzInput.h"
#include "RingTCPStreamBuffer.h"

namespace
{

class CRingFuzz
{
public:
    explicit CRingFuzz(CFuzzInput& input) : m_input(input)
    {
        m_ring.Create(1 + static_cast<int>(input.TakeBelow(96)));
    }

    void Step();

private:
    int GetModelSize() const
    {
        return static_cast<int>(m_strModel.size());
    }
    // From nothing to everything and one too many.
    int TakeSize(int nMost)
    {
        return static_cast<int>(m_input.TakeBelow(static_cast<unsigned int>(nMost) + 2));
    }
    void Append(bool bSoil);
    void Remove();
    void Peek();
    void Grow();
    void RefuseNegative();
    void Check();

    CFuzzInput& m_input;
    CRingTCPStreamBuffer m_ring;
    std::string m_strModel;
    unsigned char m_cNext = 0;
};

void CRingFuzz::Append(bool bSoil)
{
    const int nSize = TakeSize(m_ring.GetFreeSize());
    const bool bFits = nSize <= m_ring.GetFreeSize();
    byte* pFree = m_ring.GetFree(nSize);
    Require((pFree != nullptr) == bFits, "GetFree gives what is free and no more");
    for (int i = 0; bFits && i < nSize; ++i)
    {
        pFree[i] = m_cNext;
        m_strModel += static_cast<char>(m_cNext++);
    }
    if (bFits && bSoil)
    {
        memset(pFree + nSize, 0xEE, static_cast<size_t>(m_ring.GetFreeSize() - nSize));
    }
    Require(m_ring.AppendData(nSize) == bFits, "AppendData takes what is free and no more");
}

void CRingFuzz::Remove()
{
    const int nSize = TakeSize(GetModelSize());
    const bool bThere = nSize <= GetModelSize();
    Require(m_ring.RemoveData(nSize) == bThere, "RemoveData takes what is there and no more");
    if (bThere)
    {
        m_strModel.erase(0, static_cast<size_t>(nSize));
    }
}

void CRingFuzz::Peek()
{
    const int nSize = TakeSize(GetModelSize());
    const byte* pData = m_ring.GetData(nSize);
    Require((pData != nullptr) == (nSize <= GetModelSize()), "GetData gives what is there");
    const size_t nCompared = nSize != 0 ? static_cast<size_t>(nSize) : m_strModel.size();
    Require(pData == nullptr || memcmp(pData, m_strModel.data(), nCompared) == 0,
            "what is read was written");
}

void CRingFuzz::Grow()
{
    const int nSize = static_cast<int>(m_input.TakeBelow(128));
    Require(m_ring.Grow(nSize) == (nSize >= GetModelSize()), "Grow keeps the data or refuses");
    Require(nSize < GetModelSize() || m_ring.GetBufferSize() == nSize, "Grow gives that size");
}

void CRingFuzz::RefuseNegative()
{
    const int nSize = -1 - static_cast<int>(m_input.TakeByte());
    Require(m_ring.GetData(nSize) == nullptr && m_ring.GetFree(nSize) == nullptr &&
                !m_ring.RemoveData(nSize) && !m_ring.AppendData(nSize) && !m_ring.Grow(nSize),
            "a negative size is refused");
}

void CRingFuzz::Check()
{
    Require(m_ring.GetDataSize() == GetModelSize(), "the sizes agree");
    Require(m_ring.GetFreeSize() == m_ring.GetBufferSize() - GetModelSize(), "the rest is free");
}

void CRingFuzz::Step()
{
    switch (m_input.TakeByte() % 8)
    {
        case 0:
            m_ring.Clear();
            m_strModel.clear();
            break;
        case 1:
            Grow();
            break;
        case 2:
            RefuseNegative();
            break;
        case 3:
            Append(true);
            break;
        case 4:
            Append(false);
            break;
        case 5:
            Peek();
            break;
        default:
            Remove();
            break;
    }
    Check();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    CRingFuzz ring(input);
    while (!input.IsEmpty())
    {
        ring.Step();
    }
    return 0;
}
