#include "WXSPDownloadRequest.h"

#include "LocalFile.h"
#include "WXSPBrowserHandler.h"

namespace
{

const int DFRT_SIZE = WXSP_HEADER_SIZE + sizeof(_WXS_DOWN_FILE_RET);
const int DFRB_HEADER_SIZE = WXSP_HEADER_SIZE + sizeof(_WXS_DOWN_FILE_BLOCK);

}  // namespace

int CDownloadFileRequestHandler::Startup(_WXS_DOWN_FILE* pRequest)
{
    m_dwRequestID = pRequest->dwRequestID;
    CReplyPtr pReply = CreateReply(DFRT_SIZE, DFRT, sizeof(_WXS_DOWN_FILE_RET));
    if (pReply == nullptr)
    {
        return 0;
    }
    GetPacket(pReply)->dwVersion = WXSP_VERSION;
    auto* pRet = GetRecord<_WXS_DOWN_FILE_RET>(GetPacket(pReply));
    pRet->dwResult = m_pBrowser->MayOpenFile() ? Open(pRequest, pRet) : RESULT_OPEN_FAILED;
    pReply->m_bMoreFollows = m_pFile != nullptr;
    SendReply(std::move(pReply), DFRT_SIZE);
    return 1;
}

// Asks the host where the file is, and opens it. Returns the result to send.
unsigned int CDownloadFileRequestHandler::Open(const _WXS_DOWN_FILE* pRequest,
                                               _WXS_DOWN_FILE_RET* pRet)
{
    const std::string strName = ReadName(pRequest + 1);
    KS_DOWNLOAD_FILE record = {m_pBrowser->GetConnectionName(), strName.c_str(), std::string(),
                               nullptr, 0};
    const unsigned int dwResult = Ask(KS_REQUEST_DOWNLOAD_FILE, record);
    if (dwResult != 0)
    {
        return dwResult;
    }
    return OpenResolved(record.strResolvedPath.empty() ? strName : record.strResolvedPath,
                        pRequest->ullOffset, pRet);
}

unsigned int CDownloadFileRequestHandler::OpenResolved(const std::string& strPath,
                                                       unsigned long long ullOffset,
                                                       _WXS_DOWN_FILE_RET* pRet)
{
    struct stat info = {};
    if (stat(strPath.c_str(), &info) != 0)
    {
        return RESULT_NOT_FOUND;
    }
    m_ullFileSize = static_cast<unsigned long long>(info.st_size);
    pRet->dwSizeHigh = static_cast<uint32_t>(m_ullFileSize >> 32);
    pRet->dwSizeLow = static_cast<uint32_t>(m_ullFileSize);
    pRet->dwAttributes = WXSP_ATTRIBUTES;
    pRet->dwModificationTime = static_cast<uint32_t>(info.st_mtime);
    // The offset is checked and no more: the blocks always carry the file from its first byte.
    if (static_cast<long long>(m_ullFileSize) < static_cast<long long>(ullOffset))
    {
        return RESULT_PAST_END;
    }
    m_pFile = OpenLocalFile(strPath.c_str(), "rb");
    return m_pFile != nullptr ? RESULT_SUCCESS : RESULT_OPEN_FAILED;
}

void CDownloadFileRequestHandler::OnSendComplete()
{
    if (m_nRepliesOut > 0)
    {
        return;  // a buffer of an earlier request of this id: the own one is still on its way
    }
    // Without a file the request is over: refused, ended by the empty block, or cancelled.
    if (m_pFile == nullptr || !SendBlock())
    {
        Delete();
    }
}

// Queues the next block. False when it cannot be made.
bool CDownloadFileRequestHandler::SendBlock()
{
    TellProgress();
    CReplyPtr pReply = CreateReply(DFRB_HEADER_SIZE + WXSP_DOWNLOAD_BLOCK_SIZE, DFRB, 0);
    size_t nRead = 0;
    if (pReply == nullptr || !ReadBlock(pReply->GetFree(0) + DFRB_HEADER_SIZE, nRead))
    {
        return false;
    }
    GetPacket(pReply)->dwVersion = WXSP_VERSION;
    GetPacket(pReply)->dwDataSize = static_cast<uint32_t>(sizeof(_WXS_DOWN_FILE_BLOCK) + nRead);
    m_ullPosition += nRead;
    pReply->m_bMoreFollows = nRead > 0;
    SendReply(std::move(pReply), DFRB_HEADER_SIZE + static_cast<int>(nRead));
    return true;
}

bool CDownloadFileRequestHandler::ReadBlock(unsigned char* pData, size_t& nRead)
{
    if (m_bSeek && !SeekLocalFile(m_pFile, m_ullPosition))
    {
        return false;
    }
    nRead = ReadLocalFile(m_pFile, pData, WXSP_DOWNLOAD_BLOCK_SIZE);
    // The end that was met may not be the end any more.
    m_bSeek = nRead < static_cast<size_t>(WXSP_DOWNLOAD_BLOCK_SIZE);
    if (m_bSeek && !feof(m_pFile))
    {
        return false;
    }
    if (nRead == 0)
    {
        CloseLocalFile(m_pFile);
        TellEnd(OSPREY_TRANSFER_COMPLETE);
    }
    return true;
}
