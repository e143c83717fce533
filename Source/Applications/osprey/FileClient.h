#ifndef OSPREY_TOOL_FILECLIENT_H
#define OSPREY_TOOL_FILECLIENT_H

#include <memory>

#include "LibOsprey.h"

// Either of the library's file clients, behind one interface: see OspreyClient.h for what its
// operations promise. Released when it is deleted.
//
// Thread: one host thread at a time; Stop from inside a callback as well.
class IFileClient
{
public:
    IFileClient() = default;
    virtual ~IFileClient() = default;
    IFileClient(const IFileClient&) = delete;
    IFileClient& operator=(const IFileClient&) = delete;

    virtual bool Start(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
                       unsigned int dwTimeoutMs) = 0;
    virtual bool Stop() = 0;

    // Bytes of the current file as the peer announced them; 0 for an upload. From inside OnProgress
    // and OnFileCompleted.
    virtual Orb_U64 Announced() = 0;
};

// The callback must outlive the client.
std::unique_ptr<IFileClient> MakeSubmitClient(IFileClientCallback& callback);
std::unique_ptr<IFileClient> MakeDownloadClient(IFileClientCallback& callback);

#endif
