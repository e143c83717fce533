// The upload client against a server that the test plays byte by byte.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "FileHost.h"
#include "Hex.h"
#include "ScriptedServer.h"
#include "SteppedLoops.h"
#include "StopUnderWay.h"
#include "SystemCalls.h"
#include "TempFolder.h"

namespace
{

typedef std::vector<std::string> CLines;

std::u16string Wide(const std::string& strAscii)
{
    return std::u16string(strAscii.begin(), strAscii.end());
}

class CSubmit : public ::testing::Test
{
protected:
    // Names one file of that content in the temp folder, as FILESUBMIT|root|\file.
    void Offer(const std::string& strContents)
    {
        m_strFile = m_folder.WriteFile("file", strContents);
        OfferPath(m_strFile);
    }
    void OfferPath(const std::string& strPath)
    {
        m_run.m_host.m_entries.push_back(
            {strPath, "root", static_cast<long long>(m_folder.GetPath().size())});
    }
    // Starts the run and brings it to its first request.
    void Begin()
    {
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.WelcomeClient();
    }
    void ExpectEvents(const CLines& expected)
    {
        m_run.m_host.m_events.WaitForEnd();
        m_run.Stop();
        EXPECT_EQ(m_run.m_host.m_events.Get(), expected);
    }

    const std::u16string m_strRemote = u"FILESUBMIT|root|\\file";
    CTempFolder m_folder;
    std::string m_strFile;
    CScriptedServer m_server;
    CSubmitRun m_run;
};
using SubmitFileClient = CSubmit;

TEST_F(SubmitFileClient, EmptyFileIsOneEmptyLastBlock)
{
    Offer("");
    Begin();
    m_server.TakeUpload(2, 0, m_strRemote);
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
}

TEST_F(SubmitFileClient, FileOfOneBlockIsAFullBlockAndAnEmptyLastOne)
{
    const std::string strData = Pattern(32768);
    Offer(strData);
    Begin();
    m_server.TakeUpload(2, 32768, m_strRemote);
    m_server.Expect(Wire::Upfb(2, 0, strData));
    EXPECT_TRUE(m_server.m_peer.IsSilent());
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    ExpectEvents({"connected", "next", "progress 100", "progress 100", "completed", "no more"});
}

TEST_F(SubmitFileClient, ShortLastDataBlockIsNotMarkedAsTheLast)
{
    const std::string strData = Pattern(40000);
    Offer(strData);
    Begin();
    m_server.TakeUpload(2, 40000, m_strRemote);
    m_server.Expect(Wire::Upfb(2, 0, strData.substr(0, 32768)));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 0, strData.substr(32768)));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    ExpectEvents({"connected", "next", "progress 81", "progress 100", "progress 100", "completed",
                  "no more"});
}

TEST_F(SubmitFileClient, OffsetAtOrPastTheEndGetsOneEmptyLastBlock)
{
    for (const uint64_t ullOffset : {1000ULL, 1001ULL, 0x7FFFFFFFFFFFFFFFULL})
    {
        CScriptedServer server;
        CSubmitRun run;
        run.m_host.m_entries = {{m_folder.WriteFile("file", Pattern(1000)), "root",
                                 static_cast<long long>(m_folder.GetPath().size())}};
        ASSERT_TRUE(run.Start(server.GetPort()));
        server.WelcomeClient();
        server.TakeUpload(2, 1000, m_strRemote, ullOffset);
        server.Expect(Wire::Upfb(2, 1, ""));
        server.Send(Wire::Result("UPBR", 2, 0));
        run.m_host.m_events.WaitForEnd();
        EXPECT_EQ(run.m_host.m_events.Get(),
                  (CLines{"connected", "next", "progress 100", "completed", "no more"}));
    }
}

TEST_F(SubmitFileClient, OffsetInsideTheFileContinuesThere)
{
    const std::string strData = Pattern(1000);
    Offer(strData);
    Begin();
    m_server.TakeUpload(2, 1000, m_strRemote, 600);
    m_server.Expect(Wire::Upfb(2, 0, strData.substr(600)));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    ExpectEvents({"connected", "next", "progress 40", "progress 100", "completed", "no more"});
}

