#include "ChannelSimpleBuffer.h"

#include <gtest/gtest.h>

#include <string>

#include "Hex.h"

namespace
{

class CChannelSimpleBufferTest : public ::testing::Test
{
protected:
    void SetData(const std::string& strData)
    {
        m_item.Write(7, strData.data(), static_cast<unsigned int>(strData.size()));
        m_view.SetItem(&m_item);
    }
    std::string Peek()
    {
        const byte* pData = m_view.GetData(0);
        return std::string(pData, pData + static_cast<size_t>(m_view.GetDataSize()));
    }

    CChannelPacketItem m_item{nullptr};
    CChannelSimpleBuffer m_view;
};
using ChannelSimpleBuffer = CChannelSimpleBufferTest;

TEST_F(ChannelSimpleBuffer, IsEmptyWithoutAPacket)
{
    EXPECT_EQ(m_view.m_pItem, nullptr);
    EXPECT_EQ(m_view.GetDataSize(), 0);
    EXPECT_EQ(m_view.GetFreeSize(), 0);
    EXPECT_EQ(m_view.GetBufferSize(), 0);
    EXPECT_EQ(m_view.GetData(1), nullptr);
}

TEST_F(ChannelSimpleBuffer, ShowsTheWholePacketInPlaceHeaderIncluded)
{
    for (const int nSize : {0, 1, 1500})
    {
        SetData(Pattern(static_cast<size_t>(nSize)));
        EXPECT_EQ(m_view.m_pItem, &m_item);
        EXPECT_EQ(m_view.GetData(0), m_item.GetPacket()) << "not a copy";
        EXPECT_EQ(m_view.GetDataSize(), nSize + 16);
        EXPECT_EQ(m_view.GetBufferSize(), nSize + 16);
        EXPECT_EQ(m_view.GetFreeSize(), 0);
        EXPECT_EQ(m_view.GetFree(1), nullptr);
        EXPECT_FALSE(m_view.AppendData(1));
        EXPECT_EQ(m_view.GetData(nSize + 17), nullptr);
    }
}

TEST_F(ChannelSimpleBuffer, IsConsumedInPieces)
{
    SetData("0123456789");
    EXPECT_TRUE(m_view.RemoveData(20));
    EXPECT_EQ(Peek(), "456789");
    EXPECT_FALSE(m_view.RemoveData(7));
    EXPECT_EQ(Peek(), "456789");
    EXPECT_TRUE(m_view.RemoveData(6));
    EXPECT_EQ(m_view.GetDataSize(), 0);
}

TEST_F(ChannelSimpleBuffer, AnotherPacketReplacesTheFirstWhateverWasConsumed)
{
    SetData("0123456789");
    m_view.RemoveData(20);
    SetData("abc");
    EXPECT_EQ(m_view.GetDataSize(), 19);
    EXPECT_EQ(Peek().substr(16), "abc");
}

TEST_F(ChannelSimpleBuffer, HoldsNoReferenceAndFreesNothing)
{
    m_item.AddRef();
    {
        CChannelSimpleBuffer view;
        m_item.Write(7, "kept", 4);
        view.SetItem(&m_item);
    }
    EXPECT_EQ(m_item.AddRef(), 2);
    EXPECT_EQ(std::string(m_item.GetPacket() + 16, m_item.GetPacket() + 20), "kept");
}

TEST_F(ChannelSimpleBuffer, StandsInTheStreamsQueueAndInItsOwnersListAtOnce)
{
    CSLinkedList queue;
    CDLinkedList out;
    SetData("x");
    EXPECT_TRUE(queue.AddTail(&m_view));
    EXPECT_TRUE(out.AddTail(&m_view));
    EXPECT_EQ(queue.RemoveHead(), &m_view);
    EXPECT_EQ(out.GetSize(), 1);
    EXPECT_EQ(static_cast<CChannelSimpleBuffer*>(out.RemoveHead()), &m_view);
}

}  // namespace
