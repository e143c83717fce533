#ifndef OSPREY_TESTS_FILEHOSTS_H
#define OSPREY_TESTS_FILEHOSTS_H

#include <functional>
#include <string>
#include <utility>

#include "Events.h"
#include "LibOsprey.h"

// A client's host with one file. Events: "connected", "half way", "whole", "failed 5", "lost 104",
// "start failed", "no more". What is to happen half way is done while the client waits for it:
// before any further byte of the file moves through the client.
template <class CCallback>
class COneFileHost final : public CCallback
{
public:
    COneFileHost(CEvents& events, std::string strLocalPath, std::string strRemote,
                 long long llNumber, std::function<void()> fnHalfWay)
        : m_events(events),
          m_strLocalPath(std::move(strLocalPath)),
          m_strRemote(std::move(strRemote)),
          m_llNumber(llNumber),
          m_fnHalfWay(std::move(fnHalfWay))
    {
    }

    void OnConnected() override
    {
        m_events.Add("connected");
    }
    void OnStartFailed(int /*nReason*/) override
    {
        m_events.Add("start failed");
    }
    void OnDisconnected(int nError) override
    {
        m_events.Add("lost " + std::to_string(nError));
    }
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                     long long& llNumber) override
    {
        if (m_bTaken)
        {
            m_events.Add("no more");
            return false;
        }
        m_bTaken = true;
        strLocalPath = m_strLocalPath;
        strRemote = m_strRemote;
        llNumber = m_llNumber;
        return true;
    }
    void OnProgress(unsigned int dwPercent) override
    {
        if (dwPercent >= 30 && !m_bHalfWay)
        {
            m_bHalfWay = true;
            m_fnHalfWay();
            m_events.Add("half way");
        }
    }
    void OnFileCompleted() override
    {
        m_events.Add("whole");
    }
    void OnFileFailed(int nCode) override
    {
        m_events.Add("failed " + std::to_string(nCode));
    }

private:
    CEvents& m_events;
    std::string m_strLocalPath;
    std::string m_strRemote;
    long long m_llNumber;
    std::function<void()> m_fnHalfWay;
    bool m_bTaken = false;
    bool m_bHalfWay = false;
};

// The server's host, which serves one file whatever the peer calls it. Events: "server moved all",
// "server lost".
class CServerHost final : public IOspreyServerCallback, public IOspreyProgress
{
public:
    CServerHost(CEvents& events, std::string strPath);

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override;
    void OnDisconnect(const char* pszName) override;
    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;

private:
    CEvents& m_events;
    std::string m_strPath;
};

#endif
