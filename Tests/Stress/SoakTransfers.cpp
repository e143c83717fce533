#include "SoakTransfers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "Hex.h"
#include "SoakPeer.h"
#include "WireRecords.h"

namespace
{

// What a host is told of a run was either all of it, then true, or its beginning and the loss of
// the connection; fails the test otherwise.
bool WasWhole(const CFileEvents& events, size_t nFiles)
{
    std::vector<std::string> whole = {"connected"};
    for (size_t i = 0; i < nFiles; ++i)
    {
        whole.insert(whole.end(), {"next", "completed"});
    }
    whole.emplace_back("no more");
    std::vector<std::string> told = events.GetWithoutProgress();
    if (told == whole)
    {
        return true;
    }
    const size_t nTold = told.size();
    while (!told.empty() &&
           (told.back() == "start failed 0" || told.back().compare(0, 13, "disconnected ") == 0))
    {
        told.pop_back();
    }
    EXPECT_LT(told.size(), nTold) << "no loss reported, but " << testing::PrintToString(told);
    whole.resize(std::min(told.size(), whole.size()));
    EXPECT_EQ(told, whole);
    return false;
}

}  // namespace

CSoakTransfers::CSoakTransfers(CSoak& soak, const std::string& strName, unsigned int dwSeed)
    : m_soak(soak), m_strName(strName), m_dice(dwSeed)
{
}

void CSoakTransfers::Run()
{
    while (!m_soak.m_bStop)
    {
        MakeFiles();
        if (m_soak.Repeat("an upload", [this] { return TryUpload(); }))
        {
            m_soak.Repeat("a download", [this] { return TryDownload(); });
        }
        m_soak.Repeat("a delete", [this] { return TryDelete(); });
        RemoveHere();
        // The pace of the connections: they must not use up the system's ports.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void CSoakTransfers::MakeFiles()
{
    m_names.clear();
    m_contents.clear();
    for (unsigned int i = m_dice.Roll(1, 12); i > 0; --i)
    {
        m_names.push_back(m_strName + std::to_string(m_dwNext++));
        m_contents.push_back(Pattern(m_dice.FileSize(), m_dice.Roll(1, 1U << 30)));
        m_soak.m_local.WriteFile(m_names.back(), m_contents.back());
    }
    m_strDirectory.clear();
    if (m_dice.Roll(0, 3) == 0)
    {
        m_strDirectory = m_strName + "dir" + std::to_string(m_dwNext++);
        EXPECT_EQ(mkdir(m_soak.m_local.GetPath(m_strDirectory).c_str(), 0700), 0);
    }
}

bool CSoakTransfers::TryUpload()
{
    CSubmitRun run;
    const auto llBase = static_cast<long long>(m_soak.m_local.GetPath().size()) + 1;
    for (const std::string& strName : m_names)
    {
        run.m_host.m_entries.push_back({m_soak.m_local.GetPath(strName), "root", llBase});
    }
    if (!m_strDirectory.empty())
    {
        run.m_host.m_entries.push_back({m_soak.m_local.GetPath(m_strDirectory), "root", llBase});
    }
    if (!run.Start(m_soak.m_wPort))
    {
        ADD_FAILURE() << "an upload did not start";
        return true;  // not to be repeated
    }
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    const bool bWhole = WasWhole(run.m_host.m_events, run.m_host.m_entries.size());
    const auto nCompleted = static_cast<size_t>(run.m_host.m_events.Count("completed"));
    ExpectServed(std::min(nCompleted, m_names.size()));
    m_soak.m_counts.m_uploads += bWhole ? m_names.size() : 0;
    if (bWhole && !m_strDirectory.empty())
    {
        EXPECT_EQ(rmdir(m_soak.m_served.GetPath(m_strDirectory).c_str()), 0) << m_strDirectory;
        ++m_soak.m_counts.m_directories;
    }
    return bWhole;
}

// What the client called complete is stored, also when the connection was lost afterwards.
void CSoakTransfers::ExpectServed(size_t nFiles) const
{
    for (size_t i = 0; i < nFiles; ++i)
    {
        EXPECT_TRUE(ReadFile(m_soak.m_served.GetPath(m_names[i])) == m_contents[i]) << m_names[i];
        m_soak.m_counts.m_bytes += m_contents[i].size();
    }
}

bool CSoakTransfers::TryDownload()
{
    CDownloadRun run;
    for (const std::string& strName : m_names)
    {
        run.m_host.m_entries.push_back({m_soak.m_local.GetPath(strName + ".back"), strName, 0});
    }
    if (!run.Start(m_soak.m_wPort))
    {
        ADD_FAILURE() << "a download did not start";
        return true;
    }
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    const bool bWhole = WasWhole(run.m_host.m_events, m_names.size());
    const auto nCompleted = static_cast<size_t>(run.m_host.m_events.Count("completed"));
    for (size_t i = 0; i < m_names.size(); ++i)
    {
        const std::string& strPath = run.m_host.m_entries[i].m_strLocalPath;
        EXPECT_EQ(FileExists(strPath), i < nCompleted) << strPath;
        if (i < nCompleted)
        {
            EXPECT_TRUE(ReadFile(strPath) == m_contents[i]) << strPath;
            m_soak.m_counts.m_bytes += m_contents[i].size();
            unlink(strPath.c_str());
        }
    }
    m_soak.m_counts.m_downloads += bWhole ? m_names.size() : 0;
    return bWhole;
}

// All of them on one connection.
bool CSoakTransfers::TryDelete()
{
    std::string strRequests = Wire::Brow();
    for (size_t i = 0; i < m_names.size(); ++i)
    {
        strRequests += Wire::Delt(static_cast<uint32_t>(i),
                                  std::u16string(m_names[i].begin(), m_names[i].end()));
    }
    CSoakPeer peer;
    bool bThere = peer.Begin(m_soak.m_wPort, strRequests);
    for (size_t i = 0; bThere && i < m_names.size(); ++i)
    {
        const std::string strAnswer = peer.ReceivePacket();
        bThere = !strAnswer.empty();
        if (bThere)
        {
            EXPECT_EQ(Wire::WithoutVersion(strAnswer),
                      Wire::WithoutVersion(Wire::Result("DTRT", static_cast<uint32_t>(i), 0)));
            EXPECT_FALSE(FileExists(m_soak.m_served.GetPath(m_names[i]))) << m_names[i];
        }
    }
    m_soak.m_counts.m_deletes += bThere ? m_names.size() : 0;
    return bThere;
}

void CSoakTransfers::RemoveHere()
{
    for (const std::string& strName : m_names)
    {
        unlink(m_soak.m_local.GetPath(strName).c_str());
    }
    if (!m_strDirectory.empty())
    {
        rmdir(m_soak.m_local.GetPath(m_strDirectory).c_str());
    }
}
