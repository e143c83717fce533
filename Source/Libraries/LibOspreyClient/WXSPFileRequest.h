#ifndef OSPREY_WXSPFILEREQUEST_H
#define OSPREY_WXSPFILEREQUEST_H

// Internal header.

#include <cstdio>

#include "WXSPRequestHandler.h"

// A request that moves a file: what an upload and a download share. Keeps the host told, of the
// progress and, once, of the end.
class CFileRequestHandler : public CWXSPRequestHandler
{
public:
    using CWXSPRequestHandler::CWXSPRequestHandler;
    ~CFileRequestHandler() override;

    void OnShutdown() override;

protected:
    // Asks the host about the transfer. Returns the result to send.
    template <typename TRecord>
    unsigned int Ask(KS_REQUEST eRequest, TRecord& record)
    {
        const unsigned int dwResult = AskHost(eRequest, &record);
        m_pProgress = record.pProgress;
        m_ullProgressContext = record.ullProgressContext;
        return dwResult;
    }
    void TellProgress();
    // The file is closed.
    void TellEnd(OSPREY_TRANSFER_END eEnd);

    FILE* m_pFile = nullptr;               // owned
    unsigned long long m_ullPosition = 0;  // offset reached: of the next write, or read
    unsigned long long m_ullFileSize = 0;  // as found on disk, or announced; nothing insists on it

private:
    unsigned int AskHost(KS_REQUEST eRequest, void* pRecord);

    bool m_bEndToTell = false;               // the host was asked, and not told yet
    IOspreyProgress* m_pProgress = nullptr;  // the host's
    unsigned long long m_ullProgressContext = 0;
};

#endif
