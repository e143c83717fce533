#include "RecordingHost.h"

#include <gtest/gtest.h>

#include <chrono>

#include "RawSocket.h"

namespace
{

std::string Text(const char* pszText)
{
    return pszText != nullptr ? pszText : "(null)";
}

template <class Record>
void TakePath(CRecordingHost::CRequest& request, const Record& record, const char* pszName)
{
    request.m_strConnection = Text(record.pszConnection);
    request.m_strName = Text(pszName);
    request.m_strResolvedOnEntry = record.strResolvedPath;
}

template <class Record>
void Answer(const CRecordingHost& host, const CRecordingHost::CRequest& request, Record& record)
{
    if (host.m_fnResolve)
    {
        record.strResolvedPath = host.m_fnResolve(request.m_strName);
    }
}

template <class Record>
void TakeTransfer(CRecordingHost& host, CRecordingHost::CRequest& request, Record& record)
{
    TakePath(request, record, record.pszName);
    request.m_bProgressOnEntry = record.pProgress != nullptr;
    request.m_ullContextOnEntry = record.ullProgressContext;
    Answer(host, request, record);
    if (host.m_bProgress)
    {
        record.pProgress = &host;
        record.ullProgressContext = host.m_ullContext;
    }
}

}  // namespace

int CRecordingHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    CRequest request = {eRequest, "", "", 0, 0, 0, 0, "", false, 0, 0};
    switch (eRequest)
    {
        case KS_REQUEST_UPLOAD_FILE:
        {
            KS_UPLOAD_FILE& record = *static_cast<KS_UPLOAD_FILE*>(pRecord);
            request.m_dwAttributes = record.dwAttributes;
            request.m_ullSize = record.ullSize;
            request.m_ullTime = record.ullModificationTime;
            request.m_ullOffset = record.ullOffset;
            TakeTransfer(*this, request, record);
            break;
        }
        case KS_REQUEST_DOWNLOAD_FILE:
            TakeTransfer(*this, request, *static_cast<KS_DOWNLOAD_FILE*>(pRecord));
            break;
        case KS_REQUEST_CREATE_DIR:
        {
            KS_CREATE_DIR& record = *static_cast<KS_CREATE_DIR*>(pRecord);
            TakePath(request, record, record.pszPath);
            Answer(*this, request, record);
            break;
        }
        case KS_REQUEST_DELETE_TREE:
        {
            KS_DELETE_TREE& record = *static_cast<KS_DELETE_TREE*>(pRecord);
            TakePath(request, record, record.pszPath);
            Answer(*this, request, record);
            break;
        }
        case KS_REQUEST_NAME_CONNECTION:
        {
            const KS_NAME_CONNECTION& record = *static_cast<KS_NAME_CONNECTION*>(pRecord);
            request.m_strName = Text(record.pszName);
            request.m_lTask = reinterpret_cast<long>(record.pStream);
            break;
        }
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(request);
    }
    m_changed.notify_all();
    if (m_fnOnRequest)
    {
        m_fnOnRequest(request);
    }
    return m_nResult;
}

void CRecordingHost::OnDisconnect(const char* pszName)
{
    const std::string strName = Text(pszName);
    if (m_fnOnDisconnect)
    {
        m_fnOnDisconnect(strName);
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_disconnects.push_back(strName);
    }
    m_changed.notify_all();
}

void CRecordingHost::OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_progress.push_back({ullDone, ullTotal, ullContext});
}

std::vector<CRecordingHost::CRequest> CRecordingHost::GetRequests() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

std::vector<std::string> CRecordingHost::GetDisconnects() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_disconnects;
}

std::vector<CRecordingHost::CProgress> CRecordingHost::GetProgress() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_progress;
}

bool CRecordingHost::WaitFor(const char* pszFor, const std::function<bool()>& fnCondition) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // The system's clock, which test clocks do not reach: the standard library reads it inside.
    const bool bHolds = m_changed.wait_until(
        lock, std::chrono::system_clock::now() + std::chrono::milliseconds(WAIT_MS), fnCondition);
    if (!bHolds)
    {
        ADD_FAILURE() << "waited in vain for " << pszFor;
    }
    return bHolds;
}

bool CRecordingHost::WaitForRequests(size_t nRequests) const
{
    return WaitFor("requests to reach the host", [&] { return m_requests.size() >= nRequests; });
}

bool CRecordingHost::WaitForDisconnects(size_t nDisconnects) const
{
    return WaitFor("disconnections to reach the host",
                   [&] { return m_disconnects.size() >= nDisconnects; });
}
