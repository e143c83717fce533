#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <vector>

#include "ServerFixture.h"
#include "StdoutCapture.h"

namespace
{

class CUploadTest : public CUntimedServerTest
{
protected:
    CUploadTest() : m_strPath(m_folder.GetPath("file"))
    {
        m_host.m_bProgress = true;
        m_host.m_ullContext = 77;
        Start();
        m_peer = Browse();
    }
    void Open(uint64_t ullSize, uint64_t ullOffset, uint32_t dwResult, uint64_t ullReplied)
    {
        Exchange(m_peer, Wire::Upfi(9, ullSize, ullOffset, Widen(m_strPath)),
                 Wire::Upfr(9, dwResult, ullReplied));
    }
    void Block(const std::string& strData, uint32_t dwLast, uint32_t dwResult)
    {
        Exchange(m_peer, Wire::Upfb(9, dwLast, strData), Wire::Result("UPBR", 9, dwResult));
    }

    const std::string m_strPath;
    CRawSocket m_peer;
};
using UploadRequest = CUploadTest;

const uint64_t CONTINUE = ~0ULL;

TEST_F(UploadRequest, BlocksAreWrittenAndAnsweredOneByOne)
{
    const std::string strData = Pattern(70000);
    Open(70000, 0, 0, 0);
    Block(strData.substr(0, 32768), 0, 0);
    Block(strData.substr(32768, 32768), 0, 0);
    Block(strData.substr(65536), 0, 0);
    Block("", 1, 0);
    EXPECT_EQ(Hex(ReadFile(m_strPath)), Hex(strData));
    ExpectAlive(m_peer);
}

TEST_F(UploadRequest, HostIsAskedWithEverythingAndToldOfEachBlock)
{
    Exchange(m_peer, Wire::Upfi(9, 0x100000005, 0, Widen(m_strPath), 0x20, 0x1112131415161718),
             Wire::Upfr(9, 0, 0));
    Block("hello", 0, 0);
    Block("", 1, 0);
    const auto request = m_host.GetRequests()[0];
    EXPECT_EQ(request.m_eRequest, KS_REQUEST_UPLOAD_FILE);
    EXPECT_EQ(request.m_strName, m_strPath);
    EXPECT_EQ(request.m_strConnection, "(null)");
    EXPECT_EQ(request.m_dwAttributes, 0x20U);
    EXPECT_EQ(request.m_ullSize, 0x100000005U);
    EXPECT_EQ(request.m_ullTime, 0x1112131415161718U);
    EXPECT_EQ(request.m_ullOffset, 0U);
    EXPECT_EQ(request.m_strResolvedOnEntry, "");
    EXPECT_FALSE(request.m_bProgressOnEntry);
    EXPECT_EQ(request.m_ullContextOnEntry, 0U);
    EXPECT_EQ(m_host.GetProgress(),
              (std::vector<CRecordingHost::CProgress>{{5, 0x100000005, 77}, {5, 0x100000005, 77}}));
}

TEST_F(UploadRequest, TraceNamesSizeAndOffset)
{
    const CStdoutCapture capture;
    Open(0xABCDEF, CONTINUE, 0, 0);
    EXPECT_EQ(capture.Count("CUploadFileRequestHandler, Startup liSize:abcdef\n"), 1);
    EXPECT_EQ(capture.Count("CUploadFileRequestHandler, Startup llOffset:ffffffffffffffff\n"), 1);
    EXPECT_EQ(m_host.GetRequests()[0].m_ullOffset, CONTINUE) << "as received";
}

TEST_F(UploadRequest, ContinueWithoutAFileStartsAt0)
{
    Open(10, CONTINUE, 0, 0);
    Block("new", 1, 0);
    EXPECT_EQ(ReadFile(m_strPath), "new");
}

TEST_F(UploadRequest, ContinueGoesOnWhereAShorterFileEnds)
{
    m_folder.WriteFile("file", std::string(1000, 'a'));
    Open(5000, CONTINUE, 0, 1000);
    Block("bbb", 1, 0);
    EXPECT_EQ(ReadFile(m_strPath), std::string(1000, 'a') + "bbb");
    EXPECT_EQ(m_host.GetProgress()[0], (CRecordingHost::CProgress{1003, 5000, 77}));
}

TEST_F(UploadRequest, ContinueOfAFileOfTheSameSizeGoesOnAtItsEnd)
{
    m_folder.WriteFile("file", "12345");
    Open(5, CONTINUE, 0, 5);
    Block("", 1, 0);
    EXPECT_EQ(ReadFile(m_strPath), "12345");
}

TEST_F(UploadRequest, ContinueOfALongerFileStartsAnew)
{
    m_folder.WriteFile("file", "123456");
    Open(5, CONTINUE, 0, 0);
    Block("x", 1, 0);
    EXPECT_EQ(ReadFile(m_strPath), "x");
}

TEST_F(UploadRequest, AnyOtherOffsetTruncatesAndSeeksPastTheEnd)
{
    m_folder.WriteFile("file", "123456");
    Open(10, 4, 0, 4);
    Block("x", 1, 0);
    EXPECT_EQ(Hex(ReadFile(m_strPath)), Hex(std::string("\0\0\0\0x", 5)));
}

TEST_F(UploadRequest, OffsetThatCannotBeReachedIsResult6)
{
    const CStdoutCapture capture;
    Open(10, 0x8000000000000000, 6, 0x8000000000000000);
    EXPECT_EQ(capture.Count("CUploadFileRequestHandler, Startup fseek error\n"), 1);
    ExpectAlive(m_peer);
}

TEST_F(UploadRequest, FileThatCannotBeOpenedIsResult6AndEndsTheRequest)
{
    const CStdoutCapture capture;
    Exchange(m_peer, Wire::Upfi(9, 1, 0, u"/dev/null/refused"), Wire::Upfr(9, 6, 0));
    EXPECT_EQ(capture.Count("CUploadFileRequestHandler, Startup fopen error:wb+\n"), 1);
    ExpectAlive(m_peer);
    m_peer.Send(Wire::Upfb(9, 0, "ignored"));
    ExpectAlive(m_peer);
}

TEST_F(UploadRequest, FIFOIsResult6WithoutOpeningIt)
{
    ASSERT_EQ(mkfifo(m_strPath.c_str(), 0666), 0);
    Open(1, 0, 6, 0);
    ExpectAlive(m_peer);
}

TEST_F(UploadRequest, EmptyBlockWithoutTheFlagEndsIt)
{
    Open(0, 0, 0, 0);
    Block("", 0, 0);
    EXPECT_EQ(ReadFile(m_strPath), "");
    ExpectAlive(m_peer);
    m_peer.Send(Wire::Upfb(9, 0, "the request is gone"));
    ExpectAlive(m_peer);
}

TEST_F(UploadRequest, FinalBlockWithDataIsWrittenAndTold)
{
    Open(4, 0, 0, 0);
    Block("data", 1, 0);
    EXPECT_EQ(ReadFile(m_strPath), "data");
    EXPECT_EQ(m_host.GetProgress(), (std::vector<CRecordingHost::CProgress>{{4, 4, 77}}));
}

TEST_F(UploadRequest, CancelClosesTheFileAndTheNextBlockEndsTheConnection)
{
    Open(100, 0, 0, 0);
    Block("part", 0, 0);
    m_peer.Send(Wire::Caop(9));
    m_peer.Send(Wire::Upfb(9, 0, "late"));
    ExpectRefused(m_peer);
    EXPECT_EQ(ReadFile(m_strPath), "part");
}

// Nothing of a block may wait in a buffer: the reply says that it is on its way to the disk.
TEST_F(UploadRequest, BlockIsInTheFileWhenItIsAnswered)
{
    Open(100, 0, 0, 0);
    Block("now", 0, 0);
    EXPECT_EQ(ReadFile(m_strPath), "now");
}

TEST_F(UploadRequest, FullDiskIsResult11AtTheBlockThatDoesNotFit)
{
    Exchange(m_peer, Wire::Upfi(9, 100, 0, u"/dev/full"), Wire::Upfr(9, 0, 0));
    Block("does not fit", 0, 11);
    Block("neither", 1, 11);
    EXPECT_TRUE(m_host.GetProgress().empty());
    Block("", 1, 0);
}

// A limit on the size of files instead of a full disk.
TEST_F(UploadRequest, PositionIsRestoredAfterAShortWrite)
{
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    rlimit low = limit;
    low.rlim_cur = 10;
    Open(100, 0, 0, 0);
    Block("12345678", 0, 0);
    setrlimit(RLIMIT_FSIZE, &low);
    m_peer.Send(Wire::Upfb(9, 0, "abcd"));
    const std::string strReply = m_peer.ReceivePacket();
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(Wire::GetU32(strReply, 16), 11U);
    Block("ABCD", 1, 0);
    EXPECT_EQ(ReadFile(m_strPath), "12345678ABCD");
}

TEST_F(UploadRequest, TwoUploadsRunBesideEachOther)
{
    const std::string strOther = m_folder.GetPath("other");
    Open(2, 0, 0, 0);
    Exchange(m_peer, Wire::Upfi(10, 2, 0, Widen(strOther)), Wire::Upfr(10, 0, 0));
    m_peer.Send(Wire::Upfb(9, 0, "a") + Wire::Upfb(10, 0, "x") + Wire::Upfb(9, 1, "b") +
                Wire::Upfb(10, 1, "y"));
    for (const uint32_t dwID : {9U, 10U, 9U, 10U})
    {
        EXPECT_EQ(Hex(Wire::WithoutVersion(m_peer.ReceivePacket())),
                  Hex(Wire::WithoutVersion(Wire::Result("UPBR", dwID, 0))));
    }
    EXPECT_EQ(ReadFile(m_strPath), "ab");
    EXPECT_EQ(ReadFile(strOther), "xy");
}

}  // namespace
