// The channel client on one connection: what it asks for, what it hands over, how it stays alive.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "ChannelHost.h"
#include "Hex.h"
#include "LibOsprey.h"
#include "ScriptedServer.h"
#include "StdoutCapture.h"
#include "SteppedLoops.h"
#include "SystemCalls.h"

namespace
{

typedef std::vector<std::string> CLines;

const char DATA[] = "data";

// The host has heard of a connection, and then of one packet with DATA on channel 1.
void ExpectOnePacket(const CChannelRun& run)
{
    run.m_host.m_events.WaitFor(PacketLine(1, DATA));
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected 7", PacketLine(1, DATA)}));
}

TEST(ChannelClient, AsksForOneChannelInTwentyBytes)
{
    CRawServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort(), {0x01020304}));
    CRawSocket peer = server.Accept();
    EXPECT_EQ(Hex(peer.Receive(20)), "00 00 01 00 53 48 43 4f 08 00 00 00 01 00 00 00 04 03 02 01");
    run.m_host.m_events.WaitFor("connected 7");
    EXPECT_TRUE(peer.IsSilent());
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{"connected 7"});
}

TEST(ChannelClient, AsksForNoChannelInSixteenBytes)
{
    CRawServer server;
    CChannelRun run;
    ASSERT_TRUE(run.m_pClient->Connect(0, LOOPBACK, server.GetPort(), 20000, 0, nullptr));
    CRawSocket peer = server.Accept();
    EXPECT_EQ(Hex(peer.Receive(16)), "00 00 01 00 53 48 43 4f 04 00 00 00 00 00 00 00");
    peer.Send(Wire::Cpkt(1, DATA));  // unasked for: the client does not filter
    ExpectOnePacket(run);
    EXPECT_TRUE(peer.IsSilent());
}

TEST(ChannelClient, AsksForTenChannelsInTheOrderGiven)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort(), {9, 0, 0xFFFFFFFF, 7, 9, 1, 2, 3, 0x80000000, 5}));
    server.m_peer = server.m_server.Accept();
    EXPECT_EQ(Hex(server.m_peer.Receive(56)),
              "00 00 01 00 53 48 43 4f 2c 00 00 00 0a 00 00 00 "
              "09 00 00 00 00 00 00 00 ff ff ff ff 07 00 00 00 09 00 00 00 "
              "01 00 00 00 02 00 00 00 03 00 00 00 00 00 00 80 05 00 00 00");
    server.Send(Wire::Cpkt(1, DATA));
    ExpectOnePacket(run);
    EXPECT_TRUE(server.m_peer.IsSilent());
}

TEST(ChannelClient, CopiesTheListOfChannels)
{
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    std::vector<unsigned int> channels = {3, 4};
    ASSERT_TRUE(run.m_pClient->Connect(0, LOOPBACK, server.GetPort(), 20000, 2, channels.data()));
    channels.assign({8, 9});
    server.AcceptSubscriber({3, 4});
    server.m_peer.Close();
    loops.WaitForSleep(1000);
    loops.Advance(1001);
    server.AcceptSubscriber({3, 4});
}

TEST(ChannelClient, RefusesElevenChannelsAndAMissingList)
{
    CScriptedServer server;
    CChannelRun run;
    EXPECT_FALSE(run.Start(server.GetPort(), std::vector<unsigned int>(11, 1)));
    std::vector<unsigned int> channels(10, 1);
    EXPECT_FALSE(
        run.m_pClient->Connect(0, LOOPBACK, server.GetPort(), 20000, 0xFFFFFFFF, channels.data()));
    EXPECT_FALSE(run.m_pClient->Connect(0, LOOPBACK, server.GetPort(), 20000, 1, nullptr));
    EXPECT_FALSE(run.m_pClient->Connect(0, LOOPBACK, server.GetPort(), 20000, 11, nullptr));
    // Nothing was begun by that: the first good call is the first.
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    run.m_host.m_events.WaitFor("connected 7");
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{"connected 7"});
}

TEST(ChannelClient, RefusesASecondConnect)
{
    CScriptedServer server;
    CRawServer other;
    CChannelRun run;
    std::vector<bool> results;
    run.m_host.m_fnOnEvent = [&](const std::string&)
    { results.push_back(run.Start(other.GetPort(), {2})); };
    ASSERT_TRUE(run.Start(server.GetPort()));
    EXPECT_FALSE(run.Start(other.GetPort(), {2}));
    server.AcceptSubscriber();
    server.Send(Wire::Cpkt(1, DATA));
    ExpectOnePacket(run);
    EXPECT_FALSE(run.Start(other.GetPort(), {2}));
    run.Release();
    EXPECT_EQ(results, (std::vector<bool>{false, false}));
}

