#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "ServerFixture.h"
#include "StdoutCapture.h"
#include "SystemCalls.h"

namespace
{

using ServerLifecycle = CUntimedServerTest;

TEST_F(ServerLifecycle, ReleasedWithoutAStart) {}

TEST_F(ServerLifecycle, ListensOnAllInterfacesWhateverTheAddress)
{
    bool bStarted = false;
    for (int i = 0; i < 10 && !bStarted; ++i)
    {
        m_wPort = FreePort();
        bStarted = m_pServer->Startup(0x08080808, m_wPort) != Orb_FALSE;
    }
    ASSERT_TRUE(bStarted);
    CRawSocket peer = Browse();
    ExpectAlive(peer);
}

TEST_F(ServerLifecycle, StartOnATakenPortFailsAndMayBeTriedAgain)
{
    const CRawServer other;
    EXPECT_FALSE(m_pServer->Startup(0, other.GetPort()));
    Start();
    CRawSocket peer = Browse();
    ExpectAlive(peer);
}

TEST_F(ServerLifecycle, StartWhileRunningIsRefusedAndChangesNothing)
{
    Start();
    CRawSocket peer = Named(u"here");
    EXPECT_FALSE(m_pServer->Startup(0, FreePort()));
    ExpectAlive(peer);
}

TEST_F(ServerLifecycle, StartWithoutAThreadFailsAndLeavesNothingOpen)
{
    m_wPort = FreePort();
    {
        const CReplacedCall create(g_callPthreadCreate,
                                   [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
                                   { return EAGAIN; });
        EXPECT_FALSE(m_pServer->Startup(0, m_wPort));
    }
    EXPECT_FALSE(CRawSocket().Connect(m_wPort));
    Start();
    CRawSocket peer = Browse();
    ExpectAlive(peer);
}

TEST_F(ServerLifecycle, MayBeStartedAgainAfterAShutdown)
{
    for (int i = 0; i < 3; ++i)
    {
        Start();
        {
            CRawSocket peer = Named(u"again");
            ExpectAlive(peer);
        }
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_TRUE(m_pServer->Shutdown());
        EXPECT_TRUE(m_pServer->Shutdown()) << "harmless when nothing runs";
    }
    EXPECT_EQ(m_host.GetDisconnects().size(), 3U);
}

TEST_F(ServerLifecycle, AHundredConnectionsAreAllAccepted)
{
    Start();
    std::vector<CRawSocket> peers;
    peers.reserve(100);
    for (int i = 0; i < 100; ++i)
    {
        peers.push_back(Connect());
    }
    for (CRawSocket& peer : peers)
    {
        peer.Send(Wire::Brow());
        ExpectAlive(peer);
    }
}

TEST_F(ServerLifecycle, ConnectionsAreCountedInTheTrace)
{
    const CStdoutCapture capture;
    Start();
    {
        CRawSocket peer = Named(u"one");
    }
    m_host.WaitForDisconnects(1);
    Stop();
    EXPECT_EQ(capture.Count(" ProcessClientConnect m_listStreams.GetSize(): 1\n"), 1);
    EXPECT_EQ(capture.Count(" ProcessStreamDetached m_listStreams.GetSize(): 0\n"), 1);
    EXPECT_EQ(capture.Count("COspreyServerStream, Attach() Orb_TRUE 0x"), 1);
}

TEST_F(ServerLifecycle, TerminateOfAnUnknownTaskIsTrueAndChangesNothing)
{
    Start();
    CRawSocket peer = Named(u"stays");
    EXPECT_TRUE(m_pServer->TerminateTask(0));
    EXPECT_TRUE(m_pServer->TerminateTask(GetTask() + 8));
    ExpectAlive(peer);
}

TEST_F(ServerLifecycle, TerminateDetachesALiveConnectionAtOnce)
{
    Start();
    CRawSocket other = Named(u"other");
    CRawSocket peer = Named(u"ends");
    const long lTask = GetTask();
    EXPECT_TRUE(m_pServer->TerminateTask(lTask));
    EXPECT_TRUE(peer.IsClosedByPeer());
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(m_host.GetDisconnects(), (std::vector<std::string>{"ends"}));
    ExpectAlive(other);
}

TEST_F(ServerLifecycle, TerminateInsideACallbackWorksAndTheSecondIsFalse)
{
    std::atomic<int> nResults{0};
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            nResults += m_pServer->TerminateTask(GetTask()) ? 1 : 100;
            nResults += m_pServer->TerminateTask(GetTask()) ? 100 : 1;
        }
    };
    Start();
    CRawSocket peer = Named(u"self");
    peer.Send(Wire::Delt(2, u"/nothing"));
    peer.ReceiveToEnd();
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(nResults, 2);
}

