#include "RingTCPStreamBuffer.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cerrno>
#include <climits>
#include <fstream>

#include "OpenRing.h"
#include "SystemCalls.h"

namespace
{

class CRingOfEight : public ::testing::Test
{
protected:
    COpenRing m_ring{8};
};
using RingTCPStreamBuffer = CRingOfEight;

TEST_F(RingTCPStreamBuffer, StartsEmptyWithAllOfItFree)
{
    EXPECT_EQ(m_ring.GetDataSize(), 0);
    EXPECT_EQ(m_ring.GetFreeSize(), 8);
    EXPECT_EQ(m_ring.GetBufferSize(), 8);
}

TEST_F(RingTCPStreamBuffer, EmptiedThenFilledWrapsToPosition0)
{
    EXPECT_TRUE(m_ring.Write("abcdef"));
    EXPECT_TRUE(m_ring.RemoveData(6));
    EXPECT_EQ(m_ring.m_nReadPos, 0);
    EXPECT_EQ(m_ring.m_nWritePos, 0);
    EXPECT_TRUE(m_ring.Write("ABCDEFGH"));
    EXPECT_EQ(m_ring.m_nWritePos, 0);
    EXPECT_EQ(m_ring.Peek(), "ABCDEFGH");
    EXPECT_EQ(m_ring.m_nMirrorSize, 0);
}

TEST_F(RingTCPStreamBuffer, AppendThatEndsExactlyAtTheEndCopiesNothing)
{
    m_ring.Write("abcdef");
    m_ring.RemoveData(4);
    EXPECT_TRUE(m_ring.Write("gh"));
    EXPECT_EQ(m_ring.m_nWritePos, 0);
    EXPECT_EQ(m_ring.m_pBuffer[0], 'a') << "the start is as it was";
    EXPECT_EQ(m_ring.Peek(), "efgh");
}

TEST_F(RingTCPStreamBuffer, AppendPastTheEndMovesThatPartToTheStart)
{
    m_ring.Write("abcdef");
    m_ring.RemoveData(5);
    EXPECT_TRUE(m_ring.Write("ghIJK"));
    EXPECT_EQ(m_ring.m_nWritePos, 3);
    EXPECT_EQ(memcmp(m_ring.m_pBuffer, "IJK", 3), 0);
    EXPECT_EQ(m_ring.Peek(), "fghIJK");
}

TEST_F(RingTCPStreamBuffer, WrappedDataIsContiguousAfterMirroring)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    EXPECT_EQ(m_ring.m_nReadPos, 6);
    EXPECT_EQ(m_ring.GetDataSize(), 5);
    EXPECT_EQ(m_ring.m_nMirrorSize, 0);
    EXPECT_EQ(m_ring.Peek(), "ghIJK");
    EXPECT_EQ(m_ring.m_nMirrorSize, 3);
}

TEST_F(RingTCPStreamBuffer, OnlyWhatIsAskedForIsMirrored)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    EXPECT_EQ(m_ring.Peek(2), "gh");
    EXPECT_EQ(m_ring.m_nMirrorSize, 0);
    EXPECT_EQ(m_ring.Peek(3), "ghI");
    EXPECT_EQ(m_ring.m_nMirrorSize, 1);
    EXPECT_EQ(m_ring.Peek(5), "ghIJK");
    EXPECT_EQ(m_ring.m_nMirrorSize, 3);
}

TEST_F(RingTCPStreamBuffer, EmptyingItLeavesTheMirrorSize)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    m_ring.Peek();
    EXPECT_TRUE(m_ring.RemoveData(5));
    EXPECT_EQ(m_ring.m_nMirrorSize, 3);
    EXPECT_EQ(m_ring.m_nReadPos, 0);
    EXPECT_EQ(m_ring.m_nWritePos, 0);
}

TEST_F(RingTCPStreamBuffer, ReadPositionThatPassesTheEndResetsTheMirror)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    m_ring.Peek();
    EXPECT_TRUE(m_ring.RemoveData(3));
    EXPECT_EQ(m_ring.m_nReadPos, 1);
    EXPECT_EQ(m_ring.m_nMirrorSize, 0);
    EXPECT_EQ(m_ring.Peek(), "JK");
}

