// How much the real server lets peers store.

#include "ServeQuota.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

const uint64_t CONTINUE = ~0ULL;
const unsigned int REFUSED = 6;

unsigned int Begin(CRawSocket& peer, unsigned int dwID, uint64_t ullSize,
                   const std::u16string& strName, uint64_t ullOffset = 0)
{
    peer.Send(Wire::Upfi(dwID, ullSize, ullOffset, strName));
    return Wire::GetU32(peer.ReceivePacket(), 16);
}

void Block(CRawSocket& peer, unsigned int dwID, size_t nSize, unsigned int dwLast = 0)
{
    peer.Send(Wire::Upfb(dwID, dwLast, std::string(nSize, 'x')));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
}

// A whole upload; false when it is refused.
bool Store(CRawSocket& peer, size_t nSize, const std::u16string& strName)
{
    if (Begin(peer, 9, nSize, strName) != 0)
    {
        return false;
    }
    Block(peer, 9, nSize);
    Block(peer, 9, 0, 1);
    return true;
}

// Sends on and on until the server ends the connection.
void SendUntilEnd(CRawSocket& peer, unsigned int dwID)
{
    const std::string strBlock = Wire::Upfb(dwID, 0, std::string(500, 'x'));
    for (int i = 0; i < 20; ++i)
    {
        peer.SendWithoutWaiting(strBlock);
    }
    peer.ReceiveToEnd();
}

const char TOO_LARGE[] = "the file is larger than --max-file allows";
const char NO_ROOM[] = "--max-total leaves no room for it";

}  // namespace

TEST(ServeQuota, CountsRegularFilesAndNothingElse)
{
    const CTempFolder folder;
    fs::create_directories(folder.GetPath("a/b"));
    folder.WriteFile("one", std::string(100, 'x'));
    folder.WriteFile("a/b/two", std::string(20, 'x'));
    fs::create_symlink("one", folder.GetPath("link"));
    fs::create_directory_symlink("a", folder.GetPath("folder-link"));
    CRootFolder root;
    std::string strReason;
    ASSERT_TRUE(root.Open(folder.GetPath(), strReason));
    CServeQuota quota(0, 1000);
    quota.Count(root);
    EXPECT_EQ(quota.Total(), 120U);
    EXPECT_EQ(quota.Fault(0, 880), nullptr);
    EXPECT_STREQ(quota.Fault(0, 881), NO_ROOM);
    EXPECT_EQ(quota.Fault(20, 900), nullptr);
}

TEST(ServeQuota, UploadThatWasGivenUpMakesRoomForTheNext)
{
    CServedFolder served({"--max-total", "1000"});
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 900, u"f"), 0U);
    peer.Send(Wire::Caop(2));
    EXPECT_TRUE(Store(peer, 500, u"g"));
}

TEST(ServeQuota, NumbersNeverWrap)
{
    CServeQuota quota(0, ~0ULL - 1);
    quota.Add(~0ULL);
    quota.Add(5);
    EXPECT_EQ(quota.Total(), ~0ULL);
    EXPECT_STREQ(quota.Fault(0, 1), NO_ROOM);
    EXPECT_STREQ(quota.Fault(0, ~0ULL), NO_ROOM);
    quota.Subtract(~0ULL);
    quota.Subtract(1);
    EXPECT_EQ(quota.Total(), 0U);
}

TEST(ServeQuota, LargeFileIsRefusedAsItIsAnnounced)
{
    CServedFolder served({"--max-file", "1K"});
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 1025, u"dir/f"), REFUSED);
    const CEvent event = served.Tool().WaitForEvent("refused");
    EXPECT_EQ(event["request"], "upload");
    EXPECT_EQ(event["reason"], TOO_LARGE);
    EXPECT_EQ(Begin(peer, 3, 0xFFFFFFFFFFFFFFFFULL, u"f"), REFUSED);
    EXPECT_EQ(Begin(peer, 4, 10, u"f", 1020000), REFUSED);
    EXPECT_EQ(Begin(peer, 5, 10, u"f", 0x8000000000000000ULL), REFUSED);
    EXPECT_TRUE(served.List().empty());
    EXPECT_TRUE(Store(peer, 1024, u"f"));
    EXPECT_EQ(served.List(), CNames{"f"});
}

