#ifndef OSPREY_TESTS_FILEHOST_H
#define OSPREY_TESTS_FILEHOST_H

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "OspreyClient.h"

// One answer of GetNextFile.
struct CFileEntry
{
    std::string m_strLocalPath;
    std::string m_strRemote;
    long long m_llNumber = 0;
};

// What a file client told its host, a line each: "connected", "start failed 0", "disconnected 104",
// "next", "no more", "progress 81", "completed", "failed 5".
//
// Thread: written on the client's worker, read by the test.
class CFileEvents
{
public:
    void Add(const std::string& strEvent);
    std::vector<std::string> Get() const;
    // Without the "progress" lines.
    std::vector<std::string> GetWithoutProgress() const;
    int Count(const std::string& strEvent) const;
    // Waits until the event has come that often; fails the test at the deadline.
    bool WaitFor(const std::string& strEvent, int nTimes = 1) const;
    // Waits until the run is over by itself.
    bool WaitForEnd() const;

private:
    bool WaitUntil(const std::string& strFor, const std::function<bool()>& fnCondition) const;
    int CountLocked(const std::string& strEvent) const;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_events;
    std::map<std::string, int> m_counts;  // of each event: a long transfer reports very many
};

// A host that hands out a list of files and writes down what it is told.
template <class CCallback>
class CFileHost final : public CCallback
{
public:
    void OnConnected() override
    {
        Tell("connected");
    }
    void OnStartFailed(int nReason) override
    {
        Tell("start failed " + std::to_string(nReason));
    }
    void OnDisconnected(int nError) override
    {
        Tell("disconnected " + std::to_string(nError));
    }
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                     long long& llNumber) override
    {
        m_bFreshArguments =
            m_bFreshArguments && strLocalPath.empty() && strRemote.empty() && llNumber == 0;
        if (m_nNext >= m_entries.size())
        {
            Tell("no more");
            return false;
        }
        Tell("next");
        const CFileEntry& entry = m_entries[m_nNext++];
        strLocalPath = entry.m_strLocalPath;
        strRemote = entry.m_strRemote;
        llNumber = entry.m_llNumber;
        return true;
    }
    void OnProgress(unsigned int dwPercent) override
    {
        Tell("progress " + std::to_string(dwPercent));
    }
    void OnFileCompleted() override
    {
        Tell("completed");
    }
    void OnFileFailed(int nCode) override
    {
        Tell("failed " + std::to_string(nCode));
    }

    // To be set before the start.
    std::vector<CFileEntry> m_entries;
    std::function<void(const std::string&)> m_fnOnEvent;  // on the worker, before it is recorded

    CFileEvents m_events;
    bool m_bFreshArguments = true;  // GetNextFile's arguments always arrived empty

    size_t m_nNext = 0;  // the entry that GetNextFile hands out next

private:
    void Tell(const std::string& strEvent)
    {
        if (m_fnOnEvent)
        {
            m_fnOnEvent(strEvent);
        }
        m_events.Add(strEvent);
    }
};

typedef CFileHost<ISubmitFileClientCallback> CSubmitHost;
typedef CFileHost<IDownloadFileClientCallback> CDownloadHost;

const unsigned int LOOPBACK = 0x7F000001;

// A client with its host; stopped and released at the end of the block.
class CSubmitRun
{
public:
    CSubmitRun();
    ~CSubmitRun();
    CSubmitRun(const CSubmitRun&) = delete;
    CSubmitRun& operator=(const CSubmitRun&) = delete;

    bool Start(unsigned short wPort, unsigned int dwTimeoutMs = 20000,
               const std::u16string& strName = u"device");
    Orb_BOOL Stop();
    // Release, in whatever state; the client is then no longer there.
    void Release();

    CSubmitHost m_host;
    ISubmitFileClient* m_pClient;
};

class CDownloadRun
{
public:
    CDownloadRun();
    ~CDownloadRun();
    CDownloadRun(const CDownloadRun&) = delete;
    CDownloadRun& operator=(const CDownloadRun&) = delete;

    bool Start(unsigned short wPort, unsigned int dwTimeoutMs = 20000,
               const std::u16string& strName = u"device");
    Orb_BOOL Stop();
    void Release();

    CDownloadHost m_host;
    IDownloadFileClient* m_pClient;
};

#endif
