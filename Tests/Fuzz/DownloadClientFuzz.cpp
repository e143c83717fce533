// The download client against a server whose every reply is the input's. See FileClientFuzz.h.

#include "FileClientFuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    RunFileClient(input, &CreateDownloadFileClient, &IDownloadFileClient::StartFileDownload,
                  &IDownloadFileClient::StopFileDownload, true);
    return 0;
}
