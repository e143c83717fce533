#include "RootFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "Emulator.h"
#include "TempFolder.h"

namespace
{

namespace fs = std::filesystem;

class CRootFolderTest : public ::testing::TestWithParam<CRootFolder::EMethod>
{
protected:
    CRootFolderTest() : m_root(GetParam())
    {
        fs::create_directories(m_folder.GetPath("root/a/b"));
        m_folder.WriteFile("root/a/file", "inside");
        m_folder.WriteFile("secret", "outside");
        fs::create_symlink("..", m_folder.GetPath("root/up"));
        fs::create_symlink("/proc/self/fd", m_folder.GetPath("root/fd"));
        std::string strReason;
        EXPECT_TRUE(m_root.Open(m_folder.GetPath("root"), strReason)) << strReason;
    }

    // The errno of a path that leads to nothing; 0 when it leads to something.
    int Fault(const std::string& strPath) const
    {
        errno = 0;
        return m_root.Find(strPath).IsValid() ? 0 : errno;
    }
    EFileKind Kind(const std::string& strPath) const
    {
        struct stat info
        {
        };
        const CDescriptor found = m_root.Find(strPath);
        return fstat(found.Get(), &info) == 0 ? KindOfMode(info.st_mode) : KIND_MISSING;
    }
    int MakeFault(const std::string& strPath)
    {
        errno = 0;
        return m_root.MakeFolder(strPath, m_listCreated).IsValid() ? 0 : errno;
    }

    CTempFolder m_folder;
    CRootFolder m_root;
    std::vector<std::string> m_listCreated;
};

using RootFolder = CRootFolderTest;

}  // namespace

TEST_P(RootFolder, FindsFilesFoldersAndItself)
{
    EXPECT_EQ(Kind("a/file"), KIND_FILE);
    EXPECT_EQ(Kind("a/b"), KIND_FOLDER);
    EXPECT_EQ(Kind("."), KIND_FOLDER);
    EXPECT_EQ(ReadFile(m_root.Find("a/file").Path()), "inside");
}

TEST_P(RootFolder, SaysWhyNothingIsFound)
{
    EXPECT_EQ(Fault("missing"), ENOENT);
    EXPECT_EQ(Fault("missing/x"), ENOENT);
    EXPECT_EQ(Fault("a/file/x"), ENOTDIR);
    EXPECT_EQ(Fault("up/secret"), ELOOP);
    EXPECT_EQ(Fault("fd/1"), ELOOP);
    EXPECT_EQ(Fault("a/b/missing/x"), ENOENT);
}

TEST_P(RootFolder, FindsALinkAsALink)
{
    EXPECT_EQ(Kind("up"), KIND_LINK);
    EXPECT_EQ(Kind("fd"), KIND_LINK);
}

TEST_P(RootFolder, TakesNoPathThatIsNotPlain)
{
    for (const char* pszPath : {"..", "a/..", "a/../..", "../secret", "a/./file", "a//file", "/",
                                "/etc/passwd", "a/", "", "./a"})
    {
        EXPECT_EQ(Fault(pszPath), EINVAL) << pszPath;
        EXPECT_EQ(MakeFault(pszPath), EINVAL) << pszPath;
    }
    EXPECT_TRUE(m_listCreated.empty());
}

// Opening it as a file would wait for somebody to write.
TEST_P(RootFolder, DoesNotWaitForAFifo)
{
    ASSERT_EQ(mkfifo(m_folder.GetPath("root/fifo").c_str(), 0666), 0);
    EXPECT_EQ(Kind("fifo"), KIND_OTHER);
}

TEST_P(RootFolder, MissingFoldersAreMadeFromTheTopDown)
{
    EXPECT_EQ(MakeFault("a/x/y"), 0);
    EXPECT_EQ(m_listCreated, (std::vector<std::string>{"a/x", "a/x/y"}));
    EXPECT_TRUE(fs::is_directory(m_folder.GetPath("root/a/x/y")));
    EXPECT_EQ(MakeFault("a/x/y"), 0);
    EXPECT_EQ(MakeFault("."), 0);
    EXPECT_EQ(m_listCreated.size(), 2U);
}