TEST_F(ServerLifecycle, TerminatedInsideACallbackItIsNeitherAnsweredNorReadOn)
{
    std::atomic<int> nDeletions{0};
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            ++nDeletions;
            EXPECT_TRUE(m_pServer->TerminateTask(GetTask()));
        }
    };
    Start();
    CRawSocket peer = Named(u"given up");
    peer.Send(Wire::Delt(2, u"/nothing") + Wire::Delt(3, u"/nothing"));
    EXPECT_EQ(peer.ReceiveToEnd(), "");
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(nDeletions, 1);
}

// A host that holds its own lock in its callbacks and while it terminates must not deadlock.
TEST_F(ServerLifecycle, TerminateFromAnotherThreadDoesNotWaitForTheWorker)
{
    std::mutex mutex;
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest&)
    { const std::lock_guard<std::mutex> lock(mutex); };
    Start();
    CRawSocket peer = Named(u"locked");
    {
        const std::lock_guard<std::mutex> lock(mutex);
        peer.Send(Wire::Delt(2, u"/nothing"));
        m_host.WaitForRequests(2);
        EXPECT_TRUE(m_pServer->TerminateTask(GetTask()));
    }
    peer.ReceiveToEnd();
    m_host.WaitForDisconnects(1);
}

TEST_F(ServerLifecycle, TerminateRacesWithConnectionsThatEndThemselves)
{
    Start();
    for (int i = 0; i < 50; ++i)
    {
        CRawSocket peer = Named(u"race");
        const long lTask = GetTask();
        std::thread other([&] { m_pServer->TerminateTask(lTask); });
        peer.Close();
        other.join();
    }
    m_host.WaitForDisconnects(50);
    EXPECT_EQ(m_host.GetDisconnects().size(), 50U);
}

TEST_F(ServerLifecycle, EndAllConnectionsClosesThePortAndEveryConnection)
{
    Start();
    std::vector<CRawSocket> peers;
    peers.push_back(Connect());
    peers.push_back(Browse());
    peers.push_back(Named(u"first"));
    peers.push_back(Named(u"second"));
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(m_host.GetDisconnects().size(), 2U) << "told before the call returned";
    for (CRawSocket& peer : peers)
    {
        EXPECT_TRUE(peer.IsClosedByPeer());
    }
    EXPECT_FALSE(CRawSocket().Connect(m_wPort));
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS)) << "nobody is left";
}

TEST_F(ServerLifecycle, EndAllConnectionsFromACallbackDoesNotWait)
{
    std::atomic<bool> bStarted{false};
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            bStarted = m_pServer->EndAllConnections(WAIT_MS) != Orb_FALSE;
        }
    };
    Start();
    CRawSocket other = Named(u"other");
    CRawSocket peer = Named(u"caller");
    peer.Send(Wire::Delt(2, u"/nothing"));
    peer.ReceiveToEnd();
    other.ReceiveToEnd();
    m_host.WaitForDisconnects(2);
    EXPECT_TRUE(bStarted);
}

TEST_F(ServerLifecycle, EndAllConnectionsTwiceInACallbackEndsEachOnce)
{
    std::atomic<int> nStarted{0};
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            nStarted += m_pServer->EndAllConnections(0);
            nStarted += m_pServer->EndAllConnections(0);
        }
    };
    Start();
    CRawSocket other = Named(u"other");
    CRawSocket peer = Named(u"caller");
    peer.Send(Wire::Delt(2, u"/nothing"));
    peer.ReceiveToEnd();
    other.ReceiveToEnd();
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(nStarted, 2);
    EXPECT_EQ(m_host.GetDisconnects().size(), 2U);
}

TEST_F(ServerLifecycle, EndAllConnectionsGivesUpWhenTheTimeIsOver)
{
    std::mutex mutex;
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            const std::lock_guard<std::mutex> lock(mutex);
        }
    };
    Start();
    CRawSocket peer = Named(u"busy");
    {
        const std::lock_guard<std::mutex> lock(mutex);
        peer.Send(Wire::Delt(2, u"/nothing"));
        m_host.WaitForRequests(2);
        EXPECT_FALSE(m_pServer->EndAllConnections(10));
    }
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
}

TEST_F(ServerLifecycle, ShutdownInsideACallbackIsFalseAndNeverJoinsItself)
{
    std::atomic<int> nResult{-1};
    m_host.m_fnOnDisconnect = [&](const std::string&) { nResult = m_pServer->Shutdown(); };
    Start();
    {
        CRawSocket peer = Named(u"last");
    }
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(nResult, Orb_FALSE);
    EXPECT_TRUE(m_pServer->Shutdown());
}

