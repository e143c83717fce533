// A file over a link: what both hosts were told must agree with what lies on both disks.

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <thread>

#include "FarServer.h"
#include "FileHosts.h"
#include "Folder.h"
#include "Runs.h"

namespace
{

using std::chrono::seconds;

// A client of either kind, started at the near end.
class CFileClient
{
public:
    CFileClient(const CSetting& setting, CEvents& events, const std::string& strPath,
                const std::function<void()>& fnHalfWay)
        : m_submitHost(events, strPath, "root", 0, fnHalfWay),
          m_downloadHost(events, strPath, "file", 0, fnHalfWay),
          m_bUpload(setting.m_strKind == "upload")
    {
        unsigned short wName[] = {'n', 'e', 'a', 'r', 0};
        bool bStarted = false;
        if (m_bUpload)
        {
            m_pSubmit = CreateSubmitFileClient(&m_submitHost);
            bStarted = m_pSubmit->StartFileSubmit(wName, 0, FAR_ADDRESS, PORT, 20000) != 0;
        }
        else
        {
            m_pDownload = CreateDownloadFileClient(&m_downloadHost);
            bStarted = m_pDownload->StartFileDownload(wName, 0, FAR_ADDRESS, PORT, 20000) != 0;
        }
        if (!bStarted)
        {
            events.Add("start failed");
        }
    }
    ~CFileClient()
    {
        if (m_bUpload)
        {
            m_pSubmit->Release();
        }
        else
        {
            m_pDownload->Release();
        }
    }
    CFileClient(const CFileClient&) = delete;
    CFileClient& operator=(const CFileClient&) = delete;

private:
    COneFileHost<ISubmitFileClientCallback> m_submitHost;
    COneFileHost<IDownloadFileClientCallback> m_downloadHost;
    ISubmitFileClient* m_pSubmit = nullptr;
    IDownloadFileClient* m_pDownload = nullptr;
    bool m_bUpload;
};

class CFileRun
{
public:
    CFileRun(const CSetting& setting, CLink& link)
        : m_setting(setting),
          m_link(link),
          m_bUpload(setting.m_strKind == "upload"),
          m_strBytes(RandomBytes(setting.m_nBytes, setting.m_nSeed)),
          m_host(m_events, m_folder.Get("far"))
    {
        std::ofstream(m_folder.Get(m_bUpload ? "near" : "far"), std::ios::binary) << m_strBytes;
    }

    COutcome Run()
    {
        const CFarServer server(m_link, &m_host);
        m_timeStart = Now();
        auto pClient = std::make_unique<CFileClient>(m_setting, m_events, m_folder.Get("near"),
                                                     [this] { Cut(); });
        if (m_setting.IsCut())
        {
            WaitForTheCut();
        }
        WaitForTheEnd();
        Describe();
        ForbidIdleFaults(m_setting, m_link, m_outcome);
        pClient.reset();
        m_outcome.Forbid(
            !m_events.WaitUntil(Now() + seconds(60), [&] { return m_events.Has("server lost"); }),
            "the server's host never heard of the connection's end");
        CompareFiles();
        return m_outcome;
    }

private:
    bool IsOver() const
    {
        return m_events.Has("no more") || IsLost() || m_events.Has("start failed");
    }
    bool IsLost() const
    {
        return !m_events.Find("lost ").empty();
    }

    // Half way, on the client's thread: a transfer that goes on meanwhile could be over before.
    void Cut()
    {
        if (!m_setting.IsCut())
        {
            return;
        }
        try
        {
            m_link.Cut();
        }
        catch (const std::exception& error)
        {
            m_events.Add(std::string("no cut: ") + error.what());
        }
        m_timeCut = Now();
    }

    void WaitForTheCut()
    {
        m_outcome.Forbid(
            !m_events.WaitUntil(Now() + seconds(60), [&] { return m_events.Has("half way"); }),
            "the transfer did not get under way");
        m_outcome.Forbid(!m_events.Find("no cut").empty(), m_events.Find("no cut"));
        if (m_events.Has("half way") && !m_setting.IsForGood())
        {
            std::this_thread::sleep_until(m_timeCut + seconds(m_setting.m_nCutSeconds));
            m_link.Join();
        }
    }

