// The ring against a plain queue of bytes: more than a million random operations, with appends of
// every size that fits.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>

#include "OpenRing.h"

namespace
{

const int OPERATIONS = 40000;  // for each of 7 sizes, 3 seeds, 2 kinds of writers

// Size of the ring, seed, whether the writer soils the free space behind what it appends.
typedef std::tuple<int, unsigned int, bool> CRun;

class CRingModel : public ::testing::TestWithParam<CRun>
{
protected:
    int Random(int nBelow)
    {
        return static_cast<int>(static_cast<unsigned int>(m_random()) %
                                static_cast<unsigned int>(nBelow));
    }
    // Often the extremes, else anything between.
    int RandomSize(int nMost)
    {
        switch (Random(4))
        {
            case 0:
                return nMost;
            case 1:
                return nMost < 3 ? nMost : 1 + Random(2);
            default:
                return Random(nMost + 1);
        }
    }
    void Step();
    void Append();
    void Remove();
    void Peek();
    void Refuse();
    void Replace();

    std::mt19937 m_random{std::get<1>(GetParam())};
    COpenRing m_ring{std::get<0>(GetParam())};
    const bool m_bSoil = std::get<2>(GetParam());
    std::string m_strModel;
    unsigned char m_cNext = 0;
};
using RingTCPStreamBufferModel = CRingModel;

void CRingModel::Append()
{
    const int nSize = RandomSize(m_ring.GetFreeSize());
    byte* pFree = m_ring.GetFree(nSize);
    ASSERT_NE(pFree, nullptr);
    for (int i = 0; i < nSize; ++i)
    {
        pFree[i] = m_cNext;
        m_strModel += static_cast<char>(m_cNext++);
    }
    if (m_bSoil)
    {
        memset(pFree + nSize, 0xEE, static_cast<size_t>(m_ring.GetFreeSize() - nSize));
    }
    ASSERT_TRUE(m_ring.AppendData(nSize));
}

void CRingModel::Remove()
{
    const int nSize = RandomSize(m_ring.GetDataSize());
    ASSERT_TRUE(m_ring.RemoveData(nSize));
    m_strModel.erase(0, static_cast<size_t>(nSize));
}

void CRingModel::Peek()
{
    const int nSize = RandomSize(m_ring.GetDataSize());
    const byte* pData = m_ring.GetData(nSize);
    ASSERT_NE(pData, nullptr);
    const size_t nCompared = nSize != 0 ? static_cast<size_t>(nSize) : m_strModel.size();
    ASSERT_EQ(memcmp(pData, m_strModel.data(), nCompared), 0) << nCompared << " bytes";
}

void CRingModel::Refuse()
{
    const int nOver = 1 + Random(3);
    ASSERT_EQ(m_ring.GetData(m_ring.GetDataSize() + nOver), nullptr);
    ASSERT_EQ(m_ring.GetFree(m_ring.GetFreeSize() + nOver), nullptr);
    ASSERT_FALSE(m_ring.RemoveData(m_ring.GetDataSize() + nOver));
    ASSERT_FALSE(m_ring.AppendData(m_ring.GetFreeSize() + nOver));
    ASSERT_FALSE(m_ring.RemoveData(-nOver));
    ASSERT_FALSE(m_ring.AppendData(-nOver));
}

void CRingModel::Replace()
{
    if (Random(2) == 0)
    {
        m_ring.Clear();
        m_strModel.clear();
        return;
    }
    const int nBase = std::get<0>(GetParam());
    const int nSize = nBase + Random(nBase + 1);
    ASSERT_EQ(m_ring.Grow(nSize), nSize >= static_cast<int>(m_strModel.size()));
}

void CRingModel::Step()
{
    switch (Random(100))
    {
        case 0:
            Replace();
            break;
        case 1:
        case 2:
            Refuse();
            break;
        default:
            switch (Random(3))
            {
                case 0:
                    Append();
                    break;
                case 1:
                    Remove();
                    break;
                default:
                    Peek();
                    break;
            }
            break;
    }
}

TEST_P(RingTCPStreamBufferModel, AgreesAfterEveryRandomOperation)
{
    for (int i = 0; i < OPERATIONS; ++i)
    {
        ASSERT_NO_FATAL_FAILURE(Step()) << "operation " << i;
        ASSERT_EQ(m_ring.GetDataSize(), static_cast<int>(m_strModel.size())) << "operation " << i;
        ASSERT_LT(m_ring.m_nReadPos, m_ring.GetBufferSize());
        ASSERT_LT(m_ring.m_nWritePos, m_ring.GetBufferSize());
        ASSERT_TRUE(m_bSoil || m_ring.IsMirrorTrue()) << "operation " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, RingTCPStreamBufferModel,
                         ::testing::Combine(::testing::Values(1, 2, 3, 7, 8, 64, 257),
                                            ::testing::Values(1U, 2U, 3U), ::testing::Bool()),
                         [](const auto& test)
                         {
                             return "Size" + std::to_string(std::get<0>(test.param)) + "Seed" +
                                    std::to_string(std::get<1>(test.param)) +
                                    (std::get<2>(test.param) ? "Soiled" : "");
                         });

}  // namespace
