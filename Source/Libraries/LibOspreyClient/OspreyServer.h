#ifndef OSPREY_OSPREYSERVER_H
#define OSPREY_OSPREYSERVER_H

// The server: what a host creates, drives and implements to serve files and live channels to peers.
//
//   host threads                        worker thread (one a server)
//   ------------                        ----------------------------
//   CreateOspreyServer
//   SetConnectionFilter, SetTransferObserver
//   Startup            ---- starts ---> accepts, receives, reads and writes files
//   PutChannelPacket   --- (store) ---> sends channel packets
//   TerminateTask      ---- wakes  ---> detaches one connection
//                                       OnAccept
//                                       OnRequest, OnDisconnect
//                                       IOspreyProgress::OnProgress, OnTransferEnded
//   EndAllConnections  ---- wakes  ---> closes the listener, detaches every connection
//   Shutdown           ---- joins  ---> ends
//   Release
//
// Every call into the host runs on the worker thread, and while it runs nothing else of this server
// moves: answer promptly, and do not throw. A callback may call TerminateTask, GetCallbackTask,
// PutChannelPacket, FlushChannelPackets, GetChannelMaxBufferUsage and EndAllConnections (which then
// does not wait). On other threads every operation may be called at any time, Startup and Shutdown
// too: they wait for each other. Release is the last call. From inside a callback Startup is
// refused, and Shutdown and Release only ask the worker to end.

#include <string>

#include "OspreyExport.h"
#include "OspreyTypes.h"

class COspreyServerStream;

// What a peer asks for. The number says which record OnRequest's second argument points to.
enum KS_REQUEST
{
    KS_REQUEST_UPLOAD_FILE = 2,      // KS_UPLOAD_FILE
    KS_REQUEST_DOWNLOAD_FILE = 3,    // KS_DOWNLOAD_FILE
    KS_REQUEST_CREATE_DIR = 5,       // KS_CREATE_DIR
    KS_REQUEST_DELETE_TREE = 6,      // KS_DELETE_TREE
    KS_REQUEST_NAME_CONNECTION = 7,  // KS_NAME_CONNECTION
};

// Learns how far a file has come. The host implements it and keeps it alive until the connection of
// the transfer has ended; the library never deletes it.
class OSPREY_API IOspreyProgress
{
public:
    // ullDone:    bytes moved so far, counted from the start of the file.
    // ullTotal:   size of the file in bytes: as found on disk (download), as announced (upload).
    // ullContext: the value that the host left in the request's record.
    //
    // Download: before each block is read, the last time with done equal to total; upload: after
    // each block is written. A transfer that fails or is cancelled makes no further call; see
    // IOspreyTransferObserver for its end.
    virtual void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) = 0;

protected:
    ~IOspreyProgress() {}
};

// Records of OnRequest. They live during the call only: copy what is needed later. Text is UTF-8
// and NUL-terminated. pszConnection is the name that the peer gave to its connection, null if none.
//
// strResolvedPath is empty on entry. The host fills it with the local path to use; left empty, the
// name that the peer sent is used as a local path AS IT IS, absolute names and ".." included. To
// refuse a request, name a path that cannot exist, such as "/dev/null/refused": the peer then gets
// the protocol's own error (a DELT of such a path is answered with success and does nothing).

// Of KS_REQUEST_UPLOAD_FILE: a peer wants to send a file.
struct KS_UPLOAD_FILE
{
    const char* pszConnection;    // name of the connection; null if none
    const char* pszName;          // as the peer sent it
    Orb_U32 dwAttributes;         // as the peer sent them; not applied to the file
    Orb_U64 ullSize;              // bytes the peer announces
    Orb_U64 ullModificationTime;  // seconds since 1970-01-01 UTC; not applied to the file
    Orb_U64 ullOffset;            // where to start; ~0 asks to continue an existing file
    std::string strResolvedPath;  // out
    IOspreyProgress* pProgress;   // out; null on entry
    Orb_U64 ullProgressContext;   // out; 0 on entry
};

// Of KS_REQUEST_DOWNLOAD_FILE: a peer wants to be sent a file.
struct KS_DOWNLOAD_FILE
{
    const char* pszConnection;    // name of the connection; null if none
    const char* pszName;          // as the peer sent it
    std::string strResolvedPath;  // out
    IOspreyProgress* pProgress;   // out; null on entry
    Orb_U64 ullProgressContext;   // out; 0 on entry
};

