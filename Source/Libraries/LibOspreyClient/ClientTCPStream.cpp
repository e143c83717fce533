#include "ClientTCPStream.h"

namespace
{

// With the 5 seconds between two keep-alives, a peer that vanished is noticed after 30.
const unsigned int SILENCE_MS = 25000;
const int PAUSE_MS = 1000;

}  // namespace

CClientTCPStream::CClientTCPStream(CIOEngine* pEngine) : CTCPStream(pEngine) {}

void CClientTCPStream::SetNoDelay()
{
    m_sock.SetNoDelay();
}

void CClientTCPStream::ShutdownSend()
{
    if (!m_bPendingDestroy && m_sock.IsValid())
    {
        m_sock.ShutdownSend();
    }
}

void CClientTCPStream::ProcessConnected()
{
    m_bConnectSuccessful = Orb_TRUE;
    // Not before: how long connecting may take is the owner's to say.
    m_sock.LimitSilence(SILENCE_MS, PAUSE_MS);
    if (m_pCallback != nullptr)
    {
        m_pCallback->OnConnectSuccessful();
    }
}

void CClientTCPStream::ProcessDataReceived(CTCPStreamBuffer* pBuffer)
{
    if (m_pCallback != nullptr)
    {
        m_pCallback->OnDataReceived(pBuffer);
    }
}

void CClientTCPStream::ProcessDataSent(CTCPStreamBuffer* pBuffer)
{
    if (m_pCallback != nullptr)
    {
        m_pCallback->OnDataSent(pBuffer);
    }
}

void CClientTCPStream::ProcessDisconnected()
{
    if (m_pCallback != nullptr)
    {
        m_pCallback->OnNetworkError(0);
    }
}

void CClientTCPStream::ProcessNetworkError(int nError)
{
    if (m_pCallback == nullptr)
    {
        return;
    }
    if (m_bConnectSuccessful)
    {
        m_pCallback->OnNetworkError(nError);
    }
    else
    {
        m_pCallback->OnConnectFailed(nError);
    }
}
