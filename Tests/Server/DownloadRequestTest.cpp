#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "ServerFixture.h"
#include "SystemCalls.h"

namespace
{

class CDownloadTest : public CUntimedServerTest
{
protected:
    CDownloadTest()
    {
        m_host.m_bProgress = true;
        m_host.m_ullContext = 0x1122334455667788;
        Start();
        m_peer = Browse();
    }
    std::string Reply(uint32_t dwID, uint32_t dwResult, const std::string& strPath)
    {
        struct stat info = {};
        stat(strPath.c_str(), &info);
        return Wire::Dfrt(dwID, dwResult, static_cast<uint64_t>(info.st_size),
                          static_cast<uint32_t>(info.st_mtime));
    }
    // Expects the whole file, with every byte of the replies as it must be.
    void Download(uint32_t dwID, const std::string& strPath, const std::vector<size_t>& blocks)
    {
        const std::string strData = ReadFile(strPath);
        m_peer.Send(Wire::Dfil(dwID, 0, Widen(strPath)));
        EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Reply(dwID, 0, strPath)));
        size_t nDone = 0;
        for (const size_t nBlock : blocks)
        {
            EXPECT_EQ(Hex(m_peer.ReceivePacket()),
                      Hex(Wire::Dfrb(dwID, strData.substr(nDone, nBlock))));
            nDone += nBlock;
        }
        EXPECT_EQ(nDone, strData.size());
        ExpectAlive(m_peer);
    }

    CRawSocket m_peer;
};
using DownloadRequest = CDownloadTest;

TEST_F(DownloadRequest, EmptyFileIsOneEmptyBlock)
{
    Download(1, m_folder.WriteFile("f", ""), {0});
}

TEST_F(DownloadRequest, FileOf65536BytesIsOneBlockAndAnEmptyOne)
{
    Download(2, m_folder.WriteFile("f", Pattern(65536)), {65536, 0});
}

TEST_F(DownloadRequest, FileOf100000BytesIsTwoBlocksAndAnEmptyOne)
{
    Download(3, m_folder.WriteFile("f", Pattern(100000)), {65536, 34464, 0});
}

TEST_F(DownloadRequest, SizesAroundABlockArriveWhole)
{
    Download(4, m_folder.WriteFile("a", Pattern(1)), {1, 0});
    Download(5, m_folder.WriteFile("b", Pattern(65535)), {65535, 0});
    Download(6, m_folder.WriteFile("c", Pattern(65537)), {65536, 1, 0});
    Download(7, m_folder.WriteFile("d", Pattern(131072)), {65536, 65536, 0});
}

// A small file is one segment, and wakes the peer once.
TEST_F(DownloadRequest, EmptyBlockAloneIsPushed)
{
    std::mutex mutex;
    std::vector<std::pair<size_t, bool>> sent;
    const CReplacedCall sending(g_callSend,
                                [&](int s, const void* pData, size_t nSize, int nFlags)
                                {
                                    const std::lock_guard<std::mutex> lock(mutex);
                                    if ((nFlags & MSG_DONTWAIT) == 0)  // not the test's own
                                    {
                                        sent.emplace_back(nSize, (nFlags & MSG_MORE) == 0);
                                    }
                                    return g_callSend.Real(s, pData, nSize, nFlags);
                                });
    Download(8, m_folder.WriteFile("f", Pattern(1000)), {1000, 0});
    const std::lock_guard<std::mutex> lock(mutex);
    ASSERT_GE(sent.size(), 3U);
    EXPECT_EQ(sent[0], std::make_pair(size_t{40}, false));
    EXPECT_EQ(sent[1], std::make_pair(size_t{16 + 1000}, false));
    EXPECT_EQ(sent[2], std::make_pair(size_t{16}, true));
}