TEST_F(SubmitFileClient, OffsetThatCannotBeReachedFailsToRead)
{
    Offer(Pattern(1000));
    Begin();
    m_server.TakeUpload(2, 1000, m_strRemote, 0x8000000000000000ULL);
    ExpectEvents({"connected", "next", "failed 7", "no more"});
}

TEST_F(SubmitFileClient, OffsetBeyond4GiBIsReadThere)
{
    m_strFile = m_folder.WriteFile("file", "");
    const off_t nSize = (5LL << 30) + 4;
    ASSERT_EQ(truncate(m_strFile.c_str(), nSize), 0);
    OfferPath(m_strFile);
    Begin();
    m_server.TakeUpload(2, static_cast<uint64_t>(nSize), m_strRemote, 5ULL << 30);
    m_server.Expect(Wire::Upfb(2, 0, std::string(4, '\0')));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    ExpectEvents({"connected", "next", "progress 0", "progress 100", "completed", "no more"});
}

TEST_F(SubmitFileClient, DirectoryIsCreatedAndNothingOpened)
{
    OfferPath(m_folder.GetPath());
    Begin();
    m_server.Expect(Wire::Cdir(2, u"FILESUBMIT|root|"));
    m_server.Send(Wire::Result("CDRT", 2, 0));
    ExpectEvents({"connected", "next", "completed", "no more"});
}

TEST_F(SubmitFileClient, RefusedDirectoryIsCode8)
{
    OfferPath(m_folder.GetPath());
    Begin();
    m_server.Take();
    m_server.Send(Wire::Result("CDRT", 2, 8));
    ExpectEvents({"connected", "next", "failed 8", "no more"});
}

TEST_F(SubmitFileClient, BaseLengthZeroSendsTheWholePathWithBackslashes)
{
    const std::string strFile = m_folder.WriteFile("file", "");
    m_run.m_host.m_entries = {{strFile, "", 0}};
    Begin();
    std::u16string strExpected = u"FILESUBMIT||" + Wide(strFile);
    for (char16_t& c : strExpected)
    {
        c = c == u'/' ? u'\\' : c;
    }
    m_server.TakeUpload(2, 0, strExpected);
}

TEST_F(SubmitFileClient, BaseLengthPastTheEndOrBelowZeroIsClamped)
{
    const std::string strFile = m_folder.WriteFile("file", "");
    m_run.m_host.m_entries = {{strFile, "r", 1LL << 40}};
    Begin();
    m_server.TakeUpload(2, 0, u"FILESUBMIT|r|");
}

TEST_F(SubmitFileClient, NamesInEveryScriptTravelAsUtf16)
{
    const std::string strFile = m_folder.WriteFile("Ünï-日本-\xF0\x9F\xA6\x85", "");
    m_run.m_host.m_entries = {
        {strFile, "корень", static_cast<long long>(m_folder.GetPath().size()) + 1}};
    Begin();
    m_server.TakeUpload(2, 0, u"FILESUBMIT|корень|Ünï-日本-\U0001F985");
}

TEST_F(SubmitFileClient, MissingFileIsCode5AndSendsNothing)
{
    OfferPath(m_folder.GetPath("missing"));
    Offer("");
    Begin();
    m_server.TakeUpload(2, 0, m_strRemote);
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    ExpectEvents({"connected", "next", "failed 5", "next", "progress 100", "completed", "no more"});
}

TEST_F(SubmitFileClient, FileThatCannotBeOpenedIsCode6)
{
    Offer("x");
    Begin();
    m_server.Take();
    ASSERT_EQ(remove(m_strFile.c_str()), 0);
    m_server.Send(Wire::Upfr(2, 0, 0));
    ExpectEvents({"connected", "next", "failed 6", "no more"});
}

TEST_F(SubmitFileClient, FifoIsCode6AndNobodyWaitsOnIt)
{
    const std::string strFifo = m_folder.GetPath("fifo");
    ASSERT_EQ(mkfifo(strFifo.c_str(), 0600), 0);
    OfferPath(strFifo);
    Begin();
    m_server.Take();
    m_server.Send(Wire::Upfr(2, 0, 0));
    ExpectEvents({"connected", "next", "failed 6", "no more"});
}

