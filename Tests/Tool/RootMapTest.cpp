#include "RootMap.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "TempFolder.h"

namespace
{

namespace fs = std::filesystem;

class CRootMapTest : public ::testing::Test
{
protected:
    CRootMapTest()
    {
        fs::create_directories(m_folder.GetPath("root/dir/sub"));
        fs::create_directories(m_folder.GetPath("rootling"));
        m_folder.WriteFile("root/dir/file", "inside");
        m_folder.WriteFile("secret", "outside");
        std::string strReason;
        EXPECT_TRUE(m_map.Open(m_folder.GetPath("root"), strReason)) << strReason;
        m_strRoot = fs::canonical(m_folder.GetPath("root"));
    }

    // The path from the root on, or "refused: REASON".
    std::string Map(const std::string& strName, CRootMap::EUse eUse = CRootMap::USE_UPLOAD) const
    {
        const CRootMap::CResult result = m_map.Map(strName, eUse);
        if (!result.m_bAllowed)
        {
            EXPECT_FALSE(result.m_strReason.empty());
            EXPECT_EQ(result.m_strPath.empty() || result.m_strPath.find(m_strRoot) == 0, true);
            return "refused: " + result.m_strReason;
        }
        EXPECT_EQ(result.m_strPath.find(m_strRoot), 0U) << result.m_strPath;
        return result.m_strPath.substr(m_strRoot.size());
    }
    void Link(const std::string& strTarget, const std::string& strName) const
    {
        fs::create_symlink(strTarget, m_folder.GetPath("root/" + strName));
    }

    CTempFolder m_folder;
    CRootMap m_map;
    std::string m_strRoot;
};

const char ABSOLUTE[] = "refused: the name is absolute";
const char DOTS[] = "refused: the name has a part \".\" or \"..\"";
const char EMPTY_PART[] = "refused: a part of the name is empty";
const char CONTROL[] = "refused: the name has a control character or is no UTF-8";
const char LEADS_OUT[] = "refused: a symbolic link leads out of the served folder";
const char LEADS_NOWHERE[] = "refused: a symbolic link leads nowhere";

using RootMap = CRootMapTest;

}  // namespace

TEST_F(RootMap, PlainNamesTakeBothSeparators)
{
    EXPECT_EQ(Map("new"), "/new");
    EXPECT_EQ(Map("dir/file"), "/dir/file");
    EXPECT_EQ(Map("dir\\file"), "/dir/file");
    EXPECT_EQ(Map("a\\b/c"), "/a/b/c");
}

TEST_F(RootMap, SubmittedNamesJoinTheirRootAndPath)
{
    EXPECT_EQ(Map("FILESUBMIT|to|a\\b\\c"), "/to/a/b/c");
    EXPECT_EQ(Map("FILESUBMIT|to/day|a"), "/to/day/a");
    EXPECT_EQ(Map("FILESUBMIT|to\\day|a"), "/to/day/a");
    EXPECT_EQ(Map("FILESUBMIT||a\\b"), "/a/b");
}

TEST_F(RootMap, BarsBelongToNamesBehindTheSecond)
{
    EXPECT_EQ(Map("FILESUBMIT|to|a|b"), "/to/a|b");
    EXPECT_EQ(Map("a|b"), "/a|b");
    EXPECT_EQ(Map("FILESUBMIT"), "/FILESUBMIT");
}

TEST_F(RootMap, SubmittedNameWithoutAPathIsRefused)
{
    EXPECT_EQ(Map("FILESUBMIT|to"), "refused: the name has no path");
    EXPECT_EQ(Map("FILESUBMIT||"), "refused: it is the served folder itself");
}

TEST_F(RootMap, DotsAreRefusedWhereverTheyStand)
{
    for (const char* pszName :
         {"..", ".", "../x", "..\\x", "a/..", "a/../b", "a\\..\\..\\b", "./a", "a/.", "a/./b",
          "FILESUBMIT|..|a", "FILESUBMIT|a|..\\b", "FILESUBMIT|.|a", "FILESUBMIT||.."})
    {
        EXPECT_EQ(Map(pszName), DOTS) << pszName;
    }
    EXPECT_EQ(Map("..."), "/...");
    EXPECT_EQ(Map("..a/b.."), "/..a/b..");
}

