#ifndef OSPREY_LINKEDLIST_H
#define OSPREY_LINKEDLIST_H

// Internal header.

class CDLinkedList;
class CSLinkedList;

// Base of an object that can stand in one doubly linked list at a time.
class CDLinkedListNode
{
public:
    CDLinkedList* m_pList = nullptr;      // the list that holds the node: the only membership test
    CDLinkedListNode* m_pPrev = nullptr;  // stale while m_pList is null
    CDLinkedListNode* m_pNext = nullptr;  // stale while m_pList is null
};

// Intrusive doubly linked list: constant time, no allocation, "already listed" is refused instead
// of corrupting anything.
//
// Ownership: never owns its nodes; a node outlives its membership.
// Thread:    one, or guarded by the owner's lock.
class CDLinkedList
{
public:
    CDLinkedList() = default;
    virtual ~CDLinkedList() = default;
    CDLinkedList(const CDLinkedList&) = delete;
    CDLinkedList& operator=(const CDLinkedList&) = delete;

    // False, and nothing changes, when the node stands in any list.
    bool AddTail(CDLinkedListNode* pNode);
    // False, and nothing changes, when the node does not stand in this list.
    bool Remove(CDLinkedListNode* pNode);
    // Null on an empty list.
    CDLinkedListNode* RemoveHead();
    int GetSize() const
    {
        return m_nCount;
    }
    // For walking: m_pNext of each node leads on.
    CDLinkedListNode* GetHead() const
    {
        return m_pHead;
    }

protected:
    int m_nCount = 0;
    CDLinkedListNode* m_pHead = nullptr;
    CDLinkedListNode* m_pTail = nullptr;
};

// Base of an object that can stand in one singly linked list at a time.
class CSLinkedListNode
{
public:
    CSLinkedList* m_pList = nullptr;      // the list that holds the node: the only membership test
    CSLinkedListNode* m_pNext = nullptr;  // stale while m_pList is null
};

// Intrusive queue: appended at the tail, drained from the head. Otherwise as CDLinkedList.
class CSLinkedList
{
public:
    CSLinkedList() = default;
    virtual ~CSLinkedList() = default;
    CSLinkedList(const CSLinkedList&) = delete;
    CSLinkedList& operator=(const CSLinkedList&) = delete;

    bool AddTail(CSLinkedListNode* pNode);
    CSLinkedListNode* RemoveHead();
    int GetSize() const
    {
        return m_nCount;
    }
    CSLinkedListNode* GetHead() const
    {
        return m_pHead;
    }

protected:
    int m_nCount = 0;
    CSLinkedListNode* m_pHead = nullptr;
    CSLinkedListNode* m_pTail = nullptr;
};

#endif
