#ifndef OSPREY_WXSPDOWNLOADREQUEST_H
#define OSPREY_WXSPDOWNLOADREQUEST_H

// Internal header.

#include <sys/stat.h>

#include "WXSPFileRequest.h"

// DFIL: answers with DFRT, then streams the file as DFRB blocks of up to 64 KiB.
//
// One buffer of a download is queued at any time: each block is read when the one before has been
// sent. An empty block ends the transfer. A read error ends it without a word: the
// protocol has none for it.
class CDownloadFileRequestHandler final : public CFileRequestHandler
{
public:
    using CFileRequestHandler::CFileRequestHandler;

    int Startup(_WXS_DOWN_FILE* pRequest);
    void OnSendComplete() override;

private:
    unsigned int Open(const _WXS_DOWN_FILE* pRequest, _WXS_DOWN_FILE_RET* pRet);
    unsigned int OpenResolved(const std::string& strPath, unsigned long long ullOffset,
                              _WXS_DOWN_FILE_RET* pRet);
    bool SendBlock();
    bool ReadBlock(unsigned char* pData, size_t& nRead);

    bool m_bSeek = true;  // before the next read
};

#endif