TEST_F(RootMap, AbsoluteNamesAreRefused)
{
    for (const char* pszName : {"/", "/etc/passwd", "\\x", "//x", "FILESUBMIT|/etc|passwd",
                                "FILESUBMIT|a|/etc/passwd", "FILESUBMIT|a|\\b", "FILESUBMIT||/x"})
    {
        EXPECT_EQ(Map(pszName), ABSOLUTE) << pszName;
    }
}

TEST_F(RootMap, EmptyNamesAndPartsAreRefused)
{
    EXPECT_EQ(Map(""), "refused: the name is empty");
    for (const char* pszName : {"a//b", "a\\\\b", "a/\\b", "a/", "a\\", "FILESUBMIT|a/|b"})
    {
        EXPECT_EQ(Map(pszName), EMPTY_PART) << pszName;
    }
}

TEST_F(RootMap, ControlCharactersAreRefused)
{
    for (int i = 1; i < 0x20; ++i)
    {
        EXPECT_EQ(Map(std::string("a") + static_cast<char>(i)), CONTROL) << i;
    }
    EXPECT_EQ(Map(std::string("a\0b", 3)), CONTROL);
    EXPECT_EQ(Map("a\x7F"), CONTROL);
    EXPECT_EQ(Map("a\xC2\x85"), CONTROL);
    EXPECT_EQ(Map("FILESUBMIT|\n|a"), CONTROL);
}

TEST_F(RootMap, WhatIsNoUTF8IsRefused)
{
    EXPECT_EQ(Map("a\xFF"), CONTROL);
    EXPECT_EQ(Map("a\xC0\xAF"
                  "b"),
              CONTROL);
}

TEST_F(RootMap, NamesInAnyScriptAreTaken)
{
    EXPECT_EQ(Map("ü/日本/😀"), "/ü/日本/😀");
    EXPECT_EQ(Map("\xEF\xBF\xBD"), "/\xEF\xBF\xBD");
}

TEST_F(RootMap, PartsHaveAtMost255Bytes)
{
    EXPECT_EQ(Map(std::string(255, 'a')), "/" + std::string(255, 'a'));
    EXPECT_EQ(Map(std::string(256, 'a')), "refused: a part of the name is too long");
}

TEST_F(RootMap, PathsStayBelowTheLimitOfTheSystem)
{
    std::string strDeep = "a";
    for (int i = 0; i < 5000; ++i)
    {
        strDeep += "/a";
    }
    EXPECT_EQ(Map(strDeep), "refused: the name is too long");
}

TEST_F(RootMap, FoldersAreNoFiles)
{
    EXPECT_EQ(Map("dir"), "refused: it is a folder");
    EXPECT_EQ(Map("dir", CRootMap::USE_DOWNLOAD), "refused: it is a folder");
    EXPECT_EQ(Map("dir", CRootMap::USE_DELETE), "refused: it is a folder");
    EXPECT_EQ(Map("dir", CRootMap::USE_CREATE_FOLDER), "/dir");
}

TEST_F(RootMap, FilesAreNoFolders)
{
    EXPECT_EQ(Map("dir/file", CRootMap::USE_CREATE_FOLDER), "refused: a file of that name exists");
    EXPECT_EQ(Map("dir/file/below"), "refused: a part of the path is no folder");
}

TEST_F(RootMap, SpecialFilesAreRefused)
{
    ASSERT_EQ(mkfifo(m_folder.GetPath("root/fifo").c_str(), 0666), 0);
    for (const CRootMap::EUse eUse :
         {CRootMap::USE_UPLOAD, CRootMap::USE_DOWNLOAD, CRootMap::USE_DELETE})
    {
        EXPECT_EQ(Map("fifo", eUse), "refused: it is no regular file");
    }
}

TEST_F(RootMap, TheRootItselfIsAFolderOnly)
{
    EXPECT_EQ(Map("FILESUBMIT||", CRootMap::USE_CREATE_FOLDER), "");
    EXPECT_EQ(Map("FILESUBMIT||", CRootMap::USE_DELETE), "refused: it is the served folder itself");
}

