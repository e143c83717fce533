#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <vector>

#include "ServerFixture.h"

namespace
{

class CBrowserTest : public CUntimedServerTest
{
protected:
    CBrowserTest()
    {
        Start();
    }
};
using BrowserHandler = CBrowserTest;

TEST_F(BrowserHandler, RepeatedBrowIsAcceptedAndChangesNothing)
{
    CRawSocket peer = Named(u"x");
    peer.Send(Wire::Brow() + Wire::Packet("BROW", "payload"));
    ExpectAlive(peer);
}

TEST_F(BrowserHandler, UnknownCodesAreRefused)
{
    for (const std::string& strPacket :
         {Wire::Packet("????", ""), Wire::Packet("OCHS", Wire::U32(0)), Wire::Keep(),
          Wire::Packet("NAMR", Wire::U32(1) + Wire::U32(0)), Wire::U32(1) + std::string(8, '\0')})
    {
        CRawSocket peer = Browse();
        peer.Send(strPacket);
        ExpectRefused(peer);
    }
}

TEST_F(BrowserHandler, BlocksAndCancelsOfUnknownRequestsAreIgnored)
{
    CRawSocket peer = Browse();
    peer.Send(Wire::Upfb(99, 0, "data") + Wire::Upfb(99, 1, "") + Wire::Caop(99));
    ExpectAlive(peer);
}

TEST_F(BrowserHandler, ShortCancelIsIgnored)
{
    CRawSocket peer = Browse();
    for (size_t nSize = 0; nSize < 4; ++nSize)
    {
        peer.Send(Wire::Packet("CAOP", std::string(nSize, '\1')));
    }
    ExpectAlive(peer);
}

TEST_F(BrowserHandler, TwoRequestsWithOneIdAreBothAnswered)
{
    CRawSocket peer = Browse();
    peer.Send(Wire::Namc(7, u"a") + Wire::Namc(7, u"b") + Wire::Delt(7, u"/nothing"));
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "NAMR");
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "NAMR");
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "DTRT");
    ExpectAlive(peer);
}

// How many descriptors of this process, which is the server's too, stand on the file.
int CountOpen(const std::string& strPath)
{
    int nCount = 0;
    for (int h = 0; h < 1024; ++h)
    {
        char szTarget[4096] = {};
        const std::string strLink = "/proc/self/fd/" + std::to_string(h);
        if (readlink(strLink.c_str(), szTarget, sizeof szTarget - 1) > 0 && strPath == szTarget)
        {
            ++nCount;
        }
    }
    return nCount;
}

TEST_F(BrowserHandler, ReplacedUploadIsClosedBeforeTheNewOneOpensItsFile)
{
    const std::string strPath = m_folder.GetPath("file");
    CRawSocket peer = Browse();
    Exchange(peer, Wire::Upfi(7, 100, 0, Widen(strPath)), Wire::Upfr(7, 0, 0));
    Exchange(peer, Wire::Upfb(7, 0, "first"), Wire::Result("UPBR", 7, 0));
    // Continues where the first got to, which must be on disk by then.
    Exchange(peer, Wire::Upfi(7, 100, ~0ULL, Widen(strPath)), Wire::Upfr(7, 0, 5));
    EXPECT_EQ(CountOpen(strPath), 1);
    Exchange(peer, Wire::Upfb(7, 1, " second"), Wire::Result("UPBR", 7, 0));
    EXPECT_EQ(ReadFile(strPath), "first second");
}

TEST_F(BrowserHandler, BlockForARequestOfAnotherKindIsIgnored)
{
    // Larger than the sockets' buffers, so that the download is certainly alive.
    const std::string strPath = m_folder.WriteFile("big", std::string(30000000, 'x'));
    CRawSocket peer = Browse();
    peer.Send(Wire::Dfil(7, 0, Widen(strPath)));
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "DFRT");
    peer.Send(Wire::Upfb(7, 0, "data"));
    peer.Send(Wire::Upfb(7, 1, ""));
    size_t nTotal = 0;
    for (size_t nBlock = 1; nBlock != 0;)
    {
        const std::string strBlock = peer.ReceivePacket();
        ASSERT_EQ(Wire::GetCode(strBlock), "DFRB");
        nBlock = strBlock.size() - 16;
        nTotal += nBlock;
    }
    EXPECT_EQ(nTotal, 30000000U);
}

TEST_F(BrowserHandler, TheTwoHundredAndFiftySeventhOpenFileIsRefused)
{
    CRawSocket peer = Browse();
    for (uint32_t dwID = 1; dwID <= 256; ++dwID)
    {
        const std::u16string strPath = Widen(m_folder.GetPath("f" + std::to_string(dwID)));
        Exchange(peer, Wire::Upfi(dwID, 1, 0, strPath), Wire::Upfr(dwID, 0, 0));
    }
    const std::u16string strOver = Widen(m_folder.GetPath("over"));
    Exchange(peer, Wire::Upfi(300, 1, 0, strOver), Wire::Upfr(300, 6, 0));
    EXPECT_FALSE(FileExists(m_folder.GetPath("over")));
    peer.Send(Wire::Dfil(301, 0, Widen(m_folder.GetPath("f1"))));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 6U);
    // One ends, one may follow.
    Exchange(peer, Wire::Upfb(256, 1, ""), Wire::Result("UPBR", 256, 0));
    ExpectAlive(peer);
    Exchange(peer, Wire::Upfi(302, 1, 0, strOver), Wire::Upfr(302, 0, 0));
}

