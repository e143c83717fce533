#include "LibOsprey.h"

#include "DownloadFileClientImpl.h"
#include "OspreyServerImpl.h"
#include "SubmitFileClientImpl.h"
#include "WXSPChannelClientImpl.h"

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

IWXSPChannelClient* CreateWXSPChannelClient(IWXSPChannelClientCallback* pCallback,
                                            unsigned int dwUserParam)
{
    return new CWXSPChannelClientImpl(pCallback, dwUserParam);
}
