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

// Of the heap in use, and of the memory beside it, from the end of the first round to that of any
// later one. What is resident says less: the heap keeps now more, now fewer of the pages that it
// once used.
const long MAX_GROWTH_KIB = 256;
const unsigned int LONG_SECONDS = 60;
const int PATIENCE_MS = 40000;

unsigned int GetSetting(const char* pszName, unsigned int dwDefault)
{
    const char* pszValue = getenv(pszName);
    return pszValue != nullptr && *pszValue != '\0'
               ? static_cast<unsigned int>(strtoul(pszValue, nullptr, 10))
               : dwDefault;
}

// The server without a peer.
struct CRest
{
    long m_nResidentKiB;
    long m_nHeapKiB;   // in use
    long m_nOtherKiB;  // CStressServer::GetOtherMemoryKiB
};

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
        const bool bPeace = m_rests.size() % 2 == 1;
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
        // A connection's memory goes after its descriptor.
        CRest rest = LookAtMemory();
        for (int i = 0; i < PATIENCE_MS / 10 && HasGrown(rest); ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            rest = LookAtMemory();
        }
        m_rests.push_back(rest);
        EXPECT_FALSE(HasGrown(rest)) << "after round " << m_rests.size() << ": " << GetText(rest)
                                     << "; after the first: " << GetText(m_rests.front());
    }
    CRest LookAtMemory()
    {
        return {m_server.GetResidentKiB(), std::stol(m_server.Obey("heap")),
                m_server.GetOtherMemoryKiB()};
    }
    bool HasGrown(const CRest& rest) const
    {
        return !IsMemoryShared() && !m_rests.empty() &&
               (rest.m_nHeapKiB > m_rests.front().m_nHeapKiB + MAX_GROWTH_KIB ||
                rest.m_nOtherKiB > m_rests.front().m_nOtherKiB + MAX_GROWTH_KIB);
    }
    void Print() const
    {
        printf("soak: %4.0f s: %s; %d restarts; %s, %d descriptors\n", GetSeconds(),
               m_soak.m_counts.GetText().c_str(), m_nRestarts, GetText(m_rests.back()).c_str(),
               m_server.GetDescriptors());
        fflush(stdout);
    }
    static std::string GetText(const CRest& rest)
    {
        return "server at rest " + std::to_string(rest.m_nResidentKiB) + " KiB, of the heap " +
               std::to_string(rest.m_nHeapKiB) + " KiB in use, beside it " +
               std::to_string(rest.m_nOtherKiB) + " KiB";
    }
    void PrintServer()
    {
        const auto most = std::max_element(m_rests.begin(), m_rests.end(),
                                           [](const CRest& a, const CRest& b)
                                           { return a.m_nResidentKiB < b.m_nResidentKiB; });
        printf("soak: after the first round: %s\n", GetText(m_rests.front()).c_str());
        printf("soak: after round %zu, the last: %s\n", m_rests.size(),
               GetText(m_rests.back()).c_str());
        EXPECT_EQ(m_server.Obey("trim"), "done");
        printf("soak: server at rest at most %ld KiB, ever %ld KiB; in the end, trimmed, %ld KiB\n",
               most->m_nResidentKiB, m_nMaxKiB, m_server.GetResidentKiB());
        printf(
            "soak: descriptors %d at the start, %d at the end, %d at most; processor time %.1f s\n",
            m_nDescriptors, m_server.GetDescriptors(), m_nMaxDescriptors,
            static_cast<double>(m_server.GetProcessorMs()) / 1000);
    }

    const CClock::time_point m_start = CClock::now();
    const unsigned int m_dwSeconds = GetSetting("OSPREY_SOAK_SECONDS", 0);
    const unsigned int m_dwSeed = GetSetting("OSPREY_SOAK_SEED", std::random_device()());
    CDice m_dice{m_dwSeed};
    CSoak m_soak;
    CStressServer m_server{m_soak.m_served.GetPath()};
    const CLeftovers m_leftovers;
    const int m_nDescriptors = m_server.GetDescriptors();
    std::vector<CRest> m_rests;  // after each round
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
    PrintServer();
    EXPECT_GT(m_soak.m_counts.m_downloads, 0U);
    EXPECT_GT(m_soak.m_counts.m_packets, 0U);
    EXPECT_GT(m_soak.m_counts.m_enemies, 0U);
    EXPECT_GT(m_nRestarts, 0);
}

}  // namespace
