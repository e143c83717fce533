// Submit ADDRESS PORT FILE: sends one file to a server, at an ADDRESS such as 127.0.0.1.
#include <LibOsprey.h>
#include <arpa/inet.h>
#include <semaphore.h>

#include <cstdio>
#include <cstdlib>

class CHost final : public ISubmitFileClientCallback
{
public:
    explicit CHost(const char* pszFile) : m_strFile(pszFile)
    {
        sem_init(&m_ended, 0, 0);
    }

    // Waits until the run has ended; true when the file has arrived whole.
    bool Wait()
    {
        sem_wait(&m_ended);
        return m_bCompleted;
    }

    void OnConnected() override {}
    void OnStartFailed(int) override
    {
        sem_post(&m_ended);
    }
    void OnDisconnected(int) override
    {
        sem_post(&m_ended);
    }
    bool GetNextFile(std::string& strLocalPath, std::string&, long long& llBaseLength) override
    {
        if (m_bAsked)
        {
            sem_post(&m_ended);
            return false;
        }
        m_bAsked = true;
        strLocalPath = m_strFile;
        llBaseLength = static_cast<long long>(m_strFile.rfind('/')) + 1;  // send the name alone
        return true;
    }
    void OnProgress(unsigned int) override {}
    void OnFileCompleted() override
    {
        m_bCompleted = true;
    }
    void OnFileFailed(int nCode) override
    {
        fprintf(stderr, "failed with %d\n", nCode);
    }

private:
    std::string m_strFile;
    sem_t m_ended;
    bool m_bAsked = false, m_bCompleted = false;
};

int main(int argc, char** argv)
{
    in_addr address;
    if (argc != 4 || inet_pton(AF_INET, argv[1], &address) != 1)
    {
        return 2;
    }
    unsigned short szName[] = {'s', 'u', 'b', 'm', 'i', 't', 0};
    CHost host(argv[3]);
    ISubmitFileClient* pClient = CreateSubmitFileClient(&host);
    const bool bSent = pClient->StartFileSubmit(szName, 0, ntohl(address.s_addr),
                                                static_cast<unsigned short>(atoi(argv[2])), 5000) &&
                       host.Wait();
    pClient->Release();
    return bSent ? 0 : 1;
}
