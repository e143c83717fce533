#include "FuzzHost.h"

#include "FuzzInput.h"

namespace
{

const Orb_U64 CONTEXT = 0x0123456789ABCDEF;

// Counted from 'a', around and around.
unsigned int GetPlace(const std::string& strName)
{
    const unsigned int dwBefore = 26 * PLACE_COUNT;
    return strName.empty() ? 0U + PLACE_REFUSED
                           : dwBefore + static_cast<unsigned char>(strName[0]) - 'a';
}

}  // namespace

template <class Record>
void CFuzzHost::Resolve(Record& record, const char* pszName, bool bChanges)
{
    Require(record.strResolvedPath.empty(), "a host finds no path in the record");
    Require(record.pszConnection == nullptr ? !m_bNamed : m_strName == record.pszConnection,
            "a request comes with the connection's name");
    const unsigned int dwPlace = GetPlace(pszName);
    record.strResolvedPath = bChanges ? m_root.GetPathToChange(dwPlace) : m_root.GetPath(dwPlace);
}

template <class Record>
void CFuzzHost::ResolveTransfer(Record& record, bool bChanges)
{
    Resolve(record, record.pszName, bChanges);
    if (m_bProgress)
    {
        record.pProgress = this;
        record.ullProgressContext = CONTEXT;
    }
}

void CFuzzHost::Name(const KS_NAME_CONNECTION& record)
{
    m_bNamed = true;
    m_strName = record.pszName;
    if (m_bTerminate)
    {
        m_pServer->TerminateTask(reinterpret_cast<long>(record.pStream));
    }
}

int CFuzzHost::OnRequest(KS_REQUEST eRequest, void* pRecord)
{
    switch (eRequest)
    {
        case KS_REQUEST_UPLOAD_FILE:
            ResolveTransfer(*static_cast<KS_UPLOAD_FILE*>(pRecord), true);
            break;
        case KS_REQUEST_DOWNLOAD_FILE:
            ResolveTransfer(*static_cast<KS_DOWNLOAD_FILE*>(pRecord), false);
            break;
        case KS_REQUEST_CREATE_DIR:
        {
            KS_CREATE_DIR& record = *static_cast<KS_CREATE_DIR*>(pRecord);
            Resolve(record, record.pszPath, true);
            break;
        }
        case KS_REQUEST_DELETE_TREE:
        {
            KS_DELETE_TREE& record = *static_cast<KS_DELETE_TREE*>(pRecord);
            Resolve(record, record.pszPath, true);
            break;
        }
        case KS_REQUEST_NAME_CONNECTION:
            Name(*static_cast<KS_NAME_CONNECTION*>(pRecord));
            break;
    }
    return 0;
}

void CFuzzHost::OnDisconnect(const char* pszName)
{
    Require(m_bNamed && m_strName == pszName, "a named connection ends under its last name");
    ++m_nDisconnects;
}

void CFuzzHost::OnProgress(Orb_U64 /*ullDone*/, Orb_U64 /*ullTotal*/, Orb_U64 ullContext)
{
    Require(m_bProgress && ullContext == CONTEXT, "progress comes with the host's context");
}

void CFuzzHost::Begin(COspreyServer* pServer, bool bProgress, bool bTerminate)
{
    m_pServer = pServer;
    m_bProgress = bProgress;
    m_bTerminate = bTerminate;
    m_bNamed = false;
    m_strName.clear();
    m_nDisconnects = 0;
}

void CFuzzHost::End()
{
    Require(m_nDisconnects == (m_bNamed ? 1 : 0), "a named connection ends once, no other does");
    m_root.Restore();
}
