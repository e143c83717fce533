// Download ADDRESS PORT NAME FILE: fetches NAME from a server, at an ADDRESS such as 127.0.0.1.
#include <LibOsprey.h>
#include <arpa/inet.h>
#include <semaphore.h>

#include <cstdio>
#include <cstdlib>

// The file appears under its own name once it is complete: what is partial, the client deletes.
class CHost final : public IDownloadFileClientCallback
{
public:
    CHost(const char* pszName, const char* pszFile) : m_strName(pszName), m_strFile(pszFile)
    {
        sem_init(&m_ended, 0, 0);
    }

    // Waits until the run has ended; true when the file is there.
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
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote, long long&) override
    {
        if (m_bAsked)
        {
            sem_post(&m_ended);
            return false;
        }
        m_bAsked = true;
        strLocalPath = m_strFile + ".part";
        strRemote = m_strName;
        return true;
    }
    void OnProgress(unsigned int) override {}
    void OnFileCompleted() override
    {
        m_bCompleted = rename((m_strFile + ".part").c_str(), m_strFile.c_str()) == 0;
    }
    void OnFileFailed(int nCode) override
    {
        fprintf(stderr, "failed with %d\n", nCode);
    }

private:
    std::string m_strName, m_strFile;
    sem_t m_ended;
    bool m_bAsked = false, m_bCompleted = false;
};

int main(int argc, char** argv)
{
    in_addr address;
    if (argc != 5 || inet_pton(AF_INET, argv[1], &address) != 1)
    {
        return 2;
    }
    unsigned short szName[] = {'d', 'o', 'w', 'n', 'l', 'o', 'a', 'd', 0};
    const auto wPort = static_cast<unsigned short>(atoi(argv[2]));
    CHost host(argv[3], argv[4]);
    IDownloadFileClient* pClient = CreateDownloadFileClient(&host);
    const bool bHere =
        pClient->StartFileDownload(szName, 0, ntohl(address.s_addr), wPort, 5000) && host.Wait();
    pClient->Release();
    return bHere ? 0 : 1;
}
