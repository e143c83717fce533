#include "ServerScenarios.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Hex.h"
#include "WireRecords.h"

namespace
{

const size_t FILE_SIZE = 200UL * 1024;
const unsigned int CHANNEL = 7;
const int PACKETS = 100;

int CountWords(const std::string& strTranscript, const std::string& strWord)
{
    int nCount = 0;
    const std::string strAll = " " + strTranscript + " ";
    for (size_t n = strAll.find(" " + strWord + " "); n != std::string::npos;
         n = strAll.find(" " + strWord + " ", n + 1))
    {
        ++nCount;
    }
    return nCount;
}

class CStarting final : public CServerScenario
{
public:
    void Prepare() override {}
    void Play() override
    {
        m_bStarted = m_run.Start();
        m_talk.Note(m_bStarted ? "start:0" : "start:1");
    }
};

class CAccepting final : public CServerScenario
{
public:
    void Play() override
    {
        m_talk.Browse();
    }
};

// One request on a connection that stands.
class CRequest : public CServerScenario
{
public:
    void Prepare() override
    {
        CServerScenario::Prepare();
        ASSERT_TRUE(m_talk.Browse());
    }
};

class CNaming final : public CRequest
{
public:
    void Play() override
    {
        m_talk.Ask(Wire::Namc(1, u"a name that is longer than a short one"));
    }
    void Check() override
    {
        m_talk.Close();
        if (CountWords(GetTranscript(), "NAMR:0") != 0)
        {
            EXPECT_TRUE(m_run.m_host.m_host.WaitForDisconnects(1)) << "the connection has a name";
        }
    }
};

class CCreatingFolders final : public CRequest
{
public:
    void Play() override
    {
        m_talk.Ask(Wire::Cdir(1, m_run.GetWidePath("one/two/three/four")));
    }
    void Check() override
    {
        if (CountWords(GetTranscript(), "CDRT:0") != 0)
        {
            EXPECT_TRUE(FileExists(m_run.GetFolder().GetPath("one/two/three/four")));
        }
    }
};

class CDeleting final : public CRequest
{
public:
    void Prepare() override
    {
        CRequest::Prepare();
        m_run.GetFolder().WriteFile("file", "contents");
    }
    void Play() override
    {
        m_talk.Ask(Wire::Delt(1, m_run.GetWidePath("file")));
    }
    void Check() override
    {
        const bool bGone = !FileExists(m_run.GetFolder().GetPath("file"));
        EXPECT_FALSE(bGone && CountWords(GetTranscript(), "DTRT:4294967295") != 0)
            << "a file that is gone was deleted";
    }
};

class CDownloading final : public CRequest
{
public:
    void Prepare() override
    {
        CRequest::Prepare();
        m_run.GetFolder().WriteFile("file", m_strFile);
    }
    void Play() override
    {
        m_bComplete = m_talk.Download(1, "file", m_strData);
    }
    void Check() override
    {
        EXPECT_EQ(m_strData, m_strFile.substr(0, m_strData.size()));
        EXPECT_TRUE(!m_bComplete || m_strData.size() == m_strFile.size());
    }

private:
    const std::string m_strFile = Pattern(FILE_SIZE);
    std::string m_strData;
    bool m_bComplete = false;
};

class CUploading : public CRequest
{
public:
    void Play() override
    {
        m_bComplete = m_talk.Upload(1, "file", m_strFile);
    }
    void Check() override
    {
        const std::string strPath = m_run.GetFolder().GetPath("file");
        const auto progress = m_run.m_host.m_host.GetProgress();
        const bool bReported = std::any_of(progress.begin(), progress.end(),
                                           [](const CRecordingHost::CProgress& step)
                                           { return step.m_ullDone == step.m_ullTotal; });
        if (m_bComplete || bReported)
        {
            EXPECT_TRUE(ReadFile(strPath) == m_strFile) << "what is complete is there";
        }
        EXPECT_FALSE(m_bComplete && CFaultPlan::IsInjected(CALL_FCLOSE))
            << "what could not be closed may not be there";
        if (CountWords(GetTranscript(), "UPBR:11") != 0)
        {
            EXPECT_EQ(progress.size(), static_cast<size_t>(CountWords(GetTranscript(), "UPBR:0")))
                << "a transfer that fails makes no further call";
        }
    }

protected:
    std::string m_strFile = Pattern(FILE_SIZE);
    bool m_bComplete = false;
};

// A peer may mark a block with data as the last one.
class CUploadingAtOnce final : public CUploading
{
public:
    void Play() override
    {
        m_strFile = "a file that is its own last block";
        const std::string strReply =
            m_talk.Ask(Wire::Upfi(1, m_strFile.size(), 0, m_run.GetWidePath("file")));
        if (Wire::GetU32(strReply, 16) == 0 && !m_talk.HasEnded())
        {
            m_bComplete = Wire::GetU32(m_talk.Ask(Wire::Upfb(1, 1, m_strFile)), 16) == 0 &&
                          !m_talk.HasEnded();
        }
    }
};

// Channels are looked at by the clock, which therefore moves with the test.
class CSubscribing final : public CServerScenario
{
public:
    void Prepare() override
    {
        CServerScenario::Prepare();
        m_talk.Open();
        m_loop.WaitForIdle([] { return false; });
    }
    void Play() override
    {
        m_talk.Send(Wire::Ochs({CHANNEL}));
        m_loop.WaitForIdle([this] { return Put("first"); });
        for (int i = 0; m_bOpen && i < PACKETS; ++i)
        {
            Put(std::to_string(i));
        }
        m_loop.RunUntil([this] { return Take() || m_received.size() == m_stored.size(); }, nullptr,
                        5);
    }
    void Check() override
    {
        CFaultPlan::Lift();
        if (m_bOpen)
        {
            Put("last");
            EXPECT_TRUE(m_loop.RunUntil(
                [this] { return Take() || (!m_received.empty() && m_received.back() == "last"); }))
                << "a channel that is open goes on";
        }
        m_talk.Note("received:" + std::to_string(m_received.size()));
        EXPECT_TRUE(m_talk.HasEnded() || IsEndOf(m_stored, m_received)) << "without a gap";
    }

private:
    // Whether the channel is open.
    bool Put(const std::string& strData)
    {
        const unsigned int dwResult = m_run.Put(CHANNEL, strData);
        m_bOpen = m_bOpen || dwResult != 5;
        if (dwResult == 0)
        {
            m_stored.push_back(strData);
        }
        return m_bOpen;
    }
    // What has arrived; whether the connection has ended.
    bool Take()
    {
        while (!m_talk.HasEnded() && !m_talk.GetSocket().IsSilent())
        {
            const std::string strPacket = m_talk.Take();
            if (!strPacket.empty())
            {
                m_received.push_back(strPacket.substr(16));
            }
        }
        return m_talk.HasEnded();
    }
    static bool IsEndOf(const std::vector<std::string>& all, const std::vector<std::string>& end)
    {
        return end.size() <= all.size() && std::equal(end.rbegin(), end.rend(), all.rbegin());
    }

