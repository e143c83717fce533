#ifndef OSPREY_TESTS_OPENSTREAM_H
#define OSPREY_TESTS_OPENSTREAM_H

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "RawSocket.h"
#include "TCPStream.h"

// A simple buffer with its text.
class CTextBuffer final : public CSimpleTCPStreamBuffer
{
public:
    explicit CTextBuffer(const std::string& strText)
    {
        Create(static_cast<int>(strText.size()));
        memcpy(GetFree(0), strText.data(), strText.size());
        AppendData(static_cast<int>(strText.size()));
    }
    // Empty, to be filled.
    explicit CTextBuffer(int nSize)
    {
        Create(nSize);
    }
    std::string GetText()
    {
        const byte* pData = GetData(0);
        return std::string(pData, pData + static_cast<size_t>(GetDataSize()));
    }
    // At a stream.
    bool IsQueued() const
    {
        return CSLinkedListNode::m_pList != nullptr;
    }
    void Empty()
    {
        RemoveData(GetDataSize());
    }
};

// A stream that writes down its callbacks, in short words, and lets the test act inside them.
class COpenStream final : public CTCPStream
{
public:
    using CTCPStream::m_bCanReceive;
    using CTCPStream::m_bCanSend;
    using CTCPStream::m_bConnected;
    using CTCPStream::m_bPendingDestroy;
    using CTCPStream::m_handlerDeferredIO;
    using CTCPStream::m_handlerDestroy;
    using CTCPStream::m_listReceive;
    using CTCPStream::m_listSend;
    using CTCPStream::m_sock;

    using CTCPStream::CTCPStream;

    // Adopts one end of a connection.
    bool Adopt(CRawSocket& sock)
    {
        return Attach(sock.Release(), true);
    }

    void ProcessConnected() override
    {
        Note("connected");
    }
    void ProcessDataReceived(CTCPStreamBuffer* pBuffer) override
    {
        m_pLast = pBuffer;
        ++m_nReceived;
        Note("received");
    }
    void ProcessDataSent(CTCPStreamBuffer* pBuffer) override
    {
        m_pLast = pBuffer;
        m_sent.push_back(pBuffer);
        Note("sent");
    }
    void ProcessDisconnected() override
    {
        m_bDeferredAtEnd = m_handlerDeferredIO.m_bQueued;
        Note("disconnected");
    }
    void ProcessNetworkError(int nError) override
    {
        m_bDeferredAtEnd = m_handlerDeferredIO.m_bQueued;
        m_errors.push_back(nError);
        Note("error");
    }
    void ProcessDestroied() override
    {
        Note("destroyed");
    }

    int Count(const std::string& strWhat) const
    {
        int nCount = 0;
        for (const std::string& strCall : m_calls)
        {
            nCount += strCall == strWhat ? 1 : 0;
        }
        return nCount;
    }

    std::vector<std::string> m_calls;
    std::vector<CTCPStreamBuffer*> m_sent;
    std::vector<int> m_errors;
    CTCPStreamBuffer* m_pLast = nullptr;
    int m_nReceived = 0;
    bool m_bDeferredAtEnd = false;
    std::function<void(const std::string&)> m_fnOnCall;

private:
    void Note(const std::string& strWhat)
    {
        m_calls.push_back(strWhat);
        if (m_fnOnCall)
        {
            m_fnOnCall(strWhat);
        }
    }
};

#endif
