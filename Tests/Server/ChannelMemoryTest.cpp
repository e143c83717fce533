// Memory that runs out under a channel connection: its packets wait, and no connection is left that
// nothing would ever wake.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <list>
#include <string>

#include "../Store/AllocationWatch.h"
#include "ChannelFixture.h"
#include "OspreyServerStream.h"

namespace
{

const int HEAP_STEP = 8;      // timers by which the engine's heap grows
const int PACKET_BLOCKS = 2;  // allocations for a packet: its buffer, and a place in the list

bool g_bHeapMayGrow = true;

}  // namespace

extern "C"
{
    void* __real_realloc(void* p, size_t nSize);

    void* __wrap_realloc(void* p, size_t nSize)
    {
        return g_bHeapMayGrow ? __real_realloc(p, nSize) : nullptr;
    }
}

namespace
{

class CMemoryTest : public CChannelTest
{
protected:
    CMemoryTest()
    {
        // One more user, so that the channel outlives its readers.
        GetStore().AddChannel(7);
    }
    ~CMemoryTest() override
    {
        g_bHeapMayGrow = true;
    }
    // From now on no further timer can be armed.
    void FillHeap()
    {
        while (m_engine.m_timerHeap.GetCount() % HEAP_STEP != 0)
        {
            m_listTimers.emplace_back(m_engine).m_dwInterval = 3600 * 1000;
            ASSERT_TRUE(m_engine.AddTimerHandler(&m_listTimers.back()));
        }
        g_bHeapMayGrow = false;
    }
    void EmptyHeap()
    {
        m_listTimers.clear();
        g_bHeapMayGrow = true;
    }
    // What is due happens with so many allocations; afterwards there is memory again.
    void LookWithMemoryFor(int nAllocations)
    {
        m_clock.Advance(101);
        const CNoMemory none(nAllocations);
        m_engine.ProcessTimer();
    }
    void ExpectEnded(CPeer& peer)
    {
        RunUntil("the connection's end", [&] { return m_core.GetStreamCount() == 0; });
        EXPECT_EQ(peer.m_socket.ReceiveToEnd(), "");
        EXPECT_EQ(CountReferences(), 0);
        EXPECT_EQ(GetUsers(7), 1);
        EXPECT_EQ(GetPosition(7, peer), 0xFFFFFFFF) << "the task is forgotten";
    }

    std::list<CCallTimer> m_listTimers;
};
using ChannelMemory = CMemoryTest;

// A look leaves one buffer in reserve, so that the next one always takes a packet.
TEST_F(ChannelMemory, PacketsWithoutABufferStayInTheStoreAndGoOnLater)
{
    CPeer peer = Open({7});
    for (int nAllocations = 0; nAllocations <= 3 * PACKET_BLOCKS; ++nAllocations)
    {
        SCOPED_TRACE(nAllocations);
        const unsigned int dwBefore = GetPosition(7, peer);
        PutNumbers({7}, 4);
        LookWithMemoryFor(nAllocations);
        const int nTaken = std::min(1 + nAllocations / PACKET_BLOCKS, 4);
        EXPECT_EQ(CountReferences(), nTaken);
        EXPECT_EQ(GetPosition(7, peer) - dwBefore, static_cast<unsigned int>(nTaken));
        Pass(0);
        EXPECT_EQ(Receive(peer, 4), "7.0 7.1 7.2 7.3") << "each is sent, in its order";
        EXPECT_EQ(CountReferences(), 0);
    }
}

TEST_F(ChannelMemory, LooksThatFindNoMemoryAtAllGoOnUntilThereIsSome)
{
    CPeer peer = Open({7});
    PutNumbers({7}, 3);
    CSendGate gate(peer, 1);
    {
        // The reserve goes out with the first packet; what is written gives its buffer back.
        const CNoMemory none;
        m_clock.Advance(101);
        m_engine.ProcessTimer();
        m_engine.ProcessDeferredHandlers();
    }
    EXPECT_EQ(gate.m_nSent, 1);
    EXPECT_EQ(GetPosition(7, peer), 1U);
    EXPECT_EQ(CountReferences(), 0);
    gate.m_nAllowed = 3;
    for (int i = 0; i < 5; ++i)
    {
        m_clock.Advance(201);
        const CNoMemory none;
        m_engine.ProcessTimer();
    }
    EXPECT_EQ(GetPosition(7, peer), 1U) << "nothing was taken that could not be sent";
    EXPECT_EQ(CountReferences(), 0);
    Pass(201);
    EXPECT_EQ(Receive(peer, 3), "7.0 7.1 7.2");
}

// The whole way of a request with ever more memory: it is refused or accepted, and leaves nothing.
TEST_F(ChannelMemory, RequestThatRunsOutOfMemoryAnywhereLeavesNothingBehind)
{
    PutNumbers({7}, 3);
    int nRefused = 0;
    bool bServed = false;
    for (int nAllocations = 0; nAllocations < 100 && !bServed; ++nAllocations)
    {
        SCOPED_TRACE(nAllocations);
        CPeer peer = Connect();
        COspreyServerStream* pStream = m_core.GetNewestStream();
        std::string strRequest = Wire::Ochs({7, 8, 9});
        Orb_BOOL bAccepted = Orb_FALSE;
        {
            const CNoMemory none(nAllocations);
            bAccepted = pStream->ProcessRequest(reinterpret_cast<PWXS_PACKET>(&strRequest[0]));
        }
        nRefused += bAccepted == Orb_FALSE ? 1 : 0;
        bServed = CountReferences() == 1 && GetUsers(9) == 1;
        Pass(202);
        if (bAccepted != Orb_FALSE)
        {
            EXPECT_EQ(Receive(peer, 1), "7.2") << "channel 7 was there already";
        }
        End(peer);
        EXPECT_EQ(CountReferences(), 0);
        EXPECT_EQ(GetUsers(7), 1);
        EXPECT_EQ(GetStore().m_mapChannels.size(), 1U);
    }
    EXPECT_GE(nRefused, 1) << "without any memory there is no handler";
    EXPECT_TRUE(bServed);
}

TEST_F(ChannelMemory, RequestWhoseLookCannotBeArmedEndsTheConnection)
{
    CPeer peer = Connect();
    FillHeap();
    Deliver(peer, Wire::Ochs({7}));
    ExpectEnded(peer);
    EmptyHeap();
    CPeer next = Open({7});
    ExpectAlive(next);
}

TEST_F(ChannelMemory, LastPacketAfterWhichNoLookCanBeArmedIsSentAndEndsTheConnection)
{
    CPeer peer = Open({7});
    CSendGate gate(peer);
    PutNumbers({7}, 2);
    Pass(101);
    EXPECT_EQ(CountReferences(), 2);
    FillHeap();
    gate.m_nAllowed = 2;
    Deliver(peer, Wire::Keep());
    EXPECT_EQ(Receive(peer, 2), "7.0 7.1");
    ExpectEnded(peer);
}

TEST_F(ChannelMemory, LookThatIsArmedAnewNeedsNoMemory)
{
    CPeer peer = Open({7});
    FillHeap();
    for (int i = 0; i < 5; ++i)
    {
        Pass(201);
    }
    EXPECT_EQ(m_core.GetStreamCount(), 1);
    PutNumbers({7}, 1);
    Pass(201);
    EXPECT_EQ(Receive(peer, 1), "7.0");
    End(peer);
    EmptyHeap();
}

}  // namespace
