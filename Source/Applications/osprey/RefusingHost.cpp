#include "RefusingHost.h"

#include <exception>

namespace
{

// Short enough to be stored without allocating: a refusal cannot fail.
const char REFUSED_PATH[] = "/dev/null/x";

}  // namespace

int CRefusingHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    switch (eRequest)
    {
        case KS_REQUEST_UPLOAD_FILE:
        {
            KS_UPLOAD_FILE& request = *static_cast<KS_UPLOAD_FILE*>(pRecord);
            Refuse("upload", request.pszConnection, request.pszName, request.strResolvedPath);
            break;
        }
        case KS_REQUEST_DOWNLOAD_FILE:
        {
            KS_DOWNLOAD_FILE& request = *static_cast<KS_DOWNLOAD_FILE*>(pRecord);
            Refuse("download", request.pszConnection, request.pszName, request.strResolvedPath);
            break;
        }
        case KS_REQUEST_CREATE_DIR:
        {
            KS_CREATE_DIR& request = *static_cast<KS_CREATE_DIR*>(pRecord);
            Refuse("folder", request.pszConnection, request.pszPath, request.strResolvedPath);
            break;
        }
        case KS_REQUEST_DELETE_TREE:
        {
            KS_DELETE_TREE& request = *static_cast<KS_DELETE_TREE*>(pRecord);
            Refuse("delete", request.pszConnection, request.pszPath, request.strResolvedPath);
            break;
        }
        case KS_REQUEST_NAME_CONNECTION:
            break;
    }
    return 0;
}

void CRefusingHost::Refuse(const char* pszRequest, const char* pszConnection, const char* pszName,
                           std::string& strResolvedPath)
{
    strResolvedPath = REFUSED_PATH;
    try
    {
        const CConnectionName connection =
            pszConnection == nullptr ? CConnectionName() : CConnectionName(pszConnection);
        m_events.Refused(pszRequest, connection, pszName, "no files are served");
    }
    catch (const std::exception&)
    {
        // No memory for a line of the log.
        return;
    }
}

void CRefusingHost::OnDisconnect(const char*) {}
