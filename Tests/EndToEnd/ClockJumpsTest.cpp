// Somebody sets the wall clock while connections live: none is dropped for it, none is kept alive
// in bursts, and nobody waits longer.

#include <gtest/gtest.h>

#include <string>

#include "ChannelHost.h"
#include "LibOsprey.h"
#include "RawSocket.h"
#include "SteppedLoops.h"
#include "WireRecords.h"

namespace
{

const long long SECOND = 1000;
const long long HOUR = 3600 * SECOND;
const long long DAY = 24 * HOUR;
const long long SOME_DAY = 1623006586000LL;

struct CJump
{
    const char* m_pszName;
    long long m_llFrom;  // milliseconds since 1970
    long long m_llStep;
};

const CJump JUMPS[] = {
    {"OneSecondAhead", SOME_DAY, SECOND},     {"OneHourAhead", SOME_DAY, HOUR},
    {"FiftyDaysAhead", SOME_DAY, 50 * DAY},   {"OneHourBack", SOME_DAY, -HOUR},
    {"From1970ToNow", 12 * SECOND, SOME_DAY},
};

class CClockJumpTest : public ::testing::TestWithParam<CJump>
{
protected:
    void Jump()
    {
        m_loops.StepWall(GetParam().m_llStep);
    }

    CSteppedLoops m_loops{GetParam().m_llFrom};
};
using ClockJump = CClockJumpTest;

// A server on the stepped loops; everything ends with the block.
class CServerOnLoops
{
public:
    CServerOnLoops() : m_wPort(FreePort()), m_pServer(CreateOspreyServer(nullptr))
    {
        EXPECT_TRUE(m_pServer->Startup(0, m_wPort));
        EXPECT_TRUE(m_peer.Connect(m_wPort));
        m_peer.Send(Wire::Brow());
        ExpectAnswer();  // everything sent so far has been read
    }
    ~CServerOnLoops()
    {
        m_pServer->EndAllConnections(WAIT_MS);
        m_pServer->Shutdown();
        m_pServer->Release();
    }
    CServerOnLoops(const CServerOnLoops&) = delete;
    CServerOnLoops& operator=(const CServerOnLoops&) = delete;

    void ExpectAnswer()
    {
        m_peer.Send(Wire::Namc(1, u"device"));
        EXPECT_EQ(Wire::GetCode(m_peer.ReceivePacket()), "NAMR");
    }

    unsigned short m_wPort;
    IOspreyServer* m_pServer;
    CRawSocket m_peer;
};

TEST_P(ClockJump, ServerDropsNobodyEarlyAndTheSilentInTime)
{
    CServerOnLoops server;
    ASSERT_TRUE(m_loops.WaitForSleep(30000));
    m_loops.Advance(20000);
    ASSERT_TRUE(m_loops.WaitForSleep(10000));
    Jump();
    ASSERT_TRUE(m_loops.WaitForSleep(10000));
    server.ExpectAnswer();
    ASSERT_TRUE(m_loops.WaitForSleep(30000)) << "counted from the new time";
    m_loops.Advance(30001);
    EXPECT_TRUE(server.m_peer.IsClosedByPeer());
}

TEST_P(ClockJump, ChannelsAreLookedAtAsBefore)
{
    CServerOnLoops server;
    CRawSocket reader;
    ASSERT_TRUE(reader.Connect(server.m_wPort));
    reader.Send(Wire::Ochs({7}));
    ASSERT_TRUE(m_loops.WaitForSleep(100));
    m_loops.Advance(40);
    ASSERT_TRUE(m_loops.WaitForSleep(60));
    Jump();
    ASSERT_TRUE(m_loops.WaitForSleep(60));
    char pData[] = "x";
    EXPECT_EQ(server.m_pServer->PutChannelPacket(7, pData, 1), 0U);
    m_loops.Advance(61);
    EXPECT_EQ(reader.ReceivePacket(), Wire::Cpkt(7, "x"));
}

TEST_P(ClockJump, ClientSendsItsNextKeepAliveInTimeAndOnlyThatOne)
{
    CRawServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    CRawSocket peer = server.Accept();
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "OCHS");
    ASSERT_TRUE(m_loops.WaitForSleep(5000));
    m_loops.Advance(2000);
    ASSERT_TRUE(m_loops.WaitForSleep(3000));
    Jump();
    ASSERT_TRUE(m_loops.WaitForSleep(3000));
    EXPECT_TRUE(peer.IsSilent());
    m_loops.Advance(3001);
    EXPECT_EQ(peer.ReceivePacket(), Wire::Keep());
    ASSERT_TRUE(m_loops.WaitForSleep(5000));
    EXPECT_TRUE(peer.IsSilent());
}

TEST_P(ClockJump, ClientTriesAgainInTime)
{
    CRawServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.Accept();  // and closed at once
    ASSERT_TRUE(run.m_host.m_events.WaitFor("disconnected 7"));
    ASSERT_TRUE(m_loops.WaitForSleep(1000));
    m_loops.Advance(400);
    ASSERT_TRUE(m_loops.WaitForSleep(600));
    Jump();
    ASSERT_TRUE(m_loops.WaitForSleep(600));
    m_loops.Advance(601);
    EXPECT_EQ(Wire::GetCode(server.Accept().ReceivePacket()), "OCHS");
}

std::string JumpName(const ::testing::TestParamInfo<CJump>& info)
{
    return info.param.m_pszName;
}
INSTANTIATE_TEST_SUITE_P(Jumps, ClockJump, ::testing::ValuesIn(JUMPS), JumpName);

}  // namespace
