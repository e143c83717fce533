#ifndef OSPREY_TESTS_OPENRING_H
#define OSPREY_TESTS_OPENRING_H

#include <algorithm>
#include <string>

#include "RingTCPStreamBuffer.h"

// The ring with its fields open to the tests.
class COpenRing final : public CRingTCPStreamBuffer
{
public:
    using CRingTCPStreamBuffer::m_nMirrorSize;
    using CRingTCPStreamBuffer::m_nReadPos;
    using CRingTCPStreamBuffer::m_nWritePos;
    using CRingTCPStreamBuffer::m_pBuffer;

    explicit COpenRing(int nSize)
    {
        Create(nSize);
    }

    bool Write(const std::string& strBytes)
    {
        byte* pFree = GetFree(static_cast<int>(strBytes.size()));
        if (pFree == nullptr)
        {
            return false;
        }
        std::copy(strBytes.begin(), strBytes.end(), pFree);
        return AppendData(static_cast<int>(strBytes.size()));
    }

    // Without consuming; 0 for all.
    std::string Peek(int nSize = 0)
    {
        const byte* pData = GetData(nSize);
        const int nCount = nSize != 0 ? nSize : GetDataSize();
        return pData == nullptr ? "(refused)"
                                : std::string(pData, pData + static_cast<size_t>(nCount));
    }

    bool IsMirrorTrue() const
    {
        return m_nMirrorSize == 0 || memcmp(m_pBuffer, m_pBuffer + m_nBufferSize,
                                            static_cast<size_t>(m_nMirrorSize)) == 0;
    }
};

#endif