TEST_F(DownloadRequest, RefusalIsPushed)
{
    std::atomic<int> nHeldUp{0};
    const CReplacedCall sending(g_callSend,
                                [&](int s, const void* pData, size_t nSize, int nFlags)
                                {
                                    nHeldUp += (nFlags & MSG_MORE) != 0 ? 1 : 0;
                                    return g_callSend.Real(s, pData, nSize, nFlags);
                                });
    m_peer.Send(Wire::Dfil(9, 0, Widen(m_folder.GetPath("missing"))));
    EXPECT_EQ(Wire::GetCode(m_peer.ReceivePacket()), "DFRT");
    EXPECT_EQ(nHeldUp, 0);
}

// What has been added behind the end that was met comes too.
TEST_F(DownloadRequest, FileThatGrowsMeanwhileIsReadToItsNewEnd)
{
    const std::string strPath = m_folder.WriteFile("f", "0123456789");
    const CReplacedCall sending(g_callSend,
                                [&](int s, const void* pData, size_t nSize, int nFlags)
                                {
                                    if (nSize == 16 + 10)
                                    {
                                        m_folder.WriteFile("f", "0123456789grown");
                                    }
                                    return g_callSend.Real(s, pData, nSize, nFlags);
                                });
    m_peer.Send(Wire::Dfil(10, 0, Widen(strPath)));
    EXPECT_EQ(Wire::GetCode(m_peer.ReceivePacket()), "DFRT");
    for (const char* pszBlock : {"0123456789", "grown", ""})
    {
        EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Wire::Dfrb(10, pszBlock)));
    }
}

TEST_F(DownloadRequest, HostIsToldBeforeEachBlockIsRead)
{
    Download(8, m_folder.WriteFile("f", Pattern(100000)), {65536, 34464, 0});
    const Orb_U64 ullContext = m_host.m_ullContext;
    EXPECT_EQ(
        m_host.GetProgress(),
        (std::vector<CRecordingHost::CProgress>{
            {0, 100000, ullContext}, {65536, 100000, ullContext}, {100000, 100000, ullContext}}));
    const auto request = m_host.GetRequests()[0];
    EXPECT_EQ(request.m_eRequest, KS_REQUEST_DOWNLOAD_FILE);
    EXPECT_EQ(request.m_strName, m_folder.GetPath("f"));
    EXPECT_EQ(request.m_strResolvedOnEntry, "");
    EXPECT_FALSE(request.m_bProgressOnEntry);
    EXPECT_EQ(request.m_ullContextOnEntry, 0U);
}

TEST_F(DownloadRequest, MissingFileIsResult5WithSize0)
{
    m_peer.Send(Wire::Dfil(9, 0, Widen(m_folder.GetPath("missing"))));
    const std::string strReply = m_peer.ReceivePacket();
    EXPECT_EQ(Hex(strReply.substr(0, 28)), Hex(Wire::Dfrt(9, 5, 0, 0).substr(0, 28)));
    EXPECT_EQ(strReply.size(), 40U);
    EXPECT_EQ(Hex(strReply.substr(28)), Hex(std::string(12, '\0'))) << "nothing of the heap";
    ExpectAlive(m_peer);
}

TEST_F(DownloadRequest, OffsetOfTheSizeIsAcceptedAndSendsTheWholeFile)
{
    const std::string strPath = m_folder.WriteFile("f", "hello");
    m_peer.Send(Wire::Dfil(1, 5, Widen(strPath)));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Reply(1, 0, strPath)));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Wire::Dfrb(1, "hello")));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Wire::Dfrb(1, "")));
}

TEST_F(DownloadRequest, OffsetPastTheSizeIsResult7)
{
    const std::string strPath = m_folder.WriteFile("f", "hello");
    m_peer.Send(Wire::Dfil(1, 6, Widen(strPath)));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Reply(1, 7, strPath)));
    ExpectAlive(m_peer);
}

TEST_F(DownloadRequest, OffsetIsComparedSigned)
{
    const std::string strPath = m_folder.WriteFile("f", "x");
    m_peer.Send(Wire::Dfil(1, ~0ULL, Widen(strPath)));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Reply(1, 0, strPath)));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Wire::Dfrb(1, "x")));
    EXPECT_EQ(Hex(m_peer.ReceivePacket()), Hex(Wire::Dfrb(1, "")));
}