    void WaitForTheEnd()
    {
        m_events.WaitUntil(
            Now() + seconds(WATCH_SECONDS),
            [&] { return IsOver() && (!m_setting.IsForGood() || m_events.Has("server lost")); });
    }

    void Describe()
    {
        const std::string strLost = m_events.Find("lost ");
        const std::string strFailed = m_events.Find("failed ");
        m_outcome.m_strEnd = m_events.Has("whole")          ? "whole"
                             : !strLost.empty()             ? strLost
                             : !strFailed.empty()           ? strFailed
                             : m_events.Has("start failed") ? "start failed"
                                                            : "no end";
        if (IsOver())
        {
            m_outcome.m_dSeconds = SecondsBetween(
                m_timeStart,
                m_events.GetTime(m_events.Has("no more") ? "no more" : m_outcome.m_strEnd));
        }
        if (m_setting.MayBreak())
        {
            DescribeLoss(strLost);
        }
        else
        {
            m_outcome.Forbid(m_outcome.m_strEnd != "whole", "the transfer must survive this link");
        }
        m_outcome.Forbid(m_outcome.m_strEnd == "no end", "the client's host was told nothing");
        m_outcome.Forbid(!strFailed.empty(), "a lost connection is no failed file");
        m_outcome.Forbid(m_events.Count("whole") > 1 || m_events.Count("no more") > 1,
                         "the client's host was told twice");
    }

    void DescribeLoss(const std::string& strLost)
    {
        if (!strLost.empty())
        {
            m_outcome.m_dClientKnew = SecondsBetween(m_timeCut, m_events.GetTime(strLost));
        }
        if (m_events.Has("server lost"))
        {
            m_outcome.m_dServerKnew = SecondsBetween(m_timeCut, m_events.GetTime("server lost"));
        }
        if (m_setting.IsForGood())
        {
            m_outcome.Forbid(strLost.empty() || m_outcome.m_dClientKnew > MUST_KNOW_SECONDS,
                             "the client does not notice in time that the server is gone");
        }
        if (m_setting.IsForGood() || m_setting.m_nCutSeconds > MUST_KNOW_SECONDS)
        {
            m_outcome.Forbid(
                !m_events.Has("server lost") || m_outcome.m_dServerKnew > MUST_KNOW_SECONDS,
                "the server does not notice in time that the client is gone");
        }
    }

    // After the server's host was told of the end: nothing is written any more.
    void CompareFiles()
    {
        const std::string strNear = Contents(m_folder.Get("near"));
        const std::string strFar = Contents(m_folder.Get("far"));
        const bool bWhole = m_events.Has("whole");
        const bool bMoved = m_events.Has("server moved all");
        m_outcome.Forbid((m_bUpload ? strNear : strFar) != m_strBytes, "the source was changed");
        m_outcome.Forbid(bWhole && strNear != strFar, "reported whole, and the bytes differ");
        m_outcome.Forbid(bWhole && !bMoved, "whole here, and the server's host does not know");
        if (m_bUpload)
        {
            m_outcome.Forbid(m_strBytes.compare(0, strFar.size(), strFar) != 0,
                             "wrong bytes in the part at the server");
            m_outcome.Forbid(bMoved && strFar != m_strBytes,
                             "short, and the server's host was "
                             "told that it is whole");
        }
        else
        {
            m_outcome.Forbid(!bWhole && access(m_folder.Get("near").c_str(), F_OK) == 0,
                             "the part here was not removed");
        }
    }

    const CSetting& m_setting;
    CLink& m_link;
    bool m_bUpload;
    CFolder m_folder;
    CEvents m_events;
    std::string m_strBytes;
    CServerHost m_host;
    COutcome m_outcome;
    CTime m_timeStart;
    CTime m_timeCut;
};

}  // namespace

COutcome RunFile(const CSetting& setting, CLink& link)
{
    return CFileRun(setting, link).Run();
}
