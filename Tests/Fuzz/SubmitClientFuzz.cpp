// The upload client against a server whose every reply is the input's. See FileClientFuzz.h.

#include "FileClientFuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    RunFileClient(input, &CreateSubmitFileClient, &ISubmitFileClient::StartFileSubmit,
                  &ISubmitFileClient::StopFileSubmit, false);
    return 0;
}