TEST_P(RootFolder, FoldersAreNotMadeBelowAFileOrALink)
{
    EXPECT_EQ(MakeFault("a/file/x"), ENOTDIR);
    EXPECT_EQ(MakeFault("a/file"), ENOTDIR);
    EXPECT_EQ(MakeFault("up/x"), ELOOP);
    EXPECT_EQ(MakeFault("up"), ELOOP);
    EXPECT_TRUE(m_listCreated.empty());
    EXPECT_FALSE(FileExists(m_folder.GetPath("x")));
}

TEST_P(RootFolder, EachFileIsVisitedOnceAndLinksAreNotFollowed)
{
    ASSERT_EQ(mkfifo(m_folder.GetPath("root/a/b/fifo").c_str(), 0600), 0);
    std::vector<std::string> listNames;
    m_root.ForEachFile(
        [&](const CDescriptor& folder, const std::string& strName)
        {
            EXPECT_NE(KindAt(folder, strName), KIND_MISSING) << strName;
            listNames.push_back(strName);
        });
    std::sort(listNames.begin(), listNames.end());
    EXPECT_EQ(listNames, (std::vector<std::string>{"fd", "fifo", "file", "up"}));
}

TEST_P(RootFolder, FoldersThatVanishMeanwhileEndNoVisit)
{
    for (int i = 0; i < 20; ++i)
    {
        fs::create_directories(m_folder.GetPath("root/gone/" + std::to_string(i)));
        m_folder.WriteFile("root/gone/" + std::to_string(i) + "/deep", "");
    }
    m_folder.WriteFile("root/gone/first", "");
    size_t nDeep = 0;
    size_t nFiles = 0;
    m_root.ForEachFile(
        [&](const CDescriptor&, const std::string& strName)
        {
            nDeep += strName == "deep" ? 1 : 0;
            nFiles += strName == "file" ? 1 : 0;
            fs::remove_all(m_folder.GetPath("root/gone"));
        });
    EXPECT_EQ(nFiles, 1U) << "what stands beside it";
    EXPECT_LE(nDeep, 1U);
}

INSTANTIATE_TEST_SUITE_P(Methods, RootFolder,
                         ::testing::Values(CRootFolder::METHOD_BEST, CRootFolder::METHOD_WALK));

TEST(RootFolderOpen, OnlyAFolderCanBeServed)
{
    const CTempFolder folder;
    folder.WriteFile("file", "");
    CRootFolder root;
    std::string strReason;
    EXPECT_FALSE(root.Open(folder.GetPath("file"), strReason));
    EXPECT_EQ(strReason, "it is not a folder");
    EXPECT_FALSE(root.Open(folder.GetPath("missing"), strReason));
    EXPECT_FALSE(root.Open("", strReason));
}

TEST(RootFolderOpen, TheTopmostFolderIsLikeAnyOther)
{
    if (IsEmulated())
    {
        GTEST_SKIP() << "the emulator shows the folder of its libraries as the topmost one";
    }
    CRootFolder root;
    std::string strReason;
    ASSERT_TRUE(root.Open("/", strReason)) << strReason;
    EXPECT_EQ(root.Path(), "/");
    EXPECT_TRUE(root.Find("proc").IsValid());
    EXPECT_FALSE(root.Find("proc/self/status").IsValid()) << "a link is on the way";
}

TEST(RootFolderOpen, TheFolderMayBeALink)
{
    const CTempFolder folder;
    fs::create_directory(folder.GetPath("real"));
    fs::create_symlink("real", folder.GetPath("link"));
    CRootFolder root;
    std::string strReason;
    ASSERT_TRUE(root.Open(folder.GetPath("link"), strReason)) << strReason;
    EXPECT_EQ(root.Path(), fs::canonical(folder.GetPath("real")));
}
