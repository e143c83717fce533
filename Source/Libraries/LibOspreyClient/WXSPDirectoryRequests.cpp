#include "WXSPDirectoryRequests.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <vector>

#include "WXSPBrowserHandler.h"

namespace
{

const int RESULT_REPLY_SIZE = WXSP_HEADER_SIZE + sizeof(_WXS_RESULT);
const int DIRECTORY_REPLY_ROOM = 28;

bool MakeWritable(const std::string& strDir)
{
    return access(strDir.c_str(), W_OK) == 0 || chmod(strDir.c_str(), 0755) == 0;
}

}  // namespace

void CResultRequestHandler::OnSendComplete()
{
    Delete();
}

int CResultRequestHandler::Reply(unsigned int dwRequestID, const void* pName, unsigned int dwMagic,
                                 int nRoom)
{
    m_dwRequestID = dwRequestID;
    CReplyPtr pReply = CreateReply(nRoom, dwMagic, sizeof(_WXS_RESULT));
    if (pReply == nullptr)
    {
        return 0;
    }
    GetRecord<_WXS_RESULT>(GetPacket(pReply))->dwResult = Perform(ReadName(pName));
    SendReply(std::move(pReply), RESULT_REPLY_SIZE);
    return 1;
}

int CNameConnectionRequestHandler::Startup(_WXS_NAME_CONNECTION* pRequest)
{
    return Reply(pRequest->dwRequestID, pRequest + 1, NAMR, RESULT_REPLY_SIZE);
}

unsigned int CNameConnectionRequestHandler::Perform(const std::string& strName)
{
    KS_NAME_CONNECTION record = {strName.c_str(), m_pBrowser->GetStream()};
    const unsigned int dwResult = m_pBrowser->OnRequest(KS_REQUEST_NAME_CONNECTION, &record);
    if (dwResult != 0)
    {
        return dwResult;
    }
    return m_pBrowser->SetConnectionName(strName) ? RESULT_SUCCESS : RESULT_NO_MEMORY;
}

int CCreateDirRequestHandler::Startup(_WXS_CREATE_DIR* pRequest)
{
    return Reply(pRequest->dwRequestID, pRequest + 1, CDRT, DIRECTORY_REPLY_ROOM);
}

unsigned int CCreateDirRequestHandler::Perform(const std::string& strPath)
{
    KS_CREATE_DIR record = {m_pBrowser->GetConnectionName(), strPath.c_str(), std::string()};
    const unsigned int dwResult = m_pBrowser->OnRequest(KS_REQUEST_CREATE_DIR, &record);
    if (dwResult != 0)
    {
        return dwResult;
    }
    const std::string& strResolved =
        record.strResolvedPath.empty() ? strPath : record.strResolvedPath;
    return CheckDirExistsAndWriteLimit(strResolved) ? RESULT_SUCCESS : RESULT_DIR_FAILED;
}

bool CCreateDirRequestHandler::wxDirExist(const std::string& strPath)
{
    struct stat info = {};
    return stat(strPath.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The longest ancestor that exists, the path itself included; empty when there is none. Nothing
// exists below what does not, so that halving finds it: a peer's path may have thousands of parts.
std::string CCreateDirRequestHandler::FindExistingAncestor(const std::string& strPath)
{
    std::vector<size_t> ends;  // of the ancestors that a path can be long enough for
    for (size_t nEnd = strPath.find('/', 1); nEnd < PATH_MAX; nEnd = strPath.find('/', nEnd + 1))
    {
        ends.push_back(nEnd);
    }
    if (strPath.size() < PATH_MAX)
    {
        ends.push_back(strPath.size());
    }
    const auto itMissing = std::partition_point(
        ends.begin(), ends.end(), [&](size_t nEnd) { return wxDirExist(strPath.substr(0, nEnd)); });
    return itMissing == ends.begin() ? std::string() : strPath.substr(0, *(itMissing - 1));
}

bool CCreateDirRequestHandler::CheckDirExistsAndWriteLimit(const std::string& strPath)
{
    std::string strPrefix = FindExistingAncestor(strPath);
    if (strPrefix.empty() || !MakeWritable(strPrefix))
    {
        return false;
    }
    while (strPrefix.size() < strPath.size())
    {
        strPrefix = strPath.substr(0, strPath.find('/', strPrefix.size() + 1));
        if (!wxDirExist(strPrefix) && mkdir(strPrefix.c_str(), 0777) != 0)
        {
            return false;
        }
    }
    return true;
}

int CDeleteTreeRequestHandler::Startup(_WXS_DELETE_TREE* pRequest)
{
    return Reply(pRequest->dwRequestID, pRequest + 1, DTRT, DIRECTORY_REPLY_ROOM);
}

unsigned int CDeleteTreeRequestHandler::Perform(const std::string& strPath)
{
    KS_DELETE_TREE record = {m_pBrowser->GetConnectionName(), strPath.c_str(), std::string()};
    const unsigned int dwResult = m_pBrowser->OnRequest(KS_REQUEST_DELETE_TREE, &record);
    if (dwResult != 0)
    {
        return dwResult;
    }
    const std::string& strResolved =
        record.strResolvedPath.empty() ? strPath : record.strResolvedPath;
    struct stat info = {};
    if (stat(strResolved.c_str(), &info) != 0 || S_ISDIR(info.st_mode))
    {
        return RESULT_SUCCESS;
    }
    return static_cast<unsigned int>(remove(strResolved.c_str()));
}
