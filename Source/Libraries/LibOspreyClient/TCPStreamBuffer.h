#ifndef OSPREY_TCPSTREAMBUFFER_H
#define OSPREY_TCPSTREAMBUFFER_H

// Internal header. The byte regions that a stream sends from and receives into.

#include "LinkedList.h"

typedef unsigned char byte;

// A region with a read side (bytes waiting to be consumed) and a write side (space waiting to be
// filled). A writer calls GetFree, copies, AppendData; a reader GetData, uses, RemoveData.
//
// Ownership: a stream borrows it while it is queued; whoever queued it owns it.
// Errors:    false or null, silently, with nothing changed; a negative size is always refused.
class CTCPStreamBuffer : public CSLinkedListNode
{
public:
    CTCPStreamBuffer() = default;
    CTCPStreamBuffer(const CTCPStreamBuffer&) = delete;
    CTCPStreamBuffer& operator=(const CTCPStreamBuffer&) = delete;

    // Bytes that can be read.
    virtual int GetDataSize() = 0;
    // Start of the readable bytes, contiguous for nSize of them (0: for all); null when fewer are
    // readable.
    virtual byte* GetData(int nSize) = 0;
    // Consumes nSize bytes; false when fewer are readable.
    virtual bool RemoveData(int nSize) = 0;
    // Bytes that can be written.
    virtual int GetFreeSize() = 0;
    // Where to write, contiguous for all of GetFreeSize(); null when less than nSize is free.
    virtual byte* GetFree(int nSize) = 0;
    // Makes nSize bytes written at GetFree readable; false when less is free.
    virtual bool AppendData(int nSize) = 0;
    // Nominal capacity in bytes.
    virtual int GetBufferSize() = 0;

    virtual ~CTCPStreamBuffer() = default;

    // Its owner sends more as soon as this is sent: the system may put both into one segment and
    // wakes the peer once. What does not follow after all holds this up for 200 ms (MSG_MORE in
    // send(2), TCP_CORK in tcp(7)).
    bool m_bMoreFollows = false;
};

// A linear region over bytes that somebody else holds: space before the read position is not
// reused until the buffer has been emptied, which rewinds it.
//
//   m_pBuffer      m_nReadPos          m_nWritePos          m_nBufferSize
//       |   consumed   |      readable      |       free          |
class CLinearTCPStreamBuffer : public CTCPStreamBuffer
{
public:
    int GetDataSize() override;
    byte* GetData(int nSize) override;
    bool RemoveData(int nSize) override;
    int GetFreeSize() override;
    byte* GetFree(int nSize) override;
    bool AppendData(int nSize) override;
    int GetBufferSize() override;

protected:
    byte* m_pBuffer = nullptr;
    int m_nBufferSize = 0;
    int m_nReadPos = 0;
    int m_nWritePos = 0;
};

// A linear buffer that owns its storage. As a list node it can stand in its owner's list of buffers
// that are out at a stream (CSendBufferOwner), whatever the stream does with its own queue. The two
// nodes have the same member names: name the list's type to reach one.
class CSimpleTCPStreamBuffer : public CLinearTCPStreamBuffer, public CDLinkedListNode
{
public:
    ~CSimpleTCPStreamBuffer() override;

    // Allocates nSize bytes, not cleared. False when storage exists already or memory is out.
    bool Create(int nSize);
    // Frees the storage and rewinds; harmless when there is none.
    void Destroy();
};

// A simple buffer that remembers the request that it answers.
class CRequestIDSimpleTCPStreamBuffer final : public CSimpleTCPStreamBuffer
{
public:
    unsigned int m_dwRequestID = 0;
    unsigned int m_dwSerial = 0;  // of the request's handler: ids may be used again
};

#endif
