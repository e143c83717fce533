// The descriptors that requests take, and that they give back.

#include <gtest/gtest.h>

#include <filesystem>

#include "HostedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

size_t CountDescriptors()
{
    size_t nCount = 0;
    for (auto it = fs::directory_iterator("/proc/self/fd"); it != fs::directory_iterator(); ++it)
    {
        ++nCount;
    }
    return nCount;
}

// Each kind of request once, granted and refused.
void AskForEverything(CRawSocket& peer)
{
    std::string strContents;
    EXPECT_EQ(Upload(peer, u"dir/f", "text"), 0U);
    EXPECT_TRUE(Download(peer, u"dir/f", strContents));
    EXPECT_EQ(Upload(peer, u"dir/f", "text", ~0ULL), 0U);
    EXPECT_EQ(MakeFolder(peer, u"dir/sub"), 0U);
    EXPECT_EQ(Delete(peer, u"dir/f"), 0U);
    EXPECT_EQ(Delete(peer, u"dir/missing"), 0U);
    EXPECT_FALSE(Download(peer, u"dir/missing", strContents));
    EXPECT_FALSE(Download(peer, u"link/f", strContents));
    EXPECT_EQ(Upload(peer, u"dir", "text"), 6U);
    EXPECT_EQ(MakeFolder(peer, u"link/x"), 8U);
}

}  // namespace

TEST(ServeDescriptors, TenThousandRequestsLeaveNone)
{
    CHostedFolder hosted;
    fs::create_symlink("dir", hosted.GetPath("link"));
    CRawSocket peer = hosted.Connect();
    AskForEverything(peer);
    const size_t nBefore = CountDescriptors();
    for (int i = 0; i < 1000; ++i)
    {
        AskForEverything(peer);
    }
    EXPECT_EQ(CountDescriptors(), nBefore);
}

// 256 files a connection is what the library grants; each may stand in a folder of its own. Beside
// the library's descriptor there is one that holds the file's lock, and the folder's.
TEST(ServeDescriptors, AreThreeAnUploadAtMostAndComeBackWithTheEndOfThePeer)
{
    CHostedFolder hosted;
    CRawSocket peer = hosted.Connect();
    const size_t nBefore = CountDescriptors();
    {
        CRawSocket greedy = hosted.Connect();
        size_t nBegun = 0;
        for (unsigned int i = 0; i < 1000; ++i)
        {
            const std::string strName = "d" + std::to_string(i % 500) + "/f";
            greedy.Send(Wire::Upfi(100 + i, 10, 0, std::u16string(strName.begin(), strName.end())));
            nBegun += Wire::GetU32(greedy.ReceivePacket(), 16) == 0 ? 1 : 0;
        }
        EXPECT_EQ(nBegun, 256U);
        EXPECT_LE(CountDescriptors(), nBefore + 3 * nBegun + 4);
    }
    // The end of a connection is met by the server in its own time.
    for (int i = 0; i < WAIT_MS / 10 && CountDescriptors() > nBefore + 1; ++i)
    {
        EXPECT_EQ(Delete(peer, u"missing"), 0U);
        usleep(10000);
    }
    EXPECT_LE(CountDescriptors(), nBefore + 1);
}

// One that is begun and given up, again and again.
TEST(ServeDescriptors, GivenUpUploadsGiveThemBack)
{
    CHostedFolder hosted;
    CRawSocket peer = hosted.Connect();
    EXPECT_EQ(Upload(peer, u"f", "text"), 0U);
    const size_t nBefore = CountDescriptors();
    for (unsigned int i = 0; i < 1000; ++i)
    {
        peer.Send(Wire::Upfi(100 + i, 10, 0, u"dir/f"));
        EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
        peer.Send(Wire::Caop(100 + i));
    }
    EXPECT_EQ(Upload(peer, u"f", "text"), 0U);
    EXPECT_EQ(CountDescriptors(), nBefore);
}

// A deleted file's room is free once nobody has it open: the server must not be the last.
TEST(ServeDescriptors, FileThatWasDownloadedIsNotKeptOpen)
{
    CHostedFolder hosted;
    CRawSocket peer = hosted.Connect();
    hosted.Around().WriteFile("root/f", "text");
    std::string strContents;
    EXPECT_TRUE(Download(peer, u"f", strContents));
    for (const auto& entry : fs::directory_iterator("/proc/self/fd"))
    {
        std::error_code error;
        EXPECT_NE(fs::read_symlink(entry.path(), error), hosted.GetPath("f"));
    }
}
