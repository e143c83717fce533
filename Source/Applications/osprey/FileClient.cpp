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

class CSubmitClient final : public IFileClient
{
public:
    explicit CSubmitClient(IFileClientCallback& callback)
        : m_callback(callback), m_pClient(CreateSubmitFileClient(&m_callback))
    {
    }
    ~CSubmitClient() override
    {
        m_pClient->Release();
    }
    CSubmitClient(const CSubmitClient&) = delete;
    CSubmitClient& operator=(const CSubmitClient&) = delete;

    bool Start(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
               unsigned int dwTimeoutMs) override
    {
        return m_pClient->StartFileSubmit(pName, 0, dwAddress, wPort, dwTimeoutMs) != Orb_FALSE;
    }
    bool Stop() override
    {
        return m_pClient->StopFileSubmit() != Orb_FALSE;
    }

private:
    CForwardingCallback<ISubmitFileClientCallback> m_callback;
    ISubmitFileClient* m_pClient;  // owned, released
};

class CDownloadClient final : public IFileClient
{
public:
    explicit CDownloadClient(IFileClientCallback& callback)
        : m_callback(callback), m_pClient(CreateDownloadFileClient(&m_callback))
    {
    }
    ~CDownloadClient() override
    {
        m_pClient->Release();
    }
    CDownloadClient(const CDownloadClient&) = delete;
    CDownloadClient& operator=(const CDownloadClient&) = delete;

    bool Start(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
               unsigned int dwTimeoutMs) override
    {
        return m_pClient->StartFileDownload(pName, 0, dwAddress, wPort, dwTimeoutMs) != Orb_FALSE;
    }
    bool Stop() override
    {
        return m_pClient->StopFileDownload() != Orb_FALSE;
    }

private:
    CForwardingCallback<IDownloadFileClientCallback> m_callback;
    IDownloadFileClient* m_pClient;  // owned, released
};

}  // namespace

std::unique_ptr<IFileClient> MakeSubmitClient(IFileClientCallback& callback)
{
    return std::make_unique<CSubmitClient>(callback);
}

std::unique_ptr<IFileClient> MakeDownloadClient(IFileClientCallback& callback)
{
    return std::make_unique<CDownloadClient>(callback);
}
