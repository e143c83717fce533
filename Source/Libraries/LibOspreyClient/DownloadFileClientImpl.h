#ifndef OSPREY_DOWNLOADFILECLIENTIMPL_H
#define OSPREY_DOWNLOADFILECLIENTIMPL_H

// Internal header.

#include <cstdio>

#include "OspreyClientImpl.h"

// Downloads one file after another:
//
//   file:  DFIL --> DFRT, then DFRB ... until as many bytes as announced have come
//   stop:  CAOP
//
// Every early end deletes the local path. Otherwise as COspreyClientImpl.
class CDownloadFileClientImpl final : public IDownloadFileClient, public COspreyClientImpl
{
public:
    explicit CDownloadFileClientImpl(IDownloadFileClientCallback* pCallback);

    Orb_BOOL StartFileDownload(unsigned short* pName, unsigned int dwReserved,
                               unsigned int dwIPAddress, unsigned short wPort,
                               unsigned int dwConnectTimeoutMs) override;
    Orb_BOOL StopFileDownload() override;
    void Release() override;
    Orb_U64 GetAnnouncedSize() override;

    Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) override;
    Orb_BOOL ProcessDownloadFileRet(PWXS_PACKET pPacket);
    Orb_BOOL ProcessDownloadFileRetBlock(PWXS_PACKET pPacket);

protected:
    unsigned int StartTransfer() override;
    unsigned int EndTransfer(unsigned int dwCode) override;
    bool SendCleanUp() override;
    void ReleaseParts() override;

private:
    unsigned int DownloadCurrentFile();
    void CountReceived(long long llSize);

    FILE* m_pFile = nullptr;      // owned
    long long m_llReceived = 0;   // bytes, the start offset included
    long long m_llTotalSize = 0;  // of the file, as the peer reported it
    bool m_bReceiving = false;    // a good DFRT has come
};

#endif