TEST_F(SubmitFileClient, RefusedUploadIsCode10WhateverThePeersResult)
{
    Offer("x");
    Begin();
    m_server.Take();
    m_server.Send(Wire::Upfr(2, 6, 0));
    ExpectEvents({"connected", "next", "failed 10", "no more"});
}

TEST_F(SubmitFileClient, RefusedBlockIsCode11)
{
    Offer("x");
    Begin();
    m_server.TakeUpload(2, 1, m_strRemote);
    m_server.Take();
    m_server.Send(Wire::Result("UPBR", 2, 11));
    ExpectEvents({"connected", "next", "progress 100", "failed 11", "no more"});
}

TEST_F(SubmitFileClient, FailedFileDoesNotEndTheRun)
{
    Offer("x");
    OfferPath(m_strFile);
    Begin();
    m_server.Take();
    m_server.Send(Wire::Upfr(2, 6, 0));
    m_server.TakeUpload(3, 1, m_strRemote);
    m_server.Expect(Wire::Upfb(3, 0, "x"));
    m_server.Send(Wire::Result("UPBR", 3, 0));
    m_server.Expect(Wire::Upfb(3, 1, ""));
    m_server.Send(Wire::Result("UPBR", 3, 0));
    ExpectEvents({"connected", "next", "failed 10", "next", "progress 100", "progress 100",
                  "completed", "no more"});
}

TEST_F(SubmitFileClient, StopDuringADirectoryDeletesIt)
{
    OfferPath(m_folder.GetPath());
    Begin();
    m_server.Take();
    std::thread stopper([this] { m_run.Stop(); });
    m_server.Expect(Wire::Caop(2));
    m_server.Expect(Wire::Delt(4, u"FILESUBMIT|root|"));
    m_server.Send(Wire::Result("DTRT", 4, 0));
    stopper.join();
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next"}));
}

TEST_F(SubmitFileClient, StopDuringABlockCancelsAndDeletesAndIgnoresTheLateReply)
{
    Offer(Pattern(100000));
    Begin();
    m_server.TakeUpload(2, 100000, m_strRemote);
    m_server.Take();
    std::thread stopper([this] { m_run.Stop(); });
    m_server.Expect(Wire::Caop(2));
    m_server.Expect(Wire::Delt(4, m_strRemote));
    m_server.Send(Wire::Result("UPBR", 2, 0) + Wire::Result("DTRT", 4, 0xFFFFFFFF));
    stopper.join();
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next", "progress 32"}));
    EXPECT_TRUE(m_server.m_peer.IsClosedByPeer());
}

TEST_F(SubmitFileClient, DeleteOfAStopFitsAPathOfAnyLength)
{
    std::string strDir = m_folder.GetPath();
    for (int i = 0; i < 3; ++i)
    {
        strDir += "/" + std::string(200, 'd');
        ASSERT_EQ(mkdir(strDir.c_str(), 0700), 0);
    }
    OfferPath(strDir);
    Begin();
    const std::string strRequest = m_server.Take();
    std::thread stopper([this] { m_run.Stop(); });
    m_server.Expect(Wire::Caop(2));
    const std::string strDelete = m_server.Take();
    EXPECT_EQ(Hex(strDelete.substr(16)), Hex(strRequest.substr(16)));
    EXPECT_GT(strDelete.size(), 536U);
    m_server.Send(Wire::Result("DTRT", 4, 0));
    stopper.join();
}

TEST_F(SubmitFileClient, StopWithoutAnAnswerEndsAfterTheGraceTime)
{
    OfferPath(m_folder.GetPath());
    Begin();
    m_server.Take();
    EXPECT_TRUE(m_run.Stop());
    m_server.Expect(Wire::Caop(2));
    m_server.Expect(Wire::Delt(4, u"FILESUBMIT|root|"));
    EXPECT_TRUE(m_server.m_peer.IsClosedByPeer());
}

