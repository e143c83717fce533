#ifndef OSPREY_SENDBUFFEROWNER_H
#define OSPREY_SENDBUFFEROWNER_H

// Internal header.

#include "TCPStream.h"

// Remembers the buffers that its owner has out at a stream, so that those which the stream drops
// (it neither frees nor reports them when it is torn down) are freed all the same.
//
// Ownership: owns every buffer from Send to Free.
// Thread:    the stream's.
class CSendBufferOwner
{
public:
    CSendBufferOwner() = default;
    ~CSendBufferOwner();
    CSendBufferOwner(const CSendBufferOwner&) = delete;
    CSendBufferOwner& operator=(const CSendBufferOwner&) = delete;

    // Hands a heap-allocated buffer to the stream. A refused one is freed at once, and false.
    bool Send(CTCPStream& stream, CSimpleTCPStreamBuffer* pBuffer);
    // The stream reported it sent.
    void Free(CTCPStreamBuffer* pBuffer);
    // REQUIRES: the stream has been torn down, so that no queue holds a buffer.
    void FreeAll();

private:
    CDLinkedList m_listOut;
};

#endif