TEST_F(ServerLifecycle, StartInsideACallbackIsRefusedAndChangesNothing)
{
    std::atomic<int> nResult{-1};
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            nResult = m_pServer->Startup(0, 0);
        }
    };
    Start();
    CRawSocket peer = Named(u"here");
    Exchange(peer, Wire::Delt(2, u"/nothing"), Wire::Result("DTRT", 2, 0));
    EXPECT_EQ(nResult, Orb_FALSE);
    ExpectAlive(peer);
}

TEST_F(ServerLifecycle, StartIsRefusedWhileConnectionsOfAnEarlierRunAreLeft)
{
    Start();
    CRawSocket peer = Named(u"left");
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_FALSE(m_pServer->Startup(0, FreePort()));
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_TRUE(peer.IsClosedByPeer());
    Start();
    CRawSocket later = Named(u"later");
    ExpectAlive(later);
}

TEST_F(ServerLifecycle, ReleaseInsideACallbackOnlyAsksTheWorkerToEnd)
{
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            m_pServer->Release();
        }
    };
    Start();
    CRawSocket peer = Named(u"ends it");
    Exchange(peer, Wire::Delt(2, u"/nothing"), Wire::Result("DTRT", 2, 0));
    ASSERT_TRUE(m_pServer->EndAllConnections(WAIT_MS)) << "the server is there still";
    EXPECT_TRUE(peer.IsClosedByPeer());
    EXPECT_EQ(m_host.GetDisconnects(), (std::vector<std::string>{"ends it"}));
}

TEST_F(ServerLifecycle, EndAllConnectionsAfterAShutdownEndsThemToo)
{
    Start();
    CRawSocket unnamed = Browse();
    CRawSocket first = Named(u"first");
    CRawSocket second = Named(u"second");
    ExpectAlive(unnamed);
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(m_host.GetDisconnects().size(), 2U);
    for (CRawSocket* pPeer : {&unnamed, &first, &second})
    {
        EXPECT_TRUE(pPeer->IsClosedByPeer());
    }
    Start();
    CRawSocket later = Named(u"later");
    ExpectAlive(later);
}

// The worker ends soon after the callback, with nobody to join it: the call may come while it still
// does, or later.
TEST_F(ServerLifecycle, EndAllConnectionsAfterAShutdownInsideACallbackEndsThemAtOnce)
{
    std::promise<Orb_BOOL> asked;
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            asked.set_value(m_pServer->Shutdown());
        }
    };
    for (size_t i = 1; i <= 20; ++i)
    {
        asked = std::promise<Orb_BOOL>();
        Start();
        CRawSocket unnamed = Browse();
        CRawSocket peer = Named(u"ends it");
        peer.Send(Wire::Delt(2, u"/nothing"));
        if (i % 2 == 0)
        {
            peer.ReceivePacket();
        }
        EXPECT_FALSE(asked.get_future().get());
        ASSERT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_EQ(m_host.GetDisconnects().size(), i);
        peer.ReceiveToEnd();
        unnamed.ReceiveToEnd();
        EXPECT_TRUE(m_pServer->Shutdown());
    }
}

TEST_F(ServerLifecycle, EndAllConnectionsDuringACallbackThatThenShutsDownEndsThemToo)
{
    std::promise<void> entered;
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            entered.set_value();
            // Nothing shows from outside that the other thread has asked and waits: give it time.
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            m_pServer->Shutdown();
        }
    };
    Start();
    CRawSocket peer = Named(u"ends it");
    peer.Send(Wire::Delt(2, u"/nothing"));
    entered.get_future().wait();
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    peer.ReceiveToEnd();
}

TEST_F(ServerLifecycle, ReleaseWorksAfterAShutdownInsideACallback)
{
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest& request)
    {
        if (request.m_eRequest == KS_REQUEST_DELETE_TREE)
        {
            m_pServer->Shutdown();
        }
    };
    Start();
    CRawSocket peer = Named(u"ends it");
    Exchange(peer, Wire::Delt(2, u"/nothing"), Wire::Result("DTRT", 2, 0));
    ASSERT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    m_pServer->Release();
    m_pServer = nullptr;
    EXPECT_TRUE(peer.IsClosedByPeer());
    EXPECT_EQ(m_host.GetDisconnects(), (std::vector<std::string>{"ends it"}));
}

TEST_F(ServerLifecycle, ReleaseWithoutAShutdownStopsFirst)
{
    Start();
    {
        CRawSocket peer = Browse();
        ExpectAlive(peer);
    }
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    m_pServer->Release();
    m_pServer = nullptr;
}

