// Every operation that a host may call from any thread, from eight threads at once.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ChannelHost.h"
#include "FileHost.h"
#include "LibOsprey.h"
#include "RawSocket.h"
#include "RecordingHost.h"
#include "TempFolder.h"
#include "WireRecords.h"
#include "versionx.h"

namespace
{

const int THREADS = 8;

// Runs fnStep(thread, step) on eight threads, so often on each.
void OnEightThreads(int nSteps, const std::function<void(int, int)>& fnStep)
{
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int nThread = 0; nThread < THREADS; ++nThread)
    {
        threads.emplace_back(
            [=]
            {
                for (int nStep = 0; nStep < nSteps; ++nStep)
                {
                    fnStep(nThread, nStep);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

// Peers that come, ask and go, until they are told to end. Whatever becomes of them is right.
class CVisitors
{
public:
    explicit CVisitors(unsigned short wPort) : m_wPort(wPort), m_thread([this] { Run(); }) {}
    ~CVisitors()
    {
        m_bOver = true;
        m_thread.join();
    }
    CVisitors(const CVisitors&) = delete;
    CVisitors& operator=(const CVisitors&) = delete;

private:
    void Run()
    {
        std::vector<CRawSocket> peers(20);
        for (size_t n = 0; !m_bOver; ++n)
        {
            CRawSocket& peer = peers[n % peers.size()];
            if (peer.Connect(m_wPort))
            {
                peer.SendWithoutWaiting(n % 2 == 0 ? Wire::Brow() + Wire::Namc(1, u"visitor")
                                                   : Wire::Ochs({1, 2}));
            }
        }
    }

    const unsigned short m_wPort;
    std::atomic<bool> m_bOver{false};
    std::thread m_thread;
};

class CHostThreadsTest : public ::testing::Test
{
protected:
    CHostThreadsTest()
    {
        m_host.m_fnOnRequest = [this](const CRecordingHost::CRequest& request)
        { m_lNewestTask = request.m_lTask; };
        m_pServer = CreateOspreyServer(&m_host);
        EXPECT_TRUE(m_pServer->Startup(0, m_wPort));
    }
    ~CHostThreadsTest() override
    {
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_TRUE(m_pServer->Shutdown());
        m_pServer->Release();
    }
    void CallOne(unsigned int dwWhich)
    {
        char pData[] = "packet";
        switch (dwWhich)
        {
            case 0:
                m_pServer->Startup(0, m_wPort);
                break;
            case 1:
                m_pServer->Shutdown();
                break;
            case 2:
                m_pServer->EndAllConnections(5);
                break;
            case 3:
                m_pServer->TerminateTask(m_lNewestTask);
                break;
            case 4:
                EXPECT_EQ(m_pServer->GetChannelMaxBufferUsage(), 0.0F);
                break;
            default:
                m_pServer->PutChannelPacket(dwWhich % 3, pData, sizeof pData);
                break;
        }
    }

    // Packets for the client's channel, which the server need not know yet.
    void PutUntilItComes(const CChannelRun& channel) const
    {
        for (int nMs = 0; channel.m_host.m_events.Count(PacketLine(1, "x")) == 0; ++nMs)
        {
            ASSERT_LT(nMs, WAIT_MS) << "waited in vain for a packet";
            char c = 'x';
            m_pServer->PutChannelPacket(1, &c, 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    const unsigned short m_wPort = FreePort();
    CRecordingHost m_host;
    IOspreyServer* m_pServer;
    std::atomic<long> m_lNewestTask{0};
};
using HostThreads = CHostThreadsTest;

TEST_F(HostThreads, CallTheRunningServer)
{
    const CVisitors visitors(m_wPort);
    OnEightThreads(500, [this](int nThread, int nStep)
                   { CallOne(3 + static_cast<unsigned int>(nThread + nStep) % 6); });
    m_host.WaitForRequests(1);
}

TEST_F(HostThreads, StartItAndEndItAllAtOnce)
{
    const CVisitors visitors(m_wPort);
    OnEightThreads(100,
                   [this](int nThread, int nStep)
                   {
                       std::minstd_rand random(static_cast<unsigned int>(nThread * 1000 + nStep));
                       random.discard(7);
                       CallOne(static_cast<unsigned int>(random()) % 9);
                   });
    // In the end it starts, serves and ends as ever.
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_TRUE(m_pServer->EndAllConnections(0));
    EXPECT_TRUE(m_pServer->Startup(0, m_wPort));
}

TEST_F(HostThreads, EndEveryConnectionAllAtOnceOnceTheWorkerIsGone)
{
    std::vector<CRawSocket> peers(20);
    for (CRawSocket& peer : peers)
    {
        ASSERT_TRUE(peer.Connect(m_wPort));
        peer.Send(Wire::Brow() + Wire::Namc(1, u"named"));
        EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "NAMR");
    }
    EXPECT_TRUE(m_pServer->Shutdown());
    OnEightThreads(1, [this](int, int) { EXPECT_TRUE(m_pServer->EndAllConnections(0)); });
    EXPECT_EQ(m_host.GetDisconnects().size(), 20U) << "each told once";
    for (CRawSocket& peer : peers)
    {
        EXPECT_TRUE(peer.IsClosedByPeer());
    }
}

// One attempt to connect a thread at a time: of more than the ten that a listener lets wait, the
// system may reset one (it answers them with cookies, and may have no room when those come back).
// What has come to a client shows that its connection does not wait any more.
TEST_F(HostThreads, HaveClientsOfTheirOwnAndAskForTheVersion)
{
    const CTempFolder served;
    const CTempFolder folder;
    served.WriteFile("served", std::string(50000, 's'));
    m_host.m_fnResolve = [&](const std::string& strName)
    { return served.GetPath(strName.substr(strName.find_last_of("|\\") + 1)); };
    std::vector<std::string> files;
    files.reserve(THREADS);
    for (int i = 0; i < THREADS; ++i)
    {
        files.push_back(folder.WriteFile("from" + std::to_string(i), std::string(50000, 'x')));
    }
    const std::string strVersion = OrbComponent::GetVerisonString();
    OnEightThreads(
        3,
        [&](int nThread, int nStep)
        {
            CSubmitRun submit;
            submit.m_host.m_entries = {{files[static_cast<size_t>(nThread)], "", 0}};
            EXPECT_TRUE(submit.Start(m_wPort));
            submit.m_host.m_events.WaitFor("connected");
            CChannelRun channel;
            channel.Start(m_wPort);
            PutUntilItComes(channel);
            CDownloadRun download;
            download.m_host.m_entries = {
                {folder.GetPath("to" + std::to_string(nThread * 10 + nStep)), "served", 0}};
            EXPECT_TRUE(download.Start(m_wPort));
            EXPECT_EQ(OrbComponent::GetVerisonString(), strVersion);
            submit.m_host.m_events.WaitForEnd();
            download.m_host.m_events.WaitForEnd();
            EXPECT_EQ(submit.m_host.m_events.Count("completed"), 1)
                << ::testing::PrintToString(submit.m_host.m_events.GetWithoutProgress());
            EXPECT_EQ(download.m_host.m_events.Count("completed"), 1)
                << ::testing::PrintToString(download.m_host.m_events.GetWithoutProgress());
        });
}

}  // namespace
