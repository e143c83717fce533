#include "ServeTransfers.h"

#include <exception>

double CServeTransfers::CTransfer::Seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

CServeTransfers::CServeTransfers(CServeEvents& events, CServeQuota& quota)
    : m_events(events), m_quota(quota)
{
}

void CServeTransfers::SetServer(IOspreyServer& server)
{
    m_pServer = &server;
    server.SetTransferObserver(this);
}

std::string CServeTransfers::Hold(CDescriptor&& descriptor)
{
    m_held = std::move(descriptor);
    return m_held.Path();
}

Orb_U64 CServeTransfers::BeginDownload(const CConnectionName& connection,
                                       const std::string& strShown, Orb_U64 ullSize)
{
    CTransfer transfer;
    transfer.m_connection = connection;
    transfer.m_strShown = strShown;
    transfer.m_ullTotal = ullSize;
    return Add(std::move(transfer));
}

Orb_U64 CServeTransfers::Add(CTransfer&& transfer)
{
    transfer.m_lTask = m_pServer->GetCallbackTask();
    transfer.m_start = std::chrono::steady_clock::now();
    m_mapTransfers.emplace(++m_ullLastId, std::move(transfer));
    return m_ullLastId;
}

void CServeTransfers::OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext)
{
    m_held.Close();
    const auto it = m_mapTransfers.find(ullContext);
    if (it == m_mapTransfers.end())
    {
        return;
    }
    CTransfer& transfer = it->second;
    try
    {
        if (transfer.m_bUpload && !CountArrived(transfer, ullDone))
        {
            m_mapTransfers.erase(it);
            return;
        }
    }
    catch (const std::exception&)
    {
        m_pServer->TerminateTask(transfer.m_lTask);  // no memory to tell why
        return;
    }
    transfer.m_ullDone = ullDone;
    transfer.m_ullTotal = ullTotal;
}

void CServeTransfers::OnTransferEnded(OSPREY_TRANSFER_END eEnd, Orb_U64 ullContext)
{
    m_held.Close();
    const auto it = m_mapTransfers.find(ullContext);
    if (it == m_mapTransfers.end())
    {
        return;
    }
    try
    {
        End(eEnd, it->second);
    }
    catch (const std::exception&)
    {
        // No memory: its peer must not take for stored what may not be.
        m_pServer->TerminateTask(it->second.m_lTask);
    }
    m_mapTransfers.erase(it);
}

void CServeTransfers::End(OSPREY_TRANSFER_END eEnd, CTransfer& transfer)
{
    if (eEnd == OSPREY_TRANSFER_COMPLETE && transfer.m_bUpload)
    {
        FinishUpload(transfer);
        return;
    }
    // A file that shrank on its way is whole for nobody.
    if (eEnd == OSPREY_TRANSFER_COMPLETE && transfer.m_ullDone >= transfer.m_ullTotal)
    {
        m_events.Finished(false, transfer.m_connection, transfer.m_strShown, transfer.m_ullDone,
                          transfer.Seconds());
        return;
    }
    Abandon(transfer, eEnd == OSPREY_TRANSFER_CANCELLED);
}

void CServeTransfers::Called()
{
    m_held.Close();
    const auto it = m_mapGivenUp.find(m_pServer->GetCallbackTask());
    m_givenUp = CGivenUp();
    if (it != m_mapGivenUp.end())
    {
        m_givenUp = std::move(it->second);
        m_mapGivenUp.erase(it);
    }
}

void CServeTransfers::ConnectionEnded()
{
    m_held.Close();
    m_mapGivenUp.erase(m_pServer->GetCallbackTask());
}

void CServeTransfers::EndAll()
{
    m_held.Close();
    for (const auto& entry : m_mapTransfers)
    {
        Abandon(entry.second, false);
    }
    m_mapTransfers.clear();
}

void CServeTransfers::Abandon(const CTransfer& transfer, bool bGivenUp)
{
    const std::string strKept = transfer.m_bUpload ? Keep(transfer) : std::string();
    m_events.Incomplete(transfer.m_bUpload, transfer.m_connection, transfer.m_strShown,
                        transfer.m_ullDone, transfer.m_ullTotal, strKept);
    if (transfer.m_bUpload && bGivenUp)
    {
        CGivenUp& givenUp = m_mapGivenUp[transfer.m_lTask];
        givenUp.m_strShown = transfer.m_strShown;
        givenUp.m_strKept = strKept;
        givenUp.m_idFile = FileId(transfer.m_file);
    }
}