TEST_F(ServerLifecycle, ChannelsHaveNoReaders)
{
    Start();
    char data[4] = {};
    EXPECT_EQ(m_pServer->PutChannelPacket(1, data, sizeof data), 5U);
    EXPECT_EQ(m_pServer->GetChannelMaxBufferUsage(), 0.0F);
}

TEST_F(ServerLifecycle, WithoutACallbackNamesAreUsedAsTheyAre)
{
    IOspreyServer* pServer = CreateOspreyServer(nullptr);
    unsigned short wPort = FreePort();
    ASSERT_TRUE(pServer->Startup(0, wPort));
    const std::string strPath = m_folder.WriteFile("file", "text");
    CRawSocket peer;
    ASSERT_TRUE(peer.Connect(wPort));
    peer.Send(Wire::Brow());
    Exchange(peer, Wire::Namc(1, u"x"), Wire::Result("NAMR", 1, 0));
    Exchange(peer, Wire::Delt(2, Widen(strPath)), Wire::Result("DTRT", 2, 0));
    EXPECT_FALSE(FileExists(strPath));
    EXPECT_TRUE(pServer->EndAllConnections(WAIT_MS));
    pServer->Release();
}

TEST_F(ServerLifecycle, WhatTheHostReturnsIsIgnored)
{
    m_host.m_nResult = 8;
    Start();
    CRawSocket peer = Named(u"x");
    ExpectAlive(peer);
}

// What runs when it returns would be a surprise to a host that is about to release the server.
TEST_F(ServerLifecycle, EndAllConnectionsThatMeetsAStartupEndsThatRunToo)
{
    IOspreyServer* pServer = CreateOspreyServer(nullptr);
    const unsigned short wPort = FreePort();
    std::promise<void> starting;
    std::promise<void> ending;
    std::thread other;
    {
        const CReplacedCall creating(g_callEpollCreate1,
                                     [&](int nFlags)
                                     {
                                         starting.set_value();
                                         ending.get_future().wait();
                                         // Time to come to the lock that Startup holds.
                                         usleep(50000);
                                         return g_callEpollCreate1.Real(nFlags);
                                     });
        other = std::thread([&] { EXPECT_TRUE(pServer->Startup(0, wPort)); });
        starting.get_future().wait();
        ending.set_value();
        EXPECT_TRUE(pServer->EndAllConnections(WAIT_MS));
        other.join();
    }
    EXPECT_FALSE(CRawSocket().Connect(wPort));
    EXPECT_TRUE(pServer->Shutdown());
    pServer->Release();
}

void ReleaseWithAConnection()
{
    CRecordingHost host;
    IOspreyServer* pServer = CreateOspreyServer(&host);
    const unsigned short wPort = FreePort();
    pServer->Startup(0, wPort);
    CRawSocket peer;
    peer.Connect(wPort);
    peer.Send(Wire::Brow() + Wire::Namc(1, u"x"));
    peer.ReceivePacket();
    pServer->Shutdown();
    pServer->Release();
}

TEST(ServerLifecycleDeathTest, ReleaseWithAConnectionListedAborts)
{
    // The child starts threads, which it may only do as a process of its own.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(ReleaseWithAConnection(), "`m_listStreams.GetSize\\(\\) == 0' failed");
}

// As a callback may on the worker, whose part the calling thread has taken over. In a process of
// its own, with an end of its own: what never ends would take the others with it.
[[noreturn]] void EndAllConnectionsInsideOnDisconnectAfterTheWorker()
{
    alarm(WAIT_MS / 1000);
    CRecordingHost host;
    IOspreyServer* pServer = CreateOspreyServer(&host);
    host.m_fnOnDisconnect = [&](const std::string&)
    {
        EXPECT_TRUE(pServer->EndAllConnections(WAIT_MS));
        pServer->Release();  // asks for nothing that is not under way
    };
    const unsigned short wPort = FreePort();
    EXPECT_TRUE(pServer->Startup(0, wPort));
    CRawSocket peers[2];
    for (CRawSocket& peer : peers)
    {
        EXPECT_TRUE(peer.Connect(wPort));
        peer.Send(Wire::Brow() + Wire::Namc(1, u"named"));
        EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "NAMR");
    }
    EXPECT_TRUE(pServer->Shutdown());
    EXPECT_TRUE(pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(host.GetDisconnects().size(), 2U);
    pServer->Release();
    _exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST(ServerLifecycleDeathTest, EndAllConnectionsMayComeInsideAnOnDisconnectAfterTheWorker)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(EndAllConnectionsInsideOnDisconnectAfterTheWorker(), ::testing::ExitedWithCode(0),
                "");
}

}  // namespace
