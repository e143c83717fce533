#include "LinkedList.h"

#include <gtest/gtest.h>

namespace
{

// The lists with their fields open to the tests.
class COpenDLinkedList final : public CDLinkedList
{
public:
    using CDLinkedList::m_nCount;
    using CDLinkedList::m_pHead;
    using CDLinkedList::m_pTail;
};

class COpenSLinkedList final : public CSLinkedList
{
public:
    using CSLinkedList::m_nCount;
    using CSLinkedList::m_pHead;
    using CSLinkedList::m_pTail;
};

TEST(DLinkedList, StartsEmpty)
{
    COpenDLinkedList list;
    EXPECT_EQ(list.GetSize(), 0);
    EXPECT_EQ(list.m_pHead, nullptr);
    EXPECT_EQ(list.m_pTail, nullptr);
}

TEST(DLinkedList, NewNodeStandsInNoList)
{
    const CDLinkedListNode node;
    EXPECT_EQ(node.m_pList, nullptr);
    EXPECT_EQ(node.m_pPrev, nullptr);
    EXPECT_EQ(node.m_pNext, nullptr);
}

TEST(DLinkedList, AddTailLinksBothWays)
{
    COpenDLinkedList list;
    CDLinkedListNode a;
    CDLinkedListNode b;
    EXPECT_TRUE(list.AddTail(&a));
    EXPECT_TRUE(list.AddTail(&b));
    EXPECT_EQ(list.GetSize(), 2);
    EXPECT_EQ(list.m_pHead, &a);
    EXPECT_EQ(list.m_pTail, &b);
    EXPECT_EQ(a.m_pPrev, nullptr);
    EXPECT_EQ(a.m_pNext, &b);
    EXPECT_EQ(b.m_pPrev, &a);
    EXPECT_EQ(b.m_pNext, nullptr);
    EXPECT_EQ(a.m_pList, &list);
}

TEST(DLinkedList, AddingANodeTwiceIsRefused)
{
    COpenDLinkedList list;
    CDLinkedListNode a;
    CDLinkedListNode b;
    list.AddTail(&a);
    list.AddTail(&b);
    EXPECT_FALSE(list.AddTail(&a));
    EXPECT_EQ(list.GetSize(), 2);
    EXPECT_EQ(list.m_pHead, &a);
    EXPECT_EQ(list.m_pTail, &b);
    EXPECT_EQ(a.m_pNext, &b);
    EXPECT_EQ(b.m_pNext, nullptr);
}

TEST(DLinkedList, AddingANodeOfAnotherListIsRefused)
{
    COpenDLinkedList first;
    COpenDLinkedList second;
    CDLinkedListNode node;
    first.AddTail(&node);
    EXPECT_FALSE(second.AddTail(&node));
    EXPECT_EQ(node.m_pList, &first);
    EXPECT_EQ(first.GetSize(), 1);
    EXPECT_EQ(second.GetSize(), 0);
    EXPECT_EQ(second.m_pHead, nullptr);
}

TEST(DLinkedList, RemoveHeadOfAnEmptyListGivesNull)
{
    CDLinkedList list;
    EXPECT_EQ(list.RemoveHead(), nullptr);
    EXPECT_EQ(list.GetSize(), 0);
}

TEST(DLinkedList, RemovingTheOnlyNodeEmptiesTheListAndFreesTheNode)
{
    COpenDLinkedList list;
    CDLinkedListNode node;
    list.AddTail(&node);
    EXPECT_TRUE(list.Remove(&node));
    EXPECT_EQ(list.m_pHead, nullptr);
    EXPECT_EQ(list.m_pTail, nullptr);
    EXPECT_EQ(list.GetSize(), 0);
    EXPECT_TRUE(list.AddTail(&node));
    EXPECT_EQ(list.m_pHead, &node);
}

TEST(DLinkedList, StaleLinksOfAFreedNodeAreOverwritten)
{
    COpenDLinkedList list;
    CDLinkedListNode a;
    CDLinkedListNode b;
    CDLinkedListNode c;
    list.AddTail(&a);
    list.AddTail(&b);
    list.AddTail(&c);
    EXPECT_TRUE(list.Remove(&b));
    EXPECT_EQ(b.m_pPrev, &a) << "the removed node keeps its links";
    EXPECT_EQ(b.m_pNext, &c);
    list.AddTail(&b);
    EXPECT_EQ(b.m_pPrev, &c);
    EXPECT_EQ(b.m_pNext, nullptr);
    EXPECT_EQ(a.m_pNext, &c);
    EXPECT_EQ(c.m_pPrev, &a);
}

TEST(DLinkedList, RemovingTheTailOfTwoMakesTheHeadTheTail)
{
    COpenDLinkedList list;
    CDLinkedListNode a;
    CDLinkedListNode b;
    list.AddTail(&a);
    list.AddTail(&b);
    EXPECT_TRUE(list.Remove(&b));
    EXPECT_EQ(list.m_pHead, &a);
    EXPECT_EQ(list.m_pTail, &a);
    EXPECT_EQ(a.m_pNext, nullptr);
}

TEST(DLinkedList, RemovingTheHeadOfTwoMakesTheTailTheHead)
{
    COpenDLinkedList list;
    CDLinkedListNode a;
    CDLinkedListNode b;
    list.AddTail(&a);
    list.AddTail(&b);
    EXPECT_EQ(list.RemoveHead(), &a);
    EXPECT_EQ(list.m_pHead, &b);
    EXPECT_EQ(list.m_pTail, &b);
    EXPECT_EQ(b.m_pPrev, nullptr);
}

TEST(DLinkedList, RemoveThroughTheWrongListTouchesNothing)
{
    COpenDLinkedList first;
    CDLinkedList second;
    CDLinkedListNode node;
    first.AddTail(&node);
    EXPECT_FALSE(second.Remove(&node));
    EXPECT_EQ(node.m_pList, &first);
    EXPECT_EQ(first.GetSize(), 1);
    EXPECT_EQ(second.GetSize(), 0);
}

TEST(DLinkedList, RemoveOfAFreeNodeIsRefused)
{
    CDLinkedList list;
    CDLinkedListNode node;
    EXPECT_FALSE(list.Remove(&node));
    EXPECT_EQ(list.GetSize(), 0);
}

TEST(DLinkedList, DestructionLeavesTheNodesAlone)
{
    CDLinkedListNode a;
    CDLinkedListNode b;
    {
        CDLinkedList list;
        list.AddTail(&a);
        list.AddTail(&b);
    }
    EXPECT_NE(a.m_pList, nullptr);
    EXPECT_EQ(a.m_pNext, &b);
}

TEST(SLinkedList, DrainsInTheOrderOfAdding)
{
    CSLinkedList list;
    CSLinkedListNode nodes[3];
    for (CSLinkedListNode& node : nodes)
    {
        EXPECT_TRUE(list.AddTail(&node));
    }
    EXPECT_EQ(list.GetSize(), 3);
    for (CSLinkedListNode& node : nodes)
    {
        EXPECT_EQ(list.RemoveHead(), &node);
        EXPECT_EQ(node.m_pList, nullptr);
    }
    EXPECT_EQ(list.GetSize(), 0);
}

TEST(SLinkedList, AddingANodeTwiceIsRefused)
{
    COpenSLinkedList list;
    CSLinkedList other;
    CSLinkedListNode a;
    CSLinkedListNode b;
    list.AddTail(&a);
    list.AddTail(&b);
    EXPECT_FALSE(list.AddTail(&a));
    EXPECT_FALSE(other.AddTail(&a));
    EXPECT_EQ(list.GetSize(), 2);
    EXPECT_EQ(other.GetSize(), 0);
    EXPECT_EQ(list.m_pTail, &b);
    EXPECT_EQ(b.m_pNext, nullptr);
}

TEST(SLinkedList, RemoveHeadOfAnEmptyListGivesNull)
{
    CSLinkedList list;
    EXPECT_EQ(list.RemoveHead(), nullptr);
    EXPECT_EQ(list.GetSize(), 0);
}

TEST(SLinkedList, RemovingTheOnlyNodeEmptiesTheListAndFreesTheNode)
{
    COpenSLinkedList list;
    CSLinkedListNode a;
    CSLinkedListNode b;
    list.AddTail(&a);
    list.AddTail(&b);
    EXPECT_EQ(list.RemoveHead(), &a);
    EXPECT_EQ(list.RemoveHead(), &b);
    EXPECT_EQ(list.m_pHead, nullptr);
    EXPECT_EQ(list.m_pTail, nullptr);
    EXPECT_EQ(a.m_pNext, &b) << "the removed node keeps its link";
    EXPECT_TRUE(list.AddTail(&a));
    EXPECT_EQ(list.m_pHead, &a);
    EXPECT_EQ(a.m_pNext, nullptr);
}

}  // namespace
