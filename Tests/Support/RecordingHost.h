#ifndef OSPREY_TESTS_RECORDINGHOST_H
#define OSPREY_TESTS_RECORDINGHOST_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "OspreyServer.h"

// A server's host that writes down what it is told.
//
// Thread: called on the server's worker, read by the test.
class CRecordingHost final : public IOspreyServerCallback, public IOspreyProgress
{
public:
    struct CRequest
    {
        KS_REQUEST m_eRequest;
        std::string m_strConnection;  // "(null)" for a connection without a name
        std::string m_strName;
        Orb_U32 m_dwAttributes;
        Orb_U64 m_ullSize;
        Orb_U64 m_ullTime;
        Orb_U64 m_ullOffset;
        std::string m_strResolvedOnEntry;
        bool m_bProgressOnEntry;
        Orb_U64 m_ullContextOnEntry;
        long m_lTask;
    };
    struct CProgress
    {
        Orb_U64 m_ullDone;
        Orb_U64 m_ullTotal;
        Orb_U64 m_ullContext;

        bool operator==(const CProgress& other) const
        {
            return m_ullDone == other.m_ullDone && m_ullTotal == other.m_ullTotal &&
                   m_ullContext == other.m_ullContext;
        }
    };

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override;
    void OnDisconnect(const char* pszName) override;
    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;

    std::vector<CRequest> GetRequests() const;
    std::vector<std::string> GetDisconnects() const;
    std::vector<CProgress> GetProgress() const;
    // Wait until there are that many; fail the test at the deadline.
    bool WaitForRequests(size_t nRequests) const;
    bool WaitForDisconnects(size_t nDisconnects) const;

    // To be set before the server starts.
    std::function<std::string(const std::string&)> m_fnResolve;  // local path for a name; "" none
    std::function<void(const CRequest&)> m_fnOnRequest;          // called last, without a lock
    std::function<void(const std::string&)> m_fnOnDisconnect;
    bool m_bProgress = false;  // ask for progress calls ...
    Orb_U64 m_ullContext = 0;  // ... with this context
    int m_nResult = 0;         // what OnRequest returns

private:
    bool WaitFor(const char* pszFor, const std::function<bool()>& fnCondition) const;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<CRequest> m_requests;
    std::vector<std::string> m_disconnects;
    std::vector<CProgress> m_progress;
};

#endif