// Of KS_REQUEST_CREATE_DIR: a peer wants to have a directory made.
struct KS_CREATE_DIR
{
    const char* pszConnection;    // name of the connection; null if none
    const char* pszPath;          // as the peer sent it
    std::string strResolvedPath;  // out
};

// Of KS_REQUEST_DELETE_TREE: a peer wants to have a file deleted.
struct KS_DELETE_TREE
{
    const char* pszConnection;    // name of the connection; null if none
    const char* pszPath;          // as the peer sent it
    std::string strResolvedPath;  // out
};

// Of KS_REQUEST_NAME_CONNECTION: a peer names its connection.
struct KS_NAME_CONNECTION
{
    const char* pszName;           // the name being given; a later one replaces it
    COspreyServerStream* pStream;  // its address, as a long, is the task for TerminateTask
};

// Implemented by the host. Given to the factory, never deleted by the library; it must outlive
// Release. Both operations run on the worker thread.
class OSPREY_API IOspreyServerCallback
{
public:
    // A peer asks for something; pRecord points to the record that eRequest names. The result is
    // ignored: a request is refused through the resolved path, never through the result.
    virtual int OnRequest(KS_REQUEST eRequest, void* pRecord) = 0;

    // A named connection has ended, for whatever reason; its transfers are over and its files
    // closed. Connections that never gave a name end without this call. pszName is valid during
    // the call only. Inside OnRequest and OnDisconnect the task of the connection is still valid;
    // once OnDisconnect has returned, its number may belong to a new connection.
    virtual void OnDisconnect(const char* pszName) = 0;

protected:
    ~IOspreyServerCallback() {}
};

// Decides which connections are taken. Implemented by the host, never deleted by the library; it
// must outlive Release, or until another one is set.
class OSPREY_API IOspreyConnectionFilter
{
public:
    // Somebody has connected. dwAddress (IPv4) and wPort are the other end's, in host byte order;
    // dwConnections are there already, those that are just ending included. True takes the
    // connection. False closes it at once: nothing of what the peer sent is read, nothing is sent,
    // and no other callback ever tells of it. Runs on the worker thread.
    virtual Orb_BOOL OnAccept(unsigned int dwAddress, unsigned short wPort,
                              unsigned int dwConnections) = 0;

protected:
    ~IOspreyConnectionFilter() {}
};

// How a transfer came to its end.
enum OSPREY_TRANSFER_END
{
    OSPREY_TRANSFER_COMPLETE = 0,   // upload: its last block is stored; download: it was read
    OSPREY_TRANSFER_CANCELLED = 1,  // by its peer, or it could not begin, or not go on
    OSPREY_TRANSFER_LOST = 2,       // with its connection
};

// Learns of the end of transfers. Implemented by the host, never deleted by the library; it must
// outlive Release, or until another one is set.
class OSPREY_API IOspreyTransferObserver
{
public:
    // An upload or a download that the host was asked about is over: its file is closed, and
    // nothing is called for it any more. Exactly once for each, those included that the host
    // refused; before the OnDisconnect of its connection. ullContext: the value that the host left
    // in the request's record. Runs on the worker thread.
    //
    // The answer to an upload's last block waits for this call: a host that gives the file its name
    // here, and finds that it cannot, has the peer know by TerminateTask(GetCallbackTask()). A
    // complete upload may be shorter or longer than its peer announced. A complete download may not
    // have arrived: its last blocks are still to be sent.
    virtual void OnTransferEnded(OSPREY_TRANSFER_END eEnd, Orb_U64 ullContext) = 0;

protected:
    ~IOspreyTransferObserver() {}
};

// A server: one listening port, any number of connections, one worker thread.
class OSPREY_API IOspreyServer
{
public:
    // Listens on wPort (host byte order) on all IPv4 interfaces and starts the worker thread.
    // dwIP is accepted and ignored. Port 0 lets the system choose one, which nothing here reports.
    // False, with nothing left open, when the port is taken, or a descriptor or thread is not to be
    // had. False, and nothing changes, when the server runs already, or while connections of an
    // earlier run are left (EndAllConnections ends those).
    virtual Orb_BOOL Startup(unsigned int dwIP, unsigned short wPort) = 0;

