#include "RootMap.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "TempFolder.h"

namespace
{

namespace fs = std::filesystem;

class CRootMapTest : public ::testing::TestWithParam<CRootFolder::EMethod>
{
protected:
    CRootMapTest() : m_root(GetParam()), m_map(m_root)
    {
        fs::create_directories(m_folder.GetPath("root/dir/sub"));
        fs::create_directories(m_folder.GetPath("rootling"));
        m_folder.WriteFile("root/dir/file", "inside");
        m_folder.WriteFile("secret", "outside");
        std::string strReason;
        EXPECT_TRUE(m_root.Open(m_folder.GetPath("root"), strReason)) << strReason;
    }

    // The path from the root on, or "refused: REASON".
    std::string Map(const std::string& strName, CRootMap::EUse eUse = CRootMap::USE_UPLOAD) const
    {
        const CRootMap::CResult result = m_map.Map(strName, eUse);
        if (!result.m_bAllowed)
        {
            EXPECT_FALSE(result.m_strReason.empty());
            return "refused: " + result.m_strReason;
        }
        EXPECT_EQ(result.m_entry.IsValid(), result.m_eKind != KIND_MISSING);
        return result.m_strShown == "." ? "" : "/" + result.m_strShown;
    }
    void Link(const std::string& strTarget, const std::string& strName) const
    {
        fs::create_symlink(strTarget, m_folder.GetPath("root/" + strName));
    }

    CTempFolder m_folder;
    CRootFolder m_root;
    CRootMap m_map;
};

const char ABSOLUTE[] = "refused: the name is absolute";
const char DOTS[] = "refused: the name has a part \".\" or \"..\"";
const char EMPTY_PART[] = "refused: a part of the name is empty";
const char CONTROL[] = "refused: the name has a control character or is no UTF-8";
const char LINK[] = "refused: it is a symbolic link";
const char BELOW_LINK[] = "refused: a part of the path is a symbolic link";

using RootMap = CRootMapTest;

}  // namespace

TEST_P(RootMap, PlainNamesTakeBothSeparators)
{
    EXPECT_EQ(Map("new"), "/new");
    EXPECT_EQ(Map("dir/file"), "/dir/file");
    EXPECT_EQ(Map("dir\\file"), "/dir/file");
    EXPECT_EQ(Map("a\\b/c"), "/a/b/c");
}

TEST_P(RootMap, SubmittedNamesJoinTheirRootAndPath)
{
    EXPECT_EQ(Map("FILESUBMIT|to|a\\b\\c"), "/to/a/b/c");
    EXPECT_EQ(Map("FILESUBMIT|to/day|a"), "/to/day/a");
    EXPECT_EQ(Map("FILESUBMIT|to\\day|a"), "/to/day/a");
    EXPECT_EQ(Map("FILESUBMIT||a\\b"), "/a/b");
}

TEST_P(RootMap, BarsBelongToNamesBehindTheSecond)
{
    EXPECT_EQ(Map("FILESUBMIT|to|a|b"), "/to/a|b");
    EXPECT_EQ(Map("a|b"), "/a|b");
    EXPECT_EQ(Map("FILESUBMIT"), "/FILESUBMIT");
}

TEST_P(RootMap, SubmittedNameWithoutAPathIsRefused)
{
    EXPECT_EQ(Map("FILESUBMIT|to"), "refused: the name has no path");
    EXPECT_EQ(Map("FILESUBMIT||"), "refused: it is the served folder itself");
}

TEST_P(RootMap, DotsAreRefusedWhereverTheyStand)
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

TEST_P(RootMap, AbsoluteNamesAreRefused)
{
    for (const char* pszName : {"/", "/etc/passwd", "\\x", "//x", "FILESUBMIT|/etc|passwd",
                                "FILESUBMIT|a|/etc/passwd", "FILESUBMIT|a|\\b", "FILESUBMIT||/x"})
    {
        EXPECT_EQ(Map(pszName), ABSOLUTE) << pszName;
    }
}

TEST_P(RootMap, EmptyNamesAndPartsAreRefused)
{
    EXPECT_EQ(Map(""), "refused: the name is empty");
    for (const char* pszName : {"a//b", "a\\\\b", "a/\\b", "a/", "a\\", "FILESUBMIT|a/|b"})
    {
        EXPECT_EQ(Map(pszName), EMPTY_PART) << pszName;
    }
}

TEST_P(RootMap, ControlCharactersAreRefused)
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

TEST_P(RootMap, WhatIsNoUTF8IsRefused)
{
    EXPECT_EQ(Map("a\xFF"), CONTROL);
    EXPECT_EQ(Map("a\xC0\xAF"
                  "b"),
              CONTROL);
}

