// Puts a number into channel 1 every 10 milliseconds: MinimalPublisher PORT

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "LibOsprey.h"

namespace
{

// Serves channels alone: every file request is refused.
class CHost : public IOspreyServerCallback
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
    void OnDisconnect(const char* /*pszName*/) override {}
};

}  // namespace

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
    for (unsigned int dwNumber = 0;; ++dwNumber)
    {
        // 5 means that nobody reads the channel: no reason to stop.
        pServer->PutChannelPacket(1, &dwNumber, sizeof dwNumber);
        usleep(10000);
    }
}
