#include "WXSPUploadRequest.h"

#include <sys/stat.h>

#include "LocalFile.h"
#include "WXSPBrowserHandler.h"

namespace
{

const int UPFR_SIZE = WXSP_HEADER_SIZE + sizeof(_WXS_UPLOAD_FILE_RET);
const int UPBR_SIZE = WXSP_HEADER_SIZE + sizeof(_WXS_RESULT);

}  // namespace

int CUploadFileRequestHandler::Startup(_WXS_UPLOAD_FILE* pRequest)
{
    m_dwRequestID = pRequest->dwRequestID;
    m_dwLastBlock = 0;
    CReplyPtr pReply = CreateReply(UPFR_SIZE, UPFR, sizeof(_WXS_UPLOAD_FILE_RET));
    if (pReply == nullptr)
    {
        return 0;
    }
    auto* pRet = GetRecord<_WXS_UPLOAD_FILE_RET>(GetPacket(pReply));
    pRet->dwResult = m_pBrowser->MayOpenFile() ? Open(pRequest) : RESULT_OPEN_FAILED;
    pRet->ullOffset = m_ullPosition;
    SendReply(std::move(pReply), UPFR_SIZE);
    return 1;
}

// Asks the host where to put the file, and opens it. Returns the result to send.
unsigned int CUploadFileRequestHandler::Open(const _WXS_UPLOAD_FILE* pRequest)
{
    const std::string strName = ReadName(pRequest + 1);
    m_dwAttributes = pRequest->dwAttributes;
    m_ullFileSize =
        static_cast<unsigned long long>(pRequest->dwSizeHigh) << 32 | pRequest->dwSizeLow;
    m_ullModificationTime = pRequest->ullModificationTime;
    const unsigned long long ullOffset = pRequest->ullOffset;
    KS_UPLOAD_FILE record = {m_pBrowser->GetConnectionName(),
                             strName.c_str(),
                             m_dwAttributes,
                             m_ullFileSize,
                             m_ullModificationTime,
                             ullOffset,
                             std::string(),
                             nullptr,
                             0};
    const unsigned int dwResult = Ask(KS_REQUEST_UPLOAD_FILE, record);
    printf("CUploadFileRequestHandler, Startup liSize:%llx\n", m_ullFileSize);
    printf("CUploadFileRequestHandler, Startup llOffset:%llx\n", ullOffset);
    if (dwResult != 0)
    {
        return dwResult;
    }
    return OpenResolved(record.strResolvedPath.empty() ? strName : record.strResolvedPath,
                        ullOffset);
}

unsigned int CUploadFileRequestHandler::OpenResolved(const std::string& strPath,
                                                     unsigned long long ullOffset)
{
    const char* pszMode = "wb+";
    m_ullPosition = ullOffset;
    if (ullOffset == WXSP_CONTINUE)
    {
        struct stat info = {};
        m_ullPosition = 0;
        if (stat(strPath.c_str(), &info) == 0 &&
            static_cast<unsigned long long>(info.st_size) <= m_ullFileSize)
        {
            pszMode = "rb+";
            m_ullPosition = static_cast<unsigned long long>(info.st_size);
        }
    }
    m_pFile = OpenLocalFile(strPath.c_str(), pszMode);
    if (m_pFile == nullptr)
    {
        printf("CUploadFileRequestHandler, Startup fopen error:%s\n", pszMode);
        return RESULT_OPEN_FAILED;
    }
    if (!SeekLocalFile(m_pFile, m_ullPosition))
    {
        puts("CUploadFileRequestHandler, Startup fseek error");
        return RESULT_OPEN_FAILED;  // the file stays open: a peer may still send blocks
    }
    return RESULT_SUCCESS;
}

int CUploadFileRequestHandler::ProcessBlockRequest(PWXS_PACKET pPacket)
{
    if (m_pFile == nullptr)
    {
        Delete();
        return 0;
    }
    const auto* pBlock = GetRecord<_WXS_UPLOAD_FILE_BLOCK>(pPacket);
    const size_t nSize = pPacket->dwDataSize - sizeof(_WXS_UPLOAD_FILE_BLOCK);
    if (nSize == 0 || pBlock->dwLastBlock != 0)
    {
        m_dwLastBlock = 1;
    }
    const unsigned int dwResult =
        WriteBlock(reinterpret_cast<const unsigned char*>(pBlock + 1), nSize);

    CReplyPtr pReply = CreateReply(UPBR_SIZE, UPBR, sizeof(_WXS_RESULT));
    if (pReply == nullptr)
    {
        return 0;
    }
    GetRecord<_WXS_RESULT>(GetPacket(pReply))->dwResult = dwResult;
    SendReply(std::move(pReply), UPBR_SIZE);
    return 1;
}

// Writes the block and, if it is the last, closes the file: only then is it sure to be stored, and
// the host is told. Returns the result to send.
unsigned int CUploadFileRequestHandler::WriteBlock(const unsigned char* pData, size_t nSize)
{
    if (nSize > 0 && WriteLocalFile(m_pFile, pData, nSize) < nSize)
    {
        // What was written of the block is not counted, so the next one starts where it did.
        clearerr(m_pFile);
        SeekLocalFile(m_pFile, m_ullPosition);
        return RESULT_WRITE_FAILED;
    }
    m_ullPosition += nSize;
    if (m_dwLastBlock != 0 && !CloseLocalFile(m_pFile))
    {
        TellEnd(OSPREY_TRANSFER_CANCELLED);
        return RESULT_WRITE_FAILED;
    }
    TellProgress();
    if (m_dwLastBlock != 0)
    {
        TellEnd(OSPREY_TRANSFER_COMPLETE);
    }
    return RESULT_SUCCESS;
}

void CUploadFileRequestHandler::OnSendComplete()
{
    if (m_pFile == nullptr)
    {
        Delete();
    }
}

bool CUploadFileRequestHandler::IsIdleForGood() const
{
    return m_pFile == nullptr && m_nRepliesOut == 0;
}
