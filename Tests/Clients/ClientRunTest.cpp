// What both clients share: start, set-up, stop, release, receiving. The upload client stands for
// both.

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <thread>

#include "DeafServer.h"
#include "FileHost.h"
#include "Hex.h"
#include "LibOsprey.h"
#include "ScriptedServer.h"
#include "SteppedLoops.h"
#include "StopUnderWay.h"
#include "TempFolder.h"

namespace
{

typedef std::vector<std::string> CLines;

TEST(ClientRun, UnreachablePeerFailsTheStartAfterTheConnectTimeout)
{
    const CDeafServer server;
    CSteppedLoops loops;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort(), 200));
    loops.WaitForSleep(200);
    loops.Advance(199);
    loops.WaitForSleep(1);
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{});
    loops.Advance(2);
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{"start failed 0"});
}

// The second run's time-out shows that the first run's has had its chance.
TEST(ClientRun, LongestConnectTimeoutsAreLong)
{
    const CDeafServer server;
    for (const unsigned int dwTimeoutMs : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    {
        CSubmitRun patient;
        CSubmitRun hasty;
        ASSERT_TRUE(patient.Start(server.GetPort(), dwTimeoutMs));
        ASSERT_TRUE(hasty.Start(server.GetPort(), 100));
        hasty.m_host.m_events.WaitForEnd();
        patient.Stop();
        EXPECT_EQ(patient.m_host.m_events.Get(), CLines{}) << dwTimeoutMs;
    }
}

TEST(ClientRun, RefusedConnectionFailsTheStartOnceAndAtOnce)
{
    CSubmitRun run;
    ASSERT_TRUE(run.Start(FreePort()));
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{"start failed 0"});
}

TEST(ClientRun, StopDuringConnectEndsWithoutACallback)
{
    const CDeafServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    EXPECT_TRUE(run.Stop());
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{});
}

TEST(ClientRun, StopDuringNamingEndsWithoutACallback)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    EXPECT_TRUE(run.Stop());
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{});
}

// The stop may meet the worker before its first loop run, in it, or between the two of them: none
// of them may lose it, or the run would go on to its first file.
TEST(ClientRun, StopAtAnyMomentOfTheSetUpIsNeverLost)
{
    CRawServer server;
    for (int i = 0; i < 200; ++i)
    {
        CSubmitRun run;
        ASSERT_TRUE(run.Start(server.GetPort()));
        CRawSocket peer;
        if (i % 2 == 1)
        {
            peer = server.Accept();
        }
        if (i % 4 == 3)
        {
            peer.Receive(12);
        }
        run.Stop();
        EXPECT_EQ(run.m_host.m_events.Get(), CLines{});
        if (!peer.IsOpen())
        {
            server.Accept();
        }
    }
}

TEST(ClientRun, AnnouncesItselfWithBrowAndTheName)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort(), 20000, u"Gerät-日本-\U0001F985"));
    server.AcceptClient(1, u"Gerät-日本-\U0001F985");
    server.Send(Wire::Result("NAMR", 1, 0));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected", "no more"}));
}

TEST(ClientRun, EmptyNameIsANameOfItsOwn)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort(), 20000, u""));
    server.AcceptClient(1, u"");
}

TEST(ClientRun, RefusedNameFailsTheStart)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    server.Send(Wire::Result("NAMR", 1, 4));
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    EXPECT_EQ(run.m_host.m_events.Get(), CLines{"start failed 0"});
}

TEST(ClientRun, ConnectionLostDuringSetUpReportsBoth)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    server.m_peer.Close();
    run.m_host.m_events.WaitFor("start failed 0");
    run.Stop();
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"disconnected 0", "start failed 0"}));
}

TEST(ClientRun, ResetDuringSetUpReportsItsErrorOnce)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    server.m_peer.Reset();
    run.m_host.m_events.WaitFor("start failed 0");
    run.Stop();
    EXPECT_EQ(run.m_host.m_events.Get(),
              (CLines{"disconnected " + std::to_string(ECONNRESET), "start failed 0"}));
}

TEST(ClientRun, ReplyToAnotherRequestChangesNothing)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    server.Send(Wire::Result("NAMR", 0, 0) + Wire::Result("NAMR", 2, 4) +
                Wire::Result("NAMR", 0xFFFFFFFF, 4) + Wire::Result("NAMR", 1, 0));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected", "no more"}));
}

