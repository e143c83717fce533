#include "LinkedList.h"

bool CDLinkedList::AddTail(CDLinkedListNode* pNode)
{
    if (pNode->m_pList != nullptr)
    {
        return false;
    }
    pNode->m_pList = this;
    pNode->m_pPrev = m_pTail;
    pNode->m_pNext = nullptr;
    if (m_pTail != nullptr)
    {
        m_pTail->m_pNext = pNode;
    }
    else
    {
        m_pHead = pNode;
    }
    m_pTail = pNode;
    ++m_nCount;
    return true;
}

bool CDLinkedList::Remove(CDLinkedListNode* pNode)
{
    if (pNode->m_pList != this)
    {
        return false;
    }
    CDLinkedListNode* pPrev = pNode->m_pPrev;
    CDLinkedListNode* pNext = pNode->m_pNext;
    pNode->m_pList = nullptr;
    (pPrev != nullptr ? pPrev->m_pNext : m_pHead) = pNext;
    (pNext != nullptr ? pNext->m_pPrev : m_pTail) = pPrev;
    --m_nCount;
    return true;
}

CDLinkedListNode* CDLinkedList::RemoveHead()
{
    CDLinkedListNode* pNode = m_pHead;
    if (pNode != nullptr)
    {
        Remove(pNode);
    }
    return pNode;
}

bool CSLinkedList::AddTail(CSLinkedListNode* pNode)
{
    if (pNode->m_pList != nullptr)
    {
        return false;
    }
    pNode->m_pList = this;
    pNode->m_pNext = nullptr;
    (m_pTail != nullptr ? m_pTail->m_pNext : m_pHead) = pNode;
    m_pTail = pNode;
    ++m_nCount;
    return true;
}

CSLinkedListNode* CSLinkedList::RemoveHead()
{
    CSLinkedListNode* pNode = m_pHead;
    if (pNode == nullptr)
    {
        return nullptr;
    }
    m_pHead = pNode->m_pNext;
    if (m_pTail == pNode)
    {
        m_pTail = nullptr;
    }
    --m_nCount;
    pNode->m_pList = nullptr;
    return pNode;
}
