#ifndef OSPREY_RINGTCPSTREAMBUFFER_H
#define OSPREY_RINGTCPSTREAMBUFFER_H

// Internal header.

#include "TCPStreamBuffer.h"

// A ring whose readable bytes and whose free space are always presented as one contiguous span.
//
//   0        write      read            N                                2N
//   |= wrapped =|  free  |=== readable ==|= mirror of the ring's start =|...|
//
// The area behind N serves both sides: a writer may run past N into it (AppendData moves those
// bytes to the start), and GetData copies the wrapped bytes into it so that a reader can run on.
// For every i < m_nMirrorSize, byte N + i equals byte i.
//
// Ownership: owns its storage of 2N bytes: pages of their own, which take memory once they are
//            written to and go back to the system with the ring. Never cleared.
// Errors:    as CTCPStreamBuffer.
class CRingTCPStreamBuffer : public CTCPStreamBuffer
{
public:
    ~CRingTCPStreamBuffer() override;

    // Allocates a ring of nSize bytes. False when storage exists already, when twice the size
    // passes INT_MAX, or when memory is out.
    bool Create(int nSize);
    // Frees the storage and empties the ring; harmless when there is none.
    void Destroy();
    // Replaces the storage by one of nSize bytes and keeps the data. False, and nothing changes,
    // when the data does not fit, or as in Create.
    bool Grow(int nSize);
    // Empties the ring; keeps the storage.
    void Clear();

    int GetDataSize() override;
    byte* GetData(int nSize) override;
    bool RemoveData(int nSize) override;
    int GetFreeSize() override;
    byte* GetFree(int nSize) override;
    bool AppendData(int nSize) override;
    int GetBufferSize() override;

protected:
    byte* m_pBuffer = nullptr;
    int m_nBufferSize = 0;  // N
    int m_nReadPos = 0;     // below N
    int m_nWritePos = 0;    // below N
    int m_nDataSize = 0;    // readable bytes
    int m_nMirrorSize = 0;  // bytes of the ring's start that also stand behind N

private:
    void MirrorWritten(int nFrom, int nEnd);
};

#endif
