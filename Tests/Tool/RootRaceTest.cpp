// Somebody who may write into the served folder swaps what stands there for links that lead out,
// again and again, while a peer asks for it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "HostedFolder.h"
#include "ServedFolder.h"

namespace
{

namespace fs = std::filesystem;

const int REQUESTS = 10000;
const char SECRET[] = "outside";
const char INSIDE[] = "inside";

// Repeats something on a thread of its own.
class CAgain
{
public:
    explicit CAgain(const std::function<void()>& fnWork)
        : m_thread(
              [this, fnWork]
              {
                  while (!m_bEnd)
                  {
                      fnWork();
                      ++m_dwRounds;
                  }
              })
    {
    }
    ~CAgain()
    {
        m_bEnd = true;
        m_thread.join();
    }
    CAgain(const CAgain&) = delete;
    CAgain& operator=(const CAgain&) = delete;

private:
    std::atomic<bool> m_bEnd{false};
    std::atomic<unsigned int> m_dwRounds{0};
    std::thread m_thread;  // the last: it uses the others
};

class CRootRaceTest : public ::testing::TestWithParam<CRootFolder::EMethod>
{
protected:
    CRootRaceTest() : m_hosted(GetParam()), m_strAround(m_hosted.Around().GetPath())
    {
        fs::create_directories(m_strAround + "/outside/sub");
        m_hosted.Around().WriteFile("outside/secret", SECRET);
        m_hosted.Around().WriteFile("outside/victim", SECRET);
        m_listOutside = ListFolder(m_strAround + "/outside");
    }

    // What was judged, given or changed was inside.
    void ExpectNothingOutsideChanged() const
    {
        EXPECT_EQ(ListFolder(m_strAround + "/outside"), m_listOutside);
        EXPECT_EQ(ReadFile(m_strAround + "/outside/secret"), SECRET);
        EXPECT_EQ(ReadFile(m_strAround + "/outside/victim"), SECRET);
        std::vector<std::string> listAround;
        for (const auto& entry : fs::directory_iterator(m_strAround))
        {
            listAround.push_back(entry.path().filename());
        }
        std::sort(listAround.begin(), listAround.end());
        EXPECT_EQ(listAround, (std::vector<std::string>{"outside", "root"}));
    }

    CHostedFolder m_hosted;
    const std::string m_strAround;
    std::vector<std::string> m_listOutside;
};

using RootRace = CRootRaceTest;

}  // namespace

TEST_P(RootRace, FolderSwappedForALinkGivesNothingOutside)
{
    fs::create_directory(m_hosted.GetPath("dir"));
    m_hosted.Around().WriteFile("root/dir/secret", INSIDE);
    fs::create_directory_symlink("../outside", m_hosted.GetPath("link"));
    const std::string strFolder = m_hosted.GetPath("dir");
    const std::string strLink = m_hosted.GetPath("link");
    CRawSocket peer = m_hosted.Connect();
    int nGiven = 0;
    int nRefused = 0;
    {
        const CAgain swapping(
            [&]
            {
                renameat2(AT_FDCWD, strFolder.c_str(), AT_FDCWD, strLink.c_str(), RENAME_EXCHANGE);
                std::this_thread::yield();
            });
        for (int i = 0; i < REQUESTS || ((nGiven == 0 || nRefused == 0) && i < 100 * REQUESTS); ++i)
        {
            std::string strContents;
            bool bGiven = false;
            switch (i % 4)
            {
                case 0:
                    bGiven = Download(peer, u"dir/secret", strContents);
                    EXPECT_TRUE(!bGiven || strContents == INSIDE) << strContents;
                    break;
                case 1:
                    bGiven = Upload(peer, u"dir/victim", INSIDE) == 0;
                    break;
                case 2:
                    bGiven = MakeFolder(peer, u"dir/sub/new") == 0;
                    break;
                default:
                    Delete(peer, u"dir/victim");
                    continue;
            }
            ++(bGiven ? nGiven : nRefused);
        }
    }
    EXPECT_GT(nGiven, 0) << "the folder was never met";
    EXPECT_GT(nRefused, 0) << "the link was never met";
    ExpectNothingOutsideChanged();
}

TEST_P(RootRace, FileSwappedForALinkGivesNothingOutside)
{
    const auto Swap = [this](const std::string& strName)
    {
        m_hosted.Around().WriteFile("root/spare", INSIDE);
        fs::rename(m_hosted.GetPath("spare"), m_hosted.GetPath(strName));
        fs::create_symlink("../outside/secret", m_hosted.GetPath("spare"));
        fs::rename(m_hosted.GetPath("spare"), m_hosted.GetPath(strName));
    };
    CRawSocket peer = m_hosted.Connect();
    int nGiven = 0;
    int nRefused = 0;
    {
        const CAgain swapping(
            [&]
            {
                Swap("f");
                Swap("f.osprey-partial");
            });
        for (int i = 0; i < REQUESTS || ((nGiven == 0 || nRefused == 0) && i < 100 * REQUESTS); ++i)
        {
            std::string strContents;
            bool bGiven = false;
            switch (i % 4)
            {
                case 0:
                    bGiven = Download(peer, u"f", strContents);
                    EXPECT_EQ(strContents.find(SECRET), std::string::npos) << strContents;
                    break;
                case 1:
                    bGiven = Upload(peer, u"f", INSIDE) == 0;
                    break;
                case 2:
                    bGiven = Upload(peer, u"f", INSIDE, ~0ULL) == 0;
                    break;
                default:
                    Delete(peer, u"f");
                    continue;
            }
            ++(bGiven ? nGiven : nRefused);
        }
    }
    EXPECT_GT(nGiven, 0) << "the file was never met";
    EXPECT_GT(nRefused, 0) << "the link was never met";
    ExpectNothingOutsideChanged();
}

INSTANTIATE_TEST_SUITE_P(Methods, RootRace,
                         ::testing::Values(CRootFolder::METHOD_BEST, CRootFolder::METHOD_WALK));
