#ifndef OSPREY_SUBMITFILECLIENTIMPL_H
#define OSPREY_SUBMITFILECLIENTIMPL_H

// Internal header.

#include <cstdio>

#include "OspreyClientImpl.h"

// Uploads one file after another, strictly one block in flight:
//
//   directory:  CDIR --> CDRT
//   file:       UPFI --> UPFR, then UPFB --> UPBR until an empty block marked as the last
//   stop:       CAOP, DELT --> DTRT
//
// Otherwise as COspreyClientImpl.
class CSubmitFileClientImpl final : public ISubmitFileClient, public COspreyClientImpl
{
public:
    explicit CSubmitFileClientImpl(ISubmitFileClientCallback* pCallback);

    Orb_BOOL StartFileSubmit(unsigned short* pName, unsigned int dwReserved,
                             unsigned int dwIPAddress, unsigned short wPort,
                             unsigned int dwConnectTimeoutMs) override;
    Orb_BOOL StopFileSubmit() override;
    void Release() override;

    void OnDataSent(CTCPStreamBuffer* pBuffer) override;
    Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) override;
    Orb_BOOL ProcessCreateDirRet(PWXS_PACKET pPacket);
    Orb_BOOL ProcessDeleteTreeRet(PWXS_PACKET pPacket);
    Orb_BOOL ProcessUploadFileRet(PWXS_PACKET pPacket);
    Orb_BOOL ProcessUploadFileBlockRet(PWXS_PACKET pPacket);

protected:
    unsigned int StartTransfer() override;
    unsigned int EndTransfer(unsigned int dwCode) override;
    bool SendCleanUp() override;
    void ReleaseParts() override;

private:
    unsigned int UploadCurrentFile();
    bool SendPathRequest(unsigned int dwMagic);
    bool SendUploadFile(unsigned int dwModificationTime);
    void UploadFileBlock();
    bool UploadReadData(void* pBuffer, long long llOffset, int& nLength, int& nLastBlock);
    void ReportProgress();

    unsigned int m_dwLastBlock = 0;  // the last block of the file has been read
    long long m_llUploadOffset = 0;  // of the next block
    FILE* m_pFile = nullptr;         // owned
    bool m_bSeek = true;             // before the next read
    long long m_llFileSize = 0;
    long long m_llBytesRead = 0;  // in this upload, the offset that the peer asked for left out
    // An UPBR counts once, and only when the block that it answers has left.
    const CTCPStreamBuffer* m_pBlockOut = nullptr;
    bool m_bBlockSent = false;
};

#endif
