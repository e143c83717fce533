#ifndef OSPREY_TESTS_SUBSCRIBERS_H
#define OSPREY_TESTS_SUBSCRIBERS_H

// Those who put numbered packets, and those who check what arrives.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "NumberedPacket.h"
#include "OspreyChannelClient.h"
#include "OspreyServer.h"
#include "RawSocket.h"
#include "Watched.h"

// What arrived of one channel of numbered packets.
struct CChannelRecord
{
    void Take(unsigned int dwChannel, const void* pData, size_t nSize);
    // Every number from the first to the last arrived, once, in order and undamaged.
    bool IsWhole() const
    {
        return m_nPackets > 0 && m_gaps.empty() && m_nDamaged == 0;
    }
    unsigned int GetLast() const
    {
        return m_dwNext - 1;
    }

    unsigned int m_dwFirst = 0;
    unsigned int m_dwNext = 0;                                  // one more than the last
    std::vector<std::pair<unsigned int, unsigned int>> m_gaps;  // expected, and come instead
    int m_nPackets = 0;
    int m_nDamaged = 0;
};

typedef std::map<unsigned int, CChannelRecord> CRecords;

// A real client that checks what arrives. What it knows is looked at inside WaitFor and Look.
class CSubscriber final : public IWXSPChannelClientCallback, public CWatched
{
public:
    explicit CSubscriber(std::vector<unsigned int> channels = {1});
    ~CSubscriber();
    CSubscriber(const CSubscriber&) = delete;
    CSubscriber& operator=(const CSubscriber&) = delete;

    // What Connect returns.
    bool Start(unsigned short wPort, unsigned int dwAddress = 0x7F000001,
               unsigned int dwTimeoutMs = 20000);
    // Waits until all its channels have come to the number.
    bool WaitForNumber(unsigned int dwNumber) const;

    // How long the last loss lasted until there was a connection again. REQUIRES: inside Look.
    long long GetDownMs() const;

    void OnConnected(unsigned int dwUserParam) override;
    void OnConnectFailed(unsigned int dwUserParam) override;
    void OnDisconnected(unsigned int dwUserParam) override;
    void OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                         unsigned int dwSize) override;

    CRecords m_records;  // of the connection at hand
    int m_nConnected = 0;
    int m_nFailed = 0;
    int m_nFailedAtOnce = 0;
    std::string m_strFailures;  // in their order: "0" at once, "f" later
    int m_nDisconnected = 0;

private:
    typedef std::chrono::steady_clock::time_point CTime;

    CTime m_timeConnected;
    CTime m_timeDisconnected;
    std::vector<unsigned int> m_channels;
    IWXSPChannelClient* m_pClient;
};

// Many connections that one thread reads, and keeps alive however long a slow machine takes. What
// they know is looked at inside WaitFor and Look.
// REQUIRES: packets in the channels already; a connection is made when the one before has got its
// first.
class CRawSubscribers final : public CWatched
{
public:
    CRawSubscribers(unsigned short wPort, size_t nCount, const std::vector<unsigned int>& channels);
    ~CRawSubscribers();
    CRawSubscribers(const CRawSubscribers&) = delete;
    CRawSubscribers& operator=(const CRawSubscribers&) = delete;

    // Waits until every one has come to the number on each of its channels.
    bool WaitForNumber(unsigned int dwNumber) const;

    struct CPeer
    {
        CRawSocket m_socket;
        std::string m_strBytes;  // of an incomplete packet
        CRecords m_records;
        bool m_bEnded = false;  // closed by the server
    };
    std::vector<CPeer> m_peers;

private:
    void Run();
    void KeepAlive();
    static void ReadSome(CPeer& peer);

    std::chrono::steady_clock::time_point m_timeKept = std::chrono::steady_clock::now();
    size_t m_nChannels;
    std::atomic<bool> m_bStop{false};
    std::thread m_thread;
};

// A connection that asks for channels, byte by byte, and reads only when the test does. A thread
// keeps it alive meanwhile, however long a slow machine takes.
class CLazySubscriber
{
public:
    CLazySubscriber(unsigned short wPort, const std::vector<unsigned int>& channels);
    ~CLazySubscriber();
    CLazySubscriber(const CLazySubscriber&) = delete;
    CLazySubscriber& operator=(const CLazySubscriber&) = delete;

    // Reads until the channel has come to the number.
    void ReadTo(unsigned int dwChannel, unsigned int dwNumber);

    CRawSocket m_socket;
    CRecords m_records;

private:
    void KeepAlive();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bOver = false;
    std::thread m_thread;
};

// A thread that puts numbered packets, from 0, into a channel. One that nobody reads is put again.
class CPutter final : public CWatched
{
public:
    static const unsigned int NO_LIMIT = 0xFFFFFFFF;

    CPutter(IOspreyServer* pServer, unsigned int dwChannel, std::chrono::microseconds pause,
            unsigned int dwLimit = NO_LIMIT);
    ~CPutter();
    CPutter(const CPutter&) = delete;
    CPutter& operator=(const CPutter&) = delete;

    void Stop();
    // It rests when it has put as many packets as this.
    void PutUpTo(unsigned int dwLimit);
    // How many packets it has put.
    unsigned int GetStored() const;
    bool WaitForStored(unsigned int dwStored) const;
    // Waits until a packet was not stored.
    bool WaitForRefusal() const;
    // Everything that PutChannelPacket returned.
    std::set<unsigned int> GetResults() const;

private:
    void Run();

    IOspreyServer* m_pServer;
    unsigned int m_dwChannel;
    std::chrono::microseconds m_pause;
    std::atomic<unsigned int> m_dwLimit;
    std::atomic<bool> m_bStop{false};
    unsigned int m_dwStored = 0;
    std::set<unsigned int> m_results;
    std::thread m_thread;
};

#endif
