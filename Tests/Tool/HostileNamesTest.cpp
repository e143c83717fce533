// What a peer may send to reach outside the served folder, over a raw connection to the real
// server.

#include <gtest/gtest.h>

#include <filesystem>

#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

const char SECRET[] = "outside";

class CHostileNamesTest : public ::testing::TestWithParam<std::u16string>
{
protected:
    CHostileNamesTest()
    {
        m_served.Around().WriteFile("secret", SECRET);
        fs::create_directory(m_served.GetPath("dir"));
        m_served.Around().WriteFile("root/dir/file", "inside");
        fs::create_symlink("../secret", m_served.GetPath("out"));
        fs::create_symlink("..", m_served.GetPath("up"));
        m_listBefore = ListFolder(m_served.Around().GetPath());
        m_peer = m_served.Connect();
    }

    // Nothing has changed, inside or outside, and the log says why.
    void ExpectUntouched(const char* pszRequest)
    {
        const CEvent event = m_served.Tool().WaitForEvent("refused");
        EXPECT_EQ(event["request"], pszRequest);
        EXPECT_EQ(event["connection"], "peer");
        EXPECT_FALSE(event["reason"].As<std::string>().empty());
        EXPECT_EQ(ListFolder(m_served.Around().GetPath()), m_listBefore);
        EXPECT_EQ(ReadFile(m_served.Around().GetPath("secret")), SECRET);
        EXPECT_EQ(ReadFile(m_served.GetPath("dir/file")), "inside");
    }

    CServedFolder m_served;
    std::vector<std::string> m_listBefore;
    CRawSocket m_peer;
};

using HostileNames = CHostileNamesTest;

}  // namespace

TEST_P(HostileNames, UploadIsRefused)
{
    m_peer.Send(Wire::Upfi(2, 3, 0, GetParam()));
    EXPECT_EQ(Wire::WithoutVersion(m_peer.ReceivePacket()),
              Wire::WithoutVersion(Wire::Upfr(2, 6, 0)));
    m_peer.Send(Wire::Upfb(2, 1, "xxx"));
    ExpectUntouched("upload");
}

TEST_P(HostileNames, ContinuedUploadIsRefused)
{
    m_peer.Send(Wire::Upfi(2, 3, ~0ULL, GetParam()));
    EXPECT_EQ(Wire::GetU32(m_peer.ReceivePacket(), 16), 6U);
    ExpectUntouched("upload");
}

TEST_P(HostileNames, DownloadIsRefused)
{
    m_peer.Send(Wire::Dfil(2, 0, GetParam()));
    const std::string strReply = m_peer.ReceivePacket();
    EXPECT_EQ(Wire::GetU32(strReply, 16), 5U);
    EXPECT_EQ(Wire::GetU32(strReply, 24), 0U);
    ExpectUntouched("download");
}

TEST_P(HostileNames, FolderIsRefused)
{
    m_peer.Send(Wire::Cdir(2, GetParam()));
    EXPECT_EQ(Wire::WithoutVersion(m_peer.ReceivePacket()),
              Wire::WithoutVersion(Wire::Result("CDRT", 2, 8)));
    ExpectUntouched("folder");
}

TEST_P(HostileNames, DeletionDoesNothing)
{
    m_peer.Send(Wire::Delt(2, GetParam()));
    EXPECT_EQ(Wire::WithoutVersion(m_peer.ReceivePacket()),
              Wire::WithoutVersion(Wire::Result("DTRT", 2, 0)));
    ExpectUntouched("delete");
}

INSTANTIATE_TEST_SUITE_P(
    Names, HostileNames,
    ::testing::Values(u"", u"..", u"../secret", u"..\\secret", u"/etc/passwd", u"\\etc\\passwd",
                      u"dir/../../secret", u"dir\\..\\..\\secret", u"./secret", u"dir//file",
                      u"dir/file/", u"FILESUBMIT|x", u"FILESUBMIT|..|secret",
                      u"FILESUBMIT|dir|..\\..\\secret", u"FILESUBMIT|/etc|passwd",
                      u"FILESUBMIT||/etc/passwd", u"FILESUBMIT||..\\secret", u"up/secret",
                      u"up\\root\\dir\\file", u"out", u"FILESUBMIT|up|secret", u"a\nb", u"a\u007F",
                      u"a\u0085", u"\u001B[2J", u".osprey-0123456789abcdef.tmp",
                      std::u16string(300, u'a'), std::u16string(20000, u'/'), u"dir/file/below"));
