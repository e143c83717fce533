#include "SubmitFileClientImpl.h"

#include <sys/stat.h>

#include <algorithm>

#include "ConvertUTF.h"
#include "LocalFile.h"

CSubmitFileClientImpl::CSubmitFileClientImpl(ISubmitFileClientCallback* pCallback)
    : COspreyClientImpl(pCallback)
{
}

Orb_BOOL CSubmitFileClientImpl::StartFileSubmit(unsigned short* pName, unsigned int dwReserved,
                                                unsigned int dwIPAddress, unsigned short wPort,
                                                unsigned int dwConnectTimeoutMs)
{
    return Start(pName, dwReserved, dwIPAddress, wPort, dwConnectTimeoutMs);
}

Orb_BOOL CSubmitFileClientImpl::StopFileSubmit()
{
    return Stop();
}

void CSubmitFileClientImpl::Release()
{
    ReleaseClient();
}

void CSubmitFileClientImpl::ReleaseParts()
{
    m_stopPipe.Destroy();
    m_engine.Destroy();
    m_bufferReceive.Destroy();
    m_bufferRing.Destroy();
    m_stream.Destroy();
}

unsigned int CSubmitFileClientImpl::StartTransfer()
{
    m_pBlockOut = nullptr;
    m_bBlockSent = false;
    return UploadCurrentFile();
}

unsigned int CSubmitFileClientImpl::UploadCurrentFile()
{
    struct stat info = {};
    if (stat(m_strLocalPath.c_str(), &info) != 0)
    {
        return CODE_NOT_FOUND;
    }
    const size_t nBase =
        m_llNumber <= 0 ? 0 : std::min(static_cast<size_t>(m_llNumber), m_strLocalPath.size());
    std::string strPart = m_strLocalPath.substr(nBase);
    std::replace(strPart.begin(), strPart.end(), '/', '\\');
    const std::string strRemotePath = "FILESUBMIT|" + m_strRemote + "|" + strPart;
    m_strRemotePath = CConvertUTF::UTF8SToUTF16S(strRemotePath.c_str(),
                                                 static_cast<int>(strRemotePath.size()) + 1);
    if (S_ISDIR(info.st_mode))
    {
        return SendPathRequest(CDIR) ? CODE_SUCCESS : CODE_NO_MEMORY;
    }
    m_llBytesRead = 0;
    m_llFileSize = info.st_size;
    return SendUploadFile(static_cast<unsigned int>(info.st_mtime)) ? CODE_SUCCESS : CODE_NO_MEMORY;
}

// CDIR or DELT for the current remote path.
bool CSubmitFileClientImpl::SendPathRequest(unsigned int dwMagic)
{
    const size_t nPathSize = (m_strRemotePath.size() + 1) * sizeof(unsigned short);
    CRequestPtr pRequest = CreateRequest(dwMagic, sizeof(_WXS_CREATE_DIR) + nPathSize);
    if (pRequest == nullptr)
    {
        return false;
    }
    auto* pRecord = GetRecord<_WXS_CREATE_DIR>(GetPacket(pRequest));
    pRecord->dwRequestID = NextRequestID();
    WriteName(pRecord + 1, m_strRemotePath);
    return SendRequest(std::move(pRequest));
}

bool CSubmitFileClientImpl::SendUploadFile(unsigned int dwModificationTime)
{
    const size_t nPathSize = (m_strRemotePath.size() + 1) * sizeof(unsigned short);
    CRequestPtr pRequest = CreateRequest(UPFI, sizeof(_WXS_UPLOAD_FILE) + nPathSize);
    if (pRequest == nullptr)
    {
        return false;
    }
    auto* pRecord = GetRecord<_WXS_UPLOAD_FILE>(GetPacket(pRequest));
    pRecord->dwRequestID = NextRequestID();
    pRecord->dwSizeHigh = static_cast<uint32_t>(m_llFileSize >> 32);
    pRecord->dwSizeLow = static_cast<uint32_t>(m_llFileSize);
    pRecord->dwAttributes = WXSP_ATTRIBUTES;
    pRecord->ullModificationTime = dwModificationTime;
    pRecord->ullOffset = 0;
    WriteName(pRecord + 1, m_strRemotePath);
    return SendRequest(std::move(pRequest));
}

unsigned int CSubmitFileClientImpl::EndTransfer(unsigned int dwCode)
{
    CloseLocalFile(m_pFile);
    return dwCode;
}

// What is partial at the peer is removed there.
bool CSubmitFileClientImpl::SendCleanUp()
{
    return SendCancel() && !m_strRemotePath.empty() && SendPathRequest(DELT);
}

Orb_BOOL CSubmitFileClientImpl::ProcessWXSPacket(PWXS_PACKET pPacket)
{
    switch (pPacket->dwMagic)
    {
        case CDRT:
            return ProcessCreateDirRet(pPacket);
        case DTRT:
            return ProcessDeleteTreeRet(pPacket);
        case UPFR:
            return ProcessUploadFileRet(pPacket);
        case UPBR:
            return ProcessUploadFileBlockRet(pPacket);
        default:
            return COspreyClientImpl::ProcessWXSPacket(pPacket);
    }
}

Orb_BOOL CSubmitFileClientImpl::ProcessCreateDirRet(PWXS_PACKET pPacket)
{
    if (IsReply(pPacket, sizeof(_WXS_RESULT), PHASE_FILE))
    {
        const unsigned int dwResult = GetRecord<_WXS_RESULT>(pPacket)->dwResult;
        StopLoop(dwResult != 0 ? CODE_DIR_REFUSED : CODE_SUCCESS);
    }
    return Orb_TRUE;
}