TEST(ClientRun, ShortAndUnknownPacketsAreIgnored)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    const std::string strWhole = Wire::Result("NAMR", 1, 4);
    for (uint32_t dwSize = 0; dwSize < 8; ++dwSize)
    {
        server.Send(Wire::PacketWithSize("NAMR", dwSize, strWhole.substr(12, dwSize)));
    }
    server.Send(Wire::Packet("ABCD", "payload") + Wire::Keep() + Wire::Brow());
    server.Send(Wire::Result("NAMR", 1, 0));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected", "no more"}));
}

TEST(ClientRun, ReplyInSingleBytesIsPutTogether)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    for (const char c : Wire::Result("NAMR", 1, 0))
    {
        server.Send(std::string(1, c));
    }
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected", "no more"}));
}

// The sizes around the ring's capacity are those that leave no room for a whole receive.
TEST(ClientRun, PacketsOfAnySizePassThroughTheRing)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    for (const uint32_t dwSize :
         {130036U, 130037U, 130049U, 131059U, 131060U, 131061U, 131072U, 300000U, 5000000U})
    {
        server.Send(Wire::Packet("ABCD", Pattern(dwSize)));
    }
    server.Send(Wire::Result("NAMR", 1, 0));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Get(), (CLines{"connected", "no more"}));
}

TEST(ClientRun, PacketBeyondAllMemoryEndsTheConnection)
{
    for (const uint32_t dwSize : {0x3FFFFFFFU, 0x7FFFFFF4U, 0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU})
    {
        CScriptedServer server;
        CSubmitRun run;
        ASSERT_TRUE(run.Start(server.GetPort()));
        server.AcceptClient();
        server.Send(Wire::PacketWithSize("NAMR", dwSize, Pattern(140000)));
        run.m_host.m_events.WaitFor("start failed 0");
        EXPECT_EQ(run.m_host.m_events.Get(),
                  (CLines{"disconnected " + std::to_string(ENOMEM), "start failed 0"}))
            << dwSize;
    }
}

TEST(ClientRun, PeerThatClosesBetweenTwoFilesIsReportedOnce)
{
    CScriptedServer server;
    const CTempFolder folder;
    CSubmitRun run;
    run.m_host.m_entries = {{folder.WriteFile("a", ""), "", 0}, {folder.WriteFile("b", ""), "", 0}};
    std::promise<void> closed;
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "completed")
        {
            closed.get_future().wait();
        }
    };
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    server.Take();
    server.Send(Wire::Upfr(2, 0, 0));
    server.Expect(Wire::Upfb(2, 1, ""));
    server.Send(Wire::Result("UPBR", 2, 0));
    server.m_peer.ShutdownSend();
    server.m_peer.Close();
    closed.set_value();
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(),
              (CLines{"connected", "next", "completed", "next", "disconnected 0"}));
}

TEST(ClientRun, StopInsideGetNextFileIsLost)
{
    CScriptedServer server;
    const CTempFolder folder;
    CSubmitRun run;
    run.m_host.m_entries = {{folder.WriteFile("a", ""), "", 0}};
    const CStopUnderWay stop;
    std::thread stopper;
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "next")
        {
            stopper = std::thread([&] { run.Stop(); });
            stop.Wait();
        }
    };
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    EXPECT_EQ(Wire::GetCode(server.Take()), "UPFI");
    server.Send(Wire::Upfr(2, 0, 0));
    server.Expect(Wire::Upfb(2, 1, ""));
    server.Send(Wire::Result("UPBR", 2, 0));
    run.m_host.m_events.WaitForEnd();
    stopper.join();
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(),
              (CLines{"connected", "next", "completed", "no more"}));
}

TEST(ClientRun, KeepAliveFollowsFiveSecondsAfterTheLastSendAndThenEveryFive)
{
    CScriptedServer server;
    const CTempFolder folder;
    CSteppedLoops loops;
    CSubmitRun run;
    run.m_host.m_entries = {{folder.WriteFile("a", ""), "", 0}};
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    EXPECT_EQ(Wire::GetCode(server.Take()), "UPFI");
    // The interval counts from the moment at which the client learns that its packet has left, a
    // little after the packet is here: the clock must not move before it sleeps again.
    for (int i = 0; i < 3; ++i)
    {
        loops.WaitForSleep(5000);
        loops.Advance(4999);
        loops.WaitForSleep(1);
        EXPECT_TRUE(server.m_peer.IsSilent());
        loops.Advance(2);
        server.Expect(Wire::Brow());
    }
    // The clock stands still: a stop would wait for its grace time for ever.
    server.m_peer.Close();
    run.m_host.m_events.WaitForEnd();
}

