#include "FileHosts.h"

CServerHost::CServerHost(CEvents& events, std::string strPath)
    : m_events(events), m_strPath(std::move(strPath))
{
}

int CServerHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    if (eRequest == KS_REQUEST_UPLOAD_FILE)
    {
        KS_UPLOAD_FILE& upload = *static_cast<KS_UPLOAD_FILE*>(pRecord);
        upload.strResolvedPath = m_strPath;
        upload.pProgress = this;
    }
    else if (eRequest == KS_REQUEST_DOWNLOAD_FILE)
    {
        KS_DOWNLOAD_FILE& download = *static_cast<KS_DOWNLOAD_FILE*>(pRecord);
        download.strResolvedPath = m_strPath;
        download.pProgress = this;
    }
    return 0;
}

void CServerHost::OnDisconnect(const char* /*pszName*/)
{
    m_events.Add("server lost");
}

void CServerHost::OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 /*ullContext*/)
{
    if (ullDone == ullTotal)
    {
        m_events.Add("server moved all");
    }
}