Orb_BOOL CSubmitFileClientImpl::ProcessDeleteTreeRet(PWXS_PACKET pPacket)
{
    if (IsReply(pPacket, sizeof(_WXS_RESULT), PHASE_CLEAN_UP))
    {
        const unsigned int dwResult = GetRecord<_WXS_RESULT>(pPacket)->dwResult;
        StopLoop(dwResult != 0 ? CODE_DELETE_REFUSED : CODE_SUCCESS);
    }
    return Orb_TRUE;
}

Orb_BOOL CSubmitFileClientImpl::ProcessUploadFileRet(PWXS_PACKET pPacket)
{
    if (!IsReply(pPacket, sizeof(_WXS_UPLOAD_FILE_RET), PHASE_FILE))
    {
        return Orb_TRUE;
    }
    const auto* pRet = GetRecord<_WXS_UPLOAD_FILE_RET>(pPacket);
    if (pRet->dwResult != 0)
    {
        StopLoop(CODE_UPLOAD_REFUSED);
        return Orb_TRUE;
    }
    CloseLocalFile(m_pFile);
    m_pFile = OpenLocalFile(m_strLocalPath.c_str(), "rb");
    m_bSeek = true;
    if (m_pFile == nullptr)
    {
        StopLoop(CODE_OPEN_FAILED);
        return Orb_TRUE;
    }
    m_dwLastBlock = 0;
    m_llUploadOffset = static_cast<long long>(pRet->ullOffset);
    UploadFileBlock();
    return Orb_TRUE;
}

Orb_BOOL CSubmitFileClientImpl::ProcessUploadFileBlockRet(PWXS_PACKET pPacket)
{
    if (!IsReply(pPacket, sizeof(_WXS_RESULT), PHASE_FILE) || !m_bBlockSent)
    {
        return Orb_TRUE;
    }
    m_bBlockSent = false;
    if (GetRecord<_WXS_RESULT>(pPacket)->dwResult != 0)
    {
        StopLoop(CODE_WRITE_FAILED);
    }
    else if (m_dwLastBlock == 0)
    {
        UploadFileBlock();
    }
    else
    {
        StopLoop(CODE_SUCCESS);
    }
    return Orb_TRUE;
}

void CSubmitFileClientImpl::OnDataSent(CTCPStreamBuffer* pBuffer)
{
    if (pBuffer == m_pBlockOut)
    {
        m_pBlockOut = nullptr;
        m_bBlockSent = true;
    }
    COspreyClientImpl::OnDataSent(pBuffer);
}

// Reads and queues the next block. A short block still goes as one of many: an empty one marked as
// the last always ends the file.
void CSubmitFileClientImpl::UploadFileBlock()
{
    const size_t nHeader = sizeof(_WXS_UPLOAD_FILE_BLOCK);
    CRequestPtr pRequest = CreateRequest(UPFB, nHeader + WXSP_UPLOAD_BLOCK_SIZE);
    if (pRequest == nullptr)
    {
        StopLoop(CODE_NO_MEMORY);
        return;
    }
    auto* pBlock = GetRecord<_WXS_UPLOAD_FILE_BLOCK>(GetPacket(pRequest));
    int nLength = WXSP_UPLOAD_BLOCK_SIZE;
    int nLastBlock = 0;
    if (!UploadReadData(pBlock + 1, m_llUploadOffset, nLength, nLastBlock))
    {
        StopLoop(CODE_READ_FAILED);
        return;
    }
    m_llUploadOffset += nLength;
    m_dwLastBlock = m_dwLastBlock != 0 || nLastBlock != 0 ? 1 : 0;
    pBlock->dwRequestID = m_dwRequestID;
    pBlock->dwLastBlock = m_dwLastBlock;
    GetPacket(pRequest)->dwDataSize =
        static_cast<uint32_t>(nHeader) + static_cast<uint32_t>(nLength);
    m_bBlockSent = false;
    m_pBlockOut = pRequest.get();
    SendRequest(std::move(pRequest));
}

// nLength: in, room in bytes; out, bytes read. False when the file is not open, or on a read error.
bool CSubmitFileClientImpl::UploadReadData(void* pBuffer, long long llOffset, int& nLength,
                                           int& nLastBlock)
{
    if (m_pFile == nullptr)
    {
        return false;
    }
    size_t nRead = 0;
    if (m_llFileSize > llOffset)
    {
        const size_t nRoom = static_cast<size_t>(nLength);
        if (m_bSeek && !SeekLocalFile(m_pFile, static_cast<unsigned long long>(llOffset)))
        {
            return false;
        }
        nRead = ReadLocalFile(m_pFile, pBuffer, nRoom);
        m_bSeek = nRead < nRoom;  // the end that was met may not be the end any more
        if (nRead < nRoom && !feof(m_pFile))
        {
            return false;
        }
    }
    nLength = static_cast<int>(nRead);
    m_llBytesRead += nLength;
    nLastBlock = nRead == 0 ? 1 : 0;
    if (nLastBlock != 0)
    {
        CloseLocalFile(m_pFile);
        m_pCallback->OnProgress(100);
    }
    else
    {
        ReportProgress();
    }
    return true;
}

void CSubmitFileClientImpl::ReportProgress()
{
    const double dPercent =
        static_cast<double>(m_llBytesRead) * 100.0 / static_cast<double>(m_llFileSize);
    // More than all: a file that grows, or a peer that has it sent again.
    m_pCallback->OnProgress(static_cast<unsigned int>(std::min(dPercent, 100.0)));
}
