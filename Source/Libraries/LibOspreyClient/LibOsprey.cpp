#include "LibOsprey.h"

#include "DownloadFileClientImpl.h"
#include "OspreyServerImpl.h"
#include "SubmitFileClientImpl.h"

IOspreyServer* CreateOspreyServer(IOspreyServerCallback* pCallback)
{
    return new COspreyServerImpl(pCallback);
}

ISubmitFileClient* CreateSubmitFileClient(ISubmitFileClientCallback* pCallback)
{
    return new CSubmitFileClientImpl(pCallback);
}

IDownloadFileClient* CreateDownloadFileClient(IDownloadFileClientCallback* pCallback)
{
    return new CDownloadFileClientImpl(pCallback);
}
