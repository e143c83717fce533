#include "TCPStreamBuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

namespace
{

class COpenSimpleBuffer final : public CSimpleTCPStreamBuffer
{
public:
    using CSimpleTCPStreamBuffer::m_nReadPos;
    using CSimpleTCPStreamBuffer::m_nWritePos;
    using CSimpleTCPStreamBuffer::m_pBuffer;
};

class CBufferOfTen : public ::testing::Test
{
protected:
    CBufferOfTen()
    {
        EXPECT_TRUE(m_buffer.Create(10));
    }

    COpenSimpleBuffer m_buffer;
};
using SimpleTCPStreamBuffer = CBufferOfTen;

TEST_F(SimpleTCPStreamBuffer, StartsEmptyWithAllOfItFree)
{
    EXPECT_EQ(m_buffer.GetDataSize(), 0);
    EXPECT_EQ(m_buffer.GetFreeSize(), 10);
    EXPECT_EQ(m_buffer.GetBufferSize(), 10);
}

TEST_F(SimpleTCPStreamBuffer, WithoutStorageHasNoRoom)
{
    COpenSimpleBuffer buffer;
    EXPECT_EQ(buffer.GetBufferSize(), 0);
    EXPECT_EQ(buffer.GetFreeSize(), 0);
    EXPECT_EQ(buffer.GetFree(1), nullptr);
    EXPECT_FALSE(buffer.AppendData(1));
}

TEST_F(SimpleTCPStreamBuffer, EmptyingItRewinds)
{
    EXPECT_TRUE(m_buffer.AppendData(6));
    EXPECT_TRUE(m_buffer.RemoveData(6));
    EXPECT_EQ(m_buffer.m_nReadPos, 0);
    EXPECT_EQ(m_buffer.m_nWritePos, 0);
    EXPECT_EQ(m_buffer.GetFreeSize(), 10);
}

TEST_F(SimpleTCPStreamBuffer, ConsumedSpaceIsNotReusedUntilItIsEmpty)
{
    m_buffer.AppendData(6);
    EXPECT_TRUE(m_buffer.RemoveData(4));
    EXPECT_EQ(m_buffer.GetFreeSize(), 4);
    EXPECT_EQ(m_buffer.GetDataSize(), 2);
    EXPECT_TRUE(m_buffer.RemoveData(2));
    EXPECT_EQ(m_buffer.GetFreeSize(), 10);
}

TEST_F(SimpleTCPStreamBuffer, BytesComeOutAsTheyWentIn)
{
    memcpy(m_buffer.GetFree(5), "Hello", 5);
    m_buffer.AppendData(5);
    m_buffer.RemoveData(1);
    ASSERT_NE(m_buffer.GetData(4), nullptr);
    EXPECT_EQ(memcmp(m_buffer.GetData(4), "ello", 4), 0);
    EXPECT_EQ(m_buffer.GetFree(0), m_buffer.m_pBuffer + 5);
}

TEST_F(SimpleTCPStreamBuffer, MoreThanThereIsIsRefusedAndChangesNothing)
{
    m_buffer.AppendData(6);
    EXPECT_EQ(m_buffer.GetData(7), nullptr);
    EXPECT_FALSE(m_buffer.RemoveData(7));
    EXPECT_EQ(m_buffer.GetFree(5), nullptr);
    EXPECT_FALSE(m_buffer.AppendData(5));
    EXPECT_EQ(m_buffer.GetDataSize(), 6);
    EXPECT_EQ(m_buffer.GetFreeSize(), 4);
}

TEST_F(SimpleTCPStreamBuffer, GetData0OfAnEmptyBufferGivesTheReadPointer)
{
    EXPECT_EQ(m_buffer.GetData(0), m_buffer.m_pBuffer);
    EXPECT_EQ(m_buffer.GetData(1), nullptr);
}

TEST_F(SimpleTCPStreamBuffer, NegativeSizesAreRefused)
{
    m_buffer.AppendData(6);
    for (const int nSize : {-1, -6, INT_MIN})
    {
        EXPECT_EQ(m_buffer.GetData(nSize), nullptr);
        EXPECT_EQ(m_buffer.GetFree(nSize), nullptr);
        EXPECT_FALSE(m_buffer.RemoveData(nSize));
        EXPECT_FALSE(m_buffer.AppendData(nSize));
        EXPECT_FALSE(COpenSimpleBuffer().Create(nSize));
    }
    EXPECT_EQ(m_buffer.GetDataSize(), 6);
}

TEST_F(SimpleTCPStreamBuffer, SecondCreateIsRefusedAndKeepsTheStorage)
{
    const byte* pStorage = m_buffer.m_pBuffer;
    m_buffer.AppendData(3);
    EXPECT_FALSE(m_buffer.Create(20));
    EXPECT_EQ(m_buffer.m_pBuffer, pStorage);
    EXPECT_EQ(m_buffer.GetBufferSize(), 10);
    EXPECT_EQ(m_buffer.GetDataSize(), 3);
}

TEST_F(SimpleTCPStreamBuffer, DestroyMayBeRepeatedAndCreateFollow)
{
    m_buffer.AppendData(3);
    m_buffer.Destroy();
    m_buffer.Destroy();
    EXPECT_EQ(m_buffer.GetBufferSize(), 0);
    EXPECT_EQ(m_buffer.GetDataSize(), 0);
    EXPECT_TRUE(m_buffer.Create(4));
    EXPECT_EQ(m_buffer.GetFreeSize(), 4);
}

TEST(RequestIDSimpleTCPStreamBuffer, CarriesItsRequest)
{
    CRequestIDSimpleTCPStreamBuffer buffer;
    buffer.m_dwRequestID = 0xFFFFFFFE;
    ASSERT_TRUE(buffer.Create(4));
    CTCPStreamBuffer* pBase = &buffer;
    EXPECT_EQ(static_cast<CRequestIDSimpleTCPStreamBuffer*>(pBase)->m_dwRequestID, 0xFFFFFFFEU);
}

}  // namespace
