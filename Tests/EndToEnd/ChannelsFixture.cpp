#include "ChannelsFixture.h"

#include <algorithm>

CChannelsTest::~CChannelsTest()
{
    StopPutters();
}

void CChannelsTest::StartPutters(unsigned int dwChannels, std::chrono::microseconds pause,
                                 unsigned int dwLimit)
{
    m_putters.clear();
    m_putters.reserve(dwChannels);
    for (unsigned int i = 1; i <= dwChannels; ++i)
    {
        m_putters.push_back(std::make_unique<CPutter>(m_pServer, i, pause, dwLimit));
    }
}

void CChannelsTest::PutUpTo(unsigned int dwLimit)
{
    for (const auto& pPutter : m_putters)
    {
        pPutter->PutUpTo(dwLimit);
    }
}

std::vector<std::unique_ptr<CSubscriber>> CChannelsTest::Subscribe(
    int nClients, const std::vector<unsigned int>& channels)
{
    std::vector<std::unique_ptr<CSubscriber>> clients;
    for (int i = 0; i < nClients; ++i)
    {
        clients.push_back(std::make_unique<CSubscriber>(channels));
        EXPECT_TRUE(clients.back()->Start(m_wPort));
        clients.back()->WaitForNumber(0);
    }
    return clients;
}

unsigned int CChannelsTest::GetStored() const
{
    unsigned int dwStored = 0xFFFFFFFF;
    for (const auto& pPutter : m_putters)
    {
        dwStored = std::min(dwStored, pPutter->GetStored());
    }
    return dwStored;
}

unsigned int CChannelsTest::StopPutters()
{
    for (const auto& pPutter : m_putters)
    {
        pPutter->Stop();
    }
    return GetStored() - 1;
}

void CChannelsTest::ExpectWhole(const CRecords& records, size_t nChannels)
{
    EXPECT_EQ(records.size(), nChannels);
    for (const auto& [dwChannel, record] : records)
    {
        EXPECT_TRUE(record.IsWhole())
            << "channel " << dwChannel << ": " << record.m_nPackets << " packets, "
            << record.m_gaps.size() << " gaps, " << record.m_nDamaged << " damaged";
    }
}
