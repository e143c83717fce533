#include "SendBufferOwner.h"

CSendBufferOwner::~CSendBufferOwner()
{
    FreeAll();
}

bool CSendBufferOwner::Send(CTCPStream& stream, CSimpleTCPStreamBuffer* pBuffer)
{
    if (!stream.Send(pBuffer))
    {
        delete pBuffer;
        return false;
    }
    m_listOut.AddTail(pBuffer);
    return true;
}

void CSendBufferOwner::Free(CTCPStreamBuffer* pBuffer)
{
    CSimpleTCPStreamBuffer* pOut = static_cast<CSimpleTCPStreamBuffer*>(pBuffer);
    m_listOut.Remove(pOut);
    delete pOut;
}

void CSendBufferOwner::FreeAll()
{
    while (CDLinkedListNode* pNode = m_listOut.RemoveHead())
    {
        delete static_cast<CSimpleTCPStreamBuffer*>(pNode);
    }
}
