#include "FileHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "LibOsprey.h"
#include "RawSocket.h"

void CFileEvents::Add(const std::string& strEvent)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back(strEvent);
    ++m_counts[strEvent];
    m_changed.notify_all();
}

std::vector<std::string> CFileEvents::Get() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
}

std::vector<std::string> CFileEvents::GetWithoutProgress() const
{
    std::vector<std::string> events = Get();
    events.erase(std::remove_if(events.begin(), events.end(),
                                [](const std::string& strEvent)
                                { return strEvent.compare(0, 8, "progress") == 0; }),
                 events.end());
    return events;
}

int CFileEvents::Count(const std::string& strEvent) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return CountLocked(strEvent);
}

int CFileEvents::CountLocked(const std::string& strEvent) const
{
    const auto it = m_counts.find(strEvent);
    return it != m_counts.end() ? it->second : 0;
}

bool CFileEvents::WaitFor(const std::string& strEvent, int nTimes) const
{
    return WaitUntil(strEvent, [&] { return CountLocked(strEvent) >= nTimes; });
}

bool CFileEvents::WaitForEnd() const
{
    return WaitUntil(
        "the end of the run",
        [this]
        {
            const auto lost = m_counts.lower_bound("disconnected ");
            return CountLocked("no more") > 0 || CountLocked("start failed 0") > 0 ||
                   (lost != m_counts.end() && lost->first.compare(0, 13, "disconnected ") == 0);
        });
}

bool CFileEvents::WaitUntil(const std::string& strFor,
                            const std::function<bool()>& fnCondition) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // Large transfers take their time: as long as something is reported, the wait goes on.
    size_t nSeen = m_events.size();
    while (!m_changed.wait_for(lock, std::chrono::milliseconds(WAIT_MS), fnCondition))
    {
        if (m_events.size() == nSeen)
        {
            ADD_FAILURE() << "waited in vain for: " << strFor
                          << "; last event: " << (m_events.empty() ? "none" : m_events.back());
            return false;
        }
        nSeen = m_events.size();
    }
    return true;
}

namespace
{

// The library takes the name without const and does not write to it.
unsigned short* Name(std::u16string& strName)
{
    return reinterpret_cast<unsigned short*>(&strName[0]);
}

}  // namespace

CSubmitRun::CSubmitRun() : m_pClient(CreateSubmitFileClient(&m_host)) {}

CSubmitRun::~CSubmitRun()
{
    Release();
}

bool CSubmitRun::Start(unsigned short wPort, unsigned int dwTimeoutMs,
                       const std::u16string& strName)
{
    std::u16string strCopy = strName;
    return m_pClient->StartFileSubmit(Name(strCopy), 0, LOOPBACK, wPort, dwTimeoutMs) != 0;
}

Orb_BOOL CSubmitRun::Stop()
{
    return m_pClient->StopFileSubmit();
}

void CSubmitRun::Release()
{
    if (m_pClient != nullptr)
    {
        m_pClient->Release();
        m_pClient = nullptr;
    }
}

CDownloadRun::CDownloadRun() : m_pClient(CreateDownloadFileClient(&m_host)) {}

CDownloadRun::~CDownloadRun()
{
    Release();
}

bool CDownloadRun::Start(unsigned short wPort, unsigned int dwTimeoutMs,
                         const std::u16string& strName)
{
    std::u16string strCopy = strName;
    return m_pClient->StartFileDownload(Name(strCopy), 0, LOOPBACK, wPort, dwTimeoutMs) != 0;
}

Orb_BOOL CDownloadRun::Stop()
{
    return m_pClient->StopFileDownload();
}

void CDownloadRun::Release()
{
    if (m_pClient != nullptr)
    {
        m_pClient->Release();
        m_pClient = nullptr;
    }
}