    // Ends the worker thread and waits for it. Connections are not closed by this: end them first
    // (EndAllConnections), since Release insists on it. True; harmless when nothing runs. From
    // inside a callback: asks the worker to end and returns false; EndAllConnections and Shutdown
    // on a host thread then complete it.
    virtual Orb_BOOL Shutdown() = 0;

    // Deletes the server, after a Shutdown of its own if it still runs. Aborts the process
    // ("m_listStreams.GetSize() == 0") while a connection is still listed. From inside a callback
    // it only asks the worker to end.
    virtual void Release() = 0;

    // Ends one connection. lTask is the address in KS_NAME_CONNECTION::pStream. Any thread; does
    // not wait: the connection is detached on the worker's next pass, which starts at once. Until
    // then nothing that its peer asks for is answered, and nothing more is taken from it: inside a
    // callback, what the callback is about fails at the peer. True when it was found alive, and for
    // an unknown task; false when it is ending already.
    virtual Orb_BOOL TerminateTask(long lTask) = 0;

    // Stores a packet for everybody who reads dwChannel: dwSize bytes at pData, 0 to 1,500, copied.
    // Any thread, any number of them; never waits for a reader.
    //
    //   0  stored; a channel keeps its newest 2,048 packets: the oldest goes, whoever needs it
    //   4  not stored: too large, null with a size, or out of memory
    //   5  not stored: nobody has opened this channel, or Startup was never called
    //
    // A server holds 4,096 channels. Those that a peer leaves behind (it asks for others instead)
    // stay, until they are needed for new ones after it has gone. While all of them are in use,
    // further ones wait until there is room (5 meanwhile).
    //
    // Each connection looks for new packets when it has written all that it took before, or else
    // every 100 to 200 ms, or when FlushChannelPackets says so, and takes one of each of its
    // channels in turn. A new reader begins with the newest packet stored.
    virtual unsigned int PutChannelPacket(unsigned int dwChannel, void* pData,
                                          unsigned int dwSize) = 0;

    // Always 0.0 in this version, whatever the channels hold. Any thread.
    virtual float GetChannelMaxBufferUsage() = 0;

    // Hosts call Release instead.
    virtual ~IOspreyServer() {}

    // Closes the listening port and detaches every connection, each named one with its
    // OnDisconnect, and waits for that, at most dwTimeoutMs milliseconds. True when no connection
    // is left: Shutdown and Release are then safe. False when the time was over first. When the
    // worker has ended, or was asked to by a callback, it happens at once on the calling thread,
    // the OnDisconnects too. From inside a callback: starts it and returns true.
    virtual Orb_BOOL EndAllConnections(unsigned int dwTimeoutMs) = 0;

    // Has every connection that waits for channel packets look for them now. Any thread, callbacks
    // included; does not wait: the worker is woken and does it on its next pass, once for all calls
    // until then. After each packet for streams that must not lag; after each group of them where
    // processor time counts more: a connection that it has served so sends each packet in a TCP
    // segment of its own from then on, instead of gathering small ones (RFC 896). Harmless when
    // nothing runs.
    virtual void FlushChannelPackets() = 0;

    // Asks pFilter about every connection from the next Startup on; null, as at the beginning,
    // takes all of them. False, and nothing changes, while the server runs. Any thread but the
    // worker's.
    virtual Orb_BOOL SetConnectionFilter(IOspreyConnectionFilter* pFilter) = 0;

    // Inside OnRequest, OnTransferEnded and OnDisconnect: the task, for TerminateTask, of the
    // connection that the call is about, whether it has a name or not. It stays valid as long as
    // the connection: in every OnProgress of a transfer it is that of the transfer still. 0
    // anywhere else.
    virtual long GetCallbackTask() = 0;

    // Tells pObserver of the end of every transfer from the next Startup on; null, as at the
    // beginning, nobody. False, and nothing changes, while the server runs. Any thread but the
    // worker's.
    virtual Orb_BOOL SetTransferObserver(IOspreyTransferObserver* pObserver) = 0;
};

// Builds a server that is not started yet; opens nothing. pCallback may be null: every request is
// then served under the name that the peer sent. End it with Release. Throws std::bad_alloc.
OSPREY_API IOspreyServer* CreateOspreyServer(IOspreyServerCallback* pCallback);

#endif