TEST(ServeQuota, WhoSendsMoreThanMayBeLosesTheFileAndTheConnection)
{
    for (const bool bNamed : {true, false})
    {
        CServedFolder served({"--max-file", "1K"});
        CRawSocket other = served.Connect(u"other");
        CRawSocket peer = bNamed ? served.Connect() : served.ConnectUnnamed();
        EXPECT_EQ(Begin(peer, 2, 1000, u"f"), 0U);
        Block(peer, 2, 500);
        SendUntilEnd(peer, 2);
        const CEvent event = served.Tool().WaitForEvent("refused");
        EXPECT_EQ(event["name"], "f");
        EXPECT_EQ(event["reason"], TOO_LARGE);
        EXPECT_TRUE(served.List().empty());
        EXPECT_TRUE(Store(other, 1000, u"g")) << "nobody else is ended";
    }
}

TEST(ServeQuota, WhoSendsMoreThanWasAnnouncedIsCountedStill)
{
    CServedFolder served({"--max-file", "1K"});
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 10, u"f"), 0U);
    Block(peer, 2, 10);
    Block(peer, 2, 500);
    EXPECT_EQ(served.List().size(), 1U) << "under construction";
    SendUntilEnd(peer, 2);
    EXPECT_EQ(served.Tool().WaitForEvent("refused")["reason"], TOO_LARGE);
    EXPECT_TRUE(served.List().empty());
}

TEST(ServeQuota, WhatIsContinuedCountsFromItsBeginning)
{
    CServedFolder served({"--max-file", "1K"});
    {
        CRawSocket peer = served.Connect();
        EXPECT_EQ(Begin(peer, 2, 1000, u"f"), 0U);
        Block(peer, 2, 800);
    }
    served.Tool().WaitForEvent("incomplete");
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 900, u"f", CONTINUE), 0U);
    SendUntilEnd(peer, 2);
    EXPECT_EQ(served.Tool().WaitForEvent("refused")["reason"], TOO_LARGE);
    EXPECT_TRUE(served.List().empty());
}

TEST(ServeQuota, WhatIsThereAtTheStartCounts)
{
    const CTempFolder folder;
    folder.WriteFile("old", std::string(600, 'x'));
    CToolProcess tool(
        {"serve", "--root", folder.GetPath(), "--port", "0", "--json", "--max-total", "1K"});
    CRawSocket peer;
    ASSERT_TRUE(peer.Connect(tool.WaitForEvent("listening")["port"].As<unsigned short>()));
    peer.Send(Wire::Brow());
    EXPECT_FALSE(Store(peer, 425, u"f"));
    EXPECT_EQ(tool.WaitForEvent("refused")["reason"], NO_ROOM);
    EXPECT_TRUE(Store(peer, 424, u"f"));
}

TEST(ServeQuota, DeletedAndReplacedFilesMakeRoom)
{
    CServedFolder served({"--max-total", "1000"});
    CRawSocket peer = served.Connect();
    EXPECT_TRUE(Store(peer, 600, u"a"));
    EXPECT_FALSE(Store(peer, 500, u"a")) << "both are there for a while";
    EXPECT_TRUE(Store(peer, 400, u"a"));
    EXPECT_TRUE(Store(peer, 600, u"b"));
    EXPECT_FALSE(Store(peer, 1, u"c"));
    peer.Send(Wire::Delt(3, u"b"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_FALSE(Store(peer, 601, u"c"));
    EXPECT_TRUE(Store(peer, 600, u"c"));
}

TEST(ServeQuota, UploadsUnderWayCountAsTheyAreAnnounced)
{
    CServedFolder served({"--max-total", "1000"});
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 700, u"a"), 0U);
    EXPECT_EQ(Begin(peer, 3, 301, u"b"), REFUSED);
    EXPECT_EQ(Begin(peer, 4, 300, u"b"), 0U);
    Block(peer, 4, 100);
    Block(peer, 4, 0, 1);  // it shrank on its way
    EXPECT_TRUE(Store(peer, 200, u"c"));
    EXPECT_FALSE(Store(peer, 1, u"d"));
    Block(peer, 2, 700);
    Block(peer, 2, 0, 1);
    EXPECT_EQ(served.List(), (CNames{"a", "b", "c"}));
}

