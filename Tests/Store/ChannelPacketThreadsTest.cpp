// The store as many threads use it at once: hosts that put packets, readers that come and go.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Hex.h"
#include "OpenPacketStore.h"

namespace
{

const unsigned int CHANNELS = 6;
const unsigned int PUTTERS = 4;
const unsigned int READERS = 8;
const size_t MAX_HELD = 40;
// At least; and until everything that has to meet has met, however slow the machine.
const std::chrono::milliseconds DURATION(2000);
const std::chrono::milliseconds PATIENCE(60000);

// The head of what a putter puts; a pattern that follows from it fills the rest.
struct CHead
{
    unsigned int m_dwChannel;
    unsigned int m_dwPutter;
    unsigned int m_dwNumber;  // counts the putter's packets on that channel
    unsigned int m_dwSize;
};

void FillPacket(const CHead& head, byte* pData)
{
    memset(pData, static_cast<int>((head.m_dwNumber + head.m_dwPutter) & 0xFF), head.m_dwSize);
    memcpy(pData, &head, sizeof head);
}

class CThreadsTest : public ::testing::Test
{
protected:
    bool IsOver() const
    {
        const auto duration = std::chrono::steady_clock::now() - m_start;
        return duration >= PATIENCE || (duration >= DURATION && HasShownAll()) || HasFailure();
    }
    bool HasShownAll() const
    {
        return m_llStored > 0 && m_llWithoutUser > 0 && m_llRead > 0 && m_llTurns > READERS;
    }

    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    COpenPacketServer m_store;
    std::atomic<long long> m_llStored{0};
    std::atomic<long long> m_llWithoutUser{0};
    std::atomic<long long> m_llRead{0};
    std::atomic<long long> m_llTurns{0};
};

// One host thread.
class CPutter
{
public:
    CPutter(CChannelPacketServer& store, unsigned int dwPutter)
        : m_store(store), m_dwPutter(dwPutter), m_random(dwPutter)
    {
    }
    unsigned int Put()
    {
        const unsigned int dwChannel = static_cast<unsigned int>(m_random()) % CHANNELS;
        const unsigned int dwRoom = 1501 - static_cast<unsigned int>(sizeof(CHead));
        const CHead head = {dwChannel, m_dwPutter, ++m_dwNumbers[dwChannel],
                            static_cast<unsigned int>(sizeof(CHead)) +
                                static_cast<unsigned int>(m_random()) % dwRoom};
        FillPacket(head, m_data);
        return m_store.PutChannelPacket(dwChannel, m_data, head.m_dwSize);
    }

private:
    CChannelPacketServer& m_store;
    const unsigned int m_dwPutter;
    std::mt19937 m_random;
    unsigned int m_dwNumbers[CHANNELS] = {};
    byte m_data[1500] = {};
};

// One reader: opens a channel, reads for a while, gives back all that it holds, leaves the channel.
class CReader
{
public:
    CReader(CChannelPacketServer& store, unsigned int dwReader)
        : m_store(store), m_lTask(static_cast<long>(dwReader)), m_random(1000 + dwReader)
    {
        m_held.reserve(MAX_HELD);
    }
    // Returns how many packets it got.
    int TakeTurn()
    {
        const unsigned int dwChannel = static_cast<unsigned int>(m_random()) % CHANNELS;
        EXPECT_TRUE(m_store.AddChannel(dwChannel));
        m_bFirst = true;
        int nRead = 0;
        for (unsigned int i = 1 + static_cast<unsigned int>(m_random()) % 200; i > 0; --i)
        {
            nRead += Read(dwChannel) ? 1 : 0;
            if (m_held.size() == MAX_HELD || m_random() % 4 == 0)
            {
                ReleaseAll();
            }
        }
        ReleaseAll();
        m_store.RemoveChannel(dwChannel, m_lTask);
        return nRead;
    }

private:
    bool Read(unsigned int dwChannel)
    {
        CChannelPacketItem* pItem =
            m_store.GetChannelPacket(dwChannel, m_lTask, m_random() % 8 == 0 ? 1 : 0);
        if (pItem == nullptr)
        {
            std::this_thread::yield();
            return false;
        }
        Check(dwChannel, pItem);
        m_held.push_back(pItem);
        return true;
    }
    void Check(unsigned int dwChannel, CChannelPacketItem* pItem)
    {
        CHead head{};
        memcpy(&head, pItem->GetPacket() + 16, sizeof head);
        ASSERT_EQ(head.m_dwChannel, dwChannel);
        ASSERT_LT(head.m_dwPutter, PUTTERS);
        // A new task begins with the newest packet, which it may have seen before it left.
        unsigned int& dwLast = m_dwLast[dwChannel][head.m_dwPutter];
        ASSERT_GE(head.m_dwNumber, dwLast + (m_bFirst ? 0 : 1));
        dwLast = head.m_dwNumber;
        m_bFirst = false;
        ExpectWhole(head, pItem);
    }
    void ReleaseAll()
    {
        for (CChannelPacketItem* pItem : m_held)
        {
            // Nobody has written into it meanwhile.
            CHead head{};
            memcpy(&head, pItem->GetPacket() + 16, sizeof head);
            ExpectWhole(head, pItem);
            pItem->Release();
        }
        m_held.clear();
    }
    static void ExpectWhole(const CHead& head, CChannelPacketItem* pItem)
    {
        byte expected[1500];
        ASSERT_EQ(pItem->GetPacketLength(), head.m_dwSize + 16);
        FillPacket(head, expected);
        ASSERT_EQ(memcmp(pItem->GetPacket() + 16, expected, head.m_dwSize), 0);
    }

    CChannelPacketServer& m_store;
    const long m_lTask;
    std::mt19937 m_random;
    std::vector<CChannelPacketItem*> m_held;
    unsigned int m_dwLast[CHANNELS][PUTTERS] = {};
    bool m_bFirst = false;
};

using ChannelPacketThreads = CThreadsTest;

TEST_F(ChannelPacketThreads, FourPutEightReadAndChannelsComeAndGo)
{
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < PUTTERS; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                CPutter putter(m_store, i);
                while (!IsOver())
                {
                    const unsigned int dwResult = putter.Put();
                    EXPECT_TRUE(dwResult == 0 || dwResult == 5) << dwResult;
                    ++(dwResult == 0 ? m_llStored : m_llWithoutUser);
                }
            });
    }
    for (unsigned int i = 0; i < READERS; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                CReader reader(m_store, i);
                while (!IsOver())
                {
                    m_llRead += reader.TakeTurn();
                    ++m_llTurns;
                    m_store.GetMaxBufferUsage();
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_TRUE(m_store.m_mapChannels.empty()) << "every user has left";
    EXPECT_GT(m_llStored, 0);
    EXPECT_GT(m_llWithoutUser, 0) << "no channel was ever without a user";
    EXPECT_GT(m_llRead, 0);
    EXPECT_GT(m_llTurns, READERS);
}

}  // namespace