// A cancelled upload stays known until its next block, but holds no file.
TEST_F(BrowserHandler, CancelledUploadsLeaveRoomForFurtherOnes)
{
    CRawSocket peer = Browse();
    const std::u16string strPath = Widen(m_folder.GetPath("cancelled"));
    for (uint32_t dwID = 1; dwID <= 300; ++dwID)
    {
        Exchange(peer, Wire::Upfi(dwID, 1, 0, strPath), Wire::Upfr(dwID, 0, 0));
        peer.Send(Wire::Caop(dwID));
    }
    ExpectAlive(peer);
    const std::string strMore = m_folder.GetPath("more");
    Exchange(peer, Wire::Upfi(1000, 4, 0, Widen(strMore)), Wire::Upfr(1000, 0, 0));
    Exchange(peer, Wire::Upfb(1000, 1, "data"), Wire::Result("UPBR", 1000, 0));
    EXPECT_EQ(ReadFile(strMore), "data");
    Exchange(peer, Wire::Upfi(1, 4, 0, Widen(strMore)), Wire::Upfr(1, 0, 0));
    EXPECT_EQ(CountOpen(strMore), 1);
}

TEST_F(BrowserHandler, OpenFilesAreNotClosedToMakeRoom)
{
    CRawSocket peer = Browse();
    for (uint32_t dwID = 1; dwID <= 256; ++dwID)
    {
        const std::u16string strPath = Widen(m_folder.GetPath("f" + std::to_string(dwID)));
        Exchange(peer, Wire::Upfi(dwID, 1, 0, strPath), Wire::Upfr(dwID, 0, 0));
    }
    peer.Send(Wire::Caop(7));
    const std::u16string strMore = Widen(m_folder.GetPath("more"));
    Exchange(peer, Wire::Upfi(300, 1, 0, strMore), Wire::Upfr(300, 0, 0));
    Exchange(peer, Wire::Upfi(301, 1, 0, strMore), Wire::Upfr(301, 6, 0));
    Exchange(peer, Wire::Upfb(256, 1, "x"), Wire::Result("UPBR", 256, 0));
    EXPECT_EQ(ReadFile(m_folder.GetPath("f256")), "x");
}

TEST_F(BrowserHandler, LiveDownloadIsNotEndedToMakeRoom)
{
    const size_t nSize = 30000000;  // larger than the sockets' buffers: alive until it is read
    const std::string strBig = m_folder.WriteFile("big", std::string(nSize, 'x'));
    CRawSocket peer = Browse();
    peer.Send(Wire::Dfil(1, 0, Widen(strBig)));
    for (uint32_t dwID = 2; dwID <= 257; ++dwID)
    {
        peer.Send(Wire::Upfi(dwID, 1, 0, Widen(m_folder.GetPath("f" + std::to_string(dwID)))));
    }
    m_host.WaitForRequests(256);
    std::map<uint32_t, int> answers;  // by result
    size_t nTotal = 0;
    while (nTotal < nSize || answers[0] + answers[6] < 256)
    {
        const std::string strPacket = peer.ReceivePacket();
        ASSERT_FALSE(strPacket.empty());
        nTotal += Wire::GetCode(strPacket) == "DFRB" ? strPacket.size() - 16 : 0;
        answers[Wire::GetU32(strPacket, 16)] += Wire::GetCode(strPacket) == "UPFR" ? 1 : 0;
    }
    EXPECT_EQ(nTotal, nSize);
    EXPECT_EQ(answers[6], 1) << "the last one finds no room";
}

TEST_F(BrowserHandler, ConnectionThatEndsClosesItsFilesBeforeTheHostLearnsOfIt)
{
    const std::string strPath = m_folder.GetPath("part");
    {
        CRawSocket peer = Named(u"uploader");
        Exchange(peer, Wire::Upfi(7, 100, 0, Widen(strPath)), Wire::Upfr(7, 0, 0));
        Exchange(peer, Wire::Upfb(7, 0, "part"), Wire::Result("UPBR", 7, 0));
    }
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(ReadFile(strPath), "part");
}

TEST_F(BrowserHandler, ConnectionWithoutANameEndsWithoutACall)
{
    {
        CRawSocket peer = Browse();
        ExpectAlive(peer);
    }
    {
        CRawSocket peer = Named(u"told");
    }
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(m_host.GetDisconnects(), (std::vector<std::string>{"told"}));
}

// A peer that never reads its replies must not fill the server's memory: from some point on the
// server reads no more from it. When the peer reads after all, everything is answered.
TEST_F(BrowserHandler, PeerThatDoesNotReadIsNoLongerReadFrom)
{
    CRawSocket peer = Browse();
    const std::string strRequest = Wire::Delt(3, u"/nothing");
    std::string strMany;
    for (int i = 0; i < 1000; ++i)
    {
        strMany += strRequest;
    }
    CRawSocket other = Browse();
    size_t nSent = 0;
    size_t nStalled = 0;
    while (nStalled < 20)
    {
        const size_t nPart = peer.SendWithoutWaiting(strMany.substr(nSent % strRequest.size()));
        nSent += nPart;
        nStalled = nPart == 0 ? nStalled + 1 : 0;
        ASSERT_LT(nSent, 400000000U) << "the server never stops reading";
        ExpectAlive(other);
    }
    const size_t nLeft = (strRequest.size() - nSent % strRequest.size()) % strRequest.size();
    const size_t nRequests = (nSent + nLeft) / strRequest.size();
    for (size_t i = 0; i < nRequests; ++i)
    {
        ASSERT_EQ(peer.ReceivePacket().size(), 20U) << i << " of " << nRequests;
        if (i + 1 == nSent / strRequest.size() && nLeft != 0)
        {
            peer.Send(strRequest.substr(strRequest.size() - nLeft));
        }
    }
    ExpectAlive(peer);
}

}  // namespace