// Emptied with a mirror of three, then written anew: the old mirror must not be read.
TEST_F(RingTCPStreamBuffer, MirrorLeftByEmptyingNeverGivesStaleBytes)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    m_ring.Peek();
    m_ring.RemoveData(5);
    ASSERT_EQ(m_ring.m_nMirrorSize, 3);
    m_ring.Write("1234567");
    m_ring.RemoveData(5);
    m_ring.Write("8");
    m_ring.Write("9");
    m_ring.Write("0");
    EXPECT_EQ(m_ring.Peek(), "67890");
    EXPECT_TRUE(m_ring.IsMirrorTrue());
}

TEST_F(RingTCPStreamBuffer, MoreThanThereIsIsRefusedAndChangesNothing)
{
    m_ring.Write("abcdef");
    EXPECT_EQ(m_ring.GetData(7), nullptr);
    EXPECT_FALSE(m_ring.RemoveData(7));
    EXPECT_EQ(m_ring.GetFree(3), nullptr);
    EXPECT_FALSE(m_ring.AppendData(3));
    EXPECT_EQ(m_ring.Peek(), "abcdef");
    EXPECT_EQ(m_ring.GetFreeSize(), 2);
}

TEST_F(RingTCPStreamBuffer, NegativeSizesAreRefused)
{
    m_ring.Write("abc");
    for (const int nSize : {-1, -3, -8, INT_MIN})
    {
        EXPECT_EQ(m_ring.GetData(nSize), nullptr);
        EXPECT_EQ(m_ring.GetFree(nSize), nullptr);
        EXPECT_FALSE(m_ring.RemoveData(nSize));
        EXPECT_FALSE(m_ring.AppendData(nSize));
        EXPECT_FALSE(m_ring.Grow(nSize));
        EXPECT_FALSE(CRingTCPStreamBuffer().Create(nSize));
    }
    EXPECT_EQ(m_ring.Peek(), "abc");
}

TEST_F(RingTCPStreamBuffer, SizeWhoseDoublePassesAnIntIsRefused)
{
    CRingTCPStreamBuffer ring;
    EXPECT_FALSE(ring.Create(INT_MAX));
    EXPECT_FALSE(ring.Create(INT_MAX / 2 + 1));
    m_ring.Write("abc");
    EXPECT_FALSE(m_ring.Grow(INT_MAX / 2 + 1));
    EXPECT_EQ(m_ring.GetBufferSize(), 8);
    EXPECT_EQ(m_ring.Peek(), "abc");
}

TEST_F(RingTCPStreamBuffer, SecondCreateIsRefusedAndKeepsTheStorage)
{
    const byte* pStorage = m_ring.m_pBuffer;
    m_ring.Write("abc");
    EXPECT_FALSE(m_ring.Create(16));
    EXPECT_EQ(m_ring.m_pBuffer, pStorage);
    EXPECT_EQ(m_ring.GetBufferSize(), 8);
    EXPECT_EQ(m_ring.Peek(), "abc");
}

TEST_F(RingTCPStreamBuffer, DestroyMayBeRepeatedAndCreateFollow)
{
    m_ring.Write("abc");
    m_ring.Destroy();
    m_ring.Destroy();
    EXPECT_EQ(m_ring.GetBufferSize(), 0);
    EXPECT_EQ(m_ring.GetDataSize(), 0);
    EXPECT_TRUE(m_ring.Create(4));
    EXPECT_TRUE(m_ring.Write("wxyz"));
    EXPECT_EQ(m_ring.Peek(), "wxyz");
}

TEST_F(RingTCPStreamBuffer, GrowKeepsWrappedData)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    EXPECT_TRUE(m_ring.Grow(20));
    EXPECT_EQ(m_ring.GetBufferSize(), 20);
    EXPECT_EQ(m_ring.Peek(), "ghIJK");
    EXPECT_TRUE(m_ring.Write("123456789012345"));
    EXPECT_EQ(m_ring.Peek(), "ghIJK123456789012345");
}