TEST(ClientRun, RequestNumbersGoOnOverRuns)
{
    CScriptedServer server;
    CSubmitRun run;
    for (uint32_t dwID = 1; dwID < 4; ++dwID)
    {
        ASSERT_TRUE(run.Start(server.GetPort()));
        server.WelcomeClient(dwID);
        run.m_host.m_events.WaitFor("no more", static_cast<int>(dwID));
        EXPECT_TRUE(run.Stop());
        EXPECT_TRUE(run.Stop());
    }
}

TEST(ClientRun, StartIsRefusedWhileARunIsNotStopped)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    EXPECT_FALSE(run.Start(server.GetPort()));
    server.WelcomeClient();
    run.m_host.m_events.WaitForEnd();
    EXPECT_FALSE(run.Start(server.GetPort()));
    run.Stop();
    EXPECT_TRUE(run.Start(server.GetPort()));
}

TEST(ClientRun, NameBeyond259UnitsIsRefused)
{
    CScriptedServer server;
    CSubmitRun run;
    EXPECT_FALSE(run.Start(server.GetPort(), 1000, std::u16string(260, u'x')));
    EXPECT_FALSE(run.m_pClient->StartFileSubmit(nullptr, 0, LOOPBACK, server.GetPort(), 1000));
    ASSERT_TRUE(run.Start(server.GetPort(), 20000, std::u16string(259, u'x')));
    server.AcceptClient(1, std::u16string(259, u'x'));
}

TEST(ClientRun, StartWithoutAHostIsRefused)
{
    ISubmitFileClient* pClient = CreateSubmitFileClient(nullptr);
    unsigned short name[] = {'x', 0};
    EXPECT_FALSE(pClient->StartFileSubmit(name, 0, LOOPBACK, FreePort(), 1000));
    pClient->Release();
}

TEST(ClientRun, ThreadThatCannotStartFailsTheStartAndLeavesNothingOpen)
{
    CScriptedServer server;
    CSubmitRun run;
    {
        const CReplacedCall failing(g_callPthreadCreate,
                                    [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
                                    { return EAGAIN; });
        EXPECT_FALSE(run.Start(server.GetPort()));
    }
    EXPECT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
}

TEST(ClientRun, StopFromACallbackOnlyAsks)
{
    CScriptedServer server;
    const CTempFolder folder;
    CSubmitRun run;
    run.m_host.m_entries = {{folder.WriteFile("a", Pattern(100000)), "", 0}};
    Orb_BOOL bStopped = Orb_TRUE;
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "progress 32")
        {
            bStopped = run.Stop();
        }
    };
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    server.Take();
    server.Send(Wire::Upfr(2, 0, 0));
    server.Expect(Wire::Upfb(2, 0, Pattern(100000).substr(0, 32768)));
    server.Expect(Wire::Caop(2));
    EXPECT_EQ(Wire::GetCode(server.Take()), "DELT");
    server.Send(Wire::Result("DTRT", 4, 0));
    EXPECT_TRUE(run.Stop());
    EXPECT_FALSE(bStopped);
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(), (CLines{"connected", "next"}));
}

TEST(ClientRun, ReleaseFromACallbackTakesEffectAtTheEndAndSilencesTheHost)
{
    CScriptedServer server;
    const CTempFolder folder;
    CSubmitRun run;
    run.m_host.m_entries = {{folder.WriteFile("a", ""), "", 0}, {folder.WriteFile("b", ""), "", 0}};
    run.m_host.m_fnOnEvent = [&](const std::string& strEvent)
    {
        if (strEvent == "completed")
        {
            run.Release();
        }
    };
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    server.Take();
    server.Send(Wire::Upfr(2, 0, 0));
    server.Expect(Wire::Upfb(2, 1, ""));
    server.Send(Wire::Result("UPBR", 2, 0));
    EXPECT_TRUE(server.m_peer.IsClosedByPeer());
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(), (CLines{"connected", "next", "completed"}));
}

TEST(ClientRun, ReleaseWithoutAStopStopsFirst)
{
    CScriptedServer server;
    CSubmitRun run;
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.AcceptClient();
    run.Release();
    EXPECT_TRUE(server.m_peer.IsClosedByPeer());
}

TEST(ClientRun, ArgumentsOfGetNextFileArriveEmpty)
{
    CScriptedServer server;
    CSubmitRun run;
    run.m_host.m_entries = {{"/nonexistent/a", "root", 5}, {"/nonexistent/b", "root", 7}};
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    run.m_host.m_events.WaitForEnd();
    EXPECT_TRUE(run.m_host.m_bFreshArguments);
    EXPECT_EQ(run.m_host.m_events.Get(),
              (CLines{"connected", "next", "failed 5", "next", "failed 5", "no more"}));
}

}  // namespace