TEST(ChannelClient, HandsOverPacketsInTheirOrder)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort(), {1, 2}));
    server.AcceptSubscriber({1, 2});
    CLines expected = {"connected 7"};
    std::string strBytes;
    for (size_t i = 0; i < 1501; i += 50)
    {
        const unsigned int dwChannel = static_cast<unsigned int>(i / 50 % 2) + 1;
        strBytes += Wire::Cpkt(dwChannel, Pattern(i));
        expected.push_back(PacketLine(dwChannel, Pattern(i)));
    }
    server.Send(strBytes);
    run.m_host.m_events.WaitFor(expected.back());
    EXPECT_EQ(run.m_host.m_events.Get(), expected);
}

TEST(ChannelClient, HandsOverAPacketWithoutData)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    server.Send(Wire::U32(Wire::VERSION) + "TKPC" + Wire::U32(4) + Wire::U32(0xCAFEBABE));
    run.m_host.m_events.WaitFor(PacketLine(0xCAFEBABE, ""));
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected 7", PacketLine(0xCAFEBABE, "")}));
}

TEST(ChannelClient, IgnoresPacketsTooShortForAChannelNumber)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    for (uint32_t dwSize = 0; dwSize < 4; ++dwSize)
    {
        server.Send(Wire::PacketWithSize("CPKT", dwSize, std::string(dwSize, '\1')));
    }
    server.Send(Wire::Cpkt(1, DATA));
    ExpectOnePacket(run);
}

TEST(ChannelClient, IgnoresOtherCodesAndTheVersion)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    server.Send(Wire::Keep() + Wire::Brow() + Wire::Ochs({1, 2}) + Wire::Result("NAMR", 1, 0) +
                Wire::Packet("ABCD", Pattern(5000)) + Wire::PacketWithSize("KEEP", 4, "abcd") +
                std::string(12, '\0'));
    std::string strPacket = Wire::Cpkt(1, DATA);
    strPacket.replace(0, 4, Wire::U32(0xDEADBEEF));
    server.Send(strPacket);
    ExpectOnePacket(run);
    EXPECT_TRUE(server.m_peer.IsSilent());
}

TEST(ChannelClient, PutsAPacketTogetherFromManyReceives)
{
    std::atomic<size_t> nCalls{0};
    const CReplacedCall slow(g_callRecv,
                             [&](int s, void* pData, size_t nSize, int nFlags)
                             {
                                 const size_t nMost = nCalls++ % 7 + 1;
                                 return g_callRecv.Real(s, pData, std::min(nSize, nMost), nFlags);
                             });
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    server.Send(Wire::Cpkt(1, Pattern(1500)) + Wire::Cpkt(2, "") + Wire::Cpkt(1, DATA));
    run.m_host.m_events.WaitFor(PacketLine(1, DATA));
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected 7", PacketLine(1, Pattern(1500)),
                                                 PacketLine(2, ""), PacketLine(1, DATA)}));
}

// The sizes around the ring's capacity are those that leave no room for a whole receive.
TEST(ChannelClient, HandsOverPacketsOfAnySizeWhole)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    CLines expected = {"connected 7"};
    for (const uint32_t dwPayload : {1504U, 1505U, 130036U, 130037U, 131059U, 131060U, 131061U,
                                     131072U, 300000U, 5000000U, 4U})
    {
        const std::string strData = Pattern(dwPayload - 4);
        server.Send(Wire::Cpkt(1, strData));
        expected.push_back(PacketLine(1, strData));
    }
    run.m_host.m_events.WaitFor(expected.back());
    EXPECT_EQ(run.m_host.m_events.Get(), expected);
}

TEST(ChannelClient, HandsOverEverythingThatCameBeforeTheEnd)
{
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    CLines expected = {"connected 7"};
    std::string strBytes;
    for (unsigned int i = 0; i < 300; ++i)
    {
        strBytes += Wire::Cpkt(i, Pattern(1500, i));
        expected.push_back(PacketLine(i, Pattern(1500, i)));
    }
    expected.emplace_back("disconnected 7");
    server.Send(strBytes + Wire::Cpkt(1, DATA).substr(0, 19));
    server.m_peer.Close();
    run.m_host.m_events.WaitFor("disconnected 7");
    EXPECT_EQ(run.m_host.m_events.Get(), expected);
}

TEST(ChannelClient, PacketBeyondAllMemoryIsALostConnectionAndTheNextOneWorks)
{
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    CLines expected;
    for (const uint32_t dwSize : {0x80000000U, 0x7FFFFFF4U, 0xFFFFFFF3U, 0xFFFFFFF4U, 0xFFFFFFFFU})
    {
        server.AcceptSubscriber();
        server.Send(Wire::Cpkt(1, DATA) + Wire::PacketWithSize("CPKT", dwSize, Pattern(140000)));
        expected.insert(expected.end(), {"connected 7", PacketLine(1, DATA), "disconnected 7"});
        loops.WaitForSleep(1000);
        EXPECT_EQ(run.m_host.m_events.Get(), expected) << dwSize;
        loops.Advance(1001);
    }
    server.AcceptSubscriber();
    server.Send(Wire::Cpkt(1, "again"));
    run.m_host.m_events.WaitFor(PacketLine(1, "again"));
}

