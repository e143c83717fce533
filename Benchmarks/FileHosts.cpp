// Small hosts of the library, as a device's program would be one, on the public header alone.
//
//   FileHosts serve DIR            prints its port; serves until its standard input ends
//   FileHosts get PORT DIR         fetches the files that standard input names into DIR
//   FileHosts put PORT DIR         sends the files of DIR that standard input names
//   FileHosts get-timed | put-timed PORT DIR       the same; prints the milliseconds of each file

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "FreePort.h"
#include "LibOsprey.h"

namespace
{

const unsigned int LOOPBACK = 0x7F000001;
const unsigned int WAIT_MS = 10000;

// Names are plain; an upload's stands behind "FILESUBMIT|root|".
class CServingHost final : public IOspreyServerCallback
{
public:
    explicit CServingHost(const std::string& strDir) : m_strDir(strDir) {}

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override
    {
        if (eRequest == KS_REQUEST_UPLOAD_FILE)
        {
            auto* pUpload = static_cast<KS_UPLOAD_FILE*>(pRecord);
            pUpload->strResolvedPath = Resolve(pUpload->pszName);
        }
        else if (eRequest == KS_REQUEST_DOWNLOAD_FILE)
        {
            auto* pDownload = static_cast<KS_DOWNLOAD_FILE*>(pRecord);
            pDownload->strResolvedPath = Resolve(pDownload->pszName);
        }
        return 0;
    }
    void OnDisconnect(const char* /*pszName*/) override {}

private:
    std::string Resolve(const std::string& strName) const
    {
        return m_strDir + "/" + strName.substr(strName.find_last_of("|\\") + 1);
    }

    std::string m_strDir;
};

// A run over the files that standard input names.
template <class Callback>
class CTransferHost final : public Callback
{
public:
    typedef std::chrono::steady_clock Clock;

    CTransferHost(std::string strDir, bool bUpload)
        : m_strDir(std::move(strDir) + "/"), m_bUpload(bUpload)
    {
    }

    void OnConnected() override {}
    void OnStartFailed(int /*nReason*/) override
    {
        End(true);
    }
    void OnDisconnected(int /*nError*/) override
    {
        End(true);
    }
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                     long long& llNumber) override
    {
        m_listAsked.push_back(Clock::now());
        std::string strName;
        if (!std::getline(std::cin, strName))
        {
            End(false);
            return false;
        }
        strLocalPath = m_strDir + strName;
        strRemote = m_bUpload ? "root" : strName;
        llNumber = m_bUpload ? static_cast<long long>(m_strDir.size()) : 0;
        return true;
    }
    void OnProgress(unsigned int /*dwPercent*/) override {}
    void OnFileCompleted() override {}
    void OnFileFailed(int nCode) override
    {
        fprintf(stderr, "a file failed with code %d\n", nCode);
        End(true);
    }

    // False when something failed.
    bool WaitForEnd()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_bEnded; });
        return !m_bFailed;
    }
    // From asking for a file to asking for the next.
    void PrintTimes(FILE* pOutput) const
    {
        for (size_t i = 1; i < m_listAsked.size(); ++i)
        {
            const std::chrono::duration<double, std::milli> ms =
                m_listAsked[i] - m_listAsked[i - 1];
            fprintf(pOutput, "%.4f\n", ms.count());
        }
        fflush(pOutput);
    }

private:
    void End(bool bFailed)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bEnded = true;
        m_bFailed = m_bFailed || bFailed;
        m_changed.notify_one();
    }

    const std::string m_strDir;
    const bool m_bUpload;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bEnded = false;
    bool m_bFailed = false;
    std::vector<typename Clock::time_point> m_listAsked;
};

bool Serve(const std::string& strDir, FILE* pOutput)
{
    CServingHost host(strDir);
    IOspreyServer* pServer = CreateOspreyServer(&host);
    const unsigned short wPort = FreePort();
    const bool bRuns = pServer->Startup(0, wPort) != Orb_FALSE;
    if (bRuns)
    {
        fprintf(pOutput, "%d\n", wPort);
        fflush(pOutput);
        while (getchar() != EOF)
        {
        }
        pServer->EndAllConnections(WAIT_MS);
        pServer->Shutdown();
    }
    pServer->Release();
    return bRuns;
}

template <class Callback, class Client>
bool Move(Client* (*fnCreate)(Callback*),
          Orb_BOOL (Client::*fnStart)(unsigned short*, unsigned int, unsigned int, unsigned short,
                                      unsigned int),
          unsigned short wPort, const std::string& strDir, bool bUpload, FILE* pTimes)
{
    CTransferHost<Callback> host(strDir, bUpload);
    Client* pClient = fnCreate(&host);
    unsigned short name[] = {'b', 0};
    const bool bDone = (pClient->*fnStart)(name, 0, LOOPBACK, wPort, WAIT_MS) && host.WaitForEnd();
    pClient->Release();
    if (pTimes != nullptr)
    {
        host.PrintTimes(pTimes);
    }
    return bDone;
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    // The library's trace lines go where nobody reads them, with few system calls.
    static char szTrace[65536];
    FILE* pOutput = fdopen(dup(STDOUT_FILENO), "w");
    if (pOutput == nullptr || freopen("/dev/null", "w", stdout) == nullptr ||
        setvbuf(stdout, szTrace, _IOFBF, sizeof szTrace) != 0)
    {
        return 1;
    }
    std::string strMode = nArguments > 1 ? ppszArguments[1] : "";
    if (strMode == "serve" && nArguments == 3)
    {
        return Serve(ppszArguments[2], pOutput) ? 0 : 1;
    }
    const bool bTimed = strMode == "get-timed" || strMode == "put-timed";
    strMode.resize(bTimed ? 3 : strMode.size());
    if ((strMode != "get" && strMode != "put") || nArguments != 4)
    {
        fputs("usage: FileHosts serve DIR | get|put|get-timed|put-timed PORT DIR\n", stderr);
        return 2;
    }
    const auto wPort = static_cast<unsigned short>(atoi(ppszArguments[2]));
    FILE* const pTimes = bTimed ? pOutput : nullptr;
    const char* pszDir = ppszArguments[3];
    const bool bDone = strMode == "get"
                           ? Move(CreateDownloadFileClient, &IDownloadFileClient::StartFileDownload,
                                  wPort, pszDir, false, pTimes)
                           : Move(CreateSubmitFileClient, &ISubmitFileClient::StartFileSubmit,
                                  wPort, pszDir, true, pTimes);
    return bDone ? 0 : 1;
}
