#include "SendBufferOwner.h"

#include <gtest/gtest.h>

#include "LoopFixture.h"
#include "OpenStream.h"

namespace
{

// Counts the ones that are alive.
class CCountedBuffer final : public CSimpleTCPStreamBuffer
{
public:
    explicit CCountedBuffer(int nSize)
    {
        ++s_nAlive;
        Create(8);
        AppendData(nSize);
    }
    ~CCountedBuffer() override
    {
        --s_nAlive;
    }

    static int s_nAlive;
};
int CCountedBuffer::s_nAlive = 0;

class COwnerTest : public CLoopTest
{
protected:
    COwnerTest()
    {
        CCountedBuffer::s_nAlive = 0;
        EXPECT_TRUE(m_stream.Adopt(m_pair.m_near));
    }

    CSocketPair m_pair;
    COpenStream m_stream{&m_engine};
};
using SendBufferOwner = COwnerTest;

TEST_F(SendBufferOwner, FreesABufferThatWasSent)
{
    CSendBufferOwner owner;
    m_stream.m_fnOnCall = [&](const std::string&) { owner.Free(m_stream.m_pLast); };
    EXPECT_TRUE(owner.Send(m_stream, new CCountedBuffer(8)));
    EXPECT_TRUE(owner.Send(m_stream, new CCountedBuffer(8)));
    EXPECT_EQ(CCountedBuffer::s_nAlive, 2);
    RunUntil("both to be sent", [&] { return m_stream.m_sent.size() == 2; });
    EXPECT_EQ(CCountedBuffer::s_nAlive, 0);
}

TEST_F(SendBufferOwner, FreesARefusedBufferAtOnce)
{
    CSendBufferOwner owner;
    EXPECT_FALSE(owner.Send(m_stream, new CCountedBuffer(0)));
    EXPECT_EQ(CCountedBuffer::s_nAlive, 0);
    m_stream.InitiateDestroy();
    EXPECT_FALSE(owner.Send(m_stream, new CCountedBuffer(8)));
    EXPECT_EQ(CCountedBuffer::s_nAlive, 0);
    RunPasses(1);
}

TEST_F(SendBufferOwner, FreesWhatATornDownStreamDropped)
{
    CSendBufferOwner owner;
    for (int i = 0; i < 5; ++i)
    {
        owner.Send(m_stream, new CCountedBuffer(8));
    }
    m_stream.Destroy();
    EXPECT_EQ(CCountedBuffer::s_nAlive, 5);
    owner.FreeAll();
    EXPECT_EQ(CCountedBuffer::s_nAlive, 0);
}

TEST_F(SendBufferOwner, DestructionFreesWhatIsLeft)
{
    {
        CSendBufferOwner owner;
        owner.Send(m_stream, new CCountedBuffer(8));
        m_stream.Destroy();
    }
    EXPECT_EQ(CCountedBuffer::s_nAlive, 0);
}

}  // namespace
