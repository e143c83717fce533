#ifndef OSPREY_WXSPUPLOADREQUEST_H
#define OSPREY_WXSPUPLOADREQUEST_H

// Internal header.

#include "WXSPFileRequest.h"

// UPFI and the UPFB blocks that follow it: opens the file, continuing an existing one on request,
// answers UPFR with the offset at which it will write, then writes each block and answers UPBR.
//
// The file is unbuffered: a block that does not fit on the disk is the one that is refused.
class CUploadFileRequestHandler final : public CFileRequestHandler
{
public:
    using CFileRequestHandler::CFileRequestHandler;

    int Startup(_WXS_UPLOAD_FILE* pRequest);
    // 1 when UPBR was queued. 0 when there is no memory for it, or when the file is closed already,
    // which also ends the handler; the connection is then abandoned.
    int ProcessBlockRequest(PWXS_PACKET pPacket);
    void OnSendComplete() override;
    bool IsIdleForGood() const override;

private:
    unsigned int Open(const _WXS_UPLOAD_FILE* pRequest);
    unsigned int OpenResolved(const std::string& strPath, unsigned long long ullOffset);
    unsigned int WriteBlock(const unsigned char* pData, size_t nSize);

    unsigned int m_dwLastBlock = 0;  // the final block has arrived
    unsigned int m_dwAttributes = 0;
    unsigned long long m_ullModificationTime = 0;
};

#endif