TEST(ServeQuota, WhatIsKeptOfAnUploadCountsAndCanBeContinued)
{
    CServedFolder served({"--max-total", "1000"});
    {
        CRawSocket peer = served.Connect();
        EXPECT_EQ(Begin(peer, 2, 1000, u"f"), 0U);
        Block(peer, 2, 600);
    }
    served.Tool().WaitForEvent("incomplete");
    CRawSocket peer = served.Connect();
    EXPECT_FALSE(Store(peer, 401, u"g"));
    EXPECT_EQ(Begin(peer, 2, 1000, u"f", CONTINUE), 0U);
    EXPECT_FALSE(Store(peer, 1, u"g"));
    Block(peer, 2, 400);
    Block(peer, 2, 0, 1);
    EXPECT_EQ(served.List(), CNames{"f"});
    peer.Send(Wire::Delt(3, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_TRUE(Store(peer, 1000, u"g"));
}

TEST(ServeQuota, WhoGrowsPastTheTotalIsEnded)
{
    CServedFolder served({"--max-total", "1000"});
    CRawSocket other = served.Connect(u"other");
    EXPECT_TRUE(Store(other, 400, u"a"));
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 10, u"f"), 0U);
    SendUntilEnd(peer, 2);
    EXPECT_EQ(served.Tool().WaitForEvent("refused")["reason"], NO_ROOM);
    EXPECT_EQ(served.List(), CNames{"a"});
    EXPECT_TRUE(Store(other, 600, u"b"));
}

// It goes to the end of an upload that begins behind the end of its file, and sends nothing.
TEST(ServeQuota, WhatIsNotThereDoesNotCountAfterTheEnd)
{
    CServedFolder served({"--max-total", "1000"});
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 0, u"f", 900), 0U);
    EXPECT_FALSE(Store(peer, 101, u"g")) << "it may still come";
    Block(peer, 2, 0, 1);
    EXPECT_TRUE(Store(peer, 1000, u"g"));
}

TEST(ServeQuota, WhatIsKeptMakesRoomForTheWholeFile)
{
    CServedFolder served({"--max-total", "1000"});
    {
        CRawSocket peer = served.Connect();
        EXPECT_EQ(Begin(peer, 2, 700, u"f"), 0U);
        Block(peer, 2, 600);
    }
    served.Tool().WaitForEvent("incomplete");
    EXPECT_EQ(served.List(), CNames{"f.osprey-partial"});
    CRawSocket peer = served.Connect();
    EXPECT_FALSE(Store(peer, 700, u"g"));
    EXPECT_TRUE(Store(peer, 700, u"f"));
    EXPECT_EQ(served.List(), CNames{"f"});
    EXPECT_TRUE(Store(peer, 300, u"g"));
}

// Two peers share a name, and one of them gives it up.
TEST(ServeQuota, UploadIsCountedWhateverItsConnectionIsCalledMeanwhile)
{
    CServedFolder served({"--max-file", "1K"});
    CRawSocket peer = served.Connect(u"twin");
    EXPECT_EQ(Begin(peer, 2, 10, u"f"), 0U);
    peer.Send(Wire::Namc(5, u"other"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    served.Connect(u"twin").Close();
    served.Tool().WaitForEvent("disconnected");
    SendUntilEnd(peer, 2);
    EXPECT_EQ(served.Tool().WaitForEvent("refused")["reason"], TOO_LARGE);
    EXPECT_TRUE(served.List().empty());
}

TEST(ServeQuota, FileThatCannotHaveItsNameCountsAsKept)
{
    CServedFolder served({"--max-total", "1000"});
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Begin(peer, 2, 10, u"f"), 0U);
    peer.Send(Wire::Cdir(3, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    peer.Send(Wire::Upfb(2, 1, std::string(10, 'x')));
    peer.ReceiveToEnd();
    EXPECT_EQ(served.Tool().WaitForEvent("failed")["request"], "upload");
    CRawSocket other = served.Connect(u"other");
    EXPECT_FALSE(Store(other, 991, u"g"));
    EXPECT_TRUE(Store(other, 990, u"g"));
}
