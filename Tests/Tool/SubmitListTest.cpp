#include "SubmitList.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "TempFolder.h"

namespace
{

namespace fs = std::filesystem;

class CSubmitListTest : public ::testing::Test
{
protected:
    CSubmitListTest()
        : m_list([this](const std::string& strPath, const std::string&)
                 { m_listWarned.push_back(Name(strPath)); },
                 [this](const std::string& strPath, const std::string& strReason)
                 { m_listFailed.push_back(Name(strPath) + ": " + strReason); })
    {
    }

    std::string Name(const std::string& strPath) const
    {
        return fs::path(strPath).lexically_relative(m_folder.GetPath()).string();
    }
    bool Add(const std::vector<std::string>& listNames)
    {
        std::vector<std::string> listPaths;
        listPaths.reserve(listNames.size());
        for (const std::string& strName : listNames)
        {
            listPaths.push_back(m_folder.GetPath(strName));
        }
        return m_list.Add(listPaths, m_strReason);
    }
    // What would be sent, folders with a "/" behind.
    std::vector<std::string> Sent() const
    {
        std::vector<std::string> listResult;
        for (const CSubmitEntry& entry : m_list.Entries())
        {
            listResult.push_back(entry.Shown() + (entry.m_bFolder ? "/" : ""));
        }
        return listResult;
    }

    CTempFolder m_folder;
    std::vector<std::string> m_listWarned;
    std::vector<std::string> m_listFailed;
    std::string m_strReason;
    CSubmitList m_list;
};

using CNames = std::vector<std::string>;

using SubmitList = CSubmitListTest;

}  // namespace

TEST_F(SubmitList, FoldersComeFirstThenTheirFilesSorted)
{
    fs::create_directories(m_folder.GetPath("src/b/deep"));
    fs::create_directories(m_folder.GetPath("src/a"));
    for (const char* pszFile : {"src/z", "src/a/2", "src/a/1", "src/b/deep/f", "src/0"})
    {
        m_folder.WriteFile(pszFile, "12345");
    }
    ASSERT_TRUE(Add({"src"}));
    EXPECT_EQ(Sent(), (CNames{"src/", "src/a/", "src/b/", "src/b/deep/", "src/0", "src/a/1",
                              "src/a/2", "src/b/deep/f", "src/z"}));
    EXPECT_EQ(m_list.Files(), 5U);
    EXPECT_EQ(m_list.Bytes(), 25U);
}

TEST_F(SubmitList, FoldersOfAllPathsCanBePutFirst)
{
    for (const char* pszFolder : {"b/in", "a/in"})
    {
        fs::create_directories(m_folder.GetPath(pszFolder));
    }
    for (const char* pszFile : {"b/in/2", "b/in/1", "a/in/3", "0"})
    {
        m_folder.WriteFile(pszFile, "");
    }
    ASSERT_TRUE(Add({"b", "0", "a"}));
    EXPECT_EQ(Sent(), (CNames{"b/", "b/in/", "b/in/1", "b/in/2", "0", "a/", "a/in/", "a/in/3"}));
    m_list.PutFoldersFirst();
    EXPECT_EQ(Sent(), (CNames{"b/", "b/in/", "a/", "a/in/", "b/in/1", "b/in/2", "0", "a/in/3"}));
    EXPECT_FALSE(m_list.MayHaveTwins());
}

TEST_F(SubmitList, SingleFileGoesUnderItsOwnName)
{
    fs::create_directories(m_folder.GetPath("x/y"));
    m_folder.WriteFile("x/y/file", "1");
    ASSERT_TRUE(Add({"x/y/file"}));
    EXPECT_EQ(Sent(), CNames{"file"});
}

TEST_F(SubmitList, TrailingSlashesDoNotMatter)
{
    fs::create_directories(m_folder.GetPath("x/y"));
    m_folder.WriteFile("x/y/file", "1");
    ASSERT_TRUE(Add({"x/y///"}));
    EXPECT_EQ(Sent(), (CNames{"y/", "y/file"}));
}

TEST_F(SubmitList, DotsStandForTheFolderThatTheyName)
{
    fs::create_directories(m_folder.GetPath("x/y"));
    m_folder.WriteFile("x/y/file", "1");
    ASSERT_TRUE(Add({"x/y/."}));
    EXPECT_EQ(Sent(), (CNames{"y/", "y/file"}));
}

