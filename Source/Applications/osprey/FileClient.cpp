#include "FileClient.h"

#include <string>

namespace
{

// Hands on what a client tells. TInterface is one of the two callback interfaces.
template <class TInterface>
class CForwardingCallback final : public TInterface
{
public:
    explicit CForwardingCallback(IFileClientCallback& callback) : m_callback(callback) {}

    void OnConnected() override
    {
        m_callback.OnConnected();
    }
    void OnStartFailed(int nReason) override
    {
        m_callback.OnStartFailed(nReason);
    }
    void OnDisconnected(int nError) override
    {
        m_callback.OnDisconnected(nError);
    }
    bool GetNextFile(std::string& strLocal, std::string& strRemote, long long& llNumber) override
    {
        return m_callback.GetNextFile(strLocal, strRemote, llNumber);
    }
    void OnProgress(unsigned int dwPercent) override
    {
        m_callback.OnProgress(dwPercent);
    }
    void OnFileCompleted() override
    {
        m_callback.OnFileCompleted();
    }
    void OnFileFailed(int nCode) override
    {
        m_callback.OnFileFailed(nCode);
    }

private:
    IFileClientCallback& m_callback;
};

Orb_U64 AnnouncedBy(ISubmitFileClient&)
{
    return 0;
}

Orb_U64 AnnouncedBy(IDownloadFileClient& client)
{
    return client.GetAnnouncedSize();
}

// TClient is one of the two client interfaces: its callback, and what they call differently.
template <class TClient, class TInterface, TClient* (*FN_CREATE)(TInterface*),
          Orb_BOOL (TClient::*FN_START)(unsigned short*, unsigned int, unsigned int, unsigned short,
                                        unsigned int),
          Orb_BOOL (TClient::*FN_STOP)()>
class CFileClient final : public IFileClient
{
public:
    explicit CFileClient(IFileClientCallback& callback)
        : m_callback(callback), m_pClient(FN_CREATE(&m_callback))
    {
    }
    ~CFileClient() override
    {
        m_pClient->Release();
    }
    CFileClient(const CFileClient&) = delete;
    CFileClient& operator=(const CFileClient&) = delete;

    bool Start(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
               unsigned int dwTimeoutMs) override
    {
        return (m_pClient->*FN_START)(pName, 0, dwAddress, wPort, dwTimeoutMs) != Orb_FALSE;
    }
    bool Stop() override
    {
        return (m_pClient->*FN_STOP)() != Orb_FALSE;
    }
    Orb_U64 Announced() override
    {
        return AnnouncedBy(*m_pClient);
    }

private:
    CForwardingCallback<TInterface> m_callback;
    TClient* m_pClient;  // owned, released
};

using CSubmitClient =
    CFileClient<ISubmitFileClient, ISubmitFileClientCallback, CreateSubmitFileClient,
                &ISubmitFileClient::StartFileSubmit, &ISubmitFileClient::StopFileSubmit>;
using CDownloadClient =
    CFileClient<IDownloadFileClient, IDownloadFileClientCallback, CreateDownloadFileClient,
                &IDownloadFileClient::StartFileDownload, &IDownloadFileClient::StopFileDownload>;

}  // namespace

std::unique_ptr<IFileClient> MakeSubmitClient(IFileClientCallback& callback)
{
    return std::make_unique<CSubmitClient>(callback);
}

std::unique_ptr<IFileClient> MakeDownloadClient(IFileClientCallback& callback)
{
    return std::make_unique<CDownloadClient>(callback);
}
