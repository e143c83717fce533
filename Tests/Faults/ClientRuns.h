#ifndef OSPREY_TESTS_CLIENTRUNS_H
#define OSPREY_TESTS_CLIENTRUNS_H

// The clients of the library in which calls may fail. Their hosts' own calls never fail.

#include <memory>
#include <new>
#include <string>

#include "ChannelHost.h"
#include "FaultPlan.h"
#include "FileHost.h"
#include "LibOsprey.h"

template <class Callback>
class COutsideFileHost final : public Callback
{
public:
    void OnConnected() override
    {
        const COutside outside;
        m_host.OnConnected();
    }
    void OnStartFailed(int nReason) override
    {
        const COutside outside;
        m_host.OnStartFailed(nReason);
    }
    void OnDisconnected(int nError) override
    {
        const COutside outside;
        m_host.OnDisconnected(nError);
    }
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                     long long& llNumber) override
    {
        const COutside outside;
        return m_host.GetNextFile(strLocalPath, strRemote, llNumber);
    }
    void OnProgress(unsigned int dwPercent) override
    {
        const COutside outside;
        m_host.OnProgress(dwPercent);
    }
    void OnFileCompleted() override
    {
        const COutside outside;
        m_host.OnFileCompleted();
    }
    void OnFileFailed(int nCode) override
    {
        const COutside outside;
        m_host.OnFileFailed(nCode);
    }

    CFileHost<Callback> m_host;
};

struct CSubmitKind
{
    typedef ISubmitFileClientCallback CCallback;
    typedef ISubmitFileClient CClient;
    static CClient* Create(CCallback* pCallback)
    {
        return CreateSubmitFileClient(pCallback);
    }
    static constexpr auto START = &ISubmitFileClient::StartFileSubmit;
    static constexpr auto STOP = &ISubmitFileClient::StopFileSubmit;
};

struct CDownloadKind
{
    typedef IDownloadFileClientCallback CCallback;
    typedef IDownloadFileClient CClient;
    static CClient* Create(CCallback* pCallback)
    {
        return CreateDownloadFileClient(pCallback);
    }
    static constexpr auto START = &IDownloadFileClient::StartFileDownload;
    static constexpr auto STOP = &IDownloadFileClient::StopFileDownload;
};

// Each operation runs inside the library.
template <class Kind>
class CFileClient
{
public:
    CFileClient() = default;
    ~CFileClient()
    {
        if (m_pClient != nullptr)
        {
            const CInside inside;
            m_pClient->Release();
        }
    }
    CFileClient(const CFileClient&) = delete;
    CFileClient& operator=(const CFileClient&) = delete;

    // The factory, when there is no client yet, and a start. False when either was refused.
    template <class Host>
    bool Start(Host& host, unsigned short wPort)
    {
        std::u16string strName = u"a name that takes memory";
        const CInside inside;
        try
        {
            m_pClient = m_pClient != nullptr ? m_pClient : Kind::Create(&host);
        }
        catch (const std::bad_alloc&)
        {
            return false;  // as the factories say
        }
        return (m_pClient->*Kind::START)(reinterpret_cast<unsigned short*>(&strName[0]), 0,
                                         LOOPBACK, wPort, 20000) != 0;
    }
    bool Stop()
    {
        const CInside inside;
        return m_pClient == nullptr || (m_pClient->*Kind::STOP)() != 0;
    }

private:
    typename Kind::CClient* m_pClient = nullptr;
};

class COutsideChannelHost final : public IWXSPChannelClientCallback
{
public:
    void OnConnected(unsigned int dwUserParam) override
    {
        const COutside outside;
        m_host.OnConnected(dwUserParam);
    }
    void OnConnectFailed(unsigned int dwUserParam) override
    {
        const COutside outside;
        m_host.OnConnectFailed(dwUserParam);
    }
    void OnDisconnected(unsigned int dwUserParam) override
    {
        const COutside outside;
        m_host.OnDisconnected(dwUserParam);
    }
    void OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                         unsigned int dwSize) override
    {
        const COutside outside;
        m_host.OnChannelPacket(dwUserParam, dwChannel, pData, dwSize);
    }

    CChannelHost m_host;
};

class CChannelClient
{
public:
    CChannelClient() = default;
    ~CChannelClient();
    CChannelClient(const CChannelClient&) = delete;
    CChannelClient& operator=(const CChannelClient&) = delete;

    // The factory and Connect to channel 1. False when either was refused.
    bool Connect(unsigned short wPort);
    void Release();

    COutsideChannelHost m_host;

private:
    IWXSPChannelClient* m_pClient = nullptr;
};

#endif
