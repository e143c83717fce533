#include <nng/nng.h>
#include <nng/protocol/pubsub0/pub.h>
#include <nng/protocol/pubsub0/sub.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Peer.h"

namespace
{

const int QUEUE = 2048;  // packets queued for a subscriber, as many as a channel holds

void Check(int nResult)
{
    if (nResult != 0)
    {
        fprintf(stderr, "nng: %s\n", nng_strerror(nResult));
        abort();
    }
}

class CNNGPublisher final : public IPublisher
{
public:
    CNNGPublisher()
    {
        Check(nng_pub0_open(&m_socket));
        Check(nng_socket_set_int(m_socket, NNG_OPT_SENDBUF, QUEUE));
        nng_listener listener;
        Check(nng_listen(m_socket, "tcp://127.0.0.1:0", &listener, 0));
        Check(nng_listener_get_int(listener, NNG_OPT_TCP_BOUND_PORT, &m_nPort));
    }
    int GetPort() const override
    {
        return m_nPort;
    }
    bool Publish(void* pData, unsigned int dwSize) override
    {
        return nng_send(m_socket, pData, dwSize, NNG_FLAG_NONBLOCK) == 0;
    }

private:
    nng_socket m_socket = NNG_SOCKET_INITIALIZER;
    int m_nPort = 0;
};

class CNNGSubscribers final : public ISubscribers
{
public:
    CNNGSubscribers(CShared& shared, int nCount)
    {
        const std::string strURL = "tcp://127.0.0.1:" + std::to_string(shared.m_nPort);
        for (int i = 0; i < nCount; ++i)
        {
            nng_socket socket = NNG_SOCKET_INITIALIZER;
            Check(nng_sub0_open(&socket));
            Check(nng_socket_set_int(socket, NNG_OPT_RECVBUF, QUEUE));
            Check(nng_socket_set(socket, NNG_OPT_SUB_SUBSCRIBE, "", 0));
            Check(nng_dial(socket, strURL.c_str(), nullptr, 0));
            m_listThreads.emplace_back([&shared, socket, i] { Receive(shared, socket, i); });
        }
    }

private:
    static void Receive(CShared& shared, nng_socket socket, int nIndex)
    {
        nng_msg* pMessage = nullptr;
        for (;;)
        {
            Check(nng_recvmsg(socket, &pMessage, 0));
            TakePacket(shared, nIndex, nng_msg_body(pMessage), nng_msg_len(pMessage));
            nng_msg_free(pMessage);
        }
    }

    std::vector<std::thread> m_listThreads;
};

class CNNG final : public ISystem
{
public:
    const char* GetName() const override
    {
        return "NNG";
    }
    std::unique_ptr<IPublisher> MakePublisher() const override
    {
        return std::make_unique<CNNGPublisher>();
    }
    std::unique_ptr<ISubscribers> MakeSubscribers(CShared& shared, int nCount) const override
    {
        return std::make_unique<CNNGSubscribers>(shared, nCount);
    }
};

}  // namespace

const ISystem& NNG()
{
    static const CNNG system;
    return system;
}
