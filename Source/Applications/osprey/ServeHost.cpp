#include "ServeHost.h"

#include <sys/stat.h>
#include <unistd.h>

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

CServeHost::CServeHost(const CRootFolder& root, CServeEvents& events, CServeTransfers& transfers,
                       bool bReadOnly)
    : m_root(root), m_map(root), m_events(events), m_transfers(transfers), m_bReadOnly(bReadOnly)
{
}

int CServeHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    m_transfers.Called();
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

CDescriptor CServeHost::MakeFolder(const CConnectionName& connection, const std::string& strFolder)
{
    std::vector<std::string> listCreated;
    CDescriptor folder = m_root.MakeFolder(strFolder, listCreated);
    const int nError = errno;
    for (const std::string& strCreated : listCreated)
    {
        m_events.FolderCreated(connection, strCreated);
    }
    errno = nError;
    return folder;
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
    const CServeTransfers::CUpload upload{connection, result, request.ullSize, request.ullOffset};
    if (const char* pszFault = m_transfers.Fault(m_root, upload))
    {
        m_events.Refused("upload", connection, request.pszName, pszFault);
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    std::string strPath;
    Orb_U64 ullContext = 0;
    CDescriptor folder = MakeFolder(connection, FolderOf(result.m_strShown));
    if (folder.IsValid())
    {
        ullContext = m_transfers.BeginUpload(upload, std::move(folder), strPath);
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
    if (!result.m_entry.IsValid())
    {
        m_events.Failed("download", connection, result.m_strShown, strerror(ENOENT));
        request.strResolvedPath = REFUSED_PATH;  // where the library finds nothing either
        return;
    }
    // Also when it will fail: the library then answers with the code that fits.
    request.strResolvedPath = m_transfers.Hold(std::move(result.m_entry));
    struct stat info
    {
    };
    const char* pszPath = request.strResolvedPath.c_str();
    if (stat(pszPath, &info) != 0 || access(pszPath, R_OK) != 0)
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
    CDescriptor folder = MakeFolder(connection, result.m_strShown);
    if (!folder.IsValid())
    {
        m_events.Failed("folder", connection, result.m_strShown, strerror(errno));
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    // The library would make a folder writable that is not.
    if (access(folder.Path().c_str(), W_OK) != 0)
    {
        m_events.Failed("folder", connection, result.m_strShown, strerror(errno));
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    request.strResolvedPath = m_transfers.Hold(std::move(folder));
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
    if (m_transfers.Discard(m_root, connection, result.m_strShown))
    {
        // Told by the transfers; the target itself stays, and the peer hears of success.
        request.strResolvedPath = REFUSED_PATH;
        return;
    }
    Unlink(connection, result, request.strResolvedPath);
}

void CServeHost::Unlink(const CConnectionName& connection, const CRootMap::CResult& target,
                        std::string& strResolvedPath)
{
    CDescriptor folder = m_root.Find(FolderOf(target.m_strShown));
    const std::string strName = NameOf(target.m_strShown);
    if (folder.IsValid() && unlinkat(folder.Get(), strName.c_str(), 0) == 0)
    {
        m_transfers.Deleted(target.m_entry);
        m_events.Deleted(connection, target.m_strShown);
        strResolvedPath = REFUSED_PATH;
        return;
    }
    m_events.Failed("delete", connection, target.m_strShown, strerror(errno));
    // What could not be deleted here fails in the library as well, which then says so.
    const bool bThere = folder.IsValid() && KindAt(folder, strName) != KIND_MISSING;
    strResolvedPath =
        bThere ? JoinPath(m_transfers.Hold(std::move(folder)), strName) : REFUSED_PATH;
}

void CServeHost::NameConnection(const KS_NAME_CONNECTION& request)
{
    m_events.Connected(request.pszName);
}

void CServeHost::OnDisconnect(const char* pszName)
{
    try
    {
        m_transfers.ConnectionEnded();
        m_events.Disconnected(pszName);
    }
    catch (const std::exception&)
    {
        // No memory for a line of the log.
        return;
    }
}
