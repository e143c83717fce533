#include "DownloadFileClientImpl.h"

#include <algorithm>
#include <climits>

#include "ConvertUTF.h"
#include "LocalFile.h"

CDownloadFileClientImpl::CDownloadFileClientImpl(IDownloadFileClientCallback* pCallback)
    : COspreyClientImpl(pCallback)
{
}

Orb_BOOL CDownloadFileClientImpl::StartFileDownload(unsigned short* pName, unsigned int dwReserved,
                                                    unsigned int dwIPAddress, unsigned short wPort,
                                                    unsigned int dwConnectTimeoutMs)
{
    return Start(pName, dwReserved, dwIPAddress, wPort, dwConnectTimeoutMs);
}

Orb_BOOL CDownloadFileClientImpl::StopFileDownload()
{
    return Stop();
}

void CDownloadFileClientImpl::Release()
{
    ReleaseClient();
}

Orb_U64 CDownloadFileClientImpl::GetAnnouncedSize()
{
    return static_cast<Orb_U64>(m_llTotalSize);
}

void CDownloadFileClientImpl::ReleaseParts()
{
    m_stopPipe.Destroy();
    m_bufferReceive.Destroy();
    m_bufferRing.Destroy();
    m_stream.Destroy();
    m_engine.Destroy();
}

unsigned int CDownloadFileClientImpl::StartTransfer()
{
    m_bReceiving = false;
    m_strRemotePath =
        CConvertUTF::UTF8SToUTF16S(m_strRemote.c_str(), static_cast<int>(m_strRemote.size()) + 1);
    return DownloadCurrentFile();
}

unsigned int CDownloadFileClientImpl::DownloadCurrentFile()
{
    const size_t nPathSize = (m_strRemotePath.size() + 1) * sizeof(unsigned short);
    CRequestPtr pRequest = CreateRequest(DFIL, sizeof(_WXS_DOWN_FILE) + nPathSize);
    if (pRequest == nullptr)
    {
        return CODE_NO_MEMORY;
    }
    auto* pRecord = GetRecord<_WXS_DOWN_FILE>(GetPacket(pRequest));
    pRecord->dwRequestID = NextRequestID();
    pRecord->ullOffset = static_cast<unsigned long long>(m_llNumber);
    WriteName(pRecord + 1, m_strRemotePath);
    if (!SendRequest(std::move(pRequest)))
    {
        return CODE_NO_MEMORY;
    }
    m_llReceived = m_llNumber;
    return CODE_SUCCESS;
}

unsigned int CDownloadFileClientImpl::EndTransfer(unsigned int dwCode)
{
    if (!CloseLocalFile(m_pFile) && dwCode == CODE_SUCCESS)
    {
        dwCode = CODE_WRITE_FAILED;
    }
    if (dwCode != CODE_SUCCESS)
    {
        RemoveLocalFile(m_strLocalPath.c_str());
    }
    return dwCode;
}

bool CDownloadFileClientImpl::SendCleanUp()
{
    return SendCancel();
}

Orb_BOOL CDownloadFileClientImpl::ProcessWXSPacket(PWXS_PACKET pPacket)
{
    switch (pPacket->dwMagic)
    {
        case DFRT:
            return ProcessDownloadFileRet(pPacket);
        case DFRB:
            return ProcessDownloadFileRetBlock(pPacket);
        default:
            return COspreyClientImpl::ProcessWXSPacket(pPacket);
    }
}

Orb_BOOL CDownloadFileClientImpl::ProcessDownloadFileRet(PWXS_PACKET pPacket)
{
    if (!IsReply(pPacket, sizeof(_WXS_DOWN_FILE_RET), PHASE_FILE))
    {
        return Orb_TRUE;
    }
    const auto* pRet = GetRecord<_WXS_DOWN_FILE_RET>(pPacket);
    m_bReceiving = false;
    CloseLocalFile(m_pFile);
    if (pRet->dwResult != 0)
    {
        StopLoop(pRet->dwResult);
        return Orb_TRUE;
    }
    m_pFile = OpenLocalFile(m_strLocalPath.c_str(), "wb");
    if (m_pFile == nullptr)
    {
        StopLoop(CODE_OPEN_FAILED);
        return Orb_TRUE;
    }
    m_llTotalSize = static_cast<long long>(static_cast<unsigned long long>(pRet->dwSizeHigh) << 32 |
                                           pRet->dwSizeLow);
    m_llReceived = m_llNumber;
    m_bReceiving = true;
    return Orb_TRUE;
}

Orb_BOOL CDownloadFileClientImpl::ProcessDownloadFileRetBlock(PWXS_PACKET pPacket)
{
    // Blocks before a good DFRT belong to nothing.
    if (!IsReply(pPacket, sizeof(_WXS_DOWN_FILE_BLOCK), PHASE_FILE) || !m_bReceiving)
    {
        return Orb_TRUE;
    }
    const size_t nSize = pPacket->dwDataSize - sizeof(_WXS_DOWN_FILE_BLOCK);
    const void* pData = GetRecord<_WXS_DOWN_FILE_BLOCK>(pPacket) + 1;
    if (WriteLocalFile(m_pFile, pData, nSize) < nSize)
    {
        StopLoop(CODE_WRITE_FAILED);
        return Orb_TRUE;
    }
    CountReceived(static_cast<long long>(nSize));
    return Orb_TRUE;
}

void CDownloadFileClientImpl::CountReceived(long long llSize)
{
    // A start offset near the end of all numbers is the host's own doing, and no reason to wrap.
    if (__builtin_add_overflow(m_llReceived, llSize, &m_llReceived))
    {
        m_llReceived = LLONG_MAX;
    }
    if (m_llReceived >= m_llTotalSize)
    {
        m_pCallback->OnProgress(100);
        StopLoop(CODE_SUCCESS);
        return;
    }
    if (m_llTotalSize != 0)
    {
        // A negative start offset is the host's own doing: no progress until it is passed. With a
        // size beyond all numbers both are negative, and nothing follows from them.
        const double dPercent =
            static_cast<double>(m_llReceived) * 100.0 / static_cast<double>(m_llTotalSize);
        m_pCallback->OnProgress(static_cast<unsigned int>(std::clamp(dPercent, 0.0, 100.0)));
    }
}