TEST_F(DownloadRequest, SizeOf4GiBTravelsAsHighWord1LowWord0)
{
    const std::string strPath = m_folder.WriteFile("sparse", "");
    ASSERT_EQ(truncate(strPath.c_str(), 0x100000000LL), 0);
    m_peer.Send(Wire::Dfil(1, 0x100000001, Widen(strPath)));
    const std::string strReply = m_peer.ReceivePacket();
    EXPECT_EQ(Hex(strReply), Hex(Reply(1, 7, strPath)));
    EXPECT_EQ(Wire::GetU32(strReply, 20), 1U);
    EXPECT_EQ(Wire::GetU32(strReply, 24), 0U);
}

// Opening one would wait for a writer, and nobody else would be served meanwhile.
TEST_F(DownloadRequest, FIFOIsResult6WithoutOpeningIt)
{
    const std::string strPath = m_folder.GetPath("fifo");
    ASSERT_EQ(mkfifo(strPath.c_str(), 0666), 0);
    m_peer.Send(Wire::Dfil(1, 0, Widen(strPath)));
    EXPECT_EQ(Wire::GetU32(m_peer.ReceivePacket(), 16), 6U);
    ExpectAlive(m_peer);
}

TEST_F(DownloadRequest, DirectoryOpensAndThenTheStreamStops)
{
    m_peer.Send(Wire::Dfil(1, 0, Widen(m_folder.GetPath())));
    EXPECT_EQ(Wire::GetU32(m_peer.ReceivePacket(), 16), 0U);
    ExpectAlive(m_peer);
}

// Larger than the sockets' buffers, so that the cancel comes in the middle.
TEST_F(DownloadRequest, CancelEndsItWithoutAReply)
{
    const std::string strPath = m_folder.WriteFile("big", std::string(30000000, 'x'));
    m_peer.Send(Wire::Dfil(1, 0, Widen(strPath)));
    EXPECT_EQ(Wire::GetCode(m_peer.ReceivePacket()), "DFRT");
    m_peer.Send(Wire::Caop(1) + Wire::Namc(2, u"after"));
    size_t nBlocks = 0;
    for (;;)
    {
        const std::string strPacket = m_peer.ReceivePacket();
        if (Wire::GetCode(strPacket) != "DFRB")
        {
            EXPECT_EQ(Wire::GetCode(strPacket), "NAMR");
            break;
        }
        EXPECT_GT(strPacket.size(), 16U) << "no end block";
        ++nBlocks;
    }
    EXPECT_LT(nBlocks, 30000000U / 65536);
    ExpectAlive(m_peer);
}

TEST_F(DownloadRequest, FileThatGrowsIsSentUpToWhereTheReadsEnd)
{
    // Larger than the sockets' buffers, so that it grows before its end is read.
    const std::string strBig = m_folder.WriteFile("big", std::string(20000000, 'x'));
    m_peer.Send(Wire::Dfil(1, 0, Widen(strBig)));
    const std::string strReply = m_peer.ReceivePacket();
    EXPECT_EQ(Wire::GetU32(strReply, 24), 20000000U);
    const int hBig = open(strBig.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    EXPECT_EQ(write(hBig, "tail", 4), 4);
    close(hBig);
    size_t nTotal = 0;
    std::string strLast;
    for (;;)
    {
        const std::string strBlock = m_peer.ReceivePacket();
        ASSERT_EQ(Wire::GetCode(strBlock), "DFRB");
        if (strBlock.size() == 16)
        {
            break;
        }
        nTotal += strBlock.size() - 16;
        strLast = strBlock;
    }
    EXPECT_EQ(nTotal, 20000004U);
    EXPECT_EQ(strLast.substr(strLast.size() - 4), "tail");
}

}  // namespace
