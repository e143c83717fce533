#include "RingTCPStreamBuffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

namespace
{

// memcpy wants valid pointers even for no bytes, so none is made then.
void Copy(byte* pDst, const byte* pSrc, int nSize)
{
    if (nSize > 0)
    {
        memcpy(pDst, pSrc, static_cast<size_t>(nSize));
    }
}

size_t GetStorageSize(int nSize)
{
    return 2 * static_cast<size_t>(std::max(nSize, 1));
}

// Not from the heap: what a ring has once used would stay there for good, ring beside ring. See
// mmap(2).
byte* MapStorage(int nSize)
{
    void* pStorage = mmap(nullptr, GetStorageSize(nSize), PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pStorage != MAP_FAILED ? static_cast<byte*>(pStorage) : nullptr;
}

}  // namespace

CRingTCPStreamBuffer::~CRingTCPStreamBuffer()
{
    Destroy();
}

bool CRingTCPStreamBuffer::Create(int nSize)
{
    if (m_pBuffer != nullptr || nSize < 0 || nSize > INT_MAX / 2)
    {
        return false;
    }
    m_pBuffer = MapStorage(nSize);
    if (m_pBuffer == nullptr)
    {
        return false;
    }
    m_nBufferSize = nSize;
    return true;
}

void CRingTCPStreamBuffer::Destroy()
{
    if (m_pBuffer != nullptr)
    {
        munmap(m_pBuffer, GetStorageSize(m_nBufferSize));
        m_pBuffer = nullptr;
    }
    m_nBufferSize = 0;
    Clear();
}

void CRingTCPStreamBuffer::Clear()
{
    m_nReadPos = m_nWritePos = m_nDataSize = m_nMirrorSize = 0;
}

bool CRingTCPStreamBuffer::Grow(int nSize)
{
    CRingTCPStreamBuffer grown;
    if (nSize < m_nDataSize || !grown.Create(nSize))
    {
        return false;
    }
    Copy(grown.m_pBuffer, GetData(0), m_nDataSize);
    grown.AppendData(m_nDataSize);
    std::swap(m_pBuffer, grown.m_pBuffer);
    std::swap(m_nBufferSize, grown.m_nBufferSize);
    m_nReadPos = 0;
    m_nWritePos = grown.m_nWritePos;
    m_nMirrorSize = 0;
    return true;
}

int CRingTCPStreamBuffer::GetDataSize()
{
    return m_nDataSize;
}

byte* CRingTCPStreamBuffer::GetData(int nSize)
{
    if (nSize < 0 || nSize > m_nDataSize)
    {
        return nullptr;
    }
    const int nExtra = (nSize != 0 ? nSize : m_nDataSize) + m_nReadPos - m_nBufferSize;
    if (nExtra > m_nMirrorSize)
    {
        Copy(m_pBuffer + m_nBufferSize + m_nMirrorSize, m_pBuffer + m_nMirrorSize,
             nExtra - m_nMirrorSize);
        m_nMirrorSize = nExtra;
    }
    return m_pBuffer + m_nReadPos;
}

bool CRingTCPStreamBuffer::RemoveData(int nSize)
{
    if (nSize < 0 || nSize > m_nDataSize)
    {
        return false;
    }
    m_nDataSize -= nSize;
    if (m_nDataSize == 0)
    {
        m_nReadPos = m_nWritePos = 0;  // the mirror stays: AppendData keeps it true
        return true;
    }
    m_nReadPos += nSize;
    if (m_nReadPos >= m_nBufferSize)
    {
        m_nReadPos -= m_nBufferSize;
        m_nMirrorSize = 0;
    }
    return true;
}

int CRingTCPStreamBuffer::GetFreeSize()
{
    return m_nBufferSize - m_nDataSize;
}

byte* CRingTCPStreamBuffer::GetFree(int nSize)
{
    return nSize < 0 || nSize > GetFreeSize() ? nullptr : m_pBuffer + m_nWritePos;
}

bool CRingTCPStreamBuffer::AppendData(int nSize)
{
    if (nSize < 0 || nSize > GetFreeSize())
    {
        return false;
    }
    const int nEnd = m_nWritePos + nSize;
    MirrorWritten(m_nWritePos, std::min(nEnd, m_nBufferSize));
    if (nEnd < m_nBufferSize)
    {
        m_nWritePos = nEnd;
    }
    else
    {
        m_nWritePos = nEnd - m_nBufferSize;
        Copy(m_pBuffer, m_pBuffer + m_nBufferSize, m_nWritePos);
    }
    m_nDataSize += nSize;
    return true;
}

// A mirror that outlived the bytes it was made of (the ring was emptied, its start written anew)
// would give the next wrapped reader stale bytes.
void CRingTCPStreamBuffer::MirrorWritten(int nFrom, int nEnd)
{
    nEnd = std::min(nEnd, m_nMirrorSize);
    Copy(m_pBuffer + m_nBufferSize + nFrom, m_pBuffer + nFrom, nEnd - nFrom);
}

int CRingTCPStreamBuffer::GetBufferSize()
{
    return m_nBufferSize;
}
