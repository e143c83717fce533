// A host that is asked for a file, releases the client there, and names a file all the same.

#include <gtest/gtest.h>

#include <functional>

#include "FileHost.h"
#include "LibOsprey.h"
#include "ScriptedServer.h"
#include "TempFolder.h"

namespace
{

typedef std::vector<std::string> CLines;

// "next" is the last that it touches: the test that has seen it may destroy the host.
template <class CCallback>
class CReleasingHost final : public CCallback
{
public:
    explicit CReleasingHost(const std::string& strFile) : m_strFile(strFile) {}

    void OnConnected() override
    {
        m_events.Add("connected");
    }
    void OnStartFailed(int /*nReason*/) override
    {
        m_events.Add("start failed");
    }
    void OnDisconnected(int /*nError*/) override
    {
        m_events.Add("disconnected");
    }
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                     long long& /*llNumber*/) override
    {
        strLocalPath = m_strFile;
        strRemote = "remote";
        m_fnRelease();
        m_events.Add("next");
        return true;
    }
    void OnProgress(unsigned int /*dwPercent*/) override
    {
        m_events.Add("progress");
    }
    void OnFileCompleted() override
    {
        m_events.Add("completed");
    }
    void OnFileFailed(int /*nCode*/) override
    {
        m_events.Add("failed");
    }

    const std::string m_strFile;
    std::function<void()> m_fnRelease;
    CFileEvents m_events;
};

template <class CHost, class CClient, class CStart>
void ReleaseInsideGetNextFile(CHost& host, CClient* pClient, CStart pfnStart)
{
    CScriptedServer server;
    host.m_fnRelease = [pClient] { pClient->Release(); };
    unsigned short name[] = {'d', 'e', 'v', 'i', 'c', 'e', 0};
    ASSERT_TRUE((pClient->*pfnStart)(name, 0, LOOPBACK, server.GetPort(), WAIT_MS));
    server.WelcomeClient();
    EXPECT_TRUE(server.m_peer.IsClosedByPeer()) << "nothing of the file may be sent";
    EXPECT_EQ(host.m_events.Get(), (CLines{"connected", "next"}));
}

TEST(ClientRelease, InsideGetNextFileEndsTheRunWithoutThatFile)
{
    const CTempFolder folder;
    const std::string strFile = folder.WriteFile("file", "text");
    for (const std::string& strPath : {strFile, folder.GetPath()})
    {
        CReleasingHost<ISubmitFileClientCallback> host(strPath);
        ReleaseInsideGetNextFile(host, CreateSubmitFileClient(&host),
                                 &ISubmitFileClient::StartFileSubmit);
    }
    CReleasingHost<IDownloadFileClientCallback> host(strFile);
    ReleaseInsideGetNextFile(host, CreateDownloadFileClient(&host),
                             &IDownloadFileClient::StartFileDownload);
    EXPECT_EQ(ReadFile(strFile), "text") << "no download began, so none failed";
}

}  // namespace
