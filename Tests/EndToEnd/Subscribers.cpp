#include "Subscribers.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "LibOsprey.h"
#include "WireRecords.h"

void CChannelRecord::Take(unsigned int dwChannel, const void* pData, size_t nSize)
{
    const std::string strPacket(static_cast<const char*>(pData), nSize);
    const unsigned int dwNumber = Wire::GetU32(strPacket, 4);
    m_nDamaged += strPacket == NumberedPacket(dwChannel, dwNumber, nSize) ? 0 : 1;
    if (m_nPackets++ == 0)
    {
        m_dwFirst = dwNumber;
    }
    else if (dwNumber != m_dwNext)
    {
        m_gaps.emplace_back(m_dwNext, dwNumber);
    }
    m_dwNext = dwNumber + 1;
}

namespace
{

// The server ends a connection that is silent for 30 seconds.
const std::chrono::seconds KEEP_ALIVE(5);

bool HaveCome(const CRecords& records, size_t nChannels, unsigned int dwNumber)
{
    return records.size() == nChannels &&
           std::all_of(records.begin(), records.end(),
                       [&](const auto& record) { return record.second.m_dwNext > dwNumber; });
}

// Takes the whole packets at the start of the bytes and removes them.
void TakePackets(std::string& strBytes, CRecords& records)
{
    const size_t nHeader = 16;
    size_t nTaken = 0;
    while (strBytes.size() - nTaken >= nHeader)
    {
        const size_t nPacket = 12 + Wire::GetU32(strBytes, nTaken + 8);
        if (strBytes.size() - nTaken < nPacket)
        {
            break;
        }
        const unsigned int dwChannel = Wire::GetU32(strBytes, nTaken + 12);
        records[dwChannel].Take(dwChannel, strBytes.data() + nTaken + nHeader, nPacket - nHeader);
        nTaken += nPacket;
    }
    strBytes.erase(0, nTaken);
}

}  // namespace

CSubscriber::CSubscriber(std::vector<unsigned int> channels)
    : m_channels(std::move(channels)), m_pClient(CreateWXSPChannelClient(this, 1))
{
}

CSubscriber::~CSubscriber()
{
    m_pClient->Release();
}

bool CSubscriber::Start(unsigned short wPort, unsigned int dwAddress, unsigned int dwTimeoutMs)
{
    return m_pClient->Connect(0, dwAddress, wPort, dwTimeoutMs,
                              static_cast<unsigned int>(m_channels.size()), m_channels.data()) != 0;
}

bool CSubscriber::WaitForNumber(unsigned int dwNumber) const
{
    return WaitFor("packet " + std::to_string(dwNumber) + " of every channel",
                   [&] { return HaveCome(m_records, m_channels.size(), dwNumber); });
}

long long CSubscriber::GetDownMs() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(m_timeConnected -
                                                                 m_timeDisconnected)
        .count();
}

void CSubscriber::OnConnected(unsigned int /*dwUserParam*/)
{
    Change(
        [this]
        {
            ++m_nConnected;
            m_timeConnected = std::chrono::steady_clock::now();
            m_records.clear();
        });
}

void CSubscriber::OnConnectFailed(unsigned int dwUserParam)
{
    Change(
        [&]
        {
            ++(dwUserParam == 0 ? m_nFailedAtOnce : m_nFailed);
            m_strFailures += dwUserParam == 0 ? '0' : 'f';
        });
}

void CSubscriber::OnDisconnected(unsigned int /*dwUserParam*/)
{
    Change(
        [this]
        {
            ++m_nDisconnected;
            m_timeDisconnected = std::chrono::steady_clock::now();
        });
}

void CSubscriber::OnChannelPacket(unsigned int /*dwUserParam*/, unsigned int dwChannel, void* pData,
                                  unsigned int dwSize)
{
    Change([&] { m_records[dwChannel].Take(dwChannel, pData, dwSize); });
}

CRawSubscribers::CRawSubscribers(unsigned short wPort, size_t nCount,
                                 const std::vector<unsigned int>& channels)
    : m_peers(nCount), m_nChannels(channels.size())
{
    for (CPeer& peer : m_peers)
    {
        EXPECT_TRUE(peer.m_socket.Connect(wPort));
        peer.m_socket.Send(Wire::Ochs(channels));
        peer.m_strBytes = peer.m_socket.ReceivePacket();
        KeepAlive();
    }
    m_thread = std::thread([this] { Run(); });
}

CRawSubscribers::~CRawSubscribers()
{
    m_bStop = true;
    m_thread.join();
}

void CRawSubscribers::KeepAlive()
{
    const auto now = std::chrono::steady_clock::now();
    if (now - m_timeKept < KEEP_ALIVE)
    {
        return;
    }
    m_timeKept = now;
    for (CPeer& peer : m_peers)
    {
        if (peer.m_socket.IsOpen() && !peer.m_bEnded)
        {
            peer.m_socket.SendWithoutWaiting(Wire::Keep());
        }
    }
}

