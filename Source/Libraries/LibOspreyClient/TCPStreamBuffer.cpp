#include "TCPStreamBuffer.h"

#include <cstdlib>

int CLinearTCPStreamBuffer::GetDataSize()
{
    return m_nWritePos - m_nReadPos;
}

byte* CLinearTCPStreamBuffer::GetData(int nSize)
{
    return nSize < 0 || nSize > GetDataSize() ? nullptr : m_pBuffer + m_nReadPos;
}

bool CLinearTCPStreamBuffer::RemoveData(int nSize)
{
    if (nSize < 0 || nSize > GetDataSize())
    {
        return false;
    }
    m_nReadPos += nSize;
    if (m_nReadPos >= m_nWritePos)
    {
        m_nReadPos = m_nWritePos = 0;
    }
    return true;
}

int CLinearTCPStreamBuffer::GetFreeSize()
{
    return m_nBufferSize - m_nWritePos;
}

byte* CLinearTCPStreamBuffer::GetFree(int nSize)
{
    return nSize < 0 || nSize > GetFreeSize() ? nullptr : m_pBuffer + m_nWritePos;
}

bool CLinearTCPStreamBuffer::AppendData(int nSize)
{
    if (nSize < 0 || nSize > GetFreeSize())
    {
        return false;
    }
    m_nWritePos += nSize;
    return true;
}

int CLinearTCPStreamBuffer::GetBufferSize()
{
    return m_nBufferSize;
}

CSimpleTCPStreamBuffer::~CSimpleTCPStreamBuffer()
{
    free(m_pBuffer);
}

bool CSimpleTCPStreamBuffer::Create(int nSize)
{
    if (m_pBuffer != nullptr || nSize < 0)
    {
        return false;
    }
    m_pBuffer = static_cast<byte*>(malloc(static_cast<size_t>(nSize)));
    if (m_pBuffer == nullptr)
    {
        return false;
    }
    m_nBufferSize = nSize;
    return true;
}

void CSimpleTCPStreamBuffer::Destroy()
{
    free(m_pBuffer);
    m_pBuffer = nullptr;
    m_nBufferSize = m_nReadPos = m_nWritePos = 0;
}
