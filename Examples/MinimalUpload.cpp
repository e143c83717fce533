// MinimalUpload ADDRESS PORT FILE: sends one file to a server, as ADDRESS 127.0.0.1.
#include <LibOsprey.h>
#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <future>

class CUpload final : public ISubmitFileClientCallback
{
public:
    explicit CUpload(const char* pszFile) : m_strFile(pszFile) {}

    // Waits until the run has ended; true when the file has arrived whole.
    bool Wait()
    {
        m_ended.get_future().wait();
        return m_bCompleted;
    }

    void OnConnected() override {}
    void OnStartFailed(int) override
    {
        End();
    }
    void OnDisconnected(int) override
    {
        End();
    }
    bool GetNextFile(std::string& strLocalPath, std::string&, long long& llBaseLength) override
    {
        if (m_bAsked)
        {
            End();
            return false;
        }
        m_bAsked = true;
        strLocalPath = m_strFile;
        llBaseLength = static_cast<long long>(m_strFile.rfind('/')) + 1;  // send the name alone
        return true;
    }
    void OnProgress(unsigned int dwPercent) override
    {
        printf("%u %%\n", dwPercent);
    }
    void OnFileCompleted() override
    {
        m_bCompleted = true;
    }
    void OnFileFailed(int nCode) override
    {
        printf("failed with %d\n", nCode);
    }

private:
    // A lost connection may be told twice while a run is being set up.
    void End()
    {
        if (!m_bEnded)
        {
            m_bEnded = true;
            m_ended.set_value();
        }
    }

    std::string m_strFile;
    std::promise<void> m_ended;
    bool m_bAsked = false;
    bool m_bEnded = false;
    bool m_bCompleted = false;
};

int main(int argc, char** argv)
{
    in_addr address;
    if (argc != 4 || inet_pton(AF_INET, argv[1], &address) != 1)
    {
        return 2;
    }
    unsigned short szName[] = {'e', 'x', 'a', 'm', 'p', 'l', 'e', 0};
    CUpload upload(argv[3]);
    ISubmitFileClient* pClient = CreateSubmitFileClient(&upload);
    const bool bStarted = pClient->StartFileSubmit(
        szName, 0, ntohl(address.s_addr), static_cast<unsigned short>(atoi(argv[2])), 5000);
    const bool bSent = bStarted && upload.Wait();
    pClient->StopFileSubmit();
    pClient->Release();
    return bSent ? 0 : 1;
}