void CRawSubscribers::Run()
{
    std::vector<pollfd> polls;
    polls.reserve(m_peers.size());
    for (const CPeer& peer : m_peers)
    {
        polls.push_back({peer.m_socket.GetHandle(), POLLIN, 0});
    }
    Change(
        [this]
        {
            for (CPeer& peer : m_peers)
            {
                TakePackets(peer.m_strBytes, peer.m_records);
            }
        });
    while (!m_bStop)
    {
        KeepAlive();
        const int nStopLookMs = 20;
        if (poll(polls.data(), polls.size(), nStopLookMs) <= 0)
        {
            continue;
        }
        Change(
            [&]
            {
                for (size_t i = 0; i < polls.size(); ++i)
                {
                    if (polls[i].revents != 0)
                    {
                        ReadSome(m_peers[i]);
                        polls[i].fd = m_peers[i].m_bEnded ? -1 : polls[i].fd;
                    }
                }
            });
    }
}

void CRawSubscribers::ReadSome(CPeer& peer)
{
    char szPart[65536];
    const ssize_t nReceived = recv(peer.m_socket.GetHandle(), szPart, sizeof szPart, MSG_DONTWAIT);
    if (nReceived > 0)
    {
        peer.m_strBytes.append(szPart, static_cast<size_t>(nReceived));
        TakePackets(peer.m_strBytes, peer.m_records);
    }
    peer.m_bEnded = nReceived == 0 || (nReceived < 0 && errno != EAGAIN && errno != EINTR);
}

bool CRawSubscribers::WaitForNumber(unsigned int dwNumber) const
{
    return WaitFor("packet " + std::to_string(dwNumber) + " of every channel at every subscriber",
                   [&]
                   {
                       return std::all_of(
                           m_peers.begin(), m_peers.end(),
                           [&](const CPeer& peer)
                           { return HaveCome(peer.m_records, m_nChannels, dwNumber); });
                   });
}

CLazySubscriber::CLazySubscriber(unsigned short wPort, const std::vector<unsigned int>& channels)
{
    EXPECT_TRUE(m_socket.Connect(wPort));
    m_socket.Send(Wire::Ochs(channels));
    m_thread = std::thread([this] { KeepAlive(); });
}

CLazySubscriber::~CLazySubscriber()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bOver = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void CLazySubscriber::KeepAlive()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_changed.wait_for(lock, KEEP_ALIVE, [this] { return m_bOver; }))
    {
        m_socket.SendWithoutWaiting(Wire::Keep());
    }
}

void CLazySubscriber::ReadTo(unsigned int dwChannel, unsigned int dwNumber)
{
    while (m_records[dwChannel].m_dwNext <= dwNumber)
    {
        std::string strPacket = m_socket.ReceivePacket();
        if (strPacket.size() < 16)
        {
            return;
        }
        TakePackets(strPacket, m_records);
    }
}

CPutter::CPutter(IOspreyServer* pServer, unsigned int dwChannel, std::chrono::microseconds pause,
                 unsigned int dwLimit)
    : m_pServer(pServer),
      m_dwChannel(dwChannel),
      m_pause(pause),
      m_dwLimit(dwLimit),
      m_thread([this] { Run(); })
{
}

CPutter::~CPutter()
{
    Stop();
}

void CPutter::Stop()
{
    m_bStop = true;
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

void CPutter::PutUpTo(unsigned int dwLimit)
{
    m_dwLimit = dwLimit;
}

unsigned int CPutter::GetStored() const
{
    unsigned int dwStored = 0;
    Look([&] { dwStored = m_dwStored; });
    return dwStored;
}

bool CPutter::WaitForStored(unsigned int dwStored) const
{
    return WaitFor("packet " + std::to_string(dwStored) + " to be stored",
                   [&] { return m_dwStored >= dwStored; });
}

bool CPutter::WaitForRefusal() const
{
    return WaitFor("a packet that is not stored",
                   [this]
                   {
                       return std::any_of(m_results.begin(), m_results.end(),
                                          [](unsigned int dwResult) { return dwResult != 0; });
                   });
}

std::set<unsigned int> CPutter::GetResults() const
{
    std::set<unsigned int> results;
    Look([&] { results = m_results; });
    return results;
}

void CPutter::Run()
{
    for (unsigned int dwNumber = 0; !m_bStop; std::this_thread::sleep_for(m_pause))  // the pace
    {
        if (dwNumber >= m_dwLimit)
        {
            continue;
        }
        std::string strPacket = NumberedPacket(m_dwChannel, dwNumber);
        const unsigned int dwResult = m_pServer->PutChannelPacket(
            m_dwChannel, strPacket.data(), static_cast<unsigned int>(strPacket.size()));
        dwNumber += dwResult == 0 ? 1 : 0;
        Change(
            [&]
            {
                m_results.insert(dwResult);
                m_dwStored = dwNumber;
            });
    }
}