TEST_P(RootMap, NamesInAnyScriptAreTaken)
{
    EXPECT_EQ(Map("ü/日本/😀"), "/ü/日本/😀");
    EXPECT_EQ(Map("\xEF\xBF\xBD"), "/\xEF\xBF\xBD");
}

TEST_P(RootMap, PartsHaveAtMost255Bytes)
{
    EXPECT_EQ(Map(std::string(255, 'a')), "/" + std::string(255, 'a'));
    EXPECT_EQ(Map(std::string(256, 'a')), "refused: a part of the name is too long");
}

TEST_P(RootMap, PathsStayBelowTheLimitOfTheSystem)
{
    std::string strDeep = "a";
    for (int i = 0; i < 5000; ++i)
    {
        strDeep += "/a";
    }
    EXPECT_EQ(Map(strDeep), "refused: the name is too long");
}

TEST_P(RootMap, FoldersAreNoFiles)
{
    EXPECT_EQ(Map("dir"), "refused: it is a folder");
    EXPECT_EQ(Map("dir", CRootMap::USE_DOWNLOAD), "refused: it is a folder");
    EXPECT_EQ(Map("dir", CRootMap::USE_DELETE), "refused: it is a folder");
    EXPECT_EQ(Map("dir", CRootMap::USE_CREATE_FOLDER), "/dir");
}

TEST_P(RootMap, FilesAreNoFolders)
{
    EXPECT_EQ(Map("dir/file", CRootMap::USE_CREATE_FOLDER), "refused: a file of that name exists");
    EXPECT_EQ(Map("dir/file/below"), "refused: a part of the path is no folder");
}

TEST_P(RootMap, SpecialFilesAreRefused)
{
    ASSERT_EQ(mkfifo(m_folder.GetPath("root/fifo").c_str(), 0666), 0);
    for (const CRootMap::EUse eUse :
         {CRootMap::USE_UPLOAD, CRootMap::USE_DOWNLOAD, CRootMap::USE_DELETE})
    {
        EXPECT_EQ(Map("fifo", eUse), "refused: it is no regular file");
    }
}

TEST_P(RootMap, TheRootItselfIsAFolderOnly)
{
    EXPECT_EQ(Map("FILESUBMIT||", CRootMap::USE_CREATE_FOLDER), "");
    EXPECT_EQ(Map("FILESUBMIT||", CRootMap::USE_DELETE), "refused: it is the served folder itself");
}

TEST_P(RootMap, LinksAreRefusedWhereverTheyLead)
{
    Link("../secret", "out");
    Link("..", "up");
    Link("/", "top");
    Link("/proc/self/root", "magic");
    Link("missing", "dangling");
    Link("loop", "loop");
    Link("dir", "d");
    Link("dir/file", "f");
    for (const CRootMap::EUse eUse : {CRootMap::USE_UPLOAD, CRootMap::USE_DOWNLOAD,
                                      CRootMap::USE_CREATE_FOLDER, CRootMap::USE_DELETE})
    {
        for (const std::string strLink :
             {"out", "up", "top", "magic", "dangling", "loop", "d", "f"})
        {
            EXPECT_EQ(Map(strLink, eUse), LINK) << strLink;
            EXPECT_EQ(Map(strLink + "/file", eUse), BELOW_LINK) << strLink;
            EXPECT_EQ(Map(strLink + "/etc/passwd", eUse), BELOW_LINK) << strLink;
        }
    }
}

TEST_P(RootMap, WhatWasJudgedStaysWhateverTakesItsName)
{
    const CRootMap::CResult result = m_map.Map("dir/file", CRootMap::USE_DOWNLOAD);
    ASSERT_TRUE(result.m_bAllowed);
    fs::rename(m_folder.GetPath("root/dir"), m_folder.GetPath("root/moved"));
    Link("..", "dir");
    EXPECT_EQ(ReadFile(result.m_entry.Path()), "inside");
}

TEST_P(RootMap, NamesOfFilesUnderConstructionAreKept)
{
    EXPECT_EQ(Map(".osprey-0123456789abcdef.tmp"),
              "refused: the name is kept for files under construction");
    EXPECT_EQ(Map("dir/.osprey-x", CRootMap::USE_DELETE),
              "refused: the name is kept for files under construction");
}

INSTANTIATE_TEST_SUITE_P(Methods, RootMap,
                         ::testing::Values(CRootFolder::METHOD_BEST, CRootFolder::METHOD_WALK));