// Seen in proc(5), maps: each line begins with the two ends of a mapping, as hexadecimal numbers.
// What an emulator maps for itself is not among them, but is in the sums of the system.
unsigned long GetMappedBytes()
{
    std::ifstream maps("/proc/self/maps");
    unsigned long ulSum = 0;
    for (std::string strLine; std::getline(maps, strLine);)
    {
        size_t nBegin = 0;
        const unsigned long ulBegin = std::stoul(strLine, &nBegin, 16);
        ulSum += std::stoul(strLine.substr(nBegin + 1), nullptr, 16) - ulBegin;
    }
    return ulSum;
}

void GrowAndDestroyRings()
{
    const int SIZE = 1 << 20;
    for (int i = 0; i < 20; ++i)
    {
        COpenRing above(SIZE);
        COpenRing ring(SIZE);
        EXPECT_TRUE(ring.Write("abc"));
        EXPECT_TRUE(ring.Grow(4 * SIZE));
        EXPECT_TRUE(above.Write("here"));
        EXPECT_EQ(above.Peek(), "here");
        EXPECT_TRUE(ring.Grow(3));
        EXPECT_EQ(ring.Peek(), "abc");
    }
}

// Unmapping too little leaks; too much takes somebody else's memory away. Either shows each time;
// what the runtime of a sanitizer maps for itself meanwhile does not.
TEST(RingStorage, GrowAndDestroyGiveBackExactlyWhatTheyTook)
{
    bool bSame = false;
    for (int nTry = 0; nTry < 5 && !bSame; ++nTry)
    {
        const unsigned long ulBefore = GetMappedBytes();
        GrowAndDestroyRings();
        bSame = GetMappedBytes() == ulBefore;
    }
    EXPECT_TRUE(bSame);
}

TEST_F(RingTCPStreamBuffer, GrowToTheSizeOfTheDataLeavesItFull)
{
    m_ring.Write("abcde");
    EXPECT_TRUE(m_ring.Grow(5));
    EXPECT_EQ(m_ring.GetFreeSize(), 0);
    EXPECT_EQ(m_ring.Peek(), "abcde");
}

TEST_F(RingTCPStreamBuffer, GrowBelowTheDataIsRefused)
{
    m_ring.Write("abcde");
    EXPECT_FALSE(m_ring.Grow(4));
    EXPECT_EQ(m_ring.GetBufferSize(), 8);
    EXPECT_EQ(m_ring.Peek(), "abcde");
}

TEST_F(RingTCPStreamBuffer, ClearEmptiesAndKeepsTheStorage)
{
    m_ring.Write("abcdefg");
    m_ring.RemoveData(6);
    m_ring.Write("hIJK");
    m_ring.Peek();
    m_ring.Clear();
    EXPECT_EQ(m_ring.GetDataSize(), 0);
    EXPECT_EQ(m_ring.m_nReadPos, 0);
    EXPECT_EQ(m_ring.m_nWritePos, 0);
    EXPECT_EQ(m_ring.m_nMirrorSize, 0);
    EXPECT_EQ(m_ring.GetFreeSize(), 8);
}

TEST_F(RingTCPStreamBuffer, WithoutMemoryThereIsNoRingAndAGrownOneStaysAsItWas)
{
    m_ring.Write("abc");
    CRingTCPStreamBuffer other;
    {
        const CReplacedCall refused(g_callMmap64,
                                    [](void*, size_t, int, int, int, off_t) -> void*
                                    {
                                        errno = ENOMEM;
                                        return MAP_FAILED;
                                    });
        EXPECT_FALSE(other.Create(8));
        EXPECT_FALSE(m_ring.Grow(16));
    }
    EXPECT_EQ(other.GetBufferSize(), 0);
    EXPECT_TRUE(other.Create(8)) << "a refusal leaves nothing that is in the way";
    EXPECT_EQ(m_ring.GetBufferSize(), 8);
    EXPECT_EQ(m_ring.Peek(), "abc");
}

}  // namespace
