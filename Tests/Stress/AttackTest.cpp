// Very many connections that send a byte now and then, beside one honest client.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "Crowd.h"
#include "StressProcess.h"
#include "TempFolder.h"
#include "WireRecords.h"

namespace
{

const size_t FILE_SIZE = size_t{64} << 20;
const size_t HANDFUL = 8;  // fits into the queue of those who wait to be accepted
const int PATIENCE_MS = 31000;
const int NEXT_BYTE_SECONDS = 10;
const long SPARE_KIB = 1024;

typedef std::chrono::steady_clock CClock;

class CAttackTest : public ::testing::Test
{
protected:
    CAttackTest()
    {
        EXPECT_GT(AllowManyDescriptors(), m_nCrowd + 100);
        m_folder.WriteFile("file", std::string(FILE_SIZE, 'x'));
        m_nDescriptors = m_server.GetDescriptors();
        Download();  // the first time of everything
        m_nResidentKiB = m_server.GetResidentKiB();
    }
    // Megabytes a second of one download.
    double Download()
    {
        const CClock::time_point start = CClock::now();
        CCrowd honest;
        honest.Connect(1, m_server.GetPort(), Wire::Brow() + Wire::Dfil(1, 0, u"file"));
        const size_t nParts = 8;
        for (size_t i = 1; i <= nParts; ++i)
        {
            EXPECT_TRUE(honest.WaitForBytes(FILE_SIZE / nParts * i));
            KeepCrowd();
        }
        const std::chrono::duration<double> duration = CClock::now() - start;
        return static_cast<double>(FILE_SIZE) / 1e6 / duration.count();
    }
    double DownloadOften(int nTimes)
    {
        double dSum = 0;
        for (int i = 0; i < nTimes; ++i)
        {
            dSum += Download();
        }
        return dSum / nTimes;
    }
    void Gather()
    {
        for (size_t n = 0; n < m_nCrowd; n += HANDFUL)
        {
            m_crowd.Connect(HANDFUL, m_server.GetPort(), "W");
            const int nWanted = m_nDescriptors + static_cast<int>(m_crowd.GetSize());
            for (int i = 0; i < 1000 && m_server.GetDescriptors() < nWanted - 1; ++i)
            {
                m_crowd.Drain(0);
            }
            KeepCrowd();
        }
    }
    // A slow machine may take longer than the server waits for a silent one.
    void KeepCrowd()
    {
        if (CClock::now() - m_timeKept >= std::chrono::seconds(NEXT_BYTE_SECONDS))
        {
            SendNextByte();
        }
    }
    // The rest of "WORB" and a size that is never reached, a byte each time.
    void SendNextByte()
    {
        static const std::string strHeader = Wire::PacketWithSize("NAMC", 100000, "");
        EXPECT_TRUE(m_crowd.Send(strHeader.substr(m_nNext++ % strHeader.size(), 1)));
        m_timeKept = CClock::now();
    }
    void ExpectMemoryIsBack(const char* pszWhen)
    {
        const long nKiB = m_server.GetResidentKiB();
        printf("attack: %s %ld KiB, at the start %ld KiB\n", pszWhen, nKiB, m_nResidentKiB);
        EXPECT_TRUE(nKiB <= m_nResidentKiB + SPARE_KIB || IsMemoryShared());
    }

    const size_t m_nCrowd = IsFullStress() ? 5000 : 504;
    CTempFolder m_folder;
    CStressServer m_server{m_folder.GetPath()};
    CCrowd m_crowd;
    int m_nDescriptors = 0;
    long m_nResidentKiB = 0;
    size_t m_nNext = 0;
    CClock::time_point m_timeKept = CClock::now();
};
using Attack = CAttackTest;

TEST_F(Attack, HonestClientKeepsHalfItsSpeedBesideSlowSenders)
{
    const int nTimes = IsFullStress() ? 10 : 3;
    const double dAlone = DownloadOften(nTimes);
    Gather();
    double dBeside = 0;
    for (int i = 0; i < nTimes; ++i)
    {
        SendNextByte();
        dBeside += Download() / nTimes;
    }
    printf("attack: %zu slow senders; the honest client %.0f MB/s, alone %.0f MB/s\n",
           m_crowd.GetSize(), dBeside, dAlone);
    EXPECT_TRUE(dBeside > dAlone / 2 || !IsFullStress()) << "the everyday machine is busy";
    EXPECT_EQ(m_crowd.GetClosed(), 0U);
    m_crowd.Close();
    CCrowd last;
    for (int i = 0; i < WAIT_MS / 20 && m_server.GetDescriptors() > m_nDescriptors; ++i)
    {
        last.Drain(20);
    }
    ExpectMemoryIsBack("after they left");
}

// Half a minute long: in the full size only.
TEST_F(Attack, SlowSendersAreGoneAfterTheirLastByte)
{
    if (!IsFullStress())
    {
        GTEST_SKIP() << "in the full size only";
    }
    Gather();
    for (int i = 0; i < 5; ++i)
    {
        SendNextByte();
        m_crowd.Drain(3000);
    }
    SendNextByte();
    EXPECT_EQ(m_crowd.GetClosed(), 0U);
    EXPECT_TRUE(m_crowd.WaitForClosed(m_nCrowd, PATIENCE_MS));
    EXPECT_EQ(m_server.GetDescriptors(), m_nDescriptors);
    ExpectMemoryIsBack("after they were ended");
}

}  // namespace
