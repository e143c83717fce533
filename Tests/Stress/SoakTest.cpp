// Everything at once, for a long time: transfers, live channels, enemies and restarts against one
// server in a process of its own. Nothing may be lost, damaged or left behind, and the server's
// memory may not grow.
//
// OSPREY_SOAK_SECONDS says how long (else it is skipped), OSPREY_SOAK_SEED repeats the random
// choices of an earlier run.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "Leftovers.h"
#include "RawSocket.h"
#include "SoakRound.h"
#include "StressProcess.h"

namespace
{

typedef std::chrono::steady_clock CClock;

// Between the end of the warm-up and the end.
const long MAX_GROWTH_KIB = 4096;
const unsigned int LONG_SECONDS = 60;
const int PATIENCE_MS = 40000;

unsigned int GetSetting(const char* pszName, unsigned int dwDefault)
{
    const char* pszValue = getenv(pszName);
    return pszValue != nullptr && *pszValue != '\0'
               ? static_cast<unsigned int>(strtoul(pszValue, nullptr, 10))
               : dwDefault;
}

class CSoakTest : public ::testing::Test
{
protected:
    CSoakTest()
    {
        m_soak.m_wPort = m_server.GetPort();
        EXPECT_EQ(m_server.Obey("stream " + std::to_string(SOAK_CHANNELS)), "done");
        printf("soak: %u seconds, seed %u\n", m_dwSeconds, m_dwSeed);
    }
    void SetUp() override
    {
        if (m_dwSeconds == 0)
        {
            GTEST_SKIP() << "OSPREY_SOAK_SECONDS says for how long; scripts/soak sets it";
        }
    }
    double GetSeconds() const
    {
        return std::chrono::duration<double>(CClock::now() - m_start).count();
    }
    // Short enough for 20 of them, the first of which is the warm-up; long enough for what goes on
    // for half a minute.
    double GetRoundSeconds() const
    {
        return std::min(std::max(m_dwSeconds / 20.0, 2.0), 45.0);
    }
    // Everybody takes part until the round's time is over; then everybody leaves. In every second
    // round the server is left in peace, so that what adds up in one life of it can be seen.
    void RunRound()
    {
        const CSoakRound round(m_soak, m_dice);
        const bool bPeace = m_restKiB.size() % 2 == 1;
        const double dEnd = GetSeconds() + GetRoundSeconds();
        double dNext = GetSeconds() + (bPeace ? 1e9 : NextPause());
        while (GetSeconds() < dEnd && !HasFailure())
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the pace of the looks
            m_nMaxKiB = std::max(m_nMaxKiB, m_server.GetResidentKiB());
            m_nMaxDescriptors = std::max(m_nMaxDescriptors, m_server.GetDescriptors());
            if (GetSeconds() >= dNext)
            {
                Restart();
                dNext = GetSeconds() + NextPause();
            }
        }
    }
    double NextPause()
    {
        return m_dice.Roll(300, 3000) / 1000.0;
    }
    void Restart()
    {
        m_soak.m_restarts.Restart([this] { EXPECT_NE(m_server.Obey("restart"), "failed"); });
        ++m_nRestarts;
    }
    // Nothing but the server itself is left, there and here. A connection whose peer is gone may
    // last for half a minute where the server's buffer is full, which is waited for at the end of a
    // long run; else a restart ends all.
    void ExpectRest()
    {
        if (m_dwSeconds < LONG_SECONDS || GetSeconds() < m_dwSeconds)
        {
            Restart();
        }
        // The system tells nobody that a descriptor is closed: look again and again.
        for (int i = 0; i < PATIENCE_MS / 10 && m_server.GetDescriptors() > m_nDescriptors; ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(m_server.GetDescriptors(), m_nDescriptors) << "of the server without a peer";
        m_leftovers.ExpectNone();
        m_restKiB.push_back(m_server.GetResidentKiB());
    }
    void Print() const
    {
        printf("soak: %4.0f s: %s; %d restarts; server at rest %ld KiB, %d descriptors\n",
               GetSeconds(), m_soak.m_counts.GetText().c_str(), m_nRestarts, m_restKiB.back(),
               m_server.GetDescriptors());
        fflush(stdout);
    }

    const CClock::time_point m_start = CClock::now();
    const unsigned int m_dwSeconds = GetSetting("OSPREY_SOAK_SECONDS", 0);
    const unsigned int m_dwSeed = GetSetting("OSPREY_SOAK_SEED", std::random_device()());
    CDice m_dice{m_dwSeed};
    CSoak m_soak;
    CStressServer m_server{m_soak.m_served.GetPath()};
    const CLeftovers m_leftovers;
    const int m_nDescriptors = m_server.GetDescriptors();
    std::vector<long> m_restKiB;  // after each round
    long m_nMaxKiB = 0;
    int m_nMaxDescriptors = 0;
    int m_nRestarts = 0;
};
using Soak = CSoakTest;

TEST_F(Soak, MixedLoadLosesNothingAndGrowsNothing)
{
    double dNextLine = 60;
    while (GetSeconds() < m_dwSeconds && !HasFailure())
    {
        RunRound();
        ExpectRest();
        if (GetSeconds() >= dNextLine)
        {
            Print();
            dNextLine += 60;
        }
    }
    Print();
    printf(
        "soak: server's memory %ld KiB after the warm-up, %ld at the end, %ld at most; descriptors "
        "%d at the start, %d at the end, %d at most\n",
        m_restKiB.front(), m_restKiB.back(), m_nMaxKiB, m_nDescriptors, m_server.GetDescriptors(),
        m_nMaxDescriptors);
    EXPECT_TRUE(m_restKiB.back() <= m_restKiB.front() + MAX_GROWTH_KIB || IS_SANITIZED)
        << "the server has grown";
    EXPECT_GT(m_soak.m_counts.m_downloads, 0U);
    EXPECT_GT(m_soak.m_counts.m_packets, 0U);
    EXPECT_GT(m_soak.m_counts.m_enemies, 0U);
    EXPECT_GT(m_nRestarts, 0);
}

}  // namespace