// One stop asked from inside a callback, the next from outside while the first is still being told
// to the peer.
TEST_F(SubmitFileClient, FurtherStopDoesNotCutTheGraceTimeShort)
{
    CSteppedLoops loops;
    const CStopUnderWay stop;
    Offer(Pattern(100000));
    m_run.m_host.m_fnOnEvent = [this](const std::string& strEvent)
    {
        if (strEvent == "progress 32")
        {
            m_run.Stop();
        }
    };
    Begin();
    m_server.TakeUpload(2, 100000, m_strRemote);
    m_server.Take();
    m_server.Expect(Wire::Caop(2));
    m_server.Expect(Wire::Delt(4, m_strRemote));
    std::thread stopper([this] { m_run.Stop(); });
    stop.Wait();
    loops.WaitForSleep(1000);  // the worker has met the stop, and goes on waiting
    EXPECT_TRUE(m_server.m_peer.IsSilent());
    m_server.Send(Wire::Result("DTRT", 4, 0));
    stopper.join();
    EXPECT_TRUE(m_server.m_peer.IsClosedByPeer());
}

TEST_F(SubmitFileClient, RepeatedReplyToABlockCountsOnce)
{
    const std::string strData = Pattern(40000);
    Offer(strData);
    Begin();
    m_server.TakeUpload(2, 40000, m_strRemote);
    m_server.Expect(Wire::Upfb(2, 0, strData.substr(0, 32768)));
    const std::string strReply = Wire::Result("UPBR", 2, 0);
    m_server.Send(strReply);
    m_server.Expect(Wire::Upfb(2, 0, strData.substr(32768)));
    m_server.Send(strReply);
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(strReply);
    ExpectEvents({"connected", "next", "progress 81", "progress 100", "progress 100", "completed",
                  "no more"});
}

// The kernel takes nothing of the block: a reply to it then answers nothing.
TEST_F(SubmitFileClient, ReplyToABlockThatHasNotLeftIsIgnored)
{
    Offer("x");
    const CReplacedCall full(g_callSend,
                             [](int hSocket, const void* pData, size_t nSize, int nFlags) -> ssize_t
                             {
                                 const std::string strPacket(static_cast<const char*>(pData),
                                                             nSize);
                                 if (Wire::GetCode(strPacket) == "UPFB")
                                 {
                                     errno = EAGAIN;
                                     return -1;
                                 }
                                 return g_callSend.Real(hSocket, pData, nSize, nFlags);
                             });
    Begin();
    m_server.TakeUpload(2, 1, m_strRemote);
    m_server.Send(Wire::Result("UPBR", 2, 0) + Wire::Result("UPBR", 2, 11));
    m_server.m_peer.Close();
    ExpectEvents({"connected", "next", "progress 100", "disconnected 0"});
}

TEST_F(SubmitFileClient, SecondAnswerToTheRequestStartsTheFileAnew)
{
    Offer("abc");
    Begin();
    m_server.TakeUpload(2, 3, m_strRemote);
    m_server.Expect(Wire::Upfb(2, 0, "abc"));
    m_server.Send(Wire::Upfr(2, 0, 1));
    m_server.Expect(Wire::Upfb(2, 0, "bc"));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(m_run.m_host.m_events.Count("completed"), 1);
}

TEST_F(SubmitFileClient, ConnectionLostInAFileEndsTheRun)
{
    Offer("abc");
    OfferPath(m_strFile);
    Begin();
    m_server.TakeUpload(2, 3, m_strRemote);
    m_server.Take();
    m_server.m_peer.Reset();
    ExpectEvents(
        {"connected", "next", "progress 100", "disconnected " + std::to_string(ECONNRESET)});
}

TEST_F(SubmitFileClient, AThousandAbortedUploadsLeaveNothingBehind)
{
    const std::string strFile = m_folder.WriteFile("file", Pattern(100000));
    CRawServer server;
    for (uint32_t i = 0; i < 1000; ++i)
    {
        CSubmitRun run;
        run.m_host.m_entries = {{strFile, "", 0}};
        ASSERT_TRUE(run.Start(server.GetPort()));
        CRawSocket peer = server.Accept();
        peer.Send(Wire::Result("NAMR", 1, 0) + Wire::Upfr(2, 0, 0));
        run.m_host.m_events.WaitFor("connected");
        if (i % 3 != 0)
        {
            peer.Reset();
        }
        peer.Close();
        run.m_host.m_events.WaitForEnd();
    }
}

}  // namespace