TEST_F(SubmitList, DoubleDotsStandForTheFolderAbove)
{
    fs::create_directories(m_folder.GetPath("x/y"));
    ASSERT_TRUE(Add({"x/y/.."}));
    EXPECT_EQ(Sent(), (CNames{"x/", "x/y/"}));
}

TEST_F(SubmitList, LinksToFilesAreFilesAndLinksToFoldersAreLeftOut)
{
    fs::create_directories(m_folder.GetPath("src/sub"));
    m_folder.WriteFile("file", "123");
    fs::create_symlink("../file", m_folder.GetPath("src/to-file"));
    fs::create_symlink("sub", m_folder.GetPath("src/to-folder"));
    ASSERT_TRUE(Add({"src"}));
    EXPECT_EQ(Sent(), (CNames{"src/", "src/sub/", "src/to-file"}));
    EXPECT_EQ(m_listWarned, CNames{"src/to-folder"});
    EXPECT_TRUE(m_listFailed.empty());
}

TEST_F(SubmitList, LinkToAFolderThatWasNamedIsFollowed)
{
    fs::create_directories(m_folder.GetPath("real"));
    m_folder.WriteFile("real/f", "1");
    fs::create_symlink("real", m_folder.GetPath("link"));
    ASSERT_TRUE(Add({"link"}));
    EXPECT_EQ(Sent(), (CNames{"link/", "link/f"}));
}

TEST_F(SubmitList, SpecialFilesInAFolderAreLeftOut)
{
    fs::create_directories(m_folder.GetPath("src"));
    ASSERT_EQ(mkfifo(m_folder.GetPath("src/fifo").c_str(), 0666), 0);
    ASSERT_TRUE(Add({"src"}));
    EXPECT_EQ(Sent(), CNames{"src/"});
    EXPECT_EQ(m_listWarned, CNames{"src/fifo"});
    EXPECT_TRUE(m_listFailed.empty());
}

TEST_F(SubmitList, SpecialFileThatWasNamedFails)
{
    ASSERT_EQ(mkfifo(m_folder.GetPath("fifo").c_str(), 0666), 0);
    ASSERT_TRUE(Add({"fifo"}));
    EXPECT_EQ(m_listFailed, CNames{"fifo: it is no regular file"});
}

TEST_F(SubmitList, WhatIsMissingFails)
{
    fs::create_directories(m_folder.GetPath("src"));
    fs::create_symlink("nowhere", m_folder.GetPath("src/dangling"));
    ASSERT_TRUE(Add({"missing", "src"}));
    EXPECT_EQ(m_listFailed, (CNames{"missing: No such file or directory",
                                    "src/dangling: the link leads nowhere"}));
}

TEST_F(SubmitList, NamesThatWouldArriveAsOthersFail)
{
    fs::create_directories(m_folder.GetPath("src"));
    m_folder.WriteFile("src/a\\b", "");
    m_folder.WriteFile("src/\xFF", "");
    ASSERT_TRUE(Add({"src"}));
    EXPECT_EQ(Sent(), CNames{"src/"});
    EXPECT_EQ(m_listFailed, (CNames{"src/a\\b: a backslash in a name would arrive as a folder",
                                    "src/\xFF: the name is no UTF-8"}));
}

TEST_F(SubmitList, TwoPathsOfOneNameAreRefused)
{
    fs::create_directories(m_folder.GetPath("x"));
    m_folder.WriteFile("a", "");
    m_folder.WriteFile("x/a", "");
    EXPECT_FALSE(Add({"a", "x/a"}));
    EXPECT_NE(m_strReason.find("one name"), std::string::npos);
    EXPECT_TRUE(Sent().empty());
}

TEST_F(SubmitList, EmptyPathFails)
{
    ASSERT_TRUE(m_list.Add({""}, m_strReason));
    EXPECT_EQ(m_listFailed.size(), 1U);
    EXPECT_TRUE(Sent().empty());
}

TEST_F(SubmitList, DeepTreesAreWalkedToTheEnd)
{
    std::string strDeep = "src";
    for (int i = 0; i < 500; ++i)
    {
        strDeep += "/d";
    }
    fs::create_directories(m_folder.GetPath(strDeep));
    ASSERT_TRUE(Add({"src"}));
    EXPECT_EQ(Sent().size(), 501U);
}