    std::vector<std::string> m_stored;
    std::vector<std::string> m_received;
    bool m_bOpen = false;
    CSteppedLoop m_loop;
};

// A peer that falls silent is ended after 30 seconds, by the clock of the test.
class CSilence final : public CServerScenario
{
public:
    void Prepare() override
    {
        CServerScenario::Prepare();
        ASSERT_TRUE(m_talk.Browse());
    }
    void Play() override
    {
        EXPECT_TRUE(m_loop.RunUntil([this] { return !m_talk.GetSocket().IsSilent(); }))
            << "waited in vain for the end of a silent connection";
        EXPECT_TRUE(m_talk.Take().empty());
    }

private:
    CSteppedLoop m_loop;
};

class CEnding final : public CServerScenario
{
public:
    void Prepare() override
    {
        CServerScenario::Prepare();
        ASSERT_TRUE(m_talk.Browse());
        ASSERT_FALSE(m_talk.Ask(Wire::Namc(1, u"device")).empty());
        ASSERT_FALSE(m_talk.Ask(Wire::Upfi(2, 5, 0, m_run.GetWidePath("file"))).empty());
    }
    void Play() override
    {
        m_run.End();
        m_bStarted = false;
        EXPECT_TRUE(m_talk.Take().empty());
    }
    void Check() override
    {
        EXPECT_EQ(m_run.m_host.m_host.GetDisconnects(), std::vector<std::string>{"device"});
    }
};

template <class Scenario>
std::unique_ptr<CServerScenario> Make()
{
    return std::make_unique<Scenario>();
}

}  // namespace

void CServerScenario::Prepare()
{
    m_bStarted = m_run.Start();
    ASSERT_TRUE(m_bStarted);
}

void CServerScenario::ExpectServes()
{
    m_talk.Close();
    if (!m_bStarted)
    {
        ASSERT_TRUE(m_run.Start()) << "once nothing fails";
    }
    CTalk next(m_run);
    const std::string strFile = Pattern(1000);
    std::string strBack;
    EXPECT_TRUE(next.Browse());
    EXPECT_FALSE(next.Ask(Wire::Namc(1, u"next")).empty());
    EXPECT_TRUE(next.Upload(2, "next", strFile)) << next.GetTranscript();
    EXPECT_TRUE(next.Download(3, "next", strBack)) << next.GetTranscript();
    EXPECT_EQ(Hex(strBack), Hex(strFile));
    next.Close();
    m_run.End();
}

const std::vector<CServerScenarioType>& GetServerScenarios()
{
    static const std::vector<CServerScenarioType> scenarios = {
        {"Start", &Make<CStarting>},
        {"Accept", &Make<CAccepting>},
        {"NameConnection", &Make<CNaming>},
        {"CreateFolders", &Make<CCreatingFolders>},
        {"Delete", &Make<CDeleting>},
        {"Download", &Make<CDownloading>},
        {"Upload", &Make<CUploading>},
        {"UploadAtOnce", &Make<CUploadingAtOnce>},
        {"Subscription", &Make<CSubscribing>},
        {"Silence", &Make<CSilence>},
        {"End", &Make<CEnding>},
    };
    return scenarios;
}
