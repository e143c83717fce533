// FileServer DIR PORT: peers may put files into DIR and fetch them, until Enter is pressed.
//
// Standard output is the library's, for its trace lines; an example speaks on standard error.
#include <LibOsprey.h>

#include <cstdio>
#include <cstdlib>

class CHost final : public IOspreyServerCallback
{
public:
    explicit CHost(const char* pszDir) : m_strDir(pszDir) {}

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override
    {
        if (eRequest == KS_REQUEST_UPLOAD_FILE)
        {
            auto* pUpload = static_cast<KS_UPLOAD_FILE*>(pRecord);
            pUpload->strResolvedPath = LocalPath(pUpload->pszName);
        }
        else if (eRequest == KS_REQUEST_DOWNLOAD_FILE)
        {
            auto* pDownload = static_cast<KS_DOWNLOAD_FILE*>(pRecord);
            pDownload->strResolvedPath = LocalPath(pDownload->pszName);
        }
        else if (eRequest == KS_REQUEST_CREATE_DIR)
        {
            static_cast<KS_CREATE_DIR*>(pRecord)->strResolvedPath = "/dev/null/refused";
        }
        else if (eRequest == KS_REQUEST_DELETE_TREE)
        {
            static_cast<KS_DELETE_TREE*>(pRecord)->strResolvedPath = "/dev/null/refused";
        }
        return 0;
    }

    void OnDisconnect(const char* pszName) override
    {
        fprintf(stderr, "%s has gone\n", pszName);
    }

private:
    // A plain name, alone or at the end of "FILESUBMIT|root|name", is a file of the folder; every
    // other name is refused.
    std::string LocalPath(const std::string& strName) const
    {
        const std::string strPlain = strName.substr(strName.rfind('|') + 1);
        const bool bAllowed = !strPlain.empty() && strPlain[0] != '.' &&
                              strPlain.find_first_of("/\\") == std::string::npos;
        return bAllowed ? m_strDir + "/" + strPlain : "/dev/null/refused";
    }

    std::string m_strDir;
};

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    const auto wPort = static_cast<unsigned short>(atoi(argv[2]));
    bool bRan = false;
    CHost host(argv[1]);
    IOspreyServer* pServer = CreateOspreyServer(&host);
    if (pServer->Startup(0, wPort))
    {
        bRan = true;
        fputs("Serving; Enter ends.\n", stderr);
        getchar();
        while (!pServer->EndAllConnections(1000))
        {
        }
        pServer->Shutdown();
    }
    pServer->Release();
    return bRan ? 0 : 1;
}
