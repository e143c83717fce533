// The program behind CStressServer: PORT FOLDER [DESCRIPTORS]. Serves the folder, with so many
// descriptors at most, and obeys the lines that come on its standard input until that ends. Each is
// answered with a line on descriptor 3; the first line there says that it listens.
//
//   put CHANNEL COUNT  puts as many packets; the answer is how many were stored
//   restart            ends every connection and the server, and starts it again; milliseconds
//   shutdown           the same without the start, Shutdown first; its milliseconds
//   stream CHANNELS    from now on puts numbered packets into as many channels, from 1 on
//   hoard, release     takes every descriptor that comes free from now on; gives all back
//   heap               how many KiB of the heap are in use
//   trim               gives back to the system what the heap keeps and nobody uses

#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "LibOsprey.h"
#include "PacketStream.h"

namespace
{

const int ANSWERS = 3;
const unsigned int END_MS = 60000;
const size_t PACKET_SIZE = 1316;

typedef std::chrono::steady_clock CClock;

long long GetMsSince(CClock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(CClock::now() - start).count();
}

void Answer(const std::string& strLine)
{
    const std::string strWhole = strLine + "\n";
    if (write(ANSWERS, strWhole.data(), strWhole.size()) != static_cast<ssize_t>(strWhole.size()))
    {
        exit(1);
    }
}

// Of all threads. What a thread keeps for its own next requests counts as used; see mallinfo(3).
size_t GetHeapKiB()
{
    const struct mallinfo2 info = mallinfo2();
    return (info.uordblks + info.hblkhd) / 1024;
}

// The last part of a name is the file of the folder.
class CHost final : public IOspreyServerCallback
{
public:
    explicit CHost(const char* pszFolder) : m_strFolder(pszFolder) {}

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override
    {
        switch (eRequest)
        {
            case KS_REQUEST_UPLOAD_FILE:
                Map(static_cast<KS_UPLOAD_FILE*>(pRecord)->pszName,
                    static_cast<KS_UPLOAD_FILE*>(pRecord)->strResolvedPath);
                break;
            case KS_REQUEST_DOWNLOAD_FILE:
                Map(static_cast<KS_DOWNLOAD_FILE*>(pRecord)->pszName,
                    static_cast<KS_DOWNLOAD_FILE*>(pRecord)->strResolvedPath);
                break;
            case KS_REQUEST_CREATE_DIR:
                Map(static_cast<KS_CREATE_DIR*>(pRecord)->pszPath,
                    static_cast<KS_CREATE_DIR*>(pRecord)->strResolvedPath);
                break;
            case KS_REQUEST_DELETE_TREE:
                Map(static_cast<KS_DELETE_TREE*>(pRecord)->pszPath,
                    static_cast<KS_DELETE_TREE*>(pRecord)->strResolvedPath);
                break;
            case KS_REQUEST_NAME_CONNECTION:
                break;
        }
        return 0;
    }
    void OnDisconnect(const char* /*pszName*/) override {}

private:
    void Map(const std::string& strName, std::string& strPath) const
    {
        const std::string strPlain = strName.substr(strName.find_last_of("|\\/") + 1);
        const bool bAllowed = !strPlain.empty() && strPlain[0] != '.';
        strPath = bAllowed ? m_strFolder + "/" + strPlain : "/dev/null/refused";
    }

    std::string m_strFolder;
};

// A thread that takes descriptors away from everybody else in the process.
class CHoard
{
public:
    ~CHoard()
    {
        Release();
    }
    void Begin()
    {
        m_bOver = false;
        m_thread = std::thread(
            [this]
            {
                while (!m_bOver)
                {
                    const int h = open("/dev/null", O_RDONLY | O_CLOEXEC);
                    if (h >= 0)
                    {
                        m_taken.push_back(h);
                    }
                    else
                    {
                        std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    }
                }
            });
    }
    void Release()
    {
        m_bOver = true;
        if (m_thread.joinable())
        {
            m_thread.join();
        }
        for (const int h : m_taken)
        {
            close(h);
        }
        m_taken.clear();
    }

private:
    std::atomic<bool> m_bOver{false};
    std::vector<int> m_taken;
    std::thread m_thread;
};

class CCommands
{
public:
    CCommands(IOspreyServer* pServer, unsigned short wPort) : m_pServer(pServer), m_wPort(wPort) {}

    bool Obey(const std::string& strLine)
    {
        std::istringstream words(strLine);
        std::string strVerb;
        words >> strVerb;
        const CClock::time_point start = CClock::now();
        if (strVerb == "put")
        {
            unsigned int dwChannel = 0;
            int nCount = 0;
            words >> dwChannel >> nCount;
            Answer(std::to_string(Put(dwChannel, nCount)));
            return true;
        }
        if (strVerb == "stream")
        {
            unsigned int dwChannels = 0;
            words >> dwChannels;
            m_stream.Begin(m_pServer, dwChannels);
            Answer("done");
            return true;
        }
        if (strVerb == "hoard" || strVerb == "release")
        {
            strVerb == "hoard" ? m_hoard.Begin() : m_hoard.Release();
            Answer("done");
            return true;
        }
        if (strVerb == "heap")
        {
            Answer(std::to_string(GetHeapKiB()));
            return true;
        }
        if (strVerb == "trim")
        {
            malloc_trim(0);
            Answer("done");
            return true;
        }
        if (strVerb == "restart")
        {
            return Restart(start);
        }
        if (strVerb == "shutdown")
        {
            m_pServer->Shutdown();
            Answer(std::to_string(GetMsSince(start)));
        }
        return false;
    }

private:
    int Put(unsigned int dwChannel, int nCount)
    {
        int nStored = 0;
        char pPacket[PACKET_SIZE] = {};
        for (int i = 0; i < nCount; ++i)
        {
            nStored += m_pServer->PutChannelPacket(dwChannel, pPacket, sizeof pPacket) == 0 ? 1 : 0;
        }
        return nStored;
    }
    bool Restart(CClock::time_point start)
    {
        const bool bWell = m_pServer->EndAllConnections(END_MS) && m_pServer->Shutdown() &&
                           m_pServer->Startup(0, m_wPort);
        Answer(bWell ? std::to_string(GetMsSince(start)) : "failed");
        return bWell;
    }

    IOspreyServer* m_pServer;
    unsigned short m_wPort;
    CHoard m_hoard;
    CPacketStream m_stream;
};

void ObeyLines(IOspreyServer* pServer, unsigned short wPort)
{
    CCommands commands(pServer, wPort);
    std::string strLine;
    while (std::getline(std::cin, strLine) && commands.Obey(strLine))
    {
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (nArguments < 3)
    {
        return 2;
    }
    if (nArguments > 3)
    {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = strtoul(ppszArguments[3], nullptr, 10);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    CHost host(ppszArguments[2]);
    IOspreyServer* pServer = CreateOspreyServer(&host);
    const auto wPort = static_cast<unsigned short>(strtoul(ppszArguments[1], nullptr, 10));
    if (!pServer->Startup(0, wPort))
    {
        return 1;
    }
    Answer("listening");
    ObeyLines(pServer, wPort);
    pServer->EndAllConnections(END_MS);
    pServer->Shutdown();
    pServer->Release();
    return 0;
}
