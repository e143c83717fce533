#ifndef OSPREY_OSPREYCLIENT_H
#define OSPREY_OSPREYCLIENT_H

// The file clients: one uploads a sequence of files to a peer's server, one downloads a sequence.
//
//   host thread                  worker thread (one a client)
//   -----------                  ----------------------------
//   CreateSubmitFileClient
//   StartFileSubmit  --starts--> connect, name the connection
//                                OnConnected, then until GetNextFile returns false:
//                                  GetNextFile, OnProgress ..., OnFileCompleted or OnFileFailed
//                                the thread ends by itself; the connection stays open
//   StopFileSubmit   --joins---> (a file under way is cancelled first)
//   Release
//
// A run that cannot be set up ends with OnStartFailed; a connection lost at any time gives
// OnDisconnected and ends the run. A peer that falls silent in the middle of a file, as a server
// does that cannot read on, ends nothing while its system still answers: watch OnProgress, and
// stop. Nothing marks the end of a run that had no trouble but the false that the host itself
// returned from GetNextFile.
//
// Calls into the host run on the worker thread; do not throw. From inside a callback, Stop... only
// asks the run to end and returns false, Start... is refused, and Release ends the run without a
// further callback and takes effect then. Start..., Stop... and Release of one client belong to one
// host thread at a time.

#include <string>

#include "OspreyExport.h"
#include "OspreyTypes.h"

// Codes of OnFileFailed.
enum OSPREY_FILE_ERROR
{
    OSPREY_FILE_NO_MEMORY = 4,        // no memory for a request
    OSPREY_FILE_NOT_FOUND = 5,        // local file not found (upload), file not found at the peer
    OSPREY_FILE_OPEN_FAILED = 6,      // could not be opened, here or at the peer
    OSPREY_FILE_READ_FAILED = 7,      // could not be read (upload), start offset past the end
    OSPREY_FILE_DIR_REFUSED = 8,      // the peer could not create the directory
    OSPREY_FILE_UPLOAD_REFUSED = 10,  // the peer could not open the file for writing
    OSPREY_FILE_WRITE_FAILED = 11,    // could not be written in full, here or at the peer
};

// What both clients tell their host. All operations run on the worker thread, in this order of
// slots. Given to the factory, never deleted by the library; it must outlive Release.
class OSPREY_API IFileClientCallback
{
public:
    // The peer accepted the connection and its name. Comes once, before the first GetNextFile.
    virtual void OnConnected() = 0;

    // The run could not be set up: connect refused or timed out, the name refused, the connection
    // lost meanwhile, no memory. nReason is always 0. The run is over.
    virtual void OnStartFailed(int nReason) = 0;

    // The connection is lost. nError is an errno value, 0 when the peer closed it. The file under
    // way gets no further callback. The run is over (an OnStartFailed may follow during set-up).
    virtual void OnDisconnected(int nError) = 0;

    // The next file; false ends the run.
    //
    //                  upload                                   download
    //   strLocalPath   file or directory to send, UTF-8         file to write, UTF-8; created anew
    //   strRemote      remote root, see below                   name of the file at the peer
    //   llNumber       base length: leading bytes of the local  start offset in bytes; this server
    //                  path that are not sent                   checks it and sends the whole file
    //
    // Upload: the peer is given the name "FILESUBMIT|" + strRemote + "|" + the local path from the
    // base length on, with every "/" turned into "\". A directory is created at the peer; its
    // contents are entries of their own. A base length past the path's end counts as its end.
    //
    // Download: strLocalPath is DELETED whenever the file does not arrive whole, also when the
    // failure came before a byte was written, and whatever stood there before. Name a temporary
    // file and rename it in OnFileCompleted.
    //
    // The arguments arrive empty or zero. Return false when you want to end here: see Stop...
    virtual bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                             long long& llNumber) = 0;

    // How far the current file is, 0 to 100. Upload: of what was read here; download: of what was
    // written here, the start offset included. Comes with every block; 100 may come twice.
    virtual void OnProgress(unsigned int dwPercent) = 0;

    // The current file or directory is done. Upload: the peer acknowledged its last block.
    virtual void OnFileCompleted() = 0;

    // The current file failed; the run goes on with the next. nCode is an OSPREY_FILE_ERROR, or,
    // in a download, any other non-zero result that the peer sent.
    virtual void OnFileFailed(int nCode) = 0;

