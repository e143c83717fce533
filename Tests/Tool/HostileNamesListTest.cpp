// Hundreds of names that lead out of the served folder, or to what is no file or folder, each in
// every kind of request, at one server with either way to find files.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>

#include "HostedFolder.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::u16string>;

const char SECRET[] = "outside";

// Links in the served folder, and where they lead.
const std::pair<const char*, const char*> LINKS[] = {
    {"out", "../secret"},
    {"up", ".."},
    {"top", "/"},
    {"self", "."},
    {"loop", "loop"},
    {"nowhere", "missing"},
    {"in", "dir"},
    {"chain", "up"},
    {"proc", "/proc/self"},
    {"proc-root", "/proc/self/root"},
    {"proc-fd", "/proc/self/fd"},
    {"null", "/dev/null"},
    {"zero", "/dev/zero"},
    {"etc", "/etc"},
    {"neighbour", "../rootling"},
    {"upfile", "dir/../../secret"},
};

void AddLinkNames(CNames& list)
{
    for (const auto& link : LINKS)
    {
        const std::string strLink = link.first;
        const std::u16string strName(strLink.begin(), strLink.end());
        for (const char16_t* pszBehind : {u"", u"/secret", u"/etc/passwd", u"\\root\\dir\\file"})
        {
            list.push_back(strName + pszBehind);
        }
        list.push_back(u"FILESUBMIT|" + strName + u"|secret");
        list.push_back(u"FILESUBMIT||" + strName);
    }
}

void AddDotNames(CNames& list)
{
    for (const char16_t* pszFront : {u"", u"dir/", u"dir\\", u"missing/", u"FILESUBMIT|dir|"})
    {
        for (const char16_t* pszName :
             {u"..", u".", u"../secret", u"..\\secret", u"../../secret", u"../../../../etc/passwd",
              u"..\\..\\..\\windows", u"./../secret", u".\\..\\secret", u"../root/dir/file"})
        {
            list.push_back(std::u16string(pszFront) + pszName);
        }
    }
    for (const char16_t* pszRoot : {u"..", u"../..", u"dir/..", u"dir\\..\\..", u".", u"./dir"})
    {
        list.push_back(std::u16string(u"FILESUBMIT|") + pszRoot + u"|x");
        list.push_back(std::u16string(u"FILESUBMIT|") + pszRoot + u"|secret");
    }
}

void AddAbsoluteNames(CNames& list)
{
    for (const char16_t* pszName :
         {u"etc/passwd", u"proc/self/root/etc/passwd", u"proc/self/fd/0", u"proc/self/cwd",
          u"proc/self/mem", u"dev/null", u"dev/zero", u"dev/tty", u"tmp/x", u""})
    {
        const std::u16string strName = pszName;
        for (const char16_t* pszFront : {u"/", u"\\", u"//", u"\\\\", u"FILESUBMIT|/|",
                                         u"FILESUBMIT|dir|/", u"FILESUBMIT||\\"})
        {
            list.push_back(pszFront + strName);
        }
    }
}

void AddOddNames(CNames& list)
{
    for (const char16_t* pszName : {u"",
                                    u"dir/",
                                    u"dir\\",
                                    u"dir//file",
                                    u"dir\\\\file",
                                    u"dir/\\file",
                                    u"dir/file/",
                                    u"dir/file/below",
                                    u"dir/file\\..",
                                    u"FILESUBMIT|",
                                    u"FILESUBMIT|x",
                                    u"FILESUBMIT|dir/|f",
                                    u"FILESUBMIT|dir|f/",
                                    u"FILESUBMIT|dir||/",
                                    u"fifo",
                                    u"fifo/x",
                                    u"socket",
                                    u"socket/x",
                                    u"device",
                                    u"device/x",
                                    u".osprey-0123456789abcdef.tmp",
                                    u"dir/.osprey-x"})
    {
        list.emplace_back(pszName);
    }
    for (char16_t c = 1; c < 0x20; ++c)
    {
        list.push_back(std::u16string(u"dir/") + c);
    }
    for (char16_t c = 0x7F; c < 0xA0; ++c)
    {
        list.push_back(std::u16string(u"file") + c);
    }
    list.push_back(std::u16string(256, u'a'));
    list.push_back(u"dir/" + std::u16string(300, u'a'));
    list.push_back(std::u16string(86, u'\u65E5'));  // 258 bytes of UTF-8
    list.push_back(std::u16string(4000, u'/'));
    std::u16string strDeep = u"a";
    for (int i = 0; i < 3000; ++i)
    {
        strDeep += u"/a";
    }
    list.push_back(strDeep);
}

