#include "TransferTest.h"

#include <sys/stat.h>

#include <algorithm>

#include "RawSocket.h"

CTransferTest::CTransferTest()
{
    mkdir(m_served.GetPath("root").c_str(), 0700);
    m_host.m_fnResolve = [this](const std::string& strName)
    {
        const std::string strPrefix = "FILESUBMIT|";
        std::string strPath = strName;
        if (strPath.compare(0, strPrefix.size(), strPrefix) == 0)
        {
            strPath.erase(0, strPrefix.size());
            std::replace(strPath.begin(), strPath.end(), '|', '/');
            std::replace(strPath.begin(), strPath.end(), '\\', '/');
        }
        return m_served.GetPath(strPath);
    };
    StartServer();
}

CTransferTest::~CTransferTest()
{
    EndServer();
}

void CTransferTest::StartServer()
{
    // A port that was free a moment ago may be gone again.
    for (int i = 0; i < 10 && m_pServer == nullptr; ++i)
    {
        m_wPort = FreePort();
        IOspreyServer* pServer = CreateOspreyServer(&m_host);
        if (pServer->Startup(0, m_wPort))
        {
            m_pServer = pServer;
        }
        else
        {
            pServer->Release();
        }
    }
    ASSERT_NE(m_pServer, nullptr);
}

void CTransferTest::EndServer()
{
    if (m_pServer != nullptr)
    {
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_TRUE(m_pServer->Shutdown());
        m_pServer->Release();
        m_pServer = nullptr;
    }
}

void CTransferTest::Upload(const std::vector<std::string>& names)
{
    CSubmitRun run;
    for (const std::string& strName : names)
    {
        run.m_host.m_entries.push_back({m_local.GetPath(strName), "root",
                                        static_cast<long long>(m_local.GetPath().size()) + 1});
    }
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Count("completed"), static_cast<int>(names.size()));
    EXPECT_EQ(run.m_host.m_events.Count("no more"), 1);
}

void CTransferTest::Download(const std::vector<std::string>& names)
{
    CDownloadRun run;
    for (const std::string& strName : names)
    {
        run.m_host.m_entries.push_back({m_local.GetPath(strName), "root/" + strName, 0});
    }
    ASSERT_TRUE(run.Start(m_wPort));
    run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(run.m_host.m_events.Count("completed"), static_cast<int>(names.size()));
    EXPECT_EQ(run.m_host.m_events.Count("no more"), 1);
}
