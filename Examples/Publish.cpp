// Publish PORT: puts each line of standard input into channel 1, until the input ends.
#include <LibOsprey.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Serves channels alone: every request for a file is refused.
class CHost final : public IOspreyServerCallback
{
public:
    int OnRequest(KS_REQUEST eRequest, void* pRecord) override
    {
        const char* pszRefused = "/dev/null/refused";
        switch (eRequest)
        {
            case KS_REQUEST_UPLOAD_FILE:
                static_cast<KS_UPLOAD_FILE*>(pRecord)->strResolvedPath = pszRefused;
                break;
            case KS_REQUEST_DOWNLOAD_FILE:
                static_cast<KS_DOWNLOAD_FILE*>(pRecord)->strResolvedPath = pszRefused;
                break;
            case KS_REQUEST_CREATE_DIR:
                static_cast<KS_CREATE_DIR*>(pRecord)->strResolvedPath = pszRefused;
                break;
            case KS_REQUEST_DELETE_TREE:
                static_cast<KS_DELETE_TREE*>(pRecord)->strResolvedPath = pszRefused;
                break;
            default:
                break;
        }
        return 0;
    }
    void OnDisconnect(const char*) override {}
};

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return 2;
    }
    CHost host;
    IOspreyServer* pServer = CreateOspreyServer(&host);
    if (!pServer->Startup(0, static_cast<unsigned short>(atoi(argv[1]))))
    {
        pServer->Release();
        return 1;
    }
    char szLine[1500];  // the largest packet
    while (fgets(szLine, sizeof szLine, stdin) != nullptr)
    {
        // 5 means that nobody reads the channel: no reason to stop.
        pServer->PutChannelPacket(1, szLine, static_cast<unsigned int>(strlen(szLine)));
        pServer->FlushChannelPackets();  // now, not when a reader looks next
    }
    while (!pServer->EndAllConnections(1000))
    {
    }
    pServer->Shutdown();
    pServer->Release();
    return 0;
}
