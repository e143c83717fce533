// Library against library: what is sent is what arrives.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "Hex.h"
#include "TransferTest.h"

namespace
{

class CFiles : public CTransferTest
{
protected:
    // Up, removed here, and down again: equal at both ends.
    void RoundTrip(const std::string& strName, const std::string& strData)
    {
        m_local.WriteFile(strName, strData);
        Upload({strName});
        EXPECT_TRUE(ReadFile(ServerPath(strName)) == strData) << strName;
        ASSERT_EQ(remove(m_local.GetPath(strName).c_str()), 0);
        Download({strName});
        EXPECT_TRUE(ReadFile(m_local.GetPath(strName)) == strData) << strName;
    }
};
using Files = CFiles;

TEST_F(Files, OfEverySizeAroundABlockGoUpAndComeBackEqual)
{
    for (const size_t nSize : {0U, 1U, 32767U, 32768U, 32769U, 65535U, 65536U, 65537U, 100000U,
                               131060U, 131061U, 3000000U})
    {
        RoundTrip("size" + std::to_string(nSize), Pattern(nSize));
    }
}

TEST_F(Files, WithNamesInSeveralScripts)
{
    for (const char* pszName : {"Grüße.txt", "приве́т", "日本語 ファイル", "\xF0\x9F\xA6\x85 eagle",
                                "العربية", "a b'c\"d$e;f&g", "%s%n%d"})
    {
        RoundTrip(pszName, Pattern(5000));
    }
}

TEST_F(Files, InDeepFolders)
{
    std::vector<std::string> names;
    std::string strName = "d";
    for (int i = 0; i < 60; ++i)
    {
        ASSERT_EQ(mkdir(m_local.GetPath(strName).c_str(), 0700), 0);
        names.push_back(strName);
        strName += "/d" + std::to_string(i);
    }
    const std::string strData = Pattern(70000);
    m_local.WriteFile(strName, strData);
    names.push_back(strName);
    Upload(names);
    EXPECT_TRUE(ReadFile(ServerPath(strName)) == strData);
}

TEST_F(Files, AThousandInOneRunEachWay)
{
    std::vector<std::string> names;
    for (int i = 0; i < 1000; ++i)
    {
        names.push_back("file" + std::to_string(i));
        m_local.WriteFile(names.back(), Pattern(static_cast<size_t>(i) * 37, 7));
    }
    Upload(names);
    for (const std::string& strName : names)
    {
        ASSERT_EQ(remove(m_local.GetPath(strName).c_str()), 0);
    }
    Download(names);
    for (int i = 0; i < 1000; ++i)
    {
        EXPECT_TRUE(ReadFile(m_local.GetPath(names[static_cast<size_t>(i)])) ==
                    Pattern(static_cast<size_t>(i) * 37, 7))
            << i;
    }
}

TEST_F(Files, ThatExistAreReplacedByAnUpload)
{
    m_served.WriteFile("root/file", Pattern(200000));
    m_local.WriteFile("file", "short");
    Upload({"file"});
    EXPECT_EQ(ReadFile(ServerPath("file")), "short");
}

TEST_F(Files, MissingAtThePeerAreCode5AndTheRunGoesOn)
{
    m_served.WriteFile("root/there", "data");
    CDownloadRun run;
    run.m_host.m_entries = {{m_local.GetPath("a"), "root/missing", 0},
                            {m_local.GetPath("b"), "root/there", 0},
                            {m_local.GetPath("c"), "root/there", 5}};
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(),
              (std::vector<std::string>{"connected", "next", "failed 5", "next", "completed",
                                        "next", "failed 7", "no more"}));
    EXPECT_EQ(ReadFile(m_local.GetPath("b")), "data");
}

TEST_F(Files, OnAFullDiskAreReportedAndNotSilentlyShort)
{
    m_host.m_fnResolve = [](const std::string&) { return std::string("/dev/full"); };
    m_local.WriteFile("file", Pattern(50000));
    CSubmitRun run;
    run.m_host.m_entries = {{m_local.GetPath("file"), "root", 0}};
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.GetWithoutProgress(),
              (std::vector<std::string>{"connected", "next", "failed 11", "no more"}));
}

std::string ReadTail(const std::string& strPath, off_t nOffset)
{
    char szTail[8] = {};
    const int hFile = open(strPath.c_str(), O_RDONLY);
    EXPECT_EQ(pread(hFile, szTail, sizeof szTail - 1, nOffset), 4);
    close(hFile);
    return szTail;
}

// 5 GiB on a disk would take most of the suite's time; in memory it does not.
class CLargeFile : public CFiles
{
protected:
    CLargeFile()
    {
        struct statvfs info = {};
        if (statvfs("/dev/shm", &info) == 0 &&
            static_cast<unsigned long long>(info.f_bavail) * info.f_frsize > 8ULL << 30)
        {
            m_pMemory = std::make_unique<CTempFolder>("/dev/shm");
        }
    }

    const CTempFolder& GetFolder() const
    {
        return m_pMemory != nullptr ? *m_pMemory : m_served;
    }

    std::unique_ptr<CTempFolder> m_pMemory;
};
using LargeFile = CLargeFile;

TEST_F(LargeFile, Of5GiBKeepsItsLastBytesInPlaceBothWays)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "minutes, in which no thread does what it does not do in other tests";
#endif
    const off_t nSize = 5LL << 30;
    const std::string strSource = m_local.WriteFile("large", "");
    ASSERT_EQ(truncate(strSource.c_str(), nSize), 0);
    const int hFile = open(strSource.c_str(), O_WRONLY);
    ASSERT_EQ(pwrite(hFile, "tail", 4, nSize), 4);
    close(hFile);

    const std::string strUploaded = GetFolder().GetPath("uploaded");
    m_host.m_bProgress = true;
    m_host.m_fnResolve = [&](const std::string& strName)
    { return strName == "source" ? strSource : strUploaded; };
    Upload({"large"});
    struct stat info = {};
    ASSERT_EQ(stat(strUploaded.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, nSize + 4);
    EXPECT_EQ(ReadTail(strUploaded, nSize), "tail");
    const CRecordingHost::CProgress last = m_host.GetProgress().back();
    EXPECT_EQ(last.m_ullDone, static_cast<Orb_U64>(nSize) + 4);
    EXPECT_EQ(last.m_ullTotal, static_cast<Orb_U64>(nSize) + 4);
    ASSERT_EQ(remove(strUploaded.c_str()), 0);

    CDownloadRun run;
    const std::string strDownloaded = GetFolder().GetPath("downloaded");
    run.m_host.m_entries = {{strDownloaded, "source", 0}};
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Count("completed"), 1);
    ASSERT_EQ(stat(strDownloaded.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, nSize + 4);
    EXPECT_EQ(ReadTail(strDownloaded, nSize), "tail");
}

}  // namespace