protected:
    ~IFileClientCallback() {}
};

// What an upload client tells its host.
class OSPREY_API ISubmitFileClientCallback : public IFileClientCallback
{
protected:
    ~ISubmitFileClientCallback() {}
};

// What a download client tells its host.
class OSPREY_API IDownloadFileClientCallback : public IFileClientCallback
{
protected:
    ~IDownloadFileClientCallback() {}
};

// An upload client: one connection, one file after another.
class OSPREY_API ISubmitFileClient
{
public:
    // Starts a run on a worker thread of its own.
    //
    //   pName              name of the connection: NUL-terminated UTF-16, at most 259 units; copied
    //   dwReserved         not used
    //   dwIPAddress        IPv4 address of the peer, host byte order (127.0.0.1 is 0x7F000001)
    //   wPort              TCP port of the peer, host byte order
    //   dwConnectTimeoutMs how long connecting may take, milliseconds; at most 2^31 - 1 counts
    //
    // False, with nothing left open and no callback made, when the name is null or too long, a
    // descriptor, memory or the thread is not to be had, or a run was started and not yet stopped
    // (then nothing changes). A client can be started again after a stop.
    virtual Orb_BOOL StartFileSubmit(unsigned short* pName, unsigned int dwReserved,
                                     unsigned int dwIPAddress, unsigned short wPort,
                                     unsigned int dwConnectTimeoutMs) = 0;

    // Ends the run and waits for it. A file under way is cancelled and removed at the peer, which
    // takes up to a second; it gets no further callback. Also needed after a run that ended by
    // itself: closes the connection. True; harmless when nothing runs. From inside a callback:
    // asks the run to end and returns false.
    //
    // A stop that comes between two files (while the host runs OnConnected, GetNextFile,
    // OnFileCompleted or OnFileFailed) is lost, and this waits until the run ends by itself: keep a
    // flag of your own that makes GetNextFile return false.
    virtual Orb_BOOL StopFileSubmit() = 0;

    // Deletes the client, after a stop if a run was not stopped yet.
    virtual void Release() = 0;

protected:
    ~ISubmitFileClient() {}
};

// A download client: one connection, one file after another.
class OSPREY_API IDownloadFileClient
{
public:
    // As StartFileSubmit.
    virtual Orb_BOOL StartFileDownload(unsigned short* pName, unsigned int dwReserved,
                                       unsigned int dwIPAddress, unsigned short wPort,
                                       unsigned int dwConnectTimeoutMs) = 0;

    // As StopFileSubmit; the partial local file is deleted.
    virtual Orb_BOOL StopFileDownload() = 0;

    // Deletes the client, after a stop if a run was not stopped yet.
    virtual void Release() = 0;

    // The size of the current file as the peer announced it, bytes. From inside OnProgress and
    // OnFileCompleted only. The last block may go past it, as it does when the file grows at the
    // peer meanwhile: compare before you take the file for whole.
    virtual Orb_U64 GetAnnouncedSize() = 0;

protected:
    ~IDownloadFileClient() {}
};

// Builds a client that is not started yet; opens nothing. pCallback must not be null: a start is
// refused without it. Throws std::bad_alloc; never returns null.
OSPREY_API ISubmitFileClient* CreateSubmitFileClient(ISubmitFileClientCallback* pCallback);

// As CreateSubmitFileClient.
OSPREY_API IDownloadFileClient* CreateDownloadFileClient(IDownloadFileClientCallback* pCallback);

#endif
