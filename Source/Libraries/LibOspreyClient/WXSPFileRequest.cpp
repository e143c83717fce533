#include "WXSPFileRequest.h"

#include "LocalFile.h"
#include "WXSPBrowserHandler.h"

CFileRequestHandler::~CFileRequestHandler()
{
    CFileRequestHandler::OnShutdown();
}

void CFileRequestHandler::OnShutdown()
{
    CloseLocalFile(m_pFile);
    TellEnd(m_pBrowser->IsEnding() ? OSPREY_TRANSFER_LOST : OSPREY_TRANSFER_CANCELLED);
}

unsigned int CFileRequestHandler::AskHost(KS_REQUEST eRequest, void* pRecord)
{
    m_bEndToTell = true;
    return m_pBrowser->OnRequest(eRequest, pRecord);
}

void CFileRequestHandler::TellProgress()
{
    if (m_pProgress != nullptr)
    {
        m_pProgress->OnProgress(m_ullPosition, m_ullFileSize, m_ullProgressContext);
    }
}

void CFileRequestHandler::TellEnd(OSPREY_TRANSFER_END eEnd)
{
    if (m_bEndToTell)
    {
        m_bEndToTell = false;
        m_pBrowser->OnTransferEnded(eEnd, m_ullProgressContext);
    }
}
