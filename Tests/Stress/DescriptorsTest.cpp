// A server whose process has no descriptor left.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "Crowd.h"
#include "StressProcess.h"
#include "TempFolder.h"
#include "WireRecords.h"

namespace
{

const int DESCRIPTORS = 40;

// The promise, of the full size; the everyday one runs on machines that take ten times as long over
// everything, and shows no more than that nobody spins.
const double MAX_SHARE = 0.05;
const double MAX_EVERYDAY_SHARE = 0.5;

std::string DirectoryRequest(int nID)
{
    return Wire::Cdir(static_cast<uint32_t>(nID), u"here");
}

class CDescriptorsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (IS_SANITIZED)
        {
            GTEST_SKIP() << "the sanitizer needs descriptors too";
        }
    }
    CRawSocket Browse()
    {
        CRawSocket peer;
        EXPECT_TRUE(peer.Connect(m_server.GetPort()));
        peer.Send(Wire::Brow());
        return peer;
    }
    static void ExpectServed(CRawSocket& peer)
    {
        peer.Send(DirectoryRequest(7));
        EXPECT_EQ(Wire::WithoutVersion(peer.ReceivePacket()),
                  Wire::WithoutVersion(Wire::Result("CDRT", 7, 0)));
    }
    // The server notices an end in its own time.
    void WaitForDescriptors(int nAtMost)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(WAIT_MS);
        while (m_server.GetDescriptors(DESCRIPTORS) > nAtMost)
        {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline)
                << "waited in vain for descriptors to be free";
            std::this_thread::yield();
        }
    }
    // Newcomers keep coming for a while; returns the share of a processor that the server takes.
    double MeasureRefusing()
    {
        const int nSeconds = IsFullStress() ? 10 : 2;
        const auto start = std::chrono::steady_clock::now();
        const long nBeforeMs = m_server.GetProcessorMs();
        for (int i = 0; i < nSeconds * 10; ++i)
        {
            CRawSocket newcomer;
            EXPECT_TRUE(newcomer.Connect(m_server.GetPort()));
            m_waiting.push_back(std::move(newcomer));
            // Not a wait for something: the time over which the processor is measured.
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        const double dMs = static_cast<double>(m_server.GetProcessorMs() - nBeforeMs);
        const std::chrono::duration<double, std::milli> duration =
            std::chrono::steady_clock::now() - start;
        return dMs / duration.count();
    }
    static double GetMaxShare()
    {
        return IsFullStress() ? MAX_SHARE : MAX_EVERYDAY_SHARE;
    }

    CTempFolder m_folder;
    CStressServer m_server{m_folder.GetPath(), DESCRIPTORS};
    std::vector<CRawSocket> m_waiting;
};
using NoDescriptors = CDescriptorsTest;

TEST_F(NoDescriptors, NewcomersAreTurnedAwayAndThoseWhoAreThereAreServed)
{
    std::vector<CRawSocket> peers;
    while (m_server.GetDescriptors(DESCRIPTORS) < DESCRIPTORS)
    {
        peers.push_back(Browse());
        ExpectServed(peers.back());
    }
    const double dShare = MeasureRefusing();
    printf("descriptors: all taken by connections, %.1f %% of a processor\n", dShare * 100);
    EXPECT_LT(dShare, GetMaxShare());
    for (CRawSocket& newcomer : m_waiting)
    {
        EXPECT_TRUE(newcomer.IsClosedByPeer());
    }
    for (CRawSocket& peer : peers)
    {
        ExpectServed(peer);
    }
    peers.pop_back();
    peers.pop_back();
    WaitForDescriptors(DESCRIPTORS - 2);
    CRawSocket late = Browse();
    ExpectServed(late);
}

// Even the one that is kept for turning newcomers away goes to another thread of the process.
TEST_F(NoDescriptors, NewcomersWaitWhileTheHostTakesEveryDescriptor)
{
    if (IsEmulated())
    {
        GTEST_SKIP() << "now and then this hangs in the emulator, which opens files of its own";
    }
    CRawSocket peer = Browse();
    ExpectServed(peer);
    EXPECT_EQ(m_server.Obey("hoard"), "done");
    const double dShare = MeasureRefusing();
    printf("descriptors: all taken by the host, %.1f %% of a processor\n", dShare * 100);
    EXPECT_LT(dShare, GetMaxShare());
    ExpectServed(peer);
    EXPECT_EQ(m_server.Obey("release"), "done");
    CRawSocket late = Browse();
    ExpectServed(late);
}

}  // namespace
