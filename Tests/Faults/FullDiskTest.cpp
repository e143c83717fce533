// A disk that is full: both ends and both hosts learn of it, nothing is reported complete, and
// everything goes on.

#include <gtest/gtest.h>

#include <algorithm>

#include "ClientRuns.h"
#include "Hex.h"
#include "PeerServer.h"
#include "ServerRun.h"
#include "SmallDisk.h"
#include "WireRecords.h"

namespace
{

const size_t DISK_SIZE = 128UL * 1024;  // so many blocks of either kind, and whole pages

class CFullDisk : public ::testing::TestWithParam<size_t>
{
protected:
    // A file that does not fit, by so many bytes.
    const std::string m_strFile = Pattern(DISK_SIZE + GetParam());
};
using FullDisk = CFullDisk;

void ExpectRefusedUpload(const std::string& strFile)
{
    CServerRun run;
    const CSmallDisk disk(run.GetFolder().GetPath(), DISK_SIZE);
    ASSERT_TRUE(run.Start());
    CTalk talk(run);
    ASSERT_TRUE(talk.Browse());

    EXPECT_FALSE(talk.Upload(1, "file", strFile));
    EXPECT_EQ(talk.GetTranscript(), "DTRT:0 UPFR:0 UPBR:0 UPBR:0 UPBR:0 UPBR:0 UPBR:11");
    for (const CRecordingHost::CProgress& step : run.m_host.m_host.GetProgress())
    {
        EXPECT_LT(step.m_ullDone, step.m_ullTotal) << "not complete for the host either";
    }

    // The disk is still full, for everybody. Once there is room, files fit again.
    CTalk next(run);
    ASSERT_TRUE(next.Browse());
    EXPECT_FALSE(next.Upload(2, "next", "small"));
    EXPECT_EQ(next.GetTranscript(), "DTRT:0 UPFR:0 UPBR:11");
    talk.Close();
    next.Ask(Wire::Caop(2) + Wire::Delt(3, run.GetWidePath("file")));
    CTalk last(run);
    ASSERT_TRUE(last.Browse());
    EXPECT_TRUE(last.Upload(4, "last", "small")) << last.GetTranscript();
    EXPECT_EQ(ReadFile(run.GetFolder().GetPath("last")), "small");
    next.Close();
    last.Close();
    run.End();
}

TEST_P(FullDisk, UploadIsRefusedAtTheBlockThatDoesNotFit)
{
    const std::string strRefused = RunWithSmallDisks([this] { ExpectRefusedUpload(m_strFile); });
    if (!strRefused.empty())
    {
        GTEST_SKIP() << "no disk of its own for a test: " << strRefused;
    }
}

void ExpectFailedDownload(const std::string& strFile)
{
    const CTempFolder folder;
    const CSmallDisk disk(folder.GetPath(), DISK_SIZE);
    CPeerServer peer;
    peer.m_files["large"] = strFile;
    peer.m_files["small"] = "small";
    COutsideFileHost<IDownloadFileClientCallback> host;
    host.m_host.m_entries = {{folder.GetPath("large"), "large", 0},
                             {folder.GetPath("small"), "small", 0}};
    CFileClient<CDownloadKind> client;
    ASSERT_TRUE(client.Start(host, peer.GetPort()));
    peer.ServeUntil("the end of the run",
                    [&] { return host.m_host.m_events.Count("no more") > 0; });
    EXPECT_TRUE(client.Stop());

    EXPECT_EQ(host.m_host.m_events.GetWithoutProgress(),
              (std::vector<std::string>{"connected", "next", "failed 11", "next", "completed",
                                        "no more"}));
    EXPECT_FALSE(FileExists(folder.GetPath("large"))) << "what failed makes room";
    EXPECT_EQ(ReadFile(folder.GetPath("small")), "small");
}

TEST_P(FullDisk, DownloadFailsAtTheBlockThatDoesNotFit)
{
    const std::string strRefused = RunWithSmallDisks([this] { ExpectFailedDownload(m_strFile); });
    if (!strRefused.empty())
    {
        GTEST_SKIP() << "no disk of its own for a test: " << strRefused;
    }
}

INSTANTIATE_TEST_SUITE_P(By, FullDisk, ::testing::Values<size_t>(1, 32768, 1000000));

}  // namespace