CNames AllNames()
{
    CNames list;
    AddLinkNames(list);
    AddDotNames(list);
    AddAbsoluteNames(list);
    AddOddNames(list);
    return list;
}

class CHostileNamesListTest : public ::testing::TestWithParam<CRootFolder::EMethod>
{
protected:
    CHostileNamesListTest() : m_hosted(GetParam())
    {
        const CTempFolder& around = m_hosted.Around();
        around.WriteFile("secret", SECRET);
        fs::create_directories(around.GetPath("rootling"));
        around.WriteFile("rootling/secret", SECRET);
        fs::create_directory(m_hosted.GetPath("dir"));
        around.WriteFile("root/dir/file", "inside");
        for (const auto& link : LINKS)
        {
            fs::create_symlink(link.second, m_hosted.GetPath(link.first));
        }
        EXPECT_EQ(mkfifo(m_hosted.GetPath("fifo").c_str(), 0666), 0);
        MakeSocket();
        // Only root may; for others the name is that of a FIFO too.
        if (mknod(m_hosted.GetPath("device").c_str(), S_IFCHR | 0666, 0x105) != 0)
        {
            EXPECT_EQ(mkfifo(m_hosted.GetPath("device").c_str(), 0666), 0);
        }
        m_listBefore = ListFolder(around.GetPath());
    }

    void MakeSocket()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string strPath = m_hosted.GetPath("socket");
        ASSERT_LT(strPath.size(), sizeof address.sun_path);
        strPath.copy(address.sun_path, strPath.size());
        m_socket = CDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    CHostedFolder m_hosted;
    CDescriptor m_socket;
    std::vector<std::string> m_listBefore;
};

using HostileNamesList = CHostileNamesListTest;

}  // namespace

TEST_P(HostileNamesList, GetsNothing)
{
    const CNames listNames = AllNames();
    EXPECT_GE(listNames.size(), 200U);
    CRawSocket peer = m_hosted.Connect();
    for (const std::u16string& strName : listNames)
    {
        SCOPED_TRACE(fs::path(strName).string().substr(0, 60));
        // The served folder itself, which is there.
        const bool bRoot = strName == u"FILESUBMIT||";
        std::string strContents;
        EXPECT_EQ(Upload(peer, strName, "xxx"), 6U);
        EXPECT_EQ(Upload(peer, strName, "xxx", ~0ULL), 6U);
        EXPECT_FALSE(Download(peer, strName, strContents));
        EXPECT_EQ(MakeFolder(peer, strName), bRoot ? 0U : 8U);
        EXPECT_EQ(Delete(peer, strName), 0U);
    }
    EXPECT_EQ(ListFolder(m_hosted.Around().GetPath()), m_listBefore);
    EXPECT_EQ(ReadFile(m_hosted.Around().GetPath("secret")), SECRET);
    EXPECT_EQ(ReadFile(m_hosted.Around().GetPath("rootling/secret")), SECRET);
    EXPECT_EQ(ReadFile(m_hosted.GetPath("dir/file")), "inside");
}

INSTANTIATE_TEST_SUITE_P(Methods, HostileNamesList,
                         ::testing::Values(CRootFolder::METHOD_BEST, CRootFolder::METHOD_WALK));
