// A small request, and the end of the server, while files of 4 GiB move at full speed.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "RawSocket.h"
#include "StressProcess.h"
#include "TempFolder.h"
#include "WireRecords.h"

namespace
{

const uint64_t FILE_SIZE = 4ULL << 30;
const size_t BLOCK_SIZE = 32768;

// The promise, of the full size; the everyday one runs beside other tests and sanitizers, and shows
// no more than that everybody is served.
const double MAX_MS = 50;
const int MAX_SHUTDOWN_MS = 500;

typedef std::chrono::steady_clock CClock;

// Peers that move bytes, a thread each, until they are told to end or the server ends.
class CTransfers
{
public:
    ~CTransfers()
    {
        End();
    }
    void Download(unsigned short wPort)
    {
        Begin(wPort, Wire::Dfil(1, 0, u"large"),
              [this](CRawSocket& peer)
              {
                  std::string strBytes(1 << 20, '\0');
                  const ssize_t n = recv(peer.GetHandle(), strBytes.data(), strBytes.size(), 0);
                  m_ullDown += n > 0 ? static_cast<unsigned long long>(n) : 0;
                  return n > 0;
              });
    }
    void Upload(unsigned short wPort, const std::u16string& strName)
    {
        const std::string strBlock = Wire::Upfb(1, 0, std::string(BLOCK_SIZE, 'x'));
        Begin(wPort, Wire::Upfi(1, FILE_SIZE, 0, u"FILESUBMIT|r|" + strName),
              [this, strBlock](CRawSocket& peer)
              {
                  const ssize_t n =
                      send(peer.GetHandle(), strBlock.data(), strBlock.size(), MSG_NOSIGNAL);
                  std::string strAnswer(20, '\0');
                  m_ullUp += BLOCK_SIZE;
                  return n == static_cast<ssize_t>(strBlock.size()) &&
                         recv(peer.GetHandle(), strAnswer.data(), strAnswer.size(), MSG_WAITALL) ==
                             20;
              });
    }
    void End()
    {
        m_bOver = true;
        for (CRawSocket& peer : m_peers)
        {
            shutdown(peer.GetHandle(), SHUT_RDWR);
        }
        for (std::thread& thread : m_threads)
        {
            thread.join();
        }
        m_threads.clear();
    }

    // Both ways, for as long as a slow machine takes.
    bool WaitForBytes() const
    {
        for (int nMs = 0; nMs < WAIT_MS && (m_ullDown == 0 || m_ullUp == 0); ++nMs)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return m_ullDown != 0 && m_ullUp != 0;
    }

    std::atomic<unsigned long long> m_ullDown{0};
    std::atomic<unsigned long long> m_ullUp{0};

private:
    template <class Function>
    void Begin(unsigned short wPort, const std::string& strRequest, Function fnMove)
    {
        m_peers.emplace_back();
        CRawSocket& peer = m_peers.back();
        ASSERT_TRUE(peer.Connect(wPort));
        peer.Send(Wire::Brow() + strRequest);
        ASSERT_FALSE(peer.ReceivePacket().empty()) << "DFRT or UPFR";
        m_threads.emplace_back(
            [this, &peer, fnMove]
            {
                while (!m_bOver && fnMove(peer))
                {
                }
            });
    }

    std::atomic<bool> m_bOver{false};
    std::vector<CRawSocket> m_peers = MakeRoom();
    std::vector<std::thread> m_threads;

    static std::vector<CRawSocket> MakeRoom()
    {
        std::vector<CRawSocket> peers;
        peers.reserve(16);
        return peers;
    }
};

// Milliseconds from each request to its answer, in rising order.
std::vector<double> MeasureRequests(unsigned short wPort, int nSeconds)
{
    std::vector<double> listMs;
    CRawSocket peer;
    EXPECT_TRUE(peer.Connect(wPort));
    peer.Send(Wire::Brow());
    const CClock::time_point end = CClock::now() + std::chrono::seconds(nSeconds);
    while (CClock::now() < end)
    {
        const CClock::time_point start = CClock::now();
        peer.Send(Wire::Cdir(9, u"small"));
        if (peer.ReceivePacket().empty())
        {
            break;
        }
        listMs.push_back(std::chrono::duration<double, std::milli>(CClock::now() - start).count());
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the pace of the requests
    }
    std::sort(listMs.begin(), listMs.end());
    return listMs;
}

TEST(BusyServer, AnswersSmallRequestsAndEndsInTime)
{
    const int nSeconds = IsFullStress() ? 20 : 3;
    CTempFolder folder;
    folder.WriteFile("large", "");
    ASSERT_EQ(truncate(folder.GetPath("large").c_str(), static_cast<off_t>(FILE_SIZE)), 0);
    CStressServer server(folder.GetPath());
    CTransfers transfers;
    for (int i = 0; i < 4; ++i)
    {
        transfers.Download(server.GetPort());
    }
    transfers.Upload(server.GetPort(), u"up1");
    transfers.Upload(server.GetPort(), u"up2");
    const std::vector<double> listMs = MeasureRequests(server.GetPort(), nSeconds);
    ASSERT_FALSE(listMs.empty());
    EXPECT_TRUE(transfers.WaitForBytes()) << "everybody is served";
    const unsigned long long ullDown = transfers.m_ullDown;
    const unsigned long long ullUp = transfers.m_ullUp;
    const int nShutdownMs = std::stoi(server.Obey("shutdown"));
    const double d99 = listMs[listMs.size() * 99 / 100];
    printf(
        "busy: %zu requests, median %.2f ms, 99 %% %.2f ms, longest %.2f ms; down %.0f MB/s, "
        "up %.0f MB/s; Shutdown %d ms\n",
        listMs.size(), listMs[listMs.size() / 2], d99, listMs.back(),
        static_cast<double>(ullDown) / 1e6 / nSeconds, static_cast<double>(ullUp) / 1e6 / nSeconds,
        nShutdownMs);
    EXPECT_TRUE(d99 < MAX_MS || !IsFullStress());
    EXPECT_TRUE(nShutdownMs < MAX_SHUTDOWN_MS || !IsFullStress());
}

}  // namespace