TEST_F(RootMap, LinksThatLeadOutAreRefused)
{
    Link("../secret", "out");
    Link("..", "up");
    Link("/", "top");
    Link("/etc", "etc");
    // A neighbour whose name begins with the root's.
    Link("../rootling", "neighbour");
    for (const CRootMap::EUse eUse : {CRootMap::USE_UPLOAD, CRootMap::USE_DOWNLOAD,
                                      CRootMap::USE_CREATE_FOLDER, CRootMap::USE_DELETE})
    {
        for (const char* pszName : {"out", "up", "up/secret", "top/etc/passwd", "etc/passwd",
                                    "neighbour/x", "up/root/dir/../secret"})
        {
            EXPECT_EQ(Map(pszName, eUse).substr(0, 8), "refused:") << pszName;
        }
    }
    EXPECT_EQ(Map("up/secret"), LEADS_OUT);
    EXPECT_EQ(Map("up/root/dir/file"), LEADS_OUT);
    EXPECT_EQ(Map("neighbour/x"), LEADS_OUT);
}

TEST_F(RootMap, LinksThatLeadNowhereAreRefused)
{
    Link("missing", "dangling");
    Link("../missing", "dangling-out");
    Link("loop", "loop");
    for (const char* pszName : {"dangling", "dangling-out", "loop", "dangling/x", "loop/x"})
    {
        EXPECT_EQ(Map(pszName), LEADS_NOWHERE) << pszName;
        EXPECT_EQ(Map(pszName, CRootMap::USE_CREATE_FOLDER), LEADS_NOWHERE) << pszName;
    }
}

TEST_F(RootMap, LinksThatStayInsideAreFollowed)
{
    Link("dir", "d");
    Link("dir/file", "f");
    Link(".", "self");
    EXPECT_EQ(Map("d/file"), "/dir/file");
    EXPECT_EQ(Map("d/new/deep"), "/dir/new/deep");
    EXPECT_EQ(Map("f", CRootMap::USE_DOWNLOAD), "/dir/file");
    EXPECT_EQ(Map("self/self/dir/file"), "/dir/file");
}

TEST_F(RootMap, DeletionTakesTheLinkAndNotItsTarget)
{
    Link("dir/file", "f");
    Link("dir", "d");
    EXPECT_EQ(Map("f", CRootMap::USE_DELETE), "/f");
    EXPECT_EQ(Map("d/file", CRootMap::USE_DELETE), "/dir/file");
}

TEST_F(RootMap, NamesOfFilesUnderConstructionAreKept)
{
    EXPECT_EQ(Map(".osprey-0123456789abcdef.tmp"),
              "refused: the name is kept for files under construction");
    EXPECT_EQ(Map("dir/.osprey-x", CRootMap::USE_DELETE),
              "refused: the name is kept for files under construction");
}

TEST_F(RootMap, MissingFoldersAreCreatedFromTheTopDown)
{
    std::vector<std::string> listCreated;
    ASSERT_TRUE(CRootMap::CreateFolders(m_strRoot + "/dir/x/y", listCreated));
    EXPECT_EQ(listCreated,
              (std::vector<std::string>{m_strRoot + "/dir/x", m_strRoot + "/dir/x/y"}));
    EXPECT_TRUE(fs::is_directory(m_strRoot + "/dir/x/y"));
}

TEST_F(RootMap, FoldersBelowAFileAreNotCreated)
{
    std::vector<std::string> listCreated;
    EXPECT_FALSE(CRootMap::CreateFolders(m_strRoot + "/dir/file/x", listCreated));
    EXPECT_TRUE(listCreated.empty());
}

TEST(RootMapOpen, OnlyAFolderCanBeServed)
{
    const CTempFolder folder;
    folder.WriteFile("file", "");
    CRootMap map;
    std::string strReason;
    EXPECT_FALSE(map.Open(folder.GetPath("file"), strReason));
    EXPECT_EQ(strReason, "it is not a folder");
    EXPECT_FALSE(map.Open(folder.GetPath("missing"), strReason));
    EXPECT_FALSE(map.Open("", strReason));
}

TEST(RootMapOpen, TheTopmostFolderMapsLikeAnyOther)
{
    CRootMap map;
    std::string strReason;
    ASSERT_TRUE(map.Open("/", strReason));
    EXPECT_EQ(map.Map("proc/self/nothing-here", CRootMap::USE_DOWNLOAD).m_strPath.find("/proc/"),
              0U);
    EXPECT_FALSE(map.Map("/etc/passwd", CRootMap::USE_DOWNLOAD).m_bAllowed);
}