// What was left of a packet when the connection went is not put in front of the next one's.
TEST(ChannelClient, HalfAPacketIsForgottenWithItsConnection)
{
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    server.Send(Wire::Cpkt(1, Pattern(300000)).substr(0, 200000));
    server.m_peer.Close();
    loops.WaitForSleep(1000);
    loops.Advance(1001);
    server.AcceptSubscriber();
    server.Send(Wire::Cpkt(1, DATA));
    run.m_host.m_events.WaitFor(PacketLine(1, DATA));
    EXPECT_EQ(run.m_host.m_events.Get(),
              (CLines{"connected 7", "disconnected 7", "connected 7", PacketLine(1, DATA)}));
}

TEST(ChannelClient, KeepFollowsFiveSecondsAfterTheRequestAndThenEveryFive)
{
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    loops.WaitForSleep(5000);
    for (int i = 0; i < 8; ++i)
    {
        loops.Advance(4999);
        loops.WaitForSleep(1);
        EXPECT_TRUE(server.m_peer.IsSilent()) << i;
        loops.Advance(2);
        EXPECT_EQ(Hex(server.m_peer.Receive(12)), "00 00 01 00 50 45 45 4b 00 00 00 00");
        // The next interval begins with this packet, not with the moment at which it was due.
        loops.WaitForSleep(5000);
    }
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{"connected 7"});
}

TEST(ChannelClient, PacketsDoNotPutOffTheKeep)
{
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    loops.WaitForSleep(5000);
    for (int i = 1; i <= 4; ++i)
    {
        loops.Advance(1000);
        server.Send(Wire::Cpkt(1, DATA));
        run.m_host.m_events.WaitFor(PacketLine(1, DATA), i);
        loops.WaitForSleep(5000 - 1000 * i);
        EXPECT_TRUE(server.m_peer.IsSilent());
    }
    loops.Advance(1001);
    server.Expect(Wire::Keep());
}

TEST(ChannelClient, SendsNoKeepWithoutAConnection)
{
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    loops.WaitForSleep(5000);
    loops.Advance(4500);
    server.m_peer.ShutdownSend();
    loops.WaitForSleep(1000);
    loops.Advance(999);
    loops.WaitForSleep(1);  // the KEEP would have been due 499 ms ago
    EXPECT_TRUE(server.m_peer.IsSilent());
    loops.Advance(2);
    EXPECT_TRUE(server.m_peer.IsClosedByPeer());
}

TEST(ChannelClient, WithoutAHostItConnectsReceivesAndReconnects)
{
    CSteppedLoops loops;
    CScriptedServer server;
    IWXSPChannelClient* pClient = CreateWXSPChannelClient(nullptr, CHANNEL_USER);
    unsigned int dwChannel = 1;
    EXPECT_TRUE(pClient->Connect(0, LOOPBACK, server.GetPort(), 20000, 1, &dwChannel));
    for (int i = 0; i < 2; ++i)
    {
        server.AcceptSubscriber();
        server.Send(Wire::Cpkt(1, DATA));
        loops.WaitForSleep(5000);
        server.m_peer.Close();
        loops.WaitForSleep(1000);
        loops.Advance(1001);
    }
    server.m_server.Close();
    pClient->Release();
}

TEST(ChannelClient, WithoutAHostItSurvivesFailedAttempts)
{
    CSteppedLoops loops;
    CRawServer server;
    server.Close();
    unsigned int dwChannel = 1;
    for (const unsigned int dwAddress : {LOOPBACK, 0xFFFFFFFFU})
    {
        IWXSPChannelClient* pClient = CreateWXSPChannelClient(nullptr, CHANNEL_USER);
        pClient->Connect(0, dwAddress, server.GetPort(), 500, 1, &dwChannel);
        if (dwAddress != LOOPBACK)
        {
            loops.WaitForSleep(500);
            loops.Advance(501);
        }
        loops.WaitForSleep(1000);
        pClient->Release();
    }
}

TEST(ChannelClient, PrintsItsStepsAndNothingForALoss)
{
    const CStdoutCapture capture;
    CSteppedLoops loops;
    CScriptedServer server;
    CChannelRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptSubscriber();
    loops.WaitForSleep(5000);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl::Connect\n"), 1);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl::OnConnectSuccessful\n"), 1);
    server.m_server.Close();
    server.m_peer.Close();
    loops.WaitForSleep(1000);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl"), 2);
    loops.Advance(1001);
    loops.WaitForSleep(1000);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl::OnConnectFailed\n"), 1);
    EXPECT_EQ(capture.Count("CWXSPChannelClientImpl"), 3);
}

}  // namespace
