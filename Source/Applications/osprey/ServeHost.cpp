#include "ServeHost.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

namespace
{

const char REFUSED_PATH[] = "/dev/null/refused";

// Stands in until a request is decided: short enough to be stored without allocating, so that a
// failure on the way leaves no request with an empty path, which would mean the peer's own name.
const char UNDECIDED_PATH[] = "/dev/null/x";

CConnectionName NameOfConnection(const char* pszConnection)
{
    return pszConnection == nullptr ? CConnectionName() : CConnectionName(pszConnection);
}

}  // namespace

CServeHost::CServeHost(const CRootMap& map, CServeEvents& events, CServeTransfers& transfers,
                       bool bReadOnly)
    : m_map(map), m_events(events), m_transfers(transfers), m_bReadOnly(bReadOnly)
{
}

int CServeHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    try
    {
        switch (eRequest)
        {
            case KS_REQUEST_UPLOAD_FILE:
                Upload(*static_cast<KS_UPLOAD_FILE*>(pRecord));
                break;
            case KS_REQUEST_DOWNLOAD_FILE:
                Download(*static_cast<KS_DOWNLOAD_FILE*>(pRecord));
                break;
            case KS_REQUEST_CREATE_DIR:
                CreateFolder(*static_cast<KS_CREATE_DIR*>(pRecord));
                break;
            case KS_REQUEST_DELETE_TREE:
                Delete(*static_cast<KS_DELETE_TREE*>(pRecord));
                break;
            case KS_REQUEST_NAME_CONNECTION:
                NameConnection(*static_cast<KS_NAME_CONNECTION*>(pRecord));
                break;
        }
    }
    catch (const std::exception&)
    {
        // No memory: the request stays refused.
        return 0;
    }
    return 0;
}

bool CServeHost::Allow(const char* pszRequest, const CConnectionName& connection,
                       const char* pszName, CRootMap::EUse eUse, CRootMap::CResult& result)
{
    if (m_bReadOnly && eUse != CRootMap::USE_DOWNLOAD)
    {
        result.m_strReason = "the folder is served read-only";
    }
    else
    {
        result = m_map.Map(pszName, eUse);
    }
    const bool bPartial =
        eUse == CRootMap::USE_UPLOAD && CServeTransfers::IsPartialName(result.m_strShown);
    if (result.m_bAllowed && bPartial)
    {
        result.m_bAllowed = false;
        result.m_strReason = "the name is kept for incomplete files";
    }
    if (!result.m_bAllowed)
    {
        m_events.Refused(pszRequest, connection, pszName, result.m_strReason);
    }
    return result.m_bAllowed;
}

bool CServeHost::MakeFolders(const CConnectionName& connection, const std::string& strFolder)
{
    std::vector<std::string> listCreated;
    const bool bMade = CRootMap::CreateFolders(strFolder, listCreated);
    const int nError = errno;
    const size_t nRoot = m_map.Root() == "/" ? 1 : m_map.Root().size() + 1;
    for (const std::string& strCreated : listCreated)
    {
        m_events.FolderCreated(connection, strCreated.substr(nRoot));
    }
    errno = nError;
    return bMade;
}

void CServeHost::Upload(KS_UPLOAD_FILE& request)
{
    request.strResolvedPath = UNDECIDED_PATH;
    const CConnectionName connection = NameOfConnection(request.pszConnection);
    CRootMap::CResult result;
    if (!Allow("upload", connection, request.pszName, CRootMap::USE_UPLOAD, result))
    {
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    std::string strPath;
    Orb_U64 ullContext = 0;
    if (MakeFolders(connection, FolderOf(result.m_strPath)))
    {
        ullContext = m_transfers.BeginUpload(connection, result.m_strPath, result.m_strShown,
                                             request.ullSize, request.ullOffset, strPath);
    }
    if (ullContext == 0)
    {
        m_events.Failed("upload", connection, result.m_strShown, strerror(errno));
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    request.strResolvedPath = strPath;
    request.pProgress = &m_transfers;
    request.ullProgressContext = ullContext;
}

void CServeHost::Download(KS_DOWNLOAD_FILE& request)
{
    request.strResolvedPath = UNDECIDED_PATH;
    const CConnectionName connection = NameOfConnection(request.pszConnection);
    CRootMap::CResult result;
    if (!Allow("download", connection, request.pszName, CRootMap::USE_DOWNLOAD, result))
    {
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    // Also when it will fail: the library then answers with the code that fits.
    request.strResolvedPath = result.m_strPath;
    struct stat info
    {
    };
    if (stat(result.m_strPath.c_str(), &info) != 0 || access(result.m_strPath.c_str(), R_OK) != 0)
    {
        m_events.Failed("download", connection, result.m_strShown, strerror(errno));
        return;
    }
    request.ullProgressContext = m_transfers.BeginDownload(connection, result.m_strShown,
                                                           static_cast<Orb_U64>(info.st_size));
    request.pProgress = &m_transfers;
}

void CServeHost::CreateFolder(KS_CREATE_DIR& request)
{
    request.strResolvedPath = UNDECIDED_PATH;
    const CConnectionName connection = NameOfConnection(request.pszConnection);
    CRootMap::CResult result;
    if (!Allow("folder", connection, request.pszPath, CRootMap::USE_CREATE_FOLDER, result))
    {
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    if (!MakeFolders(connection, result.m_strPath))
    {
        m_events.Failed("folder", connection, result.m_strShown, strerror(errno));
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    request.strResolvedPath = result.m_strPath;
}

void CServeHost::Delete(KS_DELETE_TREE& request)
{
    request.strResolvedPath = UNDECIDED_PATH;
    const CConnectionName connection = NameOfConnection(request.pszConnection);
    CRootMap::CResult result;
    if (!Allow("delete", connection, request.pszPath, CRootMap::USE_DELETE, result))
    {
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    if (m_transfers.Discard(connection, result.m_strPath))
    {
        // Told by the transfers; the target itself stays, and the peer hears of success.
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    request.strResolvedPath = result.m_strPath;
    if (unlink(result.m_strPath.c_str()) == 0)
    {
        m_events.Deleted(connection, result.m_strShown);
    }
    else
    {
        m_events.Failed("delete", connection, result.m_strShown, strerror(errno));
    }
}

void CServeHost::NameConnection(const KS_NAME_CONNECTION& request)
{
    m_mapConnections[request.pStream] = request.pszName;
    m_events.Connected(request.pszName);
}

void CServeHost::OnDisconnect(const char* pszName)
{
    try
    {
        const auto IsNamed = [pszName](const auto& entry) { return entry.second == pszName; };
        const auto it = std::find_if(m_mapConnections.begin(), m_mapConnections.end(), IsNamed);
        if (it != m_mapConnections.end())
        {
            m_mapConnections.erase(it);
        }
        const bool bLast = std::none_of(m_mapConnections.begin(), m_mapConnections.end(), IsNamed);
        m_transfers.ConnectionEnded(pszName, bLast);
        m_events.Disconnected(pszName);
    }
    catch (const std::exception&)
    {
        // No memory for a line of the log.
        return;
    }
}
